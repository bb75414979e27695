#pragma once

#include "app/CToolPage.h"

class CSetPen;
class CSetShape;
class QComboBox;

/// The line tool's settings: width and anti-aliasing, a band on the surface with its
/// thickness, a filled polygon, and the constraint the Shift key holds points to.
class CPenPage : public CToolPage {
    Q_OBJECT

public:
    CPenPage(CSetPen& pen, QWidget* parent = nullptr);
    void load() override;

private:
    void updateEnabled();

    CSetPen& pen_;
    QComboBox* constraint_;
    QWidget* width_;
    QWidget* thickness_;
};

/// The dragged figure's settings: outline or filled, the outline's width, anti-aliasing.
class CShapePage : public CToolPage {
    Q_OBJECT

public:
    CShapePage(CSetShape& shape, CSetPen& pen, QWidget* parent = nullptr);
    void load() override;

private:
    CSetShape& shape_;
    QComboBox* kind_;
};
