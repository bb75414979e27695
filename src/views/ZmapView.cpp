#include "views/ZmapView.h"

#include "image/DocumentViews.h"
#include "image/ZmapDocument.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

TqlCriticalSection ZmapView::csUpdateExtent(L"ZmapView::csUpdateExtent");
TqlCriticalSection ZmapView::csCursorAndDrawDC(L"ZmapView::csCursorAndDrawDC");
TqlCriticalSection ZmapView::csBackingStore(L"CQuorvaleView::csBackingStore");

namespace {

std::atomic<ZmapView*> theActiveView{nullptr};

/// Rows of a scaled walk gathered before they go to the store in one piece.
constexpr std::int32_t bandCapacity = 16;

class SleepingWaiter : public DrawThread::PollingWaiter {
public:
    void poll() const override { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }
};

IExtent<2> intersect(const IExtent<2>& a, const IExtent<2>& b) {
    return a & b;
}

} // namespace

bool ZmapView::reactsTo(std::uint32_t shown, std::uint32_t mask) {
    const std::uint32_t m = mask & ~std::uint32_t(channelThumbnail);
    if (m == 0) {
        return true; // everything
    }
    switch (shown) {
    case channelRgb:
        return (m & colourReactMask) != 0;
    case channelZ:
        return (m & depthReactMask) != 0;
    case channelMat:
        return (m & materialReactMask) != 0;
    default:
        return true;
    }
}

ZmapView::ZmapView(ZmapDocument& document, DrawThread& thread, ViewWindow& window)
    : document_(document), thread_(thread), window_(window) {
    mapping_.setImageSize(document.width(), document.height());
}

ZmapView::~ZmapView() {
    cancelDrawing();
    ZmapView* self = this;
    theActiveView.compare_exchange_strong(self, nullptr);
}

IExtent<2> ZmapView::imageBounds() const {
    return document_.geometry().bounds();
}

// Life cycle.

void ZmapView::OnInitialUpdate(std::int32_t windowWidth, std::int32_t windowHeight, bool fit) {
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::OnInitialUpdate");
        mapping_.setImageSize(document_.width(), document_.height());
        mapping_.setWindowSize(windowWidth, windowHeight);
        mapping_.setZoom(1, 1);
        if (fit) {
            mapping_.fitWindow();
        }
        store_.reset();
        ++storeGeneration_;
    }
    redrawing_.store(true, std::memory_order_release);
    window_.scrollSizesChanged();
    window_.invalidateWindow();
    invalidateImage(IExtent<2>());
}

void ZmapView::OnUpdate(std::uint32_t hint) {
    if (hint == viewHintAboutToChange) {
        cancelDrawing();
        redrawing_.store(false, std::memory_order_release);
        {
            TqlSimpleLock lock(csUpdateExtent, L"ZmapView::OnUpdate");
            updateExtent_ = IExtent<2>();
            redrawQueued_ = false;
        }
        TqlSimpleLock lock(csBackingStore, L"CQuorvaleView::OnUpdate");
        store_.reset();
        ++storeGeneration_;
        return;
    }
    if (hint == viewHintChanged) {
        {
            TqlSimpleLock lock(csBackingStore, L"CQuorvaleView::OnUpdate - resized");
            mapping_.setImageSize(document_.width(), document_.height());
            store_.reset();
            ++storeGeneration_;
        }
        drawCancel();
        redrawing_.store(true, std::memory_order_release);
        window_.scrollSizesChanged();
        window_.invalidateWindow();
    }
    invalidateImage(IExtent<2>());
}

// Changes.

void ZmapView::addToUpdateExtent(const IExtent<2>& extent) {
    TqlSimpleLock lock(csUpdateExtent, L"ZmapView::addToUpdateExtent");
    updateExtent_ |= extent;
}

IExtent<2> ZmapView::updateExtent() const {
    TqlSimpleLock lock(csUpdateExtent, L"ZmapView::updateExtent");
    return updateExtent_;
}

void ZmapView::QueueRedraw() {
    {
        TqlSimpleLock lock(csUpdateExtent, L"ZmapView::QueueRedraw");
        redrawQueued_ = true;
    }
    thread_.insert(*this);
    if (activeView() == this) {
        thread_.updateActive(drawWindow());
    }
}

void ZmapView::ClearQueuedRedraw() {
    TqlSimpleLock lock(csUpdateExtent, L"ZmapView::ClearQueuedRedraw");
    redrawQueued_ = false;
}

bool ZmapView::redrawQueued() const {
    TqlSimpleLock lock(csUpdateExtent, L"ZmapView::redrawQueued");
    return redrawQueued_;
}

bool ZmapView::IdleRedraw() {
    {
        TqlSimpleLock lock(csUpdateExtent, L"ZmapView::IdleRedraw");
        if (updateExtent_.degenerate()) {
            return false;
        }
    }
    QueueRedraw();
    return true;
}

void ZmapView::invalidateImage(const IExtent<2>& extent) {
    const IExtent<2> bounds = imageBounds();
    const IExtent<2> area = extent.degenerate() ? bounds : intersect(extent, bounds);
    if (area.degenerate()) {
        return;
    }
    addToUpdateExtent(area);
    QueueRedraw();
}

// The drawing thread.

void ZmapView::cancelDrawing(const DrawThread::PollingWaiter& waiter) {
    thread_.cancel(drawWindow(), waiter);
}

void ZmapView::cancelDrawing() {
    cancelDrawing(SleepingWaiter());
}

void ZmapView::setActiveView(ZmapView* view) {
    theActiveView.store(view, std::memory_order_release);
    if (view) {
        view->thread_.updateActive(view->drawWindow());
    }
}

ZmapView* ZmapView::activeView() {
    return theActiveView.load(std::memory_order_acquire);
}

void ZmapView::drawCancel() {
    abort_.store(true, std::memory_order_relaxed);
}

bool ZmapView::drawPerform() {
    abort_.store(false, std::memory_order_relaxed);
    IExtent<2> extent;
    {
        TqlSimpleLock lock(csUpdateExtent, L"ZmapView::drawPerform:1");
        if (!redrawQueued_) {
            return true;
        }
        redrawQueued_ = false;
        if (!redrawing()) {
            return true; // the extent waits for drawing to start again
        }
        extent = updateExtent_;
        updateExtent_ = IExtent<2>();
    }
    if (extent.degenerate()) {
        return true;
    }
    IExtent<2> remaining;
    walkNeedsWhole_ = false;
    const Status status = drawChannel(extent, remaining);
    if (imageBounds() <= extent) {
        walkNeedsWhole_ = false; // a new store, but this walk covers it all
    }
    const bool aborted = status == status::cancelled || abort_.load(std::memory_order_relaxed);
    if (aborted || walkNeedsWhole_) {
        TqlSimpleLock lock(csUpdateExtent, L"ZmapView::drawPerform:2");
        updateExtent_ |= walkNeedsWhole_ ? imageBounds() : remaining;
        redrawQueued_ = true;
        // An aborted walk is done for now: whoever stopped it either queues the view again
        // (zoom, colour matching) or leaves the rest for IdleRedraw (a cancel before a
        // command or a stroke). Asking to be run again would let the drawing thread pick the
        // view up at once, before a cancel waiting for it could take it off the queue.
        return aborted;
    }
    return true;
}

Status ZmapView::drawChannel(const IExtent<2>& extent, IExtent<2>& remaining) {
    ViewMapping mapping;
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::drawChannel");
        mapping = mapping_;
        walkGeneration_ = storeGeneration_;
        walkBackground_ = background_;
    }
    walkHasRows_ = false;
    const std::uint32_t channel = shownChannel();
    const IExtent<2> bounds = imageBounds();
    const IExtent<2> area = intersect(extent, bounds);
    remaining = IExtent<2>();
    if (area.degenerate()) {
        return status::ok;
    }
    Status status = status::ok;
    if (mapping.unscaled()) {
        document_.draw(status, *this, channel, area, bounds, &abort_);
        if (status == status::cancelled) {
            // Tile rows above the one in hand are complete.
            const std::int32_t top = walkHasRows_ ? std::max(walkLastY_, area.lo().y) : area.lo().y;
            remaining = IExtent<2>(area.lo().x, top, area.hi().x, area.hi().y);
        }
        return status;
    }

    // Store pixels showing the area; at the image's edges, also the store's border pixels
    // that fall outside the image, so that they are filled.
    const IVector<2> zoomed = mapping.zoomedSize();
    IExtent<2> target = mapping.storeExtentOf(area);
    target = IExtent<2>(area.lo().x == bounds.lo().x ? 0 : target.lo().x,
                        area.lo().y == bounds.lo().y ? 0 : target.lo().y,
                        area.hi().x == bounds.hi().x ? zoomed.x - 1 : target.hi().x,
                        area.hi().y == bounds.hi().y ? zoomed.y - 1 : target.hi().y);
    target &= IExtent<2>(0, 0, zoomed.x - 1, zoomed.y - 1);
    if (target.degenerate()) {
        return status::ok;
    }
    bandX_ = target.lo().x;
    bandWidth_ = static_cast<std::int32_t>(target.width());
    bandStride_ = (bandWidth_ * 3 + 3) & ~3;
    bandRows_ = 0;
    band_.resize(static_cast<std::size_t>(bandStride_) * bandCapacity);
    std::int32_t rowsDone = 0;
    drawScaled(status, document_, *this, channel,
               PixelMapping::zoom(mapping.zoomNumerator(), mapping.zoomDenominator()), target,
               &abort_, &rowsDone);
    flushBand();
    if (status == status::cancelled) {
        // An image row is drawn when every store row showing it is: those above the first
        // store row not drawn.
        const std::int32_t top = mapping.storeToImage(target.lo().y + rowsDone);
        remaining = IExtent<2>(area.lo().x, std::max(top, area.lo().y), area.hi().x, area.hi().y);
    }
    return status;
}

void ZmapView::ScaledRow(std::int32_t x, std::int32_t y, std::int32_t count,
                         const std::uint8_t* rgb) {
    if (bandRows_ > 0 && y == bandY_ + bandRows_ - 1) {
        // More of the row in hand.
    } else if (bandRows_ > 0 && y == bandY_ + bandRows_ && bandRows_ < bandCapacity) {
        ++bandRows_;
    } else {
        flushBand();
        bandY_ = y;
        bandRows_ = 1;
    }
    std::uint8_t* out = band_.data() + static_cast<std::size_t>(bandRows_ - 1) * bandStride_ +
                        static_cast<std::size_t>(x - bandX_) * 3;
    std::memcpy(out, rgb, static_cast<std::size_t>(count) * 3);
}

void ZmapView::ScaledOutside(std::int32_t x, std::int32_t y, std::int32_t count) {
    // Reuse ScaledRow's row handling with a row of the background colour.
    std::uint8_t fill[3 * 64];
    for (std::size_t i = 0; i < 64; ++i) {
        std::memcpy(fill + i * 3, &walkBackground_, 3);
    }
    while (count > 0) {
        const std::int32_t n = std::min(count, 64);
        ScaledRow(x, y, n, fill);
        x += n;
        count -= n;
    }
}

void ZmapView::flushBand() {
    if (bandRows_ > 0) {
        DrawBits(bandX_, bandY_, bandWidth_, bandRows_, band_.data(), bandStride_);
        bandRows_ = 0;
    }
}

void ZmapView::DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                        const std::uint8_t* rgb, std::int32_t stride) {
    walkLastY_ = y;
    walkHasRows_ = true;
    IExtent<2> changed;
    {
        TqlSimpleLock lock(csBackingStore, L"CQuorvaleView::DrawBits");
        if (walkGeneration_ != storeGeneration_) {
            // The store was dropped (zoom, colour matching) since this walk began.
            abort_.store(true, std::memory_order_relaxed);
            return;
        }
        if (!store_) {
            const IVector<2> size = mapping_.zoomedSize();
            store_ = BackingStore::create(size.x, size.y, transform_);
            if (!store_) {
                return; // out of memory: blank until a later draw succeeds
            }
            walkNeedsWhole_ = true;
        }
        changed = store_->copyIn(x, y, w, h, rgb, stride);
    }
    if (!changed.degenerate()) {
        window_.postInvalidate(changed);
    }
}

// Zoom and scroll.

ViewMapping ZmapView::mapping() const {
    TqlSimpleLock lock(csBackingStore, L"ZmapView::mapping");
    return mapping_;
}

void ZmapView::restartAfterZoom() {
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::restartAfterZoom");
        store_.reset();
        ++storeGeneration_;
    }
    drawCancel();
    window_.scrollSizesChanged();
    window_.invalidateWindow();
    if (redrawing()) {
        invalidateImage(IExtent<2>());
    }
}

void ZmapView::setZoom(std::int32_t numerator, std::int32_t denominator) {
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::setZoom");
        mapping_.setZoom(numerator, denominator);
    }
    restartAfterZoom();
}

bool ZmapView::zoomIn() {
    bool changed = false;
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::zoomIn");
        changed = mapping_.zoomIn();
    }
    if (changed) {
        restartAfterZoom();
    }
    return changed;
}

bool ZmapView::zoomOut() {
    bool changed = false;
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::zoomOut");
        changed = mapping_.zoomOut();
    }
    if (changed) {
        restartAfterZoom();
    }
    return changed;
}

void ZmapView::fitWindow() {
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::fitWindow");
        mapping_.fitWindow();
    }
    restartAfterZoom();
}

void ZmapView::setWindowSize(std::int32_t width, std::int32_t height) {
    bool zoomChanged = false;
    {
        TqlSimpleLock lock(csBackingStore, L"ZmapView::setWindowSize");
        mapping_.setWindowSize(width, height);
        if (fitWindowResize_) {
            const std::int32_t n = mapping_.zoomNumerator();
            const std::int32_t d = mapping_.zoomDenominator();
            mapping_.fitWindow();
            zoomChanged = n != mapping_.zoomNumerator() || d != mapping_.zoomDenominator();
        }
    }
    if (zoomChanged) {
        restartAfterZoom();
    } else {
        window_.scrollSizesChanged();
    }
}

void ZmapView::setScroll(std::int32_t x, std::int32_t y) {
    TqlSimpleLock lock(csBackingStore, L"ZmapView::setScroll");
    mapping_.setScroll(x, y);
}

// Colour.

void ZmapView::setColourTransform(TQL::Handle<TQL::ColourTransform> transform) {
    {
        TqlSimpleLock lock(csBackingStore, L"CQuorvaleView::OnColourMatchChange");
        store_.reset();
        transform_ = std::move(transform);
        ++storeGeneration_;
    }
    drawCancel();
    window_.invalidateWindow();
    if (redrawing()) {
        invalidateImage(IExtent<2>());
    }
}

TQL::Handle<TQL::ColourTransform> ZmapView::colourTransform() const {
    TqlSimpleLock lock(csBackingStore, L"ZmapView::colourTransform");
    return transform_;
}

void ZmapView::setBackgroundColour(ColourPOD colour) {
    TqlSimpleLock lock(csBackingStore, L"ZmapView::setBackgroundColour");
    background_ = colour;
}

ColourPOD ZmapView::backgroundColour() const {
    TqlSimpleLock lock(csBackingStore, L"ZmapView::backgroundColour");
    return background_;
}

// Cursors.

void ZmapView::RepaintCursors() {
    if (paintLocks_ > 0) {
        return;
    }
    TqlSimpleLock lock(csCursorAndDrawDC, L"ZmapView::RepaintCursors");
    window_.repaintCursors();
}
