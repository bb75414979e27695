#pragma once

#include "core/Colour.h"
#include "image/TileBitmap.h"

/// A depth channel: 32-bit unsigned depth codes. An unwritten pixel holds the bitmap's
/// no-depth value: 0xFFFFFFFF in the image's depth, 0 in the cut-out overlay, whose stored
/// values are the real depth plus 1.
class ZBitmap : public TileBitmap {
public:
    using Pixel = std::uint32_t;
    /// The no-depth value of the image's depth channel: sky or background.
    static constexpr std::uint32_t noDepth = 0xFFFFFFFFu;
    /// Shown for a pixel without depth: the ColourPOD bytes 0x00, 0x00, 0x60.
    static constexpr ColourPOD noDepthColour{0x00, 0x00, 0x60};

    ZBitmap(const ZmapDocument& document, std::uint32_t noDepthValue);
    ZBitmap(const ZmapDocument* document, const TileGeometry& geometry, std::uint32_t noDepthValue);

    std::uint32_t noDepthValue() const { return noDepthValue_; }
    /// Fills this bitmap's empty tiles from `other` (copyFrom(other, false)), takes its
    /// no-depth value and remembers it as the bitmap this one overlays.
    void overlay(const TQL::Handle<ZBitmap>& other);
    const TQL::Handle<ZBitmap>& overlaid() const { return overlaid_; }

    /// The display colour of depth `z`: the no-depth colour for `noDepthValue`, else the grey
    /// floor(sqrt(z / 4294967295) * 255).
    static ColourPOD displayColour(std::uint32_t z, std::uint32_t noDepthValue);

    std::int64_t memoryUsed() const override;
    const std::uint8_t* displayRgb(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                                   TileHandle& hold) const override;
    /// With `composite`, where the document's cut-out depth overlay holds a value c other
    /// than 0 the pixel shows depth c - 1; elsewhere its own depth.
    const std::uint8_t* displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold,
                                            bool composite) const override;

private:
    std::uint32_t noDepthValue_;
    TQL::Handle<ZBitmap> overlaid_;
};
