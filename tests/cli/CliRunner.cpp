#include "CliRunner.h"

#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

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

Status execute(ZmapDocument& doc, std::int32_t command, const CommandArgument& argument) {
    Status s = -99;
    doc.editor.execute(s, command, argument);
    return s;
}

void writeStoneAndGrass(
    const std::string& path, std::int32_t width, std::int32_t height,
    const std::function<std::uint16_t(std::int32_t, std::int32_t)>& materialAt) {
    DummyZmapDocument doc;
    NewImageParams params;
    params.width = width;
    params.height = height;
    params.background = {100, 100, 100};
    ASSERT_EQ(execute(doc, commandNew, params), status::ok);
    doc.setMaterial(1, L"Stone", ColourPOD{}, false);
    doc.setMaterial(2, L"Grass", ColourPOD{}, false);
    TileHandle hold;
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            *doc.matWrite(x, y, hold) = materialAt(x, y);
        }
    }
    hold.reset();
    ASSERT_EQ(execute(doc, commandSaveAs, FileArgument{getWCS(path)}), status::ok);
}

} // namespace cli_test
