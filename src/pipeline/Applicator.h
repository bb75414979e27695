#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "image/StrokeApplicator.h"
#include "pipeline/PipelineTool.h"
#include "pipeline/SpanPlaneCache.h"

#include <cstdint>
#include <vector>

class SurfaceFrame;
class ZmapDocument;

/// A way of laying paint: decides which pixels a stroke touches, with what coverage and in
/// what order, and pushes rows of coverage through its seven stages (paintRow). A null stage
/// is skipped everywhere. Subclasses give `apply`, `extend`, `pseudoCursor`, `undoNameId`
/// and `ready`.
///
/// Runs on the interface thread; one stroke at a time in the process (paintRow works in
/// static scratch rows).
class Applicator : public StrokeApplicator {
public:
    TQL::Handle<MattingTool> matting;
    TQL::Handle<EffectTool> effect;
    TQL::Handle<FogTool> fog;
    TQL::Handle<TextureTool> texture;
    TQL::Handle<RecolourTool> recolour;
    TQL::Handle<GrainTool> grain;
    TQL::Handle<BlendTool> blend;
    /// Paint goes through the wet planes (set by the applicators that honour the effect's
    /// usesWetLayer).
    bool wet = false;
    /// The effect repaints pixels on every pass; false without an effect.
    bool repainting = false;
    bool abandoned = false;
    bool finished = false;
    /// 1 if any stage reads the working depth; handed to every span.
    std::uint8_t needsDepthFlags = 0;

    // Virtual operations, in slot order.

    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override = 0;
    /// Starts the stages at the point: see Applicator.cpp.
    void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override = 0;
    /// Finishes the stages in order, then `ready`, then marks the stroke finished.
    void finish(ZmapDocument& document, StrokeView* view) override;
    /// Marks the stroke abandoned; in a cube image the faces' seams are made whole again.
    void abandon() override;
    /// True while a stroke waits for more input.
    virtual bool isStrokeOpen() const { return false; }
    /// Ends an open stroke; true if there was one.
    virtual bool closeStroke() { return false; }
    virtual void setMatting(const TQL::Handle<MattingTool>& stage) { matting = stage; }
    virtual void setEffect(const TQL::Handle<EffectTool>& stage) { effect = stage; }
    virtual void setFog(const TQL::Handle<FogTool>& stage) { fog = stage; }
    virtual void setTexture(const TQL::Handle<TextureTool>& stage) { texture = stage; }
    virtual void setRecolour(const TQL::Handle<RecolourTool>& stage) { recolour = stage; }
    virtual void setGrain(const TQL::Handle<GrainTool>& stage) { grain = stage; }
    virtual void setBlend(const TQL::Handle<BlendTool>& stage) { blend = stage; }
    /// The pseudo-cursor shown while the tool is selected (a views object).
    virtual TQL::Handle<TQL::Handlable> pseudoCursor() = 0;
    /// Usually the effect's undo name if it has one, else the applicator's own.
    std::uint32_t undoNameId() const override = 0;
    /// Shows the tool's prompt and installs its pseudo-cursor: when the tool is selected and
    /// at the end of `finish`.
    virtual void ready() = 0;
    virtual void runMatting(Span& span, int first, int last);
    virtual void runEffect(Span& span, int first, int last);
    virtual void runFog(Span& span, int first, int last);
    virtual void runTexture(Span& span, int first, int last);
    virtual void runRecolour(Span& span, int first, int last);
    virtual void runGrain(Span& span, int first, int last);
    virtual void runBlend(Span& span, int first, int last);
    virtual void commitEffect(Span& span, int first, int last);
    virtual void runFogLate(Span& span, int first, int last);
    /// Paints pixels begin..end - 1 of a row: pixel i lies at column x0 + i of row y with
    /// coverage `coverage[i]` (0 to 1). Returns the pixels changed (empty for none).
    virtual IExtent<2> paintRow(ZmapDocument& document, std::int32_t x0, std::int32_t y,
                                std::int32_t begin, std::int32_t end, const float* coverage);
    /// paintRow for a row whose coverage is one value from begin to end - 1 (a fill, a row
    /// of a stroke at full coverage): the same result, without reading the whole row to
    /// find that out. Goes past an override of paintRow: for applicators that leave it to
    /// this class.
    IExtent<2> paintRowOfOneCoverage(ZmapDocument& document, std::int32_t x0, std::int32_t y,
                                     std::int32_t begin, std::int32_t end, const float* coverage);
    /// The stroke's surface differs from the camera's surface at the start point.
    virtual void surfaceChanged(const SurfaceFrame& frame) {}

    bool isAbandoned() const override { return abandoned; }
    bool isFinished() const override { return finished; }

    /// Takes the plain walk over every run, sub-run by sub-run, even where the whole run
    /// rises at once, and writes every stroke alpha value out (no uniform rows); for checking
    /// the fast paths against it. The results are the same.
    bool plainWalk = false;

    /// Plain paint whose colour stages come to one colour (Paint or no effect, a full-strength
    /// LinearRecolour, no fog, texture or grain) is blended from that colour straight away,
    /// without the copy of the source that it replaces; the results are the same. This
    /// stands for runEffect, runRecolour, commitEffect and runBlend (Blender's own form), so
    /// it is off unless the applicator turns it on: only one that leaves those four to the
    /// base class may (the brush, fill, line and shape tools do). An applicator that gives
    /// its own colour in one of them is right without doing anything.
    bool fuseSolidPaint = false;

    /// The tolerance of the surface frame handed to the stages at the start: a fraction of
    /// the world distance between neighbouring pixels at the far depth.
    static constexpr double surfaceTolerance = 0.05;

private:
    /// paintRow's work; `oneCoverage`: the caller knows the row's coverage to be one value.
    IExtent<2> layRow(ZmapDocument& document, std::int32_t x0, std::int32_t y, std::int32_t begin,
                      std::int32_t end, const float* coverage, bool oneCoverage);
    /// The blend of a sub-run whose working colour is `colour` throughout (and its alpha one
    /// value, if `alphaUniform`).
    void blendSolid(Span& span, ColourPOD colour, int first, int last, bool alphaUniform);

    /// The tiles of the planes of the current row of tiles, kept between runs and rows of one
    /// stroke; let go of when a stroke starts, ends or is abandoned.
    SpanPlaneCache planes_;
};
