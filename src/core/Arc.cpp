#include "core/Arc.h"

#include <cmath>
#include <limits>

namespace TQL {

Arc<3>::Arc(const Point<3>& start, double bulge, const Vector<3>& normal, const Point<3>& end)
    : start_(start), end_(end), normal_(normal.unit()), theta_(4.0 * std::atan(bulge)),
      radius_(std::numeric_limits<double>::infinity()), centre_(midpoint(start, end)) {
    const Vector<3> chord = end - start;
    const double c = chord.length();
    if (std::fabs(theta_) < 1e-15 || c == 0 || normal_.lengthSquared() == 0) {
        theta_ = 0;
        return;
    }
    const double half = theta_ / 2;
    radius_ = c / (2 * std::fabs(std::sin(half)));
    // The centre lies on the perpendicular of the chord, in the arc's plane, at the
    // distance r cos(theta/2) from the chord's midpoint, on the side the arc turns to.
    const Vector<3> toward = cross(normal_, chord).unit();
    const double h = radius_ * std::cos(half);
    centre_ = midpoint(start, end) + toward * (theta_ > 0 ? h : -h);
}

double Arc<3>::length() const {
    if (theta_ == 0) {
        return (end_ - start_).length();
    }
    return radius_ * std::fabs(theta_);
}

double Arc<3>::deviation() const {
    if (theta_ == 0) {
        return 0;
    }
    return radius_ * (1 - std::cos(theta_ / 2));
}

bool Arc<3>::measureOff(double distance, Point<3>& at, Vector<3>& direction) const {
    const double total = length();
    if (distance < 0 || distance > total) {
        return false;
    }
    if (theta_ == 0) {
        direction = (end_ - start_).unit();
        at = start_ + direction * distance;
        return true;
    }
    const double phi = (theta_ > 0 ? 1 : -1) * distance / radius_;
    const Vector<3> r0 = start_ - centre_;
    // Rotate r0 about the normal by phi.
    const Vector<3> k = normal_;
    const Vector<3> r =
        r0 * std::cos(phi) + cross(k, r0) * std::sin(phi) + k * (dot(k, r0) * (1 - std::cos(phi)));
    at = centre_ + r;
    direction = (theta_ > 0 ? cross(k, r) : cross(r, k)).unit();
    return true;
}

} // namespace TQL
