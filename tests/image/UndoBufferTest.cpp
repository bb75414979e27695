#include "image/UndoBuffer.h"
#include "image/TileRowWriter.h"
#include "support/RecordingViews.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

using test::TestDocument;

/// Every pixel of a channel, row by row (unwritten pixels read as the empty value).
template <class T> std::vector<T> pixelsOf(const TileBitmap& bitmap) {
    const TileGeometry& g = bitmap.geometry();
    std::vector<T> out(static_cast<std::size_t>(g.width) * g.height);
    for (std::int32_t y = 0; y < g.height; ++y) {
        for (std::int32_t x = 0; x < g.width;) {
            TileHandle hold;
            const std::uint8_t* run = nullptr;
            const std::int32_t n = bitmap.runForRead(x, y, hold, &run);
            std::memcpy(&out[static_cast<std::size_t>(y) * g.width + x], run,
                        static_cast<std::size_t>(n) * sizeof(T));
            x += n;
        }
    }
    return out;
}

/// The three main channels of an image, as plain arrays.
struct Image {
    std::vector<ColourPOD> rgb;
    std::vector<std::uint32_t> z;
    std::vector<MaterialId> mat;
    bool operator==(const Image&) const = default;
};

Image liveImage(const ZmapDocument& doc) {
    return {pixelsOf<ColourPOD>(*doc.rgb), pixelsOf<std::uint32_t>(*doc.z),
            pixelsOf<MaterialId>(*doc.mat)};
}

Image currentLevelImage(const UndoBuffer& undo) {
    return {pixelsOf<ColourPOD>(*undo.currentRgb()), pixelsOf<std::uint32_t>(*undo.currentZ()),
            pixelsOf<MaterialId>(*undo.currentMat())};
}

/// Fills every pixel of the colour channel with one colour, a tile row at a time.
void fillColour(ZmapDocument& doc, ColourPOD colour) {
    TileRowWriter writer(*doc.rgb);
    for (std::int32_t y = 0; y < doc.height(); ++y) {
        for (std::int32_t x = 0; x < doc.width();) {
            std::int32_t count = 0;
            auto* run = reinterpret_cast<ColourPOD*>(writer.run(x, y, count));
            std::fill(run, run + count, colour);
            x += count;
        }
    }
}

void setRgb(ZmapDocument& doc, std::int32_t x, std::int32_t y, ColourPOD c) {
    TileHandle hold;
    *doc.rgbWrite(x, y, hold) = c;
}

void push(ZmapDocument& doc, std::int32_t description = 0) {
    Status s = -1;
    doc.editor.undoBuffer->pushLevel(s, description);
    ASSERT_EQ(s, status::ok);
}

void undo(ZmapDocument& doc) {
    Status s = -1;
    doc.editor.undoBuffer->undo(s);
    ASSERT_EQ(s, status::ok);
}

void redo(ZmapDocument& doc) {
    Status s = -1;
    doc.editor.undoBuffer->redo(s);
    ASSERT_EQ(s, status::ok);
}

/// How many levels the store holds: undo to the bottom, count, redo back.
int levelCount(ZmapDocument& doc) {
    UndoBuffer& store = *doc.editor.undoBuffer;
    int below = 0;
    while (store.canUndo()) {
        undo(doc);
        ++below;
    }
    for (int i = 0; i < below; ++i) {
        redo(doc);
    }
    return below + 1 + store.redoCount();
}

// The store against a model that keeps every level as whole pixel arrays: random writes to
// the three channels, actions closed with pushLevel, undo, redo and saves, with every pixel
// of the live channels and of the current level compared after each step.
TEST(UndoBuffer, RandomSequencesMatchAModelOfWholeImages) {
    std::mt19937 random(20240611);
    auto pick = [&random](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    constexpr std::int32_t width = 130; // three columns and two rows of 64-pixel tiles
    constexpr std::int32_t height = 70;

    for (int sequence = 0; sequence < 1000; ++sequence) {
        auto doc = test::makeTestDocument(width, height);
        UndoBuffer& store = *doc->editor.undoBuffer;
        Image live = liveImage(*doc);
        std::vector<Image> levels{live};
        std::vector<std::int32_t> descriptions{0};
        int current = 0;
        int saved = 0; // a fresh store counts its first level as saved
        const int steps = 1 + pick(40);
        for (int step = 0; step < steps; ++step) {
            const int op = pick(20);
            if (op < 8) { // write a rectangle of one channel, which may cross tiles
                const std::int32_t x0 = pick(width), y0 = pick(height);
                const std::int32_t x1 = std::min(width, x0 + 1 + pick(24));
                const std::int32_t y1 = std::min(height, y0 + 1 + pick(24));
                const int channel = pick(3);
                const auto value = static_cast<std::uint32_t>(random());
                for (std::int32_t y = y0; y < y1; ++y) {
                    for (std::int32_t x = x0; x < x1; ++x) {
                        const std::size_t i = static_cast<std::size_t>(y) * width + x;
                        TileHandle hold;
                        if (channel == 0) {
                            const ColourPOD c{std::uint8_t(value), std::uint8_t(value >> 8),
                                              std::uint8_t(value >> 16)};
                            *doc->rgbWrite(x, y, hold) = live.rgb[i] = c;
                        } else if (channel == 1) {
                            *doc->zWrite(x, y, hold) = live.z[i] = value;
                        } else {
                            *doc->matWrite(x, y, hold) = live.mat[i] = MaterialId(value);
                        }
                    }
                }
            } else if (op < 13) { // close an action
                const std::int32_t description = 10000 + pick(100);
                push(*doc, description);
                if (saved > current) {
                    saved = -1;
                }
                levels.resize(static_cast<std::size_t>(current) + 1);
                descriptions.resize(levels.size());
                levels.push_back(live);
                descriptions.push_back(description);
                ++current;
            } else if (op < 16) {
                undo(*doc);
                if (current > 0) {
                    live = levels[static_cast<std::size_t>(--current)];
                }
            } else if (op < 18) {
                redo(*doc);
                if (current + 1 < static_cast<int>(levels.size())) {
                    live = levels[static_cast<std::size_t>(++current)];
                }
            } else {
                store.markSaved();
                saved = current;
            }

            SCOPED_TRACE(::testing::Message() << "sequence " << sequence << " step " << step);
            ASSERT_EQ(liveImage(*doc), live);
            ASSERT_EQ(currentLevelImage(store), levels[static_cast<std::size_t>(current)]);
            const bool canRedo = current + 1 < static_cast<int>(levels.size());
            ASSERT_EQ(store.canUndo(), current > 0);
            ASSERT_EQ(store.canRedo(), canRedo);
            ASSERT_EQ(store.redoCount(), static_cast<int>(levels.size()) - 1 - current);
            ASSERT_EQ(store.atSavedState(), saved == current);
            ASSERT_EQ(store.undoDescription(),
                      current > 0 ? descriptions[static_cast<std::size_t>(current)] : 0);
            ASSERT_EQ(store.redoDescription(),
                      canRedo ? descriptions[static_cast<std::size_t>(current) + 1] : 0);
        }
    }
}

// 4096 x 2560 colour pixels are 30 MB: every action below rewrites all of them.
class UndoBudget : public ::testing::Test {
protected:
    void SetUp() override { doc = test::makeTestDocument(4096, 2560); }

    void action(std::uint8_t value) {
        fillColour(*doc, {value, value, value});
        push(*doc);
    }
    UndoBuffer& store() { return *doc->editor.undoBuffer; }

    std::unique_ptr<TestDocument> doc;
    static constexpr std::int64_t actionBytes = 4096 * 2560 * 3;
};

TEST_F(UndoBudget, ThirtyMegabyteActionsInTheDefaultBudgetKeepThreeLevels) {
    // The first action replaces empty tiles: level 0 keeps nothing. Each later one leaves
    // 30 MB in the level below it. Two such levels (60 MB) fit in 64 MB; at the third the
    // store trims towards 0.8 of the budget but keeps three levels, holding 60 MB again.
    const int expectedLevels[] = {2, 3, 4, 3, 3, 3};
    const std::int64_t expectedKept[] = {0, 1, 2, 2, 2, 2};
    for (int i = 0; i < 6; ++i) {
        action(std::uint8_t(10 * (i + 1)));
        SCOPED_TRACE(i);
        EXPECT_EQ(levelCount(*doc), expectedLevels[i]);
        const std::int64_t tiles = store().memoryInUse() - expectedKept[i] * actionBytes;
        EXPECT_GE(tiles, 0);
        EXPECT_LT(tiles, 1 << 20); // the rest is the snapshots' structure
    }
    // The oldest level left is the fourth action's image.
    undo(*doc);
    undo(*doc);
    EXPECT_FALSE(store().canUndo());
    EXPECT_EQ(doc->rgbAt(4095, 2559), (ColourPOD{40, 40, 40}));
}

TEST_F(UndoBudget, SavedStateSurvivesTrimmingAndIsLostWithItsRedoBranch) {
    action(10);
    action(20);
    action(30);
    store().markSaved(); // the image of 30
    action(40);          // trims: three levels left, 20, 30 and 40
    ASSERT_EQ(levelCount(*doc), 3);
    EXPECT_FALSE(store().atSavedState());
    undo(*doc);
    EXPECT_EQ(doc->rgbAt(0, 0), (ColourPOD{30, 30, 30}));
    EXPECT_TRUE(store().atSavedState());
    undo(*doc);
    EXPECT_FALSE(store().atSavedState());
    redo(*doc);
    EXPECT_TRUE(store().atSavedState());

    // A new action from the saved level keeps it; saving the newest and then branching
    // from below drops the saved level for good.
    redo(*doc);
    store().markSaved(); // the image of 40
    undo(*doc);
    action(50);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(store().atSavedState()) << i;
        undo(*doc);
    }
    redo(*doc);
    EXPECT_FALSE(store().atSavedState());
    store().markSaved();
    EXPECT_TRUE(store().atSavedState());
}

// The accounting on a small image of 2 x 1 tiles, A on the left and B on the right. Each
// tile that a level holds and the level above doesn't is counted once, however many levels
// share it; the newest level's tiles are the image's own.
TEST(UndoBuffer, KeptTilesCountOnceAtTheLastLevelThatHoldsThem) {
    auto doc = test::makeTestDocument(128, 64);
    fillColour(*doc, {1, 1, 1});
    doc->commitOriginals(); // level 0: A0, B0
    UndoBuffer& store = *doc->editor.undoBuffer;
    const std::int64_t structure = store.memoryInUse();
    const std::int64_t tile = 64 * 64 * 3;

    struct Step {
        std::int32_t x; // the pixel written: in A or B
        std::int64_t keptTiles;
    };
    // Levels after each step: (A1, B0), (A1, B1), (A2, B1), (A2, B1) again.
    const Step steps[] = {{0, 1}, {64, 2}, {1, 3}, {-1, 3}};
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        if (steps[i].x >= 0) {
            setRgb(*doc, steps[i].x, 0, {9, 9, std::uint8_t(i)});
        }
        push(*doc);
        EXPECT_EQ(store.memoryInUse(), std::int64_t(i + 2) * structure + steps[i].keptTiles * tile)
            << i;
    }
    // Dropping the redo branch gives its tiles back: from (A1, B1) a new action on B.
    undo(*doc);
    undo(*doc);
    setRgb(*doc, 65, 0, {7, 7, 7});
    push(*doc); // levels (A0, B0), (A1, B0), (A1, B1), (A1, B3)
    EXPECT_EQ(store.memoryInUse(), 4 * structure + 3 * tile);
}

TEST(UndoBuffer, ViewsRepaintTheTilesThatChangedOrTheWholeImage) {
    auto doc = test::makeTestDocument(200, 150); // tiles of 64: 4 across, 3 down
    test::RecordingViews views;
    doc->setViews(&views);
    setRgb(*doc, 70, 10, {1, 2, 3}); // tile (1, 0)
    TileHandle hold;
    *doc->matWrite(199, 149, hold) = 5; // tile (3, 2), the narrow corner
    hold.reset();
    push(*doc);
    EXPECT_EQ(views.calls, std::vector<std::string>{"undo state"});
    undo(*doc);
    ASSERT_EQ(views.invalidated.size(), 1u);
    EXPECT_EQ(views.invalidated[0], IExtent<2>(64, 0, 199, 149));
    EXPECT_EQ(views.calls.back(), "undo state");

    // An action that only renames a material changes no tile: the whole image is repainted.
    redo(*doc);
    doc->addMaterial(L"Brick", {1, 1, 1}, false);
    push(*doc);
    undo(*doc);
    ASSERT_EQ(views.invalidated.size(), 3u);
    EXPECT_TRUE(views.invalidated[2].degenerate());
    doc->setViews(nullptr);
}

// Each case changes the material table in one action; undo must give back the table from
// before, redo the table from after.
TEST(UndoBuffer, MaterialChangesAreUndoneAndRedone) {
    struct Case {
        const char* name;
        void (*change)(ZmapDocument&);
    };
    const Case cases[] = {
        {"add",
         [](ZmapDocument& d) {
             d.addMaterial(L"Glass", {0, 0, 255}, false);
         }},
        {"rename and recolour",
         [](ZmapDocument& d) {
             d.renameMaterial(1, L"Stone", {5, 5, 5});
         }},
        {"delete", [](ZmapDocument& d) { d.deleteMaterial(2); }},
        {"hot link",
         [](ZmapDocument& d) {
             d.setHotLink(300, {L"lib", L"style", 1});
         }},
        {"implicit made explicit",
         [](ZmapDocument& d) {
             d.setMaterial(4, L"Hidden", {4, 4, 4}, false);
         }},
        {"several at once",
         [](ZmapDocument& d) {
             d.deleteMaterial(1);
             d.addMaterial(L"Wall", {8, 8, 8}, false); // takes the freed id 1
             d.renameMaterial(300, L"Roof", {3, 0, 0});
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = test::makeTestDocument(64, 64);
        doc->setMaterial(1, L"Wall", {1, 1, 1}, false);
        doc->setMaterial(2, L"Floor", {2, 2, 2}, false);
        doc->setMaterial(300, L"Sky", {3, 3, 3}, false);
        doc->setMaterial(4, L"Hidden", {4, 4, 4}, true);
        push(*doc);
        const auto before = doc->materials();
        const auto beforePalette = doc->palette();
        const auto beforeUsed = doc->usedMaterials();
        c.change(*doc);
        push(*doc);
        const auto after = doc->materials();
        EXPECT_FALSE(doc->editor.undoBuffer->materialChanges().empty());

        undo(*doc);
        EXPECT_EQ(doc->materials(), before);
        EXPECT_EQ(doc->palette(), beforePalette);
        EXPECT_EQ(doc->usedMaterials(), beforeUsed);
        redo(*doc);
        EXPECT_EQ(doc->materials(), after);
    }
}

TEST(UndoBuffer, WetLayerIsDroppedAndRestoredWithItsLevel) {
    auto doc = test::makeTestDocument(64, 64);
    EXPECT_FALSE(doc->editor.undoBuffer->currentWet());
    doc->wetLayer = TQL::makeHandle<WetLayerBitmap>(*doc);
    TileHandle hold;
    doc->wetLayerWrite(3, 4, hold)->wet = 0.5f;
    hold.reset();
    push(*doc);
    undo(*doc);
    EXPECT_FALSE(doc->wetLayer);
    redo(*doc);
    ASSERT_TRUE(doc->wetLayer);
    EXPECT_EQ(doc->wetLayer->valueAt<WetLayerPixel>(3, 4).wet, 0.5f);
    EXPECT_FALSE(doc->editor.undoBuffer->previousWet());
}

TEST(UndoBuffer, PushNeedsTheMainChannels) {
    TestDocument doc;
    auto store = UndoBuffer::create(doc);
    Status s = 0;
    store->pushLevel(s, 0);
    EXPECT_EQ(s, status::noImage);
    EXPECT_FALSE(store->canUndo());
    EXPECT_FALSE(store->currentRgb());
    // Nothing to undo is silent.
    store->undo(s);
    EXPECT_EQ(s, status::ok);
}

TEST(UndoBuffer, CutoutSetsFollowTheirLevelsAndForgetItems) {
    auto doc = test::makeTestDocument(64, 64);
    UndoBuffer& store = *doc->editor.undoBuffer;
    EXPECT_TRUE(store.existingCutouts()->empty());
    const CCutoutSet::Item a = TQL::makeHandle<CCutoutSet>(); // any handled object will do
    const CCutoutSet::Item b = TQL::makeHandle<CCutoutSet>();
    auto selected = TQL::makeHandle<CCutoutSet>();
    auto existing = TQL::makeHandle<CCutoutSet>();
    selected->insert(a);
    existing->insert(a);
    existing->insert(b);
    existing->insert(b);
    store.setCutoutState(selected, existing);
    push(*doc);
    EXPECT_EQ(store.existingCutouts()->items().size(), 2u);
    push(*doc); // an action that left the cut-outs alone records no set
    EXPECT_TRUE(store.existingCutouts()->empty());

    store.forgetCutout(a.get());
    undo(*doc);
    EXPECT_TRUE(store.selectedCutouts()->empty());
    EXPECT_FALSE(store.existingCutouts()->contains(a.get()));
    EXPECT_TRUE(store.existingCutouts()->contains(b.get()));
}

// Snapshots on their own: sharing, swapping and what they keep.
TEST(UndoBitmap, SharesTilesUntilTheLiveBitmapIsWritten) {
    auto doc = test::makeTestDocument(100, 70); // 2 x 2 tiles, the last narrower
    fillColour(*doc, {5, 5, 5});
    const TQL::Handle<TileBitmap> live = doc->rgb;
    auto older = TQL::makeHandle<UndoBitmap>(live);
    for (std::int32_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(older->sharesTile(i, *live)) << i;
    }
    EXPECT_EQ(older->bytesReleasedAtFree(), 0);

    setRgb(*doc, 99, 69, {6, 6, 6}); // the narrow corner tile
    setRgb(*doc, 0, 0, {6, 6, 6});
    auto newer = TQL::makeHandle<UndoBitmap>(live);
    const std::int64_t fullTile = 64 * 64 * 3; // also for the 36 x 6 corner
    EXPECT_EQ(older->valueAt<ColourPOD>(99, 69), (ColourPOD{5, 5, 5}));
    EXPECT_EQ(older->bytesReleasedAtFree(), 2 * fullTile);
    EXPECT_EQ(older->deltaBytes(newer.get()), 2 * fullTile);
    EXPECT_EQ(older->deltaBytes(nullptr), 4 * fullTile);
    EXPECT_EQ(newer->deltaBytes(older.get()), 2 * fullTile);

    // A tile someone else holds is not given back by freeing the snapshot.
    const TileHandle pinned = older->tiles().get(0);
    EXPECT_EQ(older->bytesReleasedAtFree(), fullTile);
}

TEST(UndoBitmap, SwappingWithTheLiveBitmapExchangesPixelsAndCounts) {
    auto doc = test::makeTestDocument(100, 70);
    const TQL::Handle<TileBitmap> live = doc->z;
    auto snapshot = TQL::makeHandle<UndoBitmap>(live);
    TileHandle hold;
    *doc->zWrite(80, 5, hold) = 42;
    hold.reset();
    live->clearChanged();
    snapshot->clearChanged();
    Status s = -1;
    snapshot->swapWithLive(s);
    EXPECT_EQ(s, status::ok);
    EXPECT_EQ(doc->zAt(80, 5), ZBitmap::noDepth);
    EXPECT_EQ(snapshot->valueAt<std::uint32_t>(80, 5), 42u);
    EXPECT_EQ(snapshot->valueAt<std::uint32_t>(10, 5), ZBitmap::noDepth);
    EXPECT_EQ(live->nonEmptyTiles(), 0);
    EXPECT_EQ(snapshot->nonEmptyTiles(), 1);
    EXPECT_TRUE(live->changed());
    EXPECT_TRUE(snapshot->changed());
}

} // namespace
