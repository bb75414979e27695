#include "texture/AlphaNoiseTexture.h"

#include "texture/NoiseTables.h"

#include <algorithm>
#include <cmath>

namespace tex {

BiasCurve::BiasCurve(double bias, bool invert) {
    if (bias > 0 && bias < 1) {
        const double g = std::log(bias) / std::log(0.5);
        for (int i = 0; i < size; ++i) {
            const double v = std::pow(i / 100.0, g);
            table_[i] = static_cast<float>(invert ? 1 - v : v);
        }
    } else {
        const bool zero = (bias <= 0 && !invert) || (bias >= 1 && invert);
        std::fill(std::begin(table_), std::end(table_), zero ? 0.0f : 1.0f);
    }
}

AlphaNoiseTexture::AlphaNoiseTexture(double fractality, double frequency, double bias, bool invert)
    : curve_(bias, invert), frequency_(static_cast<float>(frequency)) {
    if (fractality <= 0.5) {
        octaves_ = maxOctaves;
    } else {
        octaves_ = std::clamp(static_cast<int>(std::ceil(10.0 / fractality)), 1, maxOctaves);
    }
    for (int i = 0; i < maxOctaves; ++i) {
        weights_[i] = static_cast<float>(std::pow(2.0, -i * fractality));
    }
}

float AlphaNoiseTexture::fractal(float x, float y, float z, float footprint) const {
    x *= frequency_;
    y *= frequency_;
    z *= frequency_;
    footprint *= frequency_;
    // A footprint of 0 gives an infinite L: every octave is summed.
    const float L = -std::log2(footprint);
    float sum = static_cast<float>(latticeNoise(x, y, z));
    float total = 1.0f;
    int i = 1;
    for (; i < octaves_ && L > static_cast<float>(i); ++i) {
        x += x;
        y += y;
        z += z;
        sum += static_cast<float>(latticeNoise(x, y, z)) * weights_[i];
        total += weights_[i];
    }
    if (i < octaves_ && static_cast<float>(i) < L + 1) {
        const float f = L + 1 - static_cast<float>(i);
        x += x;
        y += y;
        z += z;
        sum += static_cast<float>(latticeNoise(x, y, z)) * weights_[i] * f;
        total += weights_[i] * f;
    }
    return std::clamp(sum / total / 8192.0f, 0.0f, 1.0f);
}

SimpleNoise::SimpleNoise(double fractality, double scale, double bias, bool invert)
    : AlphaNoiseTexture(fractality, scale > 0 ? 1.0 / scale : 1.0, bias, invert) {}

void SimpleNoise::sample(float* value, const float* x, const float* y, const float* z,
                         const float* footprint, int count) const {
    for (int i = 0; i < count; ++i) {
        value[i] = applyCurve(fractal(x[i], y[i], z[i], footprint[i]));
    }
}

PlaneNoise::PlaneNoise(double fractality, double amplitude, double bias, double frequency,
                       const float (&normal)[3], float distance, bool symmetric, bool invert)
    : AlphaNoiseTexture(fractality, frequency, bias, invert),
      amplitude_(static_cast<float>(amplitude)), normal_{normal[0], normal[1], normal[2]},
      distance_(distance), symmetric_(symmetric) {}

float PlaneNoise::band(float s, float w, bool symmetric) {
    if (!symmetric) {
        const float a = std::floor(s - w);
        const float b = std::floor(s + w);
        if (a >= b) {
            return s - a;
        }
        const float p = s + w - b;
        const float q = s - w - a;
        return (p * p + (b - a) - q * q) / (4 * w);
    }
    const float t = 2 * s;
    const float a = std::floor(t - w);
    const float b = std::floor(t + w);
    const bool aOdd = std::fmod(std::fabs(a), 2.0f) == 1.0f;
    if (a >= b) {
        return aOdd ? 1 - t + a : t - a;
    }
    const bool bOdd = std::fmod(std::fabs(b), 2.0f) == 1.0f;
    const float p = t + w - b;
    const float q = t - w - a;
    return (p * (bOdd ? 2 - p : p) + (aOdd ? 1 - q : q + 1) * (1 - q) + (b - a - 1)) / (4 * w);
}

void PlaneNoise::sample(float* value, const float* x, const float* y, const float* z,
                        const float* footprint, int count) const {
    for (int i = 0; i < count; ++i) {
        const float d = normal_[0] * x[i] + normal_[1] * y[i] + normal_[2] * z[i] + distance_;
        const float s = d + fractal(x[i], y[i], z[i], footprint[i]) * amplitude_;
        value[i] = applyCurve(band(s, footprint[i], symmetric_));
    }
}

Distortion::Distortion(double fractality, double frequency)
    : AlphaNoiseTexture(fractality, frequency, 0.5, false) {}

void Distortion::sample(float* value, const float* x, const float* y, const float* z,
                        const float* footprint, int count) const {
    for (int i = 0; i < count; ++i) {
        value[i] = fractal(x[i], y[i], z[i], footprint[i]);
    }
}

} // namespace tex
