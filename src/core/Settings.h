#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

/// The persistent key-value store of preferences. The engine reads and writes through
/// this interface; the application backs it with its settings file, tests and the
/// command-line tool with an in-memory store. Keys are grouped by section ("Settings").
class SettingsStore {
public:
    virtual ~SettingsStore() = default;
    /// The stored text of a key, or nothing if the key is not stored.
    virtual std::optional<std::wstring> read(const std::wstring& section,
                                             const std::wstring& key) const = 0;
    virtual void write(const std::wstring& section, const std::wstring& key,
                       const std::wstring& value) = 0;
    virtual void remove(const std::wstring& section, const std::wstring& key) = 0;
};

/// A store held in memory: the default until the application installs its own.
class MemorySettingsStore : public SettingsStore {
public:
    std::optional<std::wstring> read(const std::wstring& section,
                                     const std::wstring& key) const override;
    void write(const std::wstring& section, const std::wstring& key,
               const std::wstring& value) override;
    void remove(const std::wstring& section, const std::wstring& key) override;

private:
    mutable std::mutex mutex_;
    std::map<std::pair<std::wstring, std::wstring>, std::wstring> values_;
};

namespace TQL {
/// The process-wide store (not owned). Never null: an in-memory store stands in until
/// setSettingsStore is called. Setting null restores that stand-in.
SettingsStore& settingsStore();
void setSettingsStore(SettingsStore* store);
} // namespace TQL

/// A typed setting read lazily from the store under section "Settings": the first
/// read loads it, later reads use the cached value; a write stores only when the value
/// changes or was not known to be stored.
template <class T> class Setting {
public:
    enum State { notRead = 0, defaultInForce = 1, valueKnown = 2 };

    Setting(const wchar_t* key, T defaultValue)
        : key_(key), value_(defaultValue), default_(defaultValue) {}

    /// Loads the value on first use; returns true if it is stored.
    bool read();
    /// The value, read first if need be.
    const T& value() {
        read();
        return value_;
    }
    void write(const T& v);
    /// Forgets the cached value, so the next read goes to the store again.
    void invalidate() {
        state_ = notRead;
        value_ = default_;
    }
    State state() const { return state_; }
    const wchar_t* key() const { return key_; }

private:
    const wchar_t* key_;
    T value_;
    T default_;
    State state_ = notRead;
};

/// Text forms of setting values: integers "%d", doubles "%.16f", strings as they are.
bool parseSettingValue(const std::wstring& text, int& out);
bool parseSettingValue(const std::wstring& text, double& out);
bool parseSettingValue(const std::wstring& text, std::wstring& out);
std::wstring formatSettingValue(int v);
std::wstring formatSettingValue(double v);
std::wstring formatSettingValue(const std::wstring& v);

template <class T> bool Setting<T>::read() {
    if (state_ != notRead) {
        return state_ == valueKnown;
    }
    T v;
    const auto text = TQL::settingsStore().read(L"Settings", key_);
    if (text && parseSettingValue(*text, v)) {
        value_ = v;
        state_ = valueKnown;
        return true;
    }
    value_ = default_;
    state_ = defaultInForce;
    return false;
}

template <class T> void Setting<T>::write(const T& v) {
    if (state_ == valueKnown && v == value_) {
        return;
    }
    TQL::settingsStore().write(L"Settings", key_, formatSettingValue(v));
    value_ = v;
    state_ = valueKnown;
}

using IntSetting = Setting<int>;
using DoubleSetting = Setting<double>;
using StringSetting = Setting<std::wstring>;
