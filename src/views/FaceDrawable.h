#pragma once

#include "views/CubicDrawable.h"

#include <cstdint>

/// One face of a cube image taken out alone as an ordinary square picture, for printing
/// and export: n by n pixels, as the face lies in the strip (faces 0 to 3 upright around
/// the horizon, 4 above with face 2's side at its top, 5 below with face 0's side at its
/// top).
class FaceDrawable {
public:
    FaceDrawable(const CubeStrip& strip, int face) : strip_(strip), face_(face) {}

    int face() const { return face_; }
    std::int32_t size() const { return strip_.faceSize(); }
    /// Row y of the face, n three-byte pixels (blue, green, red).
    const std::uint8_t* row(std::int32_t y) const {
        return strip_.row(y) + std::size_t(face_) * std::size_t(strip_.faceSize()) * 3;
    }
    /// Copies row y into `out` (n three-byte pixels).
    void drawRow(std::int32_t y, std::uint8_t* out) const;

private:
    const CubeStrip& strip_;
    int face_;
};
