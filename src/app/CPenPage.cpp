#include "app/CPenPage.h"

#include "styles/CSetPen.h"
#include "styles/CSetShape.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QSignalBlocker>
#include <QSpinBox>

#include <algorithm>

// CPenPage

CPenPage::CPenPage(CSetPen& pen, QWidget* parent) : CToolPage(parent), pen_(pen) {
    bindCheck(tr("Smooth edges"), pen.antiAlias, "penAntiAlias");
    width_ = bindDouble(tr("Width"), pen.width, 1, 500, 0, "penWidth", tr(" px"));
    bindCheck(tr("Lie on the surface"), pen.threeD, "penThreeD")
        ->setToolTip(tr("The line is a strip of the scene, narrowing with distance"));
    thickness_ =
        bindInt(tr("Width on the surface"), pen.thickness, 1, 100, "penThickness", tr(" cm"));
    bindCheck(tr("Fill the polygon"), pen.filled, "penFilled")
        ->setToolTip(tr("Double click or Enter closes the polygon and fills it"));
    constraint_ = new QComboBox(this);
    constraint_->setObjectName(QStringLiteral("penConstraint"));
    constraint_->addItems({tr("None"), tr("Along a line"), tr("On a plane, or by 45 degrees")});
    constraint_->setToolTip(tr("Where Shift holds the next point"));
    form()->addRow(tr("Shift holds points"), constraint_);
    connect(constraint_, &QComboBox::currentIndexChanged, this, [this](int i) {
        pen_.constraintType = std::max(0, i);
        edited();
    });
    bindTriple(tr("Constraint axis"), pen.constraintAxis, "penConstraintAxis");
    afterEdit = [this] { updateEnabled(); };
    load();
}

void CPenPage::load() {
    CToolPage::load();
    const QSignalBlocker block(constraint_);
    constraint_->setCurrentIndex(std::clamp(pen_.constraintType, 0, 2));
    updateEnabled();
}

void CPenPage::updateEnabled() {
    width_->setEnabled(!pen_.threeD);
    thickness_->setEnabled(pen_.threeD);
}

// CShapePage

CShapePage::CShapePage(CSetShape& shape, CSetPen& pen, QWidget* parent)
    : CToolPage(parent), shape_(shape) {
    kind_ = new QComboBox(this);
    kind_->setObjectName(QStringLiteral("shapeKind"));
    kind_->addItems({tr("Outline"), tr("Filled")});
    form()->addRow(tr("Ellipse"), kind_);
    connect(kind_, &QComboBox::currentIndexChanged, this, [this](int i) {
        shape_.setFilled(i == 1);
        edited();
    });
    bindDouble(tr("Outline width"), pen.width, 1, 500, 0, "shapeWidth", tr(" px"));
    bindCheck(tr("Smooth edges"), pen.antiAlias, "shapeAntiAlias");
    load();
}

void CShapePage::load() {
    CToolPage::load();
    const QSignalBlocker block(kind_);
    kind_->setCurrentIndex(shape_.filled() ? 1 : 0);
}
