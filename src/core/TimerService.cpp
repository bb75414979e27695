#include "core/TimerService.h"

#include <atomic>

namespace {
std::atomic<TimerService*> installed{nullptr};
}

namespace TQL {
TimerService* timerService() {
    return installed.load();
}
void setTimerService(TimerService* service) {
    installed.store(service);
}
} // namespace TQL
