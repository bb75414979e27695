#pragma once

#include "applicators/PenMask.h"
#include "core/Handle.h"
#include "views/PseudoCursor.h"

#include <vector>

/// The brush's outline as the cursor: the dab's shape where the next dab would go. A flat
/// dab is its outline in image pixels around the mouse, so it grows and shrinks with the
/// zoom. A dab lying on the surface is an ellipse of its radius in model units laid on the
/// surface under the mouse, so it shrinks with distance as the dabs do; over pixels
/// without depth it is not drawn.
class BrushOutlinePC : public PseudoCursor {
public:
    /// `outline` of the brush's mask; for a surface dab, `radius` (model units) and
    /// `aspect` (height over width) size the ellipse.
    BrushOutlinePC(TQL::Handle<MaskOutline> outline, double radius, double aspect);

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;

    /// The outline at image pixel `at` as a closed path in window coordinates; empty where
    /// none can be drawn.
    std::vector<Point<2>> pathAt(IPoint<2> at, const CursorContext& context) const;
    bool hasMouse() const { return hasMouse_; }
    /// The dab's outline the cursor draws.
    const TQL::Handle<MaskOutline>& outline() const { return outline_; }

private:
    TQL::Handle<MaskOutline> outline_;
    double radius_;
    double aspect_;
    bool hasMouse_ = false;
    IPoint<2> mouse_;
};
