#include "image/RgbBitmap.h"

#include "image/ZmapDocument.h"

RgbBitmap::RgbBitmap(const ZmapDocument& document) : RgbBitmap(&document, document.geometry()) {}

RgbBitmap::RgbBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::rgb24) {}

RgbCacheBitmap::RgbCacheBitmap(const ZmapDocument& document)
    : RgbCacheBitmap(&document, document.geometry()) {}

RgbCacheBitmap::RgbCacheBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::rgb24) {}
