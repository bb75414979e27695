#pragma once

#include "pipeline/PipelineTool.h"

#include <cstdint>

namespace tex {

class Texture2d;

/// Bits of TextureOutput::flags: what the texture gives the span.
enum TextureToolFlag : int {
    textureColour = 1,              ///< the texture's colour replaces the working colour
    textureAlpha = 2,               ///< the texture's alpha multiplies the coverage
    textureAlphaFromBrightness = 4, ///< the texture's brightness multiplies the coverage
};

/// How a texture tool writes what it sampled into a span: the colour and alpha flags, the
/// threshold and the texture opacity of the toolbox.
struct TextureOutput {
    int flags = textureColour | textureAlpha;
    /// With `threshold`, the coverage is cut by the brightness t = (r + g + b) / 765 of the
    /// texture (or, with `thresholdCurrent`, of the image before the stroke): it is
    /// multiplied by (t - dark) / (light - dark), clamped to 0..1. With dark equal to light
    /// that is a hard step (1 above the value, 0 at or below it), softened over
    /// `thresholdSoft` (a brightness width, 0 to 1) when that is above 0.
    bool threshold = false;
    bool thresholdCurrent = false;
    double thresholdDark = 0.25;
    double thresholdLight = 0.75;
    double thresholdSoft = 0.0;
    /// The texture opacity of the toolbox, 0 to 1: below 1 the colour moves only that far
    /// from the working colour to the texture's.
    double opacity = 1.0;

    /// Writes `count` samples (colour three bytes each in ColourPOD order, alpha) into the
    /// span at the indices `index`.
    void write(Span& span, const int* index, const std::uint8_t* rgb, const float* alpha,
               int count) const;
    /// The threshold's factor for a brightness t.
    double thresholdFactor(double t) const;
};

/// The footprint of a pixel whose texture extent is a by b texels: the narrower side, as
/// long as the pixel is not very oblique, so that a receding surface stays sharp; the wider
/// side when one is more than twenty times the other, so that it doesn't alias; a linear
/// blend between four and twenty. Symmetric in a and b, continuous at both joints.
double balanceFootprint(double a, double b);

/// The shared part of the four texture tools: their output settings, and a flat preview of
/// a raster.
class TextureToolBase : public TextureTool {
public:
    explicit TextureToolBase(const TextureOutput& output) : output_(output) {}

    int flags() const override { return output_.flags; }
    const TextureOutput& output() const { return output_; }
    /// The texture opacity (0 to 1) that the toolbox applies.
    void setOpacity(double opacity) { output_.opacity = opacity; }

protected:
    /// Draws `texture` flat into `bitmap` (128 x 128 when its size is 0), one raster pixel
    /// to `scale` preview pixels, as 5-5-5 pixels.
    static void drawRasterPreview(const Texture2d& texture, double scale, PreviewBitmap& bitmap);

    TextureOutput output_;
};

} // namespace tex
