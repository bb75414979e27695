#include "image/TileHeap.h"

#include "core/Settings.h"
#include "core/ThreadName.h"
#include "core/TimerService.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <vector>

namespace {

IntSetting sizeSetting(L"TileFreeListSize", 512);
IntSetting timeoutSetting(L"TileFreeListTimeout", 10000);

std::atomic<std::size_t> bytesInUse{0};
std::atomic<std::size_t> blocksInUse{0};
std::atomic<std::size_t> bytesCached{0};
std::atomic<std::size_t> blocksCached{0};

/// State of the main thread's free list. Touched by the main thread only.
struct FreeList {
    bool settingsRead = false;
    int maxBlocks = 0;
    int timeout = 0;
    bool timerArmed = false;
    /// Exact block size to a stack of free blocks; a stack that empties is removed.
    std::map<std::size_t, std::vector<void*>> stacks;
};

/// Never destroyed: blocks parked in it stay reachable until the purge at exit.
FreeList& freeList() {
    static FreeList& list = *new FreeList;
    return list;
}

void readSettings(FreeList& list) {
    const bool sizeStored = sizeSetting.read();
    const bool timeoutStored = timeoutSetting.read();
    list.maxBlocks = sizeSetting.value();
    list.timeout = timeoutSetting.value();
    if (!sizeStored || !timeoutStored) {
        const auto options = TQL::settingsStore().read(L"Settings", L"TileFreeListOptions");
        int size = 0;
        int timeout = 0;
        if (options && std::swscanf(options->c_str(), L"%d,%d", &size, &timeout) == 2) {
            if (!sizeStored) {
                list.maxBlocks = size;
            }
            if (!timeoutStored) {
                list.timeout = timeout;
            }
        }
    }
    list.settingsRead = true;
}

/// Any main-thread allocation or free first stops the purge timer: the list is in use.
void killTimer(FreeList& list) {
    if (list.timerArmed) {
        if (TimerService* timers = TQL::timerService()) {
            timers->kill(TileHeap::purgeTimerId);
        }
        list.timerArmed = false;
    }
}

void* heapAllocate(std::size_t bytes, bool zeroFill) {
    void* block = zeroFill ? std::calloc(1, bytes) : std::malloc(bytes);
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

void countIn(std::size_t bytes) {
    bytesInUse.fetch_add(bytes, std::memory_order_relaxed);
    blocksInUse.fetch_add(1, std::memory_order_relaxed);
}

void emptyList(FreeList& list) {
    for (auto& [bytes, stack] : list.stacks) {
        for (void* block : stack) {
            std::free(block);
        }
        bytesCached.fetch_sub(bytes * stack.size(), std::memory_order_relaxed);
        blocksCached.fetch_sub(stack.size(), std::memory_order_relaxed);
    }
    list.stacks.clear();
}

} // namespace

void* TileHeap::allocate(std::size_t bytes, bool zeroFill) {
    if (TQL::isMainThread()) {
        FreeList& list = freeList();
        killTimer(list);
        if (!list.settingsRead) {
            readSettings(list);
        }
        auto it = list.stacks.find(bytes);
        if (it != list.stacks.end()) {
            void* block = it->second.back();
            it->second.pop_back();
            if (it->second.empty()) {
                list.stacks.erase(it);
            }
            bytesCached.fetch_sub(bytes, std::memory_order_relaxed);
            blocksCached.fetch_sub(1, std::memory_order_relaxed);
            if (zeroFill) {
                std::memset(block, 0, bytes);
            }
            countIn(bytes);
            return block;
        }
    }
    void* block = heapAllocate(bytes, zeroFill);
    countIn(bytes);
    return block;
}

void TileHeap::release(void* block, std::size_t bytes) noexcept {
    if (!block) {
        return;
    }
    bytesInUse.fetch_sub(bytes, std::memory_order_relaxed);
    blocksInUse.fetch_sub(1, std::memory_order_relaxed);
    if (TQL::isMainThread()) {
        FreeList& list = freeList();
        killTimer(list);
        if (list.settingsRead && list.maxBlocks > 0) {
            try {
                std::vector<void*>& stack = list.stacks[bytes];
                if (stack.size() < static_cast<std::size_t>(list.maxBlocks)) {
                    stack.push_back(block);
                    bytesCached.fetch_add(bytes, std::memory_order_relaxed);
                    blocksCached.fetch_add(1, std::memory_order_relaxed);
                    return;
                }
            } catch (const std::bad_alloc&) {
                // No room to keep it: give it straight back.
            }
        }
    }
    std::free(block);
}

void TileHeap::idle() {
    FreeList& list = freeList();
    if (list.stacks.empty() || list.timerArmed || list.maxBlocks <= 0 || list.timeout <= 0) {
        return;
    }
    TimerService* timers = TQL::timerService();
    if (!timers) {
        return;
    }
    list.timerArmed = true;
    timers->start(purgeTimerId, list.timeout, [] {
        FreeList& fired = freeList();
        if (TimerService* service = TQL::timerService()) {
            service->kill(purgeTimerId);
        }
        fired.timerArmed = false;
        emptyList(fired);
    });
}

void TileHeap::purge(bool resetTimer) {
    FreeList& list = freeList();
    if (resetTimer) {
        killTimer(list);
    }
    emptyList(list);
}

void TileHeap::rereadSettings() {
    FreeList& list = freeList();
    sizeSetting.invalidate();
    timeoutSetting.invalidate();
    list.settingsRead = false;
}

int TileHeap::freeListSize() {
    FreeList& list = freeList();
    if (!list.settingsRead) {
        readSettings(list);
    }
    return list.maxBlocks;
}

int TileHeap::purgeTimeout() {
    FreeList& list = freeList();
    if (!list.settingsRead) {
        readSettings(list);
    }
    return list.timeout;
}

bool TileHeap::purgeTimerArmed() {
    return freeList().timerArmed;
}

TileHeap::Counters TileHeap::counters() {
    Counters c;
    c.bytesInUse = bytesInUse.load(std::memory_order_relaxed);
    c.blocksInUse = blocksInUse.load(std::memory_order_relaxed);
    c.bytesCached = bytesCached.load(std::memory_order_relaxed);
    c.blocksCached = blocksCached.load(std::memory_order_relaxed);
    return c;
}
