#pragma once

#include "core/Handle.h"

#include <cstdint>

/// One tile of a channel: a block of raw pixels, shared by handle between bitmaps, undo
/// levels and drawing. Only a tile that nobody but its table entry and the writer's handle
/// holds may be written; any other is copied first (LockedHandleVector::heldPrivately).
///
/// Rows are `stride` bytes apart: the row length in bytes rounded up to a multiple of 4.
class TileBitmapTile : public TQL::Handlable {
public:
    /// A zero-filled tile of width x height pixels of `bytesPerPixel` bytes.
    /// Throws std::bad_alloc.
    TileBitmapTile(std::int32_t width, std::int32_t height, std::int32_t bytesPerPixel);
    /// A copy of `source` with its own pixels: a byte copy of the whole block.
    explicit TileBitmapTile(const TileBitmapTile& source);
    TileBitmapTile& operator=(const TileBitmapTile&) = delete;

    /// The process-wide empty tile: a real target with no pixels. Every empty entry of every
    /// bitmap refers to it; it is never destroyed.
    static TQL::Handle<TileBitmapTile> nullTile();
    static const TileBitmapTile* nullTilePointer();

    bool empty() const { return pixels_ == nullptr; }
    std::uint8_t* pixels() const { return pixels_; }
    std::uint32_t size() const { return size_; } ///< bytes of the pixel block
    std::int32_t bytesPerPixel() const { return bytesPerPixel_; }
    std::int32_t stride() const { return stride_; }
    /// Pointer to pixel (x, y) of the tile, in tile coordinates.
    std::uint8_t* pixel(std::int32_t x, std::int32_t y) const {
        return pixels_ + static_cast<std::size_t>(y) * stride_ +
               static_cast<std::size_t>(x) * bytesPerPixel_;
    }

protected:
    ~TileBitmapTile() override;

private:
    TileBitmapTile() = default;

    std::uint32_t size_ = 0;
    std::uint16_t bytesPerPixel_ = 0;
    std::uint16_t stride_ = 0;
    std::uint8_t* pixels_ = nullptr;
};

using TileHandle = TQL::Handle<TileBitmapTile>;
