#pragma once

#include "interchange/render/HugePageAllocator.h"

#include <bit>
#include <cmath>
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
/// for a, b and c in turn, at least -slack inside (see ShadowTree::build); `depth` is its
/// depth plane, dzdx, dzdy, z0; `owner` the surface it belongs to, which it never blocks.
struct ShadowFootprint {
    double x0, y0, x1, y1;
    double zLow;
    const double* edges;
    const double* depth;
    std::uint32_t owner;
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
/// holds its triangle's zLow rounded down, its edge equations and depth plane in floats,
/// and its owner. A look-up stops at the first block that lies no nearer the light than
/// its point. The float values, widened by what rounding can change them, mostly decide
/// on their own: a triangle whose edges and depth surely hold the point is a blocker
/// without a look at its exact record, one that surely misses it is passed over, and only
/// the few in between go to the exact test. No answer thus differs from the exact test's.
class ShadowTree {
public:
    /// Lists triangle i with footprints[i], using up to `threads` threads for the work.
    /// `slack` is how far below 0 an edge value may be at a point that the exact test
    /// finds inside.
    void build(std::span<const ShadowFootprint> footprints, double slack, unsigned threads);

    struct Block;
    /// An entry of the tree to try first: the last blocker found, which mostly blocks the
    /// next point too. It belongs to the tree that set it; start with a default one.
    struct Hint {
        const Block* block = nullptr;
        unsigned lane = 0;
    };

    /// A triangle i other than `owner` that blocks (x, y) at `limit`, or `none`: one whose
    /// exact test `test(i)` holds. The hint's entry is tried first, then the triangles of
    /// the point's nodes, nearest the light first; the floats answer for the triangles
    /// whose exact test they can foretell. The hint is set to the blocker found in a list.
    template <class Test>
    std::uint32_t find(double x, double y, double limit, std::uint32_t owner, Hint& hint,
                       Test&& test) const {
        for (const std::uint32_t i : unbounded_) {
            if (test(i)) {
                return i;
            }
        }
        if (!(x >= x0_ && x <= x1_ && y >= y0_ && y <= y1_)) {
            return none;
        }
        // Floats rounded to nearest: the limit is taken as the float just below it where
        // the float test must show a blocker nearer, and just above it where it must show
        // a triangle that may be nearer.
        const Query q{static_cast<float>(x), static_cast<float>(y), roundedDown(limit),
                      roundedUp(limit), owner};
        if (hint.block) {
            const Block::Answer a = hint.block->test(q, edgeAllowance_);
            const std::uint32_t i = hint.block->triangle[hint.lane];
            if (((a.sure >> hint.lane) & 1) || (((a.may >> hint.lane) & 1) && test(i))) {
                return i;
            }
        }
        for (const Level& level : levels_) {
            const std::size_t node = level.nodeOf(x - x0_, y - y0_);
            const Block* b = level.blocks.data() + level.first[node];
            const Block* const end = level.blocks.data() + level.first[node + 1];
            Block::Answer a;
            for (; (b = scan(b, end, q, a)) != end; ++b) {
                if (a.sure) {
                    hint = {b, static_cast<unsigned>(std::countr_zero(a.sure))};
                    return b->triangle[hint.lane];
                }
                for (unsigned may = a.may; may; may &= may - 1) {
                    const auto lane = static_cast<unsigned>(std::countr_zero(may));
                    if (test(b->triangle[lane])) {
                        hint = {b, lane};
                        return b->triangle[lane];
                    }
                }
            }
        }
        return none;
    }
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    /// The float next to v towards minus and plus infinity (v itself when it is a float).
    /// The step to the next float is made on the bits, without a branch (whether v is a
    /// float is as good as random): a float's neighbours are one unit of its bit pattern
    /// away, away from zero or towards it by its sign, and zero steps as -0 downwards and
    /// +0 upwards. Infinities step to the largest floats; NaN stays NaN.
    static float roundedDown(double v) {
        const float f = static_cast<float>(v);
        const auto bits = std::bit_cast<std::uint32_t>(f);
        const std::uint32_t b = bits | static_cast<std::uint32_t>(f == 0) << 31;
        const std::uint32_t stepped = b - 1 + 2 * (b >> 31);
        const std::uint32_t step = 0u - static_cast<std::uint32_t>(static_cast<double>(f) > v);
        return std::bit_cast<float>((stepped & step) | (bits & ~step));
    }
    static float roundedUp(double v) {
        const float f = static_cast<float>(v);
        const auto bits = std::bit_cast<std::uint32_t>(f);
        const std::uint32_t b = bits & ~(static_cast<std::uint32_t>(f == 0) << 31);
        const std::uint32_t stepped = b + 1 - 2 * (b >> 31);
        const std::uint32_t step = 0u - static_cast<std::uint32_t>(static_cast<double>(f) < v);
        return std::bit_cast<float>((stepped & step) | (bits & ~step));
    }

    /// Whether trees built from now on may test two blocks at once where the processor
    /// can (the default); off, they test one block at a time, as on any processor. The
    /// answers are the same either way.
    static void allowWideScan(bool allowed);
    /// Whether this tree tests two blocks at once.
    bool scansWide() const { return wide_; }

    /// The deepest level the tree may have for `triangles` triangles (its finest grid has
    /// no more nodes than about twice as many).
    static int maxLevelFor(std::size_t triangles);
    /// The number of list entries, over all levels.
    std::size_t entryCount() const;

    /// A point to test against the entries: its coordinates in floats, its limit rounded
    /// down and up to floats, and the surface it lies on.
    struct Query {
        float x, y, limitDown, limitUp;
        std::uint32_t owner;
    };

    /// Four entries of a list, side by side for testing them at once. A list ends in
    /// entries that hold no point (zLow infinite, an edge -infinite everywhere).
    struct alignas(64) Block {
        static constexpr unsigned lanes = 4;
        /// Left as they are when made: the tree's build writes every field.
        Block() {}
        float zLow[lanes];
        /// The edge equations in floats: a, b, c of each edge in turn.
        float edge[9][lanes];
        /// The depth plane in floats: dzdx, dzdy, then z0 raised and lowered by what
        /// rounding can change the plane's value by in the tree's box.
        float depth[4][lanes];
        std::uint32_t triangle[lanes];
        std::uint32_t owner[lanes];

        /// Bits of the entries (bit k for entry k) that surely block the point, whose
        /// exact test would pass; and of those that may, whose exact test must decide. The
        /// others surely don't: they are the point's own surface, lie beyond the point or
        /// miss it.
        struct Answer {
            unsigned sure, may;
        };
        Answer test(const Query& q, float allowance) const {
#if defined(__SSE2__)
            const __m128 px = _mm_set1_ps(q.x), py = _mm_set1_ps(q.y);
            const __m128 most = _mm_set1_ps(allowance), least = _mm_set1_ps(-allowance);
            __m128 may = _mm_cmple_ps(_mm_load_ps(zLow), _mm_set1_ps(q.limitUp));
            const __m128i own =
                _mm_cmpeq_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(owner)),
                                _mm_set1_epi32(static_cast<int>(q.owner)));
            may = _mm_andnot_ps(_mm_castsi128_ps(own), may);
            __m128 inside = may;
            for (int k = 0; k < 9; k += 3) {
                const __m128 v = _mm_add_ps(_mm_add_ps(_mm_mul_ps(_mm_load_ps(edge[k]), px),
                                                       _mm_mul_ps(_mm_load_ps(edge[k + 1]), py)),
                                            _mm_load_ps(edge[k + 2]));
                may = _mm_and_ps(may, _mm_cmpge_ps(v, least));
                inside = _mm_and_ps(inside, _mm_cmpge_ps(v, most));
            }
            const __m128 slope = _mm_add_ps(_mm_mul_ps(_mm_load_ps(depth[0]), px),
                                            _mm_mul_ps(_mm_load_ps(depth[1]), py));
            const __m128 far = _mm_add_ps(slope, _mm_load_ps(depth[2]));
            const __m128 near = _mm_add_ps(slope, _mm_load_ps(depth[3]));
            const __m128 sure = _mm_and_ps(inside, _mm_cmplt_ps(far, _mm_set1_ps(q.limitDown)));
            may = _mm_and_ps(may, _mm_cmplt_ps(near, _mm_set1_ps(q.limitUp)));
            const auto sureBits = static_cast<unsigned>(_mm_movemask_ps(sure));
            return {sureBits, static_cast<unsigned>(_mm_movemask_ps(may)) & ~sureBits};
#else
            Answer a{0, 0};
            for (unsigned e = 0; e < lanes; ++e) {
                if (!(zLow[e] <= q.limitUp) || owner[e] == q.owner) {
                    continue;
                }
                bool may = true, inside = true;
                for (int k = 0; k < 9; k += 3) {
                    const float v = edge[k][e] * q.x + edge[k + 1][e] * q.y + edge[k + 2][e];
                    may = may && v >= -allowance;
                    inside = inside && v >= allowance;
                }
                const float slope = depth[0][e] * q.x + depth[1][e] * q.y;
                if (inside && slope + depth[2][e] < q.limitDown) {
                    a.sure |= 1u << e;
                } else if (may && slope + depth[3][e] < q.limitUp) {
                    a.may |= 1u << e;
                }
            }
            return a;
#endif
        }
    };

private:
    /// The first block from b on, before `end` and before the blocks that lie no nearer
    /// the light than the point, with an entry that surely or maybe blocks it, its answer
    /// in `a`; `end` if none.
    const Block* scan(const Block* b, const Block* end, const Query& q, Block::Answer& a) const;

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
    /// The levels that hold triangles, deepest first.
    std::vector<Level> levels_;
    /// The triangles tried at every point, nearest the light first.
    std::vector<std::uint32_t> unbounded_;
    /// Whether scan tests two blocks at once.
    bool wide_ = false;
};
