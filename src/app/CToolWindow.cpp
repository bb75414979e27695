#include "app/CToolWindow.h"

#include "app/CBrushPage.h"
#include "app/CGrainPage.h"
#include "app/CPainterPage.h"
#include "app/CPenPage.h"
#include "app/CTexturePage.h"
#include "app/CToolPage.h"
#include "app/ToolboxKeys.h"
#include "pipeline/Matte.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTabWidget>
#include <QToolButton>
#include <QVBoxLayout>

#include <cmath>

namespace {

/// The lock switches in the order of the window, with their mask bits.
constexpr std::uint32_t lockBits[4] = {Matte::lockPlaneBit, Matte::lockAngleBit,
                                       Matte::lockMaterialBit, Matte::lockColourBit};

QWidget* scrolled(QWidget* page) {
    auto* area = new QScrollArea;
    area->setWidget(page);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    return area;
}

} // namespace

const std::vector<QString>& CToolWindow::blendModeNames() {
    static const std::vector<QString> names = {
        QObject::tr("Normal"),      QObject::tr("Multiply"),    QObject::tr("Tint"),
        QObject::tr("Screen"),      QObject::tr("Dissolve"),    QObject::tr("Lighten"),
        QObject::tr("Darken"),      QObject::tr("Difference"),  QObject::tr("Exclusion"),
        QObject::tr("Hard Light"),  QObject::tr("Overlay"),     QObject::tr("Colour Dodge"),
        QObject::tr("Colour Burn"), QObject::tr("Vivid Light"), QObject::tr("Hue"),
        QObject::tr("Luminosity"),  QObject::tr("Saturation"),  QObject::tr("Colour")};
    return names;
}

CToolWindow::CToolWindow(QWidget* parent) : QDockWidget(tr("Tools"), parent) {
    setObjectName(QStringLiteral("toolWindow"));
    setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable |
                QDockWidget::DockWidgetClosable);

    // The toolbox starts from its factory state and the user's stored settings.
    Toolbox& toolbox = Toolbox::instance();
    toolbox.state = ToolboxState{};
    toolbox.state.currentApplicatorId = handToolId;
    toolbox.registerTool(fill_);
    toolbox.registerTool(matte_);
    toolbox.registerTool(fog_);
    toolbox.registerTool(pen_);
    toolbox.registerTool(brush_);
    toolbox.registerTool(painter_);
    toolbox.makeCurrent(fill_);
    toolbox.makeCurrent(matte_);
    toolbox.makeCurrent(fog_);
    {
        // The user's settings as they were left.
        SettingsStyleStorage stored;
        CToolStyle::Attach attach(stored);
        fill_.readStyle();
        matte_.readStyle();
        fog_.readStyle();
        pen_.readStyle();
        brush_.readStyle();
        painter_.readStyle();
        toolboxkeys::read(toolbox.state);
    }
    if (CToolUI* current = toolbox.tool(toolbox.state.currentApplicatorId)) {
        toolbox.makeCurrent(*current);
    }

    auto* body = new QWidget(this);
    auto* layout = new QVBoxLayout(body);
    layout->addWidget(makeToolbox());
    pages_ = new QTabWidget(body);
    pages_->setObjectName(QStringLiteral("toolPages"));
    fillPage_ = new CFillPage(fill_);
    mattePage_ = new CMattePage(matte_);
    fogPage_ = new CFogPage(fog_);
    penPage_ = new CPenPage(pen_);
    brushPage_ = new CBrushPage(brush_);
    painterPage_ = new CPainterPage(painter_);
    shapePage_ = new CShapePage(shape_, pen_);
    fillTab_ = pages_->addTab(scrolled(fillPage_), tr("Fill"));
    pages_->addTab(scrolled(mattePage_), tr("Locks"));
    pages_->addTab(scrolled(fogPage_), tr("Fog"));
    brushTab_ = pages_->addTab(scrolled(brushPage_), tr("Brush"));
    painterTab_ = pages_->addTab(scrolled(painterPage_), tr("Painter"));
    penTab_ = pages_->addTab(scrolled(penPage_), tr("Line"));
    shapeTab_ = pages_->addTab(scrolled(shapePage_), tr("Shape"));
    texturePage_ = new CTexturePage;
    grainPage_ = new CGrainPage;
    pages_->addTab(scrolled(texturePage_), tr("Texture"));
    pages_->addTab(scrolled(grainPage_), tr("Grain"));
    layout->addWidget(pages_, 1);
    setWidget(body);
    for (CToolPage* page :
         {static_cast<CToolPage*>(fillPage_), static_cast<CToolPage*>(mattePage_),
          static_cast<CToolPage*>(fogPage_), static_cast<CToolPage*>(penPage_),
          static_cast<CToolPage*>(brushPage_), static_cast<CToolPage*>(shapePage_),
          static_cast<CToolPage*>(painterPage_)}) {
        connect(page, &CToolPage::changed, this, &CToolWindow::commit);
    }
    refresh();
    fill_.build();
    matte_.build();
    fog_.build();
    pen_.build();
    brush_.build();
    painter_.build();
}

CToolWindow::~CToolWindow() {
    Toolbox& toolbox = Toolbox::instance();
    toolbox.unregisterTool(painter_);
    toolbox.unregisterTool(brush_);
    toolbox.unregisterTool(pen_);
    toolbox.unregisterTool(fill_);
    toolbox.unregisterTool(matte_);
    toolbox.unregisterTool(fog_);
}

QWidget* CToolWindow::makeToolbox() {
    auto* box = new QWidget(this);
    auto* grid = new QGridLayout(box);
    tools_ = new QButtonGroup(box);
    tools_->setExclusive(true);
    const struct {
        std::uint16_t id;
        const char* name;
        QString text;
        QString tip;
    } tools[] = {
        {handToolId, "toolHand", tr("Hand"), tr("Drag to scroll the image")},
        {zoomToolId, "toolZoom", tr("Zoom"), tr("Click to zoom in, Shift+click to zoom out")},
        {CSetBrush::id, "toolBrush", tr("Brush"),
         tr("Drag to paint; a tablet's pressure and its eraser end are followed")},
        {CSetPainter::id, "toolPainter", tr("Painter"),
         tr("Drag across the image: every cell crossed gets a stroke in the colour found there")},
        {CSetFill::id, "toolFill", tr("Fill"),
         tr("Click to fill with the colour, within the locks")},
        {CSetPen::id, "toolPen", tr("Line"),
         tr("Click from point to point; double click or Enter ends the line, Escape stops it")},
        {shapeButtonId, "toolShape", tr("Shape"), tr("Drag an ellipse; Shift makes a circle")},
    };
    int column = 0;
    for (const auto& t : tools) {
        auto* button = new QToolButton(box);
        button->setObjectName(QString::fromLatin1(t.name));
        button->setText(t.text);
        button->setToolTip(t.tip);
        button->setCheckable(true);
        button->setToolButtonStyle(Qt::ToolButtonTextOnly);
        tools_->addButton(button, t.id);
        grid->addWidget(button, 0, column++);
    }
    connect(tools_, &QButtonGroup::idClicked, this,
            [this](int id) { setCurrentTool(static_cast<std::uint16_t>(id)); });

    const char* lockNames[4] = {"lockPlane", "lockAngle", "lockMaterial", "lockColour"};
    const QString lockTexts[4] = {tr("Plane"), tr("Angle"), tr("Material"), tr("Colour")};
    auto* lockRow = new QWidget(box);
    auto* lockLayout = new QGridLayout(lockRow);
    lockLayout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < 4; ++i) {
        locks_[i] = new QCheckBox(lockTexts[i], lockRow);
        locks_[i]->setObjectName(QString::fromLatin1(lockNames[i]));
        lockLayout->addWidget(locks_[i], i / 2, i % 2);
        const std::uint32_t bit = lockBits[i];
        connect(locks_[i], &QCheckBox::toggled, this, [this, bit](bool on) {
            std::uint32_t& mask = Toolbox::instance().state.lockMask;
            mask = on ? (mask | bit) : (mask & ~bit);
            commit();
        });
    }
    auto* form = new QFormLayout;
    form->addRow(tr("Locks"), lockRow);
    fogOn_ = new QCheckBox(tr("Fog"), box);
    fogOn_->setObjectName(QStringLiteral("fogOn"));
    connect(fogOn_, &QCheckBox::toggled, this, [this](bool on) {
        Toolbox::instance().state.fogOn = on;
        commit();
    });
    form->addRow(QString(), fogOn_);
    colour_ = new QPushButton(box);
    colour_->setObjectName(QStringLiteral("paintColour"));
    connect(colour_, &QPushButton::clicked, this, [this] {
        std::uint8_t* c = Toolbox::instance().state.colour;
        const QColor chosen = QColorDialog::getColor(QColor(c[0], c[1], c[2]), this, tr("Colour"));
        if (!chosen.isValid()) {
            return;
        }
        // Through the engine's colour: the bytes it rounds to are the ones painted.
        const ColourPOD pod = Colour::rgb(chosen.redF(), chosen.greenF(), chosen.blueF()).pod();
        c[0] = pod.r;
        c[1] = pod.g;
        c[2] = pod.b;
        showColour();
        commit();
    });
    form->addRow(tr("Colour"), colour_);
    opacity_ = new QSpinBox(box);
    opacity_->setObjectName(QStringLiteral("paintOpacity"));
    opacity_->setRange(1, 100);
    opacity_->setSuffix(QStringLiteral(" %"));
    opacity_->setKeyboardTracking(false);
    connect(opacity_, &QSpinBox::valueChanged, this, [this](int v) {
        Toolbox::instance().state.blendOpacity = v;
        commit();
    });
    form->addRow(tr("Opacity"), opacity_);
    blendMode_ = new QComboBox(box);
    blendMode_->setObjectName(QStringLiteral("blendMode"));
    for (const QString& name : blendModeNames()) {
        blendMode_->addItem(name);
    }
    connect(blendMode_, &QComboBox::currentIndexChanged, this, [this](int i) {
        Toolbox::instance().state.blendMode = static_cast<std::uint32_t>(std::max(0, i));
        commit();
    });
    form->addRow(tr("Blend mode"), blendMode_);
    grid->addLayout(form, 1, 0, 1, column);
    return box;
}

std::uint16_t CToolWindow::currentTool() const {
    return Toolbox::instance().state.currentApplicatorId;
}

void CToolWindow::setCurrentTool(std::uint16_t toolId) {
    Toolbox& toolbox = Toolbox::instance();
    if (toolId == shapeButtonId) {
        shape_.choose();
        toolId = CSetPen::id;
    } else if (toolId == CSetPen::id && pen_.isShape()) {
        pen_.type = CSetPen::pen;
    }
    toolbox.state.currentApplicatorId = toolId;
    if (CToolUI* tool = toolbox.tool(toolId)) {
        toolbox.makeCurrent(*tool);
    }
    {
        const QSignalBlocker block(tools_);
        if (QAbstractButton* b = tools_->button(buttonOf(toolId))) {
            b->setChecked(true);
        }
    }
    if (toolId == CSetFill::id) {
        pages_->setCurrentIndex(fillTab_);
    } else if (toolId == CSetPen::id) {
        pages_->setCurrentIndex(pen_.isShape() ? shapeTab_ : penTab_);
    } else if (toolId == CSetBrush::id) {
        pages_->setCurrentIndex(brushTab_);
    } else if (toolId == CSetPainter::id) {
        pages_->setCurrentIndex(painterTab_);
    }
    commit();
    emit toolChanged(toolId);
}

int CToolWindow::buttonOf(std::uint16_t toolId) const {
    return toolId == CSetPen::id && pen_.isShape() ? shapeButtonId : toolId;
}

void CToolWindow::setDocumentMaterials(const std::vector<std::wstring>& names) {
    mattePage_->setDocumentMaterials(names);
}

void CToolWindow::showColour() {
    const std::uint8_t* c = Toolbox::instance().state.colour;
    const ColourPOD pod{c[2], c[1], c[0]};
    const Colour colour = Colour::fromPOD(pod);
    colour_->setText(QStringLiteral("%1, %2, %3  (H %4°  S %5%  L %6%)")
                         .arg(c[0])
                         .arg(c[1])
                         .arg(c[2])
                         .arg(std::lround(colour.h_hls().degrees()))
                         .arg(std::lround(colour.s_hls() * 100))
                         .arg(std::lround(colour.l_hls() * 100)));
    QPixmap swatch(16, 16);
    swatch.fill(QColor(c[0], c[1], c[2]));
    colour_->setIcon(QIcon(swatch));
}

void CToolWindow::refresh() {
    const ToolboxState& s = Toolbox::instance().state;
    {
        const QSignalBlocker block(tools_);
        if (QAbstractButton* b = tools_->button(buttonOf(s.currentApplicatorId))) {
            b->setChecked(true);
        } else if (QAbstractButton* hand = tools_->button(handToolId)) {
            hand->setChecked(true);
        }
    }
    for (int i = 0; i < 4; ++i) {
        const QSignalBlocker block(locks_[i]);
        locks_[i]->setChecked((s.lockMask & lockBits[i]) != 0);
    }
    {
        const QSignalBlocker block(fogOn_);
        fogOn_->setChecked(s.fogOn);
    }
    {
        const QSignalBlocker block(opacity_);
        opacity_->setValue(s.blendOpacity);
    }
    {
        const QSignalBlocker block(blendMode_);
        blendMode_->setCurrentIndex(static_cast<int>(s.blendMode));
    }
    showColour();
    fillPage_->load();
    mattePage_->load();
    fogPage_->load();
    penPage_->load();
    brushPage_->load();
    painterPage_->load();
    shapePage_->load();
    texturePage_->load();
    grainPage_->load();
}

void CToolWindow::commit() {
    {
        SettingsStyleStorage stored;
        CToolStyle::Attach attach(stored);
        fill_.writeStyle();
        matte_.writeStyle();
        fog_.writeStyle();
        pen_.writeStyle();
        brush_.writeStyle();
        painter_.writeStyle();
        toolboxkeys::write(Toolbox::instance().state);
    }
    fill_.build();
    matte_.build();
    fog_.build();
    pen_.build();
    brush_.build();
    painter_.build();
    emit settingsChanged();
}
