#include "interchange/PointIndex.h"

#include <cmath>

namespace {
// Cells are kept well inside the range of int64 so that neighbours (cell +- 1) never
// overflow; points beyond it share the border cells, which costs speed, not correctness.
constexpr double maxCell = 4.0e18;
} // namespace

PointIndex::PointIndex(double tolerance)
    : tolerance_(tolerance > 0 && std::isfinite(tolerance) ? tolerance : 0),
      toleranceSquared_(tolerance_ * tolerance_),
      cellSize_(tolerance_ > 0 ? tolerance_ * 2 : 1e-9) {
    slots_.assign(64, Slot{{0, 0, 0}, none});
}

void PointIndex::reserve(std::size_t count) {
    points_.reserve(count);
    next_.reserve(count);
}

void PointIndex::clear() {
    points_.clear();
    next_.clear();
    slots_.assign(64, Slot{{0, 0, 0}, none});
    usedSlots_ = 0;
}

std::int64_t PointIndex::cellCoordinate(double v) const {
    const double c = std::floor(v / cellSize_);
    if (!(c > -maxCell)) { // also catches NaN
        return static_cast<std::int64_t>(-maxCell);
    }
    if (c > maxCell) {
        return static_cast<std::int64_t>(maxCell);
    }
    return static_cast<std::int64_t>(c);
}

PointIndex::Cell PointIndex::cellOf(const Point<3>& p) const {
    return {cellCoordinate(p[0]), cellCoordinate(p[1]), cellCoordinate(p[2])};
}

std::size_t PointIndex::slotOf(const Cell& c) const {
    std::uint64_t h = static_cast<std::uint64_t>(c.x) * 0x9E3779B97F4A7C15ull;
    h ^= static_cast<std::uint64_t>(c.y) * 0xC2B2AE3D27D4EB4Full + (h << 6) + (h >> 2);
    h ^= static_cast<std::uint64_t>(c.z) * 0x165667B19E3779F9ull + (h << 6) + (h >> 2);
    h ^= h >> 29;
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = static_cast<std::size_t>(h) & mask;
    while (slots_[i].head != none && !(slots_[i].cell == c)) {
        i = (i + 1) & mask;
    }
    return i;
}

std::uint32_t PointIndex::findInCell(const Cell& c, const Point<3>& p) const {
    const Slot& s = slots_[slotOf(c)];
    std::uint32_t found = none;
    for (std::uint32_t i = s.head; i != none; i = next_[i]) {
        const Point<3>& q = points_[i];
        const double dx = q[0] - p[0], dy = q[1] - p[1], dz = q[2] - p[2];
        const double d2 = dx * dx + dy * dy + dz * dz;
        if (d2 <= toleranceSquared_ || q == p) {
            found = found == none || i < found ? i : found;
        }
    }
    return found;
}

std::uint32_t PointIndex::find(const Point<3>& p) const {
    const Cell c = cellOf(p);
    std::uint32_t best = findInCell(c, p);
    if (tolerance_ == 0) {
        return best;
    }
    // Neighbouring cells can hold a point within tolerance only if p lies within the
    // tolerance of the shared border; the cell is twice the tolerance wide, so on each
    // axis at most one neighbour qualifies.
    int step[3];
    for (int a = 0; a < 3; ++a) {
        const double lo = static_cast<double>(a == 0 ? c.x : a == 1 ? c.y : c.z) * cellSize_;
        step[a] = p[a] - lo <= tolerance_ ? -1 : lo + cellSize_ - p[a] <= tolerance_ ? 1 : 0;
    }
    for (int mask = 1; mask < 8; ++mask) {
        if (((mask & 1) && !step[0]) || ((mask & 2) && !step[1]) || ((mask & 4) && !step[2])) {
            continue;
        }
        const Cell n{c.x + ((mask & 1) ? step[0] : 0), c.y + ((mask & 2) ? step[1] : 0),
                     c.z + ((mask & 4) ? step[2] : 0)};
        const std::uint32_t i = findInCell(n, p);
        if (i != none && (best == none || i < best)) {
            best = i;
        }
    }
    return best;
}

void PointIndex::grow() {
    std::vector<Slot> old(slots_.size() * 2, Slot{{0, 0, 0}, none});
    old.swap(slots_);
    for (const Slot& s : old) {
        if (s.head != none) {
            slots_[slotOf(s.cell)] = s;
        }
    }
}

std::uint32_t PointIndex::insert(const Point<3>& p) {
    const std::uint32_t found = find(p);
    if (found != none) {
        return found;
    }
    if ((usedSlots_ + 1) * 2 > slots_.size()) {
        grow();
    }
    const Cell c = cellOf(p);
    Slot& s = slots_[slotOf(c)];
    const auto index = static_cast<std::uint32_t>(points_.size());
    points_.push_back(p);
    if (s.head == none) {
        s.cell = c;
        ++usedSlots_;
        next_.push_back(none);
    } else {
        next_.push_back(s.head);
    }
    s.head = index;
    return index;
}
