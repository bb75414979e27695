#pragma once

#include "image/DocumentCommands.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

/// "New": a plain image of a size and a background colour (remembered in the setting
/// Background).
class NewImageDialog : public QDialog {
    Q_OBJECT

public:
    explicit NewImageDialog(QWidget* parent = nullptr);
    NewImageParams params() const;
    void accept() override;

private:
    void showColour();
    QSpinBox* width_;
    QSpinBox* height_;
    QPushButton* colourButton_;
    ColourPOD colour_;
};

/// "New from model": a DXF drawing rendered to a new image: the size, the kind of view,
/// a fitted or placed camera, the sun and its shadows.
class NewModelDialog : public QDialog {
    Q_OBJECT

public:
    explicit NewModelDialog(QWidget* parent = nullptr);
    NewImageParams params() const;
    void setModelPath(const QString& path);
    void accept() override;

private:
    void updateEnabled();
    QLineEdit* path_;
    QSpinBox* width_;
    QSpinBox* height_;
    QComboBox* view_;
    QCheckBox* fit_;
    QLineEdit* eye_;
    QLineEdit* target_;
    QDoubleSpinBox* fov_;
    QDoubleSpinBox* sunAzimuth_;
    QDoubleSpinBox* sunElevation_;
    QCheckBox* shadows_;
};

/// Parses "x, y, z" into three numbers; false if it isn't three numbers.
bool parsePoint3(const QString& text, double out[3]);
