#pragma once

#include "app/ViewStrokeInput.h"
#include "core/DrawThread.h"
#include "core/Extent.h"
#include "core/Handle.h"
#include "image/StrokeApplicator.h"
#include "views/PseudoCursor.h"
#include "views/ViewWindow.h"

#include <QAbstractScrollArea>
#include <QPoint>

#include <memory>

class CQuorvaleDoc;
class QPainter;
class QTabletEvent;
class ZmapView;

/// Waits for the drawing thread on the interface thread: the drawing thread never waits
/// for the interface thread (its invalidations are posted), so the poll only sleeps 10 ms.
class QuorvalePollingWaiter : public DrawThread::PollingWaiter {
public:
    void poll() const override;
};

/// The window of one view of a document: a scroll area whose viewport shows the view's
/// BackingStore. The engine half (ZmapView) keeps the store up to date on the drawing
/// thread; this half turns Qt's events into its calls: paint blits from the store under
/// its lock and fills the rest with BackgroundColour, scrolling only moves the blit, a
/// resize re-fits the zoom when FitWindowResize is on, and the drawing thread's changed
/// rectangles come back as queued calls. Painting never waits for the drawing.
class CQuorvaleView : public QAbstractScrollArea, public ViewWindow {
    Q_OBJECT

public:
    /// The view of `document` (not owned; it outlives the view) showing `channel`.
    CQuorvaleView(CQuorvaleDoc& document, std::uint32_t channel, QWidget* parent = nullptr);
    ~CQuorvaleView() override;

    /// The drawing thread of every view in the process.
    static DrawThread& drawThread();

    CQuorvaleDoc& document() const { return document_; }
    ZmapView& zmapView() const { return *view_; }

    /// Sizes and zoom from the document and the window (fitted, or 1:1), the whole image
    /// queued. Called once the window has its size.
    void OnInitialUpdate(bool fit);
    /// The document's update hints (about to change, changed).
    void OnUpdate(std::uint32_t hint);
    void cancelDrawing();
    /// Ends this view's pseudo-cursor capture, refused: a crop rectangle being dragged is
    /// dropped. The cursor goes when the end's notification arrives.
    void endCapture();
    /// These image pixels changed (empty: all).
    void invalidateImage(const IExtent<2>& extent);

    std::uint32_t shownChannel() const;
    void setShownChannel(std::uint32_t channel);

    void zoomIn();
    void zoomOut();
    void fitWindow();
    void zoomActualSize();
    /// Zoom numerator and denominator.
    std::pair<int, int> zoom() const;
    /// Scrolls so that window pixel (0, 0) shows store pixel `scroll`.
    void scrollTo(int x, int y);

    /// Builds the colour transform from the settings (ICMEnabled, ICMIntent, the monitor
    /// profile) and the background colour, and redraws: after the preferences change.
    void OnColourMatchChange();

    /// What a left drag or click does on every view when no capture runs: scroll (hand),
    /// zoom in (Shift: out) about the point, or apply the current tool (imageClicked).
    enum class Navigation { apply, hand, zoom };
    static void setNavigation(Navigation navigation);
    static Navigation navigation();
    /// Zooms one step in (or out) keeping image pixel under window point `at` in place.
    void zoomAbout(QPoint at, bool in);

    /// What a capture of this view is for.
    enum class CaptureUse { none, crop, tool };

    /// The next rectangle dragged on the view (a DragRectPC) is a crop: on release the
    /// user confirms and the document keeps that rectangle. Ends any other capture first.
    void beginCropCapture();
    bool cropCaptureActive() const { return captureUse_ == CaptureUse::crop; }
    /// Hands the mouse to `cursor` until it is done (accepted) or Escape or a command ends
    /// it (refused); then captureEnded is emitted with the cursor, after the cursor has left
    /// the view. False if it could not begin.
    bool beginCapture(TQL::Handle<PseudoCursor> cursor, CaptureUse use = CaptureUse::tool);
    /// The cursor of this view's running capture; null for none.
    PseudoCursor* capturingCursor() const;
    /// What a cursor of this view sees of it.
    CursorContext cursorContext() const;

    /// The pseudo-cursor of the selected tool (a line's rubber band, a brush's outline);
    /// null for none. It follows the mouse in whichever view the mouse is, and is drawn
    /// there; a capture (a crop rectangle) takes precedence while it runs.
    static void setToolCursor(TQL::Handle<PseudoCursor> cursor);
    static const TQL::Handle<PseudoCursor>& toolCursor();

    /// Waits (running the event loop) until the drawing thread has drawn everything
    /// queued for this view; false if `timeoutMs` passed first. For screenshots and tests.
    bool waitForDrawing(int timeoutMs);

    // ViewWindow
    void postInvalidate(const IExtent<2>& storeRect) override;
    void invalidateWindow() override;
    void scrollSizesChanged() override;
    void repaintCursors() override;
    void postCaptureEnded(bool accepted) override;

signals:
    /// The mouse is over image pixel (x, y), or left the image (inside false).
    void cursorMoved(int x, int y, bool inside);
    /// The view was activated (focus, click): it becomes the main frame's active view.
    void activated(CQuorvaleView* view);
    void zoomChanged();
    /// A capture begun with beginCapture ended; `accepted` when its cursor finished.
    void captureEnded(TQL::Handle<PseudoCursor> cursor, bool accepted);
    /// A left click on image pixel (x, y) while no capture runs: the current tool applies.
    void imageClicked(int x, int y, Qt::KeyboardModifiers modifiers);
    /// A stroke call changed the document or ended a stroke (the undo state may differ).
    void strokeChanged();
    /// A tablet stroke began with the eraser end (true) or the tip (false).
    void eraserUsed(bool eraser);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool viewportEvent(QEvent* event) override;

private:
    class TimedView;
    void updateScrollBars();
    /// The store's pixels and the background over `dirty`.
    void blit(QPainter& painter, const QRect& dirty);
    /// Hands a mouse event to this view's capturing cursor; false if none runs.
    bool sendToCursor(QMouseEvent* event, CursorEvent::Kind kind);
    void onCaptureEnded(bool accepted);
    /// Stroke input from the mouse or a tablet, in apply mode: true if it was taken.
    bool strokePress(QPointF at, float pressure, Qt::KeyboardModifiers modifiers, bool eraser);
    void handleTablet(QTabletEvent* event);
    /// Hands a move to the tool's cursor, bringing it into this view.
    void moveToolCursor(QPointF at, Qt::KeyboardModifiers modifiers, bool dragging);
    void finishCrop(const IExtent<2>& keep);

    CQuorvaleDoc& document_;
    std::unique_ptr<ZmapView> view_;
    bool initialised_ = false;
    bool settingScroll_ = false;
    bool painting_ = false;
    bool handDragging_ = false;
    ViewStrokeInput input_;
    QPoint dragFrom_;
    QPoint scrollFrom_;
    CaptureUse captureUse_ = CaptureUse::none;
    TQL::Handle<PseudoCursor> cursor_;
};
