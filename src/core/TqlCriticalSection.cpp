#include "core/TqlCriticalSection.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace TQL {
bool debugEnabled() {
    static const bool enabled = std::getenv("QUORVALEDEBUG") != nullptr;
    return enabled;
}
bool timingEnabled() {
    static const bool enabled = std::getenv("QUORVALETIMING") != nullptr;
    return enabled;
}
} // namespace TQL

TqlCriticalSection::TqlCriticalSection(const wchar_t* name) : name_(name ? name : L"") {}

TqlSimpleLock::TqlSimpleLock(TqlCriticalSection& section, const wchar_t* site)
    : section_(section), site_(site ? site : L"") {
    if (section_.mutex_.try_lock()) {
        return;
    }
    section_.contentions_.fetch_add(1, std::memory_order_relaxed);
    if (!TQL::debugEnabled()) {
        section_.mutex_.lock();
        return;
    }
    const auto start = std::chrono::steady_clock::now();
    section_.mutex_.lock();
    const auto waited = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    std::fprintf(stderr, "lock contention: %ls at %ls waited %lld us\n", section_.name_, site_,
                 static_cast<long long>(waited.count()));
}

TqlSimpleLock::~TqlSimpleLock() {
    section_.mutex_.unlock();
}
