#pragma once

#include "core/Handle.h"
#include "pipeline/Fog.h"
#include "styles/CToolUI.h"

/// The fog tool (tool 1110, section "Fog"): `settings` hold every value of Fog. `build`
/// installs a Fog in the fog slot of the tool selection when the toolbox's `fogOn` is set,
/// and clears the slot otherwise.
///
/// Keys: "FogType", "Transparent", "ColourRed", "ColourGreen", "ColourBlue", "Amount",
/// "Full", "None", "Axis", "Centre", "FullPoint", "NonePoint" (vectors whose x is the
/// distance), "FullElev", "NoneElev", "ElevAxis", "Full2D", "None2D", "Centre2D" ("x,y"),
/// "Range2D", "Front"/"Back" (type 7's points, "x,y"), "FrontPoint"/"BackPoint" (type 8's
/// points), "Dense", "Atmospheric", "Fixed", "InfiniteLine"; and for the page's choice of
/// type, "Range", "LinearMode" and "TwoD" (written, and read only when "FogType" is
/// absent).
class CSetFog : public CToolUI {
public:
    static constexpr std::uint16_t id = 1110;

    CSetFog();

    FogSettings settings;

    TQL::Handle<Fog> makeFog() const;

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;

    /// The page's three choices for a type, and back: `range` 0 depth, 1 distance, 2
    /// position, 3 angle; `linearMode` 0 along the view, 1 along an axis, 2 from a point,
    /// 3 from a line; `twoD` 1 for the image-plane forms.
    static void pageChoices(std::uint32_t type, int& range, int& linearMode, int& twoD);
    static std::uint32_t typeFromChoices(int range, int linearMode, int twoD);
};
