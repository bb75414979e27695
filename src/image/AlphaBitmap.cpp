#include "image/AlphaBitmap.h"

#include "image/ZmapDocument.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

/// Every value of values[first..last) has the bits of `bits`.
bool allBits(const Alpha* values, std::uint32_t bits, int first, int last) {
    int i = first;
#if defined(__SSE2__)
    const __m128i v = _mm_set1_epi32(static_cast<int>(bits));
    __m128i same = _mm_set1_epi32(-1);
    for (; i + 4 <= last; i += 4) {
        const __m128i x = _mm_castps_si128(_mm_loadu_ps(values + i));
        same = _mm_and_si128(same, _mm_cmpeq_epi32(x, v));
    }
    if (_mm_movemask_epi8(same) != 0xFFFF) {
        return false;
    }
#endif
    for (; i < last; ++i) {
        if (std::bit_cast<std::uint32_t>(values[i]) != bits) {
            return false;
        }
    }
    return true;
}

void fillRow(Alpha* row, Alpha value, std::int32_t count) {
    std::fill(row, row + count, value);
}

} // namespace

AlphaBitmap::AlphaBitmap(const ZmapDocument& document)
    : AlphaBitmap(&document, document.geometry()) {}

AlphaBitmap::AlphaBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::alpha32) {}

void AlphaBitmap::ensureMarks() {
    const std::int32_t count = geometry().tileCount();
    if (marks_.empty() && count > 0) {
        marks_.assign(static_cast<std::size_t>(count) *
                          static_cast<std::size_t>(geometry().tileHeight),
                      explicitRow);
        uniformRows_.assign(static_cast<std::size_t>(count), 0);
    }
}

void AlphaBitmap::clearKeepingTiles() {
    const std::int32_t count = geometry().tileCount();
    ensureMarks();
    written_.resize(static_cast<std::size_t>(count), 0);
    for (std::int32_t i = 0; i < count; ++i) {
        auto& written = written_[static_cast<std::size_t>(i)];
        const bool empty = tiles().get(i)->empty();
        const bool keep = written && !empty;
        written = 0;
        if (!keep) {
            if (!empty) {
                TileBitmap::clearTile(i);
            }
            forgetMarks(i);
            continue;
        }
        // Every row reads 0 from now on; its memory is written only if it is read or
        // written in part.
        const std::int32_t rows = geometry().rowHeight(i / geometry().tilesAcross);
        for (std::int32_t row = 0; row < rows; ++row) {
            setMark(i, row, 0);
        }
        uniformRows_[static_cast<std::size_t>(i)] = static_cast<std::uint16_t>(rows);
    }
    // Writers that keep tiles write through to memory: they must fetch them again, which
    // writes the uniform rows out first.
    bumpGeneration();
    setChanged();
}

std::int32_t AlphaBitmap::tilesWithUniformRows() const {
    return static_cast<std::int32_t>(
        std::count_if(uniformRows_.begin(), uniformRows_.end(), [](auto n) { return n != 0; }));
}

void AlphaBitmap::forgetMarks(std::int32_t index) {
    if (marks_.empty() || index < 0 || index >= geometry().tileCount() ||
        uniformRows_[static_cast<std::size_t>(index)] == 0) {
        return;
    }
    for (std::int32_t row = 0; row < geometry().tileHeight; ++row) {
        const_cast<AlphaBitmap*>(this)->setMark(index, row, explicitRow);
    }
    uniformRows_[static_cast<std::size_t>(index)] = 0;
}

void AlphaBitmap::noteWritten(std::int32_t index) {
    if (index < 0 || index >= geometry().tileCount()) {
        return;
    }
    if (written_.empty()) {
        written_.assign(static_cast<std::size_t>(geometry().tileCount()), 0);
    }
    written_[static_cast<std::size_t>(index)] = 1;
}

void AlphaBitmap::settle(std::int32_t index) const {
    if (marks_.empty() || index < 0 || index >= geometry().tileCount() ||
        uniformRows_[static_cast<std::size_t>(index)] == 0) {
        return;
    }
    // Logically the plane does not change: its memory comes to hold what it reads as.
    auto* self = const_cast<AlphaBitmap*>(this);
    TileHandle tile;
    if (!self->TileBitmap::tileForWrite(index, tile)) {
        return;
    }
    const std::int32_t width = geometry().columnWidth(index % geometry().tilesAcross);
    const std::int32_t rows = geometry().rowHeight(index / geometry().tilesAcross);
    for (std::int32_t row = 0; row < rows; ++row) {
        const std::uint32_t m = mark(index, row);
        if (m != explicitRow) {
            fillRow(reinterpret_cast<Alpha*>(tile->pixel(0, row)), std::bit_cast<Alpha>(m), width);
            self->setMark(index, row, explicitRow);
        }
    }
    uniformRows_[static_cast<std::size_t>(index)] = 0;
    self->noteWritten(index);
}

void AlphaBitmap::settleAll() const {
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(uniformRows_.size()); ++i) {
        settle(i);
    }
}

void AlphaBitmap::clearTile(std::int32_t index) {
    TileBitmap::clearTile(index);
    forgetMarks(index);
}

void AlphaBitmap::clearAll() {
    TileBitmap::clearAll();
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(uniformRows_.size()); ++i) {
        forgetMarks(i);
    }
    std::fill(written_.begin(), written_.end(), 0);
}

void AlphaBitmap::copyFrom(const TileBitmap& other, bool overwrite) {
    // Tiles that stay must hold their pixels in memory once tiles around them are shared.
    settleAll();
    TileBitmap::copyFrom(other, overwrite);
}

std::uint8_t* AlphaBitmap::pixelForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                                         std::int32_t* tileIndex) {
    if (geometry().contains(x, y)) {
        const std::int32_t index = geometry().tileIndex(x, y);
        hold.reset(); // a hold of the same tile would make settling copy it
        settle(index);
        noteWritten(index);
    }
    return TileBitmap::pixelForWrite(x, y, hold, tileIndex);
}

const std::uint8_t* AlphaBitmap::pixelForRead(std::int32_t x, std::int32_t y, TileHandle& hold,
                                              std::int32_t* tileIndex) const {
    if (geometry().contains(x, y)) {
        hold.reset();
        settle(geometry().tileIndex(x, y));
    }
    return TileBitmap::pixelForRead(x, y, hold, tileIndex);
}

std::uint8_t* AlphaBitmap::tileForWrite(std::int32_t index, TileHandle& hold) {
    hold.reset();
    settle(index);
    noteWritten(index);
    return TileBitmap::tileForWrite(index, hold);
}

const std::uint8_t* AlphaBitmap::tileForRead(std::int32_t index, TileHandle& hold) const {
    hold.reset();
    settle(index);
    return TileBitmap::tileForRead(index, hold);
}

std::int64_t AlphaBitmap::memoryUsed() const {
    return TileBitmap::memoryUsed() +
           static_cast<std::int64_t>(marks_.capacity() * sizeof(std::uint32_t) +
                                     uniformRows_.capacity() * sizeof(std::uint16_t) +
                                     written_.capacity());
}

std::uint8_t AlphaBitmap::displayGrey(Alpha a) {
    return static_cast<std::uint8_t>(~static_cast<std::uint32_t>(std::lrint(a * 255.0)));
}

const std::uint8_t* AlphaBitmap::displayRgb(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold) const {
    return displayRgbComposite(x, y, w, h, hold, false);
}

const std::uint8_t* AlphaBitmap::displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                                     std::int32_t h, TileHandle& hold, bool) const {
    const TileGeometry& g = geometry();
    if (!g.contains(x, y) || w <= 0 || h <= 0) {
        return nullptr;
    }
    // Runs on the drawing thread: uniform rows are drawn from their marks, never written.
    TileHandle tile;
    const std::uint8_t* first = TileBitmap::pixelForRead(x, y, tile, nullptr);
    const std::int32_t index = g.tileIndex(x, y);
    const bool marked = !marks_.empty();
    std::uint8_t* scratch = rgbPtr(hold);
    const std::int32_t stride = displayStride(x);
    std::uint8_t* out = scratch + static_cast<std::size_t>(y & g.yMask) * stride +
                        static_cast<std::size_t>(x & g.xMask) * 3;
    for (std::int32_t k = 0; k < h; ++k) {
        std::uint8_t* o = out + static_cast<std::size_t>(k) * stride;
        const std::uint32_t m = marked ? mark(index, (y & g.yMask) + k) : explicitRow;
        if (!first || m != explicitRow) {
            const Alpha a = first ? std::bit_cast<Alpha>(m) : 0.0f;
            std::memset(o, displayGrey(a), static_cast<std::size_t>(w) * 3);
            continue;
        }
        const std::uint8_t* in = first + static_cast<std::size_t>(k) * tile->stride();
        for (std::int32_t i = 0; i < w; ++i) {
            Alpha a;
            std::memcpy(&a, in + i * 4, 4);
            const std::uint8_t grey = displayGrey(a);
            o[i * 3] = o[i * 3 + 1] = o[i * 3 + 2] = grey;
        }
    }
    return out;
}

AlphaRowWriter::AlphaRowWriter(AlphaBitmap& bitmap)
    : bitmap_(bitmap), holds_(static_cast<std::size_t>(bitmap.geometry().tilesAcross)) {
    bitmap_.ensureMarks();
}

std::int32_t AlphaRowWriter::run(std::int32_t x, std::int32_t y, const Alpha*& values) {
    const TileGeometry& g = bitmap_.geometry();
    tile_ = -1;
    values = nullptr;
    rowValuesUniform_ = false;
    if (!g.contains(x, y)) {
        return 0;
    }
    const std::int32_t tileRow = y >> g.yShift;
    const std::int32_t column = x >> g.xShift;
    takeTileRow(tileRow);
    tile_ = tileRow * g.tilesAcross + column;
    holdForWrite(column);
    const TileHandle& hold = holds_[static_cast<std::size_t>(column)];
    bitmap_.noteWritten(tile_);
    bitmap_.setChanged();
    row_ = y & g.yMask;
    offset_ = x & g.xMask;
    rowLength_ = g.columnWidth(column);
    length_ = rowLength_ - offset_;
    rowPixels_ = reinterpret_cast<Alpha*>(hold->pixel(0, row_));
    const std::uint32_t m =
        bitmap_.marks_.empty() ? AlphaBitmap::explicitRow : bitmap_.mark(tile_, row_);
    rowValuesUniform_ = m != AlphaBitmap::explicitRow;
    if (m == AlphaBitmap::explicitRow) {
        values = rowPixels_ + offset_;
    } else {
        if (m != uniformBits_) {
            std::fill(std::begin(uniform_), std::end(uniform_), std::bit_cast<Alpha>(m));
            uniformBits_ = m;
        }
        values = uniform_;
    }
    return length_;
}

void AlphaRowWriter::fetchForWrite(std::int32_t column) {
    // Copy on write as ever, but without writing the uniform rows out.
    bitmap_.TileBitmap::tileForWrite(tileRow_ * bitmap_.geometry().tilesAcross + column,
                                     holds_[static_cast<std::size_t>(column)]);
}

void AlphaRowWriter::write(const Alpha* values, int first, int last) {
    if (tile_ < 0 || last <= first) {
        return;
    }
    const std::uint32_t bits = std::bit_cast<std::uint32_t>(values[first]);
    if (first == 0 && offset_ == 0 && last == length_ && bits != AlphaBitmap::explicitRow &&
        !bitmap_.marks_.empty() && allBits(values, bits, first, last)) {
        const bool wasUniform = bitmap_.mark(tile_, row_) != AlphaBitmap::explicitRow;
        bitmap_.setMark(tile_, row_, bits);
        if (!wasUniform) {
            ++bitmap_.uniformRows_[static_cast<std::size_t>(tile_)];
        }
        return;
    }
    std::memcpy(writable() + first, values + first,
                static_cast<std::size_t>(last - first) * sizeof(Alpha));
}

void AlphaRowWriter::fill(Alpha value, int first, int last) {
    if (tile_ < 0 || last <= first) {
        return;
    }
    const std::uint32_t bits = std::bit_cast<std::uint32_t>(value);
    if (first == 0 && offset_ == 0 && last == length_ && bits != AlphaBitmap::explicitRow &&
        !bitmap_.marks_.empty()) {
        const bool wasUniform = bitmap_.mark(tile_, row_) != AlphaBitmap::explicitRow;
        bitmap_.setMark(tile_, row_, bits);
        if (!wasUniform) {
            ++bitmap_.uniformRows_[static_cast<std::size_t>(tile_)];
        }
        return;
    }
    Alpha* row = writable();
    std::fill(row + first, row + last, value);
}

Alpha* AlphaRowWriter::writable() {
    if (tile_ < 0) {
        return nullptr;
    }
    if (!bitmap_.marks_.empty()) {
        const std::uint32_t m = bitmap_.mark(tile_, row_);
        if (m != AlphaBitmap::explicitRow) {
            fillRow(rowPixels_, std::bit_cast<Alpha>(m), rowLength_);
            bitmap_.setMark(tile_, row_, AlphaBitmap::explicitRow);
            --bitmap_.uniformRows_[static_cast<std::size_t>(tile_)];
        }
    }
    return rowPixels_ + offset_;
}
