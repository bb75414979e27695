#pragma once

#include "image/TileBitmap.h"

/// A material channel: 16-bit material ids, 0 for no material.
class MatBitmap : public TileBitmap {
public:
    using Pixel = std::uint16_t;

    explicit MatBitmap(const ZmapDocument& document);
    MatBitmap(const ZmapDocument* document, const TileGeometry& geometry);

    /// Fills this bitmap's empty tiles from `other` (copyFrom(other, false)) and remembers it
    /// as the bitmap this one overlays.
    void overlay(const TQL::Handle<MatBitmap>& other);
    const TQL::Handle<MatBitmap>& overlaid() const { return overlaid_; }

    std::int64_t memoryUsed() const override;
    /// Each id shows as the document's false colour of that material (black without one).
    const std::uint8_t* displayRgb(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                                   TileHandle& hold) const override;
    /// With `composite`, a pixel where the document's cut-out material overlay holds an id
    /// other than 0 shows that id; elsewhere its own.
    const std::uint8_t* displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold,
                                            bool composite) const override;

private:
    TQL::Handle<MatBitmap> overlaid_;
};
