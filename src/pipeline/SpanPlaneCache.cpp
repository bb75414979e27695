#include "pipeline/SpanPlaneCache.h"

#include "image/ZmapDocument.h"

#include <algorithm>

namespace {

/// Asks for `bytes` from p on ahead of their use. A stroke laid row by row comes back to a
/// tile one row down only after the runs of every other tile of the row, by which time the
/// processor has lost track of that many streams of memory.
inline void prefetch(const void* p, std::int32_t bytes) {
    const auto* c = static_cast<const char*>(p);
    for (std::int32_t k = 0; k < bytes; k += 64) {
        __builtin_prefetch(c + k);
    }
}

} // namespace

void SpanPlaneCache::ReadPlane::beginRow(TileBitmap* from, std::int32_t y, bool keepTiles) {
    const TileGeometry& g = from->geometry();
    if (bitmap.get() != from) {
        reset();
        bitmap.reset(from);
        holds = std::make_unique<TileRowHolds>(g.tilesAcross);
    }
    tileRow = y >> g.yShift;
    keep = keepTiles;
    rowTiles = keep ? holds->row(tileRow, from->generation()) : nullptr;
}

const std::uint8_t* SpanPlaneCache::ReadPlane::run(std::int32_t x, std::int32_t y) {
    const TileGeometry& g = bitmap->geometry();
    const std::int32_t column = x >> g.xShift;
    TileHandle& tile = keep ? rowTiles[column] : single;
    // A kept tile that only this cache still holds was replaced in the table since.
    if (!keep || !tile || tile.refC() == 1) {
        bitmap->tileForRead(tileRow * g.tilesAcross + column, tile);
    }
    if (tile->empty()) {
        return bitmap->emptyRow(); // never written: a row of the empty value
    }
    return tile->pixel(x & g.xMask, y & g.yMask);
}

void SpanPlaneCache::ReadPlane::reset() {
    rowTiles = nullptr;
    holds.reset();
    single.reset();
    bitmap.reset();
    tileRow = -1;
}

void SpanPlaneCache::WritePlane::beginRow(TileBitmap* to) {
    if (bitmap.get() != to) {
        writer.reset();
        bitmap.reset(to);
        if (to) {
            writer = std::make_unique<TileRowWriter>(*to);
        }
    }
}

void SpanPlaneCache::WritePlane::reset() {
    writer.reset();
    bitmap.reset();
}

void SpanPlaneCache::AlphaPlane::beginRow(AlphaBitmap* to) {
    if (bitmap.get() != to) {
        writer.reset();
        bitmap.reset(to);
        if (to) {
            writer = std::make_unique<AlphaRowWriter>(*to);
        }
    }
}

void SpanPlaneCache::AlphaPlane::reset() {
    writer.reset();
    bitmap.reset();
}

bool SpanPlaneCache::beginRow(ZmapDocument& document, std::int32_t y, bool wet, bool readsSource) {
    DocumentEditor& editor = document.editor;
    if (y < 0 || y >= document.height() || !document.originalRgb || !editor.strokeAlpha ||
        (wet && (!editor.wetAlpha || !editor.wetCache))) {
        return false;
    }
    // The image before the action: the current undo level, or the live channels where there
    // is no undo store yet. The live channels are written by the blend and commit, so their
    // tiles must not be kept (a kept tile would make each write copy it).
    TileBitmap* baseRgb = document.rgb.get();
    TileBitmap* baseZ = document.z.get();
    TileBitmap* baseMat = document.mat.get();
    bool keepBase = false;
    if (const TQL::Handle<UndoBuffer>& undo = editor.undoBuffer) {
        if (TQL::Handle<UndoBitmap> level = undo->currentRgb()) {
            baseRgb = level.get();
            baseZ = undo->currentZ().get();
            baseMat = undo->currentMat().get();
            keepBase = true;
        }
    }
    if (!baseRgb || !baseZ || !baseMat) {
        return false;
    }
    y_ = y;
    wet_ = wet;
    readsSource_ = readsSource;
    source_.beginRow(document.originalRgb.get(), y, true);
    baseColour_.beginRow(baseRgb, y, keepBase);
    baseDepth_.beginRow(baseZ, y, keepBase);
    baseMaterial_.beginRow(baseMat, y, keepBase);
    strokeAlpha_.beginRow(editor.strokeAlpha.get());
    colour_.beginRow(document.rgb.get());
    if (wet) {
        wetColour_.beginRow(editor.wetCache.get());
        wetAlpha_.beginRow(editor.wetAlpha.get());
    }
    return true;
}

std::int32_t SpanPlaneCache::run(std::int32_t x, SpanPlanes& planes) {
    planes = SpanPlanes();
    const std::int32_t length = strokeAlpha_.writer->run(x, y_, strokeAlphaValues_);
    if (length <= 0) {
        return 0;
    }
    planes.length = length;
    planes.sourceColour = reinterpret_cast<const ColourPOD*>(source_.run(x, y_));
    planes.baseColour = reinterpret_cast<const ColourPOD*>(baseColour_.run(x, y_));
    planes.baseDepth = reinterpret_cast<const std::uint32_t*>(baseDepth_.run(x, y_));
    planes.baseMaterial = reinterpret_cast<const MaterialId*>(baseMaterial_.run(x, y_));
    // The same run one row down, if it lies in the same tiles.
    const TileGeometry& g = strokeAlpha_.bitmap->geometry();
    if (readsSource_ && ((y_ + 1) & g.yMask) != 0 && y_ + 1 < g.height) {
        const std::int32_t column = x >> g.xShift;
        if (planes.sourceColour != reinterpret_cast<const ColourPOD*>(source_.bitmap->emptyRow())) {
            prefetch(reinterpret_cast<const char*>(planes.sourceColour) + g.rowStride(column, 3),
                     length * 3);
        }
    }
    if (wet_) {
        std::int32_t n = 0;
        planes.wetColour = reinterpret_cast<ColourPOD*>(wetColour_.writer->run(x, y_, n));
        planes.wetAlpha = reinterpret_cast<Alpha*>(wetAlpha_.writer->run(x, y_, n));
    }
    return length;
}

void SpanPlaneCache::reset() {
    for (ReadPlane* plane : {&source_, &baseColour_, &baseDepth_, &baseMaterial_}) {
        plane->reset();
    }
    strokeAlpha_.reset();
    for (WritePlane* plane : {&wetColour_, &wetAlpha_, &colour_}) {
        plane->reset();
    }
    strokeAlphaValues_ = nullptr;
}
