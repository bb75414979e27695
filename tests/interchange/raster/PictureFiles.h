#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Pictures for the raster tests, made by the tests themselves: plain pixel arrays, and files
/// written from them byte by byte (BMP, TGA) or by the format's own library (PNG, JPEG, TIFF),
/// so that a reader is checked against an independent writer.
namespace pictures {

using Bytes = std::vector<std::uint8_t>;

/// Pixels as the tests think of them: red, green, blue, alpha; rows top down.
struct Rgba {
    std::int32_t width = 0;
    std::int32_t height = 0;
    Bytes pixels; ///< 4 bytes a pixel

    const std::uint8_t* at(std::int32_t x, std::int32_t y) const {
        return &pixels[(std::size_t(y) * width + x) * 4];
    }
    std::uint8_t* at(std::int32_t x, std::int32_t y) {
        return &pixels[(std::size_t(y) * width + x) * 4];
    }
};

/// A picture in which every pixel differs from its neighbours: red rises to the right, green
/// downwards, blue with both, alpha in steps (all 255 unless `withAlpha`).
Rgba pattern(std::int32_t width, std::int32_t height, bool withAlpha);
/// A smooth picture, for lossy formats.
Rgba gradient(std::int32_t width, std::int32_t height);

void writeFile(const std::string& path, const Bytes& bytes);
Bytes readFile(const std::string& path);

// PNG through libpng.
struct PngOptions {
    int colourType = 2; ///< PNG_COLOR_TYPE_...
    int bitDepth = 8;
    bool interlaced = false;
    bool transparentColour = false; ///< a tRNS chunk: grey/RGB key, or palette alphas
    std::string title;
    std::string author;
};
/// Writes `picture` as the options say. Grey takes the red channel; 16-bit samples are the
/// byte repeated (v * 257), low depths and palettes take the picture's values as indices or
/// levels as they are (the caller makes pictures that fit).
Bytes writePng(const Rgba& picture, const PngOptions& options);

// JPEG through libjpeg.
struct JpegOptions {
    int components = 3; ///< 1 grey, 3 colour, 4 CMYK (written inverted, with the Adobe marker)
    bool progressive = false;
    int quality = 95;
    int orientation = 0; ///< EXIF orientation in an APP1 marker; 0 for none
};
Bytes writeJpeg(const Rgba& picture, const JpegOptions& options);

// TIFF through libtiff.
struct TiffOptions {
    int bits = 8;       ///< 8 or 16
    bool grey = false;  ///< one sample of the red channel
    bool alpha = false; ///< an extra sample
    bool associated = false;
    bool planar = false;
    bool tiled = false;
    int compression = 1;     ///< COMPRESSION_...
    bool secondPage = false; ///< a second page of another size follows
};
Bytes writeTiff(const Rgba& picture, const TiffOptions& options);

// BMP and TGA, written here byte by byte.
/// A BMP of 24 bits, bottom-up, with a 40-byte header.
Bytes bmp24(const Rgba& picture);

} // namespace pictures
