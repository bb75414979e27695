#include "pipeline/PixelRuns.h"

#include <bit>

namespace {

/// Whether values[0..n) all have the bits `bits`, 32 values a round.
bool allBits(const float* values, std::uint32_t bits, std::size_t n) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i v = _mm_set1_epi32(static_cast<int>(bits));
    auto differs = [&](std::size_t k) {
        return _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values + k)), v);
    };
    for (; i + 32 <= n; i += 32) {
        __m128i d = _mm_or_si128(_mm_or_si128(differs(i), differs(i + 4)),
                                 _mm_or_si128(differs(i + 8), differs(i + 12)));
        d = _mm_or_si128(d, _mm_or_si128(_mm_or_si128(differs(i + 16), differs(i + 20)),
                                         _mm_or_si128(differs(i + 24), differs(i + 28))));
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(d, _mm_setzero_si128())) != 0xFFFF) {
            return false;
        }
    }
#endif
    for (; i < n; ++i) {
        if (std::bit_cast<std::uint32_t>(values[i]) != bits) {
            return false;
        }
    }
    return true;
}

} // namespace

namespace runs {

bool allSame(const float* values, int first, int last) {
    if (last <= first || !(values[first] == values[first])) {
        return false;
    }
    const auto bits = std::bit_cast<std::uint32_t>(values[first]);
    const auto n = static_cast<std::size_t>(last - first);
    return allBits(values + first, bits, n);
}

} // namespace runs
