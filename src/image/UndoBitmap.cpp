#include "image/UndoBitmap.h"

UndoBitmap::UndoBitmap(const TQL::Handle<TileBitmap>& live) : TileBitmap(*live), live_(live) {}

void UndoBitmap::swapWithLive(Status& status) {
    // A snapshot has its live bitmap's geometry and format for good: a channel of another
    // size is another bitmap.
    swapTiles(*live_);
    status = status::ok;
}

std::int64_t UndoBitmap::fullTileBytes() const {
    const TileGeometry& g = geometry();
    return std::int64_t(g.tileWidth) * g.tileHeight * bytesPerPixel();
}

std::int64_t UndoBitmap::bytesReleasedAtFree() const {
    return tiles().singlyHeld(L"UndoBitmap::bytesReleasedAtFree") * fullTileBytes();
}

std::int64_t UndoBitmap::deltaBytes(const UndoBitmap* next) const {
    const std::int32_t kept =
        next ? tiles().differingFrom(next->tiles(), L"UndoBitmap::deltaBytes") : nonEmptyTiles();
    return kept * fullTileBytes();
}

std::int64_t UndoBitmap::memoryUsed() const {
    return TileBitmap::memoryUsed() + 8;
}
