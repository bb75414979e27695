#include "image/ScratchBitmaps.h"

#include "image/ZmapDocument.h"

FlagBitmap::FlagBitmap(const ZmapDocument& document) : FlagBitmap(&document, document.geometry()) {}
FlagBitmap::FlagBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::flag8) {}

FillBitmap::FillBitmap(const ZmapDocument& document) : FillBitmap(&document, document.geometry()) {}
FillBitmap::FillBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::flag8) {}

PtrBitmap::PtrBitmap(const ZmapDocument& document) : PtrBitmap(&document, document.geometry()) {}
PtrBitmap::PtrBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::pointer) {}

VarianceBitmap::VarianceBitmap(const ZmapDocument& document)
    : VarianceBitmap(&document, document.geometry()) {}
VarianceBitmap::VarianceBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::variance32) {}

WetLayerBitmap::WetLayerBitmap(const ZmapDocument& document)
    : WetLayerBitmap(&document, document.geometry()) {}
WetLayerBitmap::WetLayerBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::wet64) {}
