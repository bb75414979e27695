#include "core/Angle.h"
#include "core/Arc.h"
#include "core/Extent.h"
#include "core/Line.h"
#include "core/Matrix.h"
#include "core/Plane.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

constexpr double pi = std::numbers::pi;

TEST(IExtent, CornersAreInclusive) {
    IExtent<2> e;
    EXPECT_TRUE(e.degenerate());
    EXPECT_TRUE(IExtent<2>::m_nothing.degenerate());
    e += IPoint<2>(5, 7);
    EXPECT_FALSE(e.degenerate());
    EXPECT_EQ(e.width(), 1);
    EXPECT_EQ(e.height(), 1);
    e += IPoint<2>(9, 7);
    EXPECT_EQ(e.width(), 5);
    EXPECT_TRUE(e.contains({9, 7}));
    EXPECT_FALSE(e.contains({10, 7}));
}

TEST(IExtent, UnionIntersectionAndContainment) {
    const IExtent<2> a(0, 0, 9, 9);
    const IExtent<2> b(5, 5, 14, 14);
    EXPECT_EQ(a & b, IExtent<2>(5, 5, 9, 9));
    EXPECT_EQ(a | b, IExtent<2>(0, 0, 14, 14));
    const IExtent<2> apart(20, 20, 30, 30);
    EXPECT_TRUE((a & apart).degenerate());
    // Touching corners share one pixel, as corners are inclusive.
    EXPECT_EQ(a & IExtent<2>(9, 9, 12, 12), IExtent<2>(9, 9, 9, 9));
    EXPECT_TRUE(IExtent<2>(2, 2, 3, 3) <= a);
    EXPECT_FALSE(b <= a);
    EXPECT_TRUE(IExtent<2>() <= a);
    IExtent<2> grown;
    grown |= a;
    EXPECT_EQ(grown, a);
}

TEST(Extent, DisjointBoxesIntersectToNothing) {
    Extent<2> a(Point<2>(0, 0), Point<2>(1, 1));
    const Extent<2> b(Point<2>(2, 2), Point<2>(3, 3));
    a &= b;
    EXPECT_TRUE(a.degenerate());
    Extent<3> c(Point<3>(0, 0, 0), Point<3>(1, 1, 1));
    c &= Extent<3>(Point<3>(0.5, 0.5, 2), Point<3>(2, 2, 3));
    EXPECT_TRUE(c.degenerate());
    EXPECT_TRUE(Extent<3>::m_nothing.degenerate());
}

TEST(Extent, GrowsUnitesAndDilates) {
    Extent<2> e;
    e += Point<2>(1, 2);
    EXPECT_FALSE(e.degenerate()) << "a single point is a closed box, not empty";
    e += Point<2>(-1, 5);
    EXPECT_EQ(e.lo(), Point<2>(-1, 2));
    EXPECT_EQ(e.hi(), Point<2>(1, 5));
    EXPECT_TRUE(e.contains(Point<2>(0, 3)));
    e.dilate(0.5);
    EXPECT_EQ(e.lo(), Point<2>(-1.5, 1.5));
    Extent<2> u;
    u |= e;
    EXPECT_EQ(u, e);
    EXPECT_TRUE(Extent<2>(Point<2>(0, 2), Point<2>(1, 3)) <= e);
    EXPECT_TRUE(e >= Extent<2>(Point<2>(0, 2), Point<2>(1, 3)));
    EXPECT_EQ(e.corner(3), e.hi());
}

TEST(Angle, ClosenessWrapsAroundTheCircle) {
    struct Case {
        double a, b, limit;
        bool closer;
    } cases[] = {
        {360, 0, 1e-9, true},
        {0, 360, 1e-9, true},
        {359, 1, 3 * pi / 180, true},
        {359, 1, 1 * pi / 180, false},
        {-179, 179, 3 * pi / 180, true},
        {90, 270, pi - 0.01, false},
        {720.5, 0, 1 * pi / 180, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(closerThanRadians(Angle::degrees(c.a), Angle::degrees(c.b), c.limit), c.closer)
            << c.a << " vs " << c.b;
    }
}

TEST(Angle, MakersAndReadersAgree) {
    EXPECT_NEAR(Angle::degrees(180).radians(), pi, 1e-15);
    EXPECT_NEAR(Angle::cosSin(0, 2).degrees(), 90, 1e-12);
    EXPECT_NEAR(Angle::cosSin(-1, 0).degrees(), 180, 1e-12);
    const Angle a = Angle::degrees(30) + Angle::degrees(15) * 2;
    EXPECT_NEAR(a.degrees(), 60, 1e-12);
    EXPECT_NEAR(a.cos(), 0.5, 1e-15);
    EXPECT_NEAR((-a).sin(), -std::sqrt(3.0) / 2, 1e-15);
    EXPECT_NEAR(Angle::degrees(45).tan(), 1, 1e-15);
}

TEST(Plane, WorkedExample) {
    // The plane x + y + z = 3, through (1, 1, 1), (3, 0, 0) and (0, 3, 0).
    const Plane p(Point<3>(3, 0, 0), Point<3>(0, 3, 0), Point<3>(0, 0, 3));
    const double s = 1 / std::sqrt(3.0);
    EXPECT_NEAR(p.normal().x(), s, 1e-15);
    EXPECT_NEAR(p.normal().y(), s, 1e-15);
    EXPECT_NEAR(p.normal().z(), s, 1e-15);
    EXPECT_NEAR(p.distanceFromOrigin(), 3 * s, 1e-15);
    EXPECT_NEAR(p.distanceTo(Point<3>(0, 0, 0)), -std::sqrt(3.0), 1e-14);
    EXPECT_NEAR(p.distanceTo(Point<3>(2, 2, 2)), std::sqrt(3.0), 1e-14);
    const Point<3> foot = p.project(Point<3>(2, 2, 2));
    EXPECT_NEAR(foot.x(), 1, 1e-14);
    EXPECT_NEAR(foot.z(), 1, 1e-14);
    const Vector<3> v = p.vectorTo(Point<3>(2, 2, 2));
    EXPECT_NEAR(v.x(), 1, 1e-14);
    const Plane q = -p;
    EXPECT_NEAR(q.normal().x(), -s, 1e-15);
    EXPECT_NEAR(q.distanceTo(Point<3>(2, 2, 2)), -std::sqrt(3.0), 1e-14);
    // The normal-and-point form faces the way the normal says.
    const Plane floor(Vector<3>(0, 0, 5), Point<3>(7, -2, 1));
    EXPECT_NEAR(floor.distanceTo(Point<3>(0, 0, 4)), 3, 1e-15);
}

TEST(Line, IntersectionsAndCrossings) {
    const Point<2> x = intersect(Line<2>(Point<2>(0, 0), Vector<2>(1, 1)),
                                 Line<2>(Point<2>(4, 0), Vector<2>(-1, 1)));
    EXPECT_NEAR(x.x(), 2, 1e-15);
    EXPECT_NEAR(x.y(), 2, 1e-15);
    EXPECT_FALSE(intersect(Line<2>(Point<2>(0, 0), Vector<2>(1, 0)),
                           Line<2>(Point<2>(0, 1), Vector<2>(2, 0)))
                     .isFinite());

    const Plane floor(Vector<3>(0, 0, 1), Point<3>(0, 0, 2));
    const Point<3> hit = intersect(Line<3>(Point<3>(1, 1, 10), Vector<3>(1, 0, -2)), floor);
    EXPECT_NEAR(hit.x(), 5, 1e-14);
    EXPECT_NEAR(hit.z(), 2, 1e-14);

    // Two skew lines: the x axis and a line along y at height 3 through x = 2.
    Point<3> a, b;
    ASSERT_TRUE(crossing(a, b, Line<3>(Point<3>(-5, 0, 0), Vector<3>(1, 0, 0)),
                         Line<3>(Point<3>(2, 7, 3), Vector<3>(0, 2, 0))));
    EXPECT_NEAR(a.x(), 2, 1e-14);
    EXPECT_NEAR(a.z(), 0, 1e-14);
    EXPECT_NEAR(b.y(), 0, 1e-14);
    EXPECT_NEAR(b.z(), 3, 1e-14);
    EXPECT_FALSE(crossing(a, b, Line<3>(Point<3>(0, 0, 0), Vector<3>(1, 0, 0)),
                          Line<3>(Point<3>(0, 1, 0), Vector<3>(3, 0, 0))));
}

TEST(Matrix, InverseAndDeterminant) {
    Matrix<3> m;
    m(0, 0) = 2, m(0, 1) = 1, m(0, 2) = 0;
    m(1, 0) = 0, m(1, 1) = 3, m(1, 2) = 1;
    m(2, 0) = 1, m(2, 1) = 0, m(2, 2) = 1;
    EXPECT_DOUBLE_EQ(m.determinant(), 2 * 3 - 1 * (0 - 1) + 0); // 7
    const Matrix<3> p = m * m.inverse();
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            EXPECT_NEAR(p(i, j), i == j ? 1 : 0, 1e-15);
        }
    }
    const Vector<3> v(Vector<3>(1, 2, 3), m); // row vector times matrix
    EXPECT_DOUBLE_EQ(v.x(), 1 * 2 + 0 + 3 * 1);
    EXPECT_DOUBLE_EQ(v.y(), 1 * 1 + 2 * 3 + 0);
    EXPECT_DOUBLE_EQ(v.z(), 0 + 2 * 1 + 3 * 1);
}

TEST(Arc, QuarterCircleWorkedExample) {
    // From (1,0,0) to (0,1,0) counter-clockwise about +z: a quarter of the unit circle,
    // bulge tan(90 degrees / 4).
    const TQL::Arc<3> arc(Point<3>(1, 0, 0), std::tan(pi / 8), Vector<3>(0, 0, 1),
                          Point<3>(0, 1, 0));
    EXPECT_NEAR(arc.radius(), 1, 1e-14);
    EXPECT_NEAR(arc.centre().x(), 0, 1e-14);
    EXPECT_NEAR(arc.centre().y(), 0, 1e-14);
    EXPECT_NEAR(arc.length(), pi / 2, 1e-14);
    EXPECT_NEAR(arc.deviation(), 1 - std::cos(pi / 4), 1e-14);
    Point<3> at;
    Vector<3> dir;
    ASSERT_TRUE(arc.measureOff(pi / 4, at, dir));
    EXPECT_NEAR(at.x(), std::sqrt(0.5), 1e-14);
    EXPECT_NEAR(at.y(), std::sqrt(0.5), 1e-14);
    EXPECT_NEAR(dir.x(), -std::sqrt(0.5), 1e-14);
    EXPECT_NEAR(dir.y(), std::sqrt(0.5), 1e-14);
    ASSERT_TRUE(arc.measureOff(0, at, dir));
    EXPECT_NEAR(dir.y(), 1, 1e-14) << "tangent at the start points along the turn";
    EXPECT_FALSE(arc.measureOff(pi / 2 + 1e-9, at, dir));
    EXPECT_FALSE(arc.measureOff(-1e-9, at, dir));
}

TEST(Arc, ClockwiseHalfCircleAndStraightArc) {
    // Bulge -1 is a half circle turning clockwise about +z. Walking from (0,0) to (2,0)
    // around the centre (1,0), a clockwise turn passes above the chord, through (1,1);
    // a counter-clockwise one below it, through (1,-1).
    const TQL::Arc<3> half(Point<3>(0, 0, 0), -1.0, Vector<3>(0, 0, 1), Point<3>(2, 0, 0));
    EXPECT_NEAR(half.radius(), 1, 1e-14);
    EXPECT_NEAR(half.length(), pi, 1e-14);
    EXPECT_NEAR(half.deviation(), 1, 1e-14);
    Point<3> mid;
    Vector<3> dir;
    ASSERT_TRUE(half.measureOff(pi / 2, mid, dir));
    EXPECT_NEAR(mid.x(), 1, 1e-14);
    EXPECT_NEAR(mid.y(), 1, 1e-14);
    const TQL::Arc<3> ccw(Point<3>(0, 0, 0), 1.0, Vector<3>(0, 0, 1), Point<3>(2, 0, 0));
    Point<3> mid2;
    ASSERT_TRUE(ccw.measureOff(pi / 2, mid2, dir));
    EXPECT_NEAR(mid2.y(), -1, 1e-14);

    const TQL::Arc<3> straight(Point<3>(0, 0, 0), 0.0, Vector<3>(0, 0, 1), Point<3>(3, 4, 0));
    EXPECT_TRUE(std::isinf(straight.radius()));
    EXPECT_DOUBLE_EQ(straight.length(), 5);
    EXPECT_DOUBLE_EQ(straight.deviation(), 0);
    ASSERT_TRUE(straight.measureOff(2.5, mid, dir));
    EXPECT_NEAR(mid.x(), 1.5, 1e-15);
    EXPECT_NEAR(mid.y(), 2, 1e-15);
}

} // namespace
