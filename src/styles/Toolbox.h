#pragma once

#include "core/Colour.h"

#include <array>
#include <cstdint>
#include <map>

class CToolUI;

/// The toolbox's own state: which applicator and effect are current, which locks are on,
/// the colour, the blend and the switches of texture, grain and fog. Stored in a style's
/// `Toolbox` section; the pages read it when they build.
struct ToolboxState {
    /// One of the applicator tool ids (2001 brush, 2003 fill, 2008 pen...).
    std::uint16_t currentApplicatorId = 2001;
    /// The locks that are on, 0 to 15: Matte::lockPlaneBit, lockAngleBit, lockMaterialBit,
    /// lockColourBit.
    std::uint32_t lockMask = 0;
    /// 1 paint, 2 edge, 3 construct, 4 restore, 5 filter, 6 water.
    std::int32_t currentEffectId = 1;
    bool textureOn = false;
    bool grainOn = false;
    bool fogOn = false;
    /// 0 to 17 (BlendMode).
    std::uint32_t blendMode = 0;
    /// The paint colour, red, green, blue.
    std::uint8_t colour[3] = {0, 0, 0};
    /// Percentages.
    std::int32_t colourStrength = 100;
    std::int32_t textureOpacity = 100;
    /// -1 for none.
    std::int32_t cutoutOpacity = -1;
    /// 1 to 100.
    std::int32_t blendOpacity = 100;
    /// The custom colours of the colour picker, 0x00RRGGBB.
    std::array<std::uint32_t, 18> customColours{};

    bool operator==(const ToolboxState&) const = default;
};

/// The process's tools: the toolbox state, the table of tools by id and the table of
/// current tools by slot. Interface thread only. Tools are owned by their creator (the
/// application's pages, or a caller's locals) and must unregister before they go.
class Toolbox {
public:
    static Toolbox& instance();

    ToolboxState state;

    struct SlotEntry {
        CToolUI* tool = nullptr;
        bool active = false;
    };
    static constexpr std::size_t slotCount = 9;

    /// Adds a tool to the table by its id (replacing one of the same id).
    void registerTool(CToolUI& tool);
    void unregisterTool(const CToolUI& tool);
    /// The tool of an id, or null.
    CToolUI* tool(std::uint16_t toolId) const;
    /// Makes a tool the current one of its slot.
    void makeCurrent(CToolUI& tool, bool active = true);
    const std::array<SlotEntry, slotCount>& slotTable() const { return slotTable_; }

    /// Installs the colour (a LinearRecolour of colour and colourStrength) and the blend
    /// (a Blender of blendOpacity and blendMode) of the state into the process's tool
    /// selection.
    void installColourAndBlend() const;

    /// Back to the start state with no tools.
    void reset();

private:
    Toolbox() = default;
    std::map<std::uint16_t, CToolUI*> toolTable_;
    std::array<SlotEntry, slotCount> slotTable_{};
};
