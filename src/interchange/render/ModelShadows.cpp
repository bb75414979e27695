#include "interchange/render/ModelShadows.h"

#include "effects/LightSet.h"
#include "interchange/model/SmoothModel.h"
#include "interchange/render/TriangleClipper.h"

#include <algorithm>
#include <thread>

ModelShadows::ModelShadows(const MeshModel& model, const Lighting& lights, TriangleClipper& clipper,
                           double bias) {
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
    for (ShadowLight& l : lights_) {
        l.caster->reserve(model.triangleCount());
    }
    // The section box's planes cut the casters too: what is cut away throws no shadow.
    const std::uint32_t sectionBits = clipper.sectionBits();
    std::vector<ScreenVertex> polygon;
    std::uint32_t owner = 0;
    for (const MeshModel::Mesh& mesh : model.meshes()) {
        for (const MeshModel::Triangle& t : mesh.triangles) {
            const std::uint32_t id = owner++;
            polygon.resize(3);
            std::uint32_t any = 0, all = ~0u;
            for (int k = 0; k < 3; ++k) {
                polygon[k].p = mesh.points[mesh.vertices[t.vertex[k]].point];
                const std::uint32_t out = clipper.sectionOutsideBits(polygon[k].p);
                any |= out;
                all &= out;
            }
            if (all & sectionBits) {
                continue;
            }
            const int n = any ? clipper.clip(polygon, any) : 3;
            for (ShadowLight& l : lights_) {
                for (int k = 1; k + 1 < n; ++k) {
                    l.caster->add(polygon[0].p, polygon[k].p, polygon[k + 1].p, id);
                }
            }
        }
    }
    const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    for (ShadowLight& l : lights_) {
        l.caster->build(threads);
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
