#pragma once

#include "interchange/model/SmoothModel.h"

#include <gtest/gtest.h>

namespace test {

/// The meshes and materials a reader gathers, for tests that look at them and never draw
/// them (so the reader's tests need no renderer, image or lights).
class GatheredModel : public MeshModel {
public:
    void render(const Camera&, Buffer&, const Lighting&, Reporter*, bool, std::int32_t,
                std::int32_t, const SectionBox&) const override {
        ADD_FAILURE() << "a gathered model is not drawn";
    }
};

} // namespace test
