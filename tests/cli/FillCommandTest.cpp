// quorvale-cli fill: documents written by the library, filled by the tool with locks and
// fog, and read back by the library.
#include "CliRunner.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

using cli_test::execute;
using cli_test::runCli;

/// A 200 x 100 grey document: material "Stone" (1) on the left half and on an island at
/// (150..169, 40..59), "Grass" (2) on the rest of the right half.
void writeSample(const std::string& path) {
    cli_test::writeStoneAndGrass(path, 200, 100, [](std::int32_t x, std::int32_t y) {
        const bool island = x >= 150 && x < 170 && y >= 40 && y < 60;
        return std::uint16_t(x < 100 || island ? 1 : 2);
    });
}

void open(DummyZmapDocument& doc, const std::string& path) {
    ASSERT_EQ(execute(doc, commandOpen, FileArgument{getWCS(path)}), status::ok);
}

constexpr ColourPOD red{0, 0, 255};
constexpr ColourPOD grey{100, 100, 100};

TEST(FillCommand, MaterialLockFloodsFromTheSeedAndWholeFillsTakeEveryPassingPixel) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    auto result = runCli({"fill", dir.file("in.zmp"), dir.file("flood.zmp"), "--at", "10,10",
                          "--lock", "material", "--colour", "255,0,0"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    result = runCli({"fill", dir.file("in.zmp"), dir.file("whole.zmp"), "--whole", "--materials",
                     "Stone|Marble", "--colour", "255,0,0", "--opacity", "100"});
    ASSERT_EQ(result.exitCode, 0) << result.err;

    DummyZmapDocument flood, whole;
    open(flood, dir.file("flood.zmp"));
    open(whole, dir.file("whole.zmp"));
    for (std::int32_t y = 0; y < 100; y += 3) {
        for (std::int32_t x = 0; x < 200; x += 3) {
            const bool island = x >= 150 && x < 170 && y >= 40 && y < 60;
            EXPECT_EQ(flood.rgbAt(x, y), x < 100 ? red : grey) << x << "," << y;
            EXPECT_EQ(whole.rgbAt(x, y), x < 100 || island ? red : grey) << x << "," << y;
        }
    }
}

TEST(FillCommand, TransparentFogFadesThePaintAcrossTheImage) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    const auto result =
        runCli({"fill", dir.file("in.zmp"), dir.file("out.zmp"), "--whole", "--colour", "255,0,0",
                "--fog", "linear-2d", "--fog-line", "0,0,199,0", "--fog-transparent"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    DummyZmapDocument out;
    open(out, dir.file("out.zmp"));
    EXPECT_EQ(out.rgbAt(0, 50), grey);
    EXPECT_EQ(out.rgbAt(199, 50), red);
    for (std::int32_t x = 1; x < 200; ++x) {
        EXPECT_GE(out.rgbAt(x, 50).r, out.rgbAt(x - 1, 50).r);
        EXPECT_LE(out.rgbAt(x, 50).g, out.rgbAt(x - 1, 50).g);
    }
}

TEST(FillCommand, BadUsageAndFailuresLeaveNoOutput) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    const std::string out = dir.file("out.zmp");
    const std::vector<std::vector<std::string>> usage = {
        {"fill", dir.file("in.zmp"), out},
        {"fill", dir.file("in.zmp"), out, "--at", "1,1", "--whole"},
        {"fill", dir.file("in.zmp"), out, "--at", "1,1", "--lock", "texture"},
        {"fill", dir.file("in.zmp"), out, "--at", "500,1"},
        {"fill", dir.file("in.zmp"), out, "--whole", "--mode", "sparkle"},
        {"fill", dir.file("in.zmp"), out, "--whole", "--fog", "12"},
        {"fill", dir.file("in.zmp"), out, "--whole", "--opacity", "0"},
    };
    for (const auto& args : usage) {
        const auto result = runCli(args);
        EXPECT_EQ(result.exitCode, 2) << args.back();
        EXPECT_NE(result.err.find("quorvale-cli fill:"), std::string::npos);
        EXPECT_FALSE(std::filesystem::exists(out));
    }
    const auto missing = runCli({"fill", dir.file("none.zmp"), out, "--whole"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_FALSE(std::filesystem::exists(out));
}

} // namespace

namespace {

/// The colour channel of a document, pixel by pixel.
std::vector<ColourPOD> colourOf(const std::string& path) {
    DummyZmapDocument doc;
    open(doc, path);
    std::vector<ColourPOD> pixels;
    for (std::int32_t y = 0; y < doc.height(); ++y) {
        for (std::int32_t x = 0; x < doc.width(); ++x) {
            pixels.push_back(doc.rgbAt(x, y));
        }
    }
    return pixels;
}

TEST(FillCommand, GrainBreaksUpThePaintTheSameWayEveryRun) {
    const test::TempDir dir;
    const std::string house = std::string(QUORVALE_SOURCE_DATA_DIR) + "/samples/house.dxf";
    auto result = runCli({"render", house, dir.file("house.zmp"), "--size", "120x90"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::vector<std::string> fill = {
        "fill",  dir.file("house.zmp"), "",  "--whole",      "--colour", "250,0,0", "--grain",
        "noise", "--grain-scale",       "3", "--grain-bias", "0.6"};
    for (const char* out : {"a.zmp", "b.zmp"}) {
        auto args = fill;
        args[2] = dir.file(out);
        result = runCli(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }
    // The grain only takes paint away: every pixel lies between the image and full red,
    // and some lie short of full red.
    const auto before = colourOf(dir.file("house.zmp"));
    const auto after = colourOf(dir.file("a.zmp"));
    ASSERT_EQ(before.size(), after.size());
    // Two runs paint the same bytes (the files differ only in their time of saving).
    EXPECT_EQ(after, colourOf(dir.file("b.zmp")));
    int partial = 0;
    for (std::size_t i = 0; i < after.size(); ++i) {
        EXPECT_GE(after[i].r, std::min<int>(before[i].r, 250)) << i;
        partial += after[i].r < 249;
    }
    EXPECT_GT(partial, static_cast<int>(after.size() / 10));

    // A picture that is missing: a failure that names it, and no output.
    result = runCli({"fill", dir.file("house.zmp"), dir.file("c.zmp"), "--whole", "--grain",
                     "raster", dir.file("missing.png")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("could not be loaded"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("c.zmp")));
}

} // namespace

namespace {

TEST(FillCommand, TextureLaysAPictureFlatOrOnTheSurfaces) {
    const test::TempDir dir;
    const std::string house = std::string(QUORVALE_SOURCE_DATA_DIR) + "/samples/house.dxf";
    auto result = runCli({"render", house, dir.file("house.zmp"), "--size", "120x90"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    cli_test::writeCheckerBmp(dir.file("checker.bmp"));

    // Flat: 64 image pixels over the picture's 8, so squares of 32 pixels.
    result = runCli({"fill", dir.file("house.zmp"), dir.file("flat.zmp"), "--whole", "--texture",
                     dir.file("checker.bmp"), "--texture-mode", "twod", "--texture-size", "64"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto flat = colourOf(dir.file("flat.zmp"));
    ASSERT_EQ(flat.size(), 120u * 90u);
    for (int j = 0; j < 3; ++j) {
        for (int k = 0; k < 4; ++k) {
            const ColourPOD c = flat[static_cast<std::size_t>(32 * j + 16) * 120 + 32 * k + 16];
            EXPECT_NEAR(c.g, (k + j) % 2 ? 255 : 0, 2) << k << "," << j;
        }
    }

    // On the surfaces: a different picture from the flat one, of the checker's two greys.
    result = runCli({"fill", dir.file("house.zmp"), dir.file("tangent.zmp"), "--at", "60,80",
                     "--texture", dir.file("checker.bmp"), "--texture-mode", "tangent",
                     "--texture-size", "2000"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto tangent = colourOf(dir.file("tangent.zmp"));
    ASSERT_EQ(tangent.size(), flat.size());
    int differ = 0;
    for (std::size_t i = 0; i < tangent.size(); ++i) {
        EXPECT_EQ(tangent[i].r, tangent[i].g) << i;
        differ += std::abs(tangent[i].g - flat[i].g) > 40;
    }
    EXPECT_GT(differ, static_cast<int>(tangent.size() / 10));

    // A picture that can't be read, a mode that doesn't exist, a texture option without a
    // texture: failures that say so, and no output.
    result = runCli({"fill", dir.file("house.zmp"), dir.file("x.zmp"), "--whole", "--texture",
                     dir.file("missing.png")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("could not be loaded"), std::string::npos) << result.err;
    result = runCli({"fill", dir.file("house.zmp"), dir.file("x.zmp"), "--whole", "--texture",
                     dir.file("checker.bmp"), "--texture-mode", "sideways"});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_NE(result.err.find("unknown texture mode"), std::string::npos) << result.err;
    result = runCli(
        {"fill", dir.file("house.zmp"), dir.file("x.zmp"), "--whole", "--texture-size", "100"});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_NE(result.err.find("needs --texture"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("x.zmp")));
}

} // namespace
