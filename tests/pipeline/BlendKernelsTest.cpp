// The fast Normal and Multiply loops (and their forms for one working colour) give the same
// bytes as their plain forms for every pair of channel values, at coverages and opacities
// that include the exact halves, at every alignment of a run; and the test for a row of one
// value that sends a row of coverage down the fast path.

#include "pipeline/BlendKernels.h"
#include "pipeline/PixelRuns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

using Kernel = void (*)(ColourPOD*, const ColourPOD*, const ColourPOD*, const Alpha*, float, int,
                        int);

struct KernelPair {
    const char* name;
    Kernel fast;
    Kernel plain;
};

const KernelPair kernels[] = {
    {"Normal", blendNormal, blendNormalPlain},
    {"Multiply", blendMultiply, blendMultiplyPlain},
};

/// Every (b, s) pair of bytes, once in each channel position.
void allPairs(std::vector<ColourPOD>& base, std::vector<ColourPOD>& source) {
    for (int b = 0; b < 256; ++b) {
        for (int s = 0; s < 256; ++s) {
            base.push_back(ColourPOD{std::uint8_t(b), std::uint8_t(s), std::uint8_t(255 - b)});
            source.push_back(ColourPOD{std::uint8_t(s), std::uint8_t(b), std::uint8_t(s ^ 0x5A)});
        }
    }
}

TEST(BlendKernels, FastFormsMatchThePlainOnesOverAllInputs) {
    std::vector<ColourPOD> base, source;
    allPairs(base, source);
    const int n = static_cast<int>(base.size());
    std::mt19937 random(7);
    std::uniform_real_distribution<float> anyAlpha(0.0f, 1.0f);
    const float fixedAlphas[] = {0.0f, 1.0f, 0.5f, 0.25f, 0.75f, 1.0f / 3, 0.999999f, 1e-6f};
    const float opacities[] = {1.0f, 0.5f, 0.37f, 0.0f};

    for (const KernelPair& k : kernels) {
        for (const float opacity : opacities) {
            // Coverage: runs of each fixed value (so Normal meets runs of full coverage) mixed
            // with random values.
            std::vector<float> alpha(static_cast<std::size_t>(n));
            for (int i = 0; i < n; ++i) {
                alpha[i] = (i / 13) % 3 == 0 ? anyAlpha(random) : fixedAlphas[(i / 7) % 8];
            }
            for (int first = 0; first < 4; ++first) {
                const int last = n - first;
                std::vector<ColourPOD> fast(base.size(), ColourPOD{1, 2, 3});
                std::vector<ColourPOD> plain = fast;
                k.fast(fast.data(), base.data(), source.data(), alpha.data(), opacity, first, last);
                k.plain(plain.data(), base.data(), source.data(), alpha.data(), opacity, first,
                        last);
                ASSERT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * 3), 0)
                    << k.name << " opacity " << opacity << " first " << first;
            }
            // In place, over the base itself.
            std::vector<ColourPOD> fast = base, plain = base;
            k.fast(fast.data(), fast.data(), source.data(), alpha.data(), opacity, 0, n);
            k.plain(plain.data(), plain.data(), source.data(), alpha.data(), opacity, 0, n);
            ASSERT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * 3), 0)
                << k.name << " in place, opacity " << opacity;
        }
    }
}

TEST(BlendKernels, RunsOfOneColourAtOneCoverageMatchThePlainForms) {
    // The fast forms take a shorter road where the working colour and alpha are the same
    // all along the run: every working colour value in each channel position, over every
    // base value, at coverages that include the exact halves.
    std::vector<ColourPOD> base;
    for (int b = 0; b < 256; ++b) {
        base.push_back(ColourPOD{std::uint8_t(b), std::uint8_t(255 - b), std::uint8_t(b ^ 0x33)});
    }
    const int n = static_cast<int>(base.size());
    const float alphas[] = {1.0f, 0.5f, 0.75f, 1.0f / 3, 1e-6f, 0.0f};
    const float opacities[] = {1.0f, 0.5f, 0.37f};
    for (const KernelPair& k : kernels) {
        for (int s = 0; s < 256; ++s) {
            const ColourPOD colour{std::uint8_t(s), std::uint8_t(255 - s), std::uint8_t(s / 3)};
            const std::vector<ColourPOD> source(static_cast<std::size_t>(n), colour);
            for (const float a : alphas) {
                const std::vector<float> alpha(static_cast<std::size_t>(n), a);
                for (const float opacity : opacities) {
                    for (const int first : {0, 1, 3}) {
                        const int last = n - first * 5;
                        std::vector<ColourPOD> fast(base.size(), ColourPOD{1, 2, 3});
                        std::vector<ColourPOD> plain = fast;
                        k.fast(fast.data(), base.data(), source.data(), alpha.data(), opacity,
                               first, last);
                        k.plain(plain.data(), base.data(), source.data(), alpha.data(), opacity,
                                first, last);
                        ASSERT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * 3), 0)
                            << k.name << " s " << s << " alpha " << a << " opacity " << opacity
                            << " first " << first;
                    }
                }
            }
        }
    }
}

using SolidKernel = void (*)(ColourPOD*, const ColourPOD*, ColourPOD, const Alpha*, float, int, int,
                             ColourPOD*, bool);

struct SolidPair {
    const char* name;
    SolidKernel solid;
    Kernel plain;
};

const SolidPair solidKernels[] = {
    {"Normal", blendNormalSolid, blendNormalPlain},
    {"Multiply", blendMultiplySolid, blendMultiplyPlain},
};

TEST(BlendKernels, OneColourFormsMatchThePlainOnesOverARowOfTheColour) {
    // Every base value in each channel position under colours that meet every value,
    // coverage in runs of full, none, one partial value and random values (a run of one
    // coverage takes Multiply's short road, runs of full coverage Normal's straight fill),
    // ranges at every alignment, and nothing written outside the range.
    std::vector<ColourPOD> base;
    for (int b = 0; b < 256; ++b) {
        base.push_back(ColourPOD{std::uint8_t(b), std::uint8_t(255 - b), std::uint8_t(b ^ 0x33)});
    }
    const int n = static_cast<int>(base.size());
    std::mt19937 random(3);
    std::uniform_real_distribution<float> anyAlpha(0.0f, 1.0f);
    const float opacities[] = {1.0f, 0.5f, 0.37f, 0.0f};
    for (const SolidPair& k : solidKernels) {
        for (int s = 0; s < 256; s += 5) {
            const ColourPOD colour{std::uint8_t(s), std::uint8_t(255 - s), std::uint8_t(s / 3)};
            const std::vector<ColourPOD> row(static_cast<std::size_t>(n), colour);
            for (int pattern = 0; pattern < 4; ++pattern) {
                std::vector<float> alpha(static_cast<std::size_t>(n));
                for (int i = 0; i < n; ++i) {
                    const int kind = pattern == 0 ? 0 : pattern == 1 ? 2 : (i / (5 + pattern)) % 4;
                    alpha[i] = kind == 0   ? 1.0f
                               : kind == 1 ? 0.0f
                               : kind == 2 ? 0.5f
                                           : anyAlpha(random);
                }
                for (const float opacity : opacities) {
                    for (const int first : {0, 1, 7}) {
                        const int last = n - first * 3;
                        std::vector<ColourPOD> plain(base.size(), ColourPOD{1, 2, 3});
                        std::vector<ColourPOD> scratch(base.size());
                        k.plain(plain.data(), base.data(), row.data(), alpha.data(), opacity, first,
                                last);
                        // Told that the alpha is one value (where it is), or left to look.
                        for (const bool told : {false, pattern < 2}) {
                            std::vector<ColourPOD> solid(base.size(), ColourPOD{1, 2, 3});
                            k.solid(solid.data(), base.data(), colour, alpha.data(), opacity, first,
                                    last, scratch.data(), told);
                            ASSERT_EQ(std::memcmp(solid.data(), plain.data(), solid.size() * 3), 0)
                                << k.name << " s " << s << " pattern " << pattern << " opacity "
                                << opacity << " first " << first << " told " << told;
                        }
                    }
                }
            }
        }
    }
}

TEST(BlendKernels, PixelsOutsideTheRangeAreNotWritten) {
    std::vector<ColourPOD> base(32, ColourPOD{10, 20, 30}), source(32, ColourPOD{200, 100, 0});
    std::vector<float> alpha(32, 0.6f);
    for (const KernelPair& k : kernels) {
        std::vector<ColourPOD> out(32, ColourPOD{7, 7, 7});
        k.fast(out.data(), base.data(), source.data(), alpha.data(), 1.0f, 3, 22);
        for (int i = 0; i < 32; ++i) {
            if (i < 3 || i >= 22) {
                EXPECT_EQ(out[i], (ColourPOD{7, 7, 7})) << k.name << " pixel " << i;
            } else {
                EXPECT_NE(out[i], (ColourPOD{7, 7, 7})) << k.name << " pixel " << i;
            }
        }
    }
}

} // namespace

namespace {

TEST(PixelRuns, AllSameFindsAnyValueThatDiffersAtAnyLengthAndOffset) {
    // Lengths across the vector widths (a round of 32, its tail), offsets of every
    // alignment, and a differing value at every position.
    std::vector<float> row(200, 0.5f);
    for (int first = 0; first < 9; ++first) {
        for (int n = 1; n < 150; n += (n < 70 ? 1 : 13)) {
            ASSERT_TRUE(runs::allSame(row.data(), first, first + n)) << first << ", " << n;
            for (int k = first; k < first + n; ++k) {
                row[static_cast<std::size_t>(k)] = 0.50001f;
                ASSERT_EQ(runs::allSame(row.data(), first, first + n), n == 1)
                    << first << ", " << n << ", " << k;
                row[static_cast<std::size_t>(k)] = 0.5f;
            }
            // Outside the range does not count.
            row[static_cast<std::size_t>(first + n)] = 1.0f;
            EXPECT_TRUE(runs::allSame(row.data(), first, first + n));
            row[static_cast<std::size_t>(first + n)] = 0.5f;
        }
    }
    EXPECT_FALSE(runs::allSame(row.data(), 5, 5));
    // Equal as numbers is not enough: 0 and -0 differ; NaN is never one value.
    std::vector<float> zeros(64, 0.0f);
    zeros[40] = -0.0f;
    EXPECT_FALSE(runs::allSame(zeros.data(), 0, 64));
    EXPECT_TRUE(runs::allSame(zeros.data(), 0, 40));
    const std::vector<float> nan(64, std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(runs::allSame(nan.data(), 0, 64));
}

TEST(PixelRuns, ColourFillLaysEveryPixelAndNothingBesideTheRange) {
    // Colours whose three bytes differ (so a phase of the 48-byte pattern out of place
    // shows), ranges across the 16-pixel rounds and their tails, at every offset in the row.
    const ColourPOD colours[] = {{1, 2, 3}, {0xFF, 0x00, 0x80}, {0x12, 0xA5, 0x7E}, {9, 9, 9}};
    const ColourPOD outside{0xEE, 0xDD, 0xCC};
    std::vector<ColourPOD> row(80);
    for (const ColourPOD c : colours) {
        for (int first = 0; first < 4; ++first) {
            for (int last = first; last <= 70; ++last) {
                std::fill(row.begin(), row.end(), outside);
                runs::fillColour(row.data(), c, first, last);
                for (int k = 0; k < 80; ++k) {
                    const ColourPOD want = k >= first && k < last ? c : outside;
                    ASSERT_EQ(row[static_cast<std::size_t>(k)], want)
                        << int(c.b) << ", " << first << ".." << last << " at " << k;
                }
            }
        }
    }
}

} // namespace
