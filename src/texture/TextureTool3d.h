#pragma once

#include "core/Handle.h"
#include "texture/TextureToolBase.h"
#include "views/cameras/SurfaceFrame.h"

class ViewProj;

namespace tex {

class Texture3d;

/// A solid texture (noise) in the scene: each pixel reads it at its world point divided by
/// the solid's scale. The footprint is the Chebyshev distance (largest of |dx|, |dy|, |dz|)
/// to the world point of a horizontal and of a vertical neighbour, the smaller of the two
/// neighbours on each axis that have depth and lie on the pixel's face, joined by
/// `balanceFootprint`. With fixed axes the pixels are taken on the axes' plane.
class TextureTool3d : public TextureToolBase {
public:
    /// `scaleMillimetres`: the real size of one unit of the solid.
    TextureTool3d(const TQL::Handle<Texture3d>& texture, double scaleMillimetres,
                  const TextureOutput& output);

    void run(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    void setAxes(const TextureAxes& axes) override;
    /// A slice through the solid, one unit of it to 16 preview pixels.
    void preview(PreviewBitmap& bitmap) override;

    /// The solid point and footprint that pixel (x, y) reads; false before a start.
    bool pixelSample(const ZmapDocument& document, std::int32_t x, std::int32_t y, Point<3>& point,
                     double& footprint) const;

private:
    /// The pixel's point in solid units; false without depth.
    bool solidPoint(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                    Point<3>& point) const;

    TQL::Handle<Texture3d> texture_;
    double scaleMillimetres_;
    double scale_ = 1.0; ///< world units per solid unit
    TQL::Handle<ViewProj> view_;
    std::int32_t faceSize_ = 0;
    bool axesFixed_ = false;
    TextureAxes axes_;
    SurfaceFrame planeDepth_;
};

} // namespace tex
