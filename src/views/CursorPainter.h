#pragma once

#include "core/Point.h"

/// What a pseudo-cursor draws with: lines and handles in window coordinates (reals, a
/// window pixel's centre at +0.5). The Qt view implements it with a QPainter over the
/// image; tests record the calls.
class CursorPainter {
public:
    enum class Pen {
        /// The shape being made.
        solid,
        /// A preview: the edge that the next click would add, a rubber band.
        dashed,
        /// A constraint or a guide that the mouse follows.
        guide,
    };

    virtual ~CursorPainter() = default;
    virtual void setPen(Pen pen) = 0;
    virtual void line(const Point<2>& a, const Point<2>& b) = 0;
    /// A small square marking a point that can be grabbed (a corner, a hook).
    virtual void handle(const Point<2>& at) = 0;
};
