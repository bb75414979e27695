#pragma once

#include "core/Angle.h"
#include "core/Point.h"
#include "views/PseudoCursor.h"

#include <cstdint>

/// The painter's cursor: the cell under the mouse and the line of the stroke that the cell
/// would get (from the cell's centre, at the stroke's length and angle), with a handle at
/// the origin.
class PainterPC : public PseudoCursor {
public:
    PainterPC(std::int32_t cellWidth, std::int32_t cellHeight, double length, double size,
              Angle angle);

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;

    /// The cell the mouse is over, in image pixels (empty before the mouse moved).
    IExtent<2> cell() const;

protected:
    /// The stroke's origin and end, image coordinates.
    Point<2> origin() const;
    Point<2> end() const;

    std::int32_t cellWidth_;
    std::int32_t cellHeight_;
    double length_;
    double size_;
    Angle angle_;
    bool placed_ = false;
    IPoint<2> mouse_;
};

/// The cursor of a painter whose dabs are a picture: as PainterPC, and the square that a
/// dab of the picture fills at each end of the stroke.
class RasterPainterPC : public PainterPC {
public:
    using PainterPC::PainterPC;
    void draw(CursorPainter& painter, const CursorContext& context) const override;
};
