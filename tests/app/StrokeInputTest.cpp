// Painting in the application's view: tablet strokes with pressure and the eraser end, a
// line by mouse clicks with Escape and a double click, and the brush's outline cursor.

#include "AppTestSupport.h"
#include "app/AppSettings.h"
#include "app/BrushOutlinePC.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/CToolWindow.h"
#include "applicators/Pen.h"
#include "effects/Restore.h"
#include "pipeline/Applicator.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"
#include "support/SyntheticScene.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPointingDevice>
#include <QTabletEvent>

#include <gtest/gtest.h>

#include <memory>

namespace {

constexpr ColourPOD white{255, 255, 255};

class StrokeInput : public test::RunningApp {
protected:
    void SetUp() override {
        test::RunningApp::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        NewImageParams params;
        params.width = 200;
        params.height = 120;
        ASSERT_EQ(frame_->newDocument(params), status::ok);
        view_ = frame_->activeView();
        ASSERT_NE(view_, nullptr);
        view_->zoomActualSize();
        ASSERT_TRUE(view_->waitForDrawing(10000));
        doc_ = &view_->document();
    }

    CToolWindow& tools() { return frame_->toolWindow(); }
    /// The window point of image pixel (x, y).
    QPointF at(int x, int y) const {
        // A point inside the pixel, off its centre, as a pointer gives it.
        const Point<2> p = view_->cursorContext().toView(Point<2>(x + 0.3, y + 0.3));
        return QPointF(p.x(), p.y());
    }
    void tablet(QEvent::Type type, const QPointingDevice& device, QPointF where, double pressure) {
        const Qt::MouseButton button = type == QEvent::TabletMove ? Qt::NoButton : Qt::LeftButton;
        const Qt::MouseButtons held = type == QEvent::TabletRelease ? Qt::NoButton : Qt::LeftButton;
        QTabletEvent e(type, &device, where, view_->viewport()->mapToGlobal(where), pressure, 0, 0,
                       0, 0, 0, Qt::NoModifier, button, held);
        QApplication::sendEvent(view_->viewport(), &e);
    }
    /// A tablet stroke along row y from x0 to x1, the pressure rising from p0 to p1.
    void tabletStroke(const QPointingDevice& device, int y, int x0, int x1, double p0, double p1) {
        tablet(QEvent::TabletPress, device, at(x0, y), p0);
        for (int x = x0 + 2; x <= x1; x += 2) {
            tablet(QEvent::TabletMove, device, at(x, y), p0 + (p1 - p0) * (x - x0) / (x1 - x0));
        }
        tablet(QEvent::TabletRelease, device, at(x1, y), p1);
    }
    void mouse(QEvent::Type type, int x, int y, Qt::KeyboardModifiers keys = Qt::NoModifier) {
        const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
        const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton
                                      : type == QEvent::MouseMove        ? Qt::NoButton
                                                                         : Qt::LeftButton;
        QMouseEvent e(type, at(x, y), view_->viewport()->mapToGlobal(at(x, y)), button, held, keys);
        QApplication::sendEvent(view_->viewport(), &e);
    }
    void click(int x, int y) {
        mouse(QEvent::MouseButtonPress, x, y);
        mouse(QEvent::MouseButtonRelease, x, y);
    }
    void key(int k) {
        QKeyEvent e(QEvent::KeyPress, k, Qt::NoModifier);
        QApplication::sendEvent(view_, &e);
    }
    /// Rows of column x whose colour is not the white of the new image.
    int paintedRows(int x) const {
        int n = 0;
        for (int y = 0; y < doc_->height(); ++y) {
            n += doc_->rgbAt(x, y) == white ? 0 : 1;
        }
        return n;
    }
    void selectBrush(std::int32_t dynamics) {
        BrushSettings& s = tools().brush().settings;
        s = BrushSettings();
        s.type = brushRound;
        s.size = 12;
        s.hardness = 100;
        s.dynamics = dynamics;
        tools().setCurrentTool(CSetBrush::id);
        ASSERT_TRUE(ToolSelection::instance().applicator());
    }

    CQuorvaleView* view_ = nullptr;
    CQuorvaleDoc* doc_ = nullptr;
    QPointingDevice pen_{"stylus",
                         101,
                         QInputDevice::DeviceType::Stylus,
                         QPointingDevice::PointerType::Pen,
                         QInputDevice::Capability::Position | QInputDevice::Capability::Pressure,
                         1,
                         2};
    QPointingDevice eraser_{"stylus eraser",
                            102,
                            QInputDevice::DeviceType::Stylus,
                            QPointingDevice::PointerType::Eraser,
                            QInputDevice::Capability::Position | QInputDevice::Capability::Pressure,
                            1,
                            2};
};

TEST_F(StrokeInput, ATabletStrokeWithRisingPressurePaintsAWideningBand) {
    selectBrush(2); // pressure sets the size
    tabletStroke(pen_, 60, 20, 180, 0.15, 1.0);
    EXPECT_FALSE(doc_->strokeRunning());
    const int thin = paintedRows(40);
    const int wide = paintedRows(160);
    EXPECT_GT(thin, 0);
    EXPECT_GT(wide, thin + 8) << "thin " << thin << ", wide " << wide;
    EXPECT_TRUE(doc_->canUndo());

    // The band is on screen once the drawing thread has caught up.
    ASSERT_TRUE(view_->waitForDrawing(10000));
    const QImage shown = view_->viewport()->grab().toImage();
    EXPECT_NE(shown.pixelColor(at(160, 60).toPoint()), QColor(255, 255, 255));

    // With the tablet off the view leaves its events alone (the platform makes mouse events
    // of them, of full pressure).
    appsettings::TabletEnable.write(0);
    tablet(QEvent::TabletPress, pen_, at(100, 100), 0.1);
    EXPECT_FALSE(doc_->strokeRunning());
    appsettings::TabletEnable.write(1);
}

TEST_F(StrokeInput, TheEraserEndPaintsTheOriginalBack) {
    selectBrush(0);
    tabletStroke(pen_, 60, 20, 180, 1.0, 1.0);
    ASSERT_NE(doc_->rgbAt(100, 60), white);

    bool erasing = false;
    QObject::connect(view_, &CQuorvaleView::eraserUsed, [&](bool e) { erasing = e; });
    tablet(QEvent::TabletPress, eraser_, at(60, 60), 1.0);
    ASSERT_TRUE(doc_->strokeRunning());
    const auto running = TQL::handleCast<Applicator>(DocumentEditor::runningApplicator());
    ASSERT_TRUE(running);
    EXPECT_TRUE(dynamic_cast<const Restore*>(running->effect.get())) << "the eraser's effect";
    EXPECT_TRUE(erasing);
    for (int x = 62; x <= 140; x += 2) {
        tablet(QEvent::TabletMove, eraser_, at(x, 60), 1.0);
    }
    tablet(QEvent::TabletRelease, eraser_, at(140, 60), 1.0);
    for (int x : {70, 100, 130}) {
        EXPECT_EQ(doc_->rgbAt(x, 60), doc_->originalRgbAt(x, 60)) << x;
    }
    EXPECT_NE(doc_->rgbAt(170, 60), white) << "beyond the eraser the paint stays";
    EXPECT_FALSE(ToolSelection::instance().effect &&
                 dynamic_cast<const Restore*>(ToolSelection::instance().effect.get()))
        << "the tip paints again afterwards";

    // With the eraser switched off, that end paints like the tip.
    appsettings::TabletEraserEnable.write(0);
    tablet(QEvent::TabletPress, eraser_, at(100, 100), 1.0);
    const auto plain = TQL::handleCast<Applicator>(DocumentEditor::runningApplicator());
    ASSERT_TRUE(plain);
    EXPECT_FALSE(dynamic_cast<const Restore*>(plain->effect.get()));
    tablet(QEvent::TabletRelease, eraser_, at(100, 100), 1.0);
    EXPECT_FALSE(erasing);
    appsettings::TabletEraserEnable.write(1);
}

TEST_F(StrokeInput, LineClicksStayOpenUntilEscapeOrADoubleClick) {
    tools().pen().width = 3;
    tools().pen().antiAlias = false;
    tools().setCurrentTool(CSetPen::id);
    click(30, 30);
    click(120, 30);
    EXPECT_TRUE(doc_->strokeOpen());
    EXPECT_NE(doc_->rgbAt(80, 30), white);
    // The rubber band follows the mouse from the last point.
    mouse(QEvent::MouseMove, 120, 90);
    const auto* band = dynamic_cast<const PenPC*>(CQuorvaleView::toolCursor().get());
    ASSERT_NE(band, nullptr);
    EXPECT_EQ(band->end(), IPoint<2>(120, 90));

    key(Qt::Key_Escape);
    EXPECT_FALSE(doc_->strokeRunning());
    EXPECT_NE(doc_->rgbAt(80, 30), white) << "what was painted stays";
    EXPECT_TRUE(doc_->canUndo());

    click(30, 80);
    mouse(QEvent::MouseButtonPress, 120, 80);
    mouse(QEvent::MouseButtonRelease, 120, 80);
    mouse(QEvent::MouseButtonDblClick, 120, 80);
    mouse(QEvent::MouseButtonRelease, 120, 80);
    EXPECT_FALSE(doc_->strokeRunning()) << "a double click ends the line";
    EXPECT_NE(doc_->rgbAt(80, 80), white);
    ASSERT_EQ(doc_->undo(), status::ok);
    EXPECT_EQ(doc_->rgbAt(80, 80), white) << "one undo level a line";
    EXPECT_NE(doc_->rgbAt(80, 30), white);
}

TEST_F(StrokeInput, ASurfaceBrushOutlineShrinksWithDistance) {
    // A floor seen from above it, receding up the image.
    test::SyntheticScene scene;
    scene.add(Plane(), 1);
    doc_->setViewParams(test::roomRecord(ViewParams::perspectiveCode, {0, 0, 1.6}, 90, -20,
                                         {-1, 0.6, 1}, {1, -0.6, 1}, 0.1, 100));
    scene.render(*doc_);
    tools().brush().settings.type = brushSurface;
    tools().brush().settings.modelSize = 0.2;
    tools().setCurrentTool(CSetBrush::id);
    const auto* outline = dynamic_cast<const BrushOutlinePC*>(CQuorvaleView::toolCursor().get());
    ASSERT_NE(outline, nullptr);
    mouse(QEvent::MouseMove, 100, 110);
    EXPECT_TRUE(outline->hasMouse());
    auto width = [&](int y) {
        const auto path = outline->pathAt(IPoint<2>(100, y), view_->cursorContext());
        double lo = 1e9;
        double hi = -1e9;
        for (const Point<2>& p : path) {
            lo = std::min(lo, p.x());
            hi = std::max(hi, p.x());
        }
        return path.empty() ? 0.0 : hi - lo;
    };
    const double nearWidth = width(110);
    const double farWidth = width(40);
    EXPECT_GT(farWidth, 1.0);
    EXPECT_GT(nearWidth, 1.5 * farWidth) << nearWidth << " near, " << farWidth << " far";
}

} // namespace
