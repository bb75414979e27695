#include "views/cameras/Camera.h"

#include <cmath>

TransformCamera::TransformCamera(int height, double nearDepth, double farDepth, bool perspective,
                                 const Point<3>& eye, double eyeGuard)
    : height_(height), nearCode_(perspective ? nearDepth / farDepth : nearDepth),
      depthScale_(perspective ? depth::codeSpan / (1 - nearDepth / farDepth)
                              : depth::codeSpan / (farDepth - nearDepth)),
      perspective_(perspective), eye_(eye), eyeGuard_(eyeGuard) {}

TransformCamera::TransformCamera(const Transform<3>& transform, int height, double nearDepth,
                                 double farDepth, bool perspective, const Point<3>& eye,
                                 const Vector<3>& viewDirection, double eyeGuard)
    : TransformCamera(height, nearDepth, farDepth, perspective, eye, eyeGuard) {
    setTransform(transform);
    eyePlane_ = Plane(viewDirection, eye);
    viewDirection_ = viewDirection;
}

void TransformCamera::setTransform(const Transform<3>& chain) {
    transform_.reset(chain.clone());
    inverse_.reset(chain.pInverse());
}

Point<3> TransformCamera::project(const Point<3>& p) const {
    if (perspective_) {
        const double d = eyePlane_.distanceTo(p);
        if (std::fabs(d) < eyeGuard_) {
            // A point on the eye's plane would divide by zero.
            return (p + eyePlane_.normal() * (2 * eyeGuard_)) * *transform_;
        }
    }
    return p * *transform_;
}

Point<3> TransformCamera::unproject(const Point<3>& p) const {
    return p * *inverse_;
}

Plane TransformCamera::transformPlane(const Plane& plane) const {
    const Vector<3> n = plane.normal().unit();
    const Point<3> p = plane.project(Point<3>::m_origin);
    const Vector<3> other =
        n.x() * n.x() + n.y() * n.y() < 1e-06 ? Vector<3>(0, -1, 0) : Vector<3>(0, 0, 1);
    const Vector<3> e1 = cross(n, other).unit();
    const Vector<3> e2 = cross(n, e1).unit();
    // Steps of 100 world units keep the three images well apart at any usual scale.
    Plane image(project(p), project(p + e1 * 100.0), project(p + e2 * 100.0));
    if (!(image.distanceTo(project(p + n * 100.0)) > 0)) {
        image = -image;
    }
    return image;
}

bool TransformCamera::facing(const Plane& plane) const {
    if (perspective_) {
        return plane.distanceTo(eye_) > 0;
    }
    return dot(plane.normal(), viewDirection_) <= 0;
}

bool TransformCamera::inFront(const Point<3>& p) const {
    return !perspective_ || project(p).z() < 0;
}

std::uint32_t TransformCamera::depthCode(double z) const {
    return depthCoder().code(z);
}

DepthCoder TransformCamera::depthCoder() const {
    DepthCoder coder;
    coder.kind = perspective_ ? DepthCoder::inverse : DepthCoder::linear;
    coder.offset = nearCode_;
    coder.scale = depthScale_;
    return coder;
}

AbstractCamera::AbstractCamera(const Ray& axes, double nearDepth, double farDepth,
                               std::int32_t width, std::int32_t height, const Point<3>& eye)
    : axes_(axes), nearDepth_(nearDepth), farDepth_(farDepth),
      depthScale_(depth::codeSpan / (farDepth - nearDepth)), width_(width), height_(height),
      eye_(eye) {}
