#pragma once

#include "core/Point.h"

#include <cstdint>
#include <span>
#include <vector>

/// Stores points once: a point within `tolerance` (Euclidean distance, model units) of
/// one already stored gets that point's index. Points are hashed by their cell on a grid
/// eight tolerances wide; a lookup looks first in the point's own cell, and in the
/// neighbouring cells only when that finds nothing and the point lies within the
/// tolerance of the cell's border, so most lookups cost one probe.
class PointIndex {
public:
    /// A tolerance of 0 or less merges only exactly equal points.
    explicit PointIndex(double tolerance = 0.001);

    /// The index of a stored point within tolerance of p, storing p first if there is
    /// none. A point of p's own grid cell is preferred, then the one stored first.
    std::uint32_t insert(const Point<3>& p);
    /// insert() for each point of `points`, indices to `out` (of the same size). Faster
    /// than one by one for new points: their table slots are fetched from memory
    /// together.
    void insert(std::span<const Point<3>> points, std::span<std::uint32_t> out);
    /// The index of a stored point within tolerance of p, or `none`.
    std::uint32_t find(const Point<3>& p) const;

    const std::vector<Point<3>>& points() const { return points_; }
    std::size_t size() const { return points_.size(); }
    double tolerance() const { return tolerance_; }
    /// Reserves room for `count` points.
    void reserve(std::size_t count);
    /// Forgets every point.
    void clear();

    static constexpr std::uint32_t none = 0xFFFFFFFFu;

private:
    struct Cell {
        std::int64_t x, y, z;
    };
    /// A slot of the open-addressing table: the hash of a cell and its first point.
    /// Different cells of equal hash share a chain, which is harmless: every candidate
    /// is checked by its distance.
    struct Slot {
        std::uint64_t hash;
        std::uint32_t head; ///< `none` for an empty slot
    };

    Cell cellOf(const Point<3>& p) const;
    std::int64_t cellCoordinate(double v) const;
    static std::uint64_t hashOf(const Cell& c);
    std::size_t slotOf(std::uint64_t hash) const;
    /// The oldest point of a chain within tolerance of p, or `none`.
    std::uint32_t findInChain(std::uint32_t head, const Point<3>& p) const;
    /// The oldest point within tolerance of p in the cells next to c, or `none`.
    std::uint32_t findInNeighbours(const Cell& c, const Point<3>& p) const;
    void grow(std::size_t slots);
    /// insert without the cache of recent answers.
    std::uint32_t insertNew(const Point<3>& p);

    /// Recent answers by exact coordinates: drawings repeat a shared corner in every face
    /// that meets there, mostly close together, and this answers those from cache.
    struct Recent {
        Point<3> p;
        std::uint32_t index = none;
    };
    static constexpr std::size_t recentSize = 1024;
    static std::size_t recentSlot(const Point<3>& p);

    double tolerance_;
    double toleranceSquared_;
    double cellSize_;
    std::vector<Point<3>> points_;
    std::vector<std::uint32_t> next_; ///< next point of the same chain
    std::vector<Slot> slots_;         ///< power-of-two size, at most half full
    std::size_t usedSlots_ = 0;
    std::vector<Recent> recent_;
    /// One bit per hash value's top bits, set for every cell that holds points: the
    /// neighbouring cells looked at for a new point are mostly empty, and this small
    /// table says so without touching the large one.
    std::vector<std::uint64_t> occupied_;
    int occupiedShift_ = 64;
    bool mayHold(std::uint64_t hash) const {
        const std::uint64_t bit = hash >> occupiedShift_;
        return (occupied_[bit >> 6] >> (bit & 63)) & 1;
    }
    void markOccupied(std::uint64_t hash) {
        const std::uint64_t bit = hash >> occupiedShift_;
        occupied_[bit >> 6] |= std::uint64_t(1) << (bit & 63);
    }
};
