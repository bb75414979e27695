#include "core/TqlError.h"

#include "core/StringUtils.h"

namespace TQL {

TqlError::TqlError(const std::wstring& message) : std::runtime_error("") {
    setup(message);
}

TqlError::TqlError() : std::runtime_error("") {}

TqlError::~TqlError() = default;

void TqlError::setup(const std::wstring& message) {
    wide_ = message;
    narrow_ = utf8(message);
}

NotImplemented::NotImplemented(const wchar_t* what)
    : TqlError(std::wstring(L"Not implemented: ") + (what ? what : L"")) {}

} // namespace TQL
