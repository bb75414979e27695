#include "app/TimingReport.h"

#include <atomic>
#include <cstdio>

namespace {
std::atomic<bool> reportsOn{false};
}

TimingReport::TimingReport(const char* what, const QString& subject)
    : what_(what), subject_(subject) {
    timer_.start();
}

TimingReport::~TimingReport() {
    print(what_, subject_, static_cast<double>(timer_.nsecsElapsed()) / 1e6);
}

void TimingReport::setEnabled(bool on) {
    reportsOn = on;
}

bool TimingReport::enabled() {
    return reportsOn;
}

void TimingReport::print(const char* what, const QString& subject, double milliseconds) {
    if (reportsOn) {
        std::fprintf(stderr, "Quorvale timing: %s %s: %.1f ms\n", what,
                     subject.toLocal8Bit().constData(), milliseconds);
    }
}
