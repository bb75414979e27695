#include "applicators/PainterPC.h"

#include <algorithm>

PainterPC::PainterPC(std::int32_t cellWidth, std::int32_t cellHeight, double length, double size,
                     Angle angle)
    : cellWidth_(std::max(1, cellWidth)), cellHeight_(std::max(1, cellHeight)), length_(length),
      size_(size), angle_(angle) {}

unsigned PainterPC::move(const CursorEvent& event, const CursorContext&) {
    const bool moved = !placed_ || !(event.image == mouse_);
    placed_ = true;
    mouse_ = event.image;
    return moved ? cursorreply::redraw : cursorreply::none;
}

IExtent<2> PainterPC::cell() const {
    if (!placed_ || mouse_.x < 0 || mouse_.y < 0) {
        return IExtent<2>();
    }
    const std::int32_t x0 = mouse_.x / cellWidth_ * cellWidth_;
    const std::int32_t y0 = mouse_.y / cellHeight_ * cellHeight_;
    return IExtent<2>(x0, y0, x0 + cellWidth_ - 1, y0 + cellHeight_ - 1);
}

Point<2> PainterPC::origin() const {
    const IExtent<2> c = cell();
    return Point<2>((c.lo().x + c.hi().x + 1) / 2.0, (c.lo().y + c.hi().y + 1) / 2.0);
}

Point<2> PainterPC::end() const {
    const Point<2> o = origin();
    return Point<2>(o.x() + length_ * angle_.cos(), o.y() + length_ * angle_.sin());
}

void PainterPC::draw(CursorPainter& painter, const CursorContext& context) const {
    const IExtent<2> c = cell();
    if (c.degenerate()) {
        return;
    }
    painter.setPen(CursorPainter::Pen::guide);
    const Point<2> a = context.toView(Point<2>(c.lo().x, c.lo().y));
    const Point<2> b = context.toView(Point<2>(c.hi().x + 1, c.hi().y + 1));
    painter.line(a, Point<2>(b.x(), a.y()));
    painter.line(Point<2>(b.x(), a.y()), b);
    painter.line(b, Point<2>(a.x(), b.y()));
    painter.line(Point<2>(a.x(), b.y()), a);
    painter.setPen(CursorPainter::Pen::solid);
    painter.line(context.toView(origin()), context.toView(end()));
    painter.handle(context.toView(origin()));
}

void RasterPainterPC::draw(CursorPainter& painter, const CursorContext& context) const {
    PainterPC::draw(painter, context);
    if (cell().degenerate()) {
        return;
    }
    painter.setPen(CursorPainter::Pen::dashed);
    for (const Point<2>& p : {origin(), end()}) {
        const Point<2> a = context.toView(Point<2>(p.x() - size_, p.y() - size_));
        const Point<2> b = context.toView(Point<2>(p.x() + size_, p.y() + size_));
        painter.line(a, Point<2>(b.x(), a.y()));
        painter.line(Point<2>(b.x(), a.y()), b);
        painter.line(b, Point<2>(a.x(), b.y()));
        painter.line(Point<2>(a.x(), b.y()), a);
    }
}
