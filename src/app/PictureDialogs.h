#pragma once

#include "core/DrawThread.h"
#include "core/Handle.h"
#include "interchange/raster/RasterExport.h"
#include "interchange/raster/RasterImport.h"

#include <QFileDialog>
#include <QLabel>
#include <QStringList>
#include <QTimer>

#include <memory>

/// Name filters of the open dialogs: documents and every picture type the readers take.
QString openFilter();
/// Name filters of the export dialog, one per writer.
QString exportFilter();
/// True for a path whose extension names a picture type we read (not a Zmap document).
bool isPictureFile(const QString& path);

/// The preview beside an open dialog's file list: the picture's thumbnail, read on the
/// drawing thread so that the dialog never waits for a large file, and its size.
class PicturePreview : public QLabel, private ThumbView {
    Q_OBJECT
public:
    explicit PicturePreview(QWidget* parent = nullptr);
    ~PicturePreview() override;

    /// Starts reading the thumbnail of `path` (a picture or a Zmap document), cancelling
    /// the one before; an empty path or a folder clears the preview.
    void showFile(const QString& path);
    /// True once the last file asked for has been read (or has failed).
    bool settled() const;

private:
    void setPreviewSize(std::int32_t width, std::int32_t height) override;
    void drawThumb(const std::uint8_t* bgr, std::int32_t width, std::int32_t height,
                   std::size_t stride) override;
    void poll();
    void cancelJob();

    TQL::Handle<RasterImport> import_;
    std::unique_ptr<ThumbnailDrawThread> job_;
    QTimer timer_;
    QString path_;
    std::int32_t pictureWidth_ = 0;
    std::int32_t pictureHeight_ = 0;
};

/// The open dialog with the thumbnail preview. Not the desktop's own dialog, since that
/// can't hold a preview.
class PictureFileDialog : public QFileDialog {
    Q_OBJECT
public:
    PictureFileDialog(QWidget* parent, const QString& caption, const QString& filter);
    PicturePreview* preview() const { return preview_; }

private:
    PicturePreview* preview_;
};

/// Asks for the options of an export to `path`'s type (JPEG quality, sampling and coding;
/// PNG texts; PSD compression and profile), starting from `options`. False if cancelled;
/// types without options return true at once.
bool chooseExportOptions(QWidget* parent, const QString& path, ExportOptions& options);
