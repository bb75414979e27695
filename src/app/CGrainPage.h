#pragma once

#include "styles/CSetGrain.h"

#include <QWidget>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QSpinBox;

/// The grain page of the tool window: grain on or off, its kind (noise, a picture, the
/// image's brightness, solid noise in the scene) and every setting of it, with a preview.
///
/// It owns its CSetGrain, registers it in the process's Toolbox and keeps it in the user's
/// default style ("Grain" and the toolbox's grain switch): every change is stored and the
/// grain built at once, so the next stroke paints with it. A picture that cannot be loaded
/// is named on the page and the painting goes on without grain.
class CGrainPage : public QWidget {
    Q_OBJECT

public:
    explicit CGrainPage(QWidget* parent = nullptr);
    ~CGrainPage() override;

    CSetGrain& grain() { return grain_; }
    /// Every widget from the settings, without storing anything.
    void load();

signals:
    /// A setting changed (already stored and built).
    void changed();

private:
    void commit();
    void showPreview();
    void updateEnabled();

    CSetGrain grain_;
    bool loading_ = false;
    QCheckBox* on_ = nullptr;
    QComboBox* type_ = nullptr;
    QDoubleSpinBox* scale_ = nullptr;
    QDoubleSpinBox* fractality_ = nullptr;
    QDoubleSpinBox* bias_ = nullptr;
    QCheckBox* invert_ = nullptr;
    QSpinBox* angle_ = nullptr;
    QLineEdit* file_ = nullptr;
    QCheckBox* mirrored_ = nullptr;
    QCheckBox* repeatX_ = nullptr;
    QCheckBox* repeatY_ = nullptr;
    QCheckBox* hookFloat_ = nullptr;
    QCheckBox* original_ = nullptr;
    QLabel* preview_ = nullptr;
    QLabel* error_ = nullptr;
};
