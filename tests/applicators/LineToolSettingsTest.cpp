// The line tool's settings and the eraser: keys through a style, what `build` installs,
// and the restore effect that the eraser end of a tablet paints with.

#include "applicators/Pen.h"
#include "applicators/Shape.h"
#include "effects/Restore.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/ToolSelection.h"
#include "styles/CSetPen.h"
#include "styles/CSetShape.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"
#include "support/RoomScene.h"

#include <gtest/gtest.h>

namespace {

using test::RoomScene;

class LineToolSettings : public testing::Test {
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

TEST_F(LineToolSettings, KeysGoThroughAStyleWithTheConstraintNumberedAsStylesNumberIt) {
    CSetPen pen;
    pen.antiAlias = false;
    pen.threeD = true;
    pen.thickness = 250; // beyond the range: stored clamped
    pen.width = 7;
    pen.type = CSetPen::shapeClosed;
    pen.filled = true;
    pen.angle = 30;
    pen.constraintType = Constraint::onLine;
    pen.constraintAxis = Vector<3>(0, 0, 1);
    {
        CToolStyle::Attach attach(storage);
        pen.writeStyle();
    }
    EXPECT_EQ(storage.read(L"Pen", L"Thickness").value_or(L""), L"100");
    EXPECT_EQ(storage.read(L"Pen", L"ConstraintType").value_or(L""), L"2");

    CSetPen back;
    {
        CToolStyle::Attach attach(storage);
        back.readStyle();
    }
    EXPECT_FALSE(back.antiAlias);
    EXPECT_TRUE(back.threeD);
    EXPECT_EQ(back.thickness, 100);
    EXPECT_EQ(back.width, 7);
    EXPECT_EQ(back.type, CSetPen::shapeClosed);
    EXPECT_TRUE(back.filled);
    EXPECT_EQ(back.angle, 30);
    EXPECT_EQ(back.constraintType, Constraint::onLine);
    EXPECT_EQ(back.constraintAxis, Vector<3>(0, 0, 1));

    // A key missing from a style leaves the setting; a library style leaves the pen's size.
    MemoryStyleStorage library;
    library.setLibraryStyle(true);
    library.write(L"Pen", L"Width", L"30");
    library.write(L"Pen", L"Threed", L"0");
    library.write(L"Pen", L"Filled", L"0");
    {
        CToolStyle::Attach attach(library);
        back.readStyle();
    }
    EXPECT_EQ(back.width, 7);
    EXPECT_FALSE(back.filled);
    EXPECT_EQ(back.type, CSetPen::shapeClosed);
}

TEST_F(LineToolSettings, BuildInstallsAPenOrAShapeByTypeWhenThePenIsCurrent) {
    CSetPen pen;
    CSetShape shape(pen);
    pen.build();
    EXPECT_FALSE(ToolSelection::instance().applicator()) << "not the current tool";

    Toolbox::instance().state.currentApplicatorId = CSetPen::id;
    pen.width = 9;
    pen.build();
    const auto* built = dynamic_cast<const Pen*>(ToolSelection::instance().applicator().get());
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->settings().width, 9);

    shape.choose();
    shape.build();
    const auto* figure = dynamic_cast<const Shape*>(ToolSelection::instance().applicator().get());
    ASSERT_NE(figure, nullptr);
    EXPECT_EQ(figure->settings().kind, 0);
    shape.setFilled(true);
    pen.build();
    figure = dynamic_cast<const Shape*>(ToolSelection::instance().applicator().get());
    ASSERT_NE(figure, nullptr);
    EXPECT_EQ(figure->settings().kind, 1);
    EXPECT_EQ(figure->settings().width, 9);
}

TEST_F(LineToolSettings, TheRestoreEffectPaintsTheOriginalColourDepthAndMaterialBack) {
    RoomScene room = RoomScene::make(RoomScene::View::perspective, 96, 72);
    ZmapDocument& d = *room.document;
    ToolSelection& selection = ToolSelection::instance();
    selection.recolour = TQL::makeHandle<LinearRecolour>(255, 0, 255, 1.0f);
    PenSettings s;
    s.width = 9;
    s.antiAlias = false;
    auto line = [&](std::int32_t y) {
        selection.selectApplicator(Pen::create(s));
        for (std::int32_t x : {10, 80, 80}) {
            ASSERT_EQ(d.editor.beginStroke(StrokePoint{x, y, 1.0f, 0}, nullptr), status::ok);
            ASSERT_EQ(d.editor.endStroke(), status::ok);
        }
    };
    line(60);
    ASSERT_EQ(d.rgbAt(40, 60), (ColourPOD{255, 0, 255}));
    // Depth and material changed under the line too, as a construct tool would.
    TileHandle hold;
    *d.zWrite(40, 60, hold) = 12345;
    *d.matWrite(40, 60, hold) = 9;
    hold.reset();

    // The eraser paints with no colour of its own: recolouring would tint the original.
    selection.effect = TQL::makeHandle<Restore>();
    selection.recolour.reset();
    line(60);
    for (std::int32_t x : {12, 40, 78}) {
        EXPECT_EQ(d.rgbAt(x, 60), d.originalRgbAt(x, 60)) << x;
    }
    EXPECT_EQ(d.zAt(40, 60), d.originalZAt(40, 60));
    EXPECT_EQ(d.matAt(40, 60), d.originalMatAt(40, 60));
    EXPECT_EQ(selection.applicator()->undoNameId(), Restore::undoNameRestore);
}

} // namespace
