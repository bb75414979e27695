#include "interchange/polygon/Clump.h"

#include "interchange/polygon/PolygonTriangulator.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_map>

namespace {

/// Union-find with path halving.
Clump::Index findRoot(std::vector<Clump::Index>& parent, Clump::Index i) {
    while (parent[i] != i) {
        parent[i] = parent[parent[i]];
        i = parent[i];
    }
    return i;
}

} // namespace

bool Clump::Comparator::operator()(Index a, Index b) const {
    const Face& fa = clump->faces_[a];
    const Face& fb = clump->faces_[b];
    if (fa.smoothing != fb.smoothing) {
        return fa.smoothing < fb.smoothing;
    }
    if (!(fa.matstyle == fb.matstyle)) {
        return fa.matstyle.value() < fb.matstyle.value();
    }
    return a < b;
}

Clump::Clump(double tolerance) : points_(tolerance) {}

Clump::Index Clump::addFace(std::span<const Index> outer, Quark matstyle, std::uint32_t smoothing,
                            std::span<const std::vector<Index>> holes) {
    const auto f = static_cast<Index>(faces_.size());
    const auto firstLoop = static_cast<Index>(loops_.size());
    // Appends a loop without the points repeated next to each other (last against first
    // too); drops it again if fewer than three are left.
    auto addLoop = [&](std::span<const Index> pts) {
        const auto l = static_cast<Index>(loops_.size());
        const auto first = static_cast<Index>(edges_.size());
        for (Index p : pts) {
            if (edges_.size() == first || edges_.back().point != p) {
                edges_.push_back({p, l});
            }
        }
        while (edges_.size() > first + 1 && edges_.back().point == edges_[first].point) {
            edges_.pop_back();
        }
        if (edges_.size() - first < 3) {
            edges_.resize(first);
            return false;
        }
        loops_.push_back({first, static_cast<Index>(edges_.size()) - first, f});
        return true;
    };
    if (!addLoop(outer)) {
        return none;
    }
    for (const auto& h : holes) {
        addLoop(h);
    }
    faces_.push_back(
        {firstLoop, static_cast<Index>(loops_.size()) - firstLoop, matstyle, smoothing});
    normals_.clear();
    return f;
}

Clump::Index Clump::addFace(std::span<const Point<3>> outer, Quark matstyle,
                            std::uint32_t smoothing) {
    std::vector<Index> ids;
    ids.reserve(outer.size());
    for (const Point<3>& p : outer) {
        ids.push_back(addPoint(p));
    }
    return addFace(ids, matstyle, smoothing);
}

Clump::Index Clump::nextEdge(Index e) const {
    const Loop& l = loops_[edges_[e].loop];
    return e + 1 == l.firstEdge + l.edgeCount ? l.firstEdge : e + 1;
}

Vector<3> Clump::newellNormal(Index f) const {
    const Loop& l = loops_[faces_[f].firstLoop];
    // Newell's method, taken about the first point to keep the sums small.
    const Point<3>& o = coord(edges_[l.firstEdge].point);
    Vector<3> n;
    for (Index i = 0; i < l.edgeCount; ++i) {
        const Vector<3> a = coord(edges_[l.firstEdge + i].point) - o;
        const Vector<3> b = coord(edges_[l.firstEdge + (i + 1) % l.edgeCount].point) - o;
        n += cross(a, b);
    }
    const double len = n.length();
    return len > 0 && std::isfinite(len) ? n / len : Vector<3>();
}

const Vector<3>& Clump::surfaceNormal(Index f) const {
    if (normals_.size() != faces_.size()) {
        normals_.resize(faces_.size());
        for (Index g = 0; g < faces_.size(); ++g) {
            normals_[g] = newellNormal(g);
        }
    }
    return normals_[f];
}

bool Clump::hasHoles() const {
    return std::any_of(faces_.begin(), faces_.end(), [](const Face& f) { return f.loopCount > 1; });
}

void Clump::project(Index f, const Vector<3>& n, std::vector<Point<2>>& out) const {
    // Drop the axis of the normal's largest component; order the other two so that
    // the projection keeps the loop's turning sense as seen against the normal.
    int u = 0, v = 1;
    const double ax = std::fabs(n[0]), ay = std::fabs(n[1]), az = std::fabs(n[2]);
    if (ax >= ay && ax >= az) {
        u = n[0] > 0 ? 1 : 2;
        v = n[0] > 0 ? 2 : 1;
    } else if (ay >= az) {
        u = n[1] > 0 ? 2 : 0;
        v = n[1] > 0 ? 0 : 2;
    } else {
        u = n[2] > 0 ? 0 : 1;
        v = n[2] > 0 ? 1 : 0;
    }
    const Face& face = faces_[f];
    for (Index l = face.firstLoop; l < face.firstLoop + face.loopCount; ++l) {
        const Loop& loop = loops_[l];
        for (Index e = loop.firstEdge; e < loop.firstEdge + loop.edgeCount; ++e) {
            const Point<3>& p = coord(edges_[e].point);
            out.emplace_back(p[u], p[v]);
        }
    }
}

void Clump::faceRing(Index f, const Vector<3>& normal, std::vector<Index>& corners,
                     std::vector<Point<2>>& coords, std::vector<Index>& ring) const {
    corners.clear();
    coords.clear();
    ring.clear();
    const Face& face = faces_[f];
    for (Index l = face.firstLoop; l < face.firstLoop + face.loopCount; ++l) {
        const Loop& loop = loops_[l];
        for (Index e = loop.firstEdge; e < loop.firstEdge + loop.edgeCount; ++e) {
            corners.push_back(e);
        }
    }
    project(f, normal, coords);
    const Loop& outer = loops_[face.firstLoop];
    if (face.loopCount == 1) {
        ring.resize(outer.edgeCount);
        std::iota(ring.begin(), ring.end(), 0);
        return;
    }
    std::vector<Index> outerIds(outer.edgeCount);
    std::iota(outerIds.begin(), outerIds.end(), 0);
    std::vector<std::vector<Index>> holes;
    Index at = outer.edgeCount;
    for (Index l = face.firstLoop + 1; l < face.firstLoop + face.loopCount; ++l) {
        std::vector<Index> h(loops_[l].edgeCount);
        std::iota(h.begin(), h.end(), at);
        at += loops_[l].edgeCount;
        holes.push_back(std::move(h));
    }
    ring = PolygonTriangulator(coords).joinHoles(outerIds, holes);
}

void Clump::removeHoles() {
    if (!hasHoles()) {
        return;
    }
    std::vector<Loop> loops;
    std::vector<Edge> edges;
    loops.reserve(faces_.size());
    edges.reserve(edges_.size() + 2 * (loops_.size() - faces_.size()));
    std::vector<Index> corners, ring;
    std::vector<Point<2>> coords;
    for (Index f = 0; f < faces_.size(); ++f) {
        Face& face = faces_[f];
        const auto l = static_cast<Index>(loops.size());
        const Index first = static_cast<Index>(edges.size());
        if (face.loopCount == 1) {
            const Loop& old = loops_[face.firstLoop];
            for (Index e = old.firstEdge; e < old.firstEdge + old.edgeCount; ++e) {
                edges.push_back({edges_[e].point, l});
            }
        } else {
            const Vector<3> n = newellNormal(f);
            if (n.lengthSquared() == 0) {
                ring.clear();
                corners.clear();
                const Loop& old = loops_[face.firstLoop];
                for (Index e = old.firstEdge; e < old.firstEdge + old.edgeCount; ++e) {
                    corners.push_back(e);
                    ring.push_back(e - old.firstEdge);
                }
            } else {
                faceRing(f, n, corners, coords, ring);
            }
            for (std::size_t i = 0; i < ring.size(); ++i) {
                const Index c = corners[ring[i]];
                const Index d = corners[ring[(i + 1) % ring.size()]];
                Edge e{edges_[c].point, l};
                e.bridge = d != nextEdge(c);
                edges.push_back(e);
            }
        }
        loops.push_back({first, static_cast<Index>(edges.size()) - first, f});
        face.firstLoop = l;
        face.loopCount = 1;
    }
    loops_ = std::move(loops);
    edges_ = std::move(edges);
    normals_.clear();
}

void Clump::pairEdges() {
    // The edges leaving each point, gathered by point (counting sort); an edge a -> b
    // pairs with an unpaired edge b -> a among those leaving b.
    std::vector<Index> start(points_.size() + 1, 0);
    for (Edge& e : edges_) {
        e.pair = none;
        e.smooth = false;
        ++start[e.point + 1];
    }
    for (std::size_t i = 1; i < start.size(); ++i) {
        start[i] += start[i - 1];
    }
    std::vector<Index> leaving(edges_.size());
    std::vector<Index> fill(start.begin(), start.end() - 1);
    for (Index e = 0; e < edges_.size(); ++e) {
        leaving[fill[edges_[e].point]++] = e;
    }
    for (Index e = 0; e < edges_.size(); ++e) {
        Edge& edge = edges_[e];
        const Index a = edge.point;
        const Index b = edges_[nextEdge(e)].point;
        if (edge.pair != none || edge.bridge || a == b) {
            continue;
        }
        for (Index k = start[b]; k < start[b + 1]; ++k) {
            const Index g = leaving[k];
            Edge& other = edges_[g];
            if (g != e && other.pair == none && !other.bridge && edges_[nextEdge(g)].point == a) {
                edge.pair = g;
                other.pair = e;
                break;
            }
        }
    }
}

std::vector<Clump::Region> Clump::chooseRegions(bool flat, Quark material) {
    std::vector<Region> regions;
    if (faces_.empty()) {
        return regions;
    }
    if (flat) {
        Region r;
        r.material = material;
        r.faces.resize(faces_.size());
        std::iota(r.faces.begin(), r.faces.end(), 0);
        for (Face& f : faces_) {
            f.region = 0;
        }
        regions.push_back(std::move(r));
    } else {
        std::vector<Index> order(faces_.size());
        std::iota(order.begin(), order.end(), 0);
        // Mostly all faces are alike, and then they are in order already.
        const Face& first = faces_.front();
        const bool alike = std::all_of(faces_.begin(), faces_.end(), [&](const Face& f) {
            return f.smoothing == first.smoothing && f.matstyle == first.matstyle;
        });
        if (!alike) {
            std::sort(order.begin(), order.end(), Comparator{this});
        }
        for (Index f : order) {
            const Face& face = faces_[f];
            if (regions.empty() ||
                faces_[regions.back().faces.front()].smoothing != face.smoothing ||
                !(faces_[regions.back().faces.front()].matstyle == face.matstyle)) {
                Region r;
                r.material = face.matstyle.isNull() ? material : face.matstyle;
                r.smoothing = face.smoothing;
                regions.push_back(std::move(r));
            }
            regions.back().faces.push_back(f);
            faces_[f].region = static_cast<Index>(regions.size() - 1);
        }
    }
    pairEdges();
    for (Index e = 0; e < edges_.size(); ++e) {
        Edge& edge = edges_[e];
        if (edge.pair == none) {
            continue;
        }
        const Face& f = faces_[loops_[edge.loop].face];
        const Face& g = faces_[loops_[edges_[edge.pair].loop].face];
        edge.smooth = f.region == g.region && regions[f.region].smoothing != 0;
    }
    return regions;
}

bool Clump::hasSmoothEdges(const Region& region) const {
    for (Index f : region.faces) {
        const auto [first, end] = faceEdges(f);
        for (Index e = first; e < end; ++e) {
            if (edges_[e].smooth) {
                return true;
            }
        }
    }
    return false;
}

void Clump::breakSharpEdges(const Region& region, Angle smoothAngle) {
    const double limit = smoothAngle.cos();
    for (Index f : region.faces) {
        const Vector<3> n = surfaceNormal(f);
        const auto [first, end] = faceEdges(f);
        for (Index e = first; e < end; ++e) {
            Edge& edge = edges_[e];
            if (!edge.smooth) {
                continue;
            }
            const Index g = loops_[edges_[edge.pair].loop].face;
            const Vector<3> m = surfaceNormal(g);
            const bool sharp = faces_[g].region != faces_[f].region || n.lengthSquared() == 0 ||
                               m.lengthSquared() == 0 || dot(n, m) < limit;
            if (sharp) {
                edge.smooth = false;
                edges_[edge.pair].smooth = false;
            }
        }
    }
}

std::vector<Clump::Triangle> Clump::triangulate(const Region& region) const {
    std::vector<Triangle> out;
    out.reserve(region.faces.size() * 2);
    std::vector<Index> corners, ring;
    std::vector<Point<2>> coords;
    std::vector<PolygonTriangulator::Triangle> tris;
    for (Index f : region.faces) {
        const Vector<3>& n = surfaceNormal(f);
        if (n.lengthSquared() == 0) {
            continue;
        }
        const Face& face = faces_[f];
        const Loop& loop = loops_[face.firstLoop];
        // Triangles, and quads that one of their diagonals splits into two triangles
        // both turning with the face, need no ear clipping.
        if (face.loopCount == 1 && loop.edgeCount == 3) {
            const Index e = loop.firstEdge;
            out.push_back({{e, e + 1, e + 2}, f});
            continue;
        }
        if (face.loopCount == 1 && loop.edgeCount == 4) {
            const Index e = loop.firstEdge;
            const Point<3>* p[4];
            for (int k = 0; k < 4; ++k) {
                p[k] = &coord(edges_[e + k].point);
            }
            auto turns = [&](int a, int b, int c) {
                return dot(cross(*p[b] - *p[a], *p[c] - *p[a]), n) > 0;
            };
            if (turns(0, 1, 2) && turns(0, 2, 3)) {
                out.push_back({{e, e + 1, e + 2}, f});
                out.push_back({{e, e + 2, e + 3}, f});
                continue;
            }
            if (turns(1, 2, 3) && turns(1, 3, 0)) {
                out.push_back({{e + 1, e + 2, e + 3}, f});
                out.push_back({{e + 1, e + 3, e}, f});
                continue;
            }
        }
        faceRing(f, n, corners, coords, ring);
        tris.clear();
        PolygonTriangulator(coords).triangulate(ring, tris);
        for (const auto& t : tris) {
            out.push_back({{corners[t[0]], corners[t[1]], corners[t[2]]}, f});
        }
    }
    return out;
}

std::pair<Clump::Index, Clump::Index> Clump::faceEdges(Index f) const {
    const Face& face = faces_[f];
    const Loop& last = loops_[face.firstLoop + face.loopCount - 1];
    return {loops_[face.firstLoop].firstEdge, last.firstEdge + last.edgeCount};
}

Clump::Index Clump::prevEdge(Index e) const {
    const Loop& l = loops_[edges_[e].loop];
    return e == l.firstEdge ? l.firstEdge + l.edgeCount - 1 : e - 1;
}

std::vector<Vector<3>> Clump::cornerNormals(const Region& region) const {
    std::vector<Vector<3>> normals(edges_.size());
    if (!hasSmoothEdges(region)) {
        for (Index f : region.faces) {
            const auto [first, end] = faceEdges(f);
            std::fill(normals.begin() + first, normals.begin() + end, surfaceNormal(f));
        }
        return normals;
    }
    std::vector<Index> parent(edges_.size());
    std::iota(parent.begin(), parent.end(), 0);
    // Across a smooth edge p -> q of one face and its pair q -> p of the other, the
    // corners at p are this edge and the one after the pair, and at q the one after this
    // edge and the pair itself.
    for (Index f : region.faces) {
        const auto [first, end] = faceEdges(f);
        for (Index e = first; e < end; ++e) {
            if (edges_[e].smooth) {
                const Index p = edges_[e].pair;
                parent[findRoot(parent, e)] = findRoot(parent, nextEdge(p));
                parent[findRoot(parent, nextEdge(e))] = findRoot(parent, p);
            }
        }
    }
    // Sum into each group's root, weighting a face's normal by the corner's angle so
    // that splitting a face into more triangles does not tilt the mean.
    for (Index f : region.faces) {
        const Vector<3> n = surfaceNormal(f);
        const auto [first, end] = faceEdges(f);
        for (Index e = first; e < end; ++e) {
            const Point<3>& p = coord(edges_[e].point);
            const Vector<3> a = coord(edges_[prevEdge(e)].point) - p;
            const Vector<3> b = coord(edges_[nextEdge(e)].point) - p;
            const double w = std::atan2(cross(a, b).length(), dot(a, b));
            normals[findRoot(parent, e)] += n * (std::isfinite(w) ? w : 0);
        }
    }
    for (Index f : region.faces) {
        const auto [first, end] = faceEdges(f);
        for (Index e = first; e < end; ++e) {
            if (parent[e] != e) {
                normals[e] = normals[findRoot(parent, e)];
            }
        }
    }
    for (Index f : region.faces) {
        const Vector<3> n = surfaceNormal(f);
        const auto [first, end] = faceEdges(f);
        for (Index e = first; e < end; ++e) {
            const Vector<3> u = normals[e].unit();
            normals[e] = u.lengthSquared() > 0.5 ? u : n;
        }
    }
    return normals;
}
