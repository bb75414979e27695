#pragma once

#include "core/Angle.h"
#include "core/Colour.h"
#include "core/Handle.h"
#include "image/MaterialRecord.h"
#include "pipeline/PipelineTool.h"
#include "views/cameras/SurfaceFrame.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// The settings of the locks as the tool page holds them. Which locks are on is given to
/// Matte separately (the toolbox's lock mask).
struct MatteSettings {
    /// Test the original channels (as the image came from the model) instead of the image
    /// as it was before the stroke.
    bool useOriginal = false;
    /// Every test answers the opposite.
    bool invert = false;

    /// Material lock with a fixed list of material names instead of the material under the
    /// start point. Names not in the document's table are skipped.
    bool materialListMode = false;
    std::vector<std::wstring> materialNames;
    /// The background (no material) counts as listed.
    bool includeBackground = false;

    /// Plane lock: how far a pixel may lie off the start plane, in percent of the distance
    /// between neighbouring pixels at the far depth.
    double planeTolerancePercent = 5.0;

    /// Angle lock: how far, in degrees, the surface may turn from the start plane.
    double angleDegrees = 10.0;

    /// Colour lock: 0 tests the three channels against ranges, 1 hue, lightness and
    /// saturation.
    int colourMode = 0;
    /// Mode 0: which channels take part (red, green, blue) and the half width of each
    /// channel's range around the start colour (0 to 255).
    bool channelOn[3] = {true, true, true};
    int colourTolerance = 16;
    /// Mode 1: which of hue, lightness and saturation take part, and their tolerances.
    bool hueOn = true;
    bool lightnessOn = true;
    bool saturationOn = true;
    double hueToleranceDegrees = 10.0;
    double lightnessTolerancePercent = 10.0;
    double saturationTolerancePercent = 10.0;

    bool operator==(const MatteSettings&) const = default;
};

/// The locks: keeps paint on what lies under the first touch of a stroke, the same
/// material, plane, surface angle or colour. It lowers the mask of a span to 0 wherever a
/// pixel fails a lock that is on. The tests run in the order material, plane, colour,
/// angle; the first failure decides.
///
/// `start` takes what the locks compare with from the start pixel; `findRun` and
/// `extendRun` give the flood fill its runs of passing pixels. All reads come from the
/// image as it was before the stroke (the undo store's current level) or, with
/// `useOriginal`, from the original channels.
class TileBitmap;

class Matte : public MattingTool {
public:
    /// Bits of the toolbox's lock mask, one per lock.
    enum LockBit : std::uint32_t {
        lockPlaneBit = 1,
        lockAngleBit = 2,
        lockMaterialBit = 4,
        lockColourBit = 8,
    };
    /// Values of state().
    enum State : int {
        passAll = 0,  ///< no lock is on: every pixel passes
        passNone = 1, ///< nothing can pass (an empty material list)
        testEach = 2, ///< each pixel is tested
    };

    Matte(const MatteSettings& settings, bool planeLock, bool angleLock, bool materialLock,
          bool colourLock);

    void run(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    bool findRun(std::int32_t& left, std::int32_t& right, std::int32_t y,
                 ZmapDocument& document) override;
    void extendRun(std::int32_t& x, std::int32_t y, std::int32_t step,
                   ZmapDocument& document) override;
    bool lockPlane(Plane& plane) override;

    /// Whether pixel (x, y) passes the locks, as run would decide it.
    bool passes(std::int32_t x, std::int32_t y, ZmapDocument& document);

    const MatteSettings& settings() const { return settings_; }
    bool planeLock() const { return planeLock_; }
    bool angleLock() const { return angleLock_; }
    bool materialLock() const { return materialLock_; }
    bool colourLock() const { return colourLock_; }
    int state() const { return state_; }
    /// What start took from the start pixel.
    MaterialId material() const { return material_; }
    const std::set<MaterialId>& materialIds() const { return materialIds_; }
    const SurfaceFrame& frame() const { return frame_; }
    bool startIsBackground() const { return startIsBackground_; }
    /// The plane tolerance as a fraction: percent / 100, 0 when the plane lock is off.
    double planeTolerance() const { return planeTolerance_; }
    /// Sine of the angle lock's angle.
    double angleSine() const { return angleSine_; }
    /// Mode 0 ranges (bounds included), in ColourPOD order.
    ColourPOD rangeLow() const { return rangeLow_; }
    ColourPOD rangeHigh() const { return rangeHigh_; }
    /// Mode 1: the hue tolerance in radians, (degrees + 0.1) * pi / 180, so a tolerance of 0
    /// still takes the exact hue.
    double hueTolerance() const { return hueTolerance_; }

private:
    struct RowPlanes;
    /// Tests pixels first..last of a row of planes; writes 0 into mask where one fails.
    void testRow(const RowPlanes& planes, float* mask, int first, int last);
    /// Fills `planes` for the run of row y from column x to its tile's end (at most
    /// `limit` pixels); returns the run's length, 0 outside the image.
    std::int32_t rowPlanes(ZmapDocument& document, std::int32_t x, std::int32_t y,
                           std::int32_t limit, RowPlanes& planes);
    bool angleOk(ZmapDocument& document, std::int32_t x, std::int32_t y, std::uint32_t code,
                 const std::uint32_t* above, const std::uint32_t* below, const std::uint32_t* row,
                 int i, int first, int last);
    std::uint32_t depthAt(ZmapDocument& document, std::int32_t x, std::int32_t y) const;
    std::uint8_t colourOk(ColourPOD c) const;

    MatteSettings settings_;
    bool planeLock_;
    bool angleLock_;
    bool materialLock_;
    bool colourLock_;
    int state_ = passAll;
    MaterialId material_ = 0;
    std::set<MaterialId> materialIds_;
    /// materialIds_ as a table by id, for the per-pixel test.
    std::vector<std::uint8_t> listed_;
    SurfaceFrame frame_;
    Vector<3> startNormal_;
    bool startIsBackground_ = false;
    double planeTolerance_ = 0;
    double angleSine_ = 0;
    ColourPOD rangeLow_;
    ColourPOD rangeHigh_;
    Angle startHue_;
    double startLightness_ = 0;
    double startSaturation_ = 0;
    double hueTolerance_ = 0;
    double lightnessTolerance_ = 0;
    double saturationTolerance_ = 0;
    ZmapDocument* document_ = nullptr;
    /// The channels the locks read, fixed for the stroke at `start`: colour, depth and
    /// material of the undo store's current level, or the originals.
    TQL::Handle<TileBitmap> read_[3];
};
