#include "image/LockedHandleVector.h"

#include "image/TileBitmap.h"

#include <algorithm>
#include <atomic>
#include <utility>

TqlCriticalSection LockedHandleVector::csTileVector(L"LockedHandleVector::csTileVector");

namespace {

bool isNull(const TileHandle& h) {
    return h.get() == TileBitmapTile::nullTilePointer();
}

std::atomic<std::uint64_t> copiesMade{0};

} // namespace

LockedHandleVector::LockedHandleVector(std::int32_t count)
    : entries_(static_cast<std::size_t>(count > 0 ? count : 0), TileBitmapTile::nullTile()) {}

LockedHandleVector::LockedHandleVector(const LockedHandleVector& other) {
    TqlSimpleLock lock(csTileVector, L"LockedHandleVector Copy constructor");
    entries_ = other.entries_;
    nonEmpty_ = other.nonEmpty_;
}

std::int32_t LockedHandleVector::nonEmpty() const {
    TqlSimpleLock lock(csTileVector, L"LockedHandleVector::nonEmpty");
    return nonEmpty_;
}

TileHandle LockedHandleVector::get(std::int32_t i) const {
    TqlSimpleLock lock(csTileVector, L"LockedHandleVector::get");
    if (i < 0 || i >= size()) {
        return TileBitmapTile::nullTile();
    }
    return entries_[static_cast<std::size_t>(i)];
}

void LockedHandleVector::null(std::int32_t i) {
    TileHandle released = TileBitmapTile::nullTile();
    {
        TqlSimpleLock lock(csTileVector, L"LockedHandleVector::null");
        if (i < 0 || i >= size()) {
            return;
        }
        TileHandle& entry = entries_[static_cast<std::size_t>(i)];
        if (!isNull(entry)) {
            --nonEmpty_;
        }
        std::swap(entry, released);
    }
}

void LockedHandleVector::clear(std::int32_t first, std::int32_t last) {
    std::vector<TileHandle> released;
    {
        TqlSimpleLock lock(csTileVector, L"LockedHandleVector::clear");
        first = std::max(first, 0);
        last = std::min(last, size());
        const TileHandle nullTile = TileBitmapTile::nullTile();
        for (std::int32_t i = first; i < last; ++i) {
            TileHandle& entry = entries_[static_cast<std::size_t>(i)];
            if (!isNull(entry)) {
                released.push_back(std::exchange(entry, nullTile));
                --nonEmpty_;
            }
        }
    }
}

std::int32_t LockedHandleVector::copy(std::int32_t first, std::int32_t last,
                                      const LockedHandleVector& other, bool overwrite,
                                      TileBitmap& owner) {
    std::vector<TileHandle> released;
    std::int32_t replaced = 0;
    {
        TqlSimpleLock lock(csTileVector, L"LockedHandleVector::copy");
        first = std::max(first, 0);
        last = std::min({last, size(), other.size()});
        for (std::int32_t i = first; i < last; ++i) {
            TileHandle& entry = entries_[static_cast<std::size_t>(i)];
            const TileHandle& theirs = other.entries_[static_cast<std::size_t>(i)];
            if ((!overwrite && !isNull(entry)) || entry == theirs) {
                continue;
            }
            if (!isNull(entry)) {
                released.push_back(entry);
            }
            nonEmpty_ += (isNull(theirs) ? 0 : 1) - (isNull(entry) ? 0 : 1);
            entry = theirs;
            ++replaced;
        }
    }
    if (replaced) {
        owner.setChanged();
        owner.bumpGeneration();
    }
    return replaced;
}

bool LockedHandleVector::swap(std::int32_t first, std::int32_t last, LockedHandleVector& other,
                              TileBitmap& owner) {
    bool differed = false;
    {
        TqlSimpleLock lock(csTileVector, L"LockedHandleVector::swap");
        first = std::max(first, 0);
        last = std::min({last, size(), other.size()});
        for (std::int32_t i = first; i < last; ++i) {
            TileHandle& mine = entries_[static_cast<std::size_t>(i)];
            TileHandle& theirs = other.entries_[static_cast<std::size_t>(i)];
            if (mine == theirs) {
                continue;
            }
            const std::int32_t delta = (isNull(theirs) ? 0 : 1) - (isNull(mine) ? 0 : 1);
            nonEmpty_ += delta;
            other.nonEmpty_ -= delta;
            std::swap(mine, theirs);
            differed = true;
        }
    }
    if (differed) {
        owner.setChanged();
        owner.bumpGeneration();
    }
    return differed;
}

TileHandle LockedHandleVector::getSinglyReferenced(std::int32_t i, const TileBitmap& owner) {
    for (;;) {
        TileHandle current;
        {
            TqlSimpleLock lock(csTileVector, L"LockedHandleVector::getSinglyReferenced");
            if (i < 0 || i >= size()) {
                return TileHandle();
            }
            current = entries_[static_cast<std::size_t>(i)];
            if (heldPrivately(current)) {
                return current;
            }
        }
        // The new tile is made outside the lock: no pixel work under it.
        TileHandle fresh;
        if (isNull(current)) {
            fresh = owner.makeTile(i);
        } else {
            fresh = TQL::makeHandle<TileBitmapTile>(*current);
            copiesMade.fetch_add(1, std::memory_order_relaxed);
        }
        {
            TqlSimpleLock lock(csTileVector, L"LockedHandleVector::getSinglyReferenced");
            TileHandle& entry = entries_[static_cast<std::size_t>(i)];
            if (entry == current) {
                if (isNull(entry)) {
                    ++nonEmpty_;
                }
                entry = fresh;
                return fresh;
            }
        }
        // The entry changed while the copy was made: look again.
    }
}

std::uint64_t LockedHandleVector::tileCopies() {
    return copiesMade.load(std::memory_order_relaxed);
}

bool LockedHandleVector::sameTile(std::int32_t i, const LockedHandleVector& other) const {
    TqlSimpleLock lock(csTileVector, L"LockedHandleVector::sameTile");
    if (i < 0 || i >= size() || i >= other.size()) {
        return false;
    }
    return entries_[static_cast<std::size_t>(i)] == other.entries_[static_cast<std::size_t>(i)];
}

std::int64_t LockedHandleVector::tileBytes(const LockedHandleVector* other) const {
    TqlSimpleLock lock(csTileVector, L"LockedHandleVector::tileBytes");
    std::int64_t bytes = 0;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const TileHandle& entry = entries_[i];
        if (isNull(entry) || (other && i < other->entries_.size() && other->entries_[i] == entry)) {
            continue;
        }
        bytes += entry->size();
    }
    return bytes;
}

std::int32_t LockedHandleVector::singlyHeld(const wchar_t* site) const {
    TqlSimpleLock lock(csTileVector, site);
    std::int32_t count = 0;
    for (const TileHandle& entry : entries_) {
        if (!isNull(entry) && entry.refC() == 1) {
            ++count;
        }
    }
    return count;
}

std::int32_t LockedHandleVector::differingFrom(const LockedHandleVector& other,
                                               const wchar_t* site) const {
    TqlSimpleLock lock(csTileVector, site);
    std::int32_t count = 0;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const TileHandle& entry = entries_[i];
        if (!isNull(entry) && (i >= other.entries_.size() || other.entries_[i] != entry)) {
            ++count;
        }
    }
    return count;
}

void LockedHandleVector::differences(const LockedHandleVector& other,
                                     std::vector<std::int32_t>& out) const {
    TqlSimpleLock lock(csTileVector, L"LockedHandleVector::differences");
    const std::size_t n = std::min(entries_.size(), other.entries_.size());
    for (std::size_t i = 0; i < n; ++i) {
        if (entries_[i] != other.entries_[i]) {
            out.push_back(static_cast<std::int32_t>(i));
        }
    }
}
