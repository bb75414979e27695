#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Plane.h"
#include "core/Point.h"
#include "views/CursorPainter.h"
#include "views/ViewMapping.h"

#include <cstdint>

class ZmapDocument;

/// One mouse event as a pseudo-cursor sees it: where in the window, which image pixel that
/// is, the button and the modifier keys.
struct CursorEvent {
    enum class Kind { press, move, release, doubleClick };
    enum Button { noButton = 0, leftButton = 1, rightButton = 2 };
    enum Modifier : unsigned { shiftKey = 1, controlKey = 2, altKey = 4 };

    Kind kind = Kind::move;
    /// Window pixel.
    IPoint<2> view;
    /// The image pixel under it (outside the image too).
    IPoint<2> image;
    /// The button pressed or released; for a move, the buttons held.
    int button = noButton;
    unsigned modifiers = 0;

    /// An event at window pixel `view`, with its image pixel through `mapping`.
    static CursorEvent at(Kind kind, IPoint<2> view, const ViewMapping& mapping,
                          int button = leftButton, unsigned modifiers = 0);
};

/// Keys a pseudo-cursor answers.
enum class CursorKey { enter, backspace };

/// What the view in which a cursor lives offers it: the mapping between window and image,
/// and for cursors that pick world points, the document.
class CursorContext {
public:
    explicit CursorContext(const ViewMapping& mapping, const ZmapDocument* document = nullptr)
        : mapping_(mapping), document_(document) {}

    const ViewMapping& mapping() const { return mapping_; }
    /// Null when the view has no document (2D cursors need none).
    const ZmapDocument* document() const { return document_; }
    /// The image's pixels.
    IExtent<2> imageBounds() const;

    /// Window coordinates of a real image point; pixel (x, y) covers x .. x + 1.
    Point<2> toView(const Point<2>& image) const;
    /// Window coordinates of a pixel's centre.
    Point<2> pixelToView(IPoint<2> pixel) const {
        return toView(Point<2>(pixel.x + 0.5, pixel.y + 0.5));
    }

    /// The world point of a pixel (its depth) and the plane of the surface there; false
    /// without a document, outside the image or where the pixel has no depth.
    bool pick(IPoint<2> pixel, Point<3>& world, Plane* plane = nullptr) const;
    /// Where the ray of a pixel meets `plane`; false when it runs parallel to it or meets
    /// it behind the eye.
    bool onPlane(IPoint<2> pixel, const Plane& plane, Point<3>& world) const;
    /// The image point (x, y, depth code) of a world point; false without a view.
    bool project(const Point<3>& world, Point<3>& pixel) const;
    /// Draws the visible part of the world segment a-b; false if none of it is visible.
    bool worldLine(CursorPainter& painter, const Point<3>& a, const Point<3>& b) const;

private:
    ViewMapping mapping_;
    const ZmapDocument* document_;
};

/// What a cursor's mouse or key handling asks of its view (bits).
namespace cursorreply {
constexpr unsigned none = 0;
/// The cursor's drawing changed: repaint it.
constexpr unsigned redraw = 1;
/// The shape is complete: the capture ends, accepted.
constexpr unsigned done = 2;
} // namespace cursorreply

/// An object the user drags on the image: it draws itself over the view, takes the mouse
/// and, once done, holds the geometry the tool that made it asks for, as image pixels or as
/// world points. Interface thread only. Escape is the view's: it ends the capture, refused.
class PseudoCursor : public TQL::Handlable {
public:
    ~PseudoCursor() override;

    virtual void draw(CursorPainter& painter, const CursorContext& context) const = 0;
    /// A move while a button is held. The drag cursors stretch their shape; the others
    /// treat it as a plain move.
    virtual unsigned drag(const CursorEvent& event, const CursorContext& context);

    virtual unsigned press(const CursorEvent& event, const CursorContext& context);
    virtual unsigned release(const CursorEvent& event, const CursorContext& context);
    /// A move with no button held.
    virtual unsigned move(const CursorEvent& event, const CursorContext& context);
    virtual unsigned doubleClick(const CursorEvent& event, const CursorContext& context);
    virtual unsigned key(CursorKey key);

    /// Sends an event to the operation of its kind.
    unsigned handle(const CursorEvent& event, const CursorContext& context);

    /// True once the shape is complete.
    bool finished() const { return finished_; }

protected:
    PseudoCursor() = default;
    unsigned finish() {
        finished_ = true;
        return cursorreply::done | cursorreply::redraw;
    }
    /// Draws the closed or open path of pixel centres.
    /// Whether the mouse is within grabbing distance of a pixel's centre on the screen.
    static bool nearPixel(const CursorEvent& event, const CursorContext& context, IPoint<2> pixel);
    static void drawPixelPath(CursorPainter& painter, const CursorContext& context,
                              const IPoint<2>* points, std::size_t count, bool closed);

private:
    bool finished_ = false;
};

/// A rectangle, by two corners: press at one, drag, release at the other. With `twoWay`
/// the first point is the centre and the rectangle grows both ways. The result is clipped
/// to the image; a rectangle of no pixels is not accepted (the drag starts again).
class DragRectPC : public PseudoCursor {
public:
    explicit DragRectPC(bool twoWay = false) : twoWay_(twoWay) {}

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned release(const CursorEvent& event, const CursorContext& context) override;

    bool dragging() const { return dragging_; }
    /// The rectangle in image pixels, inclusive corners, within the image; empty before a
    /// drag.
    IExtent<2> rect() const { return rect_; }

private:
    void stretch(IPoint<2> to, const CursorContext& context);

    bool twoWay_;
    bool dragging_ = false;
    IPoint<2> anchor_;
    IExtent<2> rect_;
};

/// A line, by two points: press at the start, drag, release at the end.
class DragLinePC : public PseudoCursor {
public:
    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned release(const CursorEvent& event, const CursorContext& context) override;

    IPoint<2> start() const { return start_; }
    IPoint<2> end() const { return end_; }
    bool hasLine() const { return hasLine_; }

protected:
    bool dragging_ = false;
    bool hasLine_ = false;
    IPoint<2> start_;
    IPoint<2> end_;
};

/// A line with an offset: the line is dragged as by DragLinePC, then the mouse sets the
/// offset across it (the signed distance in pixels of the mouse from the line, positive on
/// the left of start to end in image coordinates) and a click ends.
class DragOffsetLinePC : public DragLinePC {
public:
    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned release(const CursorEvent& event, const CursorContext& context) override;
    unsigned move(const CursorEvent& event, const CursorContext& context) override;

    double offset() const { return offset_; }
    /// True once the line is there and the offset is being set.
    bool settingOffset() const { return settingOffset_; }

private:
    double offsetAt(IPoint<2> p) const;

    bool settingOffset_ = false;
    double offset_ = 0;
};

/// An extent of the image, edited in place: a press near a corner grabs that corner, a
/// press inside moves the whole, a press elsewhere starts a new extent. Enter or a double
/// click accepts it.
class ExtentPC : public PseudoCursor {
public:
    /// Starts with `extent` (may be empty).
    explicit ExtentPC(const IExtent<2>& extent = IExtent<2>()) : extent_(extent) {}

    void draw(CursorPainter& painter, const CursorContext& context) const override;
    unsigned press(const CursorEvent& event, const CursorContext& context) override;
    unsigned drag(const CursorEvent& event, const CursorContext& context) override;
    unsigned release(const CursorEvent& event, const CursorContext& context) override;
    unsigned doubleClick(const CursorEvent& event, const CursorContext& context) override;
    unsigned key(CursorKey key) override;

    IExtent<2> extent() const { return extent_; }

private:
    enum class Grab { none, corner, move };
    IExtent<2> extent_;
    Grab grab_ = Grab::none;
    /// While a corner is grabbed: the opposite corner. While moving: the press point.
    IPoint<2> fixed_;
    IExtent<2> before_;
};
