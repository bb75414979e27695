#include "app/QtTimerService.h"

#include <QTimer>

void QtTimerService::start(int id, int milliseconds, std::function<void()> fired) {
    QTimer*& timer = timers_[id];
    if (!timer) {
        timer = new QTimer(this);
        timer->setSingleShot(true);
    }
    timer->disconnect();
    // The callback may kill or restart this very timer: it runs after the timer stopped.
    connect(timer, &QTimer::timeout, this, [fired = std::move(fired)] { fired(); });
    timer->start(milliseconds);
}

void QtTimerService::kill(int id) {
    const auto it = timers_.find(id);
    if (it != timers_.end()) {
        it->second->stop();
    }
}

bool QtTimerService::running(int id) const {
    const auto it = timers_.find(id);
    return it != timers_.end() && it->second->isActive();
}
