#include "app/CCubicView.h"

#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "views/CubicView.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QThread>
#include <QWheelEvent>

#include <cmath>

CCubicView::CCubicView(CQuorvaleDoc& document, QWidget* parent)
    : QWidget(parent), document_(document),
      view_(std::make_unique<CubicView>(document, CQuorvaleView::drawThread(), *this)) {
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(64, 48);
    document_.addCubicView(this);
}

CCubicView::~CCubicView() {
    view_->cancelDrawing(QuorvalePollingWaiter());
    document_.removeCubicView(this);
    view_.reset();
}

CNavigate& CCubicView::navigate() {
    static CNavigate tool;
    return tool;
}

void CCubicView::OnInitialUpdate() {
    view_->OnInitialUpdate(width(), height());
    initialised_ = true;
}

void CCubicView::OnUpdate(std::uint32_t hint) {
    view_->OnUpdate(hint);
}

void CCubicView::cancelDrawing() {
    view_->cancelDrawing(QuorvalePollingWaiter());
}

void CCubicView::invalidateImage(const IExtent<2>& extent) {
    view_->invalidateImage(extent);
}

bool CCubicView::waitForDrawing(int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeoutMs) {
        QCoreApplication::processEvents();
        if (!view_->redrawQueued() && !CQuorvaleView::drawThread().busy()) {
            QCoreApplication::processEvents();
            return true;
        }
        QThread::msleep(5);
    }
    return false;
}

void CCubicView::postInvalidate(const IExtent<2>&) {
    // On the drawing thread: only post; the whole view was drawn anew.
    QMetaObject::invokeMethod(
        this, [this] { update(); }, Qt::QueuedConnection);
}

void CCubicView::invalidateWindow() {
    update();
}

void CCubicView::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    CubicView::StoreAccess access(*view_, L"CCubicView::OnPaint");
    const BackingStore3d* store = access.store();
    if (!store) {
        painter.fillRect(event->rect(), QColor(96, 96, 96));
        return;
    }
    const QImage image(store->bits(), store->width(), store->height(), store->stride(),
                       QImage::Format_BGR888);
    painter.drawImage(QPoint(0, 0), image);
    // A store of an older size: fill what it doesn't cover until the next draw.
    if (store->width() < width()) {
        painter.fillRect(store->width(), 0, width() - store->width(), height(), QColor(96, 96, 96));
    }
    if (store->height() < height()) {
        painter.fillRect(0, store->height(), width(), height() - store->height(),
                         QColor(96, 96, 96));
    }
}

void CCubicView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (initialised_) {
        view_->setWindowSize(width(), height());
    }
}

void CCubicView::mousePressEvent(QMouseEvent* event) {
    emit activated(this);
    if (event->button() == Qt::LeftButton) {
        pressedAt_ = event->position();
        navigate().press(*view_, event->position().x(), event->position().y());
        setCursor(Qt::ClosedHandCursor);
    }
}

void CCubicView::mouseMoveEvent(QMouseEvent* event) {
    if (navigate().dragging() && (event->buttons() & Qt::LeftButton)) {
        navigate().drag(*view_, event->position().x(), event->position().y());
    }
    IPoint<2> pixel;
    if (view_->stripPixelAt(event->position().x(), event->position().y(), pixel)) {
        emit cursorMoved(pixel.x, pixel.y, true);
    }
}

void CCubicView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        navigate().release();
        unsetCursor();
        const QPointF moved = event->position() - pressedAt_;
        IPoint<2> pixel;
        if (std::abs(moved.x()) + std::abs(moved.y()) < 3 &&
            view_->stripPixelAt(pressedAt_.x(), pressedAt_.y(), pixel)) {
            emit imageClicked(pixel.x, pixel.y);
        }
    }
}

void CCubicView::wheelEvent(QWheelEvent* event) {
    navigate().wheel(*view_, event->angleDelta().y());
    event->accept();
}

void CCubicView::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Left:
        navigate().key(*view_, -1, 0);
        break;
    case Qt::Key_Right:
        navigate().key(*view_, 1, 0);
        break;
    case Qt::Key_Up:
        navigate().key(*view_, 0, 1);
        break;
    case Qt::Key_Down:
        navigate().key(*view_, 0, -1);
        break;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        navigate().wheel(*view_, 120);
        break;
    case Qt::Key_Minus:
        navigate().wheel(*view_, -120);
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

void CCubicView::leaveEvent(QEvent* event) {
    emit cursorMoved(0, 0, false);
    QWidget::leaveEvent(event);
}

void CCubicView::focusInEvent(QFocusEvent* event) {
    emit activated(this);
    QWidget::focusInEvent(event);
}
