#pragma once

#include "image/TileBitmap.h"

#include <cstdint>
#include <vector>

/// The fast write path for whole rows: keeps the writable tiles of the current row of tiles,
/// so that writing row after row fetches (and, if shared, copies) each tile once rather than
/// once a row. Between fetches a run costs two atomic loads and no lock.
///
/// A kept tile is used only while nobody else holds it and the bitmap's tile handles were
/// not replaced (generation); otherwise it is fetched again through copy on write, so a
/// reader holding a tile never sees it change. Pointers are valid until the next call or the
/// writer's end. For the interface thread, like every write.
class TileRowWriter {
public:
    explicit TileRowWriter(TileBitmap& bitmap);

    /// Pointer to pixel (x, y) for writing, with `count` set to the number of pixels from x
    /// to the end of that tile's row (clipped to the image). Null and 0 outside the image.
    /// Throws std::bad_alloc.
    std::uint8_t* run(std::int32_t x, std::int32_t y, std::int32_t& count);

    /// Writes `count` pixels of `bytesPerPixel()` bytes from `source` into row y from x on,
    /// across tiles; pixels outside the image are skipped.
    void writeRow(std::int32_t x, std::int32_t y, const std::uint8_t* source, std::int32_t count);

    TileBitmap& bitmap() const { return bitmap_; }

private:
    TileBitmap& bitmap_;
    std::int32_t tileRow_ = -1;
    std::uint32_t generation_ = 0;
    std::vector<TileHandle> holds_;
};
