#include "app/AppSettings.h"
#include "AppTestSupport.h"
#include "app/AliasTable.h"
#include "app/QtSettingsStore.h"
#include "core/ThreadName.h"
#include "image/TileHeap.h"

#include <QSettings>

#include <gtest/gtest.h>

#include <map>

namespace {

/// A store that counts its writes.
class CountingStore : public MemorySettingsStore {
public:
    void write(const std::wstring& section, const std::wstring& key,
               const std::wstring& value) override {
        ++writes;
        MemorySettingsStore::write(section, key, value);
    }
    int writes = 0;
};

/// Installs a store for one test and leaves every record unread.
class StoreScope {
public:
    explicit StoreScope(SettingsStore& store) {
        TQL::setSettingsStore(&store);
        invalidateSettingRecords();
    }
    ~StoreScope() {
        TQL::setSettingsStore(nullptr);
        invalidateSettingRecords();
    }
};

TEST(SettingsTable, EveryKeyHasItsDefault) {
    // The table of keys and defaults as users and other versions know it ("" is "none").
    const std::map<std::wstring, std::wstring> expected = {
        {L"ColourPicker", L"0"},
        {L"CutoutOutline", L"1"},
        {L"BrushOutline", L"1"},
        {L"AntiAlias", L"1"},
        {L"AntiAliasOptimise", L"0"},
        {L"LoadSettings", L"1"},
        {L"BackgroundColour", L"0"},
        {L"DisplayDocUnits", L"1"},
        {L"DisplayUnitType", L"2"},
        {L"GenerateShadows", L"1"},
        {L"ShadowStrength", L"0"},
        {L"ShadowSpread", L"0"},
        {L"ShadowCol", L"0"},
        {L"CMBlend", L"0"},
        {L"CMBlendAlpha", L"0"},
        {L"HelpDebug", L"0"},
        {L"OldTextureSampling", L"0"},
        {L"MaxTextureSamples", L"5"},
        {L"TweakNormalDistance", L"10.0000000000000000"},
        {L"TweakShiftDistance", L"100.0000000000000000"},
        {L"ICMEnabled", L"0"},
        {L"ICMIntent", L"0"},
        {L"StyleBrowserMenuUpdatedNew", L"0"},
        {L"StyleBrowserUpdatedTextColour", L"0"},
        {L"StyleBrowserNewTextColour", L"0"},
        {L"HistogramPosition", L""},
        {L"MatHotLinkPosition", L""},
        {L"ColourPickerSliderMode", L"1"},
        {L"CMWindowPosition", L""},
        {L"MatWindowPosition", L""},
        {L"TabWindowHeight", L"0"},
        {L"StyleRecorderPosition", L""},
        {L"StyleRecorderSmallIcons", L"0"},
        {L"HAWindowPosition", L""},
        {L"StyleWindowPosition", L""},
        {L"ExtentPosition", L""},
        {L"MainWindowMax", L"0"},
        {L"CubicViewSize", L"0"},
        {L"ModelSizePosition", L""},
        {L"FitWindowResize", L"1"},
        {L"FilePropertiesPosition", L""},
        {L"StatusbarMaterialVisible", L"1"},
        {L"InfoPosMode", L"1"},
        {L"InfoColourMode", L"1"},
        {L"UndoBufferKB", L"65536"},
        {L"TileFreeListSize", L"512"},
        {L"TileFreeListTimeout", L"10000"},
        {L"TabletEnable", L"1"},
        {L"TabletEraserEnable", L"1"},
        {L"TabletEraserCursor", L"2"},
        {L"StyleBrowserSmallIcons", L"0"},
        {L"StyleBrowserMagnify", L"1.0000000000000000"},
        {L"StyleBrowserView", L"0"},
        {L"StyleBrowserSearchSmallIcons", L"0"},
        {L"StyleBrowserSearchView", L"0"},
        {L"StyleBrowserInfoTip", L"1"},
        {L"StyleBrowserTreeWidth", L"0"},
        {L"StyleBrowserDetailsWidth", L"0"},
        {L"StyleBrowserSplit", L"1"},
        {L"StyleBrowserMenu", L"1"},
        {L"StyleBrowserVisible", L"1"},
        {L"StyleBrowserToolbar", L"1"},
        {L"StyleBrowserSearchWidth", L"0"},
        {L"StyleBrowserSplitRatio", L"0"},
        {L"FileView", L"0"},
        {L"FilePreview", L"0"},
        {L"ToolsWindowHeight", L"0"},
        {L"DynamicSettingsVisible", L"0"},
        {L"ToolboxSize", L"0"},
        {L"ToolboxLockSize", L"0"},
    };
    MemorySettingsStore empty;
    StoreScope scope(empty);
    std::map<std::wstring, std::wstring> actual;
    for (SettingRecord* r : settingRecords()) {
        EXPECT_TRUE(actual.emplace(r->key(), r->defaultText()).second) << "twice: " << r->key();
        // Nothing stored: the default is in force and the read says so.
        EXPECT_FALSE(r->read()) << r->key();
        EXPECT_EQ(r->valueText(), r->defaultText()) << r->key();
    }
    EXPECT_EQ(actual, expected);
}

TEST(SettingsTable, ReadsStoredValuesAndReportsWhetherStored) {
    MemorySettingsStore store;
    store.write(L"Settings", L"UndoBufferKB", L"2048");
    store.write(L"Settings", L"StyleBrowserMagnify", L"1.25");
    store.write(L"Settings", L"HistogramPosition", L"10,20,300,200");
    store.write(L"Settings", L"MaxTextureSamples", L"many"); // not a number: the default
    StoreScope scope(store);

    EXPECT_TRUE(appsettings::UndoBufferKB.read());
    EXPECT_EQ(appsettings::UndoBufferKB.value(), 2048);
    EXPECT_TRUE(appsettings::StyleBrowserMagnify.read());
    EXPECT_DOUBLE_EQ(appsettings::StyleBrowserMagnify.value(), 1.25);
    EXPECT_TRUE(appsettings::HistogramPosition.read());
    EXPECT_EQ(appsettings::HistogramPosition.value().values,
              (std::array<int, 4>{10, 20, 300, 200}));
    EXPECT_FALSE(appsettings::MaxTextureSamples.read());
    EXPECT_EQ(appsettings::MaxTextureSamples.value(), 5);
    EXPECT_FALSE(appsettings::ICMEnabled.read());
    EXPECT_EQ(appsettings::ICMEnabled.state(), IntSetting::defaultInForce);
}

TEST(SettingsTable, WritesOnlyWhatChangedInItsTextForm) {
    CountingStore store;
    StoreScope scope(store);

    // A default never stored is written even when equal: the store then knows it.
    appsettings::MaxTextureSamples.write(5);
    EXPECT_EQ(store.writes, 1);
    appsettings::MaxTextureSamples.write(5);
    EXPECT_EQ(store.writes, 1);
    appsettings::MaxTextureSamples.write(7);
    EXPECT_EQ(store.writes, 2);

    appsettings::TweakNormalDistance.write(0.1);
    EXPECT_EQ(*store.read(L"Settings", L"TweakNormalDistance"), L"0.1000000000000000");
    appsettings::CMWindowPosition.write(SettingPosition{true, {-5, 40, 640, 480}});
    EXPECT_EQ(*store.read(L"Settings", L"CMWindowPosition"), L"-5,40,640,480");
    appsettings::Background.write(SettingColour{ColourPOD{30, 20, 10}});
    EXPECT_EQ(*store.read(L"Settings", L"Background"), L"10/20/30");

    // Another run reads the same values back.
    invalidateSettingRecords();
    EXPECT_EQ(appsettings::MaxTextureSamples.value(), 7);
    EXPECT_DOUBLE_EQ(appsettings::TweakNormalDistance.value(), 0.1);
    EXPECT_EQ(appsettings::CMWindowPosition.value().values, (std::array<int, 4>{-5, 40, 640, 480}));
    EXPECT_EQ(appsettings::Background.value().colour, (ColourPOD{30, 20, 10}));
}

TEST(SettingsTable, RejectsMalformedPositionsAndColours) {
    SettingPosition p;
    SettingColour c;
    for (const wchar_t* bad : {L"1,2,3", L"1,2,3,4,5", L"1,,3,4", L"a,b,c,d", L""}) {
        EXPECT_FALSE(parseSettingValue(bad, p)) << bad;
    }
    for (const wchar_t* bad : {L"1/2", L"1/2/256", L"-1/2/3", L"1,2,3"}) {
        EXPECT_FALSE(parseSettingValue(bad, c)) << bad;
    }
    EXPECT_TRUE(parseSettingValue(L" 1 / 2 / 3 ", c));
    EXPECT_EQ(c.colour, (ColourPOD{3, 2, 1}));
}

TEST(SettingsTable, MainWindowPositionHasItsOwnFiveNumberForm) {
    MemorySettingsStore store;
    StoreScope scope(store);
    writeMainWindowPosition(MainWindowPlacement{3, 10, 20, 810, 620});
    EXPECT_EQ(*store.read(L"Settings", L"MainWindowPosition"), L"3, 10, 20, 810, 620");
    MainWindowPlacement p;
    ASSERT_TRUE(readMainWindowPosition(p));
    EXPECT_EQ(p.showState, 3);
    EXPECT_EQ(p.right, 810);
    store.write(L"Settings", L"MainWindowPosition", L"1, 500, 20, 10, 620"); // right < left
    EXPECT_FALSE(readMainWindowPosition(p));
}

TEST(SettingsTable, FreeListOptionsFillOnlyValuesNotStoredSeparately) {
    TQL::setMainThread();
    const struct {
        const wchar_t* size;    // stored TileFreeListSize, or null
        const wchar_t* timeout; // stored TileFreeListTimeout, or null
        int expectedSize;
        int expectedTimeout;
    } cases[] = {
        {nullptr, nullptr, 100, 2000},
        {L"300", nullptr, 300, 2000},
        {nullptr, L"50", 100, 50},
        {L"300", L"50", 300, 50},
    };
    for (const auto& c : cases) {
        MemorySettingsStore store;
        store.write(L"Settings", L"TileFreeListOptions", L"100,2000");
        if (c.size) {
            store.write(L"Settings", L"TileFreeListSize", c.size);
        }
        if (c.timeout) {
            store.write(L"Settings", L"TileFreeListTimeout", c.timeout);
        }
        StoreScope scope(store);
        TileHeap::rereadSettings();
        EXPECT_EQ(TileHeap::freeListSize(), c.expectedSize);
        EXPECT_EQ(TileHeap::purgeTimeout(), c.expectedTimeout);
    }
    TileHeap::rereadSettings();
}

TEST(QtSettingsStore, UpgradeTakesVersionFourValuesOnce) {
    test::IsolatedSettings isolated;
    {
        QSettings old(QStringLiteral("Thornquill"), QStringLiteral("Quorvale4"));
        old.setValue(QStringLiteral("Settings/UndoBufferKB"), QStringLiteral("4096"));
        old.setValue(QStringLiteral("StyleLibraries/Library1"), QStringLiteral("/lib/a.qsl"));
    }
    QtSettingsStore store(QStringLiteral("Thornquill"), QStringLiteral("Quorvale5"));
    EXPECT_TRUE(store.upgradeFrom(QStringLiteral("Quorvale4")));
    EXPECT_EQ(*store.read(L"Settings", L"UndoBufferKB"), L"4096");
    EXPECT_EQ(*store.read(L"StyleLibraries", L"Library1"), L"/lib/a.qsl");

    // This version's own values are never overwritten by a later upgrade.
    store.write(L"Settings", L"UndoBufferKB", L"8192");
    EXPECT_FALSE(store.upgradeFrom(QStringLiteral("Quorvale4")));
    EXPECT_EQ(*store.read(L"Settings", L"UndoBufferKB"), L"8192");
}

TEST(QtSettingsStore, KeepsTextsWithCommasWholeAndAliasesRecentFiles) {
    test::IsolatedSettings isolated;
    QtSettingsStore store(QStringLiteral("Thornquill"), QStringLiteral("Quorvale5"));
    store.write(L"Settings", L"TileFreeListOptions", L"100,2000");
    EXPECT_EQ(*store.read(L"Settings", L"TileFreeListOptions"), L"100,2000");
    EXPECT_FALSE(store.read(L"Settings", L"Missing"));

    AliasTable aliases;
    ASSERT_TRUE(aliases.set(L"Jobs", L"/home/ann/jobs"));
    store.saveAliases(aliases);
    store.setRecentFiles({QStringLiteral("/home/ann/jobs/a.zmp"), QStringLiteral("/tmp/b.zmp")},
                         aliases);
    EXPECT_EQ(*store.read(L"Recent File List", L"File1"), L"$(Jobs)/a.zmp");

    QtSettingsStore again(QStringLiteral("Thornquill"), QStringLiteral("Quorvale5"));
    AliasTable loaded;
    again.loadAliases(loaded);
    EXPECT_EQ(loaded.aliases(), aliases.aliases());
    ASSERT_TRUE(loaded.set(L"Jobs", L"/mnt/jobs"));
    EXPECT_EQ(again.recentFiles(loaded, 4),
              (QStringList{QStringLiteral("/mnt/jobs/a.zmp"), QStringLiteral("/tmp/b.zmp")}));
}

} // namespace
