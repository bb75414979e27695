#include "views/PolyPC.h"

#include <algorithm>

Point<2> fractionOf(const Point<2>& pixel, const IExtent<2>& extent) {
    const double w = static_cast<double>(extent.width() - 1);
    const double h = static_cast<double>(extent.height() - 1);
    return Point<2>(w > 0 ? (pixel.x() - extent.lo().x) / w : 0.0,
                    h > 0 ? (pixel.y() - extent.lo().y) / h : 0.0);
}

namespace {

IPoint<2> clampInto(IPoint<2> p, const IExtent<2>& e) {
    return IPoint<2>(std::clamp(p.x, e.lo().x, e.hi().x), std::clamp(p.y, e.lo().y, e.hi().y));
}

} // namespace

// PolygonGatherPC

unsigned PolygonGatherPC::complete() {
    if (pointCount() < minimumPoints()) {
        return cursorreply::none;
    }
    polygonDone_ = true;
    return polygonComplete() | cursorreply::redraw;
}

bool PolygonGatherPC::pressAddsNoPoint(const CursorEvent& event, const CursorContext& context,
                                       unsigned& reply) {
    reply = cursorreply::none;
    if (polygonDone_) {
        return true;
    }
    if (event.button == CursorEvent::rightButton) {
        reply = complete();
        return true;
    }
    if (event.button != CursorEvent::leftButton) {
        return true;
    }
    if (closed_ && pointCount() >= minimumPoints() && nearPixel(event, context, firstPixel())) {
        reply = complete();
        return true;
    }
    return false;
}

unsigned PolygonGatherPC::doubleClick(const CursorEvent& event, const CursorContext& context) {
    if (polygonDone_) {
        return cursorreply::none;
    }
    // The first click of the pair has added the point already.
    const unsigned reply = press(event, context);
    if (polygonDone_) {
        return reply;
    }
    return complete() | reply;
}

unsigned PolygonGatherPC::key(CursorKey key) {
    if (polygonDone_) {
        return cursorreply::none;
    }
    if (key == CursorKey::enter) {
        return complete();
    }
    if (key == CursorKey::backspace && pointCount() > 0) {
        removeLastPoint();
        return cursorreply::redraw;
    }
    return cursorreply::none;
}

// PolyPC

void PolyPC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (points_.empty()) {
        return;
    }
    painter.setPen(CursorPainter::Pen::solid);
    drawPixelPath(painter, context, points_.data(), points_.size(), closed() && polygonDone());
    for (const IPoint<2>& p : points_) {
        painter.handle(context.pixelToView(p));
    }
    if (!polygonDone() && hasMouse_) {
        painter.setPen(CursorPainter::Pen::dashed);
        painter.line(context.pixelToView(points_.back()), context.pixelToView(mouse_));
        if (closed() && points_.size() >= 2) {
            painter.line(context.pixelToView(mouse_), context.pixelToView(points_.front()));
        }
    }
}

unsigned PolyPC::press(const CursorEvent& event, const CursorContext& context) {
    unsigned reply = cursorreply::none;
    if (pressAddsNoPoint(event, context, reply)) {
        return reply;
    }
    if (points_.empty() || !(points_.back() == event.image)) {
        points_.push_back(event.image);
    }
    mouse_ = event.image;
    hasMouse_ = true;
    return cursorreply::redraw;
}

unsigned PolyPC::move(const CursorEvent& event, const CursorContext&) {
    if (polygonDone() || points_.empty()) {
        return cursorreply::none;
    }
    mouse_ = event.image;
    hasMouse_ = true;
    return cursorreply::redraw;
}

// PolyHookPC

void PolyHookPC::draw(CursorPainter& painter, const CursorContext& context) const {
    PolyPC::draw(painter, context);
    if (polygonDone() || hasHook_) {
        painter.setPen(hasHook_ && finished() ? CursorPainter::Pen::solid
                                              : CursorPainter::Pen::dashed);
        if (hasHook_) {
            painter.handle(context.pixelToView(hook_));
        }
    }
}

unsigned PolyHookPC::press(const CursorEvent& event, const CursorContext& context) {
    if (!polygonDone()) {
        return PolyPC::press(event, context);
    }
    if (event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    hook_ = event.image;
    hasHook_ = true;
    return finish();
}

unsigned PolyHookPC::move(const CursorEvent& event, const CursorContext& context) {
    if (!polygonDone()) {
        return PolyPC::move(event, context);
    }
    // The hook follows the mouse until the click that places it.
    hook_ = event.image;
    hasHook_ = true;
    return cursorreply::redraw;
}

unsigned PolyHookPC::doubleClick(const CursorEvent& event, const CursorContext& context) {
    if (!polygonDone()) {
        return PolyPC::doubleClick(event, context);
    }
    return press(event, context);
}

// PolyFracPC

void PolyFracPC::draw(CursorPainter& painter, const CursorContext& context) const {
    painter.setPen(CursorPainter::Pen::guide);
    const IExtent<2>& e = extent_;
    const IPoint<2> corners[4] = {e.lo(), IPoint<2>(e.hi().x, e.lo().y), e.hi(),
                                  IPoint<2>(e.lo().x, e.hi().y)};
    drawPixelPath(painter, context, corners, 4, true);
    PolyPC::draw(painter, context);
}

unsigned PolyFracPC::press(const CursorEvent& event, const CursorContext& context) {
    CursorEvent clamped = event;
    clamped.image = clampInto(event.image, extent_);
    return PolyPC::press(clamped, context);
}

std::vector<Point<2>> PolyFracPC::fractions() const {
    std::vector<Point<2>> out;
    out.reserve(points().size());
    for (const IPoint<2>& p : points()) {
        out.push_back(fractionOf(Point<2>(p.x, p.y), extent_));
    }
    return out;
}

// BezierPC

std::vector<Point<2>> BezierPC::controlPoints() const {
    std::vector<Point<2>> out;
    for (std::size_t i = 0; i < anchors_.size(); ++i) {
        if (i > 0) {
            out.push_back(anchors_[i - 1] + tangents_[i - 1]);
            out.push_back(anchors_[i] - tangents_[i]);
        }
        out.push_back(anchors_[i]);
    }
    return out;
}

std::vector<Point<2>> BezierPC::flatten(const std::vector<Point<2>>& c, int steps) {
    std::vector<Point<2>> out;
    if (c.empty()) {
        return out;
    }
    out.push_back(c[0]);
    for (std::size_t i = 0; i + 3 < c.size(); i += 3) {
        for (int s = 1; s <= steps; ++s) {
            const double t = static_cast<double>(s) / steps;
            const double u = 1 - t;
            const double b0 = u * u * u;
            const double b1 = 3 * u * u * t;
            const double b2 = 3 * u * t * t;
            const double b3 = t * t * t;
            out.emplace_back(
                b0 * c[i].x() + b1 * c[i + 1].x() + b2 * c[i + 2].x() + b3 * c[i + 3].x(),
                b0 * c[i].y() + b1 * c[i + 1].y() + b2 * c[i + 2].y() + b3 * c[i + 3].y());
        }
    }
    return out;
}

void BezierPC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (anchors_.empty()) {
        return;
    }
    auto view = [&context](const Point<2>& p) {
        return context.toView(Point<2>(p.x() + 0.5, p.y() + 0.5));
    };
    painter.setPen(CursorPainter::Pen::solid);
    const std::vector<Point<2>> curve = flatten(controlPoints(), 16);
    for (std::size_t i = 1; i < curve.size(); ++i) {
        painter.line(view(curve[i - 1]), view(curve[i]));
    }
    for (const Point<2>& a : anchors_) {
        painter.handle(view(a));
    }
    if (finished()) {
        return;
    }
    // The tangent being pulled, and the segment the next click would add.
    painter.setPen(CursorPainter::Pen::dashed);
    const Point<2>& last = anchors_.back();
    const Vector<2>& t = tangents_.back();
    if (t.lengthSquared() > 0) {
        painter.line(view(last - t), view(last + t));
    }
    if (hasMouse_ && !pulling_) {
        painter.line(view(last), view(Point<2>(mouse_.x, mouse_.y)));
    }
}

unsigned BezierPC::press(const CursorEvent& event, const CursorContext&) {
    if (event.button == CursorEvent::rightButton) {
        return key(CursorKey::enter);
    }
    if (event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    const IPoint<2> p = place(event.image);
    anchors_.emplace_back(p.x, p.y);
    tangents_.emplace_back(0, 0);
    pulling_ = true;
    return cursorreply::redraw;
}

unsigned BezierPC::drag(const CursorEvent& event, const CursorContext& context) {
    if (!pulling_) {
        return move(event, context);
    }
    const IPoint<2> p = place(event.image);
    tangents_.back() = Point<2>(p.x, p.y) - anchors_.back();
    return cursorreply::redraw;
}

unsigned BezierPC::release(const CursorEvent& event, const CursorContext& context) {
    if (!pulling_) {
        return cursorreply::none;
    }
    drag(event, context);
    pulling_ = false;
    return cursorreply::redraw;
}

unsigned BezierPC::move(const CursorEvent& event, const CursorContext&) {
    if (anchors_.empty()) {
        return cursorreply::none;
    }
    mouse_ = place(event.image);
    hasMouse_ = true;
    return cursorreply::redraw;
}

unsigned BezierPC::doubleClick(const CursorEvent&, const CursorContext&) {
    // The first click of the pair placed the last anchor.
    pulling_ = false;
    return key(CursorKey::enter);
}

unsigned BezierPC::key(CursorKey key) {
    if (key == CursorKey::enter) {
        return anchors_.size() >= 2 ? finish() : cursorreply::none;
    }
    if (key == CursorKey::backspace && !anchors_.empty()) {
        anchors_.pop_back();
        tangents_.pop_back();
        pulling_ = false;
        return cursorreply::redraw;
    }
    return cursorreply::none;
}

// BezierFracPC

IPoint<2> BezierFracPC::place(IPoint<2> pixel) const {
    return clampInto(pixel, extent_);
}

std::vector<Point<2>> BezierFracPC::fractions() const {
    std::vector<Point<2>> out;
    for (const Point<2>& p : controlPoints()) {
        out.push_back(fractionOf(p, extent_));
    }
    return out;
}
