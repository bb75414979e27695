#pragma once

#include "core/Handle.h"

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

class Reporter;

namespace tex {

/// One level of a texture: `width` x `height` pixels of colour (three bytes a pixel in
/// ColourPOD order, rows packed) and of alpha (one float a pixel, 0 to 1). Either may be
/// missing (`hasColour`, `hasAlpha` false, the pointer null).
class Raster : public TQL::Handlable {
public:
    /// With `zeroed` false the pixels are left as they come: for a level that is written
    /// in full at once (a large pyramid would spend its time clearing memory).
    Raster(std::int32_t width, std::int32_t height, bool withColour, bool withAlpha,
           bool zeroed = true);

    std::int32_t width = 0;
    std::int32_t height = 0;
    bool hasColour = false;
    bool hasAlpha = false;
    std::uint8_t* rgb = nullptr;
    float* alpha = nullptr;

private:
    std::unique_ptr<std::uint8_t[]> rgbStore_;
    std::unique_ptr<float[]> alphaStore_;
};

/// A filtered texture: the image and its reductions by halves, sampled with a footprint so
/// that a texture seen from afar doesn't sparkle.
///
/// Two pyramids are kept. `paddedLevels` are powers of two (P x Q at level 0, P and Q the
/// powers of two at or above the image's sides), so a tiled map wraps by a mask;
/// `exactLevels` l are ceil(width / 2^l) x ceil(height / 2^l), the part of the padded level
/// that the image covers. Each level is reduced from the one before by the 4 x 4 filter
/// (1, 7, 7, 1) x (1, 7, 7, 1) / 256 centred on the 2 x 2 block a new pixel covers. On a
/// tiled map taps wrap; otherwise taps outside the previous level are skipped and the sum
/// is not renormalised, so the outermost pixels of each level come out a little darker.
/// With alpha the colour is weighted by it, so empty pixels lend no colour.
///
/// Immutable once built; shared between threads by handle.
class MipMap : public TQL::Handlable {
public:
    /// `rgb`: width x height pixels of three bytes, or null for none; `alpha`: floats, or
    /// null. A tiled map without alpha gets an alpha of 1 everywhere. `progress` (may be
    /// null) hears about the build; if it asks to stop, Reporter::Abandoned is thrown.
    /// Throws std::bad_alloc when memory runs out and TQL::TqlError for a side below 1.
    MipMap(std::int32_t width, std::int32_t height, const std::uint8_t* rgb, const float* alpha,
           bool tiled, Reporter* progress = nullptr);

    /// `count` samples: the point (u[i], v[i]) in pixels of level 0 (pixel k covers k to
    /// k + 1), footprint[i] the size of the output pixel in level 0 pixels. Writes three
    /// bytes a sample to `rgb` and the coverage to `alpha` (either may be null). A footprint
    /// up to 1 reads level 0 only, otherwise the two levels around log2(footprint),
    /// interpolated. Outside a non-tiled map the cells beyond the edge count as empty;
    /// with `clampEdge` the edge pixels extend instead.
    virtual void sample(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                        const float* footprint, int count, bool clampEdge) const;

    /// The instruction sets `sample` has code for; it runs the widest the processor has.
    /// Every one gives the same results to the bit.
    enum class SamplerCode { Baseline, Avx2 };
    static bool processorRuns(SamplerCode code);
    /// `sample` with the given code (which the processor must run).
    void sampleWith(SamplerCode code, std::uint8_t* rgb, float* alpha, const float* u,
                    const float* v, const float* footprint, int count, bool clampEdge) const;

    /// One level's filtered value at (x, y) in level 0 pixels: the colour (not weighted)
    /// and the coverage.
    struct LevelSample {
        double colour[3] = {0, 0, 0};
        double alpha = 0;
    };
    LevelSample sampleLevel(int level, double x, double y, bool clampEdge) const;

    /// Checked access to the pyramids.
    const Raster& exactLevel(int level) const {
        return *exactLevels.at(static_cast<std::size_t>(level));
    }
    const Raster& paddedLevel(int level) const {
        return *paddedLevels.at(static_cast<std::size_t>(level));
    }

    std::int32_t width = 0;
    std::int32_t height = 0;
    /// 1 + ceil(log2(max(width, height))).
    std::int32_t levels = 0;
    bool hasAlpha = false;
    bool hasColour = false;
    bool tiled = false;
    /// The axes a tiled map repeats along.
    bool wrapX = true;
    bool wrapY = true;
    /// A shift of the tile origin, in level 0 pixels.
    std::int32_t offsetX = 0;
    std::int32_t offsetY = 0;
    std::vector<TQL::Handle<Raster>> exactLevels;
    std::vector<TQL::Handle<Raster>> paddedLevels;

private:
    /// A level's pixel as the sampler and the reduction read it: colour and coverage side by
    /// side in 8 bytes, so that a bilinear read of two rows touches two cache lines. The first
    /// byte always holds 1, the weight of the coverage lane: a texel widens straight into
    /// (1, b, g, r) and one product by the tap's weight gives coverage and colour sums at once.
    struct Texel {
        std::uint8_t one;
        std::uint8_t bgr[3];
        float alpha;
    };
    /// One padded level of texels (a map without alpha holds coverage 1.0), in the order of
    /// interleaved coordinate bits (x0, y0, x1, y1, ...; the longer side's remaining bits on
    /// top): a 64-byte line holds 4 x 2 texels and a 4 KiB page 32 x 16, so a bilinear cell
    /// mostly lies in one line and nearly always in one page. Texel (x, y) is at
    /// `texels[xIndex[x] + yIndex[y]]`.
    struct TexelLevel {
        std::int32_t width = 0;
        std::int32_t height = 0;
        /// Half a cell and the inverse of a cell, in level 0 pixels (a power of two, so the
        /// product by the inverse is the quotient, without a division each sample).
        double halfCell = 0.5;
        double inverseCell = 1;
        /// The bit positions of x and of y in a texel's offset (the last column's and the
        /// last row's offsets): a bit deposit of a cell into these gives the offset, wrapped.
        std::uint32_t xBitsMask = 0;
        std::uint32_t yBitsMask = 0;
        Texel* texels = nullptr;
        std::vector<std::uint32_t> xIndex;
        std::vector<std::uint32_t> yIndex;
        const Texel* at(std::int64_t x, std::int64_t y) const {
            return texels + xIndex[static_cast<std::size_t>(x)] +
                   yIndex[static_cast<std::size_t>(y)];
        }
    };
    struct TexelStoreFree {
        void operator()(Texel* p) const;
    };
    /// What a sample needs of one level: its four texels (cells outside the image read an
    /// empty texel) and the bilinear weights, x then y.
    struct LevelTaps {
        const Texel* texel[4]; // (x0, y0), (x0, y1), (x1, y0), (x1, y1)
        double wx[2];
        double wy[2];
    };
    /// A sample's plan: one level, or two blended by `t`.
    struct SamplePlan {
        LevelTaps taps[2];
        double t;
        bool two;
    };

    /// The last footprint's base-2 logarithm.
    struct FootprintLog {
        float footprint = -1;
        double value = 0;
    };

    void allocateTexels();
    void fillBaseTexels();
    void levelTaps(int level, double x, double y, bool clampEdge, LevelTaps& taps) const;
    bool wrappedLevelTaps(int level, double x, double y, LevelTaps& taps) const;
    void planSample(double x, double y, float footprint, bool clampEdge, bool wrapsBoth,
                    SamplePlan& plan, FootprintLog& log) const;
    void sampleBaseline(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                        const float* footprint, int count, bool clampEdge) const;
#if defined(__x86_64__) && !defined(QUORVALE_PLAIN_TEXTURE)
    [[gnu::target("avx2,bmi2")]] bool depositLevelTaps(int level, double x, double y,
                                                       LevelTaps& taps) const;
    [[gnu::target("avx2,bmi2")]] void sampleAvx2(std::uint8_t* rgb, float* alpha, const float* u,
                                                 const float* v, const float* footprint, int count,
                                                 bool clampEdge) const;
#endif
    void reduce(int level, std::int32_t fromExactW, std::int32_t fromExactH, std::int32_t toW,
                std::int32_t toH, Reporter* progress, unsigned total, unsigned& done);

    /// Where cells outside the image read.
    static const Texel m_emptyTexel;

    std::vector<TexelLevel> texelLevels_;
    std::unique_ptr<Texel[], TexelStoreFree> texelStore_;
};

/// A colour channel's value to a byte: at or below 0 gives 0, at or above 254.5 gives 255,
/// others the nearest (ties to even).
inline std::uint8_t textureByte(double v) {
    if (!(v > 0)) {
        return 0;
    }
    if (v >= 254.5) {
        return 255;
    }
    return static_cast<std::uint8_t>(std::nearbyint(v));
}

/// The number of levels of a width x height pyramid.
std::int32_t mipLevelCount(std::int32_t width, std::int32_t height);

} // namespace tex
