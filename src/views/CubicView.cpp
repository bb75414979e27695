#include "views/CubicView.h"

#include "image/DocumentViews.h"
#include "image/ZmapDocument.h"
#include "views/ZmapView.h"

#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

TqlCriticalSection CubicView::csBackingStore(L"CCubicView::csBackingStore");

namespace {

class SleepingWaiter : public DrawThread::PollingWaiter {
public:
    void poll() const override { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }
};

} // namespace

CubicView::CubicView(ZmapDocument& document, DrawThread& thread, ViewWindow& window)
    : document_(document), thread_(thread), window_(window) {}

CubicView::~CubicView() {
    cancelDrawing();
}

bool CubicView::isCubeImage(const ZmapDocument& document) {
    return document.height() >= 2 &&
           std::int64_t(document.width()) == 6 * std::int64_t(document.height());
}

IExtent<2> CubicView::imageBounds() const {
    return document_.geometry().bounds();
}

void CubicView::OnInitialUpdate(std::int32_t windowWidth, std::int32_t windowHeight) {
    {
        TqlSimpleLock lock(csBackingStore, L"CCubicView::OnInitialUpdate");
        windowWidth_ = std::max(windowWidth, 1);
        windowHeight_ = std::max(windowHeight, 1);
        store_.reset();
    }
    redrawing_.store(true, std::memory_order_release);
    window_.invalidateWindow();
    invalidateImage(IExtent<2>());
}

void CubicView::OnUpdate(std::uint32_t hint) {
    if (hint == viewHintAboutToChange) {
        cancelDrawing();
        redrawing_.store(false, std::memory_order_release);
        TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::OnUpdate");
        updateExtent_ = IExtent<2>();
        viewDirty_ = false;
        redrawQueued_ = false;
        return;
    }
    if (hint == viewHintChanged) {
        drawCancel();
        redrawing_.store(true, std::memory_order_release);
        window_.invalidateWindow();
    }
    invalidateImage(IExtent<2>());
}

void CubicView::setWindowSize(std::int32_t width, std::int32_t height) {
    {
        TqlSimpleLock lock(csBackingStore, L"CCubicView::setWindowSize");
        if (width == windowWidth_ && height == windowHeight_) {
            return;
        }
        windowWidth_ = std::max(width, 1);
        windowHeight_ = std::max(height, 1);
    }
    drawCancel();
    queueViewRedraw();
}

PanoramaAngles CubicView::angles() const {
    TqlSimpleLock lock(csBackingStore, L"CCubicView::angles");
    return angles_;
}

void CubicView::setAngles(const PanoramaAngles& angles) {
    const PanoramaAngles a = CubicDrawable::normalised(angles);
    {
        TqlSimpleLock lock(csBackingStore, L"CCubicView::setAngles");
        if (a == angles_) {
            return;
        }
        angles_ = a;
    }
    // A drawing of the old camera is of no use any more.
    drawCancel();
    queueViewRedraw();
}

void CubicView::turnBy(double panDegrees, double tiltDegrees) {
    PanoramaAngles a = angles();
    a.pan += panDegrees;
    a.tilt += tiltDegrees;
    setAngles(a);
}

void CubicView::wheel(int angleDelta) {
    PanoramaAngles a = angles();
    a.fieldOfView = CubicDrawable::wheelFieldOfView(a.fieldOfView, angleDelta);
    setAngles(a);
}

CubicDrawable CubicView::drawable() const {
    TqlSimpleLock lock(csBackingStore, L"CCubicView::drawable");
    return CubicDrawable(document_.height(), windowWidth_, windowHeight_, angles_);
}

bool CubicView::stripPixelAt(double x, double y, IPoint<2>& out) const {
    if (!isCubeImage(document_)) {
        return false;
    }
    const CubicDrawable d = drawable();
    int face = 0;
    const Point<2> p = d.stripPoint(x, y, &face);
    const std::int32_t n = d.faceSize();
    const auto clampTo = [](double v, std::int32_t lo, std::int32_t hi) {
        return std::clamp(static_cast<std::int32_t>(std::lround(v)), lo, hi);
    };
    out = IPoint<2>{clampTo(p.x(), face * n, face * n + n - 1), clampTo(p.y(), 0, n - 1)};
    return true;
}

bool CubicView::facePixelSteps(double x, double y, Vector<2>& right, Vector<2>& down) const {
    IPoint<2> pixel;
    if (!stripPixelAt(x, y, pixel)) {
        return false;
    }
    const CubicDrawable d = drawable();
    const std::int32_t n = d.faceSize();
    const std::int32_t faceLeft = pixel.x / n * n;
    // A step that stays on the face: towards the face's inside at its last pixel.
    const auto step = [&](std::int32_t dx, std::int32_t dy, Vector<2>& out) {
        const bool back = dx ? pixel.x + dx > faceLeft + n - 1 : pixel.y + dy > n - 1;
        const double sign = back ? -1.0 : 1.0;
        Point<2> a;
        Point<2> b;
        if (!d.viewPoint(pixel.x, pixel.y, a) ||
            !d.viewPoint(pixel.x + sign * dx, pixel.y + sign * dy, b)) {
            return false;
        }
        out = (b - a) * sign;
        return true;
    };
    return step(1, 0, right) && step(0, 1, down);
}

// Changes.

void CubicView::invalidateImage(const IExtent<2>& extent) {
    const IExtent<2> bounds = imageBounds();
    const IExtent<2> area = extent.degenerate() ? bounds : (extent & bounds);
    {
        TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::invalidateImage");
        updateExtent_ |= area;
        viewDirty_ = true;
    }
    QueueRedraw();
}

IExtent<2> CubicView::updateExtent() const {
    TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::updateExtent");
    return updateExtent_;
}

void CubicView::QueueRedraw() {
    {
        TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::QueueRedraw");
        redrawQueued_ = true;
    }
    thread_.insert(*this);
}

bool CubicView::redrawQueued() const {
    TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::redrawQueued");
    return redrawQueued_;
}

void CubicView::queueViewRedraw() {
    {
        TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::queueViewRedraw");
        viewDirty_ = true;
    }
    QueueRedraw();
}

void CubicView::requeue(const IExtent<2>& extent) {
    TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::drawPerform:2");
    updateExtent_ |= extent;
    viewDirty_ = true;
    redrawQueued_ = true;
}

// The drawing thread.

void CubicView::cancelDrawing(const DrawThread::PollingWaiter& waiter) {
    thread_.cancel(drawWindow(), waiter);
}

void CubicView::cancelDrawing() {
    cancelDrawing(SleepingWaiter());
}

bool CubicView::IdleRedraw() {
    {
        TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::IdleRedraw");
        if (updateExtent_.degenerate() && !viewDirty_) {
            return false;
        }
    }
    QueueRedraw();
    return true;
}

void CubicView::drawCancel() {
    abort_.store(true, std::memory_order_relaxed);
}

void CubicView::DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                         const std::uint8_t* rgb, std::int32_t stride) {
    strip_.copyIn(x, y, w, h, rgb, stride);
}

bool CubicView::drawPerform() {
    abort_.store(false, std::memory_order_relaxed);
    IExtent<2> extent;
    {
        TqlSimpleLock lock(ZmapView::csUpdateExtent, L"CCubicView::drawPerform:1");
        if (!redrawQueued_) {
            return true;
        }
        redrawQueued_ = false;
        if (!redrawing() || (!viewDirty_ && updateExtent_.degenerate())) {
            return true;
        }
        extent = updateExtent_;
        updateExtent_ = IExtent<2>();
        viewDirty_ = false;
    }
    const bool cube = isCubeImage(document_);
    const IExtent<2> bounds = imageBounds();
    if (cube && strip_.faceSize() != document_.height()) {
        // A new copy of the cube: all of it is read.
        strip_.allocate(document_.height());
        extent = bounds;
    }
    if (cube && !extent.degenerate()) {
        Status status = status::ok;
        document_.draw(status, *this, shownChannel(), extent & bounds, bounds, &abort_);
        if (status == status::cancelled || abort_.load(std::memory_order_relaxed)) {
            requeue(extent);
            return true;
        }
    }

    std::int32_t width, height;
    PanoramaAngles angles;
    {
        TqlSimpleLock lock(csBackingStore, L"CCubicView::drawPerform:3");
        width = windowWidth_;
        height = windowHeight_;
        angles = angles_;
    }
    if (!pending_ || pending_->width() != width || pending_->height() != height) {
        pending_ = BackingStore3d::create(width, height);
        if (!pending_) {
            return true; // out of memory: the view stays as it was until the next change
        }
    }
    if (cube) {
        const CubicDrawable drawable(document_.height(), width, height, angles);
        for (std::int32_t y = 0; y < height; ++y) {
            if (abort_.load(std::memory_order_relaxed)) {
                requeue(IExtent<2>());
                return true;
            }
            drawable.drawRow(strip_, y, pending_->row(y));
        }
    }
    {
        TqlSimpleLock lock(csBackingStore, L"CCubicView::drawPerform:4");
        if (windowWidth_ != width || windowHeight_ != height || !(angles_ == angles)) {
            // Changed while drawing: a redraw is queued already.
            return true;
        }
        std::swap(store_, pending_);
    }
    window_.postInvalidate(IExtent<2>(0, 0, width - 1, height - 1));
    return true;
}
