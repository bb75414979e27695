#pragma once

#include "core/Handle.h"
#include "effects/Light.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// The lights a model is rendered under. Shadowed variants take a mask with bit i set
/// where light i is blocked at that point; only lights that cast shadows are ever blocked.
class Lighting : public TQL::Handlable {
public:
    /// The number of lights; a mask has room for 32.
    virtual std::size_t lightCount() const = 0;
    /// Light i, 0 <= i < lightCount().
    virtual const Light& light(std::size_t i) const = 0;

    /// The light falling on a surface of unit normal `normal`, all lights summed.
    virtual LightColour illumination(const Vector<3>& normal) const = 0;
    /// The same, without the lights whose bits are set in `shadowMask`.
    virtual LightColour illumination(const Vector<3>& normal, std::uint32_t shadowMask) const = 0;
    /// For each of the `count` pixels of a span: out[i] = illumination(normals[i],
    /// masks[i]), or illumination(normals[i]) where `masks` is null.
    virtual void illuminateSpan(const Vector<3>* normals, std::size_t count,
                                const std::uint32_t* masks, LightColour* out) const = 0;
};

/// Lights summed in the order they were added.
class LightSet : public Lighting {
public:
    /// The most lights a shadow mask can tell apart.
    static constexpr std::size_t maxLights = 32;

    /// Room for 20 lights is reserved.
    LightSet();

    /// Adds a light at the end; false (adding nothing) once maxLights are held or for a
    /// null handle.
    bool add(const TQL::Handle<Light>& light);

    std::size_t lightCount() const override { return lights_.size(); }
    const Light& light(std::size_t i) const override { return *lights_[i]; }
    LightColour illumination(const Vector<3>& normal) const override;
    LightColour illumination(const Vector<3>& normal, std::uint32_t shadowMask) const override;
    void illuminateSpan(const Vector<3>* normals, std::size_t count, const std::uint32_t* masks,
                        LightColour* out) const override;

private:
    std::vector<TQL::Handle<Light>> lights_;
};
