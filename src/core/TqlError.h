#pragma once

#include <stdexcept>
#include <string>

namespace TQL {

/// The error of the core library and codecs for what cannot continue. Carries a wide
/// message; what() gives it as UTF-8.
class TqlError : public std::runtime_error {
public:
    explicit TqlError(const std::wstring& message);
    TqlError(const TqlError&) = default;
    TqlError& operator=(const TqlError&) = default;
    ~TqlError() override;

    const char* what() const noexcept override { return narrow_.c_str(); }
    const std::wstring& wWhat() const noexcept { return wide_; }

protected:
    /// For derived classes that format their message before setting it.
    TqlError();
    void setup(const std::wstring& message);

private:
    std::wstring wide_;
    std::string narrow_;
};

/// Raised by operations that exist but are not available here.
class NotImplemented : public TqlError {
public:
    explicit NotImplemented(const wchar_t* what);
};

} // namespace TQL
