#pragma once

#include "core/Angle.h"
#include "core/Point.h"
#include "core/Quark.h"
#include "interchange/polygon/PointIndex.h"

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

/// A clump: plane faces over shared points, as a model reader gathers them. A face is
/// made of loops (the first its outer boundary, the others holes), a loop of edges, and
/// an edge runs from its point to the point of the next edge of the loop. Each face has
/// a material style (null: the region's material) and smoothing flags: two faces that
/// meet along an edge may be shaded smoothly across it only if their flags share a bit.
///
/// The operations prepare the clump for a mesh, in this order: removeHoles,
/// chooseRegions, breakSharpEdges (for regions with smooth edges), triangulate and
/// cornerNormals.
class Clump {
public:
    using Index = std::uint32_t;
    static constexpr Index none = 0xFFFFFFFFu;

    struct Edge {
        Index point;       ///< where the edge starts (the corner of its face there)
        Index loop;        ///< the loop it belongs to
        Index pair = none; ///< the edge running the other way in a neighbouring face
        bool smooth = false;
        bool bridge = false; ///< made by removeHoles, not a boundary of the face
    };
    struct Loop {
        Index firstEdge;
        Index edgeCount;
        Index face;
    };
    struct Face {
        Index firstLoop;
        Index loopCount;
        Quark matstyle;
        std::uint32_t smoothing;
        Index region = none;
    };
    /// Faces to be made into one mesh: equal smoothing flags and material.
    struct Region {
        std::vector<Index> faces;
        Quark material;
        std::uint32_t smoothing = 0;
    };
    /// A triangle of a face, by corners: each corner is an edge, standing for the point
    /// the edge starts from. Counter-clockwise about the face's surface normal.
    struct Triangle {
        std::array<Index, 3> corner;
        Index face;
    };
    /// Orders faces so that those with equal smoothing and material come together
    /// (material by its text, so that the order does not change from run to run).
    struct Comparator {
        const Clump* clump;
        bool operator()(Index a, Index b) const;
    };

    /// Points closer than `tolerance` (model units) are one point.
    explicit Clump(double tolerance = 0.001);

    double tolerance() const { return points_.tolerance(); }

    /// The index of p, shared with any point already added within the tolerance.
    Index addPoint(const Point<3>& p) { return points_.insert(p); }
    /// addPoint for each point, the indices to `out` (of the same size).
    void addPoints(std::span<const Point<3>> points, std::span<Index> out) {
        points_.insert(points, out);
    }
    /// Adds a face from its outer loop and holes, as point indices. A point repeated
    /// next to itself is dropped; a loop left with fewer than three points is dropped,
    /// and so is a face without its outer loop. Returns the face, or `none`.
    Index addFace(std::span<const Index> outer, Quark matstyle, std::uint32_t smoothing,
                  std::span<const std::vector<Index>> holes = {});
    /// Adds a face from coordinates (points are shared through addPoint).
    Index addFace(std::span<const Point<3>> outer, Quark matstyle, std::uint32_t smoothing);

    std::size_t pointCount() const { return points_.size(); }
    std::size_t faceCount() const { return faces_.size(); }
    std::size_t edgeCount() const { return edges_.size(); }
    bool empty() const { return faces_.empty(); }

    const Point<3>& coord(Index point) const { return points_.points()[point]; }
    const Face& face(Index f) const { return faces_[f]; }
    const Loop& loop(Index l) const { return loops_[l]; }
    const Edge& edge(Index e) const { return edges_[e]; }
    /// The unit normal of a face's outer loop by Newell's method; zero for a face of no
    /// area. Worked out for all faces at the first call after faces change.
    const Vector<3>& surfaceNormal(Index f) const;
    bool isPaired(Index e) const { return edges_[e].pair != none; }
    bool isSmooth(Index e) const { return edges_[e].smooth; }
    Quark matstyle(Index f) const { return faces_[f].matstyle; }
    /// The next and the previous edge of the same loop.
    Index nextEdge(Index e) const;
    Index prevEdge(Index e) const;
    /// The edges of all of a face's loops: [first, end).
    std::pair<Index, Index> faceEdges(Index f) const;

    bool hasHoles() const;
    /// Joins each hole to its face's outer loop with a pair of bridge edges, leaving
    /// every face with one loop.
    void removeHoles();
    /// Groups the faces. When `flat`, all faces form one region of `material` with no
    /// smoothing; otherwise faces of equal smoothing flags and material style form a
    /// region (whose material is the style, or `material` for faces without one). Also
    /// pairs the edges of faces that meet.
    std::vector<Region> chooseRegions(bool flat, Quark material);
    /// True if some paired edge of the region may be shaded smoothly.
    bool hasSmoothEdges(const Region& region) const;
    /// Marks as sharp every edge of the region whose faces meet at an angle (between
    /// their normals) greater than `smoothAngle`, and every edge to another region.
    void breakSharpEdges(const Region& region, Angle smoothAngle);
    /// Triangulates the region's faces (ear clipping on each face's dominant plane,
    /// holes bridged first if they are still there). Faces of no area give nothing.
    std::vector<Triangle> triangulate(const Region& region) const;
    /// A normal for every corner (edge) of the region, indexed by edge: corners around a
    /// point joined by smooth edges share the angle-weighted mean of their faces'
    /// normals; other corners get their face's normal. Edges outside the region get a
    /// zero vector.
    std::vector<Vector<3>> cornerNormals(const Region& region) const;

private:
    void pairEdges();
    Vector<3> newellNormal(Index f) const;
    /// 2D coordinates of the face's corners on its dominant plane, oriented so that the
    /// outer loop is counter-clockwise when seen against the surface normal.
    void project(Index f, const Vector<3>& normal, std::vector<Point<2>>& out) const;
    /// The face's corners (edges of all its loops) in `corners`, their projections in
    /// `coords`, and in `ring` one ring of positions into both, with holes bridged in.
    void faceRing(Index f, const Vector<3>& normal, std::vector<Index>& corners,
                  std::vector<Point<2>>& coords, std::vector<Index>& ring) const;

    PointIndex points_;
    std::vector<Face> faces_;
    std::vector<Loop> loops_;
    std::vector<Edge> edges_;
    mutable std::vector<Vector<3>> normals_;
};
