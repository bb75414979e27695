// The tool window and the view's mouse: the fill clicked on a rendered scene with a material
// lock, undo of it, Escape stopping a fill, the grain and texture pages, the crop dragged as a
// rectangle, the settings kept in the default style, and the toolbox keys.

#include "AppTestSupport.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/CToolWindow.h"
#include "app/ToolboxKeys.h"
#include "core/Status.h"
#include "pipeline/Matte.h"
#include "pipeline/ToolSelection.h"
#include "styles/CSetGrain.h"
#include "styles/CSetTexture.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"
#include "support/TempDir.h"
#include "views/ZmapView.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QSpinBox>
#include <QToolButton>

#include <gtest/gtest.h>

#include <vector>

namespace {

class ToolWindow : public test::RunningApp {
protected:
    ToolWindow() : test::RunningApp(1000, 700) {}

    /// The sample scene rendered into a new document, drawn in its window.
    CQuorvaleView* openSample() {
        NewImageParams params;
        params.kind = NewImageKind::model;
        params.sourcePath = CQuorvaleApp::sampleScenePath().toStdWString();
        params.width = 240;
        params.height = 150;
        EXPECT_EQ(frame_->newDocument(params), status::ok);
        CQuorvaleView* view = frame_->activeView();
        EXPECT_NE(view, nullptr);
        if (view) {
            view->zoomActualSize();
            EXPECT_TRUE(view->waitForDrawing(20000));
        }
        return view;
    }

    /// The window point of the centre of image pixel p.
    static QPointF windowPoint(CQuorvaleView& view, IPoint<2> p) {
        const IExtent<2> shown = view.zmapView().mapping().imageToView(p);
        return QPointF((shown.lo().x + shown.hi().x) / 2.0, (shown.lo().y + shown.hi().y) / 2.0);
    }
    static void mouse(CQuorvaleView& view, QEvent::Type type, IPoint<2> p, Qt::MouseButton button,
                      Qt::MouseButtons held) {
        const QPointF at = windowPoint(view, p);
        QMouseEvent event(type, at, view.viewport()->mapToGlobal(at), button, held, Qt::NoModifier);
        QCoreApplication::sendEvent(view.viewport(), &event);
    }
    static void click(CQuorvaleView& view, IPoint<2> p) {
        mouse(view, QEvent::MouseButtonPress, p, Qt::LeftButton, Qt::LeftButton);
        mouse(view, QEvent::MouseButtonRelease, p, Qt::LeftButton, Qt::NoButton);
    }

    template <class W> W* widget(const char* name) {
        W* w = frame_->toolWindow().findChild<W*>(QString::fromLatin1(name));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }
};

/// The first of `names` that covers at least `minimum` pixels, with one of its pixels.
MaterialId visibleMaterial(const ZmapDocument& doc, std::initializer_list<const wchar_t*> names,
                           IPoint<2>& pixel, int minimum = 100) {
    for (const wchar_t* name : names) {
        for (const auto& [id, record] : doc.materials()) {
            if (doc.materialName(id) != name) {
                continue;
            }
            int count = 0;
            for (int y = 0; y < doc.height(); ++y) {
                for (int x = 0; x < doc.width(); ++x) {
                    if (doc.matAt(x, y) == id && ++count == minimum / 2) {
                        pixel = IPoint<2>(x, y);
                    }
                }
            }
            if (count >= minimum) {
                return id;
            }
        }
    }
    return 0;
}

std::vector<ColourPOD> colours(const ZmapDocument& doc) {
    std::vector<ColourPOD> out;
    for (int y = 0; y < doc.height(); ++y) {
        for (int x = 0; x < doc.width(); ++x) {
            out.push_back(doc.rgbAt(x, y));
        }
    }
    return out;
}

} // namespace

TEST_F(ToolWindow, AFillWithTheMaterialLockChangesOnlyThatMaterialAndUndoRestoresIt) {
    CQuorvaleView* view = openSample();
    ASSERT_NE(view, nullptr);
    CQuorvaleDoc& doc = view->document();
    IPoint<2> at;
    const MaterialId floor = visibleMaterial(doc, {L"Floor", L"Ground", L"Terrace"}, at);
    ASSERT_NE(floor, 0) << "the sample shows a floor";

    widget<QToolButton>("toolFill")->click();
    EXPECT_EQ(frame_->toolWindow().currentTool(), CSetFill::id);
    widget<QCheckBox>("lockMaterial")->setChecked(true);
    EXPECT_EQ(Toolbox::instance().state.lockMask, std::uint32_t{Matte::lockMaterialBit});
    widget<QComboBox>("blendMode")->setCurrentIndex(0);
    widget<QSpinBox>("paintOpacity")->setValue(100);
    // A colour no rendered pixel has.
    std::uint8_t* colour = Toolbox::instance().state.colour;
    colour[0] = 255;
    colour[1] = 0;
    colour[2] = 255;

    // The status bar names the material under the mouse, and that the lock keeps to it.
    mouse(*view, QEvent::MouseMove, at, Qt::NoButton, Qt::NoButton);
    const QString materialText = frame_->statusTexts().at(3);
    EXPECT_TRUE(materialText.contains(QString::fromStdWString(doc.materialName(floor))))
        << materialText.toStdString();
    EXPECT_TRUE(materialText.contains(QStringLiteral("lock"))) << materialText.toStdString();

    const std::vector<ColourPOD> before = colours(doc);
    click(*view, at);
    ASSERT_TRUE(messages_.errors.isEmpty()) << messages_.errors.join('\n').toStdString();
    const std::vector<ColourPOD> after = colours(doc);

    int changed = 0;
    int changedElsewhere = 0;
    int floorPixels = 0;
    for (int y = 0; y < doc.height(); ++y) {
        for (int x = 0; x < doc.width(); ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * doc.width() + x;
            const bool isFloor = doc.matAt(x, y) == floor;
            floorPixels += isFloor;
            if (!(before[i] == after[i])) {
                ++changed;
                changedElsewhere += !isFloor;
            }
        }
    }
    EXPECT_EQ(changedElsewhere, 0);
    EXPECT_GE(changed, 50);
    EXPECT_LE(changed, floorPixels);
    const ColourPOD magenta{255, 0, 255};
    EXPECT_EQ(after[static_cast<std::size_t>(at.y) * doc.width() + at.x], magenta);
    EXPECT_TRUE(doc.isModified());

    // Undo names the fill, and gives back every pixel.
    QAction* undo = frame_->action(QStringLiteral("editUndo"));
    EXPECT_TRUE(undo->isEnabled());
    EXPECT_TRUE(undo->text().contains(QStringLiteral("Fill"))) << undo->text().toStdString();
    undo->trigger();
    EXPECT_TRUE(colours(doc) == before);
    QAction* redo = frame_->action(QStringLiteral("editRedo"));
    EXPECT_TRUE(redo->text().contains(QStringLiteral("Fill"))) << redo->text().toStdString();
    redo->trigger();
    EXPECT_TRUE(colours(doc) == after);
}

TEST_F(ToolWindow, EscapeStopsAFillWhichKeepsWhatItPaintedInOneUndoLevel) {
    CQuorvaleView* view = openSample();
    ASSERT_NE(view, nullptr);
    CQuorvaleDoc& doc = view->document();
    widget<QToolButton>("toolFill")->click();
    widget<QCheckBox>("fillFlood")->setChecked(true);
    widget<QCheckBox>("lockMaterial")->setChecked(false);
    widget<QComboBox>("blendMode")->setCurrentIndex(0);
    widget<QSpinBox>("paintOpacity")->setValue(100);
    std::uint8_t* colour = Toolbox::instance().state.colour;
    colour[0] = 255;
    colour[1] = 0;
    colour[2] = 255;
    const IPoint<2> at(doc.width() / 2, doc.height() / 2);
    const std::vector<ColourPOD> before = colours(doc);
    auto changedPixels = [&] {
        const std::vector<ColourPOD> now = colours(doc);
        int n = 0;
        for (std::size_t i = 0; i < now.size(); ++i) {
            n += now[i] == before[i] ? 0 : 1;
        }
        return n;
    };

    // The fill runs when the button is let go. Escape waits in the event queue; the fill's
    // progress lets the event loop run as it starts, so the key arrives while the fill is
    // under way.
    mouse(*view, QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    QCoreApplication::postEvent(view->viewport(),
                                new QKeyEvent(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier));
    mouse(*view, QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoButton);
    EXPECT_TRUE(messages_.errors.isEmpty()) << messages_.errors.join('\n').toStdString();
    const int stoppedFill = changedPixels();
    QAction* undo = frame_->action(QStringLiteral("editUndo"));
    if (stoppedFill > 0) {
        EXPECT_TRUE(undo->text().contains(QStringLiteral("Fill"))) << undo->text().toStdString();
        undo->trigger();
        EXPECT_EQ(changedPixels(), 0) << "one undo level holds the whole stopped fill";
    }

    // The stop was for that fill only: the next click fills the whole region.
    click(*view, at);
    const int wholeFill = changedPixels();
    EXPECT_GT(wholeFill, 50);
    EXPECT_LT(stoppedFill, wholeFill) << "Escape stopped the first fill before its end";
    EXPECT_TRUE(undo->text().contains(QStringLiteral("Fill"))) << undo->text().toStdString();
}

TEST_F(ToolWindow, CropIsADraggedRectangleAndEscapeCancelsIt) {
    CQuorvaleView* view = openSample();
    ASSERT_NE(view, nullptr);
    CQuorvaleDoc& doc = view->document();

    // Escape while dragging: nothing happens and the capture ends.
    frame_->action(QStringLiteral("imageCrop"))->trigger();
    ASSERT_TRUE(view->cropCaptureActive());
    mouse(*view, QEvent::MouseButtonPress, {10, 10}, Qt::LeftButton, Qt::LeftButton);
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QCoreApplication::sendEvent(view, &escape);
    QCoreApplication::processEvents();
    EXPECT_FALSE(view->cropCaptureActive());
    EXPECT_EQ(ZmapViewBase::pseudoCursor(), nullptr);
    mouse(*view, QEvent::MouseButtonRelease, {50, 40}, Qt::LeftButton, Qt::NoButton);
    EXPECT_EQ(doc.width(), 240);

    frame_->action(QStringLiteral("imageCrop"))->trigger();
    mouse(*view, QEvent::MouseButtonPress, {100, 30}, Qt::LeftButton, Qt::LeftButton);
    mouse(*view, QEvent::MouseMove, {60, 80}, Qt::NoButton, Qt::LeftButton);
    EXPECT_NE(ZmapViewBase::pseudoCursor(), nullptr);
    messages_.answers.push_back(UserMessages::Answer::yes);
    mouse(*view, QEvent::MouseButtonRelease, {20, 90}, Qt::LeftButton, Qt::NoButton);
    // The crop runs when the capture's end comes back to the interface thread.
    QCoreApplication::processEvents();
    EXPECT_FALSE(view->cropCaptureActive());
    EXPECT_EQ(doc.width(), 81);
    EXPECT_EQ(doc.height(), 61);
}

TEST_F(ToolWindow, SettingsAreKeptInTheDefaultStyleAsTheyChange) {
    widget<QSpinBox>("paintOpacity")->setValue(40);
    widget<QComboBox>("blendMode")->setCurrentIndex(1);
    widget<QCheckBox>("fillFlood")->setChecked(false);
    widget<QCheckBox>("matteInvert")->setChecked(true);
    widget<QComboBox>("fogType")->setCurrentIndex(2);
    widget<QToolButton>("toolFill")->click();

    const SettingsStyleStorage stored;
    EXPECT_EQ(stored.read(L"Toolbox", L"Fad").value_or(L""), L"40");
    EXPECT_EQ(stored.read(L"Fill", L"Flood").value_or(L""), L"0");
    EXPECT_EQ(stored.read(L"Matte", L"Invert").value_or(L""), L"1");
    EXPECT_EQ(stored.read(L"Fog", L"FogType").value_or(L""), L"2");
    EXPECT_EQ(stored.read(L"Toolbox", L"ToolState").value_or(L""), L"2003,0,1,0,0,1");

    // What a start reads back: the same values in a fresh set of tools.
    ToolboxState state;
    CSetMatte matte;
    {
        SettingsStyleStorage storage;
        CToolStyle::Attach attach(storage);
        toolboxkeys::read(state);
        matte.readStyle();
    }
    EXPECT_EQ(state.blendOpacity, 40);
    EXPECT_EQ(state.blendMode, 1u);
    EXPECT_EQ(state.currentApplicatorId, CSetFill::id);
    EXPECT_TRUE(matte.settings.invert);
}

TEST_F(ToolWindow, TheGrainPageBuildsTheGrainStoresItAndNamesAPictureThatFailed) {
    EXPECT_FALSE(ToolSelection::instance().grain);
    widget<QComboBox>("grainType")->setCurrentIndex(GrainSettings::rgb);
    widget<QCheckBox>("grainOn")->setChecked(true);
    EXPECT_TRUE(ToolSelection::instance().grain);
    EXPECT_FALSE(widget<QLabel>("grainPreview")->pixmap().isNull());
    const SettingsStyleStorage stored;
    EXPECT_EQ(stored.read(L"Grain", L"Type").value_or(L""), L"2");
    ToolboxState state;
    {
        SettingsStyleStorage storage;
        CToolStyle::Attach attach(storage);
        toolboxkeys::read(state);
    }
    EXPECT_TRUE(state.grainOn);

    auto* file = widget<QLineEdit>("grainFile");
    widget<QComboBox>("grainType")->setCurrentIndex(GrainSettings::raster);
    file->setText(QStringLiteral("/nonexistent/paper.png"));
    emit file->editingFinished();
    EXPECT_FALSE(ToolSelection::instance().grain);
    EXPECT_TRUE(
        widget<QLabel>("grainError")->text().contains(QStringLiteral("could not be loaded")));

    widget<QCheckBox>("grainOn")->setChecked(false);
    EXPECT_FALSE(ToolSelection::instance().grain);
}

TEST_F(ToolWindow, TheTexturePageLaysAPictureOnAFillStoresItAndNamesOneThatFailed) {
    CQuorvaleView* view = openSample();
    ASSERT_NE(view, nullptr);
    CQuorvaleDoc& doc = view->document();
    // A checker of red and blue squares.
    test::TempDir dir;
    const QString picture = QString::fromStdString(dir.file("checker.png"));
    QImage checker(64, 64, QImage::Format_RGB32);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x) {
            checker.setPixel(x, y, ((x / 16 + y / 16) % 2) ? qRgb(220, 0, 0) : qRgb(0, 0, 220));
        }
    }
    ASSERT_TRUE(checker.save(picture));

    EXPECT_FALSE(ToolSelection::instance().texture);
    widget<QCheckBox>("textureOn")->setChecked(true);
    EXPECT_FALSE(ToolSelection::instance().texture) << "no texture chosen yet";
    widget<QComboBox>("textureType")->setCurrentIndex(TextureSettings::raster);
    widget<QComboBox>("textureMode")->setCurrentIndex(TextureSettings::twoD);
    widget<QDoubleSpinBox>("textureSize")->setValue(32);
    auto* file = widget<QLineEdit>("textureFile");
    file->setText(picture);
    emit file->editingFinished();
    EXPECT_TRUE(ToolSelection::instance().texture);
    EXPECT_TRUE(widget<QLabel>("textureError")->text().isEmpty())
        << widget<QLabel>("textureError")->text().toStdString();
    EXPECT_FALSE(widget<QLabel>("texturePreview")->pixmap().isNull());
    {
        const SettingsStyleStorage stored;
        EXPECT_EQ(stored.read(L"Texture", L"Filename").value_or(L""), picture.toStdWString());
        EXPECT_EQ(stored.read(L"Texture", L"Mode").value_or(L""), L"TwoD");
    }

    // A fill of the whole image lays the checker: both colours appear, and only they.
    widget<QToolButton>("toolFill")->click();
    widget<QCheckBox>("fillFlood")->setChecked(false);
    widget<QCheckBox>("lockMaterial")->setChecked(false);
    widget<QComboBox>("blendMode")->setCurrentIndex(0);
    widget<QSpinBox>("paintOpacity")->setValue(100);
    click(*view, {doc.width() / 2, doc.height() / 2});
    ASSERT_TRUE(messages_.errors.isEmpty()) << messages_.errors.join('\n').toStdString();
    int reds = 0;
    int blues = 0;
    for (int y = 0; y < doc.height(); ++y) {
        for (int x = 0; x < doc.width(); ++x) {
            const ColourPOD c = doc.rgbAt(x, y);
            reds += c.r > 150 && c.b < 60;
            blues += c.b > 150 && c.r < 60;
        }
    }
    const int pixels = doc.width() * doc.height();
    EXPECT_GT(reds, pixels / 4);
    EXPECT_GT(blues, pixels / 4);

    // A picture that can't be read leaves the stage out and is named on the page.
    file->setText(QString::fromStdString(dir.file("missing-bricks.png")));
    emit file->editingFinished();
    EXPECT_FALSE(ToolSelection::instance().texture);
    EXPECT_TRUE(widget<QLabel>("textureError")->text().contains(QStringLiteral("missing-bricks")))
        << widget<QLabel>("textureError")->text().toStdString();

    file->setText(picture);
    emit file->editingFinished();
    EXPECT_TRUE(ToolSelection::instance().texture);
    widget<QCheckBox>("textureOn")->setChecked(false);
    EXPECT_FALSE(ToolSelection::instance().texture);
}

TEST(ToolboxKeys, ToolStateIsWrittenAndReadByItsRules) {
    ToolboxState s;
    s.currentApplicatorId = 2007; // the colour picker is stored as the brush
    s.lockMask = 5;
    s.currentEffectId = 2;
    s.textureOn = true;
    s.blendMode = 17;
    EXPECT_EQ(toolboxkeys::toolStateText(s), L"2001,5,3,1,0,17");

    ToolboxState read;
    read.blendMode = 4;
    read.currentEffectId = 3;
    toolboxkeys::applyToolState(L"2003,,6,,1,18", read);
    EXPECT_EQ(read.currentApplicatorId, 2003);
    EXPECT_EQ(read.lockMask, 0u);       // absent: left alone
    EXPECT_EQ(read.currentEffectId, 3); // code 6 means nothing
    EXPECT_TRUE(read.grainOn);
    EXPECT_EQ(read.blendMode, 0u); // 18 is taken as 0

    toolboxkeys::applyToolState(L"2003,99,2,0,0,3", read);
    EXPECT_EQ(read.lockMask, 15u);
    EXPECT_EQ(read.currentEffectId, 1);
    EXPECT_TRUE(read.fogOn);

    ToolboxState untouched = read;
    toolboxkeys::applyToolState(L"", read);
    EXPECT_EQ(read, untouched);
}
