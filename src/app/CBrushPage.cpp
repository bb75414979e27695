#include "app/CBrushPage.h"

#include "styles/CSetBrush.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>

#include <algorithm>

namespace {

const QString pictureFilter =
    QStringLiteral("Pictures (*.png *.jpg *.jpeg *.tif *.tiff *.bmp *.tga)");

bool isPictureType(std::int32_t t) {
    return t == brushPicture || t == brushPictureList || t == brushStamp ||
           t == brushSurfaceStamp || t == brushSurfaceList;
}

bool isListType(std::int32_t t) {
    return t == brushPictureList || t == brushSurfaceList;
}

/// A combo box in the form whose index is an int field.
QComboBox* comboRow(QWidget* page, QFormLayout* form, const QString& label, const char* name,
                    const QStringList& items) {
    auto* box = new QComboBox(page);
    box->setObjectName(QString::fromLatin1(name));
    box->addItems(items);
    form->addRow(label, box);
    return box;
}

} // namespace

CBrushPage::CBrushPage(CSetBrush& brush, QWidget* parent) : CToolPage(parent), brush_(brush) {
    BrushSettings& s = brush.settings;
    type_ = comboRow(this, form(), tr("Brush"), "brushType",
                     {tr("Round"), tr("Square"), tr("Picture"), tr("Pictures in turn"),
                      tr("Bristles"), tr("Round, on the surface"), tr("Stamp"),
                      tr("Stamp, on the surface"), tr("Pictures in turn, on the surface")});
    connect(type_, &QComboBox::currentIndexChanged, this, [this](int i) {
        brush_.settings.type = std::clamp(i, 0, 8);
        edited();
    });
    size_ = bindInt(tr("Radius"), s.size, 1, 500, "brushSize", tr(" px"));
    modelSize_ = bindDouble(tr("Radius on the surface"), s.modelSize, 0.001, 1000, 3,
                            "brushModelSize", tr(" units"));
    bindInt(tr("Hardness"), s.hardness, 0, 100, "brushHardness", tr(" %"));
    profile_ = comboRow(this, form(), tr("Edge"), "brushProfile",
                        {tr("Soft"), tr("Soft, mirrored"), tr("Flat top")});
    connect(profile_, &QComboBox::currentIndexChanged, this, [this](int i) {
        brush_.settings.profileType = std::max(0, i);
        edited();
    });
    bindInt(tr("Aspect"), s.aspect, 1, 100, "brushAspect", tr(" %"));
    bindInt(tr("Angle"), s.angle, -360, 360, "brushAngle", tr("°"));
    bindCheck(tr("Square falls off both ways"), s.rect2Way, "brushRect2Way");
    bindInt(tr("Bristles"), s.bristles, 0, 200, "brushBristles");
    bindDouble(tr("Bristles cover"), s.bristlesPercent, 1, 100, 0, "brushBristlesPercent",
               tr(" %"));
    bindCheck(tr("Upright on walls"), s.vertical, "brushVertical");
    bindCheck(tr("Shrinks with distance"), s.shrink, "brushShrink")
        ->setToolTip(tr("A flat dab gets smaller as the stroke goes farther from its start"));

    makePictureRows();
    makeListRows();

    bindCheck(tr("Spaced dabs"), s.spaced, "brushSpaced");
    bindDouble(tr("Spacing"), s.spacing, 0.01, 10, 2, "brushSpacing", tr(" × radius"));
    bindCheck(tr("Dab by dab"), s.continuous, "brushContinuous");
    bindCheck(tr("Turns with the stroke"), s.follows, "brushFollows");
    bindInt(tr("Opacity"), s.opacity, 1, 100, "brushOpacity", tr(" %"));
    bindCheck(tr("Pressure sets opacity"), pressureOpacity_, "brushPressureOpacity");
    bindCheck(tr("Pressure sets size"), pressureSize_, "brushPressureSize");
    bindCheck(tr("Pressure sets softness"), pressureSoftness_, "brushPressureSoftness");
    ramp_ = comboRow(this, form(), tr("Softness by pressure"), "brushRamp",
                     {tr("The edge"), tr("The peak"), tr("Both")});
    connect(ramp_, &QComboBox::currentIndexChanged, this, [this](int i) {
        brush_.settings.ramp = std::clamp(i, 0, 2);
        edited();
    });
    bindInt(tr("Fade"), s.fade, -10000, 10000, "brushFade", tr(" px"))
        ->setToolTip(tr("The length over which the stroke fades out; negative fades it in"));
    fadeType_ =
        comboRow(this, form(), tr("Fade curve"), "brushFadeType", {tr("Straight"), tr("Smooth")});
    connect(fadeType_, &QComboBox::currentIndexChanged, this, [this](int i) {
        brush_.settings.fadeType = std::clamp(i, 0, 1);
        edited();
    });
    bindInt(tr("Size spread"), s.sizeSpread, 0, 100, "brushSizeSpread", tr(" %"));
    bindInt(tr("Scatter"), s.spreadPercent, 0, 1000, "brushScatter", tr(" %"));
    bindInt(tr("Twist"), s.twist, 0, 180, "brushTwist", tr("°"));
    bindInt(tr("Random opacity"), s.dynamicOpacity, 0, 100, "brushDynamicOpacity", tr(" %"));
    bindInt(tr("Colour spread"), s.colourSpread, 0, 255, "brushColourSpread");
    spreadType_ = comboRow(this, form(), tr("Colour spread of"), "brushColourSpreadType",
                           {tr("Each channel"), tr("Lightness")});
    connect(spreadType_, &QComboBox::currentIndexChanged, this, [this](int i) {
        brush_.settings.colourSpreadType = std::max(0, i);
        edited();
    });
    afterEdit = [this] {
        brush_.settings.dynamics =
            (pressureOpacity_ ? 1 : 0) | (pressureSize_ ? 2 : 0) | (pressureSoftness_ ? 4 : 0);
        updateEnabled();
    };
    load();
}

void CBrushPage::makePictureRows() {
    BrushSettings& s = brush_.settings;
    auto* fileRow = new QWidget(this);
    auto* fileLayout = new QHBoxLayout(fileRow);
    fileLayout->setContentsMargins(0, 0, 0, 0);
    file_ = new QLineEdit(fileRow);
    file_->setObjectName(QStringLiteral("brushFilename"));
    auto* browse = new QPushButton(tr("Browse..."), fileRow);
    fileLayout->addWidget(file_, 1);
    fileLayout->addWidget(browse);
    form()->addRow(tr("Picture"), fileRow);
    connect(file_, &QLineEdit::editingFinished, this, [this] {
        const std::wstring name = file_->text().toStdWString();
        if (name != brush_.settings.filename) {
            brush_.settings.filename = name;
            edited();
        }
    });
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString name =
            QFileDialog::getOpenFileName(this, tr("Brush picture"), file_->text(), pictureFilter);
        if (!name.isEmpty()) {
            file_->setText(name);
            brush_.settings.filename = name.toStdWString();
            edited();
        }
    });
    pictureWidgets_ = {
        fileRow,
        bindDouble(tr("Hook across"), s.hookX, 0, 1, 2, "brushHookX"),
        bindDouble(tr("Hook down"), s.hookY, 0, 1, 2, "brushHookY"),
        bindDouble(tr("Picture stretch"), s.rasterAspect, 0.05, 20, 2, "brushRasterAspect",
                   tr(" height / width")),
        bindCheck(tr("Soften the picture's edge"), s.soften, "brushSoften"),
        bindDouble(tr("Radius, % of the image width"), s.sizeDocPercent, 0, 100, 2,
                   "brushSizeDocPercent"),
    };
}

void CBrushPage::makeListRows() {
    list_ = new QListWidget(this);
    list_->setObjectName(QStringLiteral("brushList"));
    list_->setMaximumHeight(110);
    form()->addRow(tr("Pictures in turn"), list_);

    auto* addRow = new QWidget(this);
    auto* addLayout = new QHBoxLayout(addRow);
    addLayout->setContentsMargins(0, 0, 0, 0);
    listFile_ = new QLineEdit(addRow);
    listFile_->setObjectName(QStringLiteral("brushListFile"));
    listFile_->setPlaceholderText(tr("Picture file"));
    auto* browse = new QPushButton(tr("Browse..."), addRow);
    auto* add = new QPushButton(tr("Add"), addRow);
    add->setObjectName(QStringLiteral("brushListAdd"));
    auto* remove = new QPushButton(tr("Remove"), addRow);
    remove->setObjectName(QStringLiteral("brushListRemove"));
    addLayout->addWidget(listFile_, 1);
    addLayout->addWidget(browse);
    addLayout->addWidget(add);
    addLayout->addWidget(remove);
    form()->addRow(QString(), addRow);

    entrySize_ = new QSpinBox(this);
    entrySize_->setObjectName(QStringLiteral("brushListSize"));
    entrySize_->setRange(1, 500);
    entrySize_->setSuffix(tr(" px"));
    entrySize_->setKeyboardTracking(false);
    form()->addRow(tr("Its radius"), entrySize_);
    entryAngle_ = new QSpinBox(this);
    entryAngle_->setObjectName(QStringLiteral("brushListAngle"));
    entryAngle_->setRange(-360, 360);
    entryAngle_->setSuffix(tr("°"));
    entryAngle_->setKeyboardTracking(false);
    form()->addRow(tr("Its angle"), entryAngle_);

    connect(browse, &QPushButton::clicked, this, [this] {
        const QString name = QFileDialog::getOpenFileName(this, tr("Picture for the list"),
                                                          listFile_->text(), pictureFilter);
        if (!name.isEmpty()) {
            listFile_->setText(name);
        }
    });
    connect(add, &QPushButton::clicked, this, [this] {
        const QString name = listFile_->text().trimmed();
        if (name.isEmpty()) {
            return;
        }
        BrushListEntry entry;
        entry.filename = name.toStdWString();
        entry.size = brush_.settings.size;
        entry.modelSize = brush_.settings.modelSize;
        brush_.settings.list.push_back(entry);
        fillList();
        list_->setCurrentRow(list_->count() - 1);
        edited();
    });
    connect(remove, &QPushButton::clicked, this, [this] {
        const int row = list_->currentRow();
        auto& list = brush_.settings.list;
        if (row < 0 || row >= static_cast<int>(list.size())) {
            return;
        }
        list.erase(list.begin() + row);
        fillList();
        edited();
    });
    connect(list_, &QListWidget::currentRowChanged, this, [this](int) { showEntry(); });
    connect(entrySize_, &QSpinBox::valueChanged, this, [this](int v) {
        const int row = list_->currentRow();
        if (row >= 0 && row < static_cast<int>(brush_.settings.list.size())) {
            brush_.settings.list[row].size = v;
            fillList();
            edited();
        }
    });
    connect(entryAngle_, &QSpinBox::valueChanged, this, [this](int v) {
        const int row = list_->currentRow();
        if (row >= 0 && row < static_cast<int>(brush_.settings.list.size())) {
            brush_.settings.list[row].angle = v;
            fillList();
            edited();
        }
    });
    listWidgets_ = {list_, addRow, entrySize_, entryAngle_,
                    bindDouble(tr("Scale of the list"), brush_.settings.multiScale, 0.01, 100, 2,
                               "brushMultiScale", tr(" ×"))};
}

void CBrushPage::fillList() {
    const QSignalBlocker block(list_);
    const int row = list_->currentRow();
    list_->clear();
    for (const BrushListEntry& entry : brush_.settings.list) {
        list_->addItem(tr("%1, %2 px, %3°")
                           .arg(QFileInfo(QString::fromStdWString(entry.filename)).fileName())
                           .arg(entry.size)
                           .arg(entry.angle));
    }
    list_->setCurrentRow(std::min(row, list_->count() - 1));
    showEntry();
}

void CBrushPage::showEntry() {
    const int row = list_->currentRow();
    const bool has = row >= 0 && row < static_cast<int>(brush_.settings.list.size());
    const QSignalBlocker blockSize(entrySize_);
    const QSignalBlocker blockAngle(entryAngle_);
    entrySize_->setEnabled(has);
    entryAngle_->setEnabled(has);
    if (has) {
        entrySize_->setValue(brush_.settings.list[row].size);
        entryAngle_->setValue(brush_.settings.list[row].angle);
    }
}

void CBrushPage::load() {
    const BrushSettings& s = brush_.settings;
    const std::int32_t d = s.dynamics;
    pressureOpacity_ = (d & 1) != 0;
    pressureSize_ = (d & 2) != 0;
    pressureSoftness_ = (d & 4) != 0;
    CToolPage::load();
    const std::pair<QComboBox*, int> combos[] = {
        {type_, std::clamp(s.type, 0, 8)},
        {profile_, std::clamp(s.profileType, 0, 2)},
        {ramp_, std::clamp(s.ramp, 0, 2)},
        {fadeType_, std::clamp(s.fadeType, 0, 1)},
        {spreadType_, std::clamp(s.colourSpreadType, 0, 1)},
    };
    for (const auto& [box, index] : combos) {
        const QSignalBlocker block(box);
        box->setCurrentIndex(index);
    }
    {
        const QSignalBlocker block(file_);
        file_->setText(QString::fromStdWString(s.filename));
    }
    fillList();
    updateEnabled();
}

void CBrushPage::updateEnabled() {
    const std::int32_t t = brush_.settings.type;
    const bool surface = t == brushSurface || t == brushSurfaceStamp || t == brushSurfaceList;
    size_->setEnabled(!surface);
    modelSize_->setEnabled(surface);
    for (QWidget* w : pictureWidgets_) {
        w->setEnabled(isPictureType(t));
    }
    for (QWidget* w : listWidgets_) {
        w->setEnabled(isListType(t));
    }
    if (isListType(t)) {
        showEntry();
    }
}
