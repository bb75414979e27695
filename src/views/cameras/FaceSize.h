#pragma once

#include "core/Extent.h"

#include <cstdint>

/// The face size of a cube panorama, and the operations on pixels that follow from it. A
/// cube image is six square faces of n by n pixels side by side,
/// face s holding columns s n to (s + 1) n - 1. Faces 0 to 3 run around the horizon
/// (looking along +Z, +X, -Z, -X of the view), 4 is above and 5 below.
///
/// The faces overlap by one pixel: a pixel on a face's edge stands for the same direction
/// as the edge pixel of the neighbouring face, so the true next pixel across an edge is
/// the second one in from the neighbour's edge. A size of 0 means "not a cube image".
class FaceSize {
public:
    constexpr FaceSize() = default;
    constexpr explicit FaceSize(std::int32_t n) : n_(n) {}

    /// The face size n in pixels, 0 for an image that is not a cube.
    constexpr std::int32_t size() const { return n_; }
    /// The face holding column x, 0 to 5 (columns outside the strip wrap around).
    std::int32_t faceOf(std::int32_t x) const;

    /// One pixel to the left, across a face edge if need be. Returns true when the step
    /// crossed an edge; x and y are then the neighbour face's second pixel in.
    bool stepLeft(std::int32_t& x, std::int32_t& y) const;
    bool stepRight(std::int32_t& x, std::int32_t& y) const;
    bool stepUp(std::int32_t& x, std::int32_t& y) const;
    bool stepDown(std::int32_t& x, std::int32_t& y) const;

    /// True when (x, y) lies on the strip of six faces.
    constexpr bool contains(std::int32_t x, std::int32_t y) const {
        return x >= 0 && y >= 0 && x < 6 * n_ && y < n_;
    }

    /// All pixels that stand for the direction of (x, y), itself included, ordered by x,
    /// then y. Returns their number: 1 inside a face, 2 on an edge, 3 at a corner.
    int copies(std::int32_t x, std::int32_t y, IPoint<2> (&out)[3]) const;
    /// The number of pixels that stand for the direction of (x, y): 1 inside a face, 2 on
    /// an edge, 3 at a corner. Moves (x, y) to the next of them in a fixed cycle, so that
    /// count - 1 calls visit every copy once.
    int nextCopy(std::int32_t& x, std::int32_t& y) const;
    /// The copy of (x, y) that is least by x, then by y: the key of a shared pixel.
    IPoint<2> canonicalPixel(std::int32_t x, std::int32_t y) const;

    /// The pixels of `face` within `radius` pixel steps of (x, y), the square around the
    /// pixel continued across the edges of its face. On the pixel's own face that is the
    /// square clipped to the face; on a neighbouring face the strip beyond the shared
    /// edge (which is not repeated); empty on a face that the radius doesn't reach.
    IExtent<2> faceWindow(std::int32_t x, std::int32_t y, std::int32_t radius,
                          std::int32_t face) const;

private:
    enum class Edge { left, right, top, bottom };
    /// From a pixel on the given edge of its face to the neighbour face, `inset` pixels in
    /// from the neighbour's edge (0: the neighbour's copy of the pixel).
    void cross(Edge edge, std::int32_t& x, std::int32_t& y, std::int32_t inset) const;

    std::int32_t n_ = 0;
};
