#pragma once

#include "pipeline/PipelineTool.h"
#include "pipeline/Span.h"
#include "texture/Texture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace tex {

class Texture2d;
class Texture3d;

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
inline double balanceFootprint(double a, double b) {
    if (a < b) {
        std::swap(a, b);
    }
    if (b >= a / 4) {
        return b;
    }
    // b <= a / 20, without the division (slow in a row's loop).
    if (20 * b <= a) {
        return a;
    }
    return 1.1875 * a - 3.75 * b;
}

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
    /// Samples a solid or cube texture at the covered pixels of [first, last): `pointAt(x,
    /// point, footprint)` gives a pixel's sampling point (a world point or a direction, of
    /// type P) and its footprint, or false to leave the pixel; one `sample` call for the
    /// span, then the output is written. With `neutralStart` a texture that fills in only
    /// colour or only alpha reads as black and opaque elsewhere.
    template <class P, class PointAt>
    void sampleCovered(Span& span, int first, int last, const Texture3d& texture, bool neutralStart,
                       PointAt pointAt) const;

    /// Draws a solid or cube texture into `bitmap` (128 x 128 when its size is 0) as 5-5-5
    /// pixels: `pointAt(x, y, width, height, point, footprint)` gives the point (three
    /// floats) a preview pixel shows and its footprint; with `alphaAsGrey` the alpha is
    /// shown as grey, for a texture without colour.
    template <class PointAt>
    static void drawSolidPreview(const Texture3d& texture, bool alphaAsGrey, PreviewBitmap& bitmap,
                                 PointAt pointAt);

    /// Draws `texture` flat into `bitmap` (128 x 128 when its size is 0), one raster pixel
    /// to `scale` preview pixels, as 5-5-5 pixels.
    static void drawRasterPreview(const Texture2d& texture, double scale, PreviewBitmap& bitmap);

    TextureOutput output_;
};

template <class P, class PointAt>
void TextureToolBase::sampleCovered(Span& span, int first, int last, const Texture3d& texture,
                                    bool neutralStart, PointAt pointAt) const {
    int index[maxSpanLength];
    float px[maxSpanLength], py[maxSpanLength], pz[maxSpanLength], fp[maxSpanLength];
    float alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    int n = 0;
    for (int i = first; i < last; ++i) {
        if (!(span.alpha[i] > 0)) {
            continue;
        }
        P point;
        double footprint = 0;
        if (!pointAt(span.x + i, point, footprint)) {
            continue;
        }
        px[n] = static_cast<float>(point[0]);
        py[n] = static_cast<float>(point[1]);
        pz[n] = static_cast<float>(point[2]);
        fp[n] = static_cast<float>(footprint);
        index[n++] = i;
    }
    if (n == 0) {
        return;
    }
    if (neutralStart) {
        std::fill_n(rgb, n * 3, std::uint8_t{0});
        std::fill_n(alpha, n, 1.0f);
    }
    texture.sample(rgb, alpha, px, py, pz, fp, n);
    output_.write(span, index, rgb, alpha, n);
}

template <class PointAt>
void TextureToolBase::drawSolidPreview(const Texture3d& texture, bool alphaAsGrey,
                                       PreviewBitmap& bitmap, PointAt pointAt) {
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        bitmap.width = bitmap.height = 128;
    }
    bitmap.width = std::min(bitmap.width, maxSpanLength);
    bitmap.pixels.assign(static_cast<std::size_t>(bitmap.width) * bitmap.height, 0);
    float px[maxSpanLength], py[maxSpanLength], pz[maxSpanLength], fp[maxSpanLength];
    float alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    for (std::int32_t y = 0; y < bitmap.height; ++y) {
        for (std::int32_t x = 0; x < bitmap.width; ++x) {
            float point[3];
            pointAt(x, y, bitmap.width, bitmap.height, point, fp[x]);
            px[x] = point[0];
            py[x] = point[1];
            pz[x] = point[2];
        }
        std::fill_n(rgb, bitmap.width * 3, std::uint8_t{0});
        std::fill_n(alpha, bitmap.width, 1.0f);
        texture.sample(rgb, alpha, px, py, pz, fp, bitmap.width);
        for (std::int32_t x = 0; x < bitmap.width; ++x) {
            const std::uint8_t* c = rgb + 3 * x;
            const auto g = static_cast<std::uint8_t>(std::lround(alpha[x] * 255.0f));
            // The texture's bytes lie blue, green, red; the preview packs red low.
            bitmap.pixels[static_cast<std::size_t>(y) * bitmap.width + x] =
                alphaAsGrey ? pack555(g, g, g) : pack555(c[2], c[1], c[0]);
        }
    }
}

} // namespace tex
