#pragma once

#include "core/Handle.h"
#include "core/Point.h"
#include "core/Transform.h"
#include "views/cameras/FaceSize.h"
#include "views/cameras/ViewParams.h"

#include <cstdint>

/// The immutable conversion between pixels with their depth codes, homogeneous
/// coordinates and world points of one view. Built from a view record and the image size
/// whenever either changes; shared read-only between threads by handle.
///
/// Homogeneous coordinates (u, v, w) sit between pixels and the world: the map from
/// pixels to homogeneous space carries the projective part, and `toWorld` is affine.
///   perspective: (x w, y w, w) with w = code + depthOffset
///   parallel:    (x, y, code)
///   cubic:       d w, d the pixel's direction (dominant component of magnitude 1)
/// The per-pixel conversions are plain branches on the view type: no virtual call.
class ViewProj : public TQL::Handlable {
public:
    /// View types; an unknown view code gives `unknownView`, on which every conversion
    /// returns the origin and clipping shows nothing.
    enum ViewType : std::int32_t {
        unknownView = -1,
        perspectiveView = 0,
        parallelView = 1,
        cubicView = 2,
    };

    /// Results of clipSegment.
    enum ClipResult : int {
        clipNothing = 0,    ///< nothing is visible
        clipKeepsStart = 1, ///< visible from a to a computed end: out[0], out[1]
        clipKeepsEnd = 2,   ///< visible from a computed start to b: out[0], out[1]
        clipWhole = 3,      ///< the whole segment: out[0], out[1]
        clipTwoPieces = 4,  ///< cubic only: out[0]-out[1] and out[2]-out[3]
    };

    /// The largest pixel coordinate a clipped segment may reach (2 to the 26th, less 1).
    static constexpr double pixelLimit = 67108863.0;

    /// width and height are the image size in pixels (at least 2 each); a cube image
    /// is six square faces side by side.
    ViewProj(const ViewParams& params, std::int32_t width, std::int32_t height);

    /// The view type of a record's view code.
    static ViewType viewTypeOf(std::uint32_t viewCode);

    ViewType viewType() const { return viewType_; }
    std::int32_t width() const { return width_; }
    std::int32_t height() const { return height_; }
    /// The face layout of a cube image (size 0 for other views).
    const FaceSize& faceSize() const { return faceSize_; }
    /// nearDepth / depthStep for perspective and cubic views, 0 for parallel ones.
    double depthOffset() const { return depthOffset_; }
    /// World distance of one depth code step: (farDepth - nearDepth) / 4294967294.
    double depthStep() const { return depthStep_; }
    /// Homogeneous coordinates to world, and back.
    const NonUniformTransform<3>& toWorld() const { return toWorld_; }
    const NonUniformTransform<3>& fromWorld() const { return fromWorld_; }

    /// A pixel and its depth code (taken at its full unsigned value, so 4294967295 is a
    /// very far point) in homogeneous coordinates.
    Point<3> homogeneousFromPixel(std::int32_t x, std::int32_t y, std::uint32_t code) const {
        return homogeneousFromPixelPoint(Point<3>(x, y, code));
    }
    /// The same with real pixel coordinates and a real depth code in p.z.
    Point<3> homogeneousFromPixelPoint(const Point<3>& p) const {
        switch (viewType_) {
        case perspectiveView: {
            const double w = p.z() + depthOffset_;
            return {p.x() * w, p.y() * w, w};
        }
        case parallelView:
            return p;
        case cubicView:
            return cubicHomogeneous(p);
        case unknownView:
            break;
        }
        return Point<3>::m_origin;
    }
    /// (x, y, depth code) as reals.
    Point<3> pixelFromHomogeneous(const Point<3>& h) const;

    Point<3> worldFromPixel(std::int32_t x, std::int32_t y, std::uint32_t code) const {
        return apply(toWorldRows_, homogeneousFromPixel(x, y, code));
    }
    Point<3> worldFromPixelPoint(const Point<3>& p) const {
        return apply(toWorldRows_, homogeneousFromPixelPoint(p));
    }
    /// (x, y, depth code) as reals; round where an integer pixel is wanted.
    Point<3> pixelFromWorld(const Point<3>& world) const {
        return pixelFromHomogeneous(apply(fromWorldRows_, world));
    }
    /// A world vector at a world point as a vector in pixel space (x, y, code).
    Vector<3> pixelVector(const Vector<3>& direction, const Point<3>& at) const;

    /// The direction of a cube pixel in view-axis coordinates, its dominant component of
    /// magnitude 1. Columns wrap around the strip.
    Vector<3> pixelDirection(double x, double y) const;

    /// The drawable part of the world segment a-b, in homogeneous coordinates (see
    /// ClipResult). `useNear` also clips at nearDepth instead of just in front of the eye.
    int clipSegment(const Point<3>& a, const Point<3>& b, bool useNear, Point<3> out[4]) const;
    /// clipSegment, with its first piece as pixels (x, y, code). A result of 0 leaves
    /// pixelA and pixelB unchanged.
    int clipSegmentToPixels(Point<3>& pixelA, Point<3>& pixelB, const Point<3>& a,
                            const Point<3>& b, bool useNear) const;

private:
    /// p times the rows of a packed affine transform (three linear rows, then translation).
    static Point<3> apply(const double (&m)[4][3], const Point<3>& p) {
        return {p.x() * m[0][0] + p.y() * m[1][0] + p.z() * m[2][0] + m[3][0],
                p.x() * m[0][1] + p.y() * m[1][1] + p.z() * m[2][1] + m[3][1],
                p.x() * m[0][2] + p.y() * m[1][2] + p.z() * m[2][2] + m[3][2]};
    }
    Point<3> cubicHomogeneous(const Point<3>& p) const;
    Point<3> cubicPixel(const Point<3>& h) const;

    ViewType viewType_ = unknownView;
    std::int32_t width_ = 0;
    std::int32_t height_ = 0;
    FaceSize faceSize_;
    double depthOffset_ = 0;
    NonUniformTransform<3> toWorld_;
    NonUniformTransform<3> fromWorld_;
    double depthStep_ = 0;
    // toWorld and fromWorld packed for the per-pixel conversions.
    double toWorldRows_[4][3] = {};
    double fromWorldRows_[4][3] = {};
};
