// Solid noise and cube pictures in the scene: where each pixel reads them, how large its
// footprint is, and the turn of a cube about its axis.

#include "texture/TextureTool3d.h"
#include "texture/TextureToolCube.h"

#include "TextureSceneSupport.h"
#include "texture/AlphaNoiseTexture.h"
#include "texture/CubeMipMap.h"
#include "texture/CubeTexture.h"
#include "texture/NoiseTexture3d.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

/// A wall 30 degrees off frontal, 5 away, seen level along +y.
std::unique_ptr<test::TestDocument> wall() {
    test::SyntheticScene scene;
    scene.add(Plane(Vector<3>(-0.5, std::sqrt(0.75), 0), Point<3>(0, 5, 0)), 1);
    return textest::renderScene(scene, 128, 96, {0, 0, 1.6}, 90, 0);
}

double chebyshev(const Point<3>& a, const Point<3>& b) {
    return std::max({std::abs(a.x() - b.x()), std::abs(a.y() - b.y()), std::abs(a.z() - b.z())});
}

TEST(TextureTool3d, ReadsTheSolidAtTheWorldPointWithTheNeighboursDistance) {
    auto document = wall();
    auto noise = TQL::makeHandle<tex::SimpleNoise>(1.0, 1.0, 0.5, false);
    auto solid = TQL::makeHandle<tex::NoiseTexture3d>(noise, false, true);
    tex::TextureOutput out;
    out.flags = tex::textureColour;
    // One unit of the solid is 2 m.
    tex::TextureTool3d tool(solid, 2000, out);
    tool.start(64, 48, *document);
    const textest::Painted painted = textest::paintAll(tool, *document);
    for (const auto& [x, y] : {std::pair{0, 0}, std::pair{64, 48}, std::pair{127, 95}}) {
        Point<3> p;
        double footprint = 0;
        ASSERT_TRUE(tool.pixelSample(*document, x, y, p, footprint));
        const Point<3> w = document->worldAt(x, y);
        EXPECT_NEAR(p.x(), w.x() / 2, 1e-9);
        EXPECT_NEAR(p.z(), w.z() / 2, 1e-9);
        // At the edges only the inside neighbour counts; inside, the nearer one.
        const std::int32_t nx = x == 127 ? x - 1 : x + 1;
        const std::int32_t ny = y == 95 ? y - 1 : y + 1;
        const Point<3> wx = document->worldAt(nx, y);
        const Point<3> wy = document->worldAt(x, ny);
        const double h = chebyshev(w, wx) / 2;
        const double v = chebyshev(w, wy) / 2;
        if (x == 0 || x == 127) {
            EXPECT_NEAR(footprint, tex::balanceFootprint(h, v), 1e-9) << x << "," << y;
        }
        EXPECT_GT(footprint, 0.0);
        const float fx = static_cast<float>(p.x()), fy = static_cast<float>(p.y()),
                    fz = static_cast<float>(p.z()), fp = static_cast<float>(footprint);
        std::uint8_t rgb[3];
        float alpha = 1;
        solid->sample(rgb, &alpha, &fx, &fy, &fz, &fp, 1);
        EXPECT_EQ(painted.at(x, y), (ColourPOD{rgb[0], rgb[1], rgb[2]})) << x << "," << y;
    }
    // Farther along the oblique wall a pixel covers more of the solid.
    Point<3> p;
    double nearSide = 0, farSide = 0;
    ASSERT_TRUE(tool.pixelSample(*document, 10, 48, p, nearSide));
    ASSERT_TRUE(tool.pixelSample(*document, 120, 48, p, farSide));
    EXPECT_GT(farSide, 1.5 * nearSide);
}

TEST(TextureToolCube, ReadsTheCubeFromTheEyeTurnedAboutItsAxis) {
    // Faces of flat greys: face k is 40 k + 10.
    const std::int32_t n = 16;
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(6 * n) * n * 3);
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            std::fill_n(rgb.begin() + (static_cast<std::ptrdiff_t>(y) * 6 * n + x) * 3, 3,
                        static_cast<std::uint8_t>(40 * (x / n) + 10));
        }
    }
    auto cube = TQL::makeHandle<tex::CubeTexture>(
        TQL::makeHandle<tex::CubeMipMap>(n, rgb.data(), nullptr), 1.0f);
    auto document = wall();
    tex::TextureOutput out;
    out.flags = tex::textureColour;
    // The eye looks along +y: the cube's +Y face (4), or turned 90 degrees about z, -X (3).
    tex::TextureToolCube straight(cube, Vector<3>(0, 0, 1), 0, out);
    straight.start(64, 48, *document);
    EXPECT_EQ(textest::paintAll(straight, *document).grey(64, 48), 170);
    tex::TextureToolCube turned(cube, Vector<3>(0, 0, 1), 90, out);
    turned.start(64, 48, *document);
    EXPECT_EQ(textest::paintAll(turned, *document).grey(64, 48), 130);
    Vector<3> d;
    double footprint = 0;
    ASSERT_TRUE(turned.pixelDirection(*document, 64, 48, d, footprint));
    EXPECT_LT(d.x(), -0.9 * d.length());
    EXPECT_GT(footprint, 0.0);
}

} // namespace
