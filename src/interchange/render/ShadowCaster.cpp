#include "interchange/render/ShadowCaster.h"

#include <algorithm>
#include <cmath>

namespace {

/// How far outside a triangle's edges its footprint reaches: the test's slack and more
/// than enough for the rounding of an edge value in the light's frame of 100 units.
constexpr double reach = 2 * ShadowTriangle::slack;
/// Corners sharper than this (1 + the cosine of the angle between the edge normals) are
/// too sharp to box: the triangle is tried at every point.
constexpr double sharpest = 1e-8;
/// A relative allowance for rounding in footprints and depth bounds.
constexpr double rounding = 1e-9;

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

bool ShadowCaster::make(const Point<3>& a, const Point<3>& b, const Point<3>& c,
                        std::uint32_t owner, ShadowTriangle& t, ShadowFootprint& f) const {
    const Point<3> p[3] = {toLight(a), toLight(b), toLight(c)};
    const double area = (p[1].x() - p[0].x()) * (p[2].y() - p[0].y()) -
                        (p[2].x() - p[0].x()) * (p[1].y() - p[0].y());
    if (!(std::fabs(area) > 0)) {
        return false; // edge on to the light: it hides nothing
    }
    const double sign = area > 0 ? 1 : -1;
    for (int k = 0; k < 3; ++k) {
        const Point<3>& s = p[k];
        const Point<3>& e = p[(k + 1) % 3];
        // Left of s -> e (for a positive area) is inside.
        double nx = -(e.y() - s.y()) * sign;
        double ny = (e.x() - s.x()) * sign;
        const double length = std::sqrt(nx * nx + ny * ny);
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

    // The footprint: the triangle grown by `reach` at every edge, whose corners are the
    // corners moved out along their bisectors, and its least depth (at one of them).
    f = {INFINITY, INFINITY, -INFINITY, -INFINITY, INFINITY, nullptr, nullptr, owner};
    double largest = 0;
    for (int k = 0; k < 3; ++k) {
        const double* na = t.edge[(k + 2) % 3];
        const double* nb = t.edge[k];
        const double denominator = 1 + na[0] * nb[0] + na[1] * nb[1];
        if (!(denominator > sharpest)) {
            f = {1, 1, 0, 0, -INFINITY, nullptr, nullptr, owner};
            break;
        }
        const double dx = -reach * (na[0] + nb[0]) / denominator;
        const double dy = -reach * (na[1] + nb[1]) / denominator;
        const double pad = rounding * (1 + std::fabs(dx) + std::fabs(dy));
        const double x = p[k].x() + dx, y = p[k].y() + dy;
        f.x0 = std::min(f.x0, x - pad);
        f.y0 = std::min(f.y0, y - pad);
        f.x1 = std::max(f.x1, x + pad);
        f.y1 = std::max(f.y1, y + pad);
        f.zLow = std::min(f.zLow, t.dzdx * x + t.dzdy * y + t.z0 -
                                      (std::fabs(t.dzdx) + std::fabs(t.dzdy)) * pad);
        largest = std::max({largest, std::fabs(x), std::fabs(y)});
    }
    // What rounding can take off a depth worked out anywhere in the footprint.
    f.zLow -= rounding * (1 + (std::fabs(t.dzdx) + std::fabs(t.dzdy)) * largest + std::fabs(t.z0));
    return true;
}

void ShadowCaster::add(const Point<3>& a, const Point<3>& b, const Point<3>& c,
                       std::uint32_t owner) {
    ShadowTriangle t;
    ShadowFootprint f;
    if (make(a, b, c, owner, t, f)) {
        store_.push_back(t);
        footprints_.push_back(f);
    }
}

void ShadowCaster::openParts(std::size_t slots, std::size_t parts) {
    parts = std::max<std::size_t>(parts, 1);
    store_.resize(slots);
    footprints_.resize(slots);
    parts_.assign(parts, Part{});
    for (std::size_t p = 0; p < parts; ++p) {
        parts_[p].begin = slots * p / parts;
        parts_[p].end = slots * (p + 1) / parts;
    }
}

std::size_t ShadowCaster::partStart(std::size_t part) const {
    return part < parts_.size() ? parts_[part].begin : store_.size();
}

void ShadowCaster::add(std::size_t part, const Point<3>& a, const Point<3>& b, const Point<3>& c,
                       std::uint32_t owner) {
    Part& to = parts_[part];
    const std::size_t slot = to.begin + to.filled;
    if (slot < to.end) {
        if (make(a, b, c, owner, store_[slot], footprints_[slot])) {
            ++to.filled;
        }
        return;
    }
    ShadowTriangle t;
    ShadowFootprint f;
    if (make(a, b, c, owner, t, f)) {
        to.moreTriangles.push_back(t);
        to.moreFootprints.push_back(f);
    }
}

void ShadowCaster::closeParts() {
    const bool spilt = std::any_of(parts_.begin(), parts_.end(),
                                   [](const Part& p) { return !p.moreTriangles.empty(); });
    if (!spilt) {
        // Each part's triangles move down to follow the last part's (mostly they are there
        // already: only triangles edge on to the light or cut away leave gaps).
        std::size_t to = 0;
        for (const Part& p : parts_) {
            if (p.begin != to) {
                std::copy(store_.begin() + static_cast<std::ptrdiff_t>(p.begin),
                          store_.begin() + static_cast<std::ptrdiff_t>(p.begin + p.filled),
                          store_.begin() + static_cast<std::ptrdiff_t>(to));
                std::copy(footprints_.begin() + static_cast<std::ptrdiff_t>(p.begin),
                          footprints_.begin() + static_cast<std::ptrdiff_t>(p.begin + p.filled),
                          footprints_.begin() + static_cast<std::ptrdiff_t>(to));
            }
            to += p.filled;
        }
        store_.resize(to);
        footprints_.resize(to);
    } else {
        // A cut triangle made more than one: join into new arrays.
        std::size_t total = 0;
        for (const Part& p : parts_) {
            total += p.filled + p.moreTriangles.size();
        }
        UninitialisedHugePageVector<ShadowTriangle> store;
        UninitialisedHugePageVector<ShadowFootprint> footprints;
        store.reserve(total);
        footprints.reserve(total);
        for (const Part& p : parts_) {
            const auto first = static_cast<std::ptrdiff_t>(p.begin);
            const auto last = static_cast<std::ptrdiff_t>(p.begin + p.filled);
            store.insert(store.end(), store_.begin() + first, store_.begin() + last);
            store.insert(store.end(), p.moreTriangles.begin(), p.moreTriangles.end());
            footprints.insert(footprints.end(), footprints_.begin() + first,
                              footprints_.begin() + last);
            footprints.insert(footprints.end(), p.moreFootprints.begin(), p.moreFootprints.end());
        }
        store_.swap(store);
        footprints_.swap(footprints);
    }
    parts_.clear();
}

void ShadowCaster::reserve(std::size_t triangles) {
    store_.reserve(triangles);
    footprints_.reserve(triangles);
}

void ShadowCaster::build(unsigned threads) {
    for (std::size_t i = 0; i < store_.size(); ++i) {
        footprints_[i].edges = &store_[i].edge[0][0];
        footprints_[i].depth = &store_[i].dzdx;
    }
    tree_.build(footprints_, ShadowTriangle::slack, threads);
    footprints_.clear();
    footprints_.shrink_to_fit();
}
