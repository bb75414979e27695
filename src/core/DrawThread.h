#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

/// The window a drawing task paints into, as the engine sees it: an opaque identity.
using DrawWindow = const void*;

/// A unit of background drawing. The DrawThread calls drawPerform repeatedly until it
/// returns true; drawCancel may be called from any thread to make it stop early.
class DrawTask {
public:
    virtual ~DrawTask() = default;
    /// Sets the task's abort flag. Callable from any thread.
    virtual void drawCancel() = 0;
    /// Does a piece of work on the drawing thread: true when nothing more is to do,
    /// false to be run again.
    virtual bool drawPerform() = 0;
    /// The window this task paints into.
    virtual DrawWindow drawWindow() const = 0;
};

/// One worker thread serving a queue of drawing tasks, the active window's first.
class DrawThread {
public:
    /// Waits while a task is cancelled; poll() is called between short sleeps, so the
    /// interface thread can keep handling what must not wait.
    class PollingWaiter {
    public:
        virtual ~PollingWaiter() = default;
        virtual void poll() const = 0;
    };
    /// Waits for the thread to run dry; poll() returns false to give up waiting.
    class FinishWaiter {
    public:
        virtual ~FinishWaiter() = default;
        virtual bool poll() const = 0;
    };

    DrawThread();
    virtual ~DrawThread();
    DrawThread(const DrawThread&) = delete;
    DrawThread& operator=(const DrawThread&) = delete;

    /// Queues a task unless it is queued already, and wakes the thread. The task must
    /// stay alive until it has finished or been cancelled.
    void insert(DrawTask& task);
    /// The window whose task is served first from now on.
    void updateActive(DrawWindow window);
    /// Asks the window's queued or running task to stop (drawCancel), removes it from the
    /// queue and waits until it is not running, calling the waiter's poll meanwhile.
    void cancel(DrawWindow window, const PollingWaiter& waiter);
    /// Waits until the queue is empty and no task runs. Returns false if the waiter gave up.
    bool finish(const FinishWaiter& waiter);
    /// True while tasks are queued or running.
    bool busy() const;

private:
    void run();

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::deque<DrawTask*> queue_;
    DrawTask* running_ = nullptr;
    DrawWindow active_ = nullptr;
    bool stopping_ = false;
    std::thread thread_;
};
