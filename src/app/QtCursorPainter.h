#pragma once

#include "views/CursorPainter.h"

class QPainter;

/// Draws pseudo-cursors with a QPainter over the view's image: every line twice, dark and
/// wide under light and thin, so that it shows on any picture.
class QtCursorPainter : public CursorPainter {
public:
    explicit QtCursorPainter(QPainter& painter);

    void setPen(Pen pen) override { pen_ = pen; }
    void line(const Point<2>& a, const Point<2>& b) override;
    void handle(const Point<2>& at) override;

private:
    QPainter& painter_;
    Pen pen_ = Pen::solid;
};
