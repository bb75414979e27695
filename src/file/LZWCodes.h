#pragma once

#include "core/Status.h"
#include "file/ImageErrorReporter.h"

#include <cstdint>

/// The code space of TIFF LZW (compression 5), shared by the encoder and the decoder.
/// Codes are 9 to 12 bits wide and packed most significant bit first.
namespace lzw {
inline constexpr std::uint32_t clearCode = 256; ///< empties the table, width back to 9
inline constexpr std::uint32_t endCode = 257;   ///< end of the block
inline constexpr std::uint32_t firstFreeCode = 258;
inline constexpr std::uint32_t minBits = 9;
inline constexpr std::uint32_t maxBits = 12;
inline constexpr std::uint32_t tableSize = 1u << maxBits; ///< 4096 codes
/// The encoder empties its table (and emits a clear code) when its next free code reaches
/// this value, so a 12-bit code never has to be assigned past 4093.
inline constexpr std::uint32_t resetCode = tableSize - 2;
/// "No code yet": the state before the first byte of a block.
inline constexpr std::uint32_t noCode = 0xFFFF;

/// The codec's name, which heads its reports.
inline constexpr const wchar_t* codecName = L"LZW";

/// Reports a failed allocation, `what` being "No space for LZW hash table" or the like,
/// and gives the status of it.
inline Status noSpace(ImageErrorReporter& reporter, const wchar_t* what) {
    reporter.report(codecName, what);
    return status::outOfMemory;
}

/// All ones in the low `bits` bits: the largest code of that width.
constexpr std::uint32_t maxCodeOf(std::uint32_t bits) {
    return (1u << bits) - 1;
}
} // namespace lzw
