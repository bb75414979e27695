#pragma once

#include <string>
#include <vector>

namespace cli {

/// Exit codes shared by every subcommand.
enum ExitCode { exitOk = 0, exitFailed = 1, exitUsage = 2 };

/// One subcommand of quorvale-cli. Each lives in its own file under commands/ and
/// registers itself with a static CommandRegistration.
struct Command {
    const char* name;
    const char* summary; ///< one line for the command list
    const char* usage;   ///< the synopsis and options, shown by `quorvale-cli help NAME`
    int (*run)(const std::vector<std::string>& args);
};

class CommandRegistration {
public:
    explicit CommandRegistration(const Command& command);
};

/// All registered commands, sorted by name.
std::vector<const Command*> commands();
const Command* findCommand(const std::string& name);

} // namespace cli
