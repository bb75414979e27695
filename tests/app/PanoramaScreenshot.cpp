// app_panorama_screenshot CUBE.zmq OUT.png [PAN TILT FOV]: opens a cube panorama in the
// application, as a user would, and saves the main window looking across a face edge
// (by default pan 45: the edge between the front and right faces).
// app_panorama_screenshot --stroke OUT.png: renders the sample scene as a cube, drags a
// brush stroke across the edge between the front and right faces in the panorama view
// and saves the main window. Run it under xvfb-run.

#include "app/CCubicView.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CToolWindow.h"
#include "app/UserMessages.h"
#include "applicators/BrushApplicator.h"
#include "styles/CSetBrush.h"
#include "styles/Toolbox.h"
#include "views/CubicView.h"

#include <QApplication>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMouseEvent>
#include <QPixmap>
#include <QTemporaryDir>
#include <QThread>

#include <cmath>
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

void settle() {
    for (int i = 0; i < 20; ++i) {
        QCoreApplication::processEvents();
        QThread::msleep(20);
    }
}

void mouse(QWidget* w, QEvent::Type type, QPointF at, Qt::MouseButton button,
           Qt::MouseButtons held) {
    QMouseEvent e(type, at, w->mapToGlobal(at), button, held, Qt::NoModifier);
    QApplication::sendEvent(w, &e);
}

/// A wavy brush stroke across the middle of the view, from the front face over the edge
/// onto the right face, as a user's drag.
void strokeAcross(CMainFrame& frame, CCubicView& view) {
    ToolboxState& state = Toolbox::instance().state;
    state.colour[0] = 230;
    state.colour[1] = 40;
    state.colour[2] = 20;
    BrushSettings& brush = frame.toolWindow().brush().settings;
    brush = BrushSettings();
    brush.size = 10;
    brush.hardness = 70;
    frame.toolWindow().setCurrentTool(CSetBrush::id);
    const double w = view.width();
    const double h = view.height();
    const auto at = [&](double t) {
        return QPointF(w * (0.2 + 0.6 * t), h * (0.55 + 0.12 * std::sin(t * 6.28)));
    };
    mouse(&view, QEvent::MouseMove, at(0), Qt::NoButton, Qt::NoButton);
    mouse(&view, QEvent::MouseButtonPress, at(0), Qt::LeftButton, Qt::LeftButton);
    for (int i = 1; i <= 60; ++i) {
        mouse(&view, QEvent::MouseMove, at(i / 60.0), Qt::NoButton, Qt::LeftButton);
    }
    mouse(&view, QEvent::MouseButtonRelease, at(1), Qt::LeftButton, Qt::NoButton);
    // The outline shows where the mouse rests, above the stroke.
    mouse(&view, QEvent::MouseMove, QPointF(w * 0.5, h * 0.3), Qt::NoButton, Qt::NoButton);
}

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir settings;
    qputenv("XDG_CONFIG_HOME", settings.path().toLocal8Bit());
    QApplication qt(argc, argv);
    const bool stroke = argc == 3 && QString::fromLocal8Bit(argv[1]) == QStringLiteral("--stroke");
    if (argc != 3 && argc != 6) {
        std::fprintf(stderr, "usage: app_panorama_screenshot CUBE.zmq OUT.png [PAN TILT FOV]\n"
                             "       app_panorama_screenshot --stroke OUT.png\n");
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
    if (stroke) {
        NewImageParams params;
        params.kind = NewImageKind::model;
        params.sourcePath = CQuorvaleApp::sampleScenePath().toStdWString();
        params.model.view = ModelImageSettings::View::cubic;
        params.width = 6 * 400;
        params.height = 400;
        if (frame.newDocument(params) != status::ok) {
            return 1;
        }
    } else if (frame.openDocument(QString::fromLocal8Bit(argv[1])) != status::ok) {
        return 1;
    }
    CCubicView* view = frame.activeCubicView();
    if (!view) {
        std::fprintf(stderr, "the document did not open in a panorama view\n");
        return 1;
    }
    frame.mdiArea()->activeSubWindow()->showMaximized();
    settle();
    PanoramaAngles angles{45, 5, 90};
    if (argc == 6) {
        angles = {std::atof(argv[3]), std::atof(argv[4]), std::atof(argv[5])};
    }
    view->cubicView().setAngles(angles);
    view->waitForDrawing(30000);
    if (stroke) {
        strokeAcross(frame, *view);
        view->waitForDrawing(30000);
        settle();
    }
    QCoreApplication::processEvents();
    const bool ok = frame.grab().save(QString::fromLocal8Bit(argv[2]));
    std::printf("%s %s\n", ok ? "wrote" : "could not write", argv[2]);
    app.ExitInstance();
    UserMessages::install(nullptr);
    return ok ? 0 : 1;
}
