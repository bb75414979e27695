#include "AppTestSupport.h"
#include "app/AppSettings.h"
#include "app/CMainFrame.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/PictureDialogs.h"
#include "app/PreferencesDialog.h"
#include "core/Status.h"
#include "core/StringUtils.h"

#include <QAction>
#include <QApplication>
#include <QDropEvent>
#include <QFile>
#include <QImage>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMimeData>
#include <QSpinBox>
#include <QThread>
#include <QUrl>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace {

/// The application started in a settings directory of its own, without a window on
/// screen, and a directory for files.
class DocumentWindows : public test::RunningApp {
protected:
    /// The sample scene rendered small, saved as a .zmp file; returns its path.
    QString sampleFile() {
        const QString model = CQuorvaleApp::sampleScenePath();
        EXPECT_FALSE(model.isEmpty());
        NewImageParams params;
        params.kind = NewImageKind::model;
        params.sourcePath = model.toStdWString();
        params.width = 240;
        params.height = 150;
        EXPECT_EQ(frame_->newDocument(params), status::ok);
        const QString path = QString::fromStdString(dir_.file("house.zmp"));
        EXPECT_EQ(frame_->saveActiveAs(path), status::ok);
        return path;
    }

    test::TempDir dir_;
};

/// Every pixel of colour, depth and material, and every material's name, agree.
void expectSameImage(const ZmapDocument& a, const ZmapDocument& b) {
    ASSERT_EQ(a.width(), b.width());
    ASSERT_EQ(a.height(), b.height());
    int differences = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            if (!(a.rgbAt(x, y) == b.rgbAt(x, y)) || a.zAt(x, y) != b.zAt(x, y) ||
                a.matAt(x, y) != b.matAt(x, y)) {
                ++differences;
            }
        }
    }
    EXPECT_EQ(differences, 0);
    for (const auto& [id, record] : a.materials()) {
        EXPECT_EQ(a.materialName(id), b.materialName(id)) << id;
    }
}

TEST_F(DocumentWindows, CropUndoRedoSaveAndReopenKeepEveryPixel) {
    const QString path = sampleFile();
    ASSERT_TRUE(frame_->closeAll());
    ASSERT_EQ(frame_->openDocument(path), status::ok);
    CQuorvaleDoc* doc = frame_->activeDocument();
    ASSERT_NE(doc, nullptr);
    EXPECT_FALSE(doc->isModified());

    ASSERT_EQ(doc->crop(IExtent<2>(30, 20, 189, 119)), status::ok);
    EXPECT_EQ(doc->width(), 160);
    EXPECT_EQ(doc->height(), 100);
    EXPECT_TRUE(doc->isModified());
    QMdiSubWindow* window = frame_->mdiArea()->subWindowList().front();
    EXPECT_TRUE(window->isWindowModified());
    EXPECT_TRUE(window->windowTitle().endsWith(QStringLiteral("[*]")));

    // What the crop left, kept to compare after the undo.
    std::vector<ColourPOD> cropped;
    for (int y = 0; y < doc->height(); ++y) {
        for (int x = 0; x < doc->width(); ++x) {
            cropped.push_back(doc->rgbAt(x, y));
        }
    }
    ASSERT_EQ(doc->autoLevels(), status::ok);
    ASSERT_TRUE(doc->canUndo());
    ASSERT_EQ(doc->undo(), status::ok);
    std::size_t i = 0;
    int differences = 0;
    for (int y = 0; y < doc->height(); ++y) {
        for (int x = 0; x < doc->width(); ++x) {
            differences += !(doc->rgbAt(x, y) == cropped[i++]);
        }
    }
    EXPECT_EQ(differences, 0) << "undo gives back the cropped image";
    ASSERT_TRUE(doc->canRedo());
    ASSERT_EQ(doc->redo(), status::ok);
    EXPECT_TRUE(doc->isModified());

    ASSERT_TRUE(frame_->saveActive());
    EXPECT_FALSE(doc->isModified());
    EXPECT_FALSE(window->isWindowModified());

    // Reopened from the file into a document of its own: the same image.
    CQuorvaleDoc reopened(nullptr, nullptr);
    ASSERT_EQ(reopened.openFile(path), status::ok);
    expectSameImage(*doc, reopened);
    EXPECT_TRUE(messages_.errors.isEmpty()) << messages_.errors.join("\n").toStdString();
}

TEST_F(DocumentWindows, DamagedFileShowsItsStatusTextAndMakesNoWindow) {
    sampleFile();
    CQuorvaleDoc* first = frame_->activeDocument();
    const ColourPOD before = first->rgbAt(120, 75);
    const std::size_t windows = frame_->mdiArea()->subWindowList().size();

    const std::string damaged = dir_.file("damaged.zmp");
    std::ofstream(damaged) << "II*\0 this is not a depth image";
    EXPECT_NE(frame_->openDocument(QString::fromStdString(damaged)), status::ok);
    ASSERT_EQ(messages_.errors.size(), 1);
    // The reader's status text, whichever the reader found.
    bool named = false;
    for (Status s = -2; s >= -8; --s) {
        named = named || messages_.errors.front().contains(QString::fromStdWString(statusText(s)));
    }
    EXPECT_TRUE(named) << messages_.errors.front().toStdString();
    EXPECT_EQ(frame_->mdiArea()->subWindowList().size(), windows);
    EXPECT_EQ(frame_->documentCount(), 1u);
    EXPECT_EQ(frame_->activeDocument(), first);
    EXPECT_EQ(first->rgbAt(120, 75), before);
    EXPECT_FALSE(first->isModified());
}

TEST_F(DocumentWindows, PicturesExportAndOpenAsNewDocumentsWithAPreview) {
    NewImageParams params;
    params.width = 70;
    params.height = 40;
    params.background = ColourPOD{30, 120, 210};
    ASSERT_EQ(frame_->newDocument(params), status::ok);
    const QString png = QString::fromStdString(dir_.file("picture.png"));
    ASSERT_EQ(frame_->activeDocument()->exportTo(png, ExportOptions()), status::ok);
    EXPECT_TRUE(messages_.errors.isEmpty());

    // The open dialog's preview reads the thumbnail on the drawing thread.
    PicturePreview preview;
    preview.showFile(png);
    for (int i = 0; i < 500 && !preview.settled(); ++i) {
        QApplication::processEvents();
        QThread::msleep(10);
    }
    ASSERT_TRUE(preview.settled());
    EXPECT_FALSE(preview.pixmap().isNull());
    EXPECT_EQ(preview.toolTip(), QStringLiteral("70 x 40 pixels"));

    // Opening a picture makes a new document of its size and pixels, no depth.
    ASSERT_EQ(frame_->openDocument(png), status::ok);
    CQuorvaleDoc* doc = frame_->activeDocument();
    EXPECT_EQ(frame_->documentCount(), 2u);
    EXPECT_EQ(doc->width(), 70);
    EXPECT_EQ(doc->rgbAt(69, 39), (ColourPOD{30, 120, 210}));
    EXPECT_EQ(doc->zAt(5, 5), 0xFFFFFFFFu);
    EXPECT_TRUE(doc->path().isEmpty()) << "a picture is not the document's file";
    EXPECT_EQ(doc->displayName(), QStringLiteral("picture"));

    // A damaged picture is refused with its name and makes no window; a failed export
    // leaves the file that was there.
    const std::string tif = dir_.file("broken.tif");
    std::ofstream(tif) << "II*";
    EXPECT_NE(frame_->openDocument(QString::fromStdString(tif)), status::ok);
    ASSERT_EQ(messages_.errors.size(), 1);
    EXPECT_TRUE(messages_.errors.front().contains(QStringLiteral("broken.tif")));
    EXPECT_EQ(frame_->documentCount(), 2u);
    const QString blocked = QString::fromStdString(dir_.file("no-such-folder/out.png"));
    EXPECT_NE(doc->exportTo(blocked, ExportOptions()), status::ok);
    EXPECT_EQ(messages_.errors.size(), 2);
}

TEST_F(DocumentWindows, ClosingAChangedDocumentAsksFirst) {
    sampleFile();
    CQuorvaleDoc* doc = frame_->activeDocument();
    ASSERT_EQ(doc->autoLevels(), status::ok);
    ASSERT_TRUE(doc->isModified());

    messages_.answers = {UserMessages::Answer::cancel};
    EXPECT_FALSE(frame_->closeAll());
    EXPECT_EQ(messages_.questions.size(), 1);
    EXPECT_EQ(frame_->documentCount(), 1u);

    messages_.answers = {UserMessages::Answer::no};
    EXPECT_TRUE(frame_->closeAll());
    EXPECT_EQ(frame_->documentCount(), 0u);
}

TEST_F(DocumentWindows, ViewPaintsTheDocumentFromItsStore) {
    NewImageParams params;
    params.width = 64;
    params.height = 48;
    params.background = ColourPOD{40, 160, 220};
    ASSERT_EQ(frame_->newDocument(params), status::ok);
    CQuorvaleView* view = frame_->activeView();
    ASSERT_NE(view, nullptr);
    view->zoomActualSize();
    ASSERT_TRUE(view->waitForDrawing(10000));
    const QImage shown = view->viewport()->grab().toImage();
    // The image is centred in the larger window; the margin shows BackgroundColour (black).
    const QPoint centre(shown.width() / 2, shown.height() / 2);
    EXPECT_EQ(shown.pixelColor(centre), QColor(220, 160, 40));
    EXPECT_EQ(shown.pixelColor(0, 0), QColor(0, 0, 0));

    // The depth channel of a plain image has no depth anywhere: drawn differently.
    view->setShownChannel(channelZ);
    ASSERT_TRUE(view->waitForDrawing(10000));
    const QImage depth = view->viewport()->grab().toImage();
    EXPECT_NE(depth.pixelColor(centre), QColor(220, 160, 40));
}

TEST_F(DocumentWindows, FittedViewsFollowResizesAndChosenZoomsStay) {
    NewImageParams params;
    params.width = 800;
    params.height = 600;
    ASSERT_EQ(frame_->newDocument(params), status::ok);
    CQuorvaleView* view = frame_->activeView();
    QWidget* window = view->parentWidget();
    window->resize(420, 340);
    QCoreApplication::processEvents();
    view->fitWindow();
    const auto fitted = view->zoom();
    EXPECT_LT(fitted.first, fitted.second) << "800x600 fits 420x340 only below 1:1";
    window->resize(220, 180);
    QCoreApplication::processEvents();
    const auto refitted = view->zoom();
    EXPECT_LT(refitted.first * fitted.second, fitted.first * refitted.second)
        << "the smaller window re-fits the zoom";

    view->zoomActualSize();
    window->resize(400, 330);
    QCoreApplication::processEvents();
    EXPECT_EQ(view->zoom(), (std::pair<int, int>(1, 1)));
}

TEST_F(DocumentWindows, SecondWindowShowsAnotherChannelOfTheSameDocument) {
    sampleFile();
    CQuorvaleDoc* doc = frame_->activeDocument();
    CQuorvaleView* second = frame_->newWindow(channelZ);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(&second->document(), doc);
    EXPECT_EQ(doc->viewList().size(), 2u);
    EXPECT_EQ(second->shownChannel(), channelZ);
    EXPECT_TRUE(second->parentWidget()->windowTitle().contains(QStringLiteral(":2")));
    // Closing one window keeps the document for the other.
    second->parentWidget()->close();
    QCoreApplication::processEvents();
    EXPECT_EQ(frame_->documentCount(), 1u);
}

TEST_F(DocumentWindows, StatusBarNamesThePixelUnderTheCursor) {
    sampleFile();
    CQuorvaleDoc* doc = frame_->activeDocument();
    // A pixel of the model (with depth and material) near the middle.
    int px = -1;
    int py = -1;
    for (int y = 0; y < doc->height() && px < 0; ++y) {
        for (int x = doc->width() / 3; x < doc->width() && px < 0; ++x) {
            if (doc->zAt(x, y) != 0xFFFFFFFFu && doc->matAt(x, y) != 0) {
                px = x;
                py = y;
            }
        }
    }
    ASSERT_GE(px, 0);
    frame_->showPixelInfo(px, py, true);
    const QStringList texts = frame_->statusTexts();
    EXPECT_EQ(texts[0], QStringLiteral("Pixel %1, %2").arg(px).arg(py));
    EXPECT_TRUE(texts[1].contains(QStringLiteral(" m"))) << texts[1].toStdString();
    EXPECT_EQ(texts[2], QStringLiteral("Depth %1").arg(doc->zAt(px, py)));
    EXPECT_TRUE(texts[3].contains(QString::fromStdWString(doc->materialName(doc->matAt(px, py)))));
}

TEST_F(DocumentWindows, RecentFilesKeepTheLastFourOpened) {
    for (int i = 0; i < 5; ++i) {
        NewImageParams params;
        params.width = 8;
        params.height = 8;
        ASSERT_EQ(frame_->newDocument(params), status::ok);
        ASSERT_EQ(frame_->saveActiveAs(
                      QString::fromStdString(dir_.file("n" + std::to_string(i) + ".zmp"))),
                  status::ok);
    }
    const QStringList recent = frame_->recentFiles();
    ASSERT_EQ(recent.size(), 4);
    EXPECT_TRUE(recent.front().endsWith(QStringLiteral("n4.zmp")));
    EXPECT_TRUE(recent.back().endsWith(QStringLiteral("n1.zmp")));
}

TEST_F(DocumentWindows, TimingReportsArePrintedForOpenSaveRenderAndRedraw) {
    // Timing reports follow QUORVALETIMING at start-up; a second application object
    // starts with it set.
    app_.ExitInstance();
    setenv("QUORVALETIMING", "1", 1);
    CQuorvaleApp::Options o;
    o.openSample = false;
    o.show = false;
    ASSERT_TRUE(app_.InitInstance(o));
    unsetenv("QUORVALETIMING");
    frame_ = app_.mainFrame();
    testing::internal::CaptureStderr();
    const QString path = sampleFile();
    ASSERT_TRUE(frame_->closeAll());
    ASSERT_EQ(frame_->openDocument(path), status::ok);
    frame_->activeView()->waitForDrawing(10000);
    const std::string printed = testing::internal::GetCapturedStderr();
    for (const char* what : {"timing: render", "timing: save", "timing: open", "timing: redraw"}) {
        EXPECT_NE(printed.find(what), std::string::npos) << what << " in:\n" << printed;
    }
}

TEST_F(DocumentWindows, PreferencesChangeTheStoredSettingsAndTheViews) {
    NewImageParams params;
    params.width = 32;
    params.height = 32;
    ASSERT_EQ(frame_->newDocument(params), status::ok);
    CQuorvaleView* view = frame_->activeView();
    view->zoomActualSize();
    ASSERT_TRUE(view->waitForDrawing(10000));

    PreferencesDialog dialog(frame_);
    dialog.undoKilobytes()->setValue(4096);
    dialog.setBackground(ColourPOD{200, 100, 50}); // blue, green, red
    dialog.apply();
    frame_->applyDisplaySettings();
    ASSERT_TRUE(view->waitForDrawing(10000));

    EXPECT_EQ(appsettings::UndoBufferKB.value(), 4096);
    EXPECT_EQ(appsettings::BackgroundColour.value(), 50 | (100 << 8) | (200 << 16));
    const QImage shown = view->viewport()->grab().toImage();
    EXPECT_EQ(shown.pixelColor(0, 0), QColor(50, 100, 200)) << "the margin takes the colour";
    // The next run of the program reads the same.
    invalidateSettingRecords();
    EXPECT_TRUE(appsettings::UndoBufferKB.read());
    EXPECT_EQ(appsettings::UndoBufferKB.value(), 4096);
}

TEST_F(DocumentWindows, DroppedDocumentsOpenAndOtherFilesAreRefused) {
    const QString path = sampleFile();
    ASSERT_TRUE(frame_->closeAll());
    auto drop = [this](const QString& file) {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(file)});
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton,
                              Qt::NoModifier);
        QApplication::sendEvent(frame_, &enter);
        if (!enter.isAccepted()) {
            return false;
        }
        QDropEvent event(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(frame_, &event);
        return true;
    };
    EXPECT_FALSE(drop(QString::fromStdString(dir_.file("notes.txt"))));
    EXPECT_FALSE(drop(QString::fromStdString(dir_.file("scene.dxf"))));
    EXPECT_EQ(frame_->documentCount(), 0u);
    EXPECT_TRUE(drop(path));
    EXPECT_EQ(frame_->documentCount(), 1u);
    EXPECT_EQ(frame_->activeDocument()->path(), path);
}

} // namespace
