// app_screenshots OUTDIR: starts the application on the sample scene and saves pictures
// of it for the documentation: the main window at fit zoom, a second window showing the
// depth channel, and a 4:1 zoom of the house's front corner. Run it under xvfb-run.

#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "image/ZmapDocument.h"

#include <QApplication>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPixmap>
#include <QScrollBar>
#include <QThread>
#include <QTimer>

#include <cstdio>

namespace {

void settle(CMainFrame& frame) {
    for (int i = 0; i < 20; ++i) {
        QCoreApplication::processEvents();
        QThread::msleep(20);
    }
    for (CQuorvaleView* v : frame.views()) {
        v->waitForDrawing(30000);
    }
    QCoreApplication::processEvents();
}

bool save(CMainFrame& frame, const QString& dir, const char* name) {
    settle(frame);
    const QString path = dir + QLatin1Char('/') + QString::fromLatin1(name);
    const bool ok = frame.grab().save(path);
    std::printf("%s %s\n", ok ? "wrote" : "could not write", path.toLocal8Bit().constData());
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    QApplication qt(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: app_screenshots OUTDIR\n");
        return 2;
    }
    const QString dir = QString::fromLocal8Bit(argv[1]);
    CQuorvaleApp app;
    CQuorvaleApp::Options options;
    options.show = false;
    options.openSample = false;
    if (!app.InitInstance(options)) {
        return 1;
    }
    CMainFrame& frame = *app.mainFrame();
    frame.setGeometry(0, 0, 1280, 860);
    frame.show();
    if (!app.openSampleScene()) {
        return 1;
    }
    frame.mdiArea()->activeSubWindow()->showMaximized();
    settle(frame);
    frame.activeView()->fitWindow();
    // The status bar as it reads with the mouse over the house's wall.
    const ZmapDocument& doc = frame.activeView()->document();
    frame.showPixelInfo(doc.width() * 45 / 100, doc.height() * 47 / 100, true);
    bool ok = save(frame, dir, "main-window-fit.png");

    // A second window on the same document, showing depth, beside the first.
    frame.mdiArea()->activeSubWindow()->showNormal();
    frame.newWindow(channelZ);
    frame.mdiArea()->tileSubWindows();
    for (CQuorvaleView* v : frame.views()) {
        v->fitWindow();
    }
    ok = save(frame, dir, "depth-window.png") && ok;

    // The first window alone at 4:1, scrolled to the bottom-left corner of the image.
    frame.mdiArea()->closeActiveSubWindow();
    QCoreApplication::processEvents();
    frame.mdiArea()->activeSubWindow()->showMaximized();
    settle(frame);
    CQuorvaleView* view = frame.activeView();
    view->setShownChannel(channelRgb);
    while (view->zoom().first < 4 * view->zoom().second) {
        view->zoomIn();
    }
    settle(frame);
    // The front corner of the house, where wall, terrace and planter meet, in the middle.
    const ZmapDocument& image = view->document();
    const int cornerX = image.width() * 342 / 1000;
    const int cornerY = image.height() * 623 / 1000;
    view->scrollTo(4 * cornerX - view->viewport()->width() / 2,
                   4 * cornerY - view->viewport()->height() / 2);
    frame.showPixelInfo(cornerX, cornerY, true);
    ok = save(frame, dir, "zoom-4to1-corner.png") && ok;

    app.ExitInstance();
    return ok ? 0 : 1;
}
