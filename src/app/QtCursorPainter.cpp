#include "app/QtCursorPainter.h"

#include <QPainter>
#include <QPen>

namespace {

QPointF toQPointF(const Point<2>& p) {
    return QPointF(p.x(), p.y());
}

} // namespace

QtCursorPainter::QtCursorPainter(QPainter& painter) : painter_(painter) {
    painter_.setRenderHint(QPainter::Antialiasing, false);
}

void QtCursorPainter::line(const Point<2>& a, const Point<2>& b) {
    const QPointF from = toQPointF(a);
    const QPointF to = toQPointF(b);
    painter_.setPen(QPen(QColor(0, 0, 0, 160), 3));
    painter_.drawLine(from, to);
    QPen light(pen_ == Pen::guide ? QColor(255, 220, 40) : QColor(255, 255, 255), 1);
    if (pen_ != Pen::solid) {
        light.setStyle(Qt::DashLine);
    }
    painter_.setPen(light);
    painter_.drawLine(from, to);
}

void QtCursorPainter::handle(const Point<2>& at) {
    const QRectF box(at.x() - 3, at.y() - 3, 6, 6);
    painter_.setPen(QPen(QColor(0, 0, 0), 1));
    painter_.setBrush(QColor(255, 255, 255));
    painter_.drawRect(box);
    painter_.setBrush(Qt::NoBrush);
}
