#include "interchange/model/SmoothModel.h"

#include "interchange/polygon/PolygonTriangulator.h"

#include <cmath>

namespace {
constexpr std::uint32_t none = 0xFFFFFFFFu;
} // namespace

/// Meshes still open to loose polygons, one per material, with their point indices.
struct MeshModel::LooseState {
    struct Open {
        std::size_t mesh;
        PointIndex points;
        VertexChains chains;
    };
    std::map<const Material*, Open> byMaterial;
};

MeshModel::MeshModel() : loose_(std::make_unique<LooseState>()) {}

MeshModel::~MeshModel() = default;

std::size_t MeshModel::triangleCount() const {
    std::size_t n = 0;
    for (const Mesh& m : meshes_) {
        n += m.triangles.size();
    }
    return n;
}

MeshModel::Material* MeshModel::materialNamed(Quark name) {
    if (name.isNull()) {
        name = Quark::create(DEFAULT_MSTYLE_NAME);
    }
    if (currentMaterial_ && currentMaterial_->name == name) {
        return currentMaterial_;
    }
    auto [it, made] = materialsByName_.byName.try_emplace(name);
    if (made) {
        it->second.name = name;
        it->second.order = static_cast<std::uint32_t>(materialsByName_.order.size());
        materialsByName_.order.push_back(&it->second);
    }
    currentMaterial_ = &it->second;
    return currentMaterial_;
}

const MeshModel::Material* MeshModel::findMaterial(Quark name) const {
    const auto it = materialsByName_.byName.find(name);
    return it == materialsByName_.byName.end() ? nullptr : &it->second;
}

void MeshModel::setMaterialAttribute(Quark material, const std::wstring& key,
                                     const std::wstring& value) {
    materialNamed(material)->attributes[key] = value;
}

bool MeshModel::addTriangle(Mesh& mesh, const std::array<std::uint32_t, 3>& points,
                            const std::array<Vector<3>, 3>& normals, const Material* material,
                            VertexChains& chains) {
    if (points[0] == points[1] || points[1] == points[2] || points[0] == points[2]) {
        return false;
    }
    const Plane plane(mesh.points[points[0]], mesh.points[points[1]], mesh.points[points[2]]);
    if (!plane.isValid()) {
        return false;
    }
    Triangle t{{}, plane, material};
    for (int k = 0; k < 3; ++k) {
        const std::uint32_t p = points[k];
        if (chains.firstAt.size() <= p) {
            chains.firstAt.resize(p + 1, none);
        }
        std::uint32_t v = chains.firstAt[p];
        while (v != none && !(mesh.vertices[v].normal == normals[k])) {
            v = chains.next[v];
        }
        if (v == none) {
            v = static_cast<std::uint32_t>(mesh.vertices.size());
            mesh.vertices.push_back({p, normals[k]});
            chains.next.push_back(chains.firstAt[p]);
            chains.firstAt[p] = v;
        }
        t.vertex[k] = v;
    }
    mesh.triangles.push_back(t);
    for (std::uint32_t p : points) {
        bounds_ += mesh.points[p];
    }
    return true;
}

void MeshModel::addClump(Clump& clump, bool flat, Quark materialRef, Angle smoothAngle,
                         Quark layer) {
    if (clump.tolerance() > 0 && clump.tolerance() < tolerance_) {
        tolerance_ = clump.tolerance();
    }
    if (clump.hasHoles()) {
        clump.removeHoles();
    }
    const Quark fallback = !materialRef.isNull() ? materialRef
                           : !layer.isNull()     ? layer
                                                 : Quark::create(DEFAULT_MSTYLE_NAME);
    const std::vector<Clump::Region> regions = clump.chooseRegions(flat, fallback);
    std::vector<std::uint32_t> meshPointOf(clump.pointCount(), none);
    std::vector<std::uint32_t> touched;
    for (const Clump::Region& region : regions) {
        if (clump.hasSmoothEdges(region)) {
            clump.breakSharpEdges(region, smoothAngle);
        }
        const std::vector<Clump::Triangle> triangles = clump.triangulate(region);
        if (triangles.empty()) {
            continue;
        }
        // Corner normals are needed only where the region is smooth somewhere; elsewhere
        // each corner takes its face's normal.
        const bool smooth = clump.hasSmoothEdges(region);
        const std::vector<Vector<3>> normals =
            smooth ? clump.cornerNormals(region) : std::vector<Vector<3>>();
        Mesh& mesh = meshes_.emplace_back();
        mesh.material = materialNamed(region.material);
        mesh.layer = layer;
        // Count the region's points first so that the lists are allocated once.
        std::size_t count = 0;
        for (const Clump::Triangle& t : triangles) {
            for (Clump::Index c : t.corner) {
                const Clump::Index p = clump.edge(c).point;
                if (meshPointOf[p] == none) {
                    meshPointOf[p] = static_cast<std::uint32_t>(count++);
                    touched.push_back(p);
                }
            }
        }
        mesh.points.resize(count);
        for (Clump::Index p : touched) {
            mesh.points[meshPointOf[p]] = clump.coord(p);
        }
        mesh.vertices.reserve(count);
        mesh.triangles.reserve(triangles.size());
        VertexChains chains;
        chains.firstAt.assign(count, none);
        for (const Clump::Triangle& t : triangles) {
            std::array<std::uint32_t, 3> pts;
            std::array<Vector<3>, 3> ns;
            for (int k = 0; k < 3; ++k) {
                pts[k] = meshPointOf[clump.edge(t.corner[k]).point];
                ns[k] = smooth ? normals[t.corner[k]] : clump.surfaceNormal(t.face);
            }
            addTriangle(mesh, pts, ns, mesh.material, chains);
        }
        for (Clump::Index p : touched) {
            meshPointOf[p] = none;
        }
        touched.clear();
        if (mesh.triangles.empty()) {
            meshes_.pop_back();
        }
    }
}

void MeshModel::addPolygon(Quark material, std::span<const Point<3>> outer,
                           std::span<const std::vector<Point<3>>> holes) {
    Clump clump(tolerance_);
    std::vector<Clump::Index> ids;
    for (const Point<3>& p : outer) {
        ids.push_back(clump.addPoint(p));
    }
    std::vector<std::vector<Clump::Index>> holeIds;
    for (const auto& h : holes) {
        std::vector<Clump::Index>& v = holeIds.emplace_back();
        for (const Point<3>& p : h) {
            v.push_back(clump.addPoint(p));
        }
    }
    const Clump::Index f = clump.addFace(ids, material, 0, holeIds);
    if (f == Clump::none) {
        return;
    }
    clump.removeHoles();
    const std::vector<Clump::Region> regions = clump.chooseRegions(true, material);
    const std::vector<Clump::Triangle> triangles = clump.triangulate(regions.front());
    std::vector<Point<3>> points(clump.pointCount());
    for (Clump::Index p = 0; p < points.size(); ++p) {
        points[p] = clump.coord(p);
    }
    std::vector<std::array<std::uint32_t, 3>> tris;
    tris.reserve(triangles.size());
    for (const Clump::Triangle& t : triangles) {
        tris.push_back({clump.edge(t.corner[0]).point, clump.edge(t.corner[1]).point,
                        clump.edge(t.corner[2]).point});
    }
    addTriangles(material, points, tris);
}

void MeshModel::addTriangles(Quark material, std::span<const Point<3>> points,
                             std::span<const std::array<std::uint32_t, 3>> triangles) {
    const Material* record = materialNamed(material);
    auto it = loose_->byMaterial.find(record);
    if (it == loose_->byMaterial.end()) {
        Mesh& mesh = meshes_.emplace_back();
        mesh.material = record;
        it = loose_->byMaterial
                 .emplace(record, LooseState::Open{meshes_.size() - 1, PointIndex(tolerance_), {}})
                 .first;
    }
    LooseState::Open& open = it->second;
    Mesh& mesh = meshes_[open.mesh];
    std::vector<std::uint32_t> meshPoint(points.size(), none);
    for (const auto& t : triangles) {
        if (t[0] >= points.size() || t[1] >= points.size() || t[2] >= points.size()) {
            continue;
        }
        std::array<std::uint32_t, 3> pts;
        for (int k = 0; k < 3; ++k) {
            std::uint32_t& mp = meshPoint[t[k]];
            if (mp == none) {
                mp = open.points.insert(points[t[k]]);
                if (mp == mesh.points.size()) {
                    mesh.points.push_back(points[t[k]]);
                }
            }
            pts[k] = mp;
        }
        const Plane plane(mesh.points[pts[0]], mesh.points[pts[1]], mesh.points[pts[2]]);
        const Vector<3> n = plane.normal();
        addTriangle(mesh, pts, {n, n, n}, record, open.chains);
    }
}

void MeshModel::finish() {
    loose_->byMaterial.clear();
    // Loose meshes that got no triangle are dropped.
    for (auto it = meshes_.begin(); it != meshes_.end();) {
        it = it->triangles.empty() ? meshes_.erase(it) : it + 1;
    }
}
