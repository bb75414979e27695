#include "interchange/render/ModelShadows.h"

#include "effects/LightSet.h"
#include "interchange/model/SmoothModel.h"
#include "interchange/render/TriangleClipper.h"

#include "interchange/render/WorkerTeam.h"

#include <algorithm>
#include <atomic>

namespace {

/// The least triangles in a part of the work handed out to a thread.
constexpr std::size_t trianglesPerPart = 8192;

} // namespace

ModelShadows::ModelShadows(const MeshModel& model, const Lighting& lights,
                           const TriangleClipper& clipper, double bias, WorkerTeam* team) {
    const Extent<3> bounds = model.bounds();
    if (bounds.degenerate()) {
        return;
    }
    const std::size_t count = std::min<std::size_t>(lights.lightCount(), maxShadowLights);
    for (std::size_t i = 0; i < count; ++i) {
        const Light& light = lights.light(i);
        if (!light.castsShadow()) {
            continue;
        }
        const Ray axes = light.direction();
        lights_.push_back({1u << i, axes.z(), std::make_unique<ShadowCaster>(axes, bounds, bias)});
        allBits_ |= 1u << i;
    }
    if (lights_.empty()) {
        return;
    }

    // The triangles are cut into parts of consecutive numbers, which the members take in
    // turn; each part fills its own slots of every caster, and the casters join the parts
    // in order, so every caster holds what one thread adding in order would have made.
    const unsigned members = team ? team->size() : 1u;
    const std::size_t triangles = model.triangleCount();
    const std::size_t parts = members == 1 ? 1
                                           : std::clamp<std::size_t>(triangles / trianglesPerPart,
                                                                     1, std::size_t(8) * members);
    for (ShadowLight& l : lights_) {
        l.caster->openParts(triangles, parts);
    }
    std::vector<const MeshModel::Mesh*> meshes;
    std::vector<std::size_t> firstOfMesh;
    std::size_t first = 0;
    for (const MeshModel::Mesh& mesh : model.meshes()) {
        meshes.push_back(&mesh);
        firstOfMesh.push_back(first);
        first += mesh.triangles.size();
    }
    firstOfMesh.push_back(first);
    std::vector<TriangleClipper> clippers(members, clipper);
    std::atomic<std::size_t> nextPart{0};
    const ShadowCaster& partsOf = *lights_.front().caster;
    auto work = [&](unsigned member) {
        TriangleClipper& clip = clippers[member];
        // The section box's planes cut the casters too: what is cut away throws no shadow.
        const std::uint32_t sectionBits = clip.sectionBits();
        std::vector<ScreenVertex> polygon;
        for (std::size_t part; (part = nextPart.fetch_add(1, std::memory_order_relaxed)) < parts;) {
            const std::size_t begin = partsOf.partStart(part);
            const std::size_t end = partsOf.partStart(part + 1);
            std::size_t m = static_cast<std::size_t>(
                std::upper_bound(firstOfMesh.begin(), firstOfMesh.end(), begin) -
                firstOfMesh.begin() - 1);
            for (std::size_t id = begin; id < end; ++id) {
                while (firstOfMesh[m + 1] <= id) {
                    ++m;
                }
                const MeshModel::Mesh& mesh = *meshes[m];
                const MeshModel::Triangle& t = mesh.triangles[id - firstOfMesh[m]];
                polygon.resize(3);
                std::uint32_t any = 0, all = ~0u;
                for (int k = 0; k < 3; ++k) {
                    polygon[k].p = mesh.points[mesh.vertices[t.vertex[k]].point];
                    const std::uint32_t out = clip.sectionOutsideBits(polygon[k].p);
                    any |= out;
                    all &= out;
                }
                if (all & sectionBits) {
                    continue;
                }
                const int n = any ? clip.clip(polygon, any) : 3;
                for (ShadowLight& l : lights_) {
                    for (int k = 1; k + 1 < n; ++k) {
                        l.caster->add(part, polygon[0].p, polygon[k].p, polygon[k + 1].p,
                                      static_cast<std::uint32_t>(id));
                    }
                }
            }
        }
    };
    if (team) {
        team->run(work);
    } else {
        work(0);
    }
    for (ShadowLight& l : lights_) {
        l.caster->closeParts();
    }
    for (ShadowLight& l : lights_) {
        l.caster->build(members);
    }
}

ModelShadows::~ModelShadows() = default;

std::uint32_t ModelShadows::turnedAway(const Vector<3>& face) const {
    std::uint32_t mask = 0;
    for (const ShadowLight& l : lights_) {
        if (dot(face, l.travel) >= 0) {
            mask |= l.bit;
        }
    }
    return mask;
}

std::uint32_t ModelShadows::blockedAt(const Point<3>& p, const Vector<3>& n, std::uint32_t owner,
                                      std::uint32_t known, Hints& hints) const {
    std::uint32_t mask = known;
    for (std::size_t i = 0; i < lights_.size(); ++i) {
        const ShadowLight& l = lights_[i];
        if (mask & l.bit) {
            continue;
        }
        if (dot(n, l.travel) >= 0 ||
            l.caster->blocked(l.caster->toLight(p), owner, hints.light[i])) {
            mask |= l.bit;
        }
    }
    return mask;
}
