#include "interchange/model/ExportError.h"

#include "core/StringUtils.h"

ExportError::ExportError(const std::wstring& message, const std::wstring& file) : reason_(message) {
    setup(stringPrintf(L"%ls in %ls", message.c_str(), file.c_str()));
}

ExportError::ExportError(const std::wstring& message, long line, const std::wstring& file)
    : reason_(message), line_(line) {
    setup(stringPrintf(L"%ls at line %d in %ls", message.c_str(), static_cast<int>(line),
                       file.c_str()));
}

ExportError::ExportError(const std::wstring& message) : reason_(message) {
    setup(message);
}

ExportError ExportError::abandoned() {
    return ExportError(L"Operation abandoned");
}
