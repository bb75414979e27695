#pragma once

#include "core/Handle.h"
#include "pipeline/Applicator.h"
#include "views/PseudoCursor.h"

#include <cstdint>
#include <vector>

/// The settings of a dragged figure.
struct ShapeSettings {
    /// 0: the outline, a band `width` pixels wide inside the figure's edge; 1: the whole
    /// figure filled.
    std::int32_t kind = 0;
    std::int32_t width = 5;
    bool antiAlias = true;

    bool operator==(const ShapeSettings&) const = default;
};

/// One dragged figure: the ellipse that fills the rectangle from the pressed pixel to the
/// released one (a circle while the constraint key is held), outlined or filled by `kind`.
/// `start` keeps the first corner, `extend` the moving one, and all painting is done in
/// `finish`. A drag shorter than 11 pixels in |dx| + |dy| paints nothing, so a click is
/// harmless. While the drag runs a preview of the figure follows the mouse.
class Shape : public Applicator {
public:
    static constexpr std::uint32_t promptShape = 520;
    static constexpr std::uint32_t promptShapeAlternate = 526;
    static constexpr std::uint32_t undoNameShape = 1219;
    /// The shortest drag, in |dx| + |dy|, that paints.
    static constexpr std::int32_t shortestDrag = 11;

    static TQL::Handle<Shape> create(const ShapeSettings& settings);

    const ShapeSettings& settings() const { return settings_; }
    bool alternatePrompts = false;

    TQL::Handle<TQL::Handlable> pseudoCursor() override { return nullptr; }
    std::uint32_t undoNameId() const override;
    void ready() override;

protected:
    /// The stages are dispatched as the base class does: plain paint of one colour may be
    /// blended straight away.
    explicit Shape(const ShapeSettings& settings) : settings_(settings) { fuseSolidPaint = true; }

    ShapeSettings settings_;
};

/// The figure's outline on the image: the rectangle of the drag and the ellipse in it.
class ShapePC : public PseudoCursor {
public:
    void draw(CursorPainter& painter, const CursorContext& context) const override;

    void setCorners(IPoint<2> first, IPoint<2> second) {
        first_ = first;
        second_ = second;
        set_ = true;
    }

private:
    bool set_ = false;
    IPoint<2> first_;
    IPoint<2> second_;
};

/// The shape's workings.
class ShapeImp : public Shape {
public:
    explicit ShapeImp(const ShapeSettings& settings) : Shape(settings) {}

    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override;
    void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    void finish(ZmapDocument& document, StrokeView* view) override;

    /// The contours of the figure between two corners (image pixels, both inside it).
    static std::vector<std::vector<Point<2>>> contours(IPoint<2> first, IPoint<2> second,
                                                       const ShapeSettings& settings);

private:
    StrokePoint first_;
    StrokePoint current_;
    TQL::Handle<ShapePC> pseudo_;
};
