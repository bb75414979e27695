#include "texture/NoiseTables.h"

#include <cmath>

namespace tex {

namespace {

NoiseTables buildTables() {
    NoiseTables t{};
    for (int i = 0; i < 256; ++i) {
        t.permutation[i] = static_cast<std::uint8_t>(i);
    }
    NoiseGenerator generator(1234567u);
    for (int i = 0; i < 256; ++i) {
        const int j = generator.draw() & 255;
        const std::uint8_t swap = t.permutation[i];
        t.permutation[i] = t.permutation[j];
        t.permutation[j] = swap;
    }
    for (int i = 0; i < 256; ++i) {
        // The division is in single precision: that is what fixes the values.
        const float unit = static_cast<float>(generator.draw()) / 32767.0f;
        t.values[i] = static_cast<std::int16_t>(std::nearbyint(static_cast<double>(unit) * 8192.0));
    }
    for (int i = 0; i <= 512; ++i) {
        const double s = i / 512.0;
        t.curve[i] =
            static_cast<std::int16_t>(std::nearbyint((3 * s * s - 2 * s * s * s) * 8192.0));
    }
    return t;
}

/// The cell index of a coordinate: its floor, kept to 32 bits (only the low bits are used).
inline std::uint32_t cellOf(float v, float& fraction) {
    const float f = std::floor(v);
    fraction = v - f;
    const double wide = f;
    // Beyond 2^62 the value has no fraction and its low bits are zero anyway.
    const auto whole = std::fabs(wide) < 4.6e18 ? static_cast<std::int64_t>(wide) : 0;
    return static_cast<std::uint32_t>(whole);
}

inline std::int32_t lerp(std::int32_t p, std::int32_t q, std::int32_t s) {
    return p + ((q - p) * s) / 8192;
}

} // namespace

const NoiseTables& noiseTables() {
    static const NoiseTables tables = buildTables();
    return tables;
}

std::int32_t latticeNoise(float x, float y, float z) {
    const NoiseTables& t = noiseTables();
    float fx = 0;
    float fy = 0;
    float fz = 0;
    // Cell indices wrap on 32 bits: only their low 8 bits reach the tables.
    const std::uint32_t ix = cellOf(x, fx);
    const std::uint32_t iy = cellOf(y, fy);
    const std::uint32_t iz = cellOf(z, fz);
    const std::int32_t sx = t.curve[std::lrint(fx * 512.0f)];
    const std::int32_t sy = t.curve[std::lrint(fy * 512.0f)];
    const std::int32_t sz = t.curve[std::lrint(fz * 512.0f)];
    const std::uint8_t* P = t.permutation;
    const std::int16_t* V = t.values;
    std::int32_t planes[2];
    for (int k = 0; k < 2; ++k) {
        const std::uint32_t pz = P[(iz + k) & 255u];
        std::int32_t rows[2];
        for (int j = 0; j < 2; ++j) {
            const std::uint32_t a = pz + iy + static_cast<std::uint32_t>(j);
            const std::uint32_t b = P[a & 255u] + ix;
            rows[j] = lerp(V[P[b & 255u]], V[P[(b + 1u) & 255u]], sx);
        }
        planes[k] = lerp(rows[0], rows[1], sy);
    }
    return lerp(planes[0], planes[1], sz);
}

} // namespace tex
