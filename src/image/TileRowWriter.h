#pragma once

#include "image/TileBitmap.h"

#include <cstdint>
#include <vector>

/// The tiles a row writer keeps: those of the last two rows of tiles it used, so that work
/// going back and forth between two rows of tiles (dab after dab across a tile border, row
/// by row) fetches each tile once rather than at every crossing. All are let go of when the
/// bitmap's tile handles are replaced (generation).
class TileRowHolds {
public:
    explicit TileRowHolds(std::int32_t tilesAcross)
        : across_(tilesAcross), holds_(2 * static_cast<std::size_t>(tilesAcross)) {}

    /// The holds of row of tiles `tileRow`, one a column; a row not kept takes the place of
    /// the row used less recently, its tiles let go of.
    TileHandle* row(std::int32_t tileRow, std::uint32_t generation) {
        if (generation != generation_) {
            reset();
            generation_ = generation;
        }
        int slot = rows_[0] == tileRow ? 0 : rows_[1] == tileRow ? 1 : -1;
        if (slot < 0) {
            slot = 1 - last_;
            for (std::int32_t k = 0; k < across_; ++k) {
                holds_[static_cast<std::size_t>(slot * across_ + k)].reset();
            }
            rows_[slot] = tileRow;
        }
        last_ = slot;
        return holds_.data() + static_cast<std::size_t>(slot * across_);
    }
    /// Lets go of every kept tile.
    void reset() {
        for (TileHandle& h : holds_) {
            h.reset();
        }
        rows_[0] = rows_[1] = -1;
    }

private:
    std::int32_t across_;
    std::vector<TileHandle> holds_;
    std::int32_t rows_[2] = {-1, -1};
    std::uint32_t generation_ = 0;
    int last_ = 0;
};

/// The fast write path for whole rows: keeps the writable tiles of the current rows of tiles,
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

    /// Starts row y for rowOfTile; false outside the image. The row's tiles are kept as run()
    /// keeps them.
    bool beginRow(std::int32_t y) {
        const TileGeometry& g = bitmap_.geometry();
        if (y < 0 || y >= g.height) {
            rowHolds_ = nullptr;
            return false;
        }
        tileRow_ = y >> g.yShift;
        rowInTile_ = y & g.yMask;
        rowHolds_ = holds_.row(tileRow_, bitmap_.generation());
        return true;
    }
    /// The pixels of the row begun in tile column `column` (which must lie in the image),
    /// whole, for writing: run() at the column's first pixel, without its checks.
    /// Throws std::bad_alloc.
    std::uint8_t* rowOfTile(std::int32_t column) {
        TileHandle& hold = rowHolds_[column];
        if (!LockedHandleVector::heldPrivately(hold)) {
            bitmap_.tileForWrite(tileRow_ * bitmap_.geometry().tilesAcross + column, hold);
        }
        bitmap_.setChanged();
        return hold->pixel(0, rowInTile_);
    }

    TileBitmap& bitmap() const { return bitmap_; }

private:
    TileBitmap& bitmap_;
    TileRowHolds holds_;
    // The row begun for rowOfTile.
    TileHandle* rowHolds_ = nullptr;
    std::int32_t tileRow_ = 0;
    std::int32_t rowInTile_ = 0;
};
