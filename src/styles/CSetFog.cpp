#include "styles/CSetFog.h"

#include "pipeline/ToolSelection.h"
#include "styles/Toolbox.h"

#include <algorithm>
#include <cwchar>

namespace {

constexpr std::uint32_t fogTitle = 1110;

std::wstring pointText(const IPoint<2>& p) {
    return std::to_wstring(p.x) + L"," + std::to_wstring(p.y);
}

IPoint<2> parsePoint(const std::wstring& text, const IPoint<2>& fallback) {
    int x = 0;
    int y = 0;
    if (std::swscanf(text.c_str(), L"%d,%d", &x, &y) == 2) {
        return {x, y};
    }
    return fallback;
}

} // namespace

CSetFog::CSetFog() : CToolUI(true, 7, fogTitle, id, L"Fog") {}

TQL::Handle<Fog> CSetFog::makeFog() const {
    return TQL::makeHandle<Fog>(settings);
}

void CSetFog::build() {
    ToolSelection::instance().fog =
        Toolbox::instance().state.fogOn ? makeFog() : TQL::Handle<Fog>();
}

void CSetFog::setDefaults() {
    settings = FogSettings();
}

void CSetFog::pageChoices(std::uint32_t type, int& range, int& linearMode, int& twoD) {
    range = 1;
    linearMode = 0;
    twoD = 0;
    switch (type) {
    case 0:
        range = 0;
        break;
    case 1:
        break;
    case 2:
        linearMode = 1;
        break;
    case 3:
        linearMode = 2;
        break;
    case 4:
        range = 3;
        break;
    case 5:
        twoD = 1;
        break;
    case 6:
        twoD = 1;
        linearMode = 2;
        break;
    case 7:
        twoD = 1;
        linearMode = 3;
        break;
    case 8:
        linearMode = 3;
        break;
    default:
        break;
    }
}

std::uint32_t CSetFog::typeFromChoices(int range, int linearMode, int twoD) {
    if (twoD) {
        return linearMode == 2 ? 6u : linearMode == 3 ? 7u : 5u;
    }
    switch (range) {
    case 0:
        return 0;
    case 3:
        return 4;
    default:
        break;
    }
    static constexpr std::uint32_t byMode[] = {1, 2, 3, 8};
    return byMode[std::clamp(linearMode, 0, 3)];
}

void CSetFog::readStyle() {
    FogSettings& s = settings;
    int range = 0;
    int linearMode = 0;
    int twoD = 0;
    pageChoices(s.type, range, linearMode, twoD);
    range = getInt(L"Range", range);
    linearMode = getInt(L"LinearMode", linearMode);
    twoD = getInt(L"TwoD", twoD);
    const int type = getInt(L"FogType", static_cast<int>(typeFromChoices(range, linearMode, twoD)));
    s.type = type < 0 ? s.type : static_cast<std::uint32_t>(type);
    s.transparent = getBool(L"Transparent", s.transparent);
    s.colour.r = static_cast<std::uint8_t>(std::clamp(getInt(L"ColourRed", s.colour.r), 0, 255));
    s.colour.g = static_cast<std::uint8_t>(std::clamp(getInt(L"ColourGreen", s.colour.g), 0, 255));
    s.colour.b = static_cast<std::uint8_t>(std::clamp(getInt(L"ColourBlue", s.colour.b), 0, 255));
    s.amount = static_cast<float>(std::clamp(getDouble(L"Amount", s.amount), 0.0, 1.0));
    s.full = static_cast<float>(getDouble(L"Full", s.full));
    s.none = static_cast<float>(getDouble(L"None", s.none));
    s.axis = getVector(L"Axis", s.axis);
    s.centre = toPoint(getVector(L"Centre", toVector(s.centre)));
    s.fullPoint = static_cast<float>(getVector(L"FullPoint", Vector<3>(s.fullPoint, 0, 0)).x());
    s.nonePoint = static_cast<float>(getVector(L"NonePoint", Vector<3>(s.nonePoint, 0, 0)).x());
    s.fullElevation = static_cast<float>(getDouble(L"FullElev", s.fullElevation));
    s.noneElevation = static_cast<float>(getDouble(L"NoneElev", s.noneElevation));
    s.elevationAxis = getVector(L"ElevAxis", s.elevationAxis);
    s.full2D = parsePoint(getString(L"Full2D", L""), s.full2D);
    s.none2D = parsePoint(getString(L"None2D", L""), s.none2D);
    s.centre2D = parsePoint(getString(L"Centre2D", L""), s.centre2D);
    s.range2D = static_cast<std::int32_t>(getDouble(L"Range2D", s.range2D));
    s.lineStart2D = parsePoint(getString(L"Front", L""), s.lineStart2D);
    s.lineEnd2D = parsePoint(getString(L"Back", L""), s.lineEnd2D);
    s.lineStart = toPoint(getVector(L"FrontPoint", toVector(s.lineStart)));
    s.lineEnd = toPoint(getVector(L"BackPoint", toVector(s.lineEnd)));
    s.inverted = getBool(L"Dense", s.inverted);
    s.clampDepth = getBool(L"Atmospheric", s.clampDepth);
    s.fixedCentre = getBool(L"Fixed", s.fixedCentre);
    s.infiniteLine = getBool(L"InfiniteLine", s.infiniteLine);
}

void CSetFog::writeStyle() {
    const FogSettings& s = settings;
    int range = 0;
    int linearMode = 0;
    int twoD = 0;
    pageChoices(s.type, range, linearMode, twoD);
    setInt(L"FogType", static_cast<int>(s.type));
    setInt(L"Range", range);
    setInt(L"LinearMode", linearMode);
    setInt(L"TwoD", twoD);
    setBool(L"Transparent", s.transparent);
    setInt(L"ColourRed", s.colour.r);
    setInt(L"ColourGreen", s.colour.g);
    setInt(L"ColourBlue", s.colour.b);
    setDouble(L"Amount", s.amount);
    setDouble(L"Full", s.full);
    setDouble(L"None", s.none);
    setVector(L"Axis", s.axis);
    setVector(L"Centre", toVector(s.centre));
    setVector(L"FullPoint", Vector<3>(s.fullPoint, 0, 0));
    setVector(L"NonePoint", Vector<3>(s.nonePoint, 0, 0));
    setDouble(L"FullElev", s.fullElevation);
    setDouble(L"NoneElev", s.noneElevation);
    setVector(L"ElevAxis", s.elevationAxis);
    setString(L"Full2D", pointText(s.full2D));
    setString(L"None2D", pointText(s.none2D));
    setString(L"Centre2D", pointText(s.centre2D));
    setDouble(L"Range2D", s.range2D);
    setString(L"Front", pointText(s.lineStart2D));
    setString(L"Back", pointText(s.lineEnd2D));
    setVector(L"FrontPoint", toVector(s.lineStart));
    setVector(L"BackPoint", toVector(s.lineEnd));
    setBool(L"Dense", s.inverted);
    setBool(L"Atmospheric", s.clampDepth);
    setBool(L"Fixed", s.fixedCentre);
    setBool(L"InfiniteLine", s.infiniteLine);
}
