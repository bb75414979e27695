#pragma once

#include "core/TimerService.h"

#include <QObject>

#include <map>

class QTimer;

/// The engine's timers on the interface thread's event loop: one single-shot QTimer an id.
class QtTimerService : public QObject, public TimerService {
public:
    explicit QtTimerService(QObject* parent = nullptr) : QObject(parent) {}
    void start(int id, int milliseconds, std::function<void()> fired) override;
    void kill(int id) override;
    bool running(int id) const;

private:
    std::map<int, QTimer*> timers_;
};
