// Surfaces of a document through its view: planes fitted to synthetic scenes whose depth
// codes come from known world planes.

#include "image/ZmapDocument.h"

#include "CameraTestViews.h"
#include "support/SyntheticScene.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <ostream>

using namespace cameratest;

namespace {

constexpr MaterialId floorMaterial = 1;
constexpr MaterialId wallMaterial = 2;
constexpr MaterialId sideMaterial = 3;
constexpr MaterialId boxMaterial = 4;

/// A room corner with a box on the floor; the floor is z = 0, the eye 1.6 above it.
test::SyntheticScene room() {
    test::SyntheticScene scene;
    scene.add(Plane(), floorMaterial);
    // Walls 3 high, with sky above.
    const Extent<3> walls(Point<3>(-100, -100, 0), Point<3>(100, 100, 3));
    scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 14, 0)), wallMaterial, walls);
    scene.add(Plane(Vector<3>(-1, 0.2, 0), Point<3>(6, 0, 0)), sideMaterial, walls);
    scene.addBox(Extent<3>(Point<3>(-3.5, 4, 0), Point<3>(-0.5, 7.5, 1.2)), boxMaterial);
    return scene;
}

ViewParams roomPerspective() {
    return makeRecord({.eye = {0.3, 0, 1.6},
                       .azimuth = 85,
                       .altitude = -12,
                       .windowLo = {-1, 0.75, 1},
                       .windowHi = {1, -0.75, 1}});
}

ViewParams roomParallel() {
    return makeRecord({.viewCode = ViewParams::parallelCode,
                       .eye = {0, 2, 9},
                       .azimuth = 75,
                       .altitude = -38,
                       .windowLo = {-9, 6, 0},
                       .windowHi = {9, -6, 0},
                       .shear = {0.1, -0.05, 1},
                       .nearDepth = 1,
                       .farDepth = 60});
}

ViewParams roomCube() {
    return makeRecord(
        {.viewCode = ViewParams::cubicCode, .eye = {0.3, 8, 1.6}, .azimuth = 80, .altitude = 0});
}

struct Room {
    std::unique_ptr<test::TestDocument> document;
    test::SyntheticScene scene;
};

Room render(const ViewParams& view, std::int32_t width, std::int32_t height,
            test::SyntheticScene scene = room()) {
    Room r{test::makeTestDocument(width, height), std::move(scene)};
    r.document->setViewParams(view);
    r.scene.render(*r.document);
    return r;
}

/// The angle between two unit normals, whichever way they face.
double angleBetween(const Vector<3>& a, const Vector<3>& b) {
    return std::asin(std::min(1.0, cross(a.unit(), b.unit()).length()));
}

/// Along a pixel's ray, away from the eye.
Vector<3> awayFromEye(const ViewProj& view, std::int32_t x, std::int32_t y) {
    return view.worldFromPixel(x, y, 1000000000u) - view.worldFromPixel(x, y, 0);
}

/// The pieces seen over the windows that planeAt samples: the piece if there is one, -1 if
/// the windows see sky or more than one piece. `faces` counts the cube faces reached.
int pieceOver(const Room& room, std::int32_t x, std::int32_t y, int* faces = nullptr) {
    const ViewProj& view = *room.document->viewProj();
    int piece = -2;
    int reached = 0;
    const auto visit = [&](const IExtent<2>& w) {
        if (w.degenerate()) {
            return;
        }
        ++reached;
        for (std::int32_t py = w.lo().y; py <= w.hi().y; ++py) {
            for (std::int32_t px = w.lo().x; px <= w.hi().x; ++px) {
                double code = 0;
                const int p = room.scene.trace(view, px, py, code);
                piece = (piece == -2 || piece == p) ? p : -1;
            }
        }
    };
    if (view.viewType() == ViewProj::cubicView) {
        for (int f = 0; f < 6; ++f) {
            visit(view.faceSize().faceWindow(x, y, planeFitRadius, f));
        }
    } else {
        visit(IExtent<2>(x - planeFitRadius, y - planeFitRadius, x + planeFitRadius,
                         y + planeFitRadius) &
              IExtent<2>(0, 0, room.document->width() - 1, room.document->height() - 1));
    }
    if (faces) {
        *faces = reached;
    }
    return piece;
}

struct ViewCase {
    const char* name;
    ViewParams view;
    std::int32_t width, height;
};

void PrintTo(const ViewCase& c, std::ostream* os) {
    *os << c.name;
}

class EachRoomView : public ::testing::TestWithParam<ViewCase> {};

TEST_P(EachRoomView, PlanesOfFaceInteriorsAreTheScenesPlanes) {
    const ViewCase& c = GetParam();
    const Room r = render(c.view, c.width, c.height);
    const ViewProj& view = *r.document->viewProj();
    std::vector<int> tested(r.scene.pieces().size());
    int acrossEdges = 0;
    for (std::int32_t y = 0; y < c.height; y += 5) {
        for (std::int32_t x = 0; x < c.width; x += 5) {
            int faces = 0;
            const int piece = pieceOver(r, x, y, &faces);
            if (piece < 0) {
                continue;
            }
            bool noDepth = true;
            const Plane plane = r.document->planeAt(x, y, &noDepth);
            ASSERT_FALSE(noDepth);
            const Plane& truth = r.scene.pieces()[piece].plane;
            ASSERT_LT(angleBetween(plane.normal(), truth.normal()), 1e-6)
                << c.name << " at " << x << "," << y << " piece " << piece;
            EXPECT_GT(dot(plane.normal(), awayFromEye(view, x, y)), 0)
                << c.name << " at " << x << "," << y;
            EXPECT_NEAR(plane.distanceTo(r.document->worldAt(x, y)), 0, 1e-9);
            ++tested[piece];
            acrossEdges += faces > 1;
        }
    }
    // The floor and at least two more: walls or faces of the box.
    EXPECT_GT(tested[0], 10) << c.name;
    EXPECT_GE(std::count_if(tested.begin() + 1, tested.end(), [](int n) { return n >= 3; }), 2)
        << c.name;
    if (view.viewType() == ViewProj::cubicView) {
        EXPECT_GT(acrossEdges, 10) << "fits across face edges";
    }
}

TEST_P(EachRoomView, LocalPlanesFaceAwayFromTheEyeAtBordersAndBesideSky) {
    const ViewCase& c = GetParam();
    const Room r = render(c.view, c.width, c.height);
    const ViewProj& view = *r.document->viewProj();
    int tested = 0;
    for (std::int32_t y = 0; y < c.height; y += 3) {
        for (std::int32_t x = 0; x < c.width; x += 3) {
            // Only pixels whose four neighbours see the centre's piece, or nothing.
            double code = 0;
            const int piece = r.scene.trace(view, x, y, code);
            if (piece < 0) {
                continue;
            }
            bool plain = true;
            for (const IVector<2> d :
                 {IVector<2>(-1, 0), IVector<2>(1, 0), IVector<2>(0, -1), IVector<2>(0, 1)}) {
                std::int32_t nx = x + d.x, ny = y + d.y;
                if (view.viewType() == ViewProj::cubicView) {
                    nx = x, ny = y;
                    const FaceSize& f = view.faceSize();
                    d.x<0 ? f.stepLeft(nx, ny) : d.x> 0 ? f.stepRight(nx, ny)
                    : d.y < 0                           ? f.stepUp(nx, ny)
                                                        : f.stepDown(nx, ny);
                } else if (nx < 0 || ny < 0 || nx >= c.width || ny >= c.height) {
                    continue;
                }
                const int p = r.scene.trace(view, nx, ny, code);
                plain = plain && (p == piece || p < 0);
            }
            if (!plain) {
                continue;
            }
            const Plane plane = r.document->localPlaneAt(x, y);
            ASSERT_LT(angleBetween(plane.normal(), r.scene.pieces()[piece].plane.normal()), 1e-4)
                << c.name << " at " << x << "," << y;
            ASSERT_GT(dot(plane.normal(), awayFromEye(view, x, y)), 0)
                << c.name << " at " << x << "," << y;
            ++tested;
        }
    }
    EXPECT_GT(tested, 100);
}

ViewCase roomViews[] = {
    {"perspective", roomPerspective(), 240, 180},
    {"parallel", roomParallel(), 240, 160},
    {"cubic", roomCube(), 6 * 96, 96},
};

INSTANTIATE_TEST_SUITE_P(Views, EachRoomView, ::testing::ValuesIn(roomViews),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PlaneAt, KeepsToTheCentresMaterial) {
    // Beyond y = 8 the floor rises by half a thousandth: close enough to pass for the same
    // surface, so only its material keeps it out of a fit on the floor.
    const Plane ramp(Vector<3>(0, -0.0005, 1), Point<3>(0, 8, 0));
    const auto scene = [&](MaterialId rampMaterial) {
        test::SyntheticScene s;
        s.add(Plane(), floorMaterial, Extent<3>(Point<3>(-50, -50, -1), Point<3>(50, 8, 1)));
        s.add(ramp, rampMaterial, Extent<3>(Point<3>(-50, 8, -1), Point<3>(50, 50, 1)));
        return s;
    };
    const Room marked = render(roomPerspective(), 240, 180, scene(5));
    const Room unmarked = render(roomPerspective(), 240, 180, scene(floorMaterial));
    const ViewProj& view = *marked.document->viewProj();
    int tested = 0;
    for (std::int32_t y = planeFitRadius; y < 180 - planeFitRadius; ++y) {
        const std::int32_t x = 120;
        double code = 0;
        if (marked.scene.trace(view, x, y, code) != 0 ||
            marked.scene.trace(view, x, y - 3, code) != 1) {
            continue; // a floor pixel with the ramp three rows up, inside the window
        }
        EXPECT_LT(angleBetween(marked.document->planeAt(x, y).normal(), Vector<3>(0, 0, 1)), 1e-6);
        EXPECT_GT(angleBetween(unmarked.document->planeAt(x, y).normal(), Vector<3>(0, 0, 1)),
                  1e-5);
        ++tested;
    }
    EXPECT_GT(tested, 0);
}

TEST(PlaneAt, IsolatedPixelGivesTheLocalPlane) {
    Room r = render(roomPerspective(), 240, 180);
    const ViewProj& view = *r.document->viewProj();
    double code = 0;
    std::int32_t x = 120, y = 170;
    ASSERT_EQ(r.scene.trace(view, x, y, code), 0);
    TileHandle hold;
    *r.document->matWrite(x, y, hold) = 99;
    hold.reset();
    const Plane fitted = r.document->planeAt(x, y);
    const Plane local = r.document->localPlaneAt(x, y);
    EXPECT_EQ(fitted.normal(), local.normal());
    EXPECT_EQ(fitted.distanceFromOrigin(), local.distanceFromOrigin());
    EXPECT_LT(angleBetween(local.normal(), Vector<3>(0, 0, 1)), 1e-4);
}

TEST(PlaneAt, PixelsWithoutDepthHaveTheBackgroundPlane) {
    // Sky above the horizon: the ground of the picture, through the ends of the bottom row
    // at the background code and level in the view's frame, facing down.
    const auto expectGround = [](const ViewParams& record, std::int32_t width,
                                 std::int32_t height) {
        const Room r = render(record, width, height);
        const ZmapDocument& document = *r.document;
        const ViewProj& view = *document.viewProj();
        const Plane ground = document.defaultPlane();
        const Vector<3> up = record.yAxis.unit();
        EXPECT_NEAR(dot(ground.normal(), up), -1, 1e-12);
        const std::int32_t right =
            view.viewType() == ViewProj::cubicView ? view.faceSize().size() - 1 : width - 1;
        for (const std::int32_t x : {0, right / 3, right}) {
            const Point<3> p = view.worldFromPixel(x, height - 1, depth::noDepth);
            EXPECT_NEAR(ground.distanceTo(p), 0, 1e-9 * toVector(p).length()) << x;
        }
        EXPECT_LT(ground.distanceTo(record.eye), 0) << "the eye is above the ground";
        return ground;
    };

    const Plane ground = expectGround(roomPerspective(), 240, 180);
    const Room room = render(roomPerspective(), 240, 180);
    bool noDepth = false;
    const Plane sky = room.document->planeAt(120, 0, &noDepth);
    EXPECT_TRUE(noDepth);
    EXPECT_EQ(sky.normal(), ground.normal());
    EXPECT_EQ(sky.distanceFromOrigin(), ground.distanceFromOrigin());
    EXPECT_EQ(room.document->localPlaneAt(120, 0).normal(), ground.normal());

    // A level camera's ground is the world's horizontal, below the eye by the height of
    // the bottom row's ray where it has the background code.
    const ViewParams level = makeRecord({.eye = {0.3, 0, 1.6},
                                         .azimuth = 20,
                                         .windowLo = {-1, 0.75, 1},
                                         .windowHi = {1, -0.75, 1}});
    const Plane levelGround = expectGround(level, 240, 180);
    EXPECT_NEAR(levelGround.normal().z(), -1, 1e-12);
    const double distance =
        level.nearDepth + 4294967295.0 * (level.farDepth - level.nearDepth) / 4294967294.0;
    EXPECT_NEAR(-levelGround.distanceFromOrigin(), 1.6 - 0.75 * distance, 1e-9);
    expectGround(roomParallel(), 240, 160);
    expectGround(roomCube(), 6 * 32, 32);

    // In a cube image a pixel without depth has the far plane of its face: face 4 looks
    // up.
    const Room cube = render(roomCube(), 6 * 32, 32);
    noDepth = false;
    const Plane up = cube.document->planeAt(4 * 32 + 16, 16, &noDepth);
    EXPECT_TRUE(noDepth);
    EXPECT_NEAR(std::fabs(dot(up.normal(), roomCube().yAxis.unit())), 1, 1e-9);
}

TEST(PlaneAt, FromTheModelReadsTheOriginals) {
    Room r = render(roomPerspective(), 240, 180);
    TileHandle hold;
    *r.document->zWrite(120, 170, hold) = depth::noDepth;
    hold.reset();
    bool noDepth = false;
    r.document->planeAt(120, 170, &noDepth);
    EXPECT_TRUE(noDepth);
    const Plane original = r.document->planeAt(120, 170, &noDepth, true);
    EXPECT_FALSE(noDepth);
    EXPECT_LT(angleBetween(original.normal(), Vector<3>(0, 0, 1)), 1e-6);
}

TEST(ZmapDocumentView, WorldPointsOfPixels) {
    Room r = render(roomPerspective(), 240, 180);
    const ViewProj& view = *r.document->viewProj();
    EXPECT_EQ(r.document->worldAt(30, 150), view.worldFromPixel(30, 150, r.document->zAt(30, 150)));
    EXPECT_EQ(r.document->worldFromCode(30, 150, 12345), view.worldFromPixel(30, 150, 12345));
    // The floor pixel's point is on the floor.
    EXPECT_NEAR(r.document->worldAt(120, 170).z(), 0, 1e-6);

    // A new record makes a new conversion; holders of the old one keep it.
    const TQL::Handle<ViewProj> old = r.document->viewProj();
    r.document->setViewParams(roomParallel());
    EXPECT_NE(r.document->viewProj().get(), old.get());
    EXPECT_EQ(r.document->viewProj()->viewType(), ViewProj::parallelView);
    EXPECT_EQ(old->viewType(), ViewProj::perspectiveView);

    // Without a view (an image too small for one): the origin.
    auto tiny = test::makeTestDocument(1, 1);
    tiny->setViewParams(roomPerspective());
    EXPECT_EQ(tiny->worldAt(0, 0), Point<3>::m_origin);
    EXPECT_EQ(tiny->worldFromCode(0, 0, 5), Point<3>::m_origin);
}

TEST(ZmapDocumentView, FollowsTheSizeAndGoesWithTheDocument) {
    Room r = render(roomPerspective(), 240, 180);
    ASSERT_EQ(r.document->setSize(120, 90), status::ok);
    ASSERT_TRUE(r.document->viewProj());
    EXPECT_EQ(r.document->viewProj()->width(), 120);
    EXPECT_EQ(r.document->viewProj()->height(), 90);
    r.document->clearDocument();
    EXPECT_FALSE(r.document->viewProj());
}

} // namespace
