#pragma once

#include "core/Colour.h"
#include "image/MaterialRecord.h"

#include <cstdint>

class TileRowWriter;
class ZmapDocument;

/// The longest run a Span can cover: the widest tile.
inline constexpr std::int32_t maxSpanLength = 256;

/// Bits of Span::flags.
enum SpanFlag : std::uint8_t {
    spanNeedsDepth = 1, ///< some stage reads the working depth
};

/// The record handed to every pipeline stage: one run of pixels of one row that lies inside
/// one tile. Every pointer addresses the pixel at column `x`; a stage indexes them with its
/// half-open range first..last. Colour bytes lie as ColourPOD does: byte 2 (r) is the first
/// of the tool's three colour bytes, byte 0 (b) the third.
struct Span {
    ZmapDocument* document = nullptr;
    std::int32_t x = 0;      ///< image column of index 0
    std::int32_t y = 0;      ///< image row
    std::int32_t length = 0; ///< pixels to the tile's right edge (not clipped to the stroke)
    const ColourPOD* sourceColour = nullptr;  ///< the original colour
    const ColourPOD* baseColour = nullptr;    ///< colour before the stroke; every blend starts here
    const std::uint32_t* baseDepth = nullptr; ///< depth before the stroke (0xFFFFFFFF background,
                                              ///< 0xFFFFFFFE also no depth)
    const MaterialId* baseMaterial = nullptr; ///< material before the stroke
    ColourPOD* colour = nullptr;              ///< working colour, read and written by stages
    Alpha* alpha = nullptr;                   ///< working alpha, 0 to 1
    std::uint32_t* depth = nullptr;           ///< working depth; defined only with spanNeedsDepth
    std::uint8_t flags = 0;
    /// Writes the document's colour channel keeping its tiles between runs; null: a stage
    /// that writes the colour asks the document for the tile.
    TileRowWriter* colourWriter = nullptr;
};
