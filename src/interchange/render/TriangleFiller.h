#pragma once

#include "interchange/render/RenderBand.h"
#include "interchange/render/ScreenVertex.h"
#include "views/cameras/DepthCoder.h"

#include <cstdint>

class BandShader;

/// The scan conversion of triangles into a band.
///
/// Coverage. A pixel's centre is its integer coordinates (x, y). A pixel is drawn by a
/// triangle when its centre lies inside it, with the top-left rule on the boundary: rows
/// from ceil(top) up to but not including ceil(bottom), and in each row the pixels from
/// ceil(left edge) up to but not including ceil(right edge). The x where an edge meets a
/// row is computed from the edge's upper end with the edge's own slope, the same numbers
/// for both triangles that share the edge, so shared edges are drawn once, with no gap and
/// no overlap.
///
/// Depth. The camera's screen z is linear over a triangle in screen space (in a
/// perspective camera z is an inverse depth, which is what makes that true); it is
/// interpolated from the corners' z that the camera's own project gave, and turned into a
/// depth code by the camera's DepthCoder: the codes are those of the camera, not an
/// approximation. The nearest surface wins: a code less than or equal to the one already
/// at the pixel replaces it.
class TriangleFiller {
public:
    /// With `immediateShading` a pixel that needs shading work is shaded as soon as it
    /// wins its depth test; otherwise its work waits for BandShader::shadeBand. With
    /// `vectorRows` (and a processor that has them) rows are filled several pixels at a
    /// time with the processor's vector instructions: the same codes, bit for bit.
    TriangleFiller(const DepthCoder& coder, BandShader& shader, bool immediateShading,
                   bool vectorRows = true);

    /// This build and processor can fill rows several pixels at a time.
    static bool vectorRowsAvailable();

    /// Fills the convex polygon of `count` projected corners (a fan from the first) with
    /// `shade`, within the band's rows.
    void fillPolygon(RenderBand& band, const TriangleShade& shade, const ScreenVertex* polygon,
                     int count);

private:
    template <DepthCoder::Kind K>
    void fill(RenderBand& band, const TriangleShade& shade, const ScreenVertex& a,
              const ScreenVertex& b, const ScreenVertex& c);

    DepthCoder coder_;
    BandShader& shader_;
    bool immediateShading_;
    bool vectorRows_;
};
