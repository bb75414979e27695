// Cube maps: taps and cells beyond a face edge come from the neighbouring face, so a cube
// has no border, and sampling by direction agrees with the cube camera's faces.

#include "texture/CubeMipMap.h"
#include "texture/CubeTexture.h"
#include "texture/RasterTexture.h"

#include "views/cameras/FaceSize.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using tex::CubeMipMap;

/// A 6n x n strip whose pixels all differ: colour bytes from the strip position.
std::vector<std::uint8_t> distinctStrip(std::int32_t n) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(6 * n * n) * 3);
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            std::uint8_t* p = rgb.data() + (static_cast<std::size_t>(y) * 6 * n + x) * 3;
            p[0] = static_cast<std::uint8_t>(x);
            p[1] = static_cast<std::uint8_t>(y);
            p[2] = static_cast<std::uint8_t>(x / n * 40);
        }
    }
    return rgb;
}

TEST(CubeMipMap, CellsAcrossAnEdgeAreTheNeighbouringFacesTexels) {
    const std::int32_t n = 8;
    const auto rgb = distinctStrip(n);
    const CubeMipMap map(n, rgb.data(), nullptr);
    const FaceSize faces(n);
    for (int face = 0; face < 6; ++face) {
        for (std::int32_t y = 1; y < n - 1; ++y) {
            std::int32_t sx = 0, sy = 0;
            map.resolve(0, face, n, y, sx, sy);
            std::int32_t ex = face * n + n - 1, ey = y;
            faces.stepRight(ex, ey);
            EXPECT_EQ(sx, ex);
            EXPECT_EQ(sy, ey);
            map.resolve(0, face, y, -1, sx, sy);
            ex = face * n + y;
            ey = 0;
            faces.stepUp(ex, ey);
            EXPECT_EQ(sx, ex);
            EXPECT_EQ(sy, ey);
        }
    }
    // A sample whose cell lies across the right edge of face 0 at a coarse level reads face
    // 1: one cell right of the edge, at full weight, gives face 1's texel.
    std::int32_t sx = 0, sy = 0;
    map.resolve(0, 0, n, 3, sx, sy);
    EXPECT_EQ(sx / n, 1);
    EXPECT_EQ(sx, n + 1); // the second pixel in: the edge pixels are shared
}

TEST(CubeMipMap, ReductionHasNoBorderAndSamplingMatchesTheFaces) {
    const std::int32_t n = 16;
    std::vector<std::uint8_t> grey(static_cast<std::size_t>(6 * n * n) * 3, 120);
    const CubeMipMap flat(n, grey.data(), nullptr);
    EXPECT_EQ(flat.levels(), 5);
    for (int l = 1; l < flat.levels(); ++l) {
        const tex::Raster& level = flat.level(l);
        for (std::int32_t i = 0; i < level.width * level.height; ++i) {
            ASSERT_FLOAT_EQ(level.alpha[i], 1.0f) << l << " " << i;
            ASSERT_EQ(level.rgb[i * 3], 120) << l << " " << i;
        }
    }
    // By direction: the centre of each face reads that face's middle pixel.
    const auto rgb = distinctStrip(n);
    const CubeMipMap map(n, rgb.data(), nullptr);
    const float dirs[6][3] = {{0, 0, 1}, {1, 0, 0}, {0, 0, -1}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}};
    for (int face = 0; face < 6; ++face) {
        double u = 0, v = 0;
        EXPECT_EQ(CubeMipMap::faceOfDirection(dirs[face][0], dirs[face][1], dirs[face][2], n, u, v),
                  face);
        EXPECT_DOUBLE_EQ(u, 7.5);
        std::uint8_t out[3];
        float alpha = 0;
        const float fp = 1;
        map.sample(out, &alpha, &dirs[face][0], &dirs[face][1], &dirs[face][2], &fp, 1);
        EXPECT_EQ(out[2], face * 40);
        EXPECT_FLOAT_EQ(alpha, 1.0f);
    }
    // On the edge between faces 0 and 1 both faces' copies agree.
    std::uint8_t a[3], b[3];
    float alpha = 0;
    const float fp = 1, x0 = 1, y0 = 0.2f, z0 = 1.0f, x1 = 1.0f, z1 = 0.99999f;
    map.sample(a, &alpha, &x0, &y0, &z0, &fp, 1); // z dominant: face 0's right edge
    map.sample(b, &alpha, &x1, &y0, &z1, &fp, 1); // x dominant: face 1's left edge
    EXPECT_NEAR(a[1], b[1], 1);
}

TEST(CubeTexture, AFileThatIsNoCubeIsRefusedWithAReason) {
    TQL::Handle<tex::CubeTexture> cube;
    std::wstring error;
    EXPECT_NE(tex::CubeTexture::load(L"/nonexistent/sky.png", nullptr, cube, error), status::ok);
    EXPECT_FALSE(cube);
    EXPECT_NE(error.find(L"could not be loaded"), std::wstring::npos);
    TQL::Handle<tex::RasterTexture> texture;
    EXPECT_NE(tex::RasterTexture::load(L"/nonexistent/paper.png", true, nullptr, texture, error),
              status::ok);
    EXPECT_FALSE(texture);
}

} // namespace
