// Building the pyramid of a 4096 x 4096 RGBA texture beside a chain of cv::pyrDown on the
// same image; trilinear MipMap::sample beside cv::remap (INTER_LINEAR) on the same
// coordinates, on one thread and on OpenCV's default threads; and the noise grain over a 4096 x
// 4096 fill. Prints the ratios at the end.

#include "texture/Grain.h"
#include "texture/MipMap.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int side = 4096;
constexpr int samples = 1 << 20; // as a 1024 x 1024 map for cv::remap

struct Picture {
    std::vector<std::uint8_t> rgb;
    std::vector<float> alpha;
    cv::Mat bgra;
    Picture()
        : rgb(std::size_t(side) * side * 3), alpha(std::size_t(side) * side),
          bgra(side, side, CV_8UC4) {
        std::mt19937 random(7);
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                const std::size_t i = std::size_t(y) * side + x;
                const std::uint8_t b = std::uint8_t(x ^ y), g = std::uint8_t(x * 3 + y),
                                   r = std::uint8_t(random());
                const std::uint8_t a = std::uint8_t((x / 64 + y / 64) % 2 ? 255 : (x & 255));
                rgb[i * 3] = b;
                rgb[i * 3 + 1] = g;
                rgb[i * 3 + 2] = r;
                alpha[i] = a / 255.0f;
                bgra.at<cv::Vec4b>(y, x) = cv::Vec4b(b, g, r, a);
            }
        }
    }
};

const Picture& picture() {
    static const Picture p;
    return p;
}

std::map<std::string, double>& times() {
    static std::map<std::string, double> t;
    return t;
}

std::map<std::string, double>& processTimes() {
    static std::map<std::string, double> t;
    return t;
}

/// Processor time of the whole process (every thread), in seconds.
double processSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

/// The process's processor time an iteration, kept beside the clock time: on a machine shared
/// with other work the clock says little, the processor time still compares like with like.
struct ProcessTime {
    explicit ProcessTime(benchmark::State& s) : state(s), start(processSeconds()) {}
    ~ProcessTime() {
        const double each = (processSeconds() - start) / double(state.iterations());
        state.counters["process_ms"] = each * 1e3;
    }
    benchmark::State& state;
    double start;
};

void BM_MipMapBuild(benchmark::State& state) {
    const Picture& p = picture();
    {
        ProcessTime clock(state);
        for (auto _ : state) {
            tex::MipMap map(side, side, p.rgb.data(), p.alpha.data(), false);
            benchmark::DoNotOptimize(map.levels);
        }
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(side) * side);
    state.counters["Mpixels/s"] = benchmark::Counter(double(side) * side / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

void BM_PyrDownChain(benchmark::State& state) {
    const Picture& p = picture();
    {
        ProcessTime clock(state);
        for (auto _ : state) {
            cv::Mat level = p.bgra;
            while (level.cols > 1 || level.rows > 1) {
                cv::Mat next;
                cv::pyrDown(level, next, cv::Size((level.cols + 1) / 2, (level.rows + 1) / 2));
                level = next;
            }
            benchmark::DoNotOptimize(level.data);
        }
    }
    state.counters["Mpixels/s"] = benchmark::Counter(double(side) * side / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

struct Coordinates {
    std::vector<float> u, v, footprint;
    cv::Mat mapX, mapY;
    Coordinates()
        : u(samples), v(samples), footprint(samples, 1.6f), mapX(1024, 1024, CV_32FC1),
          mapY(1024, 1024, CV_32FC1) {
        std::mt19937 random(11);
        std::uniform_real_distribution<float> at(2.0f, side - 2.0f);
        for (int i = 0; i < samples; ++i) {
            u[i] = at(random);
            v[i] = at(random);
            // cv::remap reads pixel centres at integers; ours at k + 0.5.
            mapX.at<float>(i / 1024, i % 1024) = u[i] - 0.5f;
            mapY.at<float>(i / 1024, i % 1024) = v[i] - 0.5f;
        }
    }
};

const Coordinates& coordinates() {
    static const Coordinates c;
    return c;
}

void BM_MipMapSampleTrilinear(benchmark::State& state) {
    const Picture& p = picture();
    static const tex::MipMap map(side, side, p.rgb.data(), p.alpha.data(), true);
    const Coordinates& c = coordinates();
    std::vector<std::uint8_t> rgb(std::size_t(samples) * 3);
    std::vector<float> alpha(samples);
    {
        ProcessTime clock(state);
        for (auto _ : state) {
            map.sample(rgb.data(), alpha.data(), c.u.data(), c.v.data(), c.footprint.data(),
                       samples, false);
            benchmark::DoNotOptimize(rgb.data());
        }
    }
    state.counters["Msamples/s"] =
        benchmark::Counter(samples / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

/// cv::remap on `threads` threads (0: OpenCV's default, every core); the thread count is
/// restored afterwards.
void remapLinear(benchmark::State& state, int threads) {
    const Picture& p = picture();
    const Coordinates& c = coordinates();
    const int before = cv::getNumThreads();
    if (threads > 0) {
        cv::setNumThreads(threads);
    }
    cv::Mat out;
    {
        ProcessTime clock(state);
        for (auto _ : state) {
            cv::remap(p.bgra, out, c.mapX, c.mapY, cv::INTER_LINEAR, cv::BORDER_WRAP);
            benchmark::DoNotOptimize(out.data);
        }
    }
    cv::setNumThreads(before);
    state.counters["Msamples/s"] =
        benchmark::Counter(samples / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

/// The anchor as our painting runs: on one thread.
void BM_RemapLinear(benchmark::State& state) {
    remapLinear(state, 1);
}

/// The anchor with OpenCV's default threads (both cores here).
void BM_RemapLinearAllThreads(benchmark::State& state) {
    remapLinear(state, 0);
}

void BM_NoiseGrainFill(benchmark::State& state) {
    tex::NoiseGrain grain(TQL::makeHandle<tex::SimpleNoise>(1.0, 8.0, 0.5, false));
    grain.setCubic(nullptr);
    std::vector<float> alpha(256);
    Span span;
    span.alpha = alpha.data();
    for (auto _ : state) {
        for (int y = 0; y < side; ++y) {
            for (int x0 = 0; x0 < side; x0 += 256) {
                std::fill(alpha.begin(), alpha.end(), 1.0f);
                span.x = x0;
                span.y = y;
                span.length = 256;
                grain.run(span, 0, 256);
            }
        }
        benchmark::DoNotOptimize(alpha.data());
    }
    state.counters["Mpixels/s"] = benchmark::Counter(double(side) * side / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

/// Keeps each benchmark's real time an iteration (OpenCV runs on every core, so its CPU
/// time on the calling thread would flatter it).
class RateReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            // With repetitions the median stands for the benchmark (it comes after the
            // single runs); the other aggregates are no times of a run.
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") {
                continue;
            }
            const std::string full = run.benchmark_name();
            const std::string name = full.substr(0, full.find('/'));
            times()[name] = run.GetAdjustedRealTime();
            if (const auto c = run.counters.find("process_ms"); c != run.counters.end()) {
                processTimes()[name] = c->second.value;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

BENCHMARK(BM_MipMapBuild)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_PyrDownChain)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_MipMapSampleTrilinear)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_RemapLinear)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_RemapLinearAllThreads)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_NoiseGrainFill)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto& t = times();
    auto& cpu = processTimes();
    auto ratio = [&t, &cpu](const char* ours, const char* anchor) {
        if (t.count(ours) && t.count(anchor) && t[ours] > 0) {
            std::printf("%s: %.3f of the speed of %s (real time)\n", ours, t[anchor] / t[ours],
                        anchor);
        }
        if (cpu.count(ours) && cpu.count(anchor) && cpu[ours] > 0) {
            std::printf("%s: %.3f of the speed of %s (process time)\n", ours,
                        cpu[anchor] / cpu[ours], anchor);
        }
    };
    ratio("BM_MipMapBuild", "BM_PyrDownChain");
    // The sampling goal is measured against remap on one thread, as our painting runs.
    ratio("BM_MipMapSampleTrilinear", "BM_RemapLinear");
    ratio("BM_MipMapSampleTrilinear", "BM_RemapLinearAllThreads");
    benchmark::Shutdown();
    return 0;
}
