// The texture laid on the scene in perspective: real sizes on an oblique wall, the fold
// over a corner, the planes kept and not folded, the footprint at the image's edge and on
// a floor that recedes to the horizon, and the seams of a cube image.

#include "texture/TextureToolPlane.h"

#include "TextureSceneSupport.h"
#include "support/RoomScene.h"
#include "views/cameras/FaceSize.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

using textest::checker;
using textest::paintAll;
using textest::renderScene;

constexpr MaterialId floorId = 1;
constexpr MaterialId wallId = 2;
constexpr MaterialId sideId = 3;

/// A floor, a back wall (y = 6) and a side wall (x = 3) meeting it at a corner, both 3
/// high, so the top rows see sky; seen level from (0, 0, 1.6) along +y.
std::unique_ptr<test::TestDocument> cornerRoom() {
    test::SyntheticScene scene;
    const Extent<3> walls(Point<3>(-50, -50, 0), Point<3>(50, 50, 3));
    scene.add(Plane(), floorId);
    scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 6, 0)), wallId, walls);
    scene.add(Plane(Vector<3>(-1, 0, 0), Point<3>(3, 0, 0)), sideId, walls);
    return renderScene(scene, 192, 144, {0, 0, 1.6}, 90, 0);
}

/// One wall 30 degrees off frontal, 5 away, filling the view.
std::unique_ptr<test::TestDocument> obliqueWall() {
    test::SyntheticScene scene;
    scene.add(Plane(Vector<3>(-0.5, std::sqrt(0.75), 0), Point<3>(0, 5, 0)), wallId);
    return renderScene(scene, 256, 192, {0, 0, 1.6}, 90, 0);
}

IPoint<2> pixelOf(const test::TestDocument& document, const Point<3>& world) {
    const Point<3> p = document.viewProj()->pixelFromWorld(world);
    return IPoint<2>(static_cast<std::int32_t>(std::lround(p.x())),
                     static_cast<std::int32_t>(std::lround(p.y())));
}

tex::PlanePlacing placing(int mode, double pixelMillimetres) {
    tex::PlanePlacing p;
    p.planeMode = mode;
    p.pixelWidth = p.pixelHeight = pixelMillimetres;
    return p;
}

/// World distances between successive places along a line of pixels where the painted grey
/// crosses the middle, each place found between two pixel centres by linear interpolation;
/// only those at least `minPixels` apart, which a pixel's error doesn't swamp.
std::vector<double> crossingSpacings(const textest::Painted& painted,
                                     const test::TestDocument& document, IPoint<2> from,
                                     IPoint<2> step, int count, double minPixels) {
    std::vector<Point<3>> crossings;
    std::vector<double> where;
    IPoint<2> p = from;
    for (int k = 0; k + 1 < count; ++k) {
        const IPoint<2> q(p.x + step.x, p.y + step.y);
        const double a = painted.grey(p.x, p.y) - 127.5;
        const double b = painted.grey(q.x, q.y) - 127.5;
        if ((a < 0) != (b < 0)) {
            const double t = a / (a - b);
            const Point<3> wa = document.worldAt(p.x, p.y);
            const Point<3> wb = document.worldAt(q.x, q.y);
            crossings.push_back(interp(wa, wb, t));
            where.push_back(k + t);
        }
        p = q;
    }
    std::vector<double> spacing;
    for (std::size_t i = 1; i < crossings.size(); ++i) {
        if (where[i] - where[i - 1] >= minPixels) {
            spacing.push_back(distance(crossings[i - 1], crossings[i]));
        }
    }
    return spacing;
}

/// The corner room seen through a view of the given kind (perspective or parallel).
std::unique_ptr<test::TestDocument> cornerRoomThrough(std::uint32_t viewCode) {
    test::SyntheticScene scene;
    const Extent<3> walls(Point<3>(-50, -50, 0), Point<3>(50, 50, 3));
    scene.add(Plane(), floorId);
    scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 6, 0)), wallId, walls);
    scene.add(Plane(Vector<3>(-1, 0, 0), Point<3>(3, 0, 0)), sideId, walls);
    const bool parallel = viewCode == ViewParams::parallelCode;
    const double half = parallel ? 4.0 : 1.0;
    const ViewParams record = test::roomRecord(
        viewCode, {0, 0, 1.6}, 80, -8, {-half, 0.75 * half, 1}, {half, -0.75 * half, 1}, 0.1, 200);
    auto document = test::makeTestDocument(150, 112);
    document->setViewParams(record);
    scene.render(*document);
    return document;
}

/// A pixel's raster point and footprint worked out the long way, through world points:
/// each edge's point is taken to the world by the view and to the raster by the tool.
void plainSample(const tex::TextureToolPlane& tool, const test::TestDocument& document,
                 std::int32_t x, std::int32_t y, Point<2>& point, double& footprint) {
    const ViewProj& view = *document.viewProj();
    auto raster = [&](double px, double py, double code) {
        return tool.rasterPoint(view.worldFromPixelPoint(Point<3>(px, py, code)));
    };
    auto has = [](std::uint32_t c) { return c < depth::farCode; };
    const std::uint32_t own = document.zAt(x, y);
    const double code = has(own) ? own : depth::farCode;
    point = raster(x, y, code);
    auto halfStep = [&](int dx, int dy) {
        for (const int sign : {1, -1}) {
            const std::int32_t nx = x + sign * dx;
            const std::int32_t ny = y + sign * dy;
            if (nx < 0 || ny < 0 || nx >= document.width() || ny >= document.height()) {
                continue;
            }
            const std::uint32_t other = document.zAt(nx, ny);
            if (has(own) && has(other) && document.matAt(nx, ny) == document.matAt(x, y)) {
                return (raster(x + 0.5 * sign * dx, y + 0.5 * sign * dy, 0.5 * (code + other)) -
                        point) *
                       static_cast<double>(sign);
            }
        }
        return raster(x + 0.5 * dx, y + 0.5 * dy, code) - point;
    };
    const Vector<2> hx = halfStep(1, 0);
    const Vector<2> hy = halfStep(0, 1);
    footprint = tex::balanceFootprint(2 * (std::abs(hx.x()) + std::abs(hy.x())),
                                      2 * (std::abs(hx.y()) + std::abs(hy.y())));
}

TEST(TextureToolPlane, EveryPixelReadsWhereItsWorldPointLies) {
    for (const std::uint32_t viewCode : {ViewParams::perspectiveCode, ViewParams::parallelCode}) {
        SCOPED_TRACE(viewCode == ViewParams::parallelCode ? "parallel" : "perspective");
        auto document = cornerRoomThrough(viewCode);
        const IPoint<2> click = pixelOf(*document, {1, 6, 1.2});
        ASSERT_EQ(document->matAt(click.x, click.y), wallId);
        auto texture = checker(64, 64, 8);
        tex::TextureToolPlane tool(texture, placing(tex::PlanePlacing::tangent, 40),
                                   tex::TextureOutput{});
        tool.start(click.x, click.y, *document);

        // Point and footprint against the long way, pixel by pixel: surfaces, their
        // borders, the sky and the image's edges.
        int materials[4] = {0, 0, 0, 0};
        for (std::int32_t y = 0; y < document->height(); ++y) {
            for (std::int32_t x = 0; x < document->width(); ++x) {
                Point<2> fast, plain;
                double fastFootprint = 0, plainFootprint = 0;
                ASSERT_TRUE(tool.pixelSample(*document, x, y, fast, fastFootprint));
                plainSample(tool, *document, x, y, plain, plainFootprint);
                const double scale = std::max({1.0, std::abs(plain.x()), std::abs(plain.y())});
                ASSERT_NEAR(fast.x(), plain.x(), 1e-5 * scale) << x << "," << y;
                ASSERT_NEAR(fast.y(), plain.y(), 1e-5 * scale) << x << "," << y;
                ASSERT_NEAR(fastFootprint, plainFootprint, 1e-4 * std::max(1.0, plainFootprint))
                    << x << "," << y;
                ++materials[std::min<int>(document->matAt(x, y), 3)];
            }
        }
        for (int m = 1; m < 4; ++m) {
            EXPECT_GT(materials[m], 200) << "material " << m;
        }

        // Painting in spans that stop at tile borders, some pixels without coverage: each
        // covered pixel shows the texture at its point and footprint, the rest keep their
        // colour and coverage.
        const std::int32_t w = document->width();
        std::vector<ColourPOD> colour(maxSpanLength), base(maxSpanLength, ColourPOD{9, 9, 9});
        std::vector<float> alpha(maxSpanLength);
        for (std::int32_t y = 0; y < document->height(); ++y) {
            for (std::int32_t x0 = 0; x0 < w; x0 += 64) {
                const int n = std::min(64, w - x0);
                for (int i = 0; i < n; ++i) {
                    colour[i] = ColourPOD{9, 9, 9};
                    alpha[i] = (x0 + i + 3 * y) % 5 == 0 ? 0.0f : 0.5f;
                }
                Span span;
                span.document = document.get();
                span.x = x0;
                span.y = y;
                span.length = n;
                span.colour = colour.data();
                span.alpha = alpha.data();
                span.baseColour = base.data();
                span.sourceColour = base.data();
                const int first = y % 2 == 0 ? 0 : 5;
                const int last = y % 3 == 0 ? n : n - 4;
                tool.run(span, first, last);
                for (int i = 0; i < n; ++i) {
                    const std::int32_t x = x0 + i;
                    const bool covered = i >= first && i < last && (x + 3 * y) % 5 != 0;
                    if (!covered) {
                        ASSERT_EQ(colour[i], (ColourPOD{9, 9, 9})) << x << "," << y;
                        continue;
                    }
                    Point<2> p;
                    double fp = 0;
                    ASSERT_TRUE(tool.pixelSample(*document, x, y, p, fp));
                    const float u = static_cast<float>(p.x()), v = static_cast<float>(p.y());
                    const float f = static_cast<float>(fp);
                    std::uint8_t rgb[3];
                    float a = 0;
                    texture->sample(rgb, &a, &u, &v, &f, 1);
                    ASSERT_EQ(colour[i], (ColourPOD{rgb[0], rgb[1], rgb[2]})) << x << "," << y;
                    ASSERT_FLOAT_EQ(alpha[i], 0.5f * a) << x << "," << y;
                }
            }
        }
    }
}

TEST(TextureToolPlane, ARowGivesTheBitsOfItsPixelsOneByOne) {
    // A row is worked out two pixels at a time where it can; one pixel alone takes the plain
    // path. Both must agree to the bit, at surface borders, sky and the image's edges, in
    // rows of odd and even lengths starting anywhere.
    for (const std::uint32_t viewCode : {ViewParams::perspectiveCode, ViewParams::parallelCode}) {
        SCOPED_TRACE(viewCode == ViewParams::parallelCode ? "parallel" : "perspective");
        auto document = cornerRoomThrough(viewCode);
        const IPoint<2> click = pixelOf(*document, {1, 6, 1.2});
        tex::TextureToolPlane tool(checker(64, 64, 8), placing(tex::PlanePlacing::tangent, 40),
                                   tex::TextureOutput{});
        tool.start(click.x, click.y, *document);
        const std::int32_t w = document->width();
        float u[maxSpanLength], v[maxSpanLength], fp[maxSpanLength];
        for (std::int32_t y = 0; y < document->height(); ++y) {
            for (std::int32_t x0 = y % 3; x0 < w;) {
                const int n = std::min<int>(17 + y % 40, w - x0);
                ASSERT_TRUE(tool.rowSamples(*document, x0, y, n, u, v, fp));
                for (int k = 0; k < n; ++k) {
                    Point<2> p;
                    double f = 0;
                    ASSERT_TRUE(tool.pixelSample(*document, x0 + k, y, p, f));
                    ASSERT_EQ(u[k], static_cast<float>(p.x())) << x0 + k << "," << y;
                    ASSERT_EQ(v[k], static_cast<float>(p.y())) << x0 + k << "," << y;
                    ASSERT_EQ(fp[k], static_cast<float>(f)) << x0 + k << "," << y;
                }
                x0 += n;
            }
        }
        EXPECT_FALSE(tool.rowSamples(*document, 0, 0, maxSpanLength + 1, u, v, fp));
    }
}

TEST(TextureToolPlane, TangentCheckerHasItsRealSizeOnAnObliqueWall) {
    auto document = obliqueWall();
    // 64 texels of 62.5 mm: four squares of 16 texels, each 1 m. The click lands in the
    // middle of a square, so its row and column cross squares, not run along an edge.
    tex::PlanePlacing p = placing(tex::PlanePlacing::tangent, 62.5);
    p.hook = Point<2>(8, 8);
    tex::TextureToolPlane tool(checker(64, 64, 16), p, tex::TextureOutput{});
    tool.start(128, 96, *document);
    const textest::Painted painted = paintAll(tool, *document);

    const std::vector<double> across =
        crossingSpacings(painted, *document, {0, 96}, {1, 0}, 256, 10);
    const std::vector<double> down =
        crossingSpacings(painted, *document, {128, 0}, {0, 1}, 192, 10);
    ASSERT_GE(across.size(), 3u);
    ASSERT_GE(down.size(), 2u);
    for (double d : across) {
        EXPECT_NEAR(d, 1.0, 0.02);
    }
    for (double d : down) {
        EXPECT_NEAR(d, 1.0, 0.02);
    }
}

TEST(TextureToolPlane, WrappedFoldsOverACornerWithoutAJump) {
    auto document = cornerRoom();
    const IPoint<2> back = pixelOf(*document, {1, 6, 1.2});
    const IPoint<2> side = pixelOf(*document, {3, 4.5, 1.2});
    ASSERT_EQ(document->matAt(back.x, back.y), wallId);
    ASSERT_EQ(document->matAt(side.x, side.y), sideId);
    const Point<3> onCorner[] = {{3, 6, 0.4}, {3, 6, 1.6}, {3, 6, 2.7}};

    auto jumpAtCorner = [&](int mode) {
        tex::TextureToolPlane tool(checker(64, 64, 8), placing(mode, 25), tex::TextureOutput{});
        tool.start(back.x, back.y, *document);
        std::vector<Point<2>> before;
        for (const Point<3>& p : onCorner) {
            before.push_back(tool.rasterPoint(p));
        }
        tool.start(side.x, side.y, *document);
        double jump = 0;
        for (std::size_t i = 0; i < before.size(); ++i) {
            jump = std::max(jump, distance(before[i], tool.rasterPoint(onCorner[i])));
        }
        return jump;
    };
    // Along the corner the raster point is the same on both walls (in texels); without the
    // fold it jumps.
    EXPECT_LT(jumpAtCorner(tex::PlanePlacing::wrapped), 0.05);
    EXPECT_LT(jumpAtCorner(tex::PlanePlacing::autowrapped), 0.05);
    EXPECT_GT(jumpAtCorner(tex::PlanePlacing::tangent), 5.0);

    // In the painted image the neighbours across the corner read neighbouring texels.
    tex::TextureToolPlane tool(checker(64, 64, 8), placing(tex::PlanePlacing::wrapped, 25),
                               tex::TextureOutput{});
    tool.start(back.x, back.y, *document);
    tool.start(side.x, side.y, *document);
    const IPoint<2> corner = pixelOf(*document, {3, 6, 1.2});
    std::int32_t x = corner.x - 3;
    while (document->matAt(x + 1, corner.y) == wallId) {
        ++x;
    }
    ASSERT_EQ(document->matAt(x + 1, corner.y), sideId);
    Point<2> a, b;
    double fa = 0, fb = 0;
    ASSERT_TRUE(tool.pixelSample(*document, x, corner.y, a, fa));
    ASSERT_TRUE(tool.pixelSample(*document, x + 1, corner.y, b, fb));
    EXPECT_LT(distance(a, b), 2 * std::max(fa, fb) + 0.5);
}

TEST(TextureToolPlane, AFoldCarriesAnOriginLyingOffThePreviousPlaneOntoTheNewOne) {
    auto document = cornerRoom();
    const IPoint<2> back = pixelOf(*document, {1, 6, 1.2});
    const IPoint<2> side = pixelOf(*document, {3, 4.5, 1.2});
    const Point<3> onCorner[] = {{3, 6, 0.4}, {3, 6, 2.7}};
    for (const int mode : {tex::PlanePlacing::wrapped, tex::PlanePlacing::autowrapped}) {
        SCOPED_TRACE(mode);
        // A placing left by an earlier stroke, its origin half a unit in front of the back
        // wall, which the current tool continues.
        TextureAxes kept;
        kept.origin = Point<3>(1, 5.5, 1.2);
        kept.primary = Vector<3>(0, 0, 1);
        kept.secondary = Vector<3>(0, 1, 0);
        kept.plane = Plane(Vector<3>(0, 1, 0), Point<3>(1, 6, 0));
        tex::currentTextureAxes() = tex::CurrentTextureAxes{kept, document->serial()};
        tex::TextureToolPlane tool(checker(64, 64, 8), placing(mode, 25), tex::TextureOutput{});
        tool.setCurrent(true);
        tool.start(back.x, back.y, *document);
        EXPECT_EQ(tool.axes().origin, kept.origin);
        std::vector<Point<2>> before;
        for (const Point<3>& p : onCorner) {
            before.push_back(tool.rasterPoint(p));
        }
        tool.start(side.x, side.y, *document);
        const TextureAxes& folded = tool.axes();
        EXPECT_NEAR(folded.plane.distanceTo(folded.origin), 0.0, 1e-9);
        // The back wall unfolded onto the side wall's plane: the origin, two short of the
        // corner along the back wall, lies two past it on that plane, at the same height.
        EXPECT_NEAR(folded.origin.x(), 3.0, 1e-6);
        EXPECT_NEAR(folded.origin.y(), 8.0, 1e-6);
        EXPECT_NEAR(folded.origin.z(), 1.2, 1e-6);
        for (std::size_t i = 0; i < before.size(); ++i) {
            EXPECT_LT(distance(before[i], tool.rasterPoint(onCorner[i])), 0.05);
        }
    }
    tex::currentTextureAxes() = tex::CurrentTextureAxes{};
}

TEST(TextureToolPlane, AlmostParallelPlanesDoNotFold) {
    // Two walls whose normals differ by 5e-5: less than the fold's limit.
    test::SyntheticScene scene;
    scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 6, 0)), wallId,
              Extent<3>(Point<3>(-50, 0, -50), Point<3>(0, 50, 50)));
    const double tilt = 5e-5;
    scene.add(Plane(Vector<3>(std::sin(tilt), -std::cos(tilt), 0), Point<3>(0, 6, 0)), sideId,
              Extent<3>(Point<3>(0, 0, -50), Point<3>(50, 50, 50)));
    auto document = renderScene(scene, 160, 120, {0, 0, 1.6}, 90, 0);
    const IPoint<2> left = pixelOf(*document, {-2, 6, 1.6});
    const IPoint<2> right = pixelOf(*document, {2, 6, 1.6});
    ASSERT_EQ(document->matAt(left.x, left.y), wallId);
    ASSERT_EQ(document->matAt(right.x, right.y), sideId);

    tex::TextureToolPlane tool(checker(32, 32, 4), placing(tex::PlanePlacing::wrapped, 25),
                               tex::TextureOutput{});
    tool.start(left.x, left.y, *document);
    const TextureAxes first = tool.axes();
    tool.start(right.x, right.y, *document);
    EXPECT_EQ(tool.axes().origin, first.origin);
    EXPECT_EQ(tool.axes().primary, first.primary);
    EXPECT_NEAR(dot(tool.axes().plane.normal(), first.plane.normal()), 1.0, 1e-8);
}

TEST(TextureToolPlane, AutoplaneKeepsThePreviousPlaneOnASkyPixel) {
    auto document = cornerRoom();
    const IPoint<2> back = pixelOf(*document, {1, 6, 1.2});
    const IPoint<2> sky(back.x, 0);
    ASSERT_EQ(document->zAt(sky.x, sky.y), depth::noDepth);

    tex::TextureToolPlane tool(checker(32, 32, 4), placing(tex::PlanePlacing::autoplane, 25),
                               tex::TextureOutput{});
    tool.start(back.x, back.y, *document);
    const Plane wall = tool.axes().plane;
    EXPECT_NEAR(wall.normal().y(), 1.0, 1e-6);
    Point<2> before;
    double footprint = 0;
    ASSERT_TRUE(tool.pixelSample(*document, sky.x, sky.y + 3, before, footprint));

    tool.start(sky.x, sky.y, *document);
    EXPECT_EQ(tool.axes().plane.normal(), wall.normal());
    EXPECT_EQ(tool.axes().plane.distanceFromOrigin(), wall.distanceFromOrigin());
    // The sky above the wall still takes the wall's plane, where it was.
    Point<2> after;
    ASSERT_TRUE(tool.pixelSample(*document, sky.x, sky.y + 3, after, footprint));
    EXPECT_NEAR(distance(before, after), 0.0, 1e-9);

    // Tangent takes whatever the click gives: the background plane.
    tex::TextureToolPlane tangent(checker(32, 32, 4), placing(tex::PlanePlacing::tangent, 25),
                                  tex::TextureOutput{});
    tangent.start(back.x, back.y, *document);
    tangent.start(sky.x, sky.y, *document);
    EXPECT_LT(std::abs(tangent.axes().plane.normal().y()), 0.5);
}

TEST(TextureToolPlane, EdgeColumnsTakeTheFootprintFromTheInsideNeighbour) {
    auto document = obliqueWall();
    tex::TextureToolPlane tool(checker(64, 64, 16), placing(tex::PlanePlacing::tangent, 62.5),
                               tex::TextureOutput{});
    tool.start(128, 96, *document);
    const std::int32_t w = document->width();
    for (std::int32_t y : {0, 40, 191}) {
        Point<2> p;
        double edge = 0, inside = 0;
        ASSERT_TRUE(tool.pixelSample(*document, 0, y, p, edge));
        ASSERT_TRUE(tool.pixelSample(*document, 1, y, p, inside));
        EXPECT_NEAR(edge / inside, 1.0, 0.03) << "left, row " << y;
        ASSERT_TRUE(tool.pixelSample(*document, w - 1, y, p, edge));
        ASSERT_TRUE(tool.pixelSample(*document, w - 2, y, p, inside));
        EXPECT_NEAR(edge / inside, 1.0, 0.03) << "right, row " << y;
    }
}

TEST(TextureToolPlane, ARecedingFloorNeitherAliasesFarAwayNorBlursNearby) {
    test::SyntheticScene scene;
    scene.add(Plane(), floorId);
    auto document = renderScene(scene, 192, 144, {0, 0, 1.6}, 90, -10);
    // Squares of 4 texels of 25 mm: 0.1 m.
    auto texture = checker(64, 64, 4);
    tex::TextureToolPlane tool(texture, placing(tex::PlanePlacing::tangent, 25),
                               tex::TextureOutput{});
    tool.start(96, 130, *document);
    const textest::Painted painted = paintAll(tool, *document);

    // Far rows: pixels many squares wide read the texture's mean, 127.5, all along.
    std::int32_t farRow = 0;
    while (document->zAt(96, farRow) == depth::noDepth) {
        ++farRow;
    }
    for (std::int32_t y = farRow + 2; y < farRow + 8; ++y) {
        double sum = 0;
        int worst = 0;
        for (std::int32_t x = 0; x < 192; ++x) {
            sum += painted.grey(x, y);
            worst = std::max(worst, std::abs(painted.grey(x, y) - 128));
        }
        EXPECT_NEAR(sum / 192, 127.5, 4.0) << "row " << y;
        EXPECT_LT(worst, 24) << "row " << y;
    }
    // Near rows, squares several pixels wide: the contrast of the raster read with no
    // filtering at the same points is kept.
    auto spread = [](const std::vector<double>& values) {
        double mean = 0, square = 0;
        for (double v : values) {
            mean += v;
            square += v * v;
        }
        mean /= values.size();
        return std::sqrt(square / values.size() - mean * mean);
    };
    std::vector<double> got, sharp;
    for (std::int32_t y = 134; y < 144; ++y) {
        for (std::int32_t x = 0; x < 192; ++x) {
            Point<2> p;
            double footprint = 0;
            ASSERT_TRUE(tool.pixelSample(*document, x, y, p, footprint));
            EXPECT_LT(footprint, 1.0);
            const float u = static_cast<float>(p.x()), v = static_cast<float>(p.y()), one = 1;
            std::uint8_t rgb[3];
            float alpha = 0;
            texture->sample(rgb, &alpha, &u, &v, &one, 1);
            sharp.push_back(rgb[1]);
            got.push_back(painted.grey(x, y));
        }
    }
    EXPECT_GT(spread(sharp), 90.0);
    EXPECT_GT(spread(got), 0.95 * spread(sharp));
}

TEST(TextureToolPlane, ACubeImageShowsTheSameTextureOnBothSidesOfASeam) {
    test::RoomScene room = test::RoomScene::make(test::RoomScene::View::cubic, 6 * 48, 48);
    test::TestDocument& document = *room.document;
    std::int32_t fx = -1, fy = -1;
    for (std::int32_t y = 47; y >= 0 && fx < 0; --y) {
        if (room.pieceAt(24, y) == test::RoomScene::floorPiece) {
            fx = 24;
            fy = y;
        }
    }
    ASSERT_GE(fx, 0);
    tex::TextureToolPlane tool(checker(64, 64, 16), placing(tex::PlanePlacing::tangent, 50),
                               tex::TextureOutput{});
    tool.start(fx, fy, document);
    const textest::Painted painted = paintAll(tool, document);
    const FaceSize faces(48);
    int compared = 0;
    for (std::int32_t y = 0; y < 48; ++y) {
        for (std::int32_t x = 0; x < 6 * 48; ++x) {
            IPoint<2> copies[3];
            const int n = faces.copies(x, y, copies);
            // Edge pixels only: at the cube's corners three faces meet, and a corner pixel's
            // copies have different neighbours.
            if (n != 2 || document.zAt(x, y) == depth::noDepth) {
                continue;
            }
            for (int k = 0; k < n; ++k) {
                const IPoint<2> c = copies[k];
                if (document.zAt(c.x, c.y) != document.zAt(x, y)) {
                    continue;
                }
                EXPECT_NEAR(painted.grey(c.x, c.y), painted.grey(x, y), 3)
                    << x << "," << y << " and " << c.x << "," << c.y;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 100);
}

} // namespace
