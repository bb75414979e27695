#pragma once

#include "app/CToolPage.h"

class CSetPainter;
class QComboBox;

/// The painter's settings: the cells and where in them strokes start, the strokes' length,
/// direction, bend and ramp, their dabs, the depth sort and scale, and where their colours
/// are read.
class CPainterPage : public CToolPage {
    Q_OBJECT

public:
    CPainterPage(CSetPainter& painter, QWidget* parent = nullptr);
    void load() override;

private:
    void updateEnabled();

    CSetPainter& painter_;
    QComboBox* type_;
    QComboBox* ramp_;
    QComboBox* reference_;
    QWidget* splatter_;
    /// The first size entry's radius (the settings' list may be replaced by a style).
    int radius_ = 4;
};
