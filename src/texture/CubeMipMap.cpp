#include "texture/CubeMipMap.h"

#include "core/Reporter.h"
#include "core/TqlError.h"
#include "views/cameras/FaceSize.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tex {

namespace {

constexpr int tapWeight[4] = {1, 7, 7, 1};

} // namespace

CubeMipMap::CubeMipMap(std::int32_t n, const std::uint8_t* rgb, const float* alpha,
                       Reporter* progress)
    : hasColour_(rgb != nullptr), hasAlpha_(alpha != nullptr) {
    if (n < 1 || n > (1 << 20)) {
        throw TQL::TqlError(L"A cube texture needs faces of at least 1 pixel");
    }
    faceSizes_.push_back(n);
    while (faceSizes_.back() > 1) {
        faceSizes_.push_back((faceSizes_.back() + 1) / 2);
    }
    // Alpha is always kept, so that filtering across faces weights colour the same way.
    auto base = TQL::makeHandle<Raster>(6 * n, n, hasColour_, true);
    const std::size_t pixels = static_cast<std::size_t>(6) * n * n;
    if (rgb) {
        std::memcpy(base->rgb, rgb, pixels * 3);
    }
    if (alpha) {
        std::memcpy(base->alpha, alpha, pixels * sizeof(float));
    } else {
        std::fill_n(base->alpha, pixels, 1.0f);
    }
    levels_.push_back(base);
    std::uint64_t totalPixels = 0;
    for (std::size_t l = 1; l < faceSizes_.size(); ++l) {
        totalPixels += static_cast<std::uint64_t>(6) * faceSizes_[l] * faceSizes_[l];
    }
    const unsigned total =
        static_cast<unsigned>(std::min<std::uint64_t>(totalPixels, 0xFFFFFFFFu)) + 1;
    unsigned done = 0;
    for (int l = 1; l < levels(); ++l) {
        const Raster& from = *levels_.back();
        const std::int32_t m = faceSizes_[static_cast<std::size_t>(l)];
        auto next = TQL::makeHandle<Raster>(6 * m, m, hasColour_, true);
        for (int face = 0; face < 6; ++face) {
            for (std::int32_t Y = 0; Y < m; ++Y) {
                for (std::int32_t X = 0; X < m; ++X) {
                    float a = 0, c0 = 0, c1 = 0, c2 = 0;
                    for (int j = 0; j < 4; ++j) {
                        for (int i = 0; i < 4; ++i) {
                            std::int32_t sx = 0, sy = 0;
                            resolve(l - 1, face, 2 * X - 1 + i, 2 * Y - 1 + j, sx, sy);
                            const std::size_t at = static_cast<std::size_t>(sy) * from.width + sx;
                            const float ta = from.alpha[at];
                            if (!(ta > 0)) {
                                continue;
                            }
                            const float wa = tapWeight[i] * tapWeight[j] * (1.0f / 256.0f) * ta;
                            a += wa;
                            if (hasColour_) {
                                c0 += wa * from.rgb[at * 3];
                                c1 += wa * from.rgb[at * 3 + 1];
                                c2 += wa * from.rgb[at * 3 + 2];
                            }
                        }
                    }
                    const std::size_t out =
                        static_cast<std::size_t>(Y) * next->width + face * m + X;
                    next->alpha[out] = a;
                    if (hasColour_) {
                        const float inv = a > 0 ? 1 / a : 0;
                        next->rgb[out * 3] = textureByte(c0 * inv);
                        next->rgb[out * 3 + 1] = textureByte(c1 * inv);
                        next->rgb[out * 3 + 2] = textureByte(c2 * inv);
                    }
                }
                done += static_cast<unsigned>(m);
                if (progress && progress->report(total, std::min(done, total), 0.0)) {
                    throw Reporter::Abandoned();
                }
            }
        }
        levels_.push_back(next);
    }
}

void CubeMipMap::resolve(int level, int face, std::int32_t x, std::int32_t y, std::int32_t& sx,
                         std::int32_t& sy) const {
    const std::int32_t n = faceSizes_.at(static_cast<std::size_t>(level));
    if (n < 3) {
        // Too small to have an inside beyond the shared edges: stay on the face.
        sx = face * n + std::clamp(x, 0, n - 1);
        sy = std::clamp(y, 0, n - 1);
        return;
    }
    const FaceSize faces(n);
    std::int32_t px = face * n + std::clamp(x, 0, n - 1);
    std::int32_t py = std::clamp(y, 0, n - 1);
    // Step out along x, then along y: each step past an edge lands on the neighbour's
    // second pixel in, since the edge pixels are shared.
    for (std::int32_t k = x; k < 0; ++k) {
        faces.stepLeft(px, py);
    }
    for (std::int32_t k = x; k > n - 1; --k) {
        faces.stepRight(px, py);
    }
    // A tap beyond a corner steps across along x first, then up or down on the face it
    // reached: close enough for the corner taps, which carry 1/256 of the weight.
    for (std::int32_t k = y; k < 0; ++k) {
        faces.stepUp(px, py);
    }
    for (std::int32_t k = y; k > n - 1; --k) {
        faces.stepDown(px, py);
    }
    sx = px;
    sy = py;
}

int CubeMipMap::faceOfDirection(double x, double y, double z, std::int32_t n, double& u,
                                double& v) {
    const double ax = std::fabs(x);
    const double ay = std::fabs(y);
    const double az = std::fabs(z);
    const double half = (n - 1) / 2.0;
    // Ties as the cube camera breaks them: y over x, z over both.
    if (ay < ax && az < ax) {
        if (x > 0) {
            u = (1 - z / x) * half;
            v = (1 - y / x) * half;
            return 1;
        }
        u = (1 - z / x) * half;
        v = (1 + y / x) * half;
        return 3;
    }
    if (ax <= ay && az < ay) {
        if (y > 0) {
            u = (x / y + 1) * half;
            v = (1 + z / y) * half;
            return 4;
        }
        u = (1 - x / y) * half;
        v = (1 + z / y) * half;
        return 5;
    }
    if (z > 0) {
        u = (x / z + 1) * half;
        v = (1 - y / z) * half;
        return 0;
    }
    u = (x / z + 1) * half;
    v = (1 + y / z) * half;
    return 2;
}

void CubeMipMap::levelSums(int level, int face, double u, double v, double (&colour)[3],
                           double& a) const {
    colour[0] = colour[1] = colour[2] = 0;
    a = 0;
    const Raster& strip = *levels_[static_cast<std::size_t>(level)];
    const double c = std::ldexp(1.0, level);
    // Level l pixel K covers level 0 pixels K c .. K c + c - 1, centred at K c + (c - 1) / 2.
    const double fu = (u - (c - 1) / 2) / c;
    const double fv = (v - (c - 1) / 2) / c;
    const double flu = std::floor(fu);
    const double flv = std::floor(fv);
    const double tu = fu - flu;
    const double tv = fv - flv;
    const auto cu = static_cast<std::int32_t>(flu);
    const auto cv = static_cast<std::int32_t>(flv);
    const double wu[2] = {1 - tu, tu};
    const double wv[2] = {1 - tv, tv};
    for (int i = 0; i < 2; ++i) {
        double ca = 0, c0 = 0, c1 = 0, c2 = 0;
        for (int j = 0; j < 2; ++j) {
            std::int32_t sx = 0, sy = 0;
            resolve(level, face, cu + i, cv + j, sx, sy);
            const std::size_t at = static_cast<std::size_t>(sy) * strip.width + sx;
            const double w = wv[j] * strip.alpha[at];
            ca += w;
            if (hasColour_) {
                c0 += w * strip.rgb[at * 3];
                c1 += w * strip.rgb[at * 3 + 1];
                c2 += w * strip.rgb[at * 3 + 2];
            }
        }
        a += wu[i] * ca;
        colour[0] += wu[i] * c0;
        colour[1] += wu[i] * c1;
        colour[2] += wu[i] * c2;
    }
}

void CubeMipMap::sample(std::uint8_t* rgb, float* alpha, const float* x, const float* y,
                        const float* z, const float* footprint, int count) const {
    const std::int32_t n = faceSize();
    for (int i = 0; i < count; ++i) {
        double u = 0, v = 0;
        double colour[3] = {0, 0, 0};
        double a = 0;
        if (x[i] != 0 || y[i] != 0 || z[i] != 0) {
            const int face = faceOfDirection(x[i], y[i], z[i], n, u, v);
            const float fp = footprint[i];
            if (!(fp > 1)) {
                levelSums(0, face, u, v, colour, a);
            } else {
                const double L = std::log2(static_cast<double>(fp));
                if (L >= levels() - 1) {
                    levelSums(levels() - 1, face, u, v, colour, a);
                } else {
                    const int l = std::clamp(static_cast<int>(std::floor(L)), 0, levels() - 2);
                    const double t = L - l;
                    double c1[3];
                    double a1 = 0;
                    levelSums(l, face, u, v, colour, a);
                    levelSums(l + 1, face, u, v, c1, a1);
                    a = (1 - t) * a + t * a1;
                    for (int k = 0; k < 3; ++k) {
                        colour[k] = (1 - t) * colour[k] + t * c1[k];
                    }
                }
            }
        }
        if (alpha) {
            alpha[i] = static_cast<float>(a);
        }
        if (rgb) {
            const double inv = a > 0 ? 1 / a : 0;
            rgb[i * 3] = textureByte(colour[0] * inv);
            rgb[i * 3 + 1] = textureByte(colour[1] * inv);
            rgb[i * 3 + 2] = textureByte(colour[2] * inv);
        }
    }
}

} // namespace tex
