#pragma once

#include "core/Point.h"

#include <array>
#include <cstdint>
#include <span>
#include <vector>

/// Ear clipping of plane polygons with holes, on 2D coordinates. Vertices are named by
/// ids that index `coords`; output triangles are id triples, counter-clockwise in 2D.
/// Coincident vertices (such as the two ends of a hole's bridge), collinear runs and
/// spikes are tolerated; a polygon of zero area gives no triangle.
class PolygonTriangulator {
public:
    using Triangle = std::array<std::uint32_t, 3>;

    /// `coords` must outlive the triangulator.
    explicit PolygonTriangulator(std::span<const Point<2>> coords) : coords_(coords) {}

    /// One ring that runs round the outer boundary and, through a pair of bridge edges
    /// each, round every hole. The outer ring is made counter-clockwise and the holes
    /// clockwise; a hole that no ray from it reaches the boundary (one lying outside)
    /// is left out.
    std::vector<std::uint32_t>
    joinHoles(std::span<const std::uint32_t> outer,
              const std::vector<std::vector<std::uint32_t>>& holes) const;

    /// Triangulates a ring (made counter-clockwise first if it is not), appending to
    /// `out`. Returns the number of triangles added.
    std::size_t triangulate(std::span<const std::uint32_t> ring, std::vector<Triangle>& out) const;

    /// Twice the signed area of a ring: positive when counter-clockwise.
    double signedArea2(std::span<const std::uint32_t> ring) const;

private:
    std::span<const Point<2>> coords_;
};
