#include "app/CMainFrame.h"

#include "app/AppSettings.h"
#include "app/BrushOutlinePC.h"
#include "app/CCubicView.h"
#include "app/CQuorvaleApp.h"
#include "app/CQuorvaleDoc.h"
#include "app/CQuorvaleView.h"
#include "app/CToolWindow.h"
#include "app/NewImageDialog.h"
#include "app/PictureDialogs.h"
#include "app/PreferencesDialog.h"
#include "app/ProgressReporter.h"
#include "app/QtSettingsStore.h"
#include "app/QtText.h"
#include "app/UserMessages.h"
#include "applicators/BrushApplicator.h"
#include "file/FileType.h"
#include "interchange/raster/PanoramaExport.h"
#include "pipeline/Matte.h"
#include "pipeline/ToolSelection.h"
#include "styles/Toolbox.h"
#include "views/CubicView.h"
#include "views/ZmapView.h"
#include "views/cameras/ViewParams.h"

#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QMimeData>
#include <QPointer>
#include <QProgressBar>
#include <QScreen>
#include <QStatusBar>
#include <QTimer>

#include <cmath>

namespace {

const char* const documentFilter = "Quorvale documents (*.zmp *.zmq);;Images (*.zmp);;"
                                   "Panoramas (*.zmq);;All files (*)";

bool isDocumentFile(const QString& path) {
    const int type = fileType(toWString(path));
    return type == fileTypeZmp || type == fileTypeZmq;
}

/// A length in the units the settings ask for: the document's own (its unit code and
/// scale), or the fixed display unit.
QString lengthText(double worldValue, const ViewParams& vp) {
    static const char* const unitNames[] = {"mm", "µm", "mm", "cm", "m", "km", "thou", "in", "ft"};
    const double mm = worldValue * vp.modelScale * unitMillimetres(vp.unitCode);
    int unit = vp.unitCode;
    if (!appsettings::DisplayDocUnits.value()) {
        unit = appsettings::DisplayUnitType.value();
    }
    if (unit < 1 || unit > 8) {
        unit = 2;
    }
    const double v = mm / unitMillimetres(unit);
    return QStringLiteral("%1 %2").arg(v, 0, 'f', 3).arg(QString::fromUtf8(unitNames[unit]));
}

} // namespace

/// The window frame of one view, an image view or a panorama view: asks before the last
/// window of a changed document goes.
class CChildFrame : public QMdiSubWindow {
public:
    CChildFrame(CMainFrame& frame, CQuorvaleDoc& doc, QWidget* view)
        : frame_(frame), doc_(doc), widget_(view) {
        setWidget(view);
        setAttribute(Qt::WA_DeleteOnClose);
    }
    /// The image view shown, null for a panorama view.
    CQuorvaleView* view() const { return qobject_cast<CQuorvaleView*>(widget_); }
    CCubicView* cubicView() const { return qobject_cast<CCubicView*>(widget_); }
    CQuorvaleDoc& document() const { return doc_; }

protected:
    void closeEvent(QCloseEvent* event) override {
        if (doc_.windowCount() == 1 && !frame_.mayCloseDocument(doc_)) {
            event->ignore();
            return;
        }
        QMdiSubWindow::closeEvent(event);
        if (event->isAccepted()) {
            // The view leaves its document now, not when the frame's deferred deletion
            // comes: the document counts its windows, and may go before the frame.
            delete widget_;
            widget_ = nullptr;
            QTimer::singleShot(0, &frame_, [frame = &frame_] { frame->windowClosed(); });
        }
    }

private:
    CMainFrame& frame_;
    CQuorvaleDoc& doc_;
    QWidget* widget_;
};

namespace {

/// The tools' prompts go to the status bar; their pseudo-cursors to the views.
class StatusFeedback : public ToolFeedback {
public:
    explicit StatusFeedback(QStatusBar* bar) : bar_(bar) {}
    void prompt(std::uint32_t stringId) override {
        const QString text = loadQString(static_cast<int>(stringId));
        if (text.isEmpty()) {
            bar_->clearMessage();
        } else {
            bar_->showMessage(text);
        }
    }
    void setPseudoCursor(const TQL::Handle<TQL::Handlable>& cursor) override {
        if (const auto outline = TQL::handleCast<MaskOutline>(cursor)) {
            // A brush shows its dab's outline, if the user wants it.
            TQL::Handle<PseudoCursor> shown;
            const auto brush =
                TQL::handleCast<BrushApplicator>(ToolSelection::instance().applicator());
            if (appsettings::BrushOutline.value() != 0) {
                const double radius = brush && brush->mask ? brush->mask->size() : 0.0;
                const double aspect = brush ? brush->settings().aspect / 100.0 : 1.0;
                shown = TQL::makeHandle<BrushOutlinePC>(outline, radius, aspect);
            }
            CQuorvaleView::setToolCursor(shown);
            return;
        }
        CQuorvaleView::setToolCursor(TQL::handleCast<PseudoCursor>(cursor));
    }

private:
    QStatusBar* bar_;
};

} // namespace

CMainFrame::CMainFrame() : mdi_(new QMdiArea(this)), tools_(new CToolWindow(this)) {
    setObjectName(QStringLiteral("mainFrame"));
    setWindowTitle(QStringLiteral("Quorvale"));
    mdi_->setViewMode(QMdiArea::SubWindowView);
    mdi_->setBackground(QColor(96, 96, 96));
    setCentralWidget(mdi_);
    setAcceptDrops(true);

    pixelLabel_ = new QLabel(this);
    worldLabel_ = new QLabel(this);
    depthLabel_ = new QLabel(this);
    materialLabel_ = new QLabel(this);
    auto* progressLabel = new QLabel(this);
    auto* bar = new QProgressBar(this);
    bar->setMaximumWidth(220);
    statusBar()->addWidget(pixelLabel_);
    statusBar()->addWidget(worldLabel_);
    statusBar()->addWidget(depthLabel_);
    statusBar()->addWidget(materialLabel_, 1);
    statusBar()->addPermanentWidget(progressLabel);
    statusBar()->addPermanentWidget(bar);
    materialLabel_->setVisible(appsettings::StatusbarMaterialVisible.value() != 0);
    progress_ = std::make_unique<ProgressReporter>(bar, progressLabel, mdi_);
    feedback_ = std::make_unique<StatusFeedback>(statusBar());
    ToolSelection::instance().setFeedback(feedback_.get());
    if (const TQL::Handle<Applicator>& selected = ToolSelection::instance().applicator()) {
        selected->ready();
    }

    addDockWidget(Qt::RightDockWidgetArea, tools_);
    resizeDocks({tools_}, {360}, Qt::Horizontal);
    connect(tools_, &CToolWindow::toolChanged, this, &CMainFrame::toolChanged);
    toolChanged(tools_->currentTool());

    createMenus();
    if (CQuorvaleApp* app = CQuorvaleApp::instance()) {
        recent_ = app->settings().recentFiles(app->aliases(), recentFileCount);
    }
    updateRecentMenu();
    connect(mdi_, &QMdiArea::subWindowActivated, this, [this](QMdiSubWindow* w) {
        auto* child = dynamic_cast<CChildFrame*>(w);
        if (child && child->view()) {
            ZmapView::setActiveView(&child->view()->zmapView());
        }
        if (child) {
            updateTitle(child->document());
        }
        updateActions();
        offerMaterials();
    });
    updateActions();
}

CMainFrame::~CMainFrame() {
    // Views go before their documents, closed frames awaiting deletion included.
    qDeleteAll(findChildren<CChildFrame*>());
    documents_.clear();
    if (ToolSelection::instance().feedback() == feedback_.get()) {
        ToolSelection::instance().setFeedback(nullptr);
    }
    CQuorvaleView::setToolCursor(nullptr);
}

QAction* CMainFrame::addAction(QMenu* menu, const QString& name, const QString& text,
                               const QList<QKeySequence>& keys, void (CMainFrame::*slot)()) {
    QAction* a = menu->addAction(text);
    a->setObjectName(name);
    a->setShortcuts(keys);
    if (slot) {
        connect(a, &QAction::triggered, this, slot);
    }
    return a;
}

void CMainFrame::createMenus() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    addAction(file, "fileNew", tr("&New..."), QKeySequence::keyBindings(QKeySequence::New),
              &CMainFrame::onFileNew);
    addAction(file, "fileNewFromModel", tr("New from &Model..."),
              {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N)}, &CMainFrame::onFileNewFromModel);
    addAction(file, "fileNewPanorama", tr("New &Panorama from Picture..."), {},
              &CMainFrame::onFileNewPanorama);
    addAction(file, "fileOpen", tr("&Open..."), QKeySequence::keyBindings(QKeySequence::Open),
              &CMainFrame::onFileOpen);
    addAction(file, "fileSave", tr("&Save"), QKeySequence::keyBindings(QKeySequence::Save),
              &CMainFrame::onFileSave);
    addAction(file, "fileSaveAs", tr("Save &As..."),
              {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S)}, &CMainFrame::onFileSaveAs);
    addAction(file, "fileRevert", tr("&Revert"), {QKeySequence(Qt::Key_F12)},
              &CMainFrame::onFileRevert);
    addAction(file, "fileExportPanorama", tr("Export Pa&norama..."), {},
              &CMainFrame::onFileExportPanorama);
    addAction(file, "fileExport", tr("&Export..."), {QKeySequence(Qt::CTRL | Qt::Key_E)},
              &CMainFrame::onFileExport);
    addAction(file, "fileClose", tr("&Close"), QKeySequence::keyBindings(QKeySequence::Close),
              &CMainFrame::onFileClose);
    file->addSeparator();
    recentMenu_ = file->addMenu(tr("Recent &Files"));
    file->addSeparator();
    addAction(file, "filePreferences", tr("&Preferences..."),
              QKeySequence::keyBindings(QKeySequence::Preferences), &CMainFrame::onPreferences);
    file->addSeparator();
    QAction* quit = addAction(file, "fileExit", tr("E&xit"),
                              QKeySequence::keyBindings(QKeySequence::Quit), nullptr);
    connect(quit, &QAction::triggered, this, &QWidget::close);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    QAction* undo = addAction(edit, "editUndo", tr("&Undo"),
                              QKeySequence::keyBindings(QKeySequence::Undo), nullptr);
    connect(undo, &QAction::triggered, this, [this] { runOnActive(&CQuorvaleDoc::undo); });
    QAction* redo = addAction(
        edit, "editRedo", tr("&Redo"),
        {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), QKeySequence(Qt::CTRL | Qt::Key_Y)},
        nullptr);
    connect(redo, &QAction::triggered, this, [this] { runOnActive(&CQuorvaleDoc::redo); });

    QMenu* image = menuBar()->addMenu(tr("&Image"));
    QAction* crop = addAction(image, "imageCrop", tr("&Crop (drag a rectangle)"),
                              {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_X)}, nullptr);
    connect(crop, &QAction::triggered, this, [this] {
        if (CQuorvaleView* v = activeView()) {
            v->beginCropCapture();
            statusBar()->showMessage(tr("Drag the rectangle to keep; Escape cancels"), 5000);
        }
    });
    QAction* flatten = addAction(image, "imageFlatten", tr("&Flatten"),
                                 {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E)}, nullptr);
    connect(flatten, &QAction::triggered, this, [this] { runOnActive(&CQuorvaleDoc::flatten); });
    QAction* levels = addAction(image, "imageAutoLevels", tr("&Auto Levels"),
                                {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L)}, nullptr);
    connect(levels, &QAction::triggered, this, [this] { runOnActive(&CQuorvaleDoc::autoLevels); });
    image->addSeparator();
    addAction(image, "imageImportChannel", tr("&Import into Channel..."), {},
              &CMainFrame::onImportChannel);

    QMenu* view = menuBar()->addMenu(tr("&View"));
    QAction* in = addAction(
        view, "viewZoomIn", tr("Zoom &In"),
        {QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)}, nullptr);
    connect(in, &QAction::triggered, this, [this] {
        if (CQuorvaleView* v = activeView()) {
            v->zoomIn();
        }
    });
    QAction* out = addAction(view, "viewZoomOut", tr("Zoom &Out"),
                             QKeySequence::keyBindings(QKeySequence::ZoomOut), nullptr);
    connect(out, &QAction::triggered, this, [this] {
        if (CQuorvaleView* v = activeView()) {
            v->zoomOut();
        }
    });
    QAction* fit = addAction(view, "viewFit", tr("&Fit in Window"),
                             {QKeySequence(Qt::CTRL | Qt::Key_0)}, nullptr);
    connect(fit, &QAction::triggered, this, [this] {
        if (CQuorvaleView* v = activeView()) {
            v->fitWindow();
        }
    });
    QAction* actual = addAction(view, "viewActualSize", tr("&Actual Pixels (1:1)"),
                                {QKeySequence(Qt::CTRL | Qt::Key_1)}, nullptr);
    connect(actual, &QAction::triggered, this, [this] {
        if (CQuorvaleView* v = activeView()) {
            v->zoomActualSize();
        }
    });
    view->addSeparator();
    channelGroup_ = new QActionGroup(this);
    const struct {
        const char* name;
        const char* text;
        std::uint32_t channel;
    } channels[] = {
        {"viewColour", "&Colour", channelRgb},
        {"viewDepth", "&Depth", channelZ},
        {"viewMaterial", "&Material", channelMat},
        {"viewOriginalColour", "Original C&olour", channelOriginalRgb},
        {"viewOriginalDepth", "Original D&epth", channelOriginalZ},
        {"viewOriginalMaterial", "Original M&aterial", channelOriginalMat},
    };
    int key = 0;
    for (const auto& c : channels) {
        QAction* a = addAction(view, QString::fromLatin1(c.name), tr(c.text),
                               {QKeySequence(Qt::ALT | (Qt::Key_1 + key++))}, nullptr);
        a->setCheckable(true);
        a->setData(static_cast<unsigned>(c.channel));
        channelGroup_->addAction(a);
        const std::uint32_t channel = c.channel;
        connect(a, &QAction::triggered, this, [this, channel] { showChannel(channel); });
    }

    view->addSeparator();
    QAction* toolsShown = tools_->toggleViewAction();
    toolsShown->setObjectName(QStringLiteral("viewTools"));
    toolsShown->setText(tr("&Tools Window"));
    view->addAction(toolsShown);

    QMenu* window = menuBar()->addMenu(tr("&Window"));
    QAction* second = addAction(window, "windowNew", tr("&New Window"), {}, nullptr);
    connect(second, &QAction::triggered, this, [this] {
        // From a panorama view, the new window shows the cube's strip of faces.
        if (CQuorvaleView* v = activeView()) {
            newWindow(v->shownChannel());
        } else if (activeDocument()) {
            newWindow(channelRgb);
        }
    });
    QAction* panorama =
        addAction(window, "windowNewPanorama", tr("New &Panorama Window"), {}, nullptr);
    connect(panorama, &QAction::triggered, this, [this] {
        if (CQuorvaleDoc* doc = activeDocument(); doc && CubicView::isCubeImage(*doc)) {
            addCubicView(*doc);
        }
    });
    QAction* tile = addAction(window, "windowTile", tr("&Tile"), {}, nullptr);
    connect(tile, &QAction::triggered, mdi_, &QMdiArea::tileSubWindows);
    QAction* cascade = addAction(window, "windowCascade", tr("&Cascade"), {}, nullptr);
    connect(cascade, &QAction::triggered, mdi_, &QMdiArea::cascadeSubWindows);
    QAction* next = addAction(window, "windowNext", tr("Ne&xt"),
                              QKeySequence::keyBindings(QKeySequence::NextChild), nullptr);
    connect(next, &QAction::triggered, mdi_, &QMdiArea::activateNextSubWindow);
}

QAction* CMainFrame::action(const QString& name) const {
    return findChild<QAction*>(name);
}

CQuorvaleView* CMainFrame::activeView() const {
    QMdiSubWindow* w = mdi_->activeSubWindow();
    if (!w) {
        // Without window focus (hidden, offscreen) the last activated window counts.
        const auto list = mdi_->subWindowList(QMdiArea::ActivationHistoryOrder);
        w = list.isEmpty() ? nullptr : list.back();
    }
    auto* child = dynamic_cast<CChildFrame*>(w);
    return child ? child->view() : nullptr;
}

CQuorvaleDoc* CMainFrame::activeDocument() const {
    QMdiSubWindow* w = mdi_->activeSubWindow();
    if (!w) {
        const auto list = mdi_->subWindowList(QMdiArea::ActivationHistoryOrder);
        w = list.isEmpty() ? nullptr : list.back();
    }
    auto* child = dynamic_cast<CChildFrame*>(w);
    return child ? &child->document() : nullptr;
}

CCubicView* CMainFrame::activeCubicView() const {
    QMdiSubWindow* w = mdi_->activeSubWindow();
    if (!w) {
        const auto list = mdi_->subWindowList(QMdiArea::ActivationHistoryOrder);
        w = list.isEmpty() ? nullptr : list.back();
    }
    auto* child = dynamic_cast<CChildFrame*>(w);
    return child ? child->cubicView() : nullptr;
}

std::vector<CQuorvaleView*> CMainFrame::views() const {
    std::vector<CQuorvaleView*> list;
    for (QMdiSubWindow* w : mdi_->subWindowList()) {
        auto* child = dynamic_cast<CChildFrame*>(w);
        if (child && child->view()) {
            list.push_back(child->view());
        }
    }
    return list;
}

std::vector<CCubicView*> CMainFrame::cubicViews() const {
    std::vector<CCubicView*> list;
    for (QMdiSubWindow* w : mdi_->subWindowList()) {
        auto* child = dynamic_cast<CChildFrame*>(w);
        if (child && child->cubicView()) {
            list.push_back(child->cubicView());
        }
    }
    return list;
}

CQuorvaleView* CMainFrame::addView(CQuorvaleDoc& doc, std::uint32_t channel, bool fit) {
    auto* view = new CQuorvaleView(doc, channel);
    auto* child = new CChildFrame(*this, doc, view);
    mdi_->addSubWindow(child);
    const QSize area = mdi_->viewport()->size();
    child->resize(std::max(320, area.width() * 3 / 4), std::max(240, area.height() * 3 / 4));
    connect(view, &CQuorvaleView::cursorMoved, this, [this, view](int x, int y, bool inside) {
        if (view == activeView()) {
            showPixelInfo(x, y, inside);
        }
    });
    connect(view, &CQuorvaleView::activated, this,
            [this, child] { mdi_->setActiveSubWindow(child); });
    connect(view, &CQuorvaleView::imageClicked, this,
            [this, view](int x, int y, Qt::KeyboardModifiers) { applyTool(view, x, y); });
    connect(view, &CQuorvaleView::strokeChanged, this, [this] { updateActions(); });
    connect(view, &CQuorvaleView::eraserUsed, this, [this](bool eraser) {
        if (eraser) {
            statusBar()->showMessage(tr("Eraser: painting the original image back"), 3000);
        }
    });
    child->show();
    mdi_->setActiveSubWindow(child);
    view->OnInitialUpdate(fit);
    updateTitle(doc);
    updateActions();
    return view;
}

CCubicView* CMainFrame::addCubicView(CQuorvaleDoc& doc) {
    auto* view = new CCubicView(doc);
    auto* child = new CChildFrame(*this, doc, view);
    mdi_->addSubWindow(child);
    const QSize area = mdi_->viewport()->size();
    child->resize(std::max(320, area.width() * 3 / 4), std::max(240, area.height() * 3 / 4));
    connect(view, &CCubicView::cursorMoved, this, [this, view](int x, int y, bool inside) {
        if (view == activeCubicView()) {
            showPixelInfo(x, y, inside);
        }
    });
    connect(view, &CCubicView::activated, this, [this, child] { mdi_->setActiveSubWindow(child); });
    connect(view, &CCubicView::strokeChanged, this, [this] { updateActions(); });
    connect(view, &CCubicView::eraserUsed, this, [this](bool eraser) {
        if (eraser) {
            statusBar()->showMessage(tr("Eraser: painting the original image back"), 3000);
        }
    });
    child->show();
    mdi_->setActiveSubWindow(child);
    view->OnInitialUpdate();
    updateTitle(doc);
    updateActions();
    return view;
}

void CMainFrame::addFirstView(CQuorvaleDoc& doc) {
    if (doc.isPanorama() && CubicView::isCubeImage(doc)) {
        addCubicView(doc);
    } else {
        addView(doc, channelRgb, true);
    }
}

void CMainFrame::windowClosed() {
    // Documents without windows go.
    std::erase_if(documents_,
                  [](const std::unique_ptr<CQuorvaleDoc>& d) { return d->windowCount() == 0; });
    updateActions();
    if (documents_.empty()) {
        setWindowTitle(QStringLiteral("Quorvale"));
        showPixelInfo(0, 0, false);
    }
}

Status CMainFrame::openDocument(const QString& path) {
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (isPictureFile(absolute)) {
        return newFromPicture(absolute, false);
    }
    for (const auto& d : documents_) {
        if (d->path() == absolute && d->windowCount() > 0) {
            for (QMdiSubWindow* w : mdi_->subWindowList()) {
                auto* child = dynamic_cast<CChildFrame*>(w);
                if (child && &child->document() == d.get()) {
                    mdi_->setActiveSubWindow(w);
                    break;
                }
            }
            return status::ok;
        }
    }
    auto doc = std::make_unique<CQuorvaleDoc>(progress_.get(), this);
    connect(doc.get(), &CQuorvaleDoc::undoStateUpdated, this, &CMainFrame::updateActions);
    const Status s = doc->openFile(absolute);
    if (s != status::ok) {
        if (!isDocumentFile(absolute)) {
            return s;
        }
        // A file that was there and could not be read leaves the recent list.
        if (!QFileInfo::exists(absolute)) {
            recent_.removeAll(absolute);
            updateRecentMenu();
        }
        return s;
    }
    CQuorvaleDoc& ref = *doc;
    documents_.push_back(std::move(doc));
    connect(&ref, &CQuorvaleDoc::titleChanged, this, [this, &ref] { updateTitle(ref); });
    addFirstView(ref);
    addRecentFile(absolute);
    return status::ok;
}

Status CMainFrame::makeDocument(const std::function<Status(CQuorvaleDoc&)>& make) {
    auto doc = std::make_unique<CQuorvaleDoc>(progress_.get(), this);
    connect(doc.get(), &CQuorvaleDoc::undoStateUpdated, this, &CMainFrame::updateActions);
    const Status s = make(*doc);
    if (s != status::ok) {
        return s;
    }
    CQuorvaleDoc& ref = *doc;
    documents_.push_back(std::move(doc));
    connect(&ref, &CQuorvaleDoc::titleChanged, this, [this, &ref] { updateTitle(ref); });
    addFirstView(ref);
    return status::ok;
}

Status CMainFrame::newFromPicture(const QString& path, bool panorama) {
    return makeDocument([&](CQuorvaleDoc& doc) { return doc.newFromPicture(path, panorama); });
}

Status CMainFrame::newDocument(const NewImageParams& params) {
    return makeDocument([&](CQuorvaleDoc& doc) { return doc.newImage(params); });
}

CQuorvaleView* CMainFrame::newWindow(std::uint32_t channel) {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc) {
        return nullptr;
    }
    CQuorvaleView* view = addView(*doc, channel, true);
    for (QAction* a : channelGroup_->actions()) {
        a->setChecked(a->data().toUInt() == channel);
    }
    return view;
}

void CMainFrame::updateTitle(CQuorvaleDoc& doc) {
    std::vector<QMdiSubWindow*> frames;
    for (QMdiSubWindow* w : mdi_->subWindowList(QMdiArea::CreationOrder)) {
        auto* child = dynamic_cast<CChildFrame*>(w);
        if (child && &child->document() == &doc) {
            frames.push_back(w);
        }
    }
    for (std::size_t i = 0; i < frames.size(); ++i) {
        QString title = doc.displayName();
        if (frames.size() > 1) {
            title += QStringLiteral(":%1").arg(i + 1);
        }
        auto* child = static_cast<CChildFrame*>(frames[i]);
        if (child->cubicView()) {
            title += tr(" (panorama)");
        }
        frames[i]->setWindowTitle(title + QStringLiteral("[*]"));
        frames[i]->setWindowModified(doc.isModified());
    }
    if (&doc == activeDocument()) {
        setWindowTitle(doc.displayName() + QStringLiteral("[*] - Quorvale"));
        setWindowModified(doc.isModified());
    }
}

void CMainFrame::updateActions() {
    CQuorvaleDoc* doc = activeDocument();
    const bool have = doc != nullptr;
    for (const char* name :
         {"fileSave", "fileSaveAs", "fileExport", "imageImportChannel", "fileClose", "imageCrop",
          "imageFlatten", "imageAutoLevels", "viewZoomIn", "viewZoomOut", "viewFit",
          "viewActualSize", "windowNew", "fileExportPanorama"}) {
        if (QAction* a = action(QString::fromLatin1(name))) {
            a->setEnabled(have);
        }
    }
    action(QStringLiteral("fileRevert"))->setEnabled(have && !doc->path().isEmpty());
    QAction* undo = action(QStringLiteral("editUndo"));
    QAction* redo = action(QStringLiteral("editRedo"));
    undo->setEnabled(have && doc->canUndo());
    redo->setEnabled(have && doc->canRedo());
    undo->setText(have ? doc->undoText() : tr("&Undo"));
    redo->setText(have ? doc->redoText() : tr("&Redo"));
    channelGroup_->setEnabled(have);
    action(QStringLiteral("windowNewPanorama"))->setEnabled(have && CubicView::isCubeImage(*doc));
    if (CQuorvaleView* v = activeView()) {
        for (QAction* a : channelGroup_->actions()) {
            a->setChecked(a->data().toUInt() == v->shownChannel());
        }
    }
}

void CMainFrame::toolChanged(int toolId) {
    CQuorvaleView::setNavigation(toolId == CToolWindow::zoomToolId ? CQuorvaleView::Navigation::zoom
                                 : toolId == CToolWindow::handToolId
                                     ? CQuorvaleView::Navigation::hand
                                     : CQuorvaleView::Navigation::apply);
}

void CMainFrame::offerMaterials() {
    std::vector<std::wstring> names;
    if (CQuorvaleDoc* doc = activeDocument()) {
        for (const auto& [id, record] : doc->materials()) {
            const std::wstring name = doc->materialName(id);
            if (!name.empty()) {
                names.push_back(name);
            }
        }
    }
    tools_->setDocumentMaterials(names);
}

void CMainFrame::applyTool(CQuorvaleView* view, int x, int y) {
    if (!view || progress_->running()) {
        return;
    }
    const std::uint16_t tool = tools_->currentTool();
    if (tool == CToolWindow::handToolId || tool == CToolWindow::zoomToolId) {
        return;
    }
    CQuorvaleDoc& doc = view->document();
    if (tool == CSetFill::id) {
        doc.fillAt(x, y);
    } else if (doc.beginStroke(StrokePoint{x, y, 1.0f, 0}) == status::ok) {
        doc.endStroke();
    }
    updateActions();
}

void CMainFrame::showChannel(std::uint32_t channel) {
    if (CQuorvaleView* v = activeView()) {
        v->setShownChannel(channel);
    }
}

void CMainFrame::runOnActive(Status (CQuorvaleDoc::*command)()) {
    if (CQuorvaleDoc* doc = activeDocument()) {
        (doc->*command)();
        updateActions();
    }
}

QStringList CMainFrame::statusTexts() const {
    return {pixelLabel_->text(), worldLabel_->text(), depthLabel_->text(), materialLabel_->text()};
}

void CMainFrame::showPixelInfo(int x, int y, bool inside) {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc || !inside) {
        pixelLabel_->clear();
        worldLabel_->clear();
        depthLabel_->clear();
        materialLabel_->clear();
        return;
    }
    pixelLabel_->setText(tr("Pixel %1, %2").arg(x).arg(y));
    const std::uint32_t code = doc->zAt(x, y);
    if (code == 0xFFFFFFFFu || !doc->viewProj()) {
        worldLabel_->setText(tr("No surface"));
        depthLabel_->setText(tr("Depth none"));
    } else {
        const Point<3> p = doc->worldAt(x, y);
        const ViewParams& vp = doc->viewParams();
        worldLabel_->setText(
            QStringLiteral("X %1  Y %2  Z %3")
                .arg(lengthText(p[0], vp), lengthText(p[1], vp), lengthText(p[2], vp)));
        depthLabel_->setText(tr("Depth %1").arg(code));
    }
    const MaterialId m = doc->matAt(x, y);
    const QString name = toQString(doc->materialName(m));
    QString material =
        m == 0 ? tr("No material") : tr("Material %1 (%2)").arg(name.isEmpty() ? "?" : name).arg(m);
    if (Toolbox::instance().state.lockMask & Matte::lockMaterialBit) {
        // What a click would keep to with the material lock on.
        material += tr(" - the material lock keeps to it");
    }
    materialLabel_->setText(material);
}

bool CMainFrame::mayCloseDocument(CQuorvaleDoc& doc) {
    if (!doc.isModified()) {
        return true;
    }
    if (doc.path().isEmpty()) {
        const auto answer = UserMessages::current().ask(
            this, tr("Save the changes to %1?").arg(doc.displayName()), true);
        if (answer == UserMessages::Answer::cancel) {
            return false;
        }
        if (answer == UserMessages::Answer::no) {
            return true;
        }
        const QString path = QFileDialog::getSaveFileName(this, tr("Save As"), QString(),
                                                          QString::fromLatin1(documentFilter));
        return !path.isEmpty() && doc.saveAs(path) == status::ok;
    }
    return doc.saveModified(this);
}

bool CMainFrame::closeAll() {
    QList<QPointer<QMdiSubWindow>> closed;
    for (QMdiSubWindow* w : mdi_->subWindowList()) {
        if (!w->close()) {
            return false;
        }
        closed << w;
    }
    // Closed windows would delete themselves later; they go now, views before documents.
    for (const QPointer<QMdiSubWindow>& w : closed) {
        delete w.data();
    }
    documents_.clear();
    updateActions();
    return true;
}

bool CMainFrame::saveActive() {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc) {
        return false;
    }
    if (doc->path().isEmpty()) {
        onFileSaveAs();
        return !doc->isModified();
    }
    return doc->save() == status::ok;
}

Status CMainFrame::saveActiveAs(const QString& path) {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc) {
        return status::noImage;
    }
    const Status s = doc->saveAs(path);
    if (s == status::ok) {
        addRecentFile(doc->path());
        updateTitle(*doc);
    }
    return s;
}

void CMainFrame::onFileNew() {
    NewImageDialog dialog(this);
    if (dialog.exec() == QDialog::Accepted) {
        newDocument(dialog.params());
    }
}

void CMainFrame::onFileNewFromModel() {
    NewModelDialog dialog(this);
    if (dialog.exec() == QDialog::Accepted) {
        newDocument(dialog.params());
    }
}

void CMainFrame::onFileOpen() {
    PictureFileDialog dialog(this, tr("Open"), openFilter());
    if (dialog.exec() != QDialog::Accepted) {
        return;
    }
    for (const QString& p : dialog.selectedFiles()) {
        openDocument(p);
    }
}

void CMainFrame::onFileNewPanorama() {
    PictureFileDialog dialog(this, tr("New Panorama from Picture"),
                             tr("Pictures (*.bmp *.dib *.tga *.tif *.tiff *.jpg *.jpe *.jpeg "
                                "*.png);;All files (*)"));
    dialog.setFileMode(QFileDialog::ExistingFile);
    if (dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty()) {
        newFromPicture(dialog.selectedFiles().front(), true);
    }
}

void CMainFrame::onFileExport() {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc) {
        return;
    }
    QString selected;
    const QString path = QFileDialog::getSaveFileName(
        this, tr("Export"), doc->displayName() + QStringLiteral(".png"), exportFilter(), &selected);
    if (path.isEmpty()) {
        return;
    }
    ExportOptions options;
    options.title = doc->description;
    options.author = doc->artist;
    options.copyright = doc->copyright;
    if (chooseExportOptions(this, path, options)) {
        doc->exportTo(path, options);
    }
}

void CMainFrame::onFileExportPanorama() {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc) {
        return;
    }
    if (!PanoramaExport::isFullCube(*doc)) {
        UserMessages::current().error(this, toQString(PanoramaExport::notFullCubeText()));
        return;
    }
    const QStringList kinds = {tr("Six faces (six pictures)"),
                               tr("Equirectangular (one picture, 2:1)")};
    bool ok = false;
    const QString kind =
        QInputDialog::getItem(this, tr("Export Panorama"), tr("&Export as:"), kinds, 0, false, &ok);
    if (!ok) {
        return;
    }
    const bool faces = kinds.indexOf(kind) == 0;
    int width = 0;
    if (!faces) {
        width = QInputDialog::getInt(this, tr("Export Panorama"), tr("&Width in pixels:"),
                                     4 * doc->height(), 2, 65536, 2, &ok);
        if (!ok) {
            return;
        }
    }
    const QString path = QFileDialog::getSaveFileName(
        this, tr("Export Panorama"), doc->displayName() + QStringLiteral(".png"), exportFilter());
    if (!path.isEmpty()) {
        doc->exportPanorama(path, faces, width);
    }
}

void CMainFrame::onImportChannel() {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc) {
        return;
    }
    const QStringList names = {tr("Colour"), tr("Depth (grey: white is no depth)"),
                               tr("Material (grey level is the material id)")};
    const std::uint32_t channels[] = {channelRgb, channelZ, channelMat};
    bool ok = false;
    const QString chosen = QInputDialog::getItem(this, tr("Import into Channel"), tr("&Channel:"),
                                                 names, 0, false, &ok);
    if (!ok) {
        return;
    }
    PictureFileDialog dialog(this, tr("Import into Channel"),
                             tr("Pictures (*.bmp *.dib *.tga *.tif *.tiff *.jpg *.jpe *.jpeg "
                                "*.png);;All files (*)"));
    dialog.setFileMode(QFileDialog::ExistingFile);
    if (dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty()) {
        doc->importChannel(dialog.selectedFiles().front(), channels[names.indexOf(chosen)]);
    }
}

void CMainFrame::onFileSave() {
    saveActive();
}

void CMainFrame::onFileSaveAs() {
    CQuorvaleDoc* doc = activeDocument();
    if (!doc) {
        return;
    }
    QString suggested = doc->path();
    if (suggested.isEmpty()) {
        suggested = doc->displayName() + (doc->isPanorama() ? ".zmq" : ".zmp");
    }
    const QString path = QFileDialog::getSaveFileName(this, tr("Save As"), suggested,
                                                      doc->isPanorama() ? tr("Panoramas (*.zmq)")
                                                                        : tr("Images (*.zmp)"));
    if (!path.isEmpty()) {
        saveActiveAs(path);
    }
}

void CMainFrame::onFileRevert() {
    runOnActive(&CQuorvaleDoc::revert);
}

void CMainFrame::onFileClose() {
    if (QMdiSubWindow* w = mdi_->activeSubWindow()) {
        w->close();
    } else if (CQuorvaleView* v = activeView()) {
        v->parentWidget()->close();
    }
}

void CMainFrame::onPreferences() {
    PreferencesDialog dialog(this);
    if (dialog.exec() == QDialog::Accepted) {
        dialog.apply();
        applyDisplaySettings();
    }
}

void CMainFrame::applyDisplaySettings() {
    for (CQuorvaleView* v : views()) {
        v->OnColourMatchChange();
    }
    materialLabel_->setVisible(appsettings::StatusbarMaterialVisible.value() != 0);
}

void CMainFrame::addRecentFile(const QString& path) {
    recent_.removeAll(path);
    recent_.prepend(path);
    while (recent_.size() > recentFileCount) {
        recent_.removeLast();
    }
    if (CQuorvaleApp* app = CQuorvaleApp::instance()) {
        app->settings().setRecentFiles(recent_, app->aliases());
    }
    updateRecentMenu();
}

void CMainFrame::updateRecentMenu() {
    recentMenu_->clear();
    int n = 1;
    for (const QString& path : recent_) {
        QAction* a = recentMenu_->addAction(QStringLiteral("&%1 %2").arg(n++).arg(path));
        connect(a, &QAction::triggered, this, [this, path] { openDocument(path); });
    }
    recentMenu_->setEnabled(!recent_.isEmpty());
}

void CMainFrame::storePlacement() {
    const QRect g = normalGeometry().isValid() ? normalGeometry() : geometry();
    appsettings::MainWindowMax.write(isMaximized() ? 1 : 0);
    writeMainWindowPosition(MainWindowPlacement{isMaximized() ? 3 : 1, g.left(), g.top(),
                                                g.right() + 1, g.bottom() + 1});
}

void CMainFrame::showWithStoredPlacement() {
    MainWindowPlacement p;
    if (readMainWindowPosition(p)) {
        setGeometry(QRect(QPoint(p.left, p.top), QPoint(p.right - 1, p.bottom - 1)));
    } else if (QScreen* screen = QApplication::primaryScreen()) {
        const QRect avail = screen->availableGeometry();
        resize(std::min(1280, avail.width()), std::min(860, avail.height()));
    }
    if (appsettings::MainWindowMax.value()) {
        showMaximized();
    } else {
        show();
    }
}

void CMainFrame::closeEvent(QCloseEvent* event) {
    if (progress_->running()) {
        // Long work runs: Escape stops it; the window stays until it has.
        progress_->requestStop();
        event->ignore();
        return;
    }
    if (!closeAll()) {
        event->ignore();
        return;
    }
    storePlacement();
    event->accept();
}

void CMainFrame::dragEnterEvent(QDragEnterEvent* event) {
    const QMimeData* data = event->mimeData();
    if (data->hasUrls()) {
        for (const QUrl& url : data->urls()) {
            if (url.isLocalFile() &&
                (isDocumentFile(url.toLocalFile()) || isPictureFile(url.toLocalFile()))) {
                event->acceptProposedAction();
                return;
            }
        }
    }
    event->ignore();
}

void CMainFrame::dropEvent(QDropEvent* event) {
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls()) {
        if (url.isLocalFile() &&
            (isDocumentFile(url.toLocalFile()) || isPictureFile(url.toLocalFile()))) {
            paths << url.toLocalFile();
        }
    }
    event->acceptProposedAction();
    for (const QString& p : paths) {
        openDocument(p);
    }
}
