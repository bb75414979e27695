#include "CliRunner.h"

#include "support/TempDir.h"

#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>

extern char** environ;

namespace cli_test {

namespace {

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

CliResult runCli(const std::vector<std::string>& args) {
    const test::TempDir outputs;
    const std::string outPath = outputs.file("stdout");
    const std::string errPath = outputs.file("stderr");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    std::vector<std::string> words{QUORVALE_CLI_PATH};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& w : words) {
        argv.push_back(w.data());
    }
    argv.push_back(nullptr);

    CliResult result;
    pid_t pid = 0;
    if (posix_spawn(&pid, QUORVALE_CLI_PATH, &actions, nullptr, argv.data(), environ) == 0) {
        int status = 0;
        if (waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
            result.exitCode = WEXITSTATUS(status);
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    result.out = slurp(outPath);
    result.err = slurp(errPath);
    return result;
}

} // namespace cli_test
