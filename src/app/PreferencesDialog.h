#pragma once

#include "app/AliasTable.h"
#include "core/Colour.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTableWidget;

/// The settings a user changes: the undo memory, the colour around the image, colour
/// matching and the monitor profile, the units lengths are shown in, re-fitting on resize,
/// and the path aliases. apply() writes them through their setting records (which store
/// only what changed).
class PreferencesDialog : public QDialog {
    Q_OBJECT

public:
    explicit PreferencesDialog(QWidget* parent = nullptr);
    /// Writes the dialog's values to the settings and the path aliases.
    void apply();

    // The fields, for tests and scripted use.
    QSpinBox* undoKilobytes() const { return undoKB_; }
    QCheckBox* colourMatching() const { return icm_; }
    QLineEdit* monitorProfile() const { return profile_; }
    QCheckBox* documentUnits() const { return docUnits_; }
    QComboBox* displayUnit() const { return unit_; }
    void setBackground(ColourPOD colour);

private:
    void showBackground();
    QSpinBox* undoKB_;
    QPushButton* backgroundButton_;
    ColourPOD background_;
    QCheckBox* icm_;
    QComboBox* intent_;
    QLineEdit* profile_;
    QCheckBox* docUnits_;
    QComboBox* unit_;
    QCheckBox* fitResize_;
    QTableWidget* aliases_;
};
