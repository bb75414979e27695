#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace TQL {

/// Base of every reference-counted object. A new object has count 0; it is destroyed
/// only when the last Handle lets go of it, never through delete by a caller.
class Handlable {
public:
    Handlable() = default;
    /// Copying an object never copies its count: the copy starts unshared.
    Handlable(const Handlable&) {}
    Handlable& operator=(const Handlable&) { return *this; }

protected:
    virtual ~Handlable() = default;

private:
    friend class HandleBase;
    mutable std::atomic<std::uint32_t> count_{0};
};

/// The counting operations. All accept null and do nothing for it; refC(null) is 0.
class HandleBase {
public:
    static void ref(const Handlable* object) noexcept {
        if (object) {
            object->count_.fetch_add(1, std::memory_order_relaxed);
        }
    }
    static void deref(const Handlable* object) noexcept {
        if (object && object->count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete object;
        }
    }
    static std::uint32_t refC(const Handlable* object) noexcept {
        return object ? object->count_.load(std::memory_order_acquire) : 0;
    }
};

/// Shared pointer over a Handlable. Wrapping a fresh object takes a reference at once,
/// so `Handle<T> h(new T)` leaves the count at 1. An object seen with count 1 through
/// the one Handle in hand is privately owned: copy on write rests on that test.
template <class T> class Handle {
public:
    using element_type = T;

    Handle() noexcept = default;
    Handle(std::nullptr_t) noexcept {}
    explicit Handle(T* object) noexcept : p_(object) { HandleBase::ref(p_); }
    Handle(const Handle& other) noexcept : p_(other.p_) { HandleBase::ref(p_); }
    Handle(Handle&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    template <class U> Handle(const Handle<U>& other) noexcept : p_(other.get()) {
        HandleBase::ref(p_);
    }
    ~Handle() { HandleBase::deref(p_); }

    Handle& operator=(const Handle& other) noexcept {
        reset(other.p_);
        return *this;
    }
    Handle& operator=(Handle&& other) noexcept {
        if (this != &other) {
            T* old = std::exchange(p_, std::exchange(other.p_, nullptr));
            HandleBase::deref(old);
        }
        return *this;
    }

    /// Replaces the target; the new one is referenced before the old one is released,
    /// so resetting to the object already held is safe.
    void reset(T* object = nullptr) noexcept {
        HandleBase::ref(object);
        T* old = std::exchange(p_, object);
        HandleBase::deref(old);
    }

    T* get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    bool isNull() const noexcept { return p_ == nullptr; }

    /// The present reference count of the target, 0 for null.
    std::uint32_t refC() const noexcept { return HandleBase::refC(p_); }

    template <class U> bool operator==(const Handle<U>& o) const noexcept { return p_ == o.get(); }
    bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }

private:
    T* p_ = nullptr;
};

/// Makes a handle to a new object: `auto h = makeHandle<Tile>(args...)`.
template <class T, class... Args> Handle<T> makeHandle(Args&&... args) {
    return Handle<T>(new T(std::forward<Args>(args)...));
}

/// A handle of the derived type if the object is one, else null.
template <class U, class T> Handle<U> handleCast(const Handle<T>& h) {
    return Handle<U>(dynamic_cast<U*>(h.get()));
}

} // namespace TQL
