#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Point.h"
#include "views/cameras/ParallelCamera.h"

#include <cstdint>
#include <vector>

/// A triangle as a light sees it, in the coordinates of the light's ParallelCamera: x and
/// y across the light, z the depth along it (growing away from the light).
struct ShadowTriangle {
    /// Inside where e[k][0] x + e[k][1] y + e[k][2] >= 0 for the three edges (scaled so that
    /// the value is a distance).
    double edge[3][3];
    /// The triangle's depth at (x, y): dzdx x + dzdy y + z0.
    double dzdx, dzdy, z0;
    /// The depth of its corner nearest the light.
    double zmin;
    /// The model triangle it comes from: a surface doesn't shadow itself.
    std::uint32_t owner;
};

/// One node of a quadtree over the plane of view of a light. It covers `extent`; its four
/// children cover the quarters about its centre (x low/high, then y low/high).
///
/// Splitting rule: a node keeps the triangles whose footprint (the box of their projection)
/// covers its whole extent; every point that passes through it tests those. The others stay
/// at the node, which is then a leaf, while there are at most `leafSize` of them, when the
/// node is `maxDepth` deep, or when its quarters would be smaller than half the mean size
/// of their footprints (quarters much smaller than the triangles would hold little but
/// copies of them). Otherwise each goes down into every quarter its footprint overlaps.
/// Each node's list is sorted nearest the light first. A point is looked up from the root
/// down the quarters that hold it, meeting the covering triangles of its ancestors and the
/// triangles of one leaf, and stops at the first triangle that lies beyond it.
class ShadowNode : public TQL::Handlable {
public:
    static constexpr std::size_t leafSize = 8;
    static constexpr int maxDepth = 16;

    ShadowNode(const Extent<2>& extent, int depth);

    /// Places `triangles` (indices into the caster's store, whose footprints are given) in
    /// this node and below.
    void build(const std::vector<Extent<2>>& footprints, std::vector<std::uint32_t> triangles);

    /// The child quarter of (x, y), 0 to 3.
    int quarterOf(double x, double y) const {
        return (x >= centreX ? 1 : 0) + (y >= centreY ? 2 : 0);
    }

    Extent<2> extent;
    double centreX, centreY;
    int depth;
    /// Indices into the caster's triangle store.
    std::vector<std::uint32_t> triangles;
    TQL::Handle<ShadowNode> children[4];
};

/// The shadows of one light: the model's triangles projected along the light by a
/// ParallelCamera of 100 by 100 set up on the light, in a tree of ShadowNodes.
class ShadowCaster {
public:
    /// A light travelling along `axes.z()`, over a model bounded by `bounds`. `bias` is the
    /// least distance, in model units, by which a triangle must lie nearer the light than
    /// a point to shadow it.
    ShadowCaster(const Ray& axes, const Extent<3>& bounds, double bias);

    /// Adds the triangle a, b, c (model coordinates) of model triangle `owner`.
    void add(const Point<3>& a, const Point<3>& b, const Point<3>& c, std::uint32_t owner);
    /// Builds the tree once everything is added.
    void build();

    /// A model point in the light's coordinates.
    Point<3> toLight(const Point<3>& p) const {
        return {p.x() * m_[0][0] + p.y() * m_[1][0] + p.z() * m_[2][0] + m_[3][0],
                p.x() * m_[0][1] + p.y() * m_[1][1] + p.z() * m_[2][1] + m_[3][1],
                p.x() * m_[0][2] + p.y() * m_[1][2] + p.z() * m_[2][2] + m_[3][2]};
    }
    /// Whether a triangle other than `owner` lies between the light and the point `q`
    /// (in the light's coordinates). `hint` names a triangle to try first (the caller's
    /// last blocker, since neighbouring points are mostly blocked by the same one); it is
    /// set to the blocker found. Start with noHint.
    bool blocked(const Point<3>& q, std::uint32_t owner, std::uint32_t& hint) const;
    static constexpr std::uint32_t noHint = 0xFFFFFFFFu;

    std::size_t triangleCount() const { return store_.size(); }
    const ShadowNode* root() const { return root_.get(); }

private:
    TQL::Handle<ParallelCamera> camera_;
    /// The camera's projection, which is affine, packed: three rows then the translation.
    double m_[4][3];
    double bias_;
    std::vector<ShadowTriangle> store_;
    std::vector<Extent<2>> footprints_;
    TQL::Handle<ShadowNode> root_;
};
