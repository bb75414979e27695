#pragma once

#include "core/Extent.h"
#include "image/StrokeApplicator.h"

#include <QPointF>

#include <functional>

class CQuorvaleDoc;
class QTabletEvent;

/// The stroke input every document window shares: turns a window's mouse and tablet
/// presses, moves and releases into the document's stroke calls, and Escape, Enter and a
/// double click into stopping or closing the running stroke. The window says which image
/// pixel a window point shows; everything else is the same in the image view and the
/// panorama view. Interface thread only.
class ViewStrokeInput {
public:
    /// The image pixel that window point `at` shows; false where the window shows none.
    using PixelAt = std::function<bool(QPointF at, IPoint<2>& pixel)>;
    /// Told after a stroke call that may have changed the document or ended a stroke.
    using Changed = std::function<void()>;

    ViewStrokeInput(CQuorvaleDoc& document, PixelAt pixelAt, Changed changed);

    /// The stroke point of window position `at`: its image pixel, the pressure (clamped to
    /// 0..1), and the constraint flag while Shift is held.
    StrokePoint point(QPointF at, float pressure, Qt::KeyboardModifiers modifiers) const;
    /// True when `at` shows a pixel of the image.
    bool onImage(QPointF at) const;
    /// A button (or the tablet's tip) is down in a stroke of this window.
    bool stroking() const { return stroking_; }

    /// A press at `at`: starts a stroke there, or gives an open stroke (a line) its next
    /// point. False, doing nothing, off the image with no stroke open.
    bool press(QPointF at, float pressure, Qt::KeyboardModifiers modifiers, bool eraser);
    /// A move with the button down; false when no stroke of this window is under way.
    bool move(QPointF at, float pressure, Qt::KeyboardModifiers modifiers);
    /// The release; false when no stroke of this window is under way.
    bool release();
    /// A double click ends an open stroke (closing a polygon); false with none open.
    bool doubleClick();
    /// Escape stops the running stroke (what it painted stays, one undo level); Enter or
    /// Return ends it as it stands. False when the key is not for a stroke.
    bool key(int key);

    /// A tablet event. A press with the tip or eraser end calls `pressed(eraser)` first
    /// (the TabletEraserEnable and TabletEraserCursor settings decide which end erases),
    /// then starts the stroke as `press` does; moves and releases go on as the mouse's.
    void tablet(QTabletEvent& event, const std::function<void(bool eraser)>& pressed);
    /// Which kind of pointer a tablet event comes from, numbered as the TabletEraserCursor
    /// setting numbers them: 0 a puck, 1 a pen's tip, 2 its eraser end.
    static int tabletPointerKind(const QTabletEvent& event);

private:
    CQuorvaleDoc& document_;
    PixelAt pixelAt_;
    Changed changed_;
    bool stroking_ = false;
};
