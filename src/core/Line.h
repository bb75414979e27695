#pragma once

#include "core/Point.h"

class Plane;

/// An infinite line through `origin` along `direction`.
template <int N> class Line {
public:
    Line() = default;
    Line(const Point<N>& origin, const Vector<N>& direction)
        : origin_(origin), direction_(direction) {}
    static Line through(const Point<N>& a, const Point<N>& b) { return Line(a, b - a); }

    const Point<N>& origin() const { return origin_; }
    const Vector<N>& direction() const { return direction_; }
    Point<N> at(double t) const { return origin_ + direction_ * t; }

private:
    Point<N> origin_;
    Vector<N> direction_;
};

/// The crossing of two 2D lines; a non-finite point when they are parallel.
Point<2> intersect(const Line<2>& a, const Line<2>& b);
/// Where a 3D line meets a plane; a non-finite point when it runs parallel to it.
Point<3> intersect(const Line<3>& line, const Plane& plane);
/// The closest points a on line p and b on line q. Returns false (and leaves a, b as the
/// lines' origins projected) when the lines are parallel.
bool crossing(Point<3>& a, Point<3>& b, const Line<3>& p, const Line<3>& q);
