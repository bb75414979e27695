#pragma once

#include "image/TileBitmap.h"
#include "pipeline/PaintRandom.h"
#include "pipeline/PipelineTool.h"

#include <cstdint>

/// The blend modes of Blender, by number.
enum class BlendMode : std::uint32_t {
    normal = 0,
    multiply = 1,
    tint = 2,
    screen = 3,
    dissolve = 4,
    lighten = 5,
    darken = 6,
    difference = 7,
    exclusion = 8,
    hardLight = 9,
    overlay = 10,
    colourDodge = 11,
    colourBurn = 12,
    vividLight = 13,
    hue = 14,
    luminosity = 15,
    saturation = 16,
    colour = 17,
};
inline constexpr std::uint32_t blendModeCount = 18;

/// Writes the span into the image: the working colour s combined with the image as it was
/// before the stroke b, at t = alpha * opacity, by one of eighteen modes. The destination is
/// never read, so a pixel blended again within a stroke is blended anew from b. Integer
/// results are rounded half to even and truncated to their low byte. A mode above 17
/// changes nothing.
class Blender : public BlendTool {
public:
    Blender(float opacity, std::uint32_t mode);
    /// With the Dissolve generator's seed given (tests).
    Blender(float opacity, std::uint32_t mode, std::uint32_t seed);

    void run(Span& span, int first, int last) override;
    /// `run` for a span whose working colour is `colour` at every pixel of first..last,
    /// without reading it: the same bytes in the image. `alphaUniform`: the span's alpha is
    /// one value over the range. The span's working colour is used as scratch.
    void runSolid(Span& span, ColourPOD colour, int first, int last, bool alphaUniform);

    /// runSolid's blend into `out`, the image's pixels at the span found by the caller:
    /// out[i] for i in first..last from base[i] (may be null where solidReadsBase is false),
    /// `colour` and alpha[i]. `scratch` holds at least `last` colours.
    void blendSolid(ColourPOD* out, const ColourPOD* base, ColourPOD colour, const Alpha* alpha,
                    ColourPOD* scratch, int first, int last, bool alphaUniform);

    /// False when runSolid over alpha of one value `alpha` never reads the image before the
    /// stroke (span.baseColour may then be null): Normal at full opacity and full coverage
    /// lays the colour as it stands.
    bool solidReadsBase(Alpha alpha) const {
        return !(mode_ == static_cast<std::uint32_t>(BlendMode::normal) && opacity_ == 1.0f &&
                 alpha == 1.0f);
    }

    /// The blend on plain rows: out[i] for i in first..last from base[i], source[i] and
    /// alpha[i]. `out` may be `base` or `source`.
    void blendRow(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                  const Alpha* alpha, int first, int last);

    float opacity() const { return opacity_; }
    std::uint32_t mode() const { return mode_; }

    /// `c` moved to the lightness whose channel sum is `targetSum` (0 to 765): the sum's
    /// difference is shared out over the channels that can still move, the smallest
    /// headroom first.
    static ColourPOD shiftToLightness(ColourPOD c, int targetSum);

private:
    /// The image's colour at the span for writing (the writer's kept tile, or `hold`), with
    /// the same run one row down asked for ahead; null outside the image.
    ColourPOD* target(Span& span, int first, int last, TileHandle& hold) const;

    float opacity_;
    std::uint32_t mode_;
    PaintRandom random_;
};
