#pragma once

#include "pipeline/PipelineTool.h"

/// Plain paint: the working colour starts from the source image (and the working depth
/// from the depth before the stroke, when a stage needs it).
class Paint : public EffectTool {
public:
    void run(Span& span, int first, int last) override;
};
