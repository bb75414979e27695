#include "pipeline/BlendKernels.h"

#include "pipeline/PaintMath.h"
#include "pipeline/PixelRuns.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

using paint::lowByte;
using paint::roundEven;

namespace {

inline std::uint8_t lerpChannel(int b, int s, float t) {
    return lowByte(b + roundEven(static_cast<float>(s - b) * t));
}

inline std::uint8_t multiplyChannel(int b, int s, float t) {
    const float k = 1.0f + (static_cast<float>(s) / 255.0f - 1.0f) * t;
    return lowByte(roundEven(k * static_cast<float>(b)));
}

template <class F>
inline void plainPixels(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                        const Alpha* alpha, float opacity, int first, int last, F f) {
    for (int i = first; i < last; ++i) {
        const float t = alpha[i] * opacity;
        const ColourPOD b = base[i];
        const ColourPOD s = source[i];
        out[i] = ColourPOD{f(b.b, s.b, t), f(b.g, s.g, t), f(b.r, s.r, t)};
    }
}

#if defined(__SSE2__)

/// Twelve bytes (four pixels) at p as three vectors of four 32-bit integers.
inline void load12(const ColourPOD* p, __m128i& v0, __m128i& v1, __m128i& v2) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(p);
    std::int32_t tail;
    std::memcpy(&tail, bytes + 8, 4);
    const __m128i x = _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes)),
                                         _mm_cvtsi32_si128(tail));
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = _mm_unpacklo_epi8(x, zero);
    const __m128i hi = _mm_unpackhi_epi8(x, zero);
    v0 = _mm_unpacklo_epi16(lo, zero);
    v1 = _mm_unpackhi_epi16(lo, zero);
    v2 = _mm_unpacklo_epi16(hi, zero);
}

/// The low bytes of three vectors of integers, stored as twelve bytes at p.
inline void store12(ColourPOD* p, __m128i v0, __m128i v1, __m128i v2) {
    const __m128i low = _mm_set1_epi32(0xFF);
    v0 = _mm_and_si128(v0, low);
    v1 = _mm_and_si128(v1, low);
    v2 = _mm_and_si128(v2, low);
    const __m128i x = _mm_packus_epi16(_mm_packs_epi32(v0, v1), _mm_packs_epi32(v2, v2));
    auto* bytes = reinterpret_cast<std::uint8_t*>(p);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(bytes), x);
    const std::int32_t tail = _mm_cvtsi128_si32(_mm_srli_si128(x, 8));
    std::memcpy(bytes + 8, &tail, 4);
}

/// t of four pixels spread over their twelve channels: (t0 t0 t0 t1) (t1 t1 t2 t2)
/// (t2 t3 t3 t3).
inline void spread(__m128 t, __m128& t0, __m128& t1, __m128& t2) {
    t0 = _mm_shuffle_ps(t, t, _MM_SHUFFLE(1, 0, 0, 0));
    t1 = _mm_shuffle_ps(t, t, _MM_SHUFFLE(2, 2, 1, 1));
    t2 = _mm_shuffle_ps(t, t, _MM_SHUFFLE(3, 3, 3, 2));
}

/// b + rint((s - b) * t) on four channels. cvtps2dq rounds half to even, as lrintf does.
inline __m128i lerp4(__m128i b, __m128i s, __m128 t) {
    const __m128 d = _mm_mul_ps(_mm_cvtepi32_ps(_mm_sub_epi32(s, b)), t);
    return _mm_add_epi32(b, _mm_cvtps_epi32(d));
}

/// s / 255 in single precision for four channels of 0 to 255, as the division rounds it,
/// without the divider: the double product with 1 / 255 rounds to the same float for each
/// of the 256 values (the fast-against-plain test meets them all).
inline __m128 over255(__m128i s) {
    const __m128d r = _mm_set1_pd(1.0 / 255.0);
    const __m128d lo = _mm_mul_pd(_mm_cvtepi32_pd(s), r);
    const __m128d hi =
        _mm_mul_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(s, _MM_SHUFFLE(1, 0, 3, 2))), r);
    return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
}

/// rint((1 + (s / 255 - 1) * t) * b) on four channels, in the plain form's order.
inline __m128i multiply4(__m128i b, __m128i s, __m128 t) {
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 k = _mm_add_ps(one, _mm_mul_ps(_mm_sub_ps(over255(s), one), t));
    return _mm_cvtps_epi32(_mm_mul_ps(k, _mm_cvtepi32_ps(b)));
}

template <class Op>
inline int fastPixels(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                      const Alpha* alpha, float opacity, int first, int last, Op op) {
    const __m128 o = _mm_set1_ps(opacity);
    int i = first;
    for (; i + 4 <= last; i += 4) {
        __m128 t0, t1, t2;
        spread(_mm_mul_ps(_mm_loadu_ps(alpha + i), o), t0, t1, t2);
        __m128i b0, b1, b2, s0, s1, s2;
        load12(base + i, b0, b1, b2);
        load12(source + i, s0, s1, s2);
        store12(out + i, op(b0, s0, t0), op(b1, s1, t1), op(b2, s2, t2));
    }
    return i;
}

/// True when the working colour and alpha are the same at every pixel of the range (a run
/// of one colour laid at one coverage): then the blend's factor is one per channel.
inline bool uniformRun(const ColourPOD* source, const Alpha* alpha, int first, int last) {
    if (runs::endOfRun(alpha, alpha[first], first, last) != last) {
        return false;
    }
    ColourPOD four[4];
    std::fill(std::begin(four), std::end(four), source[first]);
    int i = first;
    for (; i + 4 <= last; i += 4) {
        if (std::memcmp(source + i, four, sizeof four) != 0) {
            return false;
        }
    }
    return std::memcmp(source + i, four, static_cast<std::size_t>(last - i) * 3) == 0;
}

/// Multiply over a uniform run: k per channel computed once, exactly as multiplyChannel
/// computes it, then d = rint(k * b) four channels at a time.
inline int uniformMultiply(ColourPOD* out, const ColourPOD* base, ColourPOD s, float t, int first,
                           int last) {
    auto factor = [t](int c) { return 1.0f + (static_cast<float>(c) / 255.0f - 1.0f) * t; };
    const float kb = factor(s.b), kg = factor(s.g), kr = factor(s.r);
    // Four pixels' twelve channels lie b g r b | g r b g | r b g r.
    const __m128 k0 = _mm_setr_ps(kb, kg, kr, kb);
    const __m128 k1 = _mm_setr_ps(kg, kr, kb, kg);
    const __m128 k2 = _mm_setr_ps(kr, kb, kg, kr);
    int i = first;
    // Sixteen pixels a round: three whole vectors of bytes in and out. Vector j of four
    // channels (j = 0..11) takes the factors k0, k1, k2 in turn.
    const __m128i zero = _mm_setzero_si128();
    const __m128i low = _mm_set1_epi32(0xFF);
    auto block = [&](const std::uint8_t* in, std::uint8_t* to, __m128 ka, __m128 kb4, __m128 kc,
                     __m128 kd) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128i lo = _mm_unpacklo_epi8(v, zero);
        const __m128i hi = _mm_unpackhi_epi8(v, zero);
        auto times = [&](__m128i c, __m128 k) {
            return _mm_and_si128(_mm_cvtps_epi32(_mm_mul_ps(k, _mm_cvtepi32_ps(c))), low);
        };
        const __m128i r0 = times(_mm_unpacklo_epi16(lo, zero), ka);
        const __m128i r1 = times(_mm_unpackhi_epi16(lo, zero), kb4);
        const __m128i r2 = times(_mm_unpacklo_epi16(hi, zero), kc);
        const __m128i r3 = times(_mm_unpackhi_epi16(hi, zero), kd);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                         _mm_packus_epi16(_mm_packs_epi32(r0, r1), _mm_packs_epi32(r2, r3)));
    };
    for (; i + 16 <= last; i += 16) {
        const auto* in = reinterpret_cast<const std::uint8_t*>(base + i);
        auto* to = reinterpret_cast<std::uint8_t*>(out + i);
        block(in, to, k0, k1, k2, k0);
        block(in + 16, to + 16, k1, k2, k0, k1);
        block(in + 32, to + 32, k2, k0, k1, k2);
    }
    for (; i + 4 <= last; i += 4) {
        __m128i b0, b1, b2;
        load12(base + i, b0, b1, b2);
        store12(out + i, _mm_cvtps_epi32(_mm_mul_ps(k0, _mm_cvtepi32_ps(b0))),
                _mm_cvtps_epi32(_mm_mul_ps(k1, _mm_cvtepi32_ps(b1))),
                _mm_cvtps_epi32(_mm_mul_ps(k2, _mm_cvtepi32_ps(b2))));
    }
    return i;
}

#endif

} // namespace

void blendNormalPlain(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                      const Alpha* alpha, float opacity, int first, int last) {
    for (int i = first; i < last; ++i) {
        const float t = alpha[i] * opacity;
        if (opacity == 1.0f && alpha[i] == 1.0f) {
            out[i] = source[i];
        } else if (t == 0) {
            out[i] = base[i];
        } else {
            const ColourPOD b = base[i];
            const ColourPOD s = source[i];
            out[i] = ColourPOD{lerpChannel(b.b, s.b, t), lerpChannel(b.g, s.g, t),
                               lerpChannel(b.r, s.r, t)};
        }
    }
}

void blendMultiplyPlain(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                        const Alpha* alpha, float opacity, int first, int last) {
    plainPixels(out, base, source, alpha, opacity, first, last, multiplyChannel);
}

void blendNormal(ColourPOD* out, const ColourPOD* base, const ColourPOD* source, const Alpha* alpha,
                 float opacity, int first, int last) {
    // The lerp gives b at t = 0 and s at t = 1 exactly, so only the copies need finding.
    auto partial = [&](int from, int to) {
        int i = from;
#if defined(__SSE2__)
        i = fastPixels(out, base, source, alpha, opacity, from, to, lerp4);
#endif
        plainPixels(out, base, source, alpha, opacity, i, to, lerpChannel);
    };
    if (opacity != 1.0f) {
        partial(first, last);
        return;
    }
    int i = first;
    while (i < last) {
        int j = runs::endOfRun(alpha, 1.0f, i, last);
        if (j > i) {
            std::memcpy(out + i, source + i, static_cast<std::size_t>(j - i) * sizeof(ColourPOD));
            i = j;
        }
        while (j < last && alpha[j] != 1.0f) {
            ++j;
        }
        if (j > i) {
            partial(i, j);
            i = j;
        }
    }
}

void blendNormalSolid(ColourPOD* out, const ColourPOD* base, ColourPOD source, const Alpha* alpha,
                      float opacity, int first, int last, ColourPOD* scratch, bool alphaUniform) {
    if (last <= first) {
        return;
    }
    if (alphaUniform && opacity == 1.0f && alpha[first] == 1.0f) {
        runs::fillColour(out, source, first, last);
        return;
    }
    if (opacity != 1.0f) {
        runs::fillColour(scratch, source, first, last);
        blendNormal(out, base, scratch, alpha, opacity, first, last);
        return;
    }
    // Pixels at full coverage take the colour itself, laid straight into the image; the rest
    // are blended from a row of it.
    int i = first;
    while (i < last) {
        int j = runs::endOfRun(alpha, 1.0f, i, last);
        if (j > i) {
            runs::fillColour(out, source, i, j);
            i = j;
        }
        while (j < last && alpha[j] != 1.0f) {
            ++j;
        }
        if (j > i) {
            runs::fillColour(scratch, source, i, j);
            blendNormal(out, base, scratch, alpha, opacity, i, j);
            i = j;
        }
    }
}

void blendMultiplySolid(ColourPOD* out, const ColourPOD* base, ColourPOD source, const Alpha* alpha,
                        float opacity, int first, int last, ColourPOD* scratch, bool alphaUniform) {
#if defined(__SSE2__)
    if (last - first >= 8 &&
        (alphaUniform || runs::endOfRun(alpha, alpha[first], first, last) == last)) {
        const int i = uniformMultiply(out, base, source, alpha[first] * opacity, first, last);
        runs::fillColour(scratch, source, i, last);
        plainPixels(out, base, scratch, alpha, opacity, i, last, multiplyChannel);
        return;
    }
#endif
    runs::fillColour(scratch, source, first, last);
    blendMultiply(out, base, scratch, alpha, opacity, first, last);
}

void blendMultiply(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                   const Alpha* alpha, float opacity, int first, int last) {
    int i = first;
#if defined(__SSE2__)
    if (last - first >= 8 && uniformRun(source, alpha, first, last)) {
        i = uniformMultiply(out, base, source[first], alpha[first] * opacity, first, last);
    } else {
        i = fastPixels(out, base, source, alpha, opacity, first, last, multiply4);
    }
#endif
    plainPixels(out, base, source, alpha, opacity, i, last, multiplyChannel);
}
