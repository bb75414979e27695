// quorvale-cli new: the PNG it writes is read back with libpng; failures leave no file.
#include "CliRunner.h"
#include "support/PngFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

namespace {

using cli_test::runCli;

TEST(NewCommand, WritesEveryPixelInTheBackground) {
    struct Case {
        const char* size;
        const char* background; // null: the default
        std::uint32_t width, height;
        std::uint8_t red, green, blue;
    };
    // 130 x 70 has a narrow last column and row of tiles; 1 x 1 is the smallest image.
    const Case cases[] = {{"300x200", "10,20,30", 300, 200, 10, 20, 30},
                          {"130x70", "255,0,128", 130, 70, 255, 0, 128},
                          {"1x1", "0,0,0", 1, 1, 0, 0, 0},
                          {"65x3", nullptr, 65, 3, 255, 255, 255}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        const test::TempDir dir;
        std::vector<std::string> args{"new", "--size", c.size, "--png", dir.file("out.png")};
        if (c.background) {
            args.insert(args.end(), {"--background", c.background});
        }
        const auto result = runCli(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        test::PngImage image;
        std::string error;
        ASSERT_TRUE(test::readPng(dir.file("out.png"), image, error)) << error;
        EXPECT_EQ(image.width, c.width);
        EXPECT_EQ(image.height, c.height);
        for (std::uint32_t y = 0; y < image.height; ++y) {
            for (std::uint32_t x = 0; x < image.width; ++x) {
                const std::uint8_t* p = image.at(x, y);
                ASSERT_EQ(p[0], c.red) << x << "," << y;
                ASSERT_EQ(p[1], c.green) << x << "," << y;
                ASSERT_EQ(p[2], c.blue) << x << "," << y;
            }
        }
        // Only the output is left behind: no temporary file.
        EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.png"});
    }
}

TEST(NewCommand, BadRequestsFailAndWriteNothing) {
    struct Case {
        std::vector<std::string> args; // "OUT" stands for the output path
        int exitCode;
        const char* message; // a part of what stderr must say
    };
    const Case cases[] = {
        {{"--size", "0x5", "--png", "OUT"}, 2, "width and height"},
        {{"--size", "5x0", "--png", "OUT"}, 2, "width and height"},
        {{"--size", "-4x5", "--png", "OUT"}, 2, "width and height"},
        {{"--size", "4by5", "--png", "OUT"}, 2, "WIDTHxHEIGHT"},
        {{"--size", "3000000000x2", "--png", "OUT"}, 2, "width and height"},
        {{"--size", "10x10"}, 2, "required"},
        {{"--size", "10x10", "--background", "256,0,0", "--png", "OUT"}, 2, "background"},
        {{"--size", "10x10", "--background", "1,2", "--png", "OUT"}, 2, "background"},
        {{"--size", "10x10", "--frame", "--png", "OUT"}, 2, "unknown option"},
        // Far more than any memory: no channel could be allocated.
        {{"--size", "2000000000x2000000000", "--png", "OUT"}, 1, "Out of memory"},
        {{"--size", "100000000x100000", "--png", "OUT"}, 1, "Out of memory"},
    };
    for (const Case& c : cases) {
        const test::TempDir dir;
        std::vector<std::string> args{"new"};
        for (const std::string& a : c.args) {
            args.push_back(a == "OUT" ? dir.file("out.png") : a);
        }
        SCOPED_TRACE(testing::Message() << c.args[1]);
        const auto result = runCli(args);
        EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
        EXPECT_TRUE(dir.entries().empty());
    }
}

TEST(NewCommand, UnwritablePathFailsCleanly) {
    const test::TempDir dir;
    const auto result = runCli({"new", "--size", "8x8", "--png", dir.file("missing/out.png")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("missing/out.png"), std::string::npos) << result.err;
    EXPECT_TRUE(dir.entries().empty());
}

} // namespace
