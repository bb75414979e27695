#pragma once

#include <cstdint>

namespace tex {

/// The process's lattice noise tables, built once on first use from a fixed generator so
/// that stored images and styles keep their appearance.
///
/// - permutation: 0..255 shuffled, entry i swapped with entry (draw AND 255).
/// - values: 256 lattice values, round(draw / 32767 x 8192), 0 to 8192.
/// - curve: 513 entries of the smoothstep 3t^2 - 2t^3 at t = i / 512, times 8192.
///
/// The generator is linear congruential: x = x * 214013 + 2531011 on 32 bits, each draw
/// (x >> 16) AND 32767, seeded with 1234567. Rounding is to nearest, ties to even.
struct NoiseTables {
    std::uint8_t permutation[256];
    std::int16_t values[256];
    std::int16_t curve[513];
};

/// The tables (built on the first call; thread-safe).
const NoiseTables& noiseTables();

/// The generator of the tables.
class NoiseGenerator {
public:
    explicit NoiseGenerator(std::uint32_t seed) : state_(seed) {}
    int draw() {
        state_ = state_ * 214013u + 2531011u;
        return static_cast<int>((state_ >> 16) & 32767u);
    }

private:
    std::uint32_t state_;
};

/// Value noise on the integer lattice in fixed point with 13 fraction bits: 0 to 8192.
/// Only the low 8 bits of the cell indices matter, so coordinates of any size are safe.
std::int32_t latticeNoise(float x, float y, float z);

} // namespace tex
