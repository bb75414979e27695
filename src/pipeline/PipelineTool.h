#pragma once

#include "core/Handle.h"
#include "core/Plane.h"
#include "core/Point.h"
#include "pipeline/Span.h"

#include <cstdint>
#include <vector>

class SurfaceFrame;
class ZmapDocument;

/// A stage of the paint pipeline: decides what the pixels of a span become. Applicators
/// hold one stage of each family and run them in a fixed order (Applicator::paintRow).
/// `run` is called once per span with a half-open range of indices; it allocates nothing
/// and makes no virtual call per pixel. `start` captures what the stage needs at the point
/// where a stroke starts.
class PipelineTool : public TQL::Handlable {
public:
    virtual void run(Span& span, int first, int last) = 0;
    /// The stroke starts at pixel (x, y).
    virtual void start(int x, int y, ZmapDocument& document) {}
    virtual void finish() {}
    /// The surface the stroke paints on, when the effect or a lock gives one.
    virtual void setSurface(const SurfaceFrame& frame) {}
    /// True if the stage reads the span's working depth.
    virtual bool needsDepth() const { return false; }
};

/// Writes the span's result into the image.
class BlendTool : public PipelineTool {};

/// Fog, acting in one of two places of the stage order: early (`run`, before recolouring)
/// or late (`runLate`, after the texture).
class FogTool : public PipelineTool {
public:
    virtual void runLate(Span& span, int first, int last) {}
};

/// Turns the working colour into the tool's colour.
class RecolourTool : public PipelineTool {
public:
    /// Randomises the colour for the next dab: `spreadAmount` 0 keeps the tool colour;
    /// `spreadType` 0 RGB, 1 hue, lightness and saturation, 2 hue, 3 lightness,
    /// 4 saturation.
    virtual void pickColour(int spreadAmount, int spreadType) = 0;
    /// 0 to 1: how far the working colour moves to the tool colour.
    virtual float strength() const = 0;
};

/// A small picture of a stage's settings for its dialog: 5-5-5 pixels (red in the low
/// bits), rows from the top.
struct PreviewBitmap {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::vector<std::uint16_t> pixels;
};

/// Paper grain: alters the span's coverage in place.
class GrainTool : public PipelineTool {
public:
    virtual void preview(PreviewBitmap& bitmap) = 0;
    virtual void thumbnail(PreviewBitmap& bitmap) = 0;
};

/// The placing of a texture: origin, the directions its u axis prefers and the surface.
struct TextureAxes {
    Point<3> origin;
    Vector<3> primary;
    Vector<3> secondary;
    Plane plane;
};

/// Replaces the working colour with texture.
class TextureTool : public PipelineTool {
public:
    /// Fixes the axes, in place of a click (a style replayed).
    virtual void setAxes(const TextureAxes& axes) = 0;
    virtual int flags() const = 0;
    virtual void preview(PreviewBitmap& bitmap) = 0;
};

/// The locks: lowers the mask of a span where a pixel fails them. It runs first.
class MattingTool : public PipelineTool {
public:
    /// From column `left` of row y, finds the first run of pixels that pass before `right`
    /// and extends it as far as it goes both ways within the image; the run is left..right
    /// (inclusive) on return. False if none.
    virtual bool findRun(std::int32_t& left, std::int32_t& right, std::int32_t y,
                         ZmapDocument& document) = 0;
    /// Extends a passing pixel's run from x by `step` (+1 or -1) while pixels pass; x ends on
    /// the last one that passes.
    virtual void extendRun(std::int32_t& x, std::int32_t y, std::int32_t step,
                           ZmapDocument& document) = 0;
    /// The locked plane, when the plane lock is on (and not inverted); returns whether the
    /// plane lock is on.
    virtual bool lockPlane(Plane& plane) = 0;
};

class PenMask;

/// The effect: fills the working colour (and depth) from which the other stages start.
class EffectTool : public PipelineTool {
public:
    /// After all colour stages, before the blend: writes depth and material where the
    /// alpha reaches 0.5.
    virtual void commit(Span& span, int first, int last) {}
    /// The plane the effect paints on; false for none.
    virtual bool plane(Plane& plane) { return false; }
    /// Once per dab, before it is painted.
    virtual void onDab(const Point<2>& position, const TQL::Handle<PenMask>& mask,
                       ZmapDocument& document) {}
    /// Paint goes through the document's wet planes.
    virtual bool usesWetLayer() const { return false; }
    /// Pixels are painted on every pass, however much stroke alpha they hold.
    virtual bool repaints() const { return false; }
    virtual bool isPlanar() const { return false; }
    /// The applicator has placed its last dab.
    virtual void endDabs() {}
    /// String id of the undo entry; 0: the applicator's own applies.
    virtual std::uint32_t undoNameId() const { return 0; }
};
