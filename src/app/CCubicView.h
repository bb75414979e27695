#pragma once

#include "app/CNavigate.h"
#include "app/ViewStrokeInput.h"
#include "core/Extent.h"
#include "core/Point.h"
#include "views/ViewWindow.h"

#include <QWidget>

#include <memory>
#include <vector>

class CQuorvaleDoc;
class CubicView;

/// The window of a panorama view: a cube document seen from its centre through a camera
/// that the user turns (CNavigate: drag to look around, wheel for the field of view, arrow
/// keys, + and -). With a painting tool selected the left button paints instead, as in the
/// image view: each point of a mouse or tablet stroke goes to the face pixel under it, and
/// the right or middle button still turns the camera. The brush's outline follows the
/// mouse, drawn as the dab lies on the face under it. The engine half (CubicView) draws on
/// the process's drawing thread into its store; paint only blits the store under its lock.
class CCubicView : public QWidget, public ViewWindow {
    Q_OBJECT

public:
    CCubicView(CQuorvaleDoc& document, QWidget* parent = nullptr);
    ~CCubicView() override;

    CQuorvaleDoc& document() const { return document_; }
    CubicView& cubicView() const { return *view_; }
    /// The navigation tool of every panorama view.
    static CNavigate& navigate();

    /// The window's size, everything queued: once the window has its size.
    void OnInitialUpdate();
    void OnUpdate(std::uint32_t hint);
    void cancelDrawing();
    /// Strip pixels changed (empty: all).
    void invalidateImage(const IExtent<2>& extent);

    /// Runs the event loop until everything queued is drawn; false if `timeoutMs` passed.
    bool waitForDrawing(int timeoutMs);

    // ViewWindow
    void postInvalidate(const IExtent<2>& storeRect) override;
    void invalidateWindow() override;

signals:
    /// The mouse is over strip pixel (x, y) of the cube, or left the view.
    void cursorMoved(int x, int y, bool inside);
    void activated(CCubicView* view);
    /// A stroke call changed the document or ended a stroke (the undo state may differ).
    void strokeChanged();
    /// A tablet stroke began with the eraser end (true) or the tip (false).
    void eraserUsed(bool eraser);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void tabletEvent(QTabletEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;

public:
    /// The brush outline as drawn now, in window coordinates (empty: none shown).
    const std::vector<Point<2>>& brushOutline() const { return outline_; }

private:
    /// The left button paints rather than turns the camera.
    bool painting() const;
    /// Moves the brush outline to window point `at` (or hides it), repainting where it was
    /// and where it goes.
    void moveOutline(QPointF at, bool inside);
    QRect outlineRect() const;

    CQuorvaleDoc& document_;
    std::unique_ptr<CubicView> view_;
    ViewStrokeInput input_;
    bool initialised_ = false;
    Qt::MouseButton navigateButton_ = Qt::NoButton;
    std::vector<Point<2>> outline_;
};
