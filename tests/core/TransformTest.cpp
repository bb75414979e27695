#include "core/Transform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>

namespace {

double relativeError(const Point<3>& a, const Point<3>& b) {
    const double scale = std::max({1.0, toVector(a).length(), toVector(b).length()});
    return (a - b).length() / scale;
}

std::vector<Point<3>> randomPoints(int n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> d(-100, 100);
    std::vector<Point<3>> pts;
    for (int i = 0; i < n; ++i) {
        pts.emplace_back(d(rng), d(rng), d(rng));
    }
    return pts;
}

/// A mixed bag of 3D transforms of every family.
std::vector<std::unique_ptr<Transform<3>>> someTransforms() {
    std::vector<std::unique_ptr<Transform<3>>> t;
    t.emplace_back(UniformTransform<3>::translation(Vector<3>(3, -4, 5)).clone());
    t.emplace_back(UniformTransform<3>::scale(2.5).clone());
    t.emplace_back(UniformTransform<3>::rotation(Angle::degrees(37), Vector<3>(1, 2, 3)).clone());
    t.emplace_back(UniformTransform<3>::xyAxes(Vector<3>(1, 1, 0), Vector<3>(0, 1, 1)).clone());
    t.emplace_back(NonUniformTransform<3>::scale(2, -0.5, 3).clone());
    t.emplace_back(NonUniformTransform<3>::axes(Vector<3>(1, 0, 0), Vector<3>(0, 1, 0),
                                                Vector<3>(0.2, -0.1, 1))
                       .clone());
    // A perspective view: move the eye to (0, 0, -50), then project.
    std::unique_ptr<Transform<3>> moveEye(
        UniformTransform<3>::translation(Vector<3>(0, 0, 500)).clone());
    t.emplace_back(moveEye->composeWith(PerspectiveTransform<3>()));
    return t;
}

TEST(Transform, EveryFamilyInvertsRandomPoints) {
    const auto points = randomPoints(200, 1);
    for (const auto& t : someTransforms()) {
        const std::unique_ptr<Transform<3>> inv(t->pInverse());
        for (const auto& p : points) {
            const Point<3> q = p * *t;
            EXPECT_LT(relativeError(q * *inv, p), 1e-12);
            EXPECT_LT(relativeError(q / *t, p), 1e-12);
        }
    }
}

TEST(Transform, CompositionAppliesLeftThenRight) {
    const auto points = randomPoints(100, 2);
    const auto all = someTransforms();
    for (const auto& a : all) {
        for (const auto& b : all) {
            const std::unique_ptr<Transform<3>> ab(a->composeWith(*b));
            for (const auto& p : points) {
                EXPECT_LT(relativeError(p * *ab, (p * *a) * *b), 1e-12);
            }
        }
    }
}

TEST(Transform, CompositionKeepsTheNarrowestFamily) {
    const auto u = UniformTransform<3>::rotation(Angle::degrees(10), Vector<3>(0, 0, 1));
    const auto n = NonUniformTransform<3>::scale(1, 2, 3);
    std::unique_ptr<Transform<3>> uu(u.composeWith(u));
    std::unique_ptr<Transform<3>> un(u.composeWith(n));
    std::unique_ptr<Transform<3>> up(u.composeWith(PerspectiveTransform<3>()));
    EXPECT_NE(dynamic_cast<UniformTransform<3>*>(uu.get()), nullptr);
    EXPECT_EQ(dynamic_cast<UniformTransform<3>*>(un.get()), nullptr);
    EXPECT_NE(dynamic_cast<NonUniformTransform<3>*>(un.get()), nullptr);
    EXPECT_FALSE(up->isAffine());
}

TEST(Transform, KnownImages) {
    // Rotation by 90 degrees about +z takes x to y (right-hand rule).
    const Point<3> r =
        Point<3>(1, 0, 0) * UniformTransform<3>::rotation(Angle::degrees(90), Vector<3>(0, 0, 2));
    EXPECT_NEAR(r.x(), 0, 1e-15);
    EXPECT_NEAR(r.y(), 1, 1e-15);
    const Point<2> r2 = Point<2>(1, 0) * UniformTransform<2>::rotation(Angle::degrees(90));
    EXPECT_NEAR(r2.x(), 0, 1e-15);
    EXPECT_NEAR(r2.y(), 1, 1e-15);
    // The perspective projection (x/z, y/z, -1/z).
    const Point<3> s = Point<3>(2, 4, 8) * PerspectiveTransform<3>();
    EXPECT_DOUBLE_EQ(s.x(), 0.25);
    EXPECT_DOUBLE_EQ(s.y(), 0.5);
    EXPECT_DOUBLE_EQ(s.z(), -0.125);
    // axes() gives coordinates in the frame: p = u a + v b + w c.
    const auto into =
        NonUniformTransform<3>::axes(Vector<3>(2, 0, 0), Vector<3>(0, 0, 1), Vector<3>(0, -1, 0));
    const Point<3> f = Point<3>(4, 5, 6) * into;
    EXPECT_DOUBLE_EQ(f.x(), 2);
    EXPECT_DOUBLE_EQ(f.y(), 6);
    EXPECT_DOUBLE_EQ(f.z(), -5);
    // Vectors ignore translation.
    const Vector<3> v = Vector<3>(1, 2, 3) * UniformTransform<3>::translation(Vector<3>(9, 9, 9));
    EXPECT_EQ(v, Vector<3>(1, 2, 3));
}

TEST(Transform, ExtentIsTheBoxOfTheImagedCorners) {
    const Extent<3> box(Point<3>(0, 0, 0), Point<3>(1, 2, 3));
    const Extent<3> turned =
        box * UniformTransform<3>::rotation(Angle::degrees(90), Vector<3>(0, 0, 1));
    EXPECT_NEAR(turned.lo().x(), -2, 1e-15);
    EXPECT_NEAR(turned.hi().x(), 0, 1e-15);
    EXPECT_NEAR(turned.hi().y(), 1, 1e-15);
    EXPECT_NEAR(turned.hi().z(), 3, 1e-15);
}

TEST(Transform, MirroringPackingAndSlices) {
    EXPECT_TRUE(NonUniformTransform<3>::scale(-1, 1, 1).mirroring());
    EXPECT_FALSE(
        UniformTransform<3>::rotation(Angle::degrees(123), Vector<3>(1, 1, 0)).mirroring());

    auto t = NonUniformTransform<3>::scale(2, 3, 4);
    t *= UniformTransform<3>::translation(Vector<3>(5, 6, 7));
    double pod[4][3];
    t.packToPod(pod);
    EXPECT_EQ(pod[0][0], 2);
    EXPECT_EQ(pod[1][1], 3);
    EXPECT_EQ(pod[2][2], 4);
    EXPECT_EQ(pod[3][0], 5);
    EXPECT_EQ(pod[3][2], 7);
    EXPECT_EQ(t.translation(), Vector<3>(5, 6, 7));

    std::unique_ptr<Transform<2>> slice(t.pSlice());
    ASSERT_NE(slice, nullptr);
    const Point<2> q = Point<2>(1, 1) * *slice;
    EXPECT_DOUBLE_EQ(q.x(), 7);
    EXPECT_DOUBLE_EQ(q.y(), 9);
}

TEST(Transform, UniformAndNonUniformOperators) {
    auto a = UniformTransform<3>::rotation(Angle::degrees(30), Vector<3>(0, 1, 0));
    const auto b = UniformTransform<3>::translation(Vector<3>(1, 2, 3));
    auto c = a;
    c *= b;
    c /= b;
    const Point<3> p(3, -2, 7);
    EXPECT_LT(relativeError(p * c, p * a), 1e-14);
    EXPECT_LT(relativeError((p * a) * a.inverse(), p), 1e-14);
    auto n = NonUniformTransform<3>::scale(1, 2, 4);
    n *= a;
    EXPECT_LT(relativeError(p * n, (p * NonUniformTransform<3>::scale(1, 2, 4)) * a), 1e-14);
    n /= a;
    EXPECT_LT(relativeError(p * n, p * NonUniformTransform<3>::scale(1, 2, 4)), 1e-14);
}

} // namespace
