#pragma once

#include "image/DocumentCommands.h"
#include "image/DocumentViews.h"
#include "image/StrokeApplicator.h"
#include "image/ZmapDocument.h"
#include "interchange/raster/RasterExport.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class CCubicView;
class CQuorvaleView;
class ProgressReporter;
class QWidget;

/// An open document of the application: a ZmapDocument whose changed flag is the
/// windows' modified mark ("[*]" in their titles), whose views are CQuorvaleViews, and
/// whose commands report to the user in message boxes and to the progress bar.
///
/// Every operation runs one numbered command of the editor and returns its status; a
/// failure has been shown to the user (its message, or else the status text) by the time
/// it returns. Interface thread only.
class CQuorvaleDoc : public QObject,
                     public ZmapDocument,
                     public DocumentViews,
                     public CommandMessages {
    Q_OBJECT

public:
    /// `progress` (may be null) shows long work and its stop key; `dialogParent` is the
    /// parent of message boxes.
    CQuorvaleDoc(ProgressReporter* progress, QWidget* dialogParent);
    ~CQuorvaleDoc() override;

    Status newImage(const NewImageParams& params);
    /// Makes this (empty) document from a picture file: its size and pixels, no depth; or,
    /// with `panorama`, a cube panorama from six faces side by side or a spherical picture.
    Status newFromPicture(const QString& path, bool panorama);
    /// Reads a picture into one channel (colour, depth or material, or their originals),
    /// centred; one undo level.
    Status importChannel(const QString& path, std::uint32_t channel);
    /// Writes the colour as a picture of `path`'s type (PNG, JPEG, TIFF, PSD, BMP, TGA)
    /// through a temporary file, with progress and its stop key; a failure is shown and
    /// leaves any file of that name as it was.
    /// Writes the panorama as six face pictures (`faces`) or one equirectangular picture
    /// `width` pixels wide (0: four face widths), with progress; shows any failure, and for a
    /// document that isn't a whole cube the refusal "Not a full cube image".
    Status exportPanorama(const QString& path, bool faces, int width);
    Status exportTo(const QString& path, const ExportOptions& options);
    /// Opens a .zmp or .zmq file into this (empty) document.
    Status openFile(const QString& path);
    /// Saves to the document's path.
    Status save();
    /// Saves under `path`: the same path as now is a plain save.
    Status saveAs(const QString& path);
    Status revert();
    Status undo();
    Status redo();
    /// Keeps the pixels of `keep` (inclusive image corners).
    Status crop(const IExtent<2>& keep);
    Status flatten();
    Status autoLevels();
    /// Fills at image pixel (x, y) with the toolbox's fill, locks, fog, colour and blend, as
    /// one undo level ("Fill"). Shows progress; Escape stops the fill and keeps what it has
    /// painted. A failure has been shown when it returns.
    Status fillAt(std::int32_t x, std::int32_t y);

    // Strokes of the toolbox's current applicator (brush, pen, shape, fill...), driven by
    // a view's mouse or tablet through the editor's stroke calls. A failure has been shown
    // when they return.

    /// Starts a stroke at `point`, or goes on with this document's open one (a line takes
    /// its next point). A new stroke takes the toolbox's colour and blend; with `eraser` it
    /// paints the original image back (the Restore effect, no colour of its own).
    Status beginStroke(const StrokePoint& point, bool eraser = false);
    Status continueStroke(const StrokePoint& point);
    /// The release: the stroke ends, or stays open if its tool waits for more points. A
    /// long stroke (a fill) shows progress, and Escape stops it keeping what it painted.
    Status endStroke();
    /// Ends an open stroke as it stands (a double click, Enter): a filled polygon is
    /// closed and filled, a line just ends. What was painted is one undo level.
    Status closeStroke();
    /// Stops the running stroke (Escape): what it painted stays, as one undo level.
    Status stopStroke();
    /// The process's running stroke paints this document.
    bool strokeRunning() const;
    /// The running stroke waits for more points (a line between clicks).
    bool strokeOpen() const;

    bool isModified() const { return modified_; }
    /// True for a cube panorama (.zmq).
    bool isPanorama() const;
    /// The name shown in titles: the file name, or "Untitled" with a number.
    QString displayName() const;
    QString path() const;
    bool canUndo() const;
    bool canRedo() const;
    /// The texts of Undo and Redo with their actions' names, if known.
    QString undoText() const;
    QString redoText() const;

    /// Asks whether to save a changed document before it closes: true if it may close
    /// (saved, or the user chose not to save).
    bool saveModified(QWidget* parent);

    void addView(CQuorvaleView* view);
    void removeView(CQuorvaleView* view);
    const std::vector<CQuorvaleView*>& viewList() const { return views_; }
    /// The panorama views of the document, told of changes like the image views.
    void addCubicView(CCubicView* view);
    void removeCubicView(CCubicView* view);
    const std::vector<CCubicView*>& cubicViewList() const { return cubicViews_; }
    /// Windows of either kind.
    std::size_t windowCount() const { return views_.size() + cubicViews_.size(); }

    // ZmapDocument
    void setChanged(bool changed) override;
    // DocumentViews
    void cancelDrawing() override;
    void endCapture() override;
    void update(std::uint32_t hint) override;
    void invalidate(const IExtent<2>& extent) override;
    void undoStateChanged() override;
    // CommandMessages
    void message(std::int32_t id, const std::wstring& text) override;
    void progressText(std::int32_t id, const std::wstring& text) override;

signals:
    /// The modified mark or the name changed.
    void titleChanged();
    void undoStateUpdated();

private:
    /// Runs command `command`; shows a failure (the messages the command gave, or else
    /// the status text, led by `what`). -20 counts as success and shows its message.
    Status run(std::int32_t command, const CommandArgument& argument, const QString& what,
               const char* timingWhat = nullptr);

    /// Shows a failed stroke call's messages; returns `s`.
    Status reportStroke(Status s, const QString& what);

    ProgressReporter* progress_;
    QWidget* dialogParent_;
    std::unique_ptr<StrokeView> strokeView_;
    std::vector<CQuorvaleView*> views_;
    std::vector<CCubicView*> cubicViews_;
    QStringList pendingMessages_;
    bool modified_ = false;
    int untitledNumber_;
    QString suggestedName_;
};
