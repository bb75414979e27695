#include "file/TileWorkers.h"

#include "core/ThreadName.h"

#include <algorithm>

TileWorkers::TileWorkers(unsigned threads) {
    if (threads == 0) {
        threads = std::max(1u, std::thread::hardware_concurrency());
    }
    threads = std::min(threads, maxThreads);
    doneIndex_.assign(4 * std::size_t{threads}, 0);
    errors_.resize(doneIndex_.size());
    helpers_.reserve(threads - 1);
    for (unsigned t = 1; t < threads; ++t) {
        helpers_.emplace_back([this, t] {
            TQL::setThreadName("Tile worker");
            helperLoop(t);
        });
    }
}

TileWorkers::~TileWorkers() {
    {
        std::lock_guard lock(mutex_);
        closing_ = true;
    }
    changed_.notify_all();
    for (std::thread& helper : helpers_) {
        helper.join();
    }
}

bool TileWorkers::claim(std::size_t& index) {
    if (!work_ || stopped_ || next_ >= count_ || next_ >= consumed_ + window()) {
        return false;
    }
    index = next_++;
    ++running_;
    return true;
}

void TileWorkers::perform(std::size_t index, unsigned thread) {
    const std::size_t slot = index % window();
    std::exception_ptr error;
    try {
        (*work_)(index, slot, thread);
    } catch (...) {
        error = std::current_exception();
    }
    {
        std::lock_guard lock(mutex_);
        doneIndex_[slot] = index + 1;
        errors_[slot] = std::move(error);
        --running_;
    }
    changed_.notify_all();
}

void TileWorkers::helperLoop(unsigned thread) {
    std::unique_lock lock(mutex_);
    for (;;) {
        std::size_t index = 0;
        changed_.wait(lock, [&] { return closing_ || claim(index); });
        if (closing_) {
            return; // runs are synchronous, so none is in progress
        }
        lock.unlock();
        perform(index, thread);
        lock.lock();
    }
}

void TileWorkers::run(std::size_t count, const Work& work, const Consume& consume) {
    {
        std::lock_guard lock(mutex_);
        work_ = &work;
        count_ = count;
        next_ = 0;
        consumed_ = 0;
        running_ = 0;
        stopped_ = false;
        std::fill(doneIndex_.begin(), doneIndex_.end(), 0);
        std::fill(errors_.begin(), errors_.end(), nullptr);
    }
    changed_.notify_all();

    std::exception_ptr failure;
    std::unique_lock lock(mutex_);
    while (consumed_ < count_ && !stopped_) {
        const std::size_t slot = consumed_ % window();
        if (doneIndex_[slot] == consumed_ + 1) {
            const std::size_t index = consumed_;
            std::exception_ptr error = std::move(errors_[slot]);
            lock.unlock();
            bool goOn = false;
            if (error) {
                failure = error;
            } else {
                try {
                    goOn = consume(index, slot);
                } catch (...) {
                    failure = std::current_exception();
                }
            }
            lock.lock();
            ++consumed_;
            if (!goOn) {
                stopped_ = true;
            }
            lock.unlock();
            changed_.notify_all(); // the window moved on
            lock.lock();
            continue;
        }
        std::size_t index = 0;
        if (claim(index)) {
            lock.unlock();
            perform(index, 0);
            lock.lock();
            continue;
        }
        changed_.wait(lock);
    }
    // Work already handed out ends before the caller's state may go away.
    stopped_ = true;
    changed_.wait(lock, [&] { return running_ == 0; });
    work_ = nullptr;
    lock.unlock();
    if (failure) {
        std::rethrow_exception(failure);
    }
}
