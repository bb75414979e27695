#include "app/CQuorvaleApp.h"

#include "app/AppSettings.h"
#include "app/CCubicView.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/QtSettingsStore.h"
#include "app/QtText.h"
#include "app/QtTimerService.h"
#include "app/TimingReport.h"
#include "app/UserMessages.h"
#include "core/ThreadName.h"
#include "image/TileHeap.h"
#include "views/CubicView.h"
#include "views/ZmapView.h"
#include "views/ZmapViewBase.h"

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QCursor>
#include <QDir>
#include <QFileInfo>

#include <clocale>
#include <cstdlib>

namespace {
CQuorvaleApp* theApp = nullptr;

/// Company and product of the settings when the language file doesn't name them.
const char* const defaultOrganisation = "Thornquill";
const char* const defaultApplication = "Quorvale5";
const char* const previousApplication = "Quorvale4";

/// String 10005 names the settings' company and product, "Company\Product".
void settingsNames(QString& organisation, QString& application) {
    organisation = QString::fromLatin1(defaultOrganisation);
    application = QString::fromLatin1(defaultApplication);
    const QString text = loadQString(10005);
    const int split = text.indexOf(QLatin1Char('\\'));
    if (split > 0 && split + 1 < text.size()) {
        organisation = text.left(split);
        application = text.mid(split + 1);
    }
}

/// The pseudo-cursor's view follows the mouse. Returns true if the pick view moved.
bool IdleCursorUpdate() {
    QWidget* under = QApplication::widgetAt(QCursor::pos());
    for (QWidget* w = under; w; w = w->parentWidget()) {
        if (auto* view = qobject_cast<CQuorvaleView*>(w)) {
            ZmapViewBase* base = &view->zmapView();
            if (ZmapViewBase::pickView() != base) {
                ZmapViewBase::setPickView(base);
                return true;
            }
            return false;
        }
    }
    return false;
}
} // namespace

const char* const CQuorvaleApp::missingLanguageText =
    "Cannot locate language resource.\nQuorvale will not start up without\nits resource DLL.";
const char* const CQuorvaleApp::wrongVersionText =
    "Incorrect version in local language resource\nDLL. Quorvale will not start up without\n"
    "its resource DLL.";
const char* const CQuorvaleApp::languageVersion = "Resources Version 3.0.0";

const DocumentTemplate CQuorvaleApp::documentTemplates[2] = {
    {101, ".zmp", "Quorvale image", false},
    {102, ".zmq", "Quorvale panorama", true},
};

CQuorvaleApp::CQuorvaleApp() {
    theApp = this;
}

CQuorvaleApp::~CQuorvaleApp() {
    ExitInstance();
    if (theApp == this) {
        theApp = nullptr;
    }
}

CQuorvaleApp* CQuorvaleApp::instance() {
    return theApp;
}

bool CQuorvaleApp::fail(const QString& text) {
    startupError_ = text;
    UserMessages::current().error(nullptr, text);
    return false;
}

bool CQuorvaleApp::InitInstance(const Options& options) {
    // 1. The main thread (the tile free list's owner) and the locale: texts follow the
    // user's locale, numbers in files and settings stay in the C form.
    TQL::setMainThread();
    std::setlocale(LC_ALL, "");
    std::setlocale(LC_NUMERIC, "C");

    // 2. The environment flags.
    debug_ = std::getenv("QUORVALEDEBUG") != nullptr;
    timing_ = std::getenv("QUORVALETIMING") != nullptr;
    TimingReport::setEnabled(timing_);

    // 3, 4. The language file and its version.
    QString languageFile = options.languageFile;
    if (languageFile.isEmpty()) {
        languageFile = toQString(
            LanguageTable::findDefault(toWString(QCoreApplication::applicationFilePath())));
    }
    if (languageFile.isEmpty() || language_.load(toWString(languageFile)) != status::ok) {
        return fail(QString::fromLatin1(missingLanguageText));
    }
    if (language_.version() != toWString(QString::fromLatin1(languageVersion))) {
        return fail(QString::fromLatin1(wrongVersionText));
    }
    TQL::setStringTable(&language_);
    running_ = true;

    // 5-7. The settings store under the company and product the language file names.
    QString organisation;
    QString application;
    settingsNames(organisation, application);
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(application);
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Quorvale"));
    store_ = std::make_unique<QtSettingsStore>(organisation, application);
    TQL::setSettingsStore(store_.get());
    invalidateSettingRecords();
    TileHeap::rereadSettings();

    // 8. The settings of version 4, once.
    if (store_->upgradeFrom(QString::fromLatin1(previousApplication)) && debug_) {
        std::fprintf(stderr, "Quorvale: settings taken over from %s\n", previousApplication);
    }
    store_->loadAliases(aliases_);

    // The engine's timers and the idle work run on this thread's event loop.
    timers_ = std::make_unique<QtTimerService>();
    TQL::setTimerService(timers_.get());
    if (QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance()) {
        connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &CQuorvaleApp::OnIdle);
    }

    // 9-13. The main window (with the recent files and drops of documents). The document
    // types are the templates above; their shell registration is the installed .desktop
    // file and MIME types.
    frame_ = std::make_unique<CMainFrame>();
    if (options.show) {
        frame_->showWithStoredPlacement();
    }

    // 14. The command line: a path opens as File > Open does; none opens the sample.
    if (!options.path.isEmpty()) {
        frame_->openDocument(options.path);
    } else if (options.openSample) {
        openSampleScene();
    }
    return true;
}

void CQuorvaleApp::OnIdle() {
    if (!running_) {
        return;
    }
    IdleCursorUpdate();
    // A draw cancelled before a command or a stroke left its rows waiting in the update
    // extent: hand those views to the drawing thread again.
    if (frame_) {
        for (CQuorvaleView* view : frame_->views()) {
            view->zmapView().IdleRedraw();
        }
        for (CCubicView* view : frame_->cubicViews()) {
            view->cubicView().IdleRedraw();
        }
    }
    TileHeap::idle();
}

void CQuorvaleApp::ExitInstance() {
    if (!running_) {
        return;
    }
    running_ = false;
    if (frame_) {
        frame_->closeAll();
        frame_.reset();
    }
    if (QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance()) {
        disconnect(dispatcher, nullptr, this, nullptr);
    }
    TileHeap::purge(true);
    TQL::setTimerService(nullptr);
    timers_.reset();
    TQL::setSettingsStore(nullptr);
    invalidateSettingRecords();
    store_.reset();
    TQL::setStringTable(nullptr);
}

QString CQuorvaleApp::sampleScenePath() {
    const QString exeDir = QCoreApplication::applicationDirPath();
    const QString candidates[] = {
        exeDir + QStringLiteral("/data/samples/house.dxf"),
        exeDir + QStringLiteral("/../share/quorvale/samples/house.dxf"),
        QStringLiteral(QUORVALE_SOURCE_DATA_DIR "/samples/house.dxf"),
    };
    for (const QString& c : candidates) {
        if (QFileInfo(c).isFile()) {
            return QFileInfo(c).absoluteFilePath();
        }
    }
    return QString();
}

bool CQuorvaleApp::openSampleScene() {
    const QString path = sampleScenePath();
    if (path.isEmpty() || !frame_) {
        return false;
    }
    NewImageParams params;
    params.kind = NewImageKind::model;
    params.sourcePath = toWString(path);
    params.width = 1600;
    params.height = 900;
    params.background = ColourPOD{245, 238, 232};
    return frame_->newDocument(params) == status::ok;
}
