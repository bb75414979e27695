#include "app/CTexturePage.h"

#include "app/PageWidgets.h"
#include "app/ToolboxKeys.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

#include <algorithm>

CTexturePage::CTexturePage(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("texturePage"));
    Toolbox& toolbox = Toolbox::instance();
    toolbox.registerTool(texture_);
    toolbox.makeCurrent(texture_);
    {
        SettingsStyleStorage stored;
        CToolStyle::Attach attach(stored);
        texture_.readStyle();
    }
    using namespace pagewidgets;

    auto* form = new QFormLayout(this);
    on_ = new QCheckBox(tr("Texture"), this);
    on_->setObjectName(QStringLiteral("textureOn"));
    form->addRow(QString(), on_);
    opacity_ = intSpin(this, "textureOpacity", 0, 100, QStringLiteral(" %"));
    form->addRow(tr("Opacity"), opacity_);
    type_ = new QComboBox(this);
    type_->setObjectName(QStringLiteral("textureType"));
    type_->addItems({tr("None"), tr("Picture"), tr("Cube picture"), tr("Solid noise")});
    form->addRow(tr("Kind"), type_);

    // The picture and how it is laid.
    const FileRow picture = fileRow(this, "textureFile");
    file_ = picture.edit;
    form->addRow(tr("Picture"), picture.row);
    mode_ = new QComboBox(this);
    mode_->setObjectName(QStringLiteral("textureMode"));
    // In the order of the mode numbers.
    mode_->addItems({tr("Flat"), tr("Flat, stretched"), tr("Tangent"), tr("Front"), tr("Wrapped"),
                     tr("Autowrapped"), tr("Autoplane")});
    mode_->setToolTip(tr("Flat: on the image as it is. Tangent: on the surface clicked, in "
                         "perspective. Front: on a plane facing the view. Wrapped: on each "
                         "surface clicked, folded on from the last. Autoplane: on the plane "
                         "of the surface clicked, also where the image has other depths"));
    form->addRow(tr("Mode"), mode_);
    size_ = doubleSpin(this, "textureSize", 0.01, 1.0e7, 100, 2);
    size_->setToolTip(tr("The real size of the picture's measured side: millimetres on "
                         "surfaces, image pixels when flat"));
    form->addRow(tr("Real size"), size_);
    measure_ = new QComboBox(this);
    measure_->setObjectName(QStringLiteral("textureMeasure"));
    measure_->addItems({tr("Width"), tr("Height")});
    form->addRow(tr("Size of"), measure_);
    scale_ = doubleSpin(this, "textureScale", 0.001, 1000, 0.1, 3);
    form->addRow(tr("Scale"), scale_);
    hScale_ = doubleSpin(this, "textureHScale", 0.001, 1000, 0.1, 3);
    form->addRow(tr("Across"), hScale_);
    vScale_ = doubleSpin(this, "textureVScale", 0.001, 1000, 0.1, 3);
    form->addRow(tr("Down"), vScale_);
    linkScales_ = new QCheckBox(tr("Same scale down as across"), this);
    linkScales_->setObjectName(QStringLiteral("textureLinkScales"));
    form->addRow(QString(), linkScales_);
    angle_ = intSpin(this, "textureAngle", -360, 360, QStringLiteral(" °"));
    form->addRow(tr("Angle"), angle_);
    hookX_ = doubleSpin(this, "textureHookX", 0, 1, 0.05, 3);
    hookY_ = doubleSpin(this, "textureHookY", 0, 1, 0.05, 3);
    hookX_->setToolTip(tr("The point of the picture that lies at the click, as a fraction "
                          "of its width"));
    hookY_->setToolTip(tr("The same, as a fraction of its height"));
    form->addRow(tr("Hook across"), hookX_);
    form->addRow(tr("Hook down"), hookY_);
    hookFloat_ = new QCheckBox(tr("Start at each stroke"), this);
    repeatX_ = new QCheckBox(tr("Repeat across"), this);
    repeatY_ = new QCheckBox(tr("Repeat down"), this);
    tiled_ = new QCheckBox(tr("Tiles seamlessly"), this);
    reflectX_ = new QCheckBox(tr("Reflect across"), this);
    reflectY_ = new QCheckBox(tr("Reflect down"), this);
    const std::pair<QCheckBox*, const char*> pictureBoxes[] = {
        {hookFloat_, "textureHookFloat"}, {repeatX_, "textureRepeatX"},
        {repeatY_, "textureRepeatY"},     {tiled_, "textureTiled"},
        {reflectX_, "textureReflectX"},   {reflectY_, "textureReflectY"}};
    for (const auto& [box, name] : pictureBoxes) {
        box->setObjectName(QString::fromLatin1(name));
        form->addRow(QString(), box);
    }
    pictureRows_ = {file_,    picture.browse, mode_,  size_,     measure_, hScale_,
                    vScale_,  linkScales_,    angle_, hookX_,    hookY_,   hookFloat_,
                    repeatX_, repeatY_,       tiled_, reflectX_, reflectY_};

    // Coverage cut by brightness.
    threshold_ = new QCheckBox(tr("Threshold"), this);
    threshold_->setObjectName(QStringLiteral("textureThreshold"));
    form->addRow(QString(), threshold_);
    threshCurrent_ = new QCheckBox(tr("Brightness of the image, not the texture"), this);
    threshCurrent_->setObjectName(QStringLiteral("textureThreshCurrent"));
    form->addRow(QString(), threshCurrent_);
    dark_ = doubleSpin(this, "textureDark", 0, 1, 0.05, 3);
    light_ = doubleSpin(this, "textureLight", 0, 1, 0.05, 3);
    soft_ = doubleSpin(this, "textureThresholdSoft", 0, 1, 0.05, 3);
    form->addRow(tr("Dark"), dark_);
    form->addRow(tr("Light"), light_);
    form->addRow(tr("Softness"), soft_);

    // A cube picture around the eye.
    const FileRow cube = fileRow(this, "textureCubeFile");
    cubeFile_ = cube.edit;
    form->addRow(tr("Cube picture"), cube.row);
    cubeAngle_ = intSpin(this, "textureCubeAngle", -360, 360, QStringLiteral(" °"));
    form->addRow(tr("Cube turn"), cubeAngle_);
    auto* axisRow = new QWidget(this);
    auto* axisLayout = new QHBoxLayout(axisRow);
    axisLayout->setContentsMargins(0, 0, 0, 0);
    const char* axisNames[3] = {"textureCubeAxisX", "textureCubeAxisY", "textureCubeAxisZ"};
    for (int i = 0; i < 3; ++i) {
        cubeAxis_[i] = doubleSpin(axisRow, axisNames[i], -1, 1, 0.1, 3);
        axisLayout->addWidget(cubeAxis_[i]);
    }
    form->addRow(tr("Turned about"), axisRow);
    cubeRows_ = {cubeFile_, cube.browse, cubeAngle_, axisRow};

    // Solid noise.
    bias_ = doubleSpin(this, "textureBias", 0, 1, 0.05, 2);
    complexity_ = doubleSpin(this, "textureComplexity", 0, 10, 0.1, 2);
    invert_ = new QCheckBox(tr("Invert"), this);
    invert_->setObjectName(QStringLiteral("textureInvert"));
    frequency_ = doubleSpin(this, "textureFrequency", 0, 1000, 0.1, 3);
    amplitude_ = doubleSpin(this, "textureAmplitude", 0, 1000, 0.1, 3);
    plane_ = new QLineEdit(this);
    plane_->setObjectName(QStringLiteral("texturePlane"));
    plane_->setToolTip(tr("Bands across this direction, as x/y/z; empty for plain noise"));
    symmetric_ = new QCheckBox(tr("Symmetric bands"), this);
    symmetric_->setObjectName(QStringLiteral("textureSymmetric"));
    form->addRow(tr("Bias"), bias_);
    form->addRow(tr("Complexity"), complexity_);
    form->addRow(QString(), invert_);
    form->addRow(tr("Frequency"), frequency_);
    form->addRow(tr("Amplitude"), amplitude_);
    form->addRow(tr("Bands"), plane_);
    form->addRow(QString(), symmetric_);
    noiseRows_ = {bias_, complexity_, invert_, frequency_, amplitude_, plane_, symmetric_};
    surfaceRows_ = {scale_};

    preview_ = new QLabel(this);
    preview_->setObjectName(QStringLiteral("texturePreview"));
    preview_->setFixedSize(128, 128);
    form->addRow(tr("Preview"), preview_);
    error_ = new QLabel(this);
    error_->setObjectName(QStringLiteral("textureError"));
    error_->setWordWrap(true);
    form->addRow(QString(), error_);

    connect(on_, &QCheckBox::toggled, this, [this](bool on) {
        Toolbox::instance().state.textureOn = on;
        commit();
    });
    connect(opacity_, &QSpinBox::valueChanged, this, [this](int v) {
        Toolbox::instance().state.textureOpacity = v;
        commit();
    });
    auto bindIndex = [this](QComboBox* box, int TextureSettings::*field) {
        connect(box, &QComboBox::currentIndexChanged, this, [this, field](int i) {
            texture_.settings.*field = std::max(0, i);
            commit();
        });
    };
    bindIndex(type_, &TextureSettings::type);
    bindIndex(mode_, &TextureSettings::mode);
    bindIndex(measure_, &TextureSettings::measure);
    auto bindInt = [this](QSpinBox* box, int TextureSettings::*field) {
        connect(box, &QSpinBox::valueChanged, this, [this, field](int v) {
            texture_.settings.*field = v;
            commit();
        });
    };
    bindInt(angle_, &TextureSettings::angle);
    bindInt(cubeAngle_, &TextureSettings::cubeAngle);
    auto bindDouble = [this](QDoubleSpinBox* box, double TextureSettings::*field) {
        connect(box, &QDoubleSpinBox::valueChanged, this, [this, field](double v) {
            texture_.settings.*field = v;
            commit();
        });
    };
    bindDouble(size_, &TextureSettings::size);
    bindDouble(scale_, &TextureSettings::scale);
    bindDouble(hookX_, &TextureSettings::hookX);
    bindDouble(hookY_, &TextureSettings::hookY);
    bindDouble(dark_, &TextureSettings::dark);
    bindDouble(light_, &TextureSettings::light);
    bindDouble(soft_, &TextureSettings::thresholdSoft);
    bindDouble(bias_, &TextureSettings::bias);
    bindDouble(complexity_, &TextureSettings::complexity);
    bindDouble(frequency_, &TextureSettings::frequency);
    bindDouble(amplitude_, &TextureSettings::amplitude);
    // Linked scales: the scale down follows the one across.
    connect(hScale_, &QDoubleSpinBox::valueChanged, this, [this](double v) {
        texture_.settings.hScale = v;
        if (texture_.settings.linkScales) {
            texture_.settings.vScale = v;
            const QSignalBlocker block(vScale_);
            vScale_->setValue(v);
        }
        commit();
    });
    connect(vScale_, &QDoubleSpinBox::valueChanged, this, [this](double v) {
        texture_.settings.vScale = v;
        commit();
    });
    auto bindBool = [this](QCheckBox* box, bool TextureSettings::*field) {
        connect(box, &QCheckBox::toggled, this, [this, field](bool v) {
            texture_.settings.*field = v;
            commit();
        });
    };
    bindBool(linkScales_, &TextureSettings::linkScales);
    bindBool(hookFloat_, &TextureSettings::hookFloat);
    bindBool(repeatX_, &TextureSettings::repeatX);
    bindBool(repeatY_, &TextureSettings::repeatY);
    bindBool(tiled_, &TextureSettings::tiled);
    bindBool(reflectX_, &TextureSettings::reflectX);
    bindBool(reflectY_, &TextureSettings::reflectY);
    bindBool(threshold_, &TextureSettings::threshold);
    bindBool(threshCurrent_, &TextureSettings::threshCurrent);
    bindBool(invert_, &TextureSettings::invert);
    bindBool(symmetric_, &TextureSettings::symmetric);
    for (int i = 0; i < 3; ++i) {
        connect(cubeAxis_[i], &QDoubleSpinBox::valueChanged, this, [this, i](double v) {
            texture_.settings.cubeAxis[i] = v;
            commit();
        });
    }
    auto bindText = [this](QLineEdit* edit, std::wstring TextureSettings::*field) {
        connect(edit, &QLineEdit::editingFinished, this, [this, edit, field] {
            const std::wstring text = edit->text().toStdWString();
            if (text != texture_.settings.*field) {
                texture_.settings.*field = text;
                commit();
            }
        });
    };
    bindText(file_, &TextureSettings::filename);
    bindText(cubeFile_, &TextureSettings::cubeFilename);
    bindText(plane_, &TextureSettings::plane);
    auto bindBrowse = [this](QPushButton* browse, QLineEdit* edit, const QString& title,
                             std::wstring TextureSettings::*field) {
        connect(browse, &QPushButton::clicked, this, [this, edit, title, field] {
            const QString name = QFileDialog::getOpenFileName(this, title, edit->text(),
                                                              pagewidgets::pictureFilter());
            if (!name.isEmpty()) {
                edit->setText(name);
                texture_.settings.*field = name.toStdWString();
                commit();
            }
        });
    };
    bindBrowse(picture.browse, file_, tr("Texture picture"), &TextureSettings::filename);
    bindBrowse(cube.browse, cubeFile_, tr("Cube picture"), &TextureSettings::cubeFilename);

    load();
    texture_.build();
    showPreview();
}

CTexturePage::~CTexturePage() {
    Toolbox::instance().unregisterTool(texture_);
}

void CTexturePage::load() {
    loading_ = true;
    const TextureSettings& s = texture_.settings;
    const ToolboxState& state = Toolbox::instance().state;
    on_->setChecked(state.textureOn);
    opacity_->setValue(state.textureOpacity);
    type_->setCurrentIndex(std::clamp(s.type, 0, 3));
    file_->setText(QString::fromStdWString(s.filename));
    mode_->setCurrentIndex(std::clamp(s.mode, 0, 6));
    size_->setValue(s.size);
    measure_->setCurrentIndex(std::clamp(s.measure, 0, 1));
    scale_->setValue(s.scale);
    hScale_->setValue(s.hScale);
    vScale_->setValue(s.vScale);
    linkScales_->setChecked(s.linkScales);
    angle_->setValue(s.angle);
    hookX_->setValue(s.hookX);
    hookY_->setValue(s.hookY);
    hookFloat_->setChecked(s.hookFloat);
    repeatX_->setChecked(s.repeatX);
    repeatY_->setChecked(s.repeatY);
    tiled_->setChecked(s.tiled);
    reflectX_->setChecked(s.reflectX);
    reflectY_->setChecked(s.reflectY);
    threshold_->setChecked(s.threshold);
    threshCurrent_->setChecked(s.threshCurrent);
    dark_->setValue(s.dark);
    light_->setValue(s.light);
    soft_->setValue(s.thresholdSoft);
    cubeFile_->setText(QString::fromStdWString(s.cubeFilename));
    cubeAngle_->setValue(s.cubeAngle);
    for (int i = 0; i < 3; ++i) {
        cubeAxis_[i]->setValue(s.cubeAxis[i]);
    }
    bias_->setValue(s.bias);
    complexity_->setValue(s.complexity);
    invert_->setChecked(s.invert);
    frequency_->setValue(s.frequency);
    amplitude_->setValue(s.amplitude);
    plane_->setText(QString::fromStdWString(s.plane));
    symmetric_->setChecked(s.symmetric);
    loading_ = false;
    updateEnabled();
}

void CTexturePage::updateEnabled() {
    const TextureSettings& s = texture_.settings;
    auto enable = [](const QList<QWidget*>& widgets, bool on) {
        for (QWidget* w : widgets) {
            w->setEnabled(on);
        }
    };
    enable(pictureRows_, s.type == TextureSettings::raster);
    enable(cubeRows_, s.type == TextureSettings::cube);
    enable(noiseRows_, s.type == TextureSettings::noise);
    enable(surfaceRows_, s.type == TextureSettings::raster || s.type == TextureSettings::noise);
    vScale_->setEnabled(s.type == TextureSettings::raster && !s.linkScales);
    const bool thresholded = s.type != TextureSettings::none && s.threshold;
    threshold_->setEnabled(s.type != TextureSettings::none);
    for (QWidget* w : {static_cast<QWidget*>(threshCurrent_), static_cast<QWidget*>(dark_),
                       static_cast<QWidget*>(light_), static_cast<QWidget*>(soft_)}) {
        w->setEnabled(thresholded);
    }
}

void CTexturePage::commit() {
    if (loading_) {
        return;
    }
    {
        SettingsStyleStorage stored;
        CToolStyle::Attach attach(stored);
        texture_.writeStyle();
        toolboxkeys::write(Toolbox::instance().state);
    }
    texture_.build();
    updateEnabled();
    showPreview();
    emit changed();
}

void CTexturePage::showPreview() {
    const TQL::Handle<TextureTool> texture = texture_.makeTexture();
    error_->setText(QString::fromStdWString(texture_.lastError()));
    if (!texture) {
        preview_->clear();
        return;
    }
    PreviewBitmap bitmap;
    bitmap.width = bitmap.height = 128;
    texture->preview(bitmap);
    if (bitmap.pixels.size() != static_cast<std::size_t>(bitmap.width) * bitmap.height) {
        preview_->clear();
        return;
    }
    preview_->setPixmap(pagewidgets::previewPixmap(bitmap));
}
