#include "image/DocumentCommands.h"
#include "image/DocumentViews.h"
#include "support/RecordingViews.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using test::RecordingViews;
using test::TestDocument;

/// Closes the writes made so far as one action, as a stroke does.
void closeAction(ZmapDocument& doc) {
    Status s = -1;
    doc.editor.undoBuffer->pushLevel(s, 0);
    ASSERT_EQ(s, status::ok);
}

Status run(ZmapDocument& doc, std::int32_t command, const CommandArgument& argument = {}) {
    Status s = -99;
    doc.editor.execute(s, command, argument);
    return s;
}

void setRgb(ZmapDocument& doc, std::int32_t x, std::int32_t y, ColourPOD c) {
    TileHandle hold;
    *doc.rgbWrite(x, y, hold) = c;
}

class RecordingToolState : public DocumentToolState {
public:
    void releaseDocument(ZmapDocument&) override { ++releases; }
    int releases = 0;
};

TEST(DocumentEditor, CommandNumbersOutsideTheTableAndMissingDocuments) {
    auto doc = test::makeTestDocument(64, 64);
    for (const std::int32_t command : {-1, 16, 1000}) {
        EXPECT_EQ(run(*doc, command), status::unknownCommand) << command;
    }
    EXPECT_EQ(doc->setChangedCalls, 0);

    DocumentEditor orphan(nullptr);
    Status s = 0;
    orphan.execute(s, commandUndo, {});
    EXPECT_EQ(s, status::noImage);
    orphan.execute(s, 16, {});
    EXPECT_EQ(s, status::unknownCommand);

    // Commands that take an argument refuse a missing or wrong one; the file commands need
    // the file library's bodies, which this document hasn't been given.
    const std::int32_t needsArgument[] = {commandNew,           commandOpen, commandSaveAs,
                                          commandPasteImage,    commandCrop, commandMaterialSet,
                                          commandImportChannel, commandSave, commandRevert};
    for (const std::int32_t command : needsArgument) {
        EXPECT_EQ(run(*doc, command, FileArgument{L"x.zmp"}), status::noImage) << command;
    }
    EXPECT_EQ(run(*doc, commandNothing), status::ok);
}

TEST(DocumentEditor, ViewsAndToolsAreToldBeforeEveryCommand) {
    auto doc = test::makeTestDocument(64, 64);
    RecordingViews views;
    RecordingToolState tools;
    doc->setViews(&views);
    DocumentEditor::setToolState(&tools);
    for (std::int32_t command = 0; command < commandCount; ++command) {
        views.calls.clear();
        const int before = tools.releases;
        Status s = 0;
        doc->editor.execute(s, command, {});
        ASSERT_GE(views.calls.size(), 2u) << command;
        EXPECT_EQ(views.calls[0], "capture") << command;
        EXPECT_EQ(views.calls[1], "cancel") << command;
        const bool releases = command == commandRevert || command == commandPasteImage ||
                              command == commandUndo || command == commandFlatten;
        EXPECT_EQ(tools.releases - before, releases ? 1 : 0) << command;
    }
    DocumentEditor::setToolState(nullptr);
    doc->setViews(nullptr);
}

// The changed flag after each step of one session, from the flags of the commands: paste
// and undo change the document; undo back to the saved level makes it unchanged again;
// a material set can be undone, but counts as a change the store can't vouch for, so undo
// past it leaves the document changed; a failed command leaves the flag alone.
TEST(DocumentEditor, ChangedFlagFollowsTheCommandTable) {
    auto doc = test::makeTestDocument(64, 64);
    doc->setMaterial(1, L"Wall", {1, 1, 1}, false);
    closeAction(*doc);
    doc->editor.undoBuffer->markSaved();
    const std::uint8_t pixel[3] = {9, 9, 9};
    const RgbImage image{1, 1, pixel, 3};
    struct Step {
        std::int32_t command;
        CommandArgument argument;
        Status status;
        bool changed;
    };
    const Step steps[] = {
        {commandPasteImage, image, status::ok, true},
        {commandUndo, {}, status::ok, false}, // the saved level
        {commandRedo, {}, status::ok, true},
        {commandRedo, {}, status::ok, true}, // nothing to redo
        {commandRepeat, {}, status::noConversion, true},
        {commandUndo, {}, status::ok, false},
        {commandMaterialSet, MaterialSetArgument{{1}, MaterialAction::recolour, L"", {5, 5, 5}, {}},
         status::ok, true},
        {commandUndo, {}, status::ok, true}, // the saved level, after a material set
        {commandRedo, {}, status::ok, true},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        const Step& step = steps[i];
        EXPECT_EQ(run(*doc, step.command, step.argument), step.status) << i;
        EXPECT_EQ(doc->changedFlag, step.changed) << i;
    }
}

/// File commands that succeed without touching a file.
class SucceedingFileCommands : public DocumentCommands {
public:
    void newImage(Status& s, ZmapDocument&, const NewImageParams&) override { s = status::ok; }
    void open(Status& s, ZmapDocument&, const std::wstring&) override { s = status::ok; }
    void save(Status& s, ZmapDocument&) override { s = status::ok; }
    void saveAs(Status& s, ZmapDocument&, const std::wstring&) override { s = status::ok; }
    void revert(Status& s, ZmapDocument&) override { s = status::ok; }
    void importChannel(Status& s, ZmapDocument&, const ChannelImportArgument&) override {
        s = status::ok;
    }
};

// The changed-since-open byte: set by a change the undo store can't vouch for, kept through
// saves, so that undoing to a saved level after it still leaves the document changed;
// cleared only with the document.
TEST(DocumentEditor, ChangedSinceOpenOutlivesSavesUntilTheDocumentIsCleared) {
    auto doc = test::makeTestDocument(64, 64);
    SucceedingFileCommands files;
    doc->editor.setCommands(&files);
    doc->setMaterial(1, L"Wall", {1, 1, 1}, false);
    closeAction(*doc);
    const std::uint8_t pixel[3] = {9, 9, 9};
    const RgbImage image{1, 1, pixel, 3};

    // Only changes the store can take back: undo to the saved level is unchanged.
    ASSERT_EQ(run(*doc, commandSave), status::ok);
    ASSERT_EQ(run(*doc, commandPasteImage, image), status::ok);
    ASSERT_EQ(run(*doc, commandUndo), status::ok);
    EXPECT_FALSE(doc->changedFlag);
    EXPECT_FALSE(doc->editor.changedSinceOpen());

    // A material set sets the byte, and a save doesn't clear it.
    ASSERT_EQ(run(*doc, commandMaterialSet,
                  MaterialSetArgument{{1}, MaterialAction::recolour, L"", {5, 5, 5}, {}}),
              status::ok);
    EXPECT_TRUE(doc->editor.changedSinceOpen());
    ASSERT_EQ(run(*doc, commandSave), status::ok);
    EXPECT_FALSE(doc->changedFlag);
    EXPECT_TRUE(doc->editor.changedSinceOpen());
    ASSERT_EQ(run(*doc, commandPasteImage, image), status::ok);
    ASSERT_EQ(run(*doc, commandUndo), status::ok); // back at the saved level
    EXPECT_TRUE(doc->changedFlag);

    doc->clearDocument();
    EXPECT_FALSE(doc->editor.changedSinceOpen());
    doc->editor.setCommands(nullptr);
}

/// Depth codes of a tilted plane: every pixel has geometry.
std::uint32_t planeCode(std::int32_t x, std::int32_t y) {
    return 1000000u + 7919u * std::uint32_t(x) + 104729u * std::uint32_t(y);
}

// Cropping keeps every kept pixel where it was in the world, for each kind of view record:
// the world point of (x, y) with its depth code before equals that of (x - x0, y - y0)
// after.
TEST(DocumentEditor, CropKeepsTheWorldPointOfEveryKeptPixel) {
    ViewParams perspective;
    ViewParams offCentre;
    offCentre.windowLo = Point<3>(-0.2, 0.9, 2);
    offCentre.windowHi = Point<3>(1.8, -0.6, 2.5);
    offCentre.eye = Point<3>(3, -4, 1.2);
    ViewParams parallel;
    parallel.viewCode = ViewParams::parallelCode;
    parallel.shear = Vector<3>(0.3, -0.2, 1);
    parallel.windowLo = Point<3>(-10, 8, 1);
    parallel.windowHi = Point<3>(12, -6, 3);
    struct Case {
        const char* name;
        ViewParams view;
    };
    const Case cases[] = {{"perspective", perspective},
                          {"off-centre perspective", offCentre},
                          {"sheared parallel", parallel}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = test::makeTestDocument(150, 100);
        doc->setViewParams(c.view);
        for (std::int32_t y = 0; y < 100; ++y) {
            for (std::int32_t x = 0; x < 150; ++x) {
                TileHandle hold;
                *doc->zWrite(x, y, hold) = planeCode(x, y);
            }
        }
        const TQL::Handle<ViewProj> before = doc->viewProj();
        const IExtent<2> keep(37, 21, 140, 90);
        ASSERT_EQ(run(*doc, commandCrop, keep), status::ok);
        ASSERT_EQ(doc->width(), 104);
        ASSERT_EQ(doc->height(), 70);
        const TQL::Handle<ViewProj> after = doc->viewProj();
        ASSERT_TRUE(after);
        double worst = 0;
        for (std::int32_t y = keep.lo().y; y <= keep.hi().y; ++y) {
            for (std::int32_t x = keep.lo().x; x <= keep.hi().x; ++x) {
                const std::int32_t cx = x - keep.lo().x;
                const std::int32_t cy = y - keep.lo().y;
                ASSERT_EQ(doc->zAt(cx, cy), planeCode(x, y));
                const Point<3> a = before->worldFromPixel(x, y, planeCode(x, y));
                const Point<3> b = after->worldFromPixel(cx, cy, doc->zAt(cx, cy));
                worst = std::max(worst, (a - b).length() / (1 + toVector(a).length()));
            }
        }
        EXPECT_LT(worst, 1e-9);
    }
}

TEST(DocumentEditor, CropCopiesChannelsKeepsSharingAndStartsTheUndoStoreAgain) {
    auto doc = test::makeTestDocument(200, 150); // 64-pixel tiles, 4 x 3
    setRgb(*doc, 10, 10, {1, 2, 3});             // outside the crop
    setRgb(*doc, 100, 80, {4, 5, 6});
    TileHandle hold;
    *doc->matWrite(120, 70, hold) = 7;
    *doc->cutoutZWrite(100, 80, hold) = 55;
    hold.reset();
    doc->commitOriginals();
    setRgb(*doc, 101, 80, {8, 8, 8}); // the original keeps the old pixel here
    closeAction(*doc);
    ASSERT_TRUE(doc->editor.undoBuffer->canUndo());
    RecordingViews views;
    doc->setViews(&views);

    ASSERT_EQ(run(*doc, commandCrop, IExtent<2>(64, 64, 300, 300)), status::ok); // clipped
    EXPECT_EQ(doc->width(), 136);
    EXPECT_EQ(doc->height(), 86);
    EXPECT_EQ(doc->rgbAt(36, 16), (ColourPOD{4, 5, 6}));
    EXPECT_EQ(doc->rgbAt(37, 16), (ColourPOD{8, 8, 8}));
    EXPECT_EQ(doc->originalRgbAt(37, 16), ColourPOD{});
    EXPECT_EQ(doc->originalRgbAt(36, 16), (ColourPOD{4, 5, 6}));
    EXPECT_EQ(doc->matAt(56, 6), 7);
    EXPECT_EQ(doc->cutoutZAt(36, 16), 55u);
    EXPECT_EQ(doc->zAt(0, 0), ZBitmap::noDepth);
    // 136 x 86 has 3 x 2 tiles of 64; colour and material were written in one each of
    // the new tiles, depth nowhere.
    EXPECT_EQ(doc->rgb->nonEmptyTiles(), 1);
    EXPECT_EQ(doc->z->nonEmptyTiles(), 0);
    // The original shares the tiles where no pixel differs from the image.
    EXPECT_EQ(doc->originalMat->nonEmptyTiles(), 1);
    EXPECT_TRUE(doc->originalMat->sharesTile(0, *doc->mat));
    EXPECT_FALSE(doc->originalRgb->sharesTile(0, *doc->rgb));
    for (const std::uint32_t id : {channelRgb, channelZ, channelMat, channelOriginalRgb,
                                   channelOriginalZ, channelOriginalMat}) {
        EXPECT_FALSE(doc->channel(id)->changed()) << id;
    }
    EXPECT_FALSE(doc->editor.undoBuffer->canUndo());
    EXPECT_TRUE(doc->changedFlag);
    const std::vector<std::string> expected = {"capture", "cancel", "update 262144", "undo state",
                                               "update 131072"};
    EXPECT_EQ(views.calls, expected);
    doc->setViews(nullptr);
}

TEST(DocumentEditor, CropRefusesNothingToKeepAndPanoramas) {
    auto doc = test::makeTestDocument(60, 10);
    EXPECT_EQ(run(*doc, commandCrop, IExtent<2>(70, 0, 80, 5)), status::noConversion);
    ViewParams cube;
    cube.viewCode = ViewParams::cubicCode;
    doc->setViewParams(cube);
    EXPECT_EQ(run(*doc, commandCrop, IExtent<2>(0, 0, 9, 9)), status::noConversion);
    EXPECT_EQ(doc->width(), 60);
}

// The overlay merged as the display shows it: colour by coverage, then the shadow; depth
// and material where the overlay has them. Undo brings back image and overlay.
TEST(DocumentEditor, FlattenMergesTheOverlayAndCanBeUndone) {
    auto doc = test::makeTestDocument(100, 70);
    for (std::int32_t x = 0; x < 4; ++x) {
        setRgb(*doc, x, 0, {100, 100, 100});
    }
    TileHandle hold;
    *doc->cutoutRgbWrite(0, 0, hold) = ColourPOD{50, 0, 200}; // blue 50, green 0, red 200
    *doc->cutoutAlphaWrite(0, 0, hold) = 0.25f;
    *doc->shadowAlphaWrite(1, 0, hold) = 0.5f;
    *doc->cutoutZWrite(2, 0, hold) = 1001;
    *doc->cutoutMatWrite(3, 0, hold) = 7;
    hold.reset();
    closeAction(*doc);

    ASSERT_EQ(run(*doc, commandFlatten), status::ok);
    // 100 + (c - 100) * 0.25: blue 87.5 to even 88, green 75, red 125.
    EXPECT_EQ(doc->rgbAt(0, 0), (ColourPOD{88, 75, 125}));
    // A black shadow at 0.5 with opacity 0.4 and strength 1 multiplies by 0.8.
    EXPECT_EQ(doc->rgbAt(1, 0), (ColourPOD{80, 80, 80}));
    EXPECT_EQ(doc->rgbAt(2, 0), (ColourPOD{100, 100, 100}));
    EXPECT_EQ(doc->zAt(2, 0), 1000u);
    EXPECT_EQ(doc->zAt(3, 0), ZBitmap::noDepth);
    EXPECT_EQ(doc->matAt(3, 0), 7);
    for (const std::uint32_t id : {channelCutoutRgb, channelCutoutZ, channelCutoutMat,
                                   channelCutoutAlpha, channelShadowAlpha}) {
        EXPECT_EQ(doc->channel(id)->nonEmptyTiles(), 0) << id;
    }
    EXPECT_EQ(doc->editor.undoBuffer->undoDescription(), 10059);

    // Undo brings back the image. A level keeps colour, material, depth and the wet layer,
    // not the overlay: that is the floating cut-outs' to rebuild.
    ASSERT_EQ(run(*doc, commandUndo), status::ok);
    EXPECT_EQ(doc->rgbAt(0, 0), (ColourPOD{100, 100, 100}));
    EXPECT_EQ(doc->rgbAt(1, 0), (ColourPOD{100, 100, 100}));
    EXPECT_EQ(doc->zAt(2, 0), ZBitmap::noDepth);
    EXPECT_EQ(doc->matAt(3, 0), 0);
    EXPECT_EQ(doc->cutoutAlpha->nonEmptyTiles(), 0);
}

TEST(DocumentEditor, AutoLevelsAndPasteCloseUndoLevels) {
    auto doc = test::makeTestDocument(64, 64);
    for (std::int32_t x = 0; x < 64; ++x) {
        setRgb(*doc, x, 0, x < 32 ? ColourPOD{100, 100, 100} : ColourPOD{150, 150, 150});
    }
    closeAction(*doc);
    // The black rows are the low end, grey 150 the high one: grey 100 becomes 2/3 of white.
    ASSERT_EQ(run(*doc, commandAutoLevels), status::ok);
    EXPECT_EQ(doc->rgbAt(40, 0), (ColourPOD{255, 255, 255}));
    EXPECT_EQ(doc->rgbAt(0, 0), (ColourPOD{170, 170, 170}));
    EXPECT_EQ(doc->editor.undoBuffer->undoDescription(), 10287);

    // A 3 x 1 image pasted into the middle: columns 30 to 32 of row 31.
    const std::uint8_t pixels[9] = {1, 1, 1, 2, 2, 2, 3, 3, 3};
    ASSERT_EQ(run(*doc, commandPasteImage, RgbImage{3, 1, pixels, 9}), status::ok);
    EXPECT_EQ(doc->rgbAt(30, 31), (ColourPOD{1, 1, 1}));
    EXPECT_EQ(doc->rgbAt(32, 31), (ColourPOD{3, 3, 3}));
    ASSERT_EQ(run(*doc, commandUndo), status::ok);
    EXPECT_EQ(doc->rgbAt(30, 31), ColourPOD{});
    ASSERT_EQ(run(*doc, commandUndo), status::ok);
    EXPECT_EQ(doc->rgbAt(40, 0), (ColourPOD{150, 150, 150}));
    EXPECT_EQ(doc->rgbAt(0, 0), (ColourPOD{100, 100, 100}));
}

MaterialSetArgument materialSet(std::vector<MaterialId> ids, MaterialAction action,
                                std::wstring name = L"") {
    MaterialSetArgument argument;
    argument.ids = std::move(ids);
    argument.action = action;
    argument.name = std::move(name);
    return argument;
}

TEST(DocumentEditor, MaterialSetAppliesToEveryIdAndIsUndone) {
    struct Case {
        const char* name;
        MaterialSetArgument argument;
        Status status;
        std::vector<std::wstring> names; // of ids 1, 2, 3 afterwards ("-" for none)
    };
    const Case cases[] = {
        {"rename one",
         materialSet({2}, MaterialAction::rename, L"Stone"),
         status::ok,
         {L"Wall", L"Stone", L"Wall 1"}},
        {"rename several, skipping a name in use",
         materialSet({1, 2}, MaterialAction::rename, L"Brick"),
         status::ok,
         {L"Brick", L"Brick 2", L"Wall 1"}},
        {"rename to a name of another material",
         materialSet({2}, MaterialAction::rename, L"WALL"),
         status::exists,
         {L"Wall", L"Floor", L"Wall 1"}},
        {"rename a material to its own name in other case",
         materialSet({1}, MaterialAction::rename, L"WALL"),
         status::ok,
         {L"WALL", L"Floor", L"Wall 1"}},
        {"remove", materialSet({1, 3}, MaterialAction::remove), status::ok, {L"-", L"Floor", L"-"}},
        {"unknown id",
         materialSet({1, 9}, MaterialAction::remove),
         status::notFound,
         {L"Wall", L"Floor", L"Wall 1"}},
        {"no ids",
         materialSet({}, MaterialAction::remove),
         status::noConversion,
         {L"Wall", L"Floor", L"Wall 1"}},
        {"empty name",
         materialSet({1}, MaterialAction::rename, L""),
         status::badName,
         {L"Wall", L"Floor", L"Wall 1"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = test::makeTestDocument(64, 64);
        doc->setMaterial(1, L"Wall", {1, 1, 1}, false);
        doc->setMaterial(2, L"Floor", {2, 2, 2}, false);
        doc->setMaterial(3, L"Wall 1", {3, 3, 3}, false);
        doc->setMaterial(4, L"Brick 1", {4, 4, 4}, false);
        ASSERT_EQ(run(*doc, commandCommit), status::ok);
        const auto before = doc->materials();
        ASSERT_EQ(run(*doc, commandMaterialSet, c.argument), c.status);
        for (MaterialId id = 1; id <= 3; ++id) {
            const std::wstring name = doc->materialExists(id) ? doc->materialName(id) : L"-";
            EXPECT_EQ(name, c.names[id - 1u]) << id;
        }
        EXPECT_EQ(doc->editor.undoBuffer->canUndo(), c.status == status::ok);
        ASSERT_EQ(run(*doc, commandUndo), status::ok);
        EXPECT_EQ(doc->materials(), before);
    }
}

TEST(DocumentEditor, MaterialSetRecoloursAndLinks) {
    auto doc = test::makeTestDocument(64, 64);
    doc->setMaterial(1, L"Wall", {1, 1, 1}, false);
    doc->setMaterial(300, L"Roof", {3, 3, 3}, false);
    ASSERT_EQ(run(*doc, commandMaterialSet,
                  MaterialSetArgument{{1, 300}, MaterialAction::recolour, L"", {9, 8, 7}, {}}),
              status::ok);
    EXPECT_EQ(doc->materialColour(1), (ColourPOD{9, 8, 7}));
    EXPECT_EQ(doc->materialColour(300), (ColourPOD{9, 8, 7}));
    const MatHotLink link{L"Library", L"Brick style", 1};
    ASSERT_EQ(run(*doc, commandMaterialSet,
                  MaterialSetArgument{{300}, MaterialAction::hotLink, L"", {}, link}),
              status::ok);
    EXPECT_EQ(doc->materialHotLink(300), link);
    EXPECT_TRUE(doc->materialHotLink(1).empty());
}

/// Paints pixel (run, 0) with the number of its run.
class CountingAction : public RepeatableAction {
public:
    void run(Status& status, ZmapDocument& document) override {
        ++runs;
        setRgb(document, runs, 0, {std::uint8_t(runs), 0, 0});
        status = status::ok;
    }
    std::int32_t description() const override { return 4242; }
    int runs = 0;
};

TEST(DocumentEditor, RepeatReplacesTheLastRunOfTheAction) {
    auto doc = test::makeTestDocument(64, 64);
    EXPECT_EQ(run(*doc, commandRepeat), status::noConversion);
    auto action = TQL::makeHandle<CountingAction>();
    doc->editor.setRepeatAction(action);
    // The action's first run, closed as a stroke closes its level.
    Status s = 0;
    action->run(s, *doc);
    doc->editor.undoBuffer->pushLevel(s, action->description());

    ASSERT_EQ(run(*doc, commandRepeat), status::ok);
    EXPECT_EQ(doc->rgbAt(1, 0), ColourPOD{}); // the first run was taken back
    EXPECT_EQ(doc->rgbAt(2, 0), (ColourPOD{2, 0, 0}));
    EXPECT_EQ(doc->editor.undoBuffer->undoDescription(), 4242);
    ASSERT_EQ(run(*doc, commandUndo), status::ok);
    EXPECT_FALSE(doc->editor.undoBuffer->canUndo()); // one level for both runs

    // After an undo the last run is already taken back: repeat runs on top of what is.
    ASSERT_EQ(run(*doc, commandRepeat), status::ok);
    EXPECT_EQ(doc->rgbAt(3, 0), (ColourPOD{3, 0, 0}));
    EXPECT_TRUE(doc->editor.undoBuffer->canUndo());
}

TEST(DocumentEditor, CommitEndsTheApplyStateAndStartsTheStoreAgain) {
    auto doc = test::makeTestDocument(64, 64);
    setRgb(*doc, 5, 5, {5, 5, 5});
    doc->editor.appliedExtents.push_back(IExtent<2>(5, 5, 5, 5));
    TileHandle hold;
    *reinterpret_cast<Alpha*>(doc->editor.strokeAlpha->pixelForWrite(5, 5, hold, nullptr)) = 1;
    hold.reset();
    closeAction(*doc);
    ASSERT_TRUE(doc->editor.undoBuffer->canUndo());
    doc->editor.undoBuffer->markSaved();
    ASSERT_EQ(run(*doc, commandCommit), status::ok);
    EXPECT_EQ(doc->originalRgbAt(5, 5), (ColourPOD{5, 5, 5}));
    EXPECT_EQ(doc->undoRgbAt(5, 5), (ColourPOD{5, 5, 5}));
    EXPECT_FALSE(doc->editor.undoBuffer->atSavedState()); // the originals changed
    EXPECT_TRUE(doc->editor.appliedExtents.empty());
    EXPECT_EQ(doc->editor.strokeAlpha->nonEmptyTiles(), 0);
    EXPECT_FALSE(doc->editor.undoBuffer->canUndo());
    EXPECT_TRUE(doc->changedFlag);
    EXPECT_TRUE(doc->editor.changedSinceOpen());
}

class FormatTable : public StringTable {
public:
    bool lookup(int id, std::wstring& text) const override {
        switch (id) {
        case 1:
            text = L"Could not save %ls: %ls";
            return true;
        case 2:
            text = L"100%% of %ls";
            return true;
        default:
            return false;
        }
    }
};

// Message texts: each %ls takes the next argument, %% is a percent sign, missing arguments
// are left out; without the string the arguments are joined.
TEST(DocumentEditor, MessageTextsFillInTheirArguments) {
    FormatTable table;
    TQL::setStringTable(&table);
    struct Case {
        std::int32_t id;
        std::vector<std::wstring> arguments;
        const wchar_t* text;
    };
    const Case cases[] = {
        {1, {L"a.zmp", L"Disk full"}, L"Could not save a.zmp: Disk full"},
        {1, {L"a.zmp"}, L"Could not save a.zmp: "},
        {2, {L"b"}, L"100% of b"},
        {3, {L"a.zmp", L"Disk full"}, L"a.zmp: Disk full"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(commandText(c.id, c.arguments), c.text) << c.id;
    }
    TQL::setStringTable(nullptr);
}

} // namespace
