#pragma once

#include "core/Extent.h"

/// What an image view needs from the window that shows it. The application's Qt view
/// implements it; tests implement it with recorders.
///
/// postInvalidate is called on the drawing thread and must only post (a queued call to the
/// interface thread): painting never waits for the screen, and the drawing thread may run
/// while the interface thread waits for it in DrawThread::cancel. The other calls come on
/// the interface thread.
class ViewWindow {
public:
    virtual ~ViewWindow() = default;
    /// Store pixels in `storeRect` (inclusive corners, backing store coordinates) changed:
    /// queue a repaint of the window area that shows them. Any thread; must not block.
    virtual void postInvalidate(const IExtent<2>& storeRect) = 0;
    /// The whole window must be repainted (zoom changed, store dropped). Interface thread.
    virtual void invalidateWindow() = 0;
    /// The zoomed image size or the margin changed: update the scroll bars. Interface thread.
    virtual void scrollSizesChanged() {}
    /// Draw the pseudo-cursors over the window; called under ZmapView::csCursorAndDrawDC by
    /// RepaintCursors. Interface thread.
    virtual void repaintCursors() {}
    /// The pseudo-cursor capture of this view ended, accepted or not: queue a call that
    /// tells the interface thread (never handle it inside this call: the capture's owner
    /// may be in the middle of a mouse event).
    virtual void postCaptureEnded(bool /*accepted*/) {}
};
