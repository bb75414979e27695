#pragma once

#include "core/Angle.h"
#include "core/Extent.h"
#include "core/Matrix.h"
#include "core/Point.h"

#include <array>
#include <memory>

// Transforms act on row vectors: a point p becomes p M + t. Composition follows a point:
// `a.composeWith(b)` and `a * b` apply a first, then b. `p * T` applies T, `p / T` its
// inverse.

/// The (N+1) by (N+1) homogeneous matrix of a transform, row-vector convention: the last
/// row holds the translation, the last column is (0, .., 0, 1) for an affine transform.
template <int N> using HomogeneousMatrix = std::array<std::array<double, N + 1>, N + 1>;

template <int N> class AffineTransform;

/// Abstract base of all transforms, N = 2 or 3.
template <int N> class Transform {
public:
    virtual ~Transform() = default;

    /// A copy of this transform, owned by the caller.
    virtual Transform* clone() const = 0;
    /// The inverse, owned by the caller. A singular transform gives non-finite results.
    virtual Transform* pInverse() const = 0;
    /// This transform followed by `next`, owned by the caller. The result is of the
    /// narrowest family that holds both: uniform, non-uniform (affine) or perspective.
    virtual Transform* composeWith(const Transform& next) const;
    /// The full homogeneous matrix.
    virtual HomogeneousMatrix<N> homogeneous() const = 0;
    /// The translation part (the image of the origin for an affine transform).
    virtual Vector<N> translation() const = 0;
    /// True if the transform reverses orientation (negative determinant of the linear part).
    virtual bool mirroring() const = 0;
    /// Three rows of the linear part, then the translation row (a 2D transform is embedded
    /// with z unchanged).
    virtual void packToPod(double (&pod)[4][3]) const = 0;
    /// The 2D slice (x and y) of a 3D transform, owned by the caller; null for N = 2.
    virtual Transform<2>* pSlice() const = 0;
    /// True for affine transforms.
    virtual bool isAffine() const = 0;

    std::unique_ptr<Transform> inverted() const { return std::unique_ptr<Transform>(pInverse()); }
    std::unique_ptr<Transform> then(const Transform& next) const {
        return std::unique_ptr<Transform>(composeWith(next));
    }

    friend Point<N> operator*(const Point<N>& p, const Transform& t) { return t.preMultiply(p); }
    friend Vector<N> operator*(const Vector<N>& v, const Transform& t) { return t.preMultiply(v); }
    friend Extent<N> operator*(const Extent<N>& e, const Transform& t) { return t.preMultiply(e); }
    friend Point<N> operator/(const Point<N>& p, const Transform& t) { return t.preDivide(p); }
    friend Vector<N> operator/(const Vector<N>& v, const Transform& t) { return t.preDivide(v); }
    friend Extent<N> operator/(const Extent<N>& e, const Transform& t) { return t.preDivide(e); }

protected:
    virtual Point<N> preMultiply(const Point<N>& p) const = 0;
    /// Vectors go through the linear part only.
    virtual Vector<N> preMultiply(const Vector<N>& v) const = 0;
    /// The bounding box of the transformed corners.
    virtual Extent<N> preMultiply(const Extent<N>& e) const;
    virtual Point<N> preDivide(const Point<N>& p) const = 0;
    virtual Vector<N> preDivide(const Vector<N>& v) const = 0;
    virtual Extent<N> preDivide(const Extent<N>& e) const;
};

/// p M + t with any invertible linear part. Copyable and assignable.
template <int N> class AffineTransform : public Transform<N> {
public:
    /// The identity.
    AffineTransform() = default;
    AffineTransform(const Matrix<N>& linear, const Vector<N>& translation)
        : m_(linear), t_(translation) {}

    AffineTransform* clone() const override { return new AffineTransform(*this); }
    AffineTransform* pInverse() const override { return new AffineTransform(affineInverse()); }
    HomogeneousMatrix<N> homogeneous() const override;
    Vector<N> translation() const override { return t_; }
    bool mirroring() const override { return m_.determinant() < 0; }
    void packToPod(double (&pod)[4][3]) const override;
    Transform<2>* pSlice() const override;
    bool isAffine() const override { return true; }

    virtual Point<N> multiply(const Point<N>& p) const {
        return toPoint(Vector<N>(toVector(p), m_) + t_);
    }
    virtual Point<N> divide(const Point<N>& p) const { return affineInverse().multiply(p); }

    const Matrix<N>& linear() const { return m_; }
    /// The inverse as an affine transform.
    AffineTransform affineInverse() const;
    /// This followed by `next`.
    AffineTransform followedBy(const AffineTransform& next) const {
        return AffineTransform(m_ * next.m_, Vector<N>(t_, next.m_) + next.t_);
    }

protected:
    Point<N> preMultiply(const Point<N>& p) const override { return multiply(p); }
    Vector<N> preMultiply(const Vector<N>& v) const override { return Vector<N>(v, m_); }
    Extent<N> preMultiply(const Extent<N>& e) const override {
        return Transform<N>::preMultiply(e);
    }
    Point<N> preDivide(const Point<N>& p) const override { return divide(p); }
    Vector<N> preDivide(const Vector<N>& v) const override { return Vector<N>(v, m_.inverse()); }
    Extent<N> preDivide(const Extent<N>& e) const override { return Transform<N>::preDivide(e); }

    Matrix<N> m_;
    Vector<N> t_;
};

/// Rotation, translation and uniform scale only.
template <int N> class UniformTransform : public AffineTransform<N> {
public:
    UniformTransform() = default;
    using AffineTransform<N>::translation;

    static UniformTransform translation(const Vector<N>& v) {
        return UniformTransform(Matrix<N>(), v);
    }
    static UniformTransform scale(double s) {
        return UniformTransform(Matrix<N>() * s, Vector<N>());
    }
    /// Counter-clockwise rotation about the origin (N = 2).
    static UniformTransform rotation(Angle a) requires(N == 2);
    /// Rotation about `axis` through the origin by the right-hand rule (N = 3).
    static UniformTransform rotation(Angle a, const Vector<3>& axis) requires(N == 3);
    /// Into the orthonormal frame built from x and the plane of x and y: X = unit x,
    /// Z = unit (x cross y), Y = Z cross X. A point p becomes (p.X, p.Y, p.Z).
    static UniformTransform xyAxes(const Vector<3>& x, const Vector<3>& y) requires(N == 3);
    /// As xyAxes, with the frame built from y and z (Y = unit y, X = unit (y cross z)).
    static UniformTransform yzAxes(const Vector<3>& y, const Vector<3>& z) requires(N == 3);
    /// As xyAxes, with the frame built from z and x (Z = unit z, Y = unit (z cross x)).
    static UniformTransform zxAxes(const Vector<3>& z, const Vector<3>& x) requires(N == 3);

    UniformTransform* clone() const override { return new UniformTransform(*this); }
    UniformTransform* pInverse() const override { return new UniformTransform(inverse()); }
    UniformTransform inverse() const { return UniformTransform(this->affineInverse()); }
    UniformTransform& operator*=(const UniformTransform& next) {
        *this = UniformTransform(this->followedBy(next));
        return *this;
    }
    UniformTransform& operator/=(const UniformTransform& next) { return *this *= next.inverse(); }
    friend UniformTransform operator*(UniformTransform a, const UniformTransform& b) {
        return a *= b;
    }

private:
    UniformTransform(const Matrix<N>& m, const Vector<N>& t) : AffineTransform<N>(m, t) {}
    explicit UniformTransform(const AffineTransform<N>& a) : AffineTransform<N>(a) {}
    template <int> friend class Transform;
    template <int> friend class AffineTransform;
};

/// Any affine transform, with per-axis scale and arbitrary frames.
template <int N> class NonUniformTransform : public AffineTransform<N> {
public:
    NonUniformTransform() = default;
    NonUniformTransform(const Matrix<N>& linear, const Vector<N>& translation)
        : AffineTransform<N>(linear, translation) {}
    explicit NonUniformTransform(const AffineTransform<N>& a) : AffineTransform<N>(a) {}
    using AffineTransform<N>::translation;

    static NonUniformTransform translation(const Vector<N>& v) {
        return NonUniformTransform(Matrix<N>(), v);
    }
    static NonUniformTransform scale(double sx, double sy) requires(N == 2);
    static NonUniformTransform scale(double sx, double sy, double sz) requires(N == 3);
    /// Into the coordinates of the frame (a, b, c): p becomes the (u, v, w) with
    /// p = u a + v b + w c. For an orthonormal frame that is (p.a, p.b, p.c); for a
    /// sheared frame such as (x, y, shear) it projects along the shear.
    static NonUniformTransform axes(const Vector<3>& a, const Vector<3>& b,
                                    const Vector<3>& c) requires(N == 3);
    /// Out of the frame (a, b, c): (u, v, w) becomes u a + v b + w c.
    static NonUniformTransform fromAxes(const Vector<3>& a, const Vector<3>& b,
                                        const Vector<3>& c) requires(N == 3);

    NonUniformTransform* clone() const override { return new NonUniformTransform(*this); }
    NonUniformTransform* pInverse() const override { return new NonUniformTransform(inverse()); }
    NonUniformTransform inverse() const { return NonUniformTransform(this->affineInverse()); }
    NonUniformTransform& operator*=(const AffineTransform<N>& next) {
        *this = NonUniformTransform(this->followedBy(next));
        return *this;
    }
    NonUniformTransform& operator/=(const AffineTransform<N>& next) {
        return *this *= next.affineInverse();
    }
    friend NonUniformTransform operator*(NonUniformTransform a, const AffineTransform<N>& b) {
        return a *= b;
    }
};

template <int N> class PerspectiveTransform;

/// The projective case in 3D: [p 1] H = [X Y Z W], and the result is (X, Y, Z) / W.
template <> class PerspectiveTransform<3> : public Transform<3> {
public:
    /// The projection (x/z, y/z, -1/z), which carries view coordinates to the screen
    /// with inverse depth in the third component.
    PerspectiveTransform();
    explicit PerspectiveTransform(const HomogeneousMatrix<3>& h) : h_(h) {}

    PerspectiveTransform* clone() const override { return new PerspectiveTransform(*this); }
    PerspectiveTransform* pInverse() const override;
    HomogeneousMatrix<3> homogeneous() const override { return h_; }
    Vector<3> translation() const override;
    bool mirroring() const override;
    void packToPod(double (&pod)[4][3]) const override;
    Transform<2>* pSlice() const override { return nullptr; }
    bool isAffine() const override { return false; }

protected:
    Point<3> preMultiply(const Point<3>& p) const override;
    Vector<3> preMultiply(const Vector<3>& v) const override;
    Point<3> preDivide(const Point<3>& p) const override;
    Vector<3> preDivide(const Vector<3>& v) const override;

private:
    HomogeneousMatrix<3> h_;
};

/// Inverse of a 4 by 4 homogeneous matrix; false if it is singular.
bool invertHomogeneous(const HomogeneousMatrix<3>& m, HomogeneousMatrix<3>& inverse);
