#pragma once

#include "app/CNavigate.h"
#include "core/Extent.h"
#include "views/ViewWindow.h"

#include <QWidget>

#include <memory>

class CQuorvaleDoc;
class CubicView;

/// The window of a panorama view: a cube document seen from its centre through a camera
/// that the user turns (CNavigate: drag to look around, wheel for the field of view, arrow
/// keys, + and -); a click without a drag applies the current tool at the face pixel
/// under the mouse. The engine half (CubicView) draws on the process's drawing thread into
/// its store; paint only blits the store under its lock.
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
    /// A left click (a press and release without a drag) on strip pixel (x, y): the current
    /// tool applies there, as in the image view.
    void imageClicked(int x, int y);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;

private:
    CQuorvaleDoc& document_;
    std::unique_ptr<CubicView> view_;
    bool initialised_ = false;
    QPointF pressedAt_;
};
