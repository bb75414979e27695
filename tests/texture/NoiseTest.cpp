// The lattice noise tables against a generator written out here, and the fractal sum, bias
// curve and bands at their known answers.

#include "texture/AlphaNoiseTexture.h"
#include "texture/NoiseTables.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using tex::AlphaNoiseTexture;
using tex::PlaneNoise;
using tex::SimpleNoise;

/// The tables' generator, written independently of the library.
struct ReferenceTables {
    std::vector<int> permutation, values, curve;
    ReferenceTables() {
        std::uint64_t state = 1234567;
        auto draw = [&state] {
            state = (state * 214013 + 2531011) % 4294967296ull;
            return static_cast<int>((state / 65536) % 32768);
        };
        for (int i = 0; i < 256; ++i) {
            permutation.push_back(i);
        }
        for (int i = 0; i < 256; ++i) {
            std::swap(permutation[i], permutation[draw() % 256]);
        }
        for (int i = 0; i < 256; ++i) {
            const float unit = static_cast<float>(draw()) / 32767.0f;
            values.push_back(static_cast<int>(std::nearbyint(unit * 8192.0)));
        }
        for (int i = 0; i <= 512; ++i) {
            const double t = i / 512.0;
            curve.push_back(static_cast<int>(std::nearbyint(8192 * t * t * (3 - 2 * t))));
        }
    }
};

TEST(NoiseTables, MatchAnIndependentGeneratorAndTheirFixedValues) {
    const ReferenceTables ref;
    const tex::NoiseTables& t = tex::noiseTables();
    long permutationSum = 0, valueSum = 0, curveSum = 0;
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(t.permutation[i], ref.permutation[i]) << i;
        ASSERT_EQ(t.values[i], ref.values[i]) << i;
        permutationSum += (i + 1) * t.permutation[i];
        valueSum += (i + 1) * t.values[i];
    }
    for (int i = 0; i <= 512; ++i) {
        ASSERT_EQ(t.curve[i], ref.curve[i]) << i;
        curveSum += t.curve[i];
    }
    // Fixed for good: stored images and styles depend on them.
    const int firstPermutation[] = {73, 46, 246, 254, 102, 127, 192, 222};
    const int firstValues[] = {3520, 7879, 5905, 6081, 1536, 4963, 6073, 5801};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(t.permutation[i], firstPermutation[i]);
        EXPECT_EQ(t.values[i], firstValues[i]);
    }
    EXPECT_EQ(permutationSum, 4162238);
    EXPECT_EQ(valueSum, 137224557);
    EXPECT_EQ(curveSum, 2101248);
    EXPECT_EQ(t.curve[16], 24); // 23.5: ties go to even
    EXPECT_EQ(t.curve[512], 8192);
}

TEST(LatticeNoise, TakesTheHashedCornerValueOnTheLatticeAndStaysInRange) {
    const ReferenceTables ref;
    auto corner = [&ref](int x, int y, int z) {
        const int a = ref.permutation[z & 255] + y;
        const int b = ref.permutation[a & 255] + x;
        return ref.values[ref.permutation[b & 255]];
    };
    for (int z : {0, 5, -3}) {
        for (int y : {0, 17, -200}) {
            for (int x : {0, 1, 255, 256, -1}) {
                EXPECT_EQ(tex::latticeNoise(float(x), float(y), float(z)), corner(x, y, z))
                    << x << "," << y << "," << z;
            }
        }
    }
    // Halfway along x the smoothstep weight is exactly one half.
    const int p = corner(3, 4, 5);
    const int q = corner(4, 4, 5);
    EXPECT_EQ(tex::latticeNoise(3.5f, 4, 5), p + (q - p) * 4096 / 8192);
    for (int i = 0; i < 2000; ++i) {
        const float x = i * 0.37f - 300, y = i * 0.11f, z = i * -0.73f;
        const int n = tex::latticeNoise(x, y, z);
        ASSERT_GE(n, 0);
        ASSERT_LE(n, 8192);
    }
    // Huge coordinates are no error: only the low bits of the cells count.
    EXPECT_LE(tex::latticeNoise(3.0e12f, -7.0e15f, 1.0e30f), 8192);
}

TEST(Fractal, FootprintChoosesTheOctavesAndFadesTheLastIn) {
    const SimpleNoise noise(0.0, 4.0, 0.5, false); // 20 octaves of equal weight
    EXPECT_EQ(noise.octaves(), 20);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(noise.weights()[i], 1.0f);
    }
    const float x = 13.3f, y = 7.9f, z = 0.33333334f;
    // A footprint of 1 or more: only the first octave, at the scaled point.
    const float first = tex::latticeNoise(x / 4, y / 4, z / 4) / 8192.0f;
    EXPECT_FLOAT_EQ(noise.fractal(x, y, z, 4.0f), first);
    EXPECT_FLOAT_EQ(noise.fractal(x, y, z, 400.0f), first);
    // A footprint of 0: every octave, equally weighted.
    double sum = 0;
    float sx = x / 4, sy = y / 4, sz = z / 4;
    for (int i = 0; i < 20; ++i) {
        sum += tex::latticeNoise(sx, sy, sz);
        sx *= 2;
        sy *= 2;
        sz *= 2;
    }
    EXPECT_NEAR(noise.fractal(x, y, z, 0.0f), sum / 20 / 8192, 1e-5);
    // No jump where an octave starts to count (footprint 2 in noise units here: L = 1).
    const float below = noise.fractal(x, y, z, 2.0f * 1.0001f);
    const float above = noise.fractal(x, y, z, 2.0f * 0.9999f);
    EXPECT_NEAR(below, above, 1e-3);
    EXPECT_NEAR(noise.fractal(x, y, z, 4.0f * 0.9999f), first, 1e-3);

    // Octave counts from the fractality.
    EXPECT_EQ(SimpleNoise(0.5, 1, 0.5, false).octaves(), 20);
    EXPECT_EQ(SimpleNoise(0.6, 1, 0.5, false).octaves(), 17);
    EXPECT_EQ(SimpleNoise(1.0, 1, 0.5, false).octaves(), 10);
    EXPECT_EQ(SimpleNoise(30.0, 1, 0.5, false).octaves(), 1);
    EXPECT_FLOAT_EQ(SimpleNoise(1.0, 1, 0.5, false).weights()[3], 0.125f);
}

TEST(BiasCurve, HalfIsTheIdentityAndTheEndsAreConstant) {
    const SimpleNoise identity(1.0, 1.0, 0.5, false);
    for (float t : {0.0f, 0.013f, 0.25f, 0.5f, 0.777f, 1.0f}) {
        EXPECT_NEAR(identity.applyCurve(t), t, 1e-6) << t;
    }
    EXPECT_EQ(identity.applyCurve(-3), 0.0f);
    EXPECT_EQ(identity.applyCurve(7), 1.0f);
    const SimpleNoise inverted(1.0, 1.0, 0.5, true);
    EXPECT_NEAR(inverted.applyCurve(0.3f), 0.7f, 1e-6);
    for (float t : {0.0f, 0.4f, 1.0f}) {
        EXPECT_EQ(SimpleNoise(1, 1, 1.0, true).applyCurve(t), 0.0f);
        EXPECT_EQ(SimpleNoise(1, 1, 1.0, false).applyCurve(t), 1.0f);
        EXPECT_EQ(SimpleNoise(1, 1, 0.0, false).applyCurve(t), 0.0f);
        EXPECT_EQ(SimpleNoise(1, 1, 0.0, true).applyCurve(t), 1.0f);
    }
    // A low bias darkens the middle: t^(log 0.25 / log 0.5) = t^2.
    EXPECT_NEAR(SimpleNoise(1, 1, 0.25, false).applyCurve(0.5f), 0.25f, 1e-6);
}

/// The raw waves, and their averages over s - w .. s + w by numerical integration.
float rawWave(double s, bool symmetric) {
    if (!symmetric) {
        return static_cast<float>(s - std::floor(s));
    }
    const double t = 2 * s;
    const double a = std::floor(t);
    return static_cast<float>(std::fmod(std::fabs(a), 2.0) == 1 ? 1 - (t - a) : t - a);
}

double boxAverage(double s, double w, bool symmetric) {
    const int n = 20000;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
        sum += rawWave(s - w + (i + 0.5) * 2 * w / n, symmetric);
    }
    return sum / n;
}

TEST(Band, SmallFiltersGiveTheRawWaveAndWideOnesTheBoxAverage) {
    for (bool symmetric : {false, true}) {
        for (float s : {0.1f, 0.3f, 0.45f, 1.2f, -0.3f, -1.7f}) {
            EXPECT_NEAR(PlaneNoise::band(s, 1e-3f, symmetric), rawWave(s, symmetric), 1e-5)
                << s << " symmetric " << symmetric;
        }
        for (float s : {0.02f, 0.5f, 0.98f, 1.51f, -0.26f}) {
            for (float w : {0.05f, 0.3f, 1.7f}) {
                // The symmetric wave is filtered over twice s, so over half the width in s.
                const double half = symmetric ? w / 2 : w;
                EXPECT_NEAR(PlaneNoise::band(s, w, symmetric), boxAverage(s, half, symmetric), 2e-4)
                    << s << " " << w << " symmetric " << symmetric;
            }
        }
        // Continuous as the filter starts to reach a step.
        for (float w : {0.05f, 0.2f}) {
            const float edge = 1.0f - w; // s + w reaches 1
            EXPECT_NEAR(PlaneNoise::band(edge - 1e-4f, w, symmetric),
                        PlaneNoise::band(edge + 1e-4f, w, symmetric), 2e-3);
        }
    }
}

TEST(PlaneNoise, BandsFollowThePlaneAndSampleRunsOverArrays) {
    const float normal[3] = {1, 0, 0};
    // No amplitude: the noise does not move the bands, so the value is the sawtooth of x.
    const PlaneNoise bands(1.0, 0.0, 0.5, 1.0, normal, 0.25f, false, false);
    const float x[3] = {0.1f, 0.5f, 2.2f}, y[3] = {4, 9, -3}, z[3] = {0, 1, 2},
                fp[3] = {1e-3f, 1e-3f, 1e-3f};
    float value[3];
    bands.sample(value, x, y, z, fp, 3);
    EXPECT_NEAR(value[0], 0.35f, 1e-4);
    EXPECT_NEAR(value[1], 0.75f, 1e-4);
    EXPECT_NEAR(value[2], 0.45f, 1e-4);
    const SimpleNoise simple(1.0, 8.0, 0.5, false);
    simple.sample(value, x, y, z, fp, 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(value[i], simple.applyCurve(simple.fractal(x[i], y[i], z[i], fp[i])));
    }
}

} // namespace
