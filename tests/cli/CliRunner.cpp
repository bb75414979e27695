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

void writeCheckerBmp(const std::string& path, ColourPOD dark, ColourPOD light) {
    std::vector<std::uint8_t> file(54 + 8 * 8 * 3, 0);
    auto put32 = [&file](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) {
            file[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
        }
    };
    file[0] = 'B';
    file[1] = 'M';
    put32(2, static_cast<std::uint32_t>(file.size()));
    put32(10, 54);
    put32(14, 40);
    put32(18, 8);
    put32(22, 8);
    file[26] = 1;
    file[28] = 24;
    for (int row = 0; row < 8; ++row) {
        const int y = 7 - row; // rows are stored from the bottom
        for (int x = 0; x < 8; ++x) {
            const ColourPOD c = ((x / 4 + y / 4) % 2) ? light : dark;
            // A BMP pixel is blue, green, red, as ColourPOD lies.
            std::uint8_t* p = file.data() + 54 + (row * 8 + x) * 3;
            p[0] = c.b;
            p[1] = c.g;
            p[2] = c.r;
        }
    }
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()),
               static_cast<std::streamsize>(file.size()));
}

} // namespace cli_test
