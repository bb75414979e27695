#include "views/cameras/QuorvaleCamera.h"

#include "core/TqlError.h"
#include "views/cameras/TransformChain.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>

namespace {

bool isParallel(const ViewParams& view) {
    return view.viewCode == ViewParams::parallelCode;
}

/// Direction, right and up of cube face f in terms of the unit view axes.
struct FaceAxes {
    Vector<3> direction, right, up;
};

FaceAxes faceAxes(int face, const Vector<3>& X, const Vector<3>& Y, const Vector<3>& Z) {
    switch (face) {
    case 0:
        return {Z, X, Y};
    case 1:
        return {X, -Z, Y};
    case 2:
        return {-Z, -X, Y};
    case 3:
        return {-X, Z, Y};
    case 4:
        return {Y, X, -Z};
    default:
        return {-Y, X, Z};
    }
}

} // namespace

QuorvaleCamera::QuorvaleCamera(const Transform<3>& placing, const ViewParams& view,
                               std::int32_t width, std::int32_t height,
                               const Extent<3>& modelExtent, const IExtent<2>& rectangle)
    : TransformCamera(static_cast<int>(rectangle.height()), view.nearDepth, view.farDepth,
                      !isParallel(view), view.eye / placing,
                      (Vector<3>(1, 0, 0) * placing).length() * 1e-12) {
    const Vector<3> X = view.xAxis.unit();
    const Vector<3> Y = view.yAxis.unit();
    const Vector<3> Z = view.zAxis.unit();
    const double left = rectangle.lo().x;
    const double top = rectangle.lo().y;
    const double far = view.farDepth;
    TransformChain chain(placing);
    chain.then(UniformTransform<3>::translation(-toVector(view.eye)));

    switch (ViewProj::viewTypeOf(view.viewCode)) {
    case ViewProj::perspectiveView: {
        const Point<3>& lo = view.windowLo;
        const Point<3>& hi = view.windowHi;
        const double lox = lo.x() / lo.z();
        const double loy = lo.y() / lo.z();
        const double hix = hi.x() / hi.z();
        const double hiy = hi.y() / hi.z();
        // Screen z comes out as -farDepth / depth, which depthCode turns back.
        chain.then(NonUniformTransform<3>::axes(X, -Y, Z))
            .then(PerspectiveTransform<3>())
            .translate(-lox, loy, 0)
            .scale((width - 1) / (hix - lox), (height - 1) / (loy - hiy), far)
            .translate(-left, -top, 0);
        // The normal is Z carried forward by the placing, not back as for a parallel
        // camera's direction of view: the two differ for a placing that isn't rigid, and
        // drawings rely on this one.
        eyePlane_ = Plane(Z * placing, eye_);
        break;
    }
    case ViewProj::cubicView: {
        const std::int32_t n = width / 6;
        const int face = rectangle.lo().x / n;
        if (rectangle.hi().x >= (face + 1) * n) {
            throw TQL::TqlError(L"A model is drawn into one face of a cube image at a time");
        }
        const FaceAxes f = faceAxes(face, X, Y, Z);
        const double h = (n - 1) * 0.5;
        chain.then(NonUniformTransform<3>::axes(f.right, -f.up, f.direction))
            .then(PerspectiveTransform<3>())
            .translate(1, 1, 0)
            .scale(h, h, far)
            .translate(face * n - left, -top, 0);
        eyePlane_ = Plane(f.direction * placing, eye_);
        break;
    }
    case ViewProj::parallelView: {
        // S takes view coordinates into the frame sheared along the direction of
        // projection: (x - z sx, y - z sy, z / shear.z) with sx = shear.x / shear.z. The
        // window corners go forward through S, as the image's own view measures them.
        const auto S =
            NonUniformTransform<3>::axes(Vector<3>(1, 0, 0), Vector<3>(0, 1, 0), view.shear);
        const Point<3> lo = view.windowLo * S;
        const Point<3> hi = view.windowHi * S;
        chain.then(NonUniformTransform<3>::axes(X, Y, Z))
            .then(S)
            .translate(-lo.x(), -lo.y(), 0)
            .scale((width - 1) / (hi.x() - lo.x()), -(height - 1) / (lo.y() - hi.y()),
                   view.shear.z())
            .translate(-left, -top, 0);
        // Shift depths so that every point of the model has z >= 0.
        double m = 0;
        for (int i = 0; i < 8 && !modelExtent.degenerate(); ++i) {
            m = std::min(m, (modelExtent.corner(i) * chain.get()).z());
        }
        chain.translate(0, 0, -m);
        nearCode_ -= m;
        viewDirection_ = Z / placing;
        break;
    }
    case ViewProj::unknownView:
        throw TQL::TqlError(L"A model can't be drawn into an image of an unknown view");
    }
    setTransform(chain.get());
}
