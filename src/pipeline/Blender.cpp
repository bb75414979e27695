#include "pipeline/Blender.h"

#include "core/Colour.h"
#include "image/TileRowWriter.h"
#include "image/ZmapDocument.h"
#include "pipeline/BlendKernels.h"
#include "pipeline/PaintMath.h"
#include "pipeline/PixelRuns.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numbers>

using paint::lowByte;
using paint::roundEven;

namespace {

constexpr double pi = std::numbers::pi;

int sum(ColourPOD c) {
    return c.b + c.g + c.r;
}

/// lerp(b, s, t) = b + rint((s - b) * t), per channel.
inline std::uint8_t lerp(int b, int s, float t) {
    return lowByte(b + roundEven(static_cast<float>(s - b) * t));
}

inline ColourPOD lerp(ColourPOD b, ColourPOD s, float t) {
    return ColourPOD{lerp(b.b, s.b, t), lerp(b.g, s.g, t), lerp(b.r, s.r, t)};
}

int dodge(int b, int s) {
    if (b == 0) {
        return 0;
    }
    if (s == 255) {
        return 255;
    }
    return std::min(255, (b * 255) / (255 - s));
}

int burn(int b, int s) {
    if (b == 255) {
        return 255;
    }
    if (s == 0) {
        return 0;
    }
    return std::max(0, 255 + ((b - 255) * 255) / s);
}

/// d = b + rint((e - b) * t) per channel, with e = effect(b, s).
template <class Effect>
void towardsEffect(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                   const Alpha* alpha, float opacity, int first, int last, Effect effect) {
    for (int i = first; i < last; ++i) {
        const float t = alpha[i] * opacity;
        const auto* b = reinterpret_cast<const std::uint8_t*>(base + i);
        const auto* s = reinterpret_cast<const std::uint8_t*>(source + i);
        std::uint8_t d[3];
        for (int c = 0; c < 3; ++c) {
            d[c] = lerp(b[c], effect(b[c], s[c]), t);
        }
        std::memcpy(out + i, d, 3);
    }
}

/// Per pixel and channel: d = f(b, s, t).
template <class F>
void perChannel(ColourPOD* out, const ColourPOD* base, const ColourPOD* source, const Alpha* alpha,
                float opacity, int first, int last, F f) {
    for (int i = first; i < last; ++i) {
        const float t = alpha[i] * opacity;
        const auto* b = reinterpret_cast<const std::uint8_t*>(base + i);
        const auto* s = reinterpret_cast<const std::uint8_t*>(source + i);
        std::uint8_t d[3];
        for (int c = 0; c < 3; ++c) {
            d[c] = lowByte(f(b[c], s[c], t));
        }
        std::memcpy(out + i, d, 3);
    }
}

/// The darkening form: k = 1 + (s / scale - 1) * t, d = rint(k * b).
inline int darkenForm(int b, int s, float t, float scale) {
    const float k = 1.0f + (static_cast<float>(s) / scale - 1.0f) * t;
    return roundEven(k * static_cast<float>(b));
}

/// The lightening form: k = 1 + ((255 - s) / scale - 1) * t, d = 255 - rint(k * (255 - b)).
inline int lightenForm(int b, int s, float t, float scale) {
    const float k = 1.0f + (static_cast<float>(255 - s) / scale - 1.0f) * t;
    return 255 - roundEven(k * static_cast<float>(255 - b));
}

/// The HLS modes: `f(colour b, colour s, t)` gives the colour written.
template <class F>
void perPixelHls(ColourPOD* out, const ColourPOD* base, const ColourPOD* source, const Alpha* alpha,
                 float opacity, int first, int last, F f) {
    for (int i = first; i < last; ++i) {
        const double t = static_cast<double>(alpha[i] * opacity);
        const Colour b = Colour::dib24(base + i);
        const Colour s = Colour::dib24(source + i);
        f(b, s, t).getDib24(out + i);
    }
}

} // namespace

Blender::Blender(float opacity, std::uint32_t mode) : opacity_(opacity), mode_(mode) {}

Blender::Blender(float opacity, std::uint32_t mode, std::uint32_t seed)
    : opacity_(opacity), mode_(mode), random_(seed) {}

ColourPOD* Blender::target(Span& span, int first, int last, TileHandle& hold) const {
    if (!span.colourWriter) {
        return span.document->rgbWrite(span.x, span.y, hold);
    }
    std::int32_t count = 0;
    auto* out = reinterpret_cast<ColourPOD*>(span.colourWriter->run(span.x, span.y, count));
    // A stroke laid row by row writes the same run one row down after the other tiles of
    // this row: ask for it now, while the tile is at hand.
    const TileGeometry& g = span.colourWriter->bitmap().geometry();
    if (out && ((span.y + 1) & g.yMask) != 0 && span.y + 1 < g.height) {
        const std::int32_t stride = g.rowStride(span.x >> g.xShift, 3);
        const auto* next = reinterpret_cast<const char*>(out + first) + stride;
        // The image before the stroke too, unless the run looks like a straight copy (a
        // guess from its ends: a wrong one costs a useless or a missing prefetch only).
        const bool readsBase =
            span.baseColour && !(mode_ == 0 && opacity_ == 1.0f && span.alpha[first] == 1.0f &&
                                 span.alpha[last - 1] == 1.0f);
        for (int k = 0; k < (last - first) * 3; k += 64) {
            __builtin_prefetch(next + k, 1);
        }
        if (readsBase) {
            const auto* nextBase = reinterpret_cast<const char*>(span.baseColour + first) + stride;
            for (int k = 0; k < (last - first) * 3; k += 64) {
                __builtin_prefetch(nextBase + k);
            }
        }
    }
    return out;
}

void Blender::run(Span& span, int first, int last) {
    if (last <= first || !span.document) {
        return;
    }
    // The hold (or the writer's kept tile) pins the written tile for the length of the call.
    TileHandle hold;
    if (ColourPOD* out = target(span, first, last, hold)) {
        blendRow(out, span.baseColour, span.colour, span.alpha, first, last);
    }
}

void Blender::runSolid(Span& span, ColourPOD colour, int first, int last, bool alphaUniform) {
    if (last <= first || !span.document) {
        return;
    }
    TileHandle hold;
    if (ColourPOD* out = target(span, first, last, hold)) {
        blendSolid(out, span.baseColour, colour, span.alpha, span.colour, first, last,
                   alphaUniform);
    }
}

void Blender::blendSolid(ColourPOD* out, const ColourPOD* base, ColourPOD colour,
                         const Alpha* alpha, ColourPOD* scratch, int first, int last,
                         bool alphaUniform) {
    switch (mode_) {
    case static_cast<std::uint32_t>(BlendMode::normal):
        blendNormalSolid(out, base, colour, alpha, opacity_, first, last, scratch, alphaUniform);
        break;
    case static_cast<std::uint32_t>(BlendMode::multiply):
        blendMultiplySolid(out, base, colour, alpha, opacity_, first, last, scratch, alphaUniform);
        break;
    default:
        runs::fillColour(scratch, colour, first, last);
        blendRow(out, base, scratch, alpha, first, last);
        break;
    }
}

ColourPOD Blender::shiftToLightness(ColourPOD c, int targetSum) {
    std::uint8_t* ch[3] = {&c.b, &c.g, &c.r};
    int difference = targetSum - sum(c);
    const int direction = difference > 0 ? 1 : -1;
    int left = std::abs(difference);
    while (left > 0) {
        // Among the channels that can still move, the smallest headroom.
        int movable = 0;
        int m = 256;
        for (std::uint8_t* v : ch) {
            const int room = direction > 0 ? 255 - *v : *v;
            if (room > 0) {
                ++movable;
                m = std::min(m, room);
            }
        }
        if (movable == 0) {
            break;
        }
        if (m * movable > left) {
            m = left / movable;
        }
        if (m == 0) {
            break; // less than one step for each channel is left
        }
        for (std::uint8_t* v : ch) {
            const int room = direction > 0 ? 255 - *v : *v;
            if (room > 0) {
                *v = static_cast<std::uint8_t>(*v + direction * m);
            }
        }
        left -= m * movable;
    }
    return c;
}

void Blender::blendRow(ColourPOD* out, const ColourPOD* base, const ColourPOD* source,
                       const Alpha* alpha, int first, int last) {
    const float opacity = opacity_;
    if (mode_ >= blendModeCount) {
        return;
    }
    switch (static_cast<BlendMode>(mode_)) {
    case BlendMode::normal:
        blendNormal(out, base, source, alpha, opacity, first, last);
        break;
    case BlendMode::multiply:
        blendMultiply(out, base, source, alpha, opacity, first, last);
        break;
    case BlendMode::tint:
        for (int i = first; i < last; ++i) {
            const float t = alpha[i] * opacity;
            const ColourPOD c = shiftToLightness(source[i], sum(base[i]));
            out[i] = lerp(base[i], c, t);
        }
        break;
    case BlendMode::screen:
        perChannel(out, base, source, alpha, opacity, first, last,
                   [](int b, int s, float t) { return lightenForm(b, s, t, 255.0f); });
        break;
    case BlendMode::dissolve:
        for (int i = first; i < last; ++i) {
            const float t = alpha[i] * opacity;
            out[i] = random_.next() < t ? source[i] : base[i];
        }
        break;
    case BlendMode::lighten:
        for (int i = first; i < last; ++i) {
            out[i] = sum(base[i]) < sum(source[i]) ? lerp(base[i], source[i], alpha[i] * opacity)
                                                   : base[i];
        }
        break;
    case BlendMode::darken:
        for (int i = first; i < last; ++i) {
            out[i] = sum(base[i]) <= sum(source[i]) ? base[i]
                                                    : lerp(base[i], source[i], alpha[i] * opacity);
        }
        break;
    case BlendMode::difference:
        perChannel(out, base, source, alpha, opacity, first, last, [](int b, int s, float t) {
            return b + roundEven(static_cast<float>(std::abs(s - b) - b) * t);
        });
        break;
    case BlendMode::exclusion:
        towardsEffect(out, base, source, alpha, opacity, first, last, [](int b, int s) {
            return roundEven(static_cast<float>(b) +
                             static_cast<float>((255 - 2 * b) * s) / 255.0f);
        });
        break;
    case BlendMode::hardLight:
        perChannel(out, base, source, alpha, opacity, first, last, [](int b, int s, float t) {
            return s < 128 ? darkenForm(b, s, t, 127.0f) : lightenForm(b, s, t, 127.0f);
        });
        break;
    case BlendMode::overlay:
        perChannel(out, base, source, alpha, opacity, first, last, [](int b, int s, float t) {
            return b >= 128 ? lightenForm(b, s, t, 127.0f) : darkenForm(b, s, t, 127.0f);
        });
        break;
    case BlendMode::colourDodge:
        towardsEffect(out, base, source, alpha, opacity, first, last, dodge);
        break;
    case BlendMode::colourBurn:
        towardsEffect(out, base, source, alpha, opacity, first, last, burn);
        break;
    case BlendMode::vividLight:
        towardsEffect(out, base, source, alpha, opacity, first, last, [](int b, int s) {
            const int u = (s + 128) % 256;
            return s < 128 ? burn(b, u) : dodge(b, u);
        });
        break;
    case BlendMode::hue:
        perPixelHls(out, base, source, alpha, opacity, first, last,
                    [](const Colour& b, const Colour& s, double t) {
                        double hb = b.h_hls().radians();
                        const double hs = s.h_hls().radians();
                        // The shorter way round.
                        if (std::fabs(hs - hb) > pi) {
                            hb += hs > hb ? 2 * pi : -2 * pi;
                        }
                        const double h = (hs - hb) * t + hb;
                        return Colour::hls(Angle::radians(h), b.l_hls(), b.s_hls());
                    });
        break;
    case BlendMode::luminosity:
        perPixelHls(out, base, source, alpha, opacity, first, last,
                    [](const Colour& b, const Colour& s, double t) {
                        const double lb = b.l_hls();
                        return Colour::hls(b.h_hls(), lb + (s.l_hls() - lb) * t, b.s_hls());
                    });
        break;
    case BlendMode::saturation:
        perPixelHls(out, base, source, alpha, opacity, first, last,
                    [](const Colour& b, const Colour& s, double t) {
                        const double sb = b.s_hls();
                        return Colour::hls(b.h_hls(), b.l_hls(), sb + (s.s_hls() - sb) * t);
                    });
        break;
    case BlendMode::colour:
        perPixelHls(out, base, source, alpha, opacity, first, last,
                    [](const Colour& b, const Colour& s, double t) {
                        // Hue and saturation as a point in the plane, interpolated there.
                        const double hb = b.h_hls().radians();
                        const double hs = s.h_hls().radians();
                        const double xb = b.s_hls() * std::cos(hb);
                        const double yb = b.s_hls() * std::sin(hb);
                        const double x = xb + (s.s_hls() * std::cos(hs) - xb) * t;
                        const double y = yb + (s.s_hls() * std::sin(hs) - yb) * t;
                        return Colour::hls(Angle::radians(std::atan2(y, x)), b.l_hls(),
                                           std::hypot(x, y));
                    });
        break;
    }
}
