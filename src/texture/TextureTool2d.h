#pragma once

#include "core/Handle.h"
#include "core/Point.h"
#include "texture/TextureToolBase.h"

namespace tex {

class Texture2d;

/// Where a flat texture lies on the image: image pixels per raster pixel on each axis, a
/// turn, the raster point (in raster pixels) that the hook shows, and the hook itself (the
/// image point the raster is laid from; with `hookFloats`, the point where each stroke
/// starts). `stretched` fits the raster to the whole image (the scales are then worked out
/// at the stroke's start).
struct Placing2d {
    double scaleX = 1.0;
    double scaleY = 1.0;
    double angleDegrees = 0.0;
    Point<2> offset{0, 0};
    Point<2> hook{0, 0};
    bool hookFloats = false;
    bool stretched = false;
};

/// A raster laid flat on the image, with no depth: pixel (x, y) reads the raster at
///   u = ((x - hx) c + (y - hy) s) / sx + ou,   v = ((y - hy) c - (x - hx) s) / sy + ov
/// with c, s the cosine and sine of the turn, footprint the smaller of 1/sx and 1/sy.
class TextureTool2d : public TextureToolBase {
public:
    TextureTool2d(const TQL::Handle<Texture2d>& texture, const Placing2d& placing,
                  const TextureOutput& output);

    void run(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    /// A flat placing has no axes: nothing to fix.
    void setAxes(const TextureAxes& axes) override {}
    void preview(PreviewBitmap& bitmap) override;

    /// The raster point (u, v) that pixel (x, y) reads.
    Point<2> rasterPoint(double x, double y) const;

private:
    TQL::Handle<Texture2d> texture_;
    Placing2d placing_;
    Point<2> hook_;
};

} // namespace tex
