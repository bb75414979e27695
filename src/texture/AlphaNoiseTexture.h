#pragma once

#include "core/Handle.h"

#include <cstdint>

namespace tex {

/// The curve a value from 0 to 1 goes through: t^g with g = log(bias) / log(0.5) for a
/// bias strictly between 0 and 1 (0.5 is the identity), upside down with `invert`; at or
/// beyond the ends a constant (0 for bias 0, 1 for bias 1, the other way with `invert`).
/// Tabled at 101 points and read linearly between them.
class BiasCurve {
public:
    static constexpr int size = 101;
    BiasCurve(double bias, bool invert);
    /// t <= 0 gives the first entry, t >= 1 the last.
    float apply(float t) const {
        if (!(t > 0)) {
            return table_[0];
        }
        if (t >= 1) {
            return table_[size - 1];
        }
        const float f = t * 100.0f;
        const int k = f < 99.0f ? static_cast<int>(f) : 99;
        return table_[k] + (table_[k + 1] - table_[k]) * (f - static_cast<float>(k));
    }
    const float* table() const { return table_; }

private:
    float table_[size] = {};
};

/// Procedural noise with a value from 0 to 1 at every point of space: a fractal sum of
/// lattice noise (latticeNoise) whose octaves finer than the sampled pixel are left out,
/// through a bias curve. The base of the solid noise textures and the noise grain.
///
/// `sample` takes arrays of `count` points: one virtual call a run of pixels.
class AlphaNoiseTexture : public TQL::Handlable {
public:
    static constexpr int maxOctaves = 20;

    /// `fractality` sets how fast finer octaves fade (0: all octaves weigh the same, and
    /// there are 20 of them; above 0.5, ceil(10 / fractality) octaves). `bias` in (0, 1)
    /// bends the curve to t^(log bias / log 0.5); at or beyond the ends the curve is
    /// constant. `invert` turns the curve upside down.
    AlphaNoiseTexture(double fractality, double frequency, double bias, bool invert);

    /// value[i] for the point (x[i], y[i], z[i]) seen by a pixel of size footprint[i] in the
    /// same units.
    virtual void sample(float* value, const float* x, const float* y, const float* z,
                        const float* footprint, int count) const = 0;

    /// The fractal sum at one point, 0 to 1, with no curve applied. A footprint of 1 or
    /// more gives the first octave only; 0 sums every octave; in between the last octave
    /// is faded in by how far the footprint reaches into it, so zooming does not pop.
    float fractal(float x, float y, float z, float footprint) const;
    /// The bias curve at t, linear between its 101 entries, clamped at the ends.
    float applyCurve(float t) const { return curve_.apply(t); }

    int octaves() const { return octaves_; }
    const float* weights() const { return weights_; }
    const float* curve() const { return curve_.table(); }
    float frequency() const { return frequency_; }

protected:
    int octaves_ = maxOctaves;
    float weights_[maxOctaves] = {};
    BiasCurve curve_;
    float frequency_ = 1.0f;
};

/// Plain fractal noise through the bias curve, of frequency 1 / scale.
class SimpleNoise : public AlphaNoiseTexture {
public:
    SimpleNoise(double fractality, double scale, double bias, bool invert);
    void sample(float* value, const float* x, const float* y, const float* z,
                const float* footprint, int count) const override;
};

/// Bands parallel to a plane, of period 1 along its normal, displaced by the noise times
/// `amplitude`: wood grain and strata. Symmetric bands are a triangle wave of twice the
/// frequency, others a sawtooth.
class PlaneNoise : public AlphaNoiseTexture {
public:
    /// `normal` and `distance`: the plane n.p + distance = 0.
    PlaneNoise(double fractality, double amplitude, double bias, double frequency,
               const float (&normal)[3], float distance, bool symmetric, bool invert);
    void sample(float* value, const float* x, const float* y, const float* z,
                const float* footprint, int count) const override;

    /// A wave of period 1 at s, box-filtered over s - w .. s + w (w the half width of the
    /// filter). When no step of the wave lies within the filter, the raw wave.
    static float band(float s, float w, bool symmetric);

private:
    float amplitude_;
    float normal_[3];
    float distance_;
    bool symmetric_;
};

/// The raw fractal sum with no curve: the displacement of distorted textures.
class Distortion : public AlphaNoiseTexture {
public:
    Distortion(double fractality, double frequency);
    void sample(float* value, const float* x, const float* y, const float* z,
                const float* footprint, int count) const override;
};

} // namespace tex
