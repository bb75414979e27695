#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Line.h"
#include "core/Plane.h"
#include "core/Point.h"
#include "pipeline/PipelineTool.h"
#include "views/PseudoCursor.h"
#include "views/cameras/ViewProj.h"

#include <cstdint>

class ZmapDocument;

/// Holds the mouse to a line or a plane while a stroke is drawn (the constraint key held).
///
/// Types, as the tool dialogs number them:
/// - `none` (0): the mouse as it is.
/// - `onLine` (1): in 3D, the world line through the start point along the axis (the vertical
///   when the axis is zero); a mouse pixel goes to the point of that line nearest its ray.
///   In 2D, the image line through the start pixel along the axis's x and y, or, with no
///   such axis, the row or the column of the start, whichever the mouse has moved further
///   along.
/// - `onPlane` (2): in 3D, the plane of the surface at the start (or the one given); the
///   mouse pixel stays, and its world point is where its ray meets the plane. In 2D, the
///   direction from the start snaps to a multiple of 45 degrees.
/// Styles store 1 and 2 the other way round: see fromStyle and toStyle.
class Constraint : public TQL::Handlable {
public:
    enum Type : std::int32_t { none = 0, onLine = 1, onPlane = 2 };

    /// A style's "ConstraintType" as the dialog's type: 1 and 2 change places; -1 and
    /// anything unknown is none.
    static std::int32_t fromStyle(std::int32_t stored);
    /// The dialog's type as a style stores it.
    static std::int32_t toStyle(std::int32_t dialog);

    /// A constraint of `type` starting at pixel `start` of `document` (held, not owned).
    /// The start's world point and plane come from the document; `givenPlane` replaces the
    /// plane. `axes`, when given, is copied for the tool the constraint serves.
    Constraint(std::int32_t type, const ZmapDocument& document, IPoint<2> start, bool threeD,
               const Vector<3>& axis, const Plane* givenPlane = nullptr,
               const TextureAxes* axes = nullptr);

    std::int32_t constraintType() const { return constraintType_; }
    bool threeD() const { return threeD_; }
    IPoint<2> startPixel() const { return startPixel_; }
    const Point<3>& startPoint() const { return start_; }
    const Plane& plane() const { return plane_; }
    const Vector<3>& axis() const { return axis_; }
    bool hasTextureAxes() const { return hasTextureAxes_; }
    const TextureAxes& textureAxes() const { return textureAxes_; }
    /// True for a 2D constraint, or for a plane whose normal has (almost) no x component:
    /// such a plane can be followed by rows of the image without a turn of the axes.
    bool flat() const { return flat_; }

    /// Moves a mouse pixel onto the constraint. `world`, when given, receives the world
    /// point of the result (3D constraints; for 2D ones the document's point there).
    /// Returns the mouse unchanged for `none`, or where the constraint can't be met
    /// (a ray parallel to the plane).
    IPoint<2> constrain(IPoint<2> mouse, Point<3>* world = nullptr) const;

private:
    IPoint<2> constrain2d(IPoint<2> mouse) const;
    Line<3> rayOf(IPoint<2> pixel) const;

    std::int32_t constraintType_;
    TQL::Handle<ViewProj> viewProj_;
    const ZmapDocument& document_;
    IPoint<2> startPixel_;
    Point<3> start_;
    Plane plane_;
    bool threeD_;
    Vector<3> axis_;
    TextureAxes textureAxes_{};
    bool hasTextureAxes_ = false;
    bool flat_;
};

/// Draws the current constraint over the view: its line across the image, or a square of
/// its plane around the start, with the start marked. It takes no mouse.
class ConstraintPC : public PseudoCursor {
public:
    explicit ConstraintPC(TQL::Handle<Constraint> constraint)
        : constraint_(std::move(constraint)) {}

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    const TQL::Handle<Constraint>& constraint() const { return constraint_; }

private:
    TQL::Handle<Constraint> constraint_;
};
