#pragma once

#include "pipeline/PipelineTool.h"

/// What a BrushRecolour asks of the brush that owns it: whether its mask carries colours of
/// its own, and those colours along a span.
class ColourBrush {
public:
    virtual ~ColourBrush() = default;
    virtual bool hasColourMask() const = 0;
    /// The mask's colours for pixels first..last of `span`, into out[first..last).
    virtual void maskColours(const Span& span, int first, int last, ColourPOD* out) = 0;
};

/// The recolour stage of a brush with a colour mask: wraps the selected recolour tool and
/// moves the working colour to the mask's own colours instead, by the inner tool's
/// strength (1 or above replaces, 0 or below does nothing). A brush without a colour mask
/// leaves the work to the inner tool.
class BrushRecolour : public RecolourTool {
public:
    /// `brush` owns this stage and outlives it.
    BrushRecolour(ColourBrush* brush, const TQL::Handle<RecolourTool>& inner);

    void run(Span& span, int first, int last) override;
    void pickColour(int spreadAmount, int spreadType) override;
    float strength() const override;
    void start(int x, int y, ZmapDocument& document) override;
    void finish() override;

    const TQL::Handle<RecolourTool>& inner() const { return inner_; }

private:
    ColourBrush* brush_;
    TQL::Handle<RecolourTool> inner_;
    float strength_;
};
