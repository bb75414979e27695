#pragma once

#include <cmath>
#include <cstddef>

template <int N> class Matrix;

/// A position in N-dimensional space (N = 1, 2, 3), in doubles.
template <int N> class Point {
public:
    static_assert(N >= 1 && N <= 3);
    constexpr Point() : c_{} {}
    constexpr explicit Point(double x) requires(N == 1) : c_{x} {}
    constexpr Point(double x, double y) requires(N == 2) : c_{x, y} {}
    constexpr Point(double x, double y, double z) requires(N == 3) : c_{x, y, z} {}
    explicit Point(const double* values) {
        for (int i = 0; i < N; ++i) {
            c_[i] = values[i];
        }
    }

    constexpr double& operator[](int i) { return c_[i]; }
    constexpr double operator[](int i) const { return c_[i]; }
    constexpr double& x() { return c_[0]; }
    constexpr double x() const { return c_[0]; }
    constexpr double& y() requires(N >= 2) { return c_[1]; }
    constexpr double y() const requires(N >= 2) { return c_[1]; }
    constexpr double& z() requires(N >= 3) { return c_[2]; }
    constexpr double z() const requires(N >= 3) { return c_[2]; }
    const double* data() const { return c_; }

    bool isFinite() const {
        for (int i = 0; i < N; ++i) {
            if (!std::isfinite(c_[i])) {
                return false;
            }
        }
        return true;
    }

    /// Exact comparison.
    constexpr bool operator==(const Point& o) const {
        for (int i = 0; i < N; ++i) {
            if (c_[i] != o.c_[i]) {
                return false;
            }
        }
        return true;
    }

    /// The origin (for N = 3 also spelt Point<3>::m_origin).
    static const Point m_origin;

private:
    double c_[N];
};

template <int N> inline const Point<N> Point<N>::m_origin{};

/// A displacement in N-dimensional space.
template <int N> class Vector {
public:
    static_assert(N >= 1 && N <= 3);
    constexpr Vector() : c_{} {}
    constexpr explicit Vector(double x) requires(N == 1) : c_{x} {}
    constexpr Vector(double x, double y) requires(N == 2) : c_{x, y} {}
    constexpr Vector(double x, double y, double z) requires(N == 3) : c_{x, y, z} {}
    explicit Vector(const double* values) {
        for (int i = 0; i < N; ++i) {
            c_[i] = values[i];
        }
    }
    /// The vector multiplied by the matrix, as a row vector: v' = v M.
    Vector(const Vector& v, const Matrix<N>& m);

    constexpr double& operator[](int i) { return c_[i]; }
    constexpr double operator[](int i) const { return c_[i]; }
    constexpr double& x() { return c_[0]; }
    constexpr double x() const { return c_[0]; }
    constexpr double& y() requires(N >= 2) { return c_[1]; }
    constexpr double y() const requires(N >= 2) { return c_[1]; }
    constexpr double& z() requires(N >= 3) { return c_[2]; }
    constexpr double z() const requires(N >= 3) { return c_[2]; }
    const double* data() const { return c_; }

    bool isFinite() const {
        for (int i = 0; i < N; ++i) {
            if (!std::isfinite(c_[i])) {
                return false;
            }
        }
        return true;
    }
    double lengthSquared() const {
        double s = 0;
        for (int i = 0; i < N; ++i) {
            s += c_[i] * c_[i];
        }
        return s;
    }
    double length() const { return std::sqrt(lengthSquared()); }
    /// The unit vector in this direction; the zero vector stays zero.
    Vector unit() const {
        const double l = length();
        return l > 0 ? *this / l : *this;
    }
    /// Angle of a 2D vector from the x axis, in radians (-pi, pi].
    double theta() const requires(N == 2) { return std::atan2(c_[1], c_[0]); }

    Vector operator-() const {
        Vector r;
        for (int i = 0; i < N; ++i) {
            r.c_[i] = -c_[i];
        }
        return r;
    }
    Vector& operator+=(const Vector& o) {
        for (int i = 0; i < N; ++i) {
            c_[i] += o.c_[i];
        }
        return *this;
    }
    Vector& operator-=(const Vector& o) {
        for (int i = 0; i < N; ++i) {
            c_[i] -= o.c_[i];
        }
        return *this;
    }
    Vector& operator*=(double s) {
        for (int i = 0; i < N; ++i) {
            c_[i] *= s;
        }
        return *this;
    }
    Vector& operator/=(double s) {
        for (int i = 0; i < N; ++i) {
            c_[i] /= s;
        }
        return *this;
    }
    friend Vector operator+(Vector a, const Vector& b) { return a += b; }
    friend Vector operator-(Vector a, const Vector& b) { return a -= b; }
    friend Vector operator*(Vector a, double s) { return a *= s; }
    friend Vector operator*(double s, Vector a) { return a *= s; }
    friend Vector operator/(Vector a, double s) { return a /= s; }
    constexpr bool operator==(const Vector& o) const {
        for (int i = 0; i < N; ++i) {
            if (c_[i] != o.c_[i]) {
                return false;
            }
        }
        return true;
    }

private:
    double c_[N];
};

/// Dot product.
template <int N> double dot(const Vector<N>& a, const Vector<N>& b) {
    double s = 0;
    for (int i = 0; i < N; ++i) {
        s += a[i] * b[i];
    }
    return s;
}
/// Scalar cross product of two 2D vectors (the z of their 3D cross product).
inline double cross(const Vector<2>& a, const Vector<2>& b) {
    return a[0] * b[1] - a[1] * b[0];
}
inline Vector<3> cross(const Vector<3>& a, const Vector<3>& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

template <int N> Point<N> operator+(const Point<N>& p, const Vector<N>& v) {
    Point<N> r;
    for (int i = 0; i < N; ++i) {
        r[i] = p[i] + v[i];
    }
    return r;
}
template <int N> Point<N> operator-(const Point<N>& p, const Vector<N>& v) {
    Point<N> r;
    for (int i = 0; i < N; ++i) {
        r[i] = p[i] - v[i];
    }
    return r;
}
template <int N> Point<N>& operator+=(Point<N>& p, const Vector<N>& v) {
    return p = p + v;
}
template <int N> Point<N>& operator-=(Point<N>& p, const Vector<N>& v) {
    return p = p - v;
}
template <int N> Vector<N> operator-(const Point<N>& a, const Point<N>& b) {
    Vector<N> r;
    for (int i = 0; i < N; ++i) {
        r[i] = a[i] - b[i];
    }
    return r;
}

/// The vector from the origin to p, and back.
template <int N> Vector<N> toVector(const Point<N>& p) {
    return Vector<N>(p.data());
}
template <int N> Point<N> toPoint(const Vector<N>& v) {
    return Point<N>(v.data());
}

/// Linear blend: a at t = 0, b at t = 1.
template <int N> Point<N> interp(const Point<N>& a, const Point<N>& b, double t) {
    Point<N> r;
    for (int i = 0; i < N; ++i) {
        r[i] = a[i] + (b[i] - a[i]) * t;
    }
    return r;
}
template <int N> Point<N> midpoint(const Point<N>& a, const Point<N>& b) {
    return interp(a, b, 0.5);
}
template <int N> double distance(const Point<N>& a, const Point<N>& b) {
    return (b - a).length();
}
