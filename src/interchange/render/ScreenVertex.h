#pragma once

#include "core/Point.h"

/// A corner of a triangle on its way to the screen: its model point and shading normal,
/// and, once projected, its screen position and the camera's depth there.
struct ScreenVertex {
    ScreenVertex() = default;
    /// A projected corner, every value given (nothing is first set to zero).
    ScreenVertex(const Point<3>& point, const Vector<3>& normal, const Point<3>& screen,
                 double invW_)
        : p(point), n(normal), x(screen.x()), y(screen.y()), z(screen.z()), invW(invW_) {}

    Point<3> p;  ///< model coordinates
    Vector<3> n; ///< normal, turned towards the eye
    double x = 0, y = 0, z = 0;
    double invW = 1; ///< 1 / the camera's projective divisor
    /// The screen values are set (a corner made by clipping has none yet).
    bool projected = true;
};

/// A value linear over the screen: a x + b y + c.
struct ScreenLinear {
    double a = 0, b = 0, c = 0;
    double at(double x, double y) const { return a * x + b * y + c; }

    /// The plane through the values fa, fb, fc at the screen positions of a, b, c, whose
    /// doubled signed area is `area`.
    static ScreenLinear through(const ScreenVertex& a, const ScreenVertex& b, const ScreenVertex& c,
                                double fa, double fb, double fc, double area) {
        ScreenLinear l;
        l.a = ((fb - fa) * (c.y - a.y) - (fc - fa) * (b.y - a.y)) / area;
        l.b = ((b.x - a.x) * (fc - fa) - (c.x - a.x) * (fb - fa)) / area;
        l.c = fa - l.a * a.x - l.b * a.y;
        return l;
    }
};
