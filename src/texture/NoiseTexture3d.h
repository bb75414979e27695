#pragma once

#include "texture/AlphaNoiseTexture.h"
#include "texture/Texture.h"

namespace tex {

/// Procedural noise as a solid texture: its value drives the alpha (flag bits 2 and 4),
/// the colour as a grey (bit 1), both, or neither (then sampling leaves the outputs alone).
class NoiseTexture3d : public Texture3d {
public:
    NoiseTexture3d(const TQL::Handle<AlphaNoiseTexture>& noise, bool drivesAlpha,
                   bool drivesColour);

    void sample(std::uint8_t* rgb, float* alpha, const float* x, const float* y, const float* z,
                const float* footprint, int count) const override;
    unsigned flags() const override { return flags_; }

private:
    TQL::Handle<AlphaNoiseTexture> noise_;
    unsigned flags_;
};

} // namespace tex
