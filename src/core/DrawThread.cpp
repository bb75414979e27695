#include "core/DrawThread.h"

#include "core/ThreadName.h"

#include <algorithm>
#include <chrono>

namespace {
constexpr auto pollInterval = std::chrono::milliseconds(5);
}

DrawThread::DrawThread() : thread_([this] { run(); }) {}

DrawThread::~DrawThread() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        for (DrawTask* t : queue_) {
            t->drawCancel();
        }
        queue_.clear();
        if (running_) {
            running_->drawCancel();
        }
    }
    wake_.notify_all();
    thread_.join();
}

void DrawThread::insert(DrawTask& task) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (std::find(queue_.begin(), queue_.end(), &task) != queue_.end()) {
            return;
        }
        queue_.push_back(&task);
    }
    wake_.notify_one();
}

void DrawThread::updateActive(DrawWindow window) {
    std::lock_guard<std::mutex> lock(mutex_);
    active_ = window;
}

void DrawThread::cancel(DrawWindow window, const PollingWaiter& waiter) {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        // Purge on every pass: a running task that returned "not done" while being
        // cancelled is queued again by the worker, and must not survive the cancel.
        for (auto it = queue_.begin(); it != queue_.end();) {
            if ((*it)->drawWindow() == window) {
                (*it)->drawCancel();
                it = queue_.erase(it);
            } else {
                ++it;
            }
        }
        if (!running_ || running_->drawWindow() != window) {
            break;
        }
        running_->drawCancel();
        lock.unlock();
        waiter.poll();
        lock.lock();
        idle_.wait_for(lock, pollInterval);
    }
}

bool DrawThread::finish(const FinishWaiter& waiter) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!queue_.empty() || running_) {
        lock.unlock();
        const bool keepWaiting = waiter.poll();
        lock.lock();
        if (!keepWaiting) {
            return false;
        }
        idle_.wait_for(lock, pollInterval);
    }
    return true;
}

bool DrawThread::busy() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return !queue_.empty() || running_;
}

void DrawThread::run() {
    TQL::setThreadName("QuorvaleDraw");
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) {
            return;
        }
        // The active window's task first, else the oldest.
        auto it = std::find_if(queue_.begin(), queue_.end(),
                               [this](DrawTask* t) { return t->drawWindow() == active_; });
        if (it == queue_.end()) {
            it = queue_.begin();
        }
        DrawTask* task = *it;
        queue_.erase(it);
        running_ = task;
        lock.unlock();
        const bool done = task->drawPerform();
        lock.lock();
        running_ = nullptr;
        if (!done && !stopping_ && std::find(queue_.begin(), queue_.end(), task) == queue_.end()) {
            queue_.push_back(task);
        }
        idle_.notify_all(); // finish and cancel wait for a task to leave the thread
    }
}
