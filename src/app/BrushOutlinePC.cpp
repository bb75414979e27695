#include "app/BrushOutlinePC.h"

#include "views/PolyPC.h"

#include <cmath>
#include <numbers>

namespace {

/// Segments of a flattened Bezier piece, and of the surface ellipse.
constexpr int curveSteps = 8;
constexpr int ellipseSteps = 48;

} // namespace

BrushOutlinePC::BrushOutlinePC(TQL::Handle<MaskOutline> outline, double radius, double aspect)
    : outline_(std::move(outline)), radius_(radius), aspect_(aspect > 0 ? aspect : 1.0) {}

std::vector<Point<2>> BrushOutlinePC::pathAt(IPoint<2> at, const CursorContext& context) const {
    std::vector<Point<2>> path;
    if (!outline_) {
        return path;
    }
    if (!outline_->threeD) {
        if (outline_->imagePoints.size() < 4) {
            return path;
        }
        for (const Point<2>& p : BezierPC::flatten(outline_->imagePoints, curveSteps)) {
            // Offsets from the dab's centre pixel; a pixel's centre is at +0.5.
            path.push_back(context.toView(Point<2>(at.x + 0.5 + p.x(), at.y + 0.5 + p.y())));
        }
        return path;
    }
    Point<3> centre;
    Plane plane;
    if (!(radius_ > 0) || !context.pick(at, centre, &plane)) {
        return path;
    }
    const Vector<3> n = plane.normal().unit();
    // Level across the surface where it can be, as a dab lies.
    Vector<3> u = cross(Vector<3>(0, 0, 1), n);
    if (u.lengthSquared() < 1e-12) {
        u = cross(Vector<3>(1, 0, 0), n);
    }
    u = u.unit();
    const Vector<3> v = cross(n, u);
    for (int i = 0; i < ellipseSteps; ++i) {
        const double a = 2 * std::numbers::pi * i / ellipseSteps;
        const Point<3> world =
            centre + u * (radius_ * std::cos(a)) + v * (radius_ * aspect_ * std::sin(a));
        Point<3> pixel;
        if (!context.project(world, pixel)) {
            return {};
        }
        path.push_back(context.toView(Point<2>(pixel.x() + 0.5, pixel.y() + 0.5)));
    }
    return path;
}

void BrushOutlinePC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (!hasMouse_) {
        return;
    }
    const std::vector<Point<2>> path = pathAt(mouse_, context);
    painter.setPen(CursorPainter::Pen::solid);
    for (std::size_t i = 0; i + 1 < path.size(); ++i) {
        painter.line(path[i], path[i + 1]);
    }
    if (path.size() > 2) {
        painter.line(path.back(), path.front());
    }
}

unsigned BrushOutlinePC::move(const CursorEvent& event, const CursorContext&) {
    hasMouse_ = true;
    mouse_ = event.image;
    return cursorreply::redraw;
}

unsigned BrushOutlinePC::drag(const CursorEvent& event, const CursorContext& context) {
    return move(event, context);
}
