#include "effects/Light.h"

#include <algorithm>
#include <cmath>

void Light::addIllumination(const Vector<3>* normals, std::size_t count, const std::uint32_t* masks,
                            std::uint32_t shadowBit, LightColour* sum) const {
    for (std::size_t i = 0; i < count; ++i) {
        if (!masks || !(masks[i] & shadowBit)) {
            sum[i] += illumination(normals[i]);
        }
    }
}

QuorvaleParallelLight::QuorvaleParallelLight(Angle azimuth, Angle altitude,
                                             const LightColour& colour, bool shadows)
    : ray_(Point<3>::m_origin, azimuth, altitude), colour_(colour), shadows_(shadows) {}

TQL::Handle<QuorvaleParallelLight> QuorvaleParallelLight::sun(Angle azimuth, Angle elevation,
                                                              const LightColour& colour,
                                                              bool shadows) {
    // Towards the sun: (sin a cos e, cos a cos e, sin e); the light travels the other way.
    const double towardsX = azimuth.sin();
    const double towardsY = azimuth.cos();
    return TQL::makeHandle<QuorvaleParallelLight>(Angle::cosSin(-towardsX, -towardsY), -elevation,
                                                  colour, shadows);
}

LightColour QuorvaleParallelLight::illumination(const Vector<3>& normal) const {
    return colour_ * std::max(0.0, -dot(ray_.z(), normal));
}

void QuorvaleParallelLight::addIllumination(const Vector<3>* normals, std::size_t count,
                                            const std::uint32_t* masks, std::uint32_t shadowBit,
                                            LightColour* sum) const {
    const Vector<3> z = ray_.z();
    for (std::size_t i = 0; i < count; ++i) {
        const double k =
            -(z.x() * normals[i].x() + z.y() * normals[i].y() + z.z() * normals[i].z());
        if (k > 0 && (!masks || !(masks[i] & shadowBit))) {
            sum[i].red += colour_.red * k;
            sum[i].green += colour_.green * k;
            sum[i].blue += colour_.blue * k;
        }
    }
}

AmbientLight::AmbientLight(const Point<3>& colour, const Point<3>& base)
    : base_{base.x(), base.y(), base.z()}, half_{(colour.x() - base.x()) / 2,
                                                 (colour.y() - base.y()) / 2,
                                                 (colour.z() - base.z()) / 2} {}

LightColour AmbientLight::illumination(const Vector<3>& normal) const {
    return base_ + half_ * (1 + normal.z());
}

void AmbientLight::addIllumination(const Vector<3>* normals, std::size_t count,
                                   const std::uint32_t* masks, std::uint32_t shadowBit,
                                   LightColour* sum) const {
    for (std::size_t i = 0; i < count; ++i) {
        if (masks && (masks[i] & shadowBit)) {
            continue;
        }
        const double k = 1 + normals[i].z();
        sum[i].red += base_.red + half_.red * k;
        sum[i].green += base_.green + half_.green * k;
        sum[i].blue += base_.blue + half_.blue * k;
    }
}
