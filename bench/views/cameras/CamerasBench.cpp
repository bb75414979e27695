// Pixel-to-world conversion and plane fitting on a 4096 x 4096 synthetic scene, beside a
// bare 3 x 3 affine transform of the same points (the ceiling of the conversion).

#include "image/ZmapDocument.h"
#include "support/SyntheticScene.h"
#include "support/TestDocument.h"
#include "views/cameras/ViewProj.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

constexpr std::int32_t side = 4096;
/// Rows of codes converted per iteration.
constexpr std::int32_t stripRows = 16;

ViewParams roomView(std::uint32_t viewCode) {
    ViewParams v;
    v.viewCode = viewCode;
    v.eye = Point<3>(0.3, viewCode == ViewParams::cubicCode ? 8 : 0, 1.6);
    const double az = 85 * M_PI / 180, al = -12 * M_PI / 180;
    v.zAxis = Vector<3>(std::cos(al) * std::cos(az), std::cos(al) * std::sin(az), std::sin(al));
    v.xAxis = Vector<3>(std::sin(az), -std::cos(az), 0);
    v.yAxis = cross(v.xAxis, v.zAxis);
    if (viewCode == ViewParams::parallelCode) {
        v.windowLo = Point<3>(-9, 9, 0);
        v.windowHi = Point<3>(9, -9, 0);
        v.eye = Point<3>(0, -6, 4);
    }
    v.nearDepth = 0.1;
    v.farDepth = 100;
    return v;
}

/// A room corner with a box, as the surface tests use, seen in perspective.
struct Scene {
    std::unique_ptr<test::TestDocument> document;
    std::vector<std::uint32_t> codes; ///< the first stripRows rows below the middle
    std::vector<IPoint<2>> surface;   ///< every 64th pixel across and down that has depth

    Scene() : document(test::makeTestDocument(side, side)) {
        test::SyntheticScene scene;
        const Extent<3> walls(Point<3>(-100, -100, 0), Point<3>(100, 100, 3));
        scene.add(Plane(), 1);
        scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 14, 0)), 2, walls);
        scene.add(Plane(Vector<3>(-1, 0.2, 0), Point<3>(6, 0, 0)), 3, walls);
        scene.addBox(Extent<3>(Point<3>(-3.5, 4, 0), Point<3>(-0.5, 7.5, 1.2)), 4);
        document->setViewParams(roomView(ViewParams::perspectiveCode));
        scene.render(*document);
        for (std::int32_t y = 0; y < stripRows; ++y) {
            for (std::int32_t x = 0; x < side; ++x) {
                codes.push_back(document->zAt(x, side / 2 + y));
            }
        }
        for (std::int32_t y = 32; y < side; y += 64) {
            for (std::int32_t x = 32; x < side; x += 64) {
                if (document->zAt(x, y) != depth::noDepth) {
                    surface.push_back({x, y});
                }
            }
        }
    }
};

const Scene& scene() {
    static const Scene s;
    return s;
}

void BM_WorldFromPixel(benchmark::State& state) {
    const Scene& s = scene();
    const ViewProj view(roomView(static_cast<std::uint32_t>(state.range(0))), side,
                        state.range(0) == ViewParams::cubicCode ? side / 6 : side);
    for (auto _ : state) {
        double sum = 0;
        const std::uint32_t* code = s.codes.data();
        for (std::int32_t y = 0; y < stripRows; ++y) {
            for (std::int32_t x = 0; x < side; ++x) {
                const Point<3> p = view.worldFromPixel(x, y, *code++);
                sum += p.x() + p.y() + p.z();
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * stripRows * side);
}
BENCHMARK(BM_WorldFromPixel)
    ->Arg(ViewParams::perspectiveCode)
    ->Arg(ViewParams::parallelCode)
    ->Arg(ViewParams::cubicCode);

/// The ceiling: the same points through a plain 3 x 3 matrix and translation, inline.
void BM_AffineCeiling(benchmark::State& state) {
    const Scene& s = scene();
    const ViewProj view(roomView(ViewParams::parallelCode), side, side);
    double m[3][3], t[3];
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            m[i][j] = view.toWorld().linear()(i, j);
        }
        t[i] = view.toWorld().translation()[i];
    }
    for (auto _ : state) {
        double sum = 0;
        const std::uint32_t* code = s.codes.data();
        for (std::int32_t y = 0; y < stripRows; ++y) {
            for (std::int32_t x = 0; x < side; ++x) {
                const double c = *code++;
                sum += (x * m[0][0] + y * m[1][0] + c * m[2][0] + t[0]) +
                       (x * m[0][1] + y * m[1][1] + c * m[2][1] + t[1]) +
                       (x * m[0][2] + y * m[1][2] + c * m[2][2] + t[2]);
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * stripRows * side);
}
BENCHMARK(BM_AffineCeiling);

/// Planes at a grid of pixels with depth over the whole image.
template <bool least> void planes(benchmark::State& state) {
    const Scene& s = scene();
    for (auto _ : state) {
        double sum = 0;
        for (const IPoint<2> p : s.surface) {
            const Plane plane =
                least ? s.document->planeAt(p.x, p.y) : s.document->localPlaneAt(p.x, p.y);
            sum += plane.normal().z();
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(s.surface.size()));
    state.counters["pixels"] = static_cast<double>(s.surface.size());
}
void BM_PlaneAt(benchmark::State& state) {
    planes<true>(state);
}
void BM_LocalPlaneAt(benchmark::State& state) {
    planes<false>(state);
}
BENCHMARK(BM_PlaneAt)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LocalPlaneAt)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
