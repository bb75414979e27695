#include "app/CPainterPage.h"

#include "styles/CSetPainter.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QSignalBlocker>
#include <QSpinBox>

#include <algorithm>

CPainterPage::CPainterPage(CSetPainter& painter, QWidget* parent)
    : CToolPage(parent), painter_(painter) {
    PainterSettings& s = painter.settings;
    bindInt(tr("Cell width"), s.cellSize, 1, 1000, "painterCellSize", tr(" px"))
        ->setToolTip(tr("Every cell the mouse crosses gets one stroke"));
    bindInt(tr("Cell height"), s.cellSizeY, 1, 1000, "painterCellSizeY", tr(" px"));
    bindCheck(tr("Start anywhere in the cell"), s.splatRandom, "painterSplatRandom");
    splatter_ =
        bindInt(tr("How far from the centre"), s.splatter, 0, 100, "painterSplatter", tr(" %"));
    bindCheck(tr("Paint a cell once a stroke"), s.strict, "painterStrict");
    bindCheck(tr("Each stroke starts on empty cells"), s.reset, "painterReset");
    bindCheck(tr("Lay the strokes when the mouse is released"), s.delay, "painterDelay");

    bindInt(tr("Length"), s.length, 0, 2000, "painterLength", tr(" px"));
    bindInt(tr("Angle"), s.angle, -360, 360, "painterAngle", tr("°"));
    bindCheck(tr("Angle follows the mouse"), s.relative, "painterRelative");
    bindInt(tr("Twist"), s.twist, 0, 180, "painterTwist", tr("°"))
        ->setToolTip(tr("A random turn of each stroke, either way"));
    bindInt(tr("Wobble"), s.wobble, 0, 90, "painterWobble", tr("°"))
        ->setToolTip(tr("A random turn from dab to dab along a stroke"));
    bindInt(tr("Bend"), s.skew, -360, 360, "painterSkew", tr("°"));
    bindInt(tr("Origin along the stroke"), s.hook, 0, 100, "painterHook", tr(" %"));
    bindInt(tr("Start"), s.start, 0, 200, "painterStart", tr(" %"))
        ->setToolTip(tr("Size and opacity where a stroke starts"));
    bindInt(tr("End"), s.end, 0, 200, "painterEnd", tr(" %"))
        ->setToolTip(tr("Size and opacity where a stroke ends"));
    ramp_ = new QComboBox(this);
    ramp_->setObjectName(QStringLiteral("painterShape"));
    ramp_->addItems({tr("Straight"), tr("Smooth")});
    form()->addRow(tr("From start to end"), ramp_);
    connect(ramp_, &QComboBox::currentIndexChanged, this, [this](int i) {
        painter_.settings.shape = std::max(0, i);
        edited();
    });

    type_ = new QComboBox(this);
    type_->setObjectName(QStringLiteral("painterType"));
    type_->addItems({tr("Round"), tr("Square"), tr("Picture")});
    form()->addRow(tr("Dab"), type_);
    connect(type_, &QComboBox::currentIndexChanged, this, [this](int i) {
        painter_.settings.type = std::clamp(i, 0, 2);
        edited();
    });
    bindInt(tr("Radius"), radius_, 1, 500, "painterRadius", tr(" px"));
    bindInt(tr("Softness"), s.softness, 0, 100, "painterSoftness", tr(" %"));
    bindInt(tr("Dab spacing"), s.spread, 1, 400, "painterSpread", tr(" % of the radius"));
    bindInt(tr("Opacity"), s.opacity, 1, 100, "painterOpacity", tr(" %"));

    bindCheck(tr("Far strokes first"), s.depthSort, "painterDepthSort")
        ->setToolTip(tr("Near strokes cover far ones where they overlap"));
    bindDouble(tr("Size at the far depth"), s.depthScale, 0.01, 10, 2, "painterDepthScale",
               tr(" ×"));

    reference_ = new QComboBox(this);
    reference_->setObjectName(QStringLiteral("painterReference"));
    reference_->addItems({tr("The original image"), tr("The image before the stroke")});
    form()->addRow(tr("Colours from"), reference_);
    connect(reference_, &QComboBox::currentIndexChanged, this, [this](int i) {
        painter_.settings.reference[0] = std::max(0, i);
        edited();
    });
    bindInt(tr("Colour spread"), s.colourSpread, 0, 255, "painterColourSpread");
    afterEdit = [this] {
        if (painter_.settings.list.empty()) {
            painter_.settings.list.emplace_back();
        }
        painter_.settings.list.front().size = radius_;
        updateEnabled();
    };
    load();
}

void CPainterPage::load() {
    const PainterSettings& s = painter_.settings;
    radius_ = s.list.empty() ? PainterSizeEntry().size : s.list.front().size;
    CToolPage::load();
    {
        const QSignalBlocker block(type_);
        type_->setCurrentIndex(std::clamp(s.type, 0, 2));
    }
    {
        const QSignalBlocker block(ramp_);
        ramp_->setCurrentIndex(std::clamp(s.shape, 0, 1));
    }
    {
        const QSignalBlocker block(reference_);
        reference_->setCurrentIndex(s.reference[0] >= 0.5 ? 1 : 0);
    }
    updateEnabled();
}

void CPainterPage::updateEnabled() {
    splatter_->setEnabled(painter_.settings.splatRandom);
}
