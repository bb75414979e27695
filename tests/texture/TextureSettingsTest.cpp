// The texture page's settings: style keys both ways, the mode names, the stage that build
// installs (or leaves out, saying why), and the real size a style gives a picture.

#include "styles/CSetTexture.h"

#include "TextureSceneSupport.h"
#include "pipeline/ToolSelection.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"
#include "support/TempDir.h"
#include "texture/TextureTool2d.h"
#include "texture/TextureToolPlane.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

class TextureSettingsTest : public testing::Test {
protected:
    void SetUp() override {
        ToolSelection::instance().reset();
        Toolbox::instance().reset();
    }
    void TearDown() override {
        ToolSelection::instance().reset();
        Toolbox::instance().reset();
        tex::currentTextureAxes() = tex::CurrentTextureAxes{};
    }
};

std::uint8_t checkerGrey(std::int32_t x, std::int32_t y) {
    return ((x / 8 + y / 8) % 2) ? 255 : 0;
}

TEST_F(TextureSettingsTest, KeysRoundTripAndMissingKeysKeepTheirValues) {
    CSetTexture tool;
    TextureSettings& s = tool.settings;
    s.type = TextureSettings::raster;
    s.filename = L"/pictures/bricks.png";
    s.mode = TextureSettings::autowrapped;
    s.size = 2400;
    s.measure = 1;
    s.angle = 15;
    s.hookX = 0.25;
    s.threshold = true;
    s.dark = s.light = 0.4;
    s.cubeAxis = Vector<3>(0, 1, 0);
    s.plane = L"0/0/1";
    s.linkScales = false;
    s.vScale = 2;
    MemoryStyleStorage storage;
    {
        const CToolStyle::Attach attach(storage);
        tool.writeStyle();
    }
    EXPECT_EQ(storage.read(L"Texture", L"Mode"), std::wstring(L"Autowrapped"));
    CSetTexture read;
    {
        const CToolStyle::Attach attach(storage);
        read.readStyle();
    }
    EXPECT_EQ(read.settings, tool.settings);

    MemoryStyleStorage partial;
    partial.write(L"Texture", L"Mode", L"Front");
    partial.write(L"Texture", L"Size", L"500");
    partial.write(L"Texture", L"Measure", L"7"); // clamped
    {
        const CToolStyle::Attach attach(partial);
        read.readStyle();
    }
    EXPECT_EQ(read.settings.mode, TextureSettings::front);
    EXPECT_EQ(read.settings.size, 500);
    EXPECT_EQ(read.settings.measure, 1);
    EXPECT_EQ(read.settings.angle, 15);
    // An unknown mode name keeps the mode.
    MemoryStyleStorage odd;
    odd.write(L"Texture", L"Mode", L"Sideways");
    {
        const CToolStyle::Attach attach(odd);
        read.readStyle();
    }
    EXPECT_EQ(read.settings.mode, TextureSettings::front);
}

TEST_F(TextureSettingsTest, ModeNamesHaveTheirStyleNumbers) {
    const wchar_t* names[] = {L"TwoD",    L"StretchedTwoD", L"Tangent",  L"Front",
                              L"Wrapped", L"Autowrapped",   L"Autoplane"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(textureModeFromName(names[i]), i);
        EXPECT_EQ(std::wstring(textureModeName(i)), names[i]);
    }
    EXPECT_EQ(textureModeFromName(L"tangent"), -1);
}

TEST_F(TextureSettingsTest, BuildInstallsTheStageOrLeavesItOutSayingWhy) {
    const test::TempDir dir;
    const std::string path = dir.file("checker.bmp");
    textest::writeGreyBmp(path, 32, 32, checkerGrey);
    CSetTexture tool;
    tool.settings.type = TextureSettings::raster;
    tool.settings.filename = std::wstring(path.begin(), path.end());

    tool.build();
    EXPECT_FALSE(ToolSelection::instance().texture) << "texture off in the toolbox";
    Toolbox::instance().state.textureOn = true;
    tool.build();
    EXPECT_TRUE(dynamic_cast<tex::TextureToolPlane*>(ToolSelection::instance().texture.get()));
    tool.settings.mode = TextureSettings::twoD;
    tool.build();
    EXPECT_TRUE(dynamic_cast<tex::TextureTool2d*>(ToolSelection::instance().texture.get()));

    tool.settings.filename = L"/nonexistent/bricks.png";
    tool.build();
    EXPECT_FALSE(ToolSelection::instance().texture);
    EXPECT_NE(tool.lastError().find(L"could not be loaded"), std::wstring::npos);

    tool.settings.type = TextureSettings::none;
    tool.build();
    EXPECT_FALSE(ToolSelection::instance().texture);
    EXPECT_TRUE(tool.lastError().empty());
}

TEST_F(TextureSettingsTest, MeasureChoosesTheSideThatSizeGives) {
    // A picture twice as wide as high; "Size" 2000 mm.
    const test::TempDir dir;
    const std::string path = dir.file("wide.bmp");
    textest::writeGreyBmp(path, 64, 32, checkerGrey);
    test::SyntheticScene scene;
    scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 6, 0)), 1);
    auto document = textest::renderScene(scene, 96, 72, {0, 0, 1.6}, 90, 0);
    const Point<3> a(0, 6, 2.5);
    const Point<3> b(0, 6, 0.5); // 2 m below a, on the wall

    for (int measure : {0, 1}) {
        MemoryStyleStorage style;
        style.write(L"Texture", L"Type", L"1");
        style.write(L"Texture", L"Filename", std::wstring(path.begin(), path.end()));
        style.write(L"Texture", L"Mode", L"Tangent");
        style.write(L"Texture", L"Size", L"2000");
        style.write(L"Texture", L"Measure", std::to_wstring(measure));
        std::wstring error;
        auto texture = makeTextureFromStyle(style, &error);
        auto* tool = dynamic_cast<tex::TextureToolPlane*>(texture.get());
        ASSERT_TRUE(tool) << std::string(error.begin(), error.end());
        tool->start(48, 36, *document);
        const double texels = std::abs(tool->rasterPoint(b).y() - tool->rasterPoint(a).y());
        // Measure 1: 2 m is the picture's height (32); measure 0: its width (64).
        EXPECT_NEAR(texels, measure == 1 ? 32.0 : 64.0, 1e-6) << measure;
    }
}

} // namespace
