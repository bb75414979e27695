#include "image/ZmapDocument.h"

#include <algorithm>
#include <cstring>

namespace {

/// Rows standing in for unwritten tiles of the base planes: each holds the empty value of
/// the plane it last stood for, refilled only when that value changes. The paint pipeline
/// runs on the interface thread only, one stroke at a time.
struct EmptyRow {
    alignas(8) std::uint8_t bytes[256 * 4] = {};
    std::uint8_t value[4] = {};
    bool filled = false;
};

const std::uint8_t* emptyRow(EmptyRow& row, const TileBitmap& bitmap) {
    const std::int32_t n = bitmap.bytesPerPixel();
    const std::uint8_t* value = bitmap.emptyValue();
    if (!row.filled || std::memcmp(row.value, value, static_cast<std::size_t>(n)) != 0) {
        for (std::size_t k = 0; k + static_cast<std::size_t>(n) <= sizeof row.bytes;
             k += static_cast<std::size_t>(n)) {
            std::memcpy(row.bytes + k, value, static_cast<std::size_t>(n));
        }
        std::memcpy(row.value, value, static_cast<std::size_t>(n));
        row.filled = true;
    }
    return row.bytes;
}

/// Pointer to (x, y) of a plane that is only read; an unwritten tile gives the empty row.
const std::uint8_t* readPlane(const TileBitmap& bitmap, std::int32_t x, std::int32_t y,
                              TileHandle& pin, EmptyRow& empty) {
    const std::uint8_t* pixel = nullptr;
    if (bitmap.runForRead(x, y, pin, &pixel) > 0) {
        return pixel;
    }
    pin.reset();
    return emptyRow(empty, bitmap);
}

std::uint8_t* writePlane(TileBitmap& bitmap, std::int32_t x, std::int32_t y, TileHandle& pin) {
    std::uint8_t* pixel = nullptr;
    return bitmap.runForWrite(x, y, pin, &pixel) > 0 ? pixel : nullptr;
}

} // namespace

std::int32_t ZmapDocument::spanPlanes(std::int32_t x, std::int32_t y, bool wet, SpanPins& pins,
                                      SpanPlanes& planes) {
    planes = SpanPlanes();
    // A pin left from an earlier run would make the write planes look shared and copied.
    for (TileHandle& pin : pins) {
        pin.reset();
    }
    if (!geometry_.contains(x, y) || !originalRgb || !editor.strokeAlpha ||
        (wet && (!editor.wetAlpha || !editor.wetCache))) {
        return 0;
    }
    // The image before the action: the current undo level, or the live channels where
    // there is no undo store yet.
    TQL::Handle<TileBitmap> baseRgb = rgb, baseZ = z, baseMat = mat;
    if (const TQL::Handle<UndoBuffer>& undo = editor.undoBuffer) {
        if (TQL::Handle<UndoBitmap> level = undo->currentRgb()) {
            baseRgb = level;
            baseZ = undo->currentZ();
            baseMat = undo->currentMat();
        }
    }
    if (!baseRgb || !baseZ || !baseMat) {
        return 0;
    }

    static EmptyRow emptyRows[4];
    const std::int32_t tileEnd = std::min((x | geometry_.xMask) + 1, geometry_.width);
    planes.length = tileEnd - x;
    planes.sourceColour =
        reinterpret_cast<const ColourPOD*>(readPlane(*originalRgb, x, y, pins[0], emptyRows[0]));
    planes.baseColour =
        reinterpret_cast<const ColourPOD*>(readPlane(*baseRgb, x, y, pins[1], emptyRows[1]));
    planes.baseDepth =
        reinterpret_cast<const std::uint32_t*>(readPlane(*baseZ, x, y, pins[2], emptyRows[2]));
    planes.baseMaterial =
        reinterpret_cast<const MaterialId*>(readPlane(*baseMat, x, y, pins[3], emptyRows[3]));
    planes.strokeAlpha = reinterpret_cast<Alpha*>(writePlane(*editor.strokeAlpha, x, y, pins[4]));
    if (wet) {
        planes.wetColour =
            reinterpret_cast<ColourPOD*>(writePlane(*editor.wetCache, x, y, pins[5]));
        planes.wetAlpha = reinterpret_cast<Alpha*>(writePlane(*editor.wetAlpha, x, y, pins[6]));
    } else {
        pins[5].reset();
        pins[6].reset();
    }
    return planes.length;
}
