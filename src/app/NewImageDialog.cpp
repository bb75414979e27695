#include "app/NewImageDialog.h"

#include "app/AppSettings.h"
#include "app/QtText.h"
#include "app/UserMessages.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

namespace {

QSpinBox* sizeBox(int value, QWidget* parent) {
    auto* box = new QSpinBox(parent);
    box->setRange(2, 65535);
    box->setValue(value);
    box->setSuffix(QStringLiteral(" px"));
    return box;
}

QDialogButtonBox* okCancel(QDialog* dialog) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    return buttons;
}

} // namespace

bool parsePoint3(const QString& text, double out[3]) {
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != 3) {
        return false;
    }
    for (int i = 0; i < 3; ++i) {
        bool ok = false;
        out[i] = parts[i].trimmed().toDouble(&ok);
        if (!ok) {
            return false;
        }
    }
    return true;
}

NewImageDialog::NewImageDialog(QWidget* parent)
    : QDialog(parent), colour_(appsettings::Background.value().colour) {
    setWindowTitle(tr("New Image"));
    auto* form = new QFormLayout(this);
    width_ = sizeBox(1600, this);
    height_ = sizeBox(900, this);
    colourButton_ = new QPushButton(this);
    connect(colourButton_, &QPushButton::clicked, this, [this] {
        const QColor c = QColorDialog::getColor(QColor(colour_.r, colour_.g, colour_.b), this,
                                                tr("Background colour"));
        if (c.isValid()) {
            colour_ =
                ColourPOD{static_cast<std::uint8_t>(c.blue()), static_cast<std::uint8_t>(c.green()),
                          static_cast<std::uint8_t>(c.red())};
            showColour();
        }
    });
    showColour();
    form->addRow(tr("&Width:"), width_);
    form->addRow(tr("&Height:"), height_);
    form->addRow(tr("&Background:"), colourButton_);
    form->addRow(okCancel(this));
}

void NewImageDialog::showColour() {
    colourButton_->setText(
        QStringLiteral("%1, %2, %3").arg(colour_.r).arg(colour_.g).arg(colour_.b));
    colourButton_->setStyleSheet(QStringLiteral("background-color: rgb(%1,%2,%3); color: %4")
                                     .arg(colour_.r)
                                     .arg(colour_.g)
                                     .arg(colour_.b)
                                     .arg(colour_.r + colour_.g + colour_.b > 380
                                              ? QStringLiteral("black")
                                              : QStringLiteral("white")));
}

NewImageParams NewImageDialog::params() const {
    NewImageParams p;
    p.kind = NewImageKind::plain;
    p.width = width_->value();
    p.height = height_->value();
    p.background = colour_;
    return p;
}

void NewImageDialog::accept() {
    appsettings::Background.write(SettingColour{colour_});
    QDialog::accept();
}

NewModelDialog::NewModelDialog(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("New from Model"));
    auto* form = new QFormLayout(this);
    path_ = new QLineEdit(this);
    auto* browse = new QPushButton(tr("Browse..."), this);
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString p = QFileDialog::getOpenFileName(this, tr("Model"), path_->text(),
                                                       tr("DXF drawings (*.dxf)"));
        if (!p.isEmpty()) {
            path_->setText(p);
        }
    });
    auto* pathRow = new QHBoxLayout;
    pathRow->addWidget(path_, 1);
    pathRow->addWidget(browse);
    form->addRow(tr("&Model:"), pathRow);
    width_ = sizeBox(1600, this);
    height_ = sizeBox(900, this);
    form->addRow(tr("&Width:"), width_);
    form->addRow(tr("&Height:"), height_);
    view_ = new QComboBox(this);
    view_->addItems({tr("Perspective"), tr("Parallel"), tr("Panorama (cube)")});
    connect(view_, &QComboBox::currentIndexChanged, this, [this](int i) {
        if (i == 2) {
            // Six square faces side by side.
            width_->setValue(height_->value() * 6);
        }
    });
    form->addRow(tr("&View:"), view_);
    fit_ = new QCheckBox(tr("Fit the camera to the model"), this);
    fit_->setChecked(true);
    connect(fit_, &QCheckBox::toggled, this, &NewModelDialog::updateEnabled);
    form->addRow(QString(), fit_);
    eye_ = new QLineEdit(QStringLiteral("0, -10, 1.6"), this);
    target_ = new QLineEdit(QStringLiteral("0, 0, 1.6"), this);
    fov_ = new QDoubleSpinBox(this);
    fov_->setRange(1, 179);
    fov_->setValue(60);
    fov_->setSuffix(QStringLiteral("°"));
    form->addRow(tr("&Eye (x, y, z):"), eye_);
    form->addRow(tr("&Target (x, y, z):"), target_);
    form->addRow(tr("&Field of view:"), fov_);
    sunAzimuth_ = new QDoubleSpinBox(this);
    sunAzimuth_->setRange(0, 360);
    sunAzimuth_->setValue(235);
    sunAzimuth_->setSuffix(QStringLiteral("°"));
    sunElevation_ = new QDoubleSpinBox(this);
    sunElevation_->setRange(-90, 90);
    sunElevation_->setValue(35);
    sunElevation_->setSuffix(QStringLiteral("°"));
    shadows_ = new QCheckBox(tr("Shadows"), this);
    shadows_->setChecked(true);
    form->addRow(tr("Sun &bearing:"), sunAzimuth_);
    form->addRow(tr("Sun &height:"), sunElevation_);
    form->addRow(QString(), shadows_);
    form->addRow(okCancel(this));
    updateEnabled();
}

void NewModelDialog::updateEnabled() {
    const bool placed = !fit_->isChecked();
    eye_->setEnabled(placed);
    target_->setEnabled(placed);
    fov_->setEnabled(placed);
}

void NewModelDialog::setModelPath(const QString& path) {
    path_->setText(path);
}

NewImageParams NewModelDialog::params() const {
    NewImageParams p;
    p.kind = NewImageKind::model;
    p.sourcePath = toWString(QFileInfo(path_->text()).absoluteFilePath());
    p.width = width_->value();
    p.height = height_->value();
    p.background = ColourPOD{245, 238, 232};
    ModelImageSettings& m = p.model;
    m.view = static_cast<ModelImageSettings::View>(view_->currentIndex());
    m.fit = fit_->isChecked();
    double eye[3];
    double target[3];
    if (!m.fit && parsePoint3(eye_->text(), eye) && parsePoint3(target_->text(), target)) {
        m.eye = Point<3>(eye[0], eye[1], eye[2]);
        m.target = Point<3>(target[0], target[1], target[2]);
    }
    m.fieldOfView = fov_->value();
    m.sunAzimuth = sunAzimuth_->value();
    m.sunElevation = sunElevation_->value();
    m.shadows = shadows_->isChecked();
    return p;
}

void NewModelDialog::accept() {
    QString problem;
    double eye[3];
    double target[3];
    if (!QFileInfo(path_->text()).isFile()) {
        problem = tr("Choose a DXF drawing that exists.");
    } else if (view_->currentIndex() == 2 && width_->value() != 6 * height_->value()) {
        problem = tr("A panorama is six square faces: its width must be six times its height.");
    } else if (!fit_->isChecked() &&
               (!parsePoint3(eye_->text(), eye) || !parsePoint3(target_->text(), target))) {
        problem = tr("Give the eye and the target as three numbers each: x, y, z.");
    } else if (!fit_->isChecked() && eye[0] == target[0] && eye[1] == target[1] &&
               eye[2] == target[2]) {
        problem = tr("The eye and the target must differ.");
    }
    if (!problem.isEmpty()) {
        UserMessages::current().error(this, problem);
        return;
    }
    QDialog::accept();
}
