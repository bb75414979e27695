#pragma once

#include "core/Colour.h"
#include "image/TileBitmap.h"

#include <cstdint>

/// Working channels of single tools. They share the tile store with the image's channels
/// but are never shown: their display is blank.

/// 8-bit flags: scratch of cut-outs.
class FlagBitmap : public TileBitmap {
public:
    using Pixel = std::uint8_t;
    explicit FlagBitmap(const ZmapDocument& document);
    FlagBitmap(const ZmapDocument* document, const TileGeometry& geometry);
};

/// 8 bits a pixel: scratch of the fill tools (nonzero once a pixel is filled).
class FillBitmap : public TileBitmap {
public:
    using Pixel = std::uint8_t;
    explicit FillBitmap(const ZmapDocument& document);
    FillBitmap(const ZmapDocument* document, const TileGeometry& geometry);
};

/// One pointer-sized value a pixel: scratch of cut-outs.
class PtrBitmap : public TileBitmap {
public:
    using Pixel = std::uintptr_t;
    explicit PtrBitmap(const ZmapDocument& document);
    PtrBitmap(const ZmapDocument* document, const TileGeometry& geometry);
};

/// 32 bits a pixel: scratch of the Kuwahara filter.
class VarianceBitmap : public TileBitmap {
public:
    using Pixel = std::uint32_t;
    explicit VarianceBitmap(const ZmapDocument& document);
    VarianceBitmap(const ZmapDocument* document, const TileGeometry& geometry);
};

/// A pixel of the water tool's wet layer.
struct WetLayerPixel {
    float wet = 0;          ///< wetness
    ColourPOD colour;       ///< running mean of the pigment
    std::uint8_t count = 0; ///< pigments folded into the mean, at most 255
};
static_assert(sizeof(WetLayerPixel) == 8);

/// The wet layer of the water tool: eight bytes a pixel.
class WetLayerBitmap : public TileBitmap {
public:
    using Pixel = WetLayerPixel;
    explicit WetLayerBitmap(const ZmapDocument& document);
    WetLayerBitmap(const ZmapDocument* document, const TileGeometry& geometry);
};
