#include "texture/TextureToolBase.h"

#include "pipeline/PaintMath.h"
#include "texture/Texture.h"

#include <algorithm>
#include <cmath>

namespace tex {

double TextureOutput::thresholdFactor(double t) const {
    const double dark = thresholdDark;
    const double light = thresholdLight;
    if (dark == light) {
        if (thresholdSoft > 0) {
            return std::clamp((t - dark) / thresholdSoft + 0.5, 0.0, 1.0);
        }
        return t > dark ? 1.0 : 0.0;
    }
    return std::clamp((t - dark) / (light - dark), 0.0, 1.0);
}

void TextureOutput::write(Span& span, const int* index, const std::uint8_t* rgb, const float* alpha,
                          int count) const {
    const bool colour = (flags & textureColour) != 0;
    const bool useAlpha = (flags & textureAlpha) != 0;
    const bool brightness = (flags & textureAlphaFromBrightness) != 0;
    const bool blend = opacity < 1.0;
    const float o = static_cast<float>(std::clamp(opacity, 0.0, 1.0));
    if (!threshold && !brightness && !blend) {
        // The usual case, colour and alpha as they come, in a loop of its own.
        for (int k = 0; k < count; ++k) {
            const int i = index[k];
            const std::uint8_t* c = rgb + 3 * k;
            if (useAlpha) {
                span.alpha[i] *= alpha[k];
            }
            if (colour) {
                span.colour[i] = ColourPOD{c[0], c[1], c[2]};
            }
        }
        return;
    }
    for (int k = 0; k < count; ++k) {
        const int i = index[k];
        const std::uint8_t* c = rgb + 3 * k;
        float a = span.alpha[i];
        if (threshold) {
            const ColourPOD* image = thresholdCurrent ? &span.baseColour[i] : nullptr;
            const double t =
                image ? (image->r + image->g + image->b) / 765.0 : (c[0] + c[1] + c[2]) / 765.0;
            a *= static_cast<float>(thresholdFactor(t));
        }
        if (useAlpha) {
            a *= alpha[k];
        }
        if (brightness) {
            a *= static_cast<float>((c[0] + c[1] + c[2]) / 765.0);
        }
        span.alpha[i] = a;
        if (colour) {
            ColourPOD& out = span.colour[i];
            if (blend) {
                out.b = paint::lowByte(out.b + paint::roundEven((c[0] - out.b) * o));
                out.g = paint::lowByte(out.g + paint::roundEven((c[1] - out.g) * o));
                out.r = paint::lowByte(out.r + paint::roundEven((c[2] - out.r) * o));
            } else {
                out = ColourPOD{c[0], c[1], c[2]};
            }
        }
    }
}

void TextureToolBase::drawRasterPreview(const Texture2d& texture, double scale,
                                        PreviewBitmap& bitmap) {
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        bitmap.width = bitmap.height = 128;
    }
    bitmap.width = std::min(bitmap.width, maxSpanLength);
    bitmap.pixels.assign(static_cast<std::size_t>(bitmap.width) * bitmap.height, 0);
    const double step = scale > 0 ? 1.0 / scale : 1.0;
    float u[maxSpanLength], v[maxSpanLength], fp[maxSpanLength], alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    for (std::int32_t y = 0; y < bitmap.height; ++y) {
        for (std::int32_t x = 0; x < bitmap.width; ++x) {
            u[x] = static_cast<float>((x + 0.5) * step);
            v[x] = static_cast<float>((y + 0.5) * step);
            fp[x] = static_cast<float>(step);
        }
        texture.sample(rgb, alpha, u, v, fp, bitmap.width);
        for (std::int32_t x = 0; x < bitmap.width; ++x) {
            const std::uint8_t* c = rgb + 3 * x;
            // The texture's bytes lie blue, green, red; the preview packs red low.
            bitmap.pixels[static_cast<std::size_t>(y) * bitmap.width + x] =
                pack555(c[2], c[1], c[0]);
        }
    }
}

} // namespace tex
