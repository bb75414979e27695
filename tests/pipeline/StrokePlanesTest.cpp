// The stroke's coverage planes between strokes: cleared for every stroke, their tiles kept
// and zeroed again for the next one, never changed under someone who still holds them.

#include "PipelineTestSupport.h"

#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class StrokePlanes : public testing::Test {
protected:
    void SetUp() override {
        // 300 x 100: tiles 64 wide.
        document = test::makeTestDocument(300, 100);
        alpha = document->editor.strokeAlpha.get();
    }

    void write(std::int32_t x, std::int32_t y, Alpha value) {
        TileHandle hold;
        *reinterpret_cast<Alpha*>(alpha->pixelForWrite(x, y, hold, nullptr)) = value;
    }

    /// The pixels of the tile holding (x, y), or null if it is empty.
    const std::uint8_t* tilePixels(std::int32_t x, std::int32_t y) const {
        return alpha->tiles().get(document->geometry().tileIndex(x, y))->pixels();
    }

    std::unique_ptr<test::TestDocument> document;
    AlphaBitmap* alpha = nullptr;
};

TEST_F(StrokePlanes, ClearedPlaneReadsZeroAndKeepsItsTilesForTheNextWrites) {
    // Tiles are 64 x 64: (10, 10) lies in the first row of tiles, (70, 80) in the second.
    ASSERT_EQ(document->geometry().tileHeight, 64);
    write(10, 10, 0.25f);
    write(70, 80, 1.0f);
    write(71, 81, 0.5f);
    const std::uint8_t* before = tilePixels(70, 80);
    ASSERT_EQ(alpha->nonEmptyTiles(), 2);

    document->editor.clearStrokePlanes();
    EXPECT_EQ(alpha->nonEmptyTiles(), 0);
    EXPECT_EQ(alpha->keptTiles(), 2);
    EXPECT_EQ(alpha->valueAt<Alpha>(70, 80), 0.0f);
    EXPECT_EQ(alpha->valueAt<Alpha>(10, 10), 0.0f);

    // A write into the second row of tiles takes its kept tile back, zeroed everywhere but
    // where it writes; the first row's stays kept.
    write(72, 82, 0.75f);
    EXPECT_EQ(tilePixels(70, 80), before);
    EXPECT_EQ(alpha->keptTiles(), 1);
    EXPECT_EQ(alpha->nonEmptyTiles(), 1);
    EXPECT_EQ(alpha->valueAt<Alpha>(72, 82), 0.75f);
    EXPECT_EQ(alpha->valueAt<Alpha>(70, 80), 0.0f);
    EXPECT_EQ(alpha->valueAt<Alpha>(71, 81), 0.0f);

    // The next clear keeps only what was written since this one.
    document->editor.clearStrokePlanes();
    EXPECT_EQ(alpha->keptTiles(), 1);
    write(10, 10, 0.5f); // the first row has nothing kept now: a new tile
    EXPECT_EQ(alpha->keptTiles(), 1);
    EXPECT_EQ(alpha->valueAt<Alpha>(10, 10), 0.5f);
    EXPECT_EQ(alpha->valueAt<Alpha>(72, 82), 0.0f);
}

TEST_F(StrokePlanes, TakingBackARowOfTilesKeepsTheirPixelsZero) {
    // Three tiles of one row written, then after the clear one pixel of one of them: the
    // other two come back zeroed with it, and are let go of at the next clear unwritten.
    for (std::int32_t x : {5, 70, 140}) {
        write(x, 30, 1.0f);
    }
    document->editor.clearStrokePlanes();
    write(141, 31, 0.5f);
    EXPECT_EQ(alpha->keptTiles(), 0);
    for (std::int32_t x = 0; x < 300; x += 5) {
        ASSERT_EQ(alpha->valueAt<Alpha>(x, 30), 0.0f) << x;
    }
    EXPECT_EQ(alpha->valueAt<Alpha>(141, 31), 0.5f);
    document->editor.clearStrokePlanes();
    EXPECT_EQ(alpha->keptTiles(), 1);
}

TEST_F(StrokePlanes, AKeptTileSomeoneStillHoldsIsNotChangedUnderThem) {
    write(5, 5, 0.5f);
    TileHandle reader;
    const std::uint8_t* pixel = alpha->pixelForRead(5, 5, reader, nullptr);
    ASSERT_NE(pixel, nullptr);

    document->editor.clearStrokePlanes();
    write(6, 5, 1.0f); // the kept tile is still the reader's: copied, not zeroed in place
    EXPECT_EQ(*reinterpret_cast<const Alpha*>(pixel), 0.5f); // the reader's tile as it was
    EXPECT_EQ(alpha->valueAt<Alpha>(5, 5), 0.0f);
    EXPECT_EQ(alpha->valueAt<Alpha>(6, 5), 1.0f);
}

TEST_F(StrokePlanes, EveryStrokeStartsFromNoCoverage) {
    // Two strokes of half coverage over the same pixels, the second through the same
    // applicator and the tiles the first left: each ends at 0.5, not at 0.75.
    ToolSelection& selection = ToolSelection::instance();
    selection.reset();
    auto applicator = TQL::makeHandle<test::RowApplicator>();
    applicator->coverage = 0.5f;
    applicator->width = 200;
    selection.selectApplicator(applicator);
    for (int stroke = 0; stroke < 3; ++stroke) {
        ASSERT_EQ(document->editor.runStroke({StrokePoint{50, 20}, StrokePoint{50, 21}}, nullptr),
                  status::ok);
        for (std::int32_t x = 50; x < 250; x += 7) {
            ASSERT_FLOAT_EQ(alpha->valueAt<Alpha>(x, 20), 0.5f) << "stroke " << stroke;
            ASSERT_FLOAT_EQ(alpha->valueAt<Alpha>(x, 21), 0.5f) << "stroke " << stroke;
        }
        EXPECT_EQ(alpha->valueAt<Alpha>(49, 20), 0.0f);
        EXPECT_EQ(alpha->valueAt<Alpha>(50, 22), 0.0f);
    }
    selection.reset();
}

} // namespace
