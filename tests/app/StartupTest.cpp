#include "AppTestSupport.h"
#include "app/AppSettings.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "core/Status.h"

#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

CQuorvaleApp::Options quietOptions() {
    CQuorvaleApp::Options o;
    o.openSample = false;
    o.show = false;
    return o;
}

TEST(Startup, MissingLanguageFileStopsWithTheFixedText) {
    test::IsolatedSettings settings;
    test::RecordedMessages messages;
    CQuorvaleApp app;
    CQuorvaleApp::Options o = quietOptions();
    o.languageFile = settings.directory() + QStringLiteral("/no-such-language.txt");
    EXPECT_FALSE(app.InitInstance(o));
    const QString expected = QStringLiteral(
        "Cannot locate language resource.\nQuorvale will not start up without\nits resource DLL.");
    EXPECT_EQ(app.startupError(), expected);
    EXPECT_EQ(messages.errors, QStringList{expected});
    EXPECT_EQ(app.mainFrame(), nullptr);
    EXPECT_EQ(TQL::stringTable(), nullptr);
}

TEST(Startup, LanguageFileOfAnotherVersionStopsWithTheSecondText) {
    test::IsolatedSettings settings;
    test::TempDir dir;
    test::RecordedMessages messages;
    CQuorvaleApp app;
    CQuorvaleApp::Options o = quietOptions();
    o.languageFile = test::writeLanguageFile(dir, QStringLiteral("Resources Version 2.9.0"));
    EXPECT_FALSE(app.InitInstance(o));
    const QString expected =
        QStringLiteral("Incorrect version in local language resource\nDLL. Quorvale will not "
                       "start up without\nits resource DLL.");
    EXPECT_EQ(messages.errors, QStringList{expected});
    EXPECT_EQ(app.mainFrame(), nullptr);
    EXPECT_FALSE(QFile::exists(settings.settingsFile())) << "nothing was written";
}

TEST(Startup, RightVersionStartsWithTheLanguageTexts) {
    test::IsolatedSettings settings;
    test::TempDir dir;
    test::RecordedMessages messages;
    CQuorvaleApp app;
    CQuorvaleApp::Options o = quietOptions();
    o.languageFile = test::writeLanguageFile(dir, QStringLiteral("Resources Version 3.0.0"));
    ASSERT_TRUE(app.InitInstance(o));
    EXPECT_TRUE(messages.errors.isEmpty());
    ASSERT_NE(app.mainFrame(), nullptr);
    EXPECT_NE(statusText(status::damaged).find(L"damaged"), std::wstring::npos);
    app.ExitInstance();
    EXPECT_EQ(TQL::stringTable(), nullptr);
}

TEST(Startup, SettingWrittenInOneRunIsReadInTheNext) {
    test::IsolatedSettings settings;
    test::RecordedMessages messages;
    {
        CQuorvaleApp first;
        ASSERT_TRUE(first.InitInstance(quietOptions()));
        appsettings::UndoBufferKB.write(12345);
        appsettings::Background.write(SettingColour{ColourPOD{1, 2, 3}});
        first.ExitInstance();
    }
    {
        // The file holds the key as named, in its text form.
        QSettings file(settings.settingsFile(), QSettings::NativeFormat);
        EXPECT_EQ(file.value(QStringLiteral("Settings/UndoBufferKB")).toString(),
                  QStringLiteral("12345"));
        EXPECT_EQ(file.value(QStringLiteral("Settings/Background")).toString(),
                  QStringLiteral("3/2/1"));
    }
    CQuorvaleApp second;
    ASSERT_TRUE(second.InitInstance(quietOptions()));
    EXPECT_TRUE(appsettings::UndoBufferKB.read());
    EXPECT_EQ(appsettings::UndoBufferKB.value(), 12345);
    EXPECT_EQ(appsettings::Background.value().colour, (ColourPOD{1, 2, 3}));
    // Never stored: the default, and the read says it wasn't stored.
    EXPECT_FALSE(appsettings::MaxTextureSamples.read());
    EXPECT_EQ(appsettings::MaxTextureSamples.value(), 5);
    second.ExitInstance();
}

TEST(Startup, VersionFourSettingsAreTakenOverOnFirstStart) {
    test::IsolatedSettings settings;
    test::RecordedMessages messages;
    {
        QSettings old(QStringLiteral("Thornquill"), QStringLiteral("Quorvale4"));
        old.setValue(QStringLiteral("Settings/UndoBufferKB"), QStringLiteral("777"));
    }
    CQuorvaleApp app;
    ASSERT_TRUE(app.InitInstance(quietOptions()));
    EXPECT_EQ(appsettings::UndoBufferKB.value(), 777);
    app.ExitInstance();
}

TEST(Startup, MainWindowComesBackWhereItWas) {
    test::IsolatedSettings settings;
    test::RecordedMessages messages;
    {
        CQuorvaleApp first;
        CQuorvaleApp::Options o = quietOptions();
        o.show = true;
        ASSERT_TRUE(first.InitInstance(o));
        first.mainFrame()->setGeometry(40, 50, 700, 500);
        first.mainFrame()->storePlacement();
        first.ExitInstance();
    }
    MainWindowPlacement p;
    CQuorvaleApp second;
    CQuorvaleApp::Options o = quietOptions();
    o.show = true;
    ASSERT_TRUE(second.InitInstance(o));
    ASSERT_TRUE(readMainWindowPosition(p));
    EXPECT_EQ(second.mainFrame()->geometry().size(), QSize(700, 500));
    EXPECT_EQ(appsettings::MainWindowMax.value(), 0);
    second.ExitInstance();
}

} // namespace
