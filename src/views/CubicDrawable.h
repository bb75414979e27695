#pragma once

#include "core/Colour.h"
#include "core/Point.h"
#include "core/Status.h"
#include "core/Transform.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

class ZmapDocument;

/// Where a panorama view looks from the cube's centre, in degrees: `pan` turns to the
/// right about the vertical (0 looks along face 0, 90 along face 1), `tilt` up (90 looks
/// straight up at face 4), `fieldOfView` is the angle across the view's width.
struct PanoramaAngles {
    double pan = 0;
    double tilt = 0;
    double fieldOfView = 90;

    bool operator==(const PanoramaAngles&) const = default;
};

/// A cube image's strip of six faces as plain rows of three-byte pixels (blue, green,
/// red): what the panorama view and the exports sample. 6 n by n pixels, rows `stride`
/// bytes apart.
class CubeStrip {
public:
    /// Makes a black strip of faces n by n (n at least 2).
    void allocate(std::int32_t faceSize);
    std::int32_t faceSize() const { return n_; }
    std::int32_t width() const { return 6 * n_; }
    std::int32_t stride() const { return stride_; }
    std::uint8_t* row(std::int32_t y) { return pixels_.data() + std::size_t(y) * stride_; }
    const std::uint8_t* row(std::int32_t y) const {
        return pixels_.data() + std::size_t(y) * stride_;
    }
    ColourPOD pixel(std::int32_t x, std::int32_t y) const;

    /// Copies a rectangle of rows into the strip at (x, y), clipped to it.
    void copyIn(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                const std::uint8_t* rgb, std::int32_t stride);

    /// Bilinear sample of strip point (x, y) on `face`: the point is clamped to the face,
    /// and the taps never leave it. Because neighbouring faces share their edge pixels, a
    /// sample near an edge agrees with the same direction sampled on the other face.
    ColourPOD sampleFace(std::int32_t face, double x, double y) const;
    /// The colour seen along a direction in the cube's axes (any length but zero).
    ColourPOD sampleDirection(const Vector<3>& direction) const;

    /// Reads channel `channel` (as the views display it) of a cube document into `strip`.
    /// -12 for a document that isn't a strip of six square faces of at least 2 pixels,
    /// -13 without the channel, -25 when `abort` was set.
    static void read(Status& status, const ZmapDocument& document, std::uint32_t channel,
                     CubeStrip& strip, const std::atomic<bool>* abort = nullptr);

private:
    std::int32_t n_ = 0;
    std::int32_t stride_ = 0;
    std::vector<std::uint8_t> pixels_;
};

/// The face a direction falls on, by its dominant axis (ties as the cube pixels resolve
/// them): 0 +Z, 1 +X, 2 -Z, 3 -X, 4 +Y, 5 -Y.
int cubeFaceOf(const Vector<3>& d);

/// Draws a view of a cube through a virtual camera at its centre.
///
/// A view pixel (vx, vy) is a ray of the camera; six affine transforms, one a face, take
/// the view point (vx, vy, 0) to homogeneous face coordinates (X, Y, W): the strip pixel
/// is (X / W, Y / W), W > 0 on the side of the cube the face is on. Each is the camera's
/// ray map (a translation by the negated view centre, turned by pan and tilt) followed by
/// the face's axes, and each further face adds twice the half face along the strip. The
/// transforms are rebuilt whenever the angles or the view's size change (a new drawable).
class CubicDrawable {
public:
    static constexpr double minFieldOfView = 10.0;
    static constexpr double maxFieldOfView = 120.0;
    /// One wheel notch (120 units of angle) narrows the field by this factor.
    static constexpr double wheelStepFactor = 1.1;

    static double clampFieldOfView(double degrees);
    /// The field of view after a wheel turn of `angleDelta` units (positive: away from the
    /// user, which zooms in), clamped.
    static double wheelFieldOfView(double degrees, int angleDelta);
    /// Tilt clamped to straight up and down; pan brought into [0, 360).
    static PanoramaAngles normalised(const PanoramaAngles& angles);

    CubicDrawable(std::int32_t faceSize, std::int32_t viewWidth, std::int32_t viewHeight,
                  const PanoramaAngles& angles);

    std::int32_t faceSize() const { return n_; }
    std::int32_t viewWidth() const { return width_; }
    std::int32_t viewHeight() const { return height_; }
    const PanoramaAngles& angles() const { return angles_; }
    /// The transform of `face` from view to homogeneous face coordinates.
    const AffineTransform<3>& faceTransform(int face) const {
        return faces_[static_cast<std::size_t>(face)];
    }

    /// The ray of view point (vx, vy) in the cube's axes (not unit length).
    Vector<3> direction(double vx, double vy) const;
    /// The strip point (real pixel coordinates) that view point (vx, vy) shows, and its face.
    Point<2> stripPoint(double vx, double vy, int* face = nullptr) const;
    /// The view point that shows strip point (x, y); false when it lies behind the camera.
    bool viewPoint(double x, double y, Point<2>& out) const;

    /// Draws view row `y` (all viewWidth pixels, three bytes each) from `strip`.
    void drawRow(const CubeStrip& strip, std::int32_t y, std::uint8_t* out) const;

private:
    std::int32_t n_;
    std::int32_t width_;
    std::int32_t height_;
    PanoramaAngles angles_;
    AffineTransform<3> camera_; ///< view point to ray
    std::array<AffineTransform<3>, 6> faces_;
};
