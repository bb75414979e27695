#include "app/PreferencesDialog.h"

#include "app/AppSettings.h"
#include "app/CQuorvaleApp.h"
#include "app/QtSettingsStore.h"
#include "app/QtText.h"
#include "app/UserMessages.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {
/// The length units offered, by unit code.
const struct {
    int code;
    const char* name;
} units[] = {{2, "Millimetres"}, {3, "Centimetres"}, {4, "Metres"}, {7, "Inches"}, {8, "Feet"}};
} // namespace

PreferencesDialog::PreferencesDialog(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Preferences"));
    auto* layout = new QVBoxLayout(this);

    auto* general = new QGroupBox(tr("General"), this);
    auto* g = new QFormLayout(general);
    undoKB_ = new QSpinBox(general);
    undoKB_->setRange(1024, 16 * 1024 * 1024);
    undoKB_->setSingleStep(1024);
    undoKB_->setSuffix(QStringLiteral(" KB"));
    undoKB_->setValue(appsettings::UndoBufferKB.value());
    g->addRow(tr("&Undo memory:"), undoKB_);
    fitResize_ = new QCheckBox(tr("Fit the image when a window is resized"), general);
    fitResize_->setChecked(appsettings::FitWindowResize.value() != 0);
    g->addRow(QString(), fitResize_);
    const int bg = appsettings::BackgroundColour.value();
    background_ = ColourPOD{static_cast<std::uint8_t>((bg >> 16) & 0xFF),
                            static_cast<std::uint8_t>((bg >> 8) & 0xFF),
                            static_cast<std::uint8_t>(bg & 0xFF)};
    backgroundButton_ = new QPushButton(general);
    connect(backgroundButton_, &QPushButton::clicked, this, [this] {
        const QColor c = QColorDialog::getColor(QColor(background_.r, background_.g, background_.b),
                                                this, tr("Background"));
        if (c.isValid()) {
            setBackground(ColourPOD{static_cast<std::uint8_t>(c.blue()),
                                    static_cast<std::uint8_t>(c.green()),
                                    static_cast<std::uint8_t>(c.red())});
        }
    });
    showBackground();
    g->addRow(tr("&Background around the image:"), backgroundButton_);
    docUnits_ = new QCheckBox(tr("Show lengths in the document's own units"), general);
    docUnits_->setChecked(appsettings::DisplayDocUnits.value() != 0);
    g->addRow(QString(), docUnits_);
    unit_ = new QComboBox(general);
    for (const auto& u : units) {
        unit_->addItem(tr(u.name), u.code);
        if (u.code == appsettings::DisplayUnitType.value()) {
            unit_->setCurrentIndex(unit_->count() - 1);
        }
    }
    unit_->setEnabled(!docUnits_->isChecked());
    connect(docUnits_, &QCheckBox::toggled, unit_, [this](bool on) { unit_->setEnabled(!on); });
    g->addRow(tr("&Otherwise in:"), unit_);
    layout->addWidget(general);

    auto* colour = new QGroupBox(tr("Colour management"), this);
    auto* c = new QFormLayout(colour);
    icm_ = new QCheckBox(tr("Match the display to the monitor profile"), colour);
    icm_->setChecked(appsettings::ICMEnabled.value() != 0);
    c->addRow(QString(), icm_);
    intent_ = new QComboBox(colour);
    intent_->addItems({tr("Perceptual"), tr("Relative colorimetric"), tr("Saturation"),
                       tr("Absolute colorimetric")});
    intent_->setCurrentIndex(std::clamp(appsettings::ICMIntent.value(), 0, 3));
    c->addRow(tr("&Intent:"), intent_);
    profile_ = new QLineEdit(toQString(appsettings::MonitorProfile.value()), colour);
    profile_->setPlaceholderText(tr("sRGB"));
    auto* browse = new QPushButton(tr("Browse..."), colour);
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString p = QFileDialog::getOpenFileName(
            this, tr("Monitor profile"), profile_->text(), tr("ICC profiles (*.icc *.icm)"));
        if (!p.isEmpty()) {
            profile_->setText(p);
        }
    });
    auto* row = new QHBoxLayout;
    row->addWidget(profile_, 1);
    row->addWidget(browse);
    c->addRow(tr("&Monitor profile:"), row);
    layout->addWidget(colour);

    auto* aliasBox = new QGroupBox(tr("Path aliases"), this);
    auto* a = new QVBoxLayout(aliasBox);
    aliases_ = new QTableWidget(0, 2, aliasBox);
    aliases_->setHorizontalHeaderLabels({tr("Name"), tr("Folder")});
    aliases_->horizontalHeader()->setStretchLastSection(true);
    if (CQuorvaleApp* app = CQuorvaleApp::instance()) {
        for (const auto& [name, dir] : app->aliases().aliases()) {
            const int r = aliases_->rowCount();
            aliases_->insertRow(r);
            aliases_->setItem(r, 0, new QTableWidgetItem(toQString(name)));
            aliases_->setItem(r, 1, new QTableWidgetItem(toQString(dir)));
        }
    }
    auto* buttons = new QHBoxLayout;
    auto* add = new QPushButton(tr("&Add..."), aliasBox);
    auto* remove = new QPushButton(tr("&Remove"), aliasBox);
    connect(add, &QPushButton::clicked, this, [this] {
        const QString dir = QFileDialog::getExistingDirectory(this, tr("Folder of the alias"));
        if (!dir.isEmpty()) {
            const int r = aliases_->rowCount();
            aliases_->insertRow(r);
            aliases_->setItem(r, 0, new QTableWidgetItem(QFileInfo(dir).fileName()));
            aliases_->setItem(r, 1, new QTableWidgetItem(dir));
        }
    });
    connect(remove, &QPushButton::clicked, this, [this] {
        if (aliases_->currentRow() >= 0) {
            aliases_->removeRow(aliases_->currentRow());
        }
    });
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch(1);
    a->addWidget(aliases_);
    a->addLayout(buttons);
    layout->addWidget(aliasBox);

    auto* box = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(box, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(box, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(box);
}

void PreferencesDialog::setBackground(ColourPOD colour) {
    background_ = colour;
    showBackground();
}

void PreferencesDialog::showBackground() {
    backgroundButton_->setText(
        QStringLiteral("%1, %2, %3").arg(background_.r).arg(background_.g).arg(background_.b));
}

void PreferencesDialog::apply() {
    appsettings::UndoBufferKB.write(undoKB_->value());
    appsettings::FitWindowResize.write(fitResize_->isChecked() ? 1 : 0);
    appsettings::BackgroundColour.write(background_.r | (background_.g << 8) |
                                        (background_.b << 16));
    appsettings::DisplayDocUnits.write(docUnits_->isChecked() ? 1 : 0);
    appsettings::DisplayUnitType.write(unit_->currentData().toInt());
    appsettings::ICMEnabled.write(icm_->isChecked() ? 1 : 0);
    appsettings::ICMIntent.write(intent_->currentIndex());
    appsettings::MonitorProfile.write(toWString(profile_->text().trimmed()));
    if (CQuorvaleApp* app = CQuorvaleApp::instance()) {
        AliasTable table;
        for (int r = 0; r < aliases_->rowCount(); ++r) {
            const QTableWidgetItem* name = aliases_->item(r, 0);
            const QTableWidgetItem* dir = aliases_->item(r, 1);
            if (name && dir &&
                !table.set(toWString(name->text().trimmed()), toWString(dir->text().trimmed()))) {
                UserMessages::current().error(
                    this, tr("The alias \"%1\" was left out: a name without ( ) or /, and an "
                             "absolute folder, are needed.")
                              .arg(name->text()));
            }
        }
        app->aliases() = table;
        app->settings().saveAliases(table);
    }
}
