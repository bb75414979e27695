// The locks on their own: what start takes, the states, the plane a stroke follows, and the
// runs that the flood fill asks for, against a brute-force look at each pixel.

#include "pipeline/Matte.h"

#include "image/UndoBuffer.h"

#include "support/RoomScene.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using test::RoomScene;

TQL::Handle<Matte> makeMatte(const MatteSettings& s, std::uint32_t mask) {
    return TQL::makeHandle<Matte>(
        s, (mask & Matte::lockPlaneBit) != 0, (mask & Matte::lockAngleBit) != 0,
        (mask & Matte::lockMaterialBit) != 0, (mask & Matte::lockColourBit) != 0);
}

/// A document whose material runs in stripes of varying length across tile borders.
std::unique_ptr<test::TestDocument> stripes() {
    auto document = test::makeTestDocument(300, 20);
    TileHandle hold;
    for (std::int32_t y = 0; y < 20; ++y) {
        for (std::int32_t x = 0; x < 300; ++x) {
            // Material 1 on columns whose band of 37 (shifted by the row) is even.
            *document->matWrite(x, y, hold) = ((x + 5 * y) / 37) % 2 == 0 ? 1 : 2;
        }
    }
    hold.reset();
    document->commitOriginals();
    return document;
}

TEST(Matte, StatesFollowTheLocksAndTheList) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 64, 48);
    MatteSettings s;
    auto none = makeMatte(s, 0);
    none->start(10, 40, *room.document);
    EXPECT_EQ(none->state(), Matte::passAll);

    auto material = makeMatte(s, Matte::lockMaterialBit);
    material->start(10, 40, *room.document);
    EXPECT_EQ(material->state(), Matte::testEach);
    EXPECT_EQ(material->material(), room.document->matAt(10, 40));

    s.materialListMode = true;
    s.materialNames = {L"Nowhere"};
    auto empty = makeMatte(s, Matte::lockMaterialBit);
    empty->start(10, 40, *room.document);
    EXPECT_EQ(empty->state(), Matte::passNone);
    std::vector<float> mask(8, 1.0f);
    Span span;
    span.document = room.document.get();
    span.alpha = mask.data();
    empty->run(span, 2, 6);
    EXPECT_EQ(mask, (std::vector<float>{1, 1, 0, 0, 0, 0, 1, 1}));

    // Inverted, a list of every material and the background leaves nothing either; one
    // short of that leaves something.
    s.invert = true;
    s.materialNames = {L"Floor", L"wall", L"SIDE", L"Box"};
    s.includeBackground = true;
    auto all = makeMatte(s, Matte::lockMaterialBit);
    all->start(0, 0, *room.document);
    EXPECT_EQ(all->state(), Matte::passNone);
    EXPECT_EQ(all->materialIds().size(), 5u);
    s.includeBackground = false;
    auto most = makeMatte(s, Matte::lockMaterialBit);
    most->start(0, 0, *room.document);
    EXPECT_EQ(most->state(), Matte::testEach);
}

TEST(Matte, LockPlaneGivesTheStartPlaneUnlessInverted) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 96, 72);
    MatteSettings s;
    auto plane = makeMatte(s, Matte::lockPlaneBit);
    plane->start(48, 65, *room.document);
    Plane p;
    ASSERT_TRUE(plane->lockPlane(p));
    EXPECT_NEAR(std::fabs(p.normal().z()), 1.0, 1e-6); // the floor
    EXPECT_NEAR(p.distanceFromOrigin(), 0.0, 1e-6);

    s.invert = true;
    auto inverted = makeMatte(s, Matte::lockPlaneBit);
    inverted->start(48, 65, *room.document);
    Plane untouched = Plane::fromNormalDistance(Vector<3>(1, 0, 0), 7);
    EXPECT_TRUE(inverted->lockPlane(untouched));
    EXPECT_EQ(untouched.distanceFromOrigin(), 7);

    auto material = makeMatte(MatteSettings(), Matte::lockMaterialBit);
    material->start(48, 65, *room.document);
    EXPECT_FALSE(material->lockPlane(untouched));
}

TEST(Matte, TolerancesAsStored) {
    MatteSettings s;
    s.planeTolerancePercent = 7;
    s.angleDegrees = 30;
    s.hueToleranceDegrees = 0;
    auto m = makeMatte(s, Matte::lockPlaneBit | Matte::lockColourBit);
    EXPECT_DOUBLE_EQ(m->planeTolerance(), 0.07);
    EXPECT_NEAR(m->angleSine(), 0.5, 1e-12);
    EXPECT_GT(m->hueTolerance(), 0.0);
    EXPECT_EQ(makeMatte(s, Matte::lockColourBit)->planeTolerance(), 0.0);

    // The channel ranges are clamped to the byte.
    auto document = test::makeTestDocument(8, 8);
    TileHandle hold;
    *document->rgbWrite(3, 3, hold) = ColourPOD{250, 5, 100};
    hold.reset();
    document->commitOriginals();
    s.colourTolerance = 10;
    s.channelOn[0] = false; // red
    auto colour = makeMatte(s, Matte::lockColourBit);
    colour->start(3, 3, *document);
    EXPECT_EQ(colour->rangeLow(), (ColourPOD{240, 0, 0}));
    EXPECT_EQ(colour->rangeHigh(), (ColourPOD{255, 15, 255}));
}

TEST(Matte, FindRunAndExtendRunAgreeWithEachPixel) {
    auto document = stripes();
    for (bool invert : {false, true}) {
        MatteSettings s;
        s.invert = invert;
        auto m = makeMatte(s, Matte::lockMaterialBit);
        m->start(0, 0, *document); // material 1
        for (std::int32_t y = 0; y < 20; ++y) {
            auto pass = [&](std::int32_t x) { return (document->matAt(x, y) == 1) != invert; };
            for (std::int32_t from = 0; from < 300; from += 11) {
                const std::int32_t to = std::min(from + 50, 300);
                std::int32_t a = from, b = to;
                std::int32_t first = from;
                while (first < to && !pass(first)) {
                    ++first;
                }
                const bool found = m->findRun(a, b, y, *document);
                ASSERT_EQ(found, first < to) << y << " from " << from;
                if (!found) {
                    continue;
                }
                std::int32_t lo = first, hi = first;
                while (lo > 0 && pass(lo - 1)) {
                    --lo;
                }
                while (hi < 299 && pass(hi + 1)) {
                    ++hi;
                }
                EXPECT_EQ(a, lo) << y << " from " << from;
                EXPECT_EQ(b, hi) << y << " from " << from;
                for (std::int32_t x = a; x <= b; ++x) {
                    EXPECT_TRUE(m->passes(x, y, *document));
                }
            }
        }
    }
}

TEST(Matte, RunLowersTheMaskOnlyWhereAPixelFails) {
    auto document = stripes();
    auto m = makeMatte(MatteSettings(), Matte::lockMaterialBit);
    m->start(0, 0, *document);
    // One tile run of row 3, through the span the pipeline hands over.
    std::vector<std::uint16_t> materials(64);
    std::vector<float> mask(64, 0.5f);
    for (int i = 0; i < 64; ++i) {
        materials[i] = document->matAt(64 + i, 3);
    }
    Span span;
    span.document = document.get();
    span.x = 64;
    span.y = 3;
    span.length = 64;
    span.baseMaterial = materials.data();
    span.alpha = mask.data();
    m->run(span, 4, 60);
    for (int i = 0; i < 64; ++i) {
        const bool inRange = i >= 4 && i < 60;
        EXPECT_EQ(mask[i], inRange && materials[i] != 1 ? 0.0f : 0.5f) << i;
    }
}

} // namespace

namespace {

TEST(Matte, UseOriginalTestsTheChannelsAsTheyCameFromTheModel) {
    auto document = stripes();
    // The image as it is now: material 3 over columns 0 to 99 of every row; the originals
    // keep the stripes.
    TileHandle hold;
    for (std::int32_t y = 0; y < 20; ++y) {
        for (std::int32_t x = 0; x < 100; ++x) {
            *document->matWrite(x, y, hold) = 3;
        }
    }
    hold.reset();
    Status s = status::ok;
    document->editor.undoBuffer->restart(s, 0);
    ASSERT_EQ(s, status::ok);

    MatteSettings settings;
    auto present = makeMatte(settings, Matte::lockMaterialBit);
    present->start(10, 0, *document);
    EXPECT_EQ(present->material(), 3);
    settings.useOriginal = true;
    auto original = makeMatte(settings, Matte::lockMaterialBit);
    original->start(10, 0, *document);
    EXPECT_EQ(original->material(), 1);
    for (std::int32_t x = 0; x < 300; ++x) {
        EXPECT_EQ(present->passes(x, 5, *document), x < 100) << x;
        EXPECT_EQ(original->passes(x, 5, *document), document->originalMatAt(x, 5) == 1) << x;
    }
}

} // namespace
