#include "image/DocumentBuffer.h"
#include "image/QuorvaleBuffer.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <map>
#include <vector>

namespace {

/// One row as a renderer hands it over, built pixel by pixel.
struct Row {
    explicit Row(std::int32_t width)
        : depths(width, 0), covered(width, 0), colours(4 * width, 0), materials(width, 0) {}
    void set(std::int32_t x, std::uint32_t code, ColourPOD c, MaterialId m,
             std::uint32_t flags = Buffer::coveredFlag, std::uint8_t alpha = 255) {
        depths[x] = code;
        covered[x] = flags;
        colours[4 * x] = c.b;
        colours[4 * x + 1] = c.g;
        colours[4 * x + 2] = c.r;
        colours[4 * x + 3] = alpha;
        materials[x] = m;
    }
    void put(Buffer& b, std::int32_t row) const {
        b.putRow(row, depths.data(), covered.data(), colours.data(), materials.data());
    }
    std::vector<double> depths;
    std::vector<std::uint32_t> covered;
    std::vector<std::uint8_t> colours;
    std::vector<MaterialId> materials;
};

TEST(DocumentBuffer, WritesDrawnPixelsAndTheBackgroundElsewhere) {
    auto doc = test::makeTestDocument(70, 3); // wider than a tile
    const ColourPOD sky{200, 150, 100};
    const std::vector<MaterialId> ids = {7, 9}; // the model's materials 1 and 2
    DocumentBuffer buffer(*doc, sky, ids);
    Row row(70);
    row.set(0, 4294967294u, {1, 2, 3}, 1);
    row.set(65, 12345, {4, 5, 6}, 2);
    row.set(69, 0, {7, 8, 9}, 3); // a number the table doesn't know
    row.put(buffer, 1);
    buffer.finish();

    EXPECT_EQ(doc->rgbAt(0, 1), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(doc->zAt(0, 1), 4294967294u);
    EXPECT_EQ(doc->matAt(0, 1), 7);
    EXPECT_EQ(doc->rgbAt(65, 1), (ColourPOD{4, 5, 6}));
    EXPECT_EQ(doc->zAt(65, 1), 12345u);
    EXPECT_EQ(doc->matAt(65, 1), 9);
    EXPECT_EQ(doc->zAt(69, 1), 0u);
    EXPECT_EQ(doc->matAt(69, 1), 0);
    EXPECT_EQ(doc->rgbAt(1, 1), sky);
    EXPECT_EQ(doc->zAt(1, 1), ZBitmap::noDepth);
    EXPECT_EQ(doc->matAt(1, 1), 0);
    // Rows that weren't put are untouched.
    EXPECT_EQ(doc->rgbAt(1, 0), (ColourPOD{0, 0, 0}));
}

TEST(DocumentBuffer, PlacesAFaceWideRowFromItsColumn) {
    auto doc = test::makeTestDocument(12, 2); // a cube strip of faces 2 wide
    DocumentBuffer buffer(*doc, {9, 9, 9}, {}, 4, 2);
    Row row(2);
    row.set(1, 77, {1, 1, 1}, 0);
    row.put(buffer, 0);
    EXPECT_EQ(doc->rgbAt(3, 0), (ColourPOD{0, 0, 0}));
    EXPECT_EQ(doc->rgbAt(4, 0), (ColourPOD{9, 9, 9}));
    EXPECT_EQ(doc->zAt(5, 0), 77u);
    EXPECT_EQ(doc->rgbAt(6, 0), (ColourPOD{0, 0, 0}));
}

TEST(ThumbBuffer, PlainModeCopiesTheDrawnColours) {
    std::vector<ColourPOD> rgb(4 * 2, ColourPOD{50, 50, 50});
    ThumbBuffer thumb(4, 2, rgb.data(), ThumbSettings{});
    EXPECT_FALSE(thumb.hasDepth());
    Row row(4);
    row.set(2, 0, {10, 20, 30}, 1);
    row.put(thumb, 1);
    thumb.finish();
    EXPECT_EQ(rgb[4 + 2], (ColourPOD{10, 20, 30}));
    EXPECT_EQ(rgb[4 + 1], (ColourPOD{50, 50, 50}));
    EXPECT_EQ(rgb[2], (ColourPOD{50, 50, 50}));
}

TEST(ThumbBuffer, OutlineModeFillsPixelsWhoseUpperAndLeftNeighboursAreSet) {
    // A 4 x 4 square at (1, 1) in a 6 x 6 thumbnail; one pixel of it is barely covered.
    // Rows come top down, so only the neighbours above and to the left are known: the
    // outline is the shape's top and left edge, and a pixel left out is simply not drawn.
    const ColourPOD back{1, 1, 1}, line{2, 2, 2}, fill{3, 3, 3};
    std::vector<ColourPOD> rgb(36, back);
    ThumbBuffer thumb(6, 6, rgb.data(), ThumbSettings{true, line, fill});
    for (std::int32_t y = 0; y < 6; ++y) {
        Row row(6);
        for (std::int32_t x = 1; x <= 4 && y >= 1 && y <= 4; ++x) {
            const std::uint8_t alpha = x == 4 && y == 4 ? 127 : 255;
            row.set(x, 0, {0, 0, 0}, 0, Buffer::coveredFlag, alpha);
        }
        row.put(thumb, y);
    }
    thumb.finish();
    const char* expected[] = {"......", ".####.", ".#+++.", ".#+++.", ".#++..", "......"};
    for (std::int32_t y = 0; y < 6; ++y) {
        for (std::int32_t x = 0; x < 6; ++x) {
            const char e = expected[y][x];
            const ColourPOD want = e == '#' ? line : e == '+' ? fill : back;
            EXPECT_EQ(rgb[y * 6 + x], want) << x << "," << y;
        }
    }
}

TEST(QuorvaleBuffer, ColourModeWritesTheOverlayInItsRectangle) {
    auto doc = test::makeTestDocument(10, 10);
    QuorvaleBufferSettings s;
    s.shadows = true;
    s.shadowFactors[0] = 0.5;  // red
    s.shadowFactors[1] = 0.25; // green
    s.shadowFactors[2] = 2.0;  // blue: clipped at 255
    s.materialIds = {5};
    const IExtent<2> rect(3, 4, 6, 5);
    QuorvaleBuffer buffer(*doc, rect, s);
    Row row(4);
    row.set(0, 100, {200, 100, 40}, 1, Buffer::coveredFlag, 51);
    row.set(2, 4294967294u, {200, 100, 40}, 2, Buffer::coveredFlag | Buffer::shadowFlag(1));
    row.put(buffer, 1);
    buffer.finish();

    EXPECT_FLOAT_EQ(doc->cutoutAlpha->valueAt<Alpha>(3, 5), 0.2f);
    EXPECT_EQ(doc->cutoutZAt(3, 5), 101u);
    EXPECT_EQ(doc->cutoutRgbAt(3, 5), (ColourPOD{200, 100, 40}));
    EXPECT_EQ(doc->cutoutMatAt(3, 5), 5);
    // In shadow: blue 200 * 2 -> 255, green 100 / 4, red 40 / 2.
    EXPECT_EQ(doc->cutoutRgbAt(5, 5), (ColourPOD{255, 25, 20}));
    EXPECT_EQ(doc->cutoutZAt(5, 5), 4294967295u);
    EXPECT_EQ(doc->cutoutMatAt(5, 5), 0); // no such material in the table
    EXPECT_FLOAT_EQ(doc->cutoutAlpha->valueAt<Alpha>(5, 5), 1.0f);
    // Uncovered pixels of the rectangle and everything outside it are left alone.
    EXPECT_EQ(doc->cutoutZAt(4, 5), 0u);
    EXPECT_EQ(doc->cutoutZAt(3, 4), 0u);
    EXPECT_EQ(doc->cutoutZAt(2, 5), 0u);
    EXPECT_EQ(doc->zAt(3, 5), ZBitmap::noDepth);
}

class RecordingSinks : public CoverageSink, public EdgeSink {
public:
    struct Run {
        std::int32_t x;
        std::vector<Alpha> values;
        std::vector<std::uint32_t> codes;
    };
    void coverageRow(std::int32_t y, std::int32_t x, std::int32_t count, const Alpha* coverage,
                     const std::uint32_t* depths) override {
        coverage_[y] = {x, {coverage, coverage + count}, {depths, depths + count}};
    }
    void edgeRow(std::int32_t y, std::int32_t x, std::int32_t count, const Alpha* edge) override {
        order.push_back(y);
        edges[y] = {x, {edge, edge + count}, {}};
    }
    std::map<std::int32_t, Run> coverage_;
    std::map<std::int32_t, Run> edges;
    std::vector<std::int32_t> order;
};

TEST(QuorvaleBuffer, DepthOnlyModeHandsTheCoveredRunToTheMask) {
    auto doc = test::makeTestDocument(20, 20);
    QuorvaleBufferSettings s;
    s.depthOnly = true;
    RecordingSinks sinks;
    QuorvaleBuffer buffer(*doc, IExtent<2>(10, 2, 17, 3), s, &sinks);
    Row row(8);
    row.set(2, 40, {}, 0);
    row.set(3, 41, {}, 0, Buffer::coveredFlag, 127); // half covered or less: not full
    row.set(5, 43, {}, 0, Buffer::coveredFlag, 128);
    row.put(buffer, 0);
    Row empty(8);
    empty.put(buffer, 1);
    buffer.finish();

    ASSERT_EQ(sinks.coverage_.size(), 1u);
    const auto& run = sinks.coverage_.at(2);
    EXPECT_EQ(run.x, 12);
    EXPECT_EQ(run.values, (std::vector<Alpha>{1, 0, 0, 1}));
    EXPECT_EQ(run.codes[0], 40u);
    EXPECT_EQ(run.codes[3], 43u);
    // Nothing is written to the document.
    EXPECT_EQ(doc->cutoutZAt(12, 2), 0u);
}

TEST(QuorvaleBuffer, EdgeTablesAreADiscAndALine) {
    // Diameter 2r - 1: r = 3 gives d = 5, half widths int(sqrt(6.25 - i i)).
    EXPECT_EQ(QuorvaleBuffer::discHalfWidths(1), (std::vector<std::int32_t>{0}));
    EXPECT_EQ(QuorvaleBuffer::discHalfWidths(3), (std::vector<std::int32_t>{2, 2, 1}));
    EXPECT_EQ(QuorvaleBuffer::discHalfWidths(4), (std::vector<std::int32_t>{3, 3, 2, 1}));

    const auto flat = QuorvaleBuffer::lineOffsets(3, Angle());
    ASSERT_EQ(flat.size(), 5u);
    EXPECT_EQ(flat.front(), (IVector<2>{-2, 0}));
    EXPECT_EQ(flat.back(), (IVector<2>{2, 0}));
    const auto steep = QuorvaleBuffer::lineOffsets(2, Angle::degrees(90));
    ASSERT_EQ(steep.size(), 3u);
    EXPECT_EQ(steep.front(), (IVector<2>{0, 1})); // y grows downwards
    EXPECT_EQ(steep.back(), (IVector<2>{0, -1}));
    const auto diagonal = QuorvaleBuffer::lineOffsets(2, Angle::degrees(45));
    EXPECT_EQ(diagonal.back(), (IVector<2>{1, -1}));
}

TEST(QuorvaleBuffer, EdgePassMarksTheWidenedOutlineRowByRow) {
    // A 5 x 5 square at (3, 3) in an 11 x 11 rectangle, with radii 1 to 3.
    const std::int32_t n = 11;
    auto inSquare = [](std::int32_t x, std::int32_t y) {
        return x >= 3 && x <= 7 && y >= 3 && y <= 7;
    };
    auto onOutline = [&](std::int32_t x, std::int32_t y) {
        return inSquare(x, y) && (x == 3 || x == 7 || y == 3 || y == 7);
    };
    for (std::int32_t r = 1; r <= 3; ++r) {
        SCOPED_TRACE(r);
        auto doc = test::makeTestDocument(n, n);
        QuorvaleBufferSettings s;
        s.depthOnly = true;
        s.edgeRadius = r;
        RecordingSinks sinks;
        QuorvaleBuffer buffer(*doc, IExtent<2>(0, 0, n - 1, n - 1), s, &sinks, &sinks);
        for (std::int32_t y = 0; y < n; ++y) {
            Row row(n);
            for (std::int32_t x = 0; x < n; ++x) {
                if (inSquare(x, y)) {
                    row.set(x, 1, {}, 0);
                }
            }
            row.put(buffer, y);
        }
        buffer.finish();

        std::vector<std::int32_t> rows(n);
        for (std::int32_t y = 0; y < n; ++y) {
            rows[y] = y;
        }
        EXPECT_EQ(sinks.order, rows);
        const std::vector<std::int32_t> half = QuorvaleBuffer::discHalfWidths(r);
        for (std::int32_t y = 0; y < n; ++y) {
            for (std::int32_t x = 0; x < n; ++x) {
                // Marked if some outline pixel's disc reaches it.
                bool reached = false;
                for (std::int32_t oy = 0; oy < n; ++oy) {
                    for (std::int32_t ox = 0; ox < n; ++ox) {
                        const std::int32_t dy = std::abs(y - oy);
                        reached = reached ||
                                  (onOutline(ox, oy) && dy < r && std::abs(x - ox) <= half[dy]);
                    }
                }
                EXPECT_EQ(sinks.edges.at(y).values[x], reached ? 1.0f : 0.0f) << x << "," << y;
            }
        }
    }
}

} // namespace
