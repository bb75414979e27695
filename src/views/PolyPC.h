#pragma once

#include "views/PseudoCursor.h"

#include <vector>

/// The clicks that gather a polygon, whatever its points are: a right click, Enter or a
/// double click completes it, as does (when closed) a click on the first point; Backspace
/// removes the last point. An open polygon needs two points, a closed one three. The
/// classes below keep the points and say how a press adds one.
class PolygonGatherPC : public PseudoCursor {
public:
    explicit PolygonGatherPC(bool closed) : closed_(closed) {}

    unsigned doubleClick(const CursorEvent& event, const CursorContext& context) override;
    unsigned key(CursorKey key) override;

    bool closed() const { return closed_; }

protected:
    virtual std::size_t pointCount() const = 0;
    virtual void removeLastPoint() = 0;
    /// The pixel of the first point, for telling a click that closes the polygon.
    virtual IPoint<2> firstPixel() const = 0;
    /// The polygon has its points: the base class finishes; others go on to another stage.
    virtual unsigned polygonComplete() { return finish(); }

    bool polygonDone() const { return polygonDone_; }
    std::size_t minimumPoints() const { return closed_ ? 3 : 2; }
    unsigned complete();
    /// Handles the presses that do not add a point (a finished polygon, the right button,
    /// other buttons, a click on the first point): true with `reply` set when it did.
    bool pressAddsNoPoint(const CursorEvent& event, const CursorContext& context, unsigned& reply);

private:
    bool closed_;
    bool polygonDone_ = false;
};

/// A polygon of pixels. A left click adds a point; the edge to the mouse is previewed.
/// It is complete as `PolygonGatherPC` says.
class PolyPC : public PolygonGatherPC {
public:
    explicit PolyPC(bool closed = true) : PolygonGatherPC(closed) {}

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;

    const std::vector<IPoint<2>>& points() const { return points_; }

protected:
    std::size_t pointCount() const override { return points_.size(); }
    void removeLastPoint() override { points_.pop_back(); }
    IPoint<2> firstPixel() const override { return points_.front(); }

private:
    std::vector<IPoint<2>> points_;
    bool hasMouse_ = false;
    IPoint<2> mouse_;
};

/// A polygon with a hook point: once the polygon is complete, the next click places the
/// hook (the point by which the tool holds the shape).
class PolyHookPC : public PolyPC {
public:
    using PolyPC::PolyPC;

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;
    unsigned doubleClick(const CursorEvent& event, const CursorContext& context) override;

    bool hasHook() const { return hasHook_; }
    IPoint<2> hook() const { return hook_; }

protected:
    unsigned polygonComplete() override { return cursorreply::redraw; }

private:
    bool hasHook_ = false;
    IPoint<2> hook_;
};

/// A polygon whose points are kept as fractions of an extent of the image: (0, 0) is the
/// extent's first pixel and (1, 1) its last, so the shape can be laid on another extent.
/// Points are clamped into the extent.
class PolyFracPC : public PolyPC {
public:
    PolyFracPC(const IExtent<2>& extent, bool closed = true) : PolyPC(closed), extent_(extent) {}

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;

    const IExtent<2>& extent() const { return extent_; }
    std::vector<Point<2>> fractions() const;

private:
    IExtent<2> extent_;
};

/// A Bezier curve of pixels, a chain of cubic segments through anchors. A press places an
/// anchor; dragging before the release pulls its tangent (the control point after it
/// follows the mouse, the one before mirrors it). Complete as a polygon is; Backspace
/// removes the last anchor. Needs two anchors.
class BezierPC : public PseudoCursor {
public:
    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;
    unsigned release(const CursorEvent& event, const CursorContext& context) override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;
    unsigned doubleClick(const CursorEvent& event, const CursorContext& context) override;
    unsigned key(CursorKey key) override;

    std::size_t anchorCount() const { return anchors_.size(); }
    /// The control points in image pixel coordinates: anchor, control, control, anchor,
    /// ... (3n - 2 points for n anchors).
    std::vector<Point<2>> controlPoints() const;
    /// The curve as a polyline, `steps` lines a segment.
    static std::vector<Point<2>> flatten(const std::vector<Point<2>>& controls, int steps);

protected:
    /// Where a pressed pixel goes; a fraction cursor clamps it into its extent.
    virtual IPoint<2> place(IPoint<2> pixel) const { return pixel; }

private:
    std::vector<Point<2>> anchors_;
    /// The tangent of each anchor: its next control point is anchor + tangent.
    std::vector<Vector<2>> tangents_;
    bool pulling_ = false;
    bool hasMouse_ = false;
    IPoint<2> mouse_;
};

/// A Bezier curve whose control points are fractions of an extent, as PolyFracPC's.
class BezierFracPC : public BezierPC {
public:
    explicit BezierFracPC(const IExtent<2>& extent) : extent_(extent) {}

    const IExtent<2>& extent() const { return extent_; }
    std::vector<Point<2>> fractions() const;

protected:
    IPoint<2> place(IPoint<2> pixel) const override;

private:
    IExtent<2> extent_;
};

/// A pixel as a fraction of an extent: its first pixel 0, its last 1 (0 for one pixel).
Point<2> fractionOf(const Point<2>& pixel, const IExtent<2>& extent);
