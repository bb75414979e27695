// quorvale-cli paint: scripts of brush strokes replayed into documents written by the
// library, the determinism of a replay, and scripts that are refused with their place.

#include "CliRunner.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using cli_test::execute;
using cli_test::runCli;

/// A 256 x 128 grey document: material "Stone" (1) on the left half, "Grass" (2) on the
/// right.
void writeSample(const std::string& path) {
    cli_test::writeStoneAndGrass(path, 256, 128, [](std::int32_t x, std::int32_t) {
        return std::uint16_t(x < 128 ? 1 : 2);
    });
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

const char* const script = R"({
  "tool": "brush",
  "settings": {"Size": 6, "Hardness": 80, "Spacing": 0.25, "SizeSpread": 30,
               "SpreadPercent": 40, "DynamicOpacity": 20, "UseDynamics": 1},
  "colour": [255, 0, 0],
  "opacity": 100,
  "mode": "normal",
  "locks": ["material"],
  "strokes": [
    {"points": [[20, 20], [100, 30, 0.8], [200, 40, 0.5]]},
    [[30, 100], [90, 90]]
  ]
})";

TEST(PaintCommand, ReplaysStrokesWithLocksAndTheSameBytesEachTime) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    writeText(dir.file("strokes.json"), script);
    // The save stamps the time: fix it, so that only the painting could differ.
    ::setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    auto result = runCli(
        {"paint", dir.file("in.zmp"), dir.file("a.zmp"), "--script", dir.file("strokes.json")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    result = runCli(
        {"paint", dir.file("in.zmp"), dir.file("b.zmp"), "--script", dir.file("strokes.json")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    ::unsetenv("SOURCE_DATE_EPOCH");
    const std::string a = readBytes(dir.file("a.zmp"));
    EXPECT_GT(a.size(), 1000u);
    EXPECT_TRUE(a == readBytes(dir.file("b.zmp"))) << "the two replays differ";

    DummyZmapDocument doc;
    ASSERT_EQ(execute(doc, commandOpen, FileArgument{getWCS(dir.file("a.zmp"))}), status::ok);
    int painted = 0;
    for (std::int32_t y = 0; y < 128; ++y) {
        for (std::int32_t x = 0; x < 256; ++x) {
            const ColourPOD c = doc.rgbAt(x, y);
            if (!(c == ColourPOD{100, 100, 100})) {
                ++painted;
                // The first stroke starts on stone: the lock keeps it off the grass.
                EXPECT_LT(x, 128) << x << "," << y;
                EXPECT_GT(c.r, c.g);
            }
        }
    }
    EXPECT_GT(painted, 500);
}

TEST(PaintCommand, BadScriptsAreRefusedWithTheirPlaceAndWriteNothing) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    struct Case {
        const char* text;
        const char* expected;
    };
    for (const Case c : {
             Case{"{\n  \"tool\": \"brush\",\n  \"strokes\": [[[1, 2]]\n}", "line 4, column 1"},
             Case{"{\"tool\": \"brush\", \"strokes\": [[[1, 2, 7]]]}", "line 1, column 39"},
             Case{"{\"tool\": \"pen\",\n \"settings\": {\"Width\": \"wide\"},\n \"strokes\": [[[1, "
                  "2]]]}",
                  "line 2, column 24: \"Width\" takes a number"},
             Case{"{\"tool\": \"shape\", \"settings\": {\"Size\": 4}, \"strokes\": [[[1, 2]]]}",
                  "column 40: \"Size\" is not a setting of the shape"},
             Case{"{\"tool\": \"pen\", \"settings\": {\"ConstraintAxis\": [1, 2]},\n"
                  " \"strokes\": [[[1, 2]]]}",
                  "line 1, column 48: \"ConstraintAxis\" takes three numbers"},
             Case{"{\"tool\": \"shape\", \"settings\": {\"Filled\": 3}, \"strokes\": [[[1, 2]]]}",
                  "\"Filled\" takes true or false"},
             Case{"{\"tool\": \"airbrush\", \"strokes\": [[[1, 2]]]}", "unknown tool"},
             Case{"{\"tool\": \"brush\",\n \"colour\": [1, 2]}", "line 2, column 12"},
             Case{"{\"tool\": \"brush\", \"strokes\": [[[1, 2]]], \"size\": 3}", "unknown key"},
             Case{"{\"tool\": \"brush\", \"settings\": {\"Type\": 2, \"Filename\": \"no.png\"},"
                  " \"strokes\": [[[1, 2]]]}",
                  "no.png"},
         }) {
        writeText(dir.file("bad.json"), c.text);
        const auto result = runCli(
            {"paint", dir.file("in.zmp"), dir.file("out.zmp"), "--script", dir.file("bad.json")});
        EXPECT_EQ(result.exitCode, 1) << c.text;
        EXPECT_NE(result.err.find(c.expected), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists(dir.file("out.zmp"))) << c.text;
    }
}

TEST(PaintCommand, PenScriptsDrawBandsAndShapeScriptsFilledFigures) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    // A band 9 pixels wide along row 30, and an ellipse filling 120..220 x 60..110.
    writeText(dir.file("pen.json"), R"({"tool": "pen",
  "settings": {"Width": 9, "AntiAlias": false},
  "colour": [0, 0, 255],
  "strokes": [[[20, 30], [200, 30]]]})");
    writeText(dir.file("shape.json"), R"({"tool": "shape",
  "settings": {"Filled": true, "AntiAlias": false},
  "colour": [0, 255, 0],
  "strokes": [[[120, 60], [170, 80], [220, 110]]]})");
    for (const char* name : {"pen", "shape"}) {
        const auto result =
            runCli({"paint", dir.file("in.zmp"), dir.file(std::string(name) + ".zmp"), "--script",
                    dir.file(std::string(name) + ".json")});
        ASSERT_EQ(result.exitCode, 0) << name << ": " << result.err;
    }
    DummyZmapDocument pen;
    ASSERT_EQ(execute(pen, commandOpen, FileArgument{getWCS(dir.file("pen.zmp"))}), status::ok);
    const ColourPOD blue{255, 0, 0};
    // Across the band's middle: painted rows 26..34, nothing beyond.
    int bandRows = 0;
    for (std::int32_t y = 15; y <= 45; ++y) {
        const bool painted = pen.rgbAt(110, y) == blue;
        bandRows += painted;
        if (std::abs(y - 30) >= 6) {
            EXPECT_FALSE(painted) << y;
        }
    }
    EXPECT_GE(bandRows, 8);
    EXPECT_LE(bandRows, 10);
    EXPECT_EQ(pen.rgbAt(30, 30), blue);
    EXPECT_EQ(pen.rgbAt(10, 30), (ColourPOD{100, 100, 100}));

    DummyZmapDocument shape;
    ASSERT_EQ(execute(shape, commandOpen, FileArgument{getWCS(dir.file("shape.zmp"))}), status::ok);
    const ColourPOD green{0, 255, 0};
    // Filled through its middle, untouched at the rectangle's corners and outside it.
    for (std::int32_t x = 125; x <= 215; x += 5) {
        EXPECT_EQ(shape.rgbAt(x, 85), green) << x;
    }
    for (std::int32_t y = 65; y <= 105; y += 5) {
        EXPECT_EQ(shape.rgbAt(170, y), green) << y;
    }
    EXPECT_NE(shape.rgbAt(122, 62), green);
    EXPECT_NE(shape.rgbAt(218, 108), green);
    EXPECT_NE(shape.rgbAt(170, 50), green);
}

TEST(PaintCommand, GrainInAScriptOnlyTakesPaintAway) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    const std::string plain = R"({
  "tool": "brush",
  "settings": {"Size": 10, "Hardness": 90, "Spacing": 0.25},
  "colour": [255, 0, 0],
  "strokes": [[[20, 60], [230, 70]]]
})";
    std::string grained = plain;
    grained.insert(grained.find("\"strokes\""),
                   "\"grain\": {\"Type\": 0, \"Scale\": 3, \"Fractality\": 0.5},\n  ");
    writeText(dir.file("plain.json"), plain);
    writeText(dir.file("grained.json"), grained);
    for (const char* name : {"plain", "grained"}) {
        const auto result =
            runCli({"paint", dir.file("in.zmp"), dir.file(std::string(name) + ".zmp"), "--script",
                    dir.file(std::string(name) + ".json")});
        ASSERT_EQ(result.exitCode, 0) << name << ": " << result.err;
    }
    DummyZmapDocument a;
    DummyZmapDocument b;
    ASSERT_EQ(execute(a, commandOpen, FileArgument{getWCS(dir.file("plain.zmp"))}), status::ok);
    ASSERT_EQ(execute(b, commandOpen, FileArgument{getWCS(dir.file("grained.zmp"))}), status::ok);
    int painted = 0;
    int lowered = 0;
    for (std::int32_t y = 0; y < 128; ++y) {
        for (std::int32_t x = 0; x < 256; ++x) {
            // Red over grey: the red channel says how much paint a pixel took.
            const int withoutGrain = a.rgbAt(x, y).r - 100;
            const int withGrain = b.rgbAt(x, y).r - 100;
            ASSERT_LE(withGrain, withoutGrain) << x << "," << y;
            painted += withoutGrain > 0;
            lowered += withGrain < withoutGrain;
        }
    }
    EXPECT_GT(painted, 1000);
    EXPECT_GT(lowered, painted / 10) << "the grain broke up too little of the stroke";

    writeText(dir.file("bad-grain.json"),
              "{\"tool\": \"brush\", \"grain\": {\"Type\": 1, \"Filename\": \"missing.png\"},"
              " \"strokes\": [[[1, 2]]]}");
    const auto result = runCli(
        {"paint", dir.file("in.zmp"), dir.file("out.zmp"), "--script", dir.file("bad-grain.json")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("missing.png"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.zmp")));
}

TEST(PaintCommand, ATextureInAScriptPaintsItsColoursAndBadSettingsAreRefused) {
    const test::TempDir dir;
    writeSample(dir.file("in.zmp"));
    // Squares of blue and yellow, 32 image pixels each: 64 pixels over the picture's 8.
    const ColourPOD blue{255, 0, 0};
    const ColourPOD yellow{0, 255, 255};
    cli_test::writeCheckerBmp(dir.file("checker.bmp"), blue, yellow);
    writeText(dir.file("textured.json"), R"({
  "tool": "brush",
  "settings": {"Size": 16, "Hardness": 100, "Spacing": 0.25},
  "colour": [255, 0, 0],
  "texture": {"Type": 1, "Filename": "checker.bmp", "Mode": "TwoD", "Size": 64},
  "strokes": [[[10, 48], [246, 48]]]
})");
    auto result = runCli(
        {"paint", dir.file("in.zmp"), dir.file("out.zmp"), "--script", dir.file("textured.json")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    DummyZmapDocument doc;
    ASSERT_EQ(execute(doc, commandOpen, FileArgument{getWCS(dir.file("out.zmp"))}), status::ok);
    // Along the stroke's middle, row 48, well inside the squares (their edges lie at
    // multiples of 32), the texture's colours and not the brush's red.
    int blues = 0;
    int yellows = 0;
    for (std::int32_t x = 24; x < 240; ++x) {
        if (x % 32 < 4 || x % 32 > 28) {
            continue; // near a square's edge the filter mixes the two
        }
        const ColourPOD c = doc.rgbAt(x, 48);
        const bool isBlue = std::abs(c.b - 255) <= 3 && c.g <= 3 && c.r <= 3;
        const bool isYellow = c.b <= 3 && std::abs(c.g - 255) <= 3 && std::abs(c.r - 255) <= 3;
        EXPECT_TRUE(isBlue || isYellow)
            << x << ": " << int(c.r) << "," << int(c.g) << "," << int(c.b);
        blues += isBlue;
        yellows += isYellow;
    }
    EXPECT_GT(blues, 40);
    EXPECT_GT(yellows, 40);
    // Off the stroke nothing changed.
    EXPECT_EQ(doc.rgbAt(128, 100), (ColourPOD{100, 100, 100}));

    struct Case {
        const char* texture;
        const char* expected;
    };
    for (const Case c : {
             Case{"{\"Type\": 1, \"Mode\": \"Sideways\"}",
                  "line 2, column 33: \"Mode\" is one of TwoD, StretchedTwoD, Tangent"},
             Case{"{\"Type\": 1, \"Colour\": 3}",
                  "line 2, column 35: \"Colour\" is not a setting of the texture"},
             Case{"{\"Type\": 1, \"Filename\": \"missing.png\"}", "missing.png"},
         }) {
        writeText(dir.file("bad.json"), std::string("{\"tool\": \"brush\",\n \"texture\": ") +
                                            c.texture + ",\n \"strokes\": [[[1, 2]]]}");
        result = runCli(
            {"paint", dir.file("in.zmp"), dir.file("bad.zmp"), "--script", dir.file("bad.json")});
        EXPECT_EQ(result.exitCode, 1) << c.texture;
        EXPECT_NE(result.err.find(c.expected), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists(dir.file("bad.zmp"))) << c.texture;
    }
}

} // namespace
