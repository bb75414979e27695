#include "PipelineTestSupport.h"

namespace test {

void record(StageLog& log, const std::string& stage, const Span& span, int first, int last) {
    StageCall call{stage, span.x, span.length, first, last, {}, {}, {}};
    for (int i = first; i < last; ++i) {
        call.alpha.push_back(span.alpha[i]);
        call.base.push_back(span.baseColour[i]);
        call.colour.push_back(span.colour[i]);
    }
    log.push_back(std::move(call));
}

std::vector<std::string> names(const StageLog& log) {
    std::vector<std::string> out;
    for (const StageCall& call : log) {
        out.push_back(call.stage);
    }
    return out;
}

void RowApplicator::start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    started = true;
    painted = IExtent<2>();
    Applicator::start(document, view, point);
    extend(document, view, point);
}

bool RowApplicator::extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    if (abandoned) {
        return false;
    }
    if (duringExtend) {
        duringExtend();
    }
    const std::vector<float> row(static_cast<std::size_t>(width), coverage);
    const IExtent<2> changed = paintRow(document, point.x, point.y, 0, width, row.data());
    painted |= changed;
    if (view && !changed.degenerate()) {
        view->queueRedraw(changed);
    }
    return !changed.degenerate();
}

void RowApplicator::finish(ZmapDocument& document, StrokeView* view) {
    if (duringFinish) {
        duringFinish();
    }
    if (!staysOpen) {
        Applicator::finish(document, view);
    }
}

void RowApplicator::apply(ZmapDocument& document, StrokeView* view,
                          const std::vector<StrokePoint>& points) {
    start(document, view, points.front());
    for (std::size_t k = 1; k < points.size(); ++k) {
        extend(document, view, points[k]);
    }
    finish(document, view);
}

void RowApplicator::surfaceChanged(const SurfaceFrame& frame) {
    changedSurfaces.push_back(frame.plane());
}

std::uint32_t RowApplicator::undoNameId() const {
    if (effect && effect->undoNameId() != 0) {
        return effect->undoNameId();
    }
    return 1219;
}

} // namespace test
