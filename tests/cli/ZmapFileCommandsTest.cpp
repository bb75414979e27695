// quorvale-cli info, snapshot and resave: Zmap files written by the library, looked at and
// rewritten by the tool, and checked with the library and libpng.
#include "CliRunner.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/QuorvaleZmapFile.h"
#include "support/PngFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>

namespace {

using cli_test::runCli;

/// A 70 x 40 document: colour by position, depth codes on the left half (none on the
/// right), one material, texts, and the given compression.
void writeSample(const std::string& path, std::int32_t compression) {
    DummyZmapDocument doc;
    ASSERT_EQ(doc.setSize(70, 40), status::ok);
    doc.rgb = TQL::makeHandle<RgbBitmap>(doc);
    ASSERT_EQ(doc.allocateChannels(), status::ok);
    TileHandle hold;
    for (std::int32_t y = 0; y < 40; ++y) {
        for (std::int32_t x = 0; x < 70; ++x) {
            *doc.rgbWrite(x, y, hold) =
                ColourPOD{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 200};
            if (x < 35) {
                *doc.zWrite(x, y, hold) = static_cast<std::uint32_t>(x) * 100000000u;
            }
        }
    }
    doc.commitOriginals(); // the originals are the image as made: no original section
    doc.setMaterial(3, L"Floor \u00e9", ColourPOD{0x30, 0x20, 0x10}, false);
    doc.description = L"say \"hi\"";
    doc.compression = compression;
    QuorvaleZmapFile file;
    Status status = -1;
    file.write(status, doc, utf8(path));
    ASSERT_EQ(status, status::ok);
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(ZmapFileCommands, InfoDescribesTheFile) {
    const test::TempDir dir;
    writeSample(dir.file("a.zmp"), 1);
    const auto json = runCli({"info", dir.file("a.zmp"), "--json"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    for (const char* expected :
         {"\"width\": 70,", "\"height\": 40,", "\"view\": \"perspective\"",
          "\"channels\": [\"colour\", \"depth\", \"material\"]",
          "{\"id\": 3, \"name\": \"Floor \xc3\xa9\", \"colour\": \"#102030\"}",
          "\"description\": \"say \\\"hi\\\"\"", "\"compression\": \"none (1)\"",
          "\"readOnly\": false"}) {
        EXPECT_NE(json.out.find(expected), std::string::npos) << expected << "\n" << json.out;
    }
    const auto text = runCli({"info", dir.file("a.zmp")});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("materials: 1\n  3 \"Floor \xc3\xa9\" #102030\n"), std::string::npos)
        << text.out;

    std::ofstream(dir.file("bad.zmp")) << "not a Zmap file";
    const auto bad = runCli({"info", dir.file("bad.zmp")});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.err.find("bad.zmp"), std::string::npos);
    // The message says where the file is damaged.
    EXPECT_NE(bad.err.find("at byte 0: the file starts with neither II nor MM"), std::string::npos)
        << bad.err;
    EXPECT_EQ(runCli({"info"}).exitCode, 2);
}

TEST(ZmapFileCommands, SnapshotDrawsTheChannelAsTheDisplayDoes) {
    const test::TempDir dir;
    writeSample(dir.file("a.zmp"), 5);
    for (const char* channel : {"1", "2"}) {
        SCOPED_TRACE(channel);
        const auto result =
            runCli({"snapshot", dir.file("a.zmp"), dir.file("out.png"), "--channel", channel});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        test::PngImage image;
        std::string error;
        ASSERT_TRUE(test::readPng(dir.file("out.png"), image, error)) << error;
        ASSERT_EQ(image.width, 70u);
        ASSERT_EQ(image.height, 40u);
        for (std::uint32_t y = 0; y < 40; y += 7) {
            for (std::uint32_t x = 0; x < 70; x += 3) {
                const std::uint8_t* p = image.at(x, y);
                std::uint8_t expected[3] = {200, static_cast<std::uint8_t>(y),
                                            static_cast<std::uint8_t>(x)};
                if (channel[0] == '2') {
                    // Depth shows as the grey floor(sqrt(z / (2^32 - 1)) * 255); no depth
                    // as dark red.
                    const auto grey = static_cast<std::uint8_t>(
                        std::floor(std::sqrt(x * 100000000.0 / 4294967295.0) * 255));
                    expected[0] = x < 35 ? grey : 0x60;
                    expected[1] = expected[2] = x < 35 ? grey : 0;
                }
                EXPECT_EQ(p[0], expected[0]) << x << "," << y;
                EXPECT_EQ(p[1], expected[1]) << x << "," << y;
                EXPECT_EQ(p[2], expected[2]) << x << "," << y;
            }
        }
    }
    EXPECT_EQ(runCli({"snapshot", dir.file("a.zmp"), dir.file("b.png"), "--channel", "3"}).exitCode,
              2);
    EXPECT_EQ(runCli({"snapshot", dir.file("none.zmp"), dir.file("b.png")}).exitCode, 1);
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"a.zmp", "out.png"}));
}

TEST(ZmapFileCommands, ResaveChangesTheCompressionAndNothingElse) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"), 5);
    const auto result =
        runCli({"resave", dir.file("in.zmp"), dir.file("out.zmp"), "--compression", "1"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    DummyZmapDocument in, out;
    QuorvaleZmapFile file;
    Status status = -1;
    file.read(status, utf8(dir.file("in.zmp")), in);
    ASSERT_EQ(status, status::ok);
    file.read(status, utf8(dir.file("out.zmp")), out);
    ASSERT_EQ(status, status::ok);
    EXPECT_EQ(out.savedCompression, 1);
    EXPECT_GT(slurp(dir.file("out.zmp")).size(), slurp(dir.file("in.zmp")).size());
    for (std::int32_t y = 0; y < 40; y += 3) {
        for (std::int32_t x = 0; x < 70; ++x) {
            ASSERT_EQ(in.rgbAt(x, y), out.rgbAt(x, y));
            ASSERT_EQ(in.zAt(x, y), out.zAt(x, y));
        }
    }
    EXPECT_EQ(out.materialName(3), L"Floor \u00e9");

    // A failure leaves what was at the output alone; a flat image can't become a .zmq.
    std::ofstream(dir.file("bad.zmp")) << "not a Zmap file";
    EXPECT_EQ(runCli({"resave", dir.file("bad.zmp"), dir.file("out.zmp")}).exitCode, 1);
    const auto wrong = runCli({"resave", dir.file("in.zmp"), dir.file("out.zmq")});
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_NE(wrong.err.find("out.zmq"), std::string::npos);
    file.read(status, utf8(dir.file("out.zmp")), out);
    EXPECT_EQ(status, status::ok);
    EXPECT_EQ(
        runCli({"resave", dir.file("in.zmp"), dir.file("x.zmp"), "--compression", "7"}).exitCode,
        2);
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"bad.zmp", "in.zmp", "out.zmp"}));
}

} // namespace

namespace {

TEST(ZmapFileCommands, NewSavesTheDocumentAsAZmapFile) {
    const test::TempDir dir;
    const auto result = runCli({"new", "--size", "130x70", "--background", "1,2,3", "--png",
                                dir.file("out.png"), dir.file("out.zmp")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    DummyZmapDocument doc;
    QuorvaleZmapFile file;
    Status status = -1;
    file.read(status, utf8(dir.file("out.zmp")), doc);
    ASSERT_EQ(status, status::ok);
    EXPECT_EQ(doc.width(), 130);
    EXPECT_EQ(doc.height(), 70);
    EXPECT_EQ(doc.rgbAt(129, 69), (ColourPOD{3, 2, 1}));
    EXPECT_EQ(doc.zAt(5, 5), ZBitmap::noDepth);
    EXPECT_FALSE(doc.originalRgb); // made as it is: no original section
    test::PngImage image;
    std::string error;
    ASSERT_TRUE(test::readPng(dir.file("out.png"), image, error)) << error;
    EXPECT_EQ(image.at(0, 0)[2], 3);

    // A flat image isn't a panorama, and nothing is left of the attempt.
    EXPECT_EQ(runCli({"new", "--size", "8x8", dir.file("flat.zmq")}).exitCode, 1);
    EXPECT_EQ(runCli({"new", "--size", "8x8"}).exitCode, 2);
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"out.png", "out.zmp"}));
}

} // namespace
