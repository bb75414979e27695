#include "styles/CSetFill.h"

#include "pipeline/ToolSelection.h"
#include "styles/Toolbox.h"

namespace {
constexpr std::uint32_t fillTitle = 1247;
}

CSetFill::CSetFill() : CToolUI(true, 1, fillTitle, id, L"Fill") {}

TQL::Handle<Filler> CSetFill::makeFiller() const {
    return TQL::makeHandle<Filler>(flood);
}

void CSetFill::build() {
    if (Toolbox::instance().state.currentApplicatorId == id) {
        ToolSelection::instance().selectApplicator(makeFiller());
    }
}

void CSetFill::setDefaults() {
    flood = true;
}

void CSetFill::readStyle() {
    flood = getBool(L"Flood", flood);
}

void CSetFill::writeStyle() {
    setBool(L"Flood", flood);
}
