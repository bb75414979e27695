#pragma once

#include "core/Angle.h"
#include "core/Transform.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <ostream>
#include <string>

// Views shared by the camera tests: one of each type, with axes turned away from the
// world axes so that no formula can lean on a coincidence of frames.
namespace cameratest {

/// Turned view axes: X right, Y up, Z forward, orthonormal, Y = X cross Z.
inline void turnedAxes(ViewParams& v, double azimuthDegrees, double altitudeDegrees,
                       double lengths = 1) {
    const double az = Angle::degrees(azimuthDegrees).radians();
    const double al = Angle::degrees(altitudeDegrees).radians();
    const Vector<3> Z(std::cos(al) * std::cos(az), std::cos(al) * std::sin(az), std::sin(al));
    const Vector<3> X(std::sin(az), -std::cos(az), 0);
    const Vector<3> Y = cross(X, Z);
    // Record axes need not be unit length.
    v.xAxis = X * (2 * lengths);
    v.yAxis = Y * (0.5 * lengths);
    v.zAxis = Z * (3 * lengths);
}

inline ViewParams perspectiveRecord() {
    ViewParams v;
    v.viewCode = ViewParams::perspectiveCode;
    v.eye = Point<3>(3, -4, 1.5);
    turnedAxes(v, 70, -12);
    // A window off centre, given with z != 1 to exercise the homogeneous division.
    v.windowLo = Point<3>(-1.2, 0.6, 2);
    v.windowHi = Point<3>(0.8, -0.9, 2);
    v.nearDepth = 0.5;
    v.farDepth = 200;
    return v;
}

inline ViewParams parallelRecord() {
    ViewParams v;
    v.viewCode = ViewParams::parallelCode;
    v.eye = Point<3>(-2, 5, 8);
    turnedAxes(v, -30, -40);
    v.shear = Vector<3>(0.3, -0.2, 2);
    v.windowLo = Point<3>(-7, 5, 1);
    v.windowHi = Point<3>(9, -6, -0.5);
    v.nearDepth = 1;
    v.farDepth = 60;
    return v;
}

inline ViewParams cubicRecord() {
    ViewParams v;
    v.viewCode = ViewParams::cubicCode;
    v.eye = Point<3>(1, 2, 1.7);
    turnedAxes(v, 100, 5);
    v.nearDepth = 0.2;
    v.farDepth = 150;
    return v;
}

struct NamedView {
    std::string name;
    ViewParams params;
    std::int32_t width;
    std::int32_t height;
};

inline void PrintTo(const NamedView& v, std::ostream* os) {
    *os << v.name;
}

/// One view of each type with image sizes that suit it (a cube image is six square faces).
inline NamedView allViews[] = {
    {"perspective", perspectiveRecord(), 641, 480},
    {"parallel", parallelRecord(), 500, 377},
    {"cubic", cubicRecord(), 6 * 257, 257},
};

} // namespace cameratest
