#pragma once

#include "applicators/PenMask.h"
#include "core/Angle.h"
#include "core/Point.h"
#include "core/Status.h"
#include "pipeline/Applicator.h"
#include "pipeline/BrushRecolour.h"
#include "pipeline/PaintRandom.h"
#include "views/cameras/SurfaceFrame.h"

#include <cstdint>
#include <string>
#include <vector>

class Constraint;

/// The kinds of brush ("Type").
enum BrushType : std::int32_t {
    brushRound = 0,        ///< a round flat dab with a profile
    brushSquare = 1,       ///< a square (or oblong, with an aspect) flat dab
    brushPicture = 2,      ///< a flat dab from a picture file
    brushPictureList = 3,  ///< a list of pictures, one after the other ("Multi...%d")
    brushBristle = 4,      ///< a round flat dab broken into bristles
    brushSurface = 5,      ///< a round dab lying on the surface, sized in model units
    brushStamp = 6,        ///< a picture stamped flat, sized from the image width
    brushSurfaceStamp = 7, ///< a picture lying on the surface
    brushSurfaceList = 8,  ///< a list of pictures lying on the surface
};

/// One entry of a list brush (types 3 and 8): its own picture and placement.
struct BrushListEntry {
    std::wstring filename;  ///< "MultiFilename%d"
    std::int32_t size = 20; ///< radius in pixels ("MultiSize%d")
    double modelSize = 0.5; ///< radius in model units ("MultiModelSize%d")
    std::int32_t angle = 0; ///< degrees ("MultiAngle%d")
    double hookX = 0.5;     ///< "MultiHookX%d"
    double hookY = 0.5;     ///< "MultiHookY%d"
    double docPercent = 0;  ///< radius as a percentage of the image width; 0 off
                            ///< ("MultiDocPercent%d")
    bool operator==(const BrushListEntry&) const = default;
};

/// Every setting of the brush, each with its style key (section "Brush"). The brush tool
/// page holds one and builds a BrushApplicator from it.
struct BrushSettings {
    std::int32_t type = brushRound;   ///< "Type", a BrushType
    std::int32_t size = 10;           ///< radius in pixels ("Size")
    double modelSize = 0.25;          ///< radius in model units for surface brushes ("ModelSize")
    double sizeDocPercent = 0;        ///< radius as a percentage of the image width for stamps;
                                      ///< 0 off ("SizeDocPercent")
    std::vector<BrushListEntry> list; ///< the entries of a list brush
    double multiScale = 1.0;          ///< scale of every list entry ("MultiScale")
    std::int32_t hardness = 50;       ///< percent ("Hardness")
    std::int32_t profileType = 0;     ///< a MaskProfile::Type ("ProfileType")
    std::int32_t aspect = 100;        ///< height over width, percent ("Aspect")
    std::int32_t ramp = 0;     ///< what pressure softens: 0 the curve, 1 the peak, 2 both ("Ramp")
    bool vertical = false;     ///< a surface dab stands upright on walls ("Vertical")
    bool rect2Way = false;     ///< a square dab falls off along both axes ("Rect2Way")
    std::int32_t bristles = 0; ///< number of bristles; 0 none ("Bristles")
    double bristlesPercent = 50;       ///< share of the dab the bristles cover ("BristlesPercent")
    std::int32_t angle = 0;            ///< degrees ("Angle")
    std::wstring filename;             ///< picture of a picture brush ("Filename")
    double hookX = 0.5;                ///< "HookX"
    double hookY = 0.5;                ///< "HookY"
    double rasterAspect = 1.0;         ///< stretch of a picture, height over width ("RasterAspect")
    bool spaced = true;                ///< "Spaced"
    double spacing = 0.25;             ///< in units of the dab's radius ("Spacing")
    bool continuous = false;           ///< "Continuous"
    bool follows = false;              ///< "Follows"
    std::int32_t constraintType = 0;   ///< "ConstraintType"
    bool worldConstraint = false;      ///< "WorldConstraint"
    Vector<3> constraintAxis{0, 0, 1}; ///< "ConstraintAxis"
    std::int32_t opacity = 100;        ///< percent, every dab ("Opacity")
    bool shrink = false;       ///< a flat dab shrinks with depth from the stroke's start ("Shrink")
    bool soften = false;       ///< a picture's edges are softened by the profile ("Soften")
    std::int32_t dynamics = 0; ///< "UseDynamics": bit 0 opacity, 1 size, 2 softness
    std::int32_t spreadPercent = 0;    ///< "SpreadPercent"
    std::int32_t twist = 0;            ///< degrees ("Twist")
    std::int32_t colourSpread = 0;     ///< "ColourSpread"
    std::int32_t colourSpreadType = 0; ///< "ColourSpreadType"
    std::int32_t sizeSpread = 0;       ///< percent ("SizeSpread")
    std::int32_t dynamicOpacity = 0;   ///< percent ("DynamicOpacity")
    std::int32_t fade = 0;             ///< pixels; negative fades in ("Fade")
    std::int32_t fadeType = 0;         ///< 0 straight, 1 smooth ("FadeType")

    bool operator==(const BrushSettings&) const = default;
};

/// The freehand brush: follows the pointer, places dabs of a PenMask along the path at the
/// set spacing and varies size, opacity, colour and position per dab. Each dab goes row by
/// row through paintRow.
///
/// Wet strokes, list brushes and continuous strokes are painted dab by dab. Other strokes
/// gather the footprints of all dabs of one pointer move (of a whole stored stroke, in
/// `apply`, up to a bounded buffer) per extent and paint each row once, combining the dabs by
/// "over" exactly as the stroke alpha would: the result never exceeds what the dabs one after the
/// other give.
///
/// Make one with `create`, which reads picture files and reports a file that cannot be read.
class BrushApplicator : public Applicator {
public:
    /// Prompts: a plain brush, a list brush, each in the two prompt sets.
    static constexpr std::uint32_t promptBrush = 512;
    static constexpr std::uint32_t promptBrushAlternate = 525;
    static constexpr std::uint32_t promptList = 531;
    static constexpr std::uint32_t promptListAlternate = 532;
    /// The undo name of a brush stroke without an effect of its own.
    static constexpr std::uint32_t undoNameBrush = 1100;

    /// A brush of the settings. A picture that cannot be read gives a status and a message
    /// naming the file, and no brush.
    static TQL::Handle<BrushApplicator> create(const BrushSettings& settings, Status& status,
                                               std::wstring& message);
    /// A brush with a mask of the caller's (tests, the painter).
    BrushApplicator(const BrushSettings& settings, TQL::Handle<PenMask> mask);
    ~BrushApplicator() override;

    void apply(ZmapDocument& document, StrokeView* view,
               const std::vector<StrokePoint>& points) override;
    void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) override;
    void finish(ZmapDocument& document, StrokeView* view) override;
    /// A recolour stage is wrapped in a BrushRecolour when the mask has colour of its own.
    void setRecolour(const TQL::Handle<RecolourTool>& stage) override;
    /// The mask's outline.
    TQL::Handle<TQL::Handlable> pseudoCursor() override;
    std::uint32_t undoNameId() const override;
    void ready() override;
    void surfaceChanged(const SurfaceFrame& frame) override;

    const BrushSettings& settings() const { return settings_; }
    /// Show the prompts of the second set.
    bool alternatePrompts = false;
    /// Dabs placed since the stroke started.
    std::int64_t dabCount() const { return dabCount_; }
    /// Paint every dab on its own even where the dabs could be gathered (for checking the
    /// gathered painting against it).
    bool forceDabByDab = false;

    // The stroke's state, as the settings made it.
    std::int32_t type;
    TQL::Handle<PenMask> mask;
    TQL::Handle<PenMask> previousMask;
    bool spaced;
    float spacing;
    std::int32_t dynamics;
    double size;
    std::int32_t constraintType;
    Vector<3> constraintAxis;
    bool continuous;
    bool follows;
    std::int32_t colourSpread;
    std::int32_t colourSpreadType;
    std::int32_t sizeSpread;
    Angle twist;
    std::int32_t spreadPercent;
    std::int32_t dynamicOpacity;
    std::int32_t fade;
    double faded = 0;
    /// The masks of a list brush and the one in use.
    std::vector<TQL::Handle<PenMask>> masks;
    std::size_t multiIndex = 0;

private:
    /// The brush's side of a BrushRecolour: the mask's own colours.
    class MaskColours : public ColourBrush {
    public:
        explicit MaskColours(BrushApplicator& brush) : brush_(brush) {}
        bool hasColourMask() const override;
        void maskColours(const Span& span, int first, int last, ColourPOD* out) override;

    private:
        BrushApplicator& brush_;
    };

    /// Dabs gathered for painting together: the union of their footprints and, row by row
    /// over it, their coverage combined by "over".
    struct Gather {
        IExtent<2> extent;
        std::vector<float> coverage;
        std::int64_t dabs = 0;
    };

    bool paintsDabByDab() const;
    void loadListEntry(std::size_t index);
    /// The dab's opacity from the point's: fade and random loss.
    float dabOpacity(float o, IPoint<2> p);
    /// Walks from the last dab to `to`, placing a dab at each new position.
    void samplePath(ZmapDocument& document, IPoint<2> to, float opacity);
    /// On a cube image, the pixel a fraction `t` of the way from face pixel a to face
    /// pixel b on another face, along the great circle between their directions (the
    /// strip doesn't join most faces, so a straight line on it would cross others); false
    /// on any other image or when a and b share a face.
    static bool acrossFaces(const ZmapDocument& document, IPoint<2> a, IPoint<2> b, double t,
                            Point<2>& pixel);
    /// The number of pixel steps between a and b on different faces of a cube image, by
    /// the angle between their directions; 0 when acrossFaces doesn't apply.
    static double stepsAcrossFaces(const ZmapDocument& document, IPoint<2> a, IPoint<2> b);
    /// Places one dab (with the per-dab variations) and paints it or gathers it.
    void makeDab(ZmapDocument& document, IPoint<2> p, float opacity);
    void paintDab(ZmapDocument& document, IPoint<2> p, float opacity);
    void gatherDab(ZmapDocument& document, IPoint<2> p, float opacity);
    void flushGather(ZmapDocument& document);
    /// The point's size from pressure, before the per-dab spread.
    double pressureSize(float pressure) const;
    double random() { return random_.next(); }
    /// The world size of a pixel at p (at its depth); 0 where p has no depth.
    static double pixelWorldSize(const ZmapDocument& document, IPoint<2> p);

    BrushSettings settings_;
    MaskColours maskColours_{*this};
    double baseSize_ = 0;
    double pointSize_ = 0;
    Angle baseAngle_;
    Angle pointAngle_;
    IPoint<2> lastDab_;
    IPoint<2> lastPoint_;
    IPoint<2> fadePoint_;
    bool fadeStarted_ = false;
    float lastPressure_ = 1.0f;
    float lastOpacity_ = 1.0f;
    bool placedAny_ = false;
    bool gatherAcrossMoves_ = false;
    /// Where the pointer move being painted ends.
    IPoint<2> moveEnd_;
    std::int64_t dabCount_ = 0;
    PaintRandom random_;
    std::vector<IExtent<2>> extents_;
    std::vector<float> row_;
    Gather gather_;
    IExtent<2> changed_;
    TQL::Handle<Constraint> constraint_;
    bool surfaceSet_ = false;
    SurfaceFrame frame_;
    Vector<3> referenceNormal_;
    /// For a flat dab that shrinks with depth: the world size of a pixel at the stroke's
    /// start; 0 when the dab keeps its size.
    double shrinkPixel_ = 0;
};
