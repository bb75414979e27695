#pragma once

#include "core/Angle.h"

#include <cstdint>

/// The three-byte pixel of the image store: blue, green, red in memory.
struct ColourPOD {
    std::uint8_t b = 0;
    std::uint8_t g = 0;
    std::uint8_t r = 0;
    constexpr bool operator==(const ColourPOD&) const = default;
};
static_assert(sizeof(ColourPOD) == 3);

/// Coverage of the image store: 0 to 1.
using Alpha = float;

/// A full colour value: components and alpha in doubles from 0 to 1.
class Colour {
public:
    constexpr Colour() = default;

    static constexpr Colour rgb(double r, double g, double b) { return Colour(r, g, b, 1.0); }
    static constexpr Colour rgba(double r, double g, double b, double a) {
        return Colour(r, g, b, a);
    }
    /// Hue as an angle, saturation and value 0 to 1.
    static Colour hsv(Angle h, double s, double v) { return hsva(h, s, v, 1.0); }
    static Colour hsva(Angle h, double s, double v, double a);
    /// Hue as an angle, lightness and saturation 0 to 1 (values outside are clamped).
    static Colour hls(Angle h, double l, double s) { return hlsa(h, l, s, 1.0); }
    static Colour hlsa(Angle h, double l, double s, double a);
    /// From the 32-bit form 0x00BBGGRR.
    static Colour colorref(std::uint32_t c);
    /// From three bytes blue, green, red at `bgr`.
    static Colour dib24(const void* bgr);
    static Colour fromPOD(ColourPOD c) { return dib24(&c); }

    constexpr double r() const { return r_; }
    constexpr double g() const { return g_; }
    constexpr double b() const { return b_; }
    constexpr double a() const { return a_; }
    /// Hue; 0 for a grey.
    Angle h_hsv() const;
    double s_hsv() const;
    double v_hsv() const;
    /// Hue; 0 for a grey. Equal to h_hsv.
    Angle h_hls() const { return h_hsv(); }
    double s_hls() const;
    double l_hls() const;
    /// The 32-bit form 0x00BBGGRR, components rounded to the nearest byte, halves to even.
    std::uint32_t colorref() const;
    /// Writes three bytes blue, green, red, each rounded to the nearest, halves to even.
    void getDib24(void* bgr) const;
    /// Writes the 16-bit form 0RRRRRGGGGGBBBBB (5 bits a component, rounded).
    void getDib16(void* out) const;
    ColourPOD pod() const {
        ColourPOD p;
        getDib24(&p);
        return p;
    }

    constexpr bool operator==(const Colour&) const = default;

private:
    constexpr Colour(double r, double g, double b, double a) : r_(r), g_(g), b_(b), a_(a) {}
    double r_ = 0;
    double g_ = 0;
    double b_ = 0;
    double a_ = 1;
};
