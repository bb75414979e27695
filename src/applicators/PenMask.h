#pragma once

#include "core/Angle.h"
#include "core/Colour.h"
#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Point.h"

#include <cstdint>
#include <memory>
#include <vector>

class SurfaceFrame;
class ZmapDocument;

/// The outline of a dab for the brush cursor: a closed Bézier path (control points in the
/// order start, handle, handle, end, handle, ...), in image pixels relative to the dab's
/// centre for a flat mask, or as world points for a mask lying on a surface.
class MaskOutline : public TQL::Handlable {
public:
    bool threeD = false;
    std::vector<Point<2>> imagePoints;
    std::vector<Point<3>> worldPoints;
};

/// Maps an image pixel to a cell of the mask's grid and back, for the dab's present
/// position.
class PenMaskTransform {
public:
    virtual ~PenMaskTransform() = default;
    /// The cell under an image point.
    virtual Point<2> toMask(const Point<2>& image) const = 0;
    /// The image point of a cell.
    virtual Point<2> toImage(const Point<2>& cell) const = 0;
    /// Width and height of the grid in cells.
    virtual IVector<2> size() const = 0;
};

/// The grid is laid with its origin (cell 0, 0) at an image pixel; cells are pixels.
class PenMaskTransform2d : public PenMaskTransform {
public:
    PenMaskTransform2d(std::int32_t originX, std::int32_t originY, std::int32_t width,
                       std::int32_t height)
        : originX_(originX), originY_(originY), width_(width), height_(height) {}
    Point<2> toMask(const Point<2>& image) const override;
    Point<2> toImage(const Point<2>& cell) const override;
    IVector<2> size() const override { return {width_, height_}; }

private:
    std::int32_t originX_;
    std::int32_t originY_;
    std::int32_t width_;
    std::int32_t height_;
};

/// The footprint of one dab: which pixels a dab at a position covers and how strongly,
/// and how far apart two positions are in units of the dab's radius (what the brush's
/// spacing is measured in). The brush calls `prepare` once a stroke, then per dab `place`,
/// `footprint` and `multiplyRow` for each row of each extent.
///
/// Masks are used on the interface thread within one stroke; they keep the state of the
/// last placed dab.
class PenMask : public TQL::Handlable {
public:
    /// The rectangles of pixels the dab at `p` touches, clipped to the image (nothing for a
    /// dab wholly outside it).
    virtual void footprint(std::vector<IExtent<2>>& extents, IPoint<2> p,
                           ZmapDocument& document) = 0;
    /// Makes `p` the dab's position (footprint does it too).
    virtual void place(IPoint<2> p, ZmapDocument& document) {}
    /// The dab's outline for the cursor.
    virtual TQL::Handle<MaskOutline> outline() const = 0;
    /// An 8-bit picture of the mask: value * 255 rounded, row by row.
    virtual void thumbnail(std::vector<std::uint8_t>& bytes, std::int32_t& width,
                           std::int32_t& height) const = 0;
    /// Multiplies row[first..last) by the placed dab's coverage; row[i] is pixel (x + i, y).
    /// Pixels outside the dab are set to 0.
    virtual void multiplyRow(std::int32_t x, std::int32_t y, float* row, std::int32_t first,
                             std::int32_t last) const = 0;
    /// The mask's own colour over the same pixels, black where it has none.
    virtual void colourRow(std::int32_t x, std::int32_t y, ColourPOD* row, std::int32_t first,
                           std::int32_t last) const = 0;
    /// The mask has colour of its own (a picture brush in colour).
    virtual bool hasColour() const = 0;
    /// How far apart two positions are, in units of the dab's radius.
    virtual double distance(IPoint<2> a, IPoint<2> b, const ZmapDocument& document) const = 0;
    /// The bounding box of a dab at `p` (not clipped to the image).
    virtual void bounds(IExtent<2>& extent, const ZmapDocument& document, IPoint<2> p) const = 0;
    /// Called at the start of a stroke.
    virtual void prepare(ZmapDocument& document) {}
    /// The stroke paints on this plane (a lock or effect plane).
    virtual void setSurface(const SurfaceFrame& frame) {}
    virtual void clearSurface() { surfaceCleared = true; }
    /// The pixel-to-cell map of the placed dab.
    virtual std::unique_ptr<PenMaskTransform> transform() const = 0;

    // Per-dab variation, used by the brush.

    /// The radius: pixels for a flat mask, model units for a surface mask.
    virtual double size() const = 0;
    virtual Angle angle() const = 0;
    /// Rebuilds the mask at another radius and angle.
    virtual void reshape(double size, Angle angle) = 0;
    /// Hands a pressure level to the profile (peak or softness) and rebuilds the values.
    virtual void setLevel(float level) = 0;
    /// Cells that the list brushes and stamps move to the dab's position (0.5, 0.5 is the
    /// centre of the grid).
    virtual void setHook(double hookX, double hookY) {}

    bool surfaceCleared = false;
};
