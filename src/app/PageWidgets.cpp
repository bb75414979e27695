#include "app/PageWidgets.h"

#include "pipeline/PipelineTool.h"

#include <QCoreApplication>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

namespace pagewidgets {

QDoubleSpinBox* doubleSpin(QWidget* parent, const char* name, double low, double high, double step,
                           int decimals) {
    auto* box = new QDoubleSpinBox(parent);
    box->setObjectName(QString::fromLatin1(name));
    box->setRange(low, high);
    box->setSingleStep(step);
    box->setDecimals(decimals);
    box->setKeyboardTracking(false);
    return box;
}

QSpinBox* intSpin(QWidget* parent, const char* name, int low, int high, const QString& suffix) {
    auto* box = new QSpinBox(parent);
    box->setObjectName(QString::fromLatin1(name));
    box->setRange(low, high);
    box->setSuffix(suffix);
    box->setKeyboardTracking(false);
    return box;
}

FileRow fileRow(QWidget* parent, const char* name) {
    FileRow r;
    r.row = new QWidget(parent);
    auto* layout = new QHBoxLayout(r.row);
    layout->setContentsMargins(0, 0, 0, 0);
    r.edit = new QLineEdit(r.row);
    r.edit->setObjectName(QString::fromLatin1(name));
    r.browse = new QPushButton(QCoreApplication::translate("ToolPage", "Browse..."), r.row);
    layout->addWidget(r.edit, 1);
    layout->addWidget(r.browse);
    return r;
}

QString pictureFilter() {
    return QCoreApplication::translate("ToolPage",
                                       "Pictures (*.png *.jpg *.jpeg *.tif *.tiff *.bmp *.tga)");
}

QPixmap previewPixmap(const PreviewBitmap& bitmap) {
    QImage image(bitmap.width, bitmap.height, QImage::Format_RGB32);
    for (std::int32_t y = 0; y < bitmap.height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (std::int32_t x = 0; x < bitmap.width; ++x) {
            const std::uint16_t p = bitmap.pixels[static_cast<std::size_t>(y) * bitmap.width + x];
            line[x] = qRgb((p & 31) << 3, ((p >> 5) & 31) << 3, ((p >> 10) & 31) << 3);
        }
    }
    return QPixmap::fromImage(image);
}

} // namespace pagewidgets
