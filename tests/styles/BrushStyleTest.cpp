// The brush tool's keys: every setting survives a style round trip, a small style is an
// overlay, and building selects a brush only when the brush is the current applicator.

#include "pipeline/ToolSelection.h"
#include "styles/CSetBrush.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include <gtest/gtest.h>

namespace {

TEST(BrushStyle, EverySettingRoundTripsAndASmallStyleIsAnOverlay) {
    CSetBrush written;
    BrushSettings& s = written.settings;
    s.type = brushSurfaceList;
    s.size = 33;
    s.modelSize = 0.75;
    s.sizeDocPercent = 2.5;
    s.list = {BrushListEntry{L"/pics/a.png", 12, 0.4, 30, 0.25, 0.75, 1.5},
              BrushListEntry{L"/pics/b.png", 18, 0.6, -15, 0.5, 0.5, 0}};
    s.multiScale = 1.25;
    s.hardness = 85;
    s.profileType = 2;
    s.aspect = 60;
    s.ramp = 2;
    s.vertical = true;
    s.rect2Way = true;
    s.bristles = 9;
    s.bristlesPercent = 40;
    s.angle = 35;
    s.filename = L"/pics/leaf.png";
    s.hookX = 0.2;
    s.hookY = 0.9;
    s.rasterAspect = 1.5;
    s.spaced = false;
    s.spacing = 0.6;
    s.continuous = true;
    s.follows = true;
    s.constraintType = 2;
    s.worldConstraint = true;
    s.constraintAxis = Vector<3>(0, 1, 0);
    s.opacity = 70;
    s.shrink = true;
    s.soften = true;
    s.dynamics = 7;
    s.spreadPercent = 25;
    s.twist = 45;
    s.colourSpread = 12;
    s.colourSpreadType = 1;
    s.sizeSpread = 20;
    s.dynamicOpacity = 15;
    s.fade = -80;
    s.fadeType = 1;

    MemoryStyleStorage storage;
    {
        CToolStyle::Attach attach(storage);
        written.writeStyle();
    }
    CSetBrush read;
    {
        CToolStyle::Attach attach(storage);
        read.readStyle();
    }
    EXPECT_EQ(read.settings, written.settings);
    EXPECT_EQ(storage.read(L"Brush", L"UseDynamics"), std::optional<std::wstring>(L"7"));
    EXPECT_EQ(storage.read(L"Brush", L"MultiFilename1"),
              std::optional<std::wstring>(L"/pics/b.png"));

    // A style with two keys changes those two and leaves the rest.
    MemoryStyleStorage small;
    small.write(L"Brush", L"Size", L"5");
    small.write(L"Brush", L"Spacing", L"not a number");
    {
        CToolStyle::Attach attach(small);
        read.readStyle();
    }
    EXPECT_EQ(read.settings.size, 5);
    EXPECT_DOUBLE_EQ(read.settings.spacing, 0.6);
    EXPECT_EQ(read.settings.list, written.settings.list);
}

TEST(BrushStyle, BuildSelectsABrushOnlyWhenItIsTheCurrentApplicator) {
    ToolSelection& selection = ToolSelection::instance();
    selection.reset();
    Toolbox& toolbox = Toolbox::instance();
    const ToolboxState saved = toolbox.state;
    CSetBrush brush;
    toolbox.state.currentApplicatorId = 2003;
    brush.build();
    EXPECT_FALSE(selection.selectedApplicator());

    toolbox.state.currentApplicatorId = CSetBrush::id;
    brush.settings.size = 7;
    brush.build();
    EXPECT_EQ(brush.lastStatus(), status::ok);
    auto* built = dynamic_cast<BrushApplicator*>(selection.selectedApplicator().get());
    ASSERT_NE(built, nullptr);
    EXPECT_DOUBLE_EQ(built->size, 7.0);

    // A picture brush without a readable picture keeps the last brush and says why.
    brush.settings.type = brushPicture;
    brush.settings.filename = L"/nonexistent/bark.png";
    brush.build();
    EXPECT_LT(brush.lastStatus(), 0);
    EXPECT_NE(brush.lastMessage().find(L"bark.png"), std::wstring::npos);
    EXPECT_EQ(selection.selectedApplicator().get(), built);
    toolbox.state = saved;
    selection.reset();
}

} // namespace
