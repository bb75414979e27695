#pragma once

#include "applicators/MaskProfile.h"
#include "applicators/PenMask.h"
#include "applicators/PenMask2d.h"
#include "core/Handle.h"
#include "core/Plane.h"
#include "views/cameras/SurfaceFrame.h"

#include <cstdint>
#include <memory>
#include <vector>

class ViewProj;

/// Maps a pixel of a surface dab to its cell: the pixel's point on the surface, its
/// projections on the dab's two axes, scaled and offset and clamped to the grid.
class PenMaskTransform3d : public PenMaskTransform {
public:
    PenMaskTransform3d(const SurfaceFrame& frame, TQL::Handle<ViewProj> view,
                       const Point<3>& corner, const Vector<3>& u, const Vector<3>& v,
                       double scaleU, double scaleV, std::int32_t width, std::int32_t height);
    Point<2> toMask(const Point<2>& image) const override;
    Point<2> toImage(const Point<2>& cell) const override;
    IVector<2> size() const override { return {width_, height_}; }

private:
    SurfaceFrame frame_;
    TQL::Handle<ViewProj> view_;
    Point<3> corner_; ///< the world point of cell (0, 0)
    Vector<3> u_;     ///< unit axes of the grid on the surface
    Vector<3> v_;
    double scaleU_; ///< cells per model unit
    double scaleV_;
    std::int32_t width_;
    std::int32_t height_;
};

/// The picture of a surface dab: a square grid of coverage (and colour) over the dab's
/// extent in mask units, -1 to 1 on both axes, and the placement of the present dab on
/// the surface. It answers rows of pixels by finding each pixel's point on the surface.
class Brush3DTexture {
public:
    /// Fills the grid from a sampler of mask coordinates.
    template <class Sample> void fill(std::int32_t cells, Sample sample);
    void setColour(std::vector<ColourPOD> colours) { colours_ = std::move(colours); }

    /// Lays the dab: centre on the surface, unit axes, radii in model units.
    void place(const SurfaceFrame& frame, TQL::Handle<ViewProj> view, const Point<3>& centre,
               const Vector<3>& u, const Vector<3>& v, double radiusU, double radiusV);

    void multiplyRow(std::int32_t x, std::int32_t y, float* row, std::int32_t first,
                     std::int32_t last) const;
    void colourRow(std::int32_t x, std::int32_t y, ColourPOD* row, std::int32_t first,
                   std::int32_t last) const;
    bool hasColour() const { return !colours_.empty(); }
    std::unique_ptr<PenMaskTransform> transform() const;

    std::int32_t cells() const { return cells_; }
    const std::vector<float>& values() const { return values_; }

private:
    /// The cell of pixel (x, y), or false when the pixel is off the dab or the surface.
    bool cellAt(double x, double y, std::int32_t& column, std::int32_t& row) const;

    std::int32_t cells_ = 0;
    std::vector<float> values_;
    std::vector<ColourPOD> colours_;
    SurfaceFrame frame_;
    TQL::Handle<ViewProj> view_;
    Point<3> centre_;
    Vector<3> u_;
    Vector<3> v_;
    double radiusU_ = 1;
    double radiusV_ = 1;
};

template <class Sample> void Brush3DTexture::fill(std::int32_t cells, Sample sample) {
    cells_ = cells;
    values_.resize(static_cast<std::size_t>(cells) * cells);
    const double half = (cells - 1) * 0.5;
    for (std::int32_t row = 0; row < cells; ++row) {
        for (std::int32_t column = 0; column < cells; ++column) {
            values_[static_cast<std::size_t>(row) * cells + column] =
                sample((column - half) / half, (row - half) / half);
        }
    }
}

/// A dab lying on the modelled surface in perspective: its size is in model units, so it
/// shrinks with distance and follows the slope of the surface. The surface is the lock or
/// effect plane of the stroke (setSurface), or else the surface under each dab.
///
/// The dab's axes: U runs along the image's rows as they lie on the surface, V across; a
/// `vertical` dab instead keeps U level in the world, so that it stands upright on walls.
class PenMask3d : public PenMask {
public:
    /// A profile dab: `modelSize` the radius along U in model units, `aspect` V over U.
    PenMask3d(double modelSize, double aspect, Angle angle, std::unique_ptr<MaskProfile> profile,
              bool round, bool vertical);
    /// A picture dab: the longer side of the picture spans 2 * modelSize.
    PenMask3d(double modelSize, double aspect, Angle angle, std::unique_ptr<MaskProfile> profile,
              const MaskPicture& picture, bool soften, bool vertical);

    void footprint(std::vector<IExtent<2>>& extents, IPoint<2> p, ZmapDocument& document) override;
    void place(IPoint<2> p, ZmapDocument& document) override;
    TQL::Handle<MaskOutline> outline() const override;
    void thumbnail(std::vector<std::uint8_t>& bytes, std::int32_t& width,
                   std::int32_t& height) const override;
    void multiplyRow(std::int32_t x, std::int32_t y, float* row, std::int32_t first,
                     std::int32_t last) const override;
    void colourRow(std::int32_t x, std::int32_t y, ColourPOD* row, std::int32_t first,
                   std::int32_t last) const override;
    bool hasColour() const override { return texture_.hasColour(); }
    double distance(IPoint<2> a, IPoint<2> b, const ZmapDocument& document) const override;
    void bounds(IExtent<2>& extent, const ZmapDocument& document, IPoint<2> p) const override;
    void prepare(ZmapDocument& document) override;
    void setSurface(const SurfaceFrame& frame) override;
    void clearSurface() override;
    std::unique_ptr<PenMaskTransform> transform() const override;
    double size() const override { return modelSize_; }
    Angle angle() const override { return angle_; }
    void reshape(double size, Angle angle) override;
    void setLevel(float level) override;

    bool onPlane() const { return onPlane_; }
    bool round() const { return round_; }
    const Vector<3>& axisU() const { return u_; }
    const Vector<3>& axisV() const { return v_; }
    const Point<3>& centre() const { return centre_; }

private:
    struct Placement {
        SurfaceFrame frame;
        Point<3> centre;
        Vector<3> u;
        Vector<3> v;
        bool valid = false;
    };
    Placement placementAt(IPoint<2> p, const ZmapDocument& document) const;
    Point<3> worldOf(IPoint<2> p, const ZmapDocument& document) const;
    void build();
    double radiusV() const { return modelSize_ * aspect_; }

    std::unique_ptr<MaskProfile> profile_;
    MaskPicture picture_;
    bool soften_ = false;
    bool round_ = true;
    bool vertical_ = false;
    double modelSize_ = 1;
    double aspect_ = 1;
    Angle angle_;

    bool onPlane_ = false;
    SurfaceFrame plane_;
    SurfaceFrame frame_; ///< the placed dab's surface
    TQL::Handle<ViewProj> view_;
    Point<3> centre_;
    Vector<3> u_{1, 0, 0};
    Vector<3> v_{0, 1, 0};
    bool placed_ = false;
    Brush3DTexture texture_;
};
