// quorvale-cli import and export: a picture in, a document out, pictures of every type back.
#include "CliRunner.h"
#include "support/PngFile.h"
#include "support/TempDir.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using cli_test::runCli;

TEST(RasterCommands, ImportThenExportKeepsThePixels) {
    const test::TempDir dir;
    // A picture made by the tool itself: a one-colour PNG.
    auto made =
        runCli({"new", "--size", "70x40", "--background", "12,34,56", "--png", dir.file("in.png")});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    auto imported = runCli({"import", dir.file("in.png"), dir.file("doc.zmp")});
    ASSERT_EQ(imported.exitCode, 0) << imported.err;
    for (const char* ext : {"png", "bmp", "tga", "tif", "jpg", "psd"}) {
        SCOPED_TRACE(ext);
        const std::string out = dir.file(std::string("out.") + ext);
        std::vector<std::string> args{"export", dir.file("doc.zmp"), out};
        if (std::string(ext) == "jpg") {
            args.insert(args.end(), {"--quality", "100"});
        }
        if (std::string(ext) == "psd") {
            args.push_back("--layers");
        }
        const auto result = runCli(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        ASSERT_TRUE(std::filesystem::exists(out));
        if (std::string(ext) != "psd") {
            // Each picture goes back in as a document of the same size.
            const auto again =
                runCli({"import", out, dir.file(std::string("again-") + ext + ".zmp")});
            EXPECT_EQ(again.exitCode, 0) << again.err;
        }
    }
    test::PngImage png;
    std::string error;
    ASSERT_TRUE(test::readPng(dir.file("out.png"), png, error)) << error;
    EXPECT_EQ(png.width, 70u);
    EXPECT_EQ(std::vector<int>(png.at(69, 39), png.at(69, 39) + 3), (std::vector<int>{12, 34, 56}));
}

TEST(RasterCommands, PanoramaImportMakesACubeDocument) {
    const test::TempDir dir;
    ASSERT_EQ(runCli({"new", "--size", "96x16", "--png", dir.file("strip.png")}).exitCode, 0);
    auto result = runCli({"import", "--panorama", dir.file("strip.png"), dir.file("pano.zmq")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto info = runCli({"info", dir.file("pano.zmq")});
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_NE(info.out.find("view: panorama"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("width: 96"), std::string::npos) << info.out;
    // A picture of another shape is refused with the reason and leaves no file.
    ASSERT_EQ(runCli({"new", "--size", "50x40", "--png", dir.file("square.png")}).exitCode, 0);
    result = runCli({"import", "--panorama", dir.file("square.png"), dir.file("no.zmq")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("50 x 40"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("no.zmq")));
}

TEST(RasterCommands, BadInputsFailClearlyAndLeaveNoFile) {
    const test::TempDir dir;
    std::filesystem::path junk = dir.file("junk.png");
    {
        std::FILE* f = std::fopen(junk.c_str(), "wb");
        std::fputs("not a picture", f);
        std::fclose(f);
    }
    auto result = runCli({"import", junk.string(), dir.file("doc.zmp")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("junk.png"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("doc.zmp")));

    result = runCli({"import", dir.file("movie.mov"), dir.file("doc.zmp")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("movie.mov"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("not supported"), std::string::npos) << result.err;

    ASSERT_EQ(runCli({"new", "--size", "8x8", dir.file("doc.zmp")}).exitCode, 0);
    result = runCli({"export", dir.file("doc.zmp"), dir.file("out.gif")});
    EXPECT_EQ(result.exitCode, 2);
    result = runCli({"export", dir.file("doc.zmp"), dir.file("out.jpg"), "--quality", "150"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.jpg")));
}

} // namespace
