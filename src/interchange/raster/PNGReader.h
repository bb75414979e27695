#pragma once

#include "core/Status.h"

#include <cstddef>
#include <cstdint>
#include <string>

class Raster;

/// The reader of PNG files, through libpng. Every colour type and bit depth: palettes and
/// grey are expanded, 16-bit samples rounded to 8, a tRNS chunk becomes alpha, interlaced
/// files are put together. The text chunks "Title" and "Author" are kept in the raster.
///
/// Results: 0; -7 not a PNG file; -8 a picture larger than a document can hold (refused
/// after the header, before any pixel memory is taken); -2 damaged data; -10 out of memory.
class PNGReader {
public:
    [[nodiscard]] static Status read(const std::uint8_t* data, std::size_t size, Raster& raster,
                                     std::wstring& error);
};
