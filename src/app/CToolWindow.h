#pragma once

#include "styles/CSetBrush.h"
#include "styles/CSetFill.h"
#include "styles/CSetFog.h"
#include "styles/CSetMatte.h"
#include "styles/CSetPainter.h"
#include "styles/CSetPen.h"
#include "styles/CSetShape.h"

#include <QDockWidget>

#include <cstdint>
#include <string>
#include <vector>

class CBrushPage;
class CFillPage;
class CFogPage;
class CMattePage;
class CGrainPage;
class CPainterPage;
class CTexturePage;
class CPenPage;
class CShapePage;
class QButtonGroup;
class QCheckBox;
class QComboBox;
class QPushButton;
class QSpinBox;
class QTabWidget;

/// The docked tool window: the toolbox (hand, zoom, fill), the locks and fog switches, the
/// paint colour, opacity and blend mode, and the pages of the fill, the locks and the fog.
///
/// It owns the tool objects of those pages and registers them in the process's Toolbox.
/// Every change is stored at once in the user's default style (the settings store, one
/// section a tool, and "Toolbox" for the switches) and the tools are built anew, so the next
/// click paints with what the window shows. Settings are read back at construction.
class CToolWindow : public QDockWidget {
    Q_OBJECT

public:
    static constexpr std::uint16_t zoomToolId = 2005;
    static constexpr std::uint16_t handToolId = 2006;
    /// The toolbox's button of the dragged figure: the pen tool (2008) with a shape type.
    static constexpr std::uint16_t shapeButtonId = 2108;

    /// The eighteen blend modes by name, in BlendMode order.
    static const std::vector<QString>& blendModeNames();

    explicit CToolWindow(QWidget* parent = nullptr);
    ~CToolWindow() override;

    /// The toolbox's current applicator or navigation tool.
    std::uint16_t currentTool() const;
    /// Makes a tool current by its toolbox button: an applicator or navigation tool id, or
    /// shapeButtonId for the pen tool's dragged figure (2008 as a pen chooses the line).
    void setCurrentTool(std::uint16_t toolId);

    CSetBrush& brush() { return brush_; }
    CSetFill& fill() { return fill_; }
    CSetMatte& matte() { return matte_; }
    CSetFog& fog() { return fog_; }
    CSetPen& pen() { return pen_; }
    CSetShape& shape() { return shape_; }
    CSetPainter& painter() { return painter_; }

    /// The materials of the active document, offered in the locks' list.
    void setDocumentMaterials(const std::vector<std::wstring>& names);
    /// Every widget from the tools and the toolbox state (after they changed elsewhere).
    void refresh();

signals:
    void toolChanged(int toolId);
    /// A setting changed (already stored and built).
    void settingsChanged();

private:
    QWidget* makeToolbox();
    /// Stores the settings in the default style and builds the tools.
    void commit();
    void showColour();
    /// The toolbox button that shows `toolId` as current.
    int buttonOf(std::uint16_t toolId) const;

    CSetBrush brush_;
    CSetFill fill_;
    CSetMatte matte_;
    CSetFog fog_;
    CSetPen pen_;
    CSetShape shape_{pen_};
    CSetPainter painter_;

    QButtonGroup* tools_ = nullptr;
    QCheckBox* locks_[4] = {};
    QCheckBox* fogOn_ = nullptr;
    QPushButton* colour_ = nullptr;
    QSpinBox* opacity_ = nullptr;
    QComboBox* blendMode_ = nullptr;
    QTabWidget* pages_ = nullptr;
    CFillPage* fillPage_ = nullptr;
    CMattePage* mattePage_ = nullptr;
    CFogPage* fogPage_ = nullptr;
    CPenPage* penPage_ = nullptr;
    CBrushPage* brushPage_ = nullptr;
    int brushTab_ = 0;
    CPainterPage* painterPage_ = nullptr;
    CTexturePage* texturePage_ = nullptr;
    CGrainPage* grainPage_ = nullptr;
    int painterTab_ = 0;
    CShapePage* shapePage_ = nullptr;
    /// Tab indices of the applicators' pages.
    int fillTab_ = 0;
    int penTab_ = 0;
    int shapeTab_ = 0;
};
