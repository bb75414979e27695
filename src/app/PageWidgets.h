#pragma once

#include <QPixmap>
#include <QString>

struct PreviewBitmap;
class QDoubleSpinBox;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QWidget;

/// Widgets that the tool pages built on their own settings (grain, texture) share: each
/// gets its object name, its range and no keyboard tracking, so that a value is taken
/// once, when typing ends.
namespace pagewidgets {

QDoubleSpinBox* doubleSpin(QWidget* parent, const char* name, double low, double high, double step,
                           int decimals);
QSpinBox* intSpin(QWidget* parent, const char* name, int low, int high,
                  const QString& suffix = QString());

/// A file name field with a "Browse..." button beside it, in a row of its own.
struct FileRow {
    QWidget* row;
    QLineEdit* edit;
    QPushButton* browse;
};
FileRow fileRow(QWidget* parent, const char* name);

/// The file filter of the pictures a page can read.
QString pictureFilter();

/// A tool's 5-5-5 preview (red in the low bits) as a picture.
QPixmap previewPixmap(const PreviewBitmap& bitmap);

} // namespace pagewidgets
