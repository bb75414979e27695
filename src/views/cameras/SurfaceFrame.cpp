#include "views/cameras/SurfaceFrame.h"

#include "views/cameras/ViewProj.h"

#include <cmath>

SurfaceFrame::SurfaceFrame(const Plane& plane, const ViewProj& view, double tolerance)
    : plane_(plane) {
    if (view.viewType() == ViewProj::unknownView) {
        return;
    }
    const double worldTolerance = tolerance * distance(view.worldFromPixel(0, 0, depth::farCode),
                                                       view.worldFromPixel(1, 1, depth::farCode));

    // The plane n.p = dist over homogeneous points p = h M + t: (M n).h = dist - n.t. The
    // length of M n turns distances in homogeneous space into world distances.
    const Vector<3>& n = plane.normal();
    const Matrix<3>& M = view.toWorld().linear();
    const Vector<3> hn(dot(M.row(0), n), dot(M.row(1), n), dot(M.row(2), n));
    const double scale = hn.length();
    const double A = hn.x() / scale;
    const double B = hn.y() / scale;
    const double C = hn.z() / scale;
    const double D = (plane.distanceFromOrigin() - dot(n, view.toWorld().translation())) / scale;
    scale_ = scale;
    tolerance_ = worldTolerance / scale;

    switch (view.viewType()) {
    case ViewProj::perspectiveView: {
        // With d >= 0 the plane is in front of the eye where w > 0, whichever way its
        // normal points.
        const double sign = D < 0 ? -1 : 1;
        kind_ = perspectivePlane;
        a_ = sign * A;
        b_ = sign * B;
        c_ = sign * C;
        d_ = sign * D;
        scale_ *= sign;
        e_ = -view.depthOffset();
        break;
    }
    case ViewProj::cubicView: {
        // Taken as it faces: a surface plane's normal points away from the eye (d > 0), and
        // then it is seen where w > 0. A plane facing the eye isn't seen on the cube.
        const double over = 1.0 / (view.faceSize().size() - 1);
        kind_ = cubicPlane;
        faceSize_ = view.faceSize().size();
        a_ = A * over;
        b_ = B * over;
        c_ = C * over;
        d_ = D;
        e_ = -view.depthOffset();
        break;
    }
    case ViewProj::parallelView:
        if (std::fabs(C) < 1e-20) {
            kind_ = edgeOnPlane;
            a_ = A;
            b_ = B;
            d_ = -D;
        } else {
            // Solved for the code. The tolerance along the code axis takes C's sign with
            // the scale, so it is negative for a plane whose normal faces the eye; the
            // bounds of classify don't depend on their order.
            kind_ = parallelPlane;
            a_ = -A / C;
            b_ = -B / C;
            d_ = D / C;
            tolerance_ /= C;
            scale_ *= C;
        }
        break;
    case ViewProj::unknownView:
        break;
    }
}

double SurfaceFrame::wAt(double x, double y) const {
    if (kind_ == perspectivePlane) {
        return a_ * x + b_ * y + c_;
    }
    // On the face of the pixel: (u, v, n) are its face coordinates scaled by the edge.
    const double size = faceSize_;
    const double column = std::floor(x / size);
    int face = static_cast<int>(std::fmod(column, 6.0));
    if (face < 0) {
        face += 6;
    }
    const double u = 2 * x - (2 * column + 1) * size + 1;
    const double v = size - 2 * y - 1;
    const double n = size - 1;
    switch (face) {
    case 0:
        return u * a_ + v * b_ + n * c_;
    case 1:
        return v * b_ - u * c_ + n * a_;
    case 2:
        return v * b_ - u * a_ - n * c_;
    case 3:
        return v * b_ + u * c_ - n * a_;
    case 4:
        return u * a_ - v * c_ + n * b_;
    default:
        return u * a_ + v * c_ - n * b_;
    }
}

bool SurfaceFrame::depthCode(const Point<2>& p, double& code) const {
    switch (kind_) {
    case perspectivePlane:
    case cubicPlane: {
        const double w = wAt(p.x(), p.y());
        if (!(w > 0)) {
            return false;
        }
        code = d_ / w + e_;
        return code >= 0;
    }
    case parallelPlane:
        code = a_ * p.x() + b_ * p.y() + d_;
        return code > 0;
    case emptyFrame:
    case edgeOnPlane:
        break;
    }
    return false;
}

bool SurfaceFrame::depthCode(std::int32_t x, std::int32_t y, std::uint32_t& code) const {
    double real = 0;
    if (!depthCode(Point<2>(x, y), real)) {
        return false;
    }
    code = real >= 4294967295.0 ? depth::noDepth : static_cast<std::uint32_t>(std::lround(real));
    return true;
}

SurfaceFrame::Side SurfaceFrame::classify(const Point<3>& pixel) const {
    const double x = pixel.x();
    const double y = pixel.y();
    const double code = pixel.z();
    double lo = 0;
    double hi = 0;
    switch (kind_) {
    case emptyFrame:
        return onPlane;
    case edgeOnPlane:
        return std::fabs(a_ * x + b_ * y + d_) < tolerance_ ? onPlane : notVisible;
    case perspectivePlane:
    case cubicPlane: {
        const double w = wAt(x, y);
        if (!(w > 0) || d_ / w + e_ < 0) {
            return notVisible;
        }
        lo = (d_ - tolerance_) / w + e_;
        hi = (d_ + tolerance_) / w + e_;
        break;
    }
    case parallelPlane: {
        const double planeCode = a_ * x + b_ * y + d_;
        if (!(planeCode > 0)) {
            return notVisible;
        }
        lo = planeCode - std::fabs(tolerance_);
        hi = planeCode + std::fabs(tolerance_);
        break;
    }
    }
    if (code >= 4294967295.0 || code > hi) {
        return beyond;
    }
    return code < lo ? nearer : onPlane;
}

double SurfaceFrame::signedDistance(const Point<3>& pixel) const {
    const double x = pixel.x();
    const double y = pixel.y();
    const double code = pixel.z();
    switch (kind_) {
    case perspectivePlane:
    case cubicPlane:
        return (wAt(x, y) * (code - e_) - d_) * scale_;
    case parallelPlane:
        return (code - a_ * x - b_ * y - d_) * scale_;
    case edgeOnPlane:
        return (a_ * x + b_ * y + d_) * scale_;
    case emptyFrame:
        break;
    }
    return 0;
}
