#include "effects/LightSet.h"

#include <algorithm>

LightSet::LightSet() {
    lights_.reserve(20);
}

bool LightSet::add(const TQL::Handle<Light>& light) {
    if (!light || lights_.size() >= maxLights) {
        return false;
    }
    lights_.push_back(light);
    return true;
}

LightColour LightSet::illumination(const Vector<3>& normal) const {
    LightColour sum;
    for (const auto& l : lights_) {
        sum += l->illumination(normal);
    }
    return sum;
}

LightColour LightSet::illumination(const Vector<3>& normal, std::uint32_t shadowMask) const {
    LightColour sum;
    for (std::size_t i = 0; i < lights_.size(); ++i) {
        if (!(shadowMask & (std::uint32_t(1) << i))) {
            sum += lights_[i]->illumination(normal);
        }
    }
    return sum;
}

void LightSet::illuminateSpan(const Vector<3>* normals, std::size_t count,
                              const std::uint32_t* masks, LightColour* out) const {
    std::fill(out, out + count, LightColour());
    for (std::size_t i = 0; i < lights_.size(); ++i) {
        lights_[i]->addIllumination(normals, count, masks, std::uint32_t(1) << i, out);
    }
}
