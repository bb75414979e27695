#pragma once

#include "core/Colour.h"
#include "image/TileBitmap.h"

#include <cstdint>
#include <vector>

/// A coverage channel: one float from 0 to 1 a pixel, 0 where never written.
class AlphaBitmap : public TileBitmap {
public:
    using Pixel = Alpha;

    explicit AlphaBitmap(const ZmapDocument& document);
    AlphaBitmap(const ZmapDocument* document, const TileGeometry& geometry);

    /// The grey that shows coverage `a`: the complement of round(a * 255) in 8 bits, so full
    /// coverage is black and none is white.
    static std::uint8_t displayGrey(Alpha a);

    /// Makes every pixel 0, as clearAll does, but keeps the tiles written since the last
    /// clear for the writes to come: the first write into a row of tiles takes back the kept
    /// tiles of that row, zeroed, instead of allocating new ones. A plane cleared at every
    /// stroke (the stroke alpha) then allocates nothing stroke after stroke, and a tile is
    /// zeroed only when its row is painted again, while it is about to be used. Kept tiles
    /// not taken back, and tiles taken back but not written, are let go of at the next clear.
    void clearKeepingTiles();
    /// Tiles kept for reuse (for diagnostics and tests).
    std::int32_t keptTiles() const { return keptCount_; }

    std::uint8_t* pixelForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                                std::int32_t* tileIndex) override;
    std::uint8_t* tileForWrite(std::int32_t index, TileHandle& hold) override;

    const std::uint8_t* displayRgb(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                                   TileHandle& hold) const override;
    const std::uint8_t* displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold,
                                            bool composite) const override;

private:
    /// Notes a write into tile `index`; the first one into a row of tiles with kept tiles
    /// moves them, zeroed, into the row's empty entries (one change of the tile table for
    /// the row, so cached writers refetch once a row, not once a tile).
    void noteWrite(std::int32_t index);

    /// The kept tiles, at their own indices; made by the first clearKeepingTiles.
    TQL::Handle<AlphaBitmap> kept_;
    /// One flag a tile: kept_ holds a tile there.
    std::vector<std::uint8_t> keptAt_;
    /// One flag a tile: written since the last clearKeepingTiles.
    std::vector<std::uint8_t> written_;
    std::int32_t keptCount_ = 0;
};
