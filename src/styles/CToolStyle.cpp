#include "styles/CToolStyle.h"

#include "styles/StyleStorage.h"

#include <cerrno>
#include <cstdio>
#include <cwchar>
#include <filesystem>

namespace {

StyleStorage* current = nullptr;

/// The whole of `text` as a double; false if it is not one number.
bool parseDouble(const std::wstring& text, double& out) {
    if (text.empty()) {
        return false;
    }
    wchar_t* end = nullptr;
    errno = 0;
    const double v = std::wcstod(text.c_str(), &end);
    while (end && *end == L' ') {
        ++end;
    }
    if (errno != 0 || !end || *end != 0 || end == text.c_str()) {
        return false;
    }
    out = v;
    return true;
}

std::wstring formatDouble(double v) {
    wchar_t buffer[64];
    std::swprintf(buffer, 64, L"%.17g", v);
    return buffer;
}

} // namespace

CToolStyle::CToolStyle(std::wstring sectionName) : sectionName_(std::move(sectionName)) {
    if (sectionName_.size() > 15) {
        sectionName_.resize(15);
    }
}

StyleStorage* CToolStyle::currentStorage() {
    return current;
}

void CToolStyle::setCurrentStorage(StyleStorage* storage) {
    current = storage;
}

CToolStyle::Attach::Attach(StyleStorage& storage) : previous_(current) {
    current = &storage;
}

CToolStyle::Attach::~Attach() {
    current = previous_;
}

std::wstring CToolStyle::getString(const std::wstring& key,
                                   const std::wstring& defaultValue) const {
    if (!current || sectionName_.empty()) {
        return defaultValue;
    }
    return current->read(sectionName_, key).value_or(defaultValue);
}

std::wstring CToolStyle::getPath(const std::wstring& key, const std::wstring& defaultValue) const {
    if (!current || sectionName_.empty()) {
        return defaultValue;
    }
    const std::optional<std::wstring> text = current->read(sectionName_, key);
    if (!text) {
        return defaultValue;
    }
    const std::filesystem::path path(*text);
    const std::wstring base = current->baseDirectory();
    if (text->empty() || path.is_absolute() || base.empty()) {
        return *text;
    }
    return (std::filesystem::path(base) / path).lexically_normal().wstring();
}

double CToolStyle::getDouble(const std::wstring& key, double defaultValue) const {
    double v = defaultValue;
    if (current && !sectionName_.empty()) {
        if (const auto text = current->read(sectionName_, key); text && parseDouble(*text, v)) {
            return v;
        }
    }
    return defaultValue;
}

Vector<3> CToolStyle::getVector(const std::wstring& key, const Vector<3>& defaultValue) const {
    if (!current || sectionName_.empty()) {
        return defaultValue;
    }
    const auto text = current->read(sectionName_, key);
    if (!text) {
        return defaultValue;
    }
    double v[3];
    std::size_t from = 0;
    for (int i = 0; i < 3; ++i) {
        const std::size_t comma = i < 2 ? text->find(L',', from) : text->size();
        if (comma == std::wstring::npos || !parseDouble(text->substr(from, comma - from), v[i])) {
            return defaultValue;
        }
        from = comma + 1;
    }
    return Vector<3>(v[0], v[1], v[2]);
}

int CToolStyle::getInt(const std::wstring& key, int defaultValue) const {
    double v = 0;
    if (current && !sectionName_.empty()) {
        if (const auto text = current->read(sectionName_, key);
            text && parseDouble(*text, v) && v >= -2147483648.0 && v <= 2147483647.0) {
            return static_cast<int>(v);
        }
    }
    return defaultValue;
}

bool CToolStyle::getBool(const std::wstring& key, bool defaultValue) const {
    return getInt(key, defaultValue ? 1 : 0) != 0;
}

void CToolStyle::setString(const std::wstring& key, const std::wstring& value) const {
    if (current && !sectionName_.empty()) {
        current->write(sectionName_, key, value);
    }
}

void CToolStyle::setPath(const std::wstring& key, const std::wstring& value) const {
    setString(key, value);
}

void CToolStyle::setDouble(const std::wstring& key, double value) const {
    setString(key, formatDouble(value));
}

void CToolStyle::setVector(const std::wstring& key, const Vector<3>& value) const {
    setString(key, formatDouble(value.x()) + L"," + formatDouble(value.y()) + L"," +
                       formatDouble(value.z()));
}

void CToolStyle::setInt(const std::wstring& key, int value) const {
    setString(key, std::to_wstring(value));
}
