// Brush dabs through the whole pipeline (mask, paintRow, Normal blend) beside libmypaint's
// draw_dab on its fixed tiled surface doing the same dabs (the anchor), at radius 4, 16, 64
// and 200, hardness 0.8, spacing a quarter of the radius, both as a stored stroke and painted
// move by move as by hand. Also a surface brush (PenMask3d)
// of radius about 64 pixels on a receding floor. Speeds are dabs per second; the ratios are
// printed last, in processor time (the machine is shared). libmypaint runs with one
// OpenMP thread, as our pipeline runs on one.

#include "applicators/BrushApplicator.h"
#include "applicators/PenMask2d.h"
#include "applicators/PenMask3d.h"
#include "core/ThreadName.h"
#include "image/RgbBitmap.h"
#include "image/ZmapDocument.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/ToolSelection.h"
#include "views/cameras/ViewProj.h"

#include <benchmark/benchmark.h>

extern "C" {
#include <mypaint-fixed-tiled-surface.h>
#include <mypaint-surface.h>
}

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>

namespace {

constexpr std::int32_t side = 2048;
constexpr float hardness = 0.8f;
/// Pointer moves arrive every 8 pixels, as from a mouse.
constexpr std::int32_t moveStep = 8;

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

/// A document of side x side looking down on a floor (z = 0) that recedes up the image.
std::unique_ptr<BenchDocument> makeDocument() {
    auto document = std::make_unique<BenchDocument>();
    Status s = document->setSize(side, side);
    if (s == status::ok) {
        document->rgb = TQL::makeHandle<RgbBitmap>(*document);
        s = document->allocateChannels();
    }
    if (s != status::ok) {
        throw std::runtime_error("document allocation failed");
    }
    ViewParams view;
    view.viewCode = ViewParams::perspectiveCode;
    view.eye = Point<3>(0, 0, 1.6);
    // Looking along +y, 30 degrees down.
    const double down = 30 * std::acos(-1.0) / 180;
    const Vector<3> z(0, std::cos(down), -std::sin(down));
    const Vector<3> x(1, 0, 0);
    view.xAxis = x;
    view.yAxis = cross(x, z);
    view.zAxis = z;
    view.windowLo = Point<3>(-1, 1, 1);
    view.windowHi = Point<3>(1, -1, 1);
    view.nearDepth = 0.1;
    view.farDepth = 200;
    document->setViewParams(view);
    const ViewProj& proj = *document->viewProj();
    TileHandle zHold;
    TileHandle matHold;
    for (std::int32_t py = 0; py < side; ++py) {
        for (std::int32_t px = 0; px < side; ++px) {
            const Point<3> a = proj.worldFromPixel(px, py, 0);
            const Point<3> b = proj.worldFromPixel(px, py, 4000000000u);
            std::uint32_t code = 0xFFFFFFFFu;
            if ((a.z() - b.z()) > 1e-12 && a.z() > 0 && b.z() < 0) {
                const double t = a.z() / (a.z() - b.z());
                const double c = proj.pixelFromWorld(interp(a, b, t)).z();
                code = c >= 0 && c < 4294967294.0 ? static_cast<std::uint32_t>(c) : 0xFFFFFFFFu;
            }
            *document->zWrite(px, py, zHold) = code;
            *document->matWrite(px, py, matHold) = code == 0xFFFFFFFFu ? 0 : 1;
        }
    }
    zHold.reset();
    matHold.reset();
    document->commitOriginals();
    return document;
}

BenchDocument& document() {
    static std::unique_ptr<BenchDocument> d = makeDocument();
    return *d;
}

/// The points of one stroke: a horizontal line across the image, on a row that moves
/// down a little with each stroke so that strokes don't keep to the same tiles.
std::vector<StrokePoint> strokePoints(std::int32_t radius, std::int64_t stroke, std::int32_t lo,
                                      std::int32_t hi) {
    const std::int32_t rows = std::max<std::int32_t>(1, (hi - lo) - 2 * radius);
    const auto y = static_cast<std::int32_t>(lo + radius + (stroke * 37) % rows);
    std::vector<StrokePoint> points;
    for (std::int32_t x = radius; x <= side - 1 - radius; x += moveStep) {
        points.push_back({x, y, 1.0f, 0});
    }
    return points;
}

void installPaint() {
    ToolSelection& selection = ToolSelection::instance();
    selection.reset();
    selection.recolour = TQL::makeHandle<LinearRecolour>(200, 80, 40, 1.0f);
}

void runBrush(benchmark::State& state, const TQL::Handle<PenMask>& mask, std::int32_t radius,
              std::int32_t lo, std::int32_t hi) {
    BenchDocument& d = document();
    installPaint();
    BrushSettings settings;
    settings.spacing = 0.25;
    std::int64_t dabs = 0;
    std::int64_t stroke = 0;
    for (auto _ : state) {
        auto brush = TQL::makeHandle<BrushApplicator>(settings, mask);
        ToolSelection::instance().selectApplicator(brush);
        if (d.editor.runStroke(strokePoints(radius, stroke++, lo, hi), nullptr) != status::ok) {
            state.SkipWithError("stroke failed");
            return;
        }
        dabs += brush->dabCount();
    }
    ToolSelection::instance().reset();
    state.counters["dabs/s"] =
        benchmark::Counter(static_cast<double>(dabs), benchmark::Counter::kIsRate);
    state.counters["dabs/stroke"] = static_cast<double>(dabs) / state.iterations();
}

/// The same strokes painted as a hand paints them: begin, one continue a pointer move (the
/// dabs of each move painted before the next), end.
void runBrushPerMove(benchmark::State& state, const TQL::Handle<PenMask>& mask,
                     std::int32_t radius) {
    BenchDocument& d = document();
    installPaint();
    BrushSettings settings;
    settings.spacing = 0.25;
    std::int64_t dabs = 0;
    std::int64_t stroke = 0;
    for (auto _ : state) {
        auto brush = TQL::makeHandle<BrushApplicator>(settings, mask);
        ToolSelection::instance().selectApplicator(brush);
        const std::vector<StrokePoint> points = strokePoints(radius, stroke++, 0, side);
        Status s = d.editor.beginStroke(points.front(), nullptr);
        for (std::size_t i = 1; i < points.size() && s == status::ok; ++i) {
            s = d.editor.continueStroke(points[i]);
        }
        if (s == status::ok) {
            s = d.editor.endStroke();
        }
        if (s != status::ok) {
            state.SkipWithError("stroke failed");
            return;
        }
        dabs += brush->dabCount();
    }
    ToolSelection::instance().reset();
    state.counters["dabs/s"] =
        benchmark::Counter(static_cast<double>(dabs), benchmark::Counter::kIsRate);
    state.counters["dabs/stroke"] = static_cast<double>(dabs) / state.iterations();
}

void flatBrushPerMove(benchmark::State& state) {
    const auto radius = static_cast<std::int32_t>(state.range(0));
    auto mask = TQL::makeHandle<PenMask2d>(
        radius, 1.0, Angle(), MaskProfile::make(MaskProfile::soft, hardness), true, false);
    runBrushPerMove(state, mask, radius);
}

void flatBrush(benchmark::State& state) {
    const auto radius = static_cast<std::int32_t>(state.range(0));
    auto mask = TQL::makeHandle<PenMask2d>(
        radius, 1.0, Angle(), MaskProfile::make(MaskProfile::soft, hardness), true, false);
    runBrush(state, mask, radius, 0, side);
}

void mypaintDabs(benchmark::State& state) {
    const auto radius = static_cast<std::int32_t>(state.range(0));
    MyPaintFixedTiledSurface* fixed = mypaint_fixed_tiled_surface_new(side, side);
    MyPaintSurface* surface = mypaint_fixed_tiled_surface_interface(fixed);
    const double spacing = radius * 0.25;
    std::int64_t dabs = 0;
    std::int64_t stroke = 0;
    for (auto _ : state) {
        // The same dabs as our brush places along the same line.
        const std::vector<StrokePoint> points = strokePoints(radius, stroke++, 0, side);
        mypaint_surface_begin_atomic(surface);
        const double x0 = points.front().x;
        const double x1 = points.back().x;
        for (double x = x0; x <= x1 + 1e-9; x += spacing) {
            mypaint_surface_draw_dab(surface, static_cast<float>(std::lround(x)),
                                     static_cast<float>(points.front().y),
                                     static_cast<float>(radius), 200 / 255.f, 80 / 255.f,
                                     40 / 255.f, 1.0f, hardness, 1.0f, 1.0f, 0.0f, 0.0f, 0.0f);
            ++dabs;
        }
        MyPaintRectangle roi;
        mypaint_surface_end_atomic(surface, &roi);
    }
    mypaint_surface_unref(surface);
    state.counters["dabs/s"] =
        benchmark::Counter(static_cast<double>(dabs), benchmark::Counter::kIsRate);
    state.counters["dabs/stroke"] = static_cast<double>(dabs) / state.iterations();
}

/// The surface brush on the floor, sized to about 64 pixels across the stroke's rows.
void surfaceBrush(benchmark::State& state) {
    BenchDocument& d = document();
    const std::int32_t lo = side * 5 / 8;
    const std::int32_t hi = side * 6 / 8;
    auto probe = TQL::makeHandle<PenMask3d>(
        1.0, 1.0, Angle(), MaskProfile::make(MaskProfile::soft, hardness), true, false);
    probe->prepare(d);
    IExtent<2> box;
    probe->bounds(box, d, {side / 2, (lo + hi) / 2});
    const double unitRadius = (box.width() - 1) * 0.5;
    auto mask =
        TQL::makeHandle<PenMask3d>(64.0 / unitRadius, 1.0, Angle(),
                                   MaskProfile::make(MaskProfile::soft, hardness), true, false);
    runBrush(state, mask, 64, lo, hi);
}

BENCHMARK(flatBrush)
    ->Arg(4)
    ->Arg(16)
    ->Arg(64)
    ->Arg(200)
    ->Unit(benchmark::kMillisecond)

    ->MinTime(1.0);
BENCHMARK(flatBrushPerMove)
    ->Arg(4)
    ->Arg(16)
    ->Arg(64)
    ->Arg(200)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);
BENCHMARK(mypaintDabs)
    ->Arg(4)
    ->Arg(16)
    ->Arg(64)
    ->Arg(200)
    ->Unit(benchmark::kMillisecond)

    ->MinTime(1.0);
BENCHMARK(surfaceBrush)->Unit(benchmark::kMillisecond)->MinTime(1.0);

/// Keeps each benchmark's speed for the closing ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto it = run.counters.find("dabs/s");
            if (!run.error_occurred && it != run.counters.end() &&
                run.run_type == Run::RT_Iteration) {
                speeds[run.run_name.function_name + "/" + run.run_name.args] = it->second.value;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> speeds;
};

} // namespace

int main(int argc, char** argv) {
    // One thread for libmypaint's tile processing, as our pipeline paints on one.
    ::setenv("OMP_NUM_THREADS", "1", 1);
    benchmark::Initialize(&argc, argv);
    TQL::setMainThread();
    document();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n%-8s %12s %12s %12s %8s %8s\n", "radius", "stored", "per move", "mypaint",
                "stored", "per move");
    for (const int r : {4, 16, 64, 200}) {
        const double ours = reporter.speeds["flatBrush/" + std::to_string(r)];
        const double perMove = reporter.speeds["flatBrushPerMove/" + std::to_string(r)];
        const double anchor = reporter.speeds["mypaintDabs/" + std::to_string(r)];
        std::printf("%-8d %12.0f %12.0f %12.0f %8.2f %8.2f\n", r, ours, perMove, anchor,
                    anchor > 0 ? ours / anchor : 0, anchor > 0 ? perMove / anchor : 0);
    }
    for (const auto& [name, speed] : reporter.speeds) {
        if (name.rfind("surfaceBrush", 0) == 0) {
            std::printf("surface brush, radius about 64: %.0f dabs/s\n", speed);
        }
    }
    benchmark::Shutdown();
    return 0;
}
