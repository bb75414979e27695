#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

/// Memory for the large arrays a rendering makes afresh (shadow records and lists of
/// hundreds of megabytes): blocks of a megabyte or more are mapped on their own and marked
/// for huge pages, so that filling them takes one page fault per 2 MB rather than one per
/// 4 KB. A released block is kept, up to a limit, for the next request of its size (a
/// model drawn again asks for the same sizes): it is then neither faulted in nor cleared
/// again. Kept blocks are marked free to the system, which takes their pages back when it
/// runs short of memory. Smaller blocks come from operator new. Thread-safe.
namespace hugePages {

/// At least `bytes` bytes, aligned for any object; throws std::bad_alloc.
void* allocate(std::size_t bytes);
/// Gives back a block from allocate(bytes).
void release(void* p, std::size_t bytes) noexcept;
/// Unmaps every kept block.
void releaseKept() noexcept;
/// The bytes of the blocks kept for reuse.
std::size_t keptBytes() noexcept;

} // namespace hugePages

template <class T> class HugePageAllocator {
public:
    using value_type = T;

    HugePageAllocator() = default;
    template <class U> HugePageAllocator(const HugePageAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        if (n > static_cast<std::size_t>(-1) / sizeof(T)) {
            throw std::bad_array_new_length();
        }
        return static_cast<T*>(hugePages::allocate(n * sizeof(T)));
    }
    void deallocate(T* p, std::size_t n) noexcept { hugePages::release(p, n * sizeof(T)); }

    template <class U> bool operator==(const HugePageAllocator<U>&) const noexcept { return true; }
};

template <class T> using HugePageVector = std::vector<T, HugePageAllocator<T>>;

/// A HugePageAllocator whose vectors, made or grown without a value, leave plain elements
/// as the memory has them: for the big arrays whose every element used is written before
/// it is read, which clearing would only cost a pass over memory (and, fresh, its page
/// clearing on the thread that clears rather than on those that fill).
template <class T> class UninitialisedHugePageAllocator : public HugePageAllocator<T> {
public:
    template <class U> struct rebind { using other = UninitialisedHugePageAllocator<U>; };

    UninitialisedHugePageAllocator() = default;
    template <class U>
    UninitialisedHugePageAllocator(const UninitialisedHugePageAllocator<U>&) noexcept {}

    template <class U> void construct(U* p) noexcept(std::is_nothrow_default_constructible_v<U>) {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args> void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

template <class T>
using UninitialisedHugePageVector = std::vector<T, UninitialisedHugePageAllocator<T>>;
