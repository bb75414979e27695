#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Point.h"
#include "interchange/render/HugePageAllocator.h"
#include "interchange/render/ShadowTree.h"
#include "views/cameras/ParallelCamera.h"

#include <cstdint>
#include <vector>

/// A triangle as a light sees it, in the coordinates of the light's ParallelCamera: x and
/// y across the light, z the depth along it (growing away from the light).
struct ShadowTriangle {
    /// Inside where e[k][0] x + e[k][1] y + e[k][2] >= 0 for the three edges (scaled so that
    /// the value is a distance). Edge k runs from corner k to corner k + 1.
    double edge[3][3];
    /// The triangle's depth at (x, y): dzdx x + dzdy y + z0.
    double dzdx, dzdy, z0;
    /// The model triangle it comes from: a surface doesn't shadow itself.
    std::uint32_t owner;

    /// The exact shadow test: whether this triangle, unless it is `owner`, holds (x, y)
    /// (points within `slack` of an edge included, so that no light leaks between
    /// neighbours) and lies there nearer the light than `limit`.
    bool blocks(double x, double y, double limit, std::uint32_t owner) const {
        return this->owner != owner && edge[0][0] * x + edge[0][1] * y + edge[0][2] >= -slack &&
               edge[1][0] * x + edge[1][1] * y + edge[1][2] >= -slack &&
               edge[2][0] * x + edge[2][1] * y + edge[2][2] >= -slack &&
               dzdx * x + dzdy * y + z0 < limit;
    }
    static constexpr double slack = 1e-9;
};

/// The shadows of one light: the model's triangles projected along the light by a
/// ParallelCamera of 100 by 100 set up on the light, in a ShadowTree. A point is blocked
/// when some triangle passes ShadowTriangle::blocks there; the tree only narrows down which
/// triangles are tried, so its answer is that of trying them all.
class ShadowCaster {
public:
    /// A light travelling along `axes.z()`, over a model bounded by `bounds`. `bias` is the
    /// least distance, in model units, by which a triangle must lie nearer the light than
    /// a point to shadow it.
    ShadowCaster(const Ray& axes, const Extent<3>& bounds, double bias);

    /// Makes room for `triangles` triangles.
    void reserve(std::size_t triangles);
    /// Adds the triangle a, b, c (model coordinates) of model triangle `owner`.
    void add(const Point<3>& a, const Point<3>& b, const Point<3>& c, std::uint32_t owner);

    /// Filling by several threads at once, each with its own parts, the result the same as
    /// adding everything in order on one thread: openParts(slots) cuts `slots` slots (as
    /// many as the triangles to be added, since mostly each adds at most one) into parts,
    /// part p taking slots partStart(p) to partStart(p + 1) - 1; add(p, ...) adds to part p
    /// in order (what doesn't fit in its slots is kept aside); closeParts joins the parts
    /// in order. Different parts may be filled at once; one part by one thread at a time.
    /// The caster must be empty before openParts.
    void openParts(std::size_t slots, std::size_t parts);
    std::size_t partStart(std::size_t part) const;
    void add(std::size_t part, const Point<3>& a, const Point<3>& b, const Point<3>& c,
             std::uint32_t owner);
    void closeParts();
    /// Builds the tree once everything is added, on up to `threads` threads.
    void build(unsigned threads = 1);

    /// A model point in the light's coordinates.
    Point<3> toLight(const Point<3>& p) const {
        return {p.x() * m_[0][0] + p.y() * m_[1][0] + p.z() * m_[2][0] + m_[3][0],
                p.x() * m_[0][1] + p.y() * m_[1][1] + p.z() * m_[2][1] + m_[3][1],
                p.x() * m_[0][2] + p.y() * m_[1][2] + p.z() * m_[2][2] + m_[3][2]};
    }
    /// The depth below which a triangle blocks the point `q` (light coordinates): its own
    /// depth less the bias.
    double limitAt(const Point<3>& q) const { return q.z() - bias_; }

    using Hint = ShadowTree::Hint;
    /// Whether a triangle other than `owner` lies between the light and the point `q`
    /// (in the light's coordinates). `hint` is the caller's running hint (neighbouring
    /// points are mostly blocked by the same triangle); start with a default one.
    bool blocked(const Point<3>& q, std::uint32_t owner, Hint& hint) const {
        const double x = q.x(), y = q.y(), limit = limitAt(q);
        return tree_.find(x, y, limit, owner, hint, [&](std::uint32_t i) {
            return store_[i].blocks(x, y, limit, owner);
        }) != ShadowTree::none;
    }

    /// The triangles as the light sees them, in the order added (those edge on to the
    /// light, which hide nothing, left out).
    const UninitialisedHugePageVector<ShadowTriangle>& triangles() const { return store_; }
    const ShadowTree& tree() const { return tree_; }

private:
    /// A part's slots and how many of them are filled, then what didn't fit.
    struct alignas(64) Part {
        std::size_t begin = 0, end = 0, filled = 0;
        std::vector<ShadowTriangle> moreTriangles;
        std::vector<ShadowFootprint> moreFootprints;
    };

    /// The triangle a, b, c of `owner` as the light sees it and its footprint; false if it
    /// lies edge on to the light.
    bool make(const Point<3>& a, const Point<3>& b, const Point<3>& c, std::uint32_t owner,
              ShadowTriangle& t, ShadowFootprint& f) const;

    TQL::Handle<ParallelCamera> camera_;
    /// The camera's projection, which is affine, packed: three rows then the translation.
    double m_[4][3];
    double bias_;
    UninitialisedHugePageVector<ShadowTriangle> store_;
    UninitialisedHugePageVector<ShadowFootprint> footprints_;
    std::vector<Part> parts_;
    ShadowTree tree_;
};
