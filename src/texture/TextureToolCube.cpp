#include "texture/TextureToolCube.h"

#include "image/ZmapDocument.h"
#include "texture/Texture.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tex {

TextureToolCube::TextureToolCube(const TQL::Handle<Texture3d>& cube, const Vector<3>& axis,
                                 double angleDegrees, const TextureOutput& output)
    : TextureToolBase(output), cube_(cube) {
    axis_ = axis.lengthSquared() > 1e-10 ? axis.unit() : Vector<3>(0, 0, 1);
    const double angle = angleDegrees * std::numbers::pi / 180.0;
    cosine_ = std::cos(angle);
    sine_ = std::sin(angle);
}

void TextureToolCube::start(int x, int y, ZmapDocument& document) {
    view_ = document.viewProj();
    eye_ = document.viewParams().eye;
}

bool TextureToolCube::pixelDirection(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                                     Vector<3>& direction, double& footprint) const {
    if (!view_) {
        return false;
    }
    std::uint32_t code = document.zAt(x, y);
    if (code >= depth::farCode) {
        code = depth::farCode;
    }
    const Point<3> p = view_->worldFromPixel(x, y, code);
    const Vector<3> d = p - eye_;
    // Rodrigues' turn about the axis.
    direction = d * cosine_ + cross(axis_, d) * sine_ + axis_ * (dot(axis_, d) * (1 - cosine_));
    // The pixel's width at its point: the distance to the point of the next pixel across
    // at the same code (the previous one at the last column).
    const std::int32_t nx = x + 1 < document.width() ? x + 1 : x - 1;
    footprint = (view_->worldFromPixel(nx, y, code) - p).length();
    return true;
}

void TextureToolCube::run(Span& span, int first, int last) {
    if (!view_ || !span.document) {
        return;
    }
    sampleCovered<Vector<3>>(span, first, last, *cube_, false,
                             [&](std::int32_t x, Vector<3>& point, double& footprint) {
                                 return pixelDirection(*span.document, x, span.y, point, footprint);
                             });
}

void TextureToolCube::preview(PreviewBitmap& bitmap) {
    // The view ahead (+Z of the cube) over 90 degrees.
    drawSolidPreview(*cube_, false, bitmap,
                     [](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, float* p,
                        float& footprint) {
                         p[0] = 2.0f * (x + 0.5f) / w - 1.0f;
                         p[1] = 1.0f - 2.0f * (y + 0.5f) / h;
                         p[2] = 1.0f;
                         footprint = 2.0f / w;
                     });
}

} // namespace tex
