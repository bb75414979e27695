// The copy-on-write tile store, tested through the bitmaps: sharing is checked by tile
// identity, and every write is checked against the pixels it must leave alone.
#include "image/TileBitmap.h"
#include "image/TileRowWriter.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cstring>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace {

/// A 150 x 100 colour bitmap: 3 x 2 tiles of 64 (the last column 22 wide, the last row 36).
TQL::Handle<RgbBitmap> makeRgb(std::int32_t w = 150, std::int32_t h = 100) {
    return TQL::makeHandle<RgbBitmap>(nullptr, TileGeometry::compute(w, h));
}

ColourPOD pattern(std::int32_t x, std::int32_t y) {
    return {static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y),
            static_cast<std::uint8_t>(x ^ y)};
}

void fill(TileBitmap& b) {
    TileRowWriter writer(b);
    for (std::int32_t y = 0; y < b.geometry().height; ++y) {
        for (std::int32_t x = 0; x < b.geometry().width; ++x) {
            std::int32_t n = 0;
            const ColourPOD c = pattern(x, y);
            std::memcpy(writer.run(x, y, n), &c, 3);
        }
    }
}

/// Every pixel equals the pattern, except (ex, ey) which must equal `changed`.
void expectPattern(const TileBitmap& b, std::int32_t ex = -1, std::int32_t ey = -1,
                   ColourPOD changed = {}) {
    for (std::int32_t y = 0; y < b.geometry().height; ++y) {
        for (std::int32_t x = 0; x < b.geometry().width; ++x) {
            const ColourPOD want = x == ex && y == ey ? changed : pattern(x, y);
            ASSERT_EQ(b.valueAt<ColourPOD>(x, y), want) << x << "," << y;
        }
    }
}

TEST(TileStore, FirstWriteAfterCopyPrivatisesOnlyThatTile) {
    auto a = makeRgb();
    fill(*a);
    auto b = makeRgb();
    b->copyFrom(*a, false);
    for (std::int32_t i = 0; i < 6; ++i) {
        EXPECT_TRUE(b->sharesTile(i, *a)) << i;
    }

    TileHandle hold;
    std::int32_t index = -1;
    const TileHandle before = a->tiles().get(4);
    auto* p = reinterpret_cast<ColourPOD*>(b->pixelForWrite(70, 70, hold, &index));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(index, 4);
    *p = ColourPOD{1, 2, 3};
    hold.reset();

    // Only tile 4 is a new tile, in b only; a's tile 4 is the very tile it had.
    for (std::int32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(b->sharesTile(i, *a), i != 4) << i;
    }
    EXPECT_TRUE(a->tiles().get(4) == before);
    expectPattern(*a);
    expectPattern(*b, 70, 70, ColourPOD{1, 2, 3});

    // A second write to the now private tile copies nothing.
    // (Compared by address: keeping a handle would share the tile.)
    const TileBitmapTile* privateTile = b->tiles().get(4).get();
    TileHandle again;
    b->pixelForWrite(71, 70, again, nullptr);
    EXPECT_EQ(again.get(), privateTile);
}

// Copy on write by tile identity: which tile a bitmap holds after writes, and how many
// tiles were copied (LockedHandleVector::tileCopies counts every copy the store makes).

/// Copies made by `write()`.
template <class F> std::uint64_t copiesMadeBy(F write) {
    const std::uint64_t before = LockedHandleVector::tileCopies();
    write();
    return LockedHandleVector::tileCopies() - before;
}

TEST(CopyOnWrite, WritesThroughOneReusedHandleKeepTheTile) {
    auto b = makeRgb();
    fill(*b);
    TileHandle hold;
    b->pixelForRead(70, 70, hold, nullptr); // a reader's pin, then writes through it
    const TileBitmapTile* tile = b->tiles().get(4).get();
    const std::uint64_t copies = copiesMadeBy([&] {
        for (std::int32_t k = 0; k < 4; ++k) {
            auto* p = reinterpret_cast<ColourPOD*>(b->pixelForWrite(70 + k, 70, hold, nullptr));
            ASSERT_NE(p, nullptr);
            *p = ColourPOD{9, 9, 9};
            ASSERT_EQ(b->tiles().get(4).get(), tile) << "write " << k;
        }
        ASSERT_NE(b->tileForWrite(4, hold), nullptr);
        std::uint8_t* run = nullptr;
        ASSERT_EQ(b->runForWrite(64, 64, hold, &run), 64);
        EXPECT_EQ(b->tiles().get(4).get(), tile);
    });
    EXPECT_EQ(copies, 0u);
    EXPECT_EQ(b->valueAt<ColourPOD>(73, 70), (ColourPOD{9, 9, 9}));
    EXPECT_EQ(b->valueAt<ColourPOD>(74, 70), pattern(74, 70));

    // The document's pixel writes and the row writer follow the same rule.
    auto doc = test::makeTestDocument(150, 100);
    doc->editor.undoBuffer.reset(); // no level shares the tiles
    TileHandle docHold;
    *doc->zWrite(3, 3, docHold) = 5;
    const TileBitmapTile* zTile = doc->z->tiles().get(0).get();
    EXPECT_EQ(copiesMadeBy([&] {
                  for (std::int32_t k = 0; k < 4; ++k) {
                      *doc->zWrite(4 + k, 3, docHold) = 6;
                  }
                  docHold.reset(); // the row writer pins the tile itself
                  TileRowWriter writer(*doc->z);
                  const std::uint32_t depth = 8;
                  writer.writeRow(0, 9, reinterpret_cast<const std::uint8_t*>(&depth), 1);
              }),
              0u);
    EXPECT_EQ(doc->z->tiles().get(0).get(), zTile);
}

TEST(CopyOnWrite, TileSharedWithAnUndoLevelIsCopiedOnce) {
    auto doc = test::makeTestDocument(150, 100);
    TileHandle hold;
    *doc->rgbWrite(70, 70, hold) = ColourPOD{1, 1, 1};
    hold.reset();
    Status st = status::ok;
    doc->editor.undoBuffer->pushLevel(st, 0); // the level shares every tile
    ASSERT_EQ(st, status::ok);
    const TQL::Handle<UndoBitmap> level = doc->editor.undoBuffer->currentRgb();
    const TileBitmapTile* kept = level->tiles().get(4).get();
    ASSERT_EQ(doc->rgb->tiles().get(4).get(), kept);

    const TileBitmapTile* copy = nullptr;
    EXPECT_EQ(copiesMadeBy([&] {
                  for (std::int32_t k = 0; k < 4; ++k) {
                      *doc->rgbWrite(70 + k, 71, hold) = ColourPOD{2, 2, 2};
                      if (k == 0) {
                          copy = doc->rgb->tiles().get(4).get();
                      }
                      ASSERT_EQ(doc->rgb->tiles().get(4).get(), copy) << "write " << k;
                  }
              }),
              1u);
    EXPECT_NE(copy, kept);
    EXPECT_EQ(level->tiles().get(4).get(), kept); // the level keeps the old tile
    EXPECT_EQ(level->valueAt<ColourPOD>(70, 71), ColourPOD{});
    EXPECT_EQ(level->valueAt<ColourPOD>(70, 70), (ColourPOD{1, 1, 1}));
    EXPECT_EQ(doc->rgbAt(73, 71), (ColourPOD{2, 2, 2}));
    EXPECT_EQ(doc->rgbAt(70, 70), (ColourPOD{1, 1, 1}));
    for (std::int32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(doc->rgb->sharesTile(i, *level), i != 4) << i;
    }
}

TEST(CopyOnWrite, TilePinnedByAReaderThreadIsCopiedOnce) {
    auto b = makeRgb();
    fill(*b);
    std::mutex m;
    std::condition_variable cv;
    bool pinned = false;
    bool release = false;
    const TileBitmapTile* seen = nullptr;
    ColourPOD seenValue{};
    std::thread reader([&] {
        TileHandle pin;
        const std::uint8_t* p = b->pixelForRead(0, 0, pin, nullptr);
        std::unique_lock<std::mutex> lock(m);
        seen = pin.get();
        pinned = true;
        cv.notify_all();
        cv.wait(lock, [&] { return release; });
        std::memcpy(&seenValue, p, 3);
    });
    {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return pinned; });
    }
    TileHandle hold;
    const std::uint64_t copies = copiesMadeBy([&] {
        for (std::int32_t k = 0; k < 4; ++k) {
            *reinterpret_cast<ColourPOD*>(b->pixelForWrite(k, 0, hold, nullptr)) =
                ColourPOD{7, 7, 7};
        }
    });
    const TileBitmapTile* written = b->tiles().get(0).get();
    {
        std::lock_guard<std::mutex> lock(m);
        release = true;
    }
    cv.notify_all();
    reader.join();
    EXPECT_EQ(copies, 1u);
    EXPECT_NE(written, seen);
    EXPECT_EQ(seenValue, pattern(0, 0)); // the reader's tile never changed
    EXPECT_EQ(b->valueAt<ColourPOD>(0, 0), (ColourPOD{7, 7, 7}));
}

TEST(CopyOnWrite, PinningSevenChannelsForASpanCopiesNothingPrivate) {
    auto doc = test::makeTestDocument(150, 100);
    TileBitmap* channels[] = {doc->rgb.get(),        doc->z.get(),       doc->mat.get(),
                              doc->cutoutRgb.get(),  doc->cutoutZ.get(), doc->cutoutMat.get(),
                              doc->cutoutAlpha.get()};
    // Shared with the undo level first: the first write of each channel copies its tile.
    TileHandle pins[7];
    const auto pinAndWrite = [&] {
        for (std::size_t c = 0; c < 7; ++c) {
            channels[c]->pixelForRead(80, 10, pins[c], nullptr);
        }
        for (std::int32_t x = 80; x < 90; ++x) {
            for (std::size_t c = 0; c < 7; ++c) {
                std::uint8_t* p = channels[c]->pixelForWrite(x, 10, pins[c], nullptr);
                ASSERT_NE(p, nullptr);
                p[0] = static_cast<std::uint8_t>(x);
            }
        }
    };
    for (TileBitmap* c : channels) {
        TileHandle hold;
        c->pixelForWrite(80, 10, hold, nullptr);
    }
    Status st = status::ok;
    doc->editor.undoBuffer->pushLevel(st, 0);
    ASSERT_EQ(st, status::ok);
    // The channels whose tile someone besides the entry (and this look) holds: the level's.
    std::uint64_t shared = 0;
    for (TileBitmap* c : channels) {
        shared += c->tiles().get(1).refC() > 2 ? 1 : 0;
    }
    EXPECT_GE(shared, 3u) << "colour, material and depth have a level";
    EXPECT_EQ(copiesMadeBy(pinAndWrite), shared);
    // Private now: the next span pins and writes without a copy.
    const TileBitmapTile* tiles[7];
    for (std::size_t c = 0; c < 7; ++c) {
        tiles[c] = channels[c]->tiles().get(1).get();
        pins[c].reset();
    }
    EXPECT_EQ(copiesMadeBy(pinAndWrite), 0u);
    for (std::size_t c = 0; c < 7; ++c) {
        EXPECT_EQ(channels[c]->tiles().get(1).get(), tiles[c]) << c;
    }
}

TEST(TileStore, CopyFromKeepsNonEmptyCountInBothDirections) {
    auto full = makeRgb();
    fill(*full);
    auto sparse = makeRgb();
    TileHandle hold;
    sparse->pixelForWrite(0, 0, hold, nullptr);    // tile 0
    sparse->pixelForWrite(149, 99, hold, nullptr); // tile 5
    hold.reset();
    auto empty = makeRgb();
    ASSERT_EQ(sparse->nonEmptyTiles(), 2);

    struct Case {
        const char* what;
        TQL::Handle<RgbBitmap> target, source;
        bool overwrite;
        std::int32_t count;
        bool changed;
    };
    // Without overwrite only empty tiles take the source's; with it an empty source tile
    // empties the target's.
    auto s1 = makeRgb(), s2 = makeRgb(), s3 = makeRgb();
    s1->copyFrom(*sparse, false);
    s2->copyFrom(*sparse, false);
    s3->copyFrom(*sparse, false);
    const Case cases[] = {{"fill holes from full", s1, full, false, 6, true},
                          {"overwrite with full", s2, full, true, 6, true},
                          {"overwrite with empty", s3, empty, true, 0, true},
                          {"holes from empty", makeRgb(), empty, false, 0, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        c.target->clearChanged();
        c.target->copyFrom(*c.source, c.overwrite);
        EXPECT_EQ(c.target->nonEmptyTiles(), c.count);
        EXPECT_EQ(c.target->changed(), c.changed);
    }
    // Tiles 0 and 5 of s1 stayed sparse's own; the others are full's.
    EXPECT_TRUE(s1->sharesTile(0, *sparse));
    EXPECT_TRUE(s1->sharesTile(5, *sparse));
    EXPECT_TRUE(s1->sharesTile(1, *full));
    EXPECT_TRUE(s2->sharesTile(0, *full));

    s2->clearTile(3);
    EXPECT_EQ(s2->nonEmptyTiles(), 5);
    s2->clearTile(3); // already empty
    EXPECT_EQ(s2->nonEmptyTiles(), 5);
    s2->clearAll();
    EXPECT_EQ(s2->nonEmptyTiles(), 0);
    // The source is untouched by all this.
    expectPattern(*full);
    EXPECT_EQ(full->nonEmptyTiles(), 6);
}

TEST(TileStore, ReadsOutsideAndInEmptyTiles) {
    auto b = makeRgb();
    TileHandle hold;
    std::int32_t index = 99;
    for (const auto& [x, y] : {std::pair{-1, 0}, {0, -1}, {150, 0}, {0, 100}}) {
        EXPECT_EQ(b->pixelForRead(x, y, hold, &index), nullptr);
        EXPECT_EQ(index, -1);
        EXPECT_EQ(b->pixelForWrite(x, y, hold, &index), nullptr);
        EXPECT_EQ(index, -1);
        EXPECT_EQ(b->valueAt<ColourPOD>(x, y), ColourPOD{});
    }
    EXPECT_EQ(b->pixelForRead(10, 10, hold, &index), nullptr);
    EXPECT_EQ(index, 0);
    const std::uint8_t* run = nullptr;
    ASSERT_EQ(b->runForRead(10, 10, hold, &run), 54); // to the end of the empty tile
    EXPECT_TRUE(hold->empty());
    for (std::int32_t i = 0; i < 54 * 3; ++i) {
        ASSERT_EQ(run[i], 0) << i;
    }
    EXPECT_EQ(b->runForRead(150, 10, hold, &run), 0);
    EXPECT_EQ(b->tileForRead(0, hold), nullptr);
    EXPECT_EQ(b->tileForWrite(6, hold), nullptr);
    EXPECT_EQ(b->nonEmptyTiles(), 0);
}

// A span filler reads runs; every pixel of a run must be what a pixel read gives, in
// written and never-written tiles alike, for channels whose empty value is not zero too.
TEST(TileStore, RunsReadWhatPixelReadsRead) {
    auto doc = test::makeTestDocument(150, 100);
    TileHandle hold;
    *doc->zWrite(70, 70, hold) = 5;       // tile 4 written, the others never
    *doc->cutoutZWrite(10, 90, hold) = 6; // tile 3
    *doc->rgbWrite(149, 0, hold) = ColourPOD{1, 2, 3};
    hold.reset();
    const auto check = [](const TileBitmap& b, auto value, const char* name) {
        using T = decltype(value);
        SCOPED_TRACE(name);
        const TileGeometry& g = b.geometry();
        for (std::int32_t y = 0; y < g.height; y += 3) {
            for (std::int32_t x = 0; x < g.width;) {
                TileHandle runHold;
                const std::uint8_t* run = nullptr;
                const std::int32_t n = b.runForRead(x, y, runHold, &run);
                ASSERT_EQ(n, std::min((x | g.xMask) + 1, g.width) - x) << x << "," << y;
                for (std::int32_t i = 0; i < n; ++i) {
                    T v;
                    std::memcpy(&v, run + std::size_t(i) * sizeof(T), sizeof(T));
                    ASSERT_EQ(v, b.valueAt<T>(x + i, y)) << x + i << "," << y;
                }
                x += n;
            }
        }
    };
    check(*doc->z, std::uint32_t{}, "depth");
    check(*doc->cutoutZ, std::uint32_t{}, "overlay depth");
    check(*doc->rgb, ColourPOD{}, "colour");
    // The never-written tiles of the depth channel read as no depth.
    const std::uint8_t* run = nullptr;
    ASSERT_EQ(doc->z->runForRead(0, 0, hold, &run), 64);
    std::uint32_t first;
    std::memcpy(&first, run, 4);
    EXPECT_EQ(first, ZBitmap::noDepth);
}

TEST(TileStore, RunsEndAtTileAndImageEdges) {
    auto b = makeRgb();
    fill(*b);
    struct Case {
        std::int32_t x, expected;
    };
    // Columns: 0..63, 64..127, 128..149.
    const Case cases[] = {{0, 64}, {63, 1}, {64, 64}, {100, 28}, {128, 22}, {149, 1}};
    for (const Case& c : cases) {
        TileHandle hold;
        const std::uint8_t* p = nullptr;
        EXPECT_EQ(b->runForRead(c.x, 99, hold, &p), c.expected) << c.x;
        ASSERT_NE(p, nullptr);
        // The run is contiguous: its last pixel is the pattern's.
        ColourPOD last;
        std::memcpy(&last, p + (c.expected - 1) * 3, 3);
        EXPECT_EQ(last, pattern(c.x + c.expected - 1, 99));
        std::uint8_t* w = nullptr;
        EXPECT_EQ(b->runForWrite(c.x, 50, hold, &w), c.expected) << c.x;
    }
}

TEST(TileStore, LastColumnRowsArePaddedToWords) {
    auto b = makeRgb(); // last column 22 pixels: 66 bytes, padded to 68
    TileHandle hold;
    b->tileForWrite(2, hold);
    EXPECT_EQ(hold->stride(), 68);
    EXPECT_EQ(hold->size(), 68u * 64u);
    b->tileForWrite(5, hold);
    EXPECT_EQ(hold->size(), 68u * 36u);
    b->tileForWrite(4, hold);
    EXPECT_EQ(hold->stride(), 192);
}

TEST(TileStore, NewDepthTilesHoldTheNoDepthValue) {
    auto doc = test::makeTestDocument(100, 70);
    TileHandle hold;
    *doc->zWrite(5, 5, hold) = 1234;
    hold.reset();
    EXPECT_EQ(doc->zAt(5, 5), 1234u);
    EXPECT_EQ(doc->zAt(6, 5), ZBitmap::noDepth);   // same tile, never written
    EXPECT_EQ(doc->zAt(99, 69), ZBitmap::noDepth); // empty tile
    *doc->cutoutZWrite(5, 5, hold) = 7;
    hold.reset();
    EXPECT_EQ(doc->cutoutZAt(6, 5), 0u); // the overlay's "nothing"
}

TEST(TileStore, RowWriterCopiesTilesThatBecameShared) {
    auto a = makeRgb();
    TileRowWriter writer(*a);
    const std::uint8_t red[3] = {0, 0, 255};
    const std::uint8_t blue[3] = {255, 0, 0};
    std::vector<std::uint8_t> row(150 * 3);
    for (std::size_t i = 0; i < row.size(); i += 3) {
        std::memcpy(&row[i], red, 3);
    }
    writer.writeRow(0, 0, row.data(), 150);

    // A snapshot while the writer keeps its tiles: further writes must not reach it.
    auto snapshot = makeRgb();
    snapshot->copyFrom(*a, false);
    for (std::size_t i = 0; i < row.size(); i += 3) {
        std::memcpy(&row[i], blue, 3);
    }
    writer.writeRow(0, 1, row.data(), 150);
    for (std::int32_t x = 0; x < 150; ++x) {
        ASSERT_EQ(snapshot->valueAt<ColourPOD>(x, 1), ColourPOD{}) << x;
        ASSERT_EQ(a->valueAt<ColourPOD>(x, 1), (ColourPOD{255, 0, 0})) << x;
        ASSERT_EQ(a->valueAt<ColourPOD>(x, 0), (ColourPOD{0, 0, 255})) << x;
    }
    for (std::int32_t i = 0; i < 3; ++i) {
        EXPECT_FALSE(snapshot->sharesTile(i, *a)) << i;
    }

    // Clipping: a row starting left of the image and running past its right edge.
    writer.writeRow(-10, 2, row.data(), 150);
    EXPECT_EQ(a->valueAt<ColourPOD>(0, 2), (ColourPOD{255, 0, 0}));
    EXPECT_EQ(a->valueAt<ColourPOD>(139, 2), (ColourPOD{255, 0, 0}));
    EXPECT_EQ(a->valueAt<ColourPOD>(140, 2), ColourPOD{});
}

TEST(TileStore, RowWriterNoticesReplacedTiles) {
    auto a = makeRgb();
    auto b = makeRgb();
    TileRowWriter writer(*a);
    const std::uint8_t grey[3] = {9, 9, 9};
    writer.writeRow(0, 0, grey, 1); // the writer keeps a's tile 0
    b->copyFrom(*a, false);         // b shares it
    a->clearAll();                  // a lets go: writer and b hold it
    writer.writeRow(1, 0, grey, 1);
    EXPECT_EQ(b->valueAt<ColourPOD>(1, 0), ColourPOD{}); // b's pixels stay as they were
    EXPECT_EQ(a->valueAt<ColourPOD>(1, 0), (ColourPOD{9, 9, 9}));
    EXPECT_EQ(a->valueAt<ColourPOD>(0, 0), ColourPOD{});
}

TEST(TileStore, SwappingExchangesTilesAndWarnsWritersOnBothSides) {
    auto a = makeRgb();
    fill(*a);
    auto b = makeRgb();
    TileHandle hold;
    *reinterpret_cast<ColourPOD*>(b->pixelForWrite(0, 0, hold, nullptr)) = ColourPOD{1, 1, 1};
    hold.reset();
    const TileBitmapTile* aTile = a->tiles().get(2).get();
    const TileBitmapTile* bTile = b->tiles().get(0).get();

    // A writer on b keeps b's tile 0; after the swap that tile is a's.
    TileRowWriter writer(*b);
    const std::uint8_t grey[3] = {9, 9, 9};
    writer.writeRow(1, 0, grey, 1);
    a->clearChanged();
    b->clearChanged();
    a->swapTiles(*b);
    EXPECT_EQ(a->nonEmptyTiles(), 1);
    EXPECT_EQ(b->nonEmptyTiles(), 6);
    EXPECT_EQ(b->tiles().get(2).get(), aTile);
    EXPECT_EQ(a->tiles().get(0).get(), bTile);
    EXPECT_TRUE(a->changed());
    EXPECT_TRUE(b->changed());

    writer.writeRow(2, 0, grey, 1);
    EXPECT_EQ(a->valueAt<ColourPOD>(2, 0), ColourPOD{}); // not reached through b's writer
    EXPECT_EQ(a->valueAt<ColourPOD>(1, 0), (ColourPOD{9, 9, 9}));
    EXPECT_EQ(b->valueAt<ColourPOD>(2, 0), (ColourPOD{9, 9, 9}));
    EXPECT_EQ(b->valueAt<ColourPOD>(3, 0), pattern(3, 0));
}

TEST(TileStore, HeldTileStaysStableWhileMainThreadWrites) {
    auto b = makeRgb();
    fill(*b);
    std::mutex m;
    std::condition_variable cv;
    bool held = false;
    bool written = false;
    std::atomic<int> mismatches{0};

    std::thread reader([&] {
        TileHandle hold;
        const std::uint8_t* p = b->pixelForRead(0, 0, hold, nullptr);
        {
            std::lock_guard<std::mutex> lock(m);
            held = true;
        }
        cv.notify_all();
        // Read the whole tile again and again while the main thread writes to it.
        bool done = false;
        while (!done) {
            {
                std::lock_guard<std::mutex> lock(m);
                done = written;
            }
            for (std::int32_t y = 0; y < 64; ++y) {
                for (std::int32_t x = 0; x < 64; ++x) {
                    ColourPOD c;
                    std::memcpy(&c, p + y * hold->stride() + x * 3, 3);
                    if (!(c == pattern(x, y))) {
                        ++mismatches;
                    }
                }
            }
        }
    });
    {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return held; });
    }
    const TileHandle original = b->tiles().get(0);
    TileRowWriter writer(*b);
    std::vector<std::uint8_t> white(64 * 3, 255);
    for (std::int32_t y = 0; y < 64; ++y) {
        writer.writeRow(0, y, white.data(), 64);
    }
    {
        std::lock_guard<std::mutex> lock(m);
        written = true;
    }
    reader.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_FALSE(b->tiles().get(0) == original);
    EXPECT_EQ(b->valueAt<ColourPOD>(63, 63), (ColourPOD{255, 255, 255}));
}

TEST(TileStore, MemoryUsedCountsStructureAndScratch) {
    struct Case {
        std::int32_t w, h;
        std::int64_t bytes, withScratch;
    };
    // 24 bytes a tile plus 40; the scratch is one tile (or the whole image if smaller) of
    // three bytes a pixel.
    const Case cases[] = {{150, 100, 6 * 24 + 40, 6 * 24 + 40 + 3 * 64 * 64},
                          {50, 30, 24 + 40, 24 + 40 + 3 * 50 * 30}};
    for (const Case& c : cases) {
        auto b = makeRgb(c.w, c.h);
        EXPECT_EQ(b->memoryUsed(), c.bytes);
        TileHandle hold;
        b->rgbPtr(hold);
        EXPECT_EQ(b->memoryUsed(), c.withScratch);
    }
}

TEST(TileStore, ScratchTileIsRenewedWhileHeld) {
    auto b = makeRgb();
    TileHandle first;
    std::uint8_t* p1 = b->rgbPtr(first);
    TileHandle second;
    std::uint8_t* p2 = b->rgbPtr(second);
    EXPECT_NE(p1, p2); // the first is still held, so a fresh one was made
    first.reset();
    second.reset();
    TileHandle third;
    EXPECT_EQ(b->rgbPtr(third), p2); // nobody else holds it now
}

} // namespace
