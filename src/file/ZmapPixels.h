#pragma once

#include "core/Status.h"

#include <cstddef>

class ImageErrorReporter;

/// How the pixels of a Zmap section are laid out in the file.
enum class FilePixelType : int {
    none = 0,
    rgb24 = 1,   ///< red, green, blue bytes
    bgr24 = 2,   ///< blue, green, red bytes: the store's `ColourPOD`
    grey8 = 3,   ///< one byte
    index8 = 4,  ///< 8-bit material id
    index16 = 5, ///< 16-bit material id
    depth32 = 6, ///< 32-bit unsigned depth code
    alpha32 = 7, ///< 32-bit float coverage
};

/// The file pixel type that holds pixels of a store's pixel format code: 0 (8-bit) is
/// grey8, 1 (16-bit) index16, 2 (colour) bgr24, 3 (depth) depth32, 4 (coverage)
/// alpha32. Any other code gives none.
FilePixelType filePixelTypeOfStore(int storeFormat);

/// Bits of one pixel of `type`; 0 for none or an unknown value.
int bitsPerPixel(FilePixelType type);

/// Converts `count` pixels of `fromType` at `from` into `toType` at `to`. The pairs:
///
///   same type        byte copy; 16- and 32-bit elements are byte-swapped when `swapped`
///   rgb24 <- bgr24   red and blue exchanged, and the other way round
///   bgr24 <- grey8   grey into three equal bytes
///   grey8 <- depth32 top byte of the value
///   index16 <- index8  widened, unscaled
///   depth32 <- grey8 byte times 0x01010101
///
/// `swapped` says the multi-byte elements of `from` are in the other byte order (a file
/// written on a machine of the other order); the output is always in the machine's order.
/// Any other pair fails with status -12, reported with its text to `reporter`, and
/// writes nothing. The buffers must not overlap, and need no particular alignment.
[[nodiscard]] Status convertPixels(void* to, FilePixelType toType, const void* from,
                                   FilePixelType fromType, std::size_t count, bool swapped,
                                   ImageErrorReporter& reporter);
