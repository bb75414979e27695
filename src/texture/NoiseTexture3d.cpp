#include "texture/NoiseTexture3d.h"

#include <algorithm>
#include <cmath>

namespace tex {

NoiseTexture3d::NoiseTexture3d(const TQL::Handle<AlphaNoiseTexture>& noise, bool drivesAlpha,
                               bool drivesColour)
    : noise_(noise), flags_((drivesAlpha ? textureVaryingAlpha | textureHasAlpha : 0u) |
                            (drivesColour ? textureHasColour : 0u)) {}

void NoiseTexture3d::sample(std::uint8_t* rgb, float* alpha, const float* x, const float* y,
                            const float* z, const float* footprint, int count) const {
    if (flags_ == 0) {
        return;
    }
    constexpr int run = 256;
    float value[run];
    for (int at = 0; at < count; at += run) {
        const int n = std::min(run, count - at);
        noise_->sample(value, x + at, y + at, z + at, footprint + at, n);
        for (int i = 0; i < n; ++i) {
            if ((flags_ & textureVaryingAlpha) && alpha) {
                alpha[at + i] = value[i];
            }
            if ((flags_ & textureHasColour) && rgb) {
                const auto grey = static_cast<std::uint8_t>(std::nearbyint(value[i] * 255.0f));
                rgb[(at + i) * 3] = rgb[(at + i) * 3 + 1] = rgb[(at + i) * 3 + 2] = grey;
            }
        }
    }
}

} // namespace tex
