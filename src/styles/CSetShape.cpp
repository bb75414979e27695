#include "styles/CSetShape.h"

#include "pipeline/ToolSelection.h"
#include "styles/CSetPen.h"
#include "styles/Toolbox.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr std::uint32_t shapeTitle = 1219;
}

// No section: the keys are the pen's.
CSetShape::CSetShape(CSetPen& pen) : CToolUI(true, 1, shapeTitle, CSetPen::id, L""), pen_(pen) {}

bool CSetShape::filled() const {
    return pen_.type == CSetPen::shapeClosed;
}

void CSetShape::setFilled(bool filled) {
    pen_.type = filled ? CSetPen::shapeClosed : CSetPen::shapeOpen;
}

void CSetShape::choose() {
    if (!pen_.isShape()) {
        pen_.type = CSetPen::shapeOpen;
    }
}

TQL::Handle<Shape> CSetShape::makeShape(const CSetPen& pen) {
    ShapeSettings s;
    s.kind = pen.type == CSetPen::shapeClosed ? 1 : 0;
    s.width = std::max(1, static_cast<std::int32_t>(std::lround(pen.width)));
    s.antiAlias = pen.antiAlias;
    return Shape::create(s);
}

void CSetShape::build() {
    if (Toolbox::instance().state.currentApplicatorId == CSetPen::id && pen_.isShape()) {
        ToolSelection::instance().selectApplicator(makeShape(pen_));
    }
}
