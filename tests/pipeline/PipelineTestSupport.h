#pragma once

// Stages and an applicator for the pipeline tests: stages that record each call (family,
// span column, range) into one shared log, and an applicator that paints one short row a
// point.

#include "image/ZmapDocument.h"
#include "pipeline/Applicator.h"
#include "pipeline/ToolSelection.h"
#include "views/cameras/SurfaceFrame.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace test {

struct StageCall {
    std::string stage;
    std::int32_t x = 0;      ///< span.x
    std::int32_t length = 0; ///< span.length
    int first = 0;
    int last = 0;
    std::vector<float> alpha;      ///< alpha[first..last) as the stage saw it
    std::vector<ColourPOD> base;   ///< baseColour[first..last)
    std::vector<ColourPOD> colour; ///< colour[first..last), the working colour
};

using StageLog = std::vector<StageCall>;

/// Records a call of `stage` on `span` into `log`.
void record(StageLog& log, const std::string& stage, const Span& span, int first, int last);
/// The stage names of a log, in order.
std::vector<std::string> names(const StageLog& log);

/// A stage of every family that records its calls; `action`, if set, runs after recording.
template <class Family> class Recording : public Family {
public:
    Recording(StageLog& log, std::string name) : log_(log), name_(std::move(name)) {}
    void run(Span& span, int first, int last) override {
        record(log_, name_, span, first, last);
        if (action) {
            action(span, first, last);
        }
    }
    /// Logs "setSurface" with the stage's name.
    void setSurface(const SurfaceFrame&) override {
        log_.push_back({"setSurface " + name_, 0, 0, 0, 0, {}, {}, {}});
    }
    std::function<void(Span&, int, int)> action;

protected:
    StageLog& log_;
    std::string name_;
};

class RecordingMatting : public Recording<MattingTool> {
public:
    using Recording::Recording;
    bool findRun(std::int32_t&, std::int32_t&, std::int32_t, ZmapDocument&) override {
        return false;
    }
    void extendRun(std::int32_t&, std::int32_t, std::int32_t, ZmapDocument&) override {}
    bool lockPlane(Plane& plane) override {
        plane = lockedPlane;
        return hasLockPlane;
    }
    bool hasLockPlane = false;
    Plane lockedPlane;
};

class RecordingEffect : public Recording<EffectTool> {
public:
    using Recording::Recording;
    void commit(Span& span, int first, int last) override {
        record(log_, "commit", span, first, last);
    }
    bool plane(Plane& plane) override {
        plane = ownPlane;
        return hasPlane;
    }
    bool usesWetLayer() const override { return wetLayer; }
    bool repaints() const override { return repaint; }
    std::uint32_t undoNameId() const override { return undoName; }
    bool wetLayer = false;
    bool repaint = false;
    std::uint32_t undoName = 0;
    bool hasPlane = false;
    Plane ownPlane;
};

class RecordingFog : public Recording<FogTool> {
public:
    using Recording::Recording;
    void runLate(Span& span, int first, int last) override {
        record(log_, "fogLate", span, first, last);
    }
};

class RecordingRecolour : public Recording<RecolourTool> {
public:
    using Recording::Recording;
    void pickColour(int, int) override {}
    float strength() const override { return 1.0f; }
};

class RecordingTexture : public Recording<TextureTool> {
public:
    using Recording::Recording;
    void setAxes(const TextureAxes&) override {}
    int flags() const override { return 0; }
    void preview(PreviewBitmap&) override {}
};

class RecordingGrain : public Recording<GrainTool> {
public:
    using Recording::Recording;
    void preview(PreviewBitmap&) override {}
    void thumbnail(PreviewBitmap&) override {}
};

class RecordingBlend : public Recording<BlendTool> {
public:
    using Recording::Recording;
};

/// An applicator that paints, for each point, `width` pixels of the point's row from the
/// point's column at full coverage. Counts its calls. Like the brush and the fill, it
/// leaves the stage dispatch to the base class and lets one colour be blended straight away.
class RowApplicator : public Applicator {
public:
    RowApplicator() { fuseSolidPaint = true; }
    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override;
    bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    void finish(ZmapDocument& document, StrokeView* view) override;
    TQL::Handle<TQL::Handlable> pseudoCursor() override { return nullptr; }
    std::uint32_t undoNameId() const override;
    void ready() override { ++readyCalls; }
    bool isStrokeOpen() const override { return !finished && !abandoned && started; }
    void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;

    std::int32_t width = 5;
    float coverage = 1.0f;
    /// Finish leaves the stroke open (waiting for more input).
    bool staysOpen = false;
    /// Run during finish (to test re-entry).
    std::function<void()> duringFinish;
    /// Run during extend (to fail it).
    std::function<void()> duringExtend;
    /// The planes surfaceChanged was given, in order.
    std::vector<Plane> changedSurfaces;
    void surfaceChanged(const SurfaceFrame& frame) override;
    int readyCalls = 0;
    bool started = false;
    IExtent<2> painted;
};

} // namespace test
