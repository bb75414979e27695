#pragma once

#include "views/cameras/ViewParams.h"

#include <cmath>
#include <cstdint>

/// A camera's conversion from the z of its screen coordinates to a depth code, as a value:
/// the cameras' depthCode goes through it, and a renderer that converts a code a pixel
/// uses the same inline arithmetic without a virtual call, so its codes agree exactly.
struct DepthCoder {
    enum Kind : std::int32_t {
        /// Perspective transform cameras: c = (-1/z - offset) scale, nearest integer;
        /// 0 at or below 0, all ones from 4294967295 on.
        inverse = 0,
        /// Parallel transform cameras: c = (z - offset) scale, rounded as above.
        linear = 1,
        /// ParallelCamera: c = (z/pixelScale + offset) scale, truncated toward zero and
        /// kept to its low 32 bits.
        truncated = 2,
    };

    Kind kind = linear;
    double offset = 0;
    double scale = 1;
    /// truncated only: the camera's pixels per world unit.
    double pixelScale = 1;

    std::uint32_t code(double z) const {
        switch (kind) {
        case inverse:
            return codeAs<inverse>(z);
        case linear:
            return codeAs<linear>(z);
        case truncated:
            return codeAs<truncated>(z);
        }
        return depth::noDepth;
    }

    /// code(z) for a coder known to be of kind K: a renderer picks K once a triangle and
    /// converts its pixels without the switch.
    template <Kind K> std::uint32_t codeAs(double z) const {
        if constexpr (K == inverse) {
            return rounded((-1.0 / z - offset) * scale);
        } else if constexpr (K == linear) {
            return rounded((z - offset) * scale);
        } else {
            return truncatedCode((z / pixelScale + offset) * scale);
        }
    }

    /// The z that code `c` stands for (the inverse of code, without its rounding).
    double zAt(double c) const {
        switch (kind) {
        case inverse:
            return -1.0 / (c / scale + offset);
        case linear:
            return c / scale + offset;
        case truncated:
            return (c / scale - offset) * pixelScale;
        }
        return 0;
    }

    /// The nearest integer to c (halves away from zero), 0 for c <= 0 or not a number,
    /// all ones from 4294967295 on. The same as lround on that range, inline.
    static std::uint32_t rounded(double c) {
        if (!(c > 0)) {
            return 0;
        }
        if (c >= 4294967295.0) {
            return depth::noDepth;
        }
        const auto whole = static_cast<std::uint32_t>(c);
        // c - whole is exact: it keeps c's own low bits.
        return whole + (c - whole >= 0.5 ? 1u : 0u);
    }

    /// Truncation toward zero to the low 32 bits; values beyond 64 bits (and NaN) have none
    /// to keep and give 0.
    static std::uint32_t truncatedCode(double c) {
        if (!(std::fabs(c) < 9.2e18)) {
            return 0;
        }
        return static_cast<std::uint32_t>(static_cast<std::int64_t>(c));
    }
};
