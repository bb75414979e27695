#pragma once

#include "core/TqlError.h"

#include <string>

/// An error while reading a model or turning it into an image. Its text names the file
/// and, for text-based sources, the line where reading stopped.
class ExportError : public TQL::TqlError {
public:
    /// "<message> in <file>".
    ExportError(const std::wstring& message, const std::wstring& file);
    /// "<message> at line <line> in <file>".
    ExportError(const std::wstring& message, long line, const std::wstring& file);

    /// The error of a cancel asked for at a progress report: "Operation abandoned".
    static ExportError abandoned();

    /// The message without the place.
    const std::wstring& reason() const { return reason_; }
    /// The line, or -1 when the error has none.
    long line() const { return line_; }

private:
    explicit ExportError(const std::wstring& message);
    std::wstring reason_;
    long line_ = -1;
};
