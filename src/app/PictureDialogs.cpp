#include "app/PictureDialogs.h"

#include "app/CQuorvaleView.h"
#include "app/QtText.h"
#include "file/FileType.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QImage>
#include <QLineEdit>
#include <QPixmap>
#include <QSpinBox>

namespace {

constexpr int previewSide = 220;

/// The drawing thread tells jobs apart by their window: the preview widget stands for it.
DrawWindow windowOf(const PicturePreview* preview) {
    return static_cast<const void*>(preview);
}

QDialogButtonBox* okCancel(QDialog* dialog) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    return buttons;
}

} // namespace

QString openFilter() {
    return QObject::tr("Documents and pictures (*.zmp *.zmq *.bmp *.dib *.tga *.tif *.tiff *.jpg "
                       "*.jpe *.jpeg *.png);;Quorvale documents (*.zmp *.zmq);;Pictures (*.bmp "
                       "*.dib *.tga *.tif *.tiff *.jpg *.jpe *.jpeg *.png);;All files (*)");
}

QString exportFilter() {
    return QObject::tr("PNG (*.png);;JPEG (*.jpg *.jpeg);;TIFF (*.tif *.tiff);;Photoshop layers "
                       "(*.psd);;BMP (*.bmp);;TGA (*.tga)");
}

bool isPictureFile(const QString& path) {
    switch (fileType(toWString(path))) {
    case fileTypeBmp:
    case fileTypeTiff:
    case fileTypeJpeg:
    case fileTypeTga:
    case fileTypePng:
        return true;
    default:
        return false;
    }
}

PicturePreview::PicturePreview(QWidget* parent)
    : QLabel(parent), import_(TQL::makeHandle<RasterImport>()) {
    setMinimumSize(previewSide, previewSide);
    setAlignment(Qt::AlignCenter);
    setWordWrap(true);
    setFrameShape(QFrame::StyledPanel);
    timer_.setInterval(40);
    connect(&timer_, &QTimer::timeout, this, &PicturePreview::poll);
}

PicturePreview::~PicturePreview() {
    cancelJob();
}

void PicturePreview::cancelJob() {
    timer_.stop();
    if (job_) {
        CQuorvaleView::drawThread().cancel(windowOf(this), QuorvalePollingWaiter());
        job_.reset();
    }
    import_->clearThumb();
}

void PicturePreview::showFile(const QString& path) {
    if (path == path_) {
        return;
    }
    cancelJob();
    path_ = path;
    pictureWidth_ = pictureHeight_ = 0;
    clear();
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isFile()) {
        return;
    }
    const int type = fileType(toWString(path));
    if (!isPictureFile(path) && type != fileTypeZmp && type != fileTypeZmq) {
        setText(tr("No preview"));
        return;
    }
    setText(tr("Reading..."));
    job_ = std::make_unique<ThumbnailDrawThread>(import_, toWString(info.absoluteFilePath()),
                                                 windowOf(this), previewSide);
    CQuorvaleView::drawThread().insert(*job_);
    timer_.start();
}

bool PicturePreview::settled() const {
    return !timer_.isActive();
}

void PicturePreview::poll() {
    if (!job_ || !job_->done()) {
        return;
    }
    timer_.stop();
    if (!import_->paintThumb(*this)) {
        setText(tr("No preview: %1").arg(statusQText(job_->result())));
    }
}

void PicturePreview::setPreviewSize(std::int32_t width, std::int32_t height) {
    pictureWidth_ = width;
    pictureHeight_ = height;
}

void PicturePreview::drawThumb(const std::uint8_t* bgr, std::int32_t width, std::int32_t height,
                               std::size_t stride) {
    QImage image(width, height, QImage::Format_RGB888);
    for (std::int32_t y = 0; y < height; ++y) {
        const std::uint8_t* in = bgr + std::size_t(y) * stride;
        std::uint8_t* out = image.scanLine(y);
        for (std::int32_t x = 0; x < width; ++x, in += 3, out += 3) {
            out[0] = in[2];
            out[1] = in[1];
            out[2] = in[0];
        }
    }
    const QPixmap shown = QPixmap::fromImage(image).scaled(
        previewSide, previewSide - 24, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    setPixmap(shown);
    setToolTip(tr("%1 x %2 pixels").arg(pictureWidth_).arg(pictureHeight_));
}

PictureFileDialog::PictureFileDialog(QWidget* parent, const QString& caption, const QString& filter)
    : QFileDialog(parent, caption, QString(), filter), preview_(new PicturePreview(this)) {
    setOption(QFileDialog::DontUseNativeDialog, true);
    setFileMode(QFileDialog::ExistingFiles);
    if (auto* grid = qobject_cast<QGridLayout*>(layout())) {
        grid->addWidget(preview_, 0, grid->columnCount(), grid->rowCount(), 1);
    }
    connect(this, &QFileDialog::currentChanged, preview_, &PicturePreview::showFile);
}

bool chooseExportOptions(QWidget* parent, const QString& path, ExportOptions& options) {
    const int type = fileType(toWString(path));
    const bool psd =
        QFileInfo(path).suffix().compare(QStringLiteral("psd"), Qt::CaseInsensitive) == 0;
    if (type != fileTypeJpeg && type != fileTypePng && !psd) {
        return true;
    }
    QDialog dialog(parent);
    dialog.setWindowTitle(QObject::tr("Export Options"));
    auto* form = new QFormLayout(&dialog);
    QSpinBox* quality = nullptr;
    QComboBox* sampling = nullptr;
    QCheckBox* progressive = nullptr;
    QCheckBox* optimise = nullptr;
    QCheckBox* accurate = nullptr;
    QLineEdit* title = nullptr;
    QLineEdit* author = nullptr;
    QLineEdit* copyright = nullptr;
    QCheckBox* packBits = nullptr;
    QCheckBox* profile = nullptr;
    if (type == fileTypeJpeg) {
        quality = new QSpinBox(&dialog);
        quality->setRange(0, 100);
        quality->setValue(options.quality);
        sampling = new QComboBox(&dialog);
        sampling->addItem(QObject::tr("4:2:0 (smallest)"), 2);
        sampling->addItem(QObject::tr("4:2:2"), 3);
        sampling->addItem(QObject::tr("4:4:4 (sharpest colour)"), 1);
        sampling->setCurrentIndex(std::max(0, sampling->findData(options.sampling)));
        progressive = new QCheckBox(QObject::tr("&Progressive"), &dialog);
        progressive->setChecked(options.progressive);
        optimise = new QCheckBox(QObject::tr("&Optimised coding"), &dialog);
        optimise->setChecked(options.optimiseCoding);
        accurate = new QCheckBox(QObject::tr("&Accurate (slower) DCT"), &dialog);
        accurate->setChecked(options.accurateDct);
        form->addRow(QObject::tr("&Quality:"), quality);
        form->addRow(QObject::tr("&Sampling:"), sampling);
        form->addRow(progressive);
        form->addRow(optimise);
        form->addRow(accurate);
    } else if (type == fileTypePng) {
        title = new QLineEdit(toQString(options.title), &dialog);
        author = new QLineEdit(toQString(options.author), &dialog);
        copyright = new QLineEdit(toQString(options.copyright), &dialog);
        form->addRow(QObject::tr("&Title:"), title);
        form->addRow(QObject::tr("&Author:"), author);
        form->addRow(QObject::tr("&Copyright:"), copyright);
    } else {
        packBits = new QCheckBox(QObject::tr("&Compress rows (PackBits)"), &dialog);
        packBits->setChecked(options.packBits);
        profile = new QCheckBox(QObject::tr("&Embed the sRGB profile"), &dialog);
        profile->setChecked(options.colourManaged);
        form->addRow(packBits);
        form->addRow(profile);
    }
    form->addRow(okCancel(&dialog));
    if (dialog.exec() != QDialog::Accepted) {
        return false;
    }
    if (quality) {
        options.quality = quality->value();
        options.sampling = sampling->currentData().toInt();
        options.progressive = progressive->isChecked();
        options.optimiseCoding = optimise->isChecked();
        options.accurateDct = accurate->isChecked();
    }
    if (title) {
        options.title = toWString(title->text());
        options.author = toWString(author->text());
        options.copyright = toWString(copyright->text());
    }
    if (packBits) {
        options.packBits = packBits->isChecked();
        options.colourManaged = profile->isChecked();
    }
    return true;
}
