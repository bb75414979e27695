#include "interchange/render/HugePageAllocator.h"

#include <cstdint>

#include <sys/mman.h>

namespace {

/// Blocks from this size on are mapped on their own.
constexpr std::size_t mappedFrom = std::size_t(1) << 20;
constexpr std::size_t hugePage = std::size_t(2) << 20;

std::size_t mappedSize(std::size_t bytes) {
    return (bytes + hugePage - 1) / hugePage * hugePage;
}

} // namespace

void* hugePages::allocate(std::size_t bytes) {
    if (bytes < mappedFrom) {
        return ::operator new(bytes);
    }
    const std::size_t size = mappedSize(bytes);
    // Mapped with a huge page to spare, then trimmed to a huge page's alignment, so that
    // the whole block can be backed by huge pages.
    void* raw =
        mmap(nullptr, size + hugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) {
        throw std::bad_alloc();
    }
    auto* const start = static_cast<char*>(raw);
    const std::size_t lead =
        (hugePage - reinterpret_cast<std::uintptr_t>(start) % hugePage) % hugePage;
    if (lead) {
        munmap(start, lead);
    }
    if (hugePage - lead) {
        munmap(start + lead + size, hugePage - lead);
    }
    // Only advice: without transparent huge pages the block works as it is.
    madvise(start + lead, size, MADV_HUGEPAGE);
    return start + lead;
}

void hugePages::release(void* p, std::size_t bytes) noexcept {
    if (!p) {
        return;
    }
    if (bytes < mappedFrom) {
        ::operator delete(p);
        return;
    }
    munmap(p, mappedSize(bytes));
}
