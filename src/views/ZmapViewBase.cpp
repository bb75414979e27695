#include "views/ZmapViewBase.h"

#include "views/ZmapView.h"

namespace {
// Interface-thread state; changed under ZmapView::csCursorAndDrawDC so that cursor drawing
// sees a consistent pair.
PseudoCursor* currentCursor = nullptr;
ZmapViewBase* cursorView = nullptr;
ZmapViewBase* mouseView = nullptr;
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
}

void ZmapViewBase::setShownChannel(std::uint32_t channelId) {
    storeShownChannel(channelId);
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
