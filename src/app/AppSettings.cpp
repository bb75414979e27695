#include "app/AppSettings.h"

#include "core/StringUtils.h"

#include <cwchar>

namespace {

std::vector<SettingRecord*>& records() {
    static std::vector<SettingRecord*> list;
    return list;
}

/// Reads exactly `count` integers separated by `separator` (spaces around numbers are
/// allowed), and nothing else.
bool parseIntegers(const std::wstring& text, wchar_t separator, int* out, std::size_t count) {
    std::size_t start = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t end = i + 1 < count ? text.find(separator, start) : text.size();
        if (end == std::wstring::npos) {
            return false;
        }
        long v = 0;
        if (!isLong(&v, text.c_str() + start, static_cast<int>(end - start)) || v < -2147483647L ||
            v > 2147483647L) {
            return false;
        }
        out[i] = static_cast<int>(v);
        start = end + 1;
    }
    return true;
}

} // namespace

bool parseSettingValue(const std::wstring& text, SettingPosition& out) {
    SettingPosition p;
    if (!parseIntegers(text, L',', p.values.data(), p.values.size())) {
        return false;
    }
    p.known = true;
    out = p;
    return true;
}

std::wstring formatSettingValue(const SettingPosition& v) {
    if (!v.known) {
        return std::wstring();
    }
    return stringPrintf(L"%d,%d,%d,%d", v.values[0], v.values[1], v.values[2], v.values[3]);
}

bool parseSettingValue(const std::wstring& text, SettingColour& out) {
    int rgb[3];
    if (!parseIntegers(text, L'/', rgb, 3)) {
        return false;
    }
    for (int c : rgb) {
        if (c < 0 || c > 255) {
            return false;
        }
    }
    out.colour = ColourPOD{static_cast<std::uint8_t>(rgb[2]), static_cast<std::uint8_t>(rgb[1]),
                           static_cast<std::uint8_t>(rgb[0])};
    return true;
}

std::wstring formatSettingValue(const SettingColour& v) {
    return stringPrintf(L"%d/%d/%d", v.colour.r, v.colour.g, v.colour.b);
}

template <class T>
TableSetting<T>::TableSetting(const wchar_t* key, T defaultValue)
    : Setting<T>(key, defaultValue), defaultValue_(defaultValue) {
    records().push_back(this);
}

template <class T> std::wstring TableSetting<T>::defaultText() const {
    return formatSettingValue(defaultValue_);
}

template class TableSetting<int>;
template class TableSetting<double>;
template class TableSetting<SettingPosition>;

const std::vector<SettingRecord*>& settingRecords() {
    return records();
}

SettingRecord* findSettingRecord(const std::wstring& key) {
    for (SettingRecord* r : records()) {
        if (key == r->key()) {
            return r;
        }
    }
    return nullptr;
}

void invalidateSettingRecords() {
    for (SettingRecord* r : records()) {
        r->invalidate();
    }
    appsettings::Background.invalidate();
    appsettings::MonitorProfile.invalidate();
}

namespace appsettings {
// The table, in its order. Every record registers itself when constructed; all are
// defined here, so the list keeps this order.
TableSetting<int> ColourPicker(L"ColourPicker", 0);
TableSetting<int> CutoutOutline(L"CutoutOutline", 1);
TableSetting<int> BrushOutline(L"BrushOutline", 1);
TableSetting<int> AntiAlias(L"AntiAlias", 1);
TableSetting<int> AntiAliasOptimise(L"AntiAliasOptimise", 0);
TableSetting<int> LoadSettings(L"LoadSettings", 1);
TableSetting<int> BackgroundColour(L"BackgroundColour", 0);
TableSetting<int> DisplayDocUnits(L"DisplayDocUnits", 1);
TableSetting<int> DisplayUnitType(L"DisplayUnitType", 2);
TableSetting<int> GenerateShadows(L"GenerateShadows", 1);
TableSetting<int> ShadowStrength(L"ShadowStrength", 0);
TableSetting<int> ShadowSpread(L"ShadowSpread", 0);
TableSetting<int> ShadowCol(L"ShadowCol", 0);
TableSetting<int> CMBlend(L"CMBlend", 0);
TableSetting<int> CMBlendAlpha(L"CMBlendAlpha", 0);
TableSetting<int> HelpDebug(L"HelpDebug", 0);
TableSetting<int> OldTextureSampling(L"OldTextureSampling", 0);
TableSetting<int> MaxTextureSamples(L"MaxTextureSamples", 5);
TableSetting<double> TweakNormalDistance(L"TweakNormalDistance", 10.0);
TableSetting<double> TweakShiftDistance(L"TweakShiftDistance", 100.0);
TableSetting<int> ICMEnabled(L"ICMEnabled", 0);
TableSetting<int> ICMIntent(L"ICMIntent", 0);
TableSetting<int> StyleBrowserMenuUpdatedNew(L"StyleBrowserMenuUpdatedNew", 0);
TableSetting<int> StyleBrowserUpdatedTextColour(L"StyleBrowserUpdatedTextColour", 0);
TableSetting<int> StyleBrowserNewTextColour(L"StyleBrowserNewTextColour", 0);
TableSetting<SettingPosition> HistogramPosition(L"HistogramPosition", {});
TableSetting<SettingPosition> MatHotLinkPosition(L"MatHotLinkPosition", {});
TableSetting<int> ColourPickerSliderMode(L"ColourPickerSliderMode", 1);
TableSetting<SettingPosition> CMWindowPosition(L"CMWindowPosition", {});
TableSetting<SettingPosition> MatWindowPosition(L"MatWindowPosition", {});
TableSetting<int> TabWindowHeight(L"TabWindowHeight", 0);
TableSetting<SettingPosition> StyleRecorderPosition(L"StyleRecorderPosition", {});
TableSetting<int> StyleRecorderSmallIcons(L"StyleRecorderSmallIcons", 0);
TableSetting<SettingPosition> HAWindowPosition(L"HAWindowPosition", {});
TableSetting<SettingPosition> StyleWindowPosition(L"StyleWindowPosition", {});
TableSetting<SettingPosition> ExtentPosition(L"ExtentPosition", {});
TableSetting<int> MainWindowMax(L"MainWindowMax", 0);
TableSetting<int> CubicViewSize(L"CubicViewSize", 0);
TableSetting<SettingPosition> ModelSizePosition(L"ModelSizePosition", {});
TableSetting<int> FitWindowResize(L"FitWindowResize", 1);
TableSetting<SettingPosition> FilePropertiesPosition(L"FilePropertiesPosition", {});
TableSetting<int> StatusbarMaterialVisible(L"StatusbarMaterialVisible", 1);
TableSetting<int> InfoPosMode(L"InfoPosMode", 1);
TableSetting<int> InfoColourMode(L"InfoColourMode", 1);
TableSetting<int> UndoBufferKB(L"UndoBufferKB", 65536);
TableSetting<int> TileFreeListSize(L"TileFreeListSize", 512);
TableSetting<int> TileFreeListTimeout(L"TileFreeListTimeout", 10000);
TableSetting<int> TabletEnable(L"TabletEnable", 1);
TableSetting<int> TabletEraserEnable(L"TabletEraserEnable", 1);
TableSetting<int> TabletEraserCursor(L"TabletEraserCursor", 2);
TableSetting<int> StyleBrowserSmallIcons(L"StyleBrowserSmallIcons", 0);
TableSetting<double> StyleBrowserMagnify(L"StyleBrowserMagnify", 1.0);
TableSetting<int> StyleBrowserView(L"StyleBrowserView", 0);
TableSetting<int> StyleBrowserSearchSmallIcons(L"StyleBrowserSearchSmallIcons", 0);
TableSetting<int> StyleBrowserSearchView(L"StyleBrowserSearchView", 0);
TableSetting<int> StyleBrowserInfoTip(L"StyleBrowserInfoTip", 1);
TableSetting<int> StyleBrowserTreeWidth(L"StyleBrowserTreeWidth", 0);
TableSetting<int> StyleBrowserDetailsWidth(L"StyleBrowserDetailsWidth", 0);
TableSetting<int> StyleBrowserSplit(L"StyleBrowserSplit", 1);
TableSetting<int> StyleBrowserMenu(L"StyleBrowserMenu", 1);
TableSetting<int> StyleBrowserVisible(L"StyleBrowserVisible", 1);
TableSetting<int> StyleBrowserToolbar(L"StyleBrowserToolbar", 1);
TableSetting<int> StyleBrowserSearchWidth(L"StyleBrowserSearchWidth", 0);
TableSetting<int> StyleBrowserSplitRatio(L"StyleBrowserSplitRatio", 0);
TableSetting<int> FileView(L"FileView", 0);
TableSetting<int> FilePreview(L"FilePreview", 0);
TableSetting<int> ToolsWindowHeight(L"ToolsWindowHeight", 0);
TableSetting<int> DynamicSettingsVisible(L"DynamicSettingsVisible", 0);
TableSetting<int> ToolboxSize(L"ToolboxSize", 0);
TableSetting<int> ToolboxLockSize(L"ToolboxLockSize", 0);

Setting<SettingColour> Background(L"Background", SettingColour{ColourPOD{255, 255, 255}});
Setting<std::wstring> MonitorProfile(L"MonitorProfile", std::wstring());
} // namespace appsettings

bool readMainWindowPosition(MainWindowPlacement& placement) {
    const auto text = TQL::settingsStore().read(L"Settings", L"MainWindowPosition");
    int v[5];
    if (!text || !parseIntegers(*text, L',', v, 5) || v[3] <= v[1] || v[4] <= v[2]) {
        return false;
    }
    placement = MainWindowPlacement{v[0], v[1], v[2], v[3], v[4]};
    return true;
}

void writeMainWindowPosition(const MainWindowPlacement& p) {
    TQL::settingsStore().write(
        L"Settings", L"MainWindowPosition",
        stringPrintf(L"%d, %d, %d, %d, %d", p.showState, p.left, p.top, p.right, p.bottom));
}
