#pragma once

#include "core/Colour.h"
#include "core/ColourProfile.h"
#include "core/Extent.h"
#include "image/DrawTarget.h"
#include "support/TestDocument.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace test {

/// A document whose channels all differ from pixel to pixel: random colours, a depth ramp
/// with a hole of no depth, materials below and above 255, and a cut-out overlay with a
/// shadow over part of it, so that every display conversion and the composition show.
std::unique_ptr<TestDocument> makeViewScene(std::int32_t width, std::int32_t height,
                                            std::uint32_t seed = 1);

/// A display transform that visibly changes colours: from sRGB to an RGB profile with the
/// sRGB primaries and a linear tone curve, as a monitor profile might differ.
TQL::Handle<TQL::ColourTransform> makeDisplayTransform();

/// A DrawTarget that keeps what a 1:1 walk gives it in a plain image.
class ImageTarget : public DrawTarget {
public:
    ImageTarget(std::int32_t width, std::int32_t height)
        : width_(width), pixels_(static_cast<std::size_t>(width) * height) {}
    void DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                  const std::uint8_t* rgb, std::int32_t stride) override;
    ColourPOD at(std::int32_t x, std::int32_t y) const {
        return pixels_[static_cast<std::size_t>(y) * width_ + x];
    }

private:
    std::int32_t width_;
    std::vector<ColourPOD> pixels_;
};

} // namespace test
