#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "core/TqlCriticalSection.h"
#include "image/LockedHandleVector.h"
#include "image/TileGeometry.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

class DrawTarget;
class ZmapDocument;

/// Pixel format of a channel; the code is stored in files and reports.
enum class PixelFormat : std::int32_t {
    flag8 = 0,      ///< 1 byte: FlagBitmap, FillBitmap
    material16 = 1, ///< 2 bytes: MatBitmap
    rgb24 = 2,      ///< 3 bytes blue, green, red: RgbBitmap, RgbCacheBitmap
    depth32 = 3,    ///< 4 bytes: ZBitmap
    alpha32 = 4,    ///< float: AlphaBitmap
    wet64 = 5,      ///< 8 bytes: WetLayerBitmap
    variance32 = 6, ///< 4 bytes: VarianceBitmap
    pointer = 7,    ///< a pointer-sized value: PtrBitmap
};

/// Bytes of one pixel of a format.
std::int32_t bytesPerPixel(PixelFormat format);

/// One channel of an image: a grid of reference-counted tiles (TileGeometry) shared by
/// handle and copied only when written. A tile that was never written is the shared null
/// tile and costs no memory; reading it gives the bitmap's empty value (zero, or a depth
/// channel's no-depth value).
///
/// Raw pixel pointers returned here are valid only while the `hold` handle that came with
/// them lives: the handle pins the tile. Writes go through one path, getSinglyReferenced of
/// the tile table, which copies a shared tile first. Out-of-range coordinates are not
/// errors: they give null pointers and tile index -1.
class TileBitmap : public TQL::Handlable {
public:
    /// Guards the scratch tiles of display conversion.
    static TqlCriticalSection rgbCS;

    const TileGeometry& geometry() const { return geometry_; }
    /// The document whose overlays, palette and materials the display uses; may be null.
    const ZmapDocument* document() const { return document_; }
    PixelFormat format() const { return format_; }
    std::int32_t bitsPerPixel() const { return bitsPerPixel_; }
    std::int32_t bytesPerPixel() const { return bitsPerPixel_ / 8; }

    /// Set by every write and every change of a tile handle; cleared by its owner.
    bool changed() const { return changed_.load(std::memory_order_relaxed); }
    void setChanged() { changed_.store(true, std::memory_order_relaxed); }
    void clearChanged() { changed_.store(false, std::memory_order_relaxed); }

    /// The tile table (for snapshots and the save rule, which compare handles).
    const LockedHandleVector& tiles() const { return tiles_; }
    std::int32_t nonEmptyTiles() const { return tiles_.nonEmpty(); }
    /// True when tile `index` of this bitmap and of `other` is the same tile.
    bool sharesTile(std::int32_t index, const TileBitmap& other) const {
        return tiles_.sameTile(index, other.tiles_);
    }
    /// The bytes of a pixel that was never written.
    const std::uint8_t* emptyValue() const { return emptyValue_; }
    /// A row of a full tile's width of the empty value.
    const std::uint8_t* emptyRow() const { return emptyRow_.get(); }
    /// Changes whenever tile handles are replaced other than by copy on write (clear,
    /// copyFrom, swap). Cached write handles check it.
    std::uint32_t generation() const { return generation_.load(std::memory_order_acquire); }

    // Virtual operations, in slot order.

    /// Makes tile `index` empty.
    virtual void clearTile(std::int32_t index);
    virtual void clearAll();
    /// For every tile: if `overwrite` is true or this tile is empty, and the handles differ,
    /// share `other`'s tile and set the changed flag. `other` must have the same geometry
    /// and format. Copies no pixel.
    virtual void copyFrom(const TileBitmap& other, bool overwrite);
    /// copyFrom over the tiles [first, last) only.
    void copyTilesFrom(const TileBitmap& other, std::int32_t first, std::int32_t last,
                       bool overwrite);
    /// Pointer to pixel (x, y) in a privately owned tile, or null outside the image.
    /// `tileIndex`, if given, receives the tile's index (-1 outside). `hold` is let go of
    /// before the tile is made private, so a handle reused from an earlier read or write of
    /// the same tile does not count as another holder. Throws std::bad_alloc.
    virtual std::uint8_t* pixelForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                                        std::int32_t* tileIndex);
    /// Pointer to pixel (x, y) for reading, without copying; null outside the image (index
    /// -1) and null in an empty tile (index set).
    virtual const std::uint8_t* pixelForRead(std::int32_t x, std::int32_t y, TileHandle& hold,
                                             std::int32_t* tileIndex) const;
    /// The pixels of tile `index` in a privately owned tile; sets the changed flag. Null out
    /// of range. `hold` is let go of first, as in pixelForWrite. Throws std::bad_alloc.
    virtual std::uint8_t* tileForWrite(std::int32_t index, TileHandle& hold);
    /// The pixels of tile `index` for reading; null if empty or out of range.
    virtual const std::uint8_t* tileForRead(std::int32_t index, TileHandle& hold) const;
    /// Sets `pixel` to (x, y) and returns the number of pixels from x to the end of that
    /// tile's row (clipped to the image); 0 if (x, y) is outside. A tile that was never
    /// written reads as a run of the empty value, as valueAt reads it; `hold` is then the
    /// null tile (hold->empty()), for callers that skip such tiles.
    virtual std::int32_t runForRead(std::int32_t x, std::int32_t y, TileHandle& hold,
                                    const std::uint8_t** pixel) const;
    /// Bytes of the bitmap's own structure (not its tiles): 24 a tile plus 40, plus the
    /// scratch tile if there is one, plus the extra fields of derived classes.
    virtual std::int64_t memoryUsed() const;
    /// Colour pixels (three bytes blue, green, red) for the rectangle (x, y, w, h), which
    /// lies in one tile; rows are displayStride(x) bytes apart. Null for an empty colour
    /// tile (shown blank). The default is the bitmap's own pixels: the data is colour.
    virtual const std::uint8_t* displayRgb(std::int32_t x, std::int32_t y, std::int32_t w,
                                           std::int32_t h, TileHandle& hold) const;
    /// As displayRgb, with the document's overlay layers composed in when `composite`.
    virtual const std::uint8_t* displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                                    std::int32_t h, TileHandle& hold,
                                                    bool composite) const;

    // Non-virtual operations.

    /// The value of pixel (x, y) as a T of bytesPerPixel() bytes: the empty value in an empty
    /// tile, zero outside the image.
    template <class T> T valueAt(std::int32_t x, std::int32_t y) const;
    /// The same, reusing `hold` when (x, y) lies in tile `tileIndex`; on a miss the tile is
    /// fetched and `hold` and `tileIndex` updated. Start with a null hold and index -1.
    template <class T>
    T valueAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                    std::int32_t& tileIndex) const;

    /// The scratch tile's pixels (three bytes a pixel, a full tile), made anew if there is
    /// none or if another handle still holds it. Throws std::bad_alloc.
    std::uint8_t* rgbPtr(TileHandle& hold) const;
    /// Row stride of displayRgb's result for a rectangle in the tile column of x:
    /// the column's width times 3, rounded up to 4.
    std::int32_t displayStride(std::int32_t x) const;
    /// The write form of runForRead: pointer to (x, y) in a privately owned tile and the
    /// number of pixels to the end of the tile's row; 0 outside. Throws std::bad_alloc.
    std::int32_t runForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                             std::uint8_t** pixel);

    /// Exchanges every tile handle with `other` (same geometry and format), keeping both
    /// non-empty counts right; both changed flags are set if any handle differed. No pixel
    /// is copied.
    void swapTiles(TileBitmap& other);

    /// Walks the tiles that meet `channelExtent` and `clipExtent` (clipped to the image),
    /// row by row and column by column, and hands each tile's rectangle of display colour to
    /// `target`. `abort`, if given, is looked at before each tile: a set flag ends the walk
    /// with status -25 (cancelled). Returns 0 otherwise.
    [[nodiscard]] Status drawArea(DrawTarget& target, const IExtent<2>& channelExtent,
                                  const IExtent<2>& clipExtent, const std::atomic<bool>* abort,
                                  bool composite) const;

    /// For a cube image of six n x n faces side by side (width 6n, height n) or stacked
    /// (width n, height 6n): makes the pixels that neighbouring faces share equal, copying
    /// from the copy least by x, then y, in strip coordinates (see FaceSize). A pixel is
    /// written only where it differs, so tiles with nothing to change stay shared. Returns
    /// false, changing nothing, if the image is not such a strip or n is below 2.
    bool stitchFaces(std::int32_t n);

protected:
    /// An empty bitmap of `geometry`. `document` may be null. Throws std::bad_alloc.
    TileBitmap(const ZmapDocument* document, const TileGeometry& geometry, PixelFormat format);
    /// A bitmap sharing every tile of `other`.
    TileBitmap(const TileBitmap& other);
    TileBitmap& operator=(const TileBitmap&) = delete;
    ~TileBitmap() override;

    /// Sets the value of an unwritten pixel (bytesPerPixel() bytes); new tiles start with it.
    void setEmptyValue(const void* value);
    bool emptyValueIsZero() const { return emptyValueIsZero_; }
    /// Marks a change of tile handles for cached writers.
    void bumpGeneration() { generation_.fetch_add(1, std::memory_order_acq_rel); }

    /// Converts the rectangle (x, y, w, h) of one tile into the scratch tile, row by row:
    /// `convert(source, out, k, count)` gets row k's first source pixel (null for an empty
    /// tile), the output row (three bytes a pixel), k (0 for row y) and the pixel count.
    /// Returns the pointer displayRgb returns.
    template <class RowConvert>
    const std::uint8_t* convertRect(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                                    TileHandle& hold, RowConvert convert) const;

private:
    friend class LockedHandleVector;

    /// The index of the tile holding (x, y), also stored in `*tileIndex` if given; -1 outside
    /// the image, and then `hold` is released.
    std::int32_t locate(std::int32_t x, std::int32_t y, TileHandle& hold,
                        std::int32_t* tileIndex) const;
    /// A new tile for entry `index`, of that tile's size, holding the empty value.
    TileHandle makeTile(std::int32_t index) const;
    /// The one way to a writable tile: releases `hold`, then sets it to entry `index` made
    /// private by copy on write, and sets the changed flag. `index` must be in range.
    const TileHandle& writableTile(std::int32_t index, TileHandle& hold);

    const ZmapDocument* document_;
    std::atomic<bool> changed_{false};
    LockedHandleVector tiles_;
    PixelFormat format_;
    std::int32_t bitsPerPixel_;
    mutable TileHandle scratch_;
    TileGeometry geometry_;
    std::uint8_t emptyValue_[8] = {};
    bool emptyValueIsZero_ = true;
    /// A full tile row of the empty value: shared zeros, or made by setEmptyValue and
    /// shared with copies of the bitmap.
    std::shared_ptr<const std::uint8_t[]> emptyRow_;
    std::atomic<std::uint32_t> generation_{0};
};

/// Reads the rows of one tile of a bitmap from (x, y) down, pinning the tile while it lives.
/// Rows are null if the bitmap is null, the tile empty or (x, y) outside.
class TileRectReader {
public:
    TileRectReader() = default;
    TileRectReader(const TileBitmap* bitmap, std::int32_t x, std::int32_t y);

    bool empty() const { return first_ == nullptr; }
    /// Row `k` below (x, y), at column x.
    const std::uint8_t* row(std::int32_t k) const {
        return first_ ? first_ + static_cast<std::size_t>(k) * stride_ : nullptr;
    }

private:
    TileHandle hold_;
    const std::uint8_t* first_ = nullptr;
    std::int32_t stride_ = 0;
};

template <class T> T TileBitmap::valueAt(std::int32_t x, std::int32_t y) const {
    TileHandle hold;
    std::int32_t index = -1;
    return valueAtCached<T>(x, y, hold, index);
}

template <class T>
T TileBitmap::valueAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                            std::int32_t& tileIndex) const {
    static_assert(std::is_trivially_copyable_v<T>);
    T value{};
    if (sizeof(T) != static_cast<std::size_t>(bytesPerPixel()) || !geometry_.contains(x, y)) {
        return value;
    }
    const std::int32_t index = geometry_.tileIndex(x, y);
    if (index != tileIndex || !hold) {
        hold = tiles_.get(index);
        tileIndex = index;
    }
    const std::uint8_t* p =
        hold->empty() ? emptyValue_ : hold->pixel(x & geometry_.xMask, y & geometry_.yMask);
    std::memcpy(&value, p, sizeof(T));
    return value;
}

template <class RowConvert>
const std::uint8_t* TileBitmap::convertRect(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold,
                                            RowConvert convert) const {
    if (!geometry_.contains(x, y) || w <= 0 || h <= 0) {
        return nullptr;
    }
    const TileRectReader source(this, x, y);
    std::uint8_t* scratch = rgbPtr(hold);
    const std::int32_t stride = displayStride(x);
    std::uint8_t* out = scratch + static_cast<std::size_t>(y & geometry_.yMask) * stride +
                        static_cast<std::size_t>(x & geometry_.xMask) * 3;
    for (std::int32_t row = 0; row < h; ++row) {
        convert(source.row(row), out + static_cast<std::size_t>(row) * stride, row, w);
    }
    return out;
}
