// The stroke's coverage planes between strokes: cleared for every stroke, their tiles kept
// for the next one, never changed under someone who still holds them; rows of one value
// recorded rather than written, and read as if written through every read.

#include "PipelineTestSupport.h"

#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
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
    // Tiles are 64 x 64: (10, 10) lies in one tile, (70, 80) and (71, 81) in another.
    ASSERT_EQ(document->geometry().tileHeight, 64);
    write(10, 10, 0.25f);
    write(70, 80, 1.0f);
    write(71, 81, 0.5f);
    const std::uint8_t* before = tilePixels(70, 80);
    ASSERT_EQ(alpha->nonEmptyTiles(), 2);

    document->editor.clearStrokePlanes();
    EXPECT_EQ(alpha->nonEmptyTiles(), 2); // kept, every row of them reading 0
    EXPECT_EQ(alpha->tilesWithUniformRows(), 2);
    EXPECT_EQ(alpha->valueAt<Alpha>(70, 80), 0.0f);
    EXPECT_EQ(alpha->valueAt<Alpha>(10, 10), 0.0f);

    // A write into a kept tile reuses its memory, which reads 0 everywhere but where it
    // writes.
    write(72, 82, 0.75f);
    EXPECT_EQ(tilePixels(70, 80), before);
    EXPECT_EQ(alpha->tilesWithUniformRows(), 1);
    EXPECT_EQ(alpha->valueAt<Alpha>(72, 82), 0.75f);
    EXPECT_EQ(alpha->valueAt<Alpha>(70, 80), 0.0f);
    EXPECT_EQ(alpha->valueAt<Alpha>(71, 81), 0.0f);
    TileHandle hold;
    const auto* row = reinterpret_cast<const Alpha*>(alpha->pixelForRead(64, 81, hold, nullptr));
    ASSERT_NE(row, nullptr);
    for (int k = 0; k < 64; ++k) {
        ASSERT_EQ(row[k], 0.0f) << k; // the memory itself, as a tile reader sees it
    }
    hold.reset();

    // The next clear keeps only what was written since this one.
    document->editor.clearStrokePlanes();
    EXPECT_EQ(alpha->nonEmptyTiles(), 1);
    write(10, 10, 0.5f); // nothing kept there now: a new tile
    EXPECT_EQ(alpha->valueAt<Alpha>(10, 10), 0.5f);
    EXPECT_EQ(alpha->valueAt<Alpha>(72, 82), 0.0f);
}

TEST_F(StrokePlanes, EveryReadOfAClearedPlaneSeesZero) {
    for (std::int32_t x : {5, 70, 140}) {
        for (std::int32_t y : {30, 31}) {
            write(x, y, 1.0f);
        }
    }
    document->editor.clearStrokePlanes();
    write(141, 31, 0.5f);
    for (std::int32_t x = 0; x < 300; x += 5) {
        ASSERT_EQ(alpha->valueAt<Alpha>(x, 30), 0.0f) << x;
        TileHandle hold;
        const std::uint8_t* pixel = nullptr;
        ASSERT_GT(alpha->runForRead(x, 30, hold, &pixel), 0);
        ASSERT_EQ(*reinterpret_cast<const Alpha*>(pixel), 0.0f) << x;
    }
    TileHandle hold;
    const auto* tile = reinterpret_cast<const Alpha*>(
        alpha->tileForRead(document->geometry().tileIndex(5, 30), hold));
    ASSERT_NE(tile, nullptr);
    EXPECT_EQ(tile[30 * 64 + 5], 0.0f);
    hold.reset();
    EXPECT_EQ(alpha->valueAt<Alpha>(141, 31), 0.5f);
    EXPECT_EQ(alpha->valueAt<Alpha>(140, 31), 0.0f);
    // Shown as white (no coverage) except the written pixel.
    const std::uint8_t* grey = alpha->displayRgb(128, 31, 20, 1, hold);
    ASSERT_NE(grey, nullptr);
    EXPECT_EQ(grey[12 * 3], 255);
    EXPECT_EQ(grey[13 * 3], AlphaBitmap::displayGrey(0.5f));
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

namespace {

/// Two documents painted alike: one by the plain walk, which writes every stroke alpha
/// value out, the other by the fast paths, which record whole tile rows of one value.
class UniformRows : public testing::TestWithParam<std::tuple<float, std::uint32_t>> {
protected:
    struct Side {
        std::unique_ptr<test::TestDocument> document;
        TQL::Handle<test::RowApplicator> applicator;
    };

    void SetUp() override {
        const auto [opacity, mode] = GetParam();
        for (Side* side : {&plain, &fast}) {
            // 300 x 100: tiles 64 wide, the last column 44 wide.
            side->document = test::makeTestDocument(300, 100);
            TileHandle hold;
            for (std::int32_t y = 0; y < 100; ++y) {
                for (std::int32_t x = 0; x < 300; ++x) {
                    *side->document->rgbWrite(x, y, hold) =
                        ColourPOD{std::uint8_t(x), std::uint8_t(y * 3), std::uint8_t(x ^ y)};
                }
            }
            auto& a = side->applicator = TQL::makeHandle<test::RowApplicator>();
            a->plainWalk = side == &plain;
            a->effect = TQL::makeHandle<Paint>();
            a->recolour = TQL::makeHandle<LinearRecolour>(200, 120, 40, 1.0f);
            a->blend = TQL::makeHandle<Blender>(opacity, mode);
        }
    }

    void startStroke() {
        for (Side* side : {&plain, &fast}) {
            side->document->editor.clearStrokePlanes();
            side->applicator->Applicator::start(*side->document, nullptr, StrokePoint{0, 0});
        }
    }

    void paint(std::int32_t x0, std::int32_t y, const std::vector<float>& coverage) {
        const auto n = static_cast<std::int32_t>(coverage.size());
        const IExtent<2> p =
            plain.applicator->paintRow(*plain.document, x0, y, 0, n, coverage.data());
        const IExtent<2> f =
            fast.applicator->paintRow(*fast.document, x0, y, 0, n, coverage.data());
        ASSERT_EQ(p, f);
    }

    /// Colour, stroke alpha as valueAt and the display read it, then the plane's memory.
    void expectSame(const std::string& when) {
        AlphaBitmap& pa = *plain.document->editor.strokeAlpha;
        AlphaBitmap& fa = *fast.document->editor.strokeAlpha;
        for (std::int32_t y = 0; y < 100; ++y) {
            for (std::int32_t x = 0; x < 300; x += 64) {
                TileHandle ph, fh;
                const std::int32_t w = std::min(64, 300 - x);
                const std::uint8_t* p = pa.displayRgb(x, y, w, 1, ph);
                const std::uint8_t* f = fa.displayRgb(x, y, w, 1, fh);
                ASSERT_TRUE(p && f && std::memcmp(p, f, static_cast<std::size_t>(w) * 3) == 0)
                    << when << ": display at " << x << ", " << y;
            }
            for (std::int32_t x = 0; x < 300; ++x) {
                ASSERT_EQ(plain.document->rgbAt(x, y), fast.document->rgbAt(x, y))
                    << when << ": " << x << ", " << y;
                ASSERT_EQ(pa.valueAt<std::uint32_t>(x, y), fa.valueAt<std::uint32_t>(x, y))
                    << when << ": " << x << ", " << y;
            }
        }
        for (std::int32_t y = 0; y < 100; ++y) {
            for (std::int32_t x = 0; x < 300;) {
                TileHandle ph, fh;
                const std::uint8_t* p = nullptr;
                const std::uint8_t* f = nullptr;
                const std::int32_t n = pa.runForRead(x, y, ph, &p);
                ASSERT_EQ(n, fa.runForRead(x, y, fh, &f));
                ASSERT_EQ(std::memcmp(p, f, static_cast<std::size_t>(n) * 4), 0)
                    << when << ": memory at " << x << ", " << y;
                x += n;
            }
        }
    }

    Side plain, fast;
};

TEST_P(UniformRows, RecordedRowsReadAsTheWrittenOnesBitForBit) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> anyCoverage(0.05f, 1.0f);
    for (int stroke = 0; stroke < 3; ++stroke) {
        startStroke();
        // Whole rows at full and at half coverage (twice: 0.5, then 0.75), rows that start
        // or end inside a tile, and rows of random coverage over rows already painted.
        for (std::int32_t y = 0; y < 100; y += 3) {
            paint(0, y, std::vector<float>(300, 1.0f));
        }
        for (int pass = 0; pass < 2; ++pass) {
            for (std::int32_t y = 1 + stroke; y < 100; y += 4) {
                paint(0, y, std::vector<float>(300, 0.5f));
            }
        }
        for (std::int32_t y = 2; y < 100; y += 5) {
            paint(30 + y, y, std::vector<float>(100 + y, 1.0f));
            std::vector<float> coverage(300);
            for (float& c : coverage) {
                c = anyCoverage(random);
            }
            paint(0, (y * 7) % 100, coverage);
        }
        // The fast side recorded rows (in the first stroke nothing was cleared, so every
        // uniform row is one it recorded); the plain side wrote every row it painted.
        EXPECT_GT(fast.document->editor.strokeAlpha->tilesWithUniformRows(), 0);
        if (stroke == 0) {
            EXPECT_EQ(plain.document->editor.strokeAlpha->tilesWithUniformRows(), 0);
        }
        expectSame("stroke " + std::to_string(stroke));
    }
}

INSTANTIATE_TEST_SUITE_P(Blends, UniformRows,
                         testing::Values(std::make_tuple(1.0f, 0u), std::make_tuple(0.5f, 1u)),
                         [](const testing::TestParamInfo<std::tuple<float, std::uint32_t>>& info) {
                             return std::get<1>(info.param) == 0 ? "NormalFull" : "MultiplyHalf";
                         });

} // namespace
