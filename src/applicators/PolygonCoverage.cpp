#include "applicators/PolygonCoverage.h"

#include "core/Reporter.h"
#include "image/ZmapDocument.h"
#include "pipeline/Applicator.h"

#include <algorithm>
#include <cmath>

namespace {

/// Rows painted between two looks at the stop request.
constexpr std::int32_t rowsPerPoll = 32;

/// Distance from p to the segment a-b.
double segmentDistance(const Point<2>& p, const Point<2>& a, const Point<2>& b) {
    const Vector<2> ab = b - a;
    const double l2 = ab.lengthSquared();
    double t = l2 > 0 ? dot(p - a, ab) / l2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    return (p - (a + ab * t)).length();
}

} // namespace

const double PolygonCoverage::margin = std::sqrt(0.5);

void PolygonCoverage::addContour(const std::vector<Point<2>>& points) {
    if (points.size() < 2) {
        return;
    }
    for (const Point<2>& p : points) {
        if (!p.isFinite()) {
            return;
        }
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Point<2>& a = points[i];
        const Point<2>& b = points[(i + 1) % points.size()];
        edges_.push_back(Edge{a, b});
        box_ |= Extent<2>(a);
    }
}

IExtent<2> PolygonCoverage::bounds() const {
    if (edges_.empty()) {
        return IExtent<2>();
    }
    const double grow = antiAlias_ ? margin : 0.0;
    // Coordinates far outside any image are held back so that they convert safely.
    constexpr double limit = 1.0e9;
    auto lo = [&](double v) {
        return static_cast<std::int32_t>(std::ceil(std::clamp(v - grow, -limit, limit)));
    };
    auto hi = [&](double v) {
        return static_cast<std::int32_t>(std::floor(std::clamp(v + grow, -limit, limit)));
    };
    return IExtent<2>(lo(box_.lo().x()), lo(box_.lo().y()), hi(box_.hi().x()), hi(box_.hi().y()));
}

void PolygonCoverage::row(std::int32_t y, std::int32_t x0, std::int32_t count, float* out) const {
    std::fill(out, out + count, 0.0f);
    if (count <= 0 || edges_.empty()) {
        return;
    }
    const double yc = y;
    const std::int64_t first = x0;
    const std::int64_t last = std::int64_t(x0) + count - 1;

    // Inside by the crossings of the row through the pixel centres.
    crossings_.clear();
    for (const Edge& e : edges_) {
        const double y0 = std::min(e.a.y(), e.b.y());
        const double y1 = std::max(e.a.y(), e.b.y());
        if (y0 == y1 || yc < y0 || yc >= y1) {
            continue;
        }
        crossings_.push_back(e.a.x() + (yc - e.a.y()) * (e.b.x() - e.a.x()) / (e.b.y() - e.a.y()));
    }
    std::sort(crossings_.begin(), crossings_.end());
    for (std::size_t k = 0; k + 1 < crossings_.size(); k += 2) {
        const double from = std::ceil(crossings_[k]);
        const double to = std::ceil(crossings_[k + 1]) - 1;
        const std::int64_t a = std::max<std::int64_t>(
            first, static_cast<std::int64_t>(std::max(from, static_cast<double>(first))));
        const std::int64_t b = std::min<std::int64_t>(
            last, static_cast<std::int64_t>(std::min(to, static_cast<double>(last))));
        for (std::int64_t x = a; x <= b; ++x) {
            out[x - first] = 1.0f;
        }
    }
    if (!antiAlias_) {
        return;
    }

    // The margin: only pixels near an edge are measured, edge by edge.
    for (const Edge& e : edges_) {
        const double ylo = yc - margin;
        const double yhi = yc + margin;
        double xa = 0;
        double xb = 0;
        const double dy = e.b.y() - e.a.y();
        if (dy == 0) {
            if (e.a.y() < ylo || e.a.y() > yhi) {
                continue;
            }
            xa = std::min(e.a.x(), e.b.x());
            xb = std::max(e.a.x(), e.b.x());
        } else {
            // The part of the edge within the slab of rows the margin reaches.
            double t0 = (ylo - e.a.y()) / dy;
            double t1 = (yhi - e.a.y()) / dy;
            if (t0 > t1) {
                std::swap(t0, t1);
            }
            t0 = std::max(t0, 0.0);
            t1 = std::min(t1, 1.0);
            if (t0 > t1) {
                continue;
            }
            const double xs = e.a.x() + t0 * (e.b.x() - e.a.x());
            const double xe = e.a.x() + t1 * (e.b.x() - e.a.x());
            xa = std::min(xs, xe);
            xb = std::max(xs, xe);
        }
        const double from = std::max(std::ceil(xa - margin), static_cast<double>(first));
        const double to = std::min(std::floor(xb + margin), static_cast<double>(last));
        for (std::int64_t x = static_cast<std::int64_t>(from); x <= static_cast<std::int64_t>(to);
             ++x) {
            float& c = out[x - first];
            if (c >= 1.0f) {
                continue;
            }
            const double d = segmentDistance(Point<2>(static_cast<double>(x), yc), e.a, e.b);
            const float v = static_cast<float>(1.0 - d / margin);
            if (v > c) {
                c = v;
            }
        }
    }
}

IExtent<2> PolygonCoverage::paint(Applicator& applicator, ZmapDocument& document) const {
    IExtent<2> area = bounds() & IExtent<2>(0, 0, document.width() - 1, document.height() - 1);
    IExtent<2> changed;
    if (area.degenerate()) {
        return changed;
    }
    const std::int32_t x0 = area.lo().x;
    const auto count = static_cast<std::int32_t>(area.width());
    std::vector<float> coverage(static_cast<std::size_t>(count));
    for (std::int32_t y = area.lo().y; y <= area.hi().y && !applicator.abandoned; ++y) {
        row(y, x0, count, coverage.data());
        changed |= applicator.paintRow(document, x0, y, 0, count, coverage.data());
        if ((y - area.lo().y + 1) % rowsPerPoll == 0 && TQL::stopRequested()) {
            applicator.abandon();
        }
    }
    return changed;
}
