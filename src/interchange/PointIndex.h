#pragma once

#include "core/Point.h"

#include <cstdint>
#include <vector>

/// Stores points once: a point within `tolerance` (Euclidean distance, model units) of
/// one already stored gets that point's index. Lookups hash the point's cell on a grid of
/// the tolerance's size and look at the neighbouring cells only when the point lies near
/// a cell border, so most inserts cost one probe.
class PointIndex {
public:
    /// A tolerance of 0 or less merges only exactly equal points.
    explicit PointIndex(double tolerance = 0.001);

    /// The index of the stored point within tolerance of p, storing p first if there is
    /// none. When several stored points qualify, the one stored first wins.
    std::uint32_t insert(const Point<3>& p);
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
        bool operator==(const Cell&) const = default;
    };
    struct Slot {
        Cell cell;
        std::uint32_t head; ///< first point of the cell, `none` for an empty slot
    };

    Cell cellOf(const Point<3>& p) const;
    std::int64_t cellCoordinate(double v) const;
    std::uint32_t findInCell(const Cell& c, const Point<3>& p) const;
    std::size_t slotOf(const Cell& c) const;
    void grow();

    double tolerance_;
    double toleranceSquared_;
    double cellSize_;
    std::vector<Point<3>> points_;
    std::vector<std::uint32_t> next_; ///< next point of the same cell
    std::vector<Slot> slots_;         ///< open addressing, power-of-two size
    std::size_t usedSlots_ = 0;
};
