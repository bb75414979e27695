#include "interchange/polygon/PolygonTriangulator.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

/// Twice the signed area of triangle (a, b, c): positive when counter-clockwise.
double cross3(const Point<2>& a, const Point<2>& b, const Point<2>& c) {
    return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

/// A ring as a circular doubly linked list over positions in a vector.
struct Ring {
    struct Node {
        std::uint32_t id;
        Point<2> p;
        std::uint32_t prev, next;
    };
    std::vector<Node> nodes;
    std::uint32_t start = 0;
    std::size_t count = 0;

    Ring(std::span<const Point<2>> coords, std::span<const std::uint32_t> ids) {
        nodes.reserve(ids.size());
        const auto n = static_cast<std::uint32_t>(ids.size());
        for (std::uint32_t i = 0; i < n; ++i) {
            nodes.push_back({ids[i], coords[ids[i]], (i + n - 1) % n, (i + 1) % n});
        }
        count = n;
    }
    void remove(std::uint32_t i) {
        Node& node = nodes[i];
        nodes[node.prev].next = node.next;
        nodes[node.next].prev = node.prev;
        if (start == i) {
            start = node.next;
        }
        --count;
    }
    double turn(std::uint32_t i) const {
        const Node& n = nodes[i];
        return cross3(nodes[n.prev].p, n.p, nodes[n.next].p);
    }
};

/// Drops repeated points and vertices where the ring goes straight on or turns back
/// (zero turn), starting at `from`; returns a node that is still in the ring.
std::uint32_t filterPoints(Ring& r, std::uint32_t from) {
    std::uint32_t i = from;
    std::uint32_t stop = from;
    bool again;
    do {
        again = false;
        if (r.count < 3) {
            return i;
        }
        const auto& n = r.nodes[i];
        if (n.p == r.nodes[n.next].p || r.turn(i) == 0) {
            const std::uint32_t prev = n.prev;
            r.remove(i);
            i = stop = prev;
            again = true;
        } else {
            i = n.next;
        }
    } while (again || i != stop);
    return i;
}

bool insideTriangle(const Point<2>& a, const Point<2>& b, const Point<2>& c, const Point<2>& p) {
    return cross3(a, b, p) >= 0 && cross3(b, c, p) >= 0 && cross3(c, a, p) >= 0;
}

/// Whether node `e` is an ear: convex, and no vertex that is reflex (or straight) lies in
/// or on the triangle it cuts off. Vertices that coincide with a corner of the triangle
/// are ignored: they are the far ends of bridges or other touching points.
bool isEar(const Ring& r, std::uint32_t e) {
    const auto& n = r.nodes[e];
    const Point<2>& a = r.nodes[n.prev].p;
    const Point<2>& b = n.p;
    const Point<2>& c = r.nodes[n.next].p;
    if (cross3(a, b, c) <= 0) {
        return false;
    }
    for (std::uint32_t i = r.nodes[n.next].next; i != n.prev; i = r.nodes[i].next) {
        const Point<2>& p = r.nodes[i].p;
        if (p == a || p == b || p == c) {
            continue;
        }
        if (insideTriangle(a, b, c, p) && r.turn(i) <= 0) {
            return false;
        }
    }
    return true;
}

} // namespace

double PolygonTriangulator::signedArea2(std::span<const std::uint32_t> ring) const {
    double s = 0;
    const std::size_t n = ring.size();
    for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
        const Point<2>& a = coords_[ring[j]];
        const Point<2>& b = coords_[ring[i]];
        s += (a[0] - b[0]) * (a[1] + b[1]);
    }
    return s;
}

std::size_t PolygonTriangulator::triangulate(std::span<const std::uint32_t> ring,
                                             std::vector<Triangle>& out) const {
    if (ring.size() < 3) {
        return 0;
    }
    const double area = signedArea2(ring);
    if (!(std::fabs(area) > 0)) {
        return 0;
    }
    std::vector<std::uint32_t> ordered(ring.begin(), ring.end());
    if (area < 0) {
        std::reverse(ordered.begin(), ordered.end());
    }
    Ring r(coords_, ordered);
    const std::size_t before = out.size();
    std::uint32_t e = filterPoints(r, r.start);
    // Stages when a whole turn finds no ear: 0 strict ears, 1 again after filtering,
    // 2 any convex vertex (the polygon is not simple there), then give up.
    int stage = 0;
    std::uint32_t stop = e;
    while (r.count >= 3) {
        const auto& n = r.nodes[e];
        const bool cut = stage < 2 ? isEar(r, e) : r.turn(e) > 0;
        if (cut) {
            out.push_back({r.nodes[n.prev].id, n.id, r.nodes[n.next].id});
            const std::uint32_t next = n.next;
            r.remove(e);
            if (r.count < 3) {
                break;
            }
            e = stop = filterPoints(r, r.nodes[next].prev);
            stage = 0;
            continue;
        }
        e = n.next;
        if (e == stop) {
            if (++stage > 2) {
                break;
            }
            e = stop = filterPoints(r, e);
        }
    }
    return out.size() - before;
}

std::vector<std::uint32_t>
PolygonTriangulator::joinHoles(std::span<const std::uint32_t> outer,
                               const std::vector<std::vector<std::uint32_t>>& holes) const {
    std::vector<std::uint32_t> ring(outer.begin(), outer.end());
    if (ring.size() < 3) {
        return ring;
    }
    if (signedArea2(ring) < 0) {
        std::reverse(ring.begin(), ring.end());
    }
    // Holes clockwise, each starting at its rightmost vertex; joined from right to left
    // so that a later hole can bridge to one joined before it.
    struct Hole {
        std::vector<std::uint32_t> ids;
        double x;
    };
    std::vector<Hole> ordered;
    for (const auto& h : holes) {
        if (h.size() < 3) {
            continue;
        }
        std::vector<std::uint32_t> ids(h.begin(), h.end());
        if (signedArea2(ids) > 0) {
            std::reverse(ids.begin(), ids.end());
        }
        std::size_t best = 0;
        for (std::size_t i = 1; i < ids.size(); ++i) {
            const Point<2>& p = coords_[ids[i]];
            const Point<2>& q = coords_[ids[best]];
            if (p[0] > q[0] || (p[0] == q[0] && p[1] < q[1])) {
                best = i;
            }
        }
        std::rotate(ids.begin(), ids.begin() + static_cast<std::ptrdiff_t>(best), ids.end());
        const double x = coords_[ids[0]][0];
        ordered.push_back({std::move(ids), x});
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const Hole& a, const Hole& b) { return a.x > b.x; });

    for (const Hole& hole : ordered) {
        const Point<2> m = coords_[hole.ids[0]];
        // Cast a ray from M along +x and find the nearest edge it meets.
        const std::size_t n = ring.size();
        double bestX = std::numeric_limits<double>::infinity();
        std::size_t bestEdge = n;
        for (std::size_t i = 0; i < n; ++i) {
            const Point<2>& a = coords_[ring[i]];
            const Point<2>& b = coords_[ring[(i + 1) % n]];
            // Upward edges of a counter-clockwise ring (and of the clockwise holes already
            // joined) face the hole from the right.
            if (!(a[1] <= m[1] && b[1] >= m[1]) || a[1] == b[1]) {
                continue;
            }
            const double x = a[0] + (m[1] - a[1]) * (b[0] - a[0]) / (b[1] - a[1]);
            if (x >= m[0] && x < bestX) {
                bestX = x;
                bestEdge = i;
            }
        }
        if (bestEdge == n) {
            continue; // nothing to the right: the hole is not inside
        }
        // The candidate is the end of that edge furthest to the right; a reflex vertex
        // inside the triangle (M, I, candidate) would hide it, so take the one of those
        // nearest in angle to the ray instead.
        const std::size_t ia = bestEdge, ib = (bestEdge + 1) % n;
        std::size_t pick = coords_[ring[ia]][0] > coords_[ring[ib]][0] ? ia : ib;
        const Point<2> hit(bestX, m[1]);
        const Point<2> p = coords_[ring[pick]];
        if (!(hit == p)) {
            double bestTan = std::numeric_limits<double>::infinity();
            double bestDist = std::numeric_limits<double>::infinity();
            // Orient the triangle counter-clockwise for the inclusion test.
            const bool up = p[1] > m[1];
            for (std::size_t i = 0; i < n; ++i) {
                const Point<2>& q = coords_[ring[i]];
                if (i == pick || q[0] < m[0]) {
                    continue;
                }
                const bool inside =
                    up ? insideTriangle(m, hit, p, q) : insideTriangle(m, p, hit, q);
                if (!inside) {
                    continue;
                }
                const Point<2>& prev = coords_[ring[(i + n - 1) % n]];
                const Point<2>& next = coords_[ring[(i + 1) % n]];
                if (cross3(prev, q, next) > 0) {
                    continue; // convex vertices cannot hide the candidate
                }
                const double dx = q[0] - m[0];
                const double t =
                    dx > 0 ? std::fabs(q[1] - m[1]) / dx : std::numeric_limits<double>::infinity();
                const double d = dx * dx + (q[1] - m[1]) * (q[1] - m[1]);
                if (t < bestTan || (t == bestTan && d < bestDist)) {
                    bestTan = t;
                    bestDist = d;
                    pick = i;
                }
            }
        }
        // Where the chosen point appears more than once (the end of an earlier bridge),
        // use the appearance whose corner opens towards M.
        const Point<2> target = coords_[ring[pick]];
        for (std::size_t i = 0; i < n; ++i) {
            if (!(coords_[ring[i]] == target)) {
                continue;
            }
            const Point<2>& prev = coords_[ring[(i + n - 1) % n]];
            const Point<2>& next = coords_[ring[(i + 1) % n]];
            const bool convex = cross3(prev, target, next) > 0;
            const bool opens = convex
                                   ? cross3(target, next, m) >= 0 && cross3(target, m, prev) >= 0
                                   : !(cross3(target, prev, m) > 0 && cross3(target, m, next) > 0);
            if (opens) {
                pick = i;
                break;
            }
        }
        // ring: ... P, M, hole..., M, P, ...
        std::vector<std::uint32_t> splice;
        splice.reserve(hole.ids.size() + 2);
        splice.insert(splice.end(), hole.ids.begin(), hole.ids.end());
        splice.push_back(hole.ids[0]);
        splice.push_back(ring[pick]);
        ring.insert(ring.begin() + static_cast<std::ptrdiff_t>(pick) + 1, splice.begin(),
                    splice.end());
    }
    return ring;
}
