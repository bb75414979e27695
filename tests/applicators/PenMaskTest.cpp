// The radial profiles, flat masks against the profile they sample, their distances, and a
// surface mask on the receding floor of a rendered room against what the camera predicts.

#include "applicators/MaskProfile.h"
#include "applicators/PenMask2d.h"
#include "applicators/PenMask3d.h"

#include "support/RoomScene.h"
#include "support/TestDocument.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

using test::RoomScene;

TEST(MaskProfile, EndsAndHardnessLimits) {
    // Soft: the peak at the centre, 0 at the rim; hardness 0.5 or less is the plain bell,
    // hardness 1 a hard-edged disc.
    SoftMaskProfile soft(1.0);
    EXPECT_DOUBLE_EQ(soft.hardnessFor(0.3), 1.0);
    EXPECT_DOUBLE_EQ(soft.hardnessFor(0.5), 1.0);
    EXPECT_DOUBLE_EQ(soft.hardnessFor(1.0), 0.0);
    EXPECT_FLOAT_EQ(soft.value(0), 1.0f);
    EXPECT_FLOAT_EQ(soft.value(1), 0.0f);
    EXPECT_NEAR(soft.value(0.5), 0.5, 1e-6);
    auto hard = MaskProfile::make(MaskProfile::soft, 1.0);
    EXPECT_FLOAT_EQ(hard->value(0.999), 1.0f);
    EXPECT_FLOAT_EQ(hard->value(1.0), 0.0f);
    // A hardness between is the exponent that keeps the curve at h where r = h.
    auto mid = MaskProfile::make(MaskProfile::soft, 0.8);
    EXPECT_NEAR(mid->value(0.8), 0.8, 1e-6);

    NegInvSoftMaskProfile negInv(1.0);
    EXPECT_DOUBLE_EQ(negInv.hardnessFor(0.7), 1.0);
    EXPECT_DOUBLE_EQ(negInv.hardnessFor(0.0), 0.0);
    EXPECT_FLOAT_EQ(negInv.value(0), 1.0f);
    EXPECT_FLOAT_EQ(negInv.value(1), 0.0f);
    // The mirror image of the soft curve about its middle.
    const SoftMaskProfile soft2(2.0);
    const NegInvSoftMaskProfile negInv2(2.0);
    for (double r : {0.1, 0.3, 0.8}) {
        EXPECT_NEAR(negInv2.value(r), 1.0 - soft2.value(1.0 - r), 1e-6) << r;
    }

    PlateauMaskProfile plateau(1.0);
    EXPECT_FLOAT_EQ(plateau.value(0.0), 1.0f);
    EXPECT_FLOAT_EQ(plateau.value(0.99), 1.0f);
    EXPECT_FLOAT_EQ(plateau.value(1.0), 0.0f);
    PlateauMaskProfile ramp(-0.5); // the absolute value is taken
    EXPECT_DOUBLE_EQ(ramp.shape, 0.5);
    EXPECT_FLOAT_EQ(ramp.value(0.25), 1.0f);
    EXPECT_NEAR(ramp.value(0.75), 0.5, 1e-6);
    EXPECT_DOUBLE_EQ(plateau.hardnessFor(0.8), 1.0 / 0.8 - 1.0);
}

TEST(MaskProfile, PressureLevelsLowerThePeakOrSoftenTheCurve) {
    SoftMaskProfile soft(0.0); // a hard disc
    soft.levelChangesShape = true;
    soft.levelChangesPeak = true;
    soft.setLevel(0.5f);
    EXPECT_NEAR(soft.peak, 1.0, 1e-6);   // exponent 0: the peak formula gives 1
    EXPECT_NEAR(soft.shape, 0.5, 1e-12); // softened halfway to the plain bell
    soft.setLevel(0.0f);
    EXPECT_FLOAT_EQ(soft.value(0), 0.0f);
    soft.setLevel(1.0f);
    EXPECT_FLOAT_EQ(soft.peak, 1.0f);
    EXPECT_DOUBLE_EQ(soft.shape, 0.0);

    PlateauMaskProfile plateau(0.6);
    plateau.setLevel(0.5f);
    EXPECT_FLOAT_EQ(plateau.peak, 0.5f);
    EXPECT_DOUBLE_EQ(plateau.shape, 0.3);
    auto copy = plateau.clone();
    EXPECT_FLOAT_EQ(copy->value(0.1), 0.5f);
}

/// The mask value the profile gives at an image offset, worked out independently of the
/// mask: offsets turned back by the angle and scaled by the radii.
float expected(const MaskProfile& profile, double dx, double dy, double rx, double ry, double angle,
               bool round) {
    const double u = (std::cos(angle) * dx + std::sin(angle) * dy) / rx;
    const double v = (-std::sin(angle) * dx + std::cos(angle) * dy) / ry;
    return profile.value(round ? std::hypot(u, v) : std::max(std::fabs(u), std::fabs(v)));
}

TEST(PenMask2d, CellsSampleTheProfile) {
    struct Case {
        double size, aspect, degrees;
        bool round;
    };
    for (const Case c : {Case{8, 1, 0, true}, Case{10, 0.5, 30, true}, Case{7, 1, 0, false},
                         Case{9, 0.6, -40, false}}) {
        auto profile = MaskProfile::make(MaskProfile::soft, 0.7);
        const SoftMaskProfile reference(profile->shape);
        PenMask2d mask(c.size, c.aspect, Angle::degrees(c.degrees), std::move(profile), c.round,
                       false);
        const IPoint<2> hook = mask.hook();
        EXPECT_EQ(hook.x * 2 + 1, mask.gridWidth());
        const double ry = std::rint(c.size * c.aspect);
        for (const auto& [dx, dy] : {std::pair{0, 0}, {3, 0}, {0, -2}, {5, 4}, {-6, 1}, {2, -7}}) {
            EXPECT_NEAR(mask.cell(hook.x + dx, hook.y + dy),
                        expected(reference, dx, dy, c.size, ry, c.degrees * std::numbers::pi / 180,
                                 c.round),
                        1e-5)
                << c.size << " " << c.degrees << " at " << dx << "," << dy;
        }
        EXPECT_FLOAT_EQ(mask.cell(-1, hook.y), 0.0f);
    }
}

TEST(PenMask2d, DistanceIsInUnitsOfTheRadius) {
    auto document = test::makeTestDocument(64, 64);
    PenMask2d round(8, 1, Angle(), MaskProfile::make(0, 0.5), true, false);
    EXPECT_DOUBLE_EQ(round.distance({10, 10}, {18, 10}, *document), 1.0);
    EXPECT_DOUBLE_EQ(round.distance({10, 10}, {16, 18}, *document), 1.25);
    EXPECT_NEAR(round.distance({0, 0}, {8, 8}, *document), std::sqrt(2.0), 1e-12);
    PenMask2d square(8, 1, Angle(), MaskProfile::make(0, 0.5), false, false);
    EXPECT_DOUBLE_EQ(square.distance({0, 0}, {8, 8}, *document), 1.0);
    EXPECT_DOUBLE_EQ(square.distance({0, 0}, {-4, 2}, *document), 0.5);
    // An oblong dab turned a quarter: its short radius now lies along x.
    PenMask2d oblong(8, 0.5, Angle::degrees(90), MaskProfile::make(0, 0.5), true, false);
    EXPECT_NEAR(oblong.distance({0, 0}, {4, 0}, *document), 1.0, 1e-12);
    EXPECT_NEAR(oblong.distance({0, 0}, {0, 8}, *document), 1.0, 1e-12);
}

TEST(PenMask2d, RowsAndFootprintsAreClippedToTheGridAndImage) {
    auto document = test::makeTestDocument(40, 30);
    PenMask2d mask(4, 1, Angle(), MaskProfile::make(0, 1.0), true, false);
    std::vector<IExtent<2>> extents;
    mask.footprint(extents, {2, 28}, *document);
    ASSERT_EQ(extents.size(), 1u);
    EXPECT_EQ(extents[0], IExtent<2>(0, 24, 6, 29));
    mask.footprint(extents, {-20, 5}, *document);
    EXPECT_TRUE(extents.empty());

    mask.footprint(extents, {20, 15}, *document);
    std::vector<float> row(30, 0.5f);
    mask.multiplyRow(5, 15, row.data(), 0, 30); // pixels 5..34 of the centre row
    for (int i = 0; i < 30; ++i) {
        const int dx = 5 + i - 20;
        EXPECT_FLOAT_EQ(row[i], std::abs(dx) < 4 ? 0.5f : 0.0f) << dx;
    }
    std::vector<float> above(30, 1.0f);
    mask.multiplyRow(5, 10, above.data(), 0, 30); // a row above the grid
    for (float v : above) {
        EXPECT_EQ(v, 0.0f);
    }
}

TEST(PenMask2d, PictureMaskCarriesItsColour) {
    MaskPicture picture;
    picture.width = 4;
    picture.height = 2;
    picture.coverage.assign(8, 1.0f);
    picture.colour.assign(8, ColourPOD{0, 0, 200});
    for (int y = 0; y < 2; ++y) {
        picture.colour[static_cast<std::size_t>(y) * 4 + 3] = ColourPOD{200, 0, 0};
    }
    PenMask2d mask(8, 1, Angle(), MaskProfile::make(0, 1.0), picture, false);
    EXPECT_TRUE(mask.hasColour());
    EXPECT_GT(mask.gridWidth(), mask.gridHeight()); // a wide picture makes a wide dab
    auto document = test::makeTestDocument(64, 64);
    std::vector<IExtent<2>> extents;
    mask.footprint(extents, {32, 32}, *document);
    std::vector<ColourPOD> colours(20);
    mask.colourRow(22, 32, colours.data(), 0, 20);
    EXPECT_EQ(colours[4].r, 200);  // left part: red
    EXPECT_EQ(colours[17].b, 200); // right quarter: blue
}

/// Pixels that a surface dab at p covers with any coverage.
std::int64_t coveredPixels(PenMask3d& mask, ZmapDocument& document, IPoint<2> p) {
    std::vector<IExtent<2>> extents;
    mask.footprint(extents, p, document);
    std::int64_t count = 0;
    for (const IExtent<2>& e : extents) {
        std::vector<float> row(static_cast<std::size_t>(e.width()));
        for (std::int32_t y = e.lo().y; y <= e.hi().y; ++y) {
            std::fill(row.begin(), row.end(), 1.0f);
            mask.multiplyRow(e.lo().x, y, row.data(), 0, static_cast<std::int32_t>(row.size()));
            for (float v : row) {
                count += v > 0;
            }
        }
    }
    return count;
}

/// The image area of the dab's disc as the camera projects it: a polygon of its rim.
double projectedArea(const PenMask3d& mask, const ViewProj& view, double radius) {
    std::vector<Point<3>> rim;
    for (int k = 0; k < 128; ++k) {
        const double a = 2 * std::numbers::pi * k / 128;
        rim.push_back(view.pixelFromWorld(mask.centre() + mask.axisU() * (radius * std::cos(a)) +
                                          mask.axisV() * (radius * std::sin(a))));
    }
    double twice = 0;
    for (std::size_t k = 0; k < rim.size(); ++k) {
        const Point<3>& a = rim[k];
        const Point<3>& b = rim[(k + 1) % rim.size()];
        twice += a.x() * b.y() - b.x() * a.y();
    }
    return std::fabs(twice) * 0.5;
}

TEST(PenMask3d, DabOnARecedingFloorShrinksAsTheCameraPredicts) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 256, 192);
    ZmapDocument& document = *room.document;
    const double radius = 0.4;
    PenMask3d mask(radius, 1.0, Angle(), MaskProfile::make(MaskProfile::soft, 1.0), true, false);
    mask.prepare(document);
    const IPoint<2> nearPixel{190, 160};
    const IPoint<2> farPixel{190, 130};
    ASSERT_EQ(room.pieceAt(nearPixel.x, nearPixel.y), RoomScene::floorPiece);
    ASSERT_EQ(room.pieceAt(farPixel.x, farPixel.y), RoomScene::floorPiece);

    const std::int64_t nearCount = coveredPixels(mask, document, nearPixel);
    const double nearArea = projectedArea(mask, *document.viewProj(), radius);
    // The dab lies on the floor: its axes are level.
    EXPECT_NEAR(mask.axisU().z(), 0.0, 1e-6);
    EXPECT_NEAR(mask.axisV().z(), 0.0, 1e-6);
    const std::int64_t farCount = coveredPixels(mask, document, farPixel);
    const double farArea = projectedArea(mask, *document.viewProj(), radius);

    EXPECT_GT(farCount, 50);
    EXPECT_LT(farCount, nearCount);
    const double measured = double(nearCount) / farCount;
    const double predicted = nearArea / farArea;
    EXPECT_NEAR(measured / predicted, 1.0, 0.1)
        << nearCount << " " << farCount << " " << nearArea << " " << farArea;

    // Distances are in units of the dab's radius, measured on the floor.
    const Point<3> a = document.worldAt(farPixel.x, farPixel.y);
    const Point<3> b = document.worldAt(nearPixel.x, nearPixel.y);
    const double along = (b - a).length() / radius;
    EXPECT_NEAR(mask.distance(farPixel, nearPixel, document), along, 0.02 * along);
}

} // namespace
