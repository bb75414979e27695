#pragma once

#include <QElapsedTimer>
#include <QString>

/// Times one piece of work and, when timing reports are on (QUORVALETIMING), prints
/// "Quorvale timing: <what> <subject>: <ms> ms" to stderr when it ends.
class TimingReport {
public:
    TimingReport(const char* what, const QString& subject);
    ~TimingReport();
    TimingReport(const TimingReport&) = delete;
    TimingReport& operator=(const TimingReport&) = delete;

    /// Timing reports on or off for the process (the application sets it at start-up).
    static void setEnabled(bool on);
    static bool enabled();
    /// Prints one report line now, if reports are on.
    static void print(const char* what, const QString& subject, double milliseconds);

private:
    const char* what_;
    QString subject_;
    QElapsedTimer timer_;
};
