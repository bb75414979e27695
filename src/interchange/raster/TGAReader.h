#pragma once

#include "core/Status.h"

#include <cstddef>
#include <cstdint>
#include <string>

class Raster;

/// The reader of Truevision TGA files.
///
/// 1. The 18-byte header; fewer bytes give -7.
/// 2. Image types 2 (true colour) and 10 (run-length true colour) of 16, 24 or 32 bits a
///    pixel, and 1 and 9 (colour-mapped, plain or run-length) of 8 bits an index with a map
///    of 15, 16, 24 or 32 bits an entry; anything else gives -8.
/// 3. A 32-bit picture whose descriptor's low four bits are 8 keeps its alpha. When the
///    file ends with the 26-byte footer (signature "TRUEVISION-XFILE") and that names an
///    extension area, the area's attributes type decides: 3 marks the alpha as plain
///    coverage (Raster::alphaIsCoverage), 4 keeps it with the mark clear, anything else
///    drops the alpha. Without a footer the alpha stays, unmarked.
/// 4. The image id and the colour map are skipped (a true-colour picture's map too).
/// 5. Descriptor bit 32 means the top row comes first, bit 16 that rows run right to left.
///    16-bit pixels and map entries are 5-5-5.
///
/// Pixel data cut short gives -2; -10 out of memory.
class TGAReader {
public:
    [[nodiscard]] static Status read(const std::uint8_t* data, std::size_t size, Raster& raster,
                                     std::wstring& error);
};
