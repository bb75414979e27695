#include "texture/MipMap.h"

#include "core/Reporter.h"
#include "core/TqlError.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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

} // namespace

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
    auto base = TQL::makeHandle<Raster>(P, Q, hasColour, hasAlpha, !tiled);
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

    const std::uint64_t pixels = static_cast<std::uint64_t>(P) * static_cast<std::uint64_t>(Q) / 3;
    const unsigned total = static_cast<unsigned>(std::min<std::uint64_t>(pixels, 0xFFFFFFFFu)) + 1;
    unsigned done = 0;
    for (int l = 1; l < levels; ++l) {
        const Raster& from = *paddedLevels.back();
        const std::int32_t pw = std::max(1, P >> l);
        const std::int32_t ph = std::max(1, Q >> l);
        auto next = TQL::makeHandle<Raster>(pw, ph, hasColour, hasAlpha, !tiled);
        reduce(from, ceilShift(w, l - 1), ceilShift(h, l - 1), *next, tiled ? pw : ceilShift(w, l),
               tiled ? ph : ceilShift(h, l), progress, total, done);
        paddedLevels.push_back(next);
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

void MipMap::reduce(const Raster& from, std::int32_t fromExactW, std::int32_t fromExactH,
                    Raster& to, std::int32_t toW, std::int32_t toH, Reporter* progress,
                    unsigned total, unsigned& done) {
    // Separable: each needed source row is filtered across into `across` (a ring of four
    // rows keyed by source row), then four of those are filtered down.
    const std::size_t n = static_cast<std::size_t>(toW);
    std::vector<std::int32_t> column(n * 4);
    for (std::int32_t X = 0; X < toW; ++X) {
        std::int32_t s[4];
        tapSources(X, from.width, fromExactW, tiled, s);
        std::copy(s, s + 4, column.begin() + static_cast<std::ptrdiff_t>(X) * 4);
    }
    // Colour without alpha: integer sums, 16 a tap per axis, so the total weight is 256.
    // With alpha: sums of weight x alpha and weight x alpha x colour, as reals.
    std::vector<std::int32_t> acrossRgb(hasColour && !hasAlpha ? n * 3 * 4 : 0);
    std::vector<float> acrossA(hasAlpha ? n * 4 : 0);
    std::vector<float> acrossC(hasAlpha && hasColour ? n * 3 * 4 : 0);
    std::int32_t key[4] = {-1, -1, -1, -1};

    auto filterAcross = [&](std::int32_t row, int slot) {
        const std::size_t rowStart = static_cast<std::size_t>(row) * from.width;
        const std::int32_t* src = column.data();
        if (!hasAlpha) {
            std::int32_t* out = acrossRgb.data() + static_cast<std::size_t>(slot) * n * 3;
            const std::uint8_t* in = from.rgb + rowStart * 3;
            for (std::size_t X = 0; X < n; ++X, src += 4, out += 3) {
                std::int32_t r0 = 0, r1 = 0, r2 = 0;
                for (int k = 0; k < 4; ++k) {
                    if (src[k] >= 0) {
                        const std::uint8_t* p = in + static_cast<std::size_t>(src[k]) * 3;
                        r0 += tapWeight[k] * p[0];
                        r1 += tapWeight[k] * p[1];
                        r2 += tapWeight[k] * p[2];
                    }
                }
                out[0] = r0;
                out[1] = r1;
                out[2] = r2;
            }
            return;
        }
        float* outA = acrossA.data() + static_cast<std::size_t>(slot) * n;
        float* outC = hasColour ? acrossC.data() + static_cast<std::size_t>(slot) * n * 3 : nullptr;
        const float* inA = from.alpha + rowStart;
        const std::uint8_t* in = hasColour ? from.rgb + rowStart * 3 : nullptr;
        for (std::size_t X = 0; X < n; ++X, src += 4) {
            float a = 0, c0 = 0, c1 = 0, c2 = 0;
            for (int k = 0; k < 4; ++k) {
                if (src[k] >= 0 && inA[src[k]] > 0) {
                    const float wa =
                        static_cast<float>(tapWeight[k]) * (1.0f / 16.0f) * inA[src[k]];
                    a += wa;
                    if (in) {
                        const std::uint8_t* p = in + static_cast<std::size_t>(src[k]) * 3;
                        c0 += wa * p[0];
                        c1 += wa * p[1];
                        c2 += wa * p[2];
                    }
                }
            }
            outA[X] = a;
            if (outC) {
                outC[X * 3] = c0;
                outC[X * 3 + 1] = c1;
                outC[X * 3 + 2] = c2;
            }
        }
    };

    for (std::int32_t Y = 0; Y < toH; ++Y) {
        std::int32_t rowsIn[4];
        tapSources(Y, from.height, fromExactH, tiled, rowsIn);
        int slots[4];
        for (int k = 0; k < 4; ++k) {
            slots[k] = -1;
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
        if (!hasAlpha) {
            if (!hasColour) {
                continue;
            }
            std::uint8_t* out = to.rgb + outRow * 3;
            for (std::size_t i = 0; i < n * 3; ++i) {
                std::int32_t sum = 0;
                for (int k = 0; k < 4; ++k) {
                    if (slots[k] >= 0) {
                        sum += tapWeight[k] *
                               acrossRgb[static_cast<std::size_t>(slots[k]) * n * 3 + i];
                    }
                }
                out[i] = static_cast<std::uint8_t>(sum >> 8);
            }
        } else {
            float* outA = to.alpha + outRow;
            std::uint8_t* out = hasColour ? to.rgb + outRow * 3 : nullptr;
            for (std::size_t X = 0; X < n; ++X) {
                float a = 0, c0 = 0, c1 = 0, c2 = 0;
                for (int k = 0; k < 4; ++k) {
                    if (slots[k] < 0) {
                        continue;
                    }
                    const float w = static_cast<float>(tapWeight[k]) * (1.0f / 16.0f);
                    const std::size_t at = static_cast<std::size_t>(slots[k]) * n + X;
                    a += w * acrossA[at];
                    if (out) {
                        c0 += w * acrossC[at * 3];
                        c1 += w * acrossC[at * 3 + 1];
                        c2 += w * acrossC[at * 3 + 2];
                    }
                }
                outA[X] = a;
                if (out) {
                    const float inv = a > 0 ? 1.0f / a : 0.0f;
                    out[X * 3] = textureByte(c0 * inv);
                    out[X * 3 + 1] = textureByte(c1 * inv);
                    out[X * 3 + 2] = textureByte(c2 * inv);
                }
            }
        }
        done += static_cast<unsigned>(toW);
        if (progress && (Y & 63) == 63 && progress->report(total, std::min(done, total), 0.0)) {
            throw Reporter::Abandoned();
        }
    }
}

void MipMap::levelSums(int level, double x, double y, bool clampEdge, double (&colour)[3],
                       double& alpha) const {
    colour[0] = colour[1] = colour[2] = 0;
    alpha = 0;
    const Raster& padded = *paddedLevels[static_cast<std::size_t>(level)];
    const double c = std::ldexp(1.0, level);
    if (tiled) {
        x -= offsetX;
        y -= offsetY;
    }
    // Cell corners: the point relative to the centres of the level's pixels.
    const double fx = (x - c / 2) / c;
    const double fy = (y - c / 2) / c;
    const double flx = std::floor(fx);
    const double fly = std::floor(fy);
    const double tx = fx - flx;
    const double ty = fy - fly;

    struct Axis {
        std::int64_t cell[2];
        double weight[2];
        bool inside[2];
    };
    auto makeAxis = [&](double floorValue, double t, std::int32_t size, std::int32_t paddedSize,
                        bool wraps, Axis& a) -> bool {
        const std::int64_t first =
            static_cast<std::int64_t>(std::clamp(floorValue, -4.0e15, 4.0e15));
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
            // The last cell of a side that isn't a multiple of the cell size is partial.
            if (a.inside[k] && a.cell[k] == exact - 1) {
                const double remaining = size - static_cast<double>(a.cell[k]) * c;
                if (remaining < c) {
                    a.weight[k] *= remaining / c;
                }
            }
        }
        if (clampEdge) {
            // The edge pixels extend without end: a cell beyond the edge reads the edge.
            for (int k = 0; k < 2; ++k) {
                if (!a.inside[k]) {
                    a.cell[k] = std::clamp<std::int64_t>(a.cell[k], 0, exact - 1);
                    a.inside[k] = true;
                }
            }
        }
        return a.inside[0] || a.inside[1];
    };
    Axis ax;
    Axis ay;
    if (!makeAxis(flx, tx, width, padded.width, tiled && wrapX, ax) ||
        !makeAxis(fly, ty, height, padded.height, tiled && wrapY, ay)) {
        return;
    }
    // Along y first, then along x, colour weighted by coverage.
    for (int i = 0; i < 2; ++i) {
        if (!ax.inside[i]) {
            continue;
        }
        double a = 0, c0 = 0, c1 = 0, c2 = 0;
        for (int j = 0; j < 2; ++j) {
            if (!ay.inside[j]) {
                continue;
            }
            const std::size_t at = static_cast<std::size_t>(ay.cell[j]) * padded.width +
                                   static_cast<std::size_t>(ax.cell[i]);
            const double wa =
                ay.weight[j] * (hasAlpha ? static_cast<double>(padded.alpha[at]) : 1.0);
            a += wa;
            if (hasColour) {
                const std::uint8_t* p = padded.rgb + at * 3;
                c0 += wa * p[0];
                c1 += wa * p[1];
                c2 += wa * p[2];
            }
        }
        alpha += ax.weight[i] * a;
        colour[0] += ax.weight[i] * c0;
        colour[1] += ax.weight[i] * c1;
        colour[2] += ax.weight[i] * c2;
    }
}

MipMap::LevelSample MipMap::sampleLevel(int level, double x, double y, bool clampEdge) const {
    LevelSample s;
    levelSums(std::clamp(level, 0, levels - 1), x, y, clampEdge, s.colour, s.alpha);
    if (hasAlpha) {
        const double inv = s.alpha > 0 ? 1 / s.alpha : 0;
        for (double& c : s.colour) {
            c *= inv;
        }
    }
    return s;
}

void MipMap::prefetchLevel(int level, double x, double y) const {
    const Raster& padded = *paddedLevels[static_cast<std::size_t>(level)];
    const double c = std::ldexp(1.0, level);
    if (tiled) {
        x -= offsetX;
        y -= offsetY;
    }
    // The top-left tap of the 2 x 2 cells, wrapped or held to the level like the read.
    auto cell = [](double at, std::int32_t size) {
        const double f = std::floor(at);
        if (!(f >= 0)) {
            return std::int64_t{0};
        }
        return static_cast<std::int64_t>(std::min(f, static_cast<double>(size - 1)));
    };
    const std::int64_t cx = cell((x - c / 2) / c, padded.width);
    const std::int64_t cy = cell((y - c / 2) / c, padded.height);
    const std::int64_t rows[2] = {cy, std::min<std::int64_t>(cy + 1, padded.height - 1)};
    for (const std::int64_t row : rows) {
        const std::size_t at = static_cast<std::size_t>(row * padded.width + cx);
        if (padded.hasAlpha) {
            __builtin_prefetch(padded.alpha + at);
        }
        if (padded.hasColour) {
            __builtin_prefetch(padded.rgb + at * 3);
        }
    }
}

void MipMap::prefetchSample(double x, double y, float footprint) const {
    if (!(footprint > 1)) {
        prefetchLevel(0, x, y);
        return;
    }
    const double L = std::log2(static_cast<double>(footprint));
    if (L >= levels - 1) {
        prefetchLevel(levels - 1, x, y);
        return;
    }
    const int l = std::clamp(static_cast<int>(std::floor(L)), 0, levels - 2);
    prefetchLevel(l, x, y);
    prefetchLevel(l + 1, x, y);
}

void MipMap::sample(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                    const float* footprint, int count, bool clampEdge) const {
    // How many samples ahead the texels are asked for: enough to cover a miss to memory
    // with the work of the samples in between.
    constexpr int ahead = 8;
    for (int i = 0; i < count; ++i) {
        if (i + ahead < count) {
            prefetchSample(u[i + ahead], v[i + ahead], footprint[i + ahead]);
        }
        double colour[3];
        double a = 0;
        const float fp = footprint[i];
        if (!(fp > 1)) {
            levelSums(0, u[i], v[i], clampEdge, colour, a);
        } else {
            const double L = std::log2(static_cast<double>(fp));
            if (L >= levels - 1) {
                levelSums(levels - 1, u[i], v[i], clampEdge, colour, a);
            } else {
                const int l = std::clamp(static_cast<int>(std::floor(L)), 0, levels - 2);
                const double t = L - l;
                double c1[3];
                double a1 = 0;
                levelSums(l, u[i], v[i], clampEdge, colour, a);
                levelSums(l + 1, u[i], v[i], clampEdge, c1, a1);
                a = (1 - t) * a + t * a1;
                for (int k = 0; k < 3; ++k) {
                    colour[k] = (1 - t) * colour[k] + t * c1[k];
                }
            }
        }
        if (alpha) {
            alpha[i] = static_cast<float>(a);
        }
        if (rgb) {
            // With alpha the sums are weighted by it; without, they are the plain blend.
            const double inv = hasAlpha ? (a > 0 ? 1 / a : 0) : 1;
            rgb[i * 3] = textureByte(colour[0] * inv);
            rgb[i * 3 + 1] = textureByte(colour[1] * inv);
            rgb[i * 3 + 2] = textureByte(colour[2] * inv);
        }
    }
}

} // namespace tex
