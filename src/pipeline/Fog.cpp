#include "pipeline/Fog.h"

#include "image/ZmapDocument.h"
#include "pipeline/BlendKernels.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

// Working rows of one call. Static: the pipeline runs on the interface thread, one stroke
// at a time, and a span never exceeds a tile's width.
float visibilityRow[maxSpanLength];
ColourPOD fogRow[maxSpanLength];

/// Distance of p from the line through a and b, or from the segment a-b.
double distanceToLine(const Point<3>& p, const Point<3>& a, const Point<3>& b, bool infinite) {
    const Vector<3> d = b - a;
    const double dd = d.lengthSquared();
    if (dd == 0) {
        return distance(p, a);
    }
    double u = dot(p - a, d) / dd;
    if (!infinite) {
        u = std::clamp(u, 0.0, 1.0);
    }
    return distance(p, a + d * u);
}

/// The nearest distance between the ray from `origin` along unit `dir` (t >= 0) and the
/// line (or segment) a-b.
double rayToLine(const Point<3>& origin, const Vector<3>& dir, const Point<3>& a, const Point<3>& b,
                 bool infinite) {
    const Vector<3> d = b - a;
    const Vector<3> w = origin - a;
    const double dd = d.lengthSquared();
    const double rd = dot(dir, d);
    const double denominator = dd - rd * rd;
    double u = 0;
    if (dd > 0 && denominator > 1e-12 * dd) {
        // Closest points of the two infinite lines.
        const double rw = dot(dir, w);
        const double dw = dot(d, w);
        u = (dw - rd * rw) / denominator;
    }
    if (!infinite) {
        u = std::clamp(u, 0.0, 1.0);
    }
    // The nearest point of the ray to the line's point at u, and back once more.
    for (int pass = 0; pass < 2; ++pass) {
        const Point<3> q = a + d * u;
        const double t = std::max(0.0, dot(q - origin, dir));
        const Point<3> r = origin + dir * t;
        if (dd > 0) {
            u = dot(r - a, d) / dd;
            if (!infinite) {
                u = std::clamp(u, 0.0, 1.0);
            }
        }
    }
    const Point<3> q = a + d * u;
    const double t = std::max(0.0, dot(q - origin, dir));
    return distance(origin + dir * t, q);
}

/// The distance of (x, y) from the line a-b of the image plane, or from the segment.
double distance2D(double x, double y, const IPoint<2>& a, const IPoint<2>& b, bool infinite) {
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double dd = dx * dx + dy * dy;
    if (dd == 0) {
        return std::hypot(x - a.x, y - a.y);
    }
    double u = ((x - a.x) * dx + (y - a.y) * dy) / dd;
    if (!infinite) {
        u = std::clamp(u, 0.0, 1.0);
    }
    return std::hypot(x - (a.x + u * dx), y - (a.y + u * dy));
}

} // namespace

Fog::Fog(const FogSettings& settings) : settings_(settings) {}

bool Fog::needsDepth() const {
    return !(settings_.type >= 4 && settings_.type <= 7);
}

void Fog::start(int x, int y, ZmapDocument& document) {
    document_ = &document;
    started_ = true;
    const ViewParams& params = document.viewParams();
    const ViewProj* view = document.viewProj().get();
    scale_ = params.modelScale > 0 ? params.modelScale : 1.0;
    const double s = scale_;
    isCube_ = view && view->viewType() == ViewProj::cubicView;
    faceSize_ = view ? view->faceSize().size() : 0;
    eye_ = params.eye;
    const FogSettings& f = settings_;
    switch (f.type) {
    case 0: {
        const double range = params.farDepth - params.nearDepth;
        const double k = range != 0 ? depth::codeSpan / range : 0.0;
        base_ = (f.none / s - params.nearDepth) * k;
        span_ = ((static_cast<double>(f.full) - f.none) / s) * k;
        break;
    }
    case 1:
    case 2:
        base_ = f.none / s;
        span_ = (static_cast<double>(f.full) - f.none) / s;
        unitAxis_ = f.type == 1 ? params.zAxis.unit() : f.axis.unit();
        break;
    case 3:
    case 8:
        base_ = f.nonePoint / s;
        span_ = (static_cast<double>(f.fullPoint) - f.nonePoint) / s;
        if (f.type == 3) {
            const bool inside = x >= 0 && y >= 0 && x < document.width() && y < document.height();
            centre_ =
                f.fixedCentre || !inside ? toPoint(toVector(f.centre) / s) : document.worldAt(x, y);
        }
        break;
    case 4:
        unitAxis_ = f.elevationAxis.unit();
        base_ = std::sin(f.noneElevation * std::numbers::pi / 180.0);
        span_ = std::sin(f.fullElevation * std::numbers::pi / 180.0) - base_;
        break;
    case 5: {
        const double dx = f.full2D.x - f.none2D.x;
        const double dy = f.full2D.y - f.none2D.y;
        base_ = dx * f.none2D.x + dy * f.none2D.y;
        span_ = dx * dx + dy * dy;
        break;
    }
    case 6:
    case 7:
        base_ = 0;
        span_ = f.range2D;
        break;
    default:
        base_ = 0;
        span_ = 0;
        break;
    }
}

double Fog::measure(std::int32_t x, std::int32_t y, std::uint32_t code, bool& background) const {
    const FogSettings& f = settings_;
    const ViewProj* view = document_->viewProj().get();
    background = code >= depth::farCode;
    // The 2D forms work on a cube image's faces each in its own coordinates.
    const double px = isCube_ && faceSize_ > 0 ? x % faceSize_ : x;
    const double py = y;
    switch (f.type) {
    case 0:
        return static_cast<double>(code);
    case 1:
        return view ? dot(view->worldFromPixel(x, y, code) - eye_, unitAxis_) : 0.0;
    case 2:
        return view ? dot(toVector(view->worldFromPixel(x, y, background ? 0x7FFFFFFFu : code)),
                          unitAxis_)
                    : 0.0;
    case 3: {
        if (!view) {
            return 0.0;
        }
        return distance(view->worldFromPixel(x, y, code), centre_);
    }
    case 4: {
        if (!view) {
            return 0.0;
        }
        const Vector<3> ray =
            (view->worldFromPixel(x, y, depth::farCode) - view->worldFromPixel(x, y, 0)).unit();
        return dot(ray, unitAxis_);
    }
    case 5: {
        const double dx = f.full2D.x - f.none2D.x;
        const double dy = f.full2D.y - f.none2D.y;
        return dx * px + dy * py;
    }
    case 6:
        return std::hypot(px - f.centre2D.x, py - f.centre2D.y);
    case 7:
        return distance2D(px, py, f.lineStart2D, f.lineEnd2D, f.infiniteLine);
    case 8: {
        if (!view) {
            return 0.0;
        }
        const Point<3> a = toPoint(toVector(f.lineStart) / scale_);
        const Point<3> b = toPoint(toVector(f.lineEnd) / scale_);
        if (f.clampDepth) {
            const Point<3> near = view->worldFromPixel(x, y, 0);
            const Vector<3> ray = (view->worldFromPixel(x, y, depth::farCode) - near).unit();
            return rayToLine(near, ray, a, b, f.infiniteLine);
        }
        return distanceToLine(view->worldFromPixel(x, y, code), a, b, f.infiniteLine);
    }
    default:
        return 0.0;
    }
}

void Fog::visibility(const Span& span, int first, int last, float* out) const {
    const FogSettings& f = settings_;
    const std::uint32_t* codes =
        (span.flags & spanNeedsDepth) && span.depth ? span.depth : span.baseDepth;
    for (int i = first; i < last; ++i) {
        out[i] = 1.0f;
    }
    if (f.type >= fogTypeCount || !document_) {
        return;
    }
    const bool pointForm = f.type == 3 || f.type == 8;
    for (int i = first; i < last; ++i) {
        if (span.alpha[i] == 0) {
            out[i] = 0.0f;
            continue;
        }
        const std::uint32_t code = codes ? codes[i] : depth::noDepth;
        bool background = false;
        double t = 0;
        if (f.type == 0 && code >= depth::farCode) {
            // No depth: fully fogged while fog grows with depth, otherwise left alone.
            if (span_ > 0) {
                out[i] = 0.0f;
            }
            continue;
        }
        if (f.type == 3 && f.clampDepth && code >= depth::farCode) {
            // Beyond everything: counted as at the end of the range.
            t = 1.0;
            background = true;
        } else {
            const double value = measure(span.x + i, span.y, code, background);
            if (f.type == 3 && span_ == 0) {
                t = 1.0;
            } else if (f.type == 3 && f.clampDepth && span_ != 0) {
                t = std::min((value - base_) / span_, 1.0);
            } else {
                t = (value - base_) / span_;
            }
        }
        if (pointForm && f.inverted) {
            if (background) {
                out[i] = 0.0f;
                continue;
            }
            t = 1.0 - t;
        }
        // A span of 0 gives an infinite t whose sign decides; 0 / 0 counts as no visibility.
        out[i] = std::isnan(t) ? 0.0f : t <= 0 ? 0.0f : t >= 1 ? 1.0f : static_cast<float>(t);
    }
    if (f.amount != 0) {
        for (int i = first; i < last; ++i) {
            out[i] = out[i] * (1.0f - f.amount) + f.amount;
        }
    }
}

void Fog::run(Span& span, int first, int last) {
    if (!settings_.transparent || first >= last) {
        return;
    }
    visibility(span, first, last, visibilityRow);
    for (int i = first; i < last; ++i) {
        span.alpha[i] *= visibilityRow[i];
    }
}

void Fog::runLate(Span& span, int first, int last) {
    if (settings_.transparent || first >= last) {
        return;
    }
    visibility(span, first, last, visibilityRow);
    std::fill(fogRow + first, fogRow + last, settings_.colour);
    blendNormal(span.colour, fogRow, span.colour, visibilityRow, 1.0f, first, last);
}
