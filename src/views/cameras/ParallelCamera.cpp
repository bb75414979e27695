#include "views/cameras/ParallelCamera.h"

#include <algorithm>
#include <cmath>

namespace {
double depthAlong(const Ray& axes, const Point<3>& eye, const Point<3>& target) {
    return dot(target - eye, axes.z());
}
} // namespace

ParallelCamera::ParallelCamera(std::int32_t width, std::int32_t height, const Point<3>& eye,
                               Angle azimuth, Angle altitude, double worldWidth, double worldHeight,
                               const Point<3>& target, double margin)
    : ParallelCamera(width, height, eye, Ray(eye, azimuth, altitude), worldWidth, worldHeight,
                     target, margin) {}

ParallelCamera::ParallelCamera(std::int32_t width, std::int32_t height, const Point<3>& eye,
                               const Ray& axes, double worldWidth, double worldHeight,
                               const Point<3>& target, double margin)
    : AbstractCamera(axes, depthAlong(axes, eye, target) - margin,
                     depthAlong(axes, eye, target) + margin, width, height, eye),
      centre_(eye + axes.z() * farDepth_),
      scale_(std::min(width / worldWidth, height / worldHeight)),
      screenCentre_(width * 0.5, height * 0.5, 0) {}

Point<3> ParallelCamera::project(const Point<3>& p) const {
    const Vector<3> d = p - centre_;
    return {dot(axes_.x(), d) * scale_ + screenCentre_.x(),
            screenCentre_.y() - dot(axes_.y(), d) * scale_, dot(axes_.z(), d) * scale_};
}

Point<3> ParallelCamera::unproject(const Point<3>& p) const {
    return centre_ + axes_.x() * ((p.x() - screenCentre_.x()) / scale_) +
           axes_.y() * ((screenCentre_.y() - p.y()) / scale_) + axes_.z() * (p.z() / scale_);
}

Plane ParallelCamera::transformPlane(const Plane& plane) const {
    const Vector<3>& n = plane.normal();
    const Vector<3> normal(dot(axes_.x(), n), -dot(axes_.y(), n), dot(axes_.z(), n));
    const double d = dot(normal, toVector(screenCentre_)) - scale_ * plane.distanceTo(centre_);
    return Plane(normal, toPoint(normal * (d / normal.lengthSquared())));
}

bool ParallelCamera::facing(const Plane& plane) const {
    return dot(plane.normal(), axes_.z()) <= 0;
}

std::uint32_t ParallelCamera::depthCode(double z) const {
    return depthCoder().code(z);
}

DepthCoder ParallelCamera::depthCoder() const {
    DepthCoder coder;
    coder.kind = DepthCoder::truncated;
    coder.offset = farDepth_ - nearDepth_;
    coder.scale = depthScale_;
    coder.pixelScale = scale_;
    return coder;
}

ViewParams ParallelCamera::viewParams() const {
    ViewParams v;
    v.viewCode = ViewParams::parallelCode;
    v.eye = unproject(Point<3>(0, 0, -scale_ * farDepth_));
    v.xAxis = axes_.x();
    v.yAxis = axes_.y();
    v.zAxis = axes_.z();
    v.shear = Vector<3>(0, 0, 1);
    v.windowLo = Point<3>(0, 0, 0);
    v.windowHi = Point<3>((width_ - 1) / scale_, (1 - height_) / scale_, 0);
    v.nearDepth = nearDepth_;
    v.farDepth = farDepth_;
    v.target = v.eye;
    return v;
}
