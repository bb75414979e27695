// The way a rendering goes about its work (the height of its bands, shading deferred to
// the end of a band or done at once, the threads that shade) must not change a pixel.

#include "RenderTestSupport.h"

#include "core/Quark.h"
#include "core/Reporter.h"
#include "effects/LightSet.h"
#include "interchange/ModelImage.h"
#include "interchange/model/ExportError.h"
#include "interchange/polygon/Clump.h"
#include "interchange/render/ModelRenderer.h"
#include "interchange/render/TriangleFiller.h"
#include "views/cameras/QuorvaleCamera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numbers>
#include <random>
#include <set>

namespace {

using test::RecordingBuffer;

/// The floor and box, a smooth column, and a cloud of overlapping tilted triangles over
/// them: hidden surfaces, shadows on flat and smooth faces, triangles cut by the view.
TQL::Handle<SmoothModelImp> busyScene() {
    auto model = test::floorAndBox();
    Clump clump(0.001);
    std::vector<Clump::Index> bottom, top;
    const int sides = 10;
    for (int i = 0; i < sides; ++i) {
        const double a = 2 * std::numbers::pi * i / sides;
        bottom.push_back(clump.addPoint({3 + std::cos(a), 2 + std::sin(a), 0}));
        top.push_back(clump.addPoint({3 + std::cos(a), 2 + std::sin(a), 3}));
    }
    for (int i = 0; i < sides; ++i) {
        const int j = (i + 1) % sides;
        clump.addFace(std::vector<Clump::Index>{bottom[i], bottom[j], top[j], top[i]},
                      Quark::create(L"Column"), 1);
    }
    model->addClump(clump, false, Quark(), Angle::degrees(60), Quark());

    std::mt19937 random(11);
    std::uniform_real_distribution<double> across(-6, 6), up(0.2, 4);
    std::vector<Point<3>> points;
    std::vector<std::array<std::uint32_t, 3>> triangles;
    for (std::uint32_t i = 0; i < 40; ++i) {
        const Point<3> c(across(random), across(random), up(random));
        for (int k = 0; k < 3; ++k) {
            points.push_back(c +
                             Vector<3>(across(random) / 4, across(random) / 4, across(random) / 8));
        }
        triangles.push_back({3 * i, 3 * i + 1, 3 * i + 2});
    }
    model->addTriangles(Quark::create(L"Leaves"), points, triangles);
    model->finish();
    return model;
}

struct Picture {
    std::vector<std::uint32_t> codes, flags;
    std::vector<ColourPOD> colours;
    std::vector<std::uint8_t> alphas;
    std::vector<MaterialId> materials;
};

Picture draw(const SmoothModelImp& model, const Camera& camera, const Lighting& lights,
             std::int32_t w, std::int32_t h, const RenderOptions& options) {
    RecordingBuffer b(w, h);
    ModelRenderer(model, camera, b, lights, nullptr, false, w, h, SectionBox{}, options).run();
    EXPECT_EQ(b.finished, 1);
    return {b.codes, b.flags, b.colours, b.alphas, b.materials};
}

void expectSamePicture(const Picture& a, const Picture& b) {
    EXPECT_EQ(a.codes, b.codes);
    EXPECT_EQ(a.flags, b.flags);
    EXPECT_EQ(a.alphas, b.alphas);
    EXPECT_EQ(a.materials, b.materials);
    ASSERT_EQ(a.colours.size(), b.colours.size());
    std::size_t differ = 0;
    for (std::size_t i = 0; i < a.colours.size(); ++i) {
        differ += a.colours[i].r != b.colours[i].r || a.colours[i].g != b.colours[i].g ||
                  a.colours[i].b != b.colours[i].b;
    }
    EXPECT_EQ(differ, 0u);
}

TEST(ModelRenderer, BandHeightAndShadingOrderChangeNoPixel) {
    const auto model = busyScene();
    const std::int32_t w = 160, h = 120;
    for (const bool shadows : {true, false}) {
        for (const auto view :
             {ModelImageSettings::View::perspective, ModelImageSettings::View::parallel}) {
            SCOPED_TRACE(testing::Message() << "shadows " << shadows << ", view " << int(view));
            ModelImageSettings settings;
            settings.view = view;
            settings.shadows = shadows;
            const ViewParams params = modelViewParams(*model, settings, w, h);
            const QuorvaleCamera camera(UniformTransform<3>(), params, w, h, model->bounds(),
                                        IExtent<2>(0, 0, w - 1, h - 1));
            const auto lights = modelLights(settings);
            const Picture reference = draw(*model, camera, *lights, w, h, RenderOptions{});
            // Something of everything is there to compare.
            std::set<MaterialId> seen(reference.materials.begin(), reference.materials.end());
            EXPECT_GE(seen.size(), 4u);
            if (shadows) {
                EXPECT_NE(std::count_if(reference.flags.begin(), reference.flags.end(),
                                        [](std::uint32_t f) { return f & Buffer::shadowFlags; }),
                          0);
            }
            for (const std::int64_t bandPixels :
                 {std::int64_t(w), std::int64_t(7) * w, std::int64_t(w) * h * 2}) {
                for (const bool immediate : {false, true}) {
                    SCOPED_TRACE(testing::Message()
                                 << "band rows " << bandPixels / w << ", immediate " << immediate);
                    expectSamePicture(reference, draw(*model, camera, *lights, w, h,
                                                      RenderOptions{bandPixels, immediate}));
                }
            }
        }
    }
}

TEST(ModelRenderer, ShadingThreadsChangeNoPixel) {
    const auto model = busyScene();
    // Wide enough for several columns of shading a band, so that threads share each band.
    const std::int32_t w = 400, h = 150;
    for (const auto view :
         {ModelImageSettings::View::perspective, ModelImageSettings::View::parallel}) {
        SCOPED_TRACE(testing::Message() << "view " << int(view));
        ModelImageSettings settings;
        settings.view = view;
        settings.shadows = true;
        settings.sunAzimuth = 200;
        settings.sunElevation = 30;
        const ViewParams params = modelViewParams(*model, settings, w, h);
        const QuorvaleCamera camera(UniformTransform<3>(), params, w, h, model->bounds(),
                                    IExtent<2>(0, 0, w - 1, h - 1));
        const auto lights = modelLights(settings);
        RenderOptions one;
        one.shadingThreads = 1;
        const Picture reference = draw(*model, camera, *lights, w, h, one);
        EXPECT_NE(std::count_if(reference.flags.begin(), reference.flags.end(),
                                [](std::uint32_t f) { return f & Buffer::shadowFlags; }),
                  0);
        for (const unsigned threads : {2u, 3u, 0u}) {
            for (const std::int64_t bandPixels : {std::int64_t(3) * w, std::int64_t(w) * h}) {
                SCOPED_TRACE(testing::Message()
                             << "threads " << threads << ", band rows " << bandPixels / w);
                RenderOptions options;
                options.shadingThreads = threads;
                options.bandPixels = bandPixels;
                expectSamePicture(reference, draw(*model, camera, *lights, w, h, options));
            }
        }
    }
}

/// A town of side x side boxes (ten triangles each) on a ground: enough triangles for the
/// set-up to be shared out in several parts.
TQL::Handle<SmoothModelImp> town(int side) {
    auto model = TQL::makeHandle<SmoothModelImp>();
    std::mt19937 random(4);
    std::uniform_real_distribution<double> tall(0.5, 6);
    model->addPolygon(Quark::create(L"Ground"), std::vector<Point<3>>{{-1, -1, 0},
                                                                      {side + 1.0, -1, 0},
                                                                      {side + 1.0, side + 1.0, 0},
                                                                      {-1, side + 1.0, 0}});
    const std::uint32_t faces[10][3] = {{4, 5, 6}, {4, 6, 7}, {0, 1, 5}, {0, 5, 4}, {1, 2, 6},
                                        {1, 6, 5}, {2, 3, 7}, {2, 7, 6}, {3, 0, 4}, {3, 4, 7}};
    std::vector<Point<3>> points[2];
    std::vector<std::array<std::uint32_t, 3>> triangles[2];
    for (int j = 0; j < side; ++j) {
        for (int i = 0; i < side; ++i) {
            const int m = (i + j) % 2;
            const double x = i + 0.2, y = j + 0.2, h = tall(random);
            const auto first = static_cast<std::uint32_t>(points[m].size());
            for (double z : {0.0, h}) {
                points[m].insert(
                    points[m].end(),
                    {{x, y, z}, {x + 0.6, y, z}, {x + 0.6, y + 0.6, z}, {x, y + 0.6, z}});
            }
            for (const auto& f : faces) {
                triangles[m].push_back({first + f[0], first + f[1], first + f[2]});
            }
        }
    }
    model->addTriangles(Quark::create(L"Brick"), points[0], triangles[0]);
    model->addTriangles(Quark::create(L"Glass"), points[1], triangles[1]);
    model->finish();
    return model;
}

TEST(ModelRenderer, SetupThreadsChangeNoPixel) {
    // The shadow casters, the trees and the bands' lists are made in parts by the set-up
    // threads, then joined; the drawing must be that of one thread, also where the section
    // box cuts the casters' walls into several pieces and the view cuts the near streets.
    const auto model = town(48);
    const std::int32_t w = 240, h = 160;
    ModelImageSettings settings;
    settings.fit = false;
    settings.shadows = true;
    settings.sunAzimuth = 130;
    settings.sunElevation = 35;
    settings.eye = Point<3>(20, -2, 6);
    settings.target = Point<3>(24, 20, 0);
    settings.fieldOfView = 70;
    const ViewParams params = modelViewParams(*model, settings, w, h);
    const QuorvaleCamera camera(UniformTransform<3>(), params, w, h, model->bounds(),
                                IExtent<2>(0, 0, w - 1, h - 1));
    const auto lights = modelLights(settings);
    for (const SectionBox& box : {SectionBox{}, SectionBox{0.05, 0.1, 0, 0.9, 0.8, 0.5}}) {
        auto picture = [&](unsigned threads) {
            RecordingBuffer b(w, h);
            RenderOptions options;
            options.setupThreads = threads;
            options.shadingThreads = 1;
            ModelRenderer(*model, camera, b, *lights, nullptr, false, w, h, box, options).run();
            return Picture{b.codes, b.flags, b.colours, b.alphas, b.materials};
        };
        const Picture reference = picture(1);
        EXPECT_NE(std::count_if(reference.flags.begin(), reference.flags.end(),
                                [](std::uint32_t f) { return f & Buffer::shadowFlags; }),
                  0);
        for (const unsigned threads : {2u, 3u}) {
            SCOPED_TRACE(testing::Message()
                         << threads << " set-up threads, section box " << box[3]);
            expectSamePicture(reference, picture(threads));
        }
    }
}

TEST(ModelRenderer, RowsFilledSeveralPixelsAtATimeDrawAsOneAtATime) {
    if (!TriangleFiller::vectorRowsAvailable()) {
        GTEST_SKIP() << "this processor fills rows one pixel at a time only";
    }
    // Both depth codings of the cameras here (the perspective view's inverse depth and the
    // parallel view's linear one), flat rows coloured at once with and without kept flags,
    // rows with shading work, and walls that meet the ground and each other edge to edge,
    // where equal codes must tie the same way.
    struct Case {
        TQL::Handle<SmoothModelImp> model;
        ModelImageSettings settings;
    };
    std::vector<Case> cases;
    for (const bool shadows : {true, false}) {
        for (const auto view :
             {ModelImageSettings::View::perspective, ModelImageSettings::View::parallel}) {
            Case c{busyScene(), {}};
            c.settings.view = view;
            c.settings.shadows = shadows;
            cases.push_back(c);
        }
    }
    Case streets{town(24), {}};
    streets.settings.fit = false;
    streets.settings.shadows = true;
    streets.settings.eye = Point<3>(10, -2, 5);
    streets.settings.target = Point<3>(12, 12, 0);
    streets.settings.fieldOfView = 70;
    cases.push_back(streets);
    // Two grounds in one plane: every pixel of the second ties with the first, and a tie
    // goes to the surface drawn last.
    Case twice{TQL::makeHandle<SmoothModelImp>(), {}};
    for (const wchar_t* name : {L"Floor", L"Paint"}) {
        twice.model->addPolygon(
            Quark::create(name),
            std::vector<Point<3>>{{-5, -5, 0}, {5, -5, 0}, {5, 5, 0}, {-5, 5, 0}});
    }
    twice.model->finish();
    cases.push_back(twice);
    const std::int32_t w = 203, h = 97;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "case " << i);
        const SmoothModelImp& model = *cases[i].model;
        const ViewParams params = modelViewParams(model, cases[i].settings, w, h);
        const QuorvaleCamera camera(UniformTransform<3>(), params, w, h, model.bounds(),
                                    IExtent<2>(0, 0, w - 1, h - 1));
        const auto lights = modelLights(cases[i].settings);
        RenderOptions plain;
        plain.plainRows = true;
        const Picture reference = draw(model, camera, *lights, w, h, plain);
        EXPECT_GT(std::count(reference.alphas.begin(), reference.alphas.end(), 255), w * h / 4);
        expectSamePicture(reference, draw(model, camera, *lights, w, h, RenderOptions{}));
    }
}

/// Asks to abandon at its `stopAt`th report.
class StoppingReporter : public Reporter {
public:
    explicit StoppingReporter(int stop) : stopAt(stop) {}
    bool report(unsigned, unsigned, double) override { return ++calls == stopAt; }
    int stopAt;
    int calls = 0;
};

TEST(ModelRenderer, AGivenUpDrawingHandsOverOnlyWholeRowsInOrder) {
    // While one band is shaded by the helpers the next is drawn: a drawing given up in the
    // middle must stop the shading under way and leave the rows handed over so far as the
    // whole drawing has them, top first, and no others.
    const auto model = busyScene();
    const std::int32_t w = 400, h = 60;
    ModelImageSettings settings;
    settings.shadows = true;
    settings.sunAzimuth = 200;
    settings.sunElevation = 30;
    const ViewParams params = modelViewParams(*model, settings, w, h);
    const QuorvaleCamera camera(UniformTransform<3>(), params, w, h, model->bounds(),
                                IExtent<2>(0, 0, w - 1, h - 1));
    const auto lights = modelLights(settings);
    for (const unsigned threads : {1u, 2u, 3u}) {
        SCOPED_TRACE(testing::Message() << "threads " << threads);
        RenderOptions options;
        options.shadingThreads = threads;
        options.bandPixels = 2 * w;
        const Picture whole = draw(*model, camera, *lights, w, h, options);
        for (const int stopAt : {1, 3, 5}) {
            SCOPED_TRACE(testing::Message() << "stopped at report " << stopAt);
            StoppingReporter stop(stopAt);
            RecordingBuffer b(w, h);
            EXPECT_THROW(
                ModelRenderer(*model, camera, b, *lights, &stop, false, w, h, SectionBox{}, options)
                    .run(),
                ExportError);
            EXPECT_EQ(stop.calls, stopAt);
            EXPECT_EQ(b.finished, 0);
            ASSERT_LT(b.rowsPut.size(), static_cast<std::size_t>(h));
            for (std::size_t y = 0; y < b.rowsPut.size(); ++y) {
                ASSERT_EQ(b.rowsPut[y], static_cast<std::int32_t>(y));
            }
            const std::size_t put = b.rowsPut.size() * static_cast<std::size_t>(w);
            std::size_t differ = 0;
            for (std::size_t i = 0; i < put; ++i) {
                differ += b.codes[i] != whole.codes[i] || b.flags[i] != whole.flags[i] ||
                          b.colours[i].r != whole.colours[i].r ||
                          b.colours[i].g != whole.colours[i].g ||
                          b.colours[i].b != whole.colours[i].b;
            }
            EXPECT_EQ(differ, 0u);
        }
    }
}

} // namespace
