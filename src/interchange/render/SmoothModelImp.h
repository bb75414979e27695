#pragma once

#include "interchange/model/SmoothModel.h"

/// A model's meshes and materials that draws itself into a depth image (ModelRenderer
/// gives the rules of the drawing).
class SmoothModelImp : public MeshModel {
public:
    void render(const Camera& camera, Buffer& buffer, const Lighting& lights, Reporter* progress,
                bool flat, std::int32_t width, std::int32_t height,
                const SectionBox& sectionBox) const override;
};
