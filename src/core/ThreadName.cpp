#include "core/ThreadName.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <pthread.h>

namespace TQL {

void setThreadName(const char* name, std::thread::native_handle_type thread) {
    char shortName[16] = {};
    if (name) {
        std::strncpy(shortName, name, sizeof shortName - 1);
    }
    pthread_setname_np(thread, shortName);
}

void setThreadName(const char* name) {
    setThreadName(name, pthread_self());
}

namespace {
std::mutex mainMutex;
bool mainKnown = false;
std::thread::id mainId;
} // namespace

void setMainThread() {
    std::lock_guard<std::mutex> lock(mainMutex);
    mainId = std::this_thread::get_id();
    mainKnown = true;
}

bool isMainThread() {
    std::lock_guard<std::mutex> lock(mainMutex);
    if (!mainKnown) {
        mainId = std::this_thread::get_id();
        mainKnown = true;
    }
    return mainId == std::this_thread::get_id();
}

} // namespace TQL
