// The undo store at full size: the cost of closing an action (pushLevel) for documents of
// different sizes, and how much the store grows after a write to a small part of the image.

#include "image/TileHeap.h"
#include "image/TileRowWriter.h"
#include "image/ZmapDocument.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <vector>

namespace {

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

using Clock = std::chrono::steady_clock;

/// A document of width x height whose colour channel is written everywhere, with its undo
/// store holding that image as level 0. Null if it can't be made.
std::unique_ptr<BenchDocument> filledDocument(std::int32_t width, std::int32_t height) {
    auto doc = std::make_unique<BenchDocument>();
    if (doc->setSize(width, height) != status::ok) {
        return nullptr;
    }
    doc->rgb = TQL::makeHandle<RgbBitmap>(*doc);
    TileRowWriter writer(*doc->rgb);
    std::vector<std::uint8_t> row(std::size_t(width) * 3, 0x80);
    for (std::int32_t y = 0; y < height; ++y) {
        writer.writeRow(0, y, row.data(), width);
    }
    if (doc->allocateChannels() != status::ok) {
        return nullptr;
    }
    return doc;
}

/// Closes an action on a document of state.range(0) x state.range(1) pixels: pushLevel,
/// after an undo (untimed) so that each push also drops the redo level it replaces, as a
/// push after an undo does. The store keeps two levels throughout. A level snapshots the
/// channels that exist (colour, material, depth and the five overlay channels; no wet
/// layer here): "ns_per_tile" is the time over the tiles of one channel.
void BM_PushLevel(benchmark::State& state) {
    const auto width = static_cast<std::int32_t>(state.range(0));
    const auto height = static_cast<std::int32_t>(state.range(1));
    auto doc = filledDocument(width, height);
    if (!doc) {
        state.SkipWithError("document failed");
        return;
    }
    UndoBuffer& store = *doc->editor.undoBuffer;
    double total = 0;
    for (auto _ : state) {
        Status s = status::ok;
        store.undo(s);
        const auto t0 = Clock::now();
        store.pushLevel(s, 0);
        const auto t1 = Clock::now();
        if (s != status::ok) {
            state.SkipWithError("pushLevel failed");
            break;
        }
        const double seconds = std::chrono::duration<double>(t1 - t0).count();
        total += seconds;
        state.SetIterationTime(seconds);
    }
    const double tiles = doc->geometry().tileCount();
    state.counters["tiles"] = tiles;
    state.counters["Mpixels"] = double(width) * height / 1e6;
    state.counters["ns_per_tile"] = total / double(state.iterations()) / tiles * 1e9;
}
BENCHMARK(BM_PushLevel)
    ->Args({10000, 7000})
    ->Args({4096, 4096})
    ->Args({2048, 2048})
    ->Args({1000, 700})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

/// A 10000 x 7000 document, colour written everywhere; an action writes a rectangle of
/// state.range(2) x state.range(3) colour pixels at (state.range(0), state.range(1)) and is
/// closed with pushLevel. Growth of memoryInUse and of the tile heap's bytes in use, over
/// the colour bytes of the image, of the rectangle, and of the tiles the rectangle touches;
/// "kept_per_tiles" leaves out the new level's own structure (its handles).
void BM_GrowthAfterSmallWrite(benchmark::State& state) {
    const std::int32_t width = 10000;
    const std::int32_t height = 7000;
    const auto x0 = static_cast<std::int32_t>(state.range(0));
    const auto y0 = static_cast<std::int32_t>(state.range(1));
    const auto w = static_cast<std::int32_t>(state.range(2));
    const auto h = static_cast<std::int32_t>(state.range(3));
    for (auto _ : state) {
        TileHeap::purge(true);
        auto doc = filledDocument(width, height);
        if (!doc) {
            state.SkipWithError("document failed");
            break;
        }
        UndoBuffer& store = *doc->editor.undoBuffer;
        const std::int64_t storeBefore = store.memoryInUse();
        const std::size_t heapBefore = TileHeap::counters().bytesInUse;
        {
            TileRowWriter writer(*doc->rgb);
            std::vector<std::uint8_t> row(std::size_t(w) * 3, 0x20);
            for (std::int32_t y = y0; y < y0 + h; ++y) {
                writer.writeRow(x0, y, row.data(), w);
            }
        }
        Status s = status::ok;
        store.pushLevel(s, 0);
        const double growth = double(store.memoryInUse() - storeBefore);
        const double heapGrowth = double(TileHeap::counters().bytesInUse - heapBefore);
        const TileGeometry& g = doc->geometry();
        const double tilesTouched = double(((x0 + w - 1) >> g.xShift) - (x0 >> g.xShift) + 1) *
                                    (((y0 + h - 1) >> g.yShift) - (y0 >> g.yShift) + 1);
        const double tileBytes = double(g.tileWidth) * g.tileHeight * 3;
        const double imageBytes = double(width) * height * 3;
        state.counters["written_pct"] = 100.0 * w * h / (double(width) * height);
        state.counters["growth_pct"] = 100.0 * growth / imageBytes;
        state.counters["growth_per_written"] = growth / (double(w) * h * 3);
        state.counters["growth_per_tiles"] = growth / (tilesTouched * tileBytes);
        // The store held one level before: its structure is what the new level adds too.
        state.counters["kept_per_tiles"] =
            (growth - double(storeBefore)) / (tilesTouched * tileBytes);
        state.counters["heap_per_tiles"] = heapGrowth / (tilesTouched * tileBytes);
        state.counters["tiles_touched"] = tilesTouched;
    }
}
BENCHMARK(BM_GrowthAfterSmallWrite)
    ->Args({0, 0, 1024, 768})     // tile-aligned: 4 x 3 tiles
    ->Args({0, 0, 1000, 700})     // from the corner
    ->Args({128, 128, 1000, 700}) // off the tile grid: 5 x 4 tiles
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
