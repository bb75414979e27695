// The tile heap's free list: exact-size reuse on the main thread, the purge timer, and the
// settings that shape it.
#include "image/TileHeap.h"
#include "core/Settings.h"
#include "core/TimerService.h"
#include "image/TileBitmapTile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <thread>
#include <vector>

namespace {

/// Records timer calls; fire() runs a started timer as the event loop would.
class FakeTimers : public TimerService {
public:
    void start(int id, int milliseconds, std::function<void()> fired) override {
        starts.push_back({id, milliseconds});
        pending[id] = std::move(fired);
    }
    void kill(int id) override {
        kills.push_back(id);
        pending.erase(id);
    }
    void fire(int id) {
        auto it = pending.find(id);
        ASSERT_NE(it, pending.end());
        auto callback = it->second;
        callback();
    }

    std::vector<std::pair<int, int>> starts;
    std::vector<int> kills;
    std::map<int, std::function<void()>> pending;
};

class TileHeapTest : public testing::Test {
protected:
    void SetUp() override {
        TQL::setSettingsStore(&store);
        TQL::setTimerService(&timers);
        TileHeap::purge(true);
        TileHeap::rereadSettings();
    }
    void TearDown() override {
        TileHeap::purge(true);
        TQL::setTimerService(nullptr);
        TQL::setSettingsStore(nullptr);
        TileHeap::rereadSettings();
    }

    /// Makes and frees one 64 x 64 colour tile on this thread.
    static void churn() { TQL::makeHandle<TileBitmapTile>(64, 64, 3); }

    MemorySettingsStore store;
    FakeTimers timers;
};

TEST_F(TileHeapTest, FreedBlocksAreReusedBySize) {
    churn();
    auto counters = TileHeap::counters();
    EXPECT_EQ(counters.blocksCached, 1u);
    EXPECT_EQ(counters.bytesCached, 64u * 64u * 3u);

    // Another size doesn't take it; the same size does, and gets zeroed pixels.
    {
        auto other = TQL::makeHandle<TileBitmapTile>(32, 64, 3);
        EXPECT_EQ(TileHeap::counters().blocksCached, 1u);
    }
    EXPECT_EQ(TileHeap::counters().blocksCached, 2u);
    auto first = TQL::makeHandle<TileBitmapTile>(64, 64, 3);
    std::memset(first->pixels(), 0xAB, first->size());
    first.reset();
    auto again = TQL::makeHandle<TileBitmapTile>(64, 64, 3);
    EXPECT_EQ(TileHeap::counters().blocksCached, 1u);
    for (std::uint32_t i = 0; i < again->size(); ++i) {
        ASSERT_EQ(again->pixels()[i], 0) << i;
    }
}

TEST_F(TileHeapTest, IdleArmsPurgeTimerAndFiringEmptiesList) {
    TileHeap::idle(); // nothing cached: no timer
    EXPECT_TRUE(timers.starts.empty());
    churn();
    TileHeap::idle();
    ASSERT_EQ(timers.starts.size(), 1u);
    EXPECT_EQ(timers.starts[0], (std::pair<int, int>{TileHeap::purgeTimerId, 10000}));
    TileHeap::idle(); // already armed
    EXPECT_EQ(timers.starts.size(), 1u);

    // Using the heap cancels the timer; idling again re-arms it.
    churn();
    EXPECT_EQ(timers.kills, std::vector<int>{TileHeap::purgeTimerId});
    EXPECT_FALSE(TileHeap::purgeTimerArmed());
    TileHeap::idle();
    ASSERT_EQ(timers.starts.size(), 2u);

    const std::size_t inUse = TileHeap::counters().bytesInUse;
    timers.fire(TileHeap::purgeTimerId);
    EXPECT_EQ(TileHeap::counters().blocksCached, 0u);
    EXPECT_EQ(TileHeap::counters().bytesInUse, inUse);
    EXPECT_FALSE(TileHeap::purgeTimerArmed());
    EXPECT_EQ(timers.kills.size(), 2u);
}

TEST_F(TileHeapTest, SettingsCanTurnTheListOrTimerOff) {
    struct Case {
        const wchar_t* key;
        std::size_t cached; // blocks kept after a free
    };
    // A list of size 0 keeps nothing, so it never has a reason to start the timer; a
    // timeout of 0 keeps blocks but never purges them by timer.
    const Case cases[] = {{L"TileFreeListSize", 0}, {L"TileFreeListTimeout", 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.key);
        TileHeap::purge(true);
        store.write(L"Settings", c.key, L"0");
        TileHeap::rereadSettings();
        for (int i = 0; i < 3; ++i) {
            churn();
            TileHeap::idle();
        }
        EXPECT_TRUE(timers.starts.empty());
        EXPECT_EQ(TileHeap::counters().blocksCached, c.cached);
        store.remove(L"Settings", c.key);
    }
}

TEST_F(TileHeapTest, FullStackSendsBlocksToTheHeap) {
    store.write(L"Settings", L"TileFreeListSize", L"2");
    TileHeap::rereadSettings();
    {
        std::vector<TileHandle> tiles;
        for (int i = 0; i < 5; ++i) {
            tiles.push_back(TQL::makeHandle<TileBitmapTile>(64, 64, 3));
        }
    }
    EXPECT_EQ(TileHeap::counters().blocksCached, 2u);
}

TEST_F(TileHeapTest, OtherThreadsBypassTheList) {
    const auto start = TileHeap::counters();
    // Made on the main thread, freed on another: the block goes to the heap.
    auto tile = TQL::makeHandle<TileBitmapTile>(64, 64, 3);
    std::thread([t = std::move(tile)]() mutable { t.reset(); }).join();
    EXPECT_EQ(TileHeap::counters().blocksCached, start.blocksCached);
    EXPECT_EQ(TileHeap::counters().bytesInUse, start.bytesInUse);

    // A cached block isn't handed to another thread either.
    churn();
    ASSERT_EQ(TileHeap::counters().blocksCached, 1u);
    std::thread([] { churn(); }).join();
    EXPECT_EQ(TileHeap::counters().blocksCached, 1u);
}

TEST_F(TileHeapTest, OptionsApplyOnlyWhereNoSeparateSetting) {
    struct Case {
        const char* what;
        const wchar_t* size;    // stored TileFreeListSize, or null
        const wchar_t* timeout; // stored TileFreeListTimeout, or null
        const wchar_t* options; // stored TileFreeListOptions, or null
        int expectedSize, expectedTimeout;
    };
    const Case cases[] = {
        {"defaults", nullptr, nullptr, nullptr, 512, 10000},
        {"options alone", nullptr, nullptr, L"100,2000", 100, 2000},
        {"size stored", L"7", nullptr, L"100,2000", 7, 2000},
        {"timeout stored", nullptr, L"50", L"100,2000", 100, 50},
        {"both stored", L"7", L"50", L"100,2000", 7, 50},
        {"malformed options", nullptr, nullptr, L"100", 512, 10000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        MemorySettingsStore fresh;
        if (c.size) {
            fresh.write(L"Settings", L"TileFreeListSize", c.size);
        }
        if (c.timeout) {
            fresh.write(L"Settings", L"TileFreeListTimeout", c.timeout);
        }
        if (c.options) {
            fresh.write(L"Settings", L"TileFreeListOptions", c.options);
        }
        TQL::setSettingsStore(&fresh);
        TileHeap::rereadSettings();
        EXPECT_EQ(TileHeap::freeListSize(), c.expectedSize);
        EXPECT_EQ(TileHeap::purgeTimeout(), c.expectedTimeout);
        TQL::setSettingsStore(&store);
    }
}

TEST_F(TileHeapTest, ShutDownPurgeKillsTheTimer) {
    churn();
    TileHeap::idle();
    ASSERT_TRUE(TileHeap::purgeTimerArmed());
    TileHeap::purge(true);
    EXPECT_FALSE(TileHeap::purgeTimerArmed());
    EXPECT_EQ(timers.kills, std::vector<int>{TileHeap::purgeTimerId});
    EXPECT_EQ(TileHeap::counters().blocksCached, 0u);
    // Without a timer service nothing is armed.
    TQL::setTimerService(nullptr);
    churn();
    TileHeap::idle();
    EXPECT_FALSE(TileHeap::purgeTimerArmed());
}

} // namespace
