#include "core/Colour.h"
#include "core/ColourProfile.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

void expectRgb(const Colour& c, double r, double g, double b) {
    EXPECT_NEAR(c.r(), r, 1e-12);
    EXPECT_NEAR(c.g(), g, 1e-12);
    EXPECT_NEAR(c.b(), b, 1e-12);
}

// Expected values worked out by hand from the usual hexcone (HSV) and double-cone (HLS)
// formulas: C = V S, X = C (1 - |H/60 mod 2 - 1|), m = V - C; for HLS C = (1 - |2L - 1|) S,
// m = L - C / 2.
TEST(Colour, HsvToRgbKnownValues) {
    expectRgb(Colour::hsv(Angle::degrees(0), 1, 1), 1, 0, 0);
    expectRgb(Colour::hsv(Angle::degrees(120), 1, 1), 0, 1, 0);
    expectRgb(Colour::hsv(Angle::degrees(240), 1, 0.5), 0, 0, 0.5);
    expectRgb(Colour::hsv(Angle::degrees(30), 0.5, 0.8), 0.8, 0.6, 0.4);
    expectRgb(Colour::hsv(Angle::degrees(390), 0.5, 0.8), 0.8, 0.6, 0.4); // hue wraps
    expectRgb(Colour::hsv(Angle::degrees(300), 1, 1), 1, 0, 1);
    expectRgb(Colour::hsv(Angle::degrees(77), 0, 0.3), 0.3, 0.3, 0.3); // grey ignores hue
}

TEST(Colour, HlsToRgbKnownValues) {
    expectRgb(Colour::hls(Angle::degrees(0), 0.5, 1), 1, 0, 0);
    expectRgb(Colour::hls(Angle::degrees(210), 0.25, 0.6), 0.1, 0.25, 0.4);
    expectRgb(Colour::hls(Angle::degrees(60), 0.75, 1), 1, 1, 0.5);
    expectRgb(Colour::hls(Angle::degrees(10), 1, 0.7), 1, 1, 1);
}

TEST(Colour, HlsClampsLightnessAndSaturation) {
    // Varied lightness and saturation can leave 0..1; they stop at the ends instead of
    // giving components outside the range.
    expectRgb(Colour::hls(Angle::degrees(0), 0.5, 1.7), 1, 0, 0);
    expectRgb(Colour::hls(Angle::degrees(210), 1.3, 0.6), 1, 1, 1);
    expectRgb(Colour::hls(Angle::degrees(210), -0.2, 0.6), 0, 0, 0);
    expectRgb(Colour::hls(Angle::degrees(120), 0.25, -0.5), 0.25, 0.25, 0.25);
    for (const double l : {-1.0, -0.01, 0.3, 0.8, 1.01, 2.0}) {
        for (const double s : {-1.0, 0.5, 1.0, 1.5}) {
            const Colour c = Colour::hls(Angle::degrees(75), l, s);
            for (const double v : {c.r(), c.g(), c.b()}) {
                EXPECT_GE(v, 0) << l << " " << s;
                EXPECT_LE(v, 1) << l << " " << s;
            }
        }
    }
}

TEST(Colour, BytesRoundHalvesToEven) {
    // Components that land exactly on a half byte go to the even neighbour, as the paint
    // arithmetic rounds; any other value to the nearest.
    int halves = 0;
    for (int n = 0; n < 255; ++n) {
        const double c = (n + 0.5) / 255.0;
        if (c * 255.0 != n + 0.5) {
            continue; // not exactly a half once divided and multiplied back
        }
        ++halves;
        unsigned char out[3] = {};
        Colour::rgb(c, c, c).getDib24(out);
        const int even = n % 2 == 0 ? n : n + 1;
        ASSERT_EQ(out[0], even) << n;
        ASSERT_EQ(out[1], even) << n;
        ASSERT_EQ(out[2], even) << n;
        EXPECT_EQ(Colour::rgb(c, 0, 0).colorref(), static_cast<std::uint32_t>(even)) << n;
    }
    EXPECT_GT(halves, 100);
    unsigned char out[3] = {};
    Colour::rgb(2.4 / 255, 2.6 / 255, 1.5).getDib24(out);
    EXPECT_EQ(out[2], 2);
    EXPECT_EQ(out[1], 3);
    EXPECT_EQ(out[0], 255) << "clamped";
}

TEST(Colour, ReadersInvertTheMakers) {
    const Colour a = Colour::rgb(0.8, 0.6, 0.4);
    EXPECT_NEAR(a.h_hsv().degrees(), 30, 1e-12);
    EXPECT_NEAR(a.s_hsv(), 0.5, 1e-12);
    EXPECT_NEAR(a.v_hsv(), 0.8, 1e-12);
    const Colour b = Colour::rgb(0.1, 0.25, 0.4);
    EXPECT_NEAR(b.h_hls().degrees(), 210, 1e-12);
    EXPECT_NEAR(b.l_hls(), 0.25, 1e-12);
    EXPECT_NEAR(b.s_hls(), 0.6, 1e-12);
    const Colour magenta = Colour::rgb(1, 0, 0.5);
    EXPECT_NEAR(magenta.h_hsv().degrees(), 330, 1e-12);
    const Colour grey = Colour::rgb(0.4, 0.4, 0.4);
    EXPECT_EQ(grey.s_hsv(), 0);
    EXPECT_EQ(grey.s_hls(), 0);
    EXPECT_EQ(grey.h_hsv().degrees(), 0);
    EXPECT_EQ(Colour::rgba(1, 2, 3, 0.25).a(), 0.25);
}

TEST(Colour, PackedForms) {
    const Colour c = Colour::rgb(1, 0.5, 0);
    EXPECT_EQ(c.colorref(), 0x000080FFu); // 0x00BBGGRR, 127.5 rounds to 128
    EXPECT_DOUBLE_EQ(Colour::colorref(0x00336699).r(), 0x99 / 255.0);
    EXPECT_DOUBLE_EQ(Colour::colorref(0x00336699).b(), 0x33 / 255.0);

    std::uint16_t v16 = 0;
    c.getDib16(&v16);
    EXPECT_EQ(v16, (31u << 10) | (16u << 5)); // 5 bits each, red highest

    const unsigned char bgr[3] = {0x10, 0x80, 0xF0};
    const Colour d = Colour::dib24(bgr);
    EXPECT_DOUBLE_EQ(d.r(), 0xF0 / 255.0);
    unsigned char out[3] = {};
    d.getDib24(out);
    EXPECT_EQ(std::memcmp(bgr, out, 3), 0);
    const ColourPOD pod = d.pod();
    EXPECT_EQ(pod.b, 0x10);
    EXPECT_EQ(pod.r, 0xF0);
}

TEST(Colour, EveryDib24ValueRoundTrips) {
    for (int v = 0; v < 256; ++v) {
        const unsigned char in[3] = {static_cast<unsigned char>(v),
                                     static_cast<unsigned char>(255 - v),
                                     static_cast<unsigned char>(v * 7)};
        unsigned char out[3];
        Colour::dib24(in).getDib24(out);
        ASSERT_EQ(std::memcmp(in, out, 3), 0) << v;
    }
}

TEST(ColourProfile, SrgbToSrgbIsNearlyIdentity) {
    auto srgb = TQL::ColourProfile::create(TQL::ColourProfileId::sRGB);
    ASSERT_TRUE(srgb);
    EXPECT_FALSE(srgb->description().empty());
    auto t = TQL::ColourTransform::create(TQL::RenderingIntent::perceptual, *srgb, *srgb);
    ASSERT_TRUE(t);
    ColourPOD px[4] = {{0, 0, 0}, {255, 255, 255}, {10, 128, 200}, {255, 0, 0}};
    ColourPOD out[4];
    t->apply(px, out, 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(out[i].r, px[i].r, 1);
        EXPECT_NEAR(out[i].g, px[i].g, 1);
        EXPECT_NEAR(out[i].b, px[i].b, 1);
    }
}

TEST(ColourProfile, MissingOrBogusProfilesGiveNull) {
    EXPECT_FALSE(TQL::ColourProfile::createFromFile(L"/nonexistent/profile.icc"));
    const char junk[] = "not an icc profile at all";
    EXPECT_FALSE(TQL::ColourProfile::createFromMemory(junk, sizeof junk));
}

} // namespace
