#include "interchange/render/ShadowNode.h"

#include <algorithm>
#include <cmath>

namespace {

bool covers(const Extent<2>& footprint, const Extent<2>& extent) {
    return footprint.lo().x() <= extent.lo().x() && footprint.lo().y() <= extent.lo().y() &&
           footprint.hi().x() >= extent.hi().x() && footprint.hi().y() >= extent.hi().y();
}

bool overlaps(const Extent<2>& a, const Extent<2>& b) {
    return a.lo().x() <= b.hi().x() && b.lo().x() <= a.hi().x() && a.lo().y() <= b.hi().y() &&
           b.lo().y() <= a.hi().y();
}

} // namespace

ShadowNode::ShadowNode(const Extent<2>& e, int d)
    : extent(e), centreX((e.lo().x() + e.hi().x()) / 2), centreY((e.lo().y() + e.hi().y()) / 2),
      depth(d) {}

void ShadowNode::build(const std::vector<Extent<2>>& footprints, std::vector<std::uint32_t> given) {
    std::vector<std::uint32_t> partial;
    for (std::uint32_t t : given) {
        (covers(footprints[t], extent) ? triangles : partial).push_back(t);
    }
    // Quarters smaller than the triangles' footprints would only hold copies of them.
    double sizes = 0;
    for (std::uint32_t t : partial) {
        const Vector<2> size = footprints[t].size();
        sizes += std::max(size.x(), size.y());
    }
    const Vector<2> span = extent.size();
    const double quarter = std::max(span.x(), span.y()) / 2;
    if (partial.size() <= leafSize || depth >= maxDepth ||
        quarter * static_cast<double>(partial.size()) * 2 < sizes) {
        triangles.insert(triangles.end(), partial.begin(), partial.end());
        return;
    }
    Extent<2> quarters[4];
    std::vector<std::uint32_t> lists[4];
    for (int q = 0; q < 4; ++q) {
        const double x0 = q & 1 ? centreX : extent.lo().x();
        const double x1 = q & 1 ? extent.hi().x() : centreX;
        const double y0 = q & 2 ? centreY : extent.lo().y();
        const double y1 = q & 2 ? extent.hi().y() : centreY;
        quarters[q] = Extent<2>(Point<2>(x0, y0), Point<2>(x1, y1));
        for (std::uint32_t t : partial) {
            if (overlaps(footprints[t], quarters[q])) {
                lists[q].push_back(t);
            }
        }
    }
    for (int q = 0; q < 4; ++q) {
        if (!lists[q].empty()) {
            children[q] = TQL::makeHandle<ShadowNode>(quarters[q], depth + 1);
            children[q]->build(footprints, std::move(lists[q]));
        }
    }
}
