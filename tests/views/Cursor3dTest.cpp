// Cursors that pick world points, and the constraint, on a synthetic room seen in
// perspective: a floor at z = 0 and a wall at y = 14, so every expected point is known.

#include "views/Constraint.h"
#include "views/Poly3dPC.h"

#include "support/SyntheticScene.h"
#include "support/TestDocument.h"
#include "views/cameras/CameraTestViews.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

constexpr MaterialId floorMaterial = 1;
constexpr MaterialId wallMaterial = 2;
constexpr std::int32_t width = 160;
constexpr std::int32_t height = 120;

/// Records lines only.
class LinePainter : public CursorPainter {
public:
    void setPen(Pen) override {}
    void line(const Point<2>& a, const Point<2>& b) override { lines.push_back({a, b}); }
    void handle(const Point<2>&) override {}
    std::vector<std::pair<Point<2>, Point<2>>> lines;
};

class Room : public ::testing::Test {
protected:
    void SetUp() override {
        doc = test::makeTestDocument(width, height);
        doc->setViewParams(cameratest::makeRecord({.eye = {0.3, 0, 1.6},
                                                   .azimuth = 85,
                                                   .altitude = -12,
                                                   .windowLo = {-1, 0.75, 1},
                                                   .windowHi = {1, -0.75, 1}}));
        test::SyntheticScene scene;
        scene.add(Plane(), floorMaterial);
        scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 14, 0)), wallMaterial,
                  Extent<3>(Point<3>(-100, -100, 0), Point<3>(100, 100, 3)));
        scene.render(*doc);
        mapping.setImageSize(width, height);
        mapping.setWindowSize(width, height);
        floorA = IPoint<2>(80, height - 5);
        floorB = IPoint<2>(floorA.x + 30, floorA.y - 10);
        floorC = IPoint<2>(floorA.x + 10, floorA.y - 25);
        // The lowest wall pixel of column 80: its ray, carried on, meets the floor.
        wall = lowestInColumn(wallMaterial);
        ASSERT_GE(wall.y, 0);
        ASSERT_EQ(doc->matAt(floorA.x, floorA.y), floorMaterial);
        ASSERT_EQ(doc->matAt(floorB.x, floorB.y), floorMaterial);
        ASSERT_EQ(doc->matAt(floorC.x, floorC.y), floorMaterial);
    }

    /// The lowest pixel of material `m` in column 80; (-1, -1) for none.
    IPoint<2> lowestInColumn(MaterialId m) const {
        IPoint<2> found(-1, -1);
        for (std::int32_t row = 0; row < height; ++row) {
            if (doc->matAt(80, row) == m) {
                found = IPoint<2>(80, row);
            }
        }
        return found;
    }

    CursorEvent event(CursorEvent::Kind kind, IPoint<2> pixel,
                      int button = CursorEvent::leftButton) const {
        return CursorEvent::at(kind, mapping.imageToView(pixel).lo(), mapping, button);
    }
    unsigned click(PseudoCursor& c, IPoint<2> pixel) {
        const CursorContext context(mapping, doc.get());
        return c.handle(event(CursorEvent::Kind::press, pixel), context) |
               c.handle(event(CursorEvent::Kind::release, pixel), context);
    }

    std::unique_ptr<test::TestDocument> doc;
    ViewMapping mapping;
    IPoint<2> floorA;
    IPoint<2> floorB;
    IPoint<2> floorC;
    IPoint<2> wall;
};

void expectNear(const Point<3>& a, const Point<3>& b, double tolerance) {
    EXPECT_NEAR(a.x(), b.x(), tolerance);
    EXPECT_NEAR(a.y(), b.y(), tolerance);
    EXPECT_NEAR(a.z(), b.z(), tolerance);
}

} // namespace

TEST_F(Room, Poly3dKeepsTheWorldPointsOfThePixelsClickedAndSkipsPixelsWithoutDepth) {
    auto poly = TQL::makeHandle<Poly3dPC>();
    click(*poly, floorA);
    click(*poly, IPoint<2>(80, 0)); // sky: no depth, no point
    click(*poly, floorB);
    click(*poly, wall);
    EXPECT_EQ(poly->key(CursorKey::enter), cursorreply::done | cursorreply::redraw);
    ASSERT_EQ(poly->points().size(), 3u);
    expectNear(poly->points()[0], doc->worldAt(floorA.x, floorA.y), 1e-12);
    EXPECT_NEAR(poly->points()[1].z(), 0, 0.01);
    EXPECT_NEAR(poly->points()[2].y(), 14, 0.01);

    // Drawn from the world: the edges end at the pixels clicked, wherever the view
    // scrolls; the points themselves don't change.
    for (const IPoint<2> scroll : {IPoint<2>(0, 0), IPoint<2>(40, 30)}) {
        ViewMapping zoomed = mapping;
        zoomed.setZoom(2, 1);
        zoomed.setScroll(scroll.x, scroll.y);
        const CursorContext context(zoomed, doc.get());
        LinePainter painter;
        poly->draw(painter, context);
        ASSERT_EQ(painter.lines.size(), 3u);
        const Point<2> expected = context.pixelToView(floorA);
        EXPECT_NEAR(painter.lines[0].first.x(), expected.x(), 0.05);
        EXPECT_NEAR(painter.lines[0].first.y(), expected.y(), 0.05);
    }
    expectNear(poly->points()[0], doc->worldAt(floorA.x, floorA.y), 1e-12);
}

TEST_F(Room, OutlineAndPlaneHookPointsLieOnThePlaneOfTheFirstClick) {
    auto outline = TQL::makeHandle<PolyOutline3dPC>();
    click(*outline, floorA);
    click(*outline, floorB);
    // A wall pixel: its ray is carried on to the floor plane, behind the wall.
    click(*outline, wall);
    outline->key(CursorKey::enter);
    ASSERT_TRUE(outline->finished());
    ASSERT_EQ(outline->points().size(), 3u);
    for (const Point<3>& p : outline->points()) {
        EXPECT_NEAR(p.z(), 0, 0.02);
    }
    EXPECT_GT(outline->points()[2].y(), 14);

    auto hooked = TQL::makeHandle<PolyPlaneHook3dPC>();
    click(*hooked, floorA);
    click(*hooked, floorB);
    click(*hooked, floorC);
    EXPECT_EQ(hooked->key(CursorKey::enter), cursorreply::redraw);
    EXPECT_FALSE(hooked->finished());
    // A sky pixel: its ray never meets the floor, so it places no hook.
    EXPECT_EQ(click(*hooked, IPoint<2>(80, 0)), cursorreply::none);
    EXPECT_EQ(click(*hooked, floorA + IVector<2>(5, -5)), cursorreply::done | cursorreply::redraw);
    EXPECT_TRUE(hooked->hasHook());
    EXPECT_NEAR(hooked->hook().z(), 0, 0.02);
}

TEST_F(Room, OrientationIsAUnitDirectionInThePolygonsPlane) {
    auto poly = TQL::makeHandle<PolyOriented3dPC>();
    click(*poly, floorA);
    click(*poly, floorB);
    click(*poly, floorC);
    poly->key(CursorKey::enter);
    EXPECT_FALSE(poly->finished());
    EXPECT_NEAR(std::abs(poly->plane().normal()[2]), 1, 1e-3);
    EXPECT_EQ(click(*poly, floorB + IVector<2>(10, 0)), cursorreply::done | cursorreply::redraw);
    const Vector<3>& o = poly->orientation();
    EXPECT_NEAR(o.length(), 1, 1e-9);
    EXPECT_NEAR(dot(o, poly->plane().normal()), 0, 1e-9);
    // Towards the mouse: the point clicked lies ahead of the centre along it.
    const Point<3> target = doc->worldAt(floorB.x + 10, floorB.y);
    EXPECT_GT(dot(target - poly->centre(), o), 0);
}

TEST_F(Room, Bezier3dAnchorsAreWorldPointsAndTangentsStayInTheAnchorsPlane) {
    auto curve = TQL::makeHandle<Bezier3dPC>();
    const CursorContext context(mapping, doc.get());
    curve->handle(event(CursorEvent::Kind::press, floorA), context);
    curve->handle(event(CursorEvent::Kind::move, floorB), context);
    curve->handle(event(CursorEvent::Kind::release, floorB), context);
    click(*curve, floorC);
    ASSERT_EQ(curve->key(CursorKey::enter), cursorreply::done | cursorreply::redraw);
    const std::vector<Point<3>> c = curve->controlPoints();
    ASSERT_EQ(c.size(), 4u);
    expectNear(c[0], doc->worldAt(floorA.x, floorA.y), 1e-12);
    expectNear(c[3], doc->worldAt(floorC.x, floorC.y), 1e-12);
    EXPECT_NEAR(c[1].z(), 0, 0.02);
    expectNear(c[1], doc->worldAt(floorB.x, floorB.y), 0.05);

    LinePainter painter;
    curve->draw(painter, context);
    EXPECT_EQ(painter.lines.size(), 16u);
}

TEST(ConstraintType, StylesStoreOneAndTwoTheOtherWayRound) {
    EXPECT_EQ(Constraint::toStyle(Constraint::onLine), 2);
    EXPECT_EQ(Constraint::toStyle(Constraint::onPlane), 1);
    EXPECT_EQ(Constraint::toStyle(Constraint::none), 0);
    EXPECT_EQ(Constraint::fromStyle(2), Constraint::onLine);
    EXPECT_EQ(Constraint::fromStyle(1), Constraint::onPlane);
    EXPECT_EQ(Constraint::fromStyle(-1), Constraint::none);
    EXPECT_EQ(Constraint::fromStyle(7), Constraint::none);
    for (int t : {0, 1, 2}) {
        EXPECT_EQ(Constraint::fromStyle(Constraint::toStyle(t)), t);
    }
}

TEST_F(Room, FlatConstraintsHoldTheMouseToARowColumnAxisOrEightDirections) {
    const IPoint<2> s(50, 60);
    const Constraint free(Constraint::none, *doc, s, false, Vector<3>(0, 0, 0));
    EXPECT_EQ(free.constrain({71, 77}), IPoint<2>(71, 77));

    const Constraint rowOrColumn(Constraint::onLine, *doc, s, false, Vector<3>(0, 0, 0));
    EXPECT_EQ(rowOrColumn.constrain({70, 64}), IPoint<2>(70, 60));
    EXPECT_EQ(rowOrColumn.constrain({47, 20}), IPoint<2>(50, 20));
    EXPECT_TRUE(rowOrColumn.flat());

    const Constraint axis(Constraint::onLine, *doc, s, false, Vector<3>(1, 1, 0));
    EXPECT_EQ(axis.constrain({60, 70}), IPoint<2>(60, 70));
    EXPECT_EQ(axis.constrain({70, 60}), IPoint<2>(60, 70));

    const Constraint eight(Constraint::onPlane, *doc, s, false, Vector<3>(0, 0, 0));
    EXPECT_EQ(eight.constrain({61, 71}), IPoint<2>(61, 71));
    EXPECT_EQ(eight.constrain({90, 63}), IPoint<2>(90, 60));
    EXPECT_EQ(eight.constrain({21, 91}), IPoint<2>(20, 90));
    Point<3> world;
    eight.constrain({90, 63}, &world);
    expectNear(world, doc->worldAt(90, 60), 1e-12);
}

TEST_F(Room, AFloorPlaneConstraintCarriesEveryMouseRayToTheFloor) {
    const Constraint onFloor(Constraint::onPlane, *doc, floorA, true, Vector<3>(0, 0, 0));
    EXPECT_NEAR(std::abs(onFloor.plane().normal()[2]), 1, 1e-3);
    EXPECT_TRUE(onFloor.flat());
    Point<3> world;
    EXPECT_EQ(onFloor.constrain(wall, &world), wall);
    EXPECT_NEAR(world.z(), 0, 0.02);
    EXPECT_GT(world.y(), 14);
    // A floor pixel keeps its own point.
    onFloor.constrain(floorB, &world);
    expectNear(world, doc->worldAt(floorB.x, floorB.y), 0.02);

    // The given plane replaces the surface's.
    const Plane wallPlane(Vector<3>(0, -1, 0), Point<3>(0, 14, 0));
    const Constraint onWall(Constraint::onPlane, *doc, floorA, true, Vector<3>(0, 0, 0),
                            &wallPlane);
    onWall.constrain(floorB, &world);
    EXPECT_NEAR(world.y(), 14, 1e-6);
}

TEST_F(Room, AVerticalLineConstraintMovesTheMouseOntoTheLineThroughTheStart) {
    const Constraint upright(Constraint::onLine, *doc, floorA, true, Vector<3>(0, 0, 1));
    const Point<3> start = upright.startPoint();
    Point<3> world;
    const IPoint<2> mouse(floorA.x + 12, floorA.y - 30);
    const IPoint<2> held = upright.constrain(mouse, &world);
    EXPECT_NEAR(world.x(), start.x(), 1e-9);
    EXPECT_NEAR(world.y(), start.y(), 1e-9);
    EXPECT_GT(world.z(), 0.1);
    // The pixel handed over shows that world point, near the start's column.
    EXPECT_LE(std::abs(held.x - floorA.x), 2);
    EXPECT_LE(std::abs(held.y - mouse.y), 2);

    // It draws the line through the start and a marker.
    const CursorContext context(mapping, doc.get());
    auto pc = TQL::makeHandle<ConstraintPC>(
        TQL::makeHandle<Constraint>(Constraint::onLine, *doc, floorA, true, Vector<3>(0, 0, 1)));
    LinePainter painter;
    pc->draw(painter, context);
    ASSERT_EQ(painter.lines.size(), 1u);
    const auto& [a, b] = painter.lines[0];
    const Point<2> s = context.pixelToView(floorA);
    // The start lies on the drawn line.
    const double crossing = (b.x() - a.x()) * (s.y() - a.y()) - (b.y() - a.y()) * (s.x() - a.x());
    EXPECT_LT(std::abs(crossing) / std::hypot(b.x() - a.x(), b.y() - a.y()), 1.0);
}
