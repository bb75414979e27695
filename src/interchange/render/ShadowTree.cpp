#include "interchange/render/ShadowTree.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <exception>
#include <limits>
#include <thread>

namespace {

/// The finest grid has no more nodes than this, whatever the count of triangles.
constexpr int deepestLevel = 12;
/// A triangle is listed in at most this many nodes of its level: more nodes make shorter
/// lists at the cost of more entries.
constexpr std::size_t nodesPerTriangle = 8;
/// A relative allowance for the rounding of an edge value worked out in floats (some ten
/// times the worst case for a point and edge rounded to floats).
constexpr double floatRounding = 1e-5;
/// The same for a depth, whose plane is not scaled as the edges are: more than twice the
/// worst case, so that a depth plane raised or lowered by it, worked out in floats, still
/// lies above or below the plane worked out in doubles.
constexpr double depthRounding = 1e-6;
/// The main level takes a triangle that meets at most this many of its nodes, ...
constexpr std::size_t mainNodesPerTriangle = 16;
/// ... and must take this share of the triangles ...
constexpr double mainShare = 0.9;
/// ... with no more entries than this a triangle.
constexpr double mainEntriesPerTriangle = 4;

bool bounded(const ShadowFootprint& f) {
    return f.x0 <= f.x1 && f.y0 <= f.y1;
}

/// Less work than this many items a part isn't worth a thread.
constexpr std::size_t leastPerPart = 4096;

/// How many parts inParts cuts `count` items into for `threads` threads.
std::size_t partsFor(std::size_t count, unsigned threads) {
    return std::clamp<std::size_t>(count / leastPerPart, 1, std::max(threads, 1u));
}

/// Runs work(p) for every part p of `parts` at once, part 0 on the calling thread;
/// rethrows the first failure once all have finished.
template <class Work> void eachPart(std::size_t parts, Work&& work) {
    if (parts <= 1) {
        work(std::size_t(0));
        return;
    }
    std::vector<std::exception_ptr> failures(parts);
    std::vector<std::thread> helpers;
    helpers.reserve(parts - 1);
    auto part = [&](std::size_t p) {
        try {
            work(p);
        } catch (...) {
            failures[p] = std::current_exception();
        }
    };
    for (std::size_t p = 1; p < parts; ++p) {
        helpers.emplace_back(part, p);
    }
    part(0);
    for (std::thread& t : helpers) {
        t.join();
    }
    for (const std::exception_ptr& f : failures) {
        if (f) {
            std::rethrow_exception(f);
        }
    }
}

/// The first item of part p of `parts` over [0, count).
std::size_t partStart(std::size_t count, std::size_t parts, std::size_t p) {
    return count * p / parts;
}

/// Runs work(begin, end) over [0, count) in up to `threads` contiguous parts at once, one of
/// them on the calling thread; rethrows the first failure once all have finished.
template <class Work> void inParts(std::size_t count, unsigned threads, Work&& work) {
    const std::size_t parts = partsFor(count, threads);
    eachPart(parts, [&](std::size_t p) {
        work(partStart(count, parts, p), partStart(count, parts, p + 1));
    });
}

std::atomic<bool> wideScanAllowed{true};

using Block = ShadowTree::Block;
using Query = ShadowTree::Query;

#if defined(__x86_64__)
#define QUORVALE_WIDE_SCAN 1

/// Field `f` of blocks b and b + 1 (which lie side by side) in one register: b's lanes low.
__attribute__((target("avx2"))) inline __m256 pairOf(const float* f) {
    constexpr std::size_t next = sizeof(Block) / sizeof(float);
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_load_ps(f)), _mm_load_ps(f + next), 1);
}

/// ShadowTree::scan testing two blocks at a time: the same tests as Block::test in the
/// same order, eight lanes at once (no fused multiply-add, like the four-lane test; the
/// floats only foretell the exact test within their allowances either way).
__attribute__((target("avx2"))) const Block*
scanPairs(const Block* b, const Block* end, const Query& q, float allowance, Block::Answer& a) {
    const __m256 px = _mm256_set1_ps(q.x), py = _mm256_set1_ps(q.y);
    const __m256 most = _mm256_set1_ps(allowance), least = _mm256_set1_ps(-allowance);
    const __m256 up = _mm256_set1_ps(q.limitUp), down = _mm256_set1_ps(q.limitDown);
    const __m256i owner = _mm256_set1_epi32(static_cast<int>(q.owner));
    for (; end - b >= 2; b += 2) {
        if (b->zLow[0] > q.limitUp) {
            return end; // the rest lie no nearer the light than the point
        }
        __m256 may = _mm256_cmp_ps(pairOf(b->zLow), up, _CMP_LE_OQ);
        const __m256i own = _mm256_cmpeq_epi32(
            _mm256_castps_si256(pairOf(reinterpret_cast<const float*>(b->owner))), owner);
        may = _mm256_andnot_ps(_mm256_castsi256_ps(own), may);
        __m256 inside = may;
        for (int k = 0; k < 9; k += 3) {
            const __m256 v = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(pairOf(b->edge[k]), px),
                                                         _mm256_mul_ps(pairOf(b->edge[k + 1]), py)),
                                           pairOf(b->edge[k + 2]));
            may = _mm256_and_ps(may, _mm256_cmp_ps(v, least, _CMP_GE_OQ));
            inside = _mm256_and_ps(inside, _mm256_cmp_ps(v, most, _CMP_GE_OQ));
        }
        const __m256 slope = _mm256_add_ps(_mm256_mul_ps(pairOf(b->depth[0]), px),
                                           _mm256_mul_ps(pairOf(b->depth[1]), py));
        const __m256 far = _mm256_add_ps(slope, pairOf(b->depth[2]));
        const __m256 near = _mm256_add_ps(slope, pairOf(b->depth[3]));
        const auto sure = static_cast<unsigned>(
            _mm256_movemask_ps(_mm256_and_ps(inside, _mm256_cmp_ps(far, down, _CMP_LT_OQ))));
        const auto maybe = static_cast<unsigned>(_mm256_movemask_ps(
                               _mm256_and_ps(may, _mm256_cmp_ps(near, up, _CMP_LT_OQ)))) &
                           ~sure;
        if (const unsigned any = sure | maybe) {
            if (any & 0xFu) {
                a = {sure & 0xFu, maybe & 0xFu};
                return b;
            }
            a = {sure >> 4, maybe >> 4};
            return b + 1;
        }
    }
    if (b != end && !(b->zLow[0] > q.limitUp)) {
        a = b->test(q, allowance);
        if (a.sure | a.may) {
            return b;
        }
    }
    return end;
}
#endif

} // namespace

void ShadowTree::allowWideScan(bool allowed) {
    wideScanAllowed = allowed;
}

const ShadowTree::Block* ShadowTree::scan(const Block* b, const Block* end, const Query& q,
                                          Block::Answer& a) const {
#if defined(QUORVALE_WIDE_SCAN)
    if (wide_) {
        return scanPairs(b, end, q, edgeAllowance_, a);
    }
#endif
    for (; b != end; ++b) {
        if (b->zLow[0] > q.limitUp) {
            return end; // the rest lie no nearer the light than the point
        }
        a = b->test(q, edgeAllowance_);
        if (a.sure | a.may) {
            return b;
        }
    }
    return end;
}

int ShadowTree::maxLevelFor(std::size_t triangles) {
    int level = 0;
    while (level < deepestLevel && (std::size_t(4) << (2 * level)) <= 4 * triangles) {
        ++level;
    }
    return level;
}

std::size_t ShadowTree::entryCount() const {
    std::size_t count = unbounded_.size();
    for (const Level& level : levels_) {
        count += level.blocks.size() * Block::lanes;
    }
    return count;
}

void ShadowTree::build(std::span<const ShadowFootprint> footprints, double slack,
                       unsigned threads) {
    levels_.clear();
    unbounded_.clear();
#if defined(QUORVALE_WIDE_SCAN)
    wide_ = wideScanAllowed && __builtin_cpu_supports("avx2");
#endif
    x0_ = y0_ = std::numeric_limits<double>::infinity();
    x1_ = y1_ = -std::numeric_limits<double>::infinity();
    for (std::uint32_t i = 0; i < footprints.size(); ++i) {
        const ShadowFootprint& f = footprints[i];
        if (bounded(f)) {
            x0_ = std::min(x0_, f.x0);
            y0_ = std::min(y0_, f.y0);
            x1_ = std::max(x1_, f.x1);
            y1_ = std::max(y1_, f.y1);
        } else {
            unbounded_.push_back(i);
        }
    }
    std::sort(unbounded_.begin(), unbounded_.end(), [&](std::uint32_t a, std::uint32_t b) {
        return footprints[a].zLow < footprints[b].zLow ||
               (footprints[a].zLow == footprints[b].zLow && a < b);
    });
    if (!(x0_ <= x1_)) {
        x0_ = y0_ = 0;
        x1_ = y1_ = -1;
        return;
    }

    // Every level's grid, whether it is used or not.
    const int maxLevel = maxLevelFor(footprints.size());
    const double width = x1_ - x0_, height = y1_ - y0_;
    std::vector<Level> grids(static_cast<std::size_t>(maxLevel) + 1);
    for (int l = 0; l <= maxLevel; ++l) {
        Level& g = grids[static_cast<std::size_t>(l)];
        g.depth = l;
        g.side = std::uint32_t(1) << l;
        g.scaleX = width > 0 ? g.side / width : 0;
        g.scaleY = height > 0 ? g.side / height : 0;
    }
    // The nodes a footprint meets at a level, as the nodes of its corners: nodeOf rises
    // with x and y, so every point of the footprint falls in one of them.
    struct Span {
        std::uint32_t x0, y0, x1, y1;
    };
    auto spanAt = [&](const ShadowFootprint& f, const Level& g) {
        return Span{g.cell((f.x0 - x0_) * g.scaleX), g.cell((f.y0 - y0_) * g.scaleY),
                    g.cell((f.x1 - x0_) * g.scaleX), g.cell((f.y1 - y0_) * g.scaleY)};
    };

    // The level of each triangle: the deepest at which it meets at most 2 by 2 nodes.
    constexpr std::uint8_t noLevel = 0xFF;
    HugePageVector<std::uint8_t> levelOf(footprints.size(), noLevel);
    inParts(footprints.size(), threads, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            const ShadowFootprint& f = footprints[i];
            if (!bounded(f)) {
                continue;
            }
            // A first guess from the sizes: nodes about half the footprint's size.
            const double sx = f.x1 - f.x0, sy = f.y1 - f.y0;
            const double rx = sx > 0 ? width / sx : std::numeric_limits<double>::infinity();
            const double ry = sy > 0 ? height / sy : std::numeric_limits<double>::infinity();
            const double r = std::min(rx, ry);
            int l = r >= static_cast<double>(grids[static_cast<std::size_t>(maxLevel)].side)
                        ? maxLevel
                        : std::clamp(std::ilogb(r) + 2, 0, maxLevel);
            for (; l > 0; --l) {
                const Span s = spanAt(f, grids[static_cast<std::size_t>(l)]);
                if (std::size_t(s.x1 - s.x0 + 1) * (s.y1 - s.y0 + 1) <= nodesPerTriangle) {
                    break;
                }
            }
            levelOf[i] = static_cast<std::uint8_t>(l);
        }
    });

    // Most triangles go into one main level, in every node they meet there (up to
    // mainNodesPerTriangle): a point then finds nearly all its candidates in one list, one
    // cache miss away, instead of one list per level. The main level is the deepest that
    // takes nearly every triangle without making too many entries; the few triangles too
    // large for it keep their own, coarser levels.
    std::vector<std::size_t> ofLevel(grids.size() + 1, 0);
    for (const std::uint8_t l : levelOf) {
        ++ofLevel[l == noLevel ? grids.size() : l];
    }
    const std::size_t boundedCount = footprints.size() - ofLevel[grids.size()];
    // A first guess: a level below that of all but a tenth of the triangles.
    int main = 0;
    for (std::size_t coarser = 0; main < maxLevel; ++main) {
        coarser += ofLevel[static_cast<std::size_t>(main)];
        if (static_cast<double>(coarser) > (1 - mainShare) * static_cast<double>(boundedCount)) {
            break;
        }
    }
    main = std::min(main + 1, maxLevel);
    for (;; --main) {
        const Level& g = grids[static_cast<std::size_t>(main)];
        std::atomic<std::size_t> entries = 0, kept = 0;
        inParts(footprints.size(), threads, [&](std::size_t begin, std::size_t end) {
            std::size_t partEntries = 0, partKept = 0;
            for (std::size_t i = begin; i < end; ++i) {
                if (levelOf[i] == noLevel) {
                    continue;
                }
                const Span sp = spanAt(footprints[i], g);
                const std::size_t nodes = std::size_t(sp.x1 - sp.x0 + 1) * (sp.y1 - sp.y0 + 1);
                if (nodes <= mainNodesPerTriangle) {
                    partEntries += nodes;
                    ++partKept;
                } else {
                    partEntries += nodesPerTriangle;
                }
            }
            entries += partEntries;
            kept += partKept;
        });
        const double n = static_cast<double>(boundedCount);
        if (main == 0 || (static_cast<double>(entries) <= mainEntriesPerTriangle * n &&
                          static_cast<double>(kept) >= mainShare * n)) {
            break;
        }
    }
    {
        const Level& g = grids[static_cast<std::size_t>(main)];
        inParts(footprints.size(), threads, [&](std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end; ++i) {
                if (levelOf[i] == noLevel || levelOf[i] == main) {
                    continue;
                }
                const Span sp = spanAt(footprints[i], g);
                if (std::size_t(sp.x1 - sp.x0 + 1) * (sp.y1 - sp.y0 + 1) <= mainNodesPerTriangle) {
                    levelOf[i] = static_cast<std::uint8_t>(main);
                }
            }
        });
    }

    // Each listed triangle's entry, packed as a list holds it, and the nodes it meets at
    // its level, worked out in the triangles' order (on every core): the passes below
    // then read these small records rather than the footprints and exact records.
    struct Packed {
        float zLow;
        float edge[9];
        float depth[4];
        std::uint32_t triangle, owner;
    };
    // The nodes of its box that the triangle itself may reach: bit (y - y0) * w + x - x0,
    // w = x1 - x0 + 1, of the box's nodes (a listed triangle meets at most 16 of them).
    struct Nodes {
        std::uint16_t x0, y0, x1, y1;
        std::uint16_t reached;
    };
    static_assert(std::max(nodesPerTriangle, mainNodesPerTriangle) <= 16,
                  "a triangle's nodes are marked in 16 bits");
    static_assert(deepestLevel <= 16, "node numbers are kept in 16 bits");
    // What rounding to floats can take off an edge value, over the tree's box; the exact
    // test's own slack comes on top.
    const double reach = std::max({std::fabs(x0_), std::fabs(x1_), std::fabs(y0_), std::fabs(y1_)});
    edgeAllowance_ = static_cast<float>(slack + floatRounding * (1 + reach));
    // A node is left out of a triangle's when an edge of the triangle has every point of
    // the node (grown by what the node of a point can be wrong by) well outside: no point
    // there can pass the exact test. Most triangles are far from filling their boxes (a
    // wall seen along the light is a long slanted strip), so this drops many entries.
    const double nodeMargin = 1e-9 * (1 + reach);
    const double outside = -(slack + nodeMargin);
    auto reachedNodes = [&](const ShadowFootprint& f, const Level& g, const Span& s) {
        const unsigned count = (s.x1 - s.x0 + 1) * (s.y1 - s.y0 + 1);
        if (!(g.scaleX > 0 && g.scaleY > 0)) {
            return static_cast<std::uint16_t>((1u << count) - 1); // a flat box: one node row
        }
        std::uint16_t reached = 0;
        unsigned bit = 0;
        for (std::uint32_t y = s.y0; y <= s.y1; ++y) {
            const double ny0 = y0_ + y / g.scaleY - nodeMargin;
            const double ny1 = y0_ + (y + 1) / g.scaleY + nodeMargin;
            for (std::uint32_t x = s.x0; x <= s.x1; ++x, ++bit) {
                const double nx0 = x0_ + x / g.scaleX - nodeMargin;
                const double nx1 = x0_ + (x + 1) / g.scaleX + nodeMargin;
                bool meets = true;
                for (int k = 0; k < 9 && meets; k += 3) {
                    const double a = f.edges[k], b = f.edges[k + 1], c = f.edges[k + 2];
                    meets = a * (a > 0 ? nx1 : nx0) + b * (b > 0 ? ny1 : ny0) + c >= outside;
                }
                if (meets) {
                    reached = static_cast<std::uint16_t>(reached | (1u << bit));
                }
            }
        }
        return reached;
    };
    // Written for every listed triangle before it is read, and only those are read.
    UninitialisedHugePageVector<Packed> packed(footprints.size());
    UninitialisedHugePageVector<Nodes> nodes(footprints.size());
    inParts(footprints.size(), threads, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            if (levelOf[i] == noLevel) {
                continue;
            }
            const ShadowFootprint& f = footprints[i];
            const Level& g = grids[levelOf[i]];
            const Span s = spanAt(f, g);
            nodes[i] = {static_cast<std::uint16_t>(s.x0), static_cast<std::uint16_t>(s.y0),
                        static_cast<std::uint16_t>(s.x1), static_cast<std::uint16_t>(s.y1),
                        reachedNodes(f, g, s)};
            Packed& e = packed[i];
            e.zLow = roundedDown(f.zLow);
            for (int k = 0; k < 9; ++k) {
                e.edge[k] = static_cast<float>(f.edges[k]);
            }
            const double* d = f.depth;
            const double allowance =
                depthRounding * (1 + (std::fabs(d[0]) + std::fabs(d[1])) * reach + std::fabs(d[2]));
            e.depth[0] = static_cast<float>(d[0]);
            e.depth[1] = static_cast<float>(d[1]);
            e.depth[2] = roundedUp(d[2] + allowance);
            e.depth[3] = roundedDown(d[2] - allowance);
            e.triangle = static_cast<std::uint32_t>(i);
            e.owner = f.owner;
        }
    });

    // The lists by counting: the entries each node gets, their starts, then the entries,
    // placed in order of zLow, so that every list comes out nearest the light first.
    UninitialisedHugePageVector<std::uint32_t> order;
    order.reserve(boundedCount);
    for (std::uint32_t i = 0; i < footprints.size(); ++i) {
        if (levelOf[i] != noLevel) {
            order.push_back(i);
        }
    }
    // A stable radix sort on zLow as floats (the order of equal ones kept), on every core:
    // each part of the order counts its own digits, and its items go after those of the
    // parts before it with the same digit, so the result is that of one thread.
    {
        UninitialisedHugePageVector<std::uint32_t> keys(footprints.size());
        inParts(order.size(), threads, [&](std::size_t begin, std::size_t end) {
            for (std::size_t j = begin; j < end; ++j) {
                // Float bits to unsigned keys in the order of the floats.
                const std::uint32_t i = order[j];
                const std::uint32_t bits = std::bit_cast<std::uint32_t>(packed[i].zLow);
                keys[i] = bits & 0x80000000u ? ~bits : bits | 0x80000000u;
            }
        });
        UninitialisedHugePageVector<std::uint32_t> other(order.size());
        const std::size_t parts = partsFor(order.size(), threads);
        std::vector<std::array<std::size_t, 256>> counts(parts);
        for (int shift = 0; shift < 32; shift += 8) {
            eachPart(parts, [&](std::size_t p) {
                std::array<std::size_t, 256>& c = counts[p];
                c.fill(0);
                const std::size_t end = partStart(order.size(), parts, p + 1);
                for (std::size_t j = partStart(order.size(), parts, p); j < end; ++j) {
                    ++c[(keys[order[j]] >> shift) & 0xFF];
                }
            });
            // Counts to each part's first place for each digit.
            std::size_t place = 0;
            for (std::size_t d = 0; d < 256; ++d) {
                for (std::size_t p = 0; p < parts; ++p) {
                    const std::size_t n = counts[p][d];
                    counts[p][d] = place;
                    place += n;
                }
            }
            eachPart(parts, [&](std::size_t p) {
                std::array<std::size_t, 256>& c = counts[p];
                const std::size_t end = partStart(order.size(), parts, p + 1);
                for (std::size_t j = partStart(order.size(), parts, p); j < end; ++j) {
                    const std::uint32_t i = order[j];
                    other[c[(keys[i] >> shift) & 0xFF]++] = i;
                }
            });
            order.swap(other);
        }
    }

    std::vector<bool> used(grids.size(), false);
    for (const std::uint8_t l : levelOf) {
        if (l != noLevel) {
            used[l] = true;
        }
    }
    for (std::size_t l = 0; l < grids.size(); ++l) {
        if (used[l]) {
            grids[l].first.assign(std::size_t(grids[l].side) * grids[l].side + 1, 0);
        }
    }
    // The counting and the placing below are shared out by nodes, not by entries: each
    // part goes through every entry and takes those in its own rows of nodes, so no two
    // parts write one node's count or list, and every list keeps the sorted order.
    const std::size_t nodeRows = std::size_t(1) << maxLevel;
    const std::size_t rowParts = std::min(partsFor(boundedCount, threads), nodeRows);
    // Part p takes the node rows [y0, y1) of each level, in the deepest level's rows.
    auto rowsOfPart = [&](std::size_t p, const Level& g, std::uint32_t& y0, std::uint32_t& y1) {
        const int down = maxLevel - g.depth;
        y0 = static_cast<std::uint32_t>(
            ((nodeRows * p / rowParts) + (std::size_t(1) << down) - 1) >> down);
        y1 = static_cast<std::uint32_t>(
            ((nodeRows * (p + 1) / rowParts) + (std::size_t(1) << down) - 1) >> down);
    };
    eachPart(rowParts, [&](std::size_t p) {
        std::uint32_t from[deepestLevel + 1], to[deepestLevel + 1];
        for (std::size_t l = 0; l < grids.size(); ++l) {
            rowsOfPart(p, grids[l], from[l], to[l]);
        }
        for (std::uint32_t i = 0; i < footprints.size(); ++i) {
            const std::uint8_t l = levelOf[i];
            if (l == noLevel) {
                continue;
            }
            const Nodes s = nodes[i];
            if (s.y1 < from[l] || s.y0 >= to[l]) {
                continue;
            }
            Level& g = grids[l];
            const std::uint32_t w = s.x1 - s.x0 + 1u;
            for (unsigned r = s.reached; r; r &= r - 1) {
                const auto bit = static_cast<std::uint32_t>(std::countr_zero(r));
                const std::uint32_t y = s.y0 + bit / w;
                if (y >= from[l] && y < to[l]) {
                    ++g.first[std::size_t(y) * g.side + s.x0 + bit % w + 1];
                }
            }
        }
    });
    // Counts to starts, in blocks (a list takes whole blocks); then the triangle of every
    // entry, in order of zLow, at its place in its node's list (none in the unused places
    // at a list's end).
    constexpr std::uint32_t noEntry = 0xFFFFFFFFu;
    std::vector<HugePageVector<std::uint32_t>> filled(grids.size()), entries(grids.size());
    for (std::size_t l = 0; l < grids.size(); ++l) {
        if (!used[l]) {
            continue;
        }
        Level& g = grids[l];
        std::uint32_t blocks = 0;
        for (std::size_t n = 1; n < g.first.size(); ++n) {
            const std::uint32_t count = g.first[n];
            g.first[n] = blocks += (count + Block::lanes - 1) / Block::lanes;
        }
        entries[l].assign(std::size_t(blocks) * Block::lanes, noEntry);
        filled[l].assign(g.first.size() - 1, 0);
    }
    eachPart(rowParts, [&](std::size_t p) {
        std::uint32_t from[deepestLevel + 1], to[deepestLevel + 1];
        for (std::size_t l = 0; l < grids.size(); ++l) {
            rowsOfPart(p, grids[l], from[l], to[l]);
        }
        for (const std::uint32_t i : order) {
            const std::uint8_t l = levelOf[i];
            const Nodes s = nodes[i];
            if (s.y1 < from[l] || s.y0 >= to[l]) {
                continue;
            }
            const Level& g = grids[l];
            const std::uint32_t w = s.x1 - s.x0 + 1u;
            for (unsigned r = s.reached; r; r &= r - 1) {
                const auto bit = static_cast<std::uint32_t>(std::countr_zero(r));
                const std::uint32_t y = s.y0 + bit / w;
                if (y >= from[l] && y < to[l]) {
                    const std::size_t node = std::size_t(y) * g.side + s.x0 + bit % w;
                    entries[l][std::size_t(g.first[node]) * Block::lanes + filled[l][node]++] = i;
                }
            }
        }
    });
    // The blocks in the order they lie in memory (on every core), each lane copied from
    // its triangle's packed entry; a lane without one holds no point.
    for (std::size_t l = 0; l < grids.size(); ++l) {
        if (!used[l]) {
            continue;
        }
        Level& g = grids[l];
        g.blocks.resize(entries[l].size() / Block::lanes);
        const std::uint32_t* entry = entries[l].data();
        inParts(g.blocks.size(), threads, [&](std::size_t begin, std::size_t end) {
            for (std::size_t j = begin; j < end; ++j) {
                Block& b = g.blocks[j];
                for (unsigned lane = 0; lane < Block::lanes; ++lane) {
                    const std::uint32_t i = entry[j * Block::lanes + lane];
                    if (i == noEntry) {
                        b.zLow[lane] = INFINITY;
                        for (int k = 0; k < 9; ++k) {
                            b.edge[k][lane] = 0;
                        }
                        b.edge[2][lane] = -INFINITY;
                        for (int k = 0; k < 4; ++k) {
                            b.depth[k][lane] = 0;
                        }
                        b.triangle[lane] = noEntry;
                        b.owner[lane] = noEntry;
                        continue;
                    }
                    const Packed& e = packed[i];
                    b.zLow[lane] = e.zLow;
                    for (int k = 0; k < 9; ++k) {
                        b.edge[k][lane] = e.edge[k];
                    }
                    for (int k = 0; k < 4; ++k) {
                        b.depth[k][lane] = e.depth[k];
                    }
                    b.triangle[lane] = e.triangle;
                    b.owner[lane] = e.owner;
                }
            }
        });
        entries[l] = {};
    }
    // Deepest first: the main level holds nearly every triangle and so most blockers, and
    // a point blocked there never looks at the few large triangles of the coarser levels.
    for (std::size_t l = grids.size(); l-- > 0;) {
        if (used[l]) {
            levels_.push_back(std::move(grids[l]));
        }
    }
}
