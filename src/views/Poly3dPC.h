#pragma once

#include "views/PolyPC.h"

#include <vector>

/// A polygon of world points: a click takes the world point of the pixel under the mouse
/// (its depth); a pixel without depth adds nothing. The points stay in the world, so the
/// polygon is drawn from there at any zoom or scroll. Completed as a pixel polygon is (a
/// double click, a right click, Enter, or a click on the first point when closed);
/// Backspace removes the last point.
class Poly3dPC : public PolygonGatherPC {
public:
    explicit Poly3dPC(bool closed = true) : PolygonGatherPC(closed) {}

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;

    const std::vector<Point<3>>& points() const { return points_; }

protected:
    /// The world point a pixel gives; false when it gives none.
    virtual bool pointAt(IPoint<2> pixel, const CursorContext& context, Point<3>& world);
    /// Draws the world path, closed or open.
    static void drawWorldPath(CursorPainter& painter, const CursorContext& context,
                              const std::vector<Point<3>>& points, bool closed);

    std::size_t pointCount() const override { return points_.size(); }
    void removeLastPoint() override;
    IPoint<2> firstPixel() const override { return pixels_.front(); }

private:
    std::vector<Point<3>> points_;
    /// The pixels clicked, to tell a click on the first point.
    std::vector<IPoint<2>> pixels_;
    bool hasMouse_ = false;
    Point<3> mouse_;
};

/// The outline of a 3D polygon lying in one plane: the first click takes the plane of the
/// surface under the mouse; every further point is where its pixel's ray meets that plane,
/// whatever the pixel's own depth.
class PolyOutline3dPC : public Poly3dPC {
public:
    using Poly3dPC::Poly3dPC;

    bool hasPlane() const { return hasPlane_; }
    const Plane& plane() const { return plane_; }

protected:
    bool pointAt(IPoint<2> pixel, const CursorContext& context, Point<3>& world) override;

private:
    bool hasPlane_ = false;
    Plane plane_;
};

/// A 3D polygon on a plane, as PolyOutline3dPC's, with a hook: once it is complete, the
/// next click places the hook on the plane.
class PolyPlaneHook3dPC : public PolyOutline3dPC {
public:
    using PolyOutline3dPC::PolyOutline3dPC;

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;

    bool hasHook() const { return hasHook_; }
    const Point<3>& hook() const { return hook_; }

protected:
    unsigned polygonComplete() override { return cursorreply::redraw; }

private:
    bool hasHook_ = false;
    Point<3> hook_;
};

/// A 3D polygon with an orientation: once it is complete, the mouse turns a direction in the
/// polygon's plane (from its centre towards the mouse's point on that plane) and a click
/// fixes it.
class PolyOriented3dPC : public Poly3dPC {
public:
    using Poly3dPC::Poly3dPC;

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;

    /// The polygon's plane, fitted once it is complete (Newell's method).
    const Plane& plane() const { return plane_; }
    Point<3> centre() const;
    /// A unit vector in the plane; zero until set.
    const Vector<3>& orientation() const { return orientation_; }

protected:
    unsigned polygonComplete() override;

private:
    bool aim(IPoint<2> pixel, const CursorContext& context);

    Plane plane_;
    Vector<3> orientation_{0, 0, 0};
};

/// A Bezier curve through world points: a press places an anchor at the world point of
/// the pixel; dragging before the release pulls its tangent in the anchor's surface plane.
/// Completed with a double click, a right click or Enter; needs two anchors.
class Bezier3dPC : public PseudoCursor {
public:
    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;
    unsigned release(const CursorEvent& event, const CursorContext& context) override;
    unsigned doubleClick(const CursorEvent& event, const CursorContext& context) override;
    unsigned key(CursorKey key) override;

    std::size_t anchorCount() const { return anchors_.size(); }
    /// World control points: anchor, control, control, anchor, ... (3n - 2 for n anchors).
    std::vector<Point<3>> controlPoints() const;

private:
    std::vector<Point<3>> anchors_;
    std::vector<Plane> planes_;
    std::vector<Vector<3>> tangents_;
    bool pulling_ = false;
};
