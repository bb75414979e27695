#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

/// A recursive lock with a name, for diagnostics. The thread that holds it may take
/// it again. Held briefly, never during pixel work.
class TqlCriticalSection {
public:
    explicit TqlCriticalSection(const wchar_t* name);
    TqlCriticalSection(const TqlCriticalSection&) = delete;
    TqlCriticalSection& operator=(const TqlCriticalSection&) = delete;

    const wchar_t* name() const { return name_; }

    /// Times a lock was found held by another thread, since construction.
    std::uint64_t contentions() const { return contentions_.load(std::memory_order_relaxed); }

private:
    friend class TqlSimpleLock;
    std::recursive_mutex mutex_;
    const wchar_t* name_;
    std::atomic<std::uint64_t> contentions_{0};
};

/// Scope lock over a TqlCriticalSection. Each use names its site, such as
/// "LockedHandleVector::get". When the environment variable QUORVALEDEBUG is set, a
/// lock that had to wait prints the lock's name, the site and the time waited.
class TqlSimpleLock {
public:
    TqlSimpleLock(TqlCriticalSection& section, const wchar_t* site);
    ~TqlSimpleLock();
    TqlSimpleLock(const TqlSimpleLock&) = delete;
    TqlSimpleLock& operator=(const TqlSimpleLock&) = delete;

    const wchar_t* site() const { return site_; }

private:
    TqlCriticalSection& section_;
    const wchar_t* site_;
};

namespace TQL {
/// True when QUORVALEDEBUG is set in the environment (read once).
bool debugEnabled();
/// True when QUORVALETIMING is set in the environment (read once).
bool timingEnabled();
} // namespace TQL
