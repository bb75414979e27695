#pragma once

#include "core/Colour.h"
#include "core/Extent.h"
#include "core/Point.h"

#include <QWidget>

#include <functional>
#include <string>
#include <vector>

class CSetFill;
class CSetFog;
class CSetMatte;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QFormLayout;
class QListWidget;
class QPushButton;
class QSpinBox;

/// A settings page of the tool window: widgets bound to the fields of one tool's settings.
/// A user's edit writes the field at once and emits `changed`; `load` brings every widget
/// up to date from the fields (after a style or the settings were read).
class CToolPage : public QWidget {
    Q_OBJECT

public:
    explicit CToolPage(QWidget* parent = nullptr);
    /// Every widget from its field, without emitting `changed`.
    virtual void load();

signals:
    void changed();

protected:
    QFormLayout* form() const { return form_; }

    QCheckBox* bindCheck(const QString& text, bool& field, const char* name);
    QSpinBox* bindInt(const QString& label, int& field, int lo, int hi, const char* name,
                      const QString& suffix = QString());
    QDoubleSpinBox* bindDouble(const QString& label, double& field, double lo, double hi,
                               int decimals, const char* name, const QString& suffix = QString());
    QDoubleSpinBox* bindFloat(const QString& label, float& field, double lo, double hi,
                              int decimals, const char* name, const QString& suffix = QString());
    /// Three spin boxes in a row for a world point or vector (x, y, z).
    template <class V> QWidget* bindTriple(const QString& label, V& field, const char* name) {
        return bindComponents(
            label, [&field](int i) -> double& { return field[i]; }, name);
    }
    /// Two spin boxes for an image pixel.
    QWidget* bindPixel(const QString& label, IPoint<2>& field, const char* name);
    /// A button showing the colour; a click opens the colour dialog.
    QPushButton* bindColour(const QString& label, ColourPOD& field, const char* name);

    /// Runs after every edit, before `changed` (a page keeps widgets enabled by it).
    std::function<void()> afterEdit;

    void edited();

private:
    QWidget* bindComponents(const QString& label, std::function<double&(int)> component,
                            const char* name);

    QFormLayout* form_;
    std::vector<std::function<void()>> loaders_;
};

/// The fill: flood from the clicked pixel, or fill all that passes the locks.
class CFillPage : public CToolPage {
    Q_OBJECT

public:
    CFillPage(CSetFill& fill, QWidget* parent = nullptr);
};

/// The locks' settings: original or current image, inversion, the material list, the
/// plane and angle tolerances and the colour ranges of either colour mode.
class CMattePage : public CToolPage {
    Q_OBJECT

public:
    CMattePage(CSetMatte& matte, QWidget* parent = nullptr);
    void load() override;
    /// The material names offered in the list (the active document's), besides the ones
    /// the settings name already.
    void setDocumentMaterials(const std::vector<std::wstring>& names);

private:
    void fillList();
    void updateEnabled();

    CSetMatte& matte_;
    std::vector<std::wstring> documentNames_;
    QListWidget* list_;
    QComboBox* colourMode_;
    std::vector<QWidget*> channelWidgets_;
    std::vector<QWidget*> hlsWidgets_;
};

/// The fog: its rule, colour, transparency and amount, and the values of every rule; the
/// values that the chosen rule doesn't use are disabled.
class CFogPage : public CToolPage {
    Q_OBJECT

public:
    CFogPage(CSetFog& fog, QWidget* parent = nullptr);
    void load() override;

private:
    void updateEnabled();

    CSetFog& fog_;
    QComboBox* type_;
    /// The widgets of each rule, by type (a widget may serve several).
    std::vector<std::pair<QWidget*, unsigned>> byType_;
};
