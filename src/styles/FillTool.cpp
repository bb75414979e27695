#include "styles/FillTool.h"

#include "image/ZmapDocument.h"
#include "pipeline/ToolSelection.h"
#include "styles/CSetFill.h"
#include "styles/CSetFog.h"
#include "styles/CSetMatte.h"

Status runFill(ZmapDocument& document, std::int32_t x, std::int32_t y, StrokeView* view,
               const CSetFill& fill, const CSetMatte& matte, const CSetFog& fog,
               const ToolboxState& state) {
    ToolSelection& selection = ToolSelection::instance();
    // The selection is the one road by which a stroke gets its stages.
    Toolbox& toolbox = Toolbox::instance();
    const ToolboxState saved = toolbox.state;
    toolbox.state = state;
    toolbox.installColourAndBlend();
    toolbox.state = saved;
    selection.matting = matte.makeMatte(state.lockMask & 15u);
    selection.fog = state.fogOn ? fog.makeFog() : TQL::Handle<Fog>();
    selection.selectApplicator(fill.makeFiller());
    const StrokePoint point{x, y, 1.0f, 0};
    return document.editor.runStroke({point}, view);
}

Status runFill(ZmapDocument& document, std::int32_t x, std::int32_t y, StrokeView* view) {
    Toolbox& toolbox = Toolbox::instance();
    const CSetFill defaultFill;
    const CSetMatte defaultMatte;
    const CSetFog defaultFog;
    const auto* fill = dynamic_cast<const CSetFill*>(toolbox.tool(CSetFill::id));
    const auto* matte = dynamic_cast<const CSetMatte*>(toolbox.tool(CSetMatte::id));
    const auto* fog = dynamic_cast<const CSetFog*>(toolbox.tool(CSetFog::id));
    return runFill(document, x, y, view, fill ? *fill : defaultFill, matte ? *matte : defaultMatte,
                   fog ? *fog : defaultFog, toolbox.state);
}
