#pragma once

#include "core/Angle.h"
#include "core/Extent.h"
#include "views/cameras/Camera.h"

/// How a placing style sets a model up: scale values for x, y and z, mirrors, and two
/// angles.
struct ThumbPlacing {
    double scaleX = 1;
    double scaleY = 1;
    double scaleZ = 1;
    /// Mirrors the model's x.
    bool reflectX = false;
    /// Mirrors the axis that scaleY scales.
    bool reflectY = false;
    /// About the vertical.
    Angle turn;
    Angle spin;
};

/// Draws a model alone into a thumbnail of width by height pixels, fitted to it with a
/// pixel to spare on each side, seen in perspective from five times its radius.
class ThumbCamera : public TransformCamera {
public:
    /// With `allowQuarterTurn`, a flat model (wider in x and y, after scaling, than ten
    /// times its thickness) is shown from above rather than edge on.
    ThumbCamera(std::int32_t width, std::int32_t height, const ThumbPlacing& placing,
                const Extent<3>& modelExtent, bool allowQuarterTurn);
};
