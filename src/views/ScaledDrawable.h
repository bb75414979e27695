#pragma once

#include "core/Colour.h"
#include "core/Extent.h"
#include "core/Status.h"

#include <atomic>
#include <cstdint>

class ZmapDocument;

/// Where a scaled walk sends its rows: target pixels (a view's store coordinates), one row
/// at a time. Called on the thread that runs the walk.
class ScaledDrawable {
public:
    virtual ~ScaledDrawable() = default;
    /// `count` pixels of target row `y` from column `x`, three bytes each (blue, green, red),
    /// valid during the call.
    virtual void ScaledRow(std::int32_t x, std::int32_t y, std::int32_t count,
                           const std::uint8_t* rgb) = 0;
    /// `count` pixels of target row `y` from column `x` lie outside the image: the target
    /// fills them as it likes.
    virtual void ScaledOutside(std::int32_t x, std::int32_t y, std::int32_t count) = 0;
};

/// A projective map from target pixels to image coordinates, evaluated with three running
/// sums: for target pixel (u, v), sum_i = a_i * u + b_i * v + c_i, and the image pixel is
/// (floor(sum0 / sum2), floor(sum1 / sum2)). Target pixel centres should map to image
/// coordinates in which pixel k covers [k, k + 1).
struct PixelMapping {
    double a[3] = {1, 0, 0};
    double b[3] = {0, 1, 0};
    double c[3] = {0.5, 0.5, 1};

    /// The zoom numerator / denominator: target (u, v) shows image
    /// floor((u + 0.5) * denominator / numerator). With integer coefficients and halves, the
    /// sums are exact, so this agrees with ViewMapping to the pixel.
    static PixelMapping zoom(std::int32_t numerator, std::int32_t denominator);
    /// The image pixel of target pixel (u, v), computed directly (not by running sums).
    IPoint<2> map(std::int32_t u, std::int32_t v) const;
};

/// The display colour of one pixel of channel `channelId` as the 1:1 walk draws it: colour
/// with the overlay composed in for 1, depth as grey and material as its colour (also with
/// the overlay) for 2 and 4, the channel's own display for other ids. Zero outside the image
/// or for a missing channel. The plain, one-pixel-at-a-time form; the scaled walk reads
/// rows of tiles.
ColourPOD displayPixel(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                       std::uint32_t channelId);

/// Draws the target pixels of `targetExtent` from channel `channelId` through `mapping`,
/// row by row. Pixels that map outside the image go to ScaledOutside (a run at a row's
/// start or end in one call); inside pixels are the channel's display colour, read through
/// the tile they lie in, the last pixel's colour kept so that magnified pixels repeat
/// without a lookup. `abort`, if given, is looked at before each row: a set flag ends the
/// walk with -25; `rowsDone`, if given, receives the number of rows completed. -13 if the
/// channel doesn't exist, 0 otherwise.
void drawScaled(Status& status, const ZmapDocument& document, ScaledDrawable& target,
                std::uint32_t channelId, const PixelMapping& mapping,
                const IExtent<2>& targetExtent, const std::atomic<bool>* abort,
                std::int32_t* rowsDone = nullptr);
