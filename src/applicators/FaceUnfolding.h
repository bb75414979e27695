#pragma once

#include "core/Extent.h"
#include "views/cameras/FaceSize.h"

#include <array>
#include <cstdint>
#include <vector>

/// The four faces around one face of a cube image, unfolded flat about it: each
/// neighbour turned about the shared edge into the face's own plane, so that a dab laid
/// on a face can go on across its edges. A position in the unfolded plane is given in the
/// face's strip coordinates continued past its edges: columns left of the face are less
/// than its first column, rows above it negative. The faces share their edge pixels, so
/// the neighbour's edge pixel lies on the face's own edge pixel, and its second pixel in is
/// the one just past the edge, as the face-step operations have it.
///
/// Near a corner three faces meet where the plane has four quarters: the quarter
/// diagonally beyond a corner belongs to no face, and what lies there is dropped.
class FaceUnfolding {
public:
    /// Nothing unfolds (faces smaller than 4 pixels, or not a cube).
    FaceUnfolding() = default;
    explicit FaceUnfolding(const FaceSize& faces);

    bool valid() const { return n_ >= 4; }
    std::int32_t faceSize() const { return n_; }

    /// The strip rectangles that `box` (unfolded about `face`) covers: its part on the face
    /// itself, then its parts on the neighbours it reaches. A neighbour is reached as soon
    /// as the box touches the shared edge, so that both copies of an edge pixel are covered.
    void pieces(std::int32_t face, const IExtent<2>& box, std::vector<IExtent<2>>& out) const;

    /// Where strip pixel (x, y) lies unfolded about `face`, and how far that position moves
    /// for one pixel to the right on the strip. False when the pixel's face is neither
    /// `face` nor one of its neighbours.
    bool unfold(std::int32_t face, std::int32_t x, std::int32_t y, IPoint<2>& at,
                IVector<2>& step) const;

private:
    /// One edge of a face: the neighbour across it and the turn that takes the neighbour's
    /// pixels into the face's plane, h = edge + turn (q - copy).
    struct Fold {
        std::int32_t neighbour = -1;
        std::int32_t turn[2][2] = {{1, 0}, {0, 1}};
        IPoint<2> edge;  ///< an edge pixel of the face
        IPoint<2> copy;  ///< its copy on the neighbour
        IExtent<2> band; ///< the neighbour's face, unfolded
        IExtent<2> toStrip(const IExtent<2>& unfolded) const;
    };

    std::int32_t n_ = 0;
    std::array<std::array<Fold, 4>, 6> folds_{};
};
