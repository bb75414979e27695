#pragma once

#include "app/CToolPage.h"

class CSetBrush;
class QComboBox;
class QLineEdit;
class QListWidget;
class QSpinBox;

/// The brush's settings: the kind of dab, its size (in pixels, or in model units for a dab
/// on the surface), hardness and shape, the spacing of the dabs, the opacity and what the
/// pen's pressure changes; a picture dab's file, hook and stretch; the pictures of a list
/// brush with their sizes and angles; and the per-dab variations.
class CBrushPage : public CToolPage {
    Q_OBJECT

public:
    CBrushPage(CSetBrush& brush, QWidget* parent = nullptr);
    void load() override;

private:
    void updateEnabled();
    void makePictureRows();
    void makeListRows();
    /// The list widget from the settings' entries, keeping the selected row.
    void fillList();
    /// The selected entry's size and angle into their spin boxes.
    void showEntry();

    CSetBrush& brush_;
    QComboBox* type_;
    QComboBox* profile_;
    QComboBox* ramp_;
    QComboBox* spreadType_;
    QComboBox* fadeType_;
    QWidget* size_;
    QWidget* modelSize_;
    QLineEdit* file_ = nullptr;
    QListWidget* list_ = nullptr;
    QLineEdit* listFile_ = nullptr;
    QSpinBox* entrySize_ = nullptr;
    QSpinBox* entryAngle_ = nullptr;
    std::vector<QWidget*> pictureWidgets_;
    std::vector<QWidget*> listWidgets_;
    bool pressureOpacity_ = false;
    bool pressureSize_ = false;
    bool pressureSoftness_ = false;
};
