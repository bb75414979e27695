#include "core/TqlCriticalSection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

TEST(TqlCriticalSection, TheHoldingThreadMayTakeItAgain) {
    TqlCriticalSection cs(L"Test::recursive");
    TqlSimpleLock outer(cs, L"Test::outer");
    TqlSimpleLock inner(cs, L"Test::inner");
    EXPECT_STREQ(cs.name(), L"Test::recursive");
    EXPECT_STREQ(inner.site(), L"Test::inner");
}

TEST(TqlCriticalSection, ExcludesOtherThreadsAndCountsContention) {
    TqlCriticalSection cs(L"Test::counter");
    long counter = 0; // guarded by cs
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                TqlSimpleLock lock(cs, L"Test::increment");
                ++counter;
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(counter, 80000);

    // A lock held by this thread makes another thread wait, and the wait is counted.
    const auto before = cs.contentions();
    std::atomic<bool> acquired{false};
    std::thread other;
    {
        TqlSimpleLock hold(cs, L"Test::hold");
        other = std::thread([&] {
            TqlSimpleLock lock(cs, L"Test::wait");
            acquired = true;
        });
        while (cs.contentions() == before) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(acquired.load());
    }
    other.join();
    EXPECT_TRUE(acquired.load());
    EXPECT_GT(cs.contentions(), before);
}

} // namespace
