#pragma once

#include "core/Handle.h"
#include "core/Plane.h"
#include "core/Point.h"
#include "core/Transform.h"
#include "views/cameras/DepthCoder.h"
#include "views/cameras/Ray.h"
#include "views/cameras/ViewParams.h"

#include <cstdint>
#include <memory>

/// What the model renderer draws through: object points to screen coordinates (pixels in
/// x and y, a depth value in z) and that depth value to a depth code. Painting tools use
/// ViewProj instead. Cameras are built per drawing, read-only afterwards, and shared by
/// handle.
class Camera : public TQL::Handlable {
public:
    /// The image of a plane in screen coordinates.
    virtual Plane transformPlane(const Plane& plane) const = 0;
    /// Object point to screen (x, y, z). In a perspective camera z is an inverse depth
    /// (negative in front of the eye); in a parallel one a depth in screen units.
    virtual Point<3> project(const Point<3>& p) const = 0;
    /// The inverse of project.
    virtual Point<3> unproject(const Point<3>& p) const = 0;
    /// Whether the plane's positive side faces the camera.
    virtual bool facing(const Plane& plane) const = 0;
    /// Whether the point is on the visible side of the eye.
    virtual bool inFront(const Point<3>& p) const = 0;
    /// The view record that describes this camera (the default record where none does).
    virtual ViewParams viewParams() const = 0;
    /// The z of project as a depth code.
    virtual std::uint32_t depthCode(double z) const = 0;
    /// Height in pixels of the target rectangle.
    virtual int height() const = 0;

protected:
    ~Camera() override = default;
};

/// A camera that is one chain of transforms from object to screen coordinates.
class TransformCamera : public Camera {
public:
    /// A camera through `transform` (object to screen). A perspective one takes the z of
    /// the screen as -k / depth for some k > 0, and depth codes as linear in depth from
    /// nearDepth to farDepth with k = farDepth; a parallel one takes z as the depth.
    /// `viewDirection` is the direction of view in object coordinates; a perspective
    /// camera keeps points off the plane through `eye` across it by `eyeGuard`.
    TransformCamera(const Transform<3>& transform, int height, double nearDepth, double farDepth,
                    bool perspective, const Point<3>& eye, const Vector<3>& viewDirection,
                    double eyeGuard);

    Plane transformPlane(const Plane& plane) const override;
    Point<3> project(const Point<3>& p) const override;
    Point<3> unproject(const Point<3>& p) const override;
    bool facing(const Plane& plane) const override;
    bool inFront(const Point<3>& p) const override;
    ViewParams viewParams() const override { return ViewParams(); }
    std::uint32_t depthCode(double z) const override;
    int height() const override { return height_; }

    /// depthCode as a value, for conversions without a virtual call.
    DepthCoder depthCoder() const;
    /// Object to screen.
    const Transform<3>& transform() const { return *transform_; }
    bool perspective() const { return perspective_; }

protected:
    /// For derived cameras, which set the chain with setTransform.
    TransformCamera(int height, double nearDepth, double farDepth, bool perspective,
                    const Point<3>& eye, double eyeGuard);
    /// Keeps a copy of the chain and its inverse.
    void setTransform(const Transform<3>& chain);

    std::int32_t height_;
    /// Perspective: nearDepth / farDepth; otherwise nearDepth.
    double nearCode_;
    /// Code steps per unit of the value compared with nearCode.
    double depthScale_;
    bool perspective_;
    std::unique_ptr<Transform<3>> transform_;
    /// Perspective only: through the eye, across the view direction, in object
    /// coordinates.
    Plane eyePlane_;
    /// The eye in object coordinates.
    Point<3> eye_;
    /// Parallel only: the direction of view in object coordinates.
    Vector<3> viewDirection_;
    /// The least distance a projected point keeps from eyePlane.
    double eyeGuard_;

private:
    std::unique_ptr<Transform<3>> inverse_;
};

/// A camera described by its three view axes, depths and image size.
class AbstractCamera : public Camera {
public:
    int height() const override { return height_; }
    const Ray& axes() const { return axes_; }

protected:
    AbstractCamera(const Ray& axes, double nearDepth, double farDepth, std::int32_t width,
                   std::int32_t height, const Point<3>& eye);

    Ray axes_;
    double nearDepth_;
    double farDepth_;
    /// 4294967294 / (farDepth - nearDepth).
    double depthScale_;
    std::int32_t width_;
    std::int32_t height_;
    Point<3> eye_;
};

/// A type name only: the renderer's test for a perspective camera. Perspective views reach
/// the renderer as TransformCamera family objects, so that test doesn't succeed.
class PerspectiveCamera : public AbstractCamera {
protected:
    using AbstractCamera::AbstractCamera;
};
