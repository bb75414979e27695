#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// A calling thread and a few helper threads that stay for the team's life, for work
/// handed out many times a second (a rendering's bands), where starting threads each time
/// would cost more than the work saves.
///
/// run(work) calls work(member) on the calling thread (member 0) and on each helper
/// (members 1 and up) that wakes in time, and returns once every one that started has
/// finished. A helper that wakes after the calling thread has run out of work starts
/// nothing, so a busy machine never makes the caller wait for a helper to be scheduled:
/// the work must share out its items itself (an atomic counter, say), and any member
/// may end up doing all of them.
class WorkerTeam {
public:
    /// A team of the calling thread and `helpers` helper threads.
    explicit WorkerTeam(unsigned helpers);
    ~WorkerTeam();
    WorkerTeam(const WorkerTeam&) = delete;
    WorkerTeam& operator=(const WorkerTeam&) = delete;

    /// The members, the calling thread included.
    unsigned size() const { return static_cast<unsigned>(helpers_.size()) + 1; }

    /// Runs `work` as above. A failure in any member is thrown here once all have stopped
    /// (the first one caught).
    void run(const std::function<void(unsigned member)>& work) {
        start(work);
        finish();
    }

    /// The two halves of run, for overlapping a round with other work of the calling
    /// thread: start hands `work` to the helpers and returns at once; finish runs it on the
    /// calling thread, waits for the helpers as run does, and throws a failure of the
    /// round. `work` must live until finish returns, and each start needs its finish
    /// before the next.
    void start(const std::function<void(unsigned member)>& work);
    void finish();
    /// Whether a round was started and not yet finished.
    bool started() const { return started_ != nullptr; }

private:
    void serve(unsigned member);

    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable done_;
    /// The work of the running round, or null once the round is closed to helpers.
    const std::function<void(unsigned)>* work_ = nullptr;
    /// The work started and not yet finished (the calling thread's only).
    const std::function<void(unsigned)>* started_ = nullptr;
    /// Rises with each round, so that a helper joins a round at most once.
    std::uint64_t round_ = 0;
    /// Helpers working on the running round.
    unsigned active_ = 0;
    bool stopping_ = false;
    std::exception_ptr failure_;
    std::vector<std::thread> helpers_;
};
