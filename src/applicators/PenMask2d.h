#pragma once

#include "applicators/FaceUnfolding.h"
#include "applicators/MaskProfile.h"
#include "applicators/PenMask.h"
#include "core/Handle.h"

#include <cstdint>
#include <memory>
#include <vector>

class ViewProj;

/// A picture to make a mask of: coverage per pixel (the darkness of the picture, or its
/// alpha) and, for a picture in colour, its colour.
struct MaskPicture {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::vector<float> coverage;   ///< width * height, 0 to 1
    std::vector<ColourPOD> colour; ///< width * height, or empty for a grey picture
    bool empty() const { return width <= 0 || height <= 0; }
    /// Coverage at mask coordinates (u, v), -1 to 1 across the picture, bilinear; 0 off it.
    float at(double u, double v) const;
    /// The colour of the pixel under (u, v); black off the picture or for a grey one.
    ColourPOD colourAt(double u, double v) const;
};

/// A dab flat on the screen: a grid of coverage values (and colours, for a colour
/// picture), computed once for a size, aspect and angle, and laid with its hook on the
/// dab's position. A dab costs one multiply per pixel.
///
/// Round and square masks take their values from a MaskProfile at each cell's distance
/// from the centre in mask units (Euclidean for round, the larger coordinate for square;
/// a two-way square multiplies the fall-offs along its two axes). Picture masks sample
/// the picture.
///
/// On a cube image a dab is laid on the face of its position and goes on across that
/// face's edges onto the neighbouring faces (unfolded about the face), so that a dab at a
/// seam paints both sides of it; distances are angles between view directions in units
/// of the dab's angular radius.
class PenMask2d : public PenMask {
public:
    /// A profile mask: `size` the radius in x (pixels), `aspect` height over width.
    PenMask2d(double size, double aspect, Angle angle, std::unique_ptr<MaskProfile> profile,
              bool round, bool twoWay);
    /// A picture mask: the longer side of the picture spans 2 * size pixels. With `soften`
    /// the profile also fades the picture towards its rim.
    PenMask2d(double size, double aspect, Angle angle, std::unique_ptr<MaskProfile> profile,
              const MaskPicture& picture, bool soften);

    void footprint(std::vector<IExtent<2>>& extents, IPoint<2> p, ZmapDocument& document) override;
    void place(IPoint<2> p, ZmapDocument& document) override;
    TQL::Handle<MaskOutline> outline() const override;
    void thumbnail(std::vector<std::uint8_t>& bytes, std::int32_t& width,
                   std::int32_t& height) const override;
    void multiplyRow(std::int32_t x, std::int32_t y, float* row, std::int32_t first,
                     std::int32_t last) const override;
    void colourRow(std::int32_t x, std::int32_t y, ColourPOD* row, std::int32_t first,
                   std::int32_t last) const override;
    bool hasColour() const override { return !colours_.empty(); }
    double distance(IPoint<2> a, IPoint<2> b, const ZmapDocument& document) const override;
    void bounds(IExtent<2>& extent, const ZmapDocument& document, IPoint<2> p) const override;
    void prepare(ZmapDocument& document) override;
    std::unique_ptr<PenMaskTransform> transform() const override;
    double size() const override { return size_; }
    Angle angle() const override { return angle_; }
    void reshape(double size, Angle angle) override;
    void setLevel(float level) override;
    void setHook(double hookX, double hookY) override;

    /// Breaks the dab into `count` round bristles covering `percent` of its area.
    void setBristles(std::int32_t count, double percent);

    std::int32_t gridWidth() const { return width_; }
    std::int32_t gridHeight() const { return height_; }
    /// The grid's cell under the dab's position.
    IPoint<2> hook() const { return hook_; }
    /// The value of a cell (0 outside the grid).
    float cell(std::int32_t column, std::int32_t row) const;
    const MaskProfile& profile() const { return *profile_; }
    bool round() const { return round_; }
    bool onCube() const { return onCube_; }
    /// The angle a dab spans on a cube image (set by prepare).
    double angularSize() const { return angularSize_; }

private:
    void build();
    /// The cube rows: row[first..last) split at face edges, each run read from the grid
    /// through the unfolding about the dab's face (0 on faces it doesn't reach).
    template <typename Cell>
    void unfoldedRow(std::int32_t x, std::int32_t y, std::int32_t first, std::int32_t last,
                     Cell&& cell) const;
    /// Coverage at mask coordinates (u, v), -1 to 1 across the dab.
    float sample(double u, double v) const;
    ColourPOD sampleColour(double u, double v) const;

    std::unique_ptr<MaskProfile> profile_;
    MaskPicture picture_;
    bool round_ = true;
    bool twoWay_ = false;
    bool soft_ = false;
    double size_ = 1;
    double aspect_ = 1;
    Angle angle_;
    double hookX_ = 0.5;
    double hookY_ = 0.5;
    std::int32_t bristles_ = 0;
    double bristlesPercent_ = 0;
    /// Image offset to mask units, and mask units to image offset.
    double toMask_[2][2] = {{1, 0}, {0, 1}};
    double toImage_[2][2] = {{1, 0}, {0, 1}};

    std::int32_t width_ = 0;
    std::int32_t height_ = 0;
    IPoint<2> hook_;
    std::vector<float> values_;
    std::vector<ColourPOD> colours_;
    IPoint<2> origin_; ///< the image pixel of cell (0, 0) for the placed dab

    bool onCube_ = false;
    std::int32_t faceSize_ = 0;
    FaceUnfolding unfolding_;
    std::int32_t face_ = 0; ///< the face of the placed dab
    double angularSize_ = 0;
    TQL::Handle<ViewProj> camera_;
};
