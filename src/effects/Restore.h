#pragma once

#include "pipeline/PipelineTool.h"

#include <cstdint>

/// The eraser of a depth image: paints the original image back, colour, depth and
/// material, as it was made or last committed. The colour comes through the pipeline like
/// any paint (so opacity, locks and soft edges apply); depth and material are put back where
/// the stroke's alpha passes one half.
class Restore : public EffectTool {
public:
    static constexpr std::uint32_t undoNameRestore = 1203;

    void run(Span& span, int first, int last) override;
    void commit(Span& span, int first, int last) override;
    std::uint32_t undoNameId() const override { return undoNameRestore; }
};
