#include "image/TileBitmapTile.h"

#include "image/TileHeap.h"

#include <cassert>
#include <cstring>

TileBitmapTile::TileBitmapTile(std::int32_t width, std::int32_t height,
                               std::int32_t bytesPerPixel) {
    assert(width > 0 && height > 0 && width <= 256 && height <= 256 && bytesPerPixel > 0 &&
           bytesPerPixel <= 8 && "tile dimensions out of range");
    const std::int32_t stride = (width * bytesPerPixel + 3) & ~3;
    bytesPerPixel_ = static_cast<std::uint16_t>(bytesPerPixel);
    stride_ = static_cast<std::uint16_t>(stride);
    size_ = static_cast<std::uint32_t>(stride) * static_cast<std::uint32_t>(height);
    pixels_ = static_cast<std::uint8_t*>(TileHeap::allocate(size_, true));
}

TileBitmapTile::TileBitmapTile(const TileBitmapTile& source)
    : TQL::Handlable(), size_(source.size_), bytesPerPixel_(source.bytesPerPixel_),
      stride_(source.stride_) {
    if (source.pixels_) {
        pixels_ = static_cast<std::uint8_t*>(TileHeap::allocate(size_, false));
        std::memcpy(pixels_, source.pixels_, size_);
    }
}

TileBitmapTile::~TileBitmapTile() {
    TileHeap::release(pixels_, size_);
}

const TileBitmapTile* TileBitmapTile::nullTilePointer() {
    // One reference is taken here and never given back, so the count never falls to 0.
    static TileBitmapTile* const tile = [] {
        auto* t = new TileBitmapTile();
        TQL::HandleBase::ref(t);
        return t;
    }();
    return tile;
}

TQL::Handle<TileBitmapTile> TileBitmapTile::nullTile() {
    return TQL::Handle<TileBitmapTile>(const_cast<TileBitmapTile*>(nullTilePointer()));
}
