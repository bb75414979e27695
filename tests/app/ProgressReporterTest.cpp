#include "app/ProgressReporter.h"
#include "AppTestSupport.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QThread>
#include <QWidget>

#include <gtest/gtest.h>

namespace {

struct ProgressWindow {
    ProgressWindow() : bar(&window), label(&window), work(&window) { window.show(); }
    QWidget window;
    QProgressBar bar;
    QLabel label;
    QWidget work;
};

TEST(ProgressReporter, EscapeDuringWorkStopsItAndNothingAfter) {
    test::qtApp();
    ProgressWindow w;
    ProgressReporter progress(&w.bar, &w.label, &w.work);

    {
        ProgressScope scope(progress, QStringLiteral("Rendering"));
        EXPECT_TRUE(w.bar.isVisible());
        EXPECT_FALSE(w.work.isEnabled()) << "no other command starts meanwhile";
        EXPECT_EQ(TQL::stopRequest(), &progress);
        EXPECT_FALSE(progress.report(4, 1, 0.5));
        EXPECT_EQ(w.bar.value(), 375);

        QCoreApplication::postEvent(
            &w.window, new QKeyEvent(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier));
        QThread::msleep(60); // longer than the interval between event runs
        EXPECT_TRUE(progress.report(4, 2, 0));
        EXPECT_TRUE(TQL::stopRequested());
    }
    EXPECT_FALSE(w.bar.isVisible());
    EXPECT_TRUE(w.work.isEnabled());
    EXPECT_EQ(TQL::stopRequest(), nullptr);

    // The next piece of work starts without the old request.
    ProgressScope again(progress, QStringLiteral("Reading"));
    EXPECT_FALSE(progress.report(1, 0, 0.1));
}

} // namespace
