#include "views/PseudoCursor.h"

#include "core/Line.h"
#include "image/ZmapDocument.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

/// How near, in window pixels, a press must be to grab a corner.
constexpr double grabDistance = 6;
/// The depth code of the far end of a pixel's ray (the last code with geometry).
constexpr double farCode = 4294967294.0;

} // namespace

CursorEvent CursorEvent::at(Kind kind, IPoint<2> view, const ViewMapping& mapping, int button,
                            unsigned modifiers) {
    CursorEvent e;
    e.kind = kind;
    e.view = view;
    e.image = mapping.viewToImage(view);
    e.button = button;
    e.modifiers = modifiers;
    return e;
}

// CursorContext

IExtent<2> CursorContext::imageBounds() const {
    const IVector<2> size = mapping_.imageSize();
    return IExtent<2>(0, 0, size.x - 1, size.y - 1);
}

Point<2> CursorContext::toView(const Point<2>& image) const {
    const double scale = static_cast<double>(mapping_.zoomNumerator()) / mapping_.zoomDenominator();
    const IVector<2> margin = mapping_.margin();
    const IPoint<2> scroll = mapping_.scroll();
    return Point<2>(image.x() * scale + margin.x - scroll.x,
                    image.y() * scale + margin.y - scroll.y);
}

bool CursorContext::pick(IPoint<2> pixel, Point<3>& world, Plane* plane) const {
    if (!document_ || !document_->viewProj() || !imageBounds().contains(pixel)) {
        return false;
    }
    if (document_->zAt(pixel.x, pixel.y) == 0xFFFFFFFFu) {
        return false;
    }
    world = document_->worldAt(pixel.x, pixel.y);
    if (plane) {
        bool noDepth = false;
        *plane = document_->planeAt(pixel.x, pixel.y, &noDepth);
        if (noDepth) {
            return false;
        }
    }
    return true;
}

bool CursorContext::onPlane(IPoint<2> pixel, const Plane& plane, Point<3>& world) const {
    if (!document_ || !document_->viewProj()) {
        return false;
    }
    const ViewProj& vp = *document_->viewProj();
    const Point<3> nearPoint = vp.worldFromPixelPoint(Point<3>(pixel.x, pixel.y, 0));
    const Point<3> farPoint = vp.worldFromPixelPoint(Point<3>(pixel.x, pixel.y, farCode));
    const Line<3> ray = Line<3>::through(nearPoint, farPoint);
    const double along = dot(plane.normal(), ray.direction());
    if (std::abs(along) < 1e-12) {
        return false;
    }
    const double t = -plane.distanceTo(nearPoint) / along;
    if (!(t >= 0) || !std::isfinite(t)) {
        return false;
    }
    world = ray.at(t);
    return true;
}

bool CursorContext::project(const Point<3>& world, Point<3>& pixel) const {
    if (!document_ || !document_->viewProj()) {
        return false;
    }
    pixel = document_->viewProj()->pixelFromWorld(world);
    return std::isfinite(pixel.x()) && std::isfinite(pixel.y());
}

bool CursorContext::worldLine(CursorPainter& painter, const Point<3>& a, const Point<3>& b) const {
    if (!document_ || !document_->viewProj()) {
        return false;
    }
    Point<3> pa;
    Point<3> pb;
    if (document_->viewProj()->clipSegmentToPixels(pa, pb, a, b, true) == 0) {
        return false;
    }
    // Pixel coordinates name pixel centres; the window's real coordinates their corners.
    painter.line(toView(Point<2>(pa.x() + 0.5, pa.y() + 0.5)),
                 toView(Point<2>(pb.x() + 0.5, pb.y() + 0.5)));
    return true;
}

// PseudoCursor

PseudoCursor::~PseudoCursor() = default;

unsigned PseudoCursor::drag(const CursorEvent& event, const CursorContext& context) {
    return move(event, context);
}

unsigned PseudoCursor::press(const CursorEvent&, const CursorContext&) {
    return cursorreply::none;
}

unsigned PseudoCursor::release(const CursorEvent&, const CursorContext&) {
    return cursorreply::none;
}

unsigned PseudoCursor::move(const CursorEvent&, const CursorContext&) {
    return cursorreply::none;
}

unsigned PseudoCursor::doubleClick(const CursorEvent& event, const CursorContext& context) {
    return press(event, context);
}

unsigned PseudoCursor::key(CursorKey) {
    return cursorreply::none;
}

unsigned PseudoCursor::handle(const CursorEvent& event, const CursorContext& context) {
    if (finished_) {
        return cursorreply::none;
    }
    switch (event.kind) {
    case CursorEvent::Kind::press:
        return press(event, context);
    case CursorEvent::Kind::release:
        return release(event, context);
    case CursorEvent::Kind::doubleClick:
        return doubleClick(event, context);
    case CursorEvent::Kind::move:
        return event.button != CursorEvent::noButton ? drag(event, context) : move(event, context);
    }
    return cursorreply::none;
}

bool PseudoCursor::nearPixel(const CursorEvent& event, const CursorContext& context,
                             IPoint<2> pixel) {
    const Point<2> at = context.pixelToView(pixel);
    return std::hypot(event.view.x + 0.5 - at.x(), event.view.y + 0.5 - at.y()) <= grabDistance;
}

void PseudoCursor::drawPixelPath(CursorPainter& painter, const CursorContext& context,
                                 const IPoint<2>* points, std::size_t count, bool closed) {
    for (std::size_t i = 1; i < count; ++i) {
        painter.line(context.pixelToView(points[i - 1]), context.pixelToView(points[i]));
    }
    if (closed && count > 2) {
        painter.line(context.pixelToView(points[count - 1]), context.pixelToView(points[0]));
    }
}

namespace {

/// The outline of image pixels `e` (their outer edges) in window coordinates.
void drawExtent(CursorPainter& painter, const CursorContext& context, const IExtent<2>& e) {
    const Point<2> a = context.toView(Point<2>(e.lo().x, e.lo().y));
    const Point<2> b = context.toView(Point<2>(e.hi().x + 1.0, e.hi().y + 1.0));
    // Lines through the centres of the outermost window pixels.
    const double x0 = a.x() + 0.5;
    const double y0 = a.y() + 0.5;
    const double x1 = b.x() - 0.5;
    const double y1 = b.y() - 0.5;
    painter.line(Point<2>(x0, y0), Point<2>(x1, y0));
    painter.line(Point<2>(x1, y0), Point<2>(x1, y1));
    painter.line(Point<2>(x1, y1), Point<2>(x0, y1));
    painter.line(Point<2>(x0, y1), Point<2>(x0, y0));
}

IExtent<2> spanning(IPoint<2> a, IPoint<2> b) {
    return IExtent<2>(std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x),
                      std::max(a.y, b.y));
}

} // namespace

// DragRectPC

void DragRectPC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (rect_.degenerate()) {
        return;
    }
    painter.setPen(dragging_ ? CursorPainter::Pen::dashed : CursorPainter::Pen::solid);
    drawExtent(painter, context, rect_);
}

void DragRectPC::stretch(IPoint<2> to, const CursorContext& context) {
    IPoint<2> from = anchor_;
    if (twoWay_) {
        from = IPoint<2>(2 * anchor_.x - to.x, 2 * anchor_.y - to.y);
    }
    rect_ = spanning(from, to) & context.imageBounds();
}

unsigned DragRectPC::press(const CursorEvent& event, const CursorContext& context) {
    if (event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    dragging_ = true;
    anchor_ = event.image;
    stretch(event.image, context);
    return cursorreply::redraw;
}

unsigned DragRectPC::drag(const CursorEvent& event, const CursorContext& context) {
    if (!dragging_) {
        return cursorreply::none;
    }
    stretch(event.image, context);
    return cursorreply::redraw;
}

unsigned DragRectPC::release(const CursorEvent& event, const CursorContext& context) {
    if (!dragging_ || event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    stretch(event.image, context);
    dragging_ = false;
    if (rect_.degenerate()) {
        return cursorreply::redraw;
    }
    return finish();
}

// DragLinePC

void DragLinePC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (!hasLine_) {
        return;
    }
    painter.setPen(dragging_ ? CursorPainter::Pen::dashed : CursorPainter::Pen::solid);
    painter.line(context.pixelToView(start_), context.pixelToView(end_));
    painter.handle(context.pixelToView(start_));
    painter.handle(context.pixelToView(end_));
}

unsigned DragLinePC::press(const CursorEvent& event, const CursorContext&) {
    if (event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    dragging_ = true;
    hasLine_ = true;
    start_ = end_ = event.image;
    return cursorreply::redraw;
}

unsigned DragLinePC::drag(const CursorEvent& event, const CursorContext&) {
    if (!dragging_) {
        return cursorreply::none;
    }
    end_ = event.image;
    return cursorreply::redraw;
}

unsigned DragLinePC::release(const CursorEvent& event, const CursorContext&) {
    if (!dragging_ || event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    dragging_ = false;
    end_ = event.image;
    if (end_ == start_) {
        // A click is no line: wait for a drag.
        hasLine_ = false;
        return cursorreply::redraw;
    }
    return finish();
}

// DragOffsetLinePC

double DragOffsetLinePC::offsetAt(IPoint<2> p) const {
    const Vector<2> along(end_.x - start_.x, end_.y - start_.y);
    const Vector<2> to(p.x - start_.x, p.y - start_.y);
    const double length = along.length();
    // Left of start-to-end in image coordinates (y down): the cross product's sign flips.
    return length > 0 ? -cross(along, to) / length : 0.0;
}

void DragOffsetLinePC::draw(CursorPainter& painter, const CursorContext& context) const {
    DragLinePC::draw(painter, context);
    if (!settingOffset_ && offset_ == 0) {
        return;
    }
    const Vector<2> along(end_.x - start_.x, end_.y - start_.y);
    const double length = along.length();
    if (length <= 0) {
        return;
    }
    // The offset line, parallel to the line at the offset's distance.
    const Vector<2> left = Vector<2>(along[1], -along[0]) * (offset_ / length);
    const Point<2> a(start_.x + 0.5 + left[0], start_.y + 0.5 + left[1]);
    const Point<2> b(end_.x + 0.5 + left[0], end_.y + 0.5 + left[1]);
    painter.setPen(settingOffset_ ? CursorPainter::Pen::dashed : CursorPainter::Pen::solid);
    painter.line(context.toView(a), context.toView(b));
}

unsigned DragOffsetLinePC::press(const CursorEvent& event, const CursorContext& context) {
    if (settingOffset_) {
        if (event.button != CursorEvent::leftButton) {
            return cursorreply::none;
        }
        offset_ = offsetAt(event.image);
        settingOffset_ = false;
        return finish();
    }
    return DragLinePC::press(event, context);
}

unsigned DragOffsetLinePC::drag(const CursorEvent& event, const CursorContext& context) {
    if (settingOffset_) {
        return move(event, context);
    }
    return DragLinePC::drag(event, context);
}

unsigned DragOffsetLinePC::release(const CursorEvent& event, const CursorContext&) {
    if (!dragging_ || event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    dragging_ = false;
    end_ = event.image;
    if (end_ == start_) {
        hasLine_ = false;
        return cursorreply::redraw;
    }
    // The line stands; the offset follows the mouse until the next click.
    settingOffset_ = true;
    offset_ = 0;
    return cursorreply::redraw;
}

unsigned DragOffsetLinePC::move(const CursorEvent& event, const CursorContext&) {
    if (!settingOffset_) {
        return cursorreply::none;
    }
    offset_ = offsetAt(event.image);
    return cursorreply::redraw;
}

// ExtentPC

void ExtentPC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (extent_.degenerate()) {
        return;
    }
    painter.setPen(grab_ != Grab::none ? CursorPainter::Pen::dashed : CursorPainter::Pen::solid);
    drawExtent(painter, context, extent_);
    const IPoint<2> lo = extent_.lo();
    const IPoint<2> hi = extent_.hi();
    for (const IPoint<2>& c : {lo, IPoint<2>(hi.x, lo.y), hi, IPoint<2>(lo.x, hi.y)}) {
        painter.handle(context.pixelToView(c));
    }
}

unsigned ExtentPC::press(const CursorEvent& event, const CursorContext& context) {
    if (event.button != CursorEvent::leftButton) {
        return cursorreply::none;
    }
    before_ = extent_;
    if (!extent_.degenerate()) {
        const IPoint<2> lo = extent_.lo();
        const IPoint<2> hi = extent_.hi();
        const IPoint<2> corners[4] = {lo, IPoint<2>(hi.x, lo.y), hi, IPoint<2>(lo.x, hi.y)};
        for (int i = 0; i < 4; ++i) {
            if (nearPixel(event, context, corners[i])) {
                grab_ = Grab::corner;
                fixed_ = corners[(i + 2) % 4];
                return cursorreply::redraw;
            }
        }
        if (extent_.contains(event.image)) {
            grab_ = Grab::move;
            fixed_ = event.image;
            return cursorreply::redraw;
        }
    }
    grab_ = Grab::corner;
    fixed_ = event.image;
    extent_ = IExtent<2>(event.image) & context.imageBounds();
    return cursorreply::redraw;
}

unsigned ExtentPC::drag(const CursorEvent& event, const CursorContext& context) {
    const IExtent<2> bounds = context.imageBounds();
    switch (grab_) {
    case Grab::none:
        return cursorreply::none;
    case Grab::corner:
        extent_ = spanning(fixed_, event.image) & bounds;
        break;
    case Grab::move: {
        // The whole moves, kept inside the image.
        IVector<2> by = event.image - fixed_;
        by.x = std::clamp(by.x, bounds.lo().x - before_.lo().x, bounds.hi().x - before_.hi().x);
        by.y = std::clamp(by.y, bounds.lo().y - before_.lo().y, bounds.hi().y - before_.hi().y);
        extent_ = IExtent<2>(before_.lo() + by, before_.hi() + by);
        break;
    }
    }
    return cursorreply::redraw;
}

unsigned ExtentPC::release(const CursorEvent& event, const CursorContext& context) {
    if (grab_ == Grab::none) {
        return cursorreply::none;
    }
    drag(event, context);
    grab_ = Grab::none;
    return cursorreply::redraw;
}

unsigned ExtentPC::doubleClick(const CursorEvent&, const CursorContext&) {
    return extent_.degenerate() ? cursorreply::none : finish();
}

unsigned ExtentPC::key(CursorKey key) {
    if (key == CursorKey::enter && !extent_.degenerate()) {
        return finish();
    }
    return cursorreply::none;
}
