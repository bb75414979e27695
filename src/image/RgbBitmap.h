#pragma once

#include "core/Colour.h"
#include "image/TileBitmap.h"

/// The colour channel of an image: ColourPOD pixels (blue, green, red). An empty tile is
/// black.
class RgbBitmap : public TileBitmap {
public:
    using Pixel = ColourPOD;
    /// An empty channel of the document's size.
    explicit RgbBitmap(const ZmapDocument& document);
    /// An empty channel of `geometry`; `document` (for the display) may be null.
    RgbBitmap(const ZmapDocument* document, const TileGeometry& geometry);
};

/// A colour cache of the document's work state (the wet colour of a stroke). Same store as
/// RgbBitmap, but a class of its own: it is never one of the document's channels.
class RgbCacheBitmap : public TileBitmap {
public:
    using Pixel = ColourPOD;
    explicit RgbCacheBitmap(const ZmapDocument& document);
    RgbCacheBitmap(const ZmapDocument* document, const TileGeometry& geometry);
};
