#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Point.h"
#include "interchange/render/ShadowNode.h"
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
