#include "image/TileGeometry.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(TileGeometry, ShiftsGrowAbove2048And4096) {
    struct Case {
        std::int32_t side, shift, tileSize;
    };
    const Case cases[] = {{1, 6, 64},     {2048, 6, 64},  {2049, 7, 128},
                          {4096, 7, 128}, {4097, 8, 256}, {20000, 8, 256}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.side);
        // The axes choose independently: one side large, the other small.
        const TileGeometry g = TileGeometry::compute(c.side, 100);
        EXPECT_EQ(g.xShift, c.shift);
        EXPECT_EQ(g.tileWidth, c.tileSize);
        EXPECT_EQ(g.xMask, c.tileSize - 1);
        EXPECT_EQ(g.yShift, 6);
        const TileGeometry t = TileGeometry::compute(100, c.side);
        EXPECT_EQ(t.yShift, c.shift);
        EXPECT_EQ(t.tileHeight, c.tileSize);
        EXPECT_EQ(t.xShift, 6);
    }
}

TEST(TileGeometry, LastColumnAndRowSpans) {
    struct Case {
        std::int32_t width, height;
        std::int32_t across, down, lastWidth, lastStart, lastHeight, lastRowStart;
    };
    const Case cases[] = {
        // Narrower and shorter than one tile: one tile of the image's own size.
        {50, 30, 1, 1, 50, 0, 30, 0},
        // Exact multiples: the last span is a whole tile, not 0.
        {128, 64, 2, 1, 64, 64, 64, 0},
        {4096, 2048, 32, 32, 128, 3968, 64, 1984},
        // One pixel over a multiple.
        {129, 65, 3, 2, 1, 128, 1, 64},
        // Large: 20000 = 78 * 256 + 32; 14000 = 54 * 256 + 176.
        {20000, 14000, 79, 55, 32, 19968, 176, 13824},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        const TileGeometry g = TileGeometry::compute(c.width, c.height);
        EXPECT_EQ(g.tilesAcross, c.across);
        EXPECT_EQ(g.tilesDown, c.down);
        EXPECT_EQ(g.lastColumnWidth, c.lastWidth);
        EXPECT_EQ(g.lastColumnStart, c.lastStart);
        EXPECT_EQ(g.lastRowHeight, c.lastHeight);
        EXPECT_EQ(g.lastRowStart, c.lastRowStart);
        EXPECT_EQ(g.tileCount(), c.across * c.down);
    }
}

TEST(TileGeometry, PaddingMakesLastColumnRowsWholeWords) {
    struct Case {
        std::int32_t width;
        std::int32_t padding[4];
    };
    // Last column widths 1, 2, 3, 5, 64 (an exact multiple).
    const Case cases[] = {{65, {0, 3, 2, 1}},
                          {66, {0, 2, 0, 2}},
                          {67, {0, 1, 2, 3}},
                          {69, {0, 3, 2, 1}},
                          {128, {0, 0, 0, 0}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.width);
        const TileGeometry g = TileGeometry::compute(c.width, 10);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(g.padding[i], c.padding[i]) << "entry " << i;
        }
        // Row stride of the last column for 1, 2, 3, 4 and 8 bytes a pixel.
        for (const std::int32_t bytes : {1, 2, 3, 4, 8}) {
            const std::int32_t stride = g.rowStride(g.tilesAcross - 1, bytes);
            EXPECT_EQ(stride % 4, 0) << bytes << " bytes";
            EXPECT_GE(stride, g.lastColumnWidth * bytes);
            EXPECT_LT(stride, g.lastColumnWidth * bytes + 4);
        }
    }
}

TEST(TileGeometry, TilesAreNumberedInRowOrder) {
    const TileGeometry g = TileGeometry::compute(150, 100); // 3 x 2 tiles of 64
    EXPECT_EQ(g.tileIndex(0, 0), 0);
    EXPECT_EQ(g.tileIndex(149, 0), 2);
    EXPECT_EQ(g.tileIndex(0, 64), 3);
    EXPECT_EQ(g.tileIndex(149, 99), 5);
    EXPECT_EQ(g.tileExtent(5), IExtent<2>(128, 64, 149, 99));
    EXPECT_EQ(g.tileExtent(1), IExtent<2>(64, 0, 127, 63));
    EXPECT_TRUE(g.tileExtent(6).degenerate());
    EXPECT_TRUE(g.contains(149, 99));
    EXPECT_FALSE(g.contains(150, 0));
    EXPECT_FALSE(g.contains(-1, 0));
}

TEST(TileGeometry, EmptyAndOversizedImages) {
    for (const auto& [w, h] : {std::pair{0, 10}, {10, 0}, {-5, 10}}) {
        const TileGeometry g = TileGeometry::compute(w, h);
        EXPECT_TRUE(g.empty());
        EXPECT_EQ(g.tileCount(), 0);
        EXPECT_TRUE(g.bounds().degenerate());
    }
    // 2^31 - 1 on a side is 8388608 tiles of 256: far more than an image may have.
    EXPECT_THROW(TileGeometry::compute(INT32_MAX, INT32_MAX), std::length_error);
    EXPECT_NO_THROW(TileGeometry::compute(1000000, 1000000));
}

} // namespace
