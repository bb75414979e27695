#include "pipeline/BrushRecolour.h"

#include "pipeline/LinearRecolour.h"

BrushRecolour::BrushRecolour(ColourBrush* brush, const TQL::Handle<RecolourTool>& inner)
    : brush_(brush), inner_(inner), strength_(inner ? inner->strength() : 1.0f) {}

void BrushRecolour::run(Span& span, int first, int last) {
    if (!brush_ || !brush_->hasColourMask()) {
        if (inner_) {
            inner_->run(span, first, last);
        }
        return;
    }
    if (!(strength_ > 0) || last <= first) {
        return;
    }
    // The interface thread paints one span at a time.
    static ColourPOD maskRow[maxSpanLength];
    brush_->maskColours(span, first, last, maskRow);
    if (strength_ >= 1) {
        replaceColour(span.colour, maskRow, true, span.alpha, first, last);
    } else {
        moveColour(span.colour, maskRow, true, span.alpha, strength_, first, last);
    }
}

void BrushRecolour::pickColour(int spreadAmount, int spreadType) {
    if (inner_) {
        inner_->pickColour(spreadAmount, spreadType);
    }
}

float BrushRecolour::strength() const {
    return inner_ ? inner_->strength() : strength_;
}

void BrushRecolour::start(int x, int y, ZmapDocument& document) {
    if (inner_) {
        inner_->start(x, y, document);
    }
}

void BrushRecolour::finish() {
    if (inner_) {
        inner_->finish();
    }
}
