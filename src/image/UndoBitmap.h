#pragma once

#include "core/Handle.h"
#include "core/Status.h"
#include "image/TileBitmap.h"

#include <cstdint>

/// A snapshot of one of the document's channels for the undo store: it shares every tile of
/// the live bitmap it was made from, so making one copies handles and no pixel, and it
/// keeps a handle to that bitmap. Once the live bitmap is written, the written tiles are
/// private copies there, and the snapshot alone keeps the old ones.
///
/// Reads give the pixels as they were when the snapshot was made, with the live bitmap's
/// empty value (a depth snapshot reads no depth where the live channel does). A snapshot is
/// read, never shown: its display is the raw bytes.
class UndoBitmap : public TileBitmap {
public:
    /// A snapshot of `live`, which must not be null. Throws std::bad_alloc.
    explicit UndoBitmap(const TQL::Handle<TileBitmap>& live);

    const TQL::Handle<TileBitmap>& live() const { return live_; }

    /// Exchanges every tile handle with the live bitmap, keeping the non-empty counts and the
    /// changed flags of both right; no pixel is copied. Status 0.
    void swapWithLive(Status& status);

    /// Bytes of one full tile of this channel (tile width x tile height x pixel bytes): the
    /// unit of the store's accounting, also for the narrower last column and row.
    std::int64_t fullTileBytes() const;
    /// What freeing this snapshot gives back: one full tile for every non-empty tile that
    /// nobody else holds.
    std::int64_t bytesReleasedAtFree() const;
    /// What this snapshot keeps alive beyond the snapshot made after it: one full tile for
    /// every non-empty tile whose handle differs from `next`'s at the same index; with a null
    /// `next`, every non-empty tile. Counting a tile at the last snapshot that holds it makes
    /// a tile shared by several snapshots count once.
    std::int64_t deltaBytes(const UndoBitmap* next) const;

    /// The bitmap's structure plus the handle to the live bitmap.
    std::int64_t memoryUsed() const override;

private:
    TQL::Handle<TileBitmap> live_;
};
