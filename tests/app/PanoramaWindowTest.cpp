// The panorama window: a cube document opens in it, its camera follows the mouse and the
// wheel, the fill and the brush paint on the face pixels under the mouse (with the brush's
// outline lying on the face), and the panorama export refuses what isn't a cube.
#include "AppTestSupport.h"
#include "app/BrushOutlinePC.h"
#include "app/CCubicView.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/CToolWindow.h"
#include "applicators/BrushApplicator.h"
#include "image/DocumentCommands.h"
#include "styles/CSetBrush.h"
#include "styles/CSetFill.h"
#include "styles/Toolbox.h"
#include "views/CubicView.h"

#include <QAction>
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <gtest/gtest.h>

namespace {

class PanoramaWindows : public test::RunningApp {
protected:
    /// The sample scene rendered as a small cube panorama and saved as .zmq.
    QString cubeFile() {
        NewImageParams params;
        params.kind = NewImageKind::model;
        params.sourcePath = CQuorvaleApp::sampleScenePath().toStdWString();
        params.model.view = ModelImageSettings::View::cubic;
        params.width = 6 * 48;
        params.height = 48;
        EXPECT_EQ(frame_->newDocument(params), status::ok);
        const QString path = QString::fromStdString(dir_.file("house.zmq"));
        EXPECT_EQ(frame_->saveActiveAs(path), status::ok);
        return path;
    }

    static void mouse(QWidget* w, QEvent::Type type, QPointF at, Qt::MouseButton button,
                      Qt::MouseButtons held) {
        QMouseEvent e(type, at, w->mapToGlobal(at), button, held, Qt::NoModifier);
        QApplication::sendEvent(w, &e);
    }
    static std::vector<ColourPOD> pixels(const ZmapDocument& document) {
        std::vector<ColourPOD> out;
        for (std::int32_t y = 0; y < document.height(); ++y) {
            for (std::int32_t x = 0; x < document.width(); ++x) {
                out.push_back(document.rgbAt(x, y));
            }
        }
        return out;
    }

    static void wheel(QWidget* w, int delta) {
        QWheelEvent e(QPointF(50, 50), w->mapToGlobal(QPointF(50, 50)), QPoint(), QPoint(0, delta),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(w, &e);
    }

    test::TempDir dir_;
};

TEST_F(PanoramaWindows, ACubeDocumentOpensInThePanoramaViewAndOffersTheStripToo) {
    const QString path = cubeFile();
    ASSERT_NE(frame_->activeCubicView(), nullptr) << "a new cube document shows as a panorama";
    frame_->closeAll();
    ASSERT_EQ(frame_->openDocument(path), status::ok);
    CCubicView* cube = frame_->activeCubicView();
    ASSERT_NE(cube, nullptr);
    EXPECT_EQ(frame_->activeView(), nullptr);
    EXPECT_TRUE(cube->waitForDrawing(10000));

    frame_->action(QStringLiteral("windowNew"))->trigger();
    CQuorvaleView* strip = frame_->activeView();
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(&strip->document(), &cube->document());
    EXPECT_EQ(strip->document().windowCount(), 2u);
}

TEST_F(PanoramaWindows, WheelAndDragTurnTheCameraWithinLimits) {
    cubeFile();
    CCubicView* view = frame_->activeCubicView();
    ASSERT_NE(view, nullptr);
    CubicView& engine = view->cubicView();
    const double start = engine.angles().fieldOfView;
    wheel(view, 120);
    EXPECT_LT(engine.angles().fieldOfView, start);
    for (int i = 0; i < 60; ++i) {
        wheel(view, 120);
    }
    EXPECT_EQ(engine.angles().fieldOfView, CubicDrawable::minFieldOfView);
    for (int i = 0; i < 60; ++i) {
        wheel(view, -120);
    }
    EXPECT_EQ(engine.angles().fieldOfView, CubicDrawable::maxFieldOfView);

    // Dragging to the right looks to the left; dragging up far enough stops at the zenith.
    const double pan = engine.angles().pan;
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(100, 100),
                      view->mapToGlobal(QPointF(100, 100)), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QApplication::sendEvent(view, &press);
    QMouseEvent move(QEvent::MouseMove, QPointF(140, 5000), view->mapToGlobal(QPointF(140, 5000)),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view, &move);
    QMouseEvent release(QEvent::MouseButtonRelease, QPointF(140, 5000),
                        view->mapToGlobal(QPointF(140, 5000)), Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(view, &release);
    const double turned = std::fmod(pan - engine.angles().pan + 360.0, 360.0);
    EXPECT_GT(turned, 1.0);
    EXPECT_LT(turned, 180.0);
    EXPECT_EQ(engine.angles().tilt, 90.0);
}

TEST_F(PanoramaWindows, AClickWithTheFillFillsTheFacePixelUnderTheMouse) {
    cubeFile();
    CCubicView* view = frame_->activeCubicView();
    ASSERT_NE(view, nullptr);
    ToolboxState& state = Toolbox::instance().state;
    state.colour[0] = 10;
    state.colour[1] = 200;
    state.colour[2] = 30;
    frame_->toolWindow().setCurrentTool(CSetFill::id);
    view->cubicView().setAngles({100, -20, 60});
    const QPointF at(view->width() / 2.0, view->height() / 2.0);
    IPoint<2> pixel;
    ASSERT_TRUE(view->cubicView().stripPixelAt(at.x(), at.y(), pixel));
    EXPECT_EQ(pixel.x / view->document().height(), 1) << "looking at the right face";
    mouse(view, QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    mouse(view, QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoButton);
    EXPECT_TRUE(messages_.errors.isEmpty())
        << messages_.errors.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(view->document().canUndo());
    EXPECT_EQ(view->document().rgbAt(pixel.x, pixel.y), (ColourPOD{30, 200, 10}));
    EXPECT_TRUE(view->waitForDrawing(10000));
}

TEST_F(PanoramaWindows, ADragWithTheBrushPaintsTheFaceUnderItAsOneUndoLevel) {
    cubeFile();
    CCubicView* view = frame_->activeCubicView();
    ASSERT_NE(view, nullptr);
    CQuorvaleDoc& doc = view->document();
    ToolboxState& state = Toolbox::instance().state;
    state.colour[0] = 250;
    state.colour[1] = 0;
    state.colour[2] = 250;
    BrushSettings& brush = frame_->toolWindow().brush().settings;
    brush = BrushSettings();
    brush.size = 3;
    brush.hardness = 100;
    frame_->toolWindow().setCurrentTool(CSetBrush::id);
    // Looking at the right face, steeply enough that a drag stays on it.
    view->cubicView().setAngles({90, 0, 60});
    ASSERT_TRUE(view->waitForDrawing(10000));
    const std::vector<ColourPOD> before = pixels(doc);
    const double turned = view->cubicView().angles().pan;

    const QPointF from(view->width() / 2.0 - 40, view->height() / 2.0);
    const QPointF to(view->width() / 2.0 + 40, view->height() / 2.0);
    // The outline lies on the face under the mouse before the press.
    mouse(view, QEvent::MouseMove, from, Qt::NoButton, Qt::NoButton);
    EXPECT_GT(view->brushOutline().size(), 8u);
    mouse(view, QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
    for (int i = 1; i <= 8; ++i) {
        const QPointF p = from + (to - from) * (i / 8.0);
        mouse(view, QEvent::MouseMove, p, Qt::NoButton, Qt::LeftButton);
    }
    mouse(view, QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton);
    EXPECT_TRUE(messages_.errors.isEmpty())
        << messages_.errors.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(view->cubicView().angles().pan, turned) << "painting doesn't turn the camera";

    // Painted along the drag, on the face the view shows (face 1), and nowhere else.
    const std::int32_t n = doc.height();
    for (const QPointF& p : {from, (from + to) / 2, to}) {
        IPoint<2> pixel;
        ASSERT_TRUE(view->cubicView().stripPixelAt(p.x(), p.y(), pixel));
        EXPECT_EQ(pixel.x / n, 1);
        EXPECT_EQ(doc.rgbAt(pixel.x, pixel.y), (ColourPOD{250, 0, 250})) << pixel.x;
    }
    const std::vector<ColourPOD> after = pixels(doc);
    for (std::size_t i = 0; i < after.size(); ++i) {
        const auto x = static_cast<std::int32_t>(i % static_cast<std::size_t>(doc.width()));
        if (x / n != 1) {
            ASSERT_EQ(after[i], before[i]) << "pixel " << i;
        }
    }
    EXPECT_TRUE(view->waitForDrawing(10000));

    // One undo level takes the whole stroke back.
    ASSERT_TRUE(doc.canUndo());
    ASSERT_EQ(doc.undo(), status::ok);
    EXPECT_EQ(pixels(doc), before);

    // Escape in the middle of a stroke stops it; what it painted stays, one undo level.
    mouse(view, QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
    mouse(view, QEvent::MouseMove, to, Qt::NoButton, Qt::LeftButton);
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(view, &escape);
    EXPECT_FALSE(doc.strokeRunning());
    mouse(view, QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton);
    EXPECT_NE(pixels(doc), before);
    ASSERT_EQ(doc.undo(), status::ok);
    EXPECT_EQ(pixels(doc), before);
}

TEST_F(PanoramaWindows, ExportingAPanoramaOfAFlatImageIsRefused) {
    NewImageParams params;
    params.width = 120;
    params.height = 20;
    ASSERT_EQ(frame_->newDocument(params), status::ok);
    ASSERT_NE(frame_->activeView(), nullptr);
    frame_->onFileExportPanorama();
    ASSERT_EQ(messages_.errors.size(), 1);
    EXPECT_EQ(messages_.errors.front(), QStringLiteral("Not a full cube image"));
}

} // namespace
