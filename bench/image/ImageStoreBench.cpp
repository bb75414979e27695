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

/// Paints a 256 x 256 square at (100, 100) of a 1024 x 1024 colour channel one pixel at a
/// time through one reused handle (pixelForWrite), as a tool that pins a tile and writes
/// through it does. Before every iteration the channel's tiles are shared with a snapshot
/// (an undo level), so each tile the square touches must be copied exactly once: "copies"
/// is LockedHandleVector::tileCopies() over one iteration, "tiles" the tiles the square
/// touches, "copies_per_tile" their ratio (1 is right). The anchor is the same square
/// written pixel by pixel into a flat array in the same iteration; "ratio" is the flat
/// time over the channel's.
void BM_PaintSquareThroughOneHandle(benchmark::State& state) {
    const std::int32_t side = 1024;
    const std::int32_t x0 = 100;
    const std::int32_t y0 = 100;
    const std::int32_t square = 256;
    const TileGeometry geometry = TileGeometry::compute(side, side);
    auto rgb = TQL::makeHandle<RgbBitmap>(nullptr, geometry);
    auto snapshot = TQL::makeHandle<RgbBitmap>(nullptr, geometry);
    std::vector<std::uint8_t> row(std::size_t(side) * 3, 0x40);
    {
        TileRowWriter writer(*rgb);
        for (std::int32_t y = 0; y < side; ++y) {
            writer.writeRow(0, y, row.data(), side);
        }
    }
    std::vector<std::uint8_t> flat(std::size_t(side) * side * 3, 0x40);
    const std::int64_t touched =
        std::int64_t(((x0 + square - 1) >> geometry.xShift) - (x0 >> geometry.xShift) + 1) *
        (((y0 + square - 1) >> geometry.yShift) - (y0 >> geometry.yShift) + 1);

    std::uint64_t copies = 0;
    double tileTime = 0;
    double flatTime = 0;
    std::uint8_t value = 0;
    for (auto _ : state) {
        state.PauseTiming();
        snapshot->copyFrom(*rgb, true); // every tile shared again
        ++value;
        state.ResumeTiming();
        const std::uint64_t before = LockedHandleVector::tileCopies();
        const auto t0 = Clock::now();
        TileHandle hold;
        for (std::int32_t y = y0; y < y0 + square; ++y) {
            for (std::int32_t x = x0; x < x0 + square; ++x) {
                std::uint8_t* p = rgb->pixelForWrite(x, y, hold, nullptr);
                p[0] = value;
                p[1] = value;
                p[2] = value;
            }
        }
        hold.reset();
        const auto t1 = Clock::now();
        for (std::int32_t y = y0; y < y0 + square; ++y) {
            for (std::int32_t x = x0; x < x0 + square; ++x) {
                std::uint8_t* p = &flat[(std::size_t(y) * side + x) * 3];
                p[0] = value;
                p[1] = value;
                p[2] = value;
                benchmark::DoNotOptimize(p);
            }
        }
        const auto t2 = Clock::now();
        copies = LockedHandleVector::tileCopies() - before;
        tileTime += seconds(t0, t1);
        flatTime += seconds(t1, t2);
        state.SetIterationTime(seconds(t0, t1));
    }
    state.counters["copies"] = double(copies);
    state.counters["tiles"] = double(touched);
    state.counters["copies_per_tile"] = double(copies) / double(touched);
    state.counters["ns_per_pixel"] =
        tileTime * 1e9 / double(state.iterations()) / double(square * square);
    state.counters["ratio"] = flatTime / tileTime;
}
BENCHMARK(BM_PaintSquareThroughOneHandle)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
