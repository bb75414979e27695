#include "effects/LightSet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

constexpr double r2 = 0.70710678118654752; // 1 / sqrt(2)

void expectColour(const LightColour& actual, double r, double g, double b) {
    EXPECT_NEAR(actual.red, r, 1e-12);
    EXPECT_NEAR(actual.green, g, 1e-12);
    EXPECT_NEAR(actual.blue, b, 1e-12);
}

TEST(ParallelLight, FallsByTheCosineOnSurfacesFacingIt) {
    // Straight down, coloured so that the components tell a scale from a swap.
    const QuorvaleParallelLight light(Angle(), Angle::degrees(-90), {1.0, 0.5, 0.25}, true);
    struct Case {
        Vector<3> normal;
        double k;
    };
    const Case cases[] = {
        {{0, 0, 1}, 1},    // facing up, into the light
        {{0, r2, r2}, r2}, // tilted by 45 degrees
        {{1, 0, 0}, 0},    // edge on
        {{0, 0, -1}, 0},   // facing away: no negative light
        {{-r2, 0, -r2}, 0},
    };
    for (const Case& c : cases) {
        expectColour(light.illumination(c.normal), c.k, 0.5 * c.k, 0.25 * c.k);
    }
    EXPECT_TRUE(light.castsShadow());
    EXPECT_NEAR(light.direction().z().z(), -1, 1e-12);
}

TEST(ParallelLight, SunAzimuthIsACompassBearing) {
    struct Case {
        double azimuth;
        Vector<3> lit; // a wall facing the sun
        Vector<3> dark;
    };
    const double e = 30;
    const Case cases[] = {
        {180, {0, -1, 0}, {0, 1, 0}}, // sun in the south
        {90, {1, 0, 0}, {-1, 0, 0}},  // east
        {0, {0, 1, 0}, {0, -1, 0}},   // north
        {270, {-1, 0, 0}, {1, 0, 0}}, // west
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.azimuth);
        const auto sun = QuorvaleParallelLight::sun(Angle::degrees(c.azimuth), Angle::degrees(e),
                                                    {1, 1, 1}, false);
        EXPECT_NEAR(sun->illumination(c.lit).red, std::cos(Angle::degrees(e).radians()), 1e-12);
        EXPECT_EQ(sun->illumination(c.dark).red, 0);
        EXPECT_NEAR(sun->illumination({0, 0, 1}).red, 0.5, 1e-12); // sin 30
        EXPECT_FALSE(sun->castsShadow());
    }
}

TEST(AmbientLight, BlendsGroundAndSkyByTheVerticalComponent) {
    const AmbientLight sky(Point<3>(1.0, 0.8, 0.6), Point<3>(0.2, 0.4, 0.0));
    expectColour(sky.illumination({0, 0, 1}), 1.0, 0.8, 0.6);
    expectColour(sky.illumination({0, 0, -1}), 0.2, 0.4, 0.0);
    expectColour(sky.illumination({1, 0, 0}), 0.6, 0.6, 0.3);
    expectColour(sky.illumination({0, r2, r2}), 0.6 + 0.4 * r2, 0.6 + 0.2 * r2, 0.3 + 0.3 * r2);
    EXPECT_FALSE(sky.castsShadow());
    EXPECT_EQ(sky.direction().z(), Ray().z());
}

/// A light of its own kind, so that the base class's span loop is used.
class ConstantLight : public Light {
public:
    explicit ConstantLight(double level) : level_(level) {}
    LightColour illumination(const Vector<3>&) const override { return {level_, level_, level_}; }
    bool castsShadow() const override { return true; }
    Ray direction() const override { return Ray(); }

private:
    double level_;
};

TEST(LightSet, SumsItsLightsLeavingOutTheBlockedOnes) {
    LightSet set;
    set.add(TQL::makeHandle<AmbientLight>(Point<3>(0.3, 0.3, 0.3), Point<3>(0.1, 0.1, 0.1)));
    set.add(TQL::makeHandle<QuorvaleParallelLight>(Angle(), Angle::degrees(-90),
                                                   LightColour{0.5, 0.5, 0.5}, true));
    set.add(TQL::makeHandle<ConstantLight>(0.25));
    ASSERT_EQ(set.lightCount(), 3u);

    const Vector<3> up(0, 0, 1);
    const Vector<3> side(1, 0, 0);
    struct Case {
        Vector<3> normal;
        std::uint32_t mask;
        double expected;
    };
    const Case cases[] = {
        {up, 0, 0.3 + 0.5 + 0.25},
        {up, 2, 0.3 + 0.25}, // the sun blocked
        {up, 4, 0.3 + 0.5},  // the constant light blocked
        {up, 6, 0.3},
        {up, 1, 0.5 + 0.25}, // a mask is the caller's word, even for a light without shadows
        {side, 0, 0.2 + 0 + 0.25},
        {side, 2, 0.2 + 0.25},
    };
    std::vector<Vector<3>> normals;
    std::vector<std::uint32_t> masks;
    for (const Case& c : cases) {
        EXPECT_NEAR(set.illumination(c.normal, c.mask).green, c.expected, 1e-12);
        normals.push_back(c.normal);
        masks.push_back(c.mask);
    }
    EXPECT_NEAR(set.illumination(up).blue, 1.05, 1e-12);

    // The span form gives the same as the pixel form, masked and not.
    std::vector<LightColour> out(normals.size(), LightColour{9, 9, 9});
    set.illuminateSpan(normals.data(), normals.size(), masks.data(), out.data());
    for (std::size_t i = 0; i < normals.size(); ++i) {
        EXPECT_EQ(out[i], set.illumination(normals[i], masks[i])) << i;
    }
    set.illuminateSpan(normals.data(), normals.size(), nullptr, out.data());
    for (std::size_t i = 0; i < normals.size(); ++i) {
        EXPECT_EQ(out[i], set.illumination(normals[i])) << i;
    }
}

TEST(LightSet, HoldsAtMostOneLightABitOfTheMask) {
    LightSet set;
    EXPECT_FALSE(set.add(TQL::Handle<Light>()));
    for (std::size_t i = 0; i < LightSet::maxLights; ++i) {
        EXPECT_TRUE(set.add(TQL::makeHandle<ConstantLight>(1.0 / 64)));
    }
    EXPECT_FALSE(set.add(TQL::makeHandle<ConstantLight>(1)));
    EXPECT_EQ(set.lightCount(), LightSet::maxLights);
    // The last light's bit is the mask's top bit.
    EXPECT_NEAR(set.illumination({0, 0, 1}, 0x80000000u).red, 31.0 / 64, 1e-12);
}

} // namespace
