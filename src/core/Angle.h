#pragma once

#include <cmath>
#include <numbers>

/// An angle: a value of its own, never a bare double. Held in radians.
class Angle {
public:
    constexpr Angle() = default;
    static constexpr Angle degrees(double d) { return Angle(d * std::numbers::pi / 180.0); }
    static constexpr Angle radians(double r) { return Angle(r); }
    /// The angle whose cosine and sine are proportional to c and s.
    static Angle cosSin(double c, double s) { return Angle(std::atan2(s, c)); }

    constexpr double radians() const { return r_; }
    constexpr double degrees() const { return r_ * 180.0 / std::numbers::pi; }
    double cos() const { return std::cos(r_); }
    double sin() const { return std::sin(r_); }
    double tan() const { return std::tan(r_); }

    constexpr Angle operator+(Angle o) const { return Angle(r_ + o.r_); }
    constexpr Angle operator-(Angle o) const { return Angle(r_ - o.r_); }
    constexpr Angle operator-() const { return Angle(-r_); }
    constexpr Angle operator*(int k) const { return Angle(r_ * k); }
    constexpr Angle& operator+=(Angle o) {
        r_ += o.r_;
        return *this;
    }
    constexpr Angle& operator-=(Angle o) {
        r_ -= o.r_;
        return *this;
    }
    constexpr bool operator==(const Angle& o) const = default;

private:
    constexpr explicit Angle(double r) : r_(r) {}
    double r_ = 0;
};

/// Whether a and b lie within `limit` radians of each other around the circle, so that
/// 359 and 1 degrees are 2 degrees apart.
inline bool closerThanRadians(Angle a, Angle b, double limit) {
    constexpr double twoPi = 2 * std::numbers::pi;
    double d = std::fmod(std::fabs(a.radians() - b.radians()), twoPi);
    if (d > std::numbers::pi) {
        d = twoPi - d;
    }
    return d < limit;
}
