// app_screenshots OUTDIR: starts the application on the sample scene and saves pictures
// of it for the documentation: the main window at fit zoom, a second window showing the
// depth channel, a 4:1 zoom of the house's front corner, the ground filled with the
// material lock and depth fog, and strokes painted by hand: a line lying on the ground and
// a tablet brush stroke whose pressure rises. Run it under xvfb-run.

#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/CToolWindow.h"
#include "app/UserMessages.h"
#include "image/StrokeApplicator.h"
#include "image/ZmapDocument.h"
#include "pipeline/Matte.h"
#include "styles/Toolbox.h"
#include "views/cameras/ViewParams.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QLineEdit>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPixmap>
#include <QPointingDevice>
#include <QScrollBar>
#include <QTabWidget>
#include <QTabletEvent>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QToolButton>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

/// Nothing waits for a click: errors go to stderr, and the filled document closes unsaved.
class PrintedMessages : public UserMessages {
public:
    void error(QWidget*, const QString& text) override {
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    }
    Answer ask(QWidget*, const QString&, bool) override { return Answer::no; }
};

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

/// The child widget of `parent` with the object name `name`.
template <class W> W* named(QWidget& parent, const char* name) {
    return parent.findChild<W*>(QString::fromLatin1(name));
}

bool save(CMainFrame& frame, const QString& dir, const char* name) {
    settle(frame);
    const QString path = dir + QLatin1Char('/') + QString::fromLatin1(name);
    const bool ok = frame.grab().save(path);
    std::printf("%s %s\n", ok ? "wrote" : "could not write", path.toLocal8Bit().constData());
    std::fflush(stdout);
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    // Settings of its own: the pictures show the factory settings, and the user's are
    // left as they are.
    QTemporaryDir settings;
    qputenv("XDG_CONFIG_HOME", settings.path().toLocal8Bit());
    QApplication qt(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: app_screenshots OUTDIR\n");
        return 2;
    }
    const QString dir = QString::fromLocal8Bit(argv[1]);
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
    // The tool window joins the last picture only.
    frame.toolWindow().hide();
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

    // The ground filled with the material lock, through fog that thickens with the
    // distance from the eye: clear at the nearest ground, full a fifth beyond the farthest.
    frame.toolWindow().show();
    settle(frame);
    view->fitWindow();
    CQuorvaleDoc& scene = view->document();
    MaterialId ground = 0;
    for (const auto& [id, record] : scene.materials()) {
        if (scene.materialName(id) == L"Ground") {
            ground = id;
        }
    }
    const ViewParams& vp = scene.viewParams();
    const Vector<3> axis = vp.zAxis.unit();
    const double scale = vp.modelScale > 0 ? vp.modelScale : 1.0;
    double nearest = 1e300;
    double farthest = 0;
    int groundX = -1;
    int groundY = -1;
    int farX = -1;
    int farY = -1;
    for (int y = 0; y < scene.height(); ++y) {
        for (int x = 0; x < scene.width(); ++x) {
            if (ground == 0 || scene.matAt(x, y) != ground) {
                continue;
            }
            const double d = dot(scene.worldAt(x, y) - vp.eye, axis);
            nearest = std::min(nearest, d);
            if (d > farthest) {
                farX = x;
                farY = y;
            }
            farthest = std::max(farthest, d);
            if (groundY < 0 || y > groundY) {
                groundX = x;
                groundY = y;
            }
        }
    }
    CToolWindow& tools = frame.toolWindow();
    ToolboxState& state = Toolbox::instance().state;
    // A sand-coloured paving, to tell the fill from the rendered grass.
    state.colour[0] = 200;
    state.colour[1] = 172;
    state.colour[2] = 124;
    state.lockMask = Matte::lockMaterialBit;
    state.fogOn = true;
    FogSettings& fog = tools.fog().settings;
    fog.type = 1;
    fog.colour = ColourPOD{236, 226, 214};
    fog.full = static_cast<float>(nearest * scale);
    fog.none = static_cast<float>(farthest * 1.2 * scale);
    tools.setCurrentTool(CSetFill::id);
    tools.refresh();
    if (auto* pages = tools.findChild<QTabWidget*>(QStringLiteral("toolPages"))) {
        pages->setCurrentIndex(2);
    }
    if (groundY >= 0) {
        frame.applyTool(view, groundX, groundY);
        frame.showPixelInfo(groundX, groundY, true);
    } else {
        std::fprintf(stderr, "no ground in the sample scene\n");
        ok = false;
    }
    ok = save(frame, dir, "fill-ground-fog.png") && ok;

    // Strokes by hand. A line lying on the ground from the nearest ground to the farthest,
    // 60 cm wide, narrowing as the ground recedes: two clicks, then Enter.
    state.lockMask = 0;
    state.fogOn = false;
    state.colour[0] = 190;
    state.colour[1] = 40;
    state.colour[2] = 30;
    tools.pen().threeD = true;
    tools.pen().thickness = 60;
    tools.pen().antiAlias = true;
    tools.setCurrentTool(CSetPen::id);
    if (groundY >= 0 && farY >= 0) {
        scene.beginStroke(StrokePoint{groundX, groundY, 1.0f, 0});
        scene.endStroke();
        scene.beginStroke(StrokePoint{farX, farY, 1.0f, 0});
        scene.endStroke();
        scene.closeStroke();
    }
    // A brush stroke from a tablet across the sky, its pressure rising from light to full,
    // sent to the view as the tablet's events.
    state.colour[0] = 30;
    state.colour[1] = 60;
    state.colour[2] = 160;
    BrushSettings& brush = tools.brush().settings;
    brush.type = brushRound;
    brush.size = std::max(4, scene.width() / 60);
    brush.hardness = 60;
    brush.dynamics = 2;
    tools.setCurrentTool(CSetBrush::id);
    tools.refresh();
    {
        const QPointingDevice stylus(
            "stylus", 7, QInputDevice::DeviceType::Stylus, QPointingDevice::PointerType::Pen,
            QInputDevice::Capability::Position | QInputDevice::Capability::Pressure, 1, 2);
        const CursorContext context = view->cursorContext();
        const int y0 = scene.height() / 8;
        const int x0 = scene.width() / 10;
        const int x1 = scene.width() * 9 / 10;
        const int steps = 120;
        for (int i = 0; i <= steps; ++i) {
            const double t = static_cast<double>(i) / steps;
            const int x = x0 + static_cast<int>((x1 - x0) * t);
            const int y = y0 + static_cast<int>(scene.height() / 16 * std::sin(t * 6.0));
            const Point<2> w = context.toView(Point<2>(x + 0.3, y + 0.3));
            const QPointF at(w.x(), w.y());
            const QEvent::Type type = i == 0       ? QEvent::TabletPress
                                      : i == steps ? QEvent::TabletRelease
                                                   : QEvent::TabletMove;
            QTabletEvent e(type, &stylus, at, view->viewport()->mapToGlobal(at), 0.1 + 0.9 * t, 0,
                           0, 0, 0, 0, Qt::NoModifier,
                           type == QEvent::TabletMove ? Qt::NoButton : Qt::LeftButton,
                           type == QEvent::TabletRelease ? Qt::NoButton : Qt::LeftButton);
            QApplication::sendEvent(view->viewport(), &e);
        }
    }
    ok = save(frame, dir, "pen-and-brush-strokes.png") && ok;

    // Brick laid on the house's walls in perspective, from the texture page: our brick
    // picture at its real size (450 mm across), "Wrapped", and a fill locked to the walls'
    // material and plane, clicked on the front wall and then on the side wall, which takes
    // the courses on round the corner without a jump.
    // The fog fill, the line and the brush stroke taken back first.
    for (QAction* undo = frame.action(QStringLiteral("editUndo")); undo->isEnabled();) {
        undo->trigger();
    }
    MaterialId walls = 0;
    for (const auto& [id, record] : scene.materials()) {
        if (scene.materialName(id) == L"Walls") {
            walls = id;
        }
    }
    // A wall pixel well inside its wall: every pixel within 4 of it shows the walls.
    auto insideWalls = [&scene, walls](int x, int y) {
        for (int dy = -4; dy <= 4; ++dy) {
            for (int dx = -4; dx <= 4; ++dx) {
                const int px = x + dx;
                const int py = y + dy;
                if (px < 0 || py < 0 || px >= scene.width() || py >= scene.height() ||
                    scene.matAt(px, py) != walls) {
                    return false;
                }
            }
        }
        return true;
    };
    // The leftmost such pixel is on the front wall, the rightmost on the side wall.
    int frontX = -1, frontY = -1, sideX = -1, sideY = -1;
    for (int y = 0; y < scene.height(); ++y) {
        for (int x = 0; x < scene.width(); ++x) {
            if (walls == 0 || !insideWalls(x, y)) {
                continue;
            }
            if (frontX < 0 || x < frontX) {
                frontX = x;
                frontY = y;
            }
            if (x > sideX) {
                sideX = x;
                sideY = y;
            }
        }
    }
    QDir samples = QFileInfo(CQuorvaleApp::sampleScenePath()).dir();
    const QString brick =
        QDir::cleanPath(samples.absoluteFilePath(QStringLiteral("../textures/brick.png")));
    named<QComboBox>(tools, "textureType")->setCurrentIndex(1);
    named<QComboBox>(tools, "textureMode")->setCurrentIndex(4);
    named<QDoubleSpinBox>(tools, "textureSize")->setValue(450);
    QLineEdit* file = named<QLineEdit>(tools, "textureFile");
    file->setText(brick);
    emit file->editingFinished();
    named<QCheckBox>(tools, "textureOn")->setChecked(true);
    state.lockMask = Matte::lockMaterialBit | Matte::lockPlaneBit;
    state.blendMode = 0;
    state.blendOpacity = 100;
    tools.setCurrentTool(CSetFill::id);
    tools.refresh();
    if (auto* pages = tools.findChild<QTabWidget*>(QStringLiteral("toolPages"))) {
        for (int i = 0; i < pages->count(); ++i) {
            if (pages->tabText(i) == QObject::tr("Texture")) {
                pages->setCurrentIndex(i);
            }
        }
    }
    if (walls != 0 && frontX >= 0 && sideX >= 0) {
        frame.applyTool(view, frontX, frontY);
        frame.applyTool(view, sideX, sideY);
        frame.showPixelInfo(sideX, sideY, true);
        // Close up at 1:1 on the house's corner, where the courses turn.
        while (view->zoom().first < view->zoom().second) {
            view->zoomIn();
        }
        settle(frame);
        const int cornerAtX = (frontX + 3 * sideX) / 4;
        const int cornerAtY = (frontY + sideY) / 2;
        view->scrollTo(cornerAtX - view->viewport()->width() / 2,
                       cornerAtY - view->viewport()->height() / 2);
        settle(frame);
    } else {
        std::fprintf(stderr, "no walls in the sample scene\n");
        ok = false;
    }
    ok = save(frame, dir, "brick-walls.png") && ok;

    app.ExitInstance();
    UserMessages::install(nullptr);
    return ok ? 0 : 1;
}
