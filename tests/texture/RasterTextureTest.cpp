// Raster textures: flips, the reflected map built on first need, flags and export; solid
// noise as a texture; small thumbs.

#include "texture/RasterTexture.h"
#include "texture/NoiseTexture3d.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

namespace {

TQL::Handle<tex::RasterTexture> gradient(std::int32_t w, std::int32_t h, bool withAlpha) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(w) * h * 3);
    std::vector<float> alpha(static_cast<std::size_t>(w) * h);
    for (std::int32_t y = 0; y < h; ++y) {
        for (std::int32_t x = 0; x < w; ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * w + x;
            rgb[i * 3] = static_cast<std::uint8_t>(x * 10);
            rgb[i * 3 + 1] = static_cast<std::uint8_t>(y * 10);
            rgb[i * 3 + 2] = 7;
            alpha[i] = (x + y) % 2 ? 1.0f : 0.5f;
        }
    }
    auto map =
        TQL::makeHandle<tex::MipMap>(w, h, rgb.data(), withAlpha ? alpha.data() : nullptr, true);
    return TQL::makeHandle<tex::RasterTexture>(map, 2.0f, 1.0f);
}

std::array<std::uint8_t, 3> at(const tex::RasterTexture& t, float u, float v) {
    std::array<std::uint8_t, 3> out{};
    float alpha = 0;
    const float fp = 1;
    t.sample(out.data(), &alpha, &u, &v, &fp, 1);
    return out;
}

TEST(RasterTexture, FlipsAndTheReflectedMap) {
    auto t = gradient(6, 4, false);
    EXPECT_EQ(at(*t, 1.5f, 2.5f)[0], 10);
    t->flipU = true; // u becomes 6 - u
    EXPECT_EQ(at(*t, 1.5f, 2.5f)[0], 40);
    t->flipU = false;
    t->flipV = true;
    EXPECT_EQ(at(*t, 1.5f, 2.5f)[1], 10);
    t->flipV = false;

    EXPECT_EQ(t->pixelWidth(), 6);
    t->setReflected(true);
    EXPECT_EQ(t->pixelWidth(), 12);
    EXPECT_EQ(t->pixelHeight(), 8);
    // Pixel (x, y) is mirrored to (2w - x - 1, y) and (x, 2h - y - 1).
    for (int x = 0; x < 6; ++x) {
        const auto a = at(*t, x + 0.5f, 1.5f);
        const auto b = at(*t, 11 - x + 0.5f, 1.5f);
        const auto c = at(*t, x + 0.5f, 6.5f);
        EXPECT_EQ(a, b) << x;
        EXPECT_EQ(a, c) << x;
    }
    const tex::MipMap* mirrored = &t->currentMap();
    t->setReflected(false);
    EXPECT_EQ(t->pixelWidth(), 6);
    t->setReflected(true); // built once, kept
    EXPECT_EQ(&t->currentMap(), mirrored);
    std::uint8_t unfiltered[3];
    t->mirror(13.5f, 1.5f, unfiltered); // wraps to x = 1
    EXPECT_EQ(unfiltered[0], 10);
}

TEST(RasterTexture, FlagsAndExport) {
    auto opaque = gradient(4, 4, false);
    // A tiled map has an alpha store, but it doesn't vary.
    EXPECT_EQ(opaque->flags(), tex::textureHasColour | tex::textureHasAlpha);
    auto varying = gradient(4, 4, true);
    EXPECT_EQ(varying->flags(), 7u);
    EXPECT_EQ(opaque->flagsForExport(), 5u);
    EXPECT_EQ(varying->width(), 4);
    EXPECT_FLOAT_EQ(varying->worldWidth(), 2.0f);
    EXPECT_EQ(varying->rgbPixels()[3], 10);
    EXPECT_FLOAT_EQ(varying->alphaPixels()[1], 1.0f);
}

TEST(NoiseTexture3d, DrivesAlphaColourOrNothing) {
    auto noise = TQL::makeHandle<tex::SimpleNoise>(1.0, 2.0, 0.5, false);
    const float x = 1.3f, y = 2.1f, z = 0.7f, fp = 0.1f;
    float value = 0;
    noise->sample(&value, &x, &y, &z, &fp, 1);

    const tex::NoiseTexture3d both(noise, true, true);
    EXPECT_EQ(both.flags(), 7u);
    std::uint8_t rgb[3] = {1, 2, 3};
    float alpha = -1;
    both.sample(rgb, &alpha, &x, &y, &z, &fp, 1);
    EXPECT_FLOAT_EQ(alpha, value);
    EXPECT_EQ(rgb[0], static_cast<int>(std::nearbyint(value * 255)));
    EXPECT_EQ(rgb[0], rgb[2]);

    const tex::NoiseTexture3d alphaOnly(noise, true, false);
    EXPECT_EQ(alphaOnly.flags(), 6u);
    const tex::NoiseTexture3d none(noise, false, false);
    EXPECT_EQ(none.flags(), 0u);
    rgb[0] = 9;
    alpha = -1;
    none.sample(rgb, &alpha, &x, &y, &z, &fp, 1);
    EXPECT_EQ(rgb[0], 9);
    EXPECT_EQ(alpha, -1);

    tex::VectorThumb<std::uint16_t> thumb(5, 3);
    thumb.at(4, 2) = tex::pack555(255, 0, 0);
    EXPECT_EQ(thumb.pixels.back(), 31);
    EXPECT_EQ(thumb.thumbHeight(), 3);
}

} // namespace
