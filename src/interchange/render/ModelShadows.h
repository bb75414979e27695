#pragma once

#include "core/Point.h"
#include "interchange/render/ShadowCaster.h"

#include <cstdint>
#include <memory>
#include <vector>

class Lighting;
class MeshModel;
class TriangleClipper;
class WorkerTeam;

/// The shadow tests of a rendering: one ShadowCaster for each light that casts shadows
/// (among the first 31, whose flags fit a buffer's 32 bits), holding every triangle of the
/// model that the section box leaves, made once a rendering.
class ModelShadows {
public:
    static constexpr std::uint32_t maxShadowLights = 31;

    /// Triangles are numbered through the model's meshes in order, as the renderer numbers
    /// its owners. A point is shadowed only by triangles nearer the light than it by more
    /// than `bias` model units. The triangles are turned to the lights by the members of
    /// `team` (the calling thread alone if there is none), each cutting with its own copy of
    /// `clipper`, and the trees are built on as many threads; the result is the same for
    /// any team.
    ModelShadows(const MeshModel& model, const Lighting& lights, const TriangleClipper& clipper,
                 double bias, WorkerTeam* team = nullptr);
    ~ModelShadows();

    bool empty() const { return lights_.empty(); }
    /// The bits of all the shadow-casting lights.
    std::uint32_t allBits() const { return allBits_; }

    /// The bits of the shadow-casting lights that a flat surface of normal `face` (turned
    /// towards the eye) faces away from: it is in its own shadow there.
    std::uint32_t turnedAway(const Vector<3>& face) const;

    /// A shading thread's running hints, one a light: the last blocker each found.
    struct Hints {
        ShadowCaster::Hint light[maxShadowLights];
    };
    /// The bits of the shadow-casting lights that tested as blocked at the model point
    /// `p` of triangle `owner` with unit normal `n`, added to `known` (lights already
    /// known to be blocked are not tested again). The trees are only read, so threads may
    /// test at once, each with its own `hints`; the answer doesn't depend on them.
    std::uint32_t blockedAt(const Point<3>& p, const Vector<3>& n, std::uint32_t owner,
                            std::uint32_t known, Hints& hints) const;

    /// blockedAt for a point of a flat surface that faces every shadow-casting light not in
    /// `known` (as turnedAway tells): only the trees are asked.
    std::uint32_t blockedFacing(const Point<3>& p, std::uint32_t owner, std::uint32_t known,
                                Hints& hints) const {
        std::uint32_t mask = known;
        for (std::size_t i = 0; i < lights_.size(); ++i) {
            const ShadowLight& l = lights_[i];
            if (!(mask & l.bit) && l.caster->blocked(l.caster->toLight(p), owner, hints.light[i])) {
                mask |= l.bit;
            }
        }
        return mask;
    }

private:
    struct ShadowLight {
        std::uint32_t bit; ///< the light's bit in a mask
        Vector<3> travel;  ///< the direction the light travels
        std::unique_ptr<ShadowCaster> caster;
    };
    std::vector<ShadowLight> lights_;
    std::uint32_t allBits_ = 0;
};
