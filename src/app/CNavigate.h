#pragma once

#include "styles/CToolUI.h"

class CubicView;

/// The panorama view's own tool: dragging turns the camera so that the point under the
/// mouse stays under it (drag right to look left), the wheel narrows or widens the field
/// of view, arrow keys turn by a step. It has no style keys and nothing to build: it acts
/// on the view it is given, which is always the active panorama view.
class CNavigate : public CToolUI {
public:
    /// Degrees an arrow key turns.
    static constexpr double keyStep = 5.0;

    CNavigate();

    void build() override {}

    /// A press at window point (x, y) of `view` starts a drag.
    void press(CubicView& view, double x, double y);
    /// The mouse moved to (x, y) with the button held: the camera turns by the move.
    void drag(CubicView& view, double x, double y);
    void release();
    bool dragging() const { return dragging_; }
    /// A wheel turn of `angleDelta` units (positive away from the user: zoom in).
    void wheel(CubicView& view, int angleDelta);
    /// Turns by whole key steps: `right` and `up` are -1, 0 or 1.
    void key(CubicView& view, int right, int up);

private:
    bool dragging_ = false;
    double lastX_ = 0;
    double lastY_ = 0;
};
