// The brush through the document editor: dab counts along a path, single clicks, fading,
// the floor of a size spread, overlapping dabs within one stroke, gathered painting
// against dab-by-dab painting, locks and fog as the fill has them, undo, and a picture
// that cannot be read.

#include "applicators/BrushApplicator.h"
#include "applicators/Filler.h"
#include "applicators/PenMask2d.h"

#include "image/DocumentCommands.h"
#include "image/UndoBuffer.h"
#include "pipeline/Blender.h"
#include "pipeline/Fog.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Matte.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace {

using test::RoomScene;

/// A round mask that remembers the sizes the brush gave it.
class RecordingMask : public PenMask2d {
public:
    RecordingMask(double size, bool round)
        : PenMask2d(size, 1, Angle(), MaskProfile::make(0, 1.0), round, false) {}
    void reshape(double size, Angle angle) override {
        sizes.push_back(size);
        PenMask2d::reshape(size, angle);
    }
    std::vector<double> sizes;
};

std::vector<ColourPOD> pixels(const ZmapDocument& document) {
    std::vector<ColourPOD> out;
    for (std::int32_t y = 0; y < document.height(); ++y) {
        for (std::int32_t x = 0; x < document.width(); ++x) {
            out.push_back(document.rgbAt(x, y));
        }
    }
    return out;
}

/// Points along a straight line from a to b, one every `step` pixels (b included).
std::vector<StrokePoint> line(IPoint<2> a, IPoint<2> b, int step) {
    std::vector<StrokePoint> points;
    const int dx = b.x - a.x;
    const int dy = b.y - a.y;
    const int n = std::max(std::abs(dx), std::abs(dy)) / step;
    for (int k = 0; k <= n; ++k) {
        points.push_back({a.x + dx * k / std::max(n, 1), a.y + dy * k / std::max(n, 1), 1.0f, 0});
    }
    if (!(points.back().x == b.x && points.back().y == b.y)) {
        points.push_back({b.x, b.y, 1.0f, 0});
    }
    return points;
}

class Brush : public testing::Test {
protected:
    void SetUp() override {
        selection().reset();
        selection().recolour = TQL::makeHandle<LinearRecolour>(255, 0, 255, 1.0f);
    }
    void TearDown() override { selection().reset(); }
    static ToolSelection& selection() { return ToolSelection::instance(); }

    static BrushSettings hardRound(std::int32_t size, double spacing) {
        BrushSettings s;
        s.size = size;
        s.hardness = 100;
        s.spacing = spacing;
        return s;
    }

    /// Paints a stored stroke with a brush of the settings (or of the given mask).
    TQL::Handle<BrushApplicator> paint(ZmapDocument& document, const BrushSettings& settings,
                                       const std::vector<StrokePoint>& points,
                                       TQL::Handle<PenMask> mask = nullptr, bool dabByDab = false) {
        TQL::Handle<BrushApplicator> brush;
        if (mask) {
            brush = TQL::makeHandle<BrushApplicator>(settings, mask);
        } else {
            Status s = status::ok;
            std::wstring message;
            brush = BrushApplicator::create(settings, s, message);
            EXPECT_EQ(s, status::ok);
        }
        brush->forceDabByDab = dabByDab;
        selection().selectApplicator(brush);
        EXPECT_EQ(document.editor.runStroke(points, nullptr), status::ok);
        return brush;
    }
};

TEST_F(Brush, SpacedStrokePlacesTheDabsThePathLengthPredicts) {
    auto document = test::makeTestDocument(256, 64);
    // Radius 8, spacing 0.5: a dab every 4 pixels over 100 pixels, and the first.
    auto brush = paint(*document, hardRound(8, 0.5), line({20, 32}, {120, 32}, 3));
    EXPECT_EQ(brush->dabCount(), 26);
    // The same path given as one move places the same dabs.
    auto once = paint(*document, hardRound(8, 0.5), {{20, 32, 1, 0}, {120, 32, 1, 0}});
    EXPECT_EQ(once->dabCount(), 26);
    // A diagonal of 80 by 60 (length 100) with spacing 1.25 radii of 8: 10 steps.
    auto diagonal = paint(*document, hardRound(8, 1.25), {{10, 2, 1, 0}, {90, 62, 1, 0}});
    EXPECT_EQ(diagonal->dabCount(), 11);
    // Without spacing a dab at every pixel of the longer axis.
    BrushSettings unspaced = hardRound(3, 1.0);
    unspaced.spaced = false;
    auto every = paint(*document, unspaced, {{10, 10, 1, 0}, {50, 20, 1, 0}});
    EXPECT_EQ(every->dabCount(), 41);
}

TEST_F(Brush, SingleClickPlacesExactlyOneDab) {
    auto document = test::makeTestDocument(64, 64);
    auto brush = paint(*document, hardRound(5, 0.25), {{30, 30, 1, 0}});
    EXPECT_EQ(brush->dabCount(), 1);
    int painted = 0;
    for (std::int32_t y = 0; y < 64; ++y) {
        for (std::int32_t x = 0; x < 64; ++x) {
            const bool inside = (x - 30) * (x - 30) + (y - 30) * (y - 30) < 25;
            const bool changed = document->rgbAt(x, y) == ColourPOD{255, 0, 255};
            EXPECT_EQ(changed, inside) << x << "," << y;
            painted += changed;
        }
    }
    EXPECT_GT(painted, 60);
    // Clicks with pressure do the same.
    auto pressed = paint(*document, hardRound(5, 0.25), {{10, 10, 0.3f, 0}});
    EXPECT_EQ(pressed->dabCount(), 1);
}

TEST_F(Brush, ReachedFadePaintsNothingMore) {
    auto document = test::makeTestDocument(200, 40);
    BrushSettings s = hardRound(4, 0.25);
    s.fade = 40;
    paint(*document, s, line({10, 20}, {190, 20}, 5));
    // Before the fade ends the stroke paints, with falling opacity; after it nothing.
    EXPECT_NE(document->rgbAt(10, 20), ColourPOD{});
    EXPECT_NE(document->rgbAt(30, 20), ColourPOD{});
    EXPECT_GT(document->rgbAt(12, 20).r, document->rgbAt(40, 20).r);
    for (std::int32_t x = 10 + 40 + 4; x < 200; ++x) {
        EXPECT_EQ(document->rgbAt(x, 20), ColourPOD{}) << x;
    }
    // A negative fade fades in: nothing at the start, full paint beyond.
    auto other = test::makeTestDocument(200, 40);
    s.fade = -40;
    paint(*other, s, line({10, 20}, {190, 20}, 5));
    EXPECT_LT(other->rgbAt(10, 20).r, other->rgbAt(100, 20).r);
    EXPECT_EQ(other->rgbAt(100, 20), (ColourPOD{255, 0, 255}));
}

TEST_F(Brush, SizeSpreadNeverGoesBelowItsFloor) {
    auto document = test::makeTestDocument(128, 64);
    BrushSettings s = hardRound(2, 0.5);
    s.sizeSpread = 100;
    auto round = TQL::makeHandle<RecordingMask>(2, true);
    paint(*document, s, line({5, 30}, {120, 30}, 4), round);
    ASSERT_GT(round->sizes.size(), 20u);
    double smallest = 1e9;
    for (double v : round->sizes) {
        smallest = std::min(smallest, v);
    }
    EXPECT_GE(smallest, 1.0);
    EXPECT_LT(smallest, 2.0); // the spread did shrink some dabs

    // Picture brushes scale, down to a hundredth.
    s.type = brushPicture;
    s.size = 10;
    s.sizeSpread = 250;
    auto picture = TQL::makeHandle<RecordingMask>(10, false);
    paint(*document, s, line({5, 30}, {120, 30}, 4), picture);
    double least = 1e9;
    for (double v : picture->sizes) {
        least = std::min(least, v);
    }
    EXPECT_GE(least, 10 * 0.01 - 1e-12);
    EXPECT_LT(least, 10.0);
}

TEST_F(Brush, StrokeOverItsOwnPathDoesNotDarkenWhereDabsOverlap) {
    auto document = test::makeTestDocument(160, 40);
    selection().blend = TQL::makeHandle<Blender>(0.5f, 0u);
    // Right, back left and right again over the same row, dabs overlapping heavily.
    std::vector<StrokePoint> points = line({20, 20}, {140, 20}, 6);
    for (const auto& p : line({140, 20}, {20, 20}, 6)) {
        points.push_back(p);
    }
    paint(*document, hardRound(6, 0.25), points);
    const ColourPOD once = document->rgbAt(80, 20);
    EXPECT_NE(once, ColourPOD{});
    for (std::int32_t x = 20; x <= 140; ++x) {
        EXPECT_EQ(document->rgbAt(x, 20), once) << x;
    }
}

TEST_F(Brush, GatheredDabsMatchDabsPaintedOneByOne) {
    BrushSettings s;
    s.size = 12;
    s.hardness = 30; // soft, so that dabs overlap in partial coverage
    s.spacing = 0.2;
    s.opacity = 60;
    const auto points = line({10, 30}, {230, 50}, 7);
    auto gathered = test::makeTestDocument(256, 80);
    auto single = test::makeTestDocument(256, 80);
    auto a = paint(*gathered, s, points, nullptr, false);
    auto b = paint(*single, s, points, nullptr, true);
    EXPECT_EQ(a->dabCount(), b->dabCount());
    const auto pa = pixels(*gathered);
    const auto pb = pixels(*single);
    int differing = 0;
    for (std::size_t i = 0; i < pa.size(); ++i) {
        EXPECT_LE(std::abs(pa[i].r - pb[i].r), 1) << i;
        EXPECT_LE(std::abs(pa[i].b - pb[i].b), 1) << i;
        differing += !(pa[i] == pb[i]);
    }
    EXPECT_LT(differing, static_cast<int>(pa.size()) / 100);
}

TEST_F(Brush, StrokePaintedMoveByMoveMatchesDabsPaintedOneByOne) {
    // Several dabs a move, gathered per move, on a path that runs up and to the left into
    // the image's corner (the gather laid out towards each move's end and clipped there).
    BrushSettings s;
    s.size = 10;
    s.hardness = 30;
    s.spacing = 0.15;
    s.opacity = 70;
    const auto points = line({240, 70}, {2, 3}, 9);
    auto byMove = test::makeTestDocument(256, 80);
    auto single = test::makeTestDocument(256, 80);
    Status created = status::ok;
    std::wstring message;
    auto brush = BrushApplicator::create(s, created, message);
    ASSERT_EQ(created, status::ok);
    selection().selectApplicator(brush);
    ASSERT_EQ(byMove->editor.beginStroke(points.front(), nullptr), status::ok);
    for (std::size_t i = 1; i < points.size(); ++i) {
        ASSERT_EQ(byMove->editor.continueStroke(points[i]), status::ok);
    }
    ASSERT_EQ(byMove->editor.endStroke(), status::ok);
    auto b = paint(*single, s, points, nullptr, true);
    EXPECT_EQ(brush->dabCount(), b->dabCount());
    const auto pa = pixels(*byMove);
    const auto pb = pixels(*single);
    int differing = 0;
    int painted = 0;
    for (std::size_t i = 0; i < pa.size(); ++i) {
        EXPECT_LE(std::abs(pa[i].r - pb[i].r), 1) << i;
        EXPECT_LE(std::abs(pa[i].b - pb[i].b), 1) << i;
        differing += !(pa[i] == pb[i]);
        painted += !(pb[i] == ColourPOD{});
    }
    EXPECT_LT(differing, static_cast<int>(pa.size()) / 100);
    EXPECT_GT(painted, 2000);
}

TEST_F(Brush, LocksAndFogApplyAsToFills) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 160, 120);
    ZmapDocument& document = *room.document;
    // A row that crosses the box and the floor.
    std::int32_t row = -1;
    std::int32_t floorX = -1;
    for (std::int32_t y = 60; y < 115 && row < 0; ++y) {
        bool box = false;
        for (std::int32_t x = 5; x < 155; ++x) {
            box = box || room.pieceAt(x, y) >= 3;
            if (box && room.pieceAt(x, y) == RoomScene::floorPiece && x > 100) {
                row = y;
                floorX = x;
                break;
            }
        }
    }
    ASSERT_GE(row, 0);
    selection().matting = TQL::makeHandle<Matte>(MatteSettings(), false, false, true, false);
    paint(document, hardRound(3, 0.25), {{floorX, row, 1, 0}, {5, row, 1, 0}});
    int floorPainted = 0;
    for (std::int32_t y = row - 3; y <= row + 3; ++y) {
        for (std::int32_t x = 0; x < 160; ++x) {
            if (document.rgbAt(x, y) == ColourPOD{255, 0, 255}) {
                EXPECT_EQ(document.matAt(x, y), RoomScene::floorMaterial) << x << "," << y;
                ++floorPainted;
            }
        }
    }
    EXPECT_GT(floorPainted, 40);

    // Fog: the brush's fully covered pixels get what a whole-image fill gives them.
    selection().matting = nullptr;
    FogSettings fog;
    fog.type = 0;
    fog.full = 0;
    fog.none = 30;
    selection().fog = TQL::makeHandle<Fog>(fog);
    RoomScene brushed = RoomScene::make(RoomScene::View::perspective, 160, 120);
    RoomScene filled = RoomScene::make(RoomScene::View::perspective, 160, 120);
    paint(*brushed.document, hardRound(10, 0.25), line({20, 90}, {140, 70}, 10));
    selection().selectApplicator(TQL::makeHandle<Filler>(false));
    ASSERT_EQ(filled.document->editor.runStroke({{0, 0, 1, 0}}, nullptr), status::ok);
    int compared = 0;
    int fogged = 0;
    for (std::int32_t x = 30; x <= 130; ++x) {
        const std::int32_t y = 90 - (x - 20) / 6;
        const ColourPOD b = brushed.document->rgbAt(x, y);
        EXPECT_EQ(b, filled.document->rgbAt(x, y)) << x << "," << y;
        fogged += !(b == ColourPOD{255, 0, 255});
        ++compared;
    }
    EXPECT_GT(fogged, compared / 4); // the fog did change the paint
}

TEST_F(Brush, UndoAfterAStrokeRestoresEveryPixel) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 128, 96);
    ZmapDocument& document = *room.document;
    const auto before = pixels(document);
    BrushSettings s;
    s.size = 9;
    s.hardness = 60;
    s.sizeSpread = 40;
    s.spreadPercent = 50;
    paint(document, s, line({5, 80}, {120, 20}, 4));
    ASSERT_NE(pixels(document), before);
    Status st = status::ok;
    document.editor.execute(st, commandUndo, CommandArgument());
    ASSERT_EQ(st, status::ok);
    EXPECT_EQ(pixels(document), before);
}

TEST_F(Brush, SurfaceBrushPaintsSmallerFartherAway) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 160, 120);
    BrushSettings s;
    s.type = brushSurface;
    s.modelSize = 0.15;
    s.hardness = 100;
    paint(*room.document, s, {{120, 110, 1, 0}});
    paint(*room.document, s, {{120, 80, 1, 0}});
    int nearRows = 0;
    int farRows = 0;
    for (std::int32_t y = 0; y < 120; ++y) {
        const bool any = room.document->rgbAt(120, y) == ColourPOD{255, 0, 255};
        (y > 95 ? nearRows : farRows) += any;
    }
    EXPECT_GT(farRows, 0);
    EXPECT_GT(nearRows, farRows);
}

TEST_F(Brush, ShrinkingFlatDabsGetSmallerAsTheStrokeRecedes) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 160, 120);
    ZmapDocument& document = *room.document;
    // Up the floor, from near the bottom of the picture towards the back wall.
    const IPoint<2> nearPoint{120, 115};
    IPoint<2> farPoint{120, 115};
    while (farPoint.y > 0 && room.pieceAt(farPoint.x, farPoint.y - 1) == RoomScene::floorPiece &&
           farPoint.y > 60) {
        --farPoint.y;
    }
    ASSERT_LT(farPoint.y, 80);
    auto sizesOf = [&](bool shrink) {
        BrushSettings s = hardRound(12, 0.5);
        s.shrink = shrink;
        auto mask = TQL::makeHandle<RecordingMask>(12, true);
        paint(document, s, line(nearPoint, farPoint, 5), mask);
        return mask->sizes;
    };
    const std::vector<double> kept = sizesOf(false);
    const std::vector<double> shrunk = sizesOf(true);
    ASSERT_GE(shrunk.size(), 4u);
    for (double size : kept) {
        EXPECT_EQ(size, 12);
    }
    // The first dab keeps its size; the rest shrink steadily, to what the camera gives at
    // the last dab's depth: the ratio of a pixel's size in the world at the two points.
    EXPECT_NEAR(shrunk.front(), 12, 1e-9);
    for (std::size_t i = 1; i < shrunk.size(); ++i) {
        EXPECT_LE(shrunk[i], shrunk[i - 1] + 1e-9);
    }
    auto pixelSize = [&](IPoint<2> p) {
        const std::uint32_t code = document.zAt(p.x, p.y);
        return (document.viewProj()->worldFromPixel(p.x + 1, p.y, code) -
                document.viewProj()->worldFromPixel(p.x, p.y, code))
            .length();
    };
    const double expected = 12 * pixelSize(nearPoint) / pixelSize(farPoint);
    EXPECT_LT(expected, 8);
    EXPECT_NEAR(shrunk.back(), std::max(1.0, expected), 0.05 * expected + 0.5);
}

TEST_F(Brush, UnreadablePictureIsReportedByName) {
    BrushSettings s;
    s.type = brushPicture;
    s.filename = L"/nonexistent/leaf.png";
    Status st = status::ok;
    std::wstring message;
    auto brush = BrushApplicator::create(s, st, message);
    EXPECT_FALSE(brush);
    EXPECT_LT(st, 0);
    EXPECT_NE(message.find(L"leaf.png"), std::wstring::npos);
    s.filename.clear();
    brush = BrushApplicator::create(s, st, message);
    EXPECT_FALSE(brush);
    EXPECT_LT(st, 0);
    EXPECT_FALSE(message.empty());
}

} // namespace
