#include "app/CToolPage.h"

#include "app/QtText.h"
#include "styles/CSetFill.h"
#include "styles/CSetFog.h"
#include "styles/CSetMatte.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>

#include <algorithm>
#include <cmath>

namespace {

/// A colour as the button shows it: its swatch, and its bytes and hue, saturation and
/// lightness through the engine's conversions.
void showColour(QPushButton* button, ColourPOD c) {
    const Colour colour = Colour::fromPOD(c);
    button->setText(QStringLiteral("%1, %2, %3  (H %4°  S %5%  L %6%)")
                        .arg(c.r)
                        .arg(c.g)
                        .arg(c.b)
                        .arg(std::lround(colour.h_hls().degrees()))
                        .arg(std::lround(colour.s_hls() * 100))
                        .arg(std::lround(colour.l_hls() * 100)));
    QPixmap swatch(16, 16);
    swatch.fill(QColor(c.r, c.g, c.b));
    button->setIcon(QIcon(swatch));
}

/// Spin boxes without a scroll-wheel trap: the page scrolls, the box doesn't change.
template <class Box> Box* makeBox(QWidget* parent, const char* name) {
    auto* box = new Box(parent);
    box->setObjectName(QString::fromLatin1(name));
    box->setFocusPolicy(Qt::StrongFocus);
    box->setKeyboardTracking(false);
    return box;
}

} // namespace

CToolPage::CToolPage(QWidget* parent) : QWidget(parent), form_(new QFormLayout(this)) {
    form_->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
}

void CToolPage::load() {
    for (const auto& load : loaders_) {
        load();
    }
}

void CToolPage::edited() {
    if (afterEdit) {
        afterEdit();
    }
    emit changed();
}

QCheckBox* CToolPage::bindCheck(const QString& text, bool& field, const char* name) {
    auto* box = new QCheckBox(text, this);
    box->setObjectName(QString::fromLatin1(name));
    form_->addRow(box);
    loaders_.push_back([box, &field] {
        const QSignalBlocker block(box);
        box->setChecked(field);
    });
    connect(box, &QCheckBox::toggled, this, [this, &field](bool on) {
        field = on;
        edited();
    });
    return box;
}

QSpinBox* CToolPage::bindInt(const QString& label, int& field, int lo, int hi, const char* name,
                             const QString& suffix) {
    auto* box = makeBox<QSpinBox>(this, name);
    box->setRange(lo, hi);
    box->setSuffix(suffix);
    form_->addRow(label, box);
    loaders_.push_back([box, &field] {
        const QSignalBlocker block(box);
        box->setValue(field);
    });
    connect(box, &QSpinBox::valueChanged, this, [this, &field](int v) {
        field = v;
        edited();
    });
    return box;
}

QDoubleSpinBox* CToolPage::bindDouble(const QString& label, double& field, double lo, double hi,
                                      int decimals, const char* name, const QString& suffix) {
    auto* box = makeBox<QDoubleSpinBox>(this, name);
    box->setDecimals(decimals);
    box->setRange(lo, hi);
    box->setSuffix(suffix);
    form_->addRow(label, box);
    loaders_.push_back([box, &field] {
        const QSignalBlocker block(box);
        box->setValue(field);
    });
    connect(box, &QDoubleSpinBox::valueChanged, this, [this, &field](double v) {
        field = v;
        edited();
    });
    return box;
}

QDoubleSpinBox* CToolPage::bindFloat(const QString& label, float& field, double lo, double hi,
                                     int decimals, const char* name, const QString& suffix) {
    auto* box = makeBox<QDoubleSpinBox>(this, name);
    box->setDecimals(decimals);
    box->setRange(lo, hi);
    box->setSuffix(suffix);
    form_->addRow(label, box);
    loaders_.push_back([box, &field] {
        const QSignalBlocker block(box);
        box->setValue(field);
    });
    connect(box, &QDoubleSpinBox::valueChanged, this, [this, &field](double v) {
        field = static_cast<float>(v);
        edited();
    });
    return box;
}

QWidget* CToolPage::bindComponents(const QString& label, std::function<double&(int)> component,
                                   const char* name) {
    auto* row = new QWidget(this);
    row->setObjectName(QString::fromLatin1(name));
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < 3; ++i) {
        auto* box = makeBox<QDoubleSpinBox>(row, name);
        box->setObjectName(QStringLiteral("%1%2").arg(QString::fromLatin1(name)).arg(i));
        box->setDecimals(3);
        box->setRange(-1e7, 1e7);
        box->setPrefix(QStringLiteral("%1 ").arg(QChar(u'x' + i)));
        layout->addWidget(box);
        loaders_.push_back([box, component, i] {
            const QSignalBlocker block(box);
            box->setValue(component(i));
        });
        connect(box, &QDoubleSpinBox::valueChanged, this, [this, component, i](double v) {
            component(i) = v;
            edited();
        });
    }
    form_->addRow(label, row);
    return row;
}

QWidget* CToolPage::bindPixel(const QString& label, IPoint<2>& field, const char* name) {
    auto* row = new QWidget(this);
    row->setObjectName(QString::fromLatin1(name));
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < 2; ++i) {
        auto* box = makeBox<QSpinBox>(row, name);
        box->setObjectName(QStringLiteral("%1%2").arg(QString::fromLatin1(name)).arg(i));
        box->setRange(-1000000, 1000000);
        box->setPrefix(i == 0 ? QStringLiteral("x ") : QStringLiteral("y "));
        layout->addWidget(box);
        std::int32_t& value = i == 0 ? field.x : field.y;
        loaders_.push_back([box, &value] {
            const QSignalBlocker block(box);
            box->setValue(value);
        });
        connect(box, &QSpinBox::valueChanged, this, [this, &value](int v) {
            value = v;
            edited();
        });
    }
    form_->addRow(label, row);
    return row;
}

QPushButton* CToolPage::bindColour(const QString& label, ColourPOD& field, const char* name) {
    auto* button = new QPushButton(this);
    button->setObjectName(QString::fromLatin1(name));
    form_->addRow(label, button);
    loaders_.push_back([button, &field] { showColour(button, field); });
    connect(button, &QPushButton::clicked, this, [this, button, &field] {
        const QColor chosen =
            QColorDialog::getColor(QColor(field.r, field.g, field.b), this, tr("Colour"));
        if (!chosen.isValid()) {
            return;
        }
        field = Colour::rgb(chosen.redF(), chosen.greenF(), chosen.blueF()).pod();
        showColour(button, field);
        edited();
    });
    return button;
}

// CFillPage

CFillPage::CFillPage(CSetFill& fill, QWidget* parent) : CToolPage(parent) {
    bindCheck(tr("Flood from the clicked pixel"), fill.flood, "fillFlood")
        ->setToolTip(tr("With a lock on, fill only what is joined to the clicked pixel; "
                        "otherwise fill every pixel that passes the locks"));
    load();
}

// CMattePage

CMattePage::CMattePage(CSetMatte& matte, QWidget* parent) : CToolPage(parent), matte_(matte) {
    MatteSettings& s = matte.settings;
    bindCheck(tr("Test the image as rendered (original channels)"), s.useOriginal,
              "matteUseOriginal");
    bindCheck(tr("Invert the locks"), s.invert, "matteInvert");
    bindCheck(tr("Material lock keeps to the listed materials"), s.materialListMode,
              "matteMaterialList");
    list_ = new QListWidget(this);
    list_->setObjectName(QStringLiteral("matteMaterials"));
    list_->setMaximumHeight(110);
    form()->addRow(tr("Materials"), list_);
    connect(list_, &QListWidget::itemChanged, this, [this] {
        std::vector<std::wstring> names;
        for (int i = 0; i < list_->count(); ++i) {
            if (list_->item(i)->checkState() == Qt::Checked) {
                names.push_back(toWString(list_->item(i)->text()));
            }
        }
        matte_.settings.materialNames = names;
        edited();
    });
    bindCheck(tr("The background counts as listed"), s.includeBackground, "matteIncludeBackground");
    bindDouble(tr("Plane tolerance"), s.planeTolerancePercent, 0, 1000, 1, "mattePlaneTolerance",
               QStringLiteral(" %"));
    bindDouble(tr("Angle"), s.angleDegrees, 0, 90, 1, "matteAngle", QStringLiteral("°"));

    colourMode_ = new QComboBox(this);
    colourMode_->setObjectName(QStringLiteral("matteColourMode"));
    colourMode_->addItems({tr("Red, green, blue"), tr("Hue, lightness, saturation")});
    form()->addRow(tr("Colour lock by"), colourMode_);
    connect(colourMode_, &QComboBox::currentIndexChanged, this, [this](int i) {
        matte_.settings.colourMode = std::max(0, i);
        edited();
    });
    channelWidgets_ = {
        bindCheck(tr("Red"), s.channelOn[0], "matteRedOn"),
        bindCheck(tr("Green"), s.channelOn[1], "matteGreenOn"),
        bindCheck(tr("Blue"), s.channelOn[2], "matteBlueOn"),
        bindInt(tr("Colour tolerance"), s.colourTolerance, 0, 255, "matteColourTolerance")};
    hlsWidgets_ = {bindCheck(tr("Hue"), s.hueOn, "matteHueOn"),
                   bindDouble(tr("Hue tolerance"), s.hueToleranceDegrees, 0, 180, 1,
                              "matteHueTolerance", QStringLiteral("°")),
                   bindCheck(tr("Lightness"), s.lightnessOn, "matteLightnessOn"),
                   bindDouble(tr("Lightness tolerance"), s.lightnessTolerancePercent, 0, 100, 1,
                              "matteLightnessTolerance", QStringLiteral(" %")),
                   bindCheck(tr("Saturation"), s.saturationOn, "matteSaturationOn"),
                   bindDouble(tr("Saturation tolerance"), s.saturationTolerancePercent, 0, 100, 1,
                              "matteSaturationTolerance", QStringLiteral(" %"))};
    afterEdit = [this] { updateEnabled(); };
    load();
}

void CMattePage::load() {
    CToolPage::load();
    {
        const QSignalBlocker block(colourMode_);
        colourMode_->setCurrentIndex(std::clamp(matte_.settings.colourMode, 0, 1));
    }
    fillList();
    updateEnabled();
}

void CMattePage::setDocumentMaterials(const std::vector<std::wstring>& names) {
    documentNames_ = names;
    fillList();
}

void CMattePage::fillList() {
    const QSignalBlocker block(list_);
    list_->clear();
    std::vector<std::wstring> names = documentNames_;
    for (const std::wstring& n : matte_.settings.materialNames) {
        if (std::find(names.begin(), names.end(), n) == names.end()) {
            names.push_back(n);
        }
    }
    const auto& chosen = matte_.settings.materialNames;
    for (const std::wstring& n : names) {
        auto* item = new QListWidgetItem(toQString(n), list_);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(std::find(chosen.begin(), chosen.end(), n) != chosen.end()
                                ? Qt::Checked
                                : Qt::Unchecked);
    }
}

void CMattePage::updateEnabled() {
    const MatteSettings& s = matte_.settings;
    list_->setEnabled(s.materialListMode);
    for (QWidget* w : channelWidgets_) {
        w->setEnabled(s.colourMode == 0);
    }
    for (QWidget* w : hlsWidgets_) {
        w->setEnabled(s.colourMode == 1);
    }
}

// CFogPage

namespace {

enum TypeBits : unsigned {
    t0 = 1u << 0,
    t1 = 1u << 1,
    t2 = 1u << 2,
    t3 = 1u << 3,
    t4 = 1u << 4,
    t5 = 1u << 5,
    t6 = 1u << 6,
    t7 = 1u << 7,
    t8 = 1u << 8,
};

} // namespace

CFogPage::CFogPage(CSetFog& fog, QWidget* parent) : CToolPage(parent), fog_(fog) {
    FogSettings& s = fog.settings;
    type_ = new QComboBox(this);
    type_->setObjectName(QStringLiteral("fogType"));
    type_->addItems({tr("Depth"), tr("Distance from the eye"), tr("Position along an axis"),
                     tr("Distance from a point"), tr("Angle of view"), tr("Across the image"),
                     tr("From a point of the image"), tr("From a line of the image"),
                     tr("From a line in the model")});
    form()->addRow(tr("Fog by"), type_);
    connect(type_, &QComboBox::currentIndexChanged, this, [this](int i) {
        fog_.settings.type = static_cast<std::uint32_t>(std::max(0, i));
        edited();
    });
    bindCheck(tr("Transparent (fades the paint instead of colouring it)"), s.transparent,
              "fogTransparent");
    bindColour(tr("Fog colour"), s.colour, "fogColour");
    bindFloat(tr("Amount kept"), s.amount, 0, 1, 2, "fogAmount");

    auto add = [this](QWidget* w, unsigned types) { byType_.emplace_back(w, types); };
    add(bindFloat(tr("Clear at"), s.full, -1e9, 1e9, 3, "fogFull"), t0 | t1 | t2);
    add(bindFloat(tr("Full fog at"), s.none, -1e9, 1e9, 3, "fogNone"), t0 | t1 | t2);
    add(bindTriple(tr("Axis"), s.axis, "fogAxis"), t2);
    add(bindTriple(tr("Centre"), s.centre, "fogCentre"), t3);
    add(bindCheck(tr("Fixed centre (else the clicked point)"), s.fixedCentre, "fogFixedCentre"),
        t3);
    add(bindFloat(tr("Clear at distance"), s.fullPoint, -1e9, 1e9, 3, "fogFullPoint"), t3 | t8);
    add(bindFloat(tr("Full fog at distance"), s.nonePoint, -1e9, 1e9, 3, "fogNonePoint"), t3 | t8);
    add(bindCheck(tr("Inverted"), s.inverted, "fogInverted"), t3 | t8);
    add(bindCheck(tr("Hold beyond the range / measure from the ray"), s.clampDepth,
                  "fogClampDepth"),
        t3 | t8);
    add(bindFloat(tr("Clear at elevation"), s.fullElevation, -90, 90, 1, "fogFullElevation",
                  QStringLiteral("°")),
        t4);
    add(bindFloat(tr("Full fog at elevation"), s.noneElevation, -90, 90, 1, "fogNoneElevation",
                  QStringLiteral("°")),
        t4);
    add(bindTriple(tr("Elevation axis"), s.elevationAxis, "fogElevationAxis"), t4);
    add(bindPixel(tr("Clear at pixel"), s.full2D, "fogFull2D"), t5);
    add(bindPixel(tr("Full fog at pixel"), s.none2D, "fogNone2D"), t5);
    add(bindPixel(tr("Centre pixel"), s.centre2D, "fogCentre2D"), t6);
    add(bindInt(tr("Range"), s.range2D, 1, 1000000, "fogRange2D", tr(" pixels")), t6 | t7);
    add(bindPixel(tr("Line from pixel"), s.lineStart2D, "fogLineStart2D"), t7);
    add(bindPixel(tr("Line to pixel"), s.lineEnd2D, "fogLineEnd2D"), t7);
    add(bindTriple(tr("Line from"), s.lineStart, "fogLineStart"), t8);
    add(bindTriple(tr("Line to"), s.lineEnd, "fogLineEnd"), t8);
    add(bindCheck(tr("The whole line, not the segment"), s.infiniteLine, "fogInfiniteLine"),
        t7 | t8);
    afterEdit = [this] { updateEnabled(); };
    load();
}

void CFogPage::load() {
    CToolPage::load();
    {
        const QSignalBlocker block(type_);
        type_->setCurrentIndex(static_cast<int>(std::min<std::uint32_t>(fog_.settings.type, 8)));
    }
    updateEnabled();
}

void CFogPage::updateEnabled() {
    const unsigned bit = 1u << std::min<std::uint32_t>(fog_.settings.type, 8);
    for (const auto& [widget, types] : byType_) {
        widget->setEnabled((types & bit) != 0);
        // The label of the row goes with its field.
        if (QWidget* label = form()->labelForField(widget)) {
            label->setEnabled((types & bit) != 0);
        }
    }
}
