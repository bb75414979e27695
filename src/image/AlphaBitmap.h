#pragma once

#include "core/Colour.h"
#include "image/TileBitmap.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

/// A coverage channel: one float from 0 to 1 a pixel, 0 where never written.
///
/// Rows that hold one value throughout need not hold it in memory. Each row of each tile
/// (a tile row) is either explicit (its memory holds its pixels) or uniform: it reads as one
/// value, whatever its memory holds. Clearing the plane for a stroke (clearKeepingTiles)
/// makes every row of the tiles it keeps uniform 0, and a stroke that covers a whole tile
/// row with one value (AlphaRowWriter) only records the value. Every read of this class
/// sees the floats the rows stand for: the pixel and tile reads first write the uniform rows
/// of the tile they touch into its memory (on the interface thread), valueAt reads the
/// recorded value, and the display draws it. Reads that go round the class (the tile table
/// itself, copying this bitmap's tiles into another) see the memory.
class AlphaBitmap : public TileBitmap {
public:
    using Pixel = Alpha;

    explicit AlphaBitmap(const ZmapDocument& document);
    AlphaBitmap(const ZmapDocument* document, const TileGeometry& geometry);

    /// The grey that shows coverage `a`: the complement of round(a * 255) in 8 bits, so full
    /// coverage is black and none is white.
    static std::uint8_t displayGrey(Alpha a);

    /// Makes every pixel 0, as clearAll does, without touching pixel memory: the tiles
    /// written since the last clear are kept for the writes to come, every row of them marked
    /// uniform 0; tiles not written since then are let go of. A plane cleared at every stroke
    /// (the stroke alpha) then allocates and zeroes nothing stroke after stroke.
    void clearKeepingTiles();
    /// Tiles that hold pixels (kept ones included) and have at least one uniform row.
    std::int32_t tilesWithUniformRows() const;

    /// The value of pixel (x, y) as a T of four bytes, as TileBitmap::valueAt, with uniform
    /// rows read as their value.
    template <class T> T valueAt(std::int32_t x, std::int32_t y) const;

    void clearTile(std::int32_t index) override;
    void clearAll() override;
    void copyFrom(const TileBitmap& other, bool overwrite) override;
    std::uint8_t* pixelForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                                std::int32_t* tileIndex) override;
    const std::uint8_t* pixelForRead(std::int32_t x, std::int32_t y, TileHandle& hold,
                                     std::int32_t* tileIndex) const override;
    std::uint8_t* tileForWrite(std::int32_t index, TileHandle& hold) override;
    const std::uint8_t* tileForRead(std::int32_t index, TileHandle& hold) const override;
    std::int64_t memoryUsed() const override;

    const std::uint8_t* displayRgb(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                                   TileHandle& hold) const override;
    const std::uint8_t* displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold,
                                            bool composite) const override;

private:
    friend class AlphaRowWriter;

    /// The mark of an explicit row; any other mark is the bits of the row's value (never
    /// this NaN).
    static constexpr std::uint32_t explicitRow = 0xFFFFFFFFu;

    std::size_t markIndex(std::int32_t tile, std::int32_t row) const {
        return static_cast<std::size_t>(tile) * static_cast<std::size_t>(geometry().tileHeight) +
               static_cast<std::size_t>(row);
    }
    /// The mark of row `row` of tile `tile` (read atomically: the display reads it from the
    /// drawing thread).
    std::uint32_t mark(std::int32_t tile, std::int32_t row) const {
        return std::atomic_ref<std::uint32_t>(marks_[markIndex(tile, row)])
            .load(std::memory_order_relaxed);
    }
    void setMark(std::int32_t tile, std::int32_t row, std::uint32_t mark) {
        std::atomic_ref<std::uint32_t>(marks_[markIndex(tile, row)])
            .store(mark, std::memory_order_relaxed);
    }
    /// Writes the uniform rows of tile `index` into its memory (a private tile, copied if
    /// shared) and marks them explicit. Interface thread only.
    void settle(std::int32_t index) const;
    void settleAll() const;
    /// Makes the marks (every row explicit) if there are none yet.
    void ensureMarks();
    /// Marks every row of tile `index` explicit without writing (its tile was replaced).
    void forgetMarks(std::int32_t index);
    void noteWritten(std::int32_t index);

    /// One mark a tile row, tile by tile; empty until the first clearKeepingTiles.
    mutable std::vector<std::uint32_t> marks_;
    /// Uniform rows a tile.
    mutable std::vector<std::uint16_t> uniformRows_;
    /// One flag a tile: written since the last clearKeepingTiles.
    mutable std::vector<std::uint8_t> written_;
};

/// Writes a coverage plane run by run, as the paint pipeline lays a stroke row by row,
/// without writing rows that hold one value: keeps the writable tiles of the current row of
/// tiles (as TileRowWriter does, copy on write as ever), reads a uniform row from a row of
/// its value and records a whole tile row of one value as its mark alone.
///
/// Pointers are valid until the next call. Interface thread only, like every stroke.
class AlphaRowWriter {
public:
    explicit AlphaRowWriter(AlphaBitmap& bitmap);

    /// Starts the run of row y from column x to the right edge of x's tile and returns its
    /// length (0 and null outside the image); `values` gets the run's pixels for reading.
    /// Throws std::bad_alloc.
    std::int32_t run(std::int32_t x, std::int32_t y, const Alpha*& values);
    /// Sets pixels first..last - 1 of the run to values[first..last). A whole tile row of one
    /// value (the same bits) is recorded as the row's mark; anything else makes the row
    /// explicit and is written.
    void write(const Alpha* values, int first, int last);
    /// The run's pixels for writing, the row made explicit first.
    Alpha* writable();
    /// True when the run's row is a uniform row, its value in `value`: every pixel the run
    /// reads is that value.
    bool uniform(Alpha& value) const {
        if (tile_ < 0 || !rowValuesUniform_) {
            return false;
        }
        value = std::bit_cast<Alpha>(uniformBits_);
        return true;
    }
    /// Sets pixels first..last - 1 of the run to `value`: as `write` with a row of it.
    void fill(Alpha value, int first, int last);

    /// Whole tile rows raised at one coverage a tile: for the tiles of row y in columns
    /// firstColumn..lastColumn - 1, each row raised by "over" at its coverage c,
    /// C = (1 - S) * c + S, as run() and fill() over the whole tile row would raise it.
    /// `coverageOf(column, c)` gives the coverage of the column's pixels, or false when they
    /// are not one value. A uniform row that rises is recorded at its new value and reported
    /// as `risen(column, value)`; one that doesn't rise is left. Stops at the first column
    /// whose coverage is not one value or whose row is explicit (written out) and returns it;
    /// lastColumn when there is none. The tiles are kept and copied on write as run() does
    /// them. Throws std::bad_alloc.
    template <class C, class F>
    std::int32_t riseUniformRows(std::int32_t y, std::int32_t firstColumn, std::int32_t lastColumn,
                                 C&& coverageOf, F&& risen);

    AlphaBitmap& bitmap() const { return bitmap_; }

private:
    /// Keeps the tiles of row of tiles `tileRow` (those of another row, or of an older
    /// generation of the bitmap, are let go of).
    void takeTileRow(std::int32_t tileRow) {
        const std::uint32_t generation = bitmap_.generation();
        if (tileRow != tileRow_ || generation != generation_) {
            for (TileHandle& h : holds_) {
                h.reset();
            }
            tileRow_ = tileRow;
            generation_ = generation;
        }
    }
    /// The kept tile of `column` in the current row of tiles, fetched for writing unless
    /// this writer holds it privately.
    void holdForWrite(std::int32_t column) {
        TileHandle& hold = holds_[static_cast<std::size_t>(column)];
        if (!LockedHandleVector::heldPrivately(hold)) {
            fetchForWrite(column);
        }
    }
    void fetchForWrite(std::int32_t column);

    AlphaBitmap& bitmap_;
    std::int32_t tileRow_ = -1;
    std::uint32_t generation_ = 0;
    std::vector<TileHandle> holds_;
    // The current run.
    std::int32_t tile_ = -1;
    std::int32_t row_ = 0;
    std::int32_t offset_ = 0; ///< the run's first pixel within the tile row
    std::int32_t length_ = 0;
    std::int32_t rowLength_ = 0; ///< pixels of the whole tile row
    Alpha* rowPixels_ = nullptr; ///< the tile row's memory
    /// A row of one value, for reading uniform rows; refilled when the value changes.
    alignas(16) Alpha uniform_[256] = {};
    std::uint32_t uniformBits_ = 0;
    /// The current run reads uniform_.
    bool rowValuesUniform_ = false;
};

template <class C, class F>
std::int32_t AlphaRowWriter::riseUniformRows(std::int32_t y, std::int32_t firstColumn,
                                             std::int32_t lastColumn, C&& coverageOf, F&& risen) {
    const TileGeometry& g = bitmap_.geometry();
    tile_ = -1; // no current run: write() and fill() need run() first
    rowValuesUniform_ = false;
    if (y < 0 || y >= g.height || bitmap_.marks_.empty()) {
        return firstColumn;
    }
    firstColumn = std::max(firstColumn, 0);
    lastColumn = std::min(lastColumn, g.tilesAcross);
    if (firstColumn >= lastColumn) {
        return lastColumn;
    }
    const std::int32_t tileRow = y >> g.yShift;
    const std::int32_t row = y & g.yMask;
    takeTileRow(tileRow);
    bitmap_.setChanged();
    if (bitmap_.written_.empty()) {
        bitmap_.written_.assign(static_cast<std::size_t>(g.tileCount()), 0);
    }
    const std::int32_t rowTiles = tileRow * g.tilesAcross;
    for (std::int32_t column = firstColumn; column < lastColumn; ++column) {
        Alpha coverage = 0;
        if (!coverageOf(column, coverage)) {
            return column;
        }
        const std::int32_t tile = rowTiles + column;
        holdForWrite(column);
        bitmap_.written_[static_cast<std::size_t>(tile)] = 1;
        const std::uint32_t m = bitmap_.mark(tile, row);
        if (m == AlphaBitmap::explicitRow) {
            return column;
        }
        const Alpha under = std::bit_cast<Alpha>(m);
        const Alpha rise = (1.0f - under) * coverage + under;
        if (under < rise) {
            const std::uint32_t bits = std::bit_cast<std::uint32_t>(rise);
            if (bits == AlphaBitmap::explicitRow) {
                return column; // not a value a mark can hold: the run's own path writes it
            }
            bitmap_.setMark(tile, row, bits);
            risen(column, rise);
        }
    }
    return lastColumn;
}

template <class T> T AlphaBitmap::valueAt(std::int32_t x, std::int32_t y) const {
    static_assert(sizeof(T) == sizeof(Alpha));
    if (!marks_.empty() && geometry().contains(x, y)) {
        const std::int32_t tile = geometry().tileIndex(x, y);
        if (uniformRows_[static_cast<std::size_t>(tile)] != 0) {
            const std::uint32_t m = mark(tile, y & geometry().yMask);
            if (m != explicitRow) {
                T value;
                std::memcpy(&value, &m, sizeof value);
                return value;
            }
        }
    }
    return TileBitmap::valueAt<T>(x, y);
}
