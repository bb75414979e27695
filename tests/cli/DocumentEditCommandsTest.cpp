// quorvale-cli crop, flatten and autolevels: documents written by the library, changed by
// the tool, and read back by the library.
#include "CliRunner.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

namespace {

using cli_test::execute;
using cli_test::runCli;

/// Writes a 200 x 100 document: grey 100 on the left half, grey 150 on the right, a
/// depth code at each pixel of row 0, and a red pixel at (120, 70).
void writeSample(const std::string& path) {
    DummyZmapDocument doc;
    NewImageParams params;
    params.width = 200;
    params.height = 100;
    params.background = {100, 100, 100};
    ASSERT_EQ(execute(doc, commandNew, params), status::ok);
    TileHandle hold;
    for (std::int32_t y = 0; y < 100; ++y) {
        for (std::int32_t x = 100; x < 200; ++x) {
            *doc.rgbWrite(x, y, hold) = ColourPOD{150, 150, 150};
        }
    }
    for (std::int32_t x = 0; x < 200; ++x) {
        *doc.zWrite(x, 0, hold) = 5000u + std::uint32_t(x);
    }
    *doc.rgbWrite(120, 70, hold) = ColourPOD{0, 0, 255};
    hold.reset();
    ASSERT_EQ(execute(doc, commandSaveAs, FileArgument{getWCS(path)}), status::ok);
}

TEST(DocumentEditCommands, CropKeepsTheRectangleAndItsWorldPoints) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    const auto result =
        runCli({"crop", dir.file("in.zmp"), dir.file("out.zmp"), "--rect", "90,0,129,79"});
    ASSERT_EQ(result.exitCode, 0) << result.err;

    DummyZmapDocument in;
    DummyZmapDocument out;
    ASSERT_EQ(execute(in, commandOpen, FileArgument{getWCS(dir.file("in.zmp"))}), status::ok);
    ASSERT_EQ(execute(out, commandOpen, FileArgument{getWCS(dir.file("out.zmp"))}), status::ok);
    EXPECT_EQ(out.width(), 40);
    EXPECT_EQ(out.height(), 80);
    EXPECT_EQ(out.rgbAt(9, 5), (ColourPOD{100, 100, 100}));
    EXPECT_EQ(out.rgbAt(10, 5), (ColourPOD{150, 150, 150}));
    EXPECT_EQ(out.rgbAt(30, 70), (ColourPOD{0, 0, 255}));
    for (std::int32_t x = 0; x < 40; ++x) {
        ASSERT_EQ(out.zAt(x, 0), 5090u + std::uint32_t(x));
        const Point<3> before = in.worldAt(x + 90, 0);
        const Point<3> after = out.worldAt(x, 0);
        EXPECT_LT((before - after).length(), 1e-9 * (1 + toVector(before).length())) << x;
    }
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"in.zmp", "out.zmp"}));
}

TEST(DocumentEditCommands, AutoLevelsStretchesAndFlattenKeepsAnImageWithoutOverlay) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    // Greys 100 and 150 are the ends (the red pixel is one of 20000): they become black
    // and white.
    auto result = runCli({"autolevels", dir.file("in.zmp"), dir.file("levels.zmp")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    result = runCli({"flatten", dir.file("levels.zmp"), dir.file("flat.zmp")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* file : {"levels.zmp", "flat.zmp"}) {
        SCOPED_TRACE(file);
        DummyZmapDocument doc;
        ASSERT_EQ(execute(doc, commandOpen, FileArgument{getWCS(dir.file(file))}), status::ok);
        EXPECT_EQ(doc.rgbAt(10, 10), (ColourPOD{0, 0, 0}));
        EXPECT_EQ(doc.rgbAt(150, 10), (ColourPOD{255, 255, 255}));
        EXPECT_EQ(doc.zAt(7, 0), 5007u);
    }
}

TEST(DocumentEditCommands, FailuresSayWhyAndWriteNothing) {
    struct Case {
        std::vector<std::string> args; // IN, OUT and TIF stand for paths in the directory
        int exitCode;
        const char* message; // a part of what stderr must say
    };
    const Case cases[] = {
        {{"crop", "IN", "OUT"}, 2, "--rect is required"},
        {{"crop", "IN", "OUT", "--rect", "5,5,1,1"}, 2, "rect must be"},
        {{"crop", "IN", "OUT", "--rect", "1,2,3"}, 2, "rect must be"},
        {{"crop", "IN", "--rect", "0,0,1,1"}, 2, "an input and an output"},
        {{"crop", "IN", "OUT", "--rect", "500,500,600,600"}, 1, "nothing to work on"},
        {{"flatten", "MISSING", "OUT"}, 1, "not found"},
        {{"flatten", "TIF", "OUT"}, 1, "not a Quorvale document"},
        {{"autolevels", "IN", "OUT.png"}, 1, "Could not save"},
        {{"autolevels", "IN", "OUT", "extra"}, 2, "an input and an output"},
    };
    for (const Case& c : cases) {
        const test::TempDir dir;
        writeSample(dir.file("in.zmp"));
        std::vector<std::string> args;
        for (const std::string& a : c.args) {
            if (a == "IN") {
                args.push_back(dir.file("in.zmp"));
            } else if (a == "OUT" || a == "OUT.png") {
                args.push_back(dir.file(a == "OUT" ? "out.zmp" : "out.png"));
            } else if (a == "MISSING") {
                args.push_back(dir.file("missing.zmp"));
            } else if (a == "TIF") {
                args.push_back(dir.file("in.tif"));
            } else {
                args.push_back(a);
            }
        }
        SCOPED_TRACE(testing::Message() << c.args[0] << " " << c.args.back());
        const auto result = runCli(args);
        EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
        EXPECT_EQ(dir.entries(), std::vector<std::string>{"in.zmp"});
    }
}

} // namespace
