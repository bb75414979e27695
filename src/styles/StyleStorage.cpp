#include "styles/StyleStorage.h"

#include "core/Settings.h"

std::optional<std::wstring> MemoryStyleStorage::read(const std::wstring& section,
                                                     const std::wstring& key) const {
    const auto it = values_.find({section, key});
    if (it == values_.end()) {
        return std::nullopt;
    }
    return it->second;
}

void MemoryStyleStorage::write(const std::wstring& section, const std::wstring& key,
                               const std::wstring& value) {
    values_[{section, key}] = value;
}

void MemoryStyleStorage::remove(const std::wstring& section, const std::wstring& key) {
    values_.erase({section, key});
}

std::wstring SettingsStyleStorage::settingsSection(const std::wstring& section) {
    return L"Settings/DefaultStyle/" + section;
}

SettingsStore& SettingsStyleStorage::store() const {
    return store_ ? *store_ : TQL::settingsStore();
}

std::optional<std::wstring> SettingsStyleStorage::read(const std::wstring& section,
                                                       const std::wstring& key) const {
    return store().read(settingsSection(section), key);
}

void SettingsStyleStorage::write(const std::wstring& section, const std::wstring& key,
                                 const std::wstring& value) {
    store().write(settingsSection(section), key, value);
}
