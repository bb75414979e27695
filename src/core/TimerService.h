#pragma once

#include <functional>

/// Starts and stops the engine's timers on the interface thread. The application
/// implements it with its event loop's timers; without one installed, timers never
/// fire and their owners clean up at exit instead.
class TimerService {
public:
    virtual ~TimerService() = default;
    /// Starts (or restarts) timer `id` to call `fired` once after `milliseconds`, on the
    /// interface thread.
    virtual void start(int id, int milliseconds, std::function<void()> fired) = 0;
    /// Stops timer `id` if it runs.
    virtual void kill(int id) = 0;
};

namespace TQL {
/// The installed service (not owned), or null.
TimerService* timerService();
void setTimerService(TimerService* service);
} // namespace TQL
