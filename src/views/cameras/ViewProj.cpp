#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>

namespace {

NonUniformTransform<3> affine(const Vector<3>& r0, const Vector<3>& r1, const Vector<3>& r2,
                              const Point<3>& origin) {
    const Vector<3> rows[3] = {r0, r1, r2};
    return NonUniformTransform<3>(Matrix<3>::rows(rows), toVector(origin));
}

/// Pixel steps between the first and last pixel of a row or column of n pixels.
double spanOf(std::int32_t n) {
    return std::max(n - 1, 1);
}

/// Linear constraints g(h) >= 0 on homogeneous points, for the clipping of a segment
/// against the drawable region; g is taken at both ends.
struct Limits {
    double atA[5];
    double atB[5];
    int count = 0;

    void add(double a, double b) {
        atA[count] = a;
        atB[count] = b;
        ++count;
    }
    /// The segment's parameter where it leaves the region (coming from an inside end a),
    /// or enters it (going to an inside end b): the tightest crossing.
    double exitParameter() const {
        double t = 1;
        for (int i = 0; i < count; ++i) {
            if (atA[i] >= 0 && atB[i] < 0) {
                t = std::min(t, atA[i] / (atA[i] - atB[i]));
            }
        }
        return t;
    }
    double entryParameter() const {
        double t = 0;
        for (int i = 0; i < count; ++i) {
            if (atA[i] < 0 && atB[i] >= 0) {
                t = std::max(t, atA[i] / (atA[i] - atB[i]));
            }
        }
        return t;
    }
};

int clipToLimits(const Point<3>& ha, const Point<3>& hb, bool insideA, bool insideB,
                 const Limits& limits, Point<3> out[4]) {
    if (insideA && insideB) {
        out[0] = ha;
        out[1] = hb;
        return ViewProj::clipWhole;
    }
    if (!insideA && !insideB) {
        return ViewProj::clipNothing;
    }
    if (insideA) {
        out[0] = ha;
        out[1] = interp(ha, hb, limits.exitParameter());
        return ViewProj::clipKeepsStart;
    }
    out[0] = interp(ha, hb, limits.entryParameter());
    out[1] = hb;
    return ViewProj::clipKeepsEnd;
}

} // namespace

ViewProj::ViewType ViewProj::viewTypeOf(std::uint32_t viewCode) {
    switch (viewCode) {
    case ViewParams::perspectiveCode:
        return perspectiveView;
    case ViewParams::parallelCode:
        return parallelView;
    case ViewParams::cubicCode:
        return cubicView;
    default:
        return unknownView;
    }
}

ViewProj::ViewProj(const ViewParams& params, std::int32_t width, std::int32_t height)
    : viewType_(viewTypeOf(params.viewCode)), width_(width), height_(height),
      faceSize_(viewType_ == cubicView ? width / 6 : 0) {
    const Vector<3> X = params.xAxis.unit();
    const Vector<3> Y = params.yAxis.unit();
    const Vector<3> Z = params.zAxis.unit();
    depthStep_ = (params.farDepth - params.nearDepth) / depth::codeSpan;
    const Point<3>& lo = params.windowLo;
    const Point<3>& hi = params.windowHi;

    switch (viewType_) {
    case perspectiveView: {
        // (u, v, w) -> eye + depthStep (u dx X + v dy Y + w (Z + lox X + loy Y)): at pixel
        // (x, y) with w = code + depthOffset the point lies at distance
        // nearDepth + code depthStep along Z, on the ray through window point (x dx, y dy).
        const double lox = lo.x() / lo.z();
        const double loy = lo.y() / lo.z();
        const double dx = (hi.x() / hi.z() - lox) / spanOf(width);
        const double dy = (hi.y() / hi.z() - loy) / spanOf(height);
        depthOffset_ = params.nearDepth / depthStep_;
        toWorld_ = affine(X * (depthStep_ * dx), Y * (depthStep_ * dy),
                          (Z + X * lox + Y * loy) * depthStep_, params.eye);
        break;
    }
    case parallelView: {
        // Points move along the direction of projection D as the code grows; the window is
        // measured in the frame sheared along D, at the foot (w = 0) of the view axis.
        const double sx = params.shear.x() / params.shear.z();
        const double sy = params.shear.y() / params.shear.z();
        const double loX = lo.x() - lo.z() * sx;
        const double loY = lo.y() - lo.z() * sy;
        const double dx = (hi.x() - hi.z() * sx - loX) / spanOf(width);
        const double dy = (hi.y() - hi.z() * sy - loY) / spanOf(height);
        const Vector<3> D = Z + X * sx + Y * sy;
        depthOffset_ = 0;
        toWorld_ = affine(X * dx, Y * dy, D * depthStep_,
                          params.eye + D * params.nearDepth + X * loX + Y * loY);
        break;
    }
    case cubicView:
        depthOffset_ = params.nearDepth / depthStep_;
        toWorld_ = affine(X * depthStep_, Y * depthStep_, Z * depthStep_, params.eye);
        break;
    case unknownView:
        break;
    }
    fromWorld_ = toWorld_.inverse();
    toWorld_.packToPod(toWorldRows_);
    fromWorld_.packToPod(fromWorldRows_);
}

Vector<3> ViewProj::pixelDirection(double x, double y) const {
    const double n = faceSize_.size();
    const double column = std::floor(x / n);
    const auto whole = static_cast<std::int64_t>(column);
    const int face = static_cast<int>(((whole % 6) + 6) % 6);
    // Exact -1 and 1 on the first and last pixel of a face, so that the copies of an edge
    // pixel look exactly the same way.
    const double edge = n - 1;
    const double a = (2 * (x - column * n) - edge) / edge;
    const double b = (edge - 2 * y) / edge;
    switch (face) {
    case 0:
        return {a, b, 1};
    case 1:
        return {1, b, -a};
    case 2:
        return {-a, b, -1};
    case 3:
        return {-1, b, a};
    case 4:
        return {a, 1, -b};
    default:
        return {a, -1, b};
    }
}

Point<3> ViewProj::cubicHomogeneous(const Point<3>& p) const {
    return toPoint(pixelDirection(p.x(), p.y()) * (p.z() + depthOffset_));
}

Point<3> ViewProj::cubicPixel(const Point<3>& h) const {
    const double x = h.x();
    const double y = h.y();
    const double z = h.z();
    const double ax = std::fabs(x);
    const double ay = std::fabs(y);
    const double az = std::fabs(z);
    const double size = faceSize_.size();
    const double half = (size - 1) / 2;
    // Ties go to y over x, and to z over both, so that |x| = |y| = |z| is z-dominant.
    if (ay < ax && az < ax) {
        if (x > 0) {
            return {(1 - z / x) * half + size, (1 - y / x) * half, ax - depthOffset_};
        }
        return {(1 - z / x) * half + 3 * size, (1 + y / x) * half, ax - depthOffset_};
    }
    if (ax <= ay && az < ay) {
        if (y > 0) {
            return {(x / y + 1) * half + 4 * size, (1 + z / y) * half, ay - depthOffset_};
        }
        return {(1 - x / y) * half + 5 * size, (1 + z / y) * half, ay - depthOffset_};
    }
    if (z > 0) {
        return {(x / z + 1) * half, (1 - y / z) * half, az - depthOffset_};
    }
    return {(x / z + 1) * half + 2 * size, (1 + y / z) * half, az - depthOffset_};
}

Point<3> ViewProj::pixelFromHomogeneous(const Point<3>& h) const {
    switch (viewType_) {
    case perspectiveView:
        return {h.x() / h.z(), h.y() / h.z(), h.z() - depthOffset_};
    case parallelView:
        return h;
    case cubicView:
        return cubicPixel(h);
    case unknownView:
        break;
    }
    return Point<3>::m_origin;
}

Vector<3> ViewProj::pixelVector(const Vector<3>& direction, const Point<3>& at) const {
    if (viewType_ == parallelView) {
        return direction * fromWorld_;
    }
    return pixelFromWorld(at + direction) - pixelFromWorld(at);
}

int ViewProj::clipSegment(const Point<3>& a, const Point<3>& b, bool useNear,
                          Point<3> out[4]) const {
    const Point<3> ha = fromWorld_.multiply(a);
    const Point<3> hb = fromWorld_.multiply(b);
    const double L = pixelLimit;
    const double nearLimit = useNear ? std::max(0.001, depthOffset_) : 0.001;

    switch (viewType_) {
    case perspectiveView: {
        const auto inside = [&](const Point<3>& h) {
            return h.z() >= nearLimit && std::fabs(h.x() / h.z()) < L &&
                   std::fabs(h.y() / h.z()) < L;
        };
        // With w > 0, |u/w| < L is L w - u > 0 and L w + u > 0: linear along the segment.
        Limits limits;
        limits.add(ha.z() - nearLimit, hb.z() - nearLimit);
        for (int k = 0; k < 2; ++k) {
            limits.add(L * ha.z() - ha[k], L * hb.z() - hb[k]);
            limits.add(L * ha.z() + ha[k], L * hb.z() + hb[k]);
        }
        return clipToLimits(ha, hb, inside(ha), inside(hb), limits, out);
    }
    case parallelView: {
        const auto inside = [&](const Point<3>& h) {
            return (!useNear || h.z() >= depthOffset_) && std::fabs(h.x()) < L &&
                   std::fabs(h.y()) < L;
        };
        Limits limits;
        if (useNear) {
            limits.add(ha.z() - depthOffset_, hb.z() - depthOffset_);
        }
        for (int k = 0; k < 2; ++k) {
            limits.add(L - ha[k], L - hb[k]);
            limits.add(L + ha[k], L + hb[k]);
        }
        return clipToLimits(ha, hb, inside(ha), inside(hb), limits, out);
    }
    case cubicView: {
        // Everything is visible in a panorama except what passes within nearLimit of the
        // eye: cut out the part of the segment in that box by the slab method.
        double t0 = 0;
        double t1 = 1;
        for (int k = 0; k < 3; ++k) {
            const double d = hb[k] - ha[k];
            if (d == 0) {
                if (ha[k] < -nearLimit || ha[k] > nearLimit) {
                    t0 = 1;
                    t1 = 0;
                    break;
                }
                continue;
            }
            double ta = (-nearLimit - ha[k]) / d;
            double tb = (nearLimit - ha[k]) / d;
            if (ta > tb) {
                std::swap(ta, tb);
            }
            t0 = std::max(t0, ta);
            t1 = std::min(t1, tb);
        }
        if (t0 > t1) {
            out[0] = ha;
            out[1] = hb;
            return clipWhole;
        }
        if (t0 == 0 && t1 == 1) {
            return clipNothing;
        }
        if (t1 == 1) {
            out[0] = ha;
            out[1] = interp(ha, hb, t0);
            return clipKeepsStart;
        }
        if (t0 == 0) {
            out[0] = interp(ha, hb, t1);
            out[1] = hb;
            return clipKeepsEnd;
        }
        out[0] = ha;
        out[1] = interp(ha, hb, t0);
        out[2] = interp(ha, hb, t1);
        out[3] = hb;
        return clipTwoPieces;
    }
    case unknownView:
        break;
    }
    return clipNothing;
}

int ViewProj::clipSegmentToPixels(Point<3>& pixelA, Point<3>& pixelB, const Point<3>& a,
                                  const Point<3>& b, bool useNear) const {
    Point<3> out[4];
    const int result = clipSegment(a, b, useNear, out);
    if (result != clipNothing) {
        pixelA = pixelFromHomogeneous(out[0]);
        pixelB = pixelFromHomogeneous(out[1]);
    }
    return result;
}
