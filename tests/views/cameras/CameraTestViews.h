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

/// A view record, with its axes turned by an azimuth and an altitude in degrees (X right,
/// Y up, Z forward, Y = X cross Z) and given at lengths other than 1, which records allow.
struct ViewSetup {
    std::uint32_t viewCode = ViewParams::perspectiveCode;
    Point<3> eye;
    double azimuth = 0;
    double altitude = 0;
    Point<3> windowLo{-1, 1, 1};
    Point<3> windowHi{1, -1, 1};
    Vector<3> shear{0, 0, 1};
    double nearDepth = 0.1;
    double farDepth = 100;
};

inline ViewParams makeRecord(const ViewSetup& s) {
    ViewParams v;
    v.viewCode = s.viewCode;
    v.eye = s.eye;
    const double az = Angle::degrees(s.azimuth).radians();
    const double al = Angle::degrees(s.altitude).radians();
    const Vector<3> Z(std::cos(al) * std::cos(az), std::cos(al) * std::sin(az), std::sin(al));
    const Vector<3> X(std::sin(az), -std::cos(az), 0);
    v.xAxis = X * 2;
    v.yAxis = cross(X, Z) * 0.5;
    v.zAxis = Z * 3;
    v.windowLo = s.windowLo;
    v.windowHi = s.windowHi;
    v.shear = s.shear;
    v.nearDepth = s.nearDepth;
    v.farDepth = s.farDepth;
    return v;
}

inline ViewParams perspectiveRecord() {
    // A window off centre, given with z != 1 to exercise the homogeneous division.
    return makeRecord({.eye = {3, -4, 1.5},
                       .azimuth = 70,
                       .altitude = -12,
                       .windowLo = {-1.2, 0.6, 2},
                       .windowHi = {0.8, -0.9, 2},
                       .nearDepth = 0.5,
                       .farDepth = 200});
}

inline ViewParams parallelRecord() {
    return makeRecord({.viewCode = ViewParams::parallelCode,
                       .eye = {-2, 5, 8},
                       .azimuth = -30,
                       .altitude = -40,
                       .windowLo = {-7, 5, 1},
                       .windowHi = {9, -6, -0.5},
                       .shear = {0.3, -0.2, 2},
                       .nearDepth = 1,
                       .farDepth = 60});
}

inline ViewParams cubicRecord() {
    return makeRecord({.viewCode = ViewParams::cubicCode,
                       .eye = {1, 2, 1.7},
                       .azimuth = 100,
                       .altitude = 5,
                       .nearDepth = 0.2,
                       .farDepth = 150});
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
