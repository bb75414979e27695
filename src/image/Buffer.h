#pragma once

#include "core/Colour.h"
#include "core/Handle.h"
#include "image/MaterialRecord.h"

#include <cstdint>
#include <vector>

/// Where a model renderer sends what it drew, a finished row at a time.
///
/// A row has the width the renderer was asked for, and comes in these arrays, one entry a
/// pixel:
/// - `depths`: the pixel's depth code, as a double holding the exact integer.
/// - `covered`: 32-bit flags; 0 means nothing was drawn at the pixel, and the other arrays
///   mean nothing there. Bit 0 (`coveredFlag`) is set at every drawn pixel, and bit i + 1
///   (`shadowFlag(i)`) where light i of the renderer's lights is blocked there.
/// - `colours`: four bytes: blue, green, red, and the coverage of the pixel (255 full).
/// - `materials`: the model's material number of the surface drawn (its place in the
///   order of the model's materials, plus 1). May be null: then there is none.
///
/// Rows come in order from the top, each once; finish() follows the last. Buffers are
/// used on one thread.
class Buffer : public TQL::Handlable {
public:
    static constexpr std::uint32_t coveredFlag = 1;
    /// The flag of light i (0 to 30) being blocked at a pixel.
    static constexpr std::uint32_t shadowFlag(unsigned light) { return 2u << light; }
    /// All the shadow flags.
    static constexpr std::uint32_t shadowFlags = ~coveredFlag;

    virtual void putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                        const std::uint8_t* colours, const MaterialId* materials) = 0;
    /// Whether the buffer keeps depth; a renderer may skip its depth work for one that
    /// doesn't (it still hides what is behind).
    virtual bool hasDepth() const = 0;
    /// Called once after the last row.
    virtual void finish() {}
};

/// How a thumbnail is drawn.
struct ThumbSettings {
    /// Draws the shape as a one-pixel outline in `outlineColour` filled with `fillColour`,
    /// instead of in the model's colours.
    bool outline = false;
    ColourPOD outlineColour{0, 0, 0};
    ColourPOD fillColour{255, 255, 255};
};

/// Draws a model's preview into a caller's colour array, without an image.
///
/// In outline mode a byte mask keeps the pixels that are covered with a coverage above
/// 127. Rows come top down, so a pixel is settled as its row arrives: a set pixel whose
/// neighbours above and to the left are set as well is inside and takes the fill colour;
/// the other set pixels are the outline. Pixels outside the mask keep the array's colours.
class ThumbBuffer : public Buffer {
public:
    /// `rgb` holds width x height pixels, row after row, and outlives the buffer.
    ThumbBuffer(std::int32_t width, std::int32_t height, ColourPOD* rgb,
                const ThumbSettings& settings);

    void putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                const std::uint8_t* colours, const MaterialId* materials) override;
    bool hasDepth() const override { return false; }
    void finish() override;

private:
    bool set(std::int32_t x, std::int32_t y) const;

    std::int32_t width_;
    std::int32_t height_;
    ColourPOD* rgb_;
    ThumbSettings settings_;
    std::vector<std::uint8_t> mask_;
};
