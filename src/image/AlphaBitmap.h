#pragma once

#include "core/Colour.h"
#include "image/TileBitmap.h"

/// A coverage channel: one float from 0 to 1 a pixel, 0 where never written.
class AlphaBitmap : public TileBitmap {
public:
    using Pixel = Alpha;

    explicit AlphaBitmap(const ZmapDocument& document);
    AlphaBitmap(const ZmapDocument* document, const TileGeometry& geometry);

    /// The grey that shows coverage `a`: the complement of round(a * 255) in 8 bits, so full
    /// coverage is black and none is white.
    static std::uint8_t displayGrey(Alpha a);

    const std::uint8_t* displayRgb(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                                   TileHandle& hold) const override;
    const std::uint8_t* displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold,
                                            bool composite) const override;
};
