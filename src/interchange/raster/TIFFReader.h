#pragma once

#include "core/Status.h"

#include <cstddef>
#include <cstdint>
#include <string>

class Raster;

/// The reader of plain TIFF files, through libtiff; only the first page is read. Strips or
/// tiles, samples together or in planes, 8 or 16 bits, RGB, grey (either way up) and
/// palette pictures go straight into the raster a band of rows at a time; an extra sample
/// marked as alpha becomes the alpha plane, divided back out of the colour when it is
/// associated (pre-multiplied). Every other kind libtiff can turn into RGBA (YCbCr, CMYK,
/// bi-level, Lab, odd orientations...) goes through its RGBA reader.
///
/// Results: 0; -7 not a TIFF file; -8 a picture larger than a document can hold or a kind
/// libtiff can't turn into colour; -2 damaged data; -10 out of memory.
class TIFFReader {
public:
    [[nodiscard]] static Status read(const std::uint8_t* data, std::size_t size, Raster& raster,
                                     std::wstring& error);
};
