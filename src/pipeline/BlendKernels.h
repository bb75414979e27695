#pragma once

// The row loops of the two blend modes that carry most painting, Normal and Multiply, in a
// plain form and a fast one (four pixels a round in SSE2 where the processor has it). The
// fast form gives the same bytes as the plain one for every input; Blender uses it.

#include "core/Colour.h"

/// Normal: d = b + rint((s - b) * t), t = alpha * opacity; runs of full coverage at full
/// opacity are copied from the source in one move.
void blendNormal(ColourPOD* out, const ColourPOD* base, const ColourPOD* source, const Alpha* alpha,
                 float opacity, int first, int last);
/// Multiply: k = 1 + (s / 255 - 1) * t, d = rint(k * b).
void blendMultiply(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                   const Alpha* alpha, float opacity, int first, int last);

/// Normal and Multiply with one working colour `source` at every pixel: the same bytes as the
/// forms above over a row of it. Runs of full coverage at full opacity take the colour
/// straight into `out`. `scratch` has room for pixels first..last; what it holds is lost.
/// `alphaUniform`: the caller knows alpha to be one value over the range (false: it is
/// looked for).
void blendNormalSolid(ColourPOD* out, const ColourPOD* base, ColourPOD source, const Alpha* alpha,
                      float opacity, int first, int last, ColourPOD* scratch,
                      bool alphaUniform = false);
void blendMultiplySolid(ColourPOD* out, const ColourPOD* base, ColourPOD source, const Alpha* alpha,
                        float opacity, int first, int last, ColourPOD* scratch,
                        bool alphaUniform = false);

/// The plain forms, one pixel and channel at a time.
void blendNormalPlain(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                      const Alpha* alpha, float opacity, int first, int last);
void blendMultiplyPlain(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                        const Alpha* alpha, float opacity, int first, int last);
