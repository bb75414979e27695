#pragma once

#include "core/Extent.h"

#include <cstdint>

/// The seams of a cube image, where stitching makes neighbouring faces agree. The six faces
/// are laid out as a strip: face s holds columns s * n to
/// (s + 1) * n - 1 of rows 0 to n - 1. Faces 0 to 3 run around the horizon, 4 is above and
/// 5 below. Neighbouring faces overlap by one pixel: a pixel on a face's edge stands for the
/// same direction as the edge pixel of the neighbouring face, so it has copies there: one
/// further copy on an edge, two at a corner.
class CubeSeams {
public:
    /// `faceSize` is n, at least 2.
    explicit CubeSeams(std::int32_t faceSize) : n_(faceSize) {}

    std::int32_t faceSize() const { return n_; }
    /// True when (x, y) lies on the strip.
    bool contains(std::int32_t x, std::int32_t y) const {
        return x >= 0 && y >= 0 && x < 6 * n_ && y < n_;
    }

    /// All pixels standing for the direction of (x, y), itself included, ordered by x, then
    /// y. Returns their number: 1 inside a face, 2 on an edge, 3 at a corner.
    std::int32_t copies(std::int32_t x, std::int32_t y, IPoint<2> (&out)[3]) const;
    /// Moves (x, y) to the next of its copies in a fixed cycle (by x, then y) and returns
    /// the number of copies; count - 1 calls visit every other copy.
    std::int32_t nextCopy(std::int32_t& x, std::int32_t& y) const;
    /// The copy of (x, y) least by x, then y: the one that stands for all of them.
    IPoint<2> canonicalPixel(std::int32_t x, std::int32_t y) const;

private:
    /// The pixel across the left (right, top, bottom) edge of the face, for a pixel on that
    /// edge: the neighbouring face's own edge pixel.
    IPoint<2> acrossLeft(std::int32_t x, std::int32_t y) const;
    IPoint<2> acrossRight(std::int32_t x, std::int32_t y) const;
    IPoint<2> acrossTop(std::int32_t x, std::int32_t y) const;
    IPoint<2> acrossBottom(std::int32_t x, std::int32_t y) const;

    std::int32_t n_;
};
