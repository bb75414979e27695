#include "views/Poly3dPC.h"

namespace {

/// Lines a Bezier segment is drawn with.
constexpr int curveSteps = 16;

Point<3> bezierAt(const Point<3>* c, double t) {
    const double u = 1 - t;
    const double b[4] = {u * u * u, 3 * u * u * t, 3 * u * t * t, t * t * t};
    Point<3> p;
    for (int k = 0; k < 3; ++k) {
        p[k] = b[0] * c[0][k] + b[1] * c[1][k] + b[2] * c[2][k] + b[3] * c[3][k];
    }
    return p;
}

} // namespace

// Poly3dPC

bool Poly3dPC::pointAt(IPoint<2> pixel, const CursorContext& context, Point<3>& world) {
    return context.pick(pixel, world);
}

void Poly3dPC::drawWorldPath(CursorPainter& painter, const CursorContext& context,
                             const std::vector<Point<3>>& points, bool closed) {
    for (std::size_t i = 1; i < points.size(); ++i) {
        context.worldLine(painter, points[i - 1], points[i]);
    }
    if (closed && points.size() > 2) {
        context.worldLine(painter, points.back(), points.front());
    }
}

void Poly3dPC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (points_.empty()) {
        return;
    }
    painter.setPen(CursorPainter::Pen::solid);
    drawWorldPath(painter, context, points_, closed() && polygonDone());
    for (const Point<3>& p : points_) {
        Point<3> pixel;
        if (context.project(p, pixel)) {
            painter.handle(context.toView(Point<2>(pixel.x() + 0.5, pixel.y() + 0.5)));
        }
    }
    if (!polygonDone() && hasMouse_) {
        painter.setPen(CursorPainter::Pen::dashed);
        context.worldLine(painter, points_.back(), mouse_);
    }
}

unsigned Poly3dPC::press(const CursorEvent& event, const CursorContext& context) {
    unsigned reply = cursorreply::none;
    if (pressAddsNoPoint(event, context, reply)) {
        return reply;
    }
    Point<3> world;
    if (!pointAt(event.image, context, world)) {
        return cursorreply::none;
    }
    if (!pixels_.empty() && pixels_.back() == event.image) {
        return cursorreply::none;
    }
    points_.push_back(world);
    pixels_.push_back(event.image);
    mouse_ = world;
    hasMouse_ = true;
    return cursorreply::redraw;
}

unsigned Poly3dPC::move(const CursorEvent& event, const CursorContext& context) {
    if (polygonDone() || points_.empty()) {
        return cursorreply::none;
    }
    hasMouse_ = pointAt(event.image, context, mouse_);
    return cursorreply::redraw;
}

void Poly3dPC::removeLastPoint() {
    points_.pop_back();
    pixels_.pop_back();
}

// PolyOutline3dPC

bool PolyOutline3dPC::pointAt(IPoint<2> pixel, const CursorContext& context, Point<3>& world) {
    if (!hasPlane_ || points().empty()) {
        // The first point, or the first again after Backspace took every point away.
        hasPlane_ = context.pick(pixel, world, &plane_);
        return hasPlane_;
    }
    return context.onPlane(pixel, plane_, world);
}

// PolyPlaneHook3dPC

void PolyPlaneHook3dPC::draw(CursorPainter& painter, const CursorContext& context) const {
    PolyOutline3dPC::draw(painter, context);
    Point<3> pixel;
    if (hasHook_ && context.project(hook_, pixel)) {
        painter.setPen(finished() ? CursorPainter::Pen::solid : CursorPainter::Pen::dashed);
        painter.handle(context.toView(Point<2>(pixel.x() + 0.5, pixel.y() + 0.5)));
    }
}

unsigned PolyPlaneHook3dPC::press(const CursorEvent& event, const CursorContext& context) {
    if (!polygonDone()) {
        return PolyOutline3dPC::press(event, context);
    }
    if (event.button != CursorEvent::leftButton || !context.onPlane(event.image, plane(), hook_)) {
        return cursorreply::none;
    }
    hasHook_ = true;
    return finish();
}

unsigned PolyPlaneHook3dPC::move(const CursorEvent& event, const CursorContext& context) {
    if (!polygonDone()) {
        return PolyOutline3dPC::move(event, context);
    }
    hasHook_ = context.onPlane(event.image, plane(), hook_);
    return cursorreply::redraw;
}

// PolyOriented3dPC

Point<3> PolyOriented3dPC::centre() const {
    Vector<3> sum(0, 0, 0);
    for (const Point<3>& p : points()) {
        sum += toVector(p);
    }
    return points().empty() ? Point<3>() : toPoint(sum / static_cast<double>(points().size()));
}

unsigned PolyOriented3dPC::polygonComplete() {
    // Newell's normal: right for any simple polygon, convex or not.
    Vector<3> n(0, 0, 0);
    const std::vector<Point<3>>& p = points();
    for (std::size_t i = 0; i < p.size(); ++i) {
        const Point<3>& a = p[i];
        const Point<3>& b = p[(i + 1) % p.size()];
        n[0] += (a.y() - b.y()) * (a.z() + b.z());
        n[1] += (a.z() - b.z()) * (a.x() + b.x());
        n[2] += (a.x() - b.x()) * (a.y() + b.y());
    }
    if (n.lengthSquared() == 0) {
        // Collinear points: the plane facing the direction they don't span.
        n = cross(p.back() - p.front(), Vector<3>(0, 0, 1));
        if (n.lengthSquared() == 0) {
            n = Vector<3>(1, 0, 0);
        }
    }
    plane_ = Plane(n, centre());
    return cursorreply::redraw;
}

bool PolyOriented3dPC::aim(IPoint<2> pixel, const CursorContext& context) {
    Point<3> at;
    if (!context.onPlane(pixel, plane_, at)) {
        return false;
    }
    const Vector<3> d = at - centre();
    if (d.lengthSquared() == 0) {
        return false;
    }
    orientation_ = d.unit();
    return true;
}

void PolyOriented3dPC::draw(CursorPainter& painter, const CursorContext& context) const {
    Poly3dPC::draw(painter, context);
    if (!polygonDone() || orientation_.lengthSquared() == 0) {
        return;
    }
    // An arrow from the centre, as long as the polygon's first edge.
    const std::vector<Point<3>>& p = points();
    const double length = (p[1] - p[0]).length();
    painter.setPen(finished() ? CursorPainter::Pen::solid : CursorPainter::Pen::dashed);
    context.worldLine(painter, centre(), centre() + orientation_ * length);
}

unsigned PolyOriented3dPC::press(const CursorEvent& event, const CursorContext& context) {
    if (!polygonDone()) {
        return Poly3dPC::press(event, context);
    }
    if (event.button != CursorEvent::leftButton || !aim(event.image, context)) {
        return cursorreply::none;
    }
    return finish();
}

unsigned PolyOriented3dPC::move(const CursorEvent& event, const CursorContext& context) {
    if (!polygonDone()) {
        return Poly3dPC::move(event, context);
    }
    return aim(event.image, context) ? cursorreply::redraw : cursorreply::none;
}

// Bezier3dPC

std::vector<Point<3>> Bezier3dPC::controlPoints() const {
    std::vector<Point<3>> out;
    for (std::size_t i = 0; i < anchors_.size(); ++i) {
        if (i > 0) {
            out.push_back(anchors_[i - 1] + tangents_[i - 1]);
            out.push_back(anchors_[i] - tangents_[i]);
        }
        out.push_back(anchors_[i]);
    }
    return out;
}

void Bezier3dPC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (anchors_.empty()) {
        return;
    }
    painter.setPen(CursorPainter::Pen::solid);
    const std::vector<Point<3>> c = controlPoints();
    for (std::size_t i = 0; i + 3 < c.size(); i += 3) {
        Point<3> last = c[i];
        for (int s = 1; s <= curveSteps; ++s) {
            const Point<3> next = bezierAt(&c[i], static_cast<double>(s) / curveSteps);
            context.worldLine(painter, last, next);
            last = next;
        }
    }
    if (pulling_ && tangents_.back().lengthSquared() > 0) {
        painter.setPen(CursorPainter::Pen::dashed);
        context.worldLine(painter, anchors_.back() - tangents_.back(),
                          anchors_.back() + tangents_.back());
    }
}

unsigned Bezier3dPC::press(const CursorEvent& event, const CursorContext& context) {
    if (event.button == CursorEvent::rightButton) {
        return key(CursorKey::enter);
    }
    Point<3> world;
    Plane plane;
    if (event.button != CursorEvent::leftButton || !context.pick(event.image, world, &plane)) {
        return cursorreply::none;
    }
    anchors_.push_back(world);
    planes_.push_back(plane);
    tangents_.emplace_back(0, 0, 0);
    pulling_ = true;
    return cursorreply::redraw;
}

unsigned Bezier3dPC::drag(const CursorEvent& event, const CursorContext& context) {
    Point<3> at;
    if (!pulling_ || !context.onPlane(event.image, planes_.back(), at)) {
        return cursorreply::none;
    }
    tangents_.back() = at - anchors_.back();
    return cursorreply::redraw;
}

unsigned Bezier3dPC::release(const CursorEvent& event, const CursorContext& context) {
    if (!pulling_) {
        return cursorreply::none;
    }
    drag(event, context);
    pulling_ = false;
    return cursorreply::redraw;
}

unsigned Bezier3dPC::doubleClick(const CursorEvent&, const CursorContext&) {
    pulling_ = false;
    return key(CursorKey::enter);
}

unsigned Bezier3dPC::key(CursorKey key) {
    if (key == CursorKey::enter) {
        return anchors_.size() >= 2 ? finish() : cursorreply::none;
    }
    if (key == CursorKey::backspace && !anchors_.empty()) {
        anchors_.pop_back();
        planes_.pop_back();
        tangents_.pop_back();
        pulling_ = false;
        return cursorreply::redraw;
    }
    return cursorreply::none;
}
