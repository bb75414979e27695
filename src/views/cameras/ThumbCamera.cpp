#include "views/cameras/ThumbCamera.h"

#include "views/cameras/TransformChain.h"

#include <algorithm>

ThumbCamera::ThumbCamera(std::int32_t width, std::int32_t height, const ThumbPlacing& placing,
                         const Extent<3>& modelExtent, bool allowQuarterTurn)
    : TransformCamera(height, 0, 1, true, Point<3>::m_origin, 0) {
    // Centre the model and bring it to radius 1. The style's third scale value goes to
    // the second axis and its second to the third.
    const Point<3> c = modelExtent.centre();
    const Vector<3> size = modelExtent.size();
    const double r = size.length() > 0 ? size.length() / 2 : 1;
    const double m = std::max({placing.scaleX, placing.scaleY, placing.scaleZ});
    const double sx = (placing.reflectX ? -1 : 1) * placing.scaleX / m / r;
    const double sy = placing.scaleZ / m / r;
    const double sz = (placing.reflectY ? -1 : 1) * placing.scaleY / m / r;
    const double w = size.x() * sx;
    const double d = size.y() * sy;
    const double t = size.z() * sz;
    const bool fromAbove = allowQuarterTurn && w * w + d * d > 100 * t * t;

    TransformChain chain(UniformTransform<3>::translation(-toVector(c)));
    chain.scale(sx, sy, sz)
        .then(UniformTransform<3>::rotation(placing.spin, Vector<3>(0, 0, 1)))
        .then(UniformTransform<3>::rotation(placing.turn, Vector<3>(0, 1, 0)));
    if (fromAbove) {
        chain.then(UniformTransform<3>::rotation(Angle::degrees(90), Vector<3>(1, 0, 0)));
    }
    // The model, of radius 1, stands 5 units in front of the eye, which looks along +y
    // with +z up.
    chain.translate(0, 5, 0).then(
        NonUniformTransform<3>::axes(Vector<3>(1, 0, 0), Vector<3>(0, 0, -1), Vector<3>(0, 1, 0)));

    eye_ = Point<3>::m_origin / chain.get();
    eyeGuard_ = (Vector<3>(1, 0, 0) * chain.get()).length() * 1e-12;
    eyePlane_ = Plane(Vector<3>(0, 0, 1) * chain.get(), eye_);

    chain.then(PerspectiveTransform<3>());
    Extent<2> screen;
    for (int i = 0; i < 8; ++i) {
        const Point<3> p = modelExtent.corner(i) * chain.get();
        screen += Point<2>(p.x(), p.y());
    }
    const Vector<2> extent = screen.size();
    const double s = std::min((height - 2) / extent.y(), (width - 2) / extent.x());
    chain.translate(-screen.centre().x(), -screen.centre().y(), 0)
        .scale(s, s, 1)
        .translate(width / 2.0, height / 2.0, 0);
    setTransform(chain.get());
}
