#pragma once

#include "core/Point.h"

/// A plane: unit normal n and distance d from the origin, the points p with n.p = d.
/// Its positive side is the one its normal points to.
class Plane {
public:
    /// The plane z = 0 facing +z.
    Plane() : normal_(0, 0, 1), distance_(0) {}
    /// Through `point` with the direction of `normal` (which need not be unit length).
    Plane(const Vector<3>& normal, const Point<3>& point);
    /// Through three points; the normal is (b - a) x (c - a), so their order sets the side.
    Plane(const Point<3>& a, const Point<3>& b, const Point<3>& c);
    /// From a unit normal and the distance from the origin.
    static Plane fromNormalDistance(const Vector<3>& unitNormal, double distance);

    const Vector<3>& normal() const { return normal_; }
    double distanceFromOrigin() const { return distance_; }
    /// Signed distance of p: positive on the side the normal points to.
    double distanceTo(const Point<3>& p) const { return dot(normal_, toVector(p)) - distance_; }
    /// The vector from the plane's nearest point to p (normal times signed distance).
    Vector<3> vectorTo(const Point<3>& p) const { return normal_ * distanceTo(p); }
    /// The foot of p on the plane.
    Point<3> project(const Point<3>& p) const { return p - vectorTo(p); }
    /// A point of the plane (the foot of the origin).
    Point<3> origin() const { return toPoint(normal_ * distance_); }
    /// The same plane facing the other way.
    Plane operator-() const { return fromNormalDistance(-normal_, -distance_); }
    /// False for a plane made from a zero normal or collinear points.
    bool isValid() const { return normal_.isFinite() && normal_.lengthSquared() > 0.5; }

private:
    Vector<3> normal_;
    double distance_;
};
