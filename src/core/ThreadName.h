#pragma once

#include <thread>

namespace TQL {
/// Tags a thread for debuggers and profilers (at most 15 characters are kept).
/// `thread` is a native handle; the default tags the calling thread.
void setThreadName(const char* name, std::thread::native_handle_type thread);
void setThreadName(const char* name);

/// Records the calling thread as the main (interface) thread. Call once at start-up;
/// until then the first thread to ask is taken as the main thread.
void setMainThread();
bool isMainThread();
} // namespace TQL
