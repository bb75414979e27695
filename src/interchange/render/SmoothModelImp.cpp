#include "interchange/render/SmoothModelImp.h"

#include "interchange/render/ModelRenderer.h"

void SmoothModelImp::render(const Camera& camera, Buffer& buffer, const Lighting& lights,
                            Reporter* progress, bool flat, std::int32_t width, std::int32_t height,
                            const SectionBox& sectionBox) const {
    ModelRenderer(*this, camera, buffer, lights, progress, flat, width, height, sectionBox).run();
}
