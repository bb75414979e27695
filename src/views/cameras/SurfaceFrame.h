#pragma once

#include "core/Plane.h"
#include "core/Point.h"

#include <cmath>
#include <cstdint>
#include <type_traits>

class ViewProj;

/// A world plane as the image sees it: its depth code at any pixel, and whether a pixel
/// with a given depth code lies before, on or beyond it. Built once from a plane and a
/// view, then asked pixel by pixel; a plain value, copied whole.
///
/// The plane is held as a linear form over homogeneous coordinates, specialised by kind:
///   1 perspective:  w(x, y) = a x + b y + c, plane code = d / w + e
///   2 parallel, plane seen edge on: on the plane where |a x + b y + d| < tolerance
///   3 parallel:     plane code = a x + b y + d
///   4 cubic:        w taken on the pixel's face from its direction, code = d / w + e;
///                   the plane as it faces: seen only where its normal points away from
///                   the eye, as the normals of surface planes (planeAt) do
/// A default-constructed frame is empty (kind 0): every pixel classifies as on it.
class SurfaceFrame {
public:
    enum Kind : std::int32_t {
        emptyFrame = 0,
        perspectivePlane = 1,
        edgeOnPlane = 2,
        parallelPlane = 3,
        cubicPlane = 4,
    };
    /// Answers of classify.
    enum Side : int {
        notVisible = 0, ///< the plane isn't visible at this pixel
        beyond = 1,     ///< the pixel lies beyond the plane by more than the tolerance,
                        ///< or has no depth
        onPlane = 2,    ///< within the tolerance of the plane
        nearer = 3,     ///< the pixel lies nearer than the plane by more than the tolerance
    };

    SurfaceFrame() = default;
    /// `plane` in world coordinates. `tolerance` is a fraction of the world distance
    /// between the points of pixels (0, 0) and (1, 1) at the far depth code.
    SurfaceFrame(const Plane& plane, const ViewProj& view, double tolerance);

    const Plane& plane() const { return plane_; }
    Kind kind() const { return kind_; }
    /// The tolerance in the units the kind compares in (homogeneous w, or depth code). For
    /// kind 3 it carries the sign of the plane's facing: negative when its normal points
    /// towards the eye.
    double tolerance() const { return tolerance_; }

    /// The plane's depth code at a pixel; false where the plane isn't visible there or has
    /// no code (seen edge on). Codes of 4294967295.0 or more are given as 4294967295.
    bool depthCode(std::int32_t x, std::int32_t y, std::uint32_t& code) const;
    /// The same at a real pixel position, unrounded and unlimited.
    bool depthCode(const Point<2>& p, double& code) const;

    /// Compares a pixel's depth code with the plane (see Side).
    Side classify(std::int32_t x, std::int32_t y, std::uint32_t code) const {
        return classify(Point<3>(x, y, code));
    }
    /// The same with (x, y, code) as reals; a code of 4294967295.0 or more has no depth.
    Side classify(const Point<3>& pixel) const;

    /// The world distance of a pixel's point from the plane, positive on the side the
    /// plane's normal points to.
    double signedDistance(std::int32_t x, std::int32_t y, std::uint32_t code) const {
        return signedDistance(Point<3>(x, y, code));
    }
    double signedDistance(const Point<3>& pixel) const;

private:
    /// The denominator of the code at (x, y) for kinds 1 and 4.
    double wAt(double x, double y) const;

    Plane plane_;
    Kind kind_ = emptyFrame;
    double a_ = 0;
    double b_ = 0;
    double c_ = 0;
    double d_ = 0;
    double tolerance_ = 0;
    double e_ = 0;
    std::int32_t faceSize_ = 0;
    double scale_ = 0;
};

static_assert(std::is_trivially_copyable_v<SurfaceFrame>);
