// The image store at full size: the row write path against memcpy of the same bytes, the
// cost of sharing a whole channel, and the memory of a large document.

#include "image/TileHeap.h"
#include "image/TileRowWriter.h"
#include "image/ZmapDocument.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace {

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

/// Resident memory of the process in bytes, from /proc/self/statm.
std::int64_t residentBytes() {
    std::FILE* f = std::fopen("/proc/self/statm", "r");
    long size = 0;
    long resident = 0;
    if (f) {
        if (std::fscanf(f, "%ld %ld", &size, &resident) != 2) {
            resident = 0;
        }
        std::fclose(f);
    }
    return std::int64_t(resident) * ::sysconf(_SC_PAGESIZE);
}

/// A 20000 x 14000 document after allocateChannels, with only its colour written. Memory is
/// measured as growth of the process's resident size (/proc/self/statm) and as the tile
/// heap's bytes in use, each divided by the colour channel's pixel bytes (w * h * 3).
void BM_LargeDocumentMemory(benchmark::State& state) {
    const std::int32_t width = 20000;
    const std::int32_t height = 14000;
    const double colourBytes = double(width) * height * 3;
    std::vector<std::uint8_t> row(std::size_t(width) * 3, 0x80);
    for (auto _ : state) {
        // Runs first, on a heap with nothing parked in the free list.
        TileHeap::purge(true);
        const std::int64_t residentBefore = residentBytes();
        const std::size_t heapBefore = TileHeap::counters().bytesInUse;
        BenchDocument doc;
        if (doc.setSize(width, height) != status::ok) {
            state.SkipWithError("setSize failed");
            break;
        }
        doc.rgb = TQL::makeHandle<RgbBitmap>(doc);
        if (doc.allocateChannels() != status::ok) {
            state.SkipWithError("allocateChannels failed");
            break;
        }
        TileRowWriter writer(*doc.rgb);
        for (std::int32_t y = 0; y < height; ++y) {
            writer.writeRow(0, y, row.data(), width);
        }
        const double resident = double(residentBytes() - residentBefore);
        const double heap = double(TileHeap::counters().bytesInUse - heapBefore);
        state.counters["resident_ratio"] = resident / colourBytes;
        state.counters["heap_ratio"] = heap / colourBytes;
        state.counters["report_ratio"] = double(doc.memoryUsed()) / colourBytes;
        state.counters["colour_MB"] = colourBytes / 1e6;
    }
}
BENCHMARK(BM_LargeDocumentMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

/// Writes every pixel of a 4096 x 4096 colour channel row by row, one tile run at a time,
/// and copies the same bytes with one memcpy a row into a flat buffer, in the same
/// iteration. The tiles are the channel's own (written once before timing), as when a tool
/// paints over an image. Reported time is the channel's; "ratio" is its rate over memcpy's.
void BM_RowWriteAgainstMemcpy(benchmark::State& state) {
    const std::int32_t side = 4096;
    const std::size_t rowBytes = std::size_t(side) * 3;
    auto rgb = TQL::makeHandle<RgbBitmap>(nullptr, TileGeometry::compute(side, side));
    std::vector<std::uint8_t> source(rowBytes);
    for (std::size_t i = 0; i < rowBytes; ++i) {
        source[i] = static_cast<std::uint8_t>(i * 7);
    }
    std::vector<std::uint8_t> flat(rowBytes * side, 1);
    TileRowWriter(*rgb).writeRow(0, 0, source.data(), side); // first touch of tile row 0
    for (std::int32_t y = 0; y < side; ++y) {
        TileRowWriter(*rgb).writeRow(0, y, source.data(), side);
    }

    double tileTime = 0;
    double copyTime = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        TileRowWriter writer(*rgb);
        for (std::int32_t y = 0; y < side; ++y) {
            const std::uint8_t* from = source.data();
            for (std::int32_t x = 0; x < side;) {
                std::int32_t count = 0;
                std::uint8_t* to = writer.run(x, y, count);
                std::memcpy(to, from, std::size_t(count) * 3);
                from += std::size_t(count) * 3;
                x += count;
            }
        }
        const auto t1 = Clock::now();
        for (std::int32_t y = 0; y < side; ++y) {
            std::memcpy(&flat[rowBytes * y], source.data(), rowBytes);
        }
        const auto t2 = Clock::now();
        benchmark::DoNotOptimize(flat.data());
        benchmark::ClobberMemory();
        tileTime += seconds(t0, t1);
        copyTime += seconds(t1, t2);
        state.SetIterationTime(seconds(t0, t1));
    }
    const double bytes = double(rowBytes) * side * state.iterations();
    state.counters["tile_GBps"] = bytes / tileTime / 1e9;
    state.counters["memcpy_GBps"] = bytes / copyTime / 1e9;
    state.counters["ratio"] = copyTime / tileTime;
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_RowWriteAgainstMemcpy)->UseManualTime()->Unit(benchmark::kMillisecond);

/// copyFrom of a 16384 x 16384 colour channel whose 4096 tiles all hold pixels, into an
/// empty channel: handles only. heap_before / heap_after are the tile heap's bytes in use
/// around the copy: equal, since no pixel is copied.
void BM_CopyFromWholeChannel(benchmark::State& state) {
    const std::int32_t side = 16384;
    const TileGeometry geometry = TileGeometry::compute(side, side);
    auto source = TQL::makeHandle<RgbBitmap>(nullptr, geometry);
    for (std::int32_t i = 0; i < geometry.tileCount(); ++i) {
        TileHandle hold;
        source->tileForWrite(i, hold)[0] = 1;
    }
    auto target = TQL::makeHandle<RgbBitmap>(nullptr, geometry);
    std::int64_t before = 0;
    std::int64_t after = 0;
    double total = 0;
    for (auto _ : state) {
        before = static_cast<std::int64_t>(TileHeap::counters().bytesInUse);
        const auto t0 = Clock::now();
        target->copyFrom(*source, true);
        const auto t1 = Clock::now();
        after = static_cast<std::int64_t>(TileHeap::counters().bytesInUse);
        total += seconds(t0, t1);
        state.SetIterationTime(seconds(t0, t1));
        state.PauseTiming();
        target->clearAll();
        state.ResumeTiming();
    }
    state.counters["tiles"] = geometry.tileCount();
    state.counters["ns_per_tile"] =
        total * 1e9 / double(state.iterations()) / double(geometry.tileCount());
    state.counters["heap_MB_before"] = double(before) / 1e6;
    state.counters["heap_MB_after"] = double(after) / 1e6;
}
BENCHMARK(BM_CopyFromWholeChannel)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
