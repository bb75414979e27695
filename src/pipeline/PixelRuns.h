#pragma once

// Plain array helpers of the paint pipeline, unrolled by four. They work on half-open
// ranges first..last of arrays indexed from a span's first pixel.

#include "core/Colour.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

#if defined(__SSE2__)
/// Sixteen pixels of colour c (48 bytes) as three vectors, built in registers: a pattern
/// written to memory in small stores and read back as vectors stalls on store forwarding,
/// which costs more than the fill of a tile row itself.
struct ColourPattern {
    __m128i p0;
    __m128i p1;
    __m128i p2;
};
inline ColourPattern colourPattern(ColourPOD c) {
    // The three phases of the 3-byte cycle: bytes b g r, g r b, r b g from the lowest.
    const std::uint64_t x = std::uint64_t(c.b) | std::uint64_t(c.g) << 8 | std::uint64_t(c.r) << 16;
    const std::uint64_t x1 =
        std::uint64_t(c.g) | std::uint64_t(c.r) << 8 | std::uint64_t(c.b) << 16;
    const std::uint64_t x2 =
        std::uint64_t(c.r) | std::uint64_t(c.b) << 8 | std::uint64_t(c.g) << 16;
    // Eight bytes starting at that phase.
    // (moved into a vector register as it stands: _mm_set_epi64x goes through the stack)
    auto word = [](std::uint64_t y) {
        return _mm_cvtsi64_si128(static_cast<long long>(y | y << 24 | y << 48));
    };
    const __m128i w0 = word(x);
    const __m128i w1 = word(x1);
    const __m128i w2 = word(x2);
    // Bytes 0, 8, 16, 24, 32 and 40 start at phases 0, 2, 1, 0, 2, 1.
    return {_mm_unpacklo_epi64(w0, w2), _mm_unpacklo_epi64(w1, w0), _mm_unpacklo_epi64(w2, w1)};
}
#endif

/// to[i] = c: sixteen pixels a round from a 48-byte pattern of them, in whole vectors.
inline void fillColour(ColourPOD* to, ColourPOD c, int first, int last) {
    int i = first;
#if defined(__SSE2__)
    if (last - first >= 16) {
        const ColourPattern p = colourPattern(c);
        for (; i + 16 <= last; i += 16) {
            auto* w = reinterpret_cast<__m128i*>(to + i);
            _mm_storeu_si128(w, p.p0);
            _mm_storeu_si128(w + 1, p.p1);
            _mm_storeu_si128(w + 2, p.p2);
        }
    }
#else
    if (last - first >= 16) {
        ColourPOD pattern[16];
        std::fill(std::begin(pattern), std::end(pattern), c);
        for (; i + 16 <= last; i += 16) {
            std::memcpy(to + i, pattern, sizeof pattern);
        }
    }
#endif
    for (; i < last; ++i) {
        to[i] = c;
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

/// "over" as above, and whether every pixel of the range rises by it (under[i] < out[i]):
/// then the range is a single run of rising pixels. Four pixels a round.
inline bool overAllRise(float* out, const float* mask, const float* under, int first, int last) {
    int i = first;
    bool rise = true;
#if defined(__SSE2__)
    const __m128 one = _mm_set1_ps(1.0f);
    __m128 rising = _mm_castsi128_ps(_mm_set1_epi32(-1));
    for (; i + 4 <= last; i += 4) {
        const __m128 u = _mm_loadu_ps(under + i);
        // The plain form's order: the product first, then the sum.
        const __m128 c = _mm_add_ps(_mm_mul_ps(_mm_sub_ps(one, u), _mm_loadu_ps(mask + i)), u);
        _mm_storeu_ps(out + i, c);
        rising = _mm_and_ps(rising, _mm_cmplt_ps(u, c));
    }
    rise = _mm_movemask_ps(rising) == 0xF;
#endif
    for (; i < last; ++i) {
        out[i] = (1.0f - under[i]) * mask[i] + under[i];
        rise = rise && under[i] < out[i];
    }
    return rise;
}

/// The end of the run of values equal to `value` from `first` on: the first index from
/// `first` whose value differs, or `last`. Four values a round.
inline int endOfRun(const float* values, float value, int first, int last) {
    int i = first;
#if defined(__SSE2__)
    const __m128 v = _mm_set1_ps(value);
    for (; i + 4 <= last; i += 4) {
        if (_mm_movemask_ps(_mm_cmpeq_ps(_mm_loadu_ps(values + i), v)) != 0xF) {
            break;
        }
    }
#endif
    while (i < last && values[i] == value) {
        ++i;
    }
    return i;
}

/// True when the range is one value throughout, to the bit, and that value is a number (not
/// NaN). A mix of 0 and -0 counts as two values. Thirty-two values a round: this reads a
/// whole row of coverage once, so that each of its tile runs need not.
bool allSame(const float* values, int first, int last);

/// True when every value of the range is above 0.
inline bool allPositive(const float* values, int first, int last) {
    int i = first;
    bool all = true;
#if defined(__SSE2__)
    const __m128 zero = _mm_setzero_ps();
    __m128 positive = _mm_castsi128_ps(_mm_set1_epi32(-1));
    for (; i + 4 <= last; i += 4) {
        positive = _mm_and_ps(positive, _mm_cmpgt_ps(_mm_loadu_ps(values + i), zero));
    }
    all = _mm_movemask_ps(positive) == 0xF;
#endif
    for (; i < last; ++i) {
        all = all && values[i] > 0;
    }
    return all;
}

/// True when no value of the range is 0 (nor -0).
inline bool noneZero(const float* values, int first, int last) {
    int i = first;
    bool none = true;
#if defined(__SSE2__)
    const __m128 zero = _mm_setzero_ps();
    __m128 zeros = zero;
    for (; i + 4 <= last; i += 4) {
        zeros = _mm_or_ps(zeros, _mm_cmpeq_ps(_mm_loadu_ps(values + i), zero));
    }
    none = _mm_movemask_ps(zeros) == 0;
#endif
    for (; i < last; ++i) {
        none = none && values[i] != 0;
    }
    return none;
}

} // namespace runs
