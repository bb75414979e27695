#include "core/DrawThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

/// A task that records its runs into a shared log and can be told to block.
class RecordingTask : public DrawTask {
public:
    RecordingTask(int id, std::vector<int>& log, std::mutex& logMutex)
        : id_(id), window_(this), log_(log), logMutex_(logMutex) {}

    void drawCancel() override {
        cancels.fetch_add(1);
        abort.store(true);
    }
    bool drawPerform() override {
        runs.fetch_add(1);
        {
            std::lock_guard<std::mutex> lock(logMutex_);
            log_.push_back(id_);
        }
        started.store(true);
        while (block.load() && !abort.load()) {
            std::this_thread::sleep_for(1ms);
        }
        return piecesLeft.fetch_sub(1) <= 1 || abort.load();
    }
    DrawWindow drawWindow() const override { return window_; }

    std::atomic<int> runs{0};
    std::atomic<int> cancels{0};
    std::atomic<bool> abort{false};
    std::atomic<bool> block{false};
    std::atomic<bool> started{false};
    std::atomic<int> piecesLeft{1};

private:
    int id_;
    DrawWindow window_;
    std::vector<int>& log_;
    std::mutex& logMutex_;
};

class CountingPoll : public DrawThread::PollingWaiter {
public:
    void poll() const override { polls.fetch_add(1); }
    mutable std::atomic<int> polls{0};
};

class PatientFinish : public DrawThread::FinishWaiter {
public:
    bool poll() const override { return true; }
};

class ImpatientFinish : public DrawThread::FinishWaiter {
public:
    bool poll() const override { return false; }
};

struct DrawThreadTest : ::testing::Test {
    std::vector<int> log;
    std::mutex logMutex;
};

TEST_F(DrawThreadTest, ATaskQueuedTwiceRunsOnce) {
    DrawThread thread;
    RecordingTask blocker(0, log, logMutex), task(1, log, logMutex);
    blocker.block = true;
    thread.insert(blocker);
    while (!blocker.started) {
        std::this_thread::yield();
    }
    thread.insert(task);
    thread.insert(task);
    blocker.block = false;
    ASSERT_TRUE(thread.finish(PatientFinish()));
    EXPECT_EQ(task.runs.load(), 1);
}

TEST_F(DrawThreadTest, ATaskThatIsNotDoneRunsAgain) {
    DrawThread thread;
    RecordingTask task(1, log, logMutex);
    task.piecesLeft = 3;
    thread.insert(task);
    ASSERT_TRUE(thread.finish(PatientFinish()));
    EXPECT_EQ(task.runs.load(), 3);
}

TEST_F(DrawThreadTest, CancelStopsTheRunningTaskAndPollsWhileWaiting) {
    DrawThread thread;
    RecordingTask task(1, log, logMutex);
    task.block = true;
    task.piecesLeft = 1000; // would run on and on if not cancelled
    thread.insert(task);
    while (!task.started) {
        std::this_thread::yield();
    }
    CountingPoll waiter;
    thread.cancel(task.drawWindow(), waiter);
    EXPECT_GE(task.cancels.load(), 1);
    EXPECT_GE(waiter.polls.load(), 1) << "the waiter is polled while the task winds down";
    EXPECT_FALSE(thread.busy()) << "a cancelled task is not queued again";
    const int runs = task.runs.load();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(task.runs.load(), runs);
}

TEST_F(DrawThreadTest, CancelRemovesQueuedTasksOfThatWindowOnly) {
    DrawThread thread;
    RecordingTask blocker(0, log, logMutex), queued(1, log, logMutex), other(2, log, logMutex);
    blocker.block = true;
    thread.insert(blocker);
    while (!blocker.started) {
        std::this_thread::yield();
    }
    thread.insert(queued);
    thread.insert(other);
    CountingPoll waiter;
    thread.cancel(queued.drawWindow(), waiter);
    EXPECT_EQ(queued.cancels.load(), 1);
    blocker.block = false;
    ASSERT_TRUE(thread.finish(PatientFinish()));
    EXPECT_EQ(queued.runs.load(), 0);
    EXPECT_EQ(other.runs.load(), 1);
}

TEST_F(DrawThreadTest, TheActiveWindowIsServedFirst) {
    DrawThread thread;
    RecordingTask blocker(0, log, logMutex), first(1, log, logMutex), second(2, log, logMutex),
        active(3, log, logMutex);
    blocker.block = true;
    thread.insert(blocker);
    while (!blocker.started) {
        std::this_thread::yield();
    }
    thread.insert(first);
    thread.insert(second);
    thread.insert(active);
    thread.updateActive(active.drawWindow());
    blocker.block = false;
    ASSERT_TRUE(thread.finish(PatientFinish()));
    std::lock_guard<std::mutex> lock(logMutex);
    EXPECT_EQ(log, (std::vector<int>{0, 3, 1, 2}));
}

TEST_F(DrawThreadTest, FinishReturnsFalseWhenTheWaiterGivesUp) {
    DrawThread thread;
    RecordingTask task(1, log, logMutex);
    task.block = true;
    thread.insert(task);
    while (!task.started) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(thread.finish(ImpatientFinish()));
    task.block = false;
    EXPECT_TRUE(thread.finish(PatientFinish()));
}

} // namespace
