#include "core/Colour.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
/// A component 0..1 to a byte. Halves go to the even neighbour, as everywhere in paint
/// arithmetic, so that a colour written here and one blended by the pipeline agree.
std::uint8_t toByte(double c) {
    return static_cast<std::uint8_t>(std::nearbyint(std::clamp(c, 0.0, 1.0) * 255.0));
}
/// Hue in degrees in [0, 360).
double hueDegrees(Angle h) {
    double d = std::fmod(h.degrees(), 360.0);
    return d < 0 ? d + 360.0 : d;
}
} // namespace

Colour Colour::hsva(Angle h, double s, double v, double a) {
    if (s <= 0) {
        return Colour(v, v, v, a);
    }
    const double hh = hueDegrees(h) / 60.0;
    const int sector = static_cast<int>(std::floor(hh)) % 6;
    const double f = hh - std::floor(hh);
    const double p = v * (1 - s);
    const double q = v * (1 - s * f);
    const double t = v * (1 - s * (1 - f));
    switch (sector) {
    case 0:
        return Colour(v, t, p, a);
    case 1:
        return Colour(q, v, p, a);
    case 2:
        return Colour(p, v, t, a);
    case 3:
        return Colour(p, q, v, a);
    case 4:
        return Colour(t, p, v, a);
    default:
        return Colour(v, p, q, a);
    }
}

Colour Colour::hlsa(Angle h, double l, double s, double a) {
    // Out-of-range lightness or saturation would give components outside 0..1.
    l = std::clamp(l, 0.0, 1.0);
    s = std::clamp(s, 0.0, 1.0);
    if (s <= 0) {
        return Colour(l, l, l, a);
    }
    const double q = l < 0.5 ? l * (1 + s) : l + s - l * s;
    const double p = 2 * l - q;
    const double hh = hueDegrees(h) / 360.0;
    auto channel = [&](double t) {
        t = t - std::floor(t);
        if (t < 1.0 / 6) {
            return p + (q - p) * 6 * t;
        }
        if (t < 0.5) {
            return q;
        }
        if (t < 2.0 / 3) {
            return p + (q - p) * (2.0 / 3 - t) * 6;
        }
        return p;
    };
    return Colour(channel(hh + 1.0 / 3), channel(hh), channel(hh - 1.0 / 3), a);
}

Colour Colour::colorref(std::uint32_t c) {
    return Colour((c & 0xFF) / 255.0, ((c >> 8) & 0xFF) / 255.0, ((c >> 16) & 0xFF) / 255.0, 1.0);
}

Colour Colour::dib24(const void* bgr) {
    const auto* p = static_cast<const std::uint8_t*>(bgr);
    return Colour(p[2] / 255.0, p[1] / 255.0, p[0] / 255.0, 1.0);
}

Angle Colour::h_hsv() const {
    const double mx = std::max({r_, g_, b_});
    const double mn = std::min({r_, g_, b_});
    const double d = mx - mn;
    if (d <= 0) {
        return Angle::degrees(0);
    }
    double h;
    if (mx == r_) {
        h = 60.0 * std::fmod((g_ - b_) / d, 6.0);
    } else if (mx == g_) {
        h = 60.0 * ((b_ - r_) / d + 2);
    } else {
        h = 60.0 * ((r_ - g_) / d + 4);
    }
    if (h < 0) {
        h += 360.0;
    }
    return Angle::degrees(h);
}

double Colour::s_hsv() const {
    const double mx = std::max({r_, g_, b_});
    const double mn = std::min({r_, g_, b_});
    return mx <= 0 ? 0 : (mx - mn) / mx;
}

double Colour::v_hsv() const {
    return std::max({r_, g_, b_});
}

double Colour::l_hls() const {
    return (std::max({r_, g_, b_}) + std::min({r_, g_, b_})) / 2;
}

double Colour::s_hls() const {
    const double mx = std::max({r_, g_, b_});
    const double mn = std::min({r_, g_, b_});
    const double d = mx - mn;
    if (d <= 0) {
        return 0;
    }
    const double l = (mx + mn) / 2;
    return l <= 0.5 ? d / (mx + mn) : d / (2 - mx - mn);
}

std::uint32_t Colour::colorref() const {
    return std::uint32_t(toByte(r_)) | (std::uint32_t(toByte(g_)) << 8) |
           (std::uint32_t(toByte(b_)) << 16);
}

void Colour::getDib24(void* bgr) const {
    auto* p = static_cast<std::uint8_t*>(bgr);
    p[0] = toByte(b_);
    p[1] = toByte(g_);
    p[2] = toByte(r_);
}

void Colour::getDib16(void* out) const {
    auto five = [](double c) {
        return static_cast<std::uint16_t>(std::nearbyint(std::clamp(c, 0.0, 1.0) * 31.0));
    };
    const std::uint16_t v =
        static_cast<std::uint16_t>((five(r_) << 10) | (five(g_) << 5) | five(b_));
    std::memcpy(out, &v, sizeof v);
}
