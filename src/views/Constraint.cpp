#include "views/Constraint.h"

#include "core/Line.h"
#include "image/ZmapDocument.h"

#include <cmath>
#include <numbers>

namespace {

/// The depth code of the far end of a pixel's ray.
constexpr double farCode = 4294967294.0;

IPoint<2> roundPixel(double x, double y) {
    return IPoint<2>(static_cast<std::int32_t>(std::lround(x)),
                     static_cast<std::int32_t>(std::lround(y)));
}

/// Two unit vectors spanning the plane with normal `n`.
void planeAxes(const Vector<3>& n, Vector<3>& u, Vector<3>& v) {
    const Vector<3> other = std::abs(n[2]) < 0.9 ? Vector<3>(0, 0, 1) : Vector<3>(1, 0, 0);
    u = cross(n, other).unit();
    v = cross(n, u).unit();
}

} // namespace

std::int32_t Constraint::fromStyle(std::int32_t stored) {
    switch (stored) {
    case 1:
        return onPlane;
    case 2:
        return onLine;
    default:
        return none;
    }
}

std::int32_t Constraint::toStyle(std::int32_t dialog) {
    switch (dialog) {
    case onLine:
        return 2;
    case onPlane:
        return 1;
    default:
        return 0;
    }
}

Constraint::Constraint(std::int32_t type, const ZmapDocument& document, IPoint<2> start,
                       bool threeD, const Vector<3>& axis, const Plane* givenPlane,
                       const TextureAxes* axes)
    : constraintType_(type), viewProj_(document.viewProj()), document_(document),
      startPixel_(start), threeD_(threeD && document.viewProj()), axis_(axis) {
    start_ = document.worldAt(start.x, start.y);
    plane_ = givenPlane ? *givenPlane : document.planeAt(start.x, start.y);
    if (axes) {
        textureAxes_ = *axes;
        hasTextureAxes_ = true;
    }
    flat_ = !threeD_ || std::abs(plane_.normal()[0]) < 0.001;
}

Line<3> Constraint::rayOf(IPoint<2> pixel) const {
    return Line<3>::through(viewProj_->worldFromPixelPoint(Point<3>(pixel.x, pixel.y, 0)),
                            viewProj_->worldFromPixelPoint(Point<3>(pixel.x, pixel.y, farCode)));
}

IPoint<2> Constraint::constrain2d(IPoint<2> mouse) const {
    const double dx = mouse.x - startPixel_.x;
    const double dy = mouse.y - startPixel_.y;
    Vector<2> direction(0, 0);
    if (constraintType_ == onLine) {
        direction = Vector<2>(axis_[0], axis_[1]);
        if (direction.lengthSquared() == 0) {
            direction = std::abs(dx) >= std::abs(dy) ? Vector<2>(1, 0) : Vector<2>(0, 1);
        }
    } else {
        if (dx == 0 && dy == 0) {
            return mouse;
        }
        const double step = std::numbers::pi / 4;
        const double angle = std::round(std::atan2(dy, dx) / step) * step;
        direction = Vector<2>(std::cos(angle), std::sin(angle));
    }
    direction = direction.unit();
    const double t = dx * direction[0] + dy * direction[1];
    return roundPixel(startPixel_.x + t * direction[0], startPixel_.y + t * direction[1]);
}

IPoint<2> Constraint::constrain(IPoint<2> mouse, Point<3>* world) const {
    if (constraintType_ != onLine && constraintType_ != onPlane) {
        if (world) {
            *world = document_.worldAt(mouse.x, mouse.y);
        }
        return mouse;
    }
    if (!threeD_) {
        const IPoint<2> p = constrain2d(mouse);
        if (world) {
            *world = document_.worldAt(p.x, p.y);
        }
        return p;
    }
    const Line<3> ray = rayOf(mouse);
    if (constraintType_ == onLine) {
        Vector<3> along = axis_;
        if (along.lengthSquared() == 0) {
            along = Vector<3>(0, 0, 1);
        }
        Point<3> onLine;
        Point<3> onRay;
        if (!crossing(onLine, onRay, Line<3>(start_, along), ray)) {
            return mouse;
        }
        if (world) {
            *world = onLine;
        }
        const Point<3> pixel = viewProj_->pixelFromWorld(onLine);
        return roundPixel(pixel.x(), pixel.y());
    }
    const double towards = dot(plane_.normal(), ray.direction());
    if (std::abs(towards) < 1e-12) {
        return mouse;
    }
    if (world) {
        *world = ray.at(-plane_.distanceTo(ray.origin()) / towards);
    }
    return mouse;
}

// ConstraintPC

void ConstraintPC::draw(CursorPainter& painter, const CursorContext& context) const {
    const Constraint& c = *constraint_;
    if (c.constraintType() != Constraint::onLine && c.constraintType() != Constraint::onPlane) {
        return;
    }
    painter.setPen(CursorPainter::Pen::guide);
    const IPoint<2> s = c.startPixel();
    const Point<2> centre(s.x + 0.5, s.y + 0.5);
    const IVector<2> size = context.mapping().imageSize();
    const double reach = static_cast<double>(size.x) + size.y;
    auto guide = [&](double dx, double dy) {
        painter.line(context.toView(Point<2>(centre.x() - dx * reach, centre.y() - dy * reach)),
                     context.toView(Point<2>(centre.x() + dx * reach, centre.y() + dy * reach)));
    };
    if (!c.threeD()) {
        if (c.constraintType() == Constraint::onLine) {
            const Vector<2> axis(c.axis()[0], c.axis()[1]);
            if (axis.lengthSquared() > 0) {
                guide(axis.unit()[0], axis.unit()[1]);
            } else {
                guide(1, 0);
                guide(0, 1);
            }
        } else {
            const double d = std::numbers::sqrt2 / 2;
            guide(1, 0);
            guide(0, 1);
            guide(d, d);
            guide(d, -d);
        }
    } else if (context.document()) {
        const Point<3>& p = c.startPoint();
        const ViewParams& vp = context.document()->viewParams();
        const double eyeDistance = (p - vp.eye).length();
        if (c.constraintType() == Constraint::onLine) {
            Vector<3> along = c.axis().lengthSquared() > 0 ? c.axis().unit() : Vector<3>(0, 0, 1);
            along *= std::max(1.0, vp.farDepth);
            context.worldLine(painter, p - along, p + along);
        } else {
            Vector<3> u;
            Vector<3> v;
            planeAxes(c.plane().normal(), u, v);
            const double half = std::max(1e-6, eyeDistance * 0.1);
            u *= half;
            v *= half;
            const Point<3> corners[4] = {p - u - v, p + u - v, p + u + v, p - u + v};
            for (int i = 0; i < 4; ++i) {
                context.worldLine(painter, corners[i], corners[(i + 1) % 4]);
            }
            context.worldLine(painter, p - u, p + u);
            context.worldLine(painter, p - v, p + v);
        }
    }
    painter.setPen(CursorPainter::Pen::solid);
    painter.handle(context.pixelToView(s));
}
