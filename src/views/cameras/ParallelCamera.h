#pragma once

#include "views/cameras/Camera.h"

/// An orthogonal camera of width by height pixels looking along its axes' Z, fitted to a
/// world window around a target. Depths run from `margin` before the target to `margin`
/// beyond it along Z.
class ParallelCamera : public AbstractCamera {
public:
    /// Axes from a Ray of the given azimuth and altitude (see Ray).
    ParallelCamera(std::int32_t width, std::int32_t height, const Point<3>& eye, Angle azimuth,
                   Angle altitude, double worldWidth, double worldHeight, const Point<3>& target,
                   double margin);
    ParallelCamera(std::int32_t width, std::int32_t height, const Point<3>& eye, const Ray& axes,
                   double worldWidth, double worldHeight, const Point<3>& target, double margin);

    Plane transformPlane(const Plane& plane) const override;
    /// x = (X.d) scale + width/2, y = height/2 - (Y.d) scale, z = (Z.d) scale, with d the
    /// point less `centre`.
    Point<3> project(const Point<3>& p) const override;
    Point<3> unproject(const Point<3>& p) const override;
    bool facing(const Plane& plane) const override;
    bool inFront(const Point<3>&) const override { return true; }
    /// A parallel view record that ViewProj turns into the same pixels and codes.
    ViewParams viewParams() const override;
    /// Truncated toward zero, low 32 bits.
    std::uint32_t depthCode(double z) const override;

    /// depthCode as a value, for conversions without a virtual call.
    DepthCoder depthCoder() const;
    /// Pixels per world unit.
    double scale() const { return scale_; }

private:
    /// eye + Z farDepth.
    Point<3> centre_;
    double scale_;
    Point<3> screenCentre_;
};
