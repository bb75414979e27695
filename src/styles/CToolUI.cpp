#include "styles/CToolUI.h"

#include "core/Status.h"

CToolUI::CToolUI(bool hasPage, std::int32_t toolSlot, std::uint32_t titleId, std::uint16_t toolId,
                 std::wstring sectionName)
    : CToolStyle(std::move(sectionName)), hasPage_(hasPage), toolSlot_(toolSlot), titleId_(titleId),
      toolId_(toolId) {}

std::uint32_t CToolUI::fieldBit() const {
    static constexpr std::uint32_t bits[] = {0, 1, 2, 4, 8, 16, 32, 128};
    return toolSlot_ >= 1 && toolSlot_ <= 7 ? bits[toolSlot_] : 0;
}

std::wstring CToolUI::getTitle() const {
    return titleId_ ? TQL::loadString(static_cast<std::int32_t>(titleId_)) : std::wstring();
}
