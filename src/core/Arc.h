#pragma once

#include "core/Point.h"

namespace TQL {

template <int N> class Arc;

/// A circular arc from `start` to `end`, turning about `normal` by the right-hand rule.
/// The bulge is tan(theta / 4) for the included angle theta: 0 is a straight segment,
/// 1 a half circle, and a negative bulge turns the other way.
template <> class Arc<3> {
public:
    Arc(const Point<3>& start, double bulge, const Vector<3>& normal, const Point<3>& end);

    const Point<3>& start() const { return start_; }
    const Point<3>& end() const { return end_; }
    /// Radius; infinite for a straight arc.
    double radius() const { return radius_; }
    /// Centre; the chord's midpoint for a straight arc.
    Point<3> centre() const { return centre_; }
    /// Length along the arc.
    double length() const;
    /// The greatest distance of the arc from its chord (the sagitta).
    double deviation() const;
    /// The included angle in radians, signed like the bulge.
    double includedAngle() const { return theta_; }
    /// The point at `distance` along the arc from the start and the unit tangent there.
    /// Returns false for a distance beyond the end (or below 0), leaving the outputs alone.
    bool measureOff(double distance, Point<3>& at, Vector<3>& direction) const;

private:
    Point<3> start_;
    Point<3> end_;
    Vector<3> normal_;
    double theta_;
    double radius_;
    Point<3> centre_;
};

} // namespace TQL
