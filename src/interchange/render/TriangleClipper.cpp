#include "interchange/render/TriangleClipper.h"

#include "views/cameras/Camera.h"

namespace {

/// Orders two points by their coordinates, so that an edge is cut the same way by every
/// triangle that has it.
bool before(const Point<3>& a, const Point<3>& b) {
    if (a.x() != b.x()) {
        return a.x() < b.x();
    }
    if (a.y() != b.y()) {
        return a.y() < b.y();
    }
    return a.z() < b.z();
}

} // namespace

TriangleClipper::TriangleClipper(const Camera& camera, const DepthCoder& coder, std::int32_t width,
                                 std::int32_t height, const SectionBox& sectionBox,
                                 const Extent<3>& bounds) {
    const double w = width;
    const double h = height;
    const double zNear = coder.zAt(0);
    const double zFar = coder.zAt(depth::codeSpan);
    const double zMid = coder.zAt(depth::codeSpan / 2);
    const Point<3> inside = camera.unproject(Point<3>((w - 1) / 2, (h - 1) / 2, zMid));
    auto facingInside = [&](const Point<3>& a, const Point<3>& b, const Point<3>& c) {
        const Plane plane(a, b, c);
        return plane.distanceTo(inside) >= 0 ? plane : -plane;
    };
    auto across = [&](double z) {
        return facingInside(camera.unproject(Point<3>(0, 0, z)),
                            camera.unproject(Point<3>(w, 0, z)),
                            camera.unproject(Point<3>(0, h, z)));
    };
    planes_.push_back(across(zNear));
    planes_.push_back(across(zFar));
    const double guard = 2 * (w + h) + 16;
    auto side = [&](double x0, double y0, double x1, double y1) {
        return facingInside(camera.unproject(Point<3>(x0, y0, zMid)),
                            camera.unproject(Point<3>(x1, y1, zMid)),
                            camera.unproject(Point<3>(x0, y0, zFar)));
    };
    planes_.push_back(side(-guard, 0, -guard, h));
    planes_.push_back(side(w + guard, 0, w + guard, h));
    planes_.push_back(side(0, -guard, w, -guard));
    planes_.push_back(side(0, h + guard, w, h + guard));

    const SectionBox& f = sectionBox;
    const bool empty = f[3] <= f[0] || f[4] <= f[1] || f[5] <= f[2];
    if (empty || bounds.degenerate()) {
        return;
    }
    for (int axis = 0; axis < 3; ++axis) {
        Vector<3> up;
        up[axis] = 1;
        const double lo = bounds.lo()[axis];
        const double hi = bounds.hi()[axis];
        if (f[axis] > 0) {
            Point<3> at;
            at[axis] = lo * (1 - f[axis]) + hi * f[axis];
            planes_.push_back(Plane(up, at));
        }
        if (f[axis + 3] < 1) {
            Point<3> at;
            at[axis] = lo * (1 - f[axis + 3]) + hi * f[axis + 3];
            planes_.push_back(Plane(-up, at));
        }
    }
}

std::uint32_t TriangleClipper::outsideOf(const Point<3>& p, std::size_t first) const {
    std::uint32_t out = 0;
    for (std::size_t k = first; k < planes_.size(); ++k) {
        if (planes_[k].distanceTo(p) < 0) {
            out |= 1u << k;
        }
    }
    return out;
}

std::uint32_t TriangleClipper::sectionBits() const {
    std::uint32_t bits = 0;
    for (std::size_t k = viewPlaneCount; k < planes_.size(); ++k) {
        bits |= 1u << k;
    }
    return bits;
}

int TriangleClipper::clip(std::vector<ScreenVertex>& polygon, std::uint32_t outside) {
    for (std::size_t k = 0; k < planes_.size() && !polygon.empty(); ++k) {
        if (!(outside & (1u << k))) {
            continue;
        }
        const Plane& plane = planes_[k];
        scratch_.clear();
        const std::size_t n = polygon.size();
        for (std::size_t i = 0; i < n; ++i) {
            const ScreenVertex& a = polygon[i];
            const ScreenVertex& b = polygon[(i + 1) % n];
            const double da = plane.distanceTo(a.p);
            const double db = plane.distanceTo(b.p);
            if (da >= 0) {
                scratch_.push_back(a);
            }
            if ((da >= 0) != (db >= 0)) {
                // The new corner from the edge's ends in a fixed order.
                const bool swap = before(b.p, a.p);
                const ScreenVertex& s = swap ? b : a;
                const ScreenVertex& e = swap ? a : b;
                const double ds = swap ? db : da;
                const double de = swap ? da : db;
                const double t = ds / (ds - de);
                ScreenVertex v;
                v.p = Point<3>(s.p.x() + (e.p.x() - s.p.x()) * t, s.p.y() + (e.p.y() - s.p.y()) * t,
                               s.p.z() + (e.p.z() - s.p.z()) * t);
                v.n = s.n + (e.n - s.n) * t;
                v.projected = false;
                scratch_.push_back(v);
            }
        }
        polygon.swap(scratch_);
    }
    return static_cast<int>(polygon.size());
}
