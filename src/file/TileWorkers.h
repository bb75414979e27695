#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// A small pool of threads for the tiles of a file: tiles are coded independently, so
/// their work spreads over the threads, while their results are taken in tile order on
/// the calling thread, which keeps the file's bytes the same whatever the thread count.
///
/// The calling thread is one of the threads(): it works too while it waits for the next
/// result. Work on index i is handed scratch slot i % window(), which nobody else uses
/// until consume(i) has returned, and the number of its thread (0 is the caller, helpers
/// are 1 to threads() - 1), for scratch kept per thread.
///
/// One run at a time, from the thread that made the pool.
class TileWorkers {
public:
    /// Work for `threads` threads in all, the caller included (threads - 1 helpers are
    /// started); 0 means one per processor, at most maxThreads.
    explicit TileWorkers(unsigned threads);
    ~TileWorkers();
    TileWorkers(const TileWorkers&) = delete;
    TileWorkers& operator=(const TileWorkers&) = delete;

    static constexpr unsigned maxThreads = 8;

    unsigned threads() const { return static_cast<unsigned>(helpers_.size()) + 1; }
    /// Results that may wait for the consumer at once: the number of scratch slots.
    std::size_t window() const { return 4 * std::size_t{threads()}; }

    using Work = std::function<void(std::size_t index, std::size_t slot, unsigned thread)>;
    using Consume = std::function<bool(std::size_t index, std::size_t slot)>;

    /// Runs work(i, slot, thread) for every i in [0, count), on any thread and at most
    /// window() ahead of the consumer, and consume(i, slot) on the calling thread in order
    /// of i, each once work(i) is done. A false from consume stops the run: no work starts
    /// after it. An exception of work(i) is thrown here, on the calling thread, when i's
    /// turn to be consumed comes; an exception of consume is thrown at once. Either way
    /// every work already started has ended when run returns or throws.
    void run(std::size_t count, const Work& work, const Consume& consume);

private:
    void helperLoop(unsigned thread);
    /// Runs work on `index` and records it done. Called without the lock.
    void perform(std::size_t index, unsigned thread);
    /// The next index that may be worked on, or false. Called with the lock held.
    bool claim(std::size_t& index);

    std::vector<std::thread> helpers_;
    std::mutex mutex_;
    /// Told when work is there to claim, or a result done, or the pool closes.
    std::condition_variable changed_;

    // The run in progress; all under mutex_.
    const Work* work_ = nullptr;
    std::size_t count_ = 0;
    std::size_t next_ = 0;     ///< the next index to claim
    std::size_t consumed_ = 0; ///< indices below this have been consumed
    std::size_t running_ = 0;  ///< work started and not ended
    bool stopped_ = false;
    bool closing_ = false;
    /// Per slot: the index whose work ended there plus one (0 for none), and its exception.
    std::vector<std::size_t> doneIndex_;
    std::vector<std::exception_ptr> errors_;
};
