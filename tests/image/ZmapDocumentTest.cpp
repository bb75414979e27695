#include "image/TileRowWriter.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using test::TestDocument;

TEST(ZmapDocument, AllocateChannelsNeedsColour) {
    TestDocument doc;
    ASSERT_EQ(doc.setSize(100, 70), status::ok);
    EXPECT_EQ(doc.allocateChannels(), status::noImage);
    EXPECT_FALSE(doc.z);

    doc.rgb = TQL::makeHandle<RgbBitmap>(doc);
    ASSERT_EQ(doc.allocateChannels(), status::ok);
    for (const std::uint32_t id :
         {channelRgb, channelZ, channelMat, channelOriginalRgb, channelOriginalZ,
          channelOriginalMat, channelCutoutRgb, channelCutoutZ, channelCutoutMat,
          channelCutoutAlpha, channelShadowAlpha}) {
        const auto bitmap = doc.channel(id);
        ASSERT_TRUE(bitmap) << id;
        EXPECT_EQ(bitmap->geometry(), doc.geometry()) << id;
    }
    EXPECT_TRUE(doc.editor.strokeAlpha && doc.editor.wetAlpha && doc.editor.wetCache);
    EXPECT_EQ(doc.editor.document, &doc);
    EXPECT_EQ(doc.z->noDepthValue(), ZBitmap::noDepth);
    EXPECT_EQ(doc.cutoutZ->noDepthValue(), 0u);
    EXPECT_TRUE(doc.originalZ->overlaid() == doc.z);
    EXPECT_TRUE(doc.originalMat->overlaid() == doc.mat);
}

TEST(ZmapDocument, UnknownChannelsAreNull) {
    auto doc = test::makeTestDocument(10, 10);
    for (const std::uint32_t id : {0u, 3u, 64u, 4096u, 8192u, 16384u, 32768u, 65536u, 131072u}) {
        EXPECT_FALSE(doc->channel(id)) << id;
    }
}

TEST(ZmapDocument, OriginalsShareEveryTileAndCostNothing) {
    TestDocument doc;
    ASSERT_EQ(doc.setSize(100, 70), status::ok); // 2 x 2 tiles
    doc.rgb = TQL::makeHandle<RgbBitmap>(doc);
    TileRowWriter writer(*doc.rgb);
    const std::vector<std::uint8_t> row(100 * 3, 200);
    for (std::int32_t y = 0; y < 70; ++y) {
        writer.writeRow(0, y, row.data(), 100);
    }
    ASSERT_EQ(doc.allocateChannels(), status::ok);
    for (std::int32_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(doc.originalRgb->sharesTile(i, *doc.rgb)) << i;
    }

    // Bitmap structure: 4 tiles * 24 + 40 = 136; material adds 4, depth 8. Colour tiles:
    // 64 * 3 = 192 and 36 * 3 = 108 bytes a row, rows of 64 and 6.
    const std::int64_t colourTiles = (192 + 108) * 64 + (192 + 108) * 6;
    EXPECT_EQ(doc.channelMemory(memoryRgb), 136 + colourTiles);
    EXPECT_EQ(doc.channelMemory(memoryOriginalRgb), 136);
    EXPECT_EQ(doc.channelMemory(memoryZ), 144);
    EXPECT_EQ(doc.channelMemory(memoryOriginalZ), 144);
    EXPECT_EQ(doc.channelMemory(memoryMat), 140);
    EXPECT_EQ(doc.channelMemory(memoryOriginalMat), 140);
    // The undo store's one level: snapshots of colour, material and depth (no wet layer
    // yet), each 136 plus 8 for its handle to the live channel, and no tile of its own.
    EXPECT_EQ(doc.channelMemory(memoryUndoRgb), 3 * (136 + 8));
    EXPECT_EQ(doc.channelMemory(memoryCutoutZ), 144);
    EXPECT_EQ(doc.channelMemory(memoryShadowAlpha), 136);
    EXPECT_EQ(doc.channelMemory(3), 0);
    // Fourteen bitmaps of 136 (eleven channels, three work bitmaps), three depth extras of
    // 8, three material extras of 4, the undo store and the colour tiles.
    EXPECT_EQ(doc.memoryUsed(), 14 * 136 + 3 * 8 + 3 * 4 + 3 * (136 + 8) + colourTiles);

    // Writing colour privatises one tile: the original keeps the old one, now its own.
    TileHandle hold;
    *doc.rgbWrite(70, 65, hold) = ColourPOD{1, 2, 3};
    hold.reset();
    EXPECT_EQ(doc.channelMemory(memoryOriginalRgb), 136 + 108 * 6);
    EXPECT_EQ(doc.originalRgbAt(70, 65), (ColourPOD{200, 200, 200}));
    EXPECT_EQ(doc.rgbAt(70, 65), (ColourPOD{1, 2, 3}));

    // Committing makes the originals share again.
    doc.commitOriginals();
    EXPECT_EQ(doc.channelMemory(memoryOriginalRgb), 136);
    EXPECT_EQ(doc.originalRgbAt(70, 65), (ColourPOD{1, 2, 3}));
}

TEST(ZmapDocument, ExistingOriginalsKeepTheirTilesAndFillHoles) {
    TestDocument doc;
    ASSERT_EQ(doc.setSize(100, 70), status::ok);
    doc.rgb = TQL::makeHandle<RgbBitmap>(doc);
    doc.z = TQL::makeHandle<ZBitmap>(doc, ZBitmap::noDepth);
    doc.originalZ = TQL::makeHandle<ZBitmap>(doc, ZBitmap::noDepth);
    TileHandle hold;
    *doc.zWrite(1, 1, hold) = 10; // tile 0 of both differ
    *doc.originalZWrite(1, 1, hold) = 20;
    *doc.zWrite(70, 1, hold) = 30; // tile 1 only in z
    hold.reset();
    ASSERT_EQ(doc.allocateChannels(), status::ok);
    EXPECT_EQ(doc.originalZAt(1, 1), 20u);
    EXPECT_EQ(doc.originalZAt(70, 1), 30u);
    EXPECT_TRUE(doc.originalZ->sharesTile(1, *doc.z));
    EXPECT_FALSE(doc.originalZ->sharesTile(0, *doc.z));
}

TEST(ZmapDocument, ReadsOutsideTheImageGiveZero) {
    auto doc = test::makeTestDocument(100, 70);
    TileHandle hold;
    *doc->rgbWrite(0, 0, hold) = ColourPOD{5, 5, 5};
    *doc->matWrite(0, 0, hold) = 9;
    hold.reset();
    for (const auto& [x, y] : {std::pair{-1, 0}, {0, -1}, {100, 0}, {0, 70}, {INT32_MIN, 5}}) {
        SCOPED_TRACE(testing::Message() << x << "," << y);
        EXPECT_EQ(doc->rgbAt(x, y), ColourPOD{});
        EXPECT_EQ(doc->zAt(x, y), 0u);
        EXPECT_EQ(doc->matAt(x, y), 0);
        EXPECT_EQ(doc->cutoutZAt(x, y), 0u);
        EXPECT_EQ(doc->rgbWrite(x, y, hold), nullptr);
        EXPECT_EQ(doc->wetLayerWrite(x, y, hold), nullptr);
    }
    // Inside: unwritten depth is "no depth", the overlay's is 0.
    EXPECT_EQ(doc->zAt(50, 50), ZBitmap::noDepth);
    EXPECT_EQ(doc->cutoutZAt(50, 50), 0u);
    EXPECT_EQ(doc->matAt(0, 0), 9);

    // A document without channels reads zero and writes nothing.
    TestDocument empty;
    EXPECT_EQ(empty.zAt(0, 0), 0u);
    EXPECT_EQ(empty.rgbWrite(0, 0, hold), nullptr);
}

TEST(ZmapDocument, CachedReadsFollowTheTile) {
    auto doc = test::makeTestDocument(150, 100);
    TileHandle hold;
    for (std::int32_t x = 0; x < 150; ++x) {
        *doc->zWrite(x, 3, hold) = static_cast<std::uint32_t>(x * 7);
    }
    hold.reset();
    std::int32_t index = -1;
    for (std::int32_t x = 0; x < 150; ++x) {
        ASSERT_EQ(doc->zAtCached(x, 3, hold, index), static_cast<std::uint32_t>(x * 7));
        ASSERT_EQ(index, x / 64);
    }
    EXPECT_EQ(doc->zAtCached(200, 3, hold, index), 0u);
    EXPECT_EQ(doc->zAtCached(10, 90, hold, index), ZBitmap::noDepth); // empty tile 3
    EXPECT_EQ(index, 3);
}

TEST(ZmapDocument, PasteCentredClipsOnAllSides) {
    struct Case {
        const char* what;
        std::int32_t w, h;
        std::int32_t left, top; // where source pixel (0, 0) lands
    };
    // A 10 x 8 image: a 4 x 2 source lands at ((10 - 4) / 2, (8 - 2) / 2) = (3, 3); a 14 x 12
    // source at (-2, -2), clipped.
    const Case cases[] = {
        {"smaller", 4, 2, 3, 3}, {"larger", 14, 12, -2, -2}, {"wider", 13, 2, -1, 3}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto doc = test::makeTestDocument(10, 8);
        std::vector<std::uint8_t> source(static_cast<std::size_t>(c.w) * c.h * 3);
        for (std::int32_t y = 0; y < c.h; ++y) {
            for (std::int32_t x = 0; x < c.w; ++x) {
                std::uint8_t* p = &source[(static_cast<std::size_t>(y) * c.w + x) * 3];
                p[0] = static_cast<std::uint8_t>(x + 1);
                p[1] = static_cast<std::uint8_t>(y + 1);
                p[2] = 99;
            }
        }
        Status s = -1;
        doc->pasteCentred(s, RgbImage{c.w, c.h, source.data(), c.w * 3});
        ASSERT_EQ(s, status::ok);
        for (std::int32_t y = 0; y < 8; ++y) {
            for (std::int32_t x = 0; x < 10; ++x) {
                const std::int32_t sx = x - c.left;
                const std::int32_t sy = y - c.top;
                const bool inside = sx >= 0 && sy >= 0 && sx < c.w && sy < c.h;
                const ColourPOD want = inside ? ColourPOD{static_cast<std::uint8_t>(sx + 1),
                                                          static_cast<std::uint8_t>(sy + 1), 99}
                                              : ColourPOD{};
                ASSERT_EQ(doc->rgbAt(x, y), want) << x << "," << y;
            }
        }
        // Only colour was written.
        EXPECT_EQ(doc->z->nonEmptyTiles(), 0);
        EXPECT_EQ(doc->originalRgb->nonEmptyTiles(), 0);
    }
    TestDocument none;
    Status s = status::ok;
    none.pasteCentred(s, RgbImage{});
    EXPECT_EQ(s, status::noImage);
}

TEST(ZmapDocument, NewSizeReleasesChannelsAndClearEmptiesAll) {
    auto doc = test::makeTestDocument(100, 70);
    doc->description = L"a view";
    doc->readOnly = 1;
    doc->fromFile = 1;
    doc->addMaterial(L"Wall", ColourPOD{1, 1, 1}, false);
    ASSERT_EQ(doc->setSize(100, 70), status::ok); // same size: nothing happens
    EXPECT_TRUE(doc->rgb);
    ASSERT_EQ(doc->setSize(120, 70), status::ok);
    EXPECT_FALSE(doc->rgb);
    EXPECT_FALSE(doc->editor.strokeAlpha);
    EXPECT_EQ(doc->geometry().tilesAcross, 2);
    EXPECT_EQ(doc->setSize(INT32_MAX, INT32_MAX), status::outOfMemory);
    EXPECT_EQ(doc->width(), 120);

    doc->clearDocument();
    EXPECT_TRUE(doc->description.empty());
    EXPECT_EQ(doc->readOnly, 0);
    EXPECT_EQ(doc->fromFile, 0);
    EXPECT_TRUE(doc->materials().empty());
    EXPECT_EQ(doc->materialColour(1), ColourPOD{});
}

TEST(ZmapDocument, SerialsCountConstructions) {
    TestDocument a;
    TestDocument b;
    EXPECT_EQ(b.serial(), a.serial() + 1);
    EXPECT_GT(a.serial(), 0);
}

} // namespace
