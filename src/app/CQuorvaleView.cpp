#include "app/CQuorvaleView.h"

#include "app/AppSettings.h"
#include "app/CQuorvaleDoc.h"
#include "app/QtCursorPainter.h"
#include "app/QtText.h"
#include "app/TimingReport.h"
#include "app/UserMessages.h"
#include "core/ColourProfile.h"
#include "image/DocumentViews.h"
#include "views/ZmapView.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPointingDevice>
#include <QScrollBar>
#include <QTabletEvent>
#include <QThread>

#include <algorithm>
#include <cmath>

namespace {

QColor toQColor(ColourPOD c) {
    return QColor(c.r, c.g, c.b);
}

/// BackgroundColour holds red in its low byte, then green, then blue.
ColourPOD backgroundSetting() {
    const int v = appsettings::BackgroundColour.value();
    return ColourPOD{static_cast<std::uint8_t>((v >> 16) & 0xFF),
                     static_cast<std::uint8_t>((v >> 8) & 0xFF),
                     static_cast<std::uint8_t>(v & 0xFF)};
}

/// The display transform the settings ask for: the image (sRGB) to the monitor profile
/// (a profile file, or sRGB), with the chosen intent; null when matching is off or a
/// profile can't be had.
TQL::Handle<TQL::ColourTransform> displayTransform() {
    if (!appsettings::ICMEnabled.value()) {
        return {};
    }
    const auto image = TQL::ColourProfile::create(TQL::ColourProfileId::sRGB);
    const std::wstring monitorFile = appsettings::MonitorProfile.value();
    const auto monitor = monitorFile.empty()
                             ? TQL::ColourProfile::create(TQL::ColourProfileId::sRGB)
                             : TQL::ColourProfile::createFromFile(monitorFile);
    if (!image || !monitor) {
        return {};
    }
    const int intent = std::clamp(appsettings::ICMIntent.value(), 0, 3);
    return TQL::ColourTransform::create(static_cast<TQL::RenderingIntent>(intent), *image,
                                        *monitor);
}

QRect toViewRect(const IExtent<2>& e) {
    return toQRect(e);
}

CQuorvaleView::Navigation currentNavigation = CQuorvaleView::Navigation::hand;

/// The selected tool's pseudo-cursor, and the views it may be shown in.
TQL::Handle<PseudoCursor>& toolCursorSlot() {
    static TQL::Handle<PseudoCursor> cursor;
    return cursor;
}
std::vector<CQuorvaleView*>& liveViews() {
    static std::vector<CQuorvaleView*> views;
    return views;
}

unsigned cursorModifiers(Qt::KeyboardModifiers m) {
    unsigned modifiers = 0;
    if (m & Qt::ShiftModifier) {
        modifiers |= CursorEvent::shiftKey;
    }
    if (m & Qt::ControlModifier) {
        modifiers |= CursorEvent::controlKey;
    }
    if (m & Qt::AltModifier) {
        modifiers |= CursorEvent::altKey;
    }
    return modifiers;
}

} // namespace

void QuorvalePollingWaiter::poll() const {
    QThread::msleep(10);
}

/// The engine view, with the redraw reported when timing reports are on.
class CQuorvaleView::TimedView : public ZmapView {
public:
    using ZmapView::ZmapView;
    Status drawChannel(const IExtent<2>& extent, IExtent<2>& remaining) override {
        if (!TimingReport::enabled()) {
            return ZmapView::drawChannel(extent, remaining);
        }
        QElapsedTimer timer;
        timer.start();
        const Status s = ZmapView::drawChannel(extent, remaining);
        TimingReport::print(
            "redraw",
            QStringLiteral("%1x%2 pixels%3")
                .arg(extent.width())
                .arg(extent.height())
                .arg(s == status::cancelled ? QStringLiteral(" (stopped)") : QString()),
            static_cast<double>(timer.nsecsElapsed()) / 1e6);
        return s;
    }
};

DrawThread& CQuorvaleView::drawThread() {
    static DrawThread thread;
    return thread;
}

CQuorvaleView::CQuorvaleView(CQuorvaleDoc& document, std::uint32_t channel, QWidget* parent)
    : QAbstractScrollArea(parent), document_(document),
      view_(std::make_unique<TimedView>(document, drawThread(), *this)),
      input_(
          document,
          [this](QPointF at, IPoint<2>& pixel) {
              // The window pixel the pointer is in (a tablet gives fractions).
              const ViewMapping m = view_->mapping();
              pixel = m.viewToImage(IPoint<2>(static_cast<std::int32_t>(std::floor(at.x())),
                                              static_cast<std::int32_t>(std::floor(at.y()))));
              const IVector<2> size = m.imageSize();
              return pixel.x >= 0 && pixel.y >= 0 && pixel.x < size.x && pixel.y < size.y;
          },
          [this] { emit strokeChanged(); }) {
    view_->setShownChannel(channel);
    view_->setFitWindowResize(appsettings::FitWindowResize.value() != 0);
    view_->setBackgroundColour(backgroundSetting());
    view_->setColourTransform(displayTransform());
    viewport()->setMouseTracking(true);
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    viewport()->setAttribute(Qt::WA_NoSystemBackground);
    setFocusPolicy(Qt::StrongFocus);
    setFrameShape(QFrame::NoFrame);
    document_.addView(this);
    liveViews().push_back(this);
}

CQuorvaleView::~CQuorvaleView() {
    std::erase(liveViews(), this);
    if (ZmapViewBase::pseudoCursorView() == view_.get()) {
        ZmapViewBase::SetPseudoCursor(nullptr, nullptr);
    }
    // The drawing thread must let go of the view before anything it posts to goes away.
    view_->cancelDrawing(QuorvalePollingWaiter());
    if (ZmapView::activeView() == view_.get()) {
        ZmapView::setActiveView(nullptr);
    }
    document_.removeView(this);
    view_.reset();
}

void CQuorvaleView::OnInitialUpdate(bool fit) {
    const QSize size = viewport()->size();
    view_->OnInitialUpdate(size.width(), size.height(), fit);
    initialised_ = true;
    updateScrollBars();
    viewport()->update();
    emit zoomChanged();
}

void CQuorvaleView::OnUpdate(std::uint32_t hint) {
    view_->OnUpdate(hint);
    if (hint == viewHintChanged) {
        // The image may have another size now (crop, revert).
        view_->setWindowSize(viewport()->width(), viewport()->height());
        updateScrollBars();
        viewport()->update();
    }
}

void CQuorvaleView::cancelDrawing() {
    view_->cancelDrawing(QuorvalePollingWaiter());
}

void CQuorvaleView::endCapture() {
    if (ZmapViewBase::captureView() == view_.get()) {
        ZmapViewBase::endCapture(false);
    }
}

void CQuorvaleView::invalidateImage(const IExtent<2>& extent) {
    view_->invalidateImage(extent);
}

std::uint32_t CQuorvaleView::shownChannel() const {
    return view_->shownChannel();
}

void CQuorvaleView::setShownChannel(std::uint32_t channel) {
    view_->setShownChannel(channel);
    viewport()->update();
}

void CQuorvaleView::zoomIn() {
    // A zoom the user chose stays through resizes; FitWindowResize keeps fitted views fitted.
    view_->setFitWindowResize(false);
    view_->zoomIn();
    emit zoomChanged();
}

void CQuorvaleView::zoomOut() {
    view_->setFitWindowResize(false);
    view_->zoomOut();
    emit zoomChanged();
}

void CQuorvaleView::fitWindow() {
    view_->setFitWindowResize(appsettings::FitWindowResize.value() != 0);
    view_->fitWindow();
    emit zoomChanged();
}

void CQuorvaleView::zoomActualSize() {
    view_->setFitWindowResize(false);
    view_->setZoom(1, 1);
    emit zoomChanged();
}

std::pair<int, int> CQuorvaleView::zoom() const {
    const ViewMapping m = view_->mapping();
    return {m.zoomNumerator(), m.zoomDenominator()};
}

void CQuorvaleView::scrollTo(int x, int y) {
    view_->setScroll(x, y);
    updateScrollBars();
    viewport()->update();
}

void CQuorvaleView::OnColourMatchChange() {
    view_->setBackgroundColour(backgroundSetting());
    view_->setFitWindowResize(appsettings::FitWindowResize.value() != 0);
    view_->setColourTransform(displayTransform());
    viewport()->update();
}

void CQuorvaleView::setNavigation(Navigation navigation) {
    currentNavigation = navigation;
}

CQuorvaleView::Navigation CQuorvaleView::navigation() {
    return currentNavigation;
}

void CQuorvaleView::zoomAbout(QPoint at, bool in) {
    const IPoint<2> pixel = view_->mapping().viewToImage(IPoint<2>(at.x(), at.y()));
    if (in) {
        zoomIn();
    } else {
        zoomOut();
    }
    const ViewMapping m = view_->mapping();
    const IExtent<2> shown = m.imageToView(pixel);
    if (shown.degenerate()) {
        return;
    }
    // Scroll so that the pixel is back under the mouse.
    const IPoint<2> scroll = m.scroll();
    scrollTo(scroll.x + shown.lo().x - at.x(), scroll.y + shown.lo().y - at.y());
}

void CQuorvaleView::beginCropCapture() {
    beginCapture(TQL::makeHandle<DragRectPC>(), CaptureUse::crop);
}

bool CQuorvaleView::beginCapture(TQL::Handle<PseudoCursor> cursor, CaptureUse use) {
    if (!cursor) {
        return false;
    }
    // Whatever was capturing is refused: one capture runs in the process.
    ZmapViewBase::endCapture(false);
    if (!ZmapViewBase::beginCapture(view_.get(), static_cast<std::uint32_t>(use))) {
        return false;
    }
    cursor_ = std::move(cursor);
    captureUse_ = use;
    ZmapViewBase::SetPseudoCursor(cursor_.get(), view_.get());
    viewport()->setCursor(Qt::CrossCursor);
    viewport()->update();
    return true;
}

PseudoCursor* CQuorvaleView::capturingCursor() const {
    return ZmapViewBase::captureView() == view_.get() ? cursor_.get() : nullptr;
}

CursorContext CQuorvaleView::cursorContext() const {
    return CursorContext(view_->mapping(), &document_);
}

void CQuorvaleView::postCaptureEnded(bool accepted) {
    // Queued: the end may come from inside this view's own mouse handling.
    QMetaObject::invokeMethod(
        this, [this, accepted] { onCaptureEnded(accepted); }, Qt::QueuedConnection);
}

void CQuorvaleView::onCaptureEnded(bool accepted) {
    TQL::Handle<PseudoCursor> cursor = std::move(cursor_);
    const CaptureUse use = captureUse_;
    captureUse_ = CaptureUse::none;
    if (cursor && ZmapViewBase::pseudoCursor() == cursor.get()) {
        ZmapViewBase::SetPseudoCursor(nullptr, nullptr);
    }
    viewport()->unsetCursor();
    viewport()->update();
    if (!cursor) {
        return;
    }
    if (use == CaptureUse::crop) {
        const auto* rect = dynamic_cast<const DragRectPC*>(cursor.get());
        if (accepted && rect) {
            finishCrop(rect->rect());
        }
        return;
    }
    emit captureEnded(cursor, accepted);
}

void CQuorvaleView::finishCrop(const IExtent<2>& keep) {
    if (keep.degenerate() || keep.width() < 2 || keep.height() < 2) {
        return;
    }
    const QString question = loadQString(10414);
    if (!question.isEmpty() &&
        UserMessages::current().ask(this, question, false) != UserMessages::Answer::yes) {
        return;
    }
    document_.crop(keep);
}

bool CQuorvaleView::waitForDrawing(int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeoutMs) {
        QCoreApplication::processEvents();
        if (!view_->redrawQueued() && view_->updateExtent().degenerate() && !drawThread().busy()) {
            // Deliver the last posted invalidations.
            QCoreApplication::processEvents();
            return true;
        }
        QThread::msleep(5);
    }
    return false;
}

void CQuorvaleView::postInvalidate(const IExtent<2>& storeRect) {
    // On the drawing thread: only post. The call runs on the interface thread, and is
    // dropped if this window is gone by then.
    QMetaObject::invokeMethod(
        this,
        [this, storeRect] {
            const IExtent<2> viewRect = view_->mapping().storeToView(storeRect);
            if (!viewRect.degenerate()) {
                viewport()->update(toViewRect(viewRect));
            }
        },
        Qt::QueuedConnection);
}

void CQuorvaleView::invalidateWindow() {
    viewport()->update();
}

void CQuorvaleView::scrollSizesChanged() {
    updateScrollBars();
}

void CQuorvaleView::updateScrollBars() {
    const ViewMapping m = view_->mapping();
    const IVector<2> zoomed = m.zoomedSize();
    const IVector<2> window = m.windowSize();
    settingScroll_ = true;
    horizontalScrollBar()->setRange(0, std::max(0, zoomed.x - window.x));
    horizontalScrollBar()->setPageStep(std::max(1, window.x));
    horizontalScrollBar()->setSingleStep(std::max(1, window.x / 20));
    horizontalScrollBar()->setValue(m.scroll().x);
    verticalScrollBar()->setRange(0, std::max(0, zoomed.y - window.y));
    verticalScrollBar()->setPageStep(std::max(1, window.y));
    verticalScrollBar()->setSingleStep(std::max(1, window.y / 20));
    verticalScrollBar()->setValue(m.scroll().y);
    settingScroll_ = false;
}

void CQuorvaleView::paintEvent(QPaintEvent* event) {
    {
        QPainter painter(viewport());
        blit(painter, event->rect());
    }
    // Cursors over the image, with the store's lock let go.
    painting_ = true;
    view_->RepaintCursors();
    painting_ = false;
}

void CQuorvaleView::blit(QPainter& painter, const QRect& dirty) {
    ZmapView::StoreAccess access(*view_, L"CQuorvaleView::OnPaint");
    const ViewMapping m = view_->mapping();
    const QColor background = toQColor(view_->backgroundColour());
    const BackingStore* store = access.store();
    // Window position of store pixel (0, 0).
    const QPoint origin(m.margin().x - m.scroll().x, m.margin().y - m.scroll().y);
    QRect image;
    if (store && store->width() > 0 && store->height() > 0) {
        const BackingStore::Level& level = store->level(0);
        const QImage picture(level.pixels, level.width, level.height, level.stride,
                             QImage::Format_BGR888);
        image = QRect(origin, QSize(level.width, level.height));
        const QRect shown = image & dirty;
        if (!shown.isEmpty()) {
            painter.drawImage(shown.topLeft(), picture, shown.translated(-origin));
        }
    } else {
        // Nothing drawn yet: the image area shows the background until the store fills.
        image = QRect();
    }
    const QRegion outside = QRegion(dirty) - QRegion(image);
    for (const QRect& r : outside) {
        painter.fillRect(r, background);
    }
    if (!store && initialised_) {
        const IVector<2> zoomed = m.zoomedSize();
        painter.fillRect(QRect(origin, QSize(zoomed.x, zoomed.y)) & dirty, background);
    }
}

void CQuorvaleView::repaintCursors() {
    if (!painting_) {
        // Outside a paint: ask for one.
        viewport()->update();
        return;
    }
    PseudoCursor* cursor = ZmapViewBase::pseudoCursor();
    if (!cursor || ZmapViewBase::pseudoCursorView() != view_.get()) {
        return;
    }
    QPainter painter(viewport());
    QtCursorPainter cursorPainter(painter);
    cursor->draw(cursorPainter, cursorContext());
}

void CQuorvaleView::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    if (!initialised_) {
        return;
    }
    const bool refit = view_->fitWindowResize();
    view_->setWindowSize(viewport()->width(), viewport()->height());
    updateScrollBars();
    viewport()->update();
    if (refit) {
        emit zoomChanged();
    }
}

void CQuorvaleView::scrollContentsBy(int, int) {
    if (settingScroll_) {
        return;
    }
    // The store covers the whole image at the zoom: scrolling only moves the blit.
    view_->setScroll(horizontalScrollBar()->value(), verticalScrollBar()->value());
    viewport()->update();
}

bool CQuorvaleView::sendToCursor(QMouseEvent* event, CursorEvent::Kind kind) {
    PseudoCursor* cursor = capturingCursor();
    if (!cursor) {
        return false;
    }
    const QPoint at = event->position().toPoint();
    int button = CursorEvent::noButton;
    const Qt::MouseButton which = kind == CursorEvent::Kind::move ? Qt::NoButton : event->button();
    if (which == Qt::LeftButton ||
        (kind == CursorEvent::Kind::move && (event->buttons() & Qt::LeftButton))) {
        button = CursorEvent::leftButton;
    } else if (which == Qt::RightButton ||
               (kind == CursorEvent::Kind::move && (event->buttons() & Qt::RightButton))) {
        button = CursorEvent::rightButton;
    }
    unsigned modifiers = 0;
    if (event->modifiers() & Qt::ShiftModifier) {
        modifiers |= CursorEvent::shiftKey;
    }
    if (event->modifiers() & Qt::ControlModifier) {
        modifiers |= CursorEvent::controlKey;
    }
    if (event->modifiers() & Qt::AltModifier) {
        modifiers |= CursorEvent::altKey;
    }
    const CursorContext context = cursorContext();
    const CursorEvent e =
        CursorEvent::at(kind, IPoint<2>(at.x(), at.y()), context.mapping(), button, modifiers);
    const unsigned reply = cursor->handle(e, context);
    if (reply & cursorreply::redraw) {
        viewport()->update();
    }
    if (reply & cursorreply::done) {
        ZmapViewBase::endCapture(true);
    }
    return true;
}

void CQuorvaleView::mousePressEvent(QMouseEvent* event) {
    emit activated(this);
    if (sendToCursor(event, CursorEvent::Kind::press)) {
        return;
    }
    if (event->button() == Qt::LeftButton && currentNavigation == Navigation::hand) {
        handDragging_ = true;
        dragFrom_ = event->position().toPoint();
        const IPoint<2> scroll = view_->mapping().scroll();
        scrollFrom_ = QPoint(scroll.x, scroll.y);
        viewport()->setCursor(Qt::ClosedHandCursor);
        return;
    }
    if (event->button() == Qt::LeftButton && currentNavigation == Navigation::zoom) {
        zoomAbout(event->position().toPoint(), !(event->modifiers() & Qt::ShiftModifier));
        return;
    }
    if (event->button() == Qt::LeftButton) {
        const QPoint at = event->position().toPoint();
        const ViewMapping m = view_->mapping();
        const IPoint<2> p = m.viewToImage(IPoint<2>(at.x(), at.y()));
        const IVector<2> size = m.imageSize();
        const bool inside = p.x >= 0 && p.y >= 0 && p.x < size.x && p.y < size.y;
        // A mouse presses as hard as it can.
        if (strokePress(event->position(), 1.0f, event->modifiers(), false)) {
            return;
        }
        if (inside) {
            emit imageClicked(p.x, p.y, event->modifiers());
            return;
        }
    }
    QAbstractScrollArea::mousePressEvent(event);
}

void CQuorvaleView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (sendToCursor(event, CursorEvent::Kind::doubleClick)) {
        return;
    }
    // A double click ends a line, closing a polygon.
    if (event->button() == Qt::LeftButton && input_.doubleClick()) {
        return;
    }
    // For other tools the second click is a click like the first.
    mousePressEvent(event);
}

void CQuorvaleView::mouseMoveEvent(QMouseEvent* event) {
    const QPoint at = event->position().toPoint();
    if (!sendToCursor(event, CursorEvent::Kind::move)) {
        moveToolCursor(event->position(), event->modifiers(),
                       (event->buttons() & Qt::LeftButton) != 0);
    }
    if (event->buttons() & Qt::LeftButton) {
        input_.move(event->position(), 1.0f, event->modifiers());
    }
    if (handDragging_) {
        const QPoint to = scrollFrom_ - (at - dragFrom_);
        scrollTo(to.x(), to.y());
    }
    const ViewMapping m = view_->mapping();
    const IPoint<2> p = m.viewToImage(IPoint<2>(at.x(), at.y()));
    const IVector<2> size = m.imageSize();
    emit cursorMoved(p.x, p.y, p.x >= 0 && p.y >= 0 && p.x < size.x && p.y < size.y);
}

void CQuorvaleView::mouseReleaseEvent(QMouseEvent* event) {
    if (sendToCursor(event, CursorEvent::Kind::release)) {
        return;
    }
    if (event->button() == Qt::LeftButton && input_.release()) {
        return;
    }
    if (handDragging_ && event->button() == Qt::LeftButton) {
        handDragging_ = false;
        viewport()->unsetCursor();
        return;
    }
    QAbstractScrollArea::mouseReleaseEvent(event);
}

void CQuorvaleView::leaveEvent(QEvent* event) {
    emit cursorMoved(0, 0, false);
    QAbstractScrollArea::leaveEvent(event);
}

void CQuorvaleView::focusInEvent(QFocusEvent* event) {
    emit activated(this);
    QAbstractScrollArea::focusInEvent(event);
}

void CQuorvaleView::keyPressEvent(QKeyEvent* event) {
    if (PseudoCursor* cursor = capturingCursor()) {
        if (event->key() == Qt::Key_Escape) {
            ZmapViewBase::endCapture(false);
            return;
        }
        const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
        if (enter || event->key() == Qt::Key_Backspace) {
            const unsigned reply = cursor->key(enter ? CursorKey::enter : CursorKey::backspace);
            if (reply & cursorreply::redraw) {
                viewport()->update();
            }
            if (reply & cursorreply::done) {
                ZmapViewBase::endCapture(true);
            }
            return;
        }
    }
    if (input_.key(event->key())) {
        return;
    }
    QAbstractScrollArea::keyPressEvent(event);
}

// Strokes

void CQuorvaleView::setToolCursor(TQL::Handle<PseudoCursor> cursor) {
    TQL::Handle<PseudoCursor>& slot = toolCursorSlot();
    PseudoCursor* shown = ZmapViewBase::pseudoCursor();
    ZmapViewBase* where = ZmapViewBase::pseudoCursorView();
    const bool wasShown = slot && shown == slot.get();
    slot = std::move(cursor);
    if (ZmapViewBase::captureView()) {
        // A capture's cursor stays until the capture ends.
        return;
    }
    if (wasShown || !shown) {
        ZmapViewBase* target = where ? where : ZmapViewBase::pickView();
        ZmapViewBase::SetPseudoCursor(slot ? slot.get() : nullptr, slot ? target : nullptr);
    }
    for (CQuorvaleView* v : liveViews()) {
        v->viewport()->update();
    }
}

const TQL::Handle<PseudoCursor>& CQuorvaleView::toolCursor() {
    return toolCursorSlot();
}

void CQuorvaleView::moveToolCursor(QPointF at, Qt::KeyboardModifiers modifiers, bool dragging) {
    const TQL::Handle<PseudoCursor>& cursor = toolCursorSlot();
    if (!cursor || ZmapViewBase::captureView()) {
        return;
    }
    if (ZmapViewBase::pseudoCursor() != cursor.get() ||
        ZmapViewBase::pseudoCursorView() != view_.get()) {
        // The cursor follows the mouse into this view.
        for (CQuorvaleView* v : liveViews()) {
            if (v != this && ZmapViewBase::pseudoCursorView() == v->view_.get()) {
                v->viewport()->update();
            }
        }
        ZmapViewBase::SetPseudoCursor(cursor.get(), view_.get());
    }
    const CursorContext context = cursorContext();
    const QPoint p(static_cast<int>(std::floor(at.x())), static_cast<int>(std::floor(at.y())));
    const CursorEvent e = CursorEvent::at(
        CursorEvent::Kind::move, IPoint<2>(p.x(), p.y()), context.mapping(),
        dragging ? CursorEvent::leftButton : CursorEvent::noButton, cursorModifiers(modifiers));
    const unsigned reply = dragging ? cursor->drag(e, context) : cursor->move(e, context);
    if (reply & cursorreply::redraw) {
        viewport()->update();
    }
}

bool CQuorvaleView::strokePress(QPointF at, float pressure, Qt::KeyboardModifiers modifiers,
                                bool eraser) {
    if (currentNavigation != Navigation::apply || !initialised_) {
        return false;
    }
    return input_.press(at, pressure, modifiers, eraser);
}

bool CQuorvaleView::viewportEvent(QEvent* event) {
    switch (event->type()) {
    case QEvent::TabletPress:
    case QEvent::TabletMove:
    case QEvent::TabletRelease:
        if (appsettings::TabletEnable.value() != 0 && !capturingCursor() &&
            currentNavigation == Navigation::apply) {
            handleTablet(static_cast<QTabletEvent*>(event));
            return true;
        }
        // Ignored: Qt makes mouse events of it.
        event->ignore();
        return false;
    default:
        return QAbstractScrollArea::viewportEvent(event);
    }
}

void CQuorvaleView::handleTablet(QTabletEvent* event) {
    if (event->type() == QEvent::TabletMove) {
        moveToolCursor(event->position(), event->modifiers(), input_.stroking());
    }
    input_.tablet(*event, [this](bool eraser) {
        emit activated(this);
        emit eraserUsed(eraser);
    });
}
