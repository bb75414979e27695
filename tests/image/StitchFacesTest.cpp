#include "image/UndoBitmap.h"
#include "image/ZBitmap.h"
#include "support/TestDocument.h"
#include "views/cameras/FaceSize.h"

#include <gtest/gtest.h>

#include <cstring>

#include <vector>

namespace {

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

TEST(StitchFaces, MakesNeighboursAgree) {
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
        const FaceSize faces(n);
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

TEST(StitchFaces, LeavesAgreeingTilesShared) {
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
    FaceSize(n).copies(4 * n + 10, 0, copies);
    EXPECT_EQ(b->valueAt<std::uint32_t>(4 * n + 10, 0),
              b->valueAt<std::uint32_t>(copies[0].x, copies[0].y));
    EXPECT_NE(b->valueAt<std::uint32_t>(4 * n + 10, 0), wrong);
}

/// Every edge pixel of a cube strip of faces n wide holds, in `after`, what its canonical
/// copy held in `before`.
template <class T>
void expectStitched(const TileBitmap& after, const TileBitmap& before, std::int32_t n) {
    const FaceSize faces(n);
    for (std::int32_t x = 0; x < 6 * n; ++x) {
        for (std::int32_t y = 0; y < n; ++y) {
            IPoint<2> copies[3];
            const std::int32_t count = faces.copies(x, y, copies);
            const T want =
                before.valueAt<T>(count > 1 ? copies[0].x : x, count > 1 ? copies[0].y : y);
            ASSERT_EQ(after.valueAt<T>(x, y), want) << x << "," << y;
        }
    }
}

TEST(StitchFaces, ADocumentRepairsTheSeamsOfEveryChannel) {
    const std::int32_t n = 8;
    auto doc = test::makeTestDocument(6 * n, n);
    TileHandle hold;
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            *doc->rgbWrite(x, y, hold) =
                ColourPOD{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 1};
            *doc->zWrite(x, y, hold) = 1000u * std::uint32_t(x) + std::uint32_t(y);
            *doc->matWrite(x, y, hold) = static_cast<MaterialId>(x + 1);
            *doc->cutoutAlphaWrite(x, y, hold) = float(x) / 100.0f;
        }
    }
    hold.reset();
    doc->commitOriginals(); // the originals share the written tiles
    // Copies of the channels as they are; they share every tile until the stitch writes.
    const auto copyOf = [&](std::uint32_t id) {
        const TQL::Handle<TileBitmap> live = doc->channel(id);
        auto copy = TQL::makeHandle<UndoBitmap>(live);
        return copy;
    };
    const auto rgb = copyOf(channelRgb), z = copyOf(channelZ), mat = copyOf(channelMat),
               alpha = copyOf(channelCutoutAlpha);

    EXPECT_FALSE(doc->stitchFaces()) << "a flat view is no panorama";
    EXPECT_TRUE(doc->rgb->sharesTile(0, *rgb));
    ViewParams view;
    view.viewCode = ViewParams::cubicCode;
    doc->setViewParams(view);
    ASSERT_TRUE(doc->stitchFaces());
    expectStitched<ColourPOD>(*doc->rgb, *rgb, n);
    expectStitched<std::uint32_t>(*doc->z, *z, n);
    expectStitched<MaterialId>(*doc->mat, *mat, n);
    expectStitched<Alpha>(*doc->cutoutAlpha, *alpha, n);
    // The originals are planes of the image too.
    expectStitched<ColourPOD>(*doc->originalRgb, *rgb, n);
}

TEST(StitchFaces, RefusesOtherShapes) {
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
