// Tiles coded on several threads: the pool hands results over in order, and a Zmap file
// written or read with any number of threads is the same, byte for byte and pixel for
// pixel, as with one.

#include "ZmapTestFiles.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "file/QuorvaleZmapFile.h"
#include "file/TileWorkers.h"
#include "image/TileRowWriter.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

using namespace zmap_test;

namespace {

/// A pause of a few microseconds that differs from index to index, so that work ends out
/// of order.
void jitter(std::size_t index) {
    std::this_thread::sleep_for(std::chrono::microseconds((index * 7919) % 50));
}

TEST(TileWorkers, ResultsAreTakenInOrderWhateverTheThreads) {
    for (const unsigned threads : {1u, 2u, 3u, 5u}) {
        SCOPED_TRACE(threads);
        TileWorkers workers(threads);
        EXPECT_EQ(workers.threads(), threads);
        // The same pool serves run after run.
        for (const std::size_t count : {0u, 1u, 7u, 300u}) {
            std::vector<std::size_t> slots(workers.window());
            std::vector<std::size_t> consumed;
            std::atomic<int> calls{0};
            workers.run(
                count,
                [&](std::size_t index, std::size_t slot, unsigned thread) {
                    EXPECT_LT(thread, workers.threads());
                    jitter(index);
                    slots[slot] = index * 3 + 1; // no other work uses the slot meanwhile
                    ++calls;
                },
                [&](std::size_t index, std::size_t slot) {
                    EXPECT_EQ(slots[slot], index * 3 + 1);
                    consumed.push_back(index);
                    return true;
                });
            EXPECT_EQ(calls.load(), static_cast<int>(count));
            ASSERT_EQ(consumed.size(), count);
            for (std::size_t i = 0; i < count; ++i) {
                EXPECT_EQ(consumed[i], i);
            }
        }
    }
}

TEST(TileWorkers, AFailureStopsTheRunAfterTheWorkInHandHasEnded) {
    for (const unsigned threads : {1u, 2u, 4u}) {
        SCOPED_TRACE(threads);
        TileWorkers workers(threads);
        std::atomic<int> running{0};
        std::atomic<int> started{0};
        std::vector<std::size_t> consumed;
        const auto work = [&](std::size_t index, std::size_t, unsigned) {
            ++running;
            ++started;
            jitter(index);
            --running;
            if (index == 40) {
                throw std::runtime_error("tile 40");
            }
        };
        const auto consume = [&](std::size_t index, std::size_t) {
            consumed.push_back(index);
            return true;
        };
        // An exception of work comes out of run at its turn, on this thread.
        try {
            workers.run(1000, work, consume);
            ADD_FAILURE() << "the failure was lost";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "tile 40");
        }
        EXPECT_EQ(running.load(), 0);
        ASSERT_EQ(consumed.size(), 40u);
        EXPECT_EQ(consumed.back(), 39u);
        // Work runs at most a window ahead of the results taken.
        EXPECT_LE(started.load(), static_cast<int>(41 + workers.window()));

        // A consumer that says no ends the run quietly.
        consumed.clear();
        started = 0;
        workers.run(
            1000, [&](std::size_t index, std::size_t s, unsigned t) { work(index + 1000, s, t); },
            [&](std::size_t index, std::size_t) {
                consumed.push_back(index);
                return index < 10;
            });
        EXPECT_EQ(running.load(), 0);
        EXPECT_EQ(consumed.size(), 11u);
        EXPECT_LE(started.load(), static_cast<int>(11 + workers.window()));

        // An exception of the consumer comes out at once.
        EXPECT_THROW(workers.run(
                         100, [](std::size_t, std::size_t, unsigned) {},
                         [](std::size_t index, std::size_t) -> bool {
                             if (index == 5) {
                                 throw std::logic_error("stop");
                             }
                             return true;
                         }),
                     std::logic_error);
    }
}

Status writeWith(unsigned threads, const ZmapDocument& doc, const std::string& path) {
    QuorvaleZmapFile file;
    file.setThreads(threads);
    Status status = -1;
    file.write(status, doc, utf8(path));
    return status;
}

std::unique_ptr<test::TestDocument> readWith(unsigned threads, const Bytes& bytes, Status& status) {
    auto doc = std::make_unique<test::TestDocument>();
    QuorvaleZmapFile file;
    file.setThreads(threads);
    file.readMemory(status, bytes.data(), bytes.size(), *doc);
    if (status == status::ok) {
        status = doc->allocateChannels();
    }
    return doc;
}

TEST(ZmapThreads, FilesWrittenWithAnyNumberOfThreadsAreTheSameBytes) {
    struct Case {
        const char* name;
        std::int32_t width, height;
        bool panorama;
        std::int32_t compression;
    };
    const Case cases[] = {
        {"partial tiles, LZW", 300, 200, false, 5},
        {"partial tiles, raw", 200, 100, false, 1},
        {"two tile sizes", 2100, 70, false, 5},
        {"panorama", 0, 30, true, 5},
    };
    test::TempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = makeSceneDocument(c.width, c.height, c.panorama);
        doc->compression = c.compression;
        // Painted tiles, so that the originals are written too, in part by difference.
        TileHandle hold;
        *doc->rgbWrite(10, 10, hold) = ColourPOD{1, 2, 3};
        *doc->zWrite(5, 20, hold) = 12345;
        *doc->matWrite(20, 25, hold) = 4;
        ASSERT_EQ(writeWith(1, *doc, dir.file("one.zmp")), status::ok);
        const Bytes one = readBytes(dir.file("one.zmp"));
        for (const unsigned threads : {2u, 3u}) {
            SCOPED_TRACE(threads);
            ASSERT_EQ(writeWith(threads, *doc, dir.file("many.zmp")), status::ok);
            EXPECT_TRUE(readBytes(dir.file("many.zmp")) == one);
        }
    }
}

/// A colour and depth file of `width` x `height` in blocks that aren't the document's
/// tiles: strips of `rows` rows, or tiles of `tile` pixels square, raw or LZW.
Bytes handMadeFile(std::uint32_t width, std::uint32_t height, std::uint32_t rows,
                   std::uint32_t tile, std::uint16_t compression) {
    TiffBuilder f(false);
    HandSection colour;
    colour.kind = 0;
    colour.width = width;
    colour.height = height;
    HandSection depth = colour;
    depth.kind = 1;
    depth.privateData = cameraRecord(f, ViewParams());
    depth.bytesPerPixel = 4;
    depth.bits = {32};
    depth.photometric = -1;
    depth.samples = 1;
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            colour.pixels.insert(colour.pixels.end(), {static_cast<std::uint8_t>(x + y),
                                                       static_cast<std::uint8_t>(x * y),
                                                       static_cast<std::uint8_t>(x ^ y)});
            f.put32(depth.pixels, x * 100003u + y * 7u);
        }
    }
    for (HandSection* s : {&colour, &depth}) {
        s->rowsPerStrip = rows;
        s->tileWidth = s->tileLength = tile;
        s->compression = compression;
        s->predictSampleBytes = compression == 5 ? (s == &colour ? 1 : 4) : 0;
        addSection(f, *s);
    }
    return f.build();
}

TEST(ZmapThreads, FilesReadWithAnyNumberOfThreadsGiveTheSamePixels) {
    struct Case {
        const char* name;
        Bytes bytes;
    };
    test::TempDir dir;
    auto scene = makeSceneDocument(300, 200);
    ASSERT_EQ(writeWith(1, *scene, dir.file("scene.zmp")), status::ok);
    const Case cases[] = {
        {"the program's own file", readBytes(dir.file("scene.zmp"))},
        {"strips of 3 rows, LZW", handMadeFile(100, 70, 3, 0, 5)},
        {"strips of 7 rows, raw", handMadeFile(100, 70, 7, 0, 1)},
        {"tiles of 16, LZW", handMadeFile(100, 70, 0, 16, 5)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Status status = -1;
        auto one = readWith(1, c.bytes, status);
        ASSERT_EQ(status, status::ok);
        for (const unsigned threads : {2u, 3u}) {
            SCOPED_TRACE(threads);
            auto many = readWith(threads, c.bytes, status);
            ASSERT_EQ(status, status::ok);
            expectSameDocument(*one, *many);
        }
    }
}

/// Stops at the first report after the first section.
class StopAfterFirst : public Reporter {
public:
    bool report(unsigned, unsigned, double fraction) override { return fraction > 0; }
};

TEST(ZmapThreads, StoppingMidWayEndsEveryThreadAndLeavesTheDocumentAlone) {
    test::TempDir dir;
    auto doc = makeSceneDocument(300, 200);
    ASSERT_EQ(writeWith(1, *doc, dir.file("scene.zmp")), status::ok);
    StopAfterFirst stop;
    QuorvaleZmapFile file;
    file.setThreads(2);
    file.setProgress(&stop);
    Status status = -1;
    file.write(status, *doc, utf8(dir.file("stopped.zmp")));
    EXPECT_EQ(status, status::stopped);

    test::TestDocument back;
    file.read(status, utf8(dir.file("scene.zmp")), back);
    EXPECT_EQ(status, status::stopped);
    EXPECT_FALSE(back.rgb);
}

} // namespace
