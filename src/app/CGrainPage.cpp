#include "app/CGrainPage.h"

#include "app/PageWidgets.h"
#include "app/ToolboxKeys.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

CGrainPage::CGrainPage(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("grainPage"));
    Toolbox& toolbox = Toolbox::instance();
    toolbox.registerTool(grain_);
    toolbox.makeCurrent(grain_);
    {
        SettingsStyleStorage stored;
        CToolStyle::Attach attach(stored);
        grain_.readStyle();
    }

    auto* form = new QFormLayout(this);
    on_ = new QCheckBox(tr("Grain"), this);
    on_->setObjectName(QStringLiteral("grainOn"));
    form->addRow(QString(), on_);
    type_ = new QComboBox(this);
    type_->setObjectName(QStringLiteral("grainType"));
    type_->addItems({tr("Noise"), tr("Picture"), tr("Image brightness"), tr("Solid noise")});
    form->addRow(tr("Kind"), type_);
    auto spin = [this](const char* name, double low, double high, double step, int decimals) {
        return pagewidgets::doubleSpin(this, name, low, high, step, decimals);
    };
    scale_ = spin("grainScale", 0.01, 1000, 0.5, 2);
    scale_->setToolTip(tr("Noise: the size of its cells in pixels. Picture: image pixels for "
                          "each picture pixel"));
    form->addRow(tr("Scale"), scale_);
    fractality_ = spin("grainFractality", 0, 10, 0.1, 2);
    fractality_->setToolTip(tr("How fast finer detail fades; 0 keeps all of it"));
    form->addRow(tr("Fractality"), fractality_);
    bias_ = spin("grainBias", 0, 1, 0.05, 2);
    bias_->setToolTip(tr("0.5 keeps the grain as it is; lower thins the paint, higher fills it"));
    form->addRow(tr("Bias"), bias_);
    invert_ = new QCheckBox(tr("Invert"), this);
    invert_->setObjectName(QStringLiteral("grainInvert"));
    form->addRow(QString(), invert_);
    angle_ = pagewidgets::intSpin(this, "grainAngle", -360, 360, QStringLiteral(" °"));
    form->addRow(tr("Angle"), angle_);
    const pagewidgets::FileRow fileRow = pagewidgets::fileRow(this, "grainFile");
    file_ = fileRow.edit;
    QPushButton* browse = fileRow.browse;
    form->addRow(tr("Picture"), fileRow.row);
    mirrored_ = new QCheckBox(tr("Mirrored"), this);
    repeatX_ = new QCheckBox(tr("Repeat across"), this);
    repeatY_ = new QCheckBox(tr("Repeat down"), this);
    hookFloat_ = new QCheckBox(tr("Start at each stroke"), this);
    original_ = new QCheckBox(tr("Read the original image"), this);
    original_->setObjectName(QStringLiteral("grainOriginal"));
    for (QCheckBox* box : {mirrored_, repeatX_, repeatY_, hookFloat_, original_}) {
        form->addRow(QString(), box);
    }
    preview_ = new QLabel(this);
    preview_->setObjectName(QStringLiteral("grainPreview"));
    preview_->setFixedSize(128, 128);
    form->addRow(tr("Preview"), preview_);
    error_ = new QLabel(this);
    error_->setObjectName(QStringLiteral("grainError"));
    error_->setWordWrap(true);
    form->addRow(QString(), error_);

    connect(on_, &QCheckBox::toggled, this, [this](bool on) {
        Toolbox::instance().state.grainOn = on;
        commit();
    });
    connect(type_, &QComboBox::currentIndexChanged, this, [this](int i) {
        grain_.settings.type = std::max(0, i);
        commit();
    });
    auto bindDouble = [this](QDoubleSpinBox* box, double GrainSettings::*field) {
        connect(box, &QDoubleSpinBox::valueChanged, this, [this, field](double v) {
            grain_.settings.*field = v;
            commit();
        });
    };
    bindDouble(scale_, &GrainSettings::scale);
    bindDouble(fractality_, &GrainSettings::fractality);
    bindDouble(bias_, &GrainSettings::bias);
    auto bindBool = [this](QCheckBox* box, bool GrainSettings::*field) {
        connect(box, &QCheckBox::toggled, this, [this, field](bool v) {
            grain_.settings.*field = v;
            commit();
        });
    };
    bindBool(invert_, &GrainSettings::invert);
    bindBool(repeatX_, &GrainSettings::repeatX);
    bindBool(repeatY_, &GrainSettings::repeatY);
    bindBool(hookFloat_, &GrainSettings::hookFloat);
    bindBool(original_, &GrainSettings::restore);
    connect(mirrored_, &QCheckBox::toggled, this, [this](bool v) {
        grain_.settings.mode = v ? 1 : 0;
        commit();
    });
    connect(angle_, &QSpinBox::valueChanged, this, [this](int v) {
        grain_.settings.angle = v;
        commit();
    });
    connect(file_, &QLineEdit::editingFinished, this, [this] {
        const std::wstring name = file_->text().toStdWString();
        if (name != grain_.settings.filename) {
            grain_.settings.filename = name;
            commit();
        }
    });
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString name = QFileDialog::getOpenFileName(this, tr("Grain picture"), file_->text(),
                                                          pagewidgets::pictureFilter());
        if (!name.isEmpty()) {
            file_->setText(name);
            grain_.settings.filename = name.toStdWString();
            commit();
        }
    });
    load();
    grain_.build();
    showPreview();
}

CGrainPage::~CGrainPage() {
    Toolbox::instance().unregisterTool(grain_);
}

void CGrainPage::load() {
    loading_ = true;
    const GrainSettings& s = grain_.settings;
    on_->setChecked(Toolbox::instance().state.grainOn);
    type_->setCurrentIndex(std::clamp(s.type, 0, 3));
    scale_->setValue(s.scale);
    fractality_->setValue(s.fractality);
    bias_->setValue(s.bias);
    invert_->setChecked(s.invert);
    angle_->setValue(s.angle);
    file_->setText(QString::fromStdWString(s.filename));
    mirrored_->setChecked(s.mode == 1);
    repeatX_->setChecked(s.repeatX);
    repeatY_->setChecked(s.repeatY);
    hookFloat_->setChecked(s.hookFloat);
    original_->setChecked(s.restore);
    loading_ = false;
    updateEnabled();
}

void CGrainPage::updateEnabled() {
    const int type = grain_.settings.type;
    const bool picture = type == GrainSettings::raster;
    const bool noise = type == GrainSettings::noise || type == GrainSettings::solid;
    fractality_->setEnabled(noise);
    scale_->setEnabled(noise || picture);
    for (QWidget* w : {static_cast<QWidget*>(angle_), static_cast<QWidget*>(file_),
                       static_cast<QWidget*>(mirrored_), static_cast<QWidget*>(repeatX_),
                       static_cast<QWidget*>(repeatY_), static_cast<QWidget*>(hookFloat_)}) {
        w->setEnabled(picture);
    }
    original_->setEnabled(type == GrainSettings::rgb);
}

void CGrainPage::commit() {
    if (loading_) {
        return;
    }
    {
        SettingsStyleStorage stored;
        CToolStyle::Attach attach(stored);
        grain_.writeStyle();
        toolboxkeys::write(Toolbox::instance().state);
    }
    grain_.build();
    updateEnabled();
    showPreview();
    emit changed();
}

void CGrainPage::showPreview() {
    auto grain = grain_.makeGrain();
    error_->setText(QString::fromStdWString(grain_.lastError()));
    if (!grain) {
        preview_->clear();
        return;
    }
    PreviewBitmap bitmap;
    bitmap.width = bitmap.height = 128;
    grain->preview(bitmap);
    preview_->setPixmap(pagewidgets::previewPixmap(bitmap));
}
