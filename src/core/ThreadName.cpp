#include "core/ThreadName.h"

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
/// Function-local, so a setMainThread call from another file's static initialiser is not
/// undone by this file's own initialisation running later.
struct MainThread {
    std::mutex mutex;
    bool known = false;
    std::thread::id id;
};
MainThread& mainThread() {
    static MainThread m;
    return m;
}
} // namespace

void setMainThread() {
    MainThread& m = mainThread();
    std::lock_guard<std::mutex> lock(m.mutex);
    m.id = std::this_thread::get_id();
    m.known = true;
}

bool isMainThread() {
    MainThread& m = mainThread();
    std::lock_guard<std::mutex> lock(m.mutex);
    if (!m.known) {
        m.id = std::this_thread::get_id();
        m.known = true;
    }
    return m.id == std::this_thread::get_id();
}

} // namespace TQL
