#pragma once

#include "core/Status.h"

#include <cstddef>
#include <cstdint>
#include <string>

class Raster;

/// The reader of JPEG files, through libjpeg-turbo: baseline and progressive, grey, colour,
/// CMYK and YCCK (Adobe's inverted form recognised by its marker). An EXIF orientation
/// (APP1) is applied, so the raster stands as the camera meant it.
///
/// Results: 0; -7 not a JPEG file; -8 a picture larger than a document can hold (refused
/// after the header, before any pixel memory is taken) or a colour space that isn't
/// supported; -2 damaged data; -10 out of memory.
class JPEGReader {
public:
    [[nodiscard]] static Status read(const std::uint8_t* data, std::size_t size, Raster& raster,
                                     std::wstring& error);
};

/// The EXIF orientation (1 to 8) in an APP1 payload ("Exif\0\0" and a TIFF structure);
/// 1 when it has none or can't be read.
int exifOrientation(const std::uint8_t* data, std::size_t size);
