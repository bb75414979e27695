#include "styles/CSetPen.h"

#include "pipeline/ToolSelection.h"
#include "styles/CSetShape.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr std::uint32_t penTitle = 1219;
}

CSetPen::CSetPen() : CToolUI(true, 1, penTitle, id, L"Pen") {}

PenSettings CSetPen::penSettings() const {
    PenSettings s;
    s.antiAlias = antiAlias;
    s.width = std::max(1, static_cast<std::int32_t>(std::lround(width)));
    s.threeD = threeD;
    s.thickness = std::clamp(thickness, 1, 100);
    s.filled = filled;
    s.constraintType = constraintType;
    s.constraintAxis = constraintAxis;
    return s;
}

TQL::Handle<Applicator> CSetPen::makeApplicator() const {
    if (isShape()) {
        return CSetShape::makeShape(*this);
    }
    return Pen::create(penSettings());
}

void CSetPen::build() {
    if (Toolbox::instance().state.currentApplicatorId == id) {
        ToolSelection::instance().selectApplicator(makeApplicator());
    }
}

void CSetPen::setDefaults() {
    antiAlias = true;
    threeD = false;
    thickness = 10;
    width = 5;
    type = pen;
    filled = false;
    angle = 0;
    constraintType = Constraint::none;
    constraintAxis = Vector<3>(0, 0, 0);
}

void CSetPen::readStyle() {
    const StyleStorage* storage = currentStorage();
    const bool library = storage && storage->isLibraryStyle();
    antiAlias = getBool(L"AntiAlias", antiAlias);
    threeD = getBool(L"Threed", threeD);
    // A library style doesn't change the user's pen size.
    if (!(library && threeD)) {
        thickness = std::clamp(getInt(L"Thickness", thickness), 1, 100);
    }
    if (!(library && !threeD)) {
        width = std::max(1.0, getDouble(L"Width", width));
    }
    type = getInt(L"Type", type);
    if (type < -1 || type > penSecondKind) {
        type = pen;
    }
    filled = getBool(L"Filled", filled);
    angle = getInt(L"Angle", angle);
    constraintType =
        Constraint::fromStyle(getInt(L"ConstraintType", Constraint::toStyle(constraintType)));
    constraintAxis = getVector(L"ConstraintAxis", constraintAxis);
}

void CSetPen::writeStyle() {
    setBool(L"AntiAlias", antiAlias);
    setBool(L"Threed", threeD);
    setInt(L"Thickness", std::clamp(thickness, 1, 100));
    setDouble(L"Width", width);
    setInt(L"Type", type);
    setBool(L"Filled", filled);
    setInt(L"Angle", angle);
    setInt(L"ConstraintType", Constraint::toStyle(constraintType));
    setVector(L"ConstraintAxis", constraintAxis);
}
