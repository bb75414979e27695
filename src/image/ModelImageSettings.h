#pragma once

#include "core/Point.h"

#include <array>
#include <cstdint>

/// How a model becomes a new document: the kind of view, the camera, the sun and the cut.
struct ModelImageSettings {
    enum class View : std::int32_t {
        perspective = 0,
        parallel = 1,
        /// A cube panorama: the image is six square faces side by side (width = 6 height).
        cubic = 2,
    };

    View view = View::perspective;
    /// Fit the camera to the model: a three-quarter view from the south-south-east looking
    /// down on the model (steeply on a flat one, less on a tall one) for a perspective or
    /// parallel view, and from the middle of the model at eye height (1.6 m above its
    /// lowest point) for a panorama, with the whole model in view. Otherwise the camera is
    /// `eye`, `target` and `fieldOfView`.
    bool fit = true;
    /// In model units.
    Point<3> eye{0, -10, 1.6};
    Point<3> target{0, 0, 1.6};
    /// Degrees across the image's width (perspective only; a parallel view is fitted to
    /// the model across the direction of view).
    double fieldOfView = 60;
    /// The sun: a compass bearing (clockwise from north, +y) and a height above the
    /// horizon, in degrees.
    double sunAzimuth = 235;
    double sunElevation = 35;
    bool shadows = true;
    /// Fractions of the model's bounds, low x, y, z then high x, y, z; all zero (or any
    /// empty box) cuts nothing.
    std::array<double, 6> section{};
    /// Shade every face flat, even where the model is smooth.
    bool flat = false;
};
