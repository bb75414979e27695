#pragma once

#include "core/Handle.h"
#include "core/Point.h"
#include "texture/TextureToolBase.h"

class ViewProj;

namespace tex {

class Texture3d;

/// A cube picture seen from the view's eye: each pixel reads the cube in the direction from
/// the eye to its world point (a pixel without depth at the far depth), turned by an angle
/// about an axis. The footprint is the world width of the pixel at its point, which the
/// cube texture turns into an angle.
class TextureToolCube : public TextureToolBase {
public:
    TextureToolCube(const TQL::Handle<Texture3d>& cube, const Vector<3>& axis, double angleDegrees,
                    const TextureOutput& output);

    void run(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    /// The cube follows the eye, not a placing.
    void setAxes(const TextureAxes& axes) override {}
    void preview(PreviewBitmap& bitmap) override;

    /// The direction (before the turn is applied: after it) in which pixel (x, y) reads
    /// the cube; false before a start.
    bool pixelDirection(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                        Vector<3>& direction, double& footprint) const;

private:
    TQL::Handle<Texture3d> cube_;
    Vector<3> axis_;
    double cosine_ = 1.0;
    double sine_ = 0.0;
    Point<3> eye_;
    TQL::Handle<ViewProj> view_;
};

} // namespace tex
