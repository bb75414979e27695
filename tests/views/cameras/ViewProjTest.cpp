#include "views/cameras/ViewProj.h"

#include "CameraTestViews.h"
#include "core/Line.h"
#include "core/Plane.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace cameratest;

namespace {

/// Distance of a world point along the view axis from the eye.
double depthAlongView(const ViewParams& v, const Point<3>& world) {
    return dot(world - v.eye, v.zAxis.unit());
}

class EachView : public ::testing::TestWithParam<NamedView> {};

TEST_P(EachView, PixelsAndCodesRoundTripThroughTheWorld) {
    const NamedView& view = GetParam();
    const ViewProj proj(view.params, view.width, view.height);
    std::mt19937 random(20240611);
    std::uniform_real_distribution<double> code(0, 4294967294.0);
    std::uniform_int_distribution<int> column(0, view.width - 1);
    std::uniform_int_distribution<int> row(0, view.height - 1);
    const int n = proj.faceSize().size();
    for (int i = 0; i < 2000; ++i) {
        int x = column(random);
        int y = row(random);
        if (n > 0) {
            // A cube face's edge pixel comes back as whichever of its copies the dominant
            // axis picks; that case has its own test.
            x = (x / n) * n + std::clamp(x % n, 1, n - 2);
            y = std::clamp(y, 1, n - 2);
        }
        const auto c = static_cast<std::uint32_t>(code(random));
        const Point<3> world = proj.worldFromPixel(x, y, c);
        const Point<3> back = proj.pixelFromWorld(world);
        ASSERT_NEAR(back.x(), x, 1e-6) << view.name << " pixel " << x << "," << y << " code " << c;
        ASSERT_NEAR(back.y(), y, 1e-6) << view.name;
        ASSERT_NEAR(back.z(), c, 1.0) << view.name;

        // Real positions and codes go the same way.
        const Point<3> real(x + 0.25, y - 0.375, c + 0.5);
        const Point<3> realBack = proj.pixelFromWorld(proj.worldFromPixelPoint(real));
        ASSERT_NEAR(realBack.x(), real.x(), 1e-6) << view.name;
        ASSERT_NEAR(realBack.y(), real.y(), 1e-6) << view.name;
        ASSERT_NEAR(realBack.z(), real.z(), 1.0) << view.name;
    }
}

TEST_P(EachView, CodeZeroIsNearDepthAndTheLastCodeIsFarDepth) {
    const NamedView& view = GetParam();
    const ViewProj proj(view.params, view.width, view.height);
    const ViewParams& v = view.params;
    // In a cube image the depth runs along the face's axis: take the centre of face 0,
    // which looks along Z.
    const int x = proj.faceSize().size() > 0 ? proj.faceSize().size() / 2 : 17;
    const int y = proj.faceSize().size() > 0 ? proj.faceSize().size() / 2 : 29;
    EXPECT_NEAR(depthAlongView(v, proj.worldFromPixel(x, y, 0)), v.nearDepth, 1e-12);
    EXPECT_NEAR(depthAlongView(v, proj.worldFromPixel(x, y, depth::farCode)), v.farDepth, 1e-11);
    // Linear in between.
    const std::uint32_t quarter = 1073741823;
    EXPECT_NEAR(depthAlongView(v, proj.worldFromPixel(x, y, quarter)),
                v.nearDepth + quarter * (v.farDepth - v.nearDepth) / 4294967294.0, 1e-9);
}

TEST_P(EachView, NoDepthCodeIsAFarPointNotAnError) {
    const NamedView& view = GetParam();
    const ViewProj proj(view.params, view.width, view.height);
    const int x = proj.faceSize().size() > 0 ? proj.faceSize().size() / 2 : 3;
    const Point<3> world = proj.worldFromPixel(x, 4, depth::noDepth);
    ASSERT_TRUE(world.isFinite());
    EXPECT_GT(depthAlongView(view.params, world), view.params.farDepth);
}

TEST_P(EachView, PixelVectorOfAOnePixelStepIsOnePixel) {
    const NamedView& view = GetParam();
    const ViewProj proj(view.params, view.width, view.height);
    const int x = proj.faceSize().size() > 0 ? proj.faceSize().size() / 2 : 100;
    const std::uint32_t code = 1234567890;
    const Point<3> at = proj.worldFromPixel(x, 60, code);
    const Vector<3> right = proj.pixelVector(proj.worldFromPixel(x + 1, 60, code) - at, at);
    EXPECT_NEAR(right.x(), 1, 1e-6);
    EXPECT_NEAR(right.y(), 0, 1e-6);
    EXPECT_NEAR(right.z(), 0, 1e-3);
    const Vector<3> deeper = proj.pixelVector(proj.worldFromPixel(x, 60, code + 1000) - at, at);
    EXPECT_NEAR(deeper.x(), 0, 1e-6);
    EXPECT_NEAR(deeper.z(), 1000, 1e-3);
}

INSTANTIATE_TEST_SUITE_P(Views, EachView, ::testing::ValuesIn(allViews),
                         [](const auto& info) { return info.param.name; });

TEST(ViewProj, PerspectivePixelsLookThroughTheWindow) {
    // Pixel (0, 0) looks through windowLo and the last pixel through windowHi; both at
    // view distance nearDepth for code 0.
    const ViewParams v = perspectiveRecord();
    const ViewProj proj(v, 641, 480);
    const Vector<3> X = v.xAxis.unit(), Y = v.yAxis.unit(), Z = v.zAxis.unit();
    const auto expected = [&](const Point<3>& window) {
        return v.eye +
               (Z + X * (window.x() / window.z()) + Y * (window.y() / window.z())) * v.nearDepth;
    };
    const Point<3> first = proj.worldFromPixel(0, 0, 0);
    const Point<3> last = proj.worldFromPixel(640, 479, 0);
    EXPECT_NEAR(distance(first, expected(v.windowLo)), 0, 1e-12);
    EXPECT_NEAR(distance(last, expected(v.windowHi)), 0, 1e-12);
}

TEST(ViewProj, ParallelCodesMoveAlongTheShear) {
    const ViewParams v = parallelRecord();
    const ViewProj proj(v, 500, 377);
    const Vector<3> X = v.xAxis.unit(), Y = v.yAxis.unit(), Z = v.zAxis.unit();
    const Vector<3> shear = X * v.shear.x() + Y * v.shear.y() + Z * v.shear.z();
    const Vector<3> step =
        proj.worldFromPixel(40, 50, 3000000000u) - proj.worldFromPixel(40, 50, 0);
    EXPECT_NEAR(dot(step.unit(), shear.unit()), 1, 1e-12);
    // The window's corners are where the shear carries them to the view's foot plane.
    const Point<3> first = proj.worldFromPixel(0, 0, 0);
    const Point<3> cornerLo = v.eye + X * v.windowLo.x() + Y * v.windowLo.y() + Z * v.windowLo.z();
    const Vector<3> fromCorner = first - cornerLo;
    EXPECT_NEAR(cross(fromCorner, shear).length(), 0, 1e-9);
}

TEST(ViewProj, CubeFacesLookAlongTheirAxes) {
    const ViewParams v = cubicRecord();
    const int n = 257;
    const ViewProj proj(v, 6 * n, n);
    const Vector<3> X = v.xAxis.unit(), Y = v.yAxis.unit(), Z = v.zAxis.unit();
    const Vector<3> looks[6] = {Z, X, -Z, -X, Y, -Y};
    for (int face = 0; face < 6; ++face) {
        const Point<3> centre = proj.worldFromPixel(face * n + n / 2, n / 2, 1000000);
        EXPECT_NEAR(dot((centre - v.eye).unit(), looks[face]), 1, 1e-12) << "face " << face;
        // Pixel rows run downwards: the top row is nearer to "up" of the face.
        const Point<3> top = proj.worldFromPixel(face * n + n / 2, 0, 1000000);
        const Vector<3> up = face == 4 ? -Z : face == 5 ? Z : Y;
        EXPECT_GT(dot(top - centre, up), 0) << "face " << face;
    }
}

TEST(ViewProj, CubeEdgeAndTieDirections) {
    const ViewParams v = cubicRecord();
    const int n = 9;
    const ViewProj proj(v, 6 * n, n);
    const double w = 1e6 + proj.depthOffset();

    // The first column of face 1 is the same direction as the last column of face 0: the
    // round trip lands on one of the two copies, at the same code.
    const Point<3> back = proj.pixelFromHomogeneous(proj.homogeneousFromPixel(n, 3, 1000000));
    const IPoint<2> landed(static_cast<int>(std::lround(back.x())),
                           static_cast<int>(std::lround(back.y())));
    EXPECT_EQ(proj.faceSize().canonicalPixel(landed.x, landed.y),
              proj.faceSize().canonicalPixel(n, 3));
    EXPECT_NEAR(back.z(), 1000000, 1e-6);

    struct Case {
        Vector<3> direction;
        double x, y;
    } cases[] = {
        // |x| = |y| = |z|: z-dominant, a corner of face 0 or face 2.
        {{1, 1, 1}, n - 1, 0},
        {{-1, -1, -1}, 2 * n + n - 1, n - 1},
        // |x| = |y| > |z|: y-dominant, on face 4 or 5.
        {{1, 1, 0.5}, 5 * n - 1, 0.75 * (n - 1)},
        {{-1, -1, 0.5}, 5 * n, 0.25 * (n - 1)},
        // Strict x dominance.
        {{1, 0, 0}, n + (n - 1) / 2.0, (n - 1) / 2.0},
    };
    for (const Case& c : cases) {
        const Point<3> p = proj.pixelFromHomogeneous(toPoint(c.direction * w));
        EXPECT_NEAR(p.x(), c.x, 1e-9)
            << c.direction.x() << "," << c.direction.y() << "," << c.direction.z();
        EXPECT_NEAR(p.y(), c.y, 1e-9);
        EXPECT_NEAR(p.z(), 1e6, 1e-6);
    }
}

TEST(ViewProj, UnknownViewCodeGivesTheOrigin) {
    ViewParams v = perspectiveRecord();
    v.viewCode = 2;
    const ViewProj proj(v, 100, 80);
    EXPECT_EQ(proj.viewType(), ViewProj::unknownView);
    EXPECT_EQ(proj.worldFromPixel(10, 20, 30), Point<3>::m_origin);
    EXPECT_EQ(proj.pixelFromWorld(Point<3>(1, 2, 3)), Point<3>::m_origin);
    EXPECT_EQ(proj.homogeneousFromPixel(10, 20, 30), Point<3>::m_origin);
    Point<3> out[4];
    EXPECT_EQ(proj.clipSegment(Point<3>(1, 2, 3), Point<3>(4, 5, 6), false, out),
              ViewProj::clipNothing);
}

TEST(ViewProj, DefaultRecordLooksAtTheHorizonAndSeesTheFloorBelowIt) {
    const ViewProj proj(ViewParams(), 401, 301);
    // The middle row looks level; the bottom row meets the floor z = 0 in front.
    const Point<3> mid = proj.worldFromPixel(200, 150, 1000000);
    const Point<3> midFar = proj.worldFromPixel(200, 150, 2000000);
    EXPECT_NEAR((midFar - mid).z(), 0, 1e-9);
    const Point<3> a = proj.worldFromPixel(200, 300, 1000000);
    const Point<3> b = proj.worldFromPixel(200, 300, 2000000);
    EXPECT_LT((b - a).z(), 0);
    const Point<3> floor = intersect(Line<3>::through(a, b), Plane());
    EXPECT_GT(dot(floor - ViewParams().eye, ViewParams().zAxis), 0);
}

// --- clipping ---------------------------------------------------------------------------

TEST(ViewProjClip, PerspectiveEndBehindTheEyeIsCutAtTheNearLimit) {
    const ViewParams v = perspectiveRecord();
    const ViewProj proj(v, 641, 480);
    const Vector<3> Z = v.zAxis.unit();
    // A line through the eye keeps its pixel, so only the near limit cuts it.
    const Point<3> front = v.eye + Z * 20 + v.xAxis.unit() * 1.5;
    const Point<3> behind = v.eye - (front - v.eye) * 0.5;
    struct Case {
        bool useNear;
        double limit;
    } cases[] = {{false, 0.001}, {true, proj.depthOffset()}};
    for (const Case& c : cases) {
        Point<3> out[4];
        ASSERT_EQ(proj.clipSegment(front, behind, c.useNear, out), ViewProj::clipKeepsStart);
        EXPECT_NEAR(out[1].z(), c.limit, 1e-6 + 1e-9 * c.limit);
        EXPECT_NEAR(distance(out[0], proj.fromWorld().multiply(front)), 0, 1e-3);
        // The computed end is on the segment.
        const Point<3> world = proj.toWorld().multiply(out[1]);
        EXPECT_NEAR(cross(world - front, behind - front).length(), 0, 1e-6);

        ASSERT_EQ(proj.clipSegment(behind, front, c.useNear, out), ViewProj::clipKeepsEnd);
        EXPECT_NEAR(out[0].z(), c.limit, 1e-6 + 1e-9 * c.limit);
    }
    Point<3> out[4];
    EXPECT_EQ(proj.clipSegment(front, front + Z * 5, false, out), ViewProj::clipWhole);
    EXPECT_EQ(proj.clipSegment(behind, behind - Z, false, out), ViewProj::clipNothing);
}

TEST(ViewProjClip, PerspectiveEndFarOffToTheSideIsCutAtThePixelLimit) {
    const ViewParams v = perspectiveRecord();
    const ViewProj proj(v, 641, 480);
    const Vector<3> X = v.xAxis.unit(), Z = v.zAxis.unit();
    // Almost level with the eye's plane: the far end is at an enormous pixel x.
    const Point<3> a = v.eye + Z * 10;
    const Point<3> b = v.eye + Z * 1e-9 + X * 10;
    Point<3> pa, pb;
    ASSERT_EQ(proj.clipSegmentToPixels(pa, pb, a, b, false), ViewProj::clipKeepsStart);
    EXPECT_NEAR(std::fabs(pb.x()), ViewProj::pixelLimit, 1e-6 * ViewProj::pixelLimit);
    EXPECT_NEAR(distance(pa, proj.pixelFromWorld(a)), 0, 1e-6);
}

TEST(ViewProjClip, ParallelLimitsArePixelsAndOptionallyTheNearDepth) {
    const ViewParams v = parallelRecord();
    const ViewProj proj(v, 500, 377);
    const Point<3> a = proj.worldFromPixel(100, 100, 1000000);
    // Far off to the right in pixels, at the same code.
    const Point<3> side = proj.worldFromPixelPoint(Point<3>(1e9, 100, 1000000));
    Point<3> pa, pb;
    ASSERT_EQ(proj.clipSegmentToPixels(pa, pb, a, side, false), ViewProj::clipKeepsStart);
    EXPECT_NEAR(pb.x(), ViewProj::pixelLimit, 1e-3);
    EXPECT_NEAR(pb.y(), 100, 1e-6);

    // Nearer than nearDepth (a negative code): cut at code 0 only when asked to.
    const Point<3> tooNear = proj.worldFromPixelPoint(Point<3>(150, 120, -5e8));
    EXPECT_EQ(proj.clipSegmentToPixels(pa, pb, a, tooNear, false), ViewProj::clipWhole);
    ASSERT_EQ(proj.clipSegmentToPixels(pa, pb, tooNear, a, true), ViewProj::clipKeepsEnd);
    EXPECT_NEAR(pa.z(), 0, 1e-3);
}

TEST(ViewProjClip, CubicSegmentsAvoidTheEye) {
    const ViewParams v = cubicRecord();
    const ViewProj proj(v, 6 * 64, 64);
    const Vector<3> X = v.xAxis.unit(), Y = v.yAxis.unit();
    const double r = 0.001;
    Point<3> out[4];
    // Straight through the eye: two pieces, with a gap at the box around it.
    ASSERT_EQ(proj.clipSegment(v.eye - X * 5, v.eye + X * 5, false, out), ViewProj::clipTwoPieces);
    EXPECT_NEAR(out[1].x(), -r, 1e-6);
    EXPECT_NEAR(out[2].x(), r, 1e-6);
    // Passing the eye at a distance: whole.
    EXPECT_EQ(proj.clipSegment(v.eye - X * 5 + Y, v.eye + X * 5 + Y, false, out),
              ViewProj::clipWhole);
    // Ending at the eye, and starting there.
    ASSERT_EQ(proj.clipSegment(v.eye + X * 5, v.eye, false, out), ViewProj::clipKeepsStart);
    EXPECT_NEAR(out[1].x(), r, 1e-6);
    ASSERT_EQ(proj.clipSegment(v.eye, v.eye + Y * 5, false, out), ViewProj::clipKeepsEnd);
    EXPECT_NEAR(out[0].y(), r, 1e-6);
    // Wholly within the near box.
    EXPECT_EQ(proj.clipSegment(v.eye, v.eye + Y * 0.01, true, out), ViewProj::clipNothing);
}

TEST(ViewProjClip, NothingVisibleLeavesThePixelsAlone) {
    const ViewParams v = perspectiveRecord();
    const ViewProj proj(v, 641, 480);
    const Vector<3> Z = v.zAxis.unit();
    Point<3> pa(7, 8, 9), pb(1, 2, 3);
    EXPECT_EQ(proj.clipSegmentToPixels(pa, pb, v.eye - Z, v.eye - Z * 2, false),
              ViewProj::clipNothing);
    EXPECT_EQ(pa, Point<3>(7, 8, 9));
    EXPECT_EQ(pb, Point<3>(1, 2, 3));
}

} // namespace
