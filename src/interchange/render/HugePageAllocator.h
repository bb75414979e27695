#pragma once

#include <cstddef>
#include <new>
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
