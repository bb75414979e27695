// The image view's redraw loop on a large document: from a changed 256 x 256 extent to the
// backing store holding it (the drawing thread's walk, the copy into the store and its
// pyramid, the posted invalidation), at 1:1 and at 1:4, beside memcpy of the same bytes.

#include "image/ZmapDocument.h"
#include "views/ZmapView.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

/// Posts go nowhere: the measure ends when the store holds the pixels.
class NullWindow : public ViewWindow {
public:
    void postInvalidate(const IExtent<2>&) override {}
    void invalidateWindow() override {}
};

class PatientFinish : public DrawThread::FinishWaiter {
public:
    bool poll() const override { return true; }
};

constexpr std::int32_t side = 8192;
constexpr std::int32_t changed = 256;

/// An 8192 x 8192 document with every colour pixel written (a shading with noise).
BenchDocument& document() {
    static std::unique_ptr<BenchDocument> doc = [] {
        auto d = std::make_unique<BenchDocument>();
        if (d->setSize(side, side) != status::ok) {
            return std::unique_ptr<BenchDocument>();
        }
        d->rgb = TQL::makeHandle<RgbBitmap>(*d);
        if (d->allocateChannels() != status::ok) {
            return std::unique_ptr<BenchDocument>();
        }
        std::uint32_t state = 1;
        TileHandle hold;
        for (std::int32_t y = 0; y < side; ++y) {
            for (std::int32_t x = 0; x < side;) {
                std::uint8_t* p = nullptr;
                const std::int32_t n = d->rgb->runForWrite(x, y, hold, &p);
                for (std::int32_t i = 0; i < n; ++i) {
                    state = state * 69069 + 1;
                    p[i * 3] = static_cast<std::uint8_t>(x + i + (state >> 29));
                    p[i * 3 + 1] = static_cast<std::uint8_t>(y);
                    p[i * 3 + 2] = static_cast<std::uint8_t>((x + i + y) >> 5);
                }
                x += n;
            }
        }
        return d;
    }();
    return *doc;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

/// range(0): the zoom denominator (1 for 1:1, 4 for 1:4).
void BM_ViewUpdate(benchmark::State& state) {
    BenchDocument& doc = document();
    if (!doc.rgb) {
        state.SkipWithError("document could not be made");
        return;
    }
    const auto denominator = static_cast<std::int32_t>(state.range(0));
    DrawThread thread;
    NullWindow window;
    ZmapView view(doc, thread, window);
    view.OnInitialUpdate(1600, 1000, false);
    view.setZoom(1, denominator);
    thread.finish(PatientFinish()); // the whole store drawn once

    // The anchor: memcpy of the changed extent's bytes, between two buffers that stay in
    // memory like the document and the store.
    const std::size_t bytes = std::size_t(changed) * changed * 3;
    std::vector<std::uint8_t> from(bytes * 64, 1);
    std::vector<std::uint8_t> to(bytes * 64, 2);

    std::vector<double> latencies;
    std::vector<double> copies;
    std::int64_t k = 0;
    const Clock::time_point start = Clock::now();
    for (auto _ : state) {
        // Extents anywhere, not aligned to tiles, so most meet four tiles.
        const std::int32_t x = static_cast<std::int32_t>((k * 1237) % (side - changed));
        const std::int32_t y = static_cast<std::int32_t>((k * 3571) % (side - changed));
        const Clock::time_point t0 = Clock::now();
        view.invalidateImage(IExtent<2>(x, y, x + changed - 1, y + changed - 1));
        thread.finish(PatientFinish());
        const Clock::time_point t1 = Clock::now();
        const double seconds = std::chrono::duration<double>(t1 - t0).count();
        latencies.push_back(seconds);
        state.SetIterationTime(seconds);

        const std::size_t slot = std::size_t(k % 64) * bytes;
        const Clock::time_point c0 = Clock::now();
        std::memcpy(to.data() + slot, from.data() + slot, bytes);
        benchmark::ClobberMemory();
        copies.push_back(std::chrono::duration<double>(Clock::now() - c0).count());
        ++k;
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const double m = median(latencies);
    const double c = median(copies);
    state.counters["median_ms"] = m * 1e3;
    state.counters["updates_per_s"] =
        double(latencies.size()) / std::max(elapsed - c * double(copies.size()), 1e-9);
    state.counters["memcpy_median_ms"] = c * 1e3;
    state.counters["ratio_to_memcpy"] = c > 0 ? m / c : 0;
}

BENCHMARK(BM_ViewUpdate)
    ->Arg(1)
    ->Arg(4)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(3.0);

} // namespace

BENCHMARK_MAIN();
