#pragma once

#include "core/Point.h"

#include <algorithm>
#include <cstdint>
#include <limits>

/// A closed box in doubles. The default box is empty (lo above hi on every axis).
template <int N> class Extent {
public:
    Extent() {
        for (int i = 0; i < N; ++i) {
            lo_[i] = std::numeric_limits<double>::infinity();
            hi_[i] = -std::numeric_limits<double>::infinity();
        }
    }
    Extent(const Point<N>& lo, const Point<N>& hi) : lo_(lo), hi_(hi) {}
    explicit Extent(const Point<N>& p) : lo_(p), hi_(p) {}

    const Point<N>& lo() const { return lo_; }
    const Point<N>& hi() const { return hi_; }
    /// Corner i: bit k of i chooses hi on axis k.
    Point<N> corner(int i) const {
        Point<N> p;
        for (int k = 0; k < N; ++k) {
            p[k] = (i >> k) & 1 ? hi_[k] : lo_[k];
        }
        return p;
    }
    Point<N> centre() const { return midpoint(lo_, hi_); }
    Vector<N> size() const { return degenerate() ? Vector<N>() : hi_ - lo_; }

    /// True for an empty box: lo above hi on some axis. A single point is not empty.
    bool degenerate() const {
        for (int i = 0; i < N; ++i) {
            if (!(lo_[i] <= hi_[i])) {
                return true;
            }
        }
        return false;
    }
    bool contains(const Point<N>& p) const {
        for (int i = 0; i < N; ++i) {
            if (!(p[i] >= lo_[i] && p[i] <= hi_[i])) {
                return false;
            }
        }
        return true;
    }

    /// Grows to include p.
    Extent& operator+=(const Point<N>& p) {
        for (int i = 0; i < N; ++i) {
            lo_[i] = std::min(lo_[i], p[i]);
            hi_[i] = std::max(hi_[i], p[i]);
        }
        return *this;
    }
    /// Union.
    Extent& operator|=(const Extent& o) {
        if (o.degenerate()) {
            return *this;
        }
        if (degenerate()) {
            return *this = o;
        }
        for (int i = 0; i < N; ++i) {
            lo_[i] = std::min(lo_[i], o.lo_[i]);
            hi_[i] = std::max(hi_[i], o.hi_[i]);
        }
        return *this;
    }
    /// Intersection; disjoint boxes give an empty one.
    Extent& operator&=(const Extent& o) {
        for (int i = 0; i < N; ++i) {
            lo_[i] = std::max(lo_[i], o.lo_[i]);
            hi_[i] = std::min(hi_[i], o.hi_[i]);
        }
        if (degenerate()) {
            *this = Extent();
        }
        return *this;
    }
    /// Containment: a <= b when a lies within b. The empty box lies within any box.
    bool operator<=(const Extent& o) const {
        if (degenerate()) {
            return true;
        }
        if (o.degenerate()) {
            return false;
        }
        for (int i = 0; i < N; ++i) {
            if (lo_[i] < o.lo_[i] || hi_[i] > o.hi_[i]) {
                return false;
            }
        }
        return true;
    }
    bool operator>=(const Extent& o) const { return o <= *this; }
    bool operator==(const Extent& o) const {
        return (degenerate() && o.degenerate()) || (lo_ == o.lo_ && hi_ == o.hi_);
    }
    bool operator!=(const Extent& o) const { return !(*this == o); }

    /// Grows by d on every side (N = 2).
    Extent& dilate(double d) requires(N == 2) {
        if (!degenerate()) {
            for (int i = 0; i < N; ++i) {
                lo_[i] -= d;
                hi_[i] += d;
            }
        }
        return *this;
    }

    static const Extent m_nothing;

private:
    Point<N> lo_;
    Point<N> hi_;
};

template <int N> inline const Extent<N> Extent<N>::m_nothing{};

template <int N> class IPoint;
template <int N> class IVector;
template <int N> class IExtent;

/// An integer pixel position.
template <> class IPoint<2> {
public:
    std::int32_t x = 0;
    std::int32_t y = 0;
    constexpr IPoint() = default;
    constexpr IPoint(std::int32_t x_, std::int32_t y_) : x(x_), y(y_) {}
    constexpr bool operator==(const IPoint&) const = default;
};

/// An integer pixel displacement.
template <> class IVector<2> {
public:
    std::int32_t x = 0;
    std::int32_t y = 0;
    constexpr IVector() = default;
    constexpr IVector(std::int32_t x_, std::int32_t y_) : x(x_), y(y_) {}
    constexpr bool operator==(const IVector&) const = default;
};

inline constexpr IPoint<2> operator+(IPoint<2> p, IVector<2> v) {
    return {p.x + v.x, p.y + v.y};
}
inline constexpr IVector<2> operator-(IPoint<2> a, IPoint<2> b) {
    return {a.x - b.x, a.y - b.y};
}

/// An integer box with inclusive corners: width is hi.x - lo.x + 1. Every changed area of
/// the system (view invalidation, undo, tile walks) is one of these. The default box is
/// empty.
template <> class IExtent<2> {
public:
    constexpr IExtent() = default;
    constexpr IExtent(std::int32_t loX, std::int32_t loY, std::int32_t hiX, std::int32_t hiY)
        : lo_(loX, loY), hi_(hiX, hiY) {}
    constexpr IExtent(IPoint<2> lo, IPoint<2> hi) : lo_(lo), hi_(hi) {}
    constexpr explicit IExtent(IPoint<2> p) : lo_(p), hi_(p) {}

    constexpr IPoint<2> lo() const { return lo_; }
    constexpr IPoint<2> hi() const { return hi_; }
    constexpr bool degenerate() const { return lo_.x > hi_.x || lo_.y > hi_.y; }
    /// Width and height in pixels; 0 for an empty box.
    constexpr std::int64_t width() const {
        return degenerate() ? 0 : std::int64_t(hi_.x) - lo_.x + 1;
    }
    constexpr std::int64_t height() const {
        return degenerate() ? 0 : std::int64_t(hi_.y) - lo_.y + 1;
    }
    constexpr bool contains(IPoint<2> p) const {
        return p.x >= lo_.x && p.x <= hi_.x && p.y >= lo_.y && p.y <= hi_.y;
    }

    /// Grows to include a pixel.
    constexpr IExtent& operator+=(IPoint<2> p) {
        if (degenerate()) {
            lo_ = hi_ = p;
        } else {
            lo_ = {std::min(lo_.x, p.x), std::min(lo_.y, p.y)};
            hi_ = {std::max(hi_.x, p.x), std::max(hi_.y, p.y)};
        }
        return *this;
    }
    /// Union.
    constexpr IExtent& operator|=(const IExtent& o) {
        if (o.degenerate()) {
            return *this;
        }
        if (degenerate()) {
            return *this = o;
        }
        lo_ = {std::min(lo_.x, o.lo_.x), std::min(lo_.y, o.lo_.y)};
        hi_ = {std::max(hi_.x, o.hi_.x), std::max(hi_.y, o.hi_.y)};
        return *this;
    }
    /// Intersection; disjoint boxes give the empty box.
    constexpr IExtent& operator&=(const IExtent& o) {
        lo_ = {std::max(lo_.x, o.lo_.x), std::max(lo_.y, o.lo_.y)};
        hi_ = {std::min(hi_.x, o.hi_.x), std::min(hi_.y, o.hi_.y)};
        if (degenerate()) {
            *this = IExtent();
        }
        return *this;
    }
    constexpr IExtent operator&(const IExtent& o) const {
        IExtent r = *this;
        return r &= o;
    }
    constexpr IExtent operator|(const IExtent& o) const {
        IExtent r = *this;
        return r |= o;
    }
    /// Equal boxes; all empty boxes are equal.
    constexpr bool operator==(const IExtent& o) const {
        return (degenerate() && o.degenerate()) || (lo_ == o.lo_ && hi_ == o.hi_);
    }
    /// Containment: the empty box lies within any box.
    constexpr bool operator<=(const IExtent& o) const {
        if (degenerate()) {
            return true;
        }
        return !o.degenerate() && lo_.x >= o.lo_.x && lo_.y >= o.lo_.y && hi_.x <= o.hi_.x &&
               hi_.y <= o.hi_.y;
    }

    static const IExtent m_nothing;

private:
    IPoint<2> lo_{std::numeric_limits<std::int32_t>::max(),
                  std::numeric_limits<std::int32_t>::max()};
    IPoint<2> hi_{std::numeric_limits<std::int32_t>::min(),
                  std::numeric_limits<std::int32_t>::min()};
};

inline const IExtent<2> IExtent<2>::m_nothing{};
