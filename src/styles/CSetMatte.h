#pragma once

#include "core/Handle.h"
#include "pipeline/Matte.h"
#include "styles/CToolUI.h"

#include <cstdint>
#include <string>
#include <vector>

/// The locks (tool 1107, section "Matte"). Which locks are on is the toolbox's `lockMask`;
/// the rest is `settings`. `build` installs a Matte in the matting slot of the tool
/// selection, or nothing at all when no lock is on.
///
/// Keys: "UseRestore", "Invert", "MaterialList" (list mode), "MaterialCount" and
/// "Materials" (the names, separated by '|'), "IncludeBackground", "PlaneTolerance"
/// (percent), "Angle" (degrees), "ColourTolerance" (0 to 255, the channel mode), and
/// "ColourTolerances": "mode,on1,on2,on3,t1,t2,t3", with on and t for red, green, blue in
/// mode 0 (t unused: ColourTolerance applies) and for hue (degrees), lightness and
/// saturation (percent) in mode 1.
class CSetMatte : public CToolUI {
public:
    static constexpr std::uint16_t id = 1107;

    CSetMatte();

    MatteSettings settings;

    /// The Matte for a lock mask (Matte::LockBit), or null when no lock is on.
    TQL::Handle<Matte> makeMatte(std::uint32_t lockMask) const;

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;

    /// The names as stored in "Materials", and back.
    static std::wstring joinNames(const std::vector<std::wstring>& names);
    static std::vector<std::wstring> splitNames(const std::wstring& text);
};
