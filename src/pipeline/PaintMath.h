#pragma once

// Rounding of paint arithmetic: round half to even, the result truncated to its low byte.

#include <cmath>
#include <cstdint>

namespace paint {

/// Round half to even (the default rounding of the floating-point unit).
inline int roundEven(float v) {
    return static_cast<int>(std::lrintf(v));
}
inline int roundEven(double v) {
    return static_cast<int>(std::lrint(v));
}

/// The low byte of an integer result: 256 becomes 0, -1 becomes 255.
inline std::uint8_t lowByte(int v) {
    return static_cast<std::uint8_t>(v);
}

} // namespace paint
