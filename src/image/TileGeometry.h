#pragma once

#include "core/Extent.h"

#include <cstdint>

/// How an image of a given size is cut into tiles. One geometry belongs to a document and
/// serves all its channels. Tiles are 64, 128 or 256 pixels on a side, chosen per axis from
/// the image's size; only the last column and the last row of tiles are narrower.
///
/// Tiles are numbered in row order: index = (y >> yShift) * tilesAcross + (x >> xShift).
struct TileGeometry {
    std::int32_t width = 0;  ///< pixels
    std::int32_t height = 0; ///< pixels
    std::int32_t xShift = 0; ///< 6, 7 or 8: tile width is 1 << xShift
    std::int32_t yShift = 0;
    std::int32_t tileWidth = 0;
    std::int32_t tileHeight = 0;
    std::int32_t xMask = 0; ///< tileWidth - 1
    std::int32_t yMask = 0;
    std::int32_t lastColumnWidth = 0; ///< width of the last column of tiles, never 0 for an image
    std::int32_t lastColumnStart = 0; ///< first x of the last column
    /// Row padding of the last column, indexed by bytes per pixel & 3, so that a row of a
    /// last-column tile is a multiple of 4 bytes.
    std::int32_t padding[4] = {0, 0, 0, 0};
    std::int32_t lastRowHeight = 0;
    std::int32_t lastRowStart = 0;
    std::int32_t tilesAcross = 0;
    std::int32_t tilesDown = 0;

    /// Most tiles an image may have (a million pixels on a side with 256-pixel tiles). Every
    /// empty tile of every channel refers to one shared null tile, whose 32-bit reference
    /// count must not overflow.
    static constexpr std::int64_t maxTiles = std::int64_t(1) << 24;

    /// The geometry of a width x height image. A side of 0 or less gives the empty
    /// geometry (no tiles). Throws std::length_error above maxTiles tiles.
    static TileGeometry compute(std::int32_t width, std::int32_t height);

    /// The tile shift for an image side: 6, plus 1 above 2048, plus 1 above 4096.
    static constexpr std::int32_t shiftFor(std::int32_t side) {
        return 6 + (side > 2048 ? 1 : 0) + (side > 4096 ? 1 : 0);
    }

    bool empty() const { return tilesAcross == 0 || tilesDown == 0; }
    std::int32_t tileCount() const { return tilesAcross * tilesDown; }
    bool contains(std::int32_t x, std::int32_t y) const {
        return static_cast<std::uint32_t>(x) < static_cast<std::uint32_t>(width) &&
               static_cast<std::uint32_t>(y) < static_cast<std::uint32_t>(height);
    }
    /// Index of the tile holding (x, y), which must lie inside the image.
    std::int32_t tileIndex(std::int32_t x, std::int32_t y) const {
        return (y >> yShift) * tilesAcross + (x >> xShift);
    }
    /// Width in pixels of tile column `column` (the last one may be narrower).
    std::int32_t columnWidth(std::int32_t column) const {
        return column == tilesAcross - 1 ? lastColumnWidth : tileWidth;
    }
    /// Height in pixels of tile row `row` (the last one may be shorter).
    std::int32_t rowHeight(std::int32_t row) const {
        return row == tilesDown - 1 ? lastRowHeight : tileHeight;
    }
    /// Bytes from one row of a tile of column `column` to the next: the row length in
    /// bytes, padded to a multiple of 4 in the last column.
    std::int32_t rowStride(std::int32_t column, std::int32_t bytesPerPixel) const {
        return column == tilesAcross - 1
                   ? lastColumnWidth * bytesPerPixel + padding[bytesPerPixel & 3]
                   : tileWidth * bytesPerPixel;
    }
    /// The pixels of tile `index`, with inclusive corners.
    IExtent<2> tileExtent(std::int32_t index) const;
    /// The whole image, with inclusive corners; empty for the empty geometry.
    IExtent<2> bounds() const {
        return empty() ? IExtent<2>() : IExtent<2>(0, 0, width - 1, height - 1);
    }

    bool operator==(const TileGeometry&) const = default;
};
