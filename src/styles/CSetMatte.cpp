#include "styles/CSetMatte.h"

#include "pipeline/ToolSelection.h"
#include "styles/Toolbox.h"

#include <algorithm>
#include <cwchar>

namespace {
constexpr std::uint32_t matteTitle = 1107;
constexpr wchar_t nameSeparator = L'|';
} // namespace

CSetMatte::CSetMatte() : CToolUI(true, 2, matteTitle, id, L"Matte") {}

TQL::Handle<Matte> CSetMatte::makeMatte(std::uint32_t lockMask) const {
    const bool plane = (lockMask & Matte::lockPlaneBit) != 0;
    const bool angle = (lockMask & Matte::lockAngleBit) != 0;
    const bool material = (lockMask & Matte::lockMaterialBit) != 0;
    const bool colour = (lockMask & Matte::lockColourBit) != 0;
    if (!plane && !angle && !material && !colour) {
        return nullptr;
    }
    return TQL::makeHandle<Matte>(settings, plane, angle, material, colour);
}

void CSetMatte::build() {
    ToolSelection::instance().matting = makeMatte(Toolbox::instance().state.lockMask & 15u);
}

void CSetMatte::setDefaults() {
    settings = MatteSettings();
}

std::wstring CSetMatte::joinNames(const std::vector<std::wstring>& names) {
    std::wstring text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i) {
            text += nameSeparator;
        }
        text += names[i];
    }
    return text;
}

std::vector<std::wstring> CSetMatte::splitNames(const std::wstring& text) {
    std::vector<std::wstring> names;
    if (text.empty()) {
        return names;
    }
    std::size_t from = 0;
    for (;;) {
        const std::size_t bar = text.find(nameSeparator, from);
        names.push_back(text.substr(from, bar == std::wstring::npos ? bar : bar - from));
        if (bar == std::wstring::npos) {
            return names;
        }
        from = bar + 1;
    }
}

void CSetMatte::readStyle() {
    MatteSettings& s = settings;
    s.useOriginal = getBool(L"UseRestore", s.useOriginal);
    s.invert = getBool(L"Invert", s.invert);
    s.materialListMode = getBool(L"MaterialList", s.materialListMode);
    const int count = getInt(L"MaterialCount", static_cast<int>(s.materialNames.size()));
    const std::wstring names = getString(L"Materials", joinNames(s.materialNames));
    std::vector<std::wstring> list = splitNames(names);
    if (count >= 0 && static_cast<std::size_t>(count) < list.size()) {
        list.resize(static_cast<std::size_t>(count));
    }
    s.materialNames = list;
    s.includeBackground = getBool(L"IncludeBackground", s.includeBackground);
    s.planeTolerancePercent =
        getInt(L"PlaneTolerance", static_cast<int>(s.planeTolerancePercent + 0.5));
    s.angleDegrees = getInt(L"Angle", static_cast<int>(s.angleDegrees + 0.5));
    s.colourTolerance = std::clamp(getInt(L"ColourTolerance", s.colourTolerance), 0, 255);

    // "mode,on1,on2,on3,t1,t2,t3"; a text that will not parse leaves everything.
    const std::wstring text = getString(L"ColourTolerances", L"");
    int mode = 0;
    int on[3] = {};
    double t[3] = {};
    if (std::swscanf(text.c_str(), L"%d,%d,%d,%d,%lf,%lf,%lf", &mode, &on[0], &on[1], &on[2], &t[0],
                     &t[1], &t[2]) == 7 &&
        (mode == 0 || mode == 1)) {
        s.colourMode = mode;
        if (mode == 0) {
            for (int i = 0; i < 3; ++i) {
                s.channelOn[i] = on[i] != 0;
            }
        } else {
            s.hueOn = on[0] != 0;
            s.lightnessOn = on[1] != 0;
            s.saturationOn = on[2] != 0;
            s.hueToleranceDegrees = std::clamp(t[0], 0.0, 180.0);
            s.lightnessTolerancePercent = std::clamp(t[1], 0.0, 100.0);
            s.saturationTolerancePercent = std::clamp(t[2], 0.0, 100.0);
        }
    }
}

void CSetMatte::writeStyle() {
    const MatteSettings& s = settings;
    setBool(L"UseRestore", s.useOriginal);
    setBool(L"Invert", s.invert);
    setBool(L"MaterialList", s.materialListMode);
    setInt(L"MaterialCount", static_cast<int>(s.materialNames.size()));
    setString(L"Materials", joinNames(s.materialNames));
    setBool(L"IncludeBackground", s.includeBackground);
    setInt(L"PlaneTolerance", static_cast<int>(s.planeTolerancePercent + 0.5));
    setInt(L"Angle", static_cast<int>(s.angleDegrees + 0.5));
    setInt(L"ColourTolerance", s.colourTolerance);
    wchar_t buffer[160];
    if (s.colourMode == 0) {
        std::swprintf(buffer, 160, L"0,%d,%d,%d,0,0,0", s.channelOn[0] ? 1 : 0,
                      s.channelOn[1] ? 1 : 0, s.channelOn[2] ? 1 : 0);
    } else {
        std::swprintf(buffer, 160, L"1,%d,%d,%d,%.17g,%.17g,%.17g", s.hueOn ? 1 : 0,
                      s.lightnessOn ? 1 : 0, s.saturationOn ? 1 : 0, s.hueToleranceDegrees,
                      s.lightnessTolerancePercent, s.saturationTolerancePercent);
    }
    setString(L"ColourTolerances", buffer);
}
