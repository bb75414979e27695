// The team that shades a rendering's bands: every item of a round done exactly once, by
// whichever members come, round after round; failures reach the caller.

#include "interchange/render/WorkerTeam.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

/// Runs `rounds` rounds of `items` items shared out by a counter; returns how often each
/// item was done, over all rounds, and the members seen.
std::vector<int> shareOut(WorkerTeam& team, int rounds, int items, std::set<unsigned>& members) {
    std::vector<std::atomic<int>> done(static_cast<std::size_t>(items));
    std::mutex seen;
    for (int r = 0; r < rounds; ++r) {
        std::atomic<int> next{0};
        team.run([&](unsigned member) {
            {
                std::lock_guard<std::mutex> lock(seen);
                members.insert(member);
            }
            for (int i = next++; i < items; i = next++) {
                done[static_cast<std::size_t>(i)].fetch_add(1);
            }
        });
    }
    std::vector<int> counts;
    for (const auto& d : done) {
        counts.push_back(d.load());
    }
    return counts;
}

TEST(WorkerTeam, EveryItemOfEveryRoundIsDoneOnce) {
    for (const unsigned helpers : {0u, 1u, 3u}) {
        SCOPED_TRACE(testing::Message() << helpers << " helpers");
        WorkerTeam team(helpers);
        EXPECT_EQ(team.size(), helpers + 1);
        std::set<unsigned> members;
        const std::vector<int> counts = shareOut(team, 200, 500, members);
        for (std::size_t i = 0; i < counts.size(); ++i) {
            ASSERT_EQ(counts[i], 200) << "item " << i;
        }
        // The caller is member 0, and helpers are numbered after it.
        EXPECT_TRUE(members.count(0));
        EXPECT_LE(*members.rbegin(), helpers);
    }
}

TEST(WorkerTeam, AFailureReachesTheCallerAndTheTeamGoesOn) {
    WorkerTeam team(2);
    // Every member fails, whichever of them starts: the caller sees one failure.
    EXPECT_THROW(team.run([](unsigned) { throw std::runtime_error("no"); }), std::runtime_error);
    // A failure in a helper alone, when one comes in time, is thrown too.
    for (int round = 0; round < 50; ++round) {
        std::atomic<bool> helperRan{false};
        try {
            team.run([&](unsigned member) {
                if (member != 0) {
                    helperRan = true;
                    throw std::logic_error("helper");
                }
            });
            EXPECT_FALSE(helperRan.load());
        } catch (const std::logic_error&) {
            EXPECT_TRUE(helperRan.load());
        }
    }
    // The team still works after failures.
    std::set<unsigned> members;
    for (const int count : shareOut(team, 10, 100, members)) {
        EXPECT_EQ(count, 10);
    }
}

TEST(WorkerTeam, AStartedRoundRunsWhileTheCallerIsAwayAndEndsAtFinish) {
    for (const unsigned helpers : {0u, 1u, 2u}) {
        SCOPED_TRACE(testing::Message() << helpers << " helpers");
        WorkerTeam team(helpers);
        team.finish(); // nothing started: nothing to do
        EXPECT_FALSE(team.started());
        constexpr int items = 300;
        for (int round = 0; round < 20; ++round) {
            std::vector<std::atomic<int>> done(items);
            std::atomic<int> next{0}, byHelpers{0};
            const std::function<void(unsigned)> work = [&](unsigned member) {
                for (int i = next++; i < items; i = next++) {
                    done[static_cast<std::size_t>(i)].fetch_add(1);
                    byHelpers += member != 0;
                }
            };
            team.start(work);
            EXPECT_TRUE(team.started());
            if (round == 0) {
                // The helpers work on their own before the caller comes back; without
                // helpers nothing is done until then.
                const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
                while (helpers && next.load() < items && std::chrono::steady_clock::now() < until) {
                    std::this_thread::yield();
                }
                EXPECT_EQ(byHelpers.load(), helpers ? items : 0);
            }
            team.finish();
            EXPECT_FALSE(team.started());
            for (std::size_t i = 0; i < done.size(); ++i) {
                ASSERT_EQ(done[i].load(), 1) << "item " << i << ", round " << round;
            }
        }
        // A failure of a started round comes out of finish, and the team goes on.
        const std::function<void(unsigned)> failing = [](unsigned) {
            throw std::runtime_error("no");
        };
        team.start(failing);
        EXPECT_THROW(team.finish(), std::runtime_error);
        std::set<unsigned> members;
        for (const int count : shareOut(team, 5, 50, members)) {
            EXPECT_EQ(count, 5);
        }
    }
}

} // namespace
