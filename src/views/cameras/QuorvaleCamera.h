#pragma once

#include "core/Extent.h"
#include "views/cameras/Camera.h"

/// Draws a model, placed in the world, into a rectangle of an existing image so that its
/// pixels and depth codes agree with the image's own view: a world point projected here
/// lands on the pixel, with the code, that ViewProj::pixelFromWorld gives for it (less
/// the rectangle's low corner). In a cube image the rectangle lies within one face.
class QuorvaleCamera : public TransformCamera {
public:
    /// `placing` carries object coordinates to world; `view`, `width` and `height` are the
    /// image's view record and size; `modelExtent` bounds the model in object coordinates;
    /// `rectangle` is the target in image pixels. Raises TQL::TqlError for a view code
    /// that isn't perspective, parallel or cubic, or a cube rectangle across faces.
    QuorvaleCamera(const Transform<3>& placing, const ViewParams& view, std::int32_t width,
                   std::int32_t height, const Extent<3>& modelExtent, const IExtent<2>& rectangle);
};
