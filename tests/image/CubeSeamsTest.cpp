#include "image/CubeSeams.h"
#include "image/ZBitmap.h"

#include <gtest/gtest.h>

#include <cstring>

#include <set>
#include <vector>

namespace {

bool lessXY(IPoint<2> a, IPoint<2> b) {
    return a.x != b.x ? a.x < b.x : a.y < b.y;
}

TEST(CubeSeams, EachEdgePixelMeetsItsNeighbour) {
    // n = 4, face s at x = 4s..4s+3. One pixel on each of the 24 face edges and, worked out
    // by hand from the face layout, the edge pixel it shares with the neighbouring face.
    struct Case {
        IPoint<2> pixel, across;
    };
    const Case cases[] = {
        {{0, 1}, {15, 1}},  {{3, 1}, {4, 1}},   {{1, 0}, {17, 3}},  {{1, 3}, {21, 0}},
        {{4, 1}, {3, 1}},   {{7, 1}, {8, 1}},   {{5, 0}, {19, 2}},  {{5, 3}, {23, 1}},
        {{8, 1}, {7, 1}},   {{11, 1}, {12, 1}}, {{9, 0}, {18, 0}},  {{9, 3}, {22, 3}},
        {{12, 1}, {11, 1}}, {{15, 1}, {0, 1}},  {{13, 0}, {16, 1}}, {{13, 3}, {20, 2}},
        {{16, 1}, {13, 0}}, {{19, 1}, {6, 0}},  {{17, 0}, {10, 0}}, {{17, 3}, {1, 0}},
        {{20, 1}, {14, 3}}, {{23, 1}, {5, 3}},  {{21, 0}, {1, 3}},  {{21, 3}, {10, 3}},
    };
    const CubeSeams faces(4);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.pixel.x << "," << c.pixel.y);
        IPoint<2> copies[3];
        ASSERT_EQ(faces.copies(c.pixel.x, c.pixel.y, copies), 2);
        const IPoint<2> other = copies[0] == c.pixel ? copies[1] : copies[0];
        EXPECT_EQ(other, c.across);
        std::int32_t x = c.pixel.x;
        std::int32_t y = c.pixel.y;
        EXPECT_EQ(faces.nextCopy(x, y), 2);
        EXPECT_EQ(IPoint<2>(x, y), c.across);
    }
}

TEST(CubeSeams, CopiesFormClosedGroups) {
    for (const std::int32_t n : {2, 3, 5, 8}) {
        SCOPED_TRACE(n);
        const CubeSeams faces(n);
        std::set<std::pair<std::int32_t, std::int32_t>> canonical;
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            for (std::int32_t y = 0; y < n; ++y) {
                IPoint<2> mine[3];
                const std::int32_t count = faces.copies(x, y, mine);
                const bool onColumnEdge = x % n == 0 || x % n == n - 1;
                const bool onRowEdge = y == 0 || y == n - 1;
                ASSERT_EQ(count, 1 + (onColumnEdge ? 1 : 0) + (onRowEdge ? 1 : 0));
                // Every copy has exactly the same copies, and all lie on the strip.
                for (std::int32_t i = 0; i < count; ++i) {
                    ASSERT_TRUE(faces.contains(mine[i].x, mine[i].y));
                    IPoint<2> theirs[3];
                    ASSERT_EQ(faces.copies(mine[i].x, mine[i].y, theirs), count);
                    for (std::int32_t j = 0; j < count; ++j) {
                        ASSERT_EQ(theirs[j], mine[j]) << x << "," << y;
                    }
                }
                // Walking nextCopy count times comes back to the start.
                std::int32_t cx = x;
                std::int32_t cy = y;
                for (std::int32_t i = 0; i < count; ++i) {
                    faces.nextCopy(cx, cy);
                }
                ASSERT_EQ(IPoint<2>(cx, cy), IPoint<2>(x, y));
                const IPoint<2> c = faces.canonicalPixel(x, y);
                for (std::int32_t i = 0; i < count; ++i) {
                    ASSERT_FALSE(lessXY(mine[i], c));
                }
                canonical.insert({c.x, c.y});
            }
        }
        // A cube of side n with shared edges: 6 (n-2)^2 face pixels, 12 (n-2) edge pixels
        // and 8 corners, each counted once.
        EXPECT_EQ(canonical.size(),
                  static_cast<std::size_t>(6 * (n - 2) * (n - 2) + 12 * (n - 2) + 8));
    }
}

/// A depth strip of six 64 x 64 faces (one tile each), face s filled with 1000 * (s + 1).
TQL::Handle<ZBitmap> makeStrip(bool stacked) {
    const std::int32_t n = 64;
    auto b = TQL::makeHandle<ZBitmap>(
        nullptr, stacked ? TileGeometry::compute(n, 6 * n) : TileGeometry::compute(6 * n, n),
        ZBitmap::noDepth);
    for (std::int32_t face = 0; face < 6; ++face) {
        for (std::int32_t v = 0; v < n; ++v) {
            for (std::int32_t u = 0; u < n; ++u) {
                const std::int32_t x = stacked ? u : face * n + u;
                const std::int32_t y = stacked ? face * n + v : v;
                TileHandle hold;
                const std::uint32_t value = 1000u * (face + 1);
                std::memcpy(b->pixelForWrite(x, y, hold, nullptr), &value, 4);
            }
        }
    }
    return b;
}

TEST(CubeSeams, StitchingMakesNeighboursAgree) {
    for (const bool stacked : {false, true}) {
        SCOPED_TRACE(stacked ? "stacked" : "side by side");
        const std::int32_t n = 64;
        auto b = makeStrip(stacked);
        auto before = TQL::makeHandle<ZBitmap>(nullptr, b->geometry(), ZBitmap::noDepth);
        before->copyFrom(*b, false);
        ASSERT_TRUE(b->stitchFaces(n));

        const auto at = [&](const ZBitmap& bitmap, IPoint<2> p) {
            return stacked ? bitmap.valueAt<std::uint32_t>(p.x % n, (p.x / n) * n + p.y)
                           : bitmap.valueAt<std::uint32_t>(p.x, p.y);
        };
        const CubeSeams faces(n);
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            for (std::int32_t y = 0; y < n; ++y) {
                IPoint<2> copies[3];
                const std::int32_t count = faces.copies(x, y, copies);
                // Every copy now holds what the canonical copy held before.
                for (std::int32_t i = 0; i < count; ++i) {
                    ASSERT_EQ(at(*b, copies[i]), at(*before, copies[0])) << x << "," << y;
                }
                if (count == 1) {
                    ASSERT_EQ(at(*b, {x, y}), at(*before, {x, y}));
                }
            }
        }
        // Face 0 holds only canonical pixels: its tile is still the one shared with before.
        EXPECT_TRUE(b->sharesTile(0, *before));
        for (std::int32_t face = 1; face < 6; ++face) {
            EXPECT_FALSE(b->sharesTile(face, *before)) << face;
        }
    }
}

TEST(CubeSeams, StitchingLeavesAgreeingTilesShared) {
    const std::int32_t n = 64;
    auto b = makeStrip(false);
    b->stitchFaces(n);
    // Now consistent: break one pixel on face 4's top edge, whose copy on face 2 stands for
    // both, then snapshot.
    TileHandle hold;
    const std::uint32_t wrong = 77;
    std::memcpy(b->pixelForWrite(4 * n + 10, 0, hold, nullptr), &wrong, 4);
    hold.reset();
    auto snapshot = TQL::makeHandle<ZBitmap>(nullptr, b->geometry(), ZBitmap::noDepth);
    snapshot->copyFrom(*b, false);
    ASSERT_TRUE(b->stitchFaces(n));
    for (std::int32_t face = 0; face < 6; ++face) {
        EXPECT_EQ(b->sharesTile(face, *snapshot), face != 4) << face;
    }
    IPoint<2> copies[3];
    CubeSeams(n).copies(4 * n + 10, 0, copies);
    EXPECT_EQ(b->valueAt<std::uint32_t>(4 * n + 10, 0),
              b->valueAt<std::uint32_t>(copies[0].x, copies[0].y));
    EXPECT_NE(b->valueAt<std::uint32_t>(4 * n + 10, 0), wrong);
}

TEST(CubeSeams, StitchingRefusesOtherShapes) {
    struct Case {
        std::int32_t w, h, n;
    };
    const Case cases[] = {{12, 2, 1}, {100, 10, 10}, {60, 11, 10}, {64, 64, 64}};
    for (const Case& c : cases) {
        auto b = TQL::makeHandle<ZBitmap>(nullptr, TileGeometry::compute(c.w, c.h), 0u);
        EXPECT_FALSE(b->stitchFaces(c.n)) << c.w << "x" << c.h;
        EXPECT_EQ(b->nonEmptyTiles(), 0);
    }
}

} // namespace
