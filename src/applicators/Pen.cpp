#include "applicators/Pen.h"

#include "applicators/PolygonCoverage.h"
#include "image/DocumentEditor.h"
#include "image/ZmapDocument.h"
#include "pipeline/ToolSelection.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <cmath>

namespace {

ToolFeedback* feedback() {
    return ToolSelection::instance().feedback();
}

bool isCube(const ZmapDocument& document) {
    const TQL::Handle<ViewProj>& camera = document.viewProj();
    return camera && camera->viewType() == ViewProj::cubicView;
}

/// A unit vector across `normal`.
Vector<3> across(const Vector<3>& normal) {
    const Vector<3> other = std::abs(normal.x()) < 0.9 ? Vector<3>(1, 0, 0) : Vector<3>(0, 1, 0);
    return cross(normal, other).unit();
}

bool finite(const std::vector<Point<2>>& points) {
    for (const Point<2>& p : points) {
        if (!p.isFinite()) {
            return false;
        }
    }
    return true;
}

} // namespace

// Pen

TQL::Handle<Pen> Pen::create(const PenSettings& settings) {
    return TQL::makeHandle<PenImp>(settings);
}

std::uint32_t Pen::undoNameId() const {
    const std::uint32_t own = effect ? effect->undoNameId() : 0;
    return own ? own : undoNamePen;
}

void Pen::ready() {
    if (ToolFeedback* f = feedback()) {
        f->prompt(alternatePrompts ? promptPenAlternate : promptPen);
        f->setPseudoCursor(nullptr);
    }
}

// PenImp

void PenImp::apply(ZmapDocument& document, StrokeView* view,
                   const std::vector<StrokePoint>& points) {
    start(document, view, points.front());
    finish(document, view);
    for (std::size_t i = 1; i < points.size() && !abandoned && !finished; ++i) {
        extend(document, view, points[i]);
        finish(document, view);
    }
    if (abandoned || finished) {
        if (!finished) {
            finish(document, view);
        }
        return;
    }
    if (settings_.filled && closeStroke()) {
        finish(document, view);
    } else {
        endStroke(document, view);
    }
}

void PenImp::start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    surfaceSet_ = false;
    Applicator::start(document, view, point);
    current_ = previous_ = point;
    document_ = &document;
    view_ = view;
    camera_ = document.viewProj();
    polygonOpen_ = false;
    hasSegment_ = false;
    points_.assign(1, point);
    Vector<3> normal;
    if (!worldOf(document, point, firstWorld_, normal)) {
        firstWorld_ = document.worldAt(point.x, point.y);
    }
    lastWorld_ = firstWorld_;
    anchorAt(document, point);
}

bool PenImp::extend(ZmapDocument&, StrokeView*, const StrokePoint& point) {
    current_ = point;
    if ((point.flags & strokeConstrained) && constraint_) {
        const IPoint<2> held = constraint_->constrain(IPoint<2>(point.x, point.y));
        current_.x = held.x;
        current_.y = held.y;
    }
    // The segment is painted at the release: the document keeps no trail of the moves.
    return false;
}

void PenImp::finish(ZmapDocument& document, StrokeView* view) {
    document.editor.strokePoints.push_back(current_);
    if (abandoned || !document_) {
        endStroke(document, view);
        return;
    }
    const IExtent<2> changed = paintSegment(document, previous_, current_);
    if (view && !changed.degenerate()) {
        view->queueRedraw(changed);
    }
    hasSegment_ = true;
    if (abandoned) {
        endStroke(document, view);
        return;
    }
    if (!(points_.back().x == current_.x && points_.back().y == current_.y)) {
        points_.push_back(current_);
    }
    previous_ = current_;
    Vector<3> normal;
    if (!worldOf(document, current_, lastWorld_, normal)) {
        lastWorld_ = document.worldAt(current_.x, current_.y);
    }
    if (settings_.filled) {
        polygonOpen_ = true;
        anchorAt(document, current_);
        if (ToolFeedback* f = feedback()) {
            f->prompt(points_.size() >= 2 ? statusSegment : statusNextPoint);
        }
    } else if (!changed.degenerate()) {
        anchorAt(document, current_);
        if (ToolFeedback* f = feedback()) {
            f->prompt(statusNextPoint);
        }
    } else {
        // A click that paints nothing (the same point again) ends the line.
        endStroke(document, view);
    }
}

void PenImp::abandon() {
    Applicator::abandon();
    if (document_) {
        clearStroke();
    }
}

bool PenImp::closeStroke() {
    if (abandoned || finished || !hasSegment_ || !settings_.filled || !document_) {
        return false;
    }
    ZmapDocument& document = *document_;
    StrokeView* view = view_;
    StrokePoint first = points_.front();
    first.flags = strokeEnds;
    extend(document, view, first);
    finish(document, view);
    if (!abandoned && !finished) {
        const IExtent<2> changed = paintPolygon(document);
        if (view && !changed.degenerate()) {
            view->queueRedraw(changed);
        }
    }
    abandon();
    return true;
}

void PenImp::surfaceChanged(const SurfaceFrame& frame) {
    frame_ = frame;
    surfaceSet_ = true;
}

void PenImp::endStroke(ZmapDocument& document, StrokeView* view) {
    clearStroke();
    if (!finished) {
        Applicator::finish(document, view);
    }
}

void PenImp::clearStroke() {
    document_ = nullptr;
    view_ = nullptr;
    camera_.reset();
    constraint_.reset();
    polygonOpen_ = false;
    if (pseudo_) {
        pseudo_.reset();
        if (ToolFeedback* f = feedback()) {
            f->setPseudoCursor(nullptr);
        }
    }
}

void PenImp::anchorAt(const ZmapDocument& document, const StrokePoint& point) {
    // A flat line on a flat picture is held in the image; on the surface, or around a
    // panorama, only the scene gives straight lines.
    const bool inScene = settings_.threeD || isCube(document);
    if (!document.viewProj()) {
        constraint_.reset();
    } else {
        constraint_ = TQL::makeHandle<Constraint>(
            settings_.constraintType, document, IPoint<2>(point.x, point.y), inScene,
            settings_.constraintAxis, surfaceSet_ ? &frame_.plane() : nullptr);
    }
    std::vector<IPoint<2>> shown;
    if (settings_.filled) {
        for (const StrokePoint& p : points_) {
            shown.emplace_back(p.x, p.y);
        }
    }
    if (shown.empty() || !(shown.back() == IPoint<2>(point.x, point.y))) {
        shown.emplace_back(point.x, point.y);
    }
    pseudo_ = TQL::makeHandle<PenPC>(constraint_, std::move(shown), settings_.filled);
    if (ToolFeedback* f = feedback()) {
        f->setPseudoCursor(pseudo_);
    }
}

bool PenImp::worldOf(const ZmapDocument& document, const StrokePoint& p, Point<3>& world,
                     Vector<3>& normal) const {
    const TQL::Handle<ViewProj>& camera = document.viewProj();
    if (!camera) {
        return false;
    }
    if (surfaceSet_) {
        std::uint32_t code = 0;
        if (!frame_.depthCode(p.x, p.y, code) || code == 0xFFFFFFFFu) {
            return false;
        }
        world = camera->worldFromPixel(p.x, p.y, code);
        normal = frame_.plane().normal();
    } else {
        if (p.x < 0 || p.y < 0 || p.x >= document.width() || p.y >= document.height()) {
            return false;
        }
        bool noDepth = false;
        const Plane plane = document.planeAt(p.x, p.y, &noDepth);
        if (noDepth) {
            return false;
        }
        world = document.worldAt(p.x, p.y);
        normal = plane.normal();
    }
    return world.isFinite() && normal.isFinite() && normal.lengthSquared() > 0;
}

std::vector<Point<2>> PenImp::bandCorners(const ZmapDocument& document, const StrokePoint& a,
                                          const StrokePoint& b) const {
    if (settings_.threeD && document.viewProj()) {
        const ViewProj& camera = *document.viewProj();
        const ViewParams& record = document.viewParams();
        const double centimetresPerUnit = unitMillimetres(record.unitCode) * record.modelScale / 10;
        const double half = settings_.thickness / centimetresPerUnit * 0.5;
        Point<3> pa;
        Point<3> pb;
        Vector<3> na;
        Vector<3> nb;
        if (std::isfinite(half) && half > 0 && worldOf(document, a, pa, na) &&
            worldOf(document, b, pb, nb)) {
            const Vector<3> along = pb - pa;
            std::vector<Point<3>> world;
            if (along.lengthSquared() == 0) {
                // A dot: a square of the thickness on the surface.
                const Vector<3> u = across(na) * half;
                const Vector<3> v = cross(na.unit(), across(na)) * half;
                world = {pa - u - v, pa + u - v, pa + u + v, pa - u + v};
            } else {
                const Vector<3> sa = cross(along, na).unit() * half;
                const Vector<3> sb = cross(along, nb).unit() * half;
                if (sa.lengthSquared() > 0 && sb.lengthSquared() > 0) {
                    world = {pa + sa, pb + sb, pb - sb, pa - sa};
                }
            }
            std::vector<Point<2>> corners;
            for (const Point<3>& w : world) {
                const Point<3> pixel = camera.pixelFromWorld(w);
                corners.emplace_back(pixel.x(), pixel.y());
            }
            if (!corners.empty() && finite(corners)) {
                return corners;
            }
        }
        // No surface under an end (or a normal along the line): the band lies flat.
    }
    const Point<2> pa(a.x, a.y);
    const Point<2> pb(b.x, b.y);
    const double half = settings_.width * 0.5;
    const Vector<2> along = pb - pa;
    const double length = along.length();
    if (length == 0) {
        return {Point<2>(pa.x() - half, pa.y() - half), Point<2>(pa.x() + half, pa.y() - half),
                Point<2>(pa.x() + half, pa.y() + half), Point<2>(pa.x() - half, pa.y() + half)};
    }
    const Vector<2> n = Vector<2>(-along.y(), along.x()) * (half / length);
    return {pa + n, pb + n, pb - n, pa - n};
}

IExtent<2> PenImp::paintSegment(ZmapDocument& document, const StrokePoint& a,
                                const StrokePoint& b) {
    PolygonCoverage band(settings_.antiAlias);
    band.addContour(bandCorners(document, a, b));
    return band.paint(*this, document);
}

IExtent<2> PenImp::paintPolygon(ZmapDocument& document) {
    PolygonCoverage polygon(settings_.antiAlias);
    std::vector<Point<2>> corners;
    for (const StrokePoint& p : points_) {
        corners.emplace_back(p.x, p.y);
    }
    if (corners.size() >= 3) {
        polygon.addContour(corners);
    }
    return polygon.paint(*this, document);
}

// PenPC

void PenPC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (points_.empty()) {
        return;
    }
    if (constraint_ && constraint_->constraintType() != Constraint::none) {
        ConstraintPC(constraint_).draw(painter, context);
    }
    painter.setPen(CursorPainter::Pen::solid);
    for (std::size_t i = 0; i + 1 < points_.size(); ++i) {
        painter.line(context.pixelToView(points_[i]), context.pixelToView(points_[i + 1]));
    }
    painter.handle(context.pixelToView(points_.back()));
    if (!hasMouse_) {
        return;
    }
    painter.setPen(CursorPainter::Pen::dashed);
    painter.line(context.pixelToView(points_.back()), context.pixelToView(end_));
    if (polygon_ && points_.size() >= 2) {
        painter.line(context.pixelToView(end_), context.pixelToView(points_.front()));
    }
}

unsigned PenPC::move(const CursorEvent& event, const CursorContext&) {
    end_ = event.image;
    if ((event.modifiers & CursorEvent::shiftKey) && constraint_) {
        end_ = constraint_->constrain(end_);
    }
    hasMouse_ = true;
    return cursorreply::redraw;
}

unsigned PenPC::drag(const CursorEvent& event, const CursorContext& context) {
    return move(event, context);
}
