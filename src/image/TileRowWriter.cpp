#include "image/TileRowWriter.h"

#include <algorithm>
#include <cstring>

TileRowWriter::TileRowWriter(TileBitmap& bitmap)
    : bitmap_(bitmap), holds_(bitmap.geometry().tilesAcross) {}

std::uint8_t* TileRowWriter::run(std::int32_t x, std::int32_t y, std::int32_t& count) {
    const TileGeometry& g = bitmap_.geometry();
    if (!g.contains(x, y)) {
        count = 0;
        return nullptr;
    }
    const std::int32_t tileRow = y >> g.yShift;
    const std::int32_t column = x >> g.xShift;
    TileHandle& hold = holds_.row(tileRow, bitmap_.generation())[column];
    if (!LockedHandleVector::heldPrivately(hold)) {
        bitmap_.tileForWrite(tileRow * g.tilesAcross + column, hold);
    }
    bitmap_.setChanged();
    count = std::min(g.width, (x | g.xMask) + 1) - x;
    return hold->pixel(x & g.xMask, y & g.yMask);
}

void TileRowWriter::writeRow(std::int32_t x, std::int32_t y, const std::uint8_t* source,
                             std::int32_t count) {
    const std::int32_t bytes = bitmap_.bytesPerPixel();
    const auto end = static_cast<std::int32_t>(
        std::min<std::int64_t>(std::int64_t(x) + count, bitmap_.geometry().width));
    if (x < 0) {
        source += static_cast<std::size_t>(-std::int64_t(x)) * bytes;
        x = 0;
    }
    while (x < end) {
        std::int32_t n = 0;
        std::uint8_t* p = run(x, y, n);
        if (!p) {
            return;
        }
        n = std::min(n, end - x);
        std::memcpy(p, source, static_cast<std::size_t>(n) * bytes);
        source += static_cast<std::size_t>(n) * bytes;
        x += n;
    }
}
