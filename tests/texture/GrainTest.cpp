// The grain stages on synthetic spans: each only lowers coverage, leaves empty pixels
// alone, and takes its value from its source as described; and the grain tool's settings
// through styles and the tool selection.

#include "texture/Grain.h"

#include "pipeline/ToolSelection.h"
#include "styles/CSetGrain.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"
#include "support/TestDocument.h"
#include "texture/NoiseTexture3d.h"
#include "texture/RasterTexture.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

/// A span of `n` pixels at (x0, y) with the given coverage and base colour.
struct SpanRow {
    SpanRow(std::int32_t x0, std::int32_t y, std::vector<float> coverage, ColourPOD base)
        : alpha(std::move(coverage)), colour(alpha.size()), baseColour(alpha.size(), base),
          depth(alpha.size(), 0x40000000u) {
        span.x = x0;
        span.y = y;
        span.length = static_cast<std::int32_t>(alpha.size());
        span.alpha = alpha.data();
        span.colour = colour.data();
        span.baseColour = baseColour.data();
        span.sourceColour = baseColour.data();
        span.baseDepth = depth.data();
    }
    std::vector<float> alpha;
    std::vector<ColourPOD> colour;
    std::vector<ColourPOD> baseColour;
    std::vector<std::uint32_t> depth;
    Span span;
};

std::vector<float> ramp(int n) {
    std::vector<float> c(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        c[static_cast<std::size_t>(i)] = (i % 5 == 0) ? 0.0f : static_cast<float>(i % 7 + 1) / 7.0f;
    }
    return c;
}

/// Runs the stage over the row and checks it only ever lowered coverage and left empty
/// pixels empty. Returns the result.
std::vector<float> runAndCheck(GrainTool& grain, SpanRow& row) {
    const std::vector<float> before = row.alpha;
    grain.run(row.span, 0, row.span.length);
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_GE(row.alpha[i], 0.0f) << i;
        EXPECT_LE(row.alpha[i], before[i]) << i;
        if (before[i] == 0) {
            EXPECT_EQ(row.alpha[i], 0.0f) << i;
        }
    }
    return row.alpha;
}

TEST(Grain, NoiseMultipliesCoverageByTheNoiseAtThePixel) {
    auto noise = TQL::makeHandle<tex::SimpleNoise>(1.0, 6.0, 0.5, false);
    tex::NoiseGrain grain(noise);
    grain.setCubic(nullptr);
    SpanRow row(40, 17, ramp(200), ColourPOD{});
    const std::vector<float> before = row.alpha;
    const std::vector<float> after = runAndCheck(grain, row);
    int lowered = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        const float x = static_cast<float>(40 + i), y = 17, z = 0.33333334f, fp = 1;
        float value = 0;
        noise->sample(&value, &x, &y, &z, &fp, 1);
        EXPECT_FLOAT_EQ(after[i], before[i] * value) << i;
        lowered += after[i] < before[i];
    }
    EXPECT_GT(lowered, 100);
}

TEST(Grain, RgbGrainFollowsTheImageBrightness) {
    tex::RgbGrain current(false, 0.5, false);
    SpanRow white(0, 0, ramp(64), ColourPOD{255, 255, 255});
    const std::vector<float> before = white.alpha;
    EXPECT_EQ(runAndCheck(current, white), before);
    SpanRow black(0, 0, ramp(64), ColourPOD{0, 0, 0});
    for (float a : runAndCheck(current, black)) {
        EXPECT_EQ(a, 0.0f);
    }
    SpanRow grey(0, 0, std::vector<float>(8, 1.0f), ColourPOD{30, 60, 90});
    EXPECT_FLOAT_EQ(runAndCheck(current, grey)[3], 180.0f / 765.0f);
    // The original image when asked: here white, while the image before the stroke is black.
    std::vector<ColourPOD> original(64, ColourPOD{255, 255, 255});
    SpanRow mixed(0, 0, ramp(64), ColourPOD{0, 0, 0});
    mixed.span.sourceColour = original.data();
    tex::RgbGrain fromOriginal(true, 0.5, false);
    EXPECT_EQ(runAndCheck(fromOriginal, mixed), before);
}

TEST(Grain, RasterGrainReadsThePictureGreyAtItsScaleAndRotation) {
    // Columns alternate white and black; each picture pixel covers 2 x 2 image pixels.
    std::vector<std::uint8_t> rgb(8 * 8 * 3);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            const std::uint8_t v = x % 2 ? 0 : 255;
            std::fill_n(rgb.begin() + (y * 8 + x) * 3, 3, v);
        }
    }
    auto map = TQL::makeHandle<tex::MipMap>(8, 8, rgb.data(), nullptr, true);
    auto texture = TQL::makeHandle<tex::RasterTexture>(map, 8.0f, 8.0f);
    tex::RasterGrainPlacement placement;
    placement.scaleX = placement.scaleY = 2.0;
    auto document = test::makeTestDocument(64, 64);
    tex::RasterGrain grain(texture, placement, 0.5, false);
    grain.start(0, 0, *document);
    SpanRow row(0, 3, std::vector<float>(32, 1.0f), ColourPOD{});
    const std::vector<float> after = runAndCheck(grain, row);
    // Image pixels 0..1 lie on white, 2..3 on black; the boundary ones blend.
    EXPECT_GT(after[0], 0.6f);
    EXPECT_LT(after[2], 0.4f);
    EXPECT_GT(after[4], 0.6f);
    // Turned by 90 degrees the stripes run along the row: one value all the way.
    placement.angleDegrees = 90;
    tex::RasterGrain turned(texture, placement, 0.5, false);
    turned.start(0, 0, *document);
    SpanRow across(0, 0, std::vector<float>(32, 1.0f), ColourPOD{});
    const std::vector<float> flat = runAndCheck(turned, across);
    for (float a : flat) {
        EXPECT_NEAR(a, flat[0], 1e-6);
    }
    // A floating hook follows the stroke's start: starting one picture pixel over swaps
    // white and black.
    placement.angleDegrees = 0;
    placement.hookFloats = true;
    tex::RasterGrain floating(texture, placement, 0.5, false);
    floating.start(2, 0, *document);
    SpanRow moved(0, 3, std::vector<float>(32, 1.0f), ColourPOD{});
    const std::vector<float> shifted = runAndCheck(floating, moved);
    EXPECT_LT(shifted[0], 0.4f);
    EXPECT_GT(shifted[2], 0.6f);
}

TEST(Grain, SolidGrainFollowsTheSceneAndPreviewsFillTheirBitmaps) {
    auto document = test::makeTestDocument(64, 64);
    auto noise = TQL::makeHandle<tex::SimpleNoise>(1.0, 0.05, 0.5, false);
    tex::CubeGrain grain(TQL::makeHandle<tex::NoiseTexture3d>(noise, true, false), 0.5, false);
    grain.start(0, 0, *document);
    SpanRow row(0, 10, ramp(64), ColourPOD{});
    const std::vector<float> before = row.alpha;
    const std::vector<float> after = runAndCheck(grain, row);
    EXPECT_NE(after, before);

    PreviewBitmap preview;
    grain.preview(preview);
    EXPECT_EQ(preview.width, 128);
    EXPECT_EQ(preview.pixels.size(), 128u * 128u);
    PreviewBitmap thumb;
    tex::RgbGrain(false, 0.5, false).thumbnail(thumb);
    EXPECT_EQ(thumb.width, 48);
    // The RGB preview is a ramp from dark to light.
    EXPECT_LT(thumb.pixels[0] & 31, thumb.pixels[47] & 31);
}

class GrainTool : public testing::Test {
protected:
    void SetUp() override {
        ToolSelection::instance().reset();
        Toolbox::instance().reset();
    }
    void TearDown() override {
        CSetGrain::setStyleLookup(nullptr);
        ToolSelection::instance().reset();
        Toolbox::instance().reset();
    }
};

TEST_F(GrainTool, KeysRoundTripAndBuildFollowsTheGrainSwitch) {
    CSetGrain tool;
    tool.settings.type = GrainSettings::rgb;
    tool.settings.scale = 3.5;
    tool.settings.bias = 0.25;
    tool.settings.invert = true;
    tool.settings.angle = 30;
    tool.settings.library = L"Papers";
    MemoryStyleStorage storage;
    {
        const CToolStyle::Attach attach(storage);
        tool.writeStyle();
    }
    EXPECT_EQ(storage.read(L"Grain", L"Type"), std::wstring(L"2"));
    CSetGrain read;
    {
        const CToolStyle::Attach attach(storage);
        read.readStyle();
    }
    EXPECT_EQ(read.settings, tool.settings);
    // Keys that are missing leave the present values.
    MemoryStyleStorage partial;
    partial.write(L"Grain", L"Bias", L"0.75");
    {
        const CToolStyle::Attach attach(partial);
        read.readStyle();
    }
    EXPECT_EQ(read.settings.bias, 0.75);
    EXPECT_EQ(read.settings.type, GrainSettings::rgb);

    read.build();
    EXPECT_FALSE(ToolSelection::instance().grain);
    Toolbox::instance().state.grainOn = true;
    read.build();
    EXPECT_TRUE(dynamic_cast<tex::RgbGrain*>(ToolSelection::instance().grain.get()));
    // A picture that cannot be read: no grain, and the reason.
    read.settings.type = GrainSettings::raster;
    read.settings.filename = L"/nonexistent/paper.png";
    read.build();
    EXPECT_FALSE(ToolSelection::instance().grain);
    EXPECT_NE(read.lastError().find(L"could not be loaded"), std::wstring::npos);
}

TEST_F(GrainTool, StyleGrainWrapsTheGrainOfAStoredStyle) {
    MemoryStyleStorage stored;
    stored.write(L"Grain", L"Type", L"0");
    stored.write(L"Grain", L"Scale", L"12");
    std::wstring error;
    auto direct = makeGrainFromStyle(stored, &error);
    ASSERT_TRUE(direct) << std::string(error.begin(), error.end());
    EXPECT_TRUE(dynamic_cast<tex::NoiseGrain*>(direct.get()));

    CSetGrain tool;
    tool.settings.type = GrainSettings::style;
    tool.settings.library = L"Papers";
    tool.settings.category = L"Rough";
    EXPECT_FALSE(tool.makeGrain());
    EXPECT_NE(tool.lastError().find(L"Papers : Rough"), std::wstring::npos);
    CSetGrain::setStyleLookup([&stored](const std::wstring& library, const std::wstring& category) {
        return library == L"Papers" && category == L"Rough" ? &stored : nullptr;
    });
    auto grain = tool.makeGrain();
    auto* wrapped = dynamic_cast<tex::StyleGrain*>(grain.get());
    ASSERT_TRUE(wrapped);
    EXPECT_TRUE(dynamic_cast<tex::NoiseGrain*>(wrapped->grain().get()));
    EXPECT_EQ(wrapped->category(), L"Rough");
}

} // namespace
