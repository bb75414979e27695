#include "AppTestSupport.h"

#include "app/CMainFrame.h"

#include "core/LanguageTable.h"
#include "core/StringUtils.h"

#include <QApplication>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace test {

QApplication& qtApp() {
    static int argc = 1;
    static char name[] = "app_tests";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        if (!std::getenv("QT_QPA_PLATFORM")) {
            setenv("QT_QPA_PLATFORM", "offscreen", 1);
        }
        // Nothing of the user's own configuration is read or written.
        QStandardPaths::setTestModeEnabled(true);
        return new QApplication(argc, argv);
    }();
    return *app;
}

IsolatedSettings::IsolatedSettings() {
    qtApp();
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QString::fromStdString(dir_.path()));
}

IsolatedSettings::~IsolatedSettings() {
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
}

QString IsolatedSettings::settingsFile() const {
    return directory() + QStringLiteral("/Thornquill/Quorvale5.conf");
}

QString writeLanguageFile(const TempDir& dir, const QString& version) {
    const std::wstring source = LanguageTable::findDefault(L"/nonexistent/app");
    std::ifstream in(utf8(source));
    std::stringstream out;
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("version\t", 0) == 0) {
            out << "version\t" << version.toStdString() << "\n";
        } else {
            out << line << "\n";
        }
    }
    const std::string path = dir.file("quores-test.txt");
    std::ofstream(path) << out.str();
    return QString::fromStdString(path);
}

void RunningApp::SetUp() {
    CQuorvaleApp::Options o;
    o.openSample = false;
    o.show = false;
    ASSERT_TRUE(app_.InitInstance(o));
    frame_ = app_.mainFrame();
    frame_->resize(width_, height_);
    frame_->show();
}

void RunningApp::TearDown() {
    messages_.answers.assign(8, UserMessages::Answer::no);
    app_.ExitInstance();
}

} // namespace test

/// fontconfig keeps a cache it never frees; the leak checker is told so, and nothing else.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}
