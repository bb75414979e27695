#include "texture/MipMap.h"

#include "core/Reporter.h"
#include "core/TqlError.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

// The SSE2 paths and the plain ones give the same results; QUORVALE_PLAIN_TEXTURE builds the
// plain ones on x86 too, so that they can be run against the tests there.
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && !defined(QUORVALE_PLAIN_TEXTURE)
#include <immintrin.h>
#endif
#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace tex {

namespace {

/// The smallest k with 2^k >= n.
std::int32_t ceilLog2(std::int32_t n) {
    std::int32_t k = 0;
    while ((std::int64_t{1} << k) < n) {
        ++k;
    }
    return k;
}

std::int32_t ceilShift(std::int32_t n, int level) {
    return static_cast<std::int32_t>((std::int64_t{n} + (std::int64_t{1} << level) - 1) >> level);
}

/// The filter's taps per axis, out of 16.
constexpr int tapWeight[4] = {1, 7, 7, 1};

/// Where each of the four taps of new pixel `n` reads in a line of `size` pixels (padded)
/// of which `exact` are image: -1 for a skipped tap.
void tapSources(std::int32_t n, std::int32_t size, std::int32_t exact, bool wrap,
                std::int32_t (&source)[4]) {
    for (int k = 0; k < 4; ++k) {
        const std::int32_t at = 2 * n - 1 + k;
        if (wrap) {
            source[k] = at & (size - 1);
        } else {
            source[k] = at >= 0 && at < exact ? at : -1;
        }
    }
}

/// floor, without a library call on processors that lack a rounding instruction. The same
/// value for every input: beyond 2^52 (and for infinities and NaN) a double is its own floor.
inline double floorOf(double f) {
    if (!(std::fabs(f) < 4503599627370496.0)) {
        return f;
    }
    const double d = static_cast<double>(static_cast<std::int64_t>(f));
    return d > f ? d - 1 : d;
}

/// Zeroes what lies outside the first w x h pixels of a level: the padding of an untiled
/// level, which is allocated without clearing because the image part is written in full.
void clearOutside(Raster& r, std::int32_t w, std::int32_t h) {
    if (w >= r.width && h >= r.height) {
        return;
    }
    const std::size_t stride = static_cast<std::size_t>(r.width);
    for (std::int32_t y = 0; y < r.height; ++y) {
        const std::size_t from = static_cast<std::size_t>(y) * stride + (y < h ? w : 0);
        const std::size_t end = (static_cast<std::size_t>(y) + 1) * stride;
        if (r.rgb) {
            std::fill(r.rgb + from * 3, r.rgb + end * 3, std::uint8_t{0});
        }
        if (r.alpha) {
            std::fill(r.alpha + from, r.alpha + end, 0.0f);
        }
    }
}

/// The cells one axis of a bilinear read takes, with their weights.
struct AxisCells {
    std::int64_t cell[2];
    double weight[2];
    bool inside[2];
};

/// The two cells around `at` (in level 0 pixels) on one axis of level `level`, whose cell is
/// `c` pixels of level 0. A cell of a non-wrapping axis is inside when it lies in the image;
/// the last cell of a side that isn't a multiple of `c` counts by the part it covers. With
/// `clampEdge` a cell beyond the edge reads the edge. False when neither cell is inside:
/// then the weights are 0.
inline bool axisCells(double at, double c, int level, std::int32_t size, std::int32_t paddedSize,
                      bool wraps, bool clampEdge, AxisCells& a) {
    // Cell corners: the point relative to the centres of the level's pixels. c is a power
    // of two, so the product by its inverse is the quotient.
    const double f = (at - c / 2) * (1 / c);
    const double fl = floorOf(f);
    const double t = f - fl;
    const std::int64_t first = static_cast<std::int64_t>(std::clamp(fl, -4.0e15, 4.0e15));
    a.cell[0] = first;
    a.cell[1] = first + 1;
    a.weight[0] = 1 - t;
    a.weight[1] = t;
    if (wraps) {
        a.cell[0] &= paddedSize - 1;
        a.cell[1] &= paddedSize - 1;
        a.inside[0] = a.inside[1] = true;
        return true;
    }
    const std::int64_t exact = (std::int64_t{size} + static_cast<std::int64_t>(c) - 1) >> level;
    for (int k = 0; k < 2; ++k) {
        a.inside[k] = a.cell[k] >= 0 && a.cell[k] < exact;
        if (a.inside[k] && a.cell[k] == exact - 1) {
            const double remaining = size - static_cast<double>(a.cell[k]) * c;
            if (remaining < c) {
                a.weight[k] *= remaining / c;
            }
        }
        if (clampEdge && !a.inside[k]) {
            a.cell[k] = std::clamp<std::int64_t>(a.cell[k], 0, exact - 1);
            a.inside[k] = true;
        }
    }
    if (!a.inside[0] && !a.inside[1]) {
        a.weight[0] = a.weight[1] = 0;
        return false;
    }
    return true;
}

/// The first four bytes of a texel (1, b, g, r) as one word.
template <class Texel> int leadingBytes(const Texel* t) {
    int word = 0;
    std::memcpy(&word, t, sizeof word);
    return word;
}

/// The offsets of columns and rows of a w x h level (powers of two) whose texels are stored
/// in the order of interleaved coordinate bits, x's first; once the shorter side's bits run
/// out the longer side's follow.
void interleavedIndices(std::int32_t w, std::int32_t h, std::vector<std::uint32_t>& xIndex,
                        std::vector<std::uint32_t>& yIndex) {
    const int xBits = ceilLog2(w);
    const int yBits = ceilLog2(h);
    int xPosition[32] = {};
    int yPosition[32] = {};
    int position = 0;
    for (int b = 0; b < std::max(xBits, yBits); ++b) {
        if (b < xBits) {
            xPosition[b] = position++;
        }
        if (b < yBits) {
            yPosition[b] = position++;
        }
    }
    auto spread = [](std::int32_t n, int bits, const int* positions,
                     std::vector<std::uint32_t>& index) {
        index.resize(static_cast<std::size_t>(n));
        for (std::int32_t i = 0; i < n; ++i) {
            std::uint32_t v = 0;
            for (int b = 0; b < bits; ++b) {
                v |= static_cast<std::uint32_t>((i >> b) & 1) << positions[b];
            }
            index[static_cast<std::size_t>(i)] = v;
        }
    };
    spread(w, xBits, xPosition, xIndex);
    spread(h, yBits, yPosition, yIndex);
}

/// Texel stores above this size are aligned for, and asked to get, huge pages: random reads
/// over a large level otherwise pay a page walk for most texels.
constexpr std::size_t hugePage = std::size_t{1} << 21;

} // namespace

const MipMap::Texel MipMap::m_emptyTexel{1, {0, 0, 0}, 0.0f};

void MipMap::TexelStoreFree::operator()(Texel* p) const {
    std::free(p);
}

Raster::Raster(std::int32_t w, std::int32_t h, bool withColour, bool withAlpha, bool zeroed)
    : width(w), height(h), hasColour(withColour), hasAlpha(withAlpha) {
    const std::size_t n = static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
    if (withColour) {
        rgbStore_.reset(zeroed ? new std::uint8_t[n * 3]() : new std::uint8_t[n * 3]);
        rgb = rgbStore_.get();
    }
    if (withAlpha) {
        alphaStore_.reset(zeroed ? new float[n]() : new float[n]);
        alpha = alphaStore_.get();
    }
}

std::int32_t mipLevelCount(std::int32_t width, std::int32_t height) {
    return 1 + ceilLog2(std::max(width, height));
}

MipMap::MipMap(std::int32_t w, std::int32_t h, const std::uint8_t* rgb, const float* alpha,
               bool isTiled, Reporter* progress)
    : width(w), height(h), hasAlpha(alpha != nullptr || isTiled), hasColour(rgb != nullptr),
      tiled(isTiled) {
    if (w < 1 || h < 1 || w > (1 << 24) || h > (1 << 24)) {
        throw TQL::TqlError(L"A texture needs a size of at least 1 x 1");
    }
    levels = mipLevelCount(w, h);
    const std::int32_t P = std::int32_t{1} << ceilLog2(w);
    const std::int32_t Q = std::int32_t{1} << ceilLog2(h);

    // Level 0: the image, repeated to fill the padded size when tiled.
    // A tiled level 0 is written in full; an untiled one keeps its padding empty.
    auto base = TQL::makeHandle<Raster>(P, Q, hasColour, hasAlpha, false);
    if (!tiled) {
        clearOutside(*base, w, h);
    }
    const std::int32_t rows = tiled ? Q : h;
    const std::int32_t columns = tiled ? P : w;
    for (std::int32_t y = 0; y < rows; ++y) {
        const std::int32_t sy = y % h;
        for (std::int32_t x0 = 0; x0 < columns; x0 += w) {
            const std::int32_t n = std::min(w, columns - x0);
            const std::size_t to = static_cast<std::size_t>(y) * P + x0;
            const std::size_t from = static_cast<std::size_t>(sy) * w;
            if (hasColour) {
                std::memcpy(base->rgb + to * 3, rgb + from * 3, static_cast<std::size_t>(n) * 3);
            }
            if (alpha) {
                std::memcpy(base->alpha + to, alpha + from,
                            static_cast<std::size_t>(n) * sizeof(float));
            } else if (hasAlpha) {
                std::fill_n(base->alpha + to, n, 1.0f);
            }
        }
    }
    paddedLevels.reserve(static_cast<std::size_t>(levels));
    paddedLevels.push_back(base);
    allocateTexels();
    fillBaseTexels();

    const std::uint64_t pixels = static_cast<std::uint64_t>(P) * static_cast<std::uint64_t>(Q) / 3;
    const unsigned total = static_cast<unsigned>(std::min<std::uint64_t>(pixels, 0xFFFFFFFFu)) + 1;
    unsigned done = 0;
    for (int l = 1; l < levels; ++l) {
        const std::int32_t pw = std::max(1, P >> l);
        const std::int32_t ph = std::max(1, Q >> l);
        paddedLevels.push_back(TQL::makeHandle<Raster>(pw, ph, hasColour, hasAlpha, false));
        const std::int32_t toW = tiled ? pw : ceilShift(w, l);
        const std::int32_t toH = tiled ? ph : ceilShift(h, l);
        clearOutside(*paddedLevels.back(), toW, toH);
        reduce(l, ceilShift(w, l - 1), ceilShift(h, l - 1), toW, toH, progress, total, done);
    }

    exactLevels.reserve(static_cast<std::size_t>(levels));
    for (int l = 0; l < levels; ++l) {
        const Raster& padded = *paddedLevels[static_cast<std::size_t>(l)];
        const std::int32_t ew = ceilShift(w, l);
        const std::int32_t eh = ceilShift(h, l);
        if (ew == padded.width && eh == padded.height) {
            // The image fills the padded level: the two are one.
            exactLevels.push_back(paddedLevels[static_cast<std::size_t>(l)]);
            continue;
        }
        auto exact = TQL::makeHandle<Raster>(ew, eh, hasColour, hasAlpha, false);
        for (std::int32_t y = 0; y < eh; ++y) {
            const std::size_t from = static_cast<std::size_t>(y) * padded.width;
            const std::size_t to = static_cast<std::size_t>(y) * ew;
            if (hasColour) {
                std::memcpy(exact->rgb + to * 3, padded.rgb + from * 3,
                            static_cast<std::size_t>(ew) * 3);
            }
            if (hasAlpha) {
                std::memcpy(exact->alpha + to, padded.alpha + from,
                            static_cast<std::size_t>(ew) * sizeof(float));
            }
        }
        exactLevels.push_back(exact);
    }
}

void MipMap::allocateTexels() {
    const std::int32_t P = paddedLevels[0]->width;
    const std::int32_t Q = paddedLevels[0]->height;
    if (static_cast<std::uint64_t>(P) * static_cast<std::uint64_t>(Q) > 0xFFFFFFFFu) {
        // Texel indices are 32 bits; such a map would need 32 GiB of texels anyway.
        throw std::bad_alloc();
    }
    std::size_t count = 0;
    texelLevels_.resize(static_cast<std::size_t>(levels));
    for (int l = 0; l < levels; ++l) {
        TexelLevel& t = texelLevels_[static_cast<std::size_t>(l)];
        t.width = std::max(1, P >> l);
        t.height = std::max(1, Q >> l);
        t.halfCell = std::ldexp(1.0, l - 1);
        t.inverseCell = std::ldexp(1.0, -l);
        interleavedIndices(t.width, t.height, t.xIndex, t.yIndex);
        t.xBitsMask = t.xIndex.back();
        t.yBitsMask = t.yIndex.back();
        // Each level starts on a cache line, so a texel pair never needs a third line.
        count += (static_cast<std::size_t>(t.width) * static_cast<std::size_t>(t.height) + 7) &
                 ~std::size_t{7};
    }
    std::size_t bytes = count * sizeof(Texel);
    std::size_t alignment = 64;
    if (bytes >= 2 * hugePage) {
        alignment = hugePage;
        bytes = (bytes + hugePage - 1) & ~(hugePage - 1);
    }
    void* store = std::aligned_alloc(alignment, bytes);
    if (!store) {
        throw std::bad_alloc();
    }
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (alignment == hugePage) {
        // Only advice: without huge pages the store works the same, a little slower.
        madvise(store, bytes, MADV_HUGEPAGE);
    }
#endif
    texelStore_.reset(static_cast<Texel*>(store));
    Texel* at = texelStore_.get();
    for (TexelLevel& t : texelLevels_) {
        t.texels = at;
        at += (static_cast<std::size_t>(t.width) * static_cast<std::size_t>(t.height) + 7) &
              ~std::size_t{7};
    }
}

void MipMap::fillBaseTexels() {
    const Raster& base = *paddedLevels[0];
    const TexelLevel& level = texelLevels_[0];
    // Rows in pairs, the two texels of a column together: a pair fills whole lines, in order.
    for (std::int32_t y0 = 0; y0 < base.height; y0 += 2) {
        const std::int32_t rows = std::min(2, base.height - y0);
        for (std::int32_t x = 0; x < base.width; ++x) {
            for (std::int32_t y = y0; y < y0 + rows; ++y) {
                const std::size_t i =
                    static_cast<std::size_t>(y) * base.width + static_cast<std::size_t>(x);
                Texel t{1, {0, 0, 0}, base.alpha ? base.alpha[i] : 1.0f};
                if (base.rgb) {
                    std::memcpy(t.bgr, base.rgb + i * 3, 3);
                }
                level.texels[level.xIndex[static_cast<std::size_t>(x)] +
                             level.yIndex[static_cast<std::size_t>(y)]] = t;
            }
        }
    }
}

void MipMap::reduce(int level, std::int32_t fromExactW, std::int32_t fromExactH, std::int32_t toW,
                    std::int32_t toH, Reporter* progress, unsigned total, unsigned& done) {
    const TexelLevel& from = texelLevels_[static_cast<std::size_t>(level - 1)];
    const TexelLevel& to = texelLevels_[static_cast<std::size_t>(level)];
    Raster& raster = *paddedLevels[static_cast<std::size_t>(level)];
    // Separable: each needed source row is filtered across into a ring of four rows keyed by
    // source row, then four of those are filtered down. A skipped tap reads the empty texel
    // (coverage 0, so it adds nothing), a skipped row a row of zeros.
    const std::size_t n = static_cast<std::size_t>(toW);
    std::vector<std::int32_t> column(n * 4);
    for (std::int32_t X = 0; X < toW; ++X) {
        std::int32_t s[4];
        tapSources(X, from.width, fromExactW, tiled, s);
        std::copy(s, s + 4, column.begin() + static_cast<std::ptrdiff_t>(X) * 4);
    }
    // Without alpha: integer sums per channel, 16 a tap per axis, so the total weight is
    // 256 (at most 255 x 256, which fits 16 bits). With alpha: float sums of weight x alpha
    // and weight x alpha x colour, in the lanes (coverage, b, g, r).
    const bool weighted = hasAlpha;
    std::vector<std::uint16_t> acrossInt(weighted ? 0 : n * 4 * 5);
    std::vector<float> acrossFloat(weighted ? n * 4 * 5 : 0);
    // Slot 4 stays zero: the row a skipped tap reads.
    std::int32_t key[4] = {-1, -1, -1, -1};

    auto filterAcross = [&](std::int32_t row, int slot) {
        const Texel* in = from.texels + from.yIndex[static_cast<std::size_t>(row)];
        const std::int32_t* src = column.data();
        auto tap = [&](int k) {
            return src[k] >= 0 ? in + from.xIndex[static_cast<std::size_t>(src[k])] : &m_emptyTexel;
        };
        if (!weighted) {
            std::uint16_t* out = acrossInt.data() + static_cast<std::size_t>(slot) * n * 4;
            for (std::size_t X = 0; X < n; ++X, src += 4, out += 4) {
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
                const __m128i zero = _mm_setzero_si128();
                __m128i sum = zero;
                for (int k = 0; k < 4; ++k) {
                    const __m128i t =
                        _mm_unpacklo_epi8(_mm_cvtsi32_si128(leadingBytes(tap(k))), zero);
                    sum = _mm_add_epi16(
                        sum, _mm_mullo_epi16(t, _mm_set1_epi16(static_cast<short>(tapWeight[k]))));
                }
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out), sum);
#else
                for (int c = 0; c < 4; ++c) {
                    int sum = 0;
                    for (int k = 0; k < 4; ++k) {
                        const Texel* t = tap(k);
                        sum += tapWeight[k] * (c == 0 ? t->one : t->bgr[c - 1]);
                    }
                    out[c] = static_cast<std::uint16_t>(sum);
                }
#endif
            }
            return;
        }
        float* out = acrossFloat.data() + static_cast<std::size_t>(slot) * n * 4;
        for (std::size_t X = 0; X < n; ++X, src += 4, out += 4) {
            // The row's texels are not in address order, so the processor doesn't read
            // ahead by itself: a few columns on.
            if (X + 16 < n && src[64] >= 0) {
                __builtin_prefetch(in + from.xIndex[static_cast<std::size_t>(src[64])]);
            }
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
            const __m128i zero = _mm_setzero_si128();
            __m128 sum = _mm_setzero_ps();
            for (int k = 0; k < 4; ++k) {
                const Texel* t = tap(k);
                const __m128 a = _mm_load_ss(&t->alpha);
                // A tap with no coverage (or none at all) is skipped: weight 0.
                const __m128 wa = _mm_and_ps(
                    _mm_mul_ss(_mm_set_ss(static_cast<float>(tapWeight[k]) * (1.0f / 16.0f)), a),
                    _mm_cmpgt_ss(a, _mm_setzero_ps()));
                const __m128i bytes = _mm_cvtsi32_si128(leadingBytes(t));
                const __m128 v =
                    _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(bytes, zero), zero));
                sum = _mm_add_ps(sum, _mm_mul_ps(_mm_shuffle_ps(wa, wa, 0), v));
            }
            _mm_storeu_ps(out, sum);
#else
            float s[4] = {0, 0, 0, 0};
            for (int k = 0; k < 4; ++k) {
                const Texel* t = tap(k);
                if (t->alpha > 0) {
                    const float wa = static_cast<float>(tapWeight[k]) * (1.0f / 16.0f) * t->alpha;
                    s[0] += wa;
                    s[1] += wa * t->bgr[0];
                    s[2] += wa * t->bgr[1];
                    s[3] += wa * t->bgr[2];
                }
            }
            std::copy(s, s + 4, out);
#endif
        }
    };

    for (std::int32_t Y = 0; Y < toH; ++Y) {
        std::int32_t rowsIn[4];
        tapSources(Y, from.height, fromExactH, tiled, rowsIn);
        int slots[4];
        for (int k = 0; k < 4; ++k) {
            slots[k] = 4;
            if (rowsIn[k] < 0) {
                continue;
            }
            const int slot = rowsIn[k] & 3;
            if (key[slot] != rowsIn[k]) {
                filterAcross(rowsIn[k], slot);
                key[slot] = rowsIn[k];
            }
            slots[k] = slot;
        }
        const std::size_t outRow = static_cast<std::size_t>(Y) * to.width;
        Texel* texels = to.texels + to.yIndex[static_cast<std::size_t>(Y)];
        const std::uint32_t* xIndex = to.xIndex.data();
        std::uint8_t* rgb = raster.rgb ? raster.rgb + outRow * 3 : nullptr;
        if (!weighted) {
            const std::uint16_t* r[4];
            for (int k = 0; k < 4; ++k) {
                r[k] = acrossInt.data() + static_cast<std::size_t>(slots[k]) * n * 4;
            }
            std::size_t X = 0;
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
            for (; X + 2 <= n; X += 2) {
                __m128i sum = _mm_setzero_si128();
                for (int k = 0; k < 4; ++k) {
                    const __m128i v =
                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(r[k] + X * 4));
                    sum = _mm_add_epi16(
                        sum, _mm_mullo_epi16(v, _mm_set1_epi16(static_cast<short>(tapWeight[k]))));
                }
                const __m128i bytes = _mm_packus_epi16(_mm_srli_epi16(sum, 8), sum);
                std::uint8_t b[8];
                _mm_storel_epi64(reinterpret_cast<__m128i*>(b), bytes);
                for (int p = 0; p < 2; ++p) {
                    texels[xIndex[X + p]] =
                        Texel{1, {b[p * 4 + 1], b[p * 4 + 2], b[p * 4 + 3]}, 1.0f};
                }
            }
#endif
            for (; X < n; ++X) {
                Texel t{1, {0, 0, 0}, 1.0f};
                for (int c = 0; c < 3; ++c) {
                    unsigned sum = 0;
                    for (int k = 0; k < 4; ++k) {
                        sum += static_cast<unsigned>(tapWeight[k]) * r[k][X * 4 + 1 + c];
                    }
                    t.bgr[c] = static_cast<std::uint8_t>(sum >> 8);
                }
                texels[xIndex[X]] = t;
            }
            if (rgb) {
                for (std::size_t i = 0; i < n; ++i) {
                    std::memcpy(rgb + i * 3, texels[xIndex[i]].bgr, 3);
                }
            }
        } else {
            const float* r[4];
            for (int k = 0; k < 4; ++k) {
                r[k] = acrossFloat.data() + static_cast<std::size_t>(slots[k]) * n * 4;
            }
            float* outA = raster.alpha + outRow;
            for (std::size_t X = 0; X < n; ++X) {
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
                __m128 sum = _mm_setzero_ps();
                for (int k = 0; k < 4; ++k) {
                    sum = _mm_add_ps(sum, _mm_mul_ps(_mm_set1_ps(static_cast<float>(tapWeight[k]) *
                                                                 (1.0f / 16.0f)),
                                                     _mm_loadu_ps(r[k] + X * 4)));
                }
                const float a = _mm_cvtss_f32(sum);
                const float inv = a > 0 ? 1.0f / a : 0.0f;
                // The colour's bytes as textureByte gives them: nearest (the default rounding
                // mode, ties to even), 255 from 254.5 up, 0 for what is not above 0 (the
                // conversion of a NaN gives INT_MIN, which the packs saturate to 0).
                const __m128 c = _mm_mul_ps(sum, _mm_set1_ps(inv));
                __m128i bytes = _mm_cvtps_epi32(_mm_min_ps(_mm_set1_ps(255.0f), c));
                const __m128i top = _mm_castps_si128(_mm_cmpge_ps(c, _mm_set1_ps(254.5f)));
                bytes = _mm_or_si128(_mm_andnot_si128(top, bytes),
                                     _mm_and_si128(top, _mm_set1_epi32(255)));
                bytes = _mm_packus_epi16(_mm_packs_epi32(bytes, bytes), bytes);
                const std::uint32_t packed = static_cast<std::uint32_t>(_mm_cvtsi128_si32(bytes));
                Texel t{1,
                        {static_cast<std::uint8_t>(packed >> 8),
                         static_cast<std::uint8_t>(packed >> 16),
                         static_cast<std::uint8_t>(packed >> 24)},
                        a};
#else
                float s[4] = {0, 0, 0, 0};
                for (int k = 0; k < 4; ++k) {
                    const float w = static_cast<float>(tapWeight[k]) * (1.0f / 16.0f);
                    for (int c = 0; c < 4; ++c) {
                        s[c] += w * r[k][X * 4 + c];
                    }
                }
                const float a = s[0];
                const float inv = a > 0 ? 1.0f / a : 0.0f;
                Texel t{1,
                        {textureByte(s[1] * inv), textureByte(s[2] * inv), textureByte(s[3] * inv)},
                        a};
#endif
                if (!hasColour) {
                    t.bgr[0] = t.bgr[1] = t.bgr[2] = 0;
                }
                texels[xIndex[X]] = t;
                outA[X] = a;
                if (rgb) {
                    std::memcpy(rgb + X * 3, t.bgr, 3);
                }
            }
        }
        // The padding of an untiled level holds empty texels.
        for (std::size_t X = n; X < static_cast<std::size_t>(to.width); ++X) {
            texels[xIndex[X]] = m_emptyTexel;
        }
        done += static_cast<unsigned>(toW);
        if (progress && (Y & 63) == 63 && progress->report(total, std::min(done, total), 0.0)) {
            throw Reporter::Abandoned();
        }
    }
    for (std::int32_t Y = toH; Y < to.height; ++Y) {
        Texel* texels = to.texels + to.yIndex[static_cast<std::size_t>(Y)];
        for (const std::uint32_t X : to.xIndex) {
            texels[X] = m_emptyTexel;
        }
    }
}

inline void MipMap::levelTaps(int level, double x, double y, bool clampEdge,
                              LevelTaps& taps) const {
    const TexelLevel& t = texelLevels_[static_cast<std::size_t>(level)];
    const double c = static_cast<double>(std::int64_t{1} << level);
    if (tiled) {
        x -= offsetX;
        y -= offsetY;
    }
    AxisCells ax;
    AxisCells ay;
    axisCells(x, c, level, width, t.width, tiled && wrapX, clampEdge, ax);
    axisCells(y, c, level, height, t.height, tiled && wrapY, clampEdge, ay);
    for (int i = 0; i < 2; ++i) {
        taps.wx[i] = ax.weight[i];
        taps.wy[i] = ay.weight[i];
        for (int j = 0; j < 2; ++j) {
            // A cell outside the image reads the empty texel: coverage 0, so it adds nothing.
            const bool inside = ax.inside[i] && ay.inside[j];
            taps.texel[i * 2 + j] = inside ? t.at(ax.cell[i], ay.cell[j]) : &m_emptyTexel;
        }
    }
}

#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
namespace {

/// A level's cell (x0, y0) and bilinear weights for a point of a map that wraps on both
/// axes, both axes at once in two lanes: (x - half cell) / cell, floored by truncation, which
/// is exact within +-2^31; points farther out (and NaN) give false.
[[gnu::always_inline]] inline bool wrappedCells(double halfCell, double inverseCell, double x,
                                                double y, double (&wx)[2], double (&wy)[2],
                                                std::uint32_t& x0, std::uint32_t& y0) {
    const __m128d f =
        _mm_mul_pd(_mm_sub_pd(_mm_set_pd(y, x), _mm_set1_pd(halfCell)), _mm_set1_pd(inverseCell));
    const __m128d magnitude = _mm_andnot_pd(_mm_set1_pd(-0.0), f);
    if (_mm_movemask_pd(_mm_cmplt_pd(magnitude, _mm_set1_pd(2147483647.0))) != 3) {
        return false;
    }
    const __m128i truncated = _mm_cvttpd_epi32(f);
    const __m128d d = _mm_cvtepi32_pd(truncated);
    const __m128i above = _mm_castpd_si128(_mm_cmpgt_pd(d, f));
    const __m128d fl = _mm_sub_pd(d, _mm_and_pd(_mm_castsi128_pd(above), _mm_set1_pd(1.0)));
    const __m128d frac = _mm_sub_pd(f, fl);
    const __m128d keep = _mm_sub_pd(_mm_set1_pd(1.0), frac);
    _mm_storeu_pd(wx, _mm_unpacklo_pd(keep, frac));
    _mm_storeu_pd(wy, _mm_unpackhi_pd(keep, frac));
    // The comparison's lanes are 64 bits: its low halves, as 32-bit -1 or 0, adjust the cells.
    const __m128i cells =
        _mm_add_epi32(truncated, _mm_shuffle_epi32(above, _MM_SHUFFLE(3, 3, 2, 0)));
    x0 = static_cast<std::uint32_t>(_mm_cvtsi128_si32(cells));
    y0 = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_shuffle_epi32(cells, 1)));
    return true;
}

} // namespace
#endif

/// levelTaps for a map that wraps on both axes (the point already moved by the tile
/// origin), both axes at once: no edges, no partial cells, nothing outside. The same
/// arithmetic in two lanes; the floor by truncation is exact within +-2^31, so points
/// farther out (and NaN) are left to the general path: false.
inline bool MipMap::wrappedLevelTaps(int level, double x, double y, LevelTaps& taps) const {
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
    const TexelLevel& t = texelLevels_[static_cast<std::size_t>(level)];
    std::uint32_t x0 = 0;
    std::uint32_t y0 = 0;
    if (!wrappedCells(t.halfCell, t.inverseCell, x, y, taps.wx, taps.wy, x0, y0)) {
        return false;
    }
    const std::uint32_t xMask = static_cast<std::uint32_t>(t.width - 1);
    const std::uint32_t yMask = static_cast<std::uint32_t>(t.height - 1);
    const std::uint32_t ix[2] = {t.xIndex[x0 & xMask], t.xIndex[(x0 + 1) & xMask]};
    const std::uint32_t iy[2] = {t.yIndex[y0 & yMask], t.yIndex[(y0 + 1) & yMask]};
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            taps.texel[i * 2 + j] = t.texels + ix[i] + iy[j];
        }
    }
    return true;
#else
    (void)level;
    (void)x;
    (void)y;
    (void)taps;
    return false;
#endif
}

inline void MipMap::planSample(double x, double y, float footprint, bool clampEdge, bool wrapsBoth,
                               SamplePlan& plan, FootprintLog& log) const {
    plan.two = false;
    plan.t = 0;
    int first = 0;
    if (footprint > 1) {
        // Neighbouring samples mostly share their footprint: its logarithm is kept.
        if (footprint != log.footprint) {
            log.footprint = footprint;
            log.value = std::log2(static_cast<double>(footprint));
        }
        const double L = log.value;
        if (L >= levels - 1) {
            first = levels - 1;
        } else {
            first = std::clamp(static_cast<int>(std::floor(L)), 0, levels - 2);
            plan.t = L - first;
            plan.two = true;
        }
    }
    if (wrapsBoth) {
        const double xs = x - offsetX;
        const double ys = y - offsetY;
        if (wrappedLevelTaps(first, xs, ys, plan.taps[0]) &&
            (!plan.two || wrappedLevelTaps(first + 1, xs, ys, plan.taps[1]))) {
            return;
        }
    }
    levelTaps(first, x, y, clampEdge, plan.taps[0]);
    if (plan.two) {
        levelTaps(first + 1, x, y, clampEdge, plan.taps[1]);
    }
}

namespace {

#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
#define QUORVALE_TEXTURE_SSE2 1
#endif
#if defined(__x86_64__) && !defined(QUORVALE_PLAIN_TEXTURE)
#define QUORVALE_TEXTURE_AVX2 1
#endif

/// A level's sums, (coverage, b) and (g, r): colour times coverage and coverage, along y
/// first and then along x, in the order and precision of a plain double loop.
#if defined(QUORVALE_TEXTURE_SSE2)
struct Sums {
    __m128d ab;
    __m128d gr;
};
#else
struct Sums {
    double v[4];
};
#endif

// Forced inline: a call per level and sample costs as much as a good part of the sums.
template <class Taps> [[gnu::always_inline]] inline Sums levelSumsOf(const Taps& taps) {
#if defined(QUORVALE_TEXTURE_SSE2)
    const __m128i zero = _mm_setzero_si128();
    Sums s{_mm_setzero_pd(), _mm_setzero_pd()};
    for (int i = 0; i < 2; ++i) {
        __m128d ab = _mm_setzero_pd();
        __m128d gr = _mm_setzero_pd();
        for (int j = 0; j < 2; ++j) {
            const auto* t = taps.texel[i * 2 + j];
            const __m128i raw = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(t));
            const __m128i lanes = _mm_unpacklo_epi16(_mm_unpacklo_epi8(raw, zero), zero);
            const __m128d a =
                _mm_cvtss_sd(_mm_setzero_pd(), _mm_castsi128_ps(_mm_srli_si128(raw, 4)));
            __m128d wa = _mm_mul_sd(_mm_set_sd(taps.wy[j]), a);
            wa = _mm_unpacklo_pd(wa, wa);
            ab = _mm_add_pd(ab, _mm_mul_pd(wa, _mm_cvtepi32_pd(lanes)));
            gr = _mm_add_pd(gr, _mm_mul_pd(wa, _mm_cvtepi32_pd(_mm_srli_si128(lanes, 8))));
        }
        const __m128d wx = _mm_set1_pd(taps.wx[i]);
        s.ab = _mm_add_pd(s.ab, _mm_mul_pd(wx, ab));
        s.gr = _mm_add_pd(s.gr, _mm_mul_pd(wx, gr));
    }
    return s;
#else
    Sums s{{0, 0, 0, 0}};
    for (int i = 0; i < 2; ++i) {
        double c[4] = {0, 0, 0, 0};
        for (int j = 0; j < 2; ++j) {
            const auto* t = taps.texel[i * 2 + j];
            const double wa = taps.wy[j] * static_cast<double>(t->alpha);
            c[0] += wa * t->one;
            for (int k = 0; k < 3; ++k) {
                c[k + 1] += wa * t->bgr[k];
            }
        }
        for (int k = 0; k < 4; ++k) {
            s.v[k] += taps.wx[i] * c[k];
        }
    }
    return s;
#endif
}

/// The four sums as doubles: coverage, b, g, r.
void unpackSums(const Sums& s, double (&v)[4]) {
#if defined(QUORVALE_TEXTURE_SSE2)
    _mm_storeu_pd(v, s.ab);
    _mm_storeu_pd(v + 2, s.gr);
#else
    std::copy(s.v, s.v + 4, v);
#endif
}

#if defined(QUORVALE_TEXTURE_SSE2)
/// Writes a sample's colour: three bytes, `wide` when the byte after them may be
/// overwritten too (it belongs to the next sample, written later).
[[gnu::always_inline]] inline void storeColour(std::uint8_t* to, std::uint32_t bytes, bool wide) {
    if (wide) {
        std::memcpy(to, &bytes, 4);
    } else {
        to[0] = static_cast<std::uint8_t>(bytes);
        to[1] = static_cast<std::uint8_t>(bytes >> 8);
        to[2] = static_cast<std::uint8_t>(bytes >> 16);
    }
}

/// The lanes of four doubles, as textureByte gives them, in the four bytes of the result.
/// min keeps a NaN when it is the second operand (a NaN converts to INT_MIN, which the packs
/// saturate to 0, as textureByte gives for what isn't above 0); a value from 254.5 up gets a
/// half more, which converts to 255 or 256 (ties to even) and saturates to 255; the packs
/// clamp what is below 0.
[[gnu::always_inline]] inline std::uint32_t bytesOf(__m128d low, __m128d high) {
    const __m128d top = _mm_set1_pd(255.0);
    const __m128d edge = _mm_set1_pd(254.5);
    const __m128d half = _mm_set1_pd(0.5);
    low = _mm_min_pd(top, low);
    high = _mm_min_pd(top, high);
    low = _mm_add_pd(low, _mm_and_pd(_mm_cmpge_pd(low, edge), half));
    high = _mm_add_pd(high, _mm_and_pd(_mm_cmpge_pd(high, edge), half));
    const __m128i words = _mm_unpacklo_epi64(_mm_cvtpd_epi32(low), _mm_cvtpd_epi32(high));
    const __m128i halves = _mm_packs_epi32(words, words);
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(halves, halves)));
}
#endif

#if defined(QUORVALE_TEXTURE_AVX2)
/// levelSumsOf in one register: a texel widens to (1, b, g, r) in four doubles and one product
/// by its weight gives all four sums. The same products and additions in the same order (no
/// fused multiply-add: this code is built for AVX2 only, not FMA).
template <class Taps>
__attribute__((target("avx2"), always_inline)) inline __m256d levelSumsAvx2(const Taps& taps) {
    __m256d s = _mm256_setzero_pd();
    for (int i = 0; i < 2; ++i) {
        __m256d c = _mm256_setzero_pd();
        for (int j = 0; j < 2; ++j) {
            const auto* t = taps.texel[i * 2 + j];
            int word;
            std::memcpy(&word, t, sizeof word);
            const __m256d lanes = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(word)));
            const double wa = taps.wy[j] * static_cast<double>(t->alpha);
            c = _mm256_add_pd(c, _mm256_mul_pd(_mm256_set1_pd(wa), lanes));
        }
        s = _mm256_add_pd(s, _mm256_mul_pd(_mm256_set1_pd(taps.wx[i]), c));
    }
    return s;
}

/// bytesOf for four lanes in one register.
__attribute__((target("avx2"), always_inline)) inline std::uint32_t bytesOfAvx2(__m256d v) {
    v = _mm256_min_pd(_mm256_set1_pd(255.0), v);
    v = _mm256_add_pd(
        v, _mm256_and_pd(_mm256_cmp_pd(v, _mm256_set1_pd(254.5), _CMP_GE_OQ), _mm256_set1_pd(0.5)));
    const __m128i words = _mm256_cvtpd_epi32(v);
    const __m128i halves = _mm_packs_epi32(words, words);
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(halves, halves)));
}
#endif

} // namespace

MipMap::LevelSample MipMap::sampleLevel(int level, double x, double y, bool clampEdge) const {
    LevelTaps taps;
    levelTaps(std::clamp(level, 0, levels - 1), x, y, clampEdge, taps);
    double v[4];
    unpackSums(levelSumsOf(taps), v);
    LevelSample s;
    s.alpha = v[0];
    for (int k = 0; k < 3; ++k) {
        s.colour[k] = v[k + 1];
    }
    if (hasAlpha) {
        const double inv = s.alpha > 0 ? 1 / s.alpha : 0;
        for (double& c : s.colour) {
            c *= inv;
        }
    }
    return s;
}

bool MipMap::processorRuns(SamplerCode code) {
    switch (code) {
    case SamplerCode::Baseline:
        return true;
    case SamplerCode::Avx2:
#if defined(QUORVALE_TEXTURE_AVX2)
        return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
#else
        return false;
#endif
    }
    return false;
}

void MipMap::sample(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                    const float* footprint, int count, bool clampEdge) const {
#if defined(QUORVALE_TEXTURE_AVX2)
    // The AVX2 code plans with bit deposits, which some processors run in microcode at a
    // hundred times the cost of a table read: those run the baseline code.
    static const bool avx2 =
        processorRuns(SamplerCode::Avx2) &&
        !(__builtin_cpu_is("amd") && (__builtin_cpu_is("znver1") || __builtin_cpu_is("znver2")));
    if (avx2) {
        sampleAvx2(rgb, alpha, u, v, footprint, count, clampEdge);
        return;
    }
#endif
    sampleBaseline(rgb, alpha, u, v, footprint, count, clampEdge);
}

void MipMap::sampleWith(SamplerCode code, std::uint8_t* rgb, float* alpha, const float* u,
                        const float* v, const float* footprint, int count, bool clampEdge) const {
    if (!processorRuns(code)) {
        throw TQL::TqlError(L"This processor lacks the instructions asked for to sample a texture");
    }
#if defined(QUORVALE_TEXTURE_AVX2)
    if (code == SamplerCode::Avx2) {
        sampleAvx2(rgb, alpha, u, v, footprint, count, clampEdge);
        return;
    }
#endif
    sampleBaseline(rgb, alpha, u, v, footprint, count, clampEdge);
}

// Samples go in blocks: while one block is read, the next is planned (cells, weights) and
// its texels asked for. The requests of a whole block are issued back to back, so that the
// misses of random points (and their page walks, which a request waits on before it
// retires) overlap, instead of one sample's work at a time holding them up. The four texels
// of each level are asked for: mostly one line, but a cell that crosses the border of a
// 4 x 2 block of texels spans two lines or four (asking for each line only once measured no
// faster: a repeated request is cheap). The requests are written in place: in a helper the
// compiler may judge them free of effects and drop them.
void MipMap::sampleBaseline(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                            const float* footprint, int count, bool clampEdge) const {
    constexpr int block = 32;
    const bool wrapsBoth = tiled && wrapX && wrapY;
    SamplePlan plans[2][block];
    FootprintLog log;
    for (int start = -block, which = 1; start < count; start += block, which ^= 1) {
        if (start + block < count) {
            SamplePlan* out = plans[which ^ 1];
            const int from = start + block;
            const int n = std::min(block, count - from);
            for (int k = 0; k < n; ++k) {
                planSample(u[from + k], v[from + k], footprint[from + k], clampEdge, wrapsBoth,
                           out[k], log);
            }
            for (int k = 0; k < n; ++k) {
                for (int l = 0; l < (out[k].two ? 2 : 1); ++l) {
                    for (const Texel* t : out[k].taps[l].texel) {
                        __builtin_prefetch(t);
                    }
                }
            }
        }
        if (start < 0) {
            continue;
        }
        const int n = std::min(block, count - start);
        for (int k = 0; k < n; ++k) {
            const int i = start + k;
            const SamplePlan& plan = plans[which][k];
#if defined(QUORVALE_TEXTURE_SSE2)
            Sums sums = levelSumsOf(plan.taps[0]);
            if (plan.two) {
                const Sums upper = levelSumsOf(plan.taps[1]);
                const __m128d keep = _mm_set1_pd(1 - plan.t);
                const __m128d take = _mm_set1_pd(plan.t);
                sums.ab = _mm_add_pd(_mm_mul_pd(keep, sums.ab), _mm_mul_pd(take, upper.ab));
                sums.gr = _mm_add_pd(_mm_mul_pd(keep, sums.gr), _mm_mul_pd(take, upper.gr));
            }
            const double a = _mm_cvtsd_f64(sums.ab);
            if (alpha) {
                alpha[i] = static_cast<float>(a);
            }
            if (rgb) {
                // With alpha the sums are weighted by it; without, they are the plain blend.
                const __m128d inv = _mm_set1_pd(hasAlpha ? (a > 0 ? 1 / a : 0) : 1);
                storeColour(rgb + i * 3,
                            bytesOf(_mm_mul_pd(sums.ab, inv), _mm_mul_pd(sums.gr, inv)) >> 8,
                            i + 1 < count);
            }
#else
            double s[4];
            unpackSums(levelSumsOf(plan.taps[0]), s);
            if (plan.two) {
                double s1[4];
                unpackSums(levelSumsOf(plan.taps[1]), s1);
                for (int c = 0; c < 4; ++c) {
                    s[c] = (1 - plan.t) * s[c] + plan.t * s1[c];
                }
            }
            const double a = s[0];
            if (alpha) {
                alpha[i] = static_cast<float>(a);
            }
            if (rgb) {
                const double inv = hasAlpha ? (a > 0 ? 1 / a : 0) : 1;
                rgb[i * 3] = textureByte(s[1] * inv);
                rgb[i * 3 + 1] = textureByte(s[2] * inv);
                rgb[i * 3 + 2] = textureByte(s[3] * inv);
            }
#endif
        }
    }
}

#if defined(QUORVALE_TEXTURE_AVX2)
// wrappedLevelTaps with the texels' offsets from bit deposits instead of the column and row
// tables (which at 4096 x 4096 take 32 KiB beside the texels and spill the first-level cache).
__attribute__((target("avx2,bmi2"))) inline bool
MipMap::depositLevelTaps(int level, double x, double y, LevelTaps& taps) const {
    const TexelLevel& t = texelLevels_[static_cast<std::size_t>(level)];
    x -= offsetX;
    y -= offsetY;
    std::uint32_t x0 = 0;
    std::uint32_t y0 = 0;
    if (!wrappedCells(t.halfCell, t.inverseCell, x, y, taps.wx, taps.wy, x0, y0)) {
        return false;
    }
    const std::uint32_t ix[2] = {_pdep_u32(x0, t.xBitsMask), _pdep_u32(x0 + 1, t.xBitsMask)};
    const std::uint32_t iy[2] = {_pdep_u32(y0, t.yBitsMask), _pdep_u32(y0 + 1, t.yBitsMask)};
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            taps.texel[i * 2 + j] = t.texels + ix[i] + iy[j];
        }
    }
    return true;
}

// sampleBaseline with AVX2: a texel's four lanes in one register, and on a map that wraps on
// both axes the cells of both levels planned at once, (x, y) of each level in four lanes,
// with the arithmetic of wrappedLevelTaps.
__attribute__((target("avx2,bmi2"))) void MipMap::sampleAvx2(std::uint8_t* rgb, float* alpha,
                                                             const float* u, const float* v,
                                                             const float* footprint, int count,
                                                             bool clampEdge) const {
    constexpr int block = 32;
    const bool wrapsBoth = tiled && wrapX && wrapY;
    SamplePlan plans[2][block];
    FootprintLog log;
    for (int start = -block, which = 1; start < count; start += block, which ^= 1) {
        if (start + block < count) {
            SamplePlan* out = plans[which ^ 1];
            const int from = start + block;
            const int n = std::min(block, count - from);
            for (int k = 0; k < n; ++k) {
                SamplePlan& plan = out[k];
                const float fp = footprint[from + k];
                if (wrapsBoth && !(fp > 1) &&
                    depositLevelTaps(0, u[from + k], v[from + k], plan.taps[0])) {
                    plan.t = 0;
                    plan.two = false;
                    continue;
                }
                if (wrapsBoth && fp > 1) {
                    if (fp != log.footprint) {
                        log.footprint = fp;
                        log.value = std::log2(static_cast<double>(fp));
                    }
                    const double L = log.value;
                    if (L < levels - 1) {
                        const int first =
                            std::clamp(static_cast<int>(std::floor(L)), 0, levels - 2);
                        const TexelLevel& lower = texelLevels_[static_cast<std::size_t>(first)];
                        const TexelLevel& upper = texelLevels_[static_cast<std::size_t>(first) + 1];
                        const double x = static_cast<double>(u[from + k]) - offsetX;
                        const double y = static_cast<double>(v[from + k]) - offsetY;
                        const __m256d f = _mm256_mul_pd(
                            _mm256_sub_pd(_mm256_set_pd(y, x, y, x),
                                          _mm256_set_pd(upper.halfCell, upper.halfCell,
                                                        lower.halfCell, lower.halfCell)),
                            _mm256_set_pd(upper.inverseCell, upper.inverseCell, lower.inverseCell,
                                          lower.inverseCell));
                        const __m256d magnitude = _mm256_andnot_pd(_mm256_set1_pd(-0.0), f);
                        if (_mm256_movemask_pd(_mm256_cmp_pd(
                                magnitude, _mm256_set1_pd(2147483647.0), _CMP_LT_OQ)) == 15) {
                            const __m256d d = _mm256_cvtepi32_pd(_mm256_cvttpd_epi32(f));
                            const __m256d fl =
                                _mm256_sub_pd(d, _mm256_and_pd(_mm256_cmp_pd(d, f, _CMP_GT_OQ),
                                                               _mm256_set1_pd(1.0)));
                            const __m256d frac = _mm256_sub_pd(f, fl);
                            const __m256d keep = _mm256_sub_pd(_mm256_set1_pd(1.0), frac);
                            const __m256d xs = _mm256_unpacklo_pd(keep, frac);
                            const __m256d ys = _mm256_unpackhi_pd(keep, frac);
                            _mm_storeu_pd(plan.taps[0].wx, _mm256_castpd256_pd128(xs));
                            _mm_storeu_pd(plan.taps[0].wy, _mm256_castpd256_pd128(ys));
                            _mm_storeu_pd(plan.taps[1].wx, _mm256_extractf128_pd(xs, 1));
                            _mm_storeu_pd(plan.taps[1].wy, _mm256_extractf128_pd(ys, 1));
                            // The floors are whole numbers within 32 bits: exact.
                            const __m128i cells = _mm256_cvttpd_epi32(fl);
                            // A bit deposit of a cell into a level's x or y positions gives its
                            // offset, wrapped: bits beyond the level's are dropped.
                            alignas(16) std::uint32_t c0[4];
                            _mm_store_si128(reinterpret_cast<__m128i*>(c0), cells);
                            const TexelLevel* level[2] = {&lower, &upper};
                            for (int l = 0; l < 2; ++l) {
                                const TexelLevel& t = *level[l];
                                const std::uint32_t ix[2] = {_pdep_u32(c0[l * 2], t.xBitsMask),
                                                             _pdep_u32(c0[l * 2] + 1, t.xBitsMask)};
                                const std::uint32_t iy[2] = {
                                    _pdep_u32(c0[l * 2 + 1], t.yBitsMask),
                                    _pdep_u32(c0[l * 2 + 1] + 1, t.yBitsMask)};
                                for (int i = 0; i < 2; ++i) {
                                    for (int j = 0; j < 2; ++j) {
                                        plan.taps[l].texel[i * 2 + j] = t.texels + ix[i] + iy[j];
                                    }
                                }
                            }
                            plan.t = L - first;
                            plan.two = true;
                            continue;
                        }
                    } else if (depositLevelTaps(levels - 1, u[from + k], v[from + k],
                                                plan.taps[0])) {
                        // Beyond the last level: that level alone.
                        plan.t = 0;
                        plan.two = false;
                        continue;
                    }
                }
                planSample(u[from + k], v[from + k], fp, clampEdge, wrapsBoth, plan, log);
            }
            for (int k = 0; k < n; ++k) {
                for (int l = 0; l < (out[k].two ? 2 : 1); ++l) {
                    for (const Texel* t : out[k].taps[l].texel) {
                        __builtin_prefetch(t);
                    }
                }
            }
        }
        if (start < 0) {
            continue;
        }
        const int n = std::min(block, count - start);
        for (int k = 0; k < n; ++k) {
            const int i = start + k;
            const SamplePlan& plan = plans[which][k];
            __m256d sums = levelSumsAvx2(plan.taps[0]);
            if (plan.two) {
                sums = _mm256_add_pd(
                    _mm256_mul_pd(_mm256_set1_pd(1 - plan.t), sums),
                    _mm256_mul_pd(_mm256_set1_pd(plan.t), levelSumsAvx2(plan.taps[1])));
            }
            const double a = _mm256_cvtsd_f64(sums);
            if (alpha) {
                alpha[i] = static_cast<float>(a);
            }
            if (rgb) {
                const double inv = hasAlpha ? (a > 0 ? 1 / a : 0) : 1;
                storeColour(rgb + i * 3, bytesOfAvx2(_mm256_mul_pd(sums, _mm256_set1_pd(inv))) >> 8,
                            i + 1 < count);
            }
        }
    }
}
#endif

} // namespace tex
