// The kept planes of a stroke against the document's own span planes, run for run, while
// the document changes under them between rows.

#include "pipeline/SpanPlaneCache.h"

#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

/// The bytes of `count` pixels of `bytes` bytes at p and q are equal.
bool sameBytes(const void* p, const void* q, std::int32_t count, std::size_t bytes) {
    return p && q && std::memcmp(p, q, static_cast<std::size_t>(count) * bytes) == 0;
}

class SpanPlaneCacheTest : public testing::Test {
protected:
    void SetUp() override {
        // 300 x 100: tiles 64 wide; the last column is 44 wide.
        document = test::makeTestDocument(300, 100);
        paintAll(5);
    }

    /// Writes every colour, original, depth and stroke alpha pixel from a seed.
    void paintAll(std::uint8_t seed) {
        TileHandle hold;
        for (std::int32_t y = 0; y < 100; ++y) {
            for (std::int32_t x = 0; x < 300; ++x) {
                const auto v = static_cast<std::uint8_t>(x * 7 + y * 3 + seed);
                *document->rgbWrite(x, y, hold) = ColourPOD{v, seed, std::uint8_t(y)};
                *document->originalRgbWrite(x, y, hold) = ColourPOD{seed, v, std::uint8_t(x)};
                *document->zWrite(x, y, hold) = std::uint32_t(x * 1000 + y + seed);
                *reinterpret_cast<Alpha*>(document->editor.strokeAlpha->pixelForWrite(
                    x, y, hold, nullptr)) = float(v) / 255.0f;
            }
        }
    }

    /// Walks every run of every row through the cache and compares each plane with what
    /// spanPlanes gives for the same run.
    void compareAll(bool wet, const std::string& when) {
        for (std::int32_t y = 0; y < 100; ++y) {
            ASSERT_TRUE(cache.beginRow(*document, y, wet)) << when;
            for (std::int32_t x = y % 5; x < 300;) {
                SpanPlanes kept;
                const std::int32_t n = cache.run(x, kept);
                SpanPins pins;
                SpanPlanes fresh;
                ASSERT_EQ(n, document->spanPlanes(x, y, wet, pins, fresh)) << when;
                ASSERT_GT(n, 0) << when;
                ASSERT_TRUE(sameBytes(kept.sourceColour, fresh.sourceColour, n, 3)) << when;
                ASSERT_TRUE(sameBytes(kept.baseColour, fresh.baseColour, n, 3)) << when;
                ASSERT_TRUE(sameBytes(kept.baseDepth, fresh.baseDepth, n, 4)) << when;
                ASSERT_TRUE(sameBytes(kept.baseMaterial, fresh.baseMaterial, n, 2)) << when;
                ASSERT_TRUE(sameBytes(cache.strokeAlpha(), fresh.strokeAlpha, n, 4)) << when;
                if (wet) {
                    ASSERT_TRUE(sameBytes(kept.wetColour, fresh.wetColour, n, 3)) << when;
                    ASSERT_TRUE(sameBytes(kept.wetAlpha, fresh.wetAlpha, n, 4)) << when;
                }
                x += n;
            }
        }
    }

    std::unique_ptr<test::TestDocument> document;
    SpanPlaneCache cache;
};

TEST_F(SpanPlaneCacheTest, GivesTheDocumentsPlanesAsTheyChange) {
    compareAll(false, "live channels as the image before the stroke");

    Status status = status::ok;
    document->editor.undoBuffer->pushLevel(status, 0);
    ASSERT_EQ(status, status::ok);
    compareAll(false, "after a level was closed");

    paintAll(77); // the originals and stroke alpha change in place or by copy on write
    compareAll(true, "after every plane was written again");

    document->editor.strokeAlpha->clearAll();
    document->editor.wetAlpha->clearAll();
    compareAll(true, "after the stroke planes were cleared");

    document->editor.undoBuffer->pushLevel(status, 0);
    ASSERT_EQ(status, status::ok);
    compareAll(false, "after another level");
}

TEST_F(SpanPlaneCacheTest, NothingOutsideTheImageOrWithoutTheChannels) {
    EXPECT_FALSE(cache.beginRow(*document, -1, false));
    EXPECT_FALSE(cache.beginRow(*document, 100, false));
    ASSERT_TRUE(cache.beginRow(*document, 0, false));
    SpanPlanes planes;
    EXPECT_EQ(cache.run(300, planes), 0);
    EXPECT_EQ(cache.run(-1, planes), 0);
    EXPECT_EQ(cache.run(299, planes), 1); // the last pixel of the narrow last column
    document->editor.wetAlpha.reset();
    EXPECT_FALSE(cache.beginRow(*document, 0, true));
}

TEST_F(SpanPlaneCacheTest, KeptWritesLeaveTheUndoLevelAlone) {
    Status status = status::ok;
    document->editor.undoBuffer->pushLevel(status, 0);
    ASSERT_EQ(status, status::ok);
    const ColourPOD before = document->rgbAt(70, 3);
    for (std::int32_t y = 0; y < 4; ++y) {
        ASSERT_TRUE(cache.beginRow(*document, y, false));
        SpanPlanes planes;
        ASSERT_GT(cache.run(64, planes), 0);
        std::int32_t n = 0;
        auto* out = reinterpret_cast<ColourPOD*>(cache.colourWriter()->run(70, y, n));
        ASSERT_NE(out, nullptr);
        *out = ColourPOD{1, 2, 3};
    }
    EXPECT_EQ(document->rgbAt(70, 3), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(document->undoRgbAt(70, 3), before);
    // A level closed while the cache still keeps the tile: the next write copies it first.
    document->editor.undoBuffer->pushLevel(status, 0);
    ASSERT_TRUE(cache.beginRow(*document, 3, false));
    std::int32_t n = 0;
    *reinterpret_cast<ColourPOD*>(cache.colourWriter()->run(70, 3, n)) = ColourPOD{4, 5, 6};
    EXPECT_EQ(document->undoRgbAt(70, 3), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(document->rgbAt(70, 3), (ColourPOD{4, 5, 6}));
}

} // namespace
