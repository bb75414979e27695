#pragma once

#include "core/Colour.h"
#include "core/Settings.h"

#include <array>
#include <string>
#include <vector>

/// A window's placement as the settings keep it: left, top, width and height in screen
/// pixels, or nothing ("none", the default of every position key).
struct SettingPosition {
    bool known = false;
    std::array<int, 4> values{};
    bool operator==(const SettingPosition&) const = default;
};

/// A colour as the settings keep it, in the text form "%d/%d/%d" (red, green, blue).
struct SettingColour {
    ColourPOD colour;
    bool operator==(const SettingColour&) const = default;
};

/// Text forms of the two record types above; found by Setting<T> through their type.
/// A position is "%d,%d,%d,%d"; a colour "%d/%d/%d", each part 0 to 255.
bool parseSettingValue(const std::wstring& text, SettingPosition& out);
std::wstring formatSettingValue(const SettingPosition& v);
bool parseSettingValue(const std::wstring& text, SettingColour& out);
std::wstring formatSettingValue(const SettingColour& v);

/// One record of the settings table, whatever its type: what the preferences, the upgrade
/// and the tests need without knowing the type.
class SettingRecord {
public:
    virtual ~SettingRecord() = default;
    virtual const wchar_t* key() const = 0;
    /// The default in its stored text form ("" for a position, which has none).
    virtual std::wstring defaultText() const = 0;
    /// The value in force in its stored text form (read first if need be).
    virtual std::wstring valueText() = 0;
    /// Loads the value on first use; true if it is stored.
    virtual bool read() = 0;
    /// Forgets the cached value: the next read goes to the store again.
    virtual void invalidate() = 0;
};

/// A typed record of the table. It is a Setting<T> (lazy read, write only when changed)
/// that also lists itself in the table.
template <class T> class TableSetting : public Setting<T>, public SettingRecord {
public:
    TableSetting(const wchar_t* key, T defaultValue);
    const wchar_t* key() const override { return Setting<T>::key(); }
    std::wstring defaultText() const override;
    std::wstring valueText() override { return formatSettingValue(Setting<T>::value()); }
    bool read() override { return Setting<T>::read(); }
    void invalidate() override { Setting<T>::invalidate(); }

private:
    T defaultValue_;
};

/// Every record of the table, in the order of the table.
const std::vector<SettingRecord*>& settingRecords();
/// The record of `key`, or null.
SettingRecord* findSettingRecord(const std::wstring& key);
/// Forgets every cached value (a new settings store was installed).
void invalidateSettingRecords();

/// The settings table of the application: one typed record a key, section "Settings".
namespace appsettings {
extern TableSetting<int> ColourPicker;
extern TableSetting<int> CutoutOutline;
extern TableSetting<int> BrushOutline;
extern TableSetting<int> AntiAlias;
extern TableSetting<int> AntiAliasOptimise;
extern TableSetting<int> LoadSettings;
/// The colour around the image in a view: 0xBBGGRR (red in the low byte).
extern TableSetting<int> BackgroundColour;
/// 1: lengths are shown in the document's own units; 0: in DisplayUnitType.
extern TableSetting<int> DisplayDocUnits;
/// The length unit code shown when DisplayDocUnits is 0 (2 millimetres, 3 centimetres,
/// 4 metres, 7 inches, 8 feet).
extern TableSetting<int> DisplayUnitType;
extern TableSetting<int> GenerateShadows;
extern TableSetting<int> ShadowStrength;
extern TableSetting<int> ShadowSpread;
extern TableSetting<int> ShadowCol;
extern TableSetting<int> CMBlend;
extern TableSetting<int> CMBlendAlpha;
extern TableSetting<int> HelpDebug;
extern TableSetting<int> OldTextureSampling;
extern TableSetting<int> MaxTextureSamples;
extern TableSetting<double> TweakNormalDistance;
extern TableSetting<double> TweakShiftDistance;
/// Colour matching of the views to the monitor profile.
extern TableSetting<int> ICMEnabled;
/// The rendering intent of that matching (0 perceptual ... 3 absolute colorimetric).
extern TableSetting<int> ICMIntent;
extern TableSetting<int> StyleBrowserMenuUpdatedNew;
extern TableSetting<int> StyleBrowserUpdatedTextColour;
extern TableSetting<int> StyleBrowserNewTextColour;
extern TableSetting<SettingPosition> HistogramPosition;
extern TableSetting<SettingPosition> MatHotLinkPosition;
extern TableSetting<int> ColourPickerSliderMode;
extern TableSetting<SettingPosition> CMWindowPosition;
extern TableSetting<SettingPosition> MatWindowPosition;
extern TableSetting<int> TabWindowHeight;
extern TableSetting<SettingPosition> StyleRecorderPosition;
extern TableSetting<int> StyleRecorderSmallIcons;
extern TableSetting<SettingPosition> HAWindowPosition;
extern TableSetting<SettingPosition> StyleWindowPosition;
extern TableSetting<SettingPosition> ExtentPosition;
/// The main window was maximised when the program last ended.
extern TableSetting<int> MainWindowMax;
extern TableSetting<int> CubicViewSize;
extern TableSetting<SettingPosition> ModelSizePosition;
/// A view re-fits its zoom when its window is resized.
extern TableSetting<int> FitWindowResize;
extern TableSetting<SettingPosition> FilePropertiesPosition;
extern TableSetting<int> StatusbarMaterialVisible;
extern TableSetting<int> InfoPosMode;
extern TableSetting<int> InfoColourMode;
/// The undo store's budget in kilobytes.
extern TableSetting<int> UndoBufferKB;
extern TableSetting<int> TileFreeListSize;
extern TableSetting<int> TileFreeListTimeout;
extern TableSetting<int> TabletEnable;
extern TableSetting<int> TabletEraserEnable;
extern TableSetting<int> TabletEraserCursor;
extern TableSetting<int> StyleBrowserSmallIcons;
extern TableSetting<double> StyleBrowserMagnify;
extern TableSetting<int> StyleBrowserView;
extern TableSetting<int> StyleBrowserSearchSmallIcons;
extern TableSetting<int> StyleBrowserSearchView;
extern TableSetting<int> StyleBrowserInfoTip;
extern TableSetting<int> StyleBrowserTreeWidth;
extern TableSetting<int> StyleBrowserDetailsWidth;
extern TableSetting<int> StyleBrowserSplit;
extern TableSetting<int> StyleBrowserMenu;
extern TableSetting<int> StyleBrowserVisible;
extern TableSetting<int> StyleBrowserToolbar;
extern TableSetting<int> StyleBrowserSearchWidth;
extern TableSetting<int> StyleBrowserSplitRatio;
extern TableSetting<int> FileView;
extern TableSetting<int> FilePreview;
extern TableSetting<int> ToolsWindowHeight;
extern TableSetting<int> DynamicSettingsVisible;
extern TableSetting<int> ToolboxSize;
extern TableSetting<int> ToolboxLockSize;

// Settings outside the table, read and written by the code that uses them.

/// The background colour of the last new plain image ("%d/%d/%d").
extern Setting<SettingColour> Background;
/// The monitor's ICC profile file for colour matching; empty: sRGB.
extern Setting<std::wstring> MonitorProfile;
} // namespace appsettings

/// The main window's placement, "%d, %d, %d, %d, %d": the show state (1 normal,
/// 3 maximised), then left, top, right and bottom of the normal frame.
struct MainWindowPlacement {
    int showState = 1;
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
};
bool readMainWindowPosition(MainWindowPlacement& placement);
void writeMainWindowPosition(const MainWindowPlacement& placement);
