#include "core/Settings.h"

#include "core/StringUtils.h"

#include <atomic>
#include <cstdint>

std::optional<std::wstring> MemorySettingsStore::read(const std::wstring& section,
                                                      const std::wstring& key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = values_.find({section, key});
    if (it == values_.end()) {
        return std::nullopt;
    }
    return it->second;
}

void MemorySettingsStore::write(const std::wstring& section, const std::wstring& key,
                                const std::wstring& value) {
    std::lock_guard<std::mutex> lock(mutex_);
    values_[{section, key}] = value;
}

void MemorySettingsStore::remove(const std::wstring& section, const std::wstring& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    values_.erase({section, key});
}

namespace {
MemorySettingsStore& standIn() {
    static MemorySettingsStore store;
    return store;
}
std::atomic<SettingsStore*> installed{nullptr};
} // namespace

namespace TQL {
SettingsStore& settingsStore() {
    SettingsStore* s = installed.load();
    return s ? *s : standIn();
}
void setSettingsStore(SettingsStore* store) {
    installed.store(store);
}
} // namespace TQL

bool parseSettingValue(const std::wstring& text, int& out) {
    long v = 0;
    if (!isLong(&v, text.c_str(), static_cast<int>(text.size())) || v < INT32_MIN ||
        v > INT32_MAX) {
        return false;
    }
    out = static_cast<int>(v);
    return true;
}

bool parseSettingValue(const std::wstring& text, double& out) {
    return isDouble(&out, text.c_str(), static_cast<int>(text.size()));
}

bool parseSettingValue(const std::wstring& text, std::wstring& out) {
    out = text;
    return true;
}

std::wstring formatSettingValue(int v) {
    return stringPrintf(L"%d", v);
}
std::wstring formatSettingValue(double v) {
    return stringPrintf(L"%.16f", v);
}
std::wstring formatSettingValue(const std::wstring& v) {
    return v;
}
