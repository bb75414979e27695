#include "interchange/render/WorkerTeam.h"

WorkerTeam::WorkerTeam(unsigned helpers) {
    helpers_.reserve(helpers);
    for (unsigned i = 0; i < helpers; ++i) {
        helpers_.emplace_back([this, i] { serve(i + 1); });
    }
}

WorkerTeam::~WorkerTeam() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : helpers_) {
        t.join();
    }
}

void WorkerTeam::start(const std::function<void(unsigned)>& work) {
    started_ = &work;
    if (helpers_.empty()) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        work_ = &work;
        ++round_;
        failure_ = nullptr;
    }
    wake_.notify_all();
}

void WorkerTeam::finish() {
    const std::function<void(unsigned)>* const work = started_;
    if (!work) {
        return;
    }
    started_ = nullptr;
    std::exception_ptr own;
    try {
        (*work)(0);
    } catch (...) {
        own = std::current_exception();
    }
    std::exception_ptr failure;
    if (!helpers_.empty()) {
        // Closing the round: a helper that hasn't joined it yet won't.
        std::unique_lock<std::mutex> lock(mutex_);
        work_ = nullptr;
        done_.wait(lock, [this] { return active_ == 0; });
        failure = own ? own : failure_;
        failure_ = nullptr;
    } else {
        failure = own;
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void WorkerTeam::serve(unsigned member) {
    std::uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] { return stopping_ || (work_ && round_ != seen); });
        if (stopping_) {
            return;
        }
        seen = round_;
        const std::function<void(unsigned)>* work = work_;
        ++active_;
        lock.unlock();
        std::exception_ptr failure;
        try {
            (*work)(member);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        if (failure && !failure_) {
            failure_ = failure;
        }
        if (--active_ == 0) {
            done_.notify_all();
        }
    }
}
