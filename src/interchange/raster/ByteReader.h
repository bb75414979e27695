#pragma once

#include <cstddef>
#include <cstdint>

/// Little- and big-endian reads of fixed-size integers from a byte array. The caller
/// checks the bounds.
namespace bytes {
inline std::uint16_t le16(const std::uint8_t* p) {
    return std::uint16_t(p[0] | (p[1] << 8));
}
inline std::uint32_t le32(const std::uint8_t* p) {
    return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) |
           (std::uint32_t(p[3]) << 24);
}
inline std::uint16_t be16(const std::uint8_t* p) {
    return std::uint16_t((p[0] << 8) | p[1]);
}
inline std::uint32_t be32(const std::uint8_t* p) {
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
           std::uint32_t(p[3]);
}
/// Expands a 5-bit value to 8 bits so that 0 stays 0 and 31 becomes 255.
inline std::uint8_t expand5(std::uint32_t v) {
    return std::uint8_t((v << 3) | (v >> 2));
}
} // namespace bytes
