#include "app/CBrushPage.h"

#include "styles/CSetBrush.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QSignalBlocker>
#include <QSpinBox>

#include <algorithm>

CBrushPage::CBrushPage(CSetBrush& brush, QWidget* parent) : CToolPage(parent), brush_(brush) {
    BrushSettings& s = brush.settings;
    type_ = new QComboBox(this);
    type_->setObjectName(QStringLiteral("brushType"));
    type_->addItems({tr("Round"), tr("Square"), tr("Picture"), tr("Pictures in turn"),
                     tr("Bristles"), tr("Round, on the surface"), tr("Stamp"),
                     tr("Stamp, on the surface"), tr("Pictures in turn, on the surface")});
    form()->addRow(tr("Brush"), type_);
    connect(type_, &QComboBox::currentIndexChanged, this, [this](int i) {
        brush_.settings.type = std::clamp(i, 0, 8);
        edited();
    });
    size_ = bindInt(tr("Radius"), s.size, 1, 500, "brushSize", tr(" px"));
    modelSize_ = bindDouble(tr("Radius on the surface"), s.modelSize, 0.001, 1000, 3,
                            "brushModelSize", tr(" units"));
    bindInt(tr("Hardness"), s.hardness, 0, 100, "brushHardness", tr(" %"));
    bindInt(tr("Aspect"), s.aspect, 1, 100, "brushAspect", tr(" %"));
    bindInt(tr("Angle"), s.angle, -360, 360, "brushAngle", tr("°"));
    bindCheck(tr("Spaced dabs"), s.spaced, "brushSpaced");
    bindDouble(tr("Spacing"), s.spacing, 0.01, 10, 2, "brushSpacing", tr(" × radius"));
    bindInt(tr("Opacity"), s.opacity, 1, 100, "brushOpacity", tr(" %"));
    bindCheck(tr("Pressure sets opacity"), pressureOpacity_, "brushPressureOpacity");
    bindCheck(tr("Pressure sets size"), pressureSize_, "brushPressureSize");
    bindCheck(tr("Pressure sets softness"), pressureSoftness_, "brushPressureSoftness");
    bindInt(tr("Fade"), s.fade, -10000, 10000, "brushFade", tr(" px"))
        ->setToolTip(tr("The length over which the stroke fades out; negative fades it in"));
    bindInt(tr("Size spread"), s.sizeSpread, 0, 100, "brushSizeSpread", tr(" %"));
    bindInt(tr("Scatter"), s.spreadPercent, 0, 1000, "brushScatter", tr(" %"));
    afterEdit = [this] {
        brush_.settings.dynamics =
            (pressureOpacity_ ? 1 : 0) | (pressureSize_ ? 2 : 0) | (pressureSoftness_ ? 4 : 0);
        updateEnabled();
    };
    load();
}

void CBrushPage::load() {
    const std::int32_t d = brush_.settings.dynamics;
    pressureOpacity_ = (d & 1) != 0;
    pressureSize_ = (d & 2) != 0;
    pressureSoftness_ = (d & 4) != 0;
    CToolPage::load();
    const QSignalBlocker block(type_);
    type_->setCurrentIndex(std::clamp(brush_.settings.type, 0, 8));
    updateEnabled();
}

void CBrushPage::updateEnabled() {
    const std::int32_t t = brush_.settings.type;
    const bool surface = t == brushSurface || t == brushSurfaceStamp || t == brushSurfaceList;
    size_->setEnabled(!surface);
    modelSize_->setEnabled(surface);
}
