#include "core/Transform.h"

#include <cmath>
#include <limits>

template <int N> Extent<N> Transform<N>::preMultiply(const Extent<N>& e) const {
    if (e.degenerate()) {
        return e;
    }
    Extent<N> r;
    for (int i = 0; i < (1 << N); ++i) {
        r += preMultiply(e.corner(i));
    }
    return r;
}

template <int N> Extent<N> Transform<N>::preDivide(const Extent<N>& e) const {
    if (e.degenerate()) {
        return e;
    }
    Extent<N> r;
    for (int i = 0; i < (1 << N); ++i) {
        r += preDivide(e.corner(i));
    }
    return r;
}

namespace {
template <int N>
HomogeneousMatrix<N> multiplyHomogeneous(const HomogeneousMatrix<N>& a,
                                         const HomogeneousMatrix<N>& b) {
    HomogeneousMatrix<N> r{};
    for (int i = 0; i <= N; ++i) {
        for (int k = 0; k <= N; ++k) {
            for (int j = 0; j <= N; ++j) {
                r[i][j] += a[i][k] * b[k][j];
            }
        }
    }
    return r;
}
} // namespace

template <int N> Transform<N>* Transform<N>::composeWith(const Transform& next) const {
    if (isAffine() && next.isAffine()) {
        const auto& a = static_cast<const AffineTransform<N>&>(*this);
        const auto& b = static_cast<const AffineTransform<N>&>(next);
        const AffineTransform<N> c = a.followedBy(b);
        if (dynamic_cast<const UniformTransform<N>*>(this) &&
            dynamic_cast<const UniformTransform<N>*>(&next)) {
            return new UniformTransform<N>(c);
        }
        return new NonUniformTransform<N>(c);
    }
    if constexpr (N == 3) {
        return new PerspectiveTransform<3>(
            multiplyHomogeneous<3>(homogeneous(), next.homogeneous()));
    } else {
        return nullptr; // 2D transforms are all affine
    }
}

template <int N> HomogeneousMatrix<N> AffineTransform<N>::homogeneous() const {
    HomogeneousMatrix<N> h{};
    for (int i = 0; i < N; ++i) {
        for (int j = 0; j < N; ++j) {
            h[i][j] = m_(i, j);
        }
        h[N][i] = t_[i];
    }
    h[N][N] = 1;
    return h;
}

template <int N> void AffineTransform<N>::packToPod(double (&pod)[4][3]) const {
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) {
            pod[i][j] = (i == j) ? 1.0 : 0.0;
        }
    }
    for (int i = 0; i < N; ++i) {
        for (int j = 0; j < N; ++j) {
            pod[i][j] = m_(i, j);
        }
        pod[3][i] = t_[i];
    }
}

template <int N> Transform<2>* AffineTransform<N>::pSlice() const {
    if constexpr (N == 3) {
        Matrix<2> m;
        for (int i = 0; i < 2; ++i) {
            for (int j = 0; j < 2; ++j) {
                m(i, j) = m_(i, j);
            }
        }
        const Vector<2> t(t_[0], t_[1]);
        if (dynamic_cast<const UniformTransform<3>*>(this)) {
            return new UniformTransform<2>(AffineTransform<2>(m, t));
        }
        return new NonUniformTransform<2>(m, t);
    } else {
        return nullptr;
    }
}

template <int N> AffineTransform<N> AffineTransform<N>::affineInverse() const {
    const Matrix<N> inv = m_.inverse();
    return AffineTransform(inv, -Vector<N>(t_, inv));
}

template <int N> UniformTransform<N> UniformTransform<N>::rotation(Angle a) requires(N == 2) {
    Matrix<2> m;
    const double c = a.cos(), s = a.sin();
    // Row vectors: (x, y) -> (x c - y s, x s + y c).
    m(0, 0) = c;
    m(0, 1) = s;
    m(1, 0) = -s;
    m(1, 1) = c;
    return UniformTransform(m, Vector<N>());
}

namespace {
/// The matrix whose columns are a, b, c: p M = (p.a, p.b, p.c).
Matrix<3> columns(const Vector<3>& a, const Vector<3>& b, const Vector<3>& c) {
    Matrix<3> m;
    for (int i = 0; i < 3; ++i) {
        m(i, 0) = a[i];
        m(i, 1) = b[i];
        m(i, 2) = c[i];
    }
    return m;
}
Matrix<3> rowsOf(const Vector<3>& a, const Vector<3>& b, const Vector<3>& c) {
    const Vector<3> r[3] = {a, b, c};
    return Matrix<3>::rows(r);
}
} // namespace

template <int N>
UniformTransform<N> UniformTransform<N>::rotation(Angle a, const Vector<3>& axis) requires(N == 3) {
    // Rodrigues: v' = v c + (k x v) s + k (k.v)(1 - c), written as v' = v M.
    const Vector<3> k = axis.unit();
    const double c = a.cos(), s = a.sin(), t = 1 - c;
    Matrix<3> r; // column-vector form R, then transposed for row vectors
    r(0, 0) = c + k[0] * k[0] * t;
    r(0, 1) = k[0] * k[1] * t - k[2] * s;
    r(0, 2) = k[0] * k[2] * t + k[1] * s;
    r(1, 0) = k[1] * k[0] * t + k[2] * s;
    r(1, 1) = c + k[1] * k[1] * t;
    r(1, 2) = k[1] * k[2] * t - k[0] * s;
    r(2, 0) = k[2] * k[0] * t - k[1] * s;
    r(2, 1) = k[2] * k[1] * t + k[0] * s;
    r(2, 2) = c + k[2] * k[2] * t;
    return UniformTransform(r.transpose(), Vector<3>());
}

template <int N>
UniformTransform<N> UniformTransform<N>::xyAxes(const Vector<3>& x,
                                                const Vector<3>& y) requires(N == 3) {
    const Vector<3> X = x.unit();
    const Vector<3> Z = cross(x, y).unit();
    const Vector<3> Y = cross(Z, X);
    return UniformTransform(columns(X, Y, Z), Vector<3>());
}

template <int N>
UniformTransform<N> UniformTransform<N>::yzAxes(const Vector<3>& y,
                                                const Vector<3>& z) requires(N == 3) {
    const Vector<3> Y = y.unit();
    const Vector<3> X = cross(y, z).unit();
    const Vector<3> Z = cross(X, Y);
    return UniformTransform(columns(X, Y, Z), Vector<3>());
}

template <int N>
UniformTransform<N> UniformTransform<N>::zxAxes(const Vector<3>& z,
                                                const Vector<3>& x) requires(N == 3) {
    const Vector<3> Z = z.unit();
    const Vector<3> Y = cross(z, x).unit();
    const Vector<3> X = cross(Y, Z);
    return UniformTransform(columns(X, Y, Z), Vector<3>());
}

template <int N>
NonUniformTransform<N> NonUniformTransform<N>::scale(double sx, double sy) requires(N == 2) {
    Matrix<2> m;
    m(0, 0) = sx;
    m(1, 1) = sy;
    return NonUniformTransform(m, Vector<2>());
}

template <int N>
NonUniformTransform<N> NonUniformTransform<N>::scale(double sx, double sy,
                                                     double sz) requires(N == 3) {
    Matrix<3> m;
    m(0, 0) = sx;
    m(1, 1) = sy;
    m(2, 2) = sz;
    return NonUniformTransform(m, Vector<3>());
}

template <int N>
NonUniformTransform<N> NonUniformTransform<N>::axes(const Vector<3>& a, const Vector<3>& b,
                                                    const Vector<3>& c) requires(N == 3) {
    return NonUniformTransform(rowsOf(a, b, c).inverse(), Vector<3>());
}

template <int N>
NonUniformTransform<N> NonUniformTransform<N>::fromAxes(const Vector<3>& a, const Vector<3>& b,
                                                        const Vector<3>& c) requires(N == 3) {
    return NonUniformTransform(rowsOf(a, b, c), Vector<3>());
}

PerspectiveTransform<3>::PerspectiveTransform() : h_{} {
    // [x y z 1] H = [x, y, -1, z]: (x/z, y/z, -1/z).
    h_[0][0] = 1;
    h_[1][1] = 1;
    h_[3][2] = -1;
    h_[2][3] = 1;
}

bool invertHomogeneous(const HomogeneousMatrix<3>& m, HomogeneousMatrix<3>& inverse) {
    // Gauss-Jordan with partial pivoting.
    double a[4][8];
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            a[i][j] = m[i][j];
            a[i][j + 4] = i == j ? 1.0 : 0.0;
        }
    }
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r) {
            if (std::fabs(a[r][col]) > std::fabs(a[pivot][col])) {
                pivot = r;
            }
        }
        if (a[pivot][col] == 0) {
            return false;
        }
        if (pivot != col) {
            for (int j = 0; j < 8; ++j) {
                std::swap(a[pivot][j], a[col][j]);
            }
        }
        const double d = a[col][col];
        for (int j = 0; j < 8; ++j) {
            a[col][j] /= d;
        }
        for (int r = 0; r < 4; ++r) {
            if (r != col && a[r][col] != 0) {
                const double f = a[r][col];
                for (int j = 0; j < 8; ++j) {
                    a[r][j] -= f * a[col][j];
                }
            }
        }
    }
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            inverse[i][j] = a[i][j + 4];
        }
    }
    return true;
}

PerspectiveTransform<3>* PerspectiveTransform<3>::pInverse() const {
    HomogeneousMatrix<3> inv{};
    if (!invertHomogeneous(h_, inv)) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        for (auto& row : inv) {
            row.fill(nan);
        }
    }
    return new PerspectiveTransform(inv);
}

Vector<3> PerspectiveTransform<3>::translation() const {
    const double w = h_[3][3];
    return Vector<3>(h_[3][0] / w, h_[3][1] / w, h_[3][2] / w);
}

bool PerspectiveTransform<3>::mirroring() const {
    Matrix<3> m;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            m(i, j) = h_[i][j];
        }
    }
    return m.determinant() < 0;
}

void PerspectiveTransform<3>::packToPod(double (&pod)[4][3]) const {
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) {
            pod[i][j] = h_[i][j];
        }
    }
}

Point<3> PerspectiveTransform<3>::preMultiply(const Point<3>& p) const {
    double r[4];
    for (int j = 0; j < 4; ++j) {
        r[j] = p[0] * h_[0][j] + p[1] * h_[1][j] + p[2] * h_[2][j] + h_[3][j];
    }
    return {r[0] / r[3], r[1] / r[3], r[2] / r[3]};
}

Vector<3> PerspectiveTransform<3>::preMultiply(const Vector<3>& v) const {
    Vector<3> r;
    for (int j = 0; j < 3; ++j) {
        r[j] = v[0] * h_[0][j] + v[1] * h_[1][j] + v[2] * h_[2][j];
    }
    return r;
}

Point<3> PerspectiveTransform<3>::preDivide(const Point<3>& p) const {
    std::unique_ptr<PerspectiveTransform> inv(pInverse());
    return p * *inv;
}

Vector<3> PerspectiveTransform<3>::preDivide(const Vector<3>& v) const {
    std::unique_ptr<PerspectiveTransform> inv(pInverse());
    return v * *inv;
}

// Members defined here, instantiated for the dimensions that have them. (Instantiating
// whole classes would also instantiate the makers constrained to the other dimension.)
template Extent<2> Transform<2>::preMultiply(const Extent<2>&) const;
template Extent<3> Transform<3>::preMultiply(const Extent<3>&) const;
template Extent<2> Transform<2>::preDivide(const Extent<2>&) const;
template Extent<3> Transform<3>::preDivide(const Extent<3>&) const;
template Transform<2>* Transform<2>::composeWith(const Transform<2>&) const;
template Transform<3>* Transform<3>::composeWith(const Transform<3>&) const;
template HomogeneousMatrix<2> AffineTransform<2>::homogeneous() const;
template HomogeneousMatrix<3> AffineTransform<3>::homogeneous() const;
template void AffineTransform<2>::packToPod(double (&)[4][3]) const;
template void AffineTransform<3>::packToPod(double (&)[4][3]) const;
template Transform<2>* AffineTransform<2>::pSlice() const;
template Transform<2>* AffineTransform<3>::pSlice() const;
template AffineTransform<2> AffineTransform<2>::affineInverse() const;
template AffineTransform<3> AffineTransform<3>::affineInverse() const;
template UniformTransform<2> UniformTransform<2>::rotation(Angle);
template UniformTransform<3> UniformTransform<3>::rotation(Angle, const Vector<3>&);
template UniformTransform<3> UniformTransform<3>::xyAxes(const Vector<3>&, const Vector<3>&);
template UniformTransform<3> UniformTransform<3>::yzAxes(const Vector<3>&, const Vector<3>&);
template UniformTransform<3> UniformTransform<3>::zxAxes(const Vector<3>&, const Vector<3>&);
template NonUniformTransform<2> NonUniformTransform<2>::scale(double, double);
template NonUniformTransform<3> NonUniformTransform<3>::scale(double, double, double);
template NonUniformTransform<3> NonUniformTransform<3>::axes(const Vector<3>&, const Vector<3>&,
                                                             const Vector<3>&);
template NonUniformTransform<3> NonUniformTransform<3>::fromAxes(const Vector<3>&, const Vector<3>&,
                                                                 const Vector<3>&);
