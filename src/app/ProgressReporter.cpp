#include "app/ProgressReporter.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>

namespace {
/// How often the event loop runs during long work: often enough for Escape and repaints,
/// seldom enough not to slow the work.
constexpr int eventIntervalMs = 40;
} // namespace

ProgressReporter::ProgressReporter(QProgressBar* bar, QLabel* label, QWidget* block)
    : bar_(bar), label_(label), block_(block) {
    bar_->setRange(0, 1000);
    bar_->hide();
    label_->hide();
}

ProgressReporter::~ProgressReporter() {
    if (running_) {
        end();
    }
}

void ProgressReporter::begin(const QString& text) {
    stop_ = false;
    if (!running_) {
        running_ = true;
        previousStop_ = TQL::stopRequest();
        TQL::setStopRequest(this);
        qApp->installEventFilter(this);
        if (block_) {
            block_->setEnabled(false);
        }
    }
    label_->setText(text);
    label_->show();
    bar_->setValue(0);
    bar_->show();
    sinceEvents_.start();
    QApplication::setOverrideCursor(Qt::BusyCursor);
    QCoreApplication::processEvents();
}

void ProgressReporter::setText(const QString& text) {
    label_->setText(text);
}

void ProgressReporter::end() {
    if (!running_) {
        return;
    }
    running_ = false;
    qApp->removeEventFilter(this);
    TQL::setStopRequest(previousStop_);
    previousStop_ = nullptr;
    if (block_) {
        block_->setEnabled(true);
    }
    bar_->hide();
    label_->hide();
    QApplication::restoreOverrideCursor();
}

bool ProgressReporter::report(unsigned total, unsigned done, double fraction) {
    if (running_) {
        const double overall = total ? (done + fraction) / total : 0;
        bar_->setValue(static_cast<int>(qBound(0.0, overall, 1.0) * 1000));
        if (sinceEvents_.elapsed() >= eventIntervalMs) {
            QCoreApplication::processEvents();
            sinceEvents_.restart();
        }
    }
    return stop_;
}

bool ProgressReporter::stopRequested() {
    if (running_ && sinceEvents_.elapsed() >= eventIntervalMs) {
        QCoreApplication::processEvents();
        sinceEvents_.restart();
    }
    return stop_;
}

bool ProgressReporter::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress || event->type() == QEvent::ShortcutOverride) {
        if (static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
            stop_ = true;
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}
