// The shared road of the commands that open a document, change it and save it.

#include "DocumentEdit.h"

#include "CliSupport.h"
#include "Command.h"
#include "ZmapCli.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"

#include <cstdio>
#include <new>

namespace cli {

namespace {

/// Keeps what the commands tell the user, to print it once their outcome is known.
class CollectedMessages : public CommandMessages {
public:
    void message(std::int32_t, const std::wstring& text) override { texts.push_back(text); }
    void progressText(std::int32_t, const std::wstring&) override {}

    /// Prints and forgets the messages as warnings.
    void printWarnings(const char* name) {
        for (const std::wstring& text : texts) {
            std::fprintf(stderr, "quorvale-cli %s: warning: %s\n", name, utf8(text).c_str());
        }
        texts.clear();
    }

    std::vector<std::wstring> texts;
};

} // namespace

bool inAndOut(const std::vector<std::string>& positional, std::string& in, std::string& out,
              std::string& error) {
    if (positional.size() != 2) {
        error = "expected an input and an output file";
        return false;
    }
    in = positional[0];
    out = positional[1];
    return true;
}

int editWithoutOptions(const char* name, const std::vector<std::string>& args,
                       std::int32_t command) {
    Arguments a(args, {});
    std::string in;
    std::string out;
    std::string error;
    if (!a.ok()) {
        return usageError(name, a.error());
    }
    if (!inAndOut(a.positional(), in, out, error)) {
        return usageError(name, error);
    }
    return editDocument(name, in, out, command, {});
}

int editDocument(const char* name, const std::string& in, const std::string& out,
                 std::int32_t command, const CommandArgument& argument) {
    try {
        DummyZmapDocument doc;
        CollectedMessages messages;
        doc.editor.setMessages(&messages);
        struct Step {
            std::int32_t command;
            CommandArgument argument;
            const std::string& context;
        };
        const Step steps[] = {{commandOpen, FileArgument{getWCS(in)}, in},
                              {command, argument, in},
                              {commandSaveAs, FileArgument{getWCS(out)}, out}};
        for (const Step& step : steps) {
            Status s = status::ok;
            doc.editor.execute(s, step.command, step.argument);
            if (s != status::ok && s != status::warning) {
                if (!messages.texts.empty()) {
                    return failed(name, utf8(messages.texts.back()));
                }
                return operationFailed(name, step.context, s);
            }
            messages.printWarnings(name);
        }
    } catch (const std::bad_alloc&) {
        return operationFailed(name, in, status::outOfMemory);
    }
    return exitOk;
}

int openForStrokes(const char* name, const std::string& in, DummyZmapDocument& doc,
                   LastMessage& messages) {
    doc.editor.setMessages(&messages);
    Status s = status::ok;
    FileProgress reading("reading");
    doc.editor.setProgress(&reading);
    doc.editor.execute(s, commandOpen, FileArgument{getWCS(in)});
    doc.editor.setProgress(nullptr);
    if (s != status::ok && s != status::warning) {
        return messages.last.empty() ? operationFailed(name, in, s)
                                     : failed(name, utf8(messages.last));
    }
    return exitOk;
}

int saveAfterStrokes(const char* name, const std::string& in, const std::string& out,
                     DummyZmapDocument& doc, Status s, LastMessage& messages) {
    if (s != status::ok) {
        return operationFailed(name, in, s);
    }
    if (interrupted()) {
        return operationFailed(name, in, status::stopped);
    }
    FileProgress writing("writing");
    doc.editor.setProgress(&writing);
    doc.editor.execute(s, commandSaveAs, FileArgument{getWCS(out)});
    doc.editor.setProgress(nullptr);
    if (s != status::ok && s != status::warning) {
        return messages.last.empty() ? operationFailed(name, out, s)
                                     : failed(name, utf8(messages.last));
    }
    return exitOk;
}

} // namespace cli
