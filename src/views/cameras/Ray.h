#pragma once

#include "core/Angle.h"
#include "core/Point.h"

/// A point with three mutually perpendicular unit axes: X to the right, Y up and Z along
/// the ray (for a camera its direction of view, for a light the direction the light
/// travels). The frame has the handedness of the view record: Y = X cross Z.
class Ray {
public:
    /// At the origin, looking along +x with zero angles.
    Ray() : Ray(Point<3>::m_origin, Angle(), Angle()) {}
    /// Z from an azimuth, anticlockwise from +x in the horizontal (x, y) plane, and an
    /// altitude above it (negative looks down); X stays horizontal, to the right of Z.
    Ray(const Point<3>& origin, Angle azimuth, Angle altitude);
    /// Copied from given axes, each taken to unit length; they are expected to be
    /// perpendicular.
    Ray(const Point<3>& origin, const Vector<3>& x, const Vector<3>& y, const Vector<3>& z)
        : origin_(origin), x_(x.unit()), y_(y.unit()), z_(z.unit()) {}

    const Point<3>& origin() const { return origin_; }
    const Vector<3>& x() const { return x_; }
    const Vector<3>& y() const { return y_; }
    const Vector<3>& z() const { return z_; }

private:
    Point<3> origin_;
    Vector<3> x_;
    Vector<3> y_;
    Vector<3> z_;
};
