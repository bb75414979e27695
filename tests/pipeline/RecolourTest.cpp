// The paint random generator, LinearRecolour's strengths and colour picking, BrushRecolour.

#include "pipeline/BrushRecolour.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"
#include "pipeline/PaintRandom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

TEST(PaintRandom, FollowsTheLinearCongruence) {
    PaintRandom random(1);
    // 1 * 69069 + 1 = 69070; 69070 * 69069 + 1 = 4770595831, modulo 2^32 = 475628535.
    EXPECT_DOUBLE_EQ(random.next(), 69070 / 4294967295.0);
    EXPECT_DOUBLE_EQ(random.next(), 475628535 / 4294967295.0);
    EXPECT_EQ(random.state(), 475628535u);
    // Two users do not share a state.
    PaintRandom a(5), b(5);
    a.next();
    EXPECT_NE(a.state(), b.state());
}

/// A span of `n` pixels over plain arrays.
struct SpanRows {
    explicit SpanRows(int n, ColourPOD colour = ColourPOD{100, 100, 100}, float a = 1.0f)
        : colour(static_cast<std::size_t>(n), colour), alpha(static_cast<std::size_t>(n), a),
          source(static_cast<std::size_t>(n), ColourPOD{9, 8, 7}),
          depth(static_cast<std::size_t>(n), 0), baseDepth(static_cast<std::size_t>(n), 1234) {
        span.length = n;
        span.colour = this->colour.data();
        span.alpha = alpha.data();
        span.sourceColour = source.data();
        span.depth = depth.data();
        span.baseDepth = baseDepth.data();
    }
    std::vector<ColourPOD> colour;
    std::vector<float> alpha;
    std::vector<ColourPOD> source;
    std::vector<std::uint32_t> depth;
    std::vector<std::uint32_t> baseDepth;
    Span span;
};

TEST(Paint, StartsFromTheSourceAndTheDepthWhenAsked) {
    SpanRows rows(6);
    Paint paint;
    paint.run(rows.span, 1, 4);
    EXPECT_EQ(rows.colour[0], (ColourPOD{100, 100, 100}));
    EXPECT_EQ(rows.colour[1], (ColourPOD{9, 8, 7}));
    EXPECT_EQ(rows.colour[3], (ColourPOD{9, 8, 7}));
    EXPECT_EQ(rows.colour[4], (ColourPOD{100, 100, 100}));
    EXPECT_EQ(rows.depth[2], 0u); // depth not asked for
    rows.span.flags = spanNeedsDepth;
    paint.run(rows.span, 1, 4);
    EXPECT_EQ(rows.depth[2], 1234u);
    EXPECT_EQ(rows.depth[4], 0u);
}

TEST(LinearRecolour, StrengthDecidesHowFarTheColourMoves) {
    struct Case {
        float strength;
        ColourPOD expected; // from 100, 100, 100 towards red 255, green 0, blue 51
    };
    const Case cases[] = {
        {1.0f, {51, 0, 255}},
        {0.0f, {100, 100, 100}},
        {-0.5f, {100, 100, 100}},
        // 100 + rint(-49 * 0.5) = 100 - 24 (24.5 to even); 100 - 50; 100 + rint(77.5) = 178.
        {0.5f, {76, 50, 178}},
        // Above 1 the formula runs on, and the sum wraps to its low byte:
        // 100 + rint(155 * 1.5) = 332, whose low byte is 76; 100 + rint(-73.5) = 26.
        {1.5f, {26, 0xCE, 76}},
    };
    for (const Case& c : cases) {
        SpanRows rows(5);
        rows.alpha[4] = 0; // no alpha: untouched
        LinearRecolour recolour(255, 0, 51, c.strength);
        recolour.run(rows.span, 0, 5);
        EXPECT_EQ(rows.colour[2], c.expected) << "strength " << c.strength;
        EXPECT_EQ(rows.colour[4], (ColourPOD{100, 100, 100})) << "strength " << c.strength;
    }
}

TEST(LinearRecolour, FullStrengthPaintsExactlyTheRangeWhereAlphaIsAboveZero) {
    // Every start and length up to a few rounds of the wide fill, with coverage everywhere
    // and with one pixel of none; the pixels outside the range keep their colour.
    const ColourPOD old{100, 100, 100};
    const ColourPOD tool{40, 120, 200}; // blue, green, red as stored
    LinearRecolour recolour(200, 120, 40, 1.0f);
    for (int first = 0; first < 5; ++first) {
        for (int last = first; last < 60; ++last) {
            for (int hole = -1; hole < last; hole += 13) {
                SpanRows rows(64, old, 0.5f);
                if (hole >= 0) {
                    rows.alpha[static_cast<std::size_t>(hole)] = 0.0f;
                }
                recolour.run(rows.span, first, last);
                for (int i = 0; i < 64; ++i) {
                    const bool painted = i >= first && i < last && i != hole;
                    ASSERT_EQ(rows.colour[static_cast<std::size_t>(i)], painted ? tool : old)
                        << first << ".." << last << " hole " << hole << " pixel " << i;
                }
            }
        }
    }
}

TEST(LinearRecolour, PickedColourStaysNearTheToolColourUntilFinish) {
    LinearRecolour recolour(120, 60, 200, 1.0f);
    recolour.pickColour(0, 0);
    EXPECT_TRUE(recolour.picked());
    EXPECT_EQ(recolour.colour(), recolour.toolColour());

    // RGB spread: every channel within the amount, and within 0..255.
    for (int k = 0; k < 50; ++k) {
        recolour.pickColour(30, 0);
        const ColourPOD c = recolour.colour();
        EXPECT_LE(std::abs(c.r - 120), 30);
        EXPECT_LE(std::abs(c.g - 60), 30);
        EXPECT_LE(std::abs(c.b - 200), 30);
    }
    // The picked colour is what run lays.
    SpanRows rows(1);
    recolour.run(rows.span, 0, 1);
    EXPECT_EQ(rows.colour[0], recolour.colour());

    // Hue only keeps lightness; lightness only keeps the hue.
    const Colour tool = Colour::fromPOD(recolour.toolColour());
    bool moved = false;
    for (int k = 0; k < 20; ++k) {
        recolour.pickColour(40, 2);
        const Colour c = Colour::fromPOD(recolour.colour());
        EXPECT_NEAR(c.l_hls(), tool.l_hls(), 0.01);
        moved = moved || recolour.colour() != recolour.toolColour();
        recolour.pickColour(20, 3);
        const Colour l = Colour::fromPOD(recolour.colour());
        EXPECT_TRUE(closerThanRadians(l.h_hls(), tool.h_hls(), 0.05));
        EXPECT_LE(std::abs(l.l_hls() - tool.l_hls()), 0.2 + 0.01);
    }
    EXPECT_TRUE(moved);

    recolour.finish();
    EXPECT_FALSE(recolour.picked());
    EXPECT_EQ(recolour.colour(), recolour.toolColour());
}

class StripedBrush : public ColourBrush {
public:
    bool hasColourMask() const override { return colourMask; }
    void maskColours(const Span&, int first, int last, ColourPOD* out) override {
        for (int i = first; i < last; ++i) {
            out[i] = ColourPOD{std::uint8_t(i), 0, 200};
        }
    }
    bool colourMask = true;
};

TEST(BrushRecolour, UsesTheMaskColoursOrLeavesTheWorkToTheInnerTool) {
    StripedBrush brush;
    auto inner = TQL::makeHandle<LinearRecolour>(0, 255, 0, 0.5f);
    BrushRecolour wrapper(&brush, inner);
    EXPECT_FLOAT_EQ(wrapper.strength(), 0.5f);

    SpanRows rows(4, ColourPOD{0, 0, 0});
    wrapper.run(rows.span, 0, 4);
    // Halfway from black to the mask's colour: 200 * 0.5 = 100 red, blue i / 2 to even.
    EXPECT_EQ(rows.colour[3], (ColourPOD{2, 0, 100}));

    brush.colourMask = false;
    SpanRows plain(4, ColourPOD{0, 0, 0});
    wrapper.run(plain.span, 0, 4);
    EXPECT_EQ(plain.colour[3], (ColourPOD{0, 128, 0})); // the inner tool's green, 127.5 to even

    auto full = TQL::makeHandle<LinearRecolour>(0, 0, 0, 1.0f);
    BrushRecolour replacing(&brush, full);
    brush.colourMask = true;
    SpanRows replaced(4, ColourPOD{50, 50, 50});
    replaced.alpha[0] = 0;
    replacing.run(replaced.span, 0, 4);
    EXPECT_EQ(replaced.colour[0], (ColourPOD{50, 50, 50}));
    EXPECT_EQ(replaced.colour[2], (ColourPOD{2, 0, 200}));
}

} // namespace
