// Surface estimation of ZmapDocument: world points and planes of pixels through the
// document's view.

#include "image/ZmapDocument.h"

#include "core/Matrix.h"

#include <cmath>
#include <cstdlib>

namespace {

/// Depth and material reads from the working channels, or from the originals, keeping
/// the tile of the last read of each.
class PixelSource {
public:
    PixelSource(const ZmapDocument& document, bool fromModel)
        : document_(document), fromModel_(fromModel) {}

    std::uint32_t code(std::int32_t x, std::int32_t y) const {
        return fromModel_ ? document_.originalZAtCached(x, y, zHold_, zTile_)
                          : document_.zAtCached(x, y, zHold_, zTile_);
    }
    MaterialId material(std::int32_t x, std::int32_t y) const {
        return fromModel_ ? document_.originalMatAtCached(x, y, matHold_, matTile_)
                          : document_.matAtCached(x, y, matHold_, matTile_);
    }
    bool hasDepth() const { return fromModel_ ? bool(document_.originalZ) : bool(document_.z); }

private:
    const ZmapDocument& document_;
    bool fromModel_;
    mutable TileHandle zHold_;
    mutable TileHandle matHold_;
    mutable std::int32_t zTile_ = -1;
    mutable std::int32_t matTile_ = -1;
};

/// The least-squares fit of a da + b db + c + g = 0 to samples (da, db, g): its normal
/// equations, accumulated.
class PlaneFit {
public:
    void add(double da, double db, double g) {
        const double v[3] = {da, db, 1};
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) {
                m_(i, j) += v[i] * v[j];
            }
            r_[i] -= v[i] * g;
        }
    }
    /// False when the samples don't fix a plane (a zero determinant).
    bool solve(double& a, double& b, double& c) const {
        if (m_.determinant() == 0) {
            return false;
        }
        // The matrix is symmetric, so the row-vector product is the solution.
        const Vector<3> s(r_, m_.inverse());
        a = s[0];
        b = s[1];
        c = s[2];
        return true;
    }

private:
    Matrix<3> m_ = Matrix<3>::zero();
    Vector<3> r_;
};

/// Where a sample goes into the fit. For perspective and cubic views a world plane is
/// linear in inverse depth over the coordinates of a face plane: the image plane itself,
/// or in a cube image the plane of the centre pixel's face, onto which samples of other
/// faces are carried through the eye. For parallel views the code itself is linear.
class FitFrame {
public:
    /// For a fit around pixel (x, y).
    FitFrame(const ViewProj& view, std::int32_t x) : view_(view) {
        if (view.viewType() == ViewProj::cubicView) {
            // Direction, right and up of the centre's face, as in ViewProj::pixelDirection.
            static const Vector<3> frames[6][3] = {
                {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}},   {{1, 0, 0}, {0, 0, -1}, {0, 1, 0}},
                {{0, 0, -1}, {-1, 0, 0}, {0, 1, 0}}, {{-1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
                {{0, 1, 0}, {1, 0, 0}, {0, 0, -1}},  {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}},
            };
            const std::int32_t face = view.faceSize().faceOf(x);
            e0_ = frames[face][0];
            e1_ = frames[face][1];
            e2_ = frames[face][2];
        }
    }

    /// The sample of pixel (x, y) with depth code `code`: its coordinates on the frame and
    /// the value that is linear over them. False for a direction that doesn't reach the
    /// frame's plane.
    bool sample(std::int32_t x, std::int32_t y, double code, Point<3>& out) const {
        switch (view_.viewType()) {
        case ViewProj::parallelView:
            out = Point<3>(x, y, code);
            return true;
        case ViewProj::perspectiveView:
            out = Point<3>(x, y, 1 / (code + view_.depthOffset()));
            return true;
        case ViewProj::cubicView: {
            const Vector<3> d = view_.pixelDirection(x, y);
            const double t = dot(d, e0_);
            if (!(t > 0)) {
                return false;
            }
            out =
                Point<3>(dot(d, e1_) / t, dot(d, e2_) / t, 1 / ((code + view_.depthOffset()) * t));
            return true;
        }
        case ViewProj::unknownView:
            break;
        }
        return false;
    }

    void setCentre(const Point<3>& centre) { centre_ = centre; }
    const Point<3>& centre() const { return centre_; }

    /// The plane's normal in homogeneous coordinates from the solved a, b, c.
    Vector<3> normal(double a, double b, double c) const {
        if (view_.viewType() == ViewProj::parallelView) {
            return Vector<3>(a, b, 1);
        }
        return e1_ * a + e2_ * b + e0_ * (c - a * centre_.x() - b * centre_.y() - centre_.z());
    }

private:
    const ViewProj& view_;
    Vector<3> e0_{0, 0, 1};
    Vector<3> e1_{1, 0, 0};
    Vector<3> e2_{0, 1, 0};
    Point<3> centre_;
};

/// A neighbour of the centre pixel for localPlaneAt.
struct Neighbour {
    std::int32_t x, y;
    bool exists;
};

} // namespace

void ZmapDocument::setViewParams(const ViewParams& record) {
    viewParams_ = record;
    updateViewProj();
}

void ZmapDocument::updateViewProj() {
    if (width() >= 2 && height() >= 2) {
        viewProj_ = TQL::makeHandle<ViewProj>(viewParams_, width(), height());
    } else {
        viewProj_.reset();
    }
}

Point<3> ZmapDocument::worldAt(std::int32_t x, std::int32_t y) const {
    if (!viewProj_ || !z) {
        return Point<3>::m_origin;
    }
    return viewProj_->worldFromPixel(x, y, zAt(x, y));
}

Point<3> ZmapDocument::worldFromCode(std::int32_t x, std::int32_t y, std::uint32_t code) const {
    if (!viewProj_) {
        return Point<3>::m_origin;
    }
    return viewProj_->worldFromPixel(x, y, code);
}

Plane ZmapDocument::defaultPlane() const {
    if (!viewProj_ || viewProj_->viewType() == ViewProj::unknownView) {
        return -Plane();
    }
    // Two points of the bottom row, unprojected at the background code, and the view
    // direction span the ground; of its two facings the one pointing down the picture.
    const ViewProj& view = *viewProj_;
    const bool cubic = view.viewType() == ViewProj::cubicView;
    const std::int32_t right = (cubic ? view.faceSize().size() : width()) - 1;
    const std::int32_t bottom = height() - 1;
    const Point<3> a = view.worldFromPixel(0, bottom, depth::noDepth);
    const Point<3> b = view.worldFromPixel(right, bottom, depth::noDepth);
    Vector<3> normal = cross(b - a, viewParams_.zAxis);
    if (dot(normal, viewParams_.yAxis) > 0) {
        normal = -normal;
    }
    return Plane(normal, a);
}

Plane ZmapDocument::planeWithoutDepth(std::int32_t x, std::int32_t y) const {
    if (!viewProj_ || viewProj_->viewType() != ViewProj::cubicView) {
        return defaultPlane();
    }
    // The far plane of the pixel's face.
    const ViewProj& view = *viewProj_;
    const std::int32_t n = view.faceSize().size();
    const std::int32_t left = view.faceSize().faceOf(x) * n;
    const std::int32_t right = left + n - 1;
    return Plane(view.worldFromPixel(left, 0, depth::noDepth),
                 view.worldFromPixel(left, height(), depth::noDepth),
                 view.worldFromPixel(right, 0, depth::noDepth));
}

Plane ZmapDocument::localPlaneAt(std::int32_t x, std::int32_t y, bool fromModel) const {
    const PixelSource source(*this, fromModel);
    if (!viewProj_ || viewProj_->viewType() == ViewProj::unknownView || !source.hasDepth()) {
        return defaultPlane();
    }
    const ViewProj& view = *viewProj_;
    const std::uint32_t code = source.code(x, y);
    if (code == depth::noDepth) {
        return planeWithoutDepth(x, y);
    }
    const MaterialId material = source.material(x, y);
    const bool cubic = view.viewType() == ViewProj::cubicView;

    // Of two neighbours on opposite sides, the one with depth; if both have depth, the
    // first (left or upper) only when it has the centre's material and a strictly closer
    // code; else the second. A missing depth is replaced by the centre's code. Taking the
    // first reverses the direction to the neighbour, noted in `flip` to keep the winding.
    bool flip = false;
    const auto prefersFirst = [&](const Neighbour& first, const Neighbour& second) {
        bool takeFirst = !second.exists;
        if (first.exists && second.exists) {
            const std::uint32_t a = source.code(first.x, first.y);
            const std::uint32_t b = source.code(second.x, second.y);
            if (a != depth::noDepth && b == depth::noDepth) {
                takeFirst = true;
            } else if (a != depth::noDepth && b != depth::noDepth &&
                       source.material(first.x, first.y) == material) {
                takeFirst = std::llabs(std::int64_t(a) - code) < std::llabs(std::int64_t(b) - code);
            }
        }
        return takeFirst;
    };
    const auto pointOf = [&](const Neighbour& n, bool isFirst) {
        flip = flip != isFirst;
        const std::uint32_t c = source.code(n.x, n.y);
        return view.worldFromPixel(n.x, n.y, c == depth::noDepth ? code : c);
    };

    Neighbour left{x - 1, y, x > 0}, right{x + 1, y, x < width() - 1};
    Neighbour up{x, y - 1, y > 0}, down{x, y + 1, y < height() - 1};
    if (cubic) {
        // Across face edges: every pixel of a cube has four neighbours.
        const FaceSize& faces = view.faceSize();
        left = right = up = down = Neighbour{x, y, true};
        faces.stepLeft(left.x, left.y);
        faces.stepRight(right.x, right.y);
        faces.stepUp(up.x, up.y);
        faces.stepDown(down.x, down.y);
    }
    const bool takeLeft = prefersFirst(left, right);
    bool takeUp = prefersFirst(up, down);
    if (cubic) {
        // At a corner of a face the horizontal and the vertical step can both reach the
        // one pixel along the cube's edge, which spans no plane: take the other vertical
        // neighbour then.
        const FaceSize& faces = view.faceSize();
        const Neighbour& h = takeLeft ? left : right;
        const Neighbour& v = takeUp ? up : down;
        if (faces.canonicalPixel(h.x, h.y) == faces.canonicalPixel(v.x, v.y)) {
            takeUp = !takeUp;
        }
    }
    const Point<3> centre = view.worldFromPixel(x, y, code);
    const Point<3> horizontal = pointOf(takeLeft ? left : right, takeLeft);
    const Point<3> vertical = pointOf(takeUp ? up : down, takeUp);
    // Right, then down, gives a normal into the surface, away from the eye (the view frame
    // has X right, Y up and Z forward).
    const Plane plane(centre, horizontal, vertical);
    return flip ? -plane : plane;
}

Plane ZmapDocument::planeAt(std::int32_t x, std::int32_t y, bool* noDepth, bool fromModel) const {
    if (noDepth) {
        *noDepth = false;
    }
    const PixelSource source(*this, fromModel);
    if (!viewProj_ || viewProj_->viewType() == ViewProj::unknownView || !source.hasDepth()) {
        if (noDepth) {
            *noDepth = true;
        }
        return defaultPlane();
    }
    const ViewProj& view = *viewProj_;
    const std::uint32_t code = source.code(x, y);
    if (code == depth::noDepth) {
        if (noDepth) {
            *noDepth = true;
        }
        return planeWithoutDepth(x, y);
    }

    const Plane first = localPlaneAt(x, y, fromModel);
    const MaterialId material = source.material(x, y);
    const Point<3> centre = view.worldFromPixel(x, y, code);
    FitFrame frame(view, x);
    Point<3> centreSample;
    if (!frame.sample(x, y, code, centreSample)) {
        return first;
    }
    frame.setCentre(centreSample);

    PlaneFit fit;
    const auto addWindow = [&](const IExtent<2>& window) {
        if (window.degenerate()) {
            return;
        }
        for (std::int32_t py = window.lo().y; py <= window.hi().y; ++py) {
            for (std::int32_t px = window.lo().x; px <= window.hi().x; ++px) {
                const std::uint32_t c = source.code(px, py);
                if (c == depth::noDepth || source.material(px, py) != material) {
                    continue;
                }
                if (px != x || py != y) {
                    const Vector<3> towards = (view.worldFromPixel(px, py, c) - centre).unit();
                    if (std::fabs(dot(towards, first.normal())) > planeFitTolerance) {
                        continue;
                    }
                }
                Point<3> s;
                if (frame.sample(px, py, c, s)) {
                    fit.add(s.x() - centreSample.x(), s.y() - centreSample.y(),
                            s.z() - centreSample.z());
                }
            }
        }
    };
    if (view.viewType() == ViewProj::cubicView) {
        for (std::int32_t face = 0; face < 6; ++face) {
            addWindow(view.faceSize().faceWindow(x, y, planeFitRadius, face));
        }
    } else {
        addWindow(IExtent<2>(x - planeFitRadius, y - planeFitRadius, x + planeFitRadius,
                             y + planeFitRadius) &
                  IExtent<2>(0, 0, width() - 1, height() - 1));
    }

    double a = 0, b = 0, c = 0;
    if (!fit.solve(a, b, c)) {
        return first;
    }
    // To world: by the transpose of fromWorld's linear part (normals go with the inverse
    // transpose of the map of points, and fromWorld is toWorld's inverse).
    const Vector<3> h = frame.normal(a, b, c).unit();
    const Matrix<3>& from = view.fromWorld().linear();
    Vector<3> normal(dot(from.row(0), h), dot(from.row(1), h), dot(from.row(2), h));
    if (dot(normal, first.normal()) < 0) {
        normal = -normal;
    }
    return Plane(normal, centre);
}
