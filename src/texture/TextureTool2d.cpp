#include "texture/TextureTool2d.h"

#include "image/ZmapDocument.h"
#include "texture/RasterTexture.h"
#include "texture/Texture.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tex {

TextureTool2d::TextureTool2d(const TQL::Handle<Texture2d>& texture, const Placing2d& placing,
                             const TextureOutput& output)
    : TextureToolBase(output), texture_(texture), placing_(placing), hook_(placing.hook) {
    placing_.scaleX = placing.scaleX > 0 ? placing.scaleX : 1.0;
    placing_.scaleY = placing.scaleY > 0 ? placing.scaleY : 1.0;
}

void TextureTool2d::start(int x, int y, ZmapDocument& document) {
    hook_ = placing_.hookFloats ? Point<2>(x, y) : placing_.hook;
    if (placing_.stretched) {
        const auto* raster = dynamic_cast<const RasterTexture*>(texture_.get());
        if (raster && document.width() > 0 && document.height() > 0) {
            placing_.scaleX = static_cast<double>(document.width()) / raster->pixelWidth();
            placing_.scaleY = static_cast<double>(document.height()) / raster->pixelHeight();
        }
    }
}

Point<2> TextureTool2d::rasterPoint(double x, double y) const {
    const double angle = placing_.angleDegrees * std::numbers::pi / 180.0;
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double dx = x - hook_.x();
    const double dy = y - hook_.y();
    return {(dx * c + dy * s) / placing_.scaleX + placing_.offset.x(),
            (dy * c - dx * s) / placing_.scaleY + placing_.offset.y()};
}

void TextureTool2d::run(Span& span, int first, int last) {
    int index[maxSpanLength];
    float u[maxSpanLength], v[maxSpanLength], fp[maxSpanLength], alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    const double angle = placing_.angleDegrees * std::numbers::pi / 180.0;
    const double du = std::cos(angle) / placing_.scaleX;
    const double dv = -std::sin(angle) / placing_.scaleY;
    const float footprint =
        static_cast<float>(std::min(1.0 / placing_.scaleX, 1.0 / placing_.scaleY));
    // The closed form at the run's first pixel, then a step of (du, dv) a pixel: the
    // mapping is affine along a row.
    const Point<2> p0 = rasterPoint(span.x + first, span.y);
    int n = 0;
    for (int i = first; i < last; ++i) {
        if (!(span.alpha[i] > 0)) {
            continue;
        }
        const double k = i - first;
        u[n] = static_cast<float>(p0.x() + k * du);
        v[n] = static_cast<float>(p0.y() + k * dv);
        fp[n] = footprint;
        index[n++] = i;
    }
    if (n == 0) {
        return;
    }
    texture_->sample(rgb, alpha, u, v, fp, n);
    output_.write(span, index, rgb, alpha, n);
}

void TextureTool2d::preview(PreviewBitmap& bitmap) {
    drawRasterPreview(*texture_, std::min(placing_.scaleX, placing_.scaleY), bitmap);
}

} // namespace tex
