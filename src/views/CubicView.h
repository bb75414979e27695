#pragma once

/// The engine half of a panorama view: a cube document seen from the cube's centre.
///
/// How the application uses it (contract), as for ZmapView:
/// - One per window, `CubicView view(document, drawThread, window)`; the window outlives it
///   or calls cancelDrawing() first. Calls are on the interface thread unless marked.
/// - `OnInitialUpdate(width, height)` once the window has its size; `setWindowSize` on
///   every resize. `setAngles`, `turnBy` and `wheel` move the camera; each builds a new
///   CubicDrawable (the six face transforms) and queues a redraw of the view.
/// - Changes of the document: `invalidateImage(extent)` with strip pixels (empty: all),
///   `channelsChanged(mask)`, `OnUpdate(hint)`; `cancelDrawing(waiter)` before a command
///   that changes the document's structure.
/// - The drawing thread copies the changed strip pixels into the view's own copy of the
///   cube, draws the whole view from it into a store of its own, hands that store over
///   under csBackingStore and calls `ViewWindow::postInvalidate` with the view's rectangle.
/// - Paint: under `CubicView::StoreAccess access(view, L"CCubicView::OnPaint")`, blit
///   `access.store()` (null: nothing drawn yet).
#include "core/DrawThread.h"
#include "core/Extent.h"
#include "core/Handle.h"
#include "core/TqlCriticalSection.h"
#include "image/DrawTarget.h"
#include "views/BackingStore3d.h"
#include "views/CubicDrawable.h"
#include "views/StoreLock.h"
#include "views/ViewWindow.h"
#include "views/ZmapViewBase.h"

#include <atomic>
#include <cstdint>

class CubicView : public DrawTask, public ZmapViewBase, private DrawTarget {
public:
    /// Guards every panorama view's store, angles and size.
    static TqlCriticalSection csBackingStore;

    CubicView(ZmapDocument& document, DrawThread& thread, ViewWindow& window);
    /// Cancels the view's task, waiting for the drawing thread to let go of it.
    ~CubicView() override;

    ZmapDocument& document() const override { return document_; }
    ViewWindow& window() const { return window_; }

    /// True for a document this view can show: six square faces side by side.
    static bool isCubeImage(const ZmapDocument& document);

    // Life cycle.

    /// The window's size, drawing on, everything queued.
    void OnInitialUpdate(std::int32_t windowWidth, std::int32_t windowHeight);
    /// viewHintAboutToChange stops drawing until viewHintChanged, which re-reads the whole
    /// cube; any other hint queues the whole cube.
    void OnUpdate(std::uint32_t hint);
    bool redrawing() const { return redrawing_.load(std::memory_order_acquire); }
    void setWindowSize(std::int32_t width, std::int32_t height);

    // The camera.

    PanoramaAngles angles() const;
    /// Normalised (pan into [0, 360), tilt clamped to +-90, field of view clamped).
    void setAngles(const PanoramaAngles& angles);
    void turnBy(double panDegrees, double tiltDegrees);
    /// A wheel turn of `angleDelta` units changes the field of view (see CubicDrawable).
    void wheel(int angleDelta);
    /// The drawable of the present angles and window size.
    CubicDrawable drawable() const;
    /// The strip pixel that window point (x, y) shows (rounded); false when the document is
    /// not a cube image.
    bool stripPixelAt(double x, double y, IPoint<2>& out) const;
    /// How the face pixels near window point (x, y) lie in the window: the window vectors
    /// of one pixel step to the right (`right`) and down (`down`) on the face under the
    /// point. What the brush outline is drawn with; false when the document is not a cube
    /// image.
    bool facePixelSteps(double x, double y, Vector<2>& right, Vector<2>& down) const;

    // Changes.

    /// Strip pixels in `extent` changed (empty: all): copy them again and redraw.
    void invalidateImage(const IExtent<2>& extent) override;
    IExtent<2> updateExtent() const;
    void QueueRedraw();
    bool redrawQueued() const;

    // The drawing thread.

    void cancelDrawing(const DrawThread::PollingWaiter& waiter);
    void cancelDrawing();
    /// At idle: queues the view again if a cancelled draw left work. True if it did.
    bool IdleRedraw();

    void drawCancel() override;
    bool drawPerform() override;
    DrawWindow drawWindow() const override { return this; }

    /// Holds csBackingStore for reading the store (the paint handler).
    class StoreAccess : public StoreLock<BackingStore3d> {
    public:
        StoreAccess(const CubicView& view, const wchar_t* site)
            : StoreLock(csBackingStore, view.store_, site) {}
    };

protected:
    bool drawsNow() const override { return redrawing(); }
    void stopDrawing() override { drawCancel(); }
    void captureEnded(bool accepted) override { window_.postCaptureEnded(accepted); }

private:
    void DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                  const std::uint8_t* rgb, std::int32_t stride) override;
    IExtent<2> imageBounds() const;
    /// Queues a redraw of the view alone (the cube copy is up to date).
    void queueViewRedraw();
    /// Puts undone work back after an abort.
    void requeue(const IExtent<2>& extent);

    ZmapDocument& document_;
    DrawThread& thread_;
    ViewWindow& window_;

    std::atomic<bool> abort_{false};
    std::atomic<bool> redrawing_{false};
    // Under ZmapView::csUpdateExtent.
    IExtent<2> updateExtent_;
    bool viewDirty_ = false;
    bool redrawQueued_ = false;

    // Under csBackingStore.
    PanoramaAngles angles_;
    std::int32_t windowWidth_ = 1;
    std::int32_t windowHeight_ = 1;
    TQL::Handle<BackingStore3d> store_;

    // Drawing thread only.
    CubeStrip strip_;
    TQL::Handle<BackingStore3d> pending_;
};
