#include "views/ZmapViewBase.h"

#include "views/ZmapView.h"

namespace {
// Interface-thread state; changed under ZmapView::csCursorAndDrawDC so that cursor drawing
// sees a consistent pair.
PseudoCursor* currentCursor = nullptr;
ZmapViewBase* cursorView = nullptr;
ZmapViewBase* mouseView = nullptr;
ZmapViewBase* capturingView = nullptr;
std::uint32_t capturingFlags = 0;
} // namespace

ZmapViewBase::~ZmapViewBase() {
    TqlSimpleLock lock(ZmapView::csCursorAndDrawDC, L"ZmapViewBase::~ZmapViewBase");
    if (cursorView == this) {
        cursorView = nullptr;
        currentCursor = nullptr;
    }
    if (mouseView == this) {
        mouseView = nullptr;
    }
    if (capturingView == this) {
        // Nobody is left to hear of the end.
        capturingView = nullptr;
        capturingFlags = 0;
    }
}

void ZmapViewBase::setShownChannel(std::uint32_t channelId) {
    if (channelId == shownChannel()) {
        return;
    }
    stopDrawing();
    storeShownChannel(channelId);
    if (drawsNow()) {
        invalidateImage(IExtent<2>());
    }
}

void ZmapViewBase::channelsChanged(std::uint32_t mask, const IExtent<2>& extent) {
    if (!drawsNow() || !ZmapView::reactsTo(shownChannel(), mask)) {
        return;
    }
    invalidateImage(extent);
}

void ZmapViewBase::SetPseudoCursor(PseudoCursor* cursor, ZmapViewBase* view) {
    TqlSimpleLock lock(ZmapView::csCursorAndDrawDC, L"ZmapViewBase::SetPseudoCursor");
    currentCursor = cursor;
    cursorView = cursor ? view : nullptr;
}

PseudoCursor* ZmapViewBase::pseudoCursor() {
    return currentCursor;
}

ZmapViewBase* ZmapViewBase::pseudoCursorView() {
    return cursorView;
}

ZmapViewBase* ZmapViewBase::pickView() {
    return mouseView;
}

void ZmapViewBase::setPickView(ZmapViewBase* view) {
    mouseView = view;
}

bool ZmapViewBase::beginCapture(ZmapViewBase* view, std::uint32_t flags) {
    if (capturingView || !view) {
        return false;
    }
    capturingView = view;
    capturingFlags = flags;
    return true;
}

void ZmapViewBase::endCapture(bool accepted) {
    ZmapViewBase* view = capturingView;
    if (!view) {
        return;
    }
    // Cleared first: the notification may begin the next capture.
    capturingView = nullptr;
    capturingFlags = 0;
    view->captureEnded(accepted);
}

ZmapViewBase* ZmapViewBase::captureView() {
    return capturingView;
}

std::uint32_t ZmapViewBase::captureFlags() {
    return capturingFlags;
}
