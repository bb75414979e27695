#include "image/TileGeometry.h"

#include <stdexcept>

namespace {

/// Tile size, mask, last span width and its start, and the tile count along one axis.
struct Axis {
    std::int32_t shift, size, mask, lastSpan, lastStart, count;
};

Axis axisFor(std::int32_t side) {
    Axis a{};
    a.shift = TileGeometry::shiftFor(side);
    a.size = 1 << a.shift;
    a.mask = a.size - 1;
    a.lastSpan = side & a.mask ? side & a.mask : a.size;
    a.lastStart = side - a.lastSpan;
    a.count = (side >> a.shift) + ((side & a.mask) != 0 ? 1 : 0);
    return a;
}

} // namespace

TileGeometry TileGeometry::compute(std::int32_t width, std::int32_t height) {
    TileGeometry g;
    if (width <= 0 || height <= 0) {
        return g;
    }
    const Axis x = axisFor(width);
    const Axis y = axisFor(height);
    if (static_cast<std::int64_t>(x.count) * y.count > maxTiles) {
        throw std::length_error("image has too many tiles");
    }
    g.width = width;
    g.height = height;
    g.xShift = x.shift;
    g.yShift = y.shift;
    g.tileWidth = x.size;
    g.tileHeight = y.size;
    g.xMask = x.mask;
    g.yMask = y.mask;
    g.lastColumnWidth = x.lastSpan;
    g.lastColumnStart = x.lastStart;
    // Entry k pads a row of k bytes a pixel (4 and 8 bytes need none) to a multiple of 4.
    g.padding[0] = 0;
    g.padding[1] = (-g.lastColumnWidth) & 3;
    g.padding[2] = (-2 * g.lastColumnWidth) & 3;
    g.padding[3] = g.lastColumnWidth & 3;
    g.lastRowHeight = y.lastSpan;
    g.lastRowStart = y.lastStart;
    g.tilesAcross = x.count;
    g.tilesDown = y.count;
    return g;
}

IExtent<2> TileGeometry::tileExtent(std::int32_t index) const {
    if (index < 0 || index >= tileCount()) {
        return IExtent<2>();
    }
    const std::int32_t column = index % tilesAcross;
    const std::int32_t row = index / tilesAcross;
    const std::int32_t x = column << xShift;
    const std::int32_t y = row << yShift;
    return IExtent<2>(x, y, x + columnWidth(column) - 1, y + rowHeight(row) - 1);
}
