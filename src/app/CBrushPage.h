#pragma once

#include "app/CToolPage.h"

class CSetBrush;
class QComboBox;

/// The brush's settings: the kind of dab, its size (in pixels, or in model units for a dab
/// on the surface), hardness and shape, the spacing of the dabs, the opacity and what the
/// pen's pressure changes.
class CBrushPage : public CToolPage {
    Q_OBJECT

public:
    CBrushPage(CSetBrush& brush, QWidget* parent = nullptr);
    void load() override;

private:
    void updateEnabled();

    CSetBrush& brush_;
    QComboBox* type_;
    QWidget* size_;
    QWidget* modelSize_;
    bool pressureOpacity_ = false;
    bool pressureSize_ = false;
    bool pressureSoftness_ = false;
};
