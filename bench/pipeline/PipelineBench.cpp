// paintRow over a whole 4096 x 4096 document, Normal at full opacity and Multiply at 50 %,
// beside memcpy of the same colour bytes (the ceiling) and OpenCV's addWeighted on an
// image of the same size (the anchor). Speeds in Mpixels/s; the ratios are printed last.

#include "core/ThreadName.h"
#include "image/ZmapDocument.h"
#include "pipeline/Applicator.h"
#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr std::int32_t side = 4096;
constexpr double pixels = double(side) * side;

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

/// A document whose colour is a smooth shading (every tile written), with all channels.
std::unique_ptr<BenchDocument> makeDocument() {
    auto document = std::make_unique<BenchDocument>();
    if (document->setSize(side, side) != status::ok) {
        return nullptr;
    }
    document->rgb = TQL::makeHandle<RgbBitmap>(*document);
    TileHandle hold;
    const std::int32_t tile = document->geometry().tileWidth;
    for (std::int32_t y = 0; y < side; ++y) {
        for (std::int32_t x = 0; x < side; x += tile) {
            ColourPOD* row = document->rgbWrite(x, y, hold);
            for (std::int32_t k = 0; k < tile; ++k) {
                row[k] =
                    ColourPOD{std::uint8_t(x + k), std::uint8_t(y), std::uint8_t((x + y) >> 5)};
            }
        }
    }
    if (document->allocateChannels() != status::ok) {
        return nullptr;
    }
    return document;
}

/// An applicator that only paints rows, with the stages dispatched as the brush and the fill
/// do (one colour blended straight away).
class RowPainter : public Applicator {
public:
    RowPainter() { fuseSolidPaint = true; }
    void apply(ZmapDocument&, StrokeView*, const std::vector<StrokePoint>&) override {}
    bool extend(ZmapDocument&, StrokeView*, const StrokePoint&) override { return false; }
    TQL::Handle<TQL::Handlable> pseudoCursor() override { return nullptr; }
    std::uint32_t undoNameId() const override { return 1219; }
    void ready() override {}
};

/// One stroke over every row of the document: the stroke planes cleared as a stroke's
/// start clears them, then paintRow row by row at full coverage (`oneCoverage`: through
/// the entry for rows known to hold one coverage, as the fill lays them).
void paintWholeDocument(benchmark::State& state, float opacity, std::uint32_t mode,
                        bool oneCoverage = false) {
    auto document = makeDocument();
    if (!document) {
        state.SkipWithError("no document");
        return;
    }
    RowPainter painter;
    painter.effect = TQL::makeHandle<Paint>();
    painter.recolour = TQL::makeHandle<LinearRecolour>(200, 120, 40, 1.0f);
    painter.blend = TQL::makeHandle<Blender>(opacity, mode);
    const std::vector<float> coverage(side, 1.0f);
    auto stroke = [&] {
        document->editor.clearStrokePlanes();
        for (std::int32_t y = 0; y < side; ++y) {
            benchmark::DoNotOptimize(
                oneCoverage
                    ? painter.paintRowOfOneCoverage(*document, 0, y, 0, side, coverage.data())
                    : painter.paintRow(*document, 0, y, 0, side, coverage.data()));
        }
        benchmark::ClobberMemory();
    };
    // One stroke first, untimed: it copies every colour tile away from the undo level
    // (once per tile and undo level) and makes the stroke alpha's tiles; the timed strokes
    // are then all alike.
    stroke();
    const std::uint64_t copiesBefore = LockedHandleVector::tileCopies();
    for (auto _ : state) {
        stroke();
    }
    state.counters["Mpixels/s"] = benchmark::Counter(
        pixels * static_cast<double>(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
    // Tiles copied because a writer found them shared: none once the untimed stroke made
    // them the document's own.
    state.counters["tileCopies/stroke"] =
        benchmark::Counter(static_cast<double>(LockedHandleVector::tileCopies() - copiesBefore) /
                           static_cast<double>(state.iterations()));
}

void paintRowNormalFull(benchmark::State& state) {
    paintWholeDocument(state, 1.0f, 0);
}
void paintRowMultiplyHalf(benchmark::State& state) {
    paintWholeDocument(state, 0.5f, 1);
}
void paintRowOfOneCoverageNormalFull(benchmark::State& state) {
    paintWholeDocument(state, 1.0f, 0, true);
}

void memcpyColour(benchmark::State& state) {
    const std::size_t bytes = static_cast<std::size_t>(pixels) * 3;
    std::vector<std::uint8_t> from(bytes, 7), to(bytes, 0);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::ClobberMemory();
    }
    state.counters["Mpixels/s"] = benchmark::Counter(
        pixels * static_cast<double>(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}

void addWeightedAnchor(benchmark::State& state) {
    cv::Mat a(side, side, CV_8UC3, cv::Scalar(10, 100, 200));
    cv::Mat b(side, side, CV_8UC3, cv::Scalar(200, 120, 40));
    cv::Mat out(side, side, CV_8UC3);
    for (auto _ : state) {
        cv::addWeighted(a, 0.5, b, 0.5, 0.0, out);
        benchmark::ClobberMemory();
    }
    state.counters["Mpixels/s"] = benchmark::Counter(
        pixels * static_cast<double>(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}

// Rates are by processor time (the machine is shared); the clock times are printed beside.
BENCHMARK(paintRowNormalFull)->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK(paintRowMultiplyHalf)->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK(paintRowOfOneCoverageNormalFull)->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK(memcpyColour)->Unit(benchmark::kMillisecond)->Iterations(40);
BENCHMARK(addWeightedAnchor)->Unit(benchmark::kMillisecond)->Iterations(10);

/// Keeps each benchmark's speed (the median with repetitions) for the closing ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto it = run.counters.find("Mpixels/s");
            if (run.error_occurred || it == run.counters.end()) {
                continue;
            }
            const std::string name = run.benchmark_name();
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
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double normal = reporter.speed("paintRowNormalFull");
    const double multiply = reporter.speed("paintRowMultiplyHalf");
    const double oneCoverage = reporter.speed("paintRowOfOneCoverageNormalFull");
    const double copy = reporter.speed("memcpyColour");
    const double anchor = reporter.speed("addWeightedAnchor");
    if (copy > 0 && anchor > 0) {
        std::printf("\nMpixels/s: Normal 100%% %.0f, Multiply 50%% %.0f, memcpy %.0f, "
                    "addWeighted %.0f\n",
                    normal, multiply, copy, anchor);
        std::printf("By processor time: Normal / memcpy %.2f (goal >= 0.5); Multiply / "
                    "addWeighted %.2f (goal >= 1)\n",
                    normal / copy, multiply / anchor);
        if (oneCoverage > 0) {
            std::printf("Rows known to hold one coverage (the fill's entry): Normal 100%% %.0f, "
                        "/ memcpy %.2f\n",
                        oneCoverage, oneCoverage / copy);
        }
    }
    benchmark::Shutdown();
    return 0;
}
