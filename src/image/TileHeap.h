#pragma once

#include <cstddef>
#include <cstdint>

/// The pixel memory of all tiles. Blocks come from one private heap; on the main thread a
/// small free list keeps recently freed blocks by exact size, since tile sizes repeat and a
/// stroke frees and allocates the same sizes again and again.
///
/// The free list is used on the main thread only and takes no lock; a block allocated or
/// freed on any other thread goes to the heap directly. A purge timer (id purgeTimerId on
/// the core TimerService) gives idle blocks back after TileFreeListTimeout milliseconds.
///
/// Settings (section "Settings"), read once at the first main-thread allocation:
/// `TileFreeListSize` (blocks kept per size, default 512, 0 turns the list off),
/// `TileFreeListTimeout` (milliseconds, default 10000, 0 never arms the timer) and
/// `TileFreeListOptions` ("%d,%d": size and timeout, each used only when its own setting
/// is not stored).
class TileHeap {
public:
    static constexpr int purgeTimerId = 4;

    /// A block of `bytes` bytes, zero-filled if `zeroFill`. Throws std::bad_alloc.
    static void* allocate(std::size_t bytes, bool zeroFill);
    /// Gives back a block of `bytes` bytes that allocate() returned. Null is ignored.
    static void release(void* block, std::size_t bytes) noexcept;

    /// The application went idle: if the free list holds blocks, arm the purge timer.
    /// Main thread only; does nothing without an installed TimerService.
    static void idle();
    /// Gives every block of the free list back to the heap. With `resetTimer`, a running
    /// purge timer is killed too (the shut-down form). Main thread only.
    static void purge(bool resetTimer);

    /// Forgets the settings read so far; the next main-thread allocation reads them again.
    static void rereadSettings();
    /// The settings in force (read now if need be). Main thread only.
    static int freeListSize();
    static int purgeTimeout();
    /// True while the purge timer is armed.
    static bool purgeTimerArmed();

    /// Byte and block counts, safe to read from any thread.
    struct Counters {
        std::size_t bytesInUse = 0; ///< held by tiles
        std::size_t blocksInUse = 0;
        std::size_t bytesCached = 0; ///< parked in the free list
        std::size_t blocksCached = 0;
    };
    static Counters counters();
};
