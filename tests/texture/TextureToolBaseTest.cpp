// What every texture tool shares: how a sample is written into a span (threshold, alpha,
// colour, opacity), the footprint's balance, and the flat tool's closed form.

#include "texture/TextureToolBase.h"
#include "texture/TextureTool2d.h"

#include "TextureSceneSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace {

/// A span of n pixels of coverage 1 and working colour `working`.
struct Row {
    explicit Row(int n, ColourPOD working = ColourPOD{100, 100, 100})
        : colour(static_cast<std::size_t>(n), working), base(static_cast<std::size_t>(n), working),
          alpha(static_cast<std::size_t>(n), 1.0f) {
        span.length = n;
        span.colour = colour.data();
        span.baseColour = base.data();
        span.sourceColour = base.data();
        span.alpha = alpha.data();
    }
    std::vector<ColourPOD> colour;
    std::vector<ColourPOD> base;
    std::vector<float> alpha;
    Span span;
};

TEST(TextureOutput, ThresholdWithEqualDarkAndLightIsAHardStep) {
    tex::TextureOutput out;
    out.flags = tex::textureColour;
    out.threshold = true;
    out.thresholdDark = out.thresholdLight = 0.5;
    // Greys just below, at and just above half brightness (t = 3 g / 765).
    const std::uint8_t greys[] = {0, 127, 128, 255};
    std::vector<std::uint8_t> rgb;
    for (std::uint8_t g : greys) {
        rgb.insert(rgb.end(), {g, g, g});
    }
    const float alpha[] = {1, 1, 1, 1};
    const int index[] = {0, 1, 2, 3};
    Row row(4);
    out.write(row.span, index, rgb.data(), alpha, 4);
    EXPECT_EQ(row.alpha, (std::vector<float>{0, 0, 1, 1}));

    // A ramp between distinct values, clamped outside it.
    EXPECT_DOUBLE_EQ(out.thresholdFactor(0.5), 0.0);
    out.thresholdDark = 0.2;
    out.thresholdLight = 0.6;
    EXPECT_DOUBLE_EQ(out.thresholdFactor(0.1), 0.0);
    EXPECT_NEAR(out.thresholdFactor(0.5), 0.75, 1e-12);
    EXPECT_DOUBLE_EQ(out.thresholdFactor(0.9), 1.0);
}

TEST(TextureOutput, ThresholdCanReadTheImageInsteadOfTheTexture) {
    tex::TextureOutput out;
    out.flags = tex::textureColour;
    out.threshold = true;
    out.thresholdCurrent = true;
    out.thresholdDark = out.thresholdLight = 0.5;
    Row row(2);
    row.base[1] = ColourPOD{250, 250, 250};
    const std::uint8_t rgb[] = {255, 255, 255, 255, 255, 255};
    const float alpha[] = {1, 1};
    const int index[] = {0, 1};
    out.write(row.span, index, rgb, alpha, 2);
    EXPECT_EQ(row.alpha, (std::vector<float>{0, 1}));
}

TEST(TextureOutput, FlagsChooseColourAlphaAndBrightness) {
    const std::uint8_t rgb[] = {10, 20, 30, 204, 204, 204};
    const float alpha[] = {0.5f, 0.25f};
    const int index[] = {1, 0};
    struct Case {
        int flags;
        std::vector<float> alpha;
        bool colour;
    };
    const Case cases[] = {
        {tex::textureColour, {1, 1}, true},
        {tex::textureAlpha, {0.25f, 0.5f}, false},
        {tex::textureColour | tex::textureAlpha, {0.25f, 0.5f}, true},
        {tex::textureAlphaFromBrightness, {0.8f, 20.0f / 255}, false},
    };
    for (const Case& c : cases) {
        tex::TextureOutput out;
        out.flags = c.flags;
        Row row(2);
        out.write(row.span, index, rgb, alpha, 2);
        EXPECT_NEAR(row.alpha[0], c.alpha[0], 1e-6) << c.flags;
        EXPECT_NEAR(row.alpha[1], c.alpha[1], 1e-6) << c.flags;
        if (c.colour) {
            EXPECT_EQ(row.colour[1], (ColourPOD{10, 20, 30})) << c.flags;
            EXPECT_EQ(row.colour[0], (ColourPOD{204, 204, 204})) << c.flags;
        } else {
            EXPECT_EQ(row.colour[1], (ColourPOD{100, 100, 100})) << c.flags;
        }
    }
}

TEST(TextureOutput, OpacityMovesTheColourPartWayRoundedToEven) {
    tex::TextureOutput out;
    out.flags = tex::textureColour;
    out.opacity = 0.5;
    // 100 + (201 - 100) / 2 = 150.5 -> 150; 100 + (203 - 100) / 2 = 151.5 -> 152;
    // 100 + (0 - 100) / 2 = 50.
    const std::uint8_t rgb[] = {201, 203, 0};
    const float alpha[] = {1};
    const int index[] = {0};
    Row row(1);
    out.write(row.span, index, rgb, alpha, 1);
    EXPECT_EQ(row.colour[0], (ColourPOD{150, 152, 50}));
}

TEST(BalanceFootprint, FollowsTheNarrowSideUntilVeryOblique) {
    EXPECT_DOUBLE_EQ(tex::balanceFootprint(4, 3), 3);
    EXPECT_DOUBLE_EQ(tex::balanceFootprint(3, 4), 3);
    EXPECT_DOUBLE_EQ(tex::balanceFootprint(100, 1), 100);
    EXPECT_DOUBLE_EQ(tex::balanceFootprint(1, 100), 100);
    EXPECT_DOUBLE_EQ(tex::balanceFootprint(20, 2), 1.1875 * 20 - 3.75 * 2);
    // Continuous at both joints, b = a / 4 and b = a / 20, from either side, and rising
    // with the wider side.
    for (double a : {1.0, 7.5, 64.0}) {
        for (double joint : {a / 4, a / 20}) {
            const double below = tex::balanceFootprint(a, joint * (1 - 1e-9));
            const double above = tex::balanceFootprint(a, joint * (1 + 1e-9));
            EXPECT_NEAR(below, above, 1e-6 * a) << a << " " << joint;
            EXPECT_NEAR(tex::balanceFootprint(joint, a), below, 1e-6 * a);
        }
        double last = 0;
        for (double b = a / 30; b <= a; b += a / 300) {
            const double f = tex::balanceFootprint(a, b);
            EXPECT_GE(f, std::min(a, b) - 1e-12);
            EXPECT_LE(f, a + 1e-12);
            if (b > a / 4) {
                EXPECT_GE(f, last - 1e-12);
            }
            last = f;
        }
    }
}

TEST(TextureTool2d, SteppedRowsMatchTheClosedForm) {
    auto texture = textest::checker(32, 32, 4);
    tex::Placing2d placing;
    placing.scaleX = 2.5;
    placing.scaleY = 1.5;
    placing.angleDegrees = 30;
    placing.offset = Point<2>(3.25, -1.5);
    placing.hookFloats = true;
    tex::TextureOutput out;
    out.flags = tex::textureColour;
    tex::TextureTool2d tool(texture, placing, out);
    auto document = test::makeTestDocument(64, 8);
    tool.start(10, 3, *document);
    Row row(200);
    row.span.document = document.get();
    row.span.x = 17;
    row.span.y = 5;
    for (int i = 0; i < 200; i += 7) {
        row.alpha[static_cast<std::size_t>(i)] = 0; // skipped, left as they were
    }
    tool.run(row.span, 0, 200);
    const float footprint = 1.0f / 2.5f;
    for (int i = 0; i < 200; ++i) {
        const ColourPOD got = row.colour[static_cast<std::size_t>(i)];
        if (i % 7 == 0) {
            EXPECT_EQ(got, (ColourPOD{100, 100, 100})) << i;
            continue;
        }
        const Point<2> p = tool.rasterPoint(17 + i, 5);
        // The closed form, by hand: the hook is the stroke's start (10, 3).
        const double c = std::cos(30 * std::numbers::pi / 180),
                     s = std::sin(30 * std::numbers::pi / 180);
        EXPECT_NEAR(p.x(), ((7.0 + i) * c + 2 * s) / 2.5 + 3.25, 1e-9);
        EXPECT_NEAR(p.y(), (2 * c - (7.0 + i) * s) / 1.5 - 1.5, 1e-9);
        const float u = static_cast<float>(p.x()), v = static_cast<float>(p.y());
        std::uint8_t rgb[3];
        float alpha = 0;
        texture->sample(rgb, &alpha, &u, &v, &footprint, 1);
        EXPECT_NEAR(got.g, rgb[1], 1) << i;
    }
}

TEST(TextureTool2d, PreviewPacksFiveBitsRedLow) {
    std::vector<std::uint8_t> rgb(4 * 4 * 3);
    for (std::size_t i = 0; i < rgb.size(); i += 3) {
        rgb[i] = 0;       // blue
        rgb[i + 1] = 64;  // green
        rgb[i + 2] = 255; // red
    }
    auto map = TQL::makeHandle<tex::MipMap>(4, 4, rgb.data(), nullptr, true);
    auto texture = TQL::makeHandle<tex::RasterTexture>(map, 4.0f, 4.0f);
    tex::TextureTool2d tool(texture, tex::Placing2d{}, tex::TextureOutput{});
    PreviewBitmap bitmap;
    tool.preview(bitmap);
    ASSERT_EQ(bitmap.width, 128);
    ASSERT_EQ(bitmap.pixels.size(), 128u * 128u);
    EXPECT_EQ(bitmap.pixels[500], 31 | (8 << 5));
}

} // namespace
