#pragma once

#include "core/Status.h"

#include <cstddef>
#include <cstdint>
#include <string>

class Raster;

/// The reader of Windows bitmaps (.bmp, .dib). A 14-byte file header, then an info header
/// of any of its known sizes: core (12 bytes), info (40), the versions of 52 and 56 bytes,
/// V4 (108) and V5 (124). Pixels of 1, 4 and 8 bits through the palette, uncompressed or
/// run-length coded (RLE8, RLE4); 16 and 32 bits by bit-field masks (5-5-5 and 8-8-8 when
/// the file gives none), with the alpha mask giving an alpha plane; 24 bits as they are.
/// Rows go bottom-up, or top-down for a negative height.
///
/// Results: 0; -7 a header too short or not a bitmap's; -8 a header size, depth,
/// compression or picture size that isn't supported; -2 pixel data that is cut short or
/// points outside the file; -10 out of memory. `error` says what was wrong.
class BMPReader {
public:
    [[nodiscard]] static Status read(const std::uint8_t* data, std::size_t size, Raster& raster,
                                     std::wstring& error);
};
