#include "views/cameras/Camera.h"

#include "CameraTestViews.h"
#include "core/TqlError.h"
#include "views/cameras/ParallelCamera.h"
#include "views/cameras/QuorvaleCamera.h"
#include "views/cameras/ThumbCamera.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace cameratest;

namespace {

/// A placing that turns, scales and moves the model: object to world.
NonUniformTransform<3> placing() {
    NonUniformTransform<3> t(UniformTransform<3>::rotation(Angle::degrees(35), Vector<3>(1, 2, 3)));
    t *= UniformTransform<3>::scale(2.5);
    t *= UniformTransform<3>::translation(Vector<3>(0.5, -1, 2));
    return t;
}

struct RectangleCase {
    std::string name;
    NamedView view;
    IExtent<2> rectangle;
};

void PrintTo(const RectangleCase& c, std::ostream* os) {
    *os << c.name;
}

RectangleCase rectangleCases[] = {
    {"perspective", allViews[0], {100, 50, 500, 400}},
    {"parallel", allViews[1], {20, 30, 480, 350}},
    {"cubicFace0", allViews[2], {10, 20, 240, 200}},
    {"cubicFace1", allViews[2], {257 + 5, 0, 257 + 256, 256}},
    {"cubicFace4", allViews[2], {4 * 257 + 30, 40, 4 * 257 + 200, 230}},
    {"cubicFace5", allViews[2], {5 * 257, 0, 5 * 257 + 256, 256}},
};

class EachRectangle : public ::testing::TestWithParam<RectangleCase> {};

TEST_P(EachRectangle, ModelPointsLandOnTheImagesPixelsAndCodes) {
    const RectangleCase& c = GetParam();
    const ViewProj proj(c.view.params, c.view.width, c.view.height);
    const NonUniformTransform<3> T = placing();
    std::mt19937 random(77);
    std::uniform_int_distribution<int> px(c.rectangle.lo().x, c.rectangle.hi().x);
    std::uniform_int_distribution<int> py(c.rectangle.lo().y, c.rectangle.hi().y);
    std::uniform_real_distribution<double> code(1e5, 4294967294.0);

    std::vector<Point<3>> pixels;
    Extent<3> model;
    for (int i = 0; i < 300; ++i) {
        const Point<3> pixel(px(random), py(random), std::floor(code(random)));
        pixels.push_back(pixel);
        model += proj.worldFromPixelPoint(pixel) / T;
    }
    // Part of the model nearer than nearDepth: a parallel camera shifts its depths.
    model += proj.worldFromPixelPoint(Point<3>(c.rectangle.lo().x, c.rectangle.lo().y, -2e9)) / T;

    const QuorvaleCamera camera(T, c.view.params, c.view.width, c.view.height, model, c.rectangle);
    EXPECT_EQ(camera.height(), c.rectangle.height());
    for (const Point<3>& pixel : pixels) {
        const Point<3> object = proj.worldFromPixelPoint(pixel) / T;
        const Point<3> screen = camera.project(object);
        ASSERT_NEAR(screen.x() + c.rectangle.lo().x, pixel.x(), 1e-6) << c.name;
        ASSERT_NEAR(screen.y() + c.rectangle.lo().y, pixel.y(), 1e-6) << c.name;
        ASSERT_NEAR(double(camera.depthCode(screen.z())), pixel.z(), 1.0) << c.name;
        ASSERT_TRUE(camera.inFront(object));
        const Point<3> back = camera.unproject(screen);
        ASSERT_NEAR(distance(back, object), 0, 1e-9 * (1 + toVector(object).length()));
    }
    if (!camera.perspective()) {
        for (int i = 0; i < 8; ++i) {
            EXPECT_GE(camera.project(model.corner(i)).z(), -1e-9) << c.name;
        }
    }
}

TEST_P(EachRectangle, PlanesGoToTheScreenWithTheirSides) {
    const RectangleCase& c = GetParam();
    const ViewProj proj(c.view.params, c.view.width, c.view.height);
    // The model's origin at a visible point, so that the plane's foot and the points a
    // hundred units out along its normal, away from the eye, are all in front of it.
    const Point<3> target =
        proj.worldFromPixel((c.rectangle.lo().x + c.rectangle.hi().x) / 2,
                            (c.rectangle.lo().y + c.rectangle.hi().y) / 2, 2000000000u);
    NonUniformTransform<3> T = placing();
    T *= UniformTransform<3>::translation(target - (Point<3>::m_origin * T));
    Extent<3> model;
    model += proj.worldFromPixel(c.rectangle.lo().x, c.rectangle.lo().y, 0) / T;
    model += proj.worldFromPixel(c.rectangle.hi().x, c.rectangle.hi().y, depth::farCode) / T;
    const QuorvaleCamera camera(T, c.view.params, c.view.width, c.view.height, model, c.rectangle);

    const Point<3> origin = Point<3>::m_origin;
    const Vector<3> away = (origin - c.view.params.eye / T).unit();
    const Vector<3> e1 = cross(away, Vector<3>(0.3, 1, 0.2)).unit();
    const Vector<3> e2 = cross(away, e1);
    for (const Vector<3>& normal : {away + e1 * 0.3, away - e2 * 0.4}) {
        const Plane plane(normal, origin);
        const Plane image = camera.transformPlane(plane);
        const Point<3> on = camera.project(origin + cross(normal, e1).unit() * 0.01);
        const double scale = distance(camera.project(origin), on);
        EXPECT_NEAR(image.distanceTo(on), 0, 1e-6 * scale) << c.name;
        EXPECT_GT(image.distanceTo(camera.project(origin + plane.normal() * 0.01)), 0) << c.name;
        EXPECT_LT(image.distanceTo(camera.project(origin - plane.normal() * 0.01)), 0) << c.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Rectangles, EachRectangle, ::testing::ValuesIn(rectangleCases),
                         [](const auto& info) { return info.param.name; });

TEST(QuorvaleCamera, FacingAndInFrontFollowTheEye) {
    const NonUniformTransform<3> T = placing();
    const Extent<3> model(Point<3>(-1, -1, -1), Point<3>(1, 1, 1));

    const ViewParams pv = perspectiveRecord();
    const QuorvaleCamera perspective(T, pv, 641, 480, model, IExtent<2>(0, 0, 640, 479));
    const Point<3> eye = pv.eye / T;
    const Vector<3> ahead = pv.zAxis.unit() / T;
    EXPECT_TRUE(perspective.inFront(eye + ahead * 3));
    EXPECT_FALSE(perspective.inFront(eye - ahead * 3));
    // A plane between the eye and the scene, facing the eye, and the same plane reversed.
    const Plane screen(-ahead, eye + ahead * 5);
    EXPECT_TRUE(perspective.facing(screen));
    EXPECT_FALSE(perspective.facing(-screen));

    const ViewParams lv = parallelRecord();
    const QuorvaleCamera parallel(T, lv, 500, 377, model, IExtent<2>(0, 0, 499, 376));
    const Vector<3> along = lv.zAxis.unit() / T;
    EXPECT_TRUE(parallel.inFront(lv.eye / T - along * 100));
    EXPECT_TRUE(parallel.facing(Plane(-along, Point<3>(1, 2, 3))));
    EXPECT_FALSE(parallel.facing(Plane(along, Point<3>(1, 2, 3))));
}

TEST(QuorvaleCamera, RefusesWhatItCannotDraw) {
    const NonUniformTransform<3> T;
    const Extent<3> model(Point<3>(-1, -1, -1), Point<3>(1, 1, 1));
    ViewParams unknown = perspectiveRecord();
    unknown.viewCode = 5;
    EXPECT_THROW(QuorvaleCamera(T, unknown, 100, 100, model, IExtent<2>(0, 0, 9, 9)),
                 TQL::TqlError);
    // A rectangle across the edge of faces 1 and 2.
    EXPECT_THROW(QuorvaleCamera(T, cubicRecord(), 6 * 257, 257, model,
                                IExtent<2>(2 * 257 - 10, 0, 2 * 257 + 10, 20)),
                 TQL::TqlError);
}

TEST(TransformCamera, DepthCodesAreLimitedAndRounded) {
    const NonUniformTransform<3> identity;
    // A parallel camera with one code per unit of z, from 0.
    const TransformCamera linear(identity, 10, 0, 4294967294.0, false, Point<3>(),
                                 Vector<3>(0, 0, 1), 0);
    // A perspective one from the eye to depth 1: z = -1 / depth.
    const TransformCamera perspective(identity, 10, 0, 1, true, Point<3>(), Vector<3>(0, 0, 1), 0);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        const TransformCamera& camera;
        double z;
        std::uint32_t code;
    } cases[] = {
        {linear, 0.0, 0},
        {linear, -3, 0},
        {linear, nan, 0},
        {linear, 1234.4, 1234},
        {linear, 1234.6, 1235},
        {linear, 4294967294.0, 4294967294u},
        {linear, 4294967295.0, 4294967295u},
        {linear, 1e15, 4294967295u},
        {perspective, -1, 4294967294u},   // depth 1: the far code
        {perspective, -2, 2147483647u},   // depth 0.5
        {perspective, -0.5, 4294967295u}, // depth 2: beyond far
        {perspective, 0.0, 0},            // on the eye's plane
        {perspective, 1, 0},              // behind the eye
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.camera.depthCode(c.z), c.code) << c.z;
    }
}

TEST(ParallelCamera, ItsViewRecordGivesTheSamePixelsAndCodes) {
    const Point<3> eye(4, -20, 12);
    const Point<3> target(1, 3, 0.5);
    const ParallelCamera camera(640, 480, eye, Angle::degrees(75), Angle::degrees(-25), 30, 20,
                                target, 15);
    const ViewProj proj(camera.viewParams(), 640, 480);
    ASSERT_EQ(proj.viewType(), ViewProj::parallelView);
    std::mt19937 random(5);
    std::uniform_real_distribution<double> spread(-8, 8);
    for (int i = 0; i < 200; ++i) {
        const Point<3> p = target + Vector<3>(spread(random), spread(random), spread(random));
        const Point<3> screen = camera.project(p);
        const Point<3> pixel = proj.pixelFromWorld(p);
        ASSERT_NEAR(screen.x(), pixel.x(), 1e-6);
        ASSERT_NEAR(screen.y(), pixel.y(), 1e-6);
        ASSERT_NEAR(double(camera.depthCode(screen.z())), pixel.z(), 1.0);
        ASSERT_NEAR(distance(camera.unproject(screen), p), 0, 1e-9);
    }
    // The target lies halfway between the depths, the margin on either side.
    EXPECT_NEAR(double(camera.depthCode(camera.project(target).z())), 4294967294.0 / 2, 1.0);
    // Fitted: 30 by 20 world units into 640 by 480 pixels.
    EXPECT_DOUBLE_EQ(camera.scale(), 640.0 / 30);
}

TEST(ParallelCamera, PlanesAndFacing) {
    const Ray axes(Point<3>(), Angle::degrees(-40), Angle::degrees(-60));
    const ParallelCamera camera(300, 200, Point<3>(0, 0, 10), axes, 12, 8, Point<3>(0, 0, 0), 5);
    const Plane floor;
    EXPECT_TRUE(camera.facing(floor));
    EXPECT_FALSE(camera.facing(-floor));
    EXPECT_TRUE(camera.inFront(Point<3>(0, 0, 100)));
    const Plane image = camera.transformPlane(floor);
    for (const Point<3>& p : {Point<3>(1, 2, 0), Point<3>(-3, 0.5, 0), Point<3>(0, 0, 0)}) {
        EXPECT_NEAR(image.distanceTo(camera.project(p)), 0, 1e-9);
    }
    EXPECT_GT(image.distanceTo(camera.project(Point<3>(0, 0, 1))), 0);
}

TEST(ThumbCamera, FlatModelsAreShownFromAboveWhenAllowed) {
    const Extent<3> slab(Point<3>(-5, -4, 0), Point<3>(5, 4, 0.2));
    const Plane top(Vector<3>(0, 0, 1), Point<3>(0, 0, 0.2));
    const ThumbPlacing placing;
    struct Case {
        bool allow;
        bool seesTop;
    } cases[] = {{true, true}, {false, false}};
    for (const Case& c : cases) {
        const ThumbCamera camera(120, 90, placing, slab, c.allow);
        EXPECT_EQ(camera.facing(top), c.seesTop) << c.allow;
        Extent<2> screen;
        for (int i = 0; i < 8; ++i) {
            const Point<3> p = camera.project(slab.corner(i));
            ASSERT_TRUE(camera.inFront(slab.corner(i)));
            screen += Point<2>(p.x(), p.y());
        }
        // Fitted with a pixel to spare, touching on one axis.
        EXPECT_GE(screen.lo().x(), 1 - 1e-9);
        EXPECT_GE(screen.lo().y(), 1 - 1e-9);
        EXPECT_LE(screen.hi().x(), 119 + 1e-9);
        EXPECT_LE(screen.hi().y(), 89 + 1e-9);
        const Vector<2> size = screen.size();
        EXPECT_TRUE(std::fabs(size.x() - 118) < 1e-9 || std::fabs(size.y() - 88) < 1e-9);
        // From above the slab fills the picture; edge on it is a sliver.
        if (c.seesTop) {
            EXPECT_GT(size.y() / size.x(), 0.5);
        } else {
            EXPECT_LT(size.y() / size.x(), 0.2);
        }
    }
}

TEST(Ray, AxesFromAnglesFormTheViewFrame) {
    struct Case {
        double azimuth, altitude;
        Vector<3> x, y, z;
    } cases[] = {
        {0, 0, {0, -1, 0}, {0, 0, 1}, {1, 0, 0}},
        {90, 0, {1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
        {90, -90, {1, 0, 0}, {0, 1, 0}, {0, 0, -1}},
        {180,
         45,
         {0, 1, 0},
         {std::sqrt(0.5), 0, std::sqrt(0.5)},
         {-std::sqrt(0.5), 0, std::sqrt(0.5)}},
    };
    for (const Case& c : cases) {
        const Ray r(Point<3>(1, 2, 3), Angle::degrees(c.azimuth), Angle::degrees(c.altitude));
        EXPECT_NEAR((r.x() - c.x).length(), 0, 1e-12) << c.azimuth << " " << c.altitude;
        EXPECT_NEAR((r.y() - c.y).length(), 0, 1e-12) << c.azimuth << " " << c.altitude;
        EXPECT_NEAR((r.z() - c.z).length(), 0, 1e-12) << c.azimuth << " " << c.altitude;
    }
    const Ray copied(Point<3>(), Vector<3>(3, 0, 0), Vector<3>(0, 0, 2), Vector<3>(0, 5, 0));
    EXPECT_EQ(copied.y(), Vector<3>(0, 0, 1));
}

TEST(Units, MillimetresOfEachUnit) {
    // Related by their definitions: an inch is 25.4 mm, a foot 12 inches, a thou a
    // thousandth of an inch.
    EXPECT_DOUBLE_EQ(unitMillimetres(7), 25.4);
    EXPECT_DOUBLE_EQ(unitMillimetres(8), 12 * unitMillimetres(7));
    EXPECT_DOUBLE_EQ(unitMillimetres(6) * 1000, unitMillimetres(7));
    EXPECT_DOUBLE_EQ(unitMillimetres(1) * 1000, unitMillimetres(2));
    EXPECT_DOUBLE_EQ(unitMillimetres(3), 10 * unitMillimetres(2));
    EXPECT_DOUBLE_EQ(unitMillimetres(4), 100 * unitMillimetres(3));
    EXPECT_DOUBLE_EQ(unitMillimetres(5), 1000 * unitMillimetres(4));
    EXPECT_EQ(unitMillimetres(0), 1);
    EXPECT_EQ(unitMillimetres(9), 1);
}

} // namespace
