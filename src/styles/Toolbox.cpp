#include "styles/Toolbox.h"

#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/ToolSelection.h"
#include "styles/CToolUI.h"

#include <algorithm>

Toolbox& Toolbox::instance() {
    static Toolbox toolbox;
    return toolbox;
}

void Toolbox::registerTool(CToolUI& tool) {
    toolTable_[tool.toolId()] = &tool;
}

void Toolbox::unregisterTool(const CToolUI& tool) {
    const auto it = toolTable_.find(tool.toolId());
    if (it != toolTable_.end() && it->second == &tool) {
        toolTable_.erase(it);
    }
    for (SlotEntry& entry : slotTable_) {
        if (entry.tool == &tool) {
            entry = SlotEntry();
        }
    }
}

CToolUI* Toolbox::tool(std::uint16_t toolId) const {
    const auto it = toolTable_.find(toolId);
    return it == toolTable_.end() ? nullptr : it->second;
}

void Toolbox::makeCurrent(CToolUI& tool, bool active) {
    const std::int32_t slot = tool.toolSlot();
    if (slot >= 0 && static_cast<std::size_t>(slot) < slotCount) {
        slotTable_[static_cast<std::size_t>(slot)] = SlotEntry{&tool, active};
    }
}

void Toolbox::installColourAndBlend() const {
    ToolSelection& selection = ToolSelection::instance();
    const float strength = static_cast<float>(std::clamp(state.colourStrength, 0, 100)) / 100.0f;
    selection.recolour = TQL::makeHandle<LinearRecolour>(state.colour[0], state.colour[1],
                                                         state.colour[2], strength);
    const std::uint32_t mode = state.blendMode < blendModeCount ? state.blendMode : 0;
    selection.setBlendMode(mode);
    selection.setOpacity(state.blendOpacity);
}

void Toolbox::reset() {
    state = ToolboxState();
    toolTable_.clear();
    slotTable_ = {};
}
