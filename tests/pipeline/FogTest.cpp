// Fog on rendered rooms: every type's visibility against the formula worked out here from
// the scene and the settings, its monotony in the type's measure, the edge cases of the
// settings, and the two positions (transparent and colour) through a whole-image paint.

#include "pipeline/Fog.h"

#include "pipeline/Applicator.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

namespace {

using test::RoomScene;

/// A span over row y of `document` reading its live depth, alpha 1 everywhere.
struct Row {
    Row(ZmapDocument& document, std::int32_t y)
        : depth(document.width()), alpha(document.width(), 1.0f), colour(document.width()) {
        for (std::int32_t x = 0; x < document.width(); ++x) {
            depth[x] = document.zAt(x, y);
        }
        span.document = &document;
        span.x = 0;
        span.y = y;
        span.length = document.width();
        span.baseDepth = depth.data();
        span.alpha = alpha.data();
        span.colour = colour.data();
    }
    std::vector<std::uint32_t> depth;
    std::vector<float> alpha;
    std::vector<ColourPOD> colour;
    Span span;
};

double clamp01(double t) {
    return std::isnan(t) ? 0.0 : t <= 0 ? 0.0 : t >= 1 ? 1.0 : t;
}

struct TypeCase {
    const char* name;
    FogSettings settings;
    /// The type's measure at a pixel, worked out from the scene.
    std::function<double(const ZmapDocument&, std::int32_t, std::int32_t)> measure;
    /// The visibility from the measure.
    std::function<double(const ZmapDocument&, double)> visibility;
};

Point<3> pointOf(const ZmapDocument& d, std::int32_t x, std::int32_t y) {
    return d.viewProj()->worldFromPixel(x, y, d.zAt(x, y));
}

std::vector<TypeCase> typeCases() {
    std::vector<TypeCase> cases;
    FogSettings s;

    s = FogSettings();
    s.type = 0;
    s.none = 30;
    s.full = 2;
    cases.push_back({"DepthCode", s,
                     [](const ZmapDocument& d, std::int32_t x, std::int32_t y) {
                         return static_cast<double>(d.zAt(x, y));
                     },
                     [](const ZmapDocument& d, double code) {
                         const ViewParams& v = d.viewParams();
                         const double k = 4294967294.0 / (v.farDepth - v.nearDepth);
                         // Visibility 0 at 30 units along the axis, 1 at 2.
                         const double at30 = (30 - v.nearDepth) * k;
                         const double at2 = (2 - v.nearDepth) * k;
                         return clamp01((code - at30) / (at2 - at30));
                     }});

    s = FogSettings();
    s.type = 1;
    s.none = 25;
    s.full = 3;
    cases.push_back({"ViewDistance", s,
                     [](const ZmapDocument& d, std::int32_t x, std::int32_t y) {
                         const ViewParams& v = d.viewParams();
                         return dot(pointOf(d, x, y) - v.eye, v.zAxis.unit());
                     },
                     [](const ZmapDocument&, double m) { return clamp01((m - 25) / (3 - 25.0)); }});

    s = FogSettings();
    s.type = 2;
    s.axis = Vector<3>(0, 0, 2); // height, given at a length other than 1
    s.none = 2.5;
    s.full = 0.5;
    cases.push_back(
        {"AxisDistance", s,
         [](const ZmapDocument& d, std::int32_t x, std::int32_t y) { return pointOf(d, x, y).z(); },
         [](const ZmapDocument&, double m) { return clamp01((m - 2.5) / (0.5 - 2.5)); }});

    s = FogSettings();
    s.type = 3;
    s.centre = Point<3>(-2, 6, 0);
    s.nonePoint = 1;
    s.fullPoint = 9;
    cases.push_back({"PointDistance", s,
                     [](const ZmapDocument& d, std::int32_t x, std::int32_t y) {
                         return distance(pointOf(d, x, y), Point<3>(-2, 6, 0));
                     },
                     [](const ZmapDocument&, double m) { return clamp01((m - 1) / 8.0); }});

    s = FogSettings();
    s.type = 4;
    s.elevationAxis = Vector<3>(0, 0, 1);
    s.noneElevation = -20;
    s.fullElevation = 5;
    cases.push_back(
        {"Elevation", s,
         [](const ZmapDocument& d, std::int32_t x, std::int32_t y) {
             const ViewProj& v = *d.viewProj();
             return (v.worldFromPixel(x, y, 4000000000u) - v.worldFromPixel(x, y, 0)).unit().z();
         },
         [](const ZmapDocument&, double m) {
             const double lo = std::sin(-20 * std::numbers::pi / 180);
             const double hi = std::sin(5 * std::numbers::pi / 180);
             return clamp01((m - lo) / (hi - lo));
         }});

    s = FogSettings();
    s.type = 5;
    s.none2D = {10, 100};
    s.full2D = {40, 20};
    cases.push_back({"Linear2D", s,
                     [](const ZmapDocument&, std::int32_t x, std::int32_t y) {
                         // Position along the direction from none2D to full2D, 0 to 1.
                         return ((x - 10.0) * 30 + (y - 100.0) * -80) / (30.0 * 30 + 80.0 * 80);
                     },
                     [](const ZmapDocument&, double m) { return clamp01(m); }});

    s = FogSettings();
    s.type = 6;
    s.centre2D = {70, 40};
    s.range2D = 50;
    cases.push_back({"Radial2D", s,
                     [](const ZmapDocument&, std::int32_t x, std::int32_t y) {
                         return std::hypot(x - 70.0, y - 40.0);
                     },
                     [](const ZmapDocument&, double m) { return clamp01(m / 50); }});

    s = FogSettings();
    s.type = 7;
    s.lineStart2D = {20, 30};
    s.lineEnd2D = {100, 30};
    s.range2D = 40;
    cases.push_back({"Line2D", s,
                     [](const ZmapDocument&, std::int32_t x, std::int32_t y) {
                         // The segment along row 30 from column 20 to 100.
                         const double cx = std::clamp(static_cast<double>(x), 20.0, 100.0);
                         return std::hypot(x - cx, y - 30.0);
                     },
                     [](const ZmapDocument&, double m) { return clamp01(m / 40); }});

    s = FogSettings();
    s.type = 8;
    s.lineStart = Point<3>(0, 5, 0);
    s.lineEnd = Point<3>(0, 5, 3);
    s.infiniteLine = true;
    s.nonePoint = 0.5;
    s.fullPoint = 6;
    cases.push_back({"Line3D", s,
                     [](const ZmapDocument& d, std::int32_t x, std::int32_t y) {
                         // A vertical line through (0, 5).
                         const Point<3> p = pointOf(d, x, y);
                         return std::hypot(p.x(), p.y() - 5);
                     },
                     [](const ZmapDocument&, double m) { return clamp01((m - 0.5) / 5.5); }});
    return cases;
}

class FogTypes : public testing::TestWithParam<TypeCase> {};

TEST_P(FogTypes, VisibilityFollowsTheFormulaAndIsMonotonicInTheMeasure) {
    const TypeCase& c = GetParam();
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 128, 96);
    ZmapDocument& d = *room.document;
    Fog fog(c.settings);
    fog.start(30, 80, d);
    const bool usesDepth = c.settings.type <= 3 || c.settings.type == 8;
    std::vector<std::pair<double, float>> samples;
    std::vector<float> f(static_cast<std::size_t>(d.width()));
    for (std::int32_t y = 0; y < d.height(); ++y) {
        Row row(d, y);
        fog.visibility(row.span, 0, d.width(), f.data());
        for (std::int32_t x = 0; x < d.width(); ++x) {
            if (usesDepth && room.pieceAt(x, y) < 0) {
                continue; // the background has rules of its own
            }
            const double m = c.measure(d, x, y);
            EXPECT_NEAR(f[x], c.visibility(d, m), 1e-4) << c.name << " at " << x << "," << y;
            samples.emplace_back(m, f[x]);
        }
    }
    // The visibility moves one way only as the measure grows.
    std::sort(samples.begin(), samples.end());
    const double first = samples.front().second;
    const double last = samples.back().second;
    ASSERT_NE(first, last) << c.name << ": the scene must span the fog's range";
    const double sign = last > first ? 1 : -1;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        EXPECT_GE(sign * (samples[i].second - samples[i - 1].second), -1e-5) << c.name;
    }
}

INSTANTIATE_TEST_SUITE_P(AllTypes, FogTypes, testing::ValuesIn(typeCases()),
                         [](const testing::TestParamInfo<TypeCase>& info) {
                             return std::string(info.param.name);
                         });

class FogRules : public testing::Test {
protected:
    void SetUp() override { room = RoomScene::make(RoomScene::View::perspective, 96, 72); }
    /// The visibility of every pixel of row y.
    std::vector<float> row(Fog& fog, std::int32_t y, float alpha = 1.0f) {
        Row r(*room.document, y);
        std::fill(r.alpha.begin(), r.alpha.end(), alpha);
        std::vector<float> f(r.alpha.size());
        fog.visibility(r.span, 0, room.document->width(), f.data());
        return f;
    }
    /// A pixel of the background and one with depth.
    IPoint<2> sky() const {
        return find([](int p) { return p < 0; });
    }
    IPoint<2> solid() const {
        return find([](int p) { return p >= 0; });
    }
    template <class F> IPoint<2> find(F f) const {
        for (std::int32_t y = 0; y < room.document->height(); ++y) {
            for (std::int32_t x = 0; x < room.document->width(); ++x) {
                if (f(room.pieceAt(x, y))) {
                    return {x, y};
                }
            }
        }
        ADD_FAILURE();
        return {};
    }
    RoomScene room;
};

TEST_F(FogRules, AmountOneLeavesEverythingVisible) {
    for (std::uint32_t type = 0; type < fogTypeCount; ++type) {
        FogSettings s;
        s.type = type;
        s.amount = 1;
        Fog fog(s);
        fog.start(10, 10, *room.document);
        for (std::int32_t y = 0; y < room.document->height(); y += 7) {
            for (float f : row(fog, y)) {
                EXPECT_EQ(f, 1.0f) << "type " << type;
            }
        }
    }
}

TEST_F(FogRules, AmountIsAFloorOnTheVisibility) {
    FogSettings s;
    s.type = 6;
    s.centre2D = {0, 0};
    s.range2D = 1000;
    s.amount = 0.25f;
    Fog fog(s);
    fog.start(0, 0, *room.document);
    const auto f = row(fog, 0);
    EXPECT_FLOAT_EQ(f[0], 0.25f);
    EXPECT_NEAR(f[50], 0.05 * 0.75 + 0.25, 1e-6);
}

TEST_F(FogRules, NoneEqualToFullSplitsByTheSign) {
    FogSettings s;
    s.type = 0;
    s.none = s.full = 6;
    Fog fog(s);
    fog.start(0, 0, *room.document);
    const ViewParams& v = room.document->viewParams();
    const double base = (6 - v.nearDepth) * 4294967294.0 / (v.farDepth - v.nearDepth);
    int near = 0, far = 0;
    for (std::int32_t y = 0; y < room.document->height(); ++y) {
        const auto f = row(fog, y);
        for (std::int32_t x = 0; x < room.document->width(); ++x) {
            if (room.pieceAt(x, y) < 0) {
                continue;
            }
            const double code = room.document->zAt(x, y);
            ASSERT_TRUE(f[x] == 0.0f || f[x] == 1.0f);
            EXPECT_EQ(f[x], code > base ? 1.0f : 0.0f);
            (code > base ? far : near)++;
        }
    }
    EXPECT_GT(near, 0);
    EXPECT_GT(far, 0);

    // The point form with a range of 0 counts every pixel as at its end.
    FogSettings p;
    p.type = 3;
    p.nonePoint = p.fullPoint = 4;
    Fog point(p);
    point.start(0, 0, *room.document);
    const IPoint<2> at = solid();
    EXPECT_EQ(row(point, at.y)[at.x], 1.0f);
    p.inverted = true;
    Fog inverted(p);
    inverted.start(0, 0, *room.document);
    EXPECT_EQ(row(inverted, at.y)[at.x], 0.0f);
}

TEST_F(FogRules, BackgroundInDepthFogFollowsTheDirectionOfTheFog) {
    const IPoint<2> at = sky();
    FogSettings s;
    s.type = 0;
    s.none = 2; // visibility grows with depth
    s.full = 40;
    Fog growing(s);
    growing.start(0, 0, *room.document);
    EXPECT_EQ(row(growing, at.y)[at.x], 0.0f);
    std::swap(s.none, s.full); // the usual haze: visibility falls with depth
    Fog haze(s);
    haze.start(0, 0, *room.document);
    EXPECT_EQ(row(haze, at.y)[at.x], 1.0f);
    // A pixel of alpha 0 takes no part.
    EXPECT_EQ(row(haze, at.y, 0.0f)[at.x], 0.0f);
}

TEST_F(FogRules, TypesAboveEightDoNothingAndDepthIsNeededByType) {
    FogSettings s;
    s.type = 9;
    Fog fog(s);
    fog.start(0, 0, *room.document);
    for (float f : row(fog, 40)) {
        EXPECT_EQ(f, 1.0f);
    }
    for (std::uint32_t type = 0; type < fogTypeCount; ++type) {
        s.type = type;
        EXPECT_EQ(Fog(s).needsDepth(), !(type >= 4 && type <= 7)) << type;
    }
}

TEST_F(FogRules, ImagePlaneTypesWorkPerFaceOnACube) {
    const std::int32_t n = 32;
    RoomScene cube = RoomScene::make(RoomScene::View::cubic, 6 * n, n);
    FogSettings s;
    s.type = 6;
    s.centre2D = {10, 12};
    s.range2D = 20;
    Fog fog(s);
    fog.start(0, 0, *cube.document);
    for (std::int32_t y = 0; y < n; y += 5) {
        Row r(*cube.document, y);
        std::vector<float> f(6 * n);
        fog.visibility(r.span, 0, 6 * n, f.data());
        for (std::int32_t x = 0; x < n; ++x) {
            for (int face = 1; face < 6; ++face) {
                EXPECT_EQ(f[x], f[face * n + x]) << x << "," << y << " face " << face;
            }
            EXPECT_NEAR(f[x], clamp01(std::hypot(x - 10.0, y - 12.0) / 20), 1e-6);
        }
    }
}

/// Paints a whole image through the pipeline with a fog stage.
class WholeImage : public Applicator {
public:
    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override {
        start(document, view, points.front());
        std::vector<float> coverage(document.width(), 1.0f);
        for (std::int32_t y = 0; y < document.height(); ++y) {
            paintRow(document, 0, y, 0, document.width(), coverage.data());
        }
        finish(document, view);
    }
    bool extend(ZmapDocument&, StrokeView*, const StrokePoint&) override { return false; }
    TQL::Handle<TQL::Handlable> pseudoCursor() override { return nullptr; }
    std::uint32_t undoNameId() const override { return 1; }
    void ready() override {}
};

TEST_F(FogRules, TransparentFogFadesThePaintAndColourFogPullsTowardsTheFogColour) {
    auto run = [&](bool transparent) {
        auto document = test::makeTestDocument(100, 20);
        ToolSelection& selection = ToolSelection::instance();
        selection.reset();
        selection.recolour = TQL::makeHandle<LinearRecolour>(200, 100, 0, 1.0f);
        FogSettings s;
        s.type = 5; // along x: visibility 0 at column 0, 1 at column 80
        s.none2D = {0, 0};
        s.full2D = {80, 0};
        s.transparent = transparent;
        s.colour = ColourPOD{250, 250, 250};
        selection.fog = TQL::makeHandle<Fog>(s);
        selection.selectApplicator(TQL::makeHandle<WholeImage>());
        EXPECT_EQ(document->editor.runStroke({StrokePoint{}}, nullptr), status::ok);
        selection.reset();
        return document;
    };
    const auto faded = run(true);
    const auto fogged = run(false);
    const ColourPOD paint{0, 100, 200};
    const ColourPOD fogColour{250, 250, 250};
    // Untouched black where f = 0 when transparent; the fog colour itself otherwise.
    EXPECT_EQ(faded->rgbAt(0, 5), ColourPOD{});
    EXPECT_EQ(fogged->rgbAt(0, 5), fogColour);
    EXPECT_EQ(faded->rgbAt(90, 5), paint);
    EXPECT_EQ(fogged->rgbAt(90, 5), paint);
    // Halfway: half the paint over black, or halfway between fog and paint.
    const ColourPOD half = faded->rgbAt(40, 5);
    EXPECT_NEAR(half.r, 100, 1);
    EXPECT_NEAR(half.g, 50, 1);
    const ColourPOD mixed = fogged->rgbAt(40, 5);
    EXPECT_NEAR(mixed.r, 225, 1);
    EXPECT_NEAR(mixed.b, 125, 1);
    for (std::int32_t x = 1; x < 100; ++x) {
        EXPECT_GE(faded->rgbAt(x, 5).r, faded->rgbAt(x - 1, 5).r);
        EXPECT_LE(fogged->rgbAt(x, 5).r, fogged->rgbAt(x - 1, 5).r);
    }
}

} // namespace
