// app_panorama_screenshot CUBE.zmq OUT.png [PAN TILT FOV]: opens a cube panorama in the
// application, as a user would, and saves the main window looking across a face edge
// (by default pan 45: the edge between the front and right faces). Run it under xvfb-run.

#include "app/CCubicView.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CToolWindow.h"
#include "app/UserMessages.h"
#include "views/CubicView.h"

#include <QApplication>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPixmap>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <cstdlib>

namespace {

class PrintedMessages : public UserMessages {
public:
    void error(QWidget*, const QString& text) override {
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    }
    Answer ask(QWidget*, const QString&, bool) override { return Answer::no; }
};

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir settings;
    qputenv("XDG_CONFIG_HOME", settings.path().toLocal8Bit());
    QApplication qt(argc, argv);
    if (argc != 3 && argc != 6) {
        std::fprintf(stderr, "usage: app_panorama_screenshot CUBE.zmq OUT.png [PAN TILT FOV]\n");
        return 2;
    }
    PrintedMessages messages;
    UserMessages::install(&messages);
    CQuorvaleApp app;
    CQuorvaleApp::Options options;
    options.show = false;
    options.openSample = false;
    if (!app.InitInstance(options)) {
        return 1;
    }
    CMainFrame& frame = *app.mainFrame();
    frame.setGeometry(0, 0, 1280, 860);
    frame.toolWindow().hide();
    frame.show();
    if (frame.openDocument(QString::fromLocal8Bit(argv[1])) != status::ok) {
        return 1;
    }
    CCubicView* view = frame.activeCubicView();
    if (!view) {
        std::fprintf(stderr, "the document did not open in a panorama view\n");
        return 1;
    }
    frame.mdiArea()->activeSubWindow()->showMaximized();
    for (int i = 0; i < 20; ++i) {
        QCoreApplication::processEvents();
        QThread::msleep(20);
    }
    PanoramaAngles angles{45, 5, 90};
    if (argc == 6) {
        angles = {std::atof(argv[3]), std::atof(argv[4]), std::atof(argv[5])};
    }
    view->cubicView().setAngles(angles);
    view->waitForDrawing(30000);
    QCoreApplication::processEvents();
    const bool ok = frame.grab().save(QString::fromLocal8Bit(argv[2]));
    std::printf("%s %s\n", ok ? "wrote" : "could not write", argv[2]);
    app.ExitInstance();
    UserMessages::install(nullptr);
    return ok ? 0 : 1;
}
