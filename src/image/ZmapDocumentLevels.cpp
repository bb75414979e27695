// Automatic contrast of ZmapDocument: a histogram of lightness, and a stretch of every
// pixel's HLS lightness that keeps its hue and saturation.

#include "image/ZmapDocument.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

namespace {

/// Lightness is counted in half steps of a byte: the sum of a pixel's largest and smallest
/// component, 0 to 510.
constexpr int lightnessSums = 511;

/// The share of pixels left out at each end of the histogram.
constexpr double clipShare = 0.005;

int lightnessSum(const std::uint8_t* bgr) {
    const auto [lo, hi] = std::minmax({bgr[0], bgr[1], bgr[2]});
    return lo + hi;
}

/// The new pixel for each lightness: in HLS with hue and saturation fixed, a component's
/// offset from the lightness l is proportional to l below one half and to 1 - l above, so
/// moving the lightness to l' scales every offset by the ratio of those two.
class LightnessStretch {
public:
    LightnessStretch(int low, int high) {
        for (int sum = 0; sum < lightnessSums; ++sum) {
            const double l = sum / 510.0;
            const double stretched = std::clamp(double(sum - low) / (high - low), 0.0, 1.0);
            const double room = std::min(l, 1 - l);
            lightness_[sum] = stretched * 255;
            factor_[sum] = room > 0 ? std::min(stretched, 1 - stretched) / room : 0;
        }
    }

    /// Writes the stretched form of `count` pixels of `in` to `out`.
    void row(const std::uint8_t* in, std::uint8_t* out, std::int32_t count) const {
        for (std::int32_t i = 0; i < count * 3; i += 3) {
            const int sum = lightnessSum(in + i);
            const double centre = sum * 0.5;
            for (int k = 0; k < 3; ++k) {
                const double c = lightness_[sum] + (in[i + k] - centre) * factor_[sum];
                out[i + k] = static_cast<std::uint8_t>(std::nearbyint(std::clamp(c, 0.0, 255.0)));
            }
        }
    }

private:
    std::array<double, lightnessSums> lightness_;
    std::array<double, lightnessSums> factor_;
};

} // namespace

void ZmapDocument::autoLevels(Status& result) {
    if (!rgb) {
        result = status::noImage;
        return;
    }
    result = status::ok;
    const TileGeometry& g = geometry_;
    const std::int32_t tiles = g.tileCount();
    try {
        std::array<std::int64_t, lightnessSums> histogram{};
        for (std::int32_t index = 0; index < tiles; ++index) {
            const IExtent<2> extent = g.tileExtent(index);
            TileHandle hold;
            const std::uint8_t* pixels = rgb->tileForRead(index, hold);
            if (!pixels) {
                histogram[0] += extent.width() * extent.height(); // an empty tile is black
                continue;
            }
            for (std::int32_t y = 0; y < extent.height(); ++y) {
                const std::uint8_t* row = pixels + std::size_t(y) * hold->stride();
                for (std::int32_t x = 0; x < extent.width() * 3; x += 3) {
                    ++histogram[static_cast<std::size_t>(lightnessSum(row + x))];
                }
            }
        }
        const double clipped = clipShare * double(g.width) * g.height;
        int low = 0;
        for (std::int64_t below = histogram[0]; below <= clipped && low < lightnessSums - 1;) {
            below += histogram[static_cast<std::size_t>(++low)];
        }
        int high = lightnessSums - 1;
        for (std::int64_t above = histogram[lightnessSums - 1]; above <= clipped && high > 0;) {
            above += histogram[static_cast<std::size_t>(--high)];
        }
        if (high <= low || (low == 0 && high == lightnessSums - 1)) {
            return; // one lightness, or nothing to stretch
        }

        // Black stays black, so empty tiles stay empty; a tile is copied only when a row of
        // it changes.
        const LightnessStretch stretch(low, high);
        std::vector<std::uint8_t> scratch(static_cast<std::size_t>(g.tileWidth) * 3);
        for (std::int32_t index = 0; index < tiles; ++index) {
            const IExtent<2> extent = g.tileExtent(index);
            TileHandle hold;
            const std::uint8_t* pixels = rgb->tileForRead(index, hold);
            if (!pixels) {
                continue;
            }
            const auto width = static_cast<std::int32_t>(extent.width());
            const std::size_t rowBytes = std::size_t(width) * 3;
            const std::uint8_t* source = pixels;
            std::int32_t stride = hold->stride();
            std::uint8_t* written = nullptr;
            for (std::int32_t y = 0; y < extent.height(); ++y) {
                const std::uint8_t* row = source + std::size_t(y) * stride;
                stretch.row(row, scratch.data(), width);
                if (std::memcmp(row, scratch.data(), rowBytes) == 0) {
                    continue;
                }
                if (!written) {
                    // The read handle becomes the write handle, so a tile nobody else holds
                    // is not copied; the rows still to come read the same bytes from it.
                    written = rgb->tileForWrite(index, hold);
                    source = written;
                    stride = hold->stride();
                }
                std::memcpy(written + std::size_t(y) * stride, scratch.data(), rowBytes);
            }
        }
    } catch (const std::bad_alloc&) {
        result = status::outOfMemory;
    }
}
