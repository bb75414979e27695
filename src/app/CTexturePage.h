#pragma once

#include "styles/CSetTexture.h"

#include <QWidget>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QSpinBox;

/// The texture page of the tool window: texture on or off, its kind (a picture laid flat or
/// on the surfaces in perspective, a cube picture seen from the eye, solid noise), the
/// picture and its real size, how it is laid (mode, repeat, reflect, hook, scales, angle),
/// the brightness threshold and the noise settings, with a preview.
///
/// It owns its CSetTexture, registers it in the process's Toolbox and keeps it in the user's
/// default style ("Texture" and the toolbox's texture switch and opacity): every change is
/// stored and the texture stage built at once, so the next stroke paints with it. A texture
/// that cannot be loaded is named on the page and the painting goes on in plain colour.
class CTexturePage : public QWidget {
    Q_OBJECT

public:
    explicit CTexturePage(QWidget* parent = nullptr);
    ~CTexturePage() override;

    CSetTexture& texture() { return texture_; }
    /// Every widget from the settings, without storing anything.
    void load();

signals:
    /// A setting changed (already stored and built).
    void changed();

private:
    void commit();
    void showPreview();
    void updateEnabled();

    CSetTexture texture_;
    bool loading_ = false;
    QCheckBox* on_ = nullptr;
    QSpinBox* opacity_ = nullptr;
    QComboBox* type_ = nullptr;
    QLineEdit* file_ = nullptr;
    QComboBox* mode_ = nullptr;
    QDoubleSpinBox* size_ = nullptr;
    QComboBox* measure_ = nullptr;
    QDoubleSpinBox* scale_ = nullptr;
    QDoubleSpinBox* hScale_ = nullptr;
    QDoubleSpinBox* vScale_ = nullptr;
    QCheckBox* linkScales_ = nullptr;
    QSpinBox* angle_ = nullptr;
    QDoubleSpinBox* hookX_ = nullptr;
    QDoubleSpinBox* hookY_ = nullptr;
    QCheckBox* hookFloat_ = nullptr;
    QCheckBox* repeatX_ = nullptr;
    QCheckBox* repeatY_ = nullptr;
    QCheckBox* tiled_ = nullptr;
    QCheckBox* reflectX_ = nullptr;
    QCheckBox* reflectY_ = nullptr;
    QCheckBox* threshold_ = nullptr;
    QCheckBox* threshCurrent_ = nullptr;
    QDoubleSpinBox* dark_ = nullptr;
    QDoubleSpinBox* light_ = nullptr;
    QDoubleSpinBox* soft_ = nullptr;
    QLineEdit* cubeFile_ = nullptr;
    QSpinBox* cubeAngle_ = nullptr;
    QDoubleSpinBox* cubeAxis_[3] = {nullptr, nullptr, nullptr};
    QDoubleSpinBox* bias_ = nullptr;
    QDoubleSpinBox* complexity_ = nullptr;
    QCheckBox* invert_ = nullptr;
    QDoubleSpinBox* frequency_ = nullptr;
    QDoubleSpinBox* amplitude_ = nullptr;
    QLineEdit* plane_ = nullptr;
    QCheckBox* symmetric_ = nullptr;
    QLabel* preview_ = nullptr;
    QLabel* error_ = nullptr;
    /// The rows shown for one kind of texture only.
    QList<QWidget*> pictureRows_, surfaceRows_, cubeRows_, noiseRows_;
};
