#pragma once

#include "core/Handle.h"
#include "core/Status.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A picture read from a raster file: rows of three-byte pixels (blue, green, red, the
/// order of ColourPOD) from the top row down, `3 * width` bytes a row, and an optional
/// alpha plane of one byte a pixel (255 opaque).
///
/// Every source sample is reduced to this form: 16-bit samples keep their high byte
/// (rounded), grey becomes equal blue, green and red, palettes are looked up, CMYK is
/// multiplied out. Alpha is kept as plain coverage: a file's pre-multiplied colour is
/// divided back by its alpha.
class Raster : public TQL::Handlable {
public:
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::vector<std::uint8_t> colour;
    /// Empty, or width * height bytes.
    std::vector<std::uint8_t> alpha;
    /// What the alpha means. A TGA file sets it when its extension area calls the alpha
    /// plain coverage (attributes type 3) and leaves it clear when it calls it
    /// pre-multiplied (4) or says nothing; readers of formats whose alpha is always plain
    /// coverage (PNG, TIFF, BMP) set it.
    bool alphaIsCoverage = false;
    /// Texts of the file (a PNG's "Title" and "Author"), empty when it has none.
    std::wstring title;
    std::wstring author;

    bool hasAlpha() const { return !alpha.empty(); }
    std::size_t stride() const { return std::size_t(width) * 3; }
    std::uint8_t* row(std::int32_t y) { return colour.data() + std::size_t(y) * stride(); }
    const std::uint8_t* row(std::int32_t y) const {
        return colour.data() + std::size_t(y) * stride();
    }
    std::uint8_t* alphaRow(std::int32_t y) { return alpha.data() + std::size_t(y) * width; }
    const std::uint8_t* alphaRow(std::int32_t y) const {
        return alpha.data() + std::size_t(y) * width;
    }

    /// Makes the pixel arrays for a width x height picture, with an alpha plane if
    /// `withAlpha`, after checking the size with checkRasterSize; the pixels are zero.
    /// On failure nothing is allocated and `error` says why: -2 for a side of 0 or less,
    /// -8 for a picture larger than a document can hold, -10 when memory runs out.
    [[nodiscard]] Status allocate(std::int64_t width, std::int64_t height, bool withAlpha,
                                  std::wstring& error);
    /// Frees the pixels and sets the size to 0.
    void clear();
};

/// The frames of a source of several pictures, in order.
class RasterArray : public TQL::Handlable {
public:
    std::vector<TQL::Handle<Raster>> frames;
};

/// The most bytes of colour and alpha a picture may need: what a document of that size
/// could hold in memory, which is the smaller of 4 GiB and the machine's memory, unless
/// setMaxRasterBytes chose a lower bound.
std::uint64_t maxRasterBytes();
/// Lowers the bound for the process (fuzzing, tests); 0 restores the machine's.
void setMaxRasterBytes(std::uint64_t bytes);

/// Checks that a width x height picture, with or without alpha, can be held, before any
/// pixel memory is taken for it. 0 if so; -2 for a side of 0 or less, -8 for one that
/// would need more than maxRasterBytes(), with `error` saying so.
[[nodiscard]] Status checkRasterSize(std::int64_t width, std::int64_t height, bool withAlpha,
                                     std::wstring& error);
