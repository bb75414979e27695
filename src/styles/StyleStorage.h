#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

class SettingsStore;

/// Where tool settings are read from and written to: the keys of one style, by section
/// (the tool's `sectionName`) and key, as text. Tool pages reach it through
/// CToolStyle::currentStorage while a style is applied or stored.
class StyleStorage {
public:
    /// Field bits of a style: which parts of the tool state it carries.
    enum Field : std::uint32_t {
        fieldTool = 1,
        fieldLocks = 2,
        fieldEffect = 4,
        fieldColour = 8,
        fieldTexture = 16,
        fieldGrain = 32,
        fieldBlend = 64,
        fieldFog = 128,
        allFields = 255,
    };

    virtual ~StyleStorage() = default;
    /// The text of a key, or nothing when the style lacks it.
    virtual std::optional<std::wstring> read(const std::wstring& section,
                                             const std::wstring& key) const = 0;
    virtual void write(const std::wstring& section, const std::wstring& key,
                       const std::wstring& value) = 0;
    /// The parts of the tool state that this style sets (Field bits).
    virtual std::uint32_t activeFields() const { return allFields; }
    /// The folder that relative file names in the style are taken against; empty for none.
    virtual std::wstring baseDirectory() const { return std::wstring(); }
    /// True when the keys belong to a library style rather than the user's default style
    /// (some keys, such as a pen's size, are only read from the default style).
    virtual bool isLibraryStyle() const { return false; }
};

/// A style held in memory: for tests and for styles built on the fly.
class MemoryStyleStorage : public StyleStorage {
public:
    std::optional<std::wstring> read(const std::wstring& section,
                                     const std::wstring& key) const override;
    void write(const std::wstring& section, const std::wstring& key,
               const std::wstring& value) override;
    std::uint32_t activeFields() const override { return activeFields_; }
    std::wstring baseDirectory() const override { return baseDirectory_; }
    bool isLibraryStyle() const override { return libraryStyle_; }

    void setActiveFields(std::uint32_t fields) { activeFields_ = fields; }
    void setBaseDirectory(const std::wstring& directory) { baseDirectory_ = directory; }
    void setLibraryStyle(bool library) { libraryStyle_ = library; }
    void remove(const std::wstring& section, const std::wstring& key);
    const std::map<std::pair<std::wstring, std::wstring>, std::wstring>& values() const {
        return values_;
    }

private:
    std::map<std::pair<std::wstring, std::wstring>, std::wstring> values_;
    std::uint32_t activeFields_ = allFields;
    std::wstring baseDirectory_;
    bool libraryStyle_ = false;
};

/// The user's default style in the settings store: a tool's keys go to the section
/// "Settings/DefaultStyle/<section>". Every field is active.
class SettingsStyleStorage : public StyleStorage {
public:
    /// `store` is not owned; null means the process's settings store.
    explicit SettingsStyleStorage(SettingsStore* store = nullptr) : store_(store) {}
    std::optional<std::wstring> read(const std::wstring& section,
                                     const std::wstring& key) const override;
    void write(const std::wstring& section, const std::wstring& key,
               const std::wstring& value) override;

    /// The settings section that holds a tool section's keys.
    static std::wstring settingsSection(const std::wstring& section);

private:
    SettingsStore& store() const;
    SettingsStore* store_;
};
