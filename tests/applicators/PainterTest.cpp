// The painter through the document editor: strokes take one colour each from the
// reference at their origin, depth sorting puts near strokes over far ones whatever order
// they come in, the depth scale sizes strokes by the depth code at their origin, the
// cells' strict and reset rules, undo, and replays that give the same bytes.

#include "applicators/Painter.h"

#include "image/DocumentCommands.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"
#include "support/SyntheticScene.h"
#include "support/TestDocument.h"
#include "views/cameras/ViewParams.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

std::vector<ColourPOD> pixels(const ZmapDocument& document) {
    std::vector<ColourPOD> out;
    for (std::int32_t y = 0; y < document.height(); ++y) {
        for (std::int32_t x = 0; x < document.width(); ++x) {
            out.push_back(document.rgbAt(x, y));
        }
    }
    return out;
}

/// Sets every pixel's colour to `f(x, y)`; with `original` the original colour too.
template <class F> void paintPattern(ZmapDocument& document, F f, bool original) {
    TileHandle hold;
    for (std::int32_t y = 0; y < document.height(); ++y) {
        for (std::int32_t x = 0; x < document.width(); ++x) {
            *document.rgbWrite(x, y, hold) = f(x, y);
        }
    }
    hold.reset();
    if (original) {
        document.commitOriginals();
    }
}

/// Sets the depth code of every pixel to `f(x, y)`.
template <class F> void depthPattern(ZmapDocument& document, F f) {
    TileHandle hold;
    for (std::int32_t y = 0; y < document.height(); ++y) {
        for (std::int32_t x = 0; x < document.width(); ++x) {
            *document.zWrite(x, y, hold) = f(x, y);
        }
    }
}

/// Hard round single-dab strokes unless a test says otherwise.
PainterSettings hardDabs(std::int32_t cell, std::int32_t radius, std::int32_t length) {
    PainterSettings s;
    s.cellSize = s.cellSizeY = cell;
    s.list = {PainterSizeEntry{radius}};
    s.length = length;
    s.softness = 0;
    return s;
}

class PainterStrokes : public testing::Test {
protected:
    void SetUp() override { ToolSelection::instance().reset(); }
    void TearDown() override { ToolSelection::instance().reset(); }

    static TQL::Handle<Painter> paint(ZmapDocument& document, const PainterSettings& settings,
                                      const std::vector<StrokePoint>& points,
                                      std::uint32_t seed = 7) {
        Status s = status::ok;
        std::wstring message;
        TQL::Handle<Painter> painter = Painter::create(settings, seed, s, message);
        EXPECT_EQ(s, status::ok);
        ToolSelection::instance().selectApplicator(painter);
        EXPECT_EQ(document.editor.runStroke(points, nullptr), status::ok);
        return painter;
    }
};

TEST_F(PainterStrokes, EachStrokeHasTheReferenceColourOfItsOrigin) {
    auto document = test::makeTestDocument(128, 64);
    // The reference (original colour) changes from pixel to pixel; the image is grey.
    paintPattern(
        *document,
        [](std::int32_t x, std::int32_t y) {
            return ColourPOD{40, static_cast<std::uint8_t>(3 * y),
                             static_cast<std::uint8_t>(2 * x)};
        },
        true);
    const ColourPOD grey{128, 128, 128};
    paintPattern(
        *document, [&](std::int32_t, std::int32_t) { return grey; }, false);

    // Strokes 10 pixels long to the right, radius 3, in cells of 16: none overlap.
    auto painter =
        paint(*document, hardDabs(16, 3, 8), {{4, 8, 1, 0}, {60, 8, 1, 0}, {100, 40, 1, 0}});
    const auto& strokes = painter->strokes();
    ASSERT_GE(strokes.size(), 6u);
    std::vector<std::uint8_t> covered(128 * 64, 0);
    for (const PainterStroke& stroke : strokes) {
        EXPECT_EQ(stroke.colour, document->originalRgbAt(stroke.origin.x, stroke.origin.y));
        // The origin is its cell's centre; every pixel of the stroke's spine and near it has
        // the stroke's one colour, though the reference differs there.
        EXPECT_EQ(stroke.origin.x / 16, stroke.cell.x);
        EXPECT_EQ(stroke.origin.y / 16, stroke.cell.y);
        for (std::int32_t dx = -2; dx <= 10; ++dx) {
            for (std::int32_t dy = -1; dy <= 1; ++dy) {
                const std::int32_t x = stroke.origin.x + dx;
                const std::int32_t y = stroke.origin.y + dy;
                EXPECT_EQ(document->rgbAt(x, y), stroke.colour) << x << "," << y;
            }
        }
        for (std::int32_t y = stroke.origin.y - 4; y <= stroke.origin.y + 4; ++y) {
            for (std::int32_t x = stroke.origin.x - 4; x <= stroke.origin.x + 13; ++x) {
                if (x >= 0 && y >= 0 && x < 128 && y < 64) {
                    covered[static_cast<std::size_t>(y) * 128 + x] = 1;
                }
            }
        }
    }
    // Outside the strokes nothing changed.
    for (std::int32_t y = 0; y < 64; ++y) {
        for (std::int32_t x = 0; x < 128; ++x) {
            if (!covered[static_cast<std::size_t>(y) * 128 + x]) {
                ASSERT_EQ(document->rgbAt(x, y), grey) << x << "," << y;
            }
        }
    }

    // With the image before the stroke as the reference, every stroke is grey.
    PainterSettings current = hardDabs(16, 3, 8);
    current.reference = Vector<3>(1, 0, 0);
    auto again = paint(*document, current, {{4, 56, 1, 0}, {120, 56, 1, 0}});
    ASSERT_FALSE(again->strokes().empty());
    for (const PainterStroke& stroke : again->strokes()) {
        EXPECT_EQ(stroke.colour, grey);
    }
}

TEST_F(PainterStrokes, DepthSortLaysNearStrokesOverFarOnes) {
    // Cells of 16: the left half far (code 3e9), the right half near (1e9). Strokes run 40
    // pixels to the right, so those of far cells reach into near cells.
    auto make = [] {
        auto document = test::makeTestDocument(128, 32);
        paintPattern(
            *document,
            [](std::int32_t x, std::int32_t) {
                return ColourPOD{static_cast<std::uint8_t>(30 * (x / 16)), 90, 200};
            },
            true);
        depthPattern(*document, [](std::int32_t x, std::int32_t) {
            return x < 64 ? 3000000000u : 1000000000u;
        });
        return document;
    };
    // (80, 8) is reached by the strokes of cells 2 and 3 (far) and 4 (near).
    const ColourPOD nearColour = make()->originalRgbAt(72, 8);
    const ColourPOD farColour = make()->originalRgbAt(40, 8);
    ASSERT_NE(nearColour, farColour);

    PainterSettings s = hardDabs(16, 3, 40);
    // The pointer goes right to left, meeting the near cells first; one move, and one move a
    // cell.
    const std::vector<StrokePoint> once{{124, 8, 1, 0}, {2, 8, 1, 0}};
    std::vector<StrokePoint> stepwise;
    for (std::int32_t x = 124; x >= 0; x -= 16) {
        stepwise.push_back({x, 8, 1, 0});
    }
    for (const auto& points : {once, stepwise}) {
        s.depthSort = true;
        auto sorted = make();
        auto painter = paint(*sorted, s, points);
        EXPECT_EQ(sorted->rgbAt(80, 8), nearColour);
        // Between strokes of one depth the later one covers: cell 4's over cell 5's.
        EXPECT_EQ(sorted->rgbAt(92, 8), make()->originalRgbAt(72, 8));
        if (points.size() == 2) {
            // The press lays the first cell's stroke; the move's seven come far first.
            const auto& laid = painter->strokes();
            ASSERT_EQ(laid.size(), 8u);
            for (std::size_t i = 1; i < laid.size(); ++i) {
                EXPECT_EQ(laid[i].depth, i <= 4 ? 3000000000u : 1000000000u) << i;
            }
        }
        // Unsorted, the last laid wins: the far stroke of cell 2.
        s.depthSort = false;
        auto unsorted = make();
        paint(*unsorted, s, points);
        EXPECT_EQ(unsorted->rgbAt(80, 8), farColour);
    }
}

TEST_F(PainterStrokes, DepthScaleSizesStrokesByTheirDepth) {
    // A floor seen from 1.6 above it, receding towards the horizon.
    auto document = test::makeTestDocument(128, 96);
    document->setViewParams(test::roomRecord(ViewParams::perspectiveCode, {0, 0, 1.6}, 90, -20,
                                             {-1, 0.75, 1}, {1, -0.75, 1}, 1, 12));
    test::SyntheticScene floor;
    floor.add(Plane(), 1);
    floor.render(*document);
    paintPattern(
        *document,
        [](std::int32_t, std::int32_t) {
            return ColourPOD{255, 255, 255};
        },
        true);
    paintPattern(
        *document,
        [](std::int32_t, std::int32_t) {
            return ColourPOD{0, 0, 0};
        },
        false);

    PainterSettings s = hardDabs(24, 9, 0);
    s.depthScale = 0.1;
    // Down the middle column of cells, from the far floor to the near.
    auto painter = paint(*document, s, {{60, 2, 1, 0}, {60, 95, 1, 0}});
    double nearest = 0;
    double farthest = 10;
    int measured = 0;
    for (const PainterStroke& stroke : painter->strokes()) {
        if (stroke.depth >= 0xFFFFFFFEu) {
            continue;
        }
        const double factor = painter->depthFactor(stroke.depth);
        EXPECT_NEAR(factor, 1 - 0.9 * stroke.depth / 4294967295.0, 1e-9);
        EXPECT_NEAR(stroke.size, 9 * factor, 1e-9);
        // The painted width across the origin is the dab's diameter.
        std::int32_t left = stroke.origin.x;
        std::int32_t right = stroke.origin.x;
        const ColourPOD white{255, 255, 255};
        while (left > 0 && document->rgbAt(left - 1, stroke.origin.y) == white) {
            --left;
        }
        while (right < 127 && document->rgbAt(right + 1, stroke.origin.y) == white) {
            ++right;
        }
        EXPECT_NEAR(right - left + 1, 2 * stroke.size, 2.0) << stroke.origin.y;
        nearest = std::max(nearest, factor);
        farthest = std::min(farthest, factor);
        ++measured;
    }
    EXPECT_GE(measured, 3);
    EXPECT_LT(farthest, 0.6 * nearest);
}

TEST_F(PainterStrokes, CellsObeyStrictAndReset) {
    auto document = test::makeTestDocument(64, 16);
    paintPattern(
        *document,
        [](std::int32_t, std::int32_t) {
            return ColourPOD{9, 9, 9};
        },
        true);
    // Across four cells, back and forth.
    const std::vector<StrokePoint> path{{2, 8, 1, 0}, {62, 8, 1, 0}, {2, 8, 1, 0}};
    PainterSettings s = hardDabs(16, 2, 0);
    s.strict = true;
    EXPECT_EQ(paint(*document, s, path)->strokes().size(), 4u);
    s.strict = false;
    // Coming back paints the cells again.
    EXPECT_EQ(paint(*document, s, path)->strokes().size(), 7u);

    // Without a reset, cells painted by an earlier stroke stay full.
    s.strict = true;
    s.reset = false;
    Status st = status::ok;
    std::wstring message;
    auto painter = Painter::create(s, 1, st, message);
    ToolSelection::instance().selectApplicator(painter);
    ASSERT_EQ(document->editor.runStroke({{2, 8, 1, 0}, {30, 8, 1, 0}}, nullptr), status::ok);
    EXPECT_EQ(painter->strokes().size(), 2u);
    ASSERT_EQ(document->editor.runStroke({{2, 8, 1, 0}, {62, 8, 1, 0}}, nullptr), status::ok);
    EXPECT_EQ(painter->strokes().size(), 2u);
}

TEST_F(PainterStrokes, UndoRestoresEveryPixelAndReplaysAreRepeatable) {
    auto make = [] {
        test::RoomScene room = test::RoomScene::make(test::RoomScene::View::perspective, 128, 96);
        paintPattern(
            *room.document,
            [](std::int32_t x, std::int32_t y) {
                return ColourPOD{static_cast<std::uint8_t>(x + y), static_cast<std::uint8_t>(2 * y),
                                 static_cast<std::uint8_t>(2 * x)};
            },
            true);
        return std::move(room.document);
    };
    PainterSettings s;
    s.cellSize = 12;
    s.cellSizeY = 10;
    s.length = 18;
    s.twist = 40;
    s.wobble = 15;
    s.splatRandom = true;
    s.colourSpread = 30;
    s.start = 100;
    s.end = 30;
    s.depthScale = 0.5;
    s.dynamicOpacity = 40;
    const std::vector<StrokePoint> path{{5, 90, 1, 0}, {60, 50, 1, 0}, {120, 10, 1, 0}};

    auto document = make();
    const auto before = pixels(*document);
    paint(*document, s, path, 99);
    const auto painted = pixels(*document);
    ASSERT_NE(painted, before);
    Status st = status::ok;
    document->editor.execute(st, commandUndo, CommandArgument());
    ASSERT_EQ(st, status::ok);
    EXPECT_EQ(pixels(*document), before);

    auto replay = make();
    paint(*replay, s, path, 99);
    EXPECT_EQ(pixels(*replay), painted);
    auto otherSeed = make();
    paint(*otherSeed, s, path, 100);
    EXPECT_NE(pixels(*otherSeed), painted);
}

} // namespace
