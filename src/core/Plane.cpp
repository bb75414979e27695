#include "core/Plane.h"

#include "core/Line.h"

#include <limits>

Plane::Plane(const Vector<3>& normal, const Point<3>& point) {
    const double l = normal.length();
    if (l > 0 && std::isfinite(l)) {
        normal_ = normal / l;
        distance_ = dot(normal_, toVector(point));
    } else {
        normal_ = Vector<3>();
        distance_ = 0;
    }
}

Plane::Plane(const Point<3>& a, const Point<3>& b, const Point<3>& c)
    : Plane(cross(b - a, c - a), a) {}

Plane Plane::fromNormalDistance(const Vector<3>& unitNormal, double distance) {
    Plane p;
    p.normal_ = unitNormal;
    p.distance_ = distance;
    return p;
}

Point<2> intersect(const Line<2>& a, const Line<2>& b) {
    const double den = cross(a.direction(), b.direction());
    if (den == 0) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        return {nan, nan};
    }
    const double t = cross(b.origin() - a.origin(), b.direction()) / den;
    return a.at(t);
}

Point<3> intersect(const Line<3>& line, const Plane& plane) {
    const double den = dot(plane.normal(), line.direction());
    if (den == 0) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        return {nan, nan, nan};
    }
    const double t = -plane.distanceTo(line.origin()) / den;
    return line.at(t);
}

bool crossing(Point<3>& a, Point<3>& b, const Line<3>& p, const Line<3>& q) {
    // Minimise |p(s) - q(t)|: the normal equations of the two parameters.
    const Vector<3>& u = p.direction();
    const Vector<3>& v = q.direction();
    const Vector<3> w = p.origin() - q.origin();
    const double uu = dot(u, u), uv = dot(u, v), vv = dot(v, v);
    const double uw = dot(u, w), vw = dot(v, w);
    const double den = uu * vv - uv * uv;
    if (den <= 1e-300 * uu * vv || uu == 0 || vv == 0) {
        a = p.origin();
        b = vv > 0 ? q.at(dot(p.origin() - q.origin(), v) / vv) : q.origin();
        return false;
    }
    const double s = (uv * vw - vv * uw) / den;
    const double t = (uu * vw - uv * uw) / den;
    a = p.at(s);
    b = q.at(t);
    return true;
}
