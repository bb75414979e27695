#include "RenderTestSupport.h"

#include "core/Quark.h"
#include "core/Reporter.h"
#include "effects/LightSet.h"
#include "interchange/model/DXFColours.h"
#include "interchange/model/ExportError.h"
#include "views/cameras/QuorvaleCamera.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <set>

namespace {

using test::pixelCamera;
using test::pixelToModel;
using test::RecordingBuffer;

const SectionBox noSection{};

/// Lights of one level from everywhere: a surface's colour is its material's, times k.
TQL::Handle<LightSet> evenLight(double k = 1) {
    auto set = TQL::makeHandle<LightSet>();
    set->add(TQL::makeHandle<AmbientLight>(Point<3>(k, k, k), Point<3>(k, k, k)));
    return set;
}

/// A model of triangles given in pixel coordinates (z = 0), one material.
TQL::Handle<SmoothModelImp> pixelTriangles(const std::vector<std::array<Point<2>, 3>>& triangles,
                                           std::int32_t height) {
    auto model = TQL::makeHandle<SmoothModelImp>();
    std::vector<Point<3>> points;
    std::vector<std::array<std::uint32_t, 3>> indices;
    for (const auto& t : triangles) {
        const auto first = static_cast<std::uint32_t>(points.size());
        for (const Point<2>& p : t) {
            points.push_back(pixelToModel(p.x(), p.y(), height));
        }
        indices.push_back({first, first + 1, first + 2});
    }
    model->addTriangles(Quark::create(L"Shape"), points, indices);
    model->finish();
    return model;
}

TEST(ModelRender, CoverageTakesPixelCentresWithTheTopLeftRule) {
    const std::int32_t w = 12, h = 10;
    struct Case {
        const char* name;
        std::array<Point<2>, 3> triangle;
        bool (*inside)(int x, int y);
    };
    const Case cases[] = {
        // Corners between centres: the centres inside, nothing on an edge.
        {"lower left half",
         {{{1.5, 1.5}, {6.5, 1.5}, {1.5, 6.5}}},
         [](int x, int y) { return x >= 2 && y >= 2 && x + y <= 7; }},
        // Its complement: the hypotenuse's centres (x + y = 8) lie on its left edge.
        {"upper right half",
         {{{6.5, 1.5}, {6.5, 6.5}, {1.5, 6.5}}},
         [](int x, int y) { return x <= 6 && y <= 6 && x + y >= 8; }},
        // Edges through centres: the top row and the left column are drawn, the bottom row
        // and the right column aren't.
        {"square's lower left",
         {{{2, 2}, {6, 2}, {2, 6}}},
         [](int x, int y) { return x >= 2 && y >= 2 && x + y < 8; }},
        {"square's upper right",
         {{{6, 2}, {6, 6}, {2, 6}}},
         [](int x, int y) { return x < 6 && y < 6 && x + y >= 8; }},
        // A flat bottom and a flat top.
        {"point down",
         {{{1, 1}, {9, 1}, {5, 5}}},
         [](int x, int y) { return y >= 1 && y < 5 && x >= 1 + (y - 1) && x < 9 - (y - 1); }},
        // Partly outside the image: cut at its edges.
        {"off the corner",
         {{{-4, -4}, {6, -4}, {-4, 6}}},
         [](int x, int y) { return x >= 0 && y >= 0 && x + y < 2; }},
        {"thin sliver", {{{1, 1.25}, {11, 1.5}, {1, 1.75}}}, [](int, int) { return false; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto model = pixelTriangles({c.triangle}, h);
        RecordingBuffer buffer(w, h);
        model->render(*pixelCamera(w, h), buffer, *evenLight(), nullptr, false, w, h, noSection);
        for (std::int32_t y = 0; y < h; ++y) {
            for (std::int32_t x = 0; x < w; ++x) {
                EXPECT_EQ(buffer.covered(x, y), c.inside(x, y)) << x << "," << y;
            }
        }
    }
}

TEST(ModelRender, AMeshCoversEachPixelOnceEvenWhereTheNearPlaneCutsIt) {
    // A quad in the plane y = 0, split into jittered triangles, seen in perspective from so
    // close that the near plane cuts it. Each triangle is drawn alone; the counts must make
    // the quad's pixels exactly once.
    const int n = 6;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3);
    std::vector<Point<3>> grid;
    for (int j = 0; j <= n; ++j) {
        for (int i = 0; i <= n; ++i) {
            const bool border = i == 0 || j == 0 || i == n || j == n;
            grid.push_back({-3 + i + (border ? 0 : jitter(random)), 0,
                            -3 + j + (border ? 0 : jitter(random))});
        }
    }
    std::vector<std::array<std::uint32_t, 3>> triangles;
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
            const auto a = static_cast<std::uint32_t>(j * (n + 1) + i);
            triangles.push_back({a, a + 1, a + n + 2});
            triangles.push_back({a, a + n + 2, a + n + 1});
        }
    }
    ViewParams view;
    view.eye = Point<3>(0.4, -0.25, 0.3);
    view.xAxis = Vector<3>(1, 0.3, 0);
    view.yAxis = Vector<3>(0, 0, 1);
    view.zAxis = Vector<3>(-0.3, 1, 0);
    view.nearDepth = 0.1;
    view.farDepth = 10;
    view.windowLo = Point<3>(-1.2, 0.9, 1);
    view.windowHi = Point<3>(1.2, -0.9, 1);
    const std::int32_t w = 48, h = 36;
    const QuorvaleCamera camera(UniformTransform<3>(), view, w, h,
                                Extent<3>({-3, 0, -3}, {3, 0, 3}), IExtent<2>(0, 0, w - 1, h - 1));
    std::vector<int> count(static_cast<std::size_t>(w) * h, 0);
    for (const auto& t : triangles) {
        auto one = TQL::makeHandle<SmoothModelImp>();
        one->addTriangles(Quark::create(L"Q"), grid, std::vector<std::array<std::uint32_t, 3>>{t});
        one->finish();
        RecordingBuffer buffer(w, h);
        one->render(camera, buffer, *evenLight(), nullptr, false, w, h, noSection);
        for (std::size_t i = 0; i < count.size(); ++i) {
            count[i] += buffer.flags[i] != 0;
        }
    }
    // Which pixels see the quad: the ray from the eye through the pixel meets y = 0 within
    // the square, beyond the near plane.
    const ViewProj vp(view, w, h);
    int inside = 0;
    for (std::int32_t y = 0; y < h; ++y) {
        for (std::int32_t x = 0; x < w; ++x) {
            const Point<3> a = vp.worldFromPixel(x, y, 0);
            const Point<3> b = vp.worldFromPixel(x, y, 1u << 31);
            const double t = a.y() / (a.y() - b.y());
            const Point<3> hit = interp(a, b, t);
            // Pixels on the quad's own border, or at the near plane, may go either way.
            const double margin = 0.02;
            const bool seen =
                t > 1e-6 && std::fabs(hit.x()) < 3 - margin && std::fabs(hit.z()) < 3 - margin;
            const bool beside =
                t < -1e-6 || std::fabs(hit.x()) > 3 + margin || std::fabs(hit.z()) > 3 + margin;
            const int c = count[static_cast<std::size_t>(y) * w + x];
            if (seen) {
                ++inside;
                EXPECT_EQ(c, 1) << x << "," << y;
            } else if (beside) {
                EXPECT_EQ(c, 0) << x << "," << y;
            }
        }
    }
    EXPECT_GT(inside, w * h / 3); // the quad fills much of the view
}

TEST(ModelRender, ColourIsTheMaterialColourTimesTheLight) {
    // A square facing up and, behind it, a square facing south: white, and a red of the
    // colour table.
    const std::int32_t w = 16, h = 16;
    auto model = TQL::makeHandle<SmoothModelImp>();
    const Quark up = Quark::create(L"Up"), south = Quark::create(L"South");
    model->setMaterialAttribute(up, L"colour", L"255");   // white
    model->setMaterialAttribute(south, L"colour", L"12"); // (165, 0, 0)
    model->addPolygon(up, std::vector<Point<3>>{{0, -8, 0}, {8, -8, 0}, {8, -4, 0}, {0, -4, 0}});
    model->addPolygon(south, std::vector<Point<3>>{{0, 0, 0}, {8, 0, 0}, {8, 0, 8}, {0, 0, 8}});
    model->finish();
    // Seen from the south, looking north and a little down, so both show.
    const Ray axes(Point<3>::m_origin, Angle::degrees(90), Angle::degrees(-30));
    const ParallelCamera camera(w, h, Point<3>(4, -20, 12), axes, 12, 12, Point<3>(4, 4, 2), 30);

    struct Case {
        const char* name;
        double ambient;
        double sun;
        Angle altitude; // of the direction the sun's light travels
        double upLevel, southLevel;
    };
    const Case cases[] = {
        {"sky only", 0.5, 0, Angle::degrees(-90), 0.5, 0.5},
        {"sun from straight above", 0.25, 0.5, Angle::degrees(-90), 0.75, 0.25},
        // Travelling north and down at 45 degrees: cos 45 of it on both squares.
        {"sun from the south", 0.25, 0.5, Angle::degrees(-45), 0.25 + 0.5 * 0.70710678,
         0.25 + 0.5 * 0.70710678},
        {"too bright", 1.0, 1.0, Angle::degrees(-90), 1.0, 1.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto lights = evenLight(c.ambient);
        lights->add(TQL::makeHandle<QuorvaleParallelLight>(
            Angle::degrees(90), c.altitude, LightColour{c.sun, c.sun, c.sun}, false));
        RecordingBuffer b(w, h);
        model->render(camera, b, *lights, nullptr, false, w, h, noSection);
        std::set<MaterialId> seen;
        for (std::int32_t y = 0; y < h; ++y) {
            for (std::int32_t x = 0; x < w; ++x) {
                if (!b.covered(x, y)) {
                    continue;
                }
                const MaterialId m = b.materials[b.at(x, y)];
                seen.insert(m);
                const ColourPOD colour = b.colour(x, y);
                const double white = std::min(255.0, 255 * c.upLevel);
                const double red = std::min(255.0, 165 * c.southLevel);
                if (m == 1) {
                    EXPECT_NEAR(colour.r, white, 0.51);
                    EXPECT_EQ(colour.g, colour.r);
                    EXPECT_EQ(colour.b, colour.r);
                } else {
                    EXPECT_NEAR(colour.r, red, 0.51);
                    EXPECT_EQ(colour.g, 0);
                    EXPECT_EQ(colour.b, 0);
                }
                EXPECT_EQ(b.alphas[b.at(x, y)], 255); // no partial coverage
            }
        }
        EXPECT_EQ(seen, (std::set<MaterialId>{1, 2}));
    }
}

/// The convex hull of points in the plane, anticlockwise.
std::vector<Point<2>> hull(std::vector<Point<2>> p) {
    std::sort(p.begin(), p.end(), [](const Point<2>& a, const Point<2>& b) {
        return a.x() < b.x() || (a.x() == b.x() && a.y() < b.y());
    });
    auto turn = [](const Point<2>& o, const Point<2>& a, const Point<2>& b) {
        return (a.x() - o.x()) * (b.y() - o.y()) - (a.y() - o.y()) * (b.x() - o.x());
    };
    std::vector<Point<2>> h(2 * p.size());
    std::size_t k = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
        while (k >= 2 && turn(h[k - 2], h[k - 1], p[i]) <= 0) {
            --k;
        }
        h[k++] = p[i];
    }
    for (std::size_t i = p.size() - 1, t = k + 1; i-- > 0;) {
        while (k >= t && turn(h[k - 2], h[k - 1], p[i]) <= 0) {
            --k;
        }
        h[k++] = p[i];
    }
    h.resize(k - 1);
    return h;
}

/// Signed distance of q inside an anticlockwise convex polygon (positive inside).
double insideBy(const std::vector<Point<2>>& poly, const Point<2>& q) {
    double d = INFINITY;
    for (std::size_t i = 0; i < poly.size(); ++i) {
        const Point<2>& a = poly[i];
        const Point<2>& b = poly[(i + 1) % poly.size()];
        const double ex = b.x() - a.x(), ey = b.y() - a.y();
        d = std::min(d, (ex * (q.y() - a.y()) - ey * (q.x() - a.x())) / std::hypot(ex, ey));
    }
    return d;
}

/// A parallel camera of w x h pixels looking straight down on the origin from z = 10, at
/// `scale` pixels a model unit.
ParallelCamera fromAbove(std::int32_t w, std::int32_t h, double scale) {
    const Ray down(Point<3>::m_origin, Vector<3>(1, 0, 0), Vector<3>(0, 1, 0), Vector<3>(0, 0, -1));
    return ParallelCamera(w, h, Point<3>(0, 0, 10), down, w / scale, h / scale, Point<3>::m_origin,
                          5);
}

TEST(ModelRender, ABoxThrowsTheShadowOfItsOutline) {
    // The box [-1, 1]^2 x [0, 2] on the floor, seen from straight above at 8 pixels a unit.
    const auto model = test::floorAndBox();
    const std::int32_t w = 96, h = 96;
    const double scale = 8;
    const ParallelCamera camera = fromAbove(w, h, scale);
    struct Case {
        double azimuth, elevation; // of the sun
    };
    for (const Case& c : {Case{225, 45}, Case{180, 60}, Case{300, 35}}) {
        SCOPED_TRACE(c.azimuth);
        auto lights = evenLight(0.3);
        lights->add(QuorvaleParallelLight::sun(Angle::degrees(c.azimuth),
                                               Angle::degrees(c.elevation), {0.7, 0.7, 0.7}, true));
        RecordingBuffer b(w, h);
        model->render(camera, b, *lights, nullptr, false, w, h, noSection);

        // The shadow on the floor: the hull of the box's foot and its top carried along the
        // light down to z = 0, h / tan(elevation) away from the sun.
        const Angle a = Angle::degrees(c.azimuth);
        const double reach = 2 / std::tan(Angle::degrees(c.elevation).radians());
        const double dx = -a.sin() * reach, dy = -a.cos() * reach;
        std::vector<Point<2>> corners;
        for (double x : {-1.0, 1.0}) {
            for (double y : {-1.0, 1.0}) {
                corners.push_back({x, y});
                corners.push_back({x + dx, y + dy});
            }
        }
        const std::vector<Point<2>> shadow = hull(corners);
        int inShadow = 0, wrong = 0;
        for (std::int32_t y = 0; y < h; ++y) {
            for (std::int32_t x = 0; x < w; ++x) {
                if (b.materials[b.at(x, y)] != 1) {
                    continue; // not the floor
                }
                const Point<3> p = camera.unproject(Point<3>(x, y, 0));
                const double by = insideBy(shadow, Point<2>(p.x(), p.y())) * scale;
                const bool shadowed = (b.flags[b.at(x, y)] & Buffer::shadowFlag(1)) != 0;
                inShadow += shadowed;
                // Within 2 pixels of the outline either answer will do.
                if (std::fabs(by) > 2 && shadowed != (by > 0)) {
                    ++wrong;
                }
                // In shadow only the sky's light is left on the default grey (192).
                const double sun = 0.7 * std::sin(Angle::degrees(c.elevation).radians());
                EXPECT_NEAR(b.colour(x, y).g, 192 * (shadowed ? 0.3 : 0.3 + sun), 0.51);
            }
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_GT(inShadow, 100);
    }
}

TEST(ModelRender, EachMixOfShadowsOnAFlatSurfaceHasItsOwnColour) {
    // Two suns throw the box's shadow on the floor in two directions, so a row of the floor
    // passes through light, one shadow, both and the other: the floor's colour must follow
    // its pixel's shadow bits, one colour for each mix and a different one for each.
    const auto model = test::floorAndBox();
    const std::int32_t w = 96, h = 96;
    const double scale = 8;
    const ParallelCamera camera = fromAbove(w, h, scale);
    auto lights = evenLight(0.2);
    lights->add(
        QuorvaleParallelLight::sun(Angle::degrees(200), Angle::degrees(40), {0.5, 0.4, 0.3}, true));
    lights->add(
        QuorvaleParallelLight::sun(Angle::degrees(160), Angle::degrees(50), {0.2, 0.3, 0.4}, true));
    RecordingBuffer b(w, h);
    model->render(camera, b, *lights, nullptr, false, w, h, noSection);

    const MaterialId floor = b.materials[b.at(12, 48)]; // x = -4.5, y = 0
    std::map<std::uint32_t, std::uint32_t> colourOf;
    for (std::int32_t y = 0; y < h; ++y) {
        for (std::int32_t x = 0; x < w; ++x) {
            if (b.materials[b.at(x, y)] != floor) {
                continue;
            }
            const ColourPOD c = b.colour(x, y);
            const std::uint32_t packed = c.r | c.g << 8 | c.b << 16;
            const auto [at, added] = colourOf.emplace(b.flags[b.at(x, y)], packed);
            ASSERT_EQ(at->second, packed) << "flags " << at->first << " at " << x << ", " << y;
        }
    }
    ASSERT_EQ(colourOf.size(), 4u);
    std::set<std::uint32_t> colours;
    for (const auto& [flags, colour] : colourOf) {
        colours.insert(colour);
    }
    EXPECT_EQ(colours.size(), 4u);
}

TEST(ModelRender, TheSectionBoxCutsWhereItShould) {
    const auto model = test::floorAndBox(); // bounds [-5, 5]^2 x [0, 2]
    const std::int32_t w = 80, h = 80;
    const double scale = 8;
    const ParallelCamera camera = fromAbove(w, h, scale);
    auto draw = [&](const SectionBox& box) {
        auto b = std::make_unique<RecordingBuffer>(w, h);
        model->render(camera, *b, *evenLight(), nullptr, false, w, h, box);
        return b;
    };
    auto pixelOf = [&](double x, double y) {
        const Point<3> s = camera.project(Point<3>(x, y, 0));
        return std::pair<int, int>(static_cast<int>(std::lround(s.x())),
                                   static_cast<int>(std::lround(s.y())));
    };
    const auto whole = draw(noSection);
    // Boxes that cut nothing: empty, or 0 to 1 on every axis.
    for (const SectionBox& none : {SectionBox{0.2, 0.2, 0.2, 0.1, 0.9, 0.9},
                                   SectionBox{0, 0, 0, 1, 1, 1}, SectionBox{-1, -1, -1, 2, 2, 2}}) {
        const auto same = draw(none);
        EXPECT_EQ(same->codes, whole->codes);
        EXPECT_EQ(same->materials, whole->materials);
    }
    const auto [cx, cy] = pixelOf(0, 0);
    EXPECT_EQ(whole->materials[whole->at(cx, cy)], 2); // the box's top

    // Cut at half height (z = 1): from above, the floor shows inside the open box.
    const auto halfHigh = draw({0, 0, 0, 1, 1, 0.5});
    EXPECT_EQ(halfHigh->materials[halfHigh->at(cx, cy)], 1);
    EXPECT_GT(halfHigh->codes[halfHigh->at(cx, cy)], whole->codes[whole->at(cx, cy)]);
    // Cut at x = -5 + 0.25 * 10 = -2.5 from below, and y = 2.5 from above.
    const auto part = draw({0.25, 0, 0, 1, 0.75, 1});
    for (double x : {-4.0, -2.7, -2.3, 0.0}) {
        for (double y : {-4.0, 2.3, 2.7, 4.0}) {
            const auto [px, py] = pixelOf(x, y);
            const bool kept = x > -2.5 && y < 2.5;
            EXPECT_EQ(part->covered(px, py), kept) << x << "," << y;
        }
    }
}

/// Asks to abandon at its `stopAt`th report.
class CountingReporter : public Reporter {
public:
    explicit CountingReporter(int stop) : stopAt(stop) {}
    bool report(unsigned total, unsigned done, double) override {
        calls.push_back({total, done});
        return static_cast<int>(calls.size()) == stopAt;
    }
    int stopAt;
    std::vector<std::pair<unsigned, unsigned>> calls;
};

TEST(ModelRender, ReportsEvery64TrianglesAndStopsWhenAsked) {
    std::vector<std::array<Point<2>, 3>> triangles;
    for (int i = 0; i < 200; ++i) {
        triangles.push_back({{{1, 1}, {3, 1}, {1, 3}}});
    }
    const auto model = pixelTriangles(triangles, 8);
    ASSERT_EQ(model->triangleCount(), 200u);
    CountingReporter all(0);
    RecordingBuffer b(8, 8);
    model->render(*pixelCamera(8, 8), b, *evenLight(), &all, false, 8, 8, noSection);
    EXPECT_EQ(all.calls,
              (std::vector<std::pair<unsigned, unsigned>>{{200, 64}, {200, 128}, {200, 192}}));
    EXPECT_EQ(b.finished, 1);
    EXPECT_EQ(b.rowsPut, (std::vector<std::int32_t>{0, 1, 2, 3, 4, 5, 6, 7}));

    CountingReporter second(2);
    RecordingBuffer c(8, 8);
    try {
        model->render(*pixelCamera(8, 8), c, *evenLight(), &second, false, 8, 8, noSection);
        FAIL() << "not abandoned";
    } catch (const ExportError& e) {
        EXPECT_EQ(e.reason(), L"Operation abandoned");
    }
    EXPECT_EQ(second.calls.size(), 2u);
    EXPECT_TRUE(c.rowsPut.empty());
}

TEST(ModelRender, SmoothSurfacesShadeByTheirVertexNormalsUnlessFlatIsAsked) {
    // A smooth cylinder wall of eight faces about the z axis, seen from the side, lit from
    // its side along x: across one face the light must vary when smooth, and not when flat.
    Clump clump(0.001);
    std::vector<Clump::Index> bottom, top;
    const int n = 8;
    for (int i = 0; i < n; ++i) {
        const double a = 2 * 3.14159265358979323846 * (i + 0.5) / n;
        bottom.push_back(clump.addPoint({2 * std::cos(a), 2 * std::sin(a), 0}));
        top.push_back(clump.addPoint({2 * std::cos(a), 2 * std::sin(a), 4}));
    }
    for (int i = 0; i < n; ++i) {
        const int j = (i + 1) % n;
        const std::vector<Clump::Index> face = {bottom[i], bottom[j], top[j], top[i]};
        clump.addFace(face, Quark::create(L"Wall"), 1);
    }
    auto model = TQL::makeHandle<SmoothModelImp>();
    model->addClump(clump, false, Quark(), Angle::degrees(60), Quark());
    model->finish();
    const std::int32_t w = 64, h = 32;
    const Ray axes(Point<3>::m_origin, Angle::degrees(90), Angle()); // looking north
    const ParallelCamera camera(w, h, Point<3>(0, -10, 2), axes, 8, 4, Point<3>(0, 0, 2), 5);
    auto lights = TQL::makeHandle<LightSet>();
    lights->add(TQL::makeHandle<QuorvaleParallelLight>(Angle::degrees(90), Angle(),
                                                       LightColour{1, 1, 1}, false));
    for (bool flat : {false, true}) {
        SCOPED_TRACE(flat);
        RecordingBuffer b(w, h);
        model->render(camera, b, *lights, nullptr, flat, w, h, noSection);
        // The face nearest the eye spans x in [-0.77, 0.77] (pixels 26 to 38 at 8 a unit);
        // its normal is (0, -1, 0), its corners' normals 22.5 degrees either side of it.
        std::set<std::uint8_t> levels;
        for (std::int32_t x = 27; x <= 37; ++x) {
            levels.insert(b.colour(x, h / 2).g);
        }
        if (flat) {
            EXPECT_EQ(levels, std::set<std::uint8_t>{192});
        } else {
            // Full light in the middle, less towards the corners (cos 22.5 = 0.92 there).
            EXPECT_EQ(b.colour(32, h / 2).g, 192);
            EXPECT_LT(b.colour(27, h / 2).g, 189);
            EXPECT_GT(b.colour(27, h / 2).g, 175);
        }
    }
}

TEST(DXFColours, TheStandardIndexTable) {
    struct Case {
        int index;
        ColourPOD colour; // blue, green, red
    };
    const Case cases[] = {
        {1, {0, 0, 255}},
        {2, {0, 255, 255}},
        {3, {0, 255, 0}},
        {4, {255, 255, 0}},
        {5, {255, 0, 0}},
        {6, {255, 0, 255}},
        {7, {64, 64, 64}},
        {8, {128, 128, 128}},
        {9, {192, 192, 192}},
        {10, {0, 0, 255}},
        {11, {127, 127, 255}},
        {12, {0, 0, 165}},
        {13, {82, 82, 165}},
        {14, {0, 0, 127}},
        {15, {63, 63, 127}},
        {16, {0, 0, 76}},
        {17, {38, 38, 76}},
        {18, {0, 0, 38}},
        {19, {19, 19, 38}},
        // 24 hues 15 degrees apart: yellow at 60, green at 120, blue at 240.
        {50, {0, 255, 255}},
        {90, {0, 255, 0}},
        {170, {255, 0, 0}},
        {250, {51, 51, 51}},
        {255, {255, 255, 255}},
        {0, defaultModelColour},
        {256, defaultModelColour},
        {-3, defaultModelColour},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(dxfColour(c.index), c.colour) << c.index;
    }
}

} // namespace
