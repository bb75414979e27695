#pragma once

#include "core/Point.h"

#include <cmath>

/// An N by N matrix of doubles, row-major. Points and vectors are row vectors: v' = v M.
template <int N> class Matrix {
public:
    /// The identity.
    Matrix() {
        for (int r = 0; r < N; ++r) {
            for (int c = 0; c < N; ++c) {
                m_[r][c] = r == c ? 1.0 : 0.0;
            }
        }
    }
    /// From rows.
    static Matrix rows(const Vector<N> (&r)[N]) {
        Matrix m;
        for (int i = 0; i < N; ++i) {
            for (int j = 0; j < N; ++j) {
                m.m_[i][j] = r[i][j];
            }
        }
        return m;
    }
    static Matrix zero() {
        Matrix m;
        for (int i = 0; i < N; ++i) {
            for (int j = 0; j < N; ++j) {
                m.m_[i][j] = 0;
            }
        }
        return m;
    }

    double& operator()(int r, int c) { return m_[r][c]; }
    double operator()(int r, int c) const { return m_[r][c]; }
    Vector<N> row(int r) const { return Vector<N>(m_[r]); }

    double determinant() const {
        if constexpr (N == 1) {
            return m_[0][0];
        } else if constexpr (N == 2) {
            return m_[0][0] * m_[1][1] - m_[0][1] * m_[1][0];
        } else {
            return m_[0][0] * (m_[1][1] * m_[2][2] - m_[1][2] * m_[2][1]) -
                   m_[0][1] * (m_[1][0] * m_[2][2] - m_[1][2] * m_[2][0]) +
                   m_[0][2] * (m_[1][0] * m_[2][1] - m_[1][1] * m_[2][0]);
        }
    }

    /// The inverse. The caller tests determinant() against zero first; a singular
    /// matrix gives non-finite entries.
    Matrix inverse() const {
        Matrix r;
        const double d = determinant();
        if constexpr (N == 1) {
            r.m_[0][0] = 1.0 / d;
        } else if constexpr (N == 2) {
            r.m_[0][0] = m_[1][1] / d;
            r.m_[0][1] = -m_[0][1] / d;
            r.m_[1][0] = -m_[1][0] / d;
            r.m_[1][1] = m_[0][0] / d;
        } else {
            r.m_[0][0] = (m_[1][1] * m_[2][2] - m_[1][2] * m_[2][1]) / d;
            r.m_[0][1] = (m_[0][2] * m_[2][1] - m_[0][1] * m_[2][2]) / d;
            r.m_[0][2] = (m_[0][1] * m_[1][2] - m_[0][2] * m_[1][1]) / d;
            r.m_[1][0] = (m_[1][2] * m_[2][0] - m_[1][0] * m_[2][2]) / d;
            r.m_[1][1] = (m_[0][0] * m_[2][2] - m_[0][2] * m_[2][0]) / d;
            r.m_[1][2] = (m_[0][2] * m_[1][0] - m_[0][0] * m_[1][2]) / d;
            r.m_[2][0] = (m_[1][0] * m_[2][1] - m_[1][1] * m_[2][0]) / d;
            r.m_[2][1] = (m_[0][1] * m_[2][0] - m_[0][0] * m_[2][1]) / d;
            r.m_[2][2] = (m_[0][0] * m_[1][1] - m_[0][1] * m_[1][0]) / d;
        }
        return r;
    }

    Matrix transpose() const {
        Matrix r;
        for (int i = 0; i < N; ++i) {
            for (int j = 0; j < N; ++j) {
                r.m_[i][j] = m_[j][i];
            }
        }
        return r;
    }

    friend Matrix operator*(const Matrix& a, const Matrix& b) {
        Matrix r = zero();
        for (int i = 0; i < N; ++i) {
            for (int k = 0; k < N; ++k) {
                for (int j = 0; j < N; ++j) {
                    r.m_[i][j] += a.m_[i][k] * b.m_[k][j];
                }
            }
        }
        return r;
    }
    friend Matrix operator*(const Matrix& a, double s) {
        Matrix r = a;
        for (int i = 0; i < N; ++i) {
            for (int j = 0; j < N; ++j) {
                r.m_[i][j] *= s;
            }
        }
        return r;
    }
    bool operator==(const Matrix& o) const {
        for (int i = 0; i < N; ++i) {
            for (int j = 0; j < N; ++j) {
                if (m_[i][j] != o.m_[i][j]) {
                    return false;
                }
            }
        }
        return true;
    }

private:
    double m_[N][N];
};

template <int N> Vector<N>::Vector(const Vector& v, const Matrix<N>& m) {
    for (int j = 0; j < N; ++j) {
        double s = 0;
        for (int i = 0; i < N; ++i) {
            s += v[i] * m(i, j);
        }
        c_[j] = s;
    }
}

/// A point multiplied by a matrix as a row vector.
template <int N> Point<N> operator*(const Point<N>& p, const Matrix<N>& m) {
    return toPoint(Vector<N>(toVector(p), m));
}
template <int N> Vector<N> operator*(const Vector<N>& v, const Matrix<N>& m) {
    return Vector<N>(v, m);
}
