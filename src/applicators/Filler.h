#pragma once

#include "image/StrokeApplicator.h"
#include "pipeline/Applicator.h"

#include <cstdint>
#include <vector>

class FillBitmap;

/// The fill: paints the pipeline over the whole image or, with `flood` and a matting stage
/// (a lock), floods out from the clicked pixel through the pixels that pass the locks. It
/// works in `finish`: `start` stores the point, `extend` paints nothing.
///
/// Whole-image fills paint row by row, pass the changed rows to the view once per tile
/// height and report progress to the document editor's Reporter. The flood is a scanline
/// fill on an explicit stack, one paint a pixel at most (the `visited` bitmap), crossing the
/// seams of a cube image into the neighbouring faces. Both stop between rows or records when
/// TQL::stopRequested() or the progress report says so: the stroke is abandoned and what was
/// painted stays in its undo level.
class Filler : public Applicator {
public:
    /// Prompts shown when the fill is selected, in the two prompt sets.
    static constexpr std::uint32_t promptFill = 511;
    static constexpr std::uint32_t promptFillAlternate = 527;
    /// The undo name of a fill without an effect of its own.
    static constexpr std::uint32_t undoNameFill = 1247;

    explicit Filler(bool flood);
    ~Filler() override;

    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override;
    void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    void finish(ZmapDocument& document, StrokeView* view) override;
    TQL::Handle<TQL::Handlable> pseudoCursor() override;
    std::uint32_t undoNameId() const override;
    void ready() override;
    /// Skipped when flooding: the flood has applied the locks already.
    void runMatting(Span& span, int first, int last) override;

    bool flood() const { return flood_; }
    const StrokePoint& seed() const { return seed_; }
    /// Show prompt 527 instead of 511.
    bool alternatePrompts = false;
    /// Pixels painted by the last finish (each counted once).
    std::int64_t pixelsPainted() const { return pixelsPainted_; }

private:
    /// One record of the flood's stack: columns left..right - 1 of row y to try.
    struct FillRecord {
        std::int32_t left;
        std::int32_t right;
        std::int32_t y;
        std::int32_t parentLeft;
        std::int32_t parentRight;
        std::int32_t direction; ///< +1 down, -1 up, 0 the seed, 2 and 3 across a face seam
        FillRecord* next;
    };

    void fillWhole(ZmapDocument& document, StrokeView* view);
    void fillFlood(ZmapDocument& document, StrokeView* view);
    void push(std::int32_t left, std::int32_t right, std::int32_t y, std::int32_t parentLeft,
              std::int32_t parentRight, std::int32_t direction);
    void freeStack();
    /// Seam crossings of a run on a cube image.
    void pushCrossings(ZmapDocument& document, std::int32_t a, std::int32_t b, std::int32_t y);
    bool isVisited(std::int32_t x, std::int32_t y);
    void markVisited(std::int32_t a, std::int32_t b, std::int32_t y);
    /// From x, the first column before `right` not yet visited (right if none).
    std::int32_t skipVisited(std::int32_t x, std::int32_t right, std::int32_t y);
    /// Polls the stop request and the progress report; abandons on stop.
    void poll(ZmapDocument& document, double fraction);

    bool flood_;
    StrokePoint seed_;
    std::vector<float> coverage_;
    TQL::Handle<FillBitmap> visited_;
    FillRecord* stack_ = nullptr;
    std::int64_t pixelsPainted_ = 0;
    std::int64_t records_ = 0;
};
