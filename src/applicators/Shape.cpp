#include "applicators/Shape.h"

#include "applicators/PolygonCoverage.h"
#include "image/DocumentEditor.h"
#include "image/ZmapDocument.h"
#include "pipeline/ToolSelection.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

namespace {

/// The ellipse with centre c and radii rx, ry, in segments of about two pixels.
std::vector<Point<2>> ellipse(const Point<2>& c, double rx, double ry) {
    const double around = 2 * std::numbers::pi * std::max(rx, ry);
    const int n = std::clamp(static_cast<int>(std::ceil(around / 2)), 16, 1440);
    std::vector<Point<2>> points;
    points.reserve(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        const double a = 2 * std::numbers::pi * i / n;
        points.emplace_back(c.x() + rx * std::cos(a), c.y() + ry * std::sin(a));
    }
    return points;
}

} // namespace

// Shape

TQL::Handle<Shape> Shape::create(const ShapeSettings& settings) {
    return TQL::makeHandle<ShapeImp>(settings);
}

std::uint32_t Shape::undoNameId() const {
    const std::uint32_t own = effect ? effect->undoNameId() : 0;
    return own ? own : undoNameShape;
}

void Shape::ready() {
    if (ToolFeedback* f = ToolSelection::instance().feedback()) {
        f->prompt(alternatePrompts ? promptShapeAlternate : promptShape);
        f->setPseudoCursor(nullptr);
    }
}

// ShapePC

void ShapePC::draw(CursorPainter& painter, const CursorContext& context) const {
    if (!set_) {
        return;
    }
    const ShapeSettings outline{1, 1, false};
    painter.setPen(CursorPainter::Pen::guide);
    const Point<2> a =
        context.toView(Point<2>(std::min(first_.x, second_.x), std::min(first_.y, second_.y)));
    const Point<2> b = context.toView(
        Point<2>(std::max(first_.x, second_.x) + 1, std::max(first_.y, second_.y) + 1));
    painter.line(a, Point<2>(b.x(), a.y()));
    painter.line(Point<2>(b.x(), a.y()), b);
    painter.line(b, Point<2>(a.x(), b.y()));
    painter.line(Point<2>(a.x(), b.y()), a);
    painter.setPen(CursorPainter::Pen::dashed);
    for (const auto& contour : ShapeImp::contours(first_, second_, outline)) {
        for (std::size_t i = 0; i < contour.size(); ++i) {
            const Point<2>& p = contour[i];
            const Point<2>& q = contour[(i + 1) % contour.size()];
            // Contours are in pixel-centre coordinates.
            painter.line(context.toView(Point<2>(p.x() + 0.5, p.y() + 0.5)),
                         context.toView(Point<2>(q.x() + 0.5, q.y() + 0.5)));
        }
    }
}

// ShapeImp

std::vector<std::vector<Point<2>>> ShapeImp::contours(IPoint<2> first, IPoint<2> second,
                                                      const ShapeSettings& settings) {
    // The ellipse touches the outer edges of the corner pixels.
    const Point<2> centre((first.x + second.x) * 0.5, (first.y + second.y) * 0.5);
    const double rx = (std::abs(second.x - first.x) + 1) * 0.5;
    const double ry = (std::abs(second.y - first.y) + 1) * 0.5;
    std::vector<std::vector<Point<2>>> result{ellipse(centre, rx, ry)};
    const double w = std::max(1, settings.width);
    if (settings.kind == 0 && rx > w && ry > w) {
        // The hole inside the band (even-odd).
        result.push_back(ellipse(centre, rx - w, ry - w));
    }
    return result;
}

void ShapeImp::apply(ZmapDocument& document, StrokeView* view,
                     const std::vector<StrokePoint>& points) {
    start(document, view, points.front());
    for (std::size_t i = 1; i < points.size(); ++i) {
        extend(document, view, points[i]);
    }
    finish(document, view);
}

void ShapeImp::start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    Applicator::start(document, view, point);
    first_ = current_ = point;
    pseudo_ = TQL::makeHandle<ShapePC>();
    pseudo_->setCorners(IPoint<2>(point.x, point.y), IPoint<2>(point.x, point.y));
    if (ToolFeedback* f = ToolSelection::instance().feedback()) {
        f->setPseudoCursor(pseudo_);
    }
}

bool ShapeImp::extend(ZmapDocument&, StrokeView*, const StrokePoint& point) {
    current_ = point;
    if (point.flags & strokeConstrained) {
        // A circle: the longer side wins.
        const std::int32_t dx = point.x - first_.x;
        const std::int32_t dy = point.y - first_.y;
        const std::int32_t side = std::max(std::abs(dx), std::abs(dy));
        current_.x = first_.x + (dx < 0 ? -side : side);
        current_.y = first_.y + (dy < 0 ? -side : side);
    }
    if (pseudo_) {
        pseudo_->setCorners(IPoint<2>(first_.x, first_.y), IPoint<2>(current_.x, current_.y));
    }
    return false;
}

void ShapeImp::finish(ZmapDocument& document, StrokeView* view) {
    document.editor.strokePoints.push_back(current_);
    const std::int32_t drag = std::abs(current_.x - first_.x) + std::abs(current_.y - first_.y);
    if (!abandoned && drag >= shortestDrag) {
        PolygonCoverage figure(settings_.antiAlias);
        for (const auto& contour : contours(IPoint<2>(first_.x, first_.y),
                                            IPoint<2>(current_.x, current_.y), settings_)) {
            figure.addContour(contour);
        }
        const IExtent<2> changed = figure.paint(*this, document);
        if (view && !changed.degenerate()) {
            view->queueRedraw(changed);
        }
    }
    pseudo_.reset();
    Applicator::finish(document, view);
}
