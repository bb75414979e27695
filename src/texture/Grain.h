#pragma once

#include "core/Point.h"
#include "pipeline/PipelineTool.h"
#include "texture/AlphaNoiseTexture.h"
#include "texture/Texture.h"
#include "views/cameras/ViewProj.h"

#include <cstdint>
#include <string>

namespace tex {

/// Paper grain from procedural noise. On a flat image the noise is read at (pixel x,
/// pixel y, 0.33333334); on a cube image at the pixel's direction at unit length times half
/// the face size, so the grain runs on across face edges. Footprint 1: one octave a pixel.
class NoiseGrain : public GrainTool {
public:
    explicit NoiseGrain(const TQL::Handle<AlphaNoiseTexture>& noise);

    void run(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    /// A blend from a dark to a light colour by the value, over the bitmap's size (128 x 128
    /// when it is 0).
    void preview(PreviewBitmap& bitmap) override;
    /// The same at 48 x 48 by default.
    void thumbnail(PreviewBitmap& bitmap) override;

    /// Notes the image's kind without a document (start does this from the document).
    void setCubic(const TQL::Handle<ViewProj>& viewProj);

private:
    TQL::Handle<AlphaNoiseTexture> noise_;
    TQL::Handle<ViewProj> cubic_; ///< set for a cube image
    std::int32_t faceSize_ = 0;
};

/// Where a raster grain lies on the image: its scale in image pixels per grain pixel, a
/// rotation, an offset in grain pixels and the hook (the image point the grain is placed
/// from; with `hookFloats`, the point where each stroke starts).
struct RasterGrainPlacement {
    double scaleX = 1.0;
    double scaleY = 1.0;
    double angleDegrees = 0.0;
    Point<2> offset{0, 0};
    Point<2> hook{0, 0};
    bool hookFloats = false;
};

/// Paper grain from a raster: the grey of the texture (or its alpha, when it has no
/// colour) at the rotated and scaled position, through the bias curve. On a cube image
/// the grain is laid on each face the same way.
class RasterGrain : public GrainTool {
public:
    RasterGrain(const TQL::Handle<Texture2d>& texture, const RasterGrainPlacement& placement,
                double bias, bool invert);

    void run(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    void preview(PreviewBitmap& bitmap) override;
    void thumbnail(PreviewBitmap& bitmap) override;

private:
    void values(float* out, const float* px, const float* py, int count) const;

    TQL::Handle<Texture2d> texture_;
    RasterGrainPlacement placement_;
    BiasCurve curve_;
    Point<2> hook_;
    std::int32_t faceSize_ = 0;
};

/// Grain of a solid texture that follows the scene: read at the pixel's world point less
/// the eye, with the footprint of the pixel's width at its depth.
class CubeGrain : public GrainTool {
public:
    CubeGrain(const TQL::Handle<Texture3d>& texture, double bias, bool invert);

    void run(Span& span, int first, int last) override;
    void start(int x, int y, ZmapDocument& document) override;
    void preview(PreviewBitmap& bitmap) override;
    void thumbnail(PreviewBitmap& bitmap) override;

private:
    TQL::Handle<Texture3d> texture_;
    BiasCurve curve_;
    TQL::Handle<ViewProj> viewProj_;
    Point<3> eye_;
};

/// Grain from the image's own brightness: (r + g + b) / 765 of the image as it was before
/// the stroke, or of the original image with `useOriginal`, through the bias curve.
class RgbGrain : public GrainTool {
public:
    RgbGrain(bool useOriginal, double bias, bool invert);

    void run(Span& span, int first, int last) override;
    void preview(PreviewBitmap& bitmap) override;
    void thumbnail(PreviewBitmap& bitmap) override;

private:
    bool useOriginal_;
    BiasCurve curve_;
};

/// The grain of a stored style: the grain that the style's keys make, under the style's
/// name (library and category).
class StyleGrain : public GrainTool {
public:
    StyleGrain(std::wstring library, std::wstring category, const TQL::Handle<GrainTool>& grain);

    void run(Span& span, int first, int last) override { grain_->run(span, first, last); }
    void start(int x, int y, ZmapDocument& document) override { grain_->start(x, y, document); }
    void finish() override { grain_->finish(); }
    void preview(PreviewBitmap& bitmap) override { grain_->preview(bitmap); }
    void thumbnail(PreviewBitmap& bitmap) override { grain_->thumbnail(bitmap); }

    const std::wstring& library() const { return library_; }
    const std::wstring& category() const { return category_; }
    const TQL::Handle<GrainTool>& grain() const { return grain_; }

private:
    std::wstring library_;
    std::wstring category_;
    TQL::Handle<GrainTool> grain_;
};

} // namespace tex
