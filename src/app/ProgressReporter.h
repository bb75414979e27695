#pragma once

#include "core/Reporter.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>

class QLabel;
class QProgressBar;
class QWidget;

/// Progress of long work in the main window's status bar, and the stop key: while work
/// runs, report() shows the fraction done and lets the event loop run (the window stays
/// painted; the rest of the window is disabled, so no other command starts), and Escape
/// asks the work to stop. Installed as the process's stop poll while it runs.
class ProgressReporter : public QObject, public Reporter, public StopRequest {
public:
    /// `bar` and `label` are shown while work runs; `block` is disabled meanwhile.
    ProgressReporter(QProgressBar* bar, QLabel* label, QWidget* block);
    ~ProgressReporter() override;

    /// Starts a piece of work with its text; the stop request is cleared.
    void begin(const QString& text);
    /// Changes the text of the work in progress.
    void setText(const QString& text);
    /// Ends the work: the bar is hidden and the window enabled again.
    void end();
    bool running() const { return running_; }

    bool report(unsigned total, unsigned done, double fraction) override;
    bool stopRequested() override;
    /// Asks the running work to stop, as Escape does.
    void requestStop() { stop_ = true; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QProgressBar* bar_;
    QLabel* label_;
    QWidget* block_;
    QElapsedTimer sinceEvents_;
    bool running_ = false;
    bool stop_ = false;
    StopRequest* previousStop_ = nullptr;
};

/// Runs a piece of work between begin() and end() of a reporter, also when it throws.
class ProgressScope {
public:
    ProgressScope(ProgressReporter& reporter, const QString& text) : reporter_(reporter) {
        reporter_.begin(text);
    }
    ~ProgressScope() { reporter_.end(); }
    ProgressScope(const ProgressScope&) = delete;
    ProgressScope& operator=(const ProgressScope&) = delete;

private:
    ProgressReporter& reporter_;
};
