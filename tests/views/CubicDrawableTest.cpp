#include "views/CubicDrawable.h"

#include "image/TileRowWriter.h"
#include "support/TestDocument.h"
#include "views/FaceDrawable.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <vector>

namespace {

ViewParams cubeRecord() {
    ViewParams v;
    v.viewCode = ViewParams::cubicCode;
    v.xAxis = {1, 0, 0};
    v.yAxis = {0, 1, 0};
    v.zAxis = {0, 0, 1};
    v.eye = {0, 0, 0};
    return v;
}

/// A cube document whose pixel colours come from `colour(x, y)`, read into a strip.
template <class F> CubeStrip makeStrip(std::int32_t n, F colour) {
    auto doc = test::makeTestDocument(6 * n, n);
    doc->setViewParams(cubeRecord());
    std::vector<std::uint8_t> row(std::size_t(6 * n) * 3);
    TileRowWriter writer(*doc->rgb);
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            const ColourPOD c = colour(x, y);
            row[std::size_t(x) * 3] = c.b;
            row[std::size_t(x) * 3 + 1] = c.g;
            row[std::size_t(x) * 3 + 2] = c.r;
        }
        writer.writeRow(0, y, row.data(), 6 * n);
    }
    CubeStrip strip;
    Status s = status::ok;
    CubeStrip::read(s, *doc, 1, strip);
    EXPECT_EQ(s, status::ok);
    return strip;
}

/// A colour that changes smoothly with the direction a pixel stands for.
ColourPOD smoothColour(const Vector<3>& d) {
    const Vector<3> u = d * (1.0 / d.length());
    const auto byte = [](double v) { return std::uint8_t(std::lround(128 + 120 * v)); };
    return {byte(u.z()), byte(u.y()), byte(u.x())};
}

ColourPOD distinctColour(std::int32_t x, std::int32_t y) {
    return {std::uint8_t(x * 5 + y), std::uint8_t(y * 11 + x / 7), std::uint8_t(x ^ (y * 3))};
}

/// Looking at the centre of each face: pan and tilt.
constexpr double faceAngles[6][2] = {{0, 0}, {90, 0}, {180, 0}, {270, 0}, {0, 90}, {0, -90}};

TEST(CubicDrawable, ViewStraightAtEachFaceShowsItsCentrePixel) {
    const std::int32_t n = 33; // an odd face has a centre pixel
    const CubeStrip strip = makeStrip(n, distinctColour);
    for (int f = 0; f < 6; ++f) {
        const CubicDrawable view(n, 21, 15, {faceAngles[f][0], faceAngles[f][1], 60});
        int face = -1;
        const Point<2> p = view.stripPoint(10, 7, &face);
        EXPECT_EQ(face, f);
        EXPECT_NEAR(p.x(), f * n + 16, 1e-9) << "face " << f;
        EXPECT_NEAR(p.y(), 16, 1e-9) << "face " << f;
        std::vector<std::uint8_t> row(21 * 3);
        view.drawRow(strip, 7, row.data());
        const ColourPOD expected = strip.pixel(f * n + 16, 16);
        EXPECT_EQ(row[30], expected.b) << "face " << f;
        EXPECT_EQ(row[31], expected.g) << "face " << f;
        EXPECT_EQ(row[32], expected.r) << "face " << f;
    }
}

TEST(CubicDrawable, FaceTransformsAgreeWithTheCubeCameraAndInvert) {
    const std::int32_t n = 40;
    const ViewProj proj(cubeRecord(), 6 * n, n);
    const PanoramaAngles views[] = {{30, 20, 90}, {135, -50, 70}, {250, 80, 110}, {5, -50, 40}};
    for (const PanoramaAngles& a : views) {
        const CubicDrawable view(n, 64, 48, a);
        std::set<int> faces;
        for (int vy = 0; vy < 48; vy += 5) {
            for (int vx = 0; vx < 64; vx += 7) {
                int face = 0;
                const Point<2> p = view.stripPoint(vx, vy, &face);
                faces.insert(face);
                const Vector<3> d = view.direction(vx, vy);
                const Point<3> expected = proj.pixelFromHomogeneous(Point<3>(d.x(), d.y(), d.z()));
                ASSERT_NEAR(p.x(), expected.x(), 1e-6) << vx << "," << vy;
                ASSERT_NEAR(p.y(), expected.y(), 1e-6) << vx << "," << vy;
                Point<2> back;
                ASSERT_TRUE(view.viewPoint(p.x(), p.y(), back));
                EXPECT_NEAR(back.x(), vx, 1e-6);
                EXPECT_NEAR(back.y(), vy, 1e-6);
            }
        }
        EXPECT_GE(faces.size(), 2u) << "each of these views spans a face edge";
    }
    // A point behind the camera has no view point.
    const CubicDrawable front(n, 64, 48, {0, 0, 90});
    Point<2> out;
    EXPECT_FALSE(front.viewPoint(2 * n + n / 2, n / 2, out));
}

TEST(CubicDrawable, ViewsAcrossEdgesAndCornersShowNoSeam) {
    const std::int32_t n = 64;
    const ViewProj proj(cubeRecord(), 6 * n, n);
    const CubeStrip strip = makeStrip(
        n, [&](std::int32_t x, std::int32_t y) { return smoothColour(proj.pixelDirection(x, y)); });
    // Across the edges 0|1, 3|0 (the strip's wrap), 0|4, 2|5 and the corner of 1, 2 and 4.
    const PanoramaAngles views[] = {
        {45, 0, 60}, {315, 0, 60}, {0, 45, 60}, {180, -45, 60}, {135, 35, 60}};
    const std::int32_t w = 48, h = 36;
    for (const PanoramaAngles& a : views) {
        const CubicDrawable view(n, w, h, a);
        std::vector<std::uint8_t> row(std::size_t(w) * 3), above(row.size());
        std::vector<int> facesAbove(std::size_t(w), -1);
        int edgesSeen = 0;
        for (std::int32_t y = 0; y < h; ++y) {
            view.drawRow(strip, y, row.data());
            for (std::int32_t x = 0; x < w; ++x) {
                const ColourPOD expected = smoothColour(view.direction(x, y));
                const std::uint8_t* p = &row[std::size_t(x) * 3];
                ASSERT_NEAR(p[0], expected.b, 2)
                    << a.pan << "/" << a.tilt << " at " << x << "," << y;
                ASSERT_NEAR(p[1], expected.g, 2)
                    << a.pan << "/" << a.tilt << " at " << x << "," << y;
                ASSERT_NEAR(p[2], expected.r, 2)
                    << a.pan << "/" << a.tilt << " at " << x << "," << y;
                int face = 0, leftFace = 0;
                view.stripPoint(x, y, &face);
                view.stripPoint(x - 1, y, &leftFace);
                // Where the face changes from the pixel to the left or above, the two
                // pixels on either side of the edge are neighbours in colour too.
                if (x > 0 && face != leftFace) {
                    ++edgesSeen;
                    for (int c = 0; c < 3; ++c) {
                        EXPECT_LE(std::abs(int(p[c]) - int(p[c - 3])), 4);
                    }
                }
                if (y > 0 && face != facesAbove[std::size_t(x)]) {
                    ++edgesSeen;
                    for (int c = 0; c < 3; ++c) {
                        EXPECT_LE(std::abs(int(p[c]) - int(above[std::size_t(x) * 3 + c])), 4);
                    }
                }
                facesAbove[std::size_t(x)] = face;
            }
            above = row;
        }
        EXPECT_GT(edgesSeen, 0) << a.pan << "/" << a.tilt;
    }
}

TEST(CubicDrawable, WheelChangesTheFieldOfViewWithinItsLimits) {
    EXPECT_NEAR(CubicDrawable::wheelFieldOfView(90, 120), 90 / 1.1, 1e-9);
    EXPECT_NEAR(CubicDrawable::wheelFieldOfView(90, -120), 99, 1e-9);
    EXPECT_EQ(CubicDrawable::wheelFieldOfView(90, 120 * 40), CubicDrawable::minFieldOfView);
    EXPECT_EQ(CubicDrawable::wheelFieldOfView(90, -120 * 40), CubicDrawable::maxFieldOfView);
    const PanoramaAngles a = CubicDrawable::normalised({-30, 120, 500});
    EXPECT_DOUBLE_EQ(a.pan, 330);
    EXPECT_DOUBLE_EQ(a.tilt, 90);
    EXPECT_DOUBLE_EQ(a.fieldOfView, CubicDrawable::maxFieldOfView);
}

TEST(FaceDrawable, TakesOneFaceOutAsItLiesInTheStrip) {
    const std::int32_t n = 9;
    const CubeStrip strip = makeStrip(n, distinctColour);
    std::vector<std::uint8_t> row(std::size_t(n) * 3);
    for (int f = 0; f < 6; ++f) {
        const FaceDrawable face(strip, f);
        ASSERT_EQ(face.size(), n);
        face.drawRow(4, row.data());
        for (std::int32_t x = 0; x < n; ++x) {
            EXPECT_EQ(row[std::size_t(x) * 3 + 2], distinctColour(f * n + x, 4).r);
        }
    }
}

TEST(CubeStrip, RefusesADocumentThatIsNotSixSquareFaces) {
    auto doc = test::makeTestDocument(100, 20);
    CubeStrip strip;
    Status s = status::ok;
    CubeStrip::read(s, *doc, 1, strip);
    EXPECT_EQ(s, status::noConversion);
}

} // namespace
