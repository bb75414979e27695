#include "texture/Grain.h"

#include "image/ZmapDocument.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tex {

namespace {

/// The z at which flat-image noise is read: off the lattice's integer planes.
constexpr float flatNoiseZ = 0.33333334f;

/// Coverage times value, for the pixels listed in `index`.
inline void scaleCoverage(Alpha* alpha, const int* index, const float* value, int n) {
    for (int i = 0; i < n; ++i) {
        alpha[index[i]] *= value[i];
    }
}

/// Fills a preview of `side` x `side` by default: rows of values from `row`, drawn as a
/// blend from a dark to a light paper colour.
template <class RowValues>
void drawPreview(PreviewBitmap& bitmap, std::int32_t side, RowValues&& row) {
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        bitmap.width = bitmap.height = side;
    }
    bitmap.width = std::min(bitmap.width, maxSpanLength);
    bitmap.pixels.assign(static_cast<std::size_t>(bitmap.width) * bitmap.height, 0);
    float values[maxSpanLength];
    const float dark[3] = {52, 46, 40};
    const float light[3] = {244, 238, 222};
    for (std::int32_t y = 0; y < bitmap.height; ++y) {
        row(y, bitmap.width, values);
        for (std::int32_t x = 0; x < bitmap.width; ++x) {
            const float t = std::clamp(values[x], 0.0f, 1.0f);
            std::uint8_t c[3];
            for (int k = 0; k < 3; ++k) {
                c[k] = static_cast<std::uint8_t>(dark[k] + (light[k] - dark[k]) * t + 0.5f);
            }
            bitmap.pixels[static_cast<std::size_t>(y) * bitmap.width + x] =
                pack555(c[0], c[1], c[2]);
        }
    }
}

/// The value of a texture sample: its grey, or its alpha when it has no colour.
inline float sampleValue(unsigned flags, const std::uint8_t* rgb, float alpha) {
    if (flags & textureHasColour) {
        const float grey = (rgb[0] + rgb[1] + rgb[2]) / 765.0f;
        return (flags & textureVaryingAlpha) ? grey * alpha : grey;
    }
    return alpha;
}

} // namespace

// NoiseGrain

NoiseGrain::NoiseGrain(const TQL::Handle<AlphaNoiseTexture>& noise) : noise_(noise) {}

void NoiseGrain::setCubic(const TQL::Handle<ViewProj>& viewProj) {
    const bool cubic = viewProj && viewProj->viewType() == ViewProj::cubicView;
    cubic_ = cubic ? viewProj : TQL::Handle<ViewProj>();
    faceSize_ = cubic ? viewProj->faceSize().size() : 0;
}

void NoiseGrain::start(int x, int y, ZmapDocument& document) {
    setCubic(document.viewProj());
}

void NoiseGrain::run(Span& span, int first, int last) {
    // Only pixels with coverage are worked out: the noise is never computed outside the mask.
    int index[maxSpanLength];
    float px[maxSpanLength], py[maxSpanLength], pz[maxSpanLength], fp[maxSpanLength];
    float value[maxSpanLength];
    int n = 0;
    const float half = static_cast<float>(faceSize_) * 0.5f;
    for (int i = first; i < last; ++i) {
        if (!(span.alpha[i] > 0)) {
            continue;
        }
        const std::int32_t x = span.x + i;
        if (cubic_) {
            Vector<3> d = cubic_->pixelDirection(x, span.y);
            d = d / d.length();
            px[n] = static_cast<float>(d.x()) * half;
            py[n] = static_cast<float>(d.y()) * half;
            pz[n] = static_cast<float>(d.z()) * half;
        } else {
            px[n] = static_cast<float>(x);
            py[n] = static_cast<float>(span.y);
            pz[n] = flatNoiseZ;
        }
        fp[n] = 1.0f;
        index[n++] = i;
    }
    if (n == 0) {
        return;
    }
    noise_->sample(value, px, py, pz, fp, n);
    scaleCoverage(span.alpha, index, value, n);
}

void NoiseGrain::preview(PreviewBitmap& bitmap) {
    drawPreview(bitmap, 128, [this](std::int32_t y, std::int32_t width, float* out) {
        float px[maxSpanLength], py[maxSpanLength], pz[maxSpanLength], fp[maxSpanLength];
        for (std::int32_t x = 0; x < width; ++x) {
            px[x] = static_cast<float>(x);
            py[x] = static_cast<float>(y);
            pz[x] = flatNoiseZ;
            fp[x] = 1.0f;
        }
        noise_->sample(out, px, py, pz, fp, width);
    });
}

void NoiseGrain::thumbnail(PreviewBitmap& bitmap) {
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        bitmap.width = bitmap.height = 48;
    }
    preview(bitmap);
}

// RasterGrain

RasterGrain::RasterGrain(const TQL::Handle<Texture2d>& texture,
                         const RasterGrainPlacement& placement, double bias, bool invert)
    : texture_(texture), placement_(placement), curve_(bias, invert), hook_(placement.hook) {
    placement_.scaleX = placement.scaleX > 0 ? placement.scaleX : 1.0;
    placement_.scaleY = placement.scaleY > 0 ? placement.scaleY : 1.0;
}

void RasterGrain::start(int x, int y, ZmapDocument& document) {
    hook_ = placement_.hookFloats ? Point<2>(x, y) : placement_.hook;
    const auto& vp = document.viewProj();
    faceSize_ = vp && vp->viewType() == ViewProj::cubicView ? vp->faceSize().size() : 0;
    if (faceSize_ > 0 && placement_.hookFloats) {
        hook_ = Point<2>(x % faceSize_, y);
    }
}

void RasterGrain::values(float* out, const float* px, const float* py, int count) const {
    if (count <= 0) {
        return;
    }
    const double angle = placement_.angleDegrees * std::numbers::pi / 180.0;
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double sx = placement_.scaleX;
    const double sy = placement_.scaleY;
    const float footprint = static_cast<float>(1.0 / std::sqrt(sx * sx + sy * sy));
    // Zeroed: the compiler cannot see that the texture reads only the first `count`.
    float u[maxSpanLength] = {}, v[maxSpanLength] = {}, fp[maxSpanLength] = {};
    float alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    for (int i = 0; i < count; ++i) {
        const double x = px[i] - hook_.x();
        const double y = py[i] - hook_.y();
        u[i] = static_cast<float>((x * c + y * s) / sx + placement_.offset.x());
        v[i] = static_cast<float>((y * c - x * s) / sy + placement_.offset.y());
        fp[i] = footprint;
    }
    texture_->sample(rgb, alpha, u, v, fp, count);
    const unsigned flags = texture_->flags();
    for (int i = 0; i < count; ++i) {
        out[i] = curve_.apply(sampleValue(flags, rgb + i * 3, alpha[i]));
    }
}

void RasterGrain::run(Span& span, int first, int last) {
    int index[maxSpanLength];
    float px[maxSpanLength], py[maxSpanLength], value[maxSpanLength];
    int n = 0;
    for (int i = first; i < last; ++i) {
        if (!(span.alpha[i] > 0)) {
            continue;
        }
        const std::int32_t x = span.x + i;
        // On a cube image the grain is laid on every face from the face's own corner.
        px[n] = static_cast<float>(faceSize_ > 0 ? x % faceSize_ : x) + 0.5f;
        py[n] = static_cast<float>(span.y) + 0.5f;
        index[n++] = i;
    }
    if (n == 0) {
        return;
    }
    values(value, px, py, n);
    scaleCoverage(span.alpha, index, value, n);
}

void RasterGrain::preview(PreviewBitmap& bitmap) {
    drawPreview(bitmap, 128, [this](std::int32_t y, std::int32_t width, float* out) {
        float px[maxSpanLength], py[maxSpanLength];
        for (std::int32_t x = 0; x < width; ++x) {
            px[x] = static_cast<float>(x) + 0.5f + static_cast<float>(hook_.x());
            py[x] = static_cast<float>(y) + 0.5f + static_cast<float>(hook_.y());
        }
        values(out, px, py, width);
    });
}

void RasterGrain::thumbnail(PreviewBitmap& bitmap) {
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        bitmap.width = bitmap.height = 48;
    }
    preview(bitmap);
}

// CubeGrain

CubeGrain::CubeGrain(const TQL::Handle<Texture3d>& texture, double bias, bool invert)
    : texture_(texture), curve_(bias, invert) {}

void CubeGrain::start(int x, int y, ZmapDocument& document) {
    viewProj_ = document.viewProj();
    eye_ = document.viewParams().eye;
}

void CubeGrain::run(Span& span, int first, int last) {
    if (!viewProj_ || !span.baseDepth) {
        return;
    }
    int index[maxSpanLength];
    float px[maxSpanLength], py[maxSpanLength], pz[maxSpanLength], fp[maxSpanLength];
    float alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    int n = 0;
    const ViewProj& vp = *viewProj_;
    for (int i = first; i < last; ++i) {
        if (!(span.alpha[i] > 0)) {
            continue;
        }
        const std::int32_t x = span.x + i;
        // A pixel without depth is taken at the far depth.
        std::uint32_t code = span.baseDepth[i];
        if (code >= 0xFFFFFFFEu) {
            code = 0xFFFFFFFEu;
        }
        const Point<3> p = vp.worldFromPixel(x, span.y, code);
        const Point<3> right = vp.worldFromPixel(x + 1, span.y, code);
        px[n] = static_cast<float>(p.x() - eye_.x());
        py[n] = static_cast<float>(p.y() - eye_.y());
        pz[n] = static_cast<float>(p.z() - eye_.z());
        fp[n] = static_cast<float>((right - p).length());
        index[n++] = i;
    }
    if (n == 0) {
        return;
    }
    // A texture that drives neither output leaves them as they are: no grain.
    std::fill_n(alpha, n, 1.0f);
    std::fill_n(rgb, n * 3, std::uint8_t{255});
    texture_->sample(rgb, alpha, px, py, pz, fp, n);
    const unsigned flags = texture_->flags();
    float value[maxSpanLength];
    for (int i = 0; i < n; ++i) {
        value[i] = curve_.apply(sampleValue(flags, rgb + i * 3, alpha[i]));
    }
    scaleCoverage(span.alpha, index, value, n);
}

void CubeGrain::preview(PreviewBitmap& bitmap) {
    drawPreview(bitmap, 128, [this](std::int32_t y, std::int32_t width, float* out) {
        float px[maxSpanLength], py[maxSpanLength], pz[maxSpanLength], fp[maxSpanLength];
        float alpha[maxSpanLength];
        std::uint8_t rgb[maxSpanLength * 3];
        for (std::int32_t x = 0; x < width; ++x) {
            px[x] = static_cast<float>(x) * 0.02f;
            py[x] = static_cast<float>(y) * -0.02f;
            pz[x] = 1.0f;
            fp[x] = 0.02f;
        }
        std::fill_n(alpha, width, 1.0f);
        std::fill_n(rgb, width * 3, std::uint8_t{255});
        texture_->sample(rgb, alpha, px, py, pz, fp, width);
        for (std::int32_t x = 0; x < width; ++x) {
            out[x] = curve_.apply(sampleValue(texture_->flags(), rgb + x * 3, alpha[x]));
        }
    });
}

void CubeGrain::thumbnail(PreviewBitmap& bitmap) {
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        bitmap.width = bitmap.height = 48;
    }
    preview(bitmap);
}

// RgbGrain

RgbGrain::RgbGrain(bool useOriginal, double bias, bool invert)
    : useOriginal_(useOriginal), curve_(bias, invert) {}

void RgbGrain::run(Span& span, int first, int last) {
    const ColourPOD* source = useOriginal_ ? span.sourceColour : span.baseColour;
    if (!source) {
        return;
    }
    for (int i = first; i < last; ++i) {
        if (span.alpha[i] > 0) {
            const ColourPOD c = source[i];
            const float t = static_cast<float>((c.r + c.g + c.b) / 765.0);
            span.alpha[i] *= curve_.apply(t);
        }
    }
}

void RgbGrain::preview(PreviewBitmap& bitmap) {
    drawPreview(bitmap, 128, [this](std::int32_t, std::int32_t width, float* out) {
        for (std::int32_t x = 0; x < width; ++x) {
            out[x] = curve_.apply(width > 1 ? static_cast<float>(x) / static_cast<float>(width - 1)
                                            : 1.0f);
        }
    });
}

void RgbGrain::thumbnail(PreviewBitmap& bitmap) {
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        bitmap.width = bitmap.height = 48;
    }
    preview(bitmap);
}

// StyleGrain

StyleGrain::StyleGrain(std::wstring library, std::wstring category,
                       const TQL::Handle<GrainTool>& grain)
    : library_(std::move(library)), category_(std::move(category)), grain_(grain) {}

} // namespace tex
