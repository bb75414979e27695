#include "core/Reporter.h"

#include <atomic>

namespace {
std::atomic<StopRequest*> installed{nullptr};
}

namespace TQL {
StopRequest* stopRequest() {
    return installed.load();
}
void setStopRequest(StopRequest* stop) {
    installed.store(stop);
}
bool stopRequested() {
    StopRequest* s = installed.load();
    return s && s->stopRequested();
}
} // namespace TQL
