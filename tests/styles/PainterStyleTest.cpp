// The painter tool's keys: every setting survives a style round trip, a small style is an
// overlay, and building selects a painter only when the painter is the current applicator.

#include "pipeline/ToolSelection.h"
#include "styles/CSetPainter.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include <gtest/gtest.h>

namespace {

TEST(PainterStyle, EverySettingRoundTripsAndASmallStyleIsAnOverlay) {
    CSetPainter written;
    PainterSettings& s = written.settings;
    // Every field away from its factory value.
    s.start = 80;
    s.end = 20;
    s.length = 31;
    s.lengthDocPercent = 1.5;
    s.angle = 45;
    s.twist = 12;
    s.wobble = 7;
    s.depthScale = 0.35;
    s.softness = 70;
    s.relative = true;
    s.type = painterSquare;
    s.reference = Vector<3>(1, 3, -2);
    s.reset = false;
    s.strict = false;
    s.delay = true;
    s.skew = -30;
    s.shape = 1;
    s.cellSize = 9;
    s.cellSizeY = 11;
    s.splatRandom = true;
    s.splatter = 60;
    s.depthSort = false;
    s.hook = 50;
    s.dynamics = 3;
    s.colourSpread = 25;
    s.colourSpreadType = 1;
    s.dynamicOpacity = 40;
    s.fade = -90;
    s.fadeType = 1;
    s.opacity = 70;
    s.list = {PainterSizeEntry{6, 10, 0.25, 0.75, 0, 1.5}, PainterSizeEntry{9, -5, 0.5, 0.5, 2, 1}};
    s.multiScale = 1.25;
    s.spreadPercent = 33;
    s.spread = 40;
    s.filename = L"/pics/stroke.png";
    ASSERT_NE(s, PainterSettings());

    MemoryStyleStorage storage;
    {
        CToolStyle::Attach attach(storage);
        written.writeStyle();
    }
    CSetPainter read;
    {
        CToolStyle::Attach attach(storage);
        read.readStyle();
    }
    EXPECT_EQ(read.settings, written.settings);
    EXPECT_EQ(storage.read(L"Painter", L"MultiSize1"), std::optional<std::wstring>(L"9"));

    // A style with two keys changes those two and leaves the rest.
    MemoryStyleStorage small;
    small.write(L"Painter", L"Length", L"5");
    small.write(L"Painter", L"DepthScale", L"far");
    {
        CToolStyle::Attach attach(small);
        read.readStyle();
    }
    EXPECT_EQ(read.settings.length, 5);
    EXPECT_DOUBLE_EQ(read.settings.depthScale, 0.35);
    EXPECT_EQ(read.settings.list, written.settings.list);
}

TEST(PainterStyle, BuildSelectsAPainterOnlyWhenItIsTheCurrentApplicator) {
    ToolSelection& selection = ToolSelection::instance();
    selection.reset();
    Toolbox& toolbox = Toolbox::instance();
    const ToolboxState saved = toolbox.state;
    CSetPainter painter;
    toolbox.state.currentApplicatorId = 2001;
    painter.build();
    EXPECT_FALSE(selection.selectedApplicator());

    toolbox.state.currentApplicatorId = CSetPainter::id;
    painter.settings.cellSize = 7;
    painter.build();
    EXPECT_EQ(painter.lastStatus(), status::ok);
    auto* built = dynamic_cast<Painter*>(selection.selectedApplicator().get());
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->settings().cellSize, 7);

    // A picture dab without a readable picture keeps the last painter and says why.
    painter.settings.type = painterPicture;
    painter.settings.filename = L"/nonexistent/daub.png";
    painter.build();
    EXPECT_LT(painter.lastStatus(), 0);
    EXPECT_NE(painter.lastMessage().find(L"daub.png"), std::wstring::npos);
    EXPECT_EQ(selection.selectedApplicator().get(), built);
    toolbox.state = saved;
    selection.reset();
}

} // namespace
