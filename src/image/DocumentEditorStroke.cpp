#include "image/DocumentEditor.h"

#include "core/StringUtils.h"
#include "core/TqlCriticalSection.h"
#include "image/DocumentCommands.h"
#include "image/DocumentViews.h"
#include "image/ZmapDocument.h"

#include <chrono>
#include <new>

namespace {

/// String shown when a stroke ran out of memory.
constexpr std::int32_t strokeMemoryMessage = 10999;

/// The one running stroke of the process. Strokes run on the interface thread only.
struct RunningStroke {
    TQL::Handle<StrokeApplicator> applicator;
    ZmapDocument* document = nullptr;
    StrokeView* view = nullptr;
};

RunningStroke running;
StrokeTools* strokeTools = nullptr;
/// Set while a stroke is being ended, so that the end isn't entered again from inside.
bool ending = false;

bool isLive(const StrokeApplicator& applicator) {
    return !applicator.isAbandoned() && !applicator.isFinished();
}

/// Closes the running stroke: the undo level takes what it painted, under the applicator's
/// name, and its helpers start again.
void closeRunningStroke(Status& status) {
    const RunningStroke stroke = running;
    running = RunningStroke();
    if (!stroke.applicator) {
        return;
    }
    if (stroke.document && stroke.document->editor.undoBuffer) {
        stroke.document->editor.undoBuffer->pushLevel(
            status, static_cast<std::int32_t>(stroke.applicator->undoNameId()));
        if (status == status::ok) {
            stroke.document->setChanged(true);
        }
    }
    stroke.applicator->startHelpers();
}

/// Abandons the running stroke, if it is still live, and closes its undo level: what it
/// painted stays, and the next stroke starts from it.
void abandonRunningStroke() {
    if (!running.applicator) {
        return;
    }
    if (isLive(*running.applicator)) {
        running.applicator->abandon();
    }
    Status ignored = status::ok;
    closeRunningStroke(ignored);
}

/// After running out of memory: the stroke is dropped (what it painted is kept in an undo
/// level if there is memory for one) and the user told.
Status strokeOutOfMemory(DocumentEditor& editor) {
    try {
        if (running.applicator) {
            running.applicator->abandon();
        }
        Status ignored = status::ok;
        closeRunningStroke(ignored);
    } catch (const std::bad_alloc&) {
        running = RunningStroke();
    }
    editor.tell(strokeMemoryMessage, TQL::loadString(strokeMemoryMessage));
    return status::outOfMemory;
}

} // namespace

void DocumentEditor::clearStrokePlanes() {
    if (strokeAlpha) {
        strokeAlpha->clearKeepingTiles();
    }
    if (wetAlpha) {
        wetAlpha->clearKeepingTiles();
    }
    if (wetCache) {
        wetCache->clearAll();
    }
}

void DocumentEditor::setStrokeTools(StrokeTools* tools) {
    strokeTools = tools;
}

TQL::Handle<StrokeApplicator> DocumentEditor::runningApplicator() {
    return running.applicator;
}

ZmapDocument* DocumentEditor::runningDocument() {
    return running.document;
}

StrokeView* DocumentEditor::runningView() {
    return running.view;
}

void DocumentEditor::releaseRunningStroke(const ZmapDocument* owner) {
    if (owner && running.document == owner) {
        // The document is being taken apart: the stroke is dropped without a look at it.
        const TQL::Handle<StrokeApplicator> applicator = running.applicator;
        running = RunningStroke();
        if (applicator && isLive(*applicator)) {
            applicator->abandon();
        }
    }
}

Status DocumentEditor::beginStroke(const StrokePoint& point, StrokeView* view) {
    if (!document || !document->rgb || !strokeAlpha) {
        return status::noImage;
    }
    try {
        TQL::Handle<StrokeApplicator> selected =
            strokeTools ? strokeTools->selectedApplicator() : TQL::Handle<StrokeApplicator>();
        if (running.applicator && running.document == document && running.view == view &&
            isLive(*running.applicator) && running.applicator == selected) {
            return continueStroke(point);
        }
        abandonRunningStroke();
        if (!selected) {
            return status::noImage;
        }

        running = RunningStroke{selected, document, view};
        strokeTools->prepareStroke(*selected);
        selected->stopHelpers();
        strokePoints.clear();
        strokePoints.push_back(point);
        // Coverage only grows within a stroke: a new stroke starts from none.
        clearStrokePlanes();
        selected->start(*document, view, point);
        if (!selected->isAbandoned()) {
            if (DocumentViews* views = document->views()) {
                views->update(0);
            }
        }
        return status::ok;
    } catch (const std::bad_alloc&) {
        return strokeOutOfMemory(*this);
    }
}

Status DocumentEditor::continueStroke(const StrokePoint& point) {
    if (!document || !running.applicator || running.document != document) {
        return status::noImage;
    }
    try {
        if (running.applicator->extend(*document, running.view, point)) {
            strokePoints.push_back(point);
        }
        return status::ok;
    } catch (const std::bad_alloc&) {
        return strokeOutOfMemory(*this);
    }
}

Status DocumentEditor::endStroke() {
    if (!document) {
        return status::noImage;
    }
    if (ending || !running.applicator || running.document != document) {
        return status::ok;
    }
    ending = true;
    Status status = status::ok;
    try {
        running.applicator->finish(*document, running.view);
        if (running.applicator && !isLive(*running.applicator)) {
            closeRunningStroke(status);
        }
    } catch (const std::bad_alloc&) {
        status = strokeOutOfMemory(*this);
    }
    ending = false;
    return status;
}

Status DocumentEditor::runStroke(const std::vector<StrokePoint>& points, StrokeView* view) {
    if (!document || !document->rgb || !strokeAlpha) {
        return status::noImage;
    }
    if (points.empty()) {
        return status::noConversion;
    }
    try {
        abandonRunningStroke();
        TQL::Handle<StrokeApplicator> selected =
            strokeTools ? strokeTools->selectedApplicator() : TQL::Handle<StrokeApplicator>();
        if (!selected) {
            return status::noImage;
        }
        const auto begun = std::chrono::steady_clock::now();
        running = RunningStroke{selected, document, view};
        strokeTools->prepareStroke(*selected);
        selected->stopHelpers();
        strokePoints = points;
        clearStrokePlanes();
        selected->apply(*document, view, points);
        if (DocumentViews* views = document->views()) {
            views->update(0);
        }
        Status status = status::ok;
        if (!isLive(*selected)) {
            closeRunningStroke(status);
        }
        if (TQL::timingEnabled() && view) {
            const double seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
            view->copyToClipboard(
                stringPrintf(L"%d\t%.2f", static_cast<int>(points.size()), seconds));
        }
        return status;
    } catch (const std::bad_alloc&) {
        return strokeOutOfMemory(*this);
    }
}
