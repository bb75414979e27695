#include "app/CCubicView.h"

#include "app/AppSettings.h"
#include "app/BrushOutlinePC.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "views/CubicView.h"
#include "views/PolyPC.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTabletEvent>
#include <QThread>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

CCubicView::CCubicView(CQuorvaleDoc& document, QWidget* parent)
    : QWidget(parent), document_(document),
      view_(std::make_unique<CubicView>(document, CQuorvaleView::drawThread(), *this)),
      input_(
          document,
          [this](QPointF at, IPoint<2>& pixel) {
              return view_->stripPixelAt(at.x(), at.y(), pixel);
          },
          [this] { emit strokeChanged(); }) {
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
    if (outline_.size() > 2) {
        // Black over white, seen on any picture.
        QPolygonF polygon;
        for (const Point<2>& p : outline_) {
            polygon << QPointF(p.x(), p.y());
        }
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(Qt::white, 3));
        painter.drawPolygon(polygon);
        painter.setPen(QPen(Qt::black, 1));
        painter.drawPolygon(polygon);
    }
}

void CCubicView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (initialised_) {
        view_->setWindowSize(width(), height());
    }
}

bool CCubicView::painting() const {
    return initialised_ && CQuorvaleView::navigation() == CQuorvaleView::Navigation::apply;
}

void CCubicView::mousePressEvent(QMouseEvent* event) {
    emit activated(this);
    // A mouse presses as hard as it can.
    if (event->button() == Qt::LeftButton && painting() &&
        input_.press(event->position(), 1.0f, event->modifiers(), false)) {
        return;
    }
    if (navigateButton_ == Qt::NoButton &&
        (event->button() == Qt::LeftButton || event->button() == Qt::RightButton ||
         event->button() == Qt::MiddleButton)) {
        navigateButton_ = event->button();
        navigate().press(*view_, event->position().x(), event->position().y());
        setCursor(Qt::ClosedHandCursor);
    }
}

void CCubicView::mouseMoveEvent(QMouseEvent* event) {
    IPoint<2> pixel;
    const bool inside = view_->stripPixelAt(event->position().x(), event->position().y(), pixel);
    if (input_.stroking() && (event->buttons() & Qt::LeftButton)) {
        input_.move(event->position(), 1.0f, event->modifiers());
    } else if (navigate().dragging() && (event->buttons() & navigateButton_)) {
        navigate().drag(*view_, event->position().x(), event->position().y());
    }
    moveOutline(event->position(), inside);
    if (inside) {
        emit cursorMoved(pixel.x, pixel.y, true);
    }
}

void CCubicView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && input_.release()) {
        return;
    }
    if (event->button() == navigateButton_) {
        navigateButton_ = Qt::NoButton;
        navigate().release();
        unsetCursor();
    }
}

void CCubicView::mouseDoubleClickEvent(QMouseEvent* event) {
    // A double click ends a line, closing a polygon; otherwise it is a second press.
    if (event->button() == Qt::LeftButton && input_.doubleClick()) {
        return;
    }
    mousePressEvent(event);
}

void CCubicView::tabletEvent(QTabletEvent* event) {
    if (appsettings::TabletEnable.value() == 0 || !painting()) {
        // Ignored: Qt makes mouse events of it.
        event->ignore();
        return;
    }
    if (event->type() == QEvent::TabletMove) {
        IPoint<2> pixel;
        moveOutline(event->position(),
                    view_->stripPixelAt(event->position().x(), event->position().y(), pixel));
    }
    input_.tablet(*event, [this](bool eraser) {
        emit activated(this);
        emit eraserUsed(eraser);
    });
}

QRect CCubicView::outlineRect() const {
    if (outline_.empty()) {
        return {};
    }
    double x0 = outline_.front().x(), x1 = x0;
    double y0 = outline_.front().y(), y1 = y0;
    for (const Point<2>& p : outline_) {
        x0 = std::min(x0, p.x());
        x1 = std::max(x1, p.x());
        y0 = std::min(y0, p.y());
        y1 = std::max(y1, p.y());
    }
    // The pens' width and rounding.
    return QRect(QPoint(static_cast<int>(std::floor(x0)) - 3, static_cast<int>(std::floor(y0)) - 3),
                 QPoint(static_cast<int>(std::ceil(x1)) + 3, static_cast<int>(std::ceil(y1)) + 3));
}

void CCubicView::moveOutline(QPointF at, bool inside) {
    const QRect before = outlineRect();
    outline_.clear();
    const auto* brush = dynamic_cast<const BrushOutlinePC*>(CQuorvaleView::toolCursor().get());
    Vector<2> right;
    Vector<2> down;
    // A flat dab's outline in face pixels about its centre, laid on the face under the
    // mouse: a dab that lies on the surface has no flat outline to show here.
    if (inside && painting() && brush && brush->outline() && !brush->outline()->threeD &&
        brush->outline()->imagePoints.size() >= 4 &&
        view_->facePixelSteps(at.x(), at.y(), right, down)) {
        const Point<2> centre(at.x(), at.y());
        for (const Point<2>& p : BezierPC::flatten(brush->outline()->imagePoints, 8)) {
            outline_.push_back(centre + right * p.x() + down * p.y());
        }
    }
    const QRect after = outlineRect();
    if (!before.isNull()) {
        update(before);
    }
    if (!after.isNull()) {
        update(after);
    }
}

void CCubicView::wheelEvent(QWheelEvent* event) {
    navigate().wheel(*view_, event->angleDelta().y());
    event->accept();
}

void CCubicView::keyPressEvent(QKeyEvent* event) {
    if (input_.key(event->key())) {
        return;
    }
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
    moveOutline(QPointF(), false);
    emit cursorMoved(0, 0, false);
    QWidget::leaveEvent(event);
}

void CCubicView::focusInEvent(QFocusEvent* event) {
    emit activated(this);
    QWidget::focusInEvent(event);
}
