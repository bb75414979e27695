// The fill on a 4096 x 4096 document: a flood with the material lock over a region of about
// 60% of the image, beside OpenCV's floodFill (4-connected, exact match) on an 8-bit image
// of the same labels (the anchor); and a whole-image fill with depth fog. Speeds in
// Mpixels/s of pixels filled; the ratio is printed last.

#include "applicators/Filler.h"
#include "core/ThreadName.h"
#include "image/RgbBitmap.h"
#include "image/ZmapDocument.h"
#include "pipeline/Fog.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Matte.h"
#include "pipeline/ToolSelection.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>

namespace {

constexpr std::int32_t side = 4096;

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

/// The labels: material 1 over columns below 80% and rows below 78% of the image, but for
/// squares of material 2 in a grid; material 3 elsewhere. About 60% of the image is
/// material 1, one 4-connected region.
MaterialId label(std::int32_t x, std::int32_t y) {
    if (x >= side * 8 / 10 || y >= side * 78 / 100) {
        return 3;
    }
    return (x % 64) < 16 && (y % 64) < 16 && x > 64 && y > 64 ? 2 : 1;
}

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
    view.nearDepth = 1;
    view.farDepth = 100;
    document->setViewParams(view);
    TileHandle matHold, zHold;
    for (std::int32_t y = 0; y < side; ++y) {
        for (std::int32_t x = 0; x < side; ++x) {
            *document->matWrite(x, y, matHold) = label(x, y);
            // A floor receding towards the top: depth grows up the image.
            *document->zWrite(x, y, zHold) =
                static_cast<std::uint32_t>((side - y) * (4294967294.0 / side));
        }
    }
    matHold.reset();
    zHold.reset();
    document->commitOriginals();
    return document;
}

BenchDocument& document() {
    static std::unique_ptr<BenchDocument> d = makeDocument();
    return *d;
}

std::int64_t regionPixels() {
    std::int64_t n = 0;
    for (std::int32_t y = 0; y < side; ++y) {
        for (std::int32_t x = 0; x < side; ++x) {
            n += label(x, y) == 1;
        }
    }
    return n;
}

/// Fills from (10, 10) once an iteration with the selection's stages, flooding or the
/// whole image; gives the pixels painted (0 after a failure, which ends the benchmark).
std::int64_t fillFromTheCorner(benchmark::State& state, BenchDocument& d, bool flood) {
    std::int64_t painted = 0;
    for (auto _ : state) {
        auto filler = TQL::makeHandle<Filler>(flood);
        ToolSelection::instance().selectApplicator(filler);
        if (d.editor.runStroke({StrokePoint{10, 10, 1.0f, 0}}, nullptr) != status::ok) {
            state.SkipWithError("fill failed");
            return 0;
        }
        painted += filler->pixelsPainted();
    }
    return painted;
}

void floodMaterialLock(benchmark::State& state) {
    BenchDocument& d = document();
    ToolSelection& selection = ToolSelection::instance();
    selection.reset();
    selection.recolour = TQL::makeHandle<LinearRecolour>(200, 80, 40, 1.0f);
    selection.matting = TQL::makeHandle<Matte>(MatteSettings(), false, false, true, false);
    const std::int64_t painted = fillFromTheCorner(state, d, true);
    selection.reset();
    state.counters["Mpixels/s"] =
        benchmark::Counter(static_cast<double>(painted) / 1e6, benchmark::Counter::kIsRate);
    state.counters["share"] = static_cast<double>(painted) / state.iterations() / side / side;
}

void floodFillAnchor(benchmark::State& state) {
    cv::Mat labels(side, side, CV_8UC1);
    for (std::int32_t y = 0; y < side; ++y) {
        for (std::int32_t x = 0; x < side; ++x) {
            labels.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>(label(x, y));
        }
    }
    std::int64_t painted = 0;
    for (auto _ : state) {
        state.PauseTiming();
        cv::Mat image = labels.clone();
        state.ResumeTiming();
        const int n = cv::floodFill(image, cv::Point(10, 10), cv::Scalar(200), nullptr,
                                    cv::Scalar(0), cv::Scalar(0), 4);
        benchmark::DoNotOptimize(image.data);
        painted += n;
    }
    state.counters["Mpixels/s"] =
        benchmark::Counter(static_cast<double>(painted) / 1e6, benchmark::Counter::kIsRate);
}

void wholeImageDepthFog(benchmark::State& state) {
    BenchDocument& d = document();
    ToolSelection& selection = ToolSelection::instance();
    selection.reset();
    selection.recolour = TQL::makeHandle<LinearRecolour>(200, 80, 40, 1.0f);
    FogSettings fog;
    fog.type = 0;
    fog.none = 90;
    fog.full = 5;
    selection.fog = TQL::makeHandle<Fog>(fog);
    const std::int64_t painted = fillFromTheCorner(state, d, false);
    selection.reset();
    state.counters["Mpixels/s"] =
        benchmark::Counter(static_cast<double>(painted) / 1e6, benchmark::Counter::kIsRate);
}

BENCHMARK(floodMaterialLock)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);
BENCHMARK(floodFillAnchor)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);
BENCHMARK(wholeImageDepthFog)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

/// Keeps each benchmark's speed (the median with repetitions) for the closing ratio.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto it = run.counters.find("Mpixels/s");
            if (run.error_occurred || it == run.counters.end()) {
                continue;
            }
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians[run.run_name.function_name] = it->second.value;
            } else if (run.run_type == Run::RT_Iteration) {
                last[run.run_name.function_name] = it->second.value;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    double speed(const std::string& name) const {
        if (const auto it = medians.find(name); it != medians.end()) {
            return it->second;
        }
        const auto it = last.find(name);
        return it == last.end() ? 0.0 : it->second;
    }
    std::map<std::string, double> medians, last;
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    // As in the application: tiles freed on the main thread go to the free list.
    TQL::setMainThread();
    std::printf("region: %.1f%% of %dx%d\n", 100.0 * regionPixels() / side / side, side, side);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double flood = reporter.speed("floodMaterialLock");
    const double anchor = reporter.speed("floodFillAnchor");
    const double fog = reporter.speed("wholeImageDepthFog");
    if (flood > 0 && anchor > 0) {
        std::printf("\nMpixels/s: flood with material lock %.1f, cv::floodFill %.1f, "
                    "whole image with depth fog %.1f\n",
                    flood, anchor, fog);
        std::printf("flood / cv::floodFill %.2f (goal >= 1)\n", flood / anchor);
    }
    benchmark::Shutdown();
    return 0;
}
