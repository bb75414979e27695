#pragma once

#include "core/Colour.h"
#include "image/MaterialRecord.h"
#include "image/TileBitmapTile.h"

#include <array>
#include <cstdint>

/// The planes of one run of pixels of a row that lies inside one tile, as the paint
/// pipeline reads and writes them. Every pointer addresses the run's first pixel; the run
/// has `length` pixels (to the tile's right edge, clipped to the image).
///
/// The base planes are the image as it was before the action in progress (the current
/// level of the undo store); an unwritten tile reads as the channel's empty value. The
/// write planes are privately owned tiles of the editor's work bitmaps.
struct SpanPlanes {
    std::int32_t length = 0;
    const ColourPOD* sourceColour = nullptr;  ///< originalRgb
    const ColourPOD* baseColour = nullptr;    ///< colour before the action
    const std::uint32_t* baseDepth = nullptr; ///< depth before the action
    const MaterialId* baseMaterial = nullptr; ///< material before the action
    Alpha* strokeAlpha = nullptr;             ///< coverage of the stroke so far
    ColourPOD* wetColour = nullptr;           ///< only when the wet planes were asked for
    Alpha* wetAlpha = nullptr;                ///< only when the wet planes were asked for
};

/// The handles that pin the tiles of a SpanPlanes while its pointers are in use.
using SpanPins = std::array<TileHandle, 7>;
