#pragma once

// Plain array helpers of the paint pipeline, unrolled by four. They work on half-open
// ranges first..last of arrays indexed from a span's first pixel.

#include <cstdint>

namespace runs {

/// to[i] = from[i].
inline void copy(float* to, const float* from, int first, int last) {
    int i = first;
    for (; i + 4 <= last; i += 4) {
        to[i] = from[i];
        to[i + 1] = from[i + 1];
        to[i + 2] = from[i + 2];
        to[i + 3] = from[i + 3];
    }
    for (; i < last; ++i) {
        to[i] = from[i];
    }
}

/// to[i] = value.
inline void fill(float* to, float value, int first, int last) {
    int i = first;
    for (; i + 4 <= last; i += 4) {
        to[i] = value;
        to[i + 1] = value;
        to[i + 2] = value;
        to[i + 3] = value;
    }
    for (; i < last; ++i) {
        to[i] = value;
    }
}

/// to[i] *= by[i].
inline void multiply(float* to, const float* by, int first, int last) {
    int i = first;
    for (; i + 4 <= last; i += 4) {
        to[i] *= by[i];
        to[i + 1] *= by[i + 1];
        to[i + 2] *= by[i + 2];
        to[i + 3] *= by[i + 3];
    }
    for (; i < last; ++i) {
        to[i] *= by[i];
    }
}

/// The coverage of `mask` laid over `under`: out[i] = (1 - under[i]) * mask[i] + under[i].
/// Two layers of 0.5 give 0.75.
inline void over(float* out, const float* mask, const float* under, int first, int last) {
    int i = first;
    for (; i + 4 <= last; i += 4) {
        out[i] = (1.0f - under[i]) * mask[i] + under[i];
        out[i + 1] = (1.0f - under[i + 1]) * mask[i + 1] + under[i + 1];
        out[i + 2] = (1.0f - under[i + 2]) * mask[i + 2] + under[i + 2];
        out[i + 3] = (1.0f - under[i + 3]) * mask[i + 3] + under[i + 3];
    }
    for (; i < last; ++i) {
        out[i] = (1.0f - under[i]) * mask[i] + under[i];
    }
}

} // namespace runs
