// Pseudo-cursors driven by synthetic mouse events: the geometry they hand over (pixels,
// fractions, world points), what they draw through the painter at a zoom and scroll, and
// the capture that a view runs for them.

#include "views/PseudoCursor.h"
#include "views/PolyPC.h"
#include "views/ZmapView.h"

#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using Kind = CursorEvent::Kind;

/// Keeps every line and handle drawn, with the pen it was drawn with.
class RecordingPainter : public CursorPainter {
public:
    struct Segment {
        Point<2> a;
        Point<2> b;
        Pen pen;
    };
    void setPen(Pen pen) override { pen_ = pen; }
    void line(const Point<2>& a, const Point<2>& b) override { lines.push_back({a, b, pen_}); }
    void handle(const Point<2>& at) override { handles.push_back(at); }

    std::vector<Segment> lines;
    std::vector<Point<2>> handles;

private:
    Pen pen_ = Pen::solid;
};

/// A 100 x 80 image at `numerator`:`denominator` in a 400 x 300 window.
ViewMapping mappingAt(int numerator, int denominator) {
    ViewMapping m;
    m.setImageSize(100, 80);
    m.setWindowSize(400, 300);
    m.setZoom(numerator, denominator);
    return m;
}

/// Sends events at image pixels (the window pixel over each is found through the mapping).
class Mouse {
public:
    Mouse(PseudoCursor& cursor, const CursorContext& context)
        : cursor_(cursor), context_(context) {}

    unsigned at(Kind kind, IPoint<2> pixel, int button = CursorEvent::leftButton) {
        const IExtent<2> view = context_.mapping().imageToView(pixel);
        CursorEvent e = CursorEvent::at(kind, view.lo(), context_.mapping(), button);
        EXPECT_EQ(e.image, pixel);
        return cursor_.handle(e, context_);
    }
    unsigned press(IPoint<2> p, int button = CursorEvent::leftButton) {
        return at(Kind::press, p, button);
    }
    unsigned dragTo(IPoint<2> p) { return at(Kind::move, p, CursorEvent::leftButton); }
    unsigned hover(IPoint<2> p) { return at(Kind::move, p, CursorEvent::noButton); }
    unsigned release(IPoint<2> p) { return at(Kind::release, p); }
    unsigned click(IPoint<2> p) { return press(p) | release(p); }

private:
    PseudoCursor& cursor_;
    const CursorContext& context_;
};

bool near(const Point<2>& a, const Point<2>& b, double tolerance = 1e-9) {
    return std::abs(a.x() - b.x()) <= tolerance && std::abs(a.y() - b.y()) <= tolerance;
}

} // namespace

TEST(DragRectPC, HandsOverTheDraggedRectangleInImagePixelsAtAnyZoom) {
    for (const auto& zoom : {std::pair{1, 1}, std::pair{3, 1}, std::pair{4, 1}}) {
        const ViewMapping m = mappingAt(zoom.first, zoom.second);
        const CursorContext context(m);
        auto rect = TQL::makeHandle<DragRectPC>();
        Mouse mouse(*rect, context);
        EXPECT_EQ(mouse.press({40, 30}), cursorreply::redraw);
        EXPECT_EQ(mouse.dragTo({10, 50}), cursorreply::redraw);
        EXPECT_TRUE(rect->dragging());
        EXPECT_FALSE(rect->finished());
        EXPECT_EQ(mouse.release({12, 55}), cursorreply::done | cursorreply::redraw);
        EXPECT_TRUE(rect->finished());
        EXPECT_EQ(rect->rect(), IExtent<2>(12, 30, 40, 55));
        // A finished cursor takes no more mouse.
        EXPECT_EQ(mouse.press({1, 1}), cursorreply::none);
        EXPECT_EQ(rect->rect(), IExtent<2>(12, 30, 40, 55));
    }
}

TEST(DragRectPC, ClipsToTheImageGrowsBothWaysAndIgnoresOtherButtons) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);

    auto clipped = TQL::makeHandle<DragRectPC>();
    Mouse a(*clipped, context);
    a.press({90, 70});
    // Beyond the image's corner (the margin of the window).
    a.release({130, 100});
    EXPECT_EQ(clipped->rect(), IExtent<2>(90, 70, 99, 79));

    auto twoWay = TQL::makeHandle<DragRectPC>(true);
    Mouse b(*twoWay, context);
    b.press({50, 40});
    b.release({60, 45});
    EXPECT_EQ(twoWay->rect(), IExtent<2>(40, 35, 60, 45));

    auto right = TQL::makeHandle<DragRectPC>();
    Mouse c(*right, context);
    EXPECT_EQ(c.press({5, 5}, CursorEvent::rightButton), cursorreply::none);
    EXPECT_TRUE(right->rect().degenerate());
}

TEST(DragRectPC, DrawsAlongTheOuterWindowPixelsOfItsRectangle) {
    // 2:1 with the image centred: 200 x 160 in 400 x 300, margin (100, 70).
    const ViewMapping m = mappingAt(2, 1);
    ASSERT_EQ(m.margin(), IVector<2>(100, 70));
    const CursorContext context(m);
    auto rect = TQL::makeHandle<DragRectPC>();
    Mouse mouse(*rect, context);
    mouse.press({10, 20});
    mouse.dragTo({14, 25});

    RecordingPainter dragging;
    rect->draw(dragging, context);
    ASSERT_EQ(dragging.lines.size(), 4u);
    EXPECT_EQ(dragging.lines[0].pen, CursorPainter::Pen::dashed);
    // Pixel 10 covers window x 120..121, pixel 14 window x 128..129; lines run through the
    // centres of the outermost window pixels.
    EXPECT_TRUE(near(dragging.lines[0].a, Point<2>(120.5, 110.5)));
    EXPECT_TRUE(near(dragging.lines[1].b, Point<2>(129.5, 121.5)));

    mouse.release({14, 25});
    RecordingPainter done;
    rect->draw(done, context);
    EXPECT_EQ(done.lines[0].pen, CursorPainter::Pen::solid);
}

TEST(DragLinePC, AClickIsNoLineADragIs) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto line = TQL::makeHandle<DragLinePC>();
    Mouse mouse(*line, context);
    mouse.click({30, 30});
    EXPECT_FALSE(line->finished());
    EXPECT_FALSE(line->hasLine());

    mouse.press({30, 30});
    mouse.dragTo({50, 40});
    EXPECT_EQ(mouse.release({60, 10}), cursorreply::done | cursorreply::redraw);
    EXPECT_EQ(line->start(), IPoint<2>(30, 30));
    EXPECT_EQ(line->end(), IPoint<2>(60, 10));

    RecordingPainter painter;
    line->draw(painter, context);
    ASSERT_EQ(painter.lines.size(), 1u);
    EXPECT_TRUE(near(painter.lines[0].a, context.pixelToView({30, 30})));
    EXPECT_TRUE(near(painter.lines[0].b, context.pixelToView({60, 10})));
}

TEST(DragOffsetLinePC, TheOffsetIsTheSignedDistanceOfTheFinalClickFromTheLine) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto line = TQL::makeHandle<DragOffsetLinePC>();
    Mouse mouse(*line, context);
    mouse.press({10, 50});
    EXPECT_EQ(mouse.release({90, 50}), cursorreply::redraw);
    EXPECT_TRUE(line->settingOffset());
    EXPECT_FALSE(line->finished());
    // The offset follows the mouse: above the line (smaller y) is the left of a line that
    // runs to the right.
    mouse.hover({40, 38});
    EXPECT_DOUBLE_EQ(line->offset(), 12);
    EXPECT_EQ(mouse.press({40, 57}), cursorreply::done | cursorreply::redraw);
    EXPECT_DOUBLE_EQ(line->offset(), -7);

    RecordingPainter painter;
    line->draw(painter, context);
    ASSERT_EQ(painter.lines.size(), 2u);
    // Seven pixels below the line: through the centres of row 57.
    EXPECT_NEAR(painter.lines[1].a.y(), context.pixelToView({10, 57}).y(), 1e-9);
}

TEST(ExtentPC, CornersAreGrabbedTheWholeMovesWithinTheImageEnterAccepts) {
    const ViewMapping m = mappingAt(2, 1);
    const CursorContext context(m);
    auto extent = TQL::makeHandle<ExtentPC>(IExtent<2>(20, 20, 40, 30));
    Mouse mouse(*extent, context);

    // The lower right corner, then pulled.
    mouse.press({40, 30});
    mouse.release({45, 35});
    EXPECT_EQ(extent->extent(), IExtent<2>(20, 20, 45, 35));

    // From inside: the whole moves, and stops at the image's edge.
    mouse.press({30, 25});
    mouse.release({30 - 50, 25});
    EXPECT_EQ(extent->extent(), IExtent<2>(0, 20, 25, 35));

    // Outside: a new extent.
    mouse.press({70, 60});
    mouse.release({60, 70});
    EXPECT_EQ(extent->extent(), IExtent<2>(60, 60, 70, 70));
    EXPECT_FALSE(extent->finished());
    EXPECT_EQ(extent->key(CursorKey::enter), cursorreply::done | cursorreply::redraw);
}

TEST(PolyPC, ClicksAddPointsBackspaceRemovesAClickOnTheFirstCloses) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto poly = TQL::makeHandle<PolyPC>();
    Mouse mouse(*poly, context);
    mouse.click({10, 10});
    mouse.click({50, 10});
    // Too few points to close on the first.
    mouse.click({10, 10});
    EXPECT_EQ(poly->points().size(), 3u);
    poly->key(CursorKey::backspace);
    mouse.click({50, 40});
    mouse.hover({20, 40});

    RecordingPainter preview;
    poly->draw(preview, context);
    // Two edges, then the dashed edge to the mouse and back to the first point.
    ASSERT_EQ(preview.lines.size(), 4u);
    EXPECT_EQ(preview.lines[2].pen, CursorPainter::Pen::dashed);
    EXPECT_TRUE(near(preview.lines[3].a, context.pixelToView({20, 40})));

    // A press within a few window pixels of the first point closes it.
    EXPECT_EQ(mouse.press({12, 11}), cursorreply::done | cursorreply::redraw);
    EXPECT_TRUE(poly->finished());
    const std::vector<IPoint<2>> expected{{10, 10}, {50, 10}, {50, 40}};
    EXPECT_EQ(poly->points(), expected);

    RecordingPainter closed;
    poly->draw(closed, context);
    EXPECT_EQ(closed.lines.size(), 3u);
    EXPECT_EQ(closed.handles.size(), 3u);
}

TEST(PolyPC, OpenPolygonsEndOnADoubleClickOrRightClickWithEnoughPoints) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto open = TQL::makeHandle<PolyPC>(false);
    Mouse mouse(*open, context);
    mouse.click({10, 10});
    EXPECT_EQ(mouse.press({5, 5}, CursorEvent::rightButton), cursorreply::none);
    mouse.click({30, 10});
    // The double click's first press added the point; the second adds no duplicate.
    EXPECT_EQ(mouse.at(Kind::doubleClick, {30, 10}), cursorreply::done | cursorreply::redraw);
    EXPECT_EQ(open->points().size(), 2u);

    auto right = TQL::makeHandle<PolyPC>(true);
    Mouse r(*right, context);
    r.click({10, 10});
    r.click({30, 10});
    EXPECT_EQ(r.press({0, 0}, CursorEvent::rightButton), cursorreply::none);
    r.click({30, 30});
    EXPECT_EQ(r.press({0, 0}, CursorEvent::rightButton), cursorreply::done | cursorreply::redraw);
}

TEST(PolyHookPC, TheClickAfterThePolygonPlacesTheHook) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto poly = TQL::makeHandle<PolyHookPC>();
    Mouse mouse(*poly, context);
    mouse.click({10, 10});
    mouse.click({40, 10});
    mouse.click({40, 40});
    EXPECT_EQ(poly->key(CursorKey::enter), cursorreply::redraw);
    EXPECT_FALSE(poly->finished());
    mouse.hover({20, 22});
    EXPECT_EQ(poly->hook(), IPoint<2>(20, 22));
    EXPECT_EQ(mouse.press({25, 20}), cursorreply::done | cursorreply::redraw);
    EXPECT_EQ(poly->hook(), IPoint<2>(25, 20));
    EXPECT_EQ(poly->points().size(), 3u);
}

TEST(PolyFracPC, PointsAreFractionsOfTheExtentClampedIntoIt) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto poly = TQL::makeHandle<PolyFracPC>(IExtent<2>(10, 20, 30, 60));
    Mouse mouse(*poly, context);
    mouse.click({10, 20});
    mouse.click({30, 40});
    mouse.click({80, 70}); // beyond: the extent's last pixel
    poly->key(CursorKey::enter);
    const std::vector<Point<2>> f = poly->fractions();
    ASSERT_EQ(f.size(), 3u);
    EXPECT_TRUE(near(f[0], Point<2>(0, 0)));
    EXPECT_TRUE(near(f[1], Point<2>(1, 0.5)));
    EXPECT_TRUE(near(f[2], Point<2>(1, 1)));
}

TEST(BezierPC, DraggingAPressPullsTheTangentAndTheCurveRunsThroughTheAnchors) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto curve = TQL::makeHandle<BezierPC>();
    Mouse mouse(*curve, context);
    mouse.press({10, 50});
    mouse.dragTo({20, 40});
    mouse.release({20, 40});
    mouse.click({60, 50});
    EXPECT_EQ(curve->key(CursorKey::enter), cursorreply::done | cursorreply::redraw);

    const std::vector<Point<2>> c = curve->controlPoints();
    ASSERT_EQ(c.size(), 4u);
    EXPECT_TRUE(near(c[0], Point<2>(10, 50)));
    EXPECT_TRUE(near(c[1], Point<2>(20, 40)));
    EXPECT_TRUE(near(c[2], Point<2>(60, 50)));
    EXPECT_TRUE(near(c[3], Point<2>(60, 50)));

    const std::vector<Point<2>> line = BezierPC::flatten(c, 8);
    ASSERT_EQ(line.size(), 9u);
    EXPECT_TRUE(near(line.front(), c[0]));
    EXPECT_TRUE(near(line.back(), c[3]));
    // Pulled up: the curve bulges above the chord.
    EXPECT_LT(line[4].y(), 50);

    RecordingPainter painter;
    curve->draw(painter, context);
    EXPECT_EQ(painter.lines.size(), 16u);
    EXPECT_EQ(painter.handles.size(), 2u);
}

TEST(BezierFracPC, ControlPointsAsFractionsOfTheExtent) {
    const ViewMapping m = mappingAt(1, 1);
    const CursorContext context(m);
    auto curve = TQL::makeHandle<BezierFracPC>(IExtent<2>(0, 0, 50, 50));
    Mouse mouse(*curve, context);
    mouse.press({0, 0});
    mouse.dragTo({90, 25}); // clamped to x 50
    mouse.release({90, 25});
    mouse.click({50, 50});
    ASSERT_EQ(curve->key(CursorKey::enter), cursorreply::done | cursorreply::redraw);
    const std::vector<Point<2>> f = curve->fractions();
    ASSERT_EQ(f.size(), 4u);
    EXPECT_TRUE(near(f[1], Point<2>(1, 0.5)));
    EXPECT_TRUE(near(f[3], Point<2>(1, 1)));
}

namespace {

class CaptureWindow : public ViewWindow {
public:
    void postInvalidate(const IExtent<2>&) override {}
    void invalidateWindow() override {}
    void postCaptureEnded(bool accepted) override { ends.push_back(accepted); }
    std::vector<bool> ends;
};

} // namespace

TEST(Capture, OneForTheProcessItsEndIsPostedToTheCapturingViewOnce) {
    auto doc = test::makeTestDocument(32, 32);
    DrawThread thread;
    CaptureWindow windowA;
    CaptureWindow windowB;
    {
        ZmapView a(*doc, thread, windowA);
        ZmapView b(*doc, thread, windowB);
        ASSERT_TRUE(ZmapViewBase::beginCapture(&a, 3));
        EXPECT_EQ(ZmapViewBase::captureView(), &a);
        EXPECT_EQ(ZmapViewBase::captureFlags(), 3u);
        EXPECT_FALSE(ZmapViewBase::beginCapture(&b));

        ZmapViewBase::endCapture(true);
        EXPECT_EQ(ZmapViewBase::captureView(), nullptr);
        EXPECT_EQ(windowA.ends, std::vector<bool>{true});
        // Nothing running: nothing posted.
        ZmapViewBase::endCapture(false);
        EXPECT_EQ(windowA.ends.size(), 1u);

        ASSERT_TRUE(ZmapViewBase::beginCapture(&b));
        ZmapViewBase::endCapture(false);
        EXPECT_EQ(windowB.ends, std::vector<bool>{false});

        // A view that goes takes its capture and its cursor with it.
        auto rect = TQL::makeHandle<DragRectPC>();
        {
            CaptureWindow windowC;
            ZmapView c(*doc, thread, windowC);
            ASSERT_TRUE(ZmapViewBase::beginCapture(&c));
            ZmapViewBase::SetPseudoCursor(rect.get(), &c);
        }
        EXPECT_EQ(ZmapViewBase::captureView(), nullptr);
        EXPECT_EQ(ZmapViewBase::pseudoCursor(), nullptr);
        EXPECT_TRUE(ZmapViewBase::beginCapture(&a));
        ZmapViewBase::endCapture(false);
    }
}
