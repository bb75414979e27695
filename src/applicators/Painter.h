#pragma once

#include "applicators/PenMask.h"
#include "core/Angle.h"
#include "core/Point.h"
#include "core/Status.h"
#include "pipeline/Applicator.h"
#include "pipeline/PaintRandom.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// One size entry of the painter ("Multi...%d"); the strokes take the entries in turn.
struct PainterSizeEntry {
    std::int32_t size = 4;        ///< dab radius in pixels ("MultiSize%d")
    std::int32_t angle = 0;       ///< degrees added to the stroke's ("MultiAngle%d")
    double hookX = 0.5;           ///< "MultiHookX%d"
    double hookY = 0.5;           ///< "MultiHookY%d"
    double docPercent = 0;        ///< radius as a percentage of the image width; 0 off
                                  ///< ("MultiDocPercent%d")
    double docRasterAspect = 1.0; ///< a picture dab's height over width ("MultiDocRasterAspect%d")
    bool operator==(const PainterSizeEntry&) const = default;
};

/// The kinds of dab the painter strokes are made of ("Type").
enum PainterDabType : std::int32_t {
    painterRound = 0,   ///< a round dab with the softness as its profile
    painterSquare = 1,  ///< a square dab, turned with the stroke
    painterPicture = 2, ///< a picture ("Filename"), turned with the stroke
};

/// Every setting of the painter, each with its style key (section "Painter").
struct PainterSettings {
    std::int32_t start = 100;    ///< size and opacity at a stroke's start, percent ("Start")
    std::int32_t end = 100;      ///< size and opacity at its end, percent ("End")
    std::int32_t length = 24;    ///< stroke length in pixels ("Length")
    double lengthDocPercent = 0; ///< length as a percentage of the image width; 0 off
                                 ///< ("LengthDocPercent")
    std::int32_t angle = 0;      ///< stroke direction, degrees ("Angle")
    std::int32_t twist = 0;      ///< random turn of each stroke, degrees either way ("Twist")
    std::int32_t wobble = 0;     ///< random turn from dab to dab, degrees either way ("Wobble")
    double depthScale = 1.0;     ///< size factor at the far depth; 1 no change ("DepthScale")
    std::int32_t softness = 30;  ///< percent; 0 hard-edged dabs ("Softness")
    bool relative = false;       ///< the angle is measured from the pointer's direction
                                 ///< ("Relative")
    std::int32_t type = painterRound; ///< a PainterDabType ("Type")
    /// Where colours are read ("Reference"): x 0 the original colour, 1 the image as it
    /// was before the stroke; y and z an offset in pixels from the stroke's origin.
    Vector<3> reference{0, 0, 0};
    bool reset = true;                 ///< every new stroke may paint every cell again ("Reset")
    bool strict = true;                ///< a cell is painted once a stroke ("Strict")
    bool delay = false;                ///< strokes are laid when the pointer is released ("Delay")
    std::int32_t skew = 0;             ///< degrees a stroke bends over its length ("Skew")
    std::int32_t shape = 0;            ///< ramp from Start to End: 0 straight, 1 smooth ("Shape")
    std::int32_t cellSize = 16;        ///< cell width in pixels ("CellSize")
    std::int32_t cellSizeY = 16;       ///< cell height in pixels ("CellSizeY")
    bool splatRandom = false;          ///< a stroke starts anywhere in its cell ("SplatRandom")
    std::int32_t splatter = 100;       ///< how far from the cell's centre, percent ("Splatter")
    bool depthSort = true;             ///< the far strokes are laid first ("DepthSort")
    std::int32_t hook = 0;             ///< where the origin lies along a stroke, percent ("Hook")
    std::int32_t dynamics = 0;         ///< "UseDynamics": bit 0 opacity, bit 1 size by pressure
    std::int32_t colourSpread = 0;     ///< "ColourSpread"
    std::int32_t colourSpreadType = 0; ///< 0 each channel, 1 lightness ("ColourSpreadType")
    std::int32_t dynamicOpacity = 0;   ///< random loss of opacity a stroke, percent
                                       ///< ("DynamicOpacity")
    std::int32_t fade = 0;             ///< pixels of pointer travel over which strokes fade out;
                                       ///< negative fades them in ("Fade")
    std::int32_t fadeType = 0;         ///< 0 straight, 1 smooth ("FadeType")
    std::int32_t opacity = 100;        ///< percent ("Opacity")
    std::vector<PainterSizeEntry> list{PainterSizeEntry()}; ///< at least one entry
    double multiScale = 1.0;                                ///< scale of every entry ("MultiScale")
    std::int32_t spreadPercent = 0; ///< random displacement of an origin, percent of the
                                    ///< stroke's radius ("SpreadPercent")
    std::int32_t spread = 25; ///< dab spacing along a stroke, percent of the radius ("Spread")
    std::wstring filename;    ///< picture of a picture dab ("Filename")

    bool operator==(const PainterSettings&) const = default;
};

/// One artistic stroke as the painter lays it.
struct PainterStroke {
    IPoint<2> origin;        ///< the pixel it starts from, in its cell
    IPoint<2> cell;          ///< column and row of its cell
    std::uint32_t depth = 0; ///< the depth code at the origin
    ColourPOD colour;        ///< its one colour
    double size = 0;         ///< dab radius in pixels at full ramp
    double length = 0;       ///< pixels
    Angle direction;
    float opacity = 1;
    std::size_t entry = 0; ///< the size entry
};

/// A brush that the program moves: the image is divided into cells, and every cell that
/// the pointer crosses gets one artistic stroke: a line of dabs from the cell, as long and
/// turned as the settings say, ramping in size and opacity from "Start" to "End", in one
/// colour read from the reference at its origin. With depth sorting the far strokes are
/// laid before the near ones, and a near stroke covers a far one where they overlap
/// whatever the order they come in; with a depth scale a stroke's size and length follow
/// the depth at its origin.
///
/// The strokes are composited in the painter's own canvas (colour and coverage per
/// pixel, painted tiles only); what they add goes through paintRow like any paint, so
/// locks, grain and the blend apply, and `runEffect` gives each pixel the canvas's colour.
class Painter : public Applicator {
public:
    static constexpr std::uint32_t promptPainter = 514;
    static constexpr std::uint32_t promptPainterAlternate = 527;
    static constexpr std::uint32_t undoNamePainter = 1220;

    /// A painter of the settings; a picture that cannot be read gives a status and a
    /// message naming the file, and no painter. The random numbers start from `seed`.
    static TQL::Handle<Painter> create(const PainterSettings& settings, std::uint32_t seed,
                                       Status& status, std::wstring& message);
    Painter(const PainterSettings& settings, TQL::Handle<PenMask> mask, std::uint32_t seed);
    ~Painter() override;

    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override;
    void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    void finish(ZmapDocument& document, StrokeView* view) override;
    TQL::Handle<TQL::Handlable> pseudoCursor() override;
    std::uint32_t undoNameId() const override;
    void ready() override;
    void runMatting(Span& span, int first, int last) override;
    void runEffect(Span& span, int first, int last) override;
    void runTexture(Span& span, int first, int last) override;
    void runRecolour(Span& span, int first, int last) override;

    const PainterSettings& settings() const { return settings_; }
    /// The strokes laid since the user's stroke started, in the order they were laid.
    const std::vector<PainterStroke>& strokes() const { return laid_; }
    /// The size factor of a depth code: 1 + (code / 4294967295) * (DepthScale - 1); 1 where
    /// there is no depth.
    double depthFactor(std::uint32_t code) const;
    bool alternatePrompts = false;

private:
    struct Canvas;

    /// Cells on the pointer's path from the last point to `to` that get a stroke now.
    void crossCells(ZmapDocument& document, IPoint<2> from, IPoint<2> to);
    void enterCell(ZmapDocument& document, IPoint<2> cell);
    PainterStroke makeStroke(ZmapDocument& document, IPoint<2> cell);
    /// Lays strokes (sorted far first when depth sorting) and paints what they added.
    void layStrokes(ZmapDocument& document, std::vector<PainterStroke>& strokes);
    void layStroke(ZmapDocument& document, const PainterStroke& stroke);
    void flush(ZmapDocument& document);
    double ramp(double t) const;
    float fadeFactor() const;
    double random() { return random_.next(); }

    PainterSettings settings_;
    TQL::Handle<PenMask> mask_;
    PaintRandom random_;
    std::unique_ptr<Canvas> canvas_;
    /// Per cell: the serial of the user's stroke that painted it (0 none).
    std::vector<std::uint32_t> grid_;
    std::int32_t columns_ = 0;
    std::int32_t rows_ = 0;
    std::int32_t cellW_ = 16;
    std::int32_t cellH_ = 16;
    std::uint32_t serial_ = 0;
    IPoint<2> lastCell_{-1, -1};
    IPoint<2> lastPoint_;
    Angle pointerDirection_;
    float pressure_ = 1.0f;
    double travelled_ = 0;
    std::size_t nextEntry_ = 0;
    std::vector<PainterStroke> pending_;
    std::vector<PainterStroke> laid_;
    std::vector<IExtent<2>> extents_;
    std::vector<float> row_;
    std::vector<float> coverage_;
    IExtent<2> changed_;
};
