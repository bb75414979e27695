#pragma once

#include "core/Handle.h"
#include "core/Point.h"
#include "pipeline/Applicator.h"
#include "views/Constraint.h"
#include "views/PseudoCursor.h"
#include "views/cameras/SurfaceFrame.h"

#include <cstdint>
#include <vector>

class ViewProj;

/// The settings of the line tool, as its page and styles hold them.
struct PenSettings {
    /// Edges fall off over sqrt(0.5) pixels ("AntiAlias").
    bool antiAlias = true;
    /// Width of a flat band in pixels ("Width").
    std::int32_t width = 5;
    /// The band lies on the surface, `thickness` wide in the scene ("Threed").
    bool threeD = false;
    /// Width of a band on the surface, in centimetres ("Thickness").
    double thickness = 10;
    /// The clicked points make a polygon, filled when the stroke is closed ("Filled").
    bool filled = false;
    /// Constraint::Type in the dialog's numbering ("ConstraintType").
    std::int32_t constraintType = Constraint::none;
    /// The axis of the constraint ("ConstraintAxis").
    Vector<3> constraintAxis{0, 0, 0};

    bool operator==(const PenSettings&) const = default;
};

/// The line tool: the user clicks points, and each segment between two clicks is painted
/// as a band, flat on the screen `width` pixels wide, or lying on the surface `thickness`
/// centimetres wide. The ends are cut square; a segment of no length is a square dot of the
/// width. A filled pen also fills the polygon of its points when the stroke is closed.
///
/// The stroke stays open from click to click (isStrokeOpen): each release paints the
/// segment from the last click. A click that changes nothing (the same point again, as
/// with a double click) ends an unfilled stroke; `closeStroke` ends a filled one by
/// joining the last point to the first. While the stroke is open a rubber band runs from
/// the last point to the mouse; with the constraint key held (flag strokeConstrained) the
/// point is held to the tool's Constraint, anchored at the last point.
class Pen : public Applicator {
public:
    /// Prompts shown when the tool is selected, in the two prompt sets.
    static constexpr std::uint32_t promptPen = 520;
    static constexpr std::uint32_t promptPenAlternate = 526;
    /// Status texts while a stroke is open: a polygon with a segment, or waiting for one.
    static constexpr std::uint32_t statusSegment = 10313;
    static constexpr std::uint32_t statusNextPoint = 10314;
    /// The undo name of a line without an effect of its own.
    static constexpr std::uint32_t undoNamePen = 1219;

    /// A new pen of `settings`.
    static TQL::Handle<Pen> create(const PenSettings& settings);

    const PenSettings& settings() const { return settings_; }
    /// Show prompt 526 instead of 520.
    bool alternatePrompts = false;

    bool isStrokeOpen() const override { return true; }
    /// The pen installs its rubber band itself while a stroke is open.
    TQL::Handle<TQL::Handlable> pseudoCursor() override { return nullptr; }
    std::uint32_t undoNameId() const override;
    void ready() override;

protected:
    /// The stages are dispatched as the base class does: plain paint of one colour may be
    /// blended straight away.
    explicit Pen(const PenSettings& settings) : settings_(settings) { fuseSolidPaint = true; }

    PenSettings settings_;
};

/// The pen's workings.
class PenImp : public Pen {
public:
    explicit PenImp(const PenSettings& settings) : Pen(settings) {}

    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override;
    void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    void finish(ZmapDocument& document, StrokeView* view) override;
    void abandon() override;
    bool closeStroke() override;
    void surfaceChanged(const SurfaceFrame& frame) override;

    /// The points clicked so far in the open stroke.
    const std::vector<StrokePoint>& points() const { return points_; }
    /// The rubber band of the open stroke; null between strokes.
    const TQL::Handle<PseudoCursor>& rubberBand() const { return pseudo_; }

    /// The four corners of the band from a to b as image points (exposed for checking the
    /// geometry: a band on the surface is the camera's picture of a strip of the scene).
    std::vector<Point<2>> bandCorners(const ZmapDocument& document, const StrokePoint& a,
                                      const StrokePoint& b) const;

private:
    IExtent<2> paintSegment(ZmapDocument& document, const StrokePoint& a, const StrokePoint& b);
    /// Fills the polygon of the clicked points.
    IExtent<2> paintPolygon(ZmapDocument& document);
    /// Anchors the constraint and the rubber band at `point` and installs the band.
    void anchorAt(const ZmapDocument& document, const StrokePoint& point);
    /// The world point under a pixel: on the stroke's surface when it has one, else through
    /// its depth; false where there is none.
    bool worldOf(const ZmapDocument& document, const StrokePoint& p, Point<3>& world,
                 Vector<3>& normal) const;
    /// Ends the stroke for good: the stages finish and the tool is ready again.
    void endStroke(ZmapDocument& document, StrokeView* view);
    void clearStroke();

    StrokePoint current_;
    StrokePoint previous_;
    ZmapDocument* document_ = nullptr;
    StrokeView* view_ = nullptr;
    TQL::Handle<ViewProj> camera_;
    TQL::Handle<Constraint> constraint_;
    TQL::Handle<PseudoCursor> pseudo_;
    Point<3> firstWorld_;
    Point<3> lastWorld_;
    bool surfaceSet_ = false;
    SurfaceFrame frame_;
    bool polygonOpen_ = false;
    bool hasSegment_ = false;
    std::vector<StrokePoint> points_;
};

/// The pen's rubber band: the points clicked so far, the edge from the last one to the
/// mouse (held to the constraint while Shift is down) and, for a polygon, the edge back to
/// the first point. It only follows the mouse; the view's clicks go to the stroke.
class PenPC : public PseudoCursor {
public:
    PenPC(TQL::Handle<Constraint> constraint, std::vector<IPoint<2>> points, bool polygon)
        : constraint_(std::move(constraint)), points_(std::move(points)), polygon_(polygon) {}

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;

    const std::vector<IPoint<2>>& points() const { return points_; }
    bool hasMouse() const { return hasMouse_; }
    /// Where the band ends: the mouse, held to the constraint when Shift was down.
    IPoint<2> end() const { return end_; }

private:
    TQL::Handle<Constraint> constraint_;
    std::vector<IPoint<2>> points_;
    bool polygon_;
    bool hasMouse_ = false;
    IPoint<2> end_;
};
