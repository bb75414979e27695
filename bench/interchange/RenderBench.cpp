// Rendering a model of a million triangles (a city of boxes on a ground) into a new
// document of 4096 x 3072, with and without the sun's shadows, beside OpenCV's
// fillConvexPoly filling the same triangles, projected by the same camera, into a colour
// image: the anchor, which writes colour only and tests no depth. The shadows are built on
// every core and the shadowed drawing is shaded by `threads` threads, so times are by the
// clock (the processor time shown is the whole process's).

#include "core/Quark.h"
#include "core/StringUtils.h"
#include "effects/LightSet.h"
#include "image/DocumentBuffer.h"
#include "image/ZmapDocument.h"
#include "interchange/ModelImage.h"
#include "interchange/render/ModelRenderer.h"
#include "interchange/render/SmoothModelImp.h"
#include "views/cameras/QuorvaleCamera.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr std::int32_t width = 4096;
constexpr std::int32_t height = 3072;
/// 316 x 316 boxes of ten triangles (no bottoms), and the ground's two.
constexpr int side = 316;
constexpr double cell = 10;

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

struct Scene {
    TQL::Handle<SmoothModelImp> model;
    ViewParams view;
    std::unique_ptr<QuorvaleCamera> camera;
};

const Scene& scene() {
    static const Scene s = [] {
        Scene scene;
        scene.model = TQL::makeHandle<SmoothModelImp>();
        std::mt19937 random(3);
        std::uniform_real_distribution<double> tall(3, 30);
        const char* names[4] = {"Concrete", "Brick", "Glass", "Stone"};
        const int colours[4] = {254, 13, 151, 43};
        for (int m = 0; m < 4; ++m) {
            scene.model->setMaterialAttribute(Quark::create(getWCS(names[m])), L"colour",
                                              std::to_wstring(colours[m]));
        }
        const double extent = side * cell;
        scene.model->addPolygon(Quark::create(L"Ground"),
                                std::vector<Point<3>>{{-cell, -cell, 0},
                                                      {extent + cell, -cell, 0},
                                                      {extent + cell, extent + cell, 0},
                                                      {-cell, extent + cell, 0}});
        // Corners 0-3 at the foot, 4-7 at the top; ten triangles: the top and four walls.
        const std::uint32_t faces[10][3] = {{4, 5, 6}, {4, 6, 7}, {0, 1, 5}, {0, 5, 4}, {1, 2, 6},
                                            {1, 6, 5}, {2, 3, 7}, {2, 7, 6}, {3, 0, 4}, {3, 4, 7}};
        std::vector<Point<3>> points[4];
        std::vector<std::array<std::uint32_t, 3>> triangles[4];
        for (int j = 0; j < side; ++j) {
            for (int i = 0; i < side; ++i) {
                const int m = (i * 7 + j * 3) % 4;
                const double x = i * cell + 2, y = j * cell + 2, h = tall(random);
                const auto first = static_cast<std::uint32_t>(points[m].size());
                for (double z : {0.0, h}) {
                    points[m].insert(points[m].end(),
                                     {{x, y, z}, {x + 6, y, z}, {x + 6, y + 6, z}, {x, y + 6, z}});
                }
                for (const auto& f : faces) {
                    triangles[m].push_back({first + f[0], first + f[1], first + f[2]});
                }
            }
        }
        for (int m = 0; m < 4; ++m) {
            scene.model->addTriangles(Quark::create(getWCS(names[m])), points[m], triangles[m]);
        }
        scene.model->finish();
        ModelImageSettings settings;
        settings.fit = false;
        settings.eye = Point<3>(0.5 * extent, -0.2 * extent, 1.1 * extent);
        settings.target = Point<3>(0.5 * extent, 0.5 * extent, 0);
        settings.fieldOfView = 62;
        scene.view = modelViewParams(*scene.model, settings, width, height);
        // The window widened or narrowed to the city's corners, so that it fills the frame.
        ViewParams& v = scene.view;
        double lox = INFINITY, hix = -INFINITY, loy = INFINITY, hiy = -INFINITY;
        for (int i = 0; i < 8; ++i) {
            const Vector<3> d = scene.model->bounds().corner(i) - v.eye;
            const double depth = dot(d, v.zAxis);
            lox = std::min(lox, dot(d, v.xAxis) / depth);
            hix = std::max(hix, dot(d, v.xAxis) / depth);
            loy = std::min(loy, dot(d, v.yAxis) / depth);
            hiy = std::max(hiy, dot(d, v.yAxis) / depth);
        }
        const double step = std::max((hix - lox) / (width - 1), (hiy - loy) / (height - 1));
        const double cx = (lox + hix) / 2, cy = (loy + hiy) / 2;
        v.windowLo = Point<3>(cx - step * (width - 1) / 2, cy + step * (height - 1) / 2, 1);
        v.windowHi = Point<3>(cx + step * (width - 1) / 2, cy - step * (height - 1) / 2, 1);
        scene.camera = std::make_unique<QuorvaleCamera>(UniformTransform<3>(), scene.view, width,
                                                        height, scene.model->bounds(),
                                                        IExtent<2>(0, 0, width - 1, height - 1));
        return scene;
    }();
    return s;
}

/// The same triangles through the same camera, in their material's grey, ready for OpenCV.
struct AnchorScene {
    static constexpr int shift = 8; // sub-pixel bits
    std::vector<std::array<cv::Point, 3>> triangles;
    std::vector<cv::Scalar> colours;

    /// Fills every triangle into `image`.
    void fill(cv::Mat& image) const {
        for (std::size_t i = 0; i < triangles.size(); ++i) {
            cv::fillConvexPoly(image, triangles[i].data(), 3, colours[i], cv::LINE_8, shift);
        }
    }
};

const AnchorScene& anchorScene() {
    static const AnchorScene a = [] {
        const Scene& s = scene();
        AnchorScene anchor;
        for (const SmoothModelImp::Mesh& mesh : s.model->meshes()) {
            std::vector<cv::Point> screen(mesh.points.size());
            for (std::size_t i = 0; i < mesh.points.size(); ++i) {
                const Point<3> p = s.camera->project(mesh.points[i]);
                screen[i] =
                    cv::Point(static_cast<int>(std::lround(p.x() * (1 << AnchorScene::shift))),
                              static_cast<int>(std::lround(p.y() * (1 << AnchorScene::shift))));
            }
            const double grey = 64 + 48 * mesh.material->order;
            for (const SmoothModelImp::Triangle& t : mesh.triangles) {
                anchor.triangles.push_back({screen[mesh.vertices[t.vertex[0]].point],
                                            screen[mesh.vertices[t.vertex[1]].point],
                                            screen[mesh.vertices[t.vertex[2]].point]});
                anchor.colours.emplace_back(grey, grey, grey);
            }
        }
        return anchor;
    }();
    return a;
}

void fillConvexPolyAnchor(benchmark::State& state) {
    const AnchorScene& a = anchorScene();
    cv::Mat image(height, width, CV_8UC3, cv::Scalar(240, 230, 220));
    for (auto _ : state) {
        a.fill(image);
        benchmark::DoNotOptimize(image.data);
    }
    const double iterations = static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(a.triangles.size()));
    state.counters["pixels"] =
        benchmark::Counter(iterations * width * height, benchmark::Counter::kIsRate);
}
BENCHMARK(fillConvexPolyAnchor)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

} // namespace

void renderModel(benchmark::State& state) {
    const Scene& s = scene();
    const bool shadows = state.range(0) != 0;
    RenderOptions options;
    options.shadingThreads = static_cast<unsigned>(state.range(1));
    ModelImageSettings settings;
    settings.sunAzimuth = 240;
    settings.sunElevation = 35;
    settings.shadows = shadows;
    const TQL::Handle<LightSet> lights = modelLights(settings);
    BenchDocument doc;
    (void)doc.setSize(width, height);
    doc.rgb = TQL::makeHandle<RgbBitmap>(doc);
    doc.z = TQL::makeHandle<ZBitmap>(doc, ZBitmap::noDepth);
    doc.mat = TQL::makeHandle<MatBitmap>(doc);
    const std::vector<MaterialId> ids = {1, 2, 3, 4, 5};
    // The anchor is filled once after each drawing, outside the timed part, so that both
    // see the same load on a shared machine; the ratio is of their times by the clock.
    const AnchorScene& anchor = anchorScene();
    cv::Mat image(height, width, CV_8UC3, cv::Scalar(240, 230, 220));
    double drawing = 0, anchored = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        DocumentBuffer buffer(doc, ColourPOD{240, 230, 220}, ids);
        ModelRenderer(*s.model, *s.camera, buffer, *lights, nullptr, false, width, height,
                      SectionBox{}, options)
            .run();
        const auto rendered = std::chrono::steady_clock::now();
        state.PauseTiming();
        const auto filling = std::chrono::steady_clock::now();
        anchor.fill(image);
        benchmark::DoNotOptimize(image.data);
        const auto filled = std::chrono::steady_clock::now();
        state.ResumeTiming();
        drawing += std::chrono::duration<double>(rendered - start).count();
        anchored += std::chrono::duration<double>(filled - filling).count();
    }
    std::int64_t drawn = 0;
    for (std::int32_t y = 0; y < height; y += 16) {
        for (std::int32_t x = 0; x < width; x += 16) {
            drawn += doc.zAt(x, y) != ZBitmap::noDepth;
        }
    }
    // A check sum of every pixel's colour, so that a change to the renderer that should
    // change no pixel can be seen to keep them (the low 24 bits of an FNV-1a hash, which a
    // counter shows exactly).
    std::uint32_t hash = 2166136261u;
    TileHandle hold;
    std::int32_t tile = -1;
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            const ColourPOD c = doc.rgbAtCached(x, y, hold, tile);
            for (const std::uint8_t v : {c.r, c.g, c.b}) {
                hash = (hash ^ v) * 16777619u;
            }
        }
    }
    state.counters["colour_hash"] = static_cast<double>(hash & 0xFFFFFFu);
    const double iterations = static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations() *
                            static_cast<std::int64_t>(s.model->triangleCount()));
    state.counters["pixels"] =
        benchmark::Counter(iterations * width * height, benchmark::Counter::kIsRate);
    state.counters["drawn"] = double(drawn) / ((width / 16) * (height / 16));
    state.counters["vs_anchor"] = anchored / drawing;
}
BENCHMARK(renderModel)
    ->Args({0, 1})
    ->Args({1, 1})
    ->Args({1, 2})
    ->ArgNames({"shadows", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

BENCHMARK_MAIN();
