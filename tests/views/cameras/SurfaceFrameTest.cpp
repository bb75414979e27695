#include "views/cameras/SurfaceFrame.h"

#include "CameraTestViews.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>

using namespace cameratest;

namespace {

constexpr double fraction = 0.05;

/// What world geometry says about the pixel's ray and a plane: the ray's points are
/// affine in the depth code, so their signed distances from the plane are too.
struct RayAndPlane {
    double atZero;  ///< signed distance of the point at code 0
    double perCode; ///< change of the signed distance per code step

    RayAndPlane(const ViewProj& proj, const Plane& plane, int x, int y) {
        const double K = 1e9;
        atZero = plane.distanceTo(proj.worldFromPixel(x, y, 0));
        perCode =
            (plane.distanceTo(proj.worldFromPixel(x, y, static_cast<std::uint32_t>(K))) - atZero) /
            K;
    }
    /// The code at which the ray is at signed distance s from the plane.
    double codeAt(double s) const { return (s - atZero) / perCode; }
};

/// The world tolerance of a frame: the fraction of the distance between the points of
/// pixels (0, 0) and (1, 1) at the far code.
double worldTolerance(const ViewProj& proj) {
    return fraction * distance(proj.worldFromPixel(0, 0, depth::farCode),
                               proj.worldFromPixel(1, 1, depth::farCode));
}

struct FrameCase {
    std::string name;
    NamedView view;
    Plane plane;
    SurfaceFrame::Kind kind;
    bool partlyHidden;
};

void PrintTo(const FrameCase& c, std::ostream* os) {
    *os << c.name;
}

Plane planeThrough(const Vector<3>& normal, const Point<3>& p) {
    return Plane(normal, p);
}

FrameCase frameCases[] = {
    // The floor below a perspective eye, facing it, and a wall whose normal faces away.
    {"perspectiveFloor", allViews[0], Plane(), SurfaceFrame::perspectivePlane, true},
    {"perspectiveWallFacingAway", allViews[0], planeThrough({0.9, 0.5, 0.2}, {12, 3, 0}),
     SurfaceFrame::perspectivePlane, false},
    // In parallel views the code's tolerance takes the sign of the facing: both facings.
    {"parallelFloor", allViews[1], Plane(), SurfaceFrame::parallelPlane, false},
    {"parallelFloorFacingAway", allViews[1], -Plane(), SurfaceFrame::parallelPlane, false},
    {"parallelSlope", allViews[1], -planeThrough({0.3, -0.4, 1}, {0, 0, -1}),
     SurfaceFrame::parallelPlane, true},
    // A cube sees a plane whose normal points away from the eye, as surfaces' normals do.
    {"cubicFloor", allViews[2], -Plane(), SurfaceFrame::cubicPlane, true},
    {"cubicWall", allViews[2], planeThrough({1, -0.3, 0}, {6, 0, 0}), SurfaceFrame::cubicPlane,
     true},
};

class EachFrame : public ::testing::TestWithParam<FrameCase> {};

TEST_P(EachFrame, CodesAndSidesAgreeWithWorldGeometry) {
    const FrameCase& c = GetParam();
    const ViewProj proj(c.view.params, c.view.width, c.view.height);
    const SurfaceFrame frame(c.plane, proj, fraction);
    ASSERT_EQ(frame.kind(), c.kind);
    const double T = worldTolerance(proj);
    int visible = 0;
    int hidden = 0;
    for (int y = 0; y < c.view.height; y += 23) {
        for (int x = 0; x < c.view.width; x += 37) {
            const RayAndPlane ray(proj, c.plane, x, y);
            if (std::fabs(ray.perCode) < 1e-15) {
                continue; // the ray runs along the plane
            }
            const double expected = ray.codeAt(0);
            if (std::fabs(expected) < 1e3 || expected > 4e9) {
                continue; // too close to a boundary of visibility to call
            }
            std::uint32_t code = 0;
            const bool seen = frame.depthCode(x, y, code);
            ASSERT_EQ(seen, expected > 0) << c.name << " at " << x << "," << y;
            if (!seen) {
                ++hidden;
                EXPECT_EQ(frame.classify(x, y, 1000), SurfaceFrame::notVisible);
                continue;
            }
            ++visible;
            ASSERT_NEAR(code, expected, 1.0) << c.name << " at " << x << "," << y;

            // Within the tolerance on either side: on the plane. Beyond it: the larger
            // code is beyond the plane, the smaller one nearer.
            const double farther = std::max(ray.codeAt(2 * T), ray.codeAt(-2 * T));
            const double closer = std::min(ray.codeAt(2 * T), ray.codeAt(-2 * T));
            EXPECT_EQ(frame.classify(x, y, code), SurfaceFrame::onPlane);
            EXPECT_EQ(frame.classify(Point<3>(x, y, ray.codeAt(0.5 * T))), SurfaceFrame::onPlane);
            EXPECT_EQ(frame.classify(Point<3>(x, y, ray.codeAt(-0.5 * T))), SurfaceFrame::onPlane);
            if (farther < 4294967295.0) {
                EXPECT_EQ(frame.classify(Point<3>(x, y, farther)), SurfaceFrame::beyond) << c.name;
            }
            if (closer > 0) {
                EXPECT_EQ(frame.classify(Point<3>(x, y, closer)), SurfaceFrame::nearer) << c.name;
            }
            EXPECT_EQ(frame.classify(x, y, depth::noDepth), SurfaceFrame::beyond);

            // Signed distances are world distances, on the side the normal points to.
            for (const double s : {-3 * T, 0.0, 7 * T}) {
                const double at = ray.codeAt(s);
                EXPECT_NEAR(frame.signedDistance(Point<3>(x, y, at)),
                            c.plane.distanceTo(proj.worldFromPixelPoint(Point<3>(x, y, at))),
                            1e-6 * T + 1e-9)
                    << c.name;
            }
        }
    }
    EXPECT_GT(visible, 20) << c.name;
    EXPECT_EQ(hidden > 0, c.partlyHidden) << c.name;
}

TEST_P(EachFrame, EitherFacingOfThePlaneGivesTheSameCodesExceptOnACube) {
    const FrameCase& c = GetParam();
    const ViewProj proj(c.view.params, c.view.width, c.view.height);
    const SurfaceFrame frame(c.plane, proj, fraction);
    const SurfaceFrame reversed(-c.plane, proj, fraction);
    const bool cubic = c.kind == SurfaceFrame::cubicPlane;
    if (c.kind == SurfaceFrame::parallelPlane) {
        EXPECT_EQ(frame.tolerance(), -reversed.tolerance());
    } else {
        EXPECT_GT(reversed.tolerance(), 0);
        EXPECT_EQ(frame.tolerance(), reversed.tolerance());
    }
    int seen = 0;
    for (int y = 3; y < c.view.height; y += 41) {
        for (int x = 5; x < c.view.width; x += 53) {
            std::uint32_t a = 0, b = 0;
            const bool seenA = frame.depthCode(x, y, a);
            const bool seenB = reversed.depthCode(x, y, b);
            seen += seenA;
            if (cubic) {
                // The reversed plane faces the eye: the cube doesn't see it anywhere.
                ASSERT_FALSE(seenB) << x << "," << y;
                EXPECT_EQ(reversed.classify(x, y, 1000), SurfaceFrame::notVisible);
                continue;
            }
            ASSERT_EQ(seenA, seenB);
            if (seenA) {
                EXPECT_EQ(a, b);
                for (const std::uint32_t code : {a - 5000000, a, a + 5000000}) {
                    EXPECT_EQ(frame.classify(x, y, code), reversed.classify(x, y, code));
                    EXPECT_NEAR(frame.signedDistance(x, y, code),
                                -reversed.signedDistance(x, y, code), 1e-9);
                }
            }
        }
    }
    EXPECT_GT(seen, 0);
}

INSTANTIATE_TEST_SUITE_P(Planes, EachFrame, ::testing::ValuesIn(frameCases),
                         [](const auto& info) { return info.param.name; });

TEST(SurfaceFrame, ParallelPlaneSeenEdgeOnIsALineOfPixels) {
    const NamedView& view = allViews[1];
    const ViewProj proj(view.params, view.width, view.height);
    // A plane holding the direction of projection and the view's Y: the column of pixels
    // through (250, 100) lies on it, whatever their codes.
    const Vector<3> along = proj.worldFromPixel(0, 0, 1000000) - proj.worldFromPixel(0, 0, 0);
    const Plane plane(cross(along, view.params.yAxis), proj.worldFromPixel(250, 100, 0));
    const SurfaceFrame frame(plane, proj, fraction);
    ASSERT_EQ(frame.kind(), SurfaceFrame::edgeOnPlane);
    std::uint32_t code = 0;
    EXPECT_FALSE(frame.depthCode(250, 100, code));
    for (const std::uint32_t c : {0u, 123456789u, depth::noDepth}) {
        EXPECT_EQ(frame.classify(250, 10, c), SurfaceFrame::onPlane);
        EXPECT_EQ(frame.classify(250, 300, c), SurfaceFrame::onPlane);
        EXPECT_EQ(frame.classify(251, 10, c), SurfaceFrame::notVisible);
        EXPECT_EQ(frame.classify(240, 300, c), SurfaceFrame::notVisible);
    }
    for (const int x : {0, 249, 400}) {
        EXPECT_NEAR(frame.signedDistance(x, 50, 777),
                    plane.distanceTo(proj.worldFromPixel(x, 50, 777)), 1e-9);
    }
}

TEST(SurfaceFrame, EmptyFrameTakesEveryPixelAsOnIt) {
    const SurfaceFrame frame;
    std::uint32_t code = 0;
    EXPECT_FALSE(frame.depthCode(3, 4, code));
    EXPECT_EQ(frame.classify(3, 4, 5), SurfaceFrame::onPlane);
    EXPECT_EQ(frame.classify(3, 4, depth::noDepth), SurfaceFrame::onPlane);
    EXPECT_EQ(frame.signedDistance(3, 4, 5), 0);

    ViewParams unknown = perspectiveRecord();
    unknown.viewCode = 7;
    const SurfaceFrame fromUnknownView(Plane(), ViewProj(unknown, 20, 20), fraction);
    EXPECT_EQ(fromUnknownView.kind(), SurfaceFrame::emptyFrame);
}

TEST(SurfaceFrame, CodesBeyondTheLastAreNoDepth) {
    // The floor just below the horizon lies beyond farDepth: its code is limited.
    ViewParams v;
    v.farDepth = 100;
    const ViewProj proj(v, 401, 301);
    const SurfaceFrame frame(Plane(), proj, fraction);
    std::uint32_t code = 0;
    ASSERT_TRUE(frame.depthCode(200, 151, code));
    EXPECT_EQ(code, depth::noDepth);
    double real = 0;
    ASSERT_TRUE(frame.depthCode(Point<2>(200, 151), real));
    EXPECT_GT(real, 4294967295.0);
}

} // namespace
