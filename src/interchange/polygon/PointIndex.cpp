#include "interchange/polygon/PointIndex.h"

#include <cmath>
#include <cstring>

namespace {
// Cells are kept well inside the range of int64 so that neighbours (cell +- 1) never
// overflow; points beyond it share the border cells, which costs speed, not correctness.
constexpr double maxCell = 4.0e18;
// The grid is shifted by an irrational part of a cell so that round coordinates (the
// usual case in drawings) seldom fall near a cell's border.
constexpr double gridShift = 0.3819660112501051;
constexpr std::size_t initialSlots = 64;
} // namespace

PointIndex::PointIndex(double tolerance)
    : tolerance_(tolerance > 0 && std::isfinite(tolerance) ? tolerance : 0),
      toleranceSquared_(tolerance_ * tolerance_),
      cellSize_(tolerance_ > 0 ? tolerance_ * 8 : 1e-9) {
    slots_.assign(initialSlots, Slot{0, none});
    recent_.resize(recentSize);
    grow(initialSlots);
}

std::size_t PointIndex::recentSlot(const Point<3>& p) {
    std::uint64_t bits[3];
    std::memcpy(bits, p.data(), sizeof bits);
    std::uint64_t h = (bits[0] * 0x9E3779B97F4A7C15ull) ^ (bits[1] * 0xC2B2AE3D27D4EB4Full) ^
                      (bits[2] * 0x165667B19E3779F9ull);
    h ^= h >> 29;
    h *= 0xBF58476D1CE4E5B9ull;
    return static_cast<std::size_t>(h >> 54) & (recentSize - 1);
}

void PointIndex::reserve(std::size_t count) {
    points_.reserve(count);
    next_.reserve(count);
    std::size_t slots = slots_.size();
    while (slots < 2 * count) {
        slots *= 2;
    }
    if (slots > slots_.size()) {
        grow(slots);
    }
}

void PointIndex::clear() {
    points_.clear();
    next_.clear();
    slots_.assign(initialSlots, Slot{0, none});
    usedSlots_ = 0;
    recent_.assign(recentSize, Recent{});
    grow(initialSlots);
}

std::int64_t PointIndex::cellCoordinate(double v) const {
    const double c = std::floor(v / cellSize_ + gridShift);
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

std::uint64_t PointIndex::hashOf(const Cell& c) {
    // Combine the three cells, then mix all bits down into the low ones (the table keeps
    // only those): regular grids of points would otherwise pile up in a few slots.
    std::uint64_t h = static_cast<std::uint64_t>(c.x) * 0x9E3779B97F4A7C15ull;
    h = (h ^ static_cast<std::uint64_t>(c.y)) * 0xC2B2AE3D27D4EB4Full;
    h = (h ^ static_cast<std::uint64_t>(c.z)) * 0x165667B19E3779F9ull;
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    return h;
}

std::size_t PointIndex::slotOf(std::uint64_t hash) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = static_cast<std::size_t>(hash) & mask;
    while (slots_[i].head != none && slots_[i].hash != hash) {
        i = (i + 1) & mask;
    }
    return i;
}

std::uint32_t PointIndex::findInChain(std::uint32_t head, const Point<3>& p) const {
    std::uint32_t found = none;
    for (std::uint32_t i = head; i != none; i = next_[i]) {
        const Point<3>& q = points_[i];
        const double dx = q[0] - p[0], dy = q[1] - p[1], dz = q[2] - p[2];
        if (dx * dx + dy * dy + dz * dz <= toleranceSquared_ || q == p) {
            found = i; // the chain runs from the newest point to the oldest
        }
    }
    return found;
}

std::uint32_t PointIndex::findInNeighbours(const Cell& c, const Point<3>& p) const {
    if (tolerance_ == 0) {
        return none;
    }
    // A neighbouring cell can hold a point within tolerance only if p lies within the
    // tolerance of the border they share; the cell is eight tolerances wide, so on each
    // axis at most one neighbour qualifies, and usually none.
    int step[3];
    const std::int64_t cc[3] = {c.x, c.y, c.z};
    for (int a = 0; a < 3; ++a) {
        const double lo = (static_cast<double>(cc[a]) - gridShift) * cellSize_;
        step[a] = p[a] - lo <= tolerance_ ? -1 : lo + cellSize_ - p[a] <= tolerance_ ? 1 : 0;
    }
    std::uint32_t best = none;
    for (int mask = 1; mask < 8; ++mask) {
        if (((mask & 1) && !step[0]) || ((mask & 2) && !step[1]) || ((mask & 4) && !step[2])) {
            continue;
        }
        const Cell n{c.x + ((mask & 1) ? step[0] : 0), c.y + ((mask & 2) ? step[1] : 0),
                     c.z + ((mask & 4) ? step[2] : 0)};
        const std::uint64_t hash = hashOf(n);
        if (!mayHold(hash)) {
            continue;
        }
        const std::uint32_t i = findInChain(slots_[slotOf(hash)].head, p);
        if (i != none && (best == none || i < best)) {
            best = i;
        }
    }
    return best;
}

std::uint32_t PointIndex::find(const Point<3>& p) const {
    const Cell c = cellOf(p);
    const std::uint32_t own = findInChain(slots_[slotOf(hashOf(c))].head, p);
    return own != none ? own : findInNeighbours(c, p);
}

void PointIndex::grow(std::size_t slots) {
    std::vector<Slot> old(slots, Slot{0, none});
    old.swap(slots_);
    // Eight bits of the occupancy table a slot (a power of two, at least 64).
    int bits = 0;
    while ((std::size_t(1) << bits) < slots * 8) {
        ++bits;
    }
    occupiedShift_ = 64 - bits;
    occupied_.assign((std::size_t(1) << bits) / 64, 0);
    for (const Slot& s : old) {
        if (s.head != none) {
            slots_[slotOf(s.hash)] = s;
            markOccupied(s.hash);
        }
    }
}

std::uint32_t PointIndex::insert(const Point<3>& p) {
    // An earlier answer for exactly these coordinates is still a point within tolerance.
    Recent& r = recent_[recentSlot(p)];
    if (r.index != none && r.p == p) {
        return r.index;
    }
    const std::uint32_t index = insertNew(p);
    r.p = p;
    r.index = index;
    return index;
}

void PointIndex::insert(std::span<const Point<3>> points, std::span<std::uint32_t> out) {
    // The slots of points not answered from the cache are most likely far away in
    // memory: ask for all of them first, so that the waits overlap.
    const std::size_t mask = slots_.size() - 1;
    for (const Point<3>& p : points) {
        const Recent& r = recent_[recentSlot(p)];
        if (!(r.index != none && r.p == p)) {
            __builtin_prefetch(&slots_[static_cast<std::size_t>(hashOf(cellOf(p))) & mask]);
        }
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        out[i] = insert(points[i]);
    }
}

std::uint32_t PointIndex::insertNew(const Point<3>& p) {
    const Cell c = cellOf(p);
    const std::uint64_t hash = hashOf(c);
    std::size_t slot = slotOf(hash);
    std::uint32_t found = findInChain(slots_[slot].head, p);
    if (found == none) {
        found = findInNeighbours(c, p);
    }
    if (found != none) {
        return found;
    }
    if (slots_[slot].head == none) {
        if ((usedSlots_ + 1) * 2 > slots_.size()) {
            grow(slots_.size() * 2);
            slot = slotOf(hash);
        }
        slots_[slot].hash = hash;
        markOccupied(hash);
        ++usedSlots_;
    }
    Slot& s = slots_[slot];
    const auto index = static_cast<std::uint32_t>(points_.size());
    points_.push_back(p);
    next_.push_back(s.head);
    s.head = index;
    return index;
}
