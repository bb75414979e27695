#pragma once

#include "core/Colour.h"
#include "core/Extent.h"
#include "core/Point.h"
#include "pipeline/PipelineTool.h"

#include <cstdint>

/// The rules by which Fog measures a pixel (FogSettings::type).
enum class FogType : std::uint32_t {
    depthCode = 0,     ///< the raw depth code
    viewDistance = 1,  ///< distance from the eye along the view axis
    axisDistance = 2,  ///< position along a given axis (height fog)
    pointDistance = 3, ///< distance from a centre point
    elevation = 4,     ///< the angle of the pixel's ray against an axis; no depth
    linear2D = 5,      ///< position along a direction in the image
    radial2D = 6,      ///< distance from a point of the image
    line2D = 7,        ///< distance from a line (or segment) of the image
    line3D = 8,        ///< distance from a line (or segment) in the model
};
inline constexpr std::uint32_t fogTypeCount = 9;

/// The settings of the fog tool page. Each rule turns a pixel into a measure and the
/// measure into a visibility f between the pair of values of its rule: f is 0 (pure fog
/// colour, or no paint when transparent) at the `none...` value and 1 (untouched) at the
/// `full...` value, linear between and held beyond. Distances are in model units (world
/// units times the document's model scale); 2D values in pixels.
struct FogSettings {
    std::uint32_t type = 0;
    /// Act on the paint's alpha (before recolouring) instead of pulling the colour towards
    /// the fog colour (after the texture).
    bool transparent = false;
    ColourPOD colour{220, 220, 220};
    /// A floor on the visibility: f becomes f * (1 - amount) + amount. 1 switches fog off.
    float amount = 0;
    /// Types 0, 1 and 2.
    float full = 0;
    float none = 100;
    /// Type 2: the direction the measure runs along.
    Vector<3> axis{0, 0, 1};
    /// Type 3: the centre (unless not fixedCentre, when the stroke's start point is used).
    Point<3> centre;
    /// Types 3 and 8.
    float fullPoint = 0;
    float nonePoint = 100;
    /// Type 4, degrees of elevation of the ray above the plane normal to elevationAxis.
    float fullElevation = 0;
    float noneElevation = 30;
    Vector<3> elevationAxis{0, 0, 1};
    /// Type 5: the measure runs from none2D (f = 0) to full2D (f = 1); its direction is the
    /// integer gradient full2D - none2D.
    IPoint<2> full2D{0, 0};
    IPoint<2> none2D{0, 100};
    /// Types 6 and 7: f is 0 at the centre or line, 1 at range2D pixels from it.
    std::int32_t range2D = 100;
    IPoint<2> centre2D{0, 0};
    /// Type 7: the line (or segment) through these two pixels.
    IPoint<2> lineStart2D{0, 0};
    IPoint<2> lineEnd2D{100, 0};
    /// Type 8: the line (or segment) through these two model points.
    Point<3> lineStart;
    Point<3> lineEnd{0, 0, 1};
    /// Types 3 and 8: use 1 - t.
    bool inverted = false;
    /// Type 3: a pixel beyond the range counts as at its end; type 8: measure from the
    /// pixel's ray instead of its point.
    bool clampDepth = false;
    /// Type 3: the centre is `centre`, not the stroke's start point.
    bool fixedCentre = true;
    /// Types 7 and 8: the whole line, not the segment between the two points.
    bool infiniteLine = false;

    bool operator==(const FogSettings&) const = default;
};

/// Haze and depth cueing: for each pixel a visibility f from 0 to 1 by one of nine rules
/// (FogType); then either the working colour is pulled towards the fog colour (a Normal
/// blend of the working colour over the fog colour at alpha f, late in the stage order), or,
/// when transparent, the alpha is multiplied by f (early, before recolouring). A type above
/// 8 leaves everything as it is.
class Fog : public FogTool {
public:
    explicit Fog(const FogSettings& settings);

    /// The early position: acts only when transparent.
    void run(Span& span, int first, int last) override;
    /// The late position: acts only when not transparent.
    void runLate(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    /// False for the types that read no depth (4 to 7).
    bool needsDepth() const override;

    /// The visibility of pixels first..last of a span into f[first..last) (what run and
    /// runLate apply); a pixel of alpha 0 gets 0.
    void visibility(const Span& span, int first, int last, float* f) const;

    const FogSettings& settings() const { return settings_; }
    /// What start derived: t = (measure - base) / span.
    double base() const { return base_; }
    double span() const { return span_; }

private:
    /// t of one pixel; `code` its depth code.
    double measure(std::int32_t x, std::int32_t y, std::uint32_t code, bool& background) const;

    FogSettings settings_;
    ZmapDocument* document_ = nullptr;
    double base_ = 0;
    double span_ = 0;
    double scale_ = 1;
    Vector<3> unitAxis_{0, 0, 1};
    Point<3> eye_;
    Point<3> centre_;
    double clampCode_ = 0;
    bool isCube_ = false;
    std::int32_t faceSize_ = 0;
    // Type 7's line a x + b y + c = 0 with a, b of unit length.
    double lineA_ = 0;
    double lineB_ = 0;
    double lineC_ = 0;
    bool started_ = false;
};
