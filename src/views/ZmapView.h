#pragma once

/// The engine half of an image view.
///
/// How the application uses it (contract):
/// - Make one per window: `ZmapView view(document, drawThread, window)`, with the process's
///   one DrawThread and a ViewWindow (the Qt view) that outlives it or calls
///   cancelDrawing() in its own destructor before going away. All calls below are on the
///   interface thread unless marked otherwise.
/// - `OnInitialUpdate(windowWidth, windowHeight, fit)` once the window has a size: zoom 1:1
///   (or fit), the whole image queued. `setWindowSize` on every resize, `setScroll` when the
///   scroll bars move (scrolling never redraws the store, only the blit moves);
///   `mapping()` gives the zoom, zoomed size, margin and every conversion between window,
///   store and image pixels for the paint handler and the mouse.
/// - Zoom: `setZoom(n, d)`, `zoomIn()`, `zoomOut()`, `fitWindow()`; the store is dropped, the
///   whole image queued, `ViewWindow::invalidateWindow` and `scrollSizesChanged` called.
/// - Changes: a tool calls `invalidateImage(extent)` (or `addToUpdateExtent` then
///   `QueueRedraw`); `channelsChanged(mask)` for changes of named channels. The document's
///   update hints go to `OnUpdate(hint)`: viewHintAboutToChange (0x40000) cancels drawing and
///   drops the store, viewHintChanged (0x20000) takes the new size and queues the whole.
///   Before any command that changes the document's structure, `cancelDrawing(waiter)`.
/// - The drawing thread draws the update extent into the BackingStore and calls
///   `ViewWindow::postInvalidate(storeRect)` (store coordinates) from the drawing thread; the
///   window posts a queued call and, on the interface thread, repaints
///   `mapping().storeToView(storeRect)`.
/// - Paint: under `ZmapView::StoreAccess access(view, L"CQuorvaleView::OnPaint")`, blit
///   `access.store()->level(0)` (null store: nothing drawn yet, fill with the background)
///   to the window at offset margin - scroll; fill the rest with `backgroundColour()`;
///   then `RepaintCursors()`.
/// - Colour matching: `setColourTransform(transform)` (null for off), which drops the store
///   and redraws everything.
/// - `setActiveView(&view)` when a view's window becomes active: its drawing goes first.
#include "core/Colour.h"
#include "core/ColourProfile.h"
#include "core/DrawThread.h"
#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "core/TqlCriticalSection.h"
#include "image/DrawTarget.h"
#include "views/BackingStore.h"
#include "views/ScaledDrawable.h"
#include "views/StoreLock.h"
#include "views/ViewMapping.h"
#include "views/ViewWindow.h"
#include "views/ZmapViewBase.h"

#include <atomic>
#include <cstdint>
#include <vector>

/// The image view's redraw loop: an update extent of image pixels waiting to be drawn, a
/// DrawTask that the drawing thread runs to copy them into the view's BackingStore at the
/// view's zoom, and the zoom and scroll that map the store to the window.
class ZmapView : public DrawTask, public ZmapViewBase, public DrawTarget, private ScaledDrawable {
public:
    /// Guards the update extent and the queued flag.
    static TqlCriticalSection csUpdateExtent;
    /// Guards the cursor drawing state.
    static TqlCriticalSection csCursorAndDrawDC;
    /// Guards every view's BackingStore, zoom and colour transform: DrawBits writes the store
    /// under it, the paint handler reads it under it.
    static TqlCriticalSection csBackingStore;

    /// Channel masks a shown channel reacts to in channelsChanged.
    static constexpr std::uint32_t colourReactMask = 114051;
    static constexpr std::uint32_t depthReactMask = 42242;
    static constexpr std::uint32_t materialReactMask = 59142;
    /// Whether a change of the channels in `mask` (0 for everything) concerns a view that
    /// shows channel `shown`. The thumbnail bit never counts; a mask of only it is everything.
    static bool reactsTo(std::uint32_t shown, std::uint32_t mask);

    ZmapView(ZmapDocument& document, DrawThread& thread, ViewWindow& window);
    /// Cancels the view's task (waiting for the drawing thread to let go of it).
    ~ZmapView() override;

    ZmapDocument& document() const override { return document_; }
    ViewWindow& window() const { return window_; }
    DrawThread& drawThread() const { return thread_; }

    // Life cycle.

    /// Sizes from the document and the window, zoom 1:1 or fitted, drawing on, the whole
    /// image queued.
    void OnInitialUpdate(std::int32_t windowWidth, std::int32_t windowHeight, bool fit);
    /// A document update hint: viewHintAboutToChange cancels drawing, drops the store and
    /// stops drawing until viewHintChanged, which takes the document's size and queues the
    /// whole image. Any other hint queues the whole image.
    void OnUpdate(std::uint32_t hint);
    /// True between OnInitialUpdate and an about-to-change hint.
    bool redrawing() const { return redrawing_.load(std::memory_order_acquire); }

    // Changes.

    /// Grows the update extent (image pixels) by union.
    void addToUpdateExtent(const IExtent<2>& extent);
    IExtent<2> updateExtent() const;
    /// Marks a redraw queued and hands the view to the drawing thread.
    void QueueRedraw();
    /// Forgets a queued redraw (the update extent stays).
    void ClearQueuedRedraw();
    bool redrawQueued() const;
    /// addToUpdateExtent then QueueRedraw; an empty extent means the whole image.
    void invalidateImage(const IExtent<2>& extent) override;
    /// Channels in `mask` (ChannelIds; 0 for all) changed in `extent` (empty: everywhere):
    /// redraw if the mask concerns the shown channel and the view is drawing.

    // The drawing thread.

    /// Stops this view's drawing and waits until the drawing thread has let go of it,
    /// calling the waiter meanwhile. What was not drawn stays in the update extent.
    void cancelDrawing(const DrawThread::PollingWaiter& waiter);
    /// The same with a waiter that only sleeps.
    void cancelDrawing();
    /// At idle: hands the view to the drawing thread again if something is waiting to be
    /// drawn (after a cancel). True if it did.
    bool IdleRedraw();
    /// The view of the active window, whose drawing goes first; null for none.
    static void setActiveView(ZmapView* view);
    static ZmapView* activeView();

    // Zoom and scroll.

    /// A copy of the present zoom, sizes, scroll and margin.
    ViewMapping mapping() const;
    void setZoom(std::int32_t numerator, std::int32_t denominator);
    bool zoomIn();
    bool zoomOut();
    void fitWindow();
    /// The window's client size; re-fits the zoom if fitWindowResize is on.
    void setWindowSize(std::int32_t width, std::int32_t height);
    void setScroll(std::int32_t x, std::int32_t y);
    bool fitWindowResize() const { return fitWindowResize_; }
    void setFitWindowResize(bool on) { fitWindowResize_ = on; }

    // Colour.

    /// The display transform (image profile to monitor), null for no matching. Drops the
    /// store, redraws the whole image and invalidates the window.
    void setColourTransform(TQL::Handle<TQL::ColourTransform> transform);
    TQL::Handle<TQL::ColourTransform> colourTransform() const;
    /// The colour outside the image, in the store's border and in the window's margin.
    void setBackgroundColour(ColourPOD colour);
    ColourPOD backgroundColour() const;

    /// Holds csBackingStore for reading the store (the paint handler).
    class StoreAccess : public StoreLock<BackingStore> {
    public:
        StoreAccess(const ZmapView& view, const wchar_t* site)
            : StoreLock(csBackingStore, view.store_, site) {}
    };

    // Cursors.

    /// Asks the window to draw the pseudo-cursors, under csCursorAndDrawDC; skipped while a
    /// paint lock is held.
    void RepaintCursors();
    void lockPaint() { ++paintLocks_; }
    void unlockPaint() { --paintLocks_; }

    // DrawTask: run by the drawing thread.

    void drawCancel() override;
    bool drawPerform() override;
    DrawWindow drawWindow() const override { return this; }

    /// Draws the shown channel over `extent` (image pixels) into the store: the tile walk at
    /// 1:1, the scaled walk at any other zoom. On the drawing thread. Returns the walk's
    /// status (-25 when aborted); `remaining` receives what is left to draw after an abort.
    virtual Status drawChannel(const IExtent<2>& extent, IExtent<2>& remaining);

    /// From the tile walk: a rectangle of store pixels (image pixels at 1:1) into the store,
    /// then a posted invalidation. On the drawing thread.
    void DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                  const std::uint8_t* rgb, std::int32_t stride) override;

protected:
    bool drawsNow() const override { return redrawing(); }
    void stopDrawing() override { drawCancel(); }
    void captureEnded(bool accepted) override { window_.postCaptureEnded(accepted); }

private:
    void ScaledRow(std::int32_t x, std::int32_t y, std::int32_t count,
                   const std::uint8_t* rgb) override;
    void ScaledOutside(std::int32_t x, std::int32_t y, std::int32_t count) override;
    void flushBand();
    /// After a zoom or size change: drop the store, queue everything, tell the window.
    void restartAfterZoom();
    IExtent<2> imageBounds() const;

    ZmapDocument& document_;
    DrawThread& thread_;
    ViewWindow& window_;

    std::atomic<bool> abort_{false};
    std::atomic<bool> redrawing_{false};
    // Under csUpdateExtent.
    IExtent<2> updateExtent_;
    bool redrawQueued_ = false;

    // Under csBackingStore.
    ViewMapping mapping_;
    TQL::Handle<BackingStore> store_;
    TQL::Handle<TQL::ColourTransform> transform_;
    ColourPOD background_{128, 128, 128};
    /// Changes whenever the store is dropped; a walk started before writes nothing after.
    std::uint64_t storeGeneration_ = 0;

    // Drawing thread only: the walk in progress.
    std::uint64_t walkGeneration_ = 0;
    std::int32_t walkLastY_ = 0;
    bool walkHasRows_ = false;
    /// The walk made a new store: everything must be drawn into it.
    bool walkNeedsWhole_ = false;
    ColourPOD walkBackground_{};
    std::vector<std::uint8_t> band_;
    std::int32_t bandX_ = 0;
    std::int32_t bandY_ = 0;
    std::int32_t bandWidth_ = 0;
    std::int32_t bandRows_ = 0;
    std::int32_t bandStride_ = 0;

    bool fitWindowResize_ = false;
    int paintLocks_ = 0;
};
