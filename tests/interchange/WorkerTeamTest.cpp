// The team that shades a rendering's bands: every item of a round done exactly once, by
// whichever members come, round after round; failures reach the caller.

#include "interchange/render/WorkerTeam.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
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

} // namespace
