#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

/// An image read back with libpng, as an independent check of what the program wrote:
/// 8-bit red, green, blue, whatever the file's own format.
struct PngImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> rgb; ///< rows of width * 3 bytes, red first

    /// Red, green, blue of pixel (x, y).
    const std::uint8_t* at(std::uint32_t x, std::uint32_t y) const {
        return &rgb[(static_cast<std::size_t>(y) * width + x) * 3];
    }
};

/// Reads `path`; false (with `error` set) if it isn't a readable PNG file.
bool readPng(const std::string& path, PngImage& image, std::string& error);

} // namespace test
