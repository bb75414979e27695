// The pyramid's reduction and the sampler are vectorised over an interleaved copy of each
// level. Their results must be exactly those of the plain loops below (the reference, kept
// here as the definition of the arithmetic): every byte of every level, every output byte
// and the bits of every coverage, over sizes with partial cells, tiled and untiled maps,
// wrapping and offsets, clamped edges, points on and beyond the edges, footprints within,
// between and beyond the levels, and pixels with no coverage.

#include "texture/MipMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

using tex::MipMap;
using tex::Raster;
using tex::textureByte;

constexpr int tapWeight[4] = {1, 7, 7, 1};

void tapSources(std::int32_t n, std::int32_t size, std::int32_t exact, bool wrap,
                std::int32_t (&source)[4]) {
    for (int k = 0; k < 4; ++k) {
        const std::int32_t at = 2 * n - 1 + k;
        source[k] = wrap ? at & (size - 1) : (at >= 0 && at < exact ? at : -1);
    }
}

std::int32_t ceilShift(std::int32_t n, int level) {
    return static_cast<std::int32_t>((std::int64_t{n} + (std::int64_t{1} << level) - 1) >> level);
}

/// One padded level reduced from the one before it, tap by tap: the filter's definition.
struct PlainLevel {
    std::vector<std::uint8_t> rgb;
    std::vector<float> alpha;
};

PlainLevel plainReduce(const Raster& from, std::int32_t fromExactW, std::int32_t fromExactH,
                       std::int32_t toPaddedW, std::int32_t toPaddedH, std::int32_t toW,
                       std::int32_t toH, bool tiled, bool hasColour, bool hasAlpha) {
    PlainLevel out;
    const std::size_t n = static_cast<std::size_t>(toPaddedW) * toPaddedH;
    out.rgb.assign(hasColour ? n * 3 : 0, 0);
    out.alpha.assign(hasAlpha ? n : 0, 0.0f);
    for (std::int32_t Y = 0; Y < toH; ++Y) {
        std::int32_t rows[4];
        tapSources(Y, from.height, fromExactH, tiled, rows);
        for (std::int32_t X = 0; X < toW; ++X) {
            std::int32_t cols[4];
            tapSources(X, from.width, fromExactW, tiled, cols);
            const std::size_t o = static_cast<std::size_t>(Y) * toPaddedW + X;
            if (!hasAlpha) {
                if (!hasColour) {
                    continue;
                }
                for (int c = 0; c < 3; ++c) {
                    std::int32_t sum = 0;
                    for (int j = 0; j < 4; ++j) {
                        if (rows[j] < 0) {
                            continue;
                        }
                        std::int32_t across = 0;
                        for (int i = 0; i < 4; ++i) {
                            if (cols[i] >= 0) {
                                across += tapWeight[i] *
                                          from.rgb[(static_cast<std::size_t>(rows[j]) * from.width +
                                                    cols[i]) *
                                                       3 +
                                                   c];
                            }
                        }
                        sum += tapWeight[j] * across;
                    }
                    out.rgb[o * 3 + c] = static_cast<std::uint8_t>(sum >> 8);
                }
                continue;
            }
            float a = 0, c0 = 0, c1 = 0, c2 = 0;
            for (int j = 0; j < 4; ++j) {
                if (rows[j] < 0) {
                    continue;
                }
                float ra = 0, r0 = 0, r1 = 0, r2 = 0;
                for (int i = 0; i < 4; ++i) {
                    if (cols[i] < 0) {
                        continue;
                    }
                    const std::size_t at = static_cast<std::size_t>(rows[j]) * from.width + cols[i];
                    if (!(from.alpha[at] > 0)) {
                        continue;
                    }
                    const float wa =
                        static_cast<float>(tapWeight[i]) * (1.0f / 16.0f) * from.alpha[at];
                    ra += wa;
                    if (hasColour) {
                        r0 += wa * from.rgb[at * 3];
                        r1 += wa * from.rgb[at * 3 + 1];
                        r2 += wa * from.rgb[at * 3 + 2];
                    }
                }
                const float w = static_cast<float>(tapWeight[j]) * (1.0f / 16.0f);
                a += w * ra;
                c0 += w * r0;
                c1 += w * r1;
                c2 += w * r2;
            }
            out.alpha[o] = a;
            if (hasColour) {
                const float inv = a > 0 ? 1.0f / a : 0.0f;
                out.rgb[o * 3] = textureByte(c0 * inv);
                out.rgb[o * 3 + 1] = textureByte(c1 * inv);
                out.rgb[o * 3 + 2] = textureByte(c2 * inv);
            }
        }
    }
    return out;
}

/// One level's sums at (x, y), cell by cell: the sampler's definition.
void plainLevelSums(const MipMap& m, int level, double x, double y, bool clampEdge,
                    double (&colour)[3], double& alpha) {
    colour[0] = colour[1] = colour[2] = 0;
    alpha = 0;
    const Raster& padded = m.paddedLevel(level);
    const double c = std::ldexp(1.0, level);
    if (m.tiled) {
        x -= m.offsetX;
        y -= m.offsetY;
    }
    const double fx = (x - c / 2) / c;
    const double fy = (y - c / 2) / c;
    struct Axis {
        std::int64_t cell[2];
        double weight[2];
        bool inside[2];
    };
    auto makeAxis = [&](double f, std::int32_t size, std::int32_t paddedSize, bool wraps, Axis& a) {
        const double fl = std::floor(f);
        const auto first = static_cast<std::int64_t>(std::clamp(fl, -4.0e15, 4.0e15));
        a.cell[0] = first;
        a.cell[1] = first + 1;
        a.weight[0] = 1 - (f - fl);
        a.weight[1] = f - fl;
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
        }
        if (clampEdge) {
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
    if (!makeAxis(fx, m.width, padded.width, m.tiled && m.wrapX, ax) ||
        !makeAxis(fy, m.height, padded.height, m.tiled && m.wrapY, ay)) {
        return;
    }
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
                ay.weight[j] * (m.hasAlpha ? static_cast<double>(padded.alpha[at]) : 1.0);
            a += wa;
            if (m.hasColour) {
                c0 += wa * padded.rgb[at * 3];
                c1 += wa * padded.rgb[at * 3 + 1];
                c2 += wa * padded.rgb[at * 3 + 2];
            }
        }
        alpha += ax.weight[i] * a;
        colour[0] += ax.weight[i] * c0;
        colour[1] += ax.weight[i] * c1;
        colour[2] += ax.weight[i] * c2;
    }
}

struct PlainSample {
    std::uint8_t rgb[3];
    float alpha;
};

PlainSample plainSample(const MipMap& m, float u, float v, float fp, bool clampEdge) {
    double colour[3];
    double a = 0;
    if (!(fp > 1)) {
        plainLevelSums(m, 0, u, v, clampEdge, colour, a);
    } else {
        const double L = std::log2(static_cast<double>(fp));
        if (L >= m.levels - 1) {
            plainLevelSums(m, m.levels - 1, u, v, clampEdge, colour, a);
        } else {
            const int l = std::clamp(static_cast<int>(std::floor(L)), 0, m.levels - 2);
            const double t = L - l;
            double c1[3];
            double a1 = 0;
            plainLevelSums(m, l, u, v, clampEdge, colour, a);
            plainLevelSums(m, l + 1, u, v, clampEdge, c1, a1);
            a = (1 - t) * a + t * a1;
            for (int k = 0; k < 3; ++k) {
                colour[k] = (1 - t) * colour[k] + t * c1[k];
            }
        }
    }
    PlainSample s{};
    s.alpha = static_cast<float>(a);
    const double inv = m.hasAlpha ? (a > 0 ? 1 / a : 0) : 1;
    for (int k = 0; k < 3; ++k) {
        s.rgb[k] = textureByte(colour[k] * inv);
    }
    return s;
}

/// A picture with structure at every scale, runs of empty pixels (alpha 0, colour that must
/// not bleed), fractional coverage and the extremes of the colour range.
struct Picture {
    std::int32_t width, height;
    std::vector<std::uint8_t> rgb;
    std::vector<float> alpha;
    Picture(std::int32_t w, std::int32_t h, unsigned seed) : width(w), height(h) {
        std::mt19937 random(seed);
        const std::size_t n = static_cast<std::size_t>(w) * h;
        rgb.resize(n * 3);
        alpha.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned r = random();
            for (int c = 0; c < 3; ++c) {
                const unsigned kind = (r >> (8 * c)) & 7;
                rgb[i * 3 + c] = kind == 0   ? 0
                                 : kind == 1 ? 255
                                 : kind == 2 ? 254
                                             : std::uint8_t(random());
            }
            const unsigned k = (r >> 24) % 5;
            alpha[i] = k == 0 ? 0.0f : k == 1 ? 1.0f : static_cast<float>(random() % 1000) / 999.0f;
        }
    }
};

void expectLevelsMatchThePlainReduction(const MipMap& m, const char* what) {
    const std::int32_t P = m.paddedLevel(0).width;
    const std::int32_t Q = m.paddedLevel(0).height;
    for (int l = 1; l < m.levels; ++l) {
        const Raster& got = m.paddedLevel(l);
        const std::int32_t pw = std::max(1, P >> l);
        const std::int32_t ph = std::max(1, Q >> l);
        const PlainLevel want =
            plainReduce(m.paddedLevel(l - 1), ceilShift(m.width, l - 1), ceilShift(m.height, l - 1),
                        pw, ph, m.tiled ? pw : ceilShift(m.width, l),
                        m.tiled ? ph : ceilShift(m.height, l), m.tiled, m.hasColour, m.hasAlpha);
        const std::size_t n = static_cast<std::size_t>(pw) * ph;
        if (m.hasColour) {
            ASSERT_EQ(std::memcmp(got.rgb, want.rgb.data(), n * 3), 0) << what << " level " << l;
        }
        if (m.hasAlpha) {
            ASSERT_EQ(std::memcmp(got.alpha, want.alpha.data(), n * sizeof(float)), 0)
                << what << " level " << l;
        }
    }
}

/// Points over and around the map: random ones, pixel edges and centres at every level, and
/// far outside; footprints from below 1 to beyond the pyramid.
struct Points {
    std::vector<float> u, v, footprint;
    Points(const MipMap& m, unsigned seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> across(-1.5f * m.width, 2.5f * m.width);
        std::uniform_real_distribution<float> down(-1.5f * m.height, 2.5f * m.height);
        const float footprints[] = {0.25f, 1.0f, 1.0001f, 1.6f,  2.0f,
                                    2.9f,  4.0f, 5.5f,    11.0f, 1e4f};
        std::uniform_real_distribution<float> anyFootprint(0.5f, 40.0f);
        auto add = [&](float x, float y, float fp) {
            u.push_back(x);
            v.push_back(y);
            footprint.push_back(fp);
        };
        for (int i = 0; i < 1500; ++i) {
            add(across(random), down(random),
                i % 3 ? footprints[random() % std::size(footprints)] : anyFootprint(random));
        }
        for (int l = 0; l < m.levels; ++l) {
            const float c = std::ldexp(1.0f, l);
            for (const float x :
                 {0.0f, c / 2, c, float(m.width) - c / 2, float(m.width), float(m.width) + c / 2}) {
                for (const float y : {0.0f, c / 2, float(m.height) - c / 4, float(m.height)}) {
                    add(x, y, c * 1.5f);
                    add(x, y, c);
                }
            }
        }
        add(-1e7f, 3.0f, 1.6f);
        add(2.0f, 1e9f, 3.0f);
    }
};

/// The sampler's code for each instruction set this processor runs (the baseline always; AVX2
/// where present): each must give the plain sampler's results.
std::vector<MipMap::SamplerCode> codesToTest() {
    std::vector<MipMap::SamplerCode> codes;
    for (const auto code : {MipMap::SamplerCode::Baseline, MipMap::SamplerCode::Avx2}) {
        if (MipMap::processorRuns(code)) {
            codes.push_back(code);
        }
    }
    return codes;
}

const char* nameOf(MipMap::SamplerCode code) {
    return code == MipMap::SamplerCode::Avx2 ? "avx2" : "baseline";
}

void expectSamplesMatchThePlainSampler(const MipMap& m, const Points& p, bool clampEdge,
                                       const char* what) {
    for (const MipMap::SamplerCode code : codesToTest()) {
        const int count = static_cast<int>(p.u.size());
        std::vector<std::uint8_t> rgb(static_cast<std::size_t>(count) * 3);
        std::vector<float> alpha(static_cast<std::size_t>(count));
        // Runs of several lengths: the sampler plans ahead within a run.
        for (int start = 0, run = 1; start < count; start += run, run = run * 3 + 1) {
            const int n = std::min(run, count - start);
            m.sampleWith(code, rgb.data() + start * 3, alpha.data() + start, p.u.data() + start,
                         p.v.data() + start, p.footprint.data() + start, n, clampEdge);
        }
        int mismatches = 0;
        for (int i = 0; i < count && mismatches < 5; ++i) {
            const PlainSample want = plainSample(m, p.u[i], p.v[i], p.footprint[i], clampEdge);
            const bool same = std::memcmp(want.rgb, &rgb[i * 3], 3) == 0 &&
                              std::memcmp(&want.alpha, &alpha[i], sizeof(float)) == 0;
            if (!same) {
                ++mismatches;
                ADD_FAILURE() << nameOf(code) << " " << what << " clampEdge " << clampEdge
                              << " at (" << p.u[i] << ", " << p.v[i] << ") footprint "
                              << p.footprint[i] << ": got " << int(rgb[i * 3]) << " "
                              << int(rgb[i * 3 + 1]) << " " << int(rgb[i * 3 + 2]) << " / "
                              << alpha[i] << ", want " << int(want.rgb[0]) << " "
                              << int(want.rgb[1]) << " " << int(want.rgb[2]) << " / " << want.alpha;
            }
        }
        // Only what was asked for is written.
        std::uint8_t guard[4] = {7, 7, 7, 7};
        float u = 1, v = 1, fp = 2;
        m.sampleWith(code, guard, nullptr, &u, &v, &fp, 1, clampEdge);
        EXPECT_EQ(guard[3], 7) << nameOf(code);
    }
}

void expectLevelSamplesMatch(const MipMap& m, const Points& p, bool clampEdge, const char* what) {
    for (std::size_t i = 0; i < p.u.size(); i += 7) {
        const int level = static_cast<int>(i / 7) % m.levels;
        double colour[3];
        double a = 0;
        plainLevelSums(m, level, p.u[i], p.v[i], clampEdge, colour, a);
        if (m.hasAlpha) {
            const double inv = a > 0 ? 1 / a : 0;
            for (double& c : colour) {
                c *= inv;
            }
        }
        const MipMap::LevelSample s = m.sampleLevel(level, p.u[i], p.v[i], clampEdge);
        ASSERT_EQ(std::memcmp(&s.alpha, &a, sizeof a), 0) << what << " level " << level;
        ASSERT_EQ(std::memcmp(s.colour, colour, sizeof colour), 0) << what << " level " << level;
    }
}

struct Case {
    std::int32_t width, height;
    bool colour, alpha, tiled;
};

TEST(MipMapExactness, LevelsAndSamplesAreThoseOfThePlainLoops) {
    const Case cases[] = {
        {37, 21, true, true, false},  // partial cells on both axes, coverage varying
        {37, 21, true, false, false}, // no alpha: integer reduction, plain blend
        {37, 21, true, true, true},   // tiled: taps and cells wrap
        {32, 16, true, false, true},  // tiled without alpha: coverage 1 everywhere
        {64, 64, true, true, false},  // a power of two: the exact levels are the padded ones
        {19, 40, false, true, false}, // coverage only
        {5, 3, true, true, true},     // small: the last levels are 1 pixel wide
        {1, 1, true, true, false},    // one level
        {9, 1, true, false, false},   // one row
        {130, 6, true, true, true},   // far wider than high: the width's bits outlast the height's
        {3, 70, true, true, false},   // far higher than wide, untiled
    };
    unsigned seed = 1;
    for (const Case& c : cases) {
        const Picture picture(c.width, c.height, seed++);
        const MipMap m(c.width, c.height, c.colour ? picture.rgb.data() : nullptr,
                       c.alpha ? picture.alpha.data() : nullptr, c.tiled);
        const std::string what = std::to_string(c.width) + "x" + std::to_string(c.height) +
                                 (c.colour ? " colour" : "") + (c.alpha ? " alpha" : "") +
                                 (c.tiled ? " tiled" : "");
        expectLevelsMatchThePlainReduction(m, what.c_str());
        const Points points(m, seed++);
        for (const bool clampEdge : {false, true}) {
            expectSamplesMatchThePlainSampler(m, points, clampEdge, what.c_str());
            expectLevelSamplesMatch(m, points, clampEdge, what.c_str());
        }
    }
}

TEST(MipMapExactness, WrapOnOneAxisAndAShiftedOriginMatchThePlainSampler) {
    const Picture picture(24, 10, 99);
    for (const bool wrapX : {false, true}) {
        for (const bool wrapY : {false, true}) {
            auto m =
                TQL::makeHandle<MipMap>(24, 10, picture.rgb.data(), picture.alpha.data(), true);
            m->wrapX = wrapX;
            m->wrapY = wrapY;
            m->offsetX = 5;
            m->offsetY = -3;
            const Points points(*m, 7);
            for (const bool clampEdge : {false, true}) {
                const std::string what =
                    std::string("wrap ") + (wrapX ? "x" : "-") + (wrapY ? "y" : "-");
                expectSamplesMatchThePlainSampler(*m, points, clampEdge, what.c_str());
                expectLevelSamplesMatch(*m, points, clampEdge, what.c_str());
            }
        }
    }
}

TEST(MipMapExactness, RoundingAtTheTopAndEmptyPixelsAgreeWithThePlainSampler) {
    // Colours whose blends land on halves: 254.5 must give 255, other halves go to even,
    // and pixels of coverage 0 must lend nothing whatever their colour.
    const std::int32_t w = 8, h = 4;
    std::vector<std::uint8_t> rgb(w * h * 3);
    std::vector<float> alpha(w * h);
    for (int i = 0; i < w * h; ++i) {
        rgb[i * 3] = i % 2 ? 255 : 254;
        rgb[i * 3 + 1] = i % 2 ? 253 : 252;
        rgb[i * 3 + 2] = std::uint8_t(i * 37);
        alpha[i] = i % 3 == 0 ? 0.0f : 1.0f;
    }
    for (const bool withAlpha : {false, true}) {
        const MipMap m(w, h, rgb.data(), withAlpha ? alpha.data() : nullptr, false);
        Points points(m, 3);
        for (float x = 0; x <= w; x += 0.25f) {
            for (const float fp : {1.0f, 1.5f, 2.0f}) {
                points.u.push_back(x);
                points.v.push_back(1.5f);
                points.footprint.push_back(fp);
            }
        }
        expectSamplesMatchThePlainSampler(m, points, true, "halves");
        expectSamplesMatchThePlainSampler(m, points, false, "halves");
    }
}

} // namespace
