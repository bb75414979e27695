#include "app/CQuorvaleDoc.h"

#include "app/CCubicView.h"
#include "app/CQuorvaleView.h"
#include "app/ProgressReporter.h"
#include "app/QtText.h"
#include "app/TimingReport.h"
#include "app/UserMessages.h"
#include "applicators/Filler.h"
#include "core/FilePath.h"
#include "effects/Restore.h"
#include "file/FileType.h"
#include "file/ZmapDocumentCommands.h"
#include "image/StrokeApplicator.h"
#include "interchange/ModelImage.h"
#include "interchange/raster/PanoramaExport.h"
#include "interchange/raster/RasterDocumentCommands.h"
#include "pipeline/ToolSelection.h"
#include "styles/FillTool.h"
#include "styles/Toolbox.h"

#include <QClipboard>
#include <QFileInfo>
#include <QGuiApplication>

#include <new>

namespace {

/// The commands of every document: files, pictures (the raster and panorama kinds of new,
/// import into a channel) and the model kind of new.
DocumentCommands& commands() {
    static RasterDocumentCommands pictures(ZmapDocumentCommands::instance());
    static ModelDocumentCommands model(pictures);
    return model;
}

int nextUntitled() {
    static int n = 0;
    return ++n;
}

const char* timingName(std::int32_t command) {
    switch (command) {
    case commandNew:
        return "new";
    case commandOpen:
        return "open";
    case commandSave:
    case commandSaveAs:
        return "save";
    case commandRevert:
        return "revert";
    default:
        return "command";
    }
}

/// What a stroke tells the document's windows: the pixels it changed, and the timing text
/// of a stored stroke for the clipboard.
class DocumentStrokeView : public StrokeView {
public:
    explicit DocumentStrokeView(DocumentViews& views) : views_(views) {}
    void queueRedraw(const IExtent<2>& extent) override {
        if (!extent.degenerate()) {
            views_.invalidate(extent);
        }
    }
    void copyToClipboard(const std::wstring& text) override {
        if (QClipboard* clipboard = QGuiApplication::clipboard()) {
            clipboard->setText(toQString(text));
        }
    }

private:
    DocumentViews& views_;
};

} // namespace

CQuorvaleDoc::CQuorvaleDoc(ProgressReporter* progress, QWidget* dialogParent)
    : progress_(progress), dialogParent_(dialogParent),
      strokeView_(std::make_unique<DocumentStrokeView>(*this)), untitledNumber_(nextUntitled()) {
    editor.setCommands(&commands());
    editor.setMessages(this);
    editor.setProgress(progress);
    setViews(this);
}

CQuorvaleDoc::~CQuorvaleDoc() {
    DocumentEditor::releaseRunningStroke(this);
    for (CQuorvaleView* v : views_) {
        v->cancelDrawing();
    }
    for (CCubicView* v : cubicViews_) {
        v->cancelDrawing();
    }
    setViews(nullptr);
}

Status CQuorvaleDoc::run(std::int32_t command, const CommandArgument& argument, const QString& what,
                         const char* timingWhat) {
    pendingMessages_.clear();
    Status s = status::ok;
    {
        std::unique_ptr<ProgressScope> scope;
        if (progress_ &&
            (command == commandNew || command == commandOpen || command == commandSave ||
             command == commandSaveAs || command == commandRevert)) {
            scope = std::make_unique<ProgressScope>(*progress_, what);
        }
        TimingReport timing(timingWhat ? timingWhat : timingName(command), what);
        try {
            editor.execute(s, command, argument);
        } catch (const std::bad_alloc&) {
            s = status::outOfMemory;
        }
    }
    QStringList shown = pendingMessages_;
    pendingMessages_.clear();
    if (s != status::ok && s != status::warning && shown.isEmpty()) {
        shown << (what.isEmpty() ? statusQText(s) : what + QStringLiteral(": ") + statusQText(s));
    }
    if (!shown.isEmpty()) {
        UserMessages::current().error(dialogParent_, shown.join(QLatin1Char('\n')));
    }
    emit titleChanged();
    emit undoStateUpdated();
    return s == status::warning ? status::ok : s;
}

Status CQuorvaleDoc::fillAt(std::int32_t x, std::int32_t y) {
    pendingMessages_.clear();
    Status s = status::ok;
    const QString what = tr("Fill");
    {
        std::unique_ptr<ProgressScope> scope;
        if (progress_) {
            scope = std::make_unique<ProgressScope>(*progress_, what);
        }
        TimingReport timing("fill", QStringLiteral("%1, %2").arg(x).arg(y));
        DocumentStrokeView view(*this);
        try {
            s = runFill(*this, x, y, &view);
        } catch (const std::bad_alloc&) {
            s = status::outOfMemory;
        }
    }
    QStringList shown = pendingMessages_;
    pendingMessages_.clear();
    if (s != status::ok && shown.isEmpty()) {
        shown << what + QStringLiteral(": ") + statusQText(s);
    }
    if (!shown.isEmpty()) {
        UserMessages::current().error(dialogParent_, shown.join(QLatin1Char('\n')));
    }
    emit titleChanged();
    emit undoStateUpdated();
    return s;
}

bool CQuorvaleDoc::strokeRunning() const {
    return DocumentEditor::runningApplicator() && DocumentEditor::runningDocument() == this;
}

bool CQuorvaleDoc::strokeOpen() const {
    if (!strokeRunning()) {
        return false;
    }
    const auto applicator = TQL::handleCast<Applicator>(DocumentEditor::runningApplicator());
    return applicator && applicator->isStrokeOpen() && !applicator->abandoned &&
           !applicator->finished;
}

Status CQuorvaleDoc::reportStroke(Status s, const QString& what) {
    QStringList shown = pendingMessages_;
    pendingMessages_.clear();
    if (s != status::ok && shown.isEmpty()) {
        shown << what + QStringLiteral(": ") + statusQText(s);
    }
    if (!shown.isEmpty()) {
        UserMessages::current().error(dialogParent_, shown.join(QLatin1Char('\n')));
    }
    return s;
}

Status CQuorvaleDoc::beginStroke(const StrokePoint& point, bool eraser) {
    pendingMessages_.clear();
    Status s = status::ok;
    try {
        ToolSelection& selection = ToolSelection::instance();
        if (!strokeOpen()) {
            // A new stroke paints with what the toolbox shows now.
            Toolbox::instance().installColourAndBlend();
        }
        const TQL::Handle<EffectTool> effect = selection.effect;
        const TQL::Handle<RecolourTool> recolour = selection.recolour;
        if (eraser) {
            // The stroke takes its stages as it starts; the selection is left as it was.
            selection.effect = TQL::makeHandle<Restore>();
            selection.recolour.reset();
        }
        s = editor.beginStroke(point, strokeView_.get());
        selection.effect = effect;
        selection.recolour = recolour;
    } catch (const std::bad_alloc&) {
        s = status::outOfMemory;
    }
    return reportStroke(s, tr("Paint"));
}

Status CQuorvaleDoc::continueStroke(const StrokePoint& point) {
    if (!strokeRunning()) {
        return status::ok;
    }
    pendingMessages_.clear();
    Status s = status::ok;
    try {
        s = editor.continueStroke(point);
    } catch (const std::bad_alloc&) {
        s = status::outOfMemory;
    }
    return reportStroke(s, tr("Paint"));
}

Status CQuorvaleDoc::endStroke() {
    if (!strokeRunning()) {
        return status::ok;
    }
    pendingMessages_.clear();
    const TQL::Handle<StrokeApplicator> running = DocumentEditor::runningApplicator();
    const bool long_ = dynamic_cast<const Filler*>(running.get()) != nullptr;
    const QString what = long_ ? tr("Fill") : tr("Paint");
    Status s = status::ok;
    {
        std::unique_ptr<ProgressScope> scope;
        if (progress_ && long_) {
            scope = std::make_unique<ProgressScope>(*progress_, what);
        }
        try {
            s = editor.endStroke();
        } catch (const std::bad_alloc&) {
            s = status::outOfMemory;
        }
    }
    reportStroke(s, what);
    if (!strokeRunning()) {
        emit titleChanged();
        emit undoStateUpdated();
    }
    return s;
}

Status CQuorvaleDoc::closeStroke() {
    if (!strokeRunning()) {
        return status::ok;
    }
    const auto applicator = TQL::handleCast<Applicator>(DocumentEditor::runningApplicator());
    if (applicator && !applicator->closeStroke() && !applicator->abandoned &&
        !applicator->finished) {
        // Nothing to close: the stroke ends where it is.
        applicator->abandon();
    }
    return endStroke();
}

Status CQuorvaleDoc::stopStroke() {
    if (!strokeRunning()) {
        return status::ok;
    }
    const TQL::Handle<StrokeApplicator> running = DocumentEditor::runningApplicator();
    if (!running->isAbandoned() && !running->isFinished()) {
        running->abandon();
    }
    return endStroke();
}

Status CQuorvaleDoc::newImage(const NewImageParams& params) {
    const QString what = params.kind == NewImageKind::model ? toQString(params.sourcePath)
                                                            : QStringLiteral("new image");
    if (params.kind == NewImageKind::model) {
        // A rendered model is named after its drawing until it is saved.
        suggestedName_ = QFileInfo(what).completeBaseName();
    }
    return run(commandNew, params, what, params.kind == NewImageKind::model ? "render" : "new");
}

Status CQuorvaleDoc::newFromPicture(const QString& path, bool panorama) {
    NewImageParams params;
    params.kind = panorama ? NewImageKind::panoramaFromFile : NewImageKind::fromRaster;
    params.sourcePath = toWString(QFileInfo(path).absoluteFilePath());
    // Named after its picture until it is saved.
    suggestedName_ = QFileInfo(path).completeBaseName();
    return run(commandNew, params, path, "import");
}

Status CQuorvaleDoc::importChannel(const QString& path, std::uint32_t channel) {
    return run(commandImportChannel,
               ChannelImportArgument{toWString(QFileInfo(path).absoluteFilePath()), channel}, path,
               "import");
}

Status CQuorvaleDoc::exportTo(const QString& path, const ExportOptions& given) {
    const std::wstring target = toWString(QFileInfo(path).absoluteFilePath());
    const TQL::Handle<RasterExport> exporter = RasterExport::create(target);
    Status s = status::unsupportedCompression;
    QString reason;
    if (exporter) {
        ExportOptions options = given;
        std::unique_ptr<ProgressScope> scope;
        if (progress_) {
            scope = std::make_unique<ProgressScope>(*progress_, path);
            options.progress = progress_;
        }
        TimingReport timing("export", path);
        try {
            s = exporter->write(*this, IExtent<2>(0, 0, width() - 1, height() - 1), xResolution,
                                yResolution, options);
        } catch (const std::bad_alloc&) {
            s = status::outOfMemory;
        }
        reason = toQString(exporter->errorText());
    }
    if (s != status::ok && s != status::stopped) {
        UserMessages::current().error(dialogParent_,
                                      path + QStringLiteral(": ") +
                                          (reason.isEmpty() ? statusQText(s) : reason));
    }
    return s;
}

Status CQuorvaleDoc::exportPanorama(const QString& path, bool faces, int width) {
    const std::wstring target = toWString(QFileInfo(path).absoluteFilePath());
    ExportOptions options;
    options.title = description;
    options.author = artist;
    options.copyright = copyright;
    std::unique_ptr<ProgressScope> scope;
    if (progress_) {
        scope = std::make_unique<ProgressScope>(*progress_, path);
        options.progress = progress_;
    }
    std::wstring error;
    Status s = status::ok;
    try {
        s = faces ? PanoramaExport::exportFaces(*this, target, options, error)
                  : PanoramaExport::exportEquirectangular(*this, target, width, options, error);
    } catch (const std::bad_alloc&) {
        s = status::outOfMemory;
    }
    if (s != status::ok && s != status::stopped) {
        // The refusal of a document that isn't a whole cube stands alone, as its own text.
        const QString reason = error.empty() ? statusQText(s) : toQString(error);
        UserMessages::current().error(dialogParent_, error == PanoramaExport::notFullCubeText()
                                                         ? reason
                                                         : path + QStringLiteral(": ") + reason);
    }
    return s;
}

Status CQuorvaleDoc::openFile(const QString& path) {
    return run(commandOpen, FileArgument{toWString(QFileInfo(path).absoluteFilePath())}, path);
}

Status CQuorvaleDoc::save() {
    return run(commandSave, CommandArgument(), path());
}

Status CQuorvaleDoc::saveAs(const QString& path) {
    const std::wstring target = toWString(QFileInfo(path).absoluteFilePath());
    if (!pathName.empty() && target == pathName) {
        return save();
    }
    return run(commandSaveAs, FileArgument{target}, path);
}

Status CQuorvaleDoc::revert() {
    return run(commandRevert, CommandArgument(), path());
}

Status CQuorvaleDoc::undo() {
    return run(commandUndo, CommandArgument(), tr("Undo"));
}

Status CQuorvaleDoc::redo() {
    return run(commandRedo, CommandArgument(), tr("Redo"));
}

Status CQuorvaleDoc::crop(const IExtent<2>& keep) {
    return run(commandCrop, keep, tr("Crop"));
}

Status CQuorvaleDoc::flatten() {
    return run(commandFlatten, CommandArgument(), loadQString(10059));
}

Status CQuorvaleDoc::autoLevels() {
    return run(commandAutoLevels, CommandArgument(), loadQString(10287));
}

bool CQuorvaleDoc::isPanorama() const {
    return viewParams().viewCode == ViewParams::cubicCode || fileType(pathName) == fileTypeZmq;
}

QString CQuorvaleDoc::displayName() const {
    if (pathName.empty()) {
        return suggestedName_.isEmpty() ? tr("Untitled %1").arg(untitledNumber_) : suggestedName_;
    }
    return QFileInfo(toQString(pathName)).fileName();
}

QString CQuorvaleDoc::path() const {
    return toQString(pathName);
}

bool CQuorvaleDoc::canUndo() const {
    return editor.undoBuffer && editor.undoBuffer->canUndo();
}

bool CQuorvaleDoc::canRedo() const {
    return editor.undoBuffer && editor.undoBuffer->canRedo();
}

QString CQuorvaleDoc::undoText() const {
    const std::int32_t id = editor.undoBuffer ? editor.undoBuffer->undoDescription() : 0;
    const QString name = id ? loadQString(id) : QString();
    return name.isEmpty() ? tr("&Undo") : tr("&Undo %1").arg(name);
}

QString CQuorvaleDoc::redoText() const {
    const std::int32_t id = editor.undoBuffer ? editor.undoBuffer->redoDescription() : 0;
    const QString name = id ? loadQString(id) : QString();
    return name.isEmpty() ? tr("&Redo") : tr("&Redo %1").arg(name);
}

bool CQuorvaleDoc::saveModified(QWidget* parent) {
    if (!modified_) {
        return true;
    }
    const auto answer =
        UserMessages::current().ask(parent, tr("Save the changes to %1?").arg(displayName()), true);
    if (answer == UserMessages::Answer::cancel) {
        return false;
    }
    if (answer == UserMessages::Answer::no) {
        return true;
    }
    if (pathName.empty()) {
        // A document never saved needs a name: the caller's Save As gives it one.
        return false;
    }
    return save() == status::ok;
}

void CQuorvaleDoc::addView(CQuorvaleView* view) {
    views_.push_back(view);
}

void CQuorvaleDoc::removeView(CQuorvaleView* view) {
    std::erase(views_, view);
}

void CQuorvaleDoc::addCubicView(CCubicView* view) {
    cubicViews_.push_back(view);
}

void CQuorvaleDoc::removeCubicView(CCubicView* view) {
    std::erase(cubicViews_, view);
}

void CQuorvaleDoc::setChanged(bool changed) {
    if (changed == modified_) {
        return;
    }
    modified_ = changed;
    emit titleChanged();
}

void CQuorvaleDoc::cancelDrawing() {
    for (CQuorvaleView* v : views_) {
        v->cancelDrawing();
    }
    for (CCubicView* v : cubicViews_) {
        v->cancelDrawing();
    }
}

void CQuorvaleDoc::endCapture() {
    for (CQuorvaleView* v : views_) {
        v->endCapture();
    }
}

void CQuorvaleDoc::update(std::uint32_t hint) {
    for (CQuorvaleView* v : views_) {
        v->OnUpdate(hint);
    }
    for (CCubicView* v : cubicViews_) {
        v->OnUpdate(hint);
    }
}

void CQuorvaleDoc::invalidate(const IExtent<2>& extent) {
    for (CQuorvaleView* v : views_) {
        v->invalidateImage(extent);
    }
    for (CCubicView* v : cubicViews_) {
        v->invalidateImage(extent);
    }
}

void CQuorvaleDoc::undoStateChanged() {
    emit undoStateUpdated();
}

void CQuorvaleDoc::message(std::int32_t, const std::wstring& text) {
    pendingMessages_ << toQString(text);
}

void CQuorvaleDoc::progressText(std::int32_t, const std::wstring& text) {
    if (progress_ && progress_->running()) {
        progress_->setText(toQString(text));
    }
}
