#pragma once

#include "core/Status.h"
#include "image/DocumentCommands.h"

#include <string>
#include <vector>

class DummyZmapDocument;

namespace cli {

/// The road of the commands that change a document file: IN is opened through the
/// document's open command, command `command` runs with `argument`, and the document is
/// saved as OUT through the save-as command (a safe save: a failure leaves whatever was at
/// OUT, or nothing). Both paths must be Zmap files (.zmp, .zmq). A failure prints the
/// command's own message if it gave one, else the status text, and returns 1; warnings are
/// printed and the run succeeds (0).
int editDocument(const char* name, const std::string& in, const std::string& out,
                 std::int32_t command, const CommandArgument& argument);

/// The whole run of such a command that takes no options: `args` must be IN and OUT.
int editWithoutOptions(const char* name, const std::vector<std::string>& args,
                       std::int32_t command);

/// Takes the two positional arguments IN and OUT of such a command; false (with `error`
/// set) if there aren't exactly two.
bool inAndOut(const std::vector<std::string>& positional, std::string& in, std::string& out,
              std::string& error);

/// What a document's commands last told the user, kept to be printed when the command fails.
class LastMessage : public CommandMessages {
public:
    void message(std::int32_t, const std::wstring& text) override { last = text; }
    void progressText(std::int32_t, const std::wstring&) override {}
    std::wstring last;
};

/// The ends of the commands that paint strokes into a document (fill, paint): opens IN into
/// `doc` with reading progress, and, after the strokes, saves it as OUT with writing
/// progress. `doc` reports its messages to `messages` from `openForStrokes` on. Each returns
/// 0 when the road goes on, else the exit code after printing why (the command's own
/// message if it gave one). `saveAfterStrokes` saves nothing when the strokes failed (`s`)
/// or were stopped by Ctrl+C, so OUT is left as it was.
int openForStrokes(const char* name, const std::string& in, DummyZmapDocument& doc,
                   LastMessage& messages);
int saveAfterStrokes(const char* name, const std::string& in, const std::string& out,
                     DummyZmapDocument& doc, Status s, LastMessage& messages);

} // namespace cli
