// Painting in the application's view: tablet strokes with pressure and the eraser end, a
// line by mouse clicks with Escape and a double click, the brush's outline cursor, and the
// painter's and brush's pages setting the tools that paint.

#include "AppTestSupport.h"
#include "app/AppSettings.h"
#include "app/BrushOutlinePC.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/CToolWindow.h"
#include "applicators/BrushApplicator.h"
#include "applicators/Painter.h"
#include "applicators/Pen.h"
#include "effects/Restore.h"
#include "pipeline/Applicator.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"
#include "support/SyntheticScene.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QImage>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPointingDevice>
#include <QPushButton>
#include <QSpinBox>
#include <QTabletEvent>
#include <QTemporaryDir>
#include <QToolButton>

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

    template <class W> W* widget(const char* name) {
        W* w = tools().findChild<W*>(QString::fromLatin1(name));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }
    /// A press, moves every 5 pixels and a release along row y.
    void drag(int y, int x0, int x1) {
        mouse(QEvent::MouseButtonPress, x0, y);
        for (int x = x0 + 5; x <= x1; x += 5) {
            QMouseEvent e(QEvent::MouseMove, at(x, y), view_->viewport()->mapToGlobal(at(x, y)),
                          Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(view_->viewport(), &e);
        }
        mouse(QEvent::MouseButtonRelease, x1, y);
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

TEST_F(StrokeInput, ThePainterPageSetsTheStrokesItPaints) {
    // The original image: blue on the left half, red on the right.
    {
        TileHandle hold;
        for (int y = 0; y < doc_->height(); ++y) {
            for (int x = 0; x < doc_->width(); ++x) {
                *doc_->originalRgbWrite(x, y, hold) =
                    x < 100 ? ColourPOD{200, 0, 0} : ColourPOD{0, 0, 200};
            }
        }
    }
    auto* button = widget<QToolButton>("toolPainter");
    ASSERT_TRUE(button);
    button->click();
    ASSERT_EQ(tools().currentTool(), CSetPainter::id);
    widget<QSpinBox>("painterCellSize")->setValue(25);
    widget<QSpinBox>("painterCellSizeY")->setValue(20);
    widget<QSpinBox>("painterRadius")->setValue(5);
    widget<QSpinBox>("painterLength")->setValue(0);
    widget<QSpinBox>("painterSoftness")->setValue(0);
    widget<QCheckBox>("painterDepthSort")->setChecked(false);
    widget<QComboBox>("painterType")->setCurrentIndex(1);
    const PainterSettings& s = tools().painter().settings;
    EXPECT_EQ(s.cellSize, 25);
    EXPECT_EQ(s.cellSizeY, 20);
    EXPECT_EQ(s.list.front().size, 5);
    EXPECT_EQ(s.length, 0);
    EXPECT_FALSE(s.depthSort);
    EXPECT_EQ(s.type, painterSquare);

    drag(30, 3, 197);
    const auto painter = TQL::handleCast<Painter>(ToolSelection::instance().applicator());
    ASSERT_TRUE(painter);
    EXPECT_EQ(painter->settings(), s);
    // One stroke a cell of 25 across the 200 pixels, all in the second row of cells.
    ASSERT_EQ(painter->strokes().size(), 8u);
    for (const PainterStroke& stroke : painter->strokes()) {
        EXPECT_EQ(stroke.cell.y, 1);
        EXPECT_EQ(stroke.size, 5);
        EXPECT_EQ(stroke.colour, doc_->originalRgbAt(stroke.origin.x, stroke.origin.y));
        EXPECT_EQ(doc_->rgbAt(stroke.origin.x, stroke.origin.y), stroke.colour);
        // A square dab of radius 5: painted 4 pixels off the origin, not 7.
        EXPECT_EQ(doc_->rgbAt(stroke.origin.x + 4, stroke.origin.y + 4), stroke.colour);
        EXPECT_EQ(doc_->rgbAt(stroke.origin.x + 7, stroke.origin.y), white);
    }
    EXPECT_TRUE(doc_->canUndo());
}

TEST_F(StrokeInput, TheBrushPageSetsPicturesListsAndVariations) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QImage square(16, 16, QImage::Format_RGB32);
    square.fill(Qt::black);
    const QString first = dir.filePath(QStringLiteral("square.png"));
    const QString second = dir.filePath(QStringLiteral("dot.png"));
    ASSERT_TRUE(square.save(first));
    QImage dot(8, 8, QImage::Format_RGB32);
    dot.fill(Qt::black);
    ASSERT_TRUE(dot.save(second));

    tools().setCurrentTool(CSetBrush::id);
    widget<QComboBox>("brushType")->setCurrentIndex(brushPictureList);
    auto* file = widget<QLineEdit>("brushListFile");
    auto* add = widget<QPushButton>("brushListAdd");
    for (const QString& name : {first, second}) {
        file->setText(name);
        add->click();
    }
    widget<QSpinBox>("brushListSize")->setValue(6); // the entry just added
    widget<QCheckBox>("brushShrink")->setChecked(true);
    widget<QSpinBox>("brushTwist")->setValue(30);
    widget<QComboBox>("brushFadeType")->setCurrentIndex(1);
    widget<QDoubleSpinBox>("brushHookX")->setValue(0.25);
    auto* picture = widget<QLineEdit>("brushFilename");
    picture->setText(first);
    emit picture->editingFinished();

    const BrushSettings& s = tools().brush().settings;
    ASSERT_EQ(s.list.size(), 2u);
    EXPECT_EQ(QString::fromStdWString(s.list[0].filename), first);
    EXPECT_EQ(s.list[1].size, 6);
    EXPECT_EQ(QString::fromStdWString(s.filename), first);
    EXPECT_TRUE(s.shrink);
    EXPECT_EQ(s.twist, 30);
    EXPECT_EQ(s.fadeType, 1);
    EXPECT_EQ(s.hookX, 0.25);

    // The brush that paints is a list of the two pictures.
    const auto brush = TQL::handleCast<BrushApplicator>(ToolSelection::instance().applicator());
    ASSERT_TRUE(brush);
    EXPECT_EQ(brush->settings(), s);
    EXPECT_EQ(brush->masks.size(), 2u);
    drag(60, 20, 120);
    EXPECT_GT(brush->dabCount(), 2);
    EXPECT_GT(paintedRows(70), 0);

    // Removing an entry reaches the settings too.
    widget<QPushButton>("brushListRemove")->click();
    EXPECT_EQ(tools().brush().settings.list.size(), 1u);
}

} // namespace
