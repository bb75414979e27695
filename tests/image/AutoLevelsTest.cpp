#include "core/Colour.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>

namespace {

using test::TestDocument;

ColourPOD grey(std::uint8_t v) {
    return {v, v, v};
}

void paint(ZmapDocument& doc, const std::function<ColourPOD(std::int32_t, std::int32_t)>& f,
           std::int32_t width, std::int32_t height) {
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            TileHandle hold;
            *doc.rgbWrite(x, y, hold) = f(x, y);
        }
    }
}

Status autoLevels(ZmapDocument& doc) {
    Status s = -1;
    doc.autoLevels(s);
    return s;
}

// Lightness is (max + min) / 2. The points that bound 0.5 % of the pixels at each end become
// black and white; the pixels beyond them are clamped.
TEST(AutoLevels, StretchesBetweenTheHalfPercentPoints) {
    struct Case {
        const char* name;
        int outliers;        // black and white pixels at each end, of 10000
        std::uint8_t dark;   // what grey 100 becomes
        std::uint8_t bright; // what grey 150 becomes
    };
    // With 50 outliers (0.5 %) at each end they are left out: greys 100 and 150 are the
    // ends. With 51 the ends are black and white and nothing changes.
    const Case cases[] = {
        {"no outliers", 0, 0, 255},
        {"few outliers", 40, 0, 255},
        {"exactly half a percent", 50, 0, 255},
        {"more than half a percent", 51, 100, 150},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = test::makeTestDocument(100, 100);
        paint(
            *doc,
            [&](std::int32_t x, std::int32_t y) {
                const int i = y * 100 + x;
                if (i < c.outliers) {
                    return grey(0);
                }
                if (i >= 10000 - c.outliers) {
                    return grey(255);
                }
                return grey(i < 5000 ? 100 : 150);
            },
            100, 100);
        ASSERT_EQ(autoLevels(*doc), status::ok);
        EXPECT_EQ(doc->rgbAt(50, 10), grey(c.dark));
        EXPECT_EQ(doc->rgbAt(50, 90), grey(c.bright));
        if (c.outliers > 0) {
            EXPECT_EQ(doc->rgbAt(0, 0), grey(0));
            EXPECT_EQ(doc->rgbAt(99, 99), grey(255));
        }
    }
}

// Hue and saturation stay: each pixel must equal the colour that core's HLS conversion gives
// for its hue and saturation at the stretched lightness.
TEST(AutoLevels, KeepsHueAndSaturation) {
    auto doc = test::makeTestDocument(40, 30);
    std::mt19937 random(7);
    // Sums of max and min from 100 to 400; eight greys at each end, more than 0.5 % of the
    // 1200 pixels, fix the ends.
    auto colour = [&](std::int32_t x, std::int32_t y) -> ColourPOD {
        if (y == 0 && x < 8) {
            return grey(50);
        }
        if (y == 0 && x < 16) {
            return grey(200);
        }
        for (;;) {
            const ColourPOD c{std::uint8_t(random()), std::uint8_t(random()),
                              std::uint8_t(random())};
            const auto [lo, hi] = std::minmax({c.b, c.g, c.r});
            if (lo + hi >= 100 && lo + hi <= 400) {
                return c;
            }
        }
    };
    paint(*doc, colour, 40, 30);
    std::vector<ColourPOD> before;
    for (std::int32_t y = 0; y < 30; ++y) {
        for (std::int32_t x = 0; x < 40; ++x) {
            before.push_back(doc->rgbAt(x, y));
        }
    }
    ASSERT_EQ(autoLevels(*doc), status::ok);
    for (std::int32_t y = 0; y < 30; ++y) {
        for (std::int32_t x = 0; x < 40; ++x) {
            const Colour c = Colour::fromPOD(before[static_cast<std::size_t>(y) * 40 + x]);
            const double l = std::clamp((c.l_hls() * 510 - 100) / 300, 0.0, 1.0);
            const ColourPOD expected = Colour::hls(c.h_hls(), l, c.s_hls()).pod();
            const ColourPOD got = doc->rgbAt(x, y);
            EXPECT_LE(std::abs(got.r - expected.r), 1) << x << "," << y;
            EXPECT_LE(std::abs(got.g - expected.g), 1) << x << "," << y;
            EXPECT_LE(std::abs(got.b - expected.b), 1) << x << "," << y;
        }
    }
}

TEST(AutoLevels, LeavesImagesWithNothingToStretchShared) {
    struct Case {
        const char* name;
        ColourPOD (*pixel)(std::int32_t x);
    };
    const Case cases[] = {
        {"one grey", [](std::int32_t) { return grey(128); }},
        {"black to white already", [](std::int32_t x) { return grey(x < 50 ? 0 : 255); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = test::makeTestDocument(100, 70);
        paint(
            *doc, [&](std::int32_t x, std::int32_t) { return c.pixel(x); }, 100, 70);
        doc->commitOriginals();
        ASSERT_EQ(autoLevels(*doc), status::ok);
        for (std::int32_t i = 0; i < doc->geometry().tileCount(); ++i) {
            EXPECT_TRUE(doc->rgb->sharesTile(i, *doc->originalRgb)) << i;
        }
    }
}

TEST(AutoLevels, BlackStaysBlackSoEmptyTilesStayEmpty) {
    // Three tiles across; only the first is painted, half grey 50 and half grey 200. The
    // empty tiles are black and make 0 the low end: grey 50 becomes 100 / 400 of white.
    auto doc = test::makeTestDocument(192, 64);
    paint(
        *doc, [](std::int32_t x, std::int32_t) { return grey(x < 32 ? 50 : 200); }, 64, 64);
    ASSERT_EQ(autoLevels(*doc), status::ok);
    EXPECT_EQ(doc->rgbAt(0, 0), grey(64)); // 63.75
    EXPECT_EQ(doc->rgbAt(63, 63), grey(255));
    EXPECT_EQ(doc->rgb->nonEmptyTiles(), 1);
}

TEST(AutoLevels, NeedsAColourChannel) {
    TestDocument doc;
    EXPECT_EQ(autoLevels(doc), status::noImage);
}

} // namespace
