#include "applicators/Filler.h"

#include "core/Reporter.h"
#include "core/Status.h"
#include "image/DocumentEditor.h"
#include "image/ScratchBitmaps.h"
#include "image/ZmapDocument.h"
#include "pipeline/ToolSelection.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cstring>

namespace {

/// Flood records between two progress reports and view updates.
constexpr std::int64_t recordsPerPoll = 64;

/// Directions of a flood record.
constexpr std::int32_t seedDirection = 0;
constexpr std::int32_t acrossSideSeam = 2;
constexpr std::int32_t acrossTopOrBottomSeam = 3;

} // namespace

Filler::Filler(bool flood) : flood_(flood) {
    // The stages are dispatched as the base class does: plain paint of one colour may be
    // blended straight away.
    fuseSolidPaint = true;
}

Filler::~Filler() {
    freeStack();
}

void Filler::apply(ZmapDocument& document, StrokeView* view,
                   const std::vector<StrokePoint>& points) {
    start(document, view, points.front());
    finish(document, view);
}

void Filler::start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    Applicator::start(document, view, point);
    seed_ = point;
}

bool Filler::extend(ZmapDocument&, StrokeView*, const StrokePoint&) {
    return false;
}

TQL::Handle<TQL::Handlable> Filler::pseudoCursor() {
    return nullptr;
}

std::uint32_t Filler::undoNameId() const {
    const std::uint32_t own = effect ? effect->undoNameId() : 0;
    return own ? own : undoNameFill;
}

void Filler::ready() {
    if (ToolFeedback* feedback = ToolSelection::instance().feedback()) {
        feedback->prompt(alternatePrompts ? promptFillAlternate : promptFill);
        feedback->setPseudoCursor(nullptr);
    }
}

void Filler::runMatting(Span& span, int first, int last) {
    if (!(flood_ && matting)) {
        Applicator::runMatting(span, first, last);
    }
}

void Filler::finish(ZmapDocument& document, StrokeView* view) {
    pixelsPainted_ = 0;
    records_ = 0;
    if (!abandoned && document.width() > 0 && document.height() > 0) {
        coverage_.assign(static_cast<std::size_t>(document.width()), 1.0f);
        document.editor.tellProgress(static_cast<std::int32_t>(undoNameFill),
                                     TQL::loadString(static_cast<std::int32_t>(undoNameFill)));
        if (!flood_ || !matting) {
            fillWhole(document, view);
        } else {
            visited_ = TQL::makeHandle<FillBitmap>(document);
            push(seed_.x, seed_.x + 1, seed_.y, seed_.x, seed_.x + 1, seedDirection);
            fillFlood(document, view);
        }
    }
    freeStack();
    visited_.reset();
    coverage_.clear();
    coverage_.shrink_to_fit();
    Applicator::finish(document, view);
}

void Filler::poll(ZmapDocument& document, double fraction) {
    if (TQL::stopRequested()) {
        abandon();
        return;
    }
    if (Reporter* progress = document.editor.progress()) {
        if (progress->report(1, 0, std::clamp(fraction, 0.0, 1.0))) {
            abandon();
        }
    }
}

void Filler::fillWhole(ZmapDocument& document, StrokeView* view) {
    const std::int32_t width = document.width();
    const std::int32_t height = document.height();
    const std::int32_t band = std::max(document.geometry().tileHeight, 1);
    IExtent<2> changed;
    for (std::int32_t y = 0; y < height && !abandoned; ++y) {
        const IExtent<2> row = paintRowOfOneCoverage(document, 0, y, 0, width, coverage_.data());
        if (!row.degenerate()) {
            changed |= row;
            pixelsPainted_ += row.hi().x - row.lo().x + 1;
        }
        if ((y + 1) % band == 0) {
            if (view && !changed.degenerate()) {
                view->queueRedraw(changed);
            }
            changed = IExtent<2>();
            poll(document, static_cast<double>(y + 1) / height);
        }
    }
    if (view && !changed.degenerate()) {
        view->queueRedraw(changed);
    }
}

void Filler::push(std::int32_t left, std::int32_t right, std::int32_t y, std::int32_t parentLeft,
                  std::int32_t parentRight, std::int32_t direction) {
    stack_ = new FillRecord{left, right, y, parentLeft, parentRight, direction, stack_};
}

void Filler::freeStack() {
    while (stack_) {
        FillRecord* next = stack_->next;
        delete stack_;
        stack_ = next;
    }
}

bool Filler::isVisited(std::int32_t x, std::int32_t y) {
    return visited_->valueAt<std::uint8_t>(x, y) != 0;
}

void Filler::markVisited(std::int32_t a, std::int32_t b, std::int32_t y) {
    const std::int32_t xMask = visited_->geometry().xMask;
    for (std::int32_t x = a; x < b;) {
        const std::int32_t end = std::min((x | xMask) + 1, b);
        TileHandle hold;
        std::uint8_t* pixel = nullptr;
        if (visited_->runForWrite(x, y, hold, &pixel) <= 0) {
            return;
        }
        std::memset(pixel, 1, static_cast<std::size_t>(end - x));
        x = end;
    }
}

std::int32_t Filler::skipVisited(std::int32_t x, std::int32_t right, std::int32_t y) {
    const std::int32_t xMask = visited_->geometry().xMask;
    while (x < right) {
        const std::int32_t end = std::min((x | xMask) + 1, right);
        TileHandle hold;
        const std::uint8_t* pixel = nullptr;
        if (visited_->runForRead(x, y, hold, &pixel) <= 0) {
            return right;
        }
        for (std::int32_t k = 0; k < end - x; ++k) {
            if (pixel[k] == 0) {
                return x + k;
            }
        }
        x = end;
    }
    return right;
}

void Filler::pushCrossings(ZmapDocument& document, std::int32_t a, std::int32_t b, std::int32_t y) {
    const FaceSize& faces = document.viewProj()->faceSize();
    const std::int32_t n = faces.size();
    auto cross = [&](std::int32_t x, std::int32_t yy,
                     bool (FaceSize::*step)(std::int32_t&, std::int32_t&) const,
                     std::int32_t direction) {
        std::int32_t tx = x;
        std::int32_t ty = yy;
        if ((faces.*step)(tx, ty) && faces.contains(tx, ty)) {
            push(tx, tx + 1, ty, tx, tx + 1, direction);
        }
    };
    if (a % n == 0) {
        cross(a, y, &FaceSize::stepLeft, acrossSideSeam);
    }
    if ((b + 1) % n == 0) {
        cross(b, y, &FaceSize::stepRight, acrossSideSeam);
    }
    if (y == 0 || y == n - 1) {
        for (std::int32_t x = a; x <= b; ++x) {
            cross(x, y, y == 0 ? &FaceSize::stepUp : &FaceSize::stepDown, acrossTopOrBottomSeam);
        }
    }
}

void Filler::fillFlood(ZmapDocument& document, StrokeView* view) {
    const std::int32_t width = document.width();
    const std::int32_t height = document.height();
    const double total = static_cast<double>(width) * height;
    const ViewProj* viewProj = document.viewProj().get();
    const std::int32_t faceSize =
        viewProj && viewProj->viewType() == ViewProj::cubicView ? viewProj->faceSize().size() : 0;
    IExtent<2> changed;

    while (stack_) {
        if (abandoned) {
            break;
        }
        // The stop request is cheap to ask between records; progress and the view are told
        // less often.
        if (TQL::stopRequested()) {
            abandon();
            break;
        }
        if (++records_ % recordsPerPoll == 0) {
            if (view && !changed.degenerate()) {
                view->queueRedraw(changed);
                changed = IExtent<2>();
            }
            poll(document, static_cast<double>(pixelsPainted_) / total);
            if (abandoned) {
                break;
            }
        }
        FillRecord* record = stack_;
        stack_ = record->next;
        const FillRecord r = *record;
        delete record;
        if (r.y < 0 || r.y >= height || r.left >= width || r.right <= 0) {
            continue;
        }
        // On a cube image a record stays on its face; the seams are crossed on purpose.
        std::int32_t faceLo = 0;
        std::int32_t faceHi = width - 1;
        if (faceSize > 0) {
            faceLo = std::max(r.left, 0) / faceSize * faceSize;
            faceHi = faceLo + faceSize - 1;
        }
        const std::int32_t right = std::min(r.right, faceHi + 1);
        std::int32_t x = std::max(r.left, faceLo);
        while (x < right) {
            std::int32_t a = x;
            std::int32_t b = right;
            if (!matting->findRun(a, b, r.y, document)) {
                break;
            }
            a = std::max(a, faceLo);
            b = std::min(b, faceHi);
            if (!isVisited(a, r.y)) {
                const IExtent<2> painted =
                    paintRowOfOneCoverage(document, 0, r.y, a, b + 1, coverage_.data());
                changed |= painted;
                markVisited(a, b + 1, r.y);
                pixelsPainted_ += b - a + 1;
                const std::int32_t b1 = b + 1;
                if (r.direction == 1 || r.direction == -1) {
                    push(a, b1, r.y + r.direction, a, b1, r.direction);
                    if (a < r.parentLeft) {
                        push(a, r.parentLeft, r.y - r.direction, a, b1, -r.direction);
                    }
                    if (r.parentRight < b1) {
                        push(r.parentRight, b1, r.y - r.direction, a, b1, -r.direction);
                    }
                } else {
                    push(a, b1, r.y + 1, a, b1, 1);
                    push(a, b1, r.y - 1, a, b1, -1);
                }
                if (faceSize > 0) {
                    pushCrossings(document, a, b, r.y);
                }
            }
            x = skipVisited(b + 1, right, r.y);
        }
    }
    freeStack();
    if (view && !changed.degenerate()) {
        view->queueRedraw(changed);
    }
}
