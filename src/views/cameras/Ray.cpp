#include "views/cameras/Ray.h"

Ray::Ray(const Point<3>& origin, Angle azimuth, Angle altitude) : origin_(origin) {
    const double ca = azimuth.cos();
    const double sa = azimuth.sin();
    const double ce = altitude.cos();
    const double se = altitude.sin();
    z_ = Vector<3>(ce * ca, ce * sa, se);
    x_ = Vector<3>(sa, -ca, 0);
    y_ = cross(x_, z_);
}
