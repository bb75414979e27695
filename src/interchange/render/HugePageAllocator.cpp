#include "interchange/render/HugePageAllocator.h"

#include <cstdint>
#include <mutex>
#include <vector>

#include <sys/mman.h>

namespace {

/// Blocks from this size on are mapped on their own.
constexpr std::size_t mappedFrom = std::size_t(1) << 20;
constexpr std::size_t hugePage = std::size_t(2) << 20;

/// At most this many bytes, in this many blocks, are kept for reuse.
constexpr std::size_t keptLimit = std::size_t(1) << 30;
constexpr std::size_t keptBlocks = 32;

std::size_t mappedSize(std::size_t bytes) {
    return (bytes + hugePage - 1) / hugePage * hugePage;
}

struct Kept {
    void* p;
    std::size_t size;
};

/// The blocks kept for reuse, oldest first.
struct KeptBlocks {
    std::mutex lock;
    std::vector<Kept> blocks;
    std::size_t bytes = 0;

    KeptBlocks() { blocks.reserve(keptBlocks); }
};

KeptBlocks& kept() {
    // Never destroyed, so that arrays released late in the process's exit still find it.
    static KeptBlocks& k = *new KeptBlocks;
    return k;
}

} // namespace

void* hugePages::allocate(std::size_t bytes) {
    if (bytes < mappedFrom) {
        return ::operator new(bytes);
    }
    const std::size_t size = mappedSize(bytes);
    {
        KeptBlocks& k = kept();
        const std::lock_guard<std::mutex> guard(k.lock);
        for (auto b = k.blocks.end(); b != k.blocks.begin();) {
            if ((--b)->size == size) {
                void* const p = b->p;
                k.bytes -= size;
                k.blocks.erase(b);
                return p;
            }
        }
    }
    // Mapped with a huge page to spare, then trimmed to a huge page's alignment, so that
    // the whole block can be backed by huge pages.
    auto map = [&] {
        return mmap(nullptr, size + hugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                    -1, 0);
    };
    void* raw = map();
    if (raw == MAP_FAILED) {
        // The kept blocks may be what is missing.
        releaseKept();
        raw = map();
    }
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
    const std::size_t size = mappedSize(bytes);
    if (size <= keptLimit) {
        // Its pages stay until the system needs them; their contents don't matter, as
        // whoever gets the block again writes before reading.
        madvise(p, size, MADV_FREE);
        KeptBlocks& k = kept();
        const std::lock_guard<std::mutex> guard(k.lock);
        while (!k.blocks.empty() && (k.bytes + size > keptLimit || k.blocks.size() == keptBlocks)) {
            munmap(k.blocks.front().p, k.blocks.front().size);
            k.bytes -= k.blocks.front().size;
            k.blocks.erase(k.blocks.begin());
        }
        k.blocks.push_back({p, size});
        k.bytes += size;
        return;
    }
    munmap(p, size);
}

void hugePages::releaseKept() noexcept {
    KeptBlocks& k = kept();
    const std::lock_guard<std::mutex> guard(k.lock);
    for (const Kept& b : k.blocks) {
        munmap(b.p, b.size);
    }
    k.blocks.clear();
    k.bytes = 0;
}

std::size_t hugePages::keptBytes() noexcept {
    KeptBlocks& k = kept();
    const std::lock_guard<std::mutex> guard(k.lock);
    return k.bytes;
}
