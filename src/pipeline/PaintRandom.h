#pragma once

#include <cstdint>

/// The random numbers of paint: state = state * 69069 + 1 in 32 bits, and the value is
/// state / 4294967295.0, from 0 to 1. Each user keeps its own generator, seeded once from
/// the runtime's rand().
class PaintRandom {
public:
    PaintRandom();
    explicit PaintRandom(std::uint32_t seed) : state_(seed) {}

    /// The next value, 0 to 1 (1 only at the generator's last state).
    double next() {
        state_ = state_ * 69069u + 1u;
        return state_ / 4294967295.0;
    }
    std::uint32_t state() const { return state_; }

private:
    std::uint32_t state_;
};
