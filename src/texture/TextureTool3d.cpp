#include "texture/TextureTool3d.h"

#include "image/ZmapDocument.h"
#include "texture/Texture.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>

namespace tex {

namespace {

double chebyshev(const Point<3>& a, const Point<3>& b) {
    return std::max({std::abs(a.x() - b.x()), std::abs(a.y() - b.y()), std::abs(a.z() - b.z())});
}

} // namespace

TextureTool3d::TextureTool3d(const TQL::Handle<Texture3d>& texture, double scaleMillimetres,
                             const TextureOutput& output)
    : TextureToolBase(output), texture_(texture),
      scaleMillimetres_(scaleMillimetres > 0 ? scaleMillimetres : 1000.0) {}

void TextureTool3d::setAxes(const TextureAxes& axes) {
    axes_ = axes;
    axesFixed_ = true;
}

void TextureTool3d::start(int x, int y, ZmapDocument& document) {
    view_ = document.viewProj();
    if (!view_) {
        return;
    }
    faceSize_ = view_->viewType() == ViewProj::cubicView ? view_->faceSize().size() : 0;
    const ViewParams& record = document.viewParams();
    double millimetres = unitMillimetres(record.unitCode) * record.modelScale;
    if (!(millimetres > 0)) {
        millimetres = 1.0;
    }
    scale_ = scaleMillimetres_ / millimetres;
    if (axesFixed_) {
        planeDepth_ = SurfaceFrame(axes_.plane, *view_, 0.05);
    }
}

bool TextureTool3d::solidPoint(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                               Point<3>& point) const {
    std::uint32_t code = 0;
    if (axesFixed_) {
        if (!planeDepth_.depthCode(x, y, code) || code >= depth::farCode) {
            return false;
        }
    } else {
        code = document.zAt(x, y);
        if (code >= depth::farCode) {
            return false;
        }
    }
    const Point<3> w = view_->worldFromPixel(x, y, code);
    point = Point<3>(w.x() / scale_, w.y() / scale_, w.z() / scale_);
    return true;
}

bool TextureTool3d::pixelSample(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                                Point<3>& point, double& footprint) const {
    if (!view_ || !solidPoint(document, x, y, point)) {
        return false;
    }
    const MaterialId material = document.matAt(x, y);
    // The nearer of the two neighbours on one axis; a neighbour across a face edge, without
    // depth, of another material or outside the image doesn't count.
    auto axis = [&](int dx, int dy) {
        double best = -1;
        for (const int sign : {1, -1}) {
            const std::int32_t nx = x + sign * dx;
            const std::int32_t ny = y + sign * dy;
            if (nx < 0 || ny < 0 || nx >= document.width() || ny >= document.height()) {
                continue;
            }
            if (faceSize_ > 0 && nx / faceSize_ != x / faceSize_) {
                continue;
            }
            Point<3> p;
            if (!solidPoint(document, nx, ny, p) ||
                (!axesFixed_ && document.matAt(nx, ny) != material)) {
                continue;
            }
            const double d = chebyshev(point, p);
            best = best < 0 ? d : std::min(best, d);
        }
        return best;
    };
    double h = axis(1, 0);
    double v = axis(0, 1);
    if (h < 0 && v < 0) {
        h = v = 0;
    } else if (h < 0) {
        h = v;
    } else if (v < 0) {
        v = h;
    }
    footprint = balanceFootprint(h, v);
    return true;
}

void TextureTool3d::run(Span& span, int first, int last) {
    if (!view_ || !span.document) {
        return;
    }
    // A texture that drives neither colour nor alpha leaves its outputs alone.
    sampleCovered<Point<3>>(span, first, last, *texture_, true,
                            [&](std::int32_t x, Point<3>& point, double& footprint) {
                                return pixelSample(*span.document, x, span.y, point, footprint);
                            });
}

void TextureTool3d::preview(PreviewBitmap& bitmap) {
    // A slice of the solid at z = 0.5, sixteen preview pixels a unit.
    const bool colour = (texture_->flags() & textureHasColour) != 0;
    drawSolidPreview(
        *texture_, !colour, bitmap,
        [](std::int32_t x, std::int32_t y, std::int32_t, std::int32_t, float* p, float& footprint) {
            p[0] = static_cast<float>(x) / 16.0f;
            p[1] = static_cast<float>(y) / 16.0f;
            p[2] = 0.5f;
            footprint = 1.0f / 16.0f;
        });
}

} // namespace tex
