#pragma once

#include "applicators/Shape.h"
#include "core/Handle.h"
#include "styles/CToolUI.h"

class CSetPen;

/// The dragged figure: the shape form of the line tool. It has no section of its own: the
/// figure is the pen's "Type" 1 (outline) or 2 (filled), with the pen's "Width" and
/// "AntiAlias", so a style stores it as a pen style. The application shows it as a tool
/// of its own; choosing it sets the pen's type, and `build` installs the Shape when the pen
/// tool is current.
class CSetShape : public CToolUI {
public:
    explicit CSetShape(CSetPen& pen);

    /// Filled (type 2) or outlined (type 1).
    bool filled() const;
    void setFilled(bool filled);
    /// Makes the pen's type a shape type (outlined unless it was filled already).
    void choose();

    /// The Shape that the pen's fields describe.
    static TQL::Handle<Shape> makeShape(const CSetPen& pen);

    void build() override;

private:
    CSetPen& pen_;
};
