#pragma once

#include "core/Extent.h"
#include "core/Handle.h"

#include <cstdint>
#include <vector>

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
