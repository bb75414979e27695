#include "interchange/render/TriangleFiller.h"

#include "interchange/render/BandShader.h"

#include <algorithm>
#include <cmath>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define QUORVALE_FILL_AVX2 1
#endif

namespace {

/// The camera's code of z, kept below the no-depth code so that a drawn pixel always has
/// a depth (the clipping at the far plane leaves nothing beyond it but rounding).
template <DepthCoder::Kind K> inline std::uint32_t drawnCode(const DepthCoder& coder, double z) {
    return std::min(coder.codeAs<K>(z), depth::farCode);
}

/// The pixels of a row that a flat triangle without shadow tests colours at once.
struct ConstantSpan {
    std::uint32_t* codes;
    std::uint32_t* colours;
    MaterialId* materials;
    std::uint32_t* flags;
    std::uint32_t* works;
    std::uint32_t colour;
    MaterialId material;
    std::uint32_t flag;

    /// Pixels x0 to x1 - 1, depth z = zRow + dzdx x; the flags only if they are kept.
    template <DepthCoder::Kind K, bool KeepFlags>
    void fill(const DepthCoder& coder, double zRow, double dzdx, std::int32_t x0,
              std::int32_t x1) const {
        for (std::int32_t x = x0; x < x1; ++x) {
            const std::uint32_t code = drawnCode<K>(coder, zRow + dzdx * x);
            if (code <= codes[x]) {
                codes[x] = code;
                colours[x] = colour;
                materials[x] = material;
                if constexpr (KeepFlags) {
                    flags[x] = flag;
                }
                works[x] = RenderBand::noWork;
            }
        }
    }
};

/// Makes the work record of a triangle's pixels.
struct WorkMaker {
    BandShader& shader;
    RenderBand& band;
    const TriangleShade& shade;
    const ScreenVertex &a, &b, &c;
    double area;
    std::uint32_t operator()() const { return shader.addWork(band, shade, a, b, c, area); }
};

#if defined(QUORVALE_FILL_AVX2)

// Rows eight pixels at a time. Each lane does the plain code's operations on doubles in the
// plain code's order (a product and a sum for z, one division, the same rounding), and the
// functions are compiled for AVX2 without FMA, so no product and sum are fused: the codes
// are those of drawnCode bit for bit. Codes are compared with their top bit
// flipped, which turns the unsigned order into the signed one the instructions have.

/// A coder's numbers in every lane.
struct CoderLanes {
    __m256d offset, scale;
};

/// The codes of drawnCode<K> for the four z, with their top bit flipped.
template <DepthCoder::Kind K>
[[gnu::target("avx2"), gnu::always_inline]] inline __m128i flippedCodesAvx2(const CoderLanes& coder,
                                                                            __m256d z) {
    __m256d c;
    if constexpr (K == DepthCoder::inverse) {
        c = _mm256_mul_pd(_mm256_sub_pd(_mm256_div_pd(_mm256_set1_pd(-1.0), z), coder.offset),
                          coder.scale);
    } else {
        static_assert(K == DepthCoder::linear);
        c = _mm256_mul_pd(_mm256_sub_pd(z, coder.offset), coder.scale);
    }
    // Halves away from zero: the whole part (exact) plus one where what is left reaches
    // one half. Beyond the largest code the minimum with the far code gives the far code
    // (so does infinity); at or below zero, and not a number, give 0.
    const __m256d whole = _mm256_round_pd(c, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m256d up =
        _mm256_and_pd(_mm256_cmp_pd(_mm256_sub_pd(c, whole), _mm256_set1_pd(0.5), _CMP_GE_OQ),
                      _mm256_set1_pd(1.0));
    __m256d code = _mm256_min_pd(_mm256_add_pd(whole, up), _mm256_set1_pd(double(depth::farCode)));
    code = _mm256_and_pd(code, _mm256_cmp_pd(c, _mm256_setzero_pd(), _CMP_GT_OQ));
    // Codes 0 to 2^32 - 2 less 2^31 (exact) fit a signed 32-bit integer: that is the code
    // with its top bit flipped.
    return _mm256_cvttpd_epi32(_mm256_sub_pd(code, _mm256_set1_pd(2147483648.0)));
}

/// Pixels x to x + 7 of a row whose z is zRow + dz x, those left of x1 tested: stores the
/// codes of those that win their depth test and returns them as a mask (all ones a
/// winning lane). The codes are worked out in two groups of four side by side (each is a
/// long chain of dependent operations, a division among them). The eight are read and
/// written back whole, the losers and those beyond x1 unchanged: the band has room for a
/// group past its last pixel, and no other thread touches it while it is filled.
template <DepthCoder::Kind K>
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i
depthGroupAvx2(const CoderLanes& coder, __m256d zRow, __m256d dz, std::int32_t x, std::int32_t x1,
               std::uint32_t* codes) {
    const __m256i flip = _mm256_set1_epi32(std::int32_t(0x80000000u));
    const __m256d xs = _mm256_add_pd(_mm256_set1_pd(double(x)), _mm256_setr_pd(0, 1, 2, 3));
    const __m256d xs4 = _mm256_add_pd(_mm256_set1_pd(double(x + 4)), _mm256_setr_pd(0, 1, 2, 3));
    const __m256i code =
        _mm256_set_m128i(flippedCodesAvx2<K>(coder, _mm256_add_pd(zRow, _mm256_mul_pd(dz, xs4))),
                         flippedCodesAvx2<K>(coder, _mm256_add_pd(zRow, _mm256_mul_pd(dz, xs))));
    const __m256i inside =
        _mm256_cmpgt_epi32(_mm256_set1_epi32(x1 - x), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
    auto* at = reinterpret_cast<__m256i*>(codes + x);
    const __m256i old = _mm256_xor_si256(_mm256_loadu_si256(at), flip);
    // code <= old: not code > old.
    const __m256i wins = _mm256_andnot_si256(_mm256_cmpgt_epi32(code, old), inside);
    _mm256_storeu_si256(at, _mm256_xor_si256(_mm256_blendv_epi8(old, code, wins), flip));
    return wins;
}

/// Puts `value` in the winning lanes of the eight 32-bit values at p.
[[gnu::target("avx2"), gnu::always_inline]] inline void storeWon(std::uint32_t* p, __m256i wins,
                                                                 __m256i value) {
    auto* at = reinterpret_cast<__m256i*>(p);
    _mm256_storeu_si256(at, _mm256_blendv_epi8(_mm256_loadu_si256(at), value, wins));
}

/// The pixels x0 to x1 - 1 of a row of a flat triangle without shadow tests.
template <DepthCoder::Kind K, bool KeepFlags>
[[gnu::target("avx2")]] void constantRowAvx2(const ConstantSpan& s, const DepthCoder& coder,
                                             double zRow, double dzdx, std::int32_t x0,
                                             std::int32_t x1) {
    const CoderLanes lanes{_mm256_set1_pd(coder.offset), _mm256_set1_pd(coder.scale)};
    const __m256d zRows = _mm256_set1_pd(zRow);
    const __m256d dz = _mm256_set1_pd(dzdx);
    const __m256i colour = _mm256_set1_epi32(std::int32_t(s.colour));
    const __m256i flag = _mm256_set1_epi32(std::int32_t(s.flag));
    const __m256i noWork = _mm256_set1_epi32(std::int32_t(RenderBand::noWork));
    const __m128i material = _mm_set1_epi16(std::int16_t(s.material));
    for (std::int32_t x = x0; x < x1; x += 8) {
        const __m256i wins = depthGroupAvx2<K>(lanes, zRows, dz, x, x1, s.codes);
        storeWon(s.colours + x, wins, colour);
        storeWon(s.works + x, wins, noWork);
        if constexpr (KeepFlags) {
            storeWon(s.flags + x, wins, flag);
        }
        // The masks narrowed to 16 bits a lane (all ones and zero stay so).
        const __m128i wins16 =
            _mm_packs_epi32(_mm256_castsi256_si128(wins), _mm256_extracti128_si256(wins, 1));
        auto* at = reinterpret_cast<__m128i*>(s.materials + x);
        _mm_storeu_si128(at, _mm_blendv_epi8(_mm_loadu_si128(at), material, wins16));
    }
}

/// The pixels x0 to x1 - 1 of a row of a triangle with shading work; `work` is made by
/// `makeWork` when the triangle's first pixel wins.
template <DepthCoder::Kind K>
[[gnu::target("avx2")]] void workRowAvx2(std::uint32_t* codes, std::uint32_t* works,
                                         std::uint32_t& work, const WorkMaker& makeWork,
                                         const DepthCoder& coder, double zRow, double dzdx,
                                         std::int32_t x0, std::int32_t x1) {
    const CoderLanes lanes{_mm256_set1_pd(coder.offset), _mm256_set1_pd(coder.scale)};
    const __m256d zRows = _mm256_set1_pd(zRow);
    const __m256d dz = _mm256_set1_pd(dzdx);
    for (std::int32_t x = x0; x < x1; x += 8) {
        const __m256i wins = depthGroupAvx2<K>(lanes, zRows, dz, x, x1, codes);
        if (work == RenderBand::noWork) {
            if (_mm256_testz_si256(wins, wins)) {
                continue;
            }
            work = makeWork();
        }
        storeWon(works + x, wins, _mm256_set1_epi32(std::int32_t(work)));
    }
}

#endif

/// Rows eight pixels at a time run here: built with them and an AVX2 processor.
bool vectorRowsRun() {
#if defined(QUORVALE_FILL_AVX2)
    static const bool avx2 = __builtin_cpu_supports("avx2");
    return avx2;
#else
    return false;
#endif
}

/// One edge of a triangle, from its upper end p to its lower end q.
struct Edge {
    double px, py, slope;
    Edge(const ScreenVertex& p, const ScreenVertex& q)
        : px(p.x), py(p.y), slope((q.x - p.x) / (q.y - p.y)) {}
    double at(double y) const { return px + (y - py) * slope; }
};

/// The first pixel centre at or right of x, kept within [0, width].
std::int32_t firstAtOrAfter(double x, std::int32_t width) {
    if (!(x > 0)) {
        return 0;
    }
    if (x >= width) {
        return width;
    }
    return static_cast<std::int32_t>(std::ceil(x));
}

} // namespace

TriangleFiller::TriangleFiller(const DepthCoder& coder, BandShader& shader, bool immediateShading,
                               bool vectorRows)
    : coder_(coder), shader_(shader), immediateShading_(immediateShading),
      vectorRows_(vectorRows && vectorRowsRun()) {}

bool TriangleFiller::vectorRowsAvailable() {
    return vectorRowsRun();
}

void TriangleFiller::fillPolygon(RenderBand& band, const TriangleShade& shade,
                                 const ScreenVertex* polygon, int count) {
    for (int k = 1; k + 1 < count; ++k) {
        switch (coder_.kind) {
        case DepthCoder::inverse:
            fill<DepthCoder::inverse>(band, shade, polygon[0], polygon[k], polygon[k + 1]);
            break;
        case DepthCoder::linear:
            fill<DepthCoder::linear>(band, shade, polygon[0], polygon[k], polygon[k + 1]);
            break;
        case DepthCoder::truncated:
            fill<DepthCoder::truncated>(band, shade, polygon[0], polygon[k], polygon[k + 1]);
            break;
        }
    }
}

template <DepthCoder::Kind K>
void TriangleFiller::fill(RenderBand& band, const TriangleShade& shade, const ScreenVertex& va,
                          const ScreenVertex& vb, const ScreenVertex& vc) {
    const ScreenVertex* v[3] = {&va, &vb, &vc};
    if (v[1]->y < v[0]->y) {
        std::swap(v[0], v[1]);
    }
    if (v[2]->y < v[1]->y) {
        std::swap(v[1], v[2]);
    }
    if (v[1]->y < v[0]->y) {
        std::swap(v[0], v[1]);
    }
    const ScreenVertex& a = *v[0];
    const ScreenVertex& b = *v[1];
    const ScreenVertex& c = *v[2];
    const double yTop = std::max<double>(band.top, std::ceil(a.y));
    const double yEnd = std::min<double>(band.bottom, std::ceil(c.y));
    if (!(yTop < yEnd)) {
        return;
    }
    const double area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
    if (!(area != 0) || !std::isfinite(area)) {
        return;
    }
    const bool midOnRight = area > 0;
    const ScreenLinear z = ScreenLinear::through(a, b, c, a.z, b.z, c.z, area);
    // The work record of these pixels, made when the first of them is seen.
    std::uint32_t work = RenderBand::noWork;
    const WorkMaker makeWork{shader_, band, shade, a, b, c, area};
    const Edge longEdge(a, c);
    const Edge upper(a, b);
    const Edge lower(b, c);
    const DepthCoder coder = coder_;
    for (auto y = static_cast<std::int32_t>(yTop); y < static_cast<std::int32_t>(yEnd); ++y) {
        const double yy = y;
        const double xLong = longEdge.at(yy);
        const double xShort = yy < b.y ? upper.at(yy) : lower.at(yy);
        const double left = midOnRight ? xLong : xShort;
        const double right = midOnRight ? xShort : xLong;
        const std::int32_t x0 = firstAtOrAfter(left, band.width);
        const std::int32_t x1 = firstAtOrAfter(right, band.width);
        if (x0 >= x1) {
            continue;
        }
        const std::size_t row = band.rowStart(y);
        std::uint32_t* codes = band.codes.data() + row;
        std::uint32_t* works = band.workOf.data() + row;
        const double zRow = z.b * yy + z.c;
        if (!shade.perPixel) {
            const ConstantSpan span{codes,
                                    band.colours.data() + row,
                                    band.materials.data() + row,
                                    band.keepFlags ? band.flags.data() + row : nullptr,
                                    works,
                                    shade.colour,
                                    shade.material,
                                    shade.flags};
#if defined(QUORVALE_FILL_AVX2)
            if constexpr (K != DepthCoder::truncated) {
                if (vectorRows_) {
                    if (band.keepFlags) {
                        constantRowAvx2<K, true>(span, coder, zRow, z.a, x0, x1);
                    } else {
                        constantRowAvx2<K, false>(span, coder, zRow, z.a, x0, x1);
                    }
                    continue;
                }
            }
#endif
            if (band.keepFlags) {
                span.fill<K, true>(coder, zRow, z.a, x0, x1);
            } else {
                span.fill<K, false>(coder, zRow, z.a, x0, x1);
            }
            continue;
        }
#if defined(QUORVALE_FILL_AVX2)
        if constexpr (K != DepthCoder::truncated) {
            if (vectorRows_ && !immediateShading_) {
                workRowAvx2<K>(codes, works, work, makeWork, coder, zRow, z.a, x0, x1);
                continue;
            }
        }
#endif
        for (std::int32_t x = x0; x < x1; ++x) {
            const std::uint32_t code = drawnCode<K>(coder, zRow + z.a * x);
            if (code <= codes[x]) {
                if (work == RenderBand::noWork) {
                    work = makeWork();
                }
                codes[x] = code;
                works[x] = work;
                if (immediateShading_) {
                    shader_.shadeRun(band, band.works[work], y, x, x + 1);
                }
            }
        }
    }
}
