// The mip pyramid: its sizes, the (1, 7, 7, 1) reduction with its darker untiled border and
// alpha weighting, and sampling at cell corners, edges, partial cells and between levels.

#include "texture/MipMap.h"

#include "core/Reporter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using tex::MipMap;

struct Image {
    std::int32_t width, height;
    std::vector<std::uint8_t> rgb;
    std::vector<float> alpha;
    Image(std::int32_t w, std::int32_t h, std::uint8_t value = 0)
        : width(w), height(h), rgb(static_cast<std::size_t>(w) * h * 3, value),
          alpha(static_cast<std::size_t>(w) * h, 1.0f) {}
    void set(int x, int y, std::uint8_t b, std::uint8_t g, std::uint8_t r, float a = 1.0f) {
        const std::size_t i = static_cast<std::size_t>(y) * width + x;
        rgb[i * 3] = b;
        rgb[i * 3 + 1] = g;
        rgb[i * 3 + 2] = r;
        alpha[i] = a;
    }
    TQL::Handle<MipMap> map(bool tiled, bool withAlpha) const {
        return TQL::makeHandle<MipMap>(width, height, rgb.data(),
                                       withAlpha ? alpha.data() : nullptr, tiled);
    }
};

struct Sample {
    std::uint8_t rgb[3];
    float alpha;
};

Sample sampleAt(const MipMap& map, float u, float v, float footprint, bool clampEdge = false) {
    Sample s{};
    map.sample(s.rgb, &s.alpha, &u, &v, &footprint, 1, clampEdge);
    return s;
}

TEST(MipMap, LevelCountsAndPaddedSizes) {
    const Image one(1, 1, 9);
    const auto m1 = one.map(false, false);
    EXPECT_EQ(m1->levels, 1);
    EXPECT_EQ(m1->paddedLevel(0).width, 1);
    const Image odd(3, 5, 9);
    const auto m = odd.map(false, false);
    EXPECT_EQ(m->levels, 4);
    const int exact[4][2] = {{3, 5}, {2, 3}, {1, 2}, {1, 1}};
    const int padded[4][2] = {{4, 8}, {2, 4}, {1, 2}, {1, 1}};
    for (int l = 0; l < 4; ++l) {
        EXPECT_EQ(m->exactLevel(l).width, exact[l][0]) << l;
        EXPECT_EQ(m->exactLevel(l).height, exact[l][1]) << l;
        EXPECT_EQ(m->paddedLevel(l).width, padded[l][0]) << l;
        EXPECT_EQ(m->paddedLevel(l).height, padded[l][1]) << l;
    }
    EXPECT_THROW(m->exactLevel(4), std::out_of_range);
    EXPECT_FALSE(m->hasAlpha);
    // A tiled map without alpha gets an opaque alpha store.
    EXPECT_TRUE(odd.map(true, false)->hasAlpha);
    EXPECT_EQ(tex::mipLevelCount(4096, 4096), 13);
}

TEST(MipMap, UntiledBorderIsDarkerByTheSkippedTapsAndTiledIsNot) {
    const Image grey(8, 8, 200);
    const auto plain = grey.map(false, false);
    const tex::Raster& l1 = plain->exactLevel(1);
    // The corner keeps (15/16)^2 of the weight: 200 * 225 >> 8.
    EXPECT_EQ(l1.rgb[0], 200 * 225 / 256);
    // An edge pixel (not a corner) keeps 15/16.
    EXPECT_EQ(l1.rgb[3 * 1], 200 * 240 / 256);
    EXPECT_EQ(l1.rgb[3 * (1 * 4 + 1)], 200);

    const auto withAlpha = grey.map(false, true);
    const tex::Raster& a1 = withAlpha->exactLevel(1);
    EXPECT_FLOAT_EQ(a1.alpha[0], 225.0f / 256.0f);
    EXPECT_EQ(a1.rgb[0], 200); // the colour is weighted, so it stays
    EXPECT_FLOAT_EQ(a1.alpha[1 * 4 + 1], 1.0f);

    const auto tiled = grey.map(true, false);
    for (int l = 1; l < tiled->levels; ++l) {
        EXPECT_EQ(tiled->exactLevel(l).rgb[0], 200) << l;
        EXPECT_FLOAT_EQ(tiled->exactLevel(l).alpha[0], 1.0f) << l;
    }
}

TEST(MipMap, AlphaWeightingLetsNoColourBleedFromEmptyPixels) {
    Image img(16, 16);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x) {
            if ((x / 3 + y / 2) % 2) {
                img.set(x, y, 0, 0, 250, 1.0f); // red, opaque
            } else {
                img.set(x, y, 255, 255, 0, 0.0f); // cyan, empty
            }
        }
    }
    const auto map = img.map(true, true);
    for (int l = 1; l < map->levels; ++l) {
        const tex::Raster& level = map->exactLevel(l);
        for (int i = 0; i < level.width * level.height; ++i) {
            if (level.alpha[i] > 0) {
                EXPECT_EQ(level.rgb[i * 3], 0) << l << " " << i;
                EXPECT_EQ(level.rgb[i * 3 + 2], 250) << l << " " << i;
            }
        }
    }
    for (float fp : {1.0f, 1.5f, 3.0f, 7.0f, 40.0f}) {
        for (float u = 0.2f; u < 16; u += 1.37f) {
            const Sample s = sampleAt(*map, u, u * 0.7f, fp);
            if (s.alpha > 0) {
                EXPECT_EQ(s.rgb[0], 0);
                EXPECT_EQ(s.rgb[1], 0);
                EXPECT_EQ(s.rgb[2], 250);
            }
        }
    }
}

TEST(MipMap, FootprintOfOneReadsLevelZeroOnlyAndLargerOnesBlendLevels) {
    Image checker(8, 8);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            const std::uint8_t v = (x + y) % 2 ? 240 : 16;
            checker.set(x, y, v, v, v);
        }
    }
    const auto map = checker.map(true, false);
    // At a pixel centre with footprint 1 the texel itself comes back.
    EXPECT_EQ(sampleAt(*map, 2.5f, 3.5f, 1.0f).rgb[0], 240);
    EXPECT_EQ(sampleAt(*map, 3.5f, 3.5f, 0.25f).rgb[0], 16);
    EXPECT_FLOAT_EQ(sampleAt(*map, 3.5f, 3.5f, 1.0f).alpha, 1.0f);
    // Level 1 of a checkerboard is flat grey; a footprint of 2 reads it alone.
    const std::uint8_t grey = map->exactLevel(1).rgb[0];
    EXPECT_EQ(sampleAt(*map, 2.5f, 3.5f, 2.0f).rgb[0], grey);
    // Just above 1 the result has barely moved from level 0 toward level 1.
    const int justAbove = sampleAt(*map, 2.5f, 3.5f, 1.01f).rgb[0];
    EXPECT_LT(justAbove, 240);
    EXPECT_GT(justAbove, 235);
    // Footprints beyond the pyramid read its last level.
    EXPECT_EQ(sampleAt(*map, 2.5f, 3.5f, 1000.0f).rgb[0], map->exactLevel(map->levels - 1).rgb[0]);
}

TEST(MipMap, OutsideAnUntiledImageIsEmptyUnlessTheEdgeIsClamped) {
    Image img(4, 4, 50);
    for (int y = 0; y < 4; ++y) {
        img.set(3, y, 10, 20, 30);
    }
    for (bool withAlpha : {false, true}) {
        const auto map = img.map(false, withAlpha);
        const Sample out = sampleAt(*map, 9.0f, 2.0f, 1.0f);
        EXPECT_EQ(out.alpha, 0.0f);
        EXPECT_EQ(out.rgb[2], 0);
        const Sample clamped = sampleAt(*map, 9.0f, 2.0f, 1.0f, true);
        EXPECT_FLOAT_EQ(clamped.alpha, 1.0f);
        EXPECT_EQ(clamped.rgb[0], 10);
        EXPECT_EQ(clamped.rgb[1], 20);
        EXPECT_EQ(clamped.rgb[2], 30);
        // Half a pixel beyond the edge: the edge fades to half, or extends when clamped.
        EXPECT_FLOAT_EQ(sampleAt(*map, 4.0f, 2.5f, 1.0f).alpha, 0.5f);
        EXPECT_FLOAT_EQ(sampleAt(*map, 4.0f, 2.5f, 1.0f, true).alpha, 1.0f);
    }
    // A tiled map wraps instead: one period along, the same sample.
    const auto tiled = img.map(true, false);
    const Sample a = sampleAt(*tiled, 0.2f, 1.3f, 1.0f);
    const Sample b = sampleAt(*tiled, 4.2f, -2.7f, 1.0f);
    EXPECT_EQ(a.rgb[0], b.rgb[0]);
    EXPECT_FLOAT_EQ(a.alpha, b.alpha);
    // Across the seam the two edge columns blend.
    EXPECT_EQ(sampleAt(*tiled, 0.0f, 1.5f, 1.0f).rgb[0], 30);
}

TEST(MipMap, PartialCellsAndRoundingAtTheTop) {
    // 3 x 2: level 1 is 2 x 1 and its second cell holds one column of two.
    const Image img(3, 2, 100);
    const auto map = img.map(false, false);
    const MipMap::LevelSample s = map->sampleLevel(1, 3.0, 1.0, false);
    EXPECT_NEAR(s.alpha, 0.5, 1e-12);
    EXPECT_NEAR(s.colour[0], 0.5 * map->exactLevel(1).rgb[3], 1e-9);

    // Halfway between 254 and 255 rounds up to 255; halfway between 252 and 253 to even.
    Image ramp(2, 1);
    ramp.set(0, 0, 254, 252, 0);
    ramp.set(1, 0, 255, 253, 1);
    const auto r = ramp.map(false, false);
    const Sample mid = sampleAt(*r, 1.0f, 0.5f, 1.0f, true);
    EXPECT_EQ(mid.rgb[0], 255);
    EXPECT_EQ(mid.rgb[1], 252);
    EXPECT_EQ(mid.rgb[2], 0);
}

class CountingReporter : public Reporter {
public:
    explicit CountingReporter(int stopAfter) : stopAfter_(stopAfter) {}
    bool report(unsigned total, unsigned done, double) override {
        EXPECT_LE(done, total);
        EXPECT_GE(done, last);
        last = done;
        return ++calls >= stopAfter_;
    }
    int calls = 0;
    unsigned last = 0;

private:
    int stopAfter_;
};

TEST(MipMap, BuildReportsProgressAndStopsWhenAsked) {
    const Image img(256, 256, 7);
    CountingReporter counting(1000);
    MipMap map(256, 256, img.rgb.data(), nullptr, true, &counting);
    EXPECT_GE(counting.calls, 2);
    CountingReporter stopping(1);
    EXPECT_THROW(MipMap(256, 256, img.rgb.data(), nullptr, true, &stopping), Reporter::Abandoned);
    EXPECT_THROW(MipMap(0, 4, img.rgb.data(), nullptr, false), TQL::TqlError);
}

} // namespace
