#pragma once

#include "core/Plane.h"
#include "interchange/model/Model.h"
#include "interchange/render/ScreenVertex.h"
#include "views/cameras/DepthCoder.h"

#include <cstdint>
#include <vector>

class Camera;

/// The planes that cut triangles before they are drawn, in model coordinates, and the
/// cutting. The first six are the view volume's: the near plane (depth code 0; nothing
/// behind the eye is drawn), the far plane (code 4294967294) and four side planes a guard
/// band of 2 (width + height) + 16 pixels outside the image (they only keep screen
/// coordinates within range; the rows and spans do the exact cut). The section box's
/// planes follow. The inside of a plane is its positive side, and a point on a plane
/// counts as inside.
///
/// A new corner on an edge is computed from the edge's two ends taken in one fixed order
/// (by their coordinates), so that the neighbours sharing the edge make the same point.
class TriangleClipper {
public:
    static constexpr std::uint32_t nearPlaneBit = 1;
    static constexpr std::size_t viewPlaneCount = 6;

    TriangleClipper(const Camera& camera, const DepthCoder& coder, std::int32_t width,
                    std::int32_t height, const SectionBox& sectionBox, const Extent<3>& bounds);

    /// One bit a plane, set where `p` lies outside it.
    std::uint32_t outsideBits(const Point<3>& p) const { return outsideOf(p, 0); }
    /// The same for the section box's planes only.
    std::uint32_t sectionOutsideBits(const Point<3>& p) const {
        return outsideOf(p, viewPlaneCount);
    }
    /// The bits of the section box's planes.
    std::uint32_t sectionBits() const;

    /// Cuts `polygon` by the planes whose bits are set in `outside`; returns the corner
    /// count left. New corners are not projected.
    int clip(std::vector<ScreenVertex>& polygon, std::uint32_t outside);

private:
    std::uint32_t outsideOf(const Point<3>& p, std::size_t first) const;

    std::vector<Plane> planes_;
    std::vector<ScreenVertex> scratch_;
};
