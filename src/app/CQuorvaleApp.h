#pragma once

#include "app/AliasTable.h"
#include "core/LanguageTable.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class CMainFrame;
class QtSettingsStore;
class QtTimerService;

/// A kind of document the application opens: its resource id, extension and name.
struct DocumentTemplate {
    int resourceId;
    const char* extension; ///< with the dot
    const char* name;
    bool panorama;
};

/// The process: finds the language file, reads the settings, makes the main window,
/// opens the document of the command line (or the sample scene), and runs the idle work.
/// One for the process, made after the QApplication.
class CQuorvaleApp : public QObject {
    Q_OBJECT

public:
    /// How start-up may be changed, for tests and for the command line.
    struct Options {
        /// The language file; empty: found beside the executable or under the prefix.
        QString languageFile;
        /// A document to open, or empty.
        QString path;
        /// With no path, render the sample scene into a first document.
        bool openSample = true;
        /// Show the main window (tests may leave it hidden).
        bool show = true;
    };

    /// The text shown when the language file can't be loaded, and when it has another
    /// version: the only texts of the program outside the language file.
    static const char* const missingLanguageText;
    static const char* const wrongVersionText;
    /// The version text the language file must have.
    static const char* const languageVersion;

    /// The two document types: 101 the image (.zmp), 102 the panorama (.zmq).
    static const DocumentTemplate documentTemplates[2];

    CQuorvaleApp();
    ~CQuorvaleApp() override;

    /// Runs the start-up in order; false if it stopped (its message has been shown).
    bool InitInstance(const Options& options);
    /// Closes the documents (asking to save), purges the tile free list and lets go of
    /// the language file and the settings. Safe to call twice.
    void ExitInstance();
    /// The idle work: cursor update and arming of the tile free list purge.
    void OnIdle();

    static CQuorvaleApp* instance();
    CMainFrame* mainFrame() const { return frame_.get(); }
    QtSettingsStore& settings() const { return *store_; }
    AliasTable& aliases() { return aliases_; }
    const LanguageTable& language() const { return language_; }
    /// QUORVALEDEBUG and QUORVALETIMING were set.
    bool debugFlag() const { return debug_; }
    bool timingFlag() const { return timing_; }
    /// The text start-up stopped with, empty if it didn't.
    const QString& startupError() const { return startupError_; }

    /// The sample scene's drawing, empty if it isn't installed.
    static QString sampleScenePath();
    /// Renders the sample scene into a new document.
    bool openSampleScene();

private:
    bool fail(const QString& text);

    LanguageTable language_;
    std::unique_ptr<QtSettingsStore> store_;
    std::unique_ptr<QtTimerService> timers_;
    AliasTable aliases_;
    std::unique_ptr<CMainFrame> frame_;
    QString startupError_;
    bool debug_ = false;
    bool timing_ = false;
    bool running_ = false;
};
