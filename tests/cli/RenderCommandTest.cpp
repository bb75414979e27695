// quorvale-cli render: the document it saves is read back through the file library, its
// pictures with libpng; damaged drawings and bad requests fail and write nothing.
#include "CliRunner.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/ZmapDocumentFile.h"
#include "support/PngFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

namespace {

using cli_test::runCli;

const std::string house = QUORVALE_SOURCE_DATA_DIR "/samples/house.dxf";

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(RenderCommand, RendersTheSampleHouseIntoADocumentAndPictures) {
    const test::TempDir dir;
    const auto result = runCli({"render", house, dir.file("house.zmp"), "--size", "120x90", "--png",
                                dir.file("c.png"), "--depth-png", dir.file("z.png"),
                                "--material-png", dir.file("m.png"), "--background", "1,2,3"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"c.png", "house.zmp", "m.png", "z.png"}));

    DummyZmapDocument doc;
    Status s = status::ok;
    openZmapDocument(s, doc, getWCS(dir.file("house.zmp")));
    ASSERT_EQ(s, status::ok);
    ASSERT_EQ(doc.width(), 120);
    ASSERT_EQ(doc.height(), 90);
    std::set<std::wstring> names;
    for (const auto& [id, record] : doc.materials()) {
        names.insert(record.name);
    }
    EXPECT_EQ(names, (std::set<std::wstring>{L"Ground", L"Floor", L"Walls", L"Glazing", L"Doors",
                                             L"Roof tiles", L"Terrace", L"Furniture", L"Planters",
                                             L"Plants"}));
    // Every pixel is either the model, with a material and a depth, or background.
    test::PngImage colour;
    std::string error;
    ASSERT_TRUE(test::readPng(dir.file("c.png"), colour, error)) << error;
    int drawn = 0;
    for (std::int32_t y = 0; y < 90; ++y) {
        for (std::int32_t x = 0; x < 120; ++x) {
            const bool model = doc.zAt(x, y) != 0xFFFFFFFFu;
            EXPECT_EQ(model, doc.matAt(x, y) != 0) << x << "," << y;
            const ColourPOD c = doc.rgbAt(x, y);
            const std::uint8_t* p = colour.at(x, y);
            EXPECT_EQ((ColourPOD{p[2], p[1], p[0]}), c) << x << "," << y;
            if (!model) {
                EXPECT_EQ(c, (ColourPOD{3, 2, 1})) << x << "," << y;
            }
            drawn += model;
        }
    }
    EXPECT_GT(drawn, 120 * 90 / 20);
    for (const char* picture : {"z.png", "m.png"}) {
        test::PngImage image;
        ASSERT_TRUE(test::readPng(dir.file(picture), image, error)) << error;
        EXPECT_EQ(image.width, 120u);
    }
}

TEST(RenderCommand, APanoramaIsSavedAsAPanorama) {
    const test::TempDir dir;
    const auto ok = runCli(
        {"render", house, dir.file("p.zmq"), "--view", "cubic", "--size", "96x16", "--no-shadows"});
    ASSERT_EQ(ok.exitCode, 0) << ok.err;
    DummyZmapDocument doc;
    Status s = status::ok;
    openZmapDocument(s, doc, getWCS(dir.file("p.zmq")));
    ASSERT_EQ(s, status::ok);
    EXPECT_EQ(doc.viewParams().viewCode, 3u);
    // Not as a flat image.
    const auto flat =
        runCli({"render", house, dir.file("p.zmp"), "--view", "cubic", "--size", "96x16"});
    EXPECT_EQ(flat.exitCode, 1);
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"p.zmq"});
}

TEST(RenderCommand, DamagedDrawingsGiveTheReadersTextAndNoFile) {
    const test::TempDir dir;
    const std::string text = readAll(house);
    ASSERT_GT(text.size(), 1000u);
    struct Case {
        const char* name;
        std::string data;
        const char* message; // a part of what stderr must say
    };
    const Case cases[] = {
        {"cut.dxf", text.substr(0, text.size() / 3), "at line"},
        {"number.dxf", "0\nSECTION\n2\nENTITIES\n0\n3DFACE\n8\nL\n10\nten\n", "at line"},
        {"binary.dxf", std::string("AutoCAD Binary DXF\r\n\x1a\0\0\x07SECT", 28), "at line"},
        {"empty.dxf", "", "empty.dxf"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string in = dir.file(c.name);
        std::ofstream(in, std::ios::binary) << c.data;
        const auto result = runCli({"render", in, dir.file("out.zmp"), "--size", "40x30"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(c.name), std::string::npos) << result.err;
    }
    const auto missing = runCli({"render", dir.file("none.dxf"), dir.file("out.zmp")});
    EXPECT_EQ(missing.exitCode, 1);
    for (const std::string& entry : dir.entries()) {
        EXPECT_EQ(entry.find("out"), std::string::npos) << entry;
    }
}

TEST(RenderCommand, BadRequestsAreUsageErrors) {
    const test::TempDir dir;
    const std::string out = dir.file("out.zmp");
    const std::vector<std::vector<std::string>> cases = {
        {"render", house},
        {"render", house, out, "--view", "fisheye"},
        {"render", house, out, "--view", "cubic", "--size", "100x20"},
        {"render", house, out, "--size", "1x1"},
        {"render", house, out, "--fit", "--eye", "1,2,3", "--target", "0,0,0"},
        {"render", house, out, "--eye", "1,2,3"},
        {"render", house, out, "--eye", "1,2,3", "--target", "1,2,3"},
        {"render", house, out, "--eye", "1,2,3", "--target", "0,0,0", "--fov", "180"},
        {"render", house, out, "--sun", "100"},
        {"render", house, out, "--sun", "100,95"},
        {"render", house, out, "--section", "0,0,0,1,1"},
        {"render", house, out, "--background", "1,2,300"},
        {"render", house, out, "--shadows"},
    };
    for (const auto& args : cases) {
        const auto result = runCli(args);
        EXPECT_EQ(result.exitCode, 2) << args.back() << ": " << result.err;
    }
    EXPECT_TRUE(dir.entries().empty());
}

} // namespace
