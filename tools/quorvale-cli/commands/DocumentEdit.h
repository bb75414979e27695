#pragma once

#include "image/DocumentCommands.h"

#include <string>
#include <vector>

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

} // namespace cli
