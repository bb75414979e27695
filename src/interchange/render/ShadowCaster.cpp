#include "interchange/render/ShadowCaster.h"

#include <algorithm>
#include <cmath>

namespace {

/// The triangle's value at (x, y) must exceed -slack on every edge: points on a shared edge
/// belong to both neighbours, so no light leaks between them.
constexpr double slack = 1e-9;

} // namespace

ShadowCaster::ShadowCaster(const Ray& axes, const Extent<3>& bounds, double bias) {
    const Point<3> centre = bounds.centre();
    const double radius = std::max(bounds.size().length() / 2, 1e-9);
    const Point<3> eye = centre - axes.z() * (2 * radius);
    camera_ = TQL::makeHandle<ParallelCamera>(100, 100, eye, axes, 2 * radius, 2 * radius, centre,
                                              2 * radius);
    // The projection is affine: read it off the images of the origin and the unit points.
    const Point<3> o = camera_->project(Point<3>::m_origin);
    const Point<3> ex = camera_->project(Point<3>(1, 0, 0));
    const Point<3> ey = camera_->project(Point<3>(0, 1, 0));
    const Point<3> ez = camera_->project(Point<3>(0, 0, 1));
    for (int k = 0; k < 3; ++k) {
        m_[0][k] = ex[k] - o[k];
        m_[1][k] = ey[k] - o[k];
        m_[2][k] = ez[k] - o[k];
        m_[3][k] = o[k];
    }
    bias_ = bias * camera_->scale();
}

void ShadowCaster::add(const Point<3>& a, const Point<3>& b, const Point<3>& c,
                       std::uint32_t owner) {
    const Point<3> p[3] = {toLight(a), toLight(b), toLight(c)};
    const double area = (p[1].x() - p[0].x()) * (p[2].y() - p[0].y()) -
                        (p[2].x() - p[0].x()) * (p[1].y() - p[0].y());
    if (!(std::fabs(area) > 0)) {
        return; // edge on to the light: it hides nothing
    }
    ShadowTriangle t{};
    const double sign = area > 0 ? 1 : -1;
    for (int k = 0; k < 3; ++k) {
        const Point<3>& s = p[k];
        const Point<3>& e = p[(k + 1) % 3];
        // Left of s -> e (for a positive area) is inside.
        double nx = -(e.y() - s.y()) * sign;
        double ny = (e.x() - s.x()) * sign;
        const double length = std::hypot(nx, ny);
        nx /= length;
        ny /= length;
        t.edge[k][0] = nx;
        t.edge[k][1] = ny;
        t.edge[k][2] = -(nx * s.x() + ny * s.y());
    }
    t.dzdx = ((p[1].z() - p[0].z()) * (p[2].y() - p[0].y()) -
              (p[2].z() - p[0].z()) * (p[1].y() - p[0].y())) /
             area;
    t.dzdy = ((p[1].x() - p[0].x()) * (p[2].z() - p[0].z()) -
              (p[2].x() - p[0].x()) * (p[1].z() - p[0].z())) /
             area;
    t.z0 = p[0].z() - t.dzdx * p[0].x() - t.dzdy * p[0].y();
    t.owner = owner;
    t.zmin = std::min({p[0].z(), p[1].z(), p[2].z()});
    Extent<2> footprint;
    for (const Point<3>& q : p) {
        footprint += Point<2>(q.x(), q.y());
    }
    store_.push_back(t);
    footprints_.push_back(footprint);
}

void ShadowCaster::build() {
    Extent<2> all;
    for (const Extent<2>& f : footprints_) {
        all |= f;
    }
    if (all.degenerate()) {
        root_ = nullptr;
        return;
    }
    std::vector<std::uint32_t> every(store_.size());
    for (std::uint32_t i = 0; i < every.size(); ++i) {
        every[i] = i;
    }
    root_ = TQL::makeHandle<ShadowNode>(all, 0);
    root_->build(footprints_, std::move(every));
    // Each node's triangles nearest the light first, so that a look-up stops at the first
    // one that lies beyond its point.
    std::vector<ShadowNode*> nodes{root_.get()};
    while (!nodes.empty()) {
        ShadowNode* node = nodes.back();
        nodes.pop_back();
        std::sort(
            node->triangles.begin(), node->triangles.end(),
            [&](std::uint32_t a, std::uint32_t b) { return store_[a].zmin < store_[b].zmin; });
        for (const auto& child : node->children) {
            if (child) {
                nodes.push_back(child.get());
            }
        }
    }
    footprints_.clear();
    footprints_.shrink_to_fit();
}

bool ShadowCaster::blocked(const Point<3>& q, std::uint32_t owner, std::uint32_t& hint) const {
    const double x = q.x();
    const double y = q.y();
    const double limit = q.z() - bias_;
    auto blocks = [&](const ShadowTriangle& t) {
        return t.owner != owner && t.edge[0][0] * x + t.edge[0][1] * y + t.edge[0][2] >= -slack &&
               t.edge[1][0] * x + t.edge[1][1] * y + t.edge[1][2] >= -slack &&
               t.edge[2][0] * x + t.edge[2][1] * y + t.edge[2][2] >= -slack &&
               t.dzdx * x + t.dzdy * y + t.z0 < limit;
    };
    // Neighbouring points are mostly blocked by the same triangle.
    if (hint < store_.size() && blocks(store_[hint])) {
        return true;
    }
    const ShadowNode* node = root_.get();
    if (!node || x < node->extent.lo().x() || x > node->extent.hi().x() ||
        y < node->extent.lo().y() || y > node->extent.hi().y()) {
        return false;
    }
    // The quarters below hold the point if the root does.
    for (; node; node = node->children[node->quarterOf(x, y)].get()) {
        for (std::uint32_t i : node->triangles) {
            const ShadowTriangle& t = store_[i];
            if (t.zmin >= limit) {
                break; // the rest lie no nearer the light than the point
            }
            if (blocks(t)) {
                hint = i;
                return true;
            }
        }
    }
    return false;
}
