// Tool settings and styles: typed keys on a storage, the overlay rule, each tool's keys
// through a round trip, what `build` installs, and a fill run with the toolbox state.

#include "styles/CSetFill.h"
#include "styles/CSetFog.h"
#include "styles/CSetMatte.h"
#include "styles/FillTool.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include "core/Settings.h"
#include "image/UndoBuffer.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"

#include <gtest/gtest.h>

namespace {

using test::RoomScene;

class Probe : public CToolUI {
public:
    explicit Probe(std::wstring section) : CToolUI(false, 4, 0, 9999, std::move(section)) {}
    void build() override {}
};

class Styles : public testing::Test {
protected:
    void SetUp() override {
        ToolSelection::instance().reset();
        Toolbox::instance().reset();
    }
    void TearDown() override {
        CToolStyle::setCurrentStorage(nullptr);
        ToolSelection::instance().reset();
        Toolbox::instance().reset();
    }
    MemoryStyleStorage storage;
};

TEST_F(Styles, TypedKeysRoundTripAndBadTextKeepsTheDefault) {
    Probe probe(L"Probe");
    EXPECT_EQ(probe.getInt(L"A", 5), 5); // detached: defaults
    probe.setInt(L"A", 1);
    EXPECT_TRUE(storage.values().empty());

    CToolStyle::Attach attach(storage);
    probe.setInt(L"A", -42);
    probe.setDouble(L"B", 0.1);
    probe.setVector(L"C", Vector<3>(1.5, -2, 1e-9));
    probe.setString(L"D", L"Grès, rouge");
    EXPECT_EQ(probe.getInt(L"A", 0), -42);
    EXPECT_EQ(probe.getDouble(L"B", 0), 0.1);
    EXPECT_EQ(probe.getVector(L"C", Vector<3>()), Vector<3>(1.5, -2, 1e-9));
    EXPECT_EQ(probe.getString(L"D", L""), L"Grès, rouge");
    EXPECT_EQ(*storage.read(L"Probe", L"A"), L"-42");

    storage.write(L"Probe", L"A", L"12abc");
    storage.write(L"Probe", L"C", L"1,2");
    EXPECT_EQ(probe.getInt(L"A", 7), 7);
    EXPECT_EQ(probe.getVector(L"C", Vector<3>(4, 5, 6)), Vector<3>(4, 5, 6));
    EXPECT_EQ(probe.getInt(L"Missing", 3), 3);

    storage.setBaseDirectory(L"/lib/styles");
    storage.write(L"Probe", L"P", L"textures/brick.png");
    storage.write(L"Probe", L"Q", L"/abs/x.png");
    EXPECT_EQ(probe.getPath(L"P", L""), L"/lib/styles/textures/brick.png");
    EXPECT_EQ(probe.getPath(L"Q", L""), L"/abs/x.png");

    Probe nameless(L"");
    nameless.setInt(L"A", 3);
    EXPECT_EQ(nameless.getInt(L"A", 9), 9);
    EXPECT_EQ(Probe(L"ABCDEFGHIJKLMNOPQRS").sectionName(), L"ABCDEFGHIJKLMNO");
}

TEST_F(Styles, DefaultStyleGoesToTheSettingsStore) {
    MemorySettingsStore store;
    SettingsStyleStorage defaults(&store);
    CSetFill fill;
    fill.flood = false;
    {
        CToolStyle::Attach attach(defaults);
        fill.writeStyle();
    }
    EXPECT_EQ(store.read(L"Settings/DefaultStyle/Fill", L"Flood"), std::wstring(L"0"));
}

TEST_F(Styles, MatteKeysRoundTripAndAStyleIsAnOverlay) {
    CSetMatte matte;
    MatteSettings& s = matte.settings;
    s.useOriginal = true;
    s.invert = true;
    s.materialListMode = true;
    s.materialNames = {L"Brick", L"Oak floor", L""};
    s.includeBackground = true;
    s.planeTolerancePercent = 12;
    s.angleDegrees = 33;
    s.colourMode = 1;
    s.hueOn = false;
    s.hueToleranceDegrees = 4.5;
    s.lightnessTolerancePercent = 20;
    s.saturationTolerancePercent = 7.25;
    s.colourTolerance = 40;
    {
        CToolStyle::Attach attach(storage);
        matte.writeStyle();
    }
    CSetMatte other;
    {
        CToolStyle::Attach attach(storage);
        other.readStyle();
    }
    EXPECT_EQ(other.settings, s);

    // A style with one key changes that setting only.
    MemoryStyleStorage small;
    small.write(L"Matte", L"Angle", L"45");
    {
        CToolStyle::Attach attach(small);
        other.readStyle();
    }
    MatteSettings expected = s;
    expected.angleDegrees = 45;
    EXPECT_EQ(other.settings, expected);
    other.setDefaults();
    EXPECT_EQ(other.settings, MatteSettings());
}

TEST_F(Styles, FogKeysRoundTripAndPageChoicesMapEveryType) {
    CSetFog fog;
    FogSettings& s = fog.settings;
    s.type = 7;
    s.transparent = true;
    s.colour = ColourPOD{1, 2, 3};
    s.amount = 0.25f;
    s.full = 3;
    s.none = 70;
    s.axis = Vector<3>(0, 1, 1);
    s.centre = Point<3>(1, 2, 3);
    s.fullPoint = 2;
    s.nonePoint = 11;
    s.fullElevation = 4;
    s.noneElevation = -8;
    s.elevationAxis = Vector<3>(1, 0, 0);
    s.full2D = {3, 4};
    s.none2D = {-5, 6};
    s.range2D = 77;
    s.centre2D = {9, 8};
    s.lineStart2D = {1, 1};
    s.lineEnd2D = {50, 60};
    s.lineStart = Point<3>(0, 0, 1);
    s.lineEnd = Point<3>(4, 4, 4);
    s.inverted = true;
    s.clampDepth = true;
    s.fixedCentre = false;
    s.infiniteLine = true;
    {
        CToolStyle::Attach attach(storage);
        fog.writeStyle();
    }
    CSetFog other;
    {
        CToolStyle::Attach attach(storage);
        other.readStyle();
    }
    EXPECT_EQ(other.settings, s);

    for (std::uint32_t type = 0; type < fogTypeCount; ++type) {
        int range = 0, linear = 0, twoD = 0;
        CSetFog::pageChoices(type, range, linear, twoD);
        EXPECT_EQ(CSetFog::typeFromChoices(range, linear, twoD), type);
    }
    // Without "FogType", the page's choices decide.
    MemoryStyleStorage page;
    page.write(L"Fog", L"TwoD", L"1");
    page.write(L"Fog", L"LinearMode", L"2");
    {
        CToolStyle::Attach attach(page);
        other.readStyle();
    }
    EXPECT_EQ(other.settings.type, 6u);
}

TEST_F(Styles, BuildInstallsStagesByTheToolboxState) {
    ToolSelection& selection = ToolSelection::instance();
    Toolbox& toolbox = Toolbox::instance();
    CSetMatte matte;
    CSetFog fog;
    CSetFill fill;

    toolbox.state.lockMask = 0;
    selection.matting = TQL::makeHandle<Matte>(MatteSettings(), true, false, false, false);
    matte.build();
    EXPECT_FALSE(selection.matting); // no lock: no stage at all
    toolbox.state.lockMask = Matte::lockMaterialBit | Matte::lockColourBit;
    matte.build();
    ASSERT_TRUE(selection.matting);
    const auto* built = dynamic_cast<const Matte*>(selection.matting.get());
    ASSERT_TRUE(built);
    EXPECT_TRUE(built->materialLock() && built->colourLock());
    EXPECT_FALSE(built->planeLock() || built->angleLock());

    fog.build();
    EXPECT_FALSE(selection.fog);
    toolbox.state.fogOn = true;
    fog.build();
    EXPECT_TRUE(selection.fog);

    fill.build(); // the brush is current
    EXPECT_FALSE(selection.applicator());
    toolbox.state.currentApplicatorId = CSetFill::id;
    fill.flood = false;
    fill.build();
    const auto* filler = dynamic_cast<const Filler*>(selection.applicator().get());
    ASSERT_TRUE(filler);
    EXPECT_FALSE(filler->flood());
    EXPECT_EQ(fill.fieldBit(), 1u);
    EXPECT_EQ(matte.fieldBit(), 2u);
    EXPECT_EQ(fog.fieldBit(), 128u);
}

TEST_F(Styles, RunFillPaintsWithTheToolboxStateInOneUndoLevel) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 96, 72);
    Toolbox& toolbox = Toolbox::instance();
    CSetFill fill;
    CSetMatte matte;
    CSetFog fog;
    toolbox.registerTool(fill);
    toolbox.registerTool(matte);
    toolbox.registerTool(fog);
    toolbox.state.lockMask = Matte::lockMaterialBit;
    toolbox.state.colour[0] = 10;
    toolbox.state.colour[1] = 200;
    toolbox.state.colour[2] = 30;
    // A floor pixel with floor all round.
    std::int32_t sx = -1, sy = -1;
    for (std::int32_t y = 60; y < 70 && sx < 0; ++y) {
        for (std::int32_t x = 40; x < 60 && sx < 0; ++x) {
            if (room.pieceAt(x, y) == RoomScene::floorPiece) {
                sx = x;
                sy = y;
            }
        }
    }
    ASSERT_GE(sx, 0);
    ASSERT_EQ(runFill(*room.document, sx, sy, nullptr), status::ok);
    const ColourPOD green{30, 200, 10};
    for (std::int32_t y = 0; y < 72; ++y) {
        for (std::int32_t x = 0; x < 96; ++x) {
            if (room.document->matAt(x, y) != RoomScene::floorMaterial) {
                EXPECT_NE(room.document->rgbAt(x, y), green) << x << "," << y;
            }
        }
    }
    EXPECT_EQ(room.document->rgbAt(sx, sy), green);
    UndoBuffer& undo = *room.document->editor.undoBuffer;
    ASSERT_TRUE(undo.canUndo());
    Status s = status::ok;
    undo.undo(s);
    EXPECT_EQ(room.document->rgbAt(sx, sy), ColourPOD{});
    EXPECT_FALSE(undo.canUndo());
    toolbox.unregisterTool(fill);
    toolbox.unregisterTool(matte);
    toolbox.unregisterTool(fog);
}

} // namespace
