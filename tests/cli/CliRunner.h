#pragma once

#include <string>
#include <vector>

namespace cli_test {

/// What one run of quorvale-cli gave.
struct CliResult {
    int exitCode = -1; ///< -1 if the tool didn't exit normally
    std::string out;
    std::string err;
};

/// Runs the quorvale-cli of this build with `args` and waits for it.
CliResult runCli(const std::vector<std::string>& args);

} // namespace cli_test
