#include "pipeline/LinearRecolour.h"

#include "pipeline/PaintMath.h"
#include "pipeline/PixelRuns.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

/// w + rint((c - w) * strength), the product in single precision, modulo 256.
std::uint8_t towards(std::uint8_t w, std::uint8_t c, float strength) {
    return paint::lowByte(w + paint::roundEven(static_cast<float>(c - w) * strength));
}

} // namespace

void replaceColour(ColourPOD* working, const ColourPOD* target, bool targetPerPixel,
                   const Alpha* alpha, int first, int last) {
    if (targetPerPixel) {
        for (int i = first; i < last; ++i) {
            if (alpha[i] > 0) {
                working[i] = target[i];
            }
        }
        return;
    }
    const ColourPOD c = target[0];
    if (runs::allPositive(alpha, first, last)) {
        // Every pixel painted (the common case of a stroke's sub-run).
        runs::fillColour(working, c, first, last);
        return;
    }
    // Four pixels a round: the common case of a plain colour at full strength.
    int i = first;
    for (; i + 4 <= last; i += 4) {
        working[i] = alpha[i] > 0 ? c : working[i];
        working[i + 1] = alpha[i + 1] > 0 ? c : working[i + 1];
        working[i + 2] = alpha[i + 2] > 0 ? c : working[i + 2];
        working[i + 3] = alpha[i + 3] > 0 ? c : working[i + 3];
    }
    for (; i < last; ++i) {
        working[i] = alpha[i] > 0 ? c : working[i];
    }
}

void moveColour(ColourPOD* working, const ColourPOD* target, bool targetPerPixel,
                const Alpha* alpha, float strength, int first, int last) {
    for (int i = first; i < last; ++i) {
        if (alpha[i] > 0) {
            const ColourPOD c = targetPerPixel ? target[i] : target[0];
            ColourPOD& w = working[i];
            w.b = towards(w.b, c.b, strength);
            w.g = towards(w.g, c.g, strength);
            w.r = towards(w.r, c.r, strength);
        }
    }
}

LinearRecolour::LinearRecolour(std::uint8_t red, std::uint8_t green, std::uint8_t blue,
                               float strength)
    : colour_{blue, green, red}, strength_(strength) {}

void LinearRecolour::run(Span& span, int first, int last) {
    const ColourPOD c = colour();
    if (strength_ == 1.0f) {
        replaceColour(span.colour, &c, false, span.alpha, first, last);
    } else if (strength_ > 0) {
        moveColour(span.colour, &c, false, span.alpha, strength_, first, last);
    }
}

void LinearRecolour::pickColour(int spreadAmount, int spreadType) {
    pickedColour_ = colour_;
    picked_ = true;
    if (spreadAmount <= 0) {
        return;
    }
    auto swing = [&](double amount) { return (2.0 * random_.next() - 1.0) * amount; };
    if (spreadType == 0) {
        auto vary = [&](std::uint8_t c) {
            return static_cast<std::uint8_t>(
                std::clamp(paint::roundEven(c + swing(spreadAmount)), 0, 255));
        };
        pickedColour_.r = vary(colour_.r);
        pickedColour_.g = vary(colour_.g);
        pickedColour_.b = vary(colour_.b);
        return;
    }
    if (spreadType < 1 || spreadType > 4) {
        return;
    }
    const Colour c = Colour::fromPOD(colour_);
    double h = c.h_hls().degrees();
    double l = c.l_hls();
    double s = c.s_hls();
    const double hueAmount = std::min(spreadAmount, 180);
    const double amount = std::min(spreadAmount, 100) / 100.0;
    if (spreadType == 1 || spreadType == 2) {
        h += swing(hueAmount);
    }
    if (spreadType == 1 || spreadType == 3) {
        l = std::clamp(l + swing(amount), 0.0, 1.0);
    }
    if (spreadType == 1 || spreadType == 4) {
        s = std::clamp(s + swing(amount), 0.0, 1.0);
    }
    pickedColour_ = Colour::hls(Angle::degrees(h), l, s).pod();
}
