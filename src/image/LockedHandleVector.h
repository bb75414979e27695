#pragma once

#include "core/TqlCriticalSection.h"
#include "image/TileBitmapTile.h"

#include <cstdint>
#include <vector>

class TileBitmap;

/// The tile table of one bitmap: one handle a tile plus the count of entries that are not
/// empty. An empty entry always refers to the process-wide null tile, never to nothing.
///
/// Every operation takes the one process-wide lock csTileVector, and holds it only for the
/// handle operations: tiles that an operation lets go of are released after unlocking, and
/// no pixel is copied under the lock. Ranges are half-open: [first, last).
class LockedHandleVector {
public:
    /// Guards every LockedHandleVector of the process.
    static TqlCriticalSection csTileVector;

    /// `count` empty entries. Throws std::bad_alloc.
    explicit LockedHandleVector(std::int32_t count);
    /// Shares every tile of `other`.
    LockedHandleVector(const LockedHandleVector& other);
    LockedHandleVector& operator=(const LockedHandleVector&) = delete;

    std::int32_t size() const { return static_cast<std::int32_t>(entries_.size()); }
    /// Entries that are not the null tile.
    std::int32_t nonEmpty() const;

    /// A handle to tile i (the null tile if empty).
    TileHandle get(std::int32_t i) const;
    /// Makes tile i empty.
    void null(std::int32_t i);
    /// Makes tiles [first, last) empty.
    void clear(std::int32_t first, std::int32_t last);
    /// For each tile of [first, last): if `overwrite` or this entry is empty, and the
    /// handles differ, share `other`'s tile. Returns the number of entries replaced; if any,
    /// `owner`'s changed flag is set.
    std::int32_t copy(std::int32_t first, std::int32_t last, const LockedHandleVector& other,
                      bool overwrite, TileBitmap& owner);
    /// Exchanges the entries [first, last) with `other`'s, keeping both non-empty counts
    /// right. Returns true, and sets `owner`'s changed flag, if any handle differed; the
    /// caller tells `other`'s owner.
    bool swap(std::int32_t first, std::int32_t last, LockedHandleVector& other, TileBitmap& owner);
    /// Copy on write: a handle to tile i that nobody else holds. An empty entry gets a new
    /// tile of its size from `owner` (initialised to the owner's empty value); a shared
    /// tile is replaced by a byte copy. A caller that still holds tile i in a handle of its
    /// own makes it look shared: let go of it before asking. Throws std::bad_alloc.
    TileHandle getSinglyReferenced(std::int32_t i, const TileBitmap& owner);

    /// The copy-on-write rule, for a tile `held` in hand that a table entry refers to: it may
    /// be written in place when nobody but that entry and `held` holds it. Checked without
    /// the lock, by getSinglyReferenced and by writers that keep tiles between writes.
    static bool heldPrivately(const TileHandle& held) {
        return held && !held->empty() && held.refC() == 2;
    }
    /// Tiles copied because a writer found them shared, since the process started: what
    /// copy on write has cost, for diagnostics and benchmarks.
    static std::uint64_t tileCopies();

    /// Bytes of the pixel blocks of the non-empty tiles, leaving out tiles that `other` (if
    /// given) holds at the same index.
    std::int64_t tileBytes(const LockedHandleVector* other) const;

    /// True when entry i of both tables is the same tile.
    bool sameTile(std::int32_t i, const LockedHandleVector& other) const;

    /// Number of non-empty entries that nobody but this table holds (reference count 1).
    /// `site` names the caller for lock diagnostics.
    std::int32_t singlyHeld(const wchar_t* site) const;
    /// Number of non-empty entries whose tile is not the one `other` holds at that index
    /// (every non-empty entry beyond `other`'s size counts).
    std::int32_t differingFrom(const LockedHandleVector& other, const wchar_t* site) const;
    /// Appends to `out` the indices below both sizes where the two tables hold different
    /// tiles.
    void differences(const LockedHandleVector& other, std::vector<std::int32_t>& out) const;

private:
    std::vector<TileHandle> entries_;
    std::int32_t nonEmpty_ = 0;
};
