#pragma once

#include "interchange/render/HugePageAllocator.h"

#include <bit>
#include <cstdint>
#include <span>
#include <vector>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

/// Where a triangle can block a point, as a light sees it: every point (x, y) at which its
/// exact test can pass lies in the box x0..x1, y0..y1, and the triangle's depth there is
/// at least zLow. An unbounded footprint (x0 > x1) stands for a triangle too thin to box
/// safely: it is tried everywhere. `edges` are its three edge equations, a x + b y + c
/// for a, b and c in turn, at least -slack inside (see ShadowTree::build).
struct ShadowFootprint {
    double x0, y0, x1, y1;
    double zLow;
    const double* edges;
};

/// A quadtree over the plane of view of a light, flattened into arrays for look-ups that
/// touch little memory. Level L is the grid of 2^L by 2^L nodes over the footprints' box,
/// and the four children of a node are the nodes of level L + 1 in its quarters. A
/// triangle is listed in every node its footprint meets at one level: most triangles at
/// one main level (chosen so that lists stay short without too many entries), the few
/// larger ones at the deepest level where they meet only a few nodes. A point thus meets
/// one list per level that holds triangles, and mostly just one.
///
/// A list is a run of blocks of four entries, sorted nearest the light first; an entry
/// holds its triangle's zLow rounded down and its edge equations in floats. A look-up
/// stops at the first block that lies no nearer the light than its point, and hands on
/// only the triangles whose float edge values allow the point to be inside: the allowance
/// covers the rounding to floats, so no triangle that the exact test would find is
/// passed over.
class ShadowTree {
public:
    /// Lists triangle i with footprints[i], using up to `threads` threads for the work.
    /// `slack` is how far below 0 an edge value may be at a point that the exact test
    /// finds inside.
    void build(std::span<const ShadowFootprint> footprints, double slack, unsigned threads);

    /// Whether `test(i)` holds for some triangle i whose footprint holds (x, y) and whose
    /// zLow is below `limit`. Triangles are tried nearest the light first within a node.
    template <class Test> bool any(double x, double y, double limit, Test&& test) const {
        // Floats rounded to nearest: a footprint's bounds are rounded outwards and its zLow
        // downwards, so every comparison below that holds in doubles holds in floats.
        const float fx = static_cast<float>(x), fy = static_cast<float>(y);
        const float flimit = static_cast<float>(limit);
        for (const std::uint32_t i : unbounded_) {
            if (test(i)) {
                return true;
            }
        }
        if (!(x >= x0_ && x <= x1_ && y >= y0_ && y <= y1_)) {
            return false;
        }
        for (const Level& level : levels_) {
            const std::size_t node = level.nodeOf(x - x0_, y - y0_);
            const Block* b = level.blocks.data() + level.first[node];
            const Block* end = level.blocks.data() + level.first[node + 1];
            for (; b != end; ++b) {
                if (b->zLow[0] > flimit) {
                    break; // the rest lie no nearer the light than the point
                }
                for (unsigned hits = b->hits(fx, fy, flimit, edgeAllowance_); hits;
                     hits &= hits - 1) {
                    if (test(b->triangle[std::countr_zero(hits)])) {
                        return true;
                    }
                }
            }
        }
        return false;
    }

    /// The deepest level the tree may have for `triangles` triangles (its finest grid has
    /// no more nodes than about twice as many).
    static int maxLevelFor(std::size_t triangles);
    /// The number of list entries, over all levels.
    std::size_t entryCount() const;

private:
    /// Four entries of a list, side by side for testing them at once. A list ends in
    /// entries that hold no point (zLow infinite, an edge -infinite everywhere).
    struct alignas(16) Block {
        static constexpr unsigned lanes = 4;
        float zLow[lanes];
        /// The edge equations in floats: a, b, c of each edge in turn.
        float edge[9][lanes];
        std::uint32_t triangle[lanes];

        /// Bit k: whether entry k may hold the point (fx, fy) nearer the light than
        /// flimit: its zLow is no more than flimit and its three edge values at least
        /// -allowance.
        unsigned hits(float fx, float fy, float flimit, float allowance) const {
#if defined(__SSE2__)
            const __m128 px = _mm_set1_ps(fx), py = _mm_set1_ps(fy);
            const __m128 least = _mm_set1_ps(-allowance);
            __m128 m = _mm_cmple_ps(_mm_load_ps(zLow), _mm_set1_ps(flimit));
            for (int k = 0; k < 9; k += 3) {
                const __m128 v = _mm_add_ps(_mm_add_ps(_mm_mul_ps(_mm_load_ps(edge[k]), px),
                                                       _mm_mul_ps(_mm_load_ps(edge[k + 1]), py)),
                                            _mm_load_ps(edge[k + 2]));
                m = _mm_and_ps(m, _mm_cmpge_ps(v, least));
            }
            return static_cast<unsigned>(_mm_movemask_ps(m));
#else
            unsigned hits = 0;
            for (unsigned e = 0; e < lanes; ++e) {
                bool hit = zLow[e] <= flimit;
                for (int k = 0; k < 9; k += 3) {
                    hit =
                        hit && edge[k][e] * fx + edge[k + 1][e] * fy + edge[k + 2][e] >= -allowance;
                }
                hits |= static_cast<unsigned>(hit) << e;
            }
            return hits;
#endif
        }
    };
    struct Level {
        int depth = 0;
        std::uint32_t side = 1;
        /// Nodes per unit of x and y from the tree's low corner.
        double scaleX = 0, scaleY = 0;
        /// Node n's list is blocks[first[n]] to blocks[first[n + 1] - 1], sorted by zLow.
        HugePageVector<std::uint32_t> first;
        HugePageVector<Block> blocks;

        /// The node of a point at (dx, dy) from the tree's low corner (both >= 0).
        std::size_t nodeOf(double dx, double dy) const {
            return static_cast<std::size_t>(cell(dy * scaleY)) * side + cell(dx * scaleX);
        }
        std::uint32_t cell(double v) const {
            return v < static_cast<double>(side) ? static_cast<std::uint32_t>(v) : side - 1;
        }
    };

    double x0_ = 0, y0_ = 0, x1_ = -1, y1_ = -1;
    /// How far below 0 a float edge value may be at a point inside.
    float edgeAllowance_ = 0;
    /// The levels that hold triangles, coarsest first.
    std::vector<Level> levels_;
    /// The triangles tried at every point, nearest the light first.
    std::vector<std::uint32_t> unbounded_;
};
