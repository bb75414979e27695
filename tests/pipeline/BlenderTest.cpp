// Blender against a reference written here from the blend formulas, over a grid of base,
// source and coverage values, and the edge cases the formulas single out.

#include "pipeline/Blender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace {

using Bytes = std::array<int, 3>; // blue, green, red

// ---- The reference ------------------------------------------------------------------------

int rintEven(double v) {
    // Round half to even, by hand.
    const double f = std::floor(v);
    const double frac = v - f;
    long r = static_cast<long>(f);
    if (frac > 0.5 || (frac == 0.5 && (r % 2 != 0))) {
        ++r;
    }
    return static_cast<int>(r);
}

int byteOf(int v) {
    return ((v % 256) + 256) % 256;
}

int lerpRef(int b, int s, float t) {
    return b + rintEven(static_cast<float>(s - b) * t);
}

int dodgeRef(int b, int s) {
    if (b == 0) {
        return 0;
    }
    if (s == 255) {
        return 255;
    }
    const int q = (b * 255) / (255 - s);
    return q < 255 ? q : 255;
}

int burnRef(int b, int s) {
    if (b == 255) {
        return 255;
    }
    if (s == 0) {
        return 0;
    }
    const int q = 255 + ((b - 255) * 255) / s;
    return q > 0 ? q : 0;
}

struct Hls {
    double h; // radians, 0 for a grey
    double l;
    double s;
};

Hls toHls(const Bytes& c) {
    const double r = c[2] / 255.0, g = c[1] / 255.0, b = c[0] / 255.0;
    const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
    const double l = (mx + mn) / 2;
    if (mx == mn) {
        return {0, l, 0};
    }
    const double d = mx - mn;
    const double s = l <= 0.5 ? d / (mx + mn) : d / (2 - mx - mn);
    double h;
    if (mx == r) {
        h = std::fmod((g - b) / d + 6.0, 6.0);
    } else if (mx == g) {
        h = (b - r) / d + 2;
    } else {
        h = (r - g) / d + 4;
    }
    return {h * std::numbers::pi / 3, l, s};
}

Bytes fromHls(double h, double l, double s) {
    s = std::clamp(s, 0.0, 1.0);
    double r = l, g = l, b = l;
    if (s > 0) {
        const double q = l < 0.5 ? l * (1 + s) : l + s - l * s;
        const double p = 2 * l - q;
        double turn = h / (2 * std::numbers::pi);
        turn -= std::floor(turn);
        auto channel = [&](double x) {
            x -= std::floor(x);
            if (x < 1.0 / 6) {
                return p + (q - p) * 6 * x;
            }
            if (x < 0.5) {
                return q;
            }
            if (x < 2.0 / 3) {
                return p + (q - p) * (2.0 / 3 - x) * 6;
            }
            return p;
        };
        r = channel(turn + 1.0 / 3);
        g = channel(turn);
        b = channel(turn - 1.0 / 3);
    }
    auto toByte = [](double v) {
        return static_cast<int>(std::round(std::clamp(v, 0.0, 1.0) * 255));
    };
    return {toByte(b), toByte(g), toByte(r)};
}

Bytes shiftRef(Bytes c, int target) {
    int diff = target - (c[0] + c[1] + c[2]);
    const int up = diff > 0 ? 1 : -1;
    diff = std::abs(diff);
    while (diff > 0) {
        int n = 0, m = 1000;
        for (int v : c) {
            const int room = up > 0 ? 255 - v : v;
            if (room > 0) {
                ++n;
                m = std::min(m, room);
            }
        }
        if (n == 0) {
            break;
        }
        if (m * n > diff) {
            m = diff / n;
        }
        if (m == 0) {
            break;
        }
        for (int& v : c) {
            if ((up > 0 ? 255 - v : v) > 0) {
                v += up * m;
            }
        }
        diff -= m * n;
    }
    return c;
}

struct Generator {
    std::uint32_t state;
    double next() {
        state = state * 69069u + 1u;
        return state / 4294967295.0;
    }
};

/// The reference blend of one pixel. `random` is consumed by Dissolve only.
Bytes referenceBlend(std::uint32_t mode, const Bytes& b, const Bytes& s, float alpha, float opacity,
                     Generator& random, const Bytes& before) {
    const float t = alpha * opacity;
    Bytes d{};
    auto eachChannel = [&](auto f) {
        for (int c = 0; c < 3; ++c) {
            d[c] = byteOf(f(b[c], s[c]));
        }
    };
    const int sumB = b[0] + b[1] + b[2], sumS = s[0] + s[1] + s[2];
    const double td = t;
    switch (mode) {
    case 0:
        if (opacity == 1.0f && alpha == 1.0f) {
            return s;
        }
        if (t == 0) {
            return b;
        }
        eachChannel([&](int bc, int sc) { return lerpRef(bc, sc, t); });
        return d;
    case 1:
        eachChannel([&](int bc, int sc) {
            const float k = 1.0f + (sc / 255.0f - 1.0f) * t;
            return rintEven(k * static_cast<float>(bc));
        });
        return d;
    case 2: {
        const Bytes c = shiftRef(s, sumB);
        for (int k = 0; k < 3; ++k) {
            d[k] = byteOf(lerpRef(b[k], c[k], t));
        }
        return d;
    }
    case 3:
        eachChannel([&](int bc, int sc) {
            const float k = 1.0f + ((255 - sc) / 255.0f - 1.0f) * t;
            return 255 - rintEven(k * static_cast<float>(255 - bc));
        });
        return d;
    case 4:
        return random.next() < t ? s : b;
    case 5:
        if (sumB < sumS) {
            eachChannel([&](int bc, int sc) { return lerpRef(bc, sc, t); });
            return d;
        }
        return b;
    case 6:
        if (sumB <= sumS) {
            return b;
        }
        eachChannel([&](int bc, int sc) { return lerpRef(bc, sc, t); });
        return d;
    case 7:
        eachChannel([&](int bc, int sc) {
            return bc + rintEven(static_cast<float>(std::abs(sc - bc) - bc) * t);
        });
        return d;
    case 8:
        eachChannel([&](int bc, int sc) {
            const int e =
                rintEven(static_cast<float>(bc) + static_cast<float>((255 - 2 * bc) * sc) / 255.0f);
            return lerpRef(bc, e, t);
        });
        return d;
    case 9:
    case 10:
        eachChannel([&](int bc, int sc) {
            const bool darkForm = mode == 9 ? sc < 128 : bc < 128;
            if (darkForm) {
                const float k = 1.0f + (sc / 127.0f - 1.0f) * t;
                return rintEven(k * static_cast<float>(bc));
            }
            const float k = 1.0f + ((255 - sc) / 127.0f - 1.0f) * t;
            return 255 - rintEven(k * static_cast<float>(255 - bc));
        });
        return d;
    case 11:
        eachChannel([&](int bc, int sc) { return lerpRef(bc, dodgeRef(bc, sc), t); });
        return d;
    case 12:
        eachChannel([&](int bc, int sc) { return lerpRef(bc, burnRef(bc, sc), t); });
        return d;
    case 13:
        eachChannel([&](int bc, int sc) {
            const int u = (sc + 128) % 256;
            return lerpRef(bc, sc < 128 ? burnRef(bc, u) : dodgeRef(bc, u), t);
        });
        return d;
    case 14: {
        const Hls hb = toHls(b), hs = toHls(s);
        double from = hb.h;
        if (std::fabs(hs.h - from) > std::numbers::pi) {
            from += hs.h > from ? 2 * std::numbers::pi : -2 * std::numbers::pi;
        }
        return fromHls((hs.h - from) * td + from, hb.l, hb.s);
    }
    case 15: {
        const Hls hb = toHls(b), hs = toHls(s);
        return fromHls(hb.h, hb.l + (hs.l - hb.l) * td, hb.s);
    }
    case 16: {
        const Hls hb = toHls(b), hs = toHls(s);
        return fromHls(hb.h, hb.l, hb.s + (hs.s - hb.s) * td);
    }
    case 17: {
        const Hls hb = toHls(b), hs = toHls(s);
        const double x =
            hb.s * std::cos(hb.h) + (hs.s * std::cos(hs.h) - hb.s * std::cos(hb.h)) * td;
        const double y =
            hb.s * std::sin(hb.h) + (hs.s * std::sin(hs.h) - hb.s * std::sin(hb.h)) * td;
        return fromHls(std::atan2(y, x), hb.l, std::hypot(x, y));
    }
    default:
        return before;
    }
}

// ---- Helpers ----------------------------------------------------------------------------

ColourPOD pod(const Bytes& c) {
    return ColourPOD{static_cast<std::uint8_t>(c[0]), static_cast<std::uint8_t>(c[1]),
                     static_cast<std::uint8_t>(c[2])};
}
Bytes bytes(ColourPOD c) {
    return {c.b, c.g, c.r};
}

/// Colours of the grid: extremes, greys, the 127/128 boundary, saturated and mixed hues,
/// and hues either side of 0 degrees.
std::vector<Bytes> gridColours() {
    return {{0, 0, 0},       {255, 255, 255}, {127, 127, 127}, {128, 128, 128},
            {1, 254, 0},     {0, 0, 255},     {0, 255, 0},     {255, 0, 0},
            {200, 100, 50},  {17, 64, 191},   {255, 0, 43},    {0, 43, 255},
            {128, 127, 129}, {254, 1, 255},   {90, 210, 160},  {64, 64, 200}};
}

const float gridAlphas[] = {0.0f, 0.1f, 0.25f, 0.5f, 0.5001f, 0.75f, 0.999f, 1.0f};
const float gridOpacities[] = {0.0f, 0.3f, 0.5f, 1.0f};

/// Differences allowed: none, except in the modes that go through HLS (14 to 17), whose
/// final conversion to bytes belongs to the colour type and may round the other way at a
/// half.
int allowedDifference(std::uint32_t mode) {
    return mode >= 14 && mode <= 17 ? 1 : 0;
}

// ---- Tests --------------------------------------------------------------------------------

TEST(Blender, EveryModeMatchesTheReferenceOverTheGrid) {
    const std::vector<Bytes> colours = gridColours();
    const ColourPOD sentinel{11, 22, 33};
    for (std::uint32_t mode = 0; mode < 20; ++mode) {
        for (const float opacity : gridOpacities) {
            std::vector<ColourPOD> base, source, out;
            std::vector<float> alpha;
            for (const Bytes& b : colours) {
                for (const Bytes& s : colours) {
                    for (const float a : gridAlphas) {
                        base.push_back(pod(b));
                        source.push_back(pod(s));
                        alpha.push_back(a);
                    }
                }
            }
            out.assign(base.size(), sentinel);
            const std::uint32_t seed = 12345;
            Blender blender(opacity, mode, seed);
            blender.blendRow(out.data(), base.data(), source.data(), alpha.data(), 0,
                             static_cast<int>(out.size()));
            Generator random{seed};
            int mismatches = 0;
            for (std::size_t i = 0; i < out.size() && mismatches < 5; ++i) {
                const Bytes want = referenceBlend(mode, bytes(base[i]), bytes(source[i]), alpha[i],
                                                  opacity, random, bytes(sentinel));
                const Bytes got = bytes(out[i]);
                for (int c = 0; c < 3; ++c) {
                    if (std::abs(got[c] - want[c]) > allowedDifference(mode)) {
                        ++mismatches;
                        ADD_FAILURE()
                            << "mode " << mode << " opacity " << opacity << " alpha " << alpha[i]
                            << " base " << bytes(base[i])[2] << "," << bytes(base[i])[1] << ","
                            << bytes(base[i])[0] << " source " << bytes(source[i])[2] << ","
                            << bytes(source[i])[1] << "," << bytes(source[i])[0] << " channel " << c
                            << ": got " << got[c] << ", want " << want[c];
                        break;
                    }
                }
            }
        }
    }
}

/// Blends one pixel and returns the result.
ColourPOD blendOne(std::uint32_t mode, ColourPOD b, ColourPOD s, float alpha, float opacity,
                   std::uint32_t seed = 1, ColourPOD before = ColourPOD{9, 9, 9}) {
    Blender blender(opacity, mode, seed);
    ColourPOD out = before;
    blender.blendRow(&out, &b, &s, &alpha, 0, 1);
    return out;
}

TEST(Blender, EdgeCasesOfTheFormulas) {
    const ColourPOD black{0, 0, 0}, white{255, 255, 255};
    // Normal at opacity 0 gives the base, never the old destination.
    EXPECT_EQ(blendOne(0, ColourPOD{10, 20, 30}, white, 0.8f, 0.0f), (ColourPOD{10, 20, 30}));
    // Dodge tests the base first; burn tests for white first.
    EXPECT_EQ(blendOne(11, black, white, 1, 1), black);
    EXPECT_EQ(blendOne(12, white, black, 1, 1), white);
    // Tint of white over black is black at full coverage.
    EXPECT_EQ(blendOne(2, black, white, 1, 1), black);
    // The constants are 127, not 128: hard light of 130 over 100 is
    // 255 - rint(125 / 127 * 155) = 102 (128 would give 104); overlay of 255 over 100 is
    // rint(255 / 127 * 100) = 201 (128 would give 199).
    EXPECT_EQ(blendOne(9, ColourPOD{100, 100, 100}, ColourPOD{130, 130, 130}, 1, 1).g, 102);
    EXPECT_EQ(blendOne(10, ColourPOD{100, 100, 100}, white, 1, 1).g, 201);
    // Overlay chooses by the base: b = 128 takes the lightening form with 127.
    EXPECT_EQ(blendOne(10, ColourPOD{128, 128, 128}, black, 1, 1), (ColourPOD{0, 0, 0}));
    // Vivid light wraps the source: s = 200 dodges by 72, s = 100 burns by 228.
    EXPECT_EQ(blendOne(13, ColourPOD{100, 100, 100}, ColourPOD{200, 200, 200}, 1, 1).b,
              (100 * 255) / (255 - 72));
    EXPECT_EQ(blendOne(13, ColourPOD{100, 100, 100}, ColourPOD{100, 100, 100}, 1, 1).b,
              255 + ((100 - 255) * 255) / 228);
    // Rounding is half to even: 0 to 255 at 0.5 is 127.5, which rounds to 128; 0 to 253
    // at 0.5 is 126.5, which rounds to 126.
    EXPECT_EQ(blendOne(0, black, white, 0.5f, 1).r, 128);
    EXPECT_EQ(blendOne(0, black, ColourPOD{253, 253, 253}, 0.5f, 1).r, 126);
}

TEST(Blender, HueTakesTheShorterWayAcrossZero) {
    // Hues of 350 and 10 degrees, halfway: red (0 degrees), not cyan (180).
    const ColourPOD at350{43, 0, 255}; // blue 43, red 255: hue about 350
    const ColourPOD at10{0, 43, 255};  // green 43: hue about 10
    const ColourPOD mid = blendOne(14, at350, at10, 0.5f, 1);
    EXPECT_GE(mid.r, 250);
    EXPECT_LE(std::abs(mid.g - mid.b), 1);
    EXPECT_LE(mid.g, 2);
}

TEST(Blender, DissolveTakesTheSourceUnlessTheDrawIsOne) {
    // The state before the generator's last value: state * 69069 + 1 = 0xFFFFFFFF.
    std::uint32_t inverse = 1;
    for (int k = 0; k < 5; ++k) {
        inverse *= 2 - 69069u * inverse; // Newton's step for the inverse modulo 2^32
    }
    ASSERT_EQ(69069u * inverse, 1u);
    const std::uint32_t lastSeed = (0xFFFFFFFFu - 1u) * inverse;
    const ColourPOD b{1, 2, 3}, s{200, 201, 202};
    EXPECT_EQ(blendOne(4, b, s, 1, 1, lastSeed), b); // r = 1 is not below t = 1
    EXPECT_EQ(blendOne(4, b, s, 1, 1, lastSeed + 1), s);
    EXPECT_EQ(blendOne(4, b, s, 0, 1, 77), b);
}

TEST(Blender, ModesBeyondSeventeenChangeNothing) {
    const ColourPOD before{5, 6, 7};
    for (std::uint32_t mode : {18u, 19u, 1000u}) {
        EXPECT_EQ(blendOne(mode, ColourPOD{100, 100, 100}, ColourPOD{1, 2, 3}, 1, 1, 1, before),
                  before);
    }
}

TEST(Blender, ShiftToLightnessReachesTheTargetWherePossible) {
    struct Case {
        ColourPOD colour;
        int target;
        ColourPOD expected;
    };
    const Case cases[] = {
        {{255, 255, 255}, 0, {0, 0, 0}},
        {{0, 0, 0}, 765, {255, 255, 255}},
        {{10, 20, 30}, 60, {10, 20, 30}},
        // Up by 60 over three channels with room: 20 each.
        {{10, 20, 30}, 120, {30, 40, 50}},
        // 5 each fills the first channel; the other two share 85 as 42 each, 1 is lost.
        {{250, 100, 0}, 450, {255, 147, 47}},
        // 1 left over for three channels is lost.
        {{10, 10, 10}, 31, {10, 10, 10}},
    };
    for (const Case& c : cases) {
        const ColourPOD got = Blender::shiftToLightness(c.colour, c.target);
        const Bytes want = shiftRef(bytes(c.colour), c.target);
        EXPECT_EQ(bytes(got), want) << "target " << c.target;
        EXPECT_EQ(got, c.expected) << "target " << c.target;
    }
}

} // namespace
