#pragma once

#include "app/CQuorvaleApp.h"
#include "app/UserMessages.h"
#include "support/TempDir.h"

#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <deque>

class CMainFrame;
class QApplication;

namespace test {

/// The process's QApplication (offscreen unless a platform is set), made on first use.
QApplication& qtApp();

/// Message boxes that don't wait: every text is recorded, and questions take the answers
/// queued in `answers` (then "no").
class RecordedMessages : public UserMessages {
public:
    RecordedMessages() { UserMessages::install(this); }
    ~RecordedMessages() override { UserMessages::install(nullptr); }
    void error(QWidget*, const QString& text) override { errors << text; }
    Answer ask(QWidget*, const QString& text, bool) override {
        questions << text;
        if (answers.empty()) {
            return Answer::no;
        }
        const Answer a = answers.front();
        answers.pop_front();
        return a;
    }

    QStringList errors;
    QStringList questions;
    std::deque<Answer> answers;
};

/// A settings directory of the test's own: QSettings of the user scope live in it while
/// the object lives.
class IsolatedSettings {
public:
    IsolatedSettings();
    ~IsolatedSettings();
    QString directory() const { return QString::fromStdString(dir_.path()); }
    /// The settings file of the application's organisation and product.
    QString settingsFile() const;

private:
    TempDir dir_;
};

/// The application started without its sample scene, in a settings directory of its own,
/// with message boxes recorded and its main window shown at the given size. Questions left
/// at the end (unsaved documents) are answered "no".
class RunningApp : public ::testing::Test {
protected:
    explicit RunningApp(int width = 900, int height = 700) : width_(width), height_(height) {}
    void SetUp() override;
    void TearDown() override;

    IsolatedSettings settings_;
    RecordedMessages messages_;
    CQuorvaleApp app_;
    CMainFrame* frame_ = nullptr;

private:
    int width_;
    int height_;
};

/// Writes a language file with the program's strings but the version text `version`.
QString writeLanguageFile(const TempDir& dir, const QString& version);

} // namespace test
