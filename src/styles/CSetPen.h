#pragma once

#include "applicators/Pen.h"
#include "core/Handle.h"
#include "styles/CToolUI.h"

/// The line tool (tool 2008, section "Pen"). It builds a Pen, or the dragged figure of
/// CSetShape when `type` is a shape type (1 open, 2 closed).
///
/// Keys: "AntiAlias", "Threed", "Thickness" (centimetres, clamped to 1..100), "Width"
/// (pixels), "Type" (-1 or 0 pen, 1 shape outline, 2 shape filled, 3 pen of the second
/// kind), "Filled", "Angle" (degrees), "ConstraintType" (stored with 1 and 2 exchanged, see
/// Constraint::fromStyle) and "ConstraintAxis". A library style leaves the user's pen size
/// alone: it doesn't set "Thickness" while the band lies on the surface, nor "Width" while
/// it is flat.
class CSetPen : public CToolUI {
public:
    static constexpr std::uint16_t id = 2008;

    enum Type : std::int32_t { pen = 0, shapeOpen = 1, shapeClosed = 2, penSecondKind = 3 };

    CSetPen();

    bool antiAlias = true;
    bool threeD = false;
    std::int32_t thickness = 10;
    double width = 5;
    std::int32_t type = pen;
    bool filled = false;
    std::int32_t angle = 0;
    /// Constraint::Type, in the dialog's numbering.
    std::int32_t constraintType = Constraint::none;
    Vector<3> constraintAxis{0, 0, 0};

    bool isShape() const { return type == shapeOpen || type == shapeClosed; }
    /// The pen's settings from these fields.
    PenSettings penSettings() const;
    /// A new Pen or Shape by `type`.
    TQL::Handle<Applicator> makeApplicator() const;

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;
};
