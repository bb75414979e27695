#pragma once

#include "core/Settings.h"

#include <QSettings>
#include <QString>
#include <QStringList>

#include <memory>
#include <mutex>

class AliasTable;

/// The settings store of the application: QSettings of the organisation and application
/// given (an INI file under the user's configuration directory). A section and a key
/// become the QSettings key "section/key", so "Settings/UndoBufferKB" stays as it is
/// named. Every write is flushed at once, so a second program sees it.
class QtSettingsStore : public SettingsStore {
public:
    QtSettingsStore(const QString& organisation, const QString& application);

    std::optional<std::wstring> read(const std::wstring& section,
                                     const std::wstring& key) const override;
    void write(const std::wstring& section, const std::wstring& key,
               const std::wstring& value) override;
    void remove(const std::wstring& section, const std::wstring& key) override;

    /// The keys stored directly under `section`.
    QStringList keys(const QString& section) const;

    /// When this version has no keys yet, copies every value of the previous version
    /// (same organisation, application `previous`), its style libraries included. True if
    /// anything was copied.
    bool upgradeFrom(const QString& previous);

    /// The path aliases under AliasTable::section.
    void loadAliases(AliasTable& table) const;
    void saveAliases(const AliasTable& table);

    /// The recent file list, newest first, at most `count` entries; stored through the
    /// aliases (makeRelative), read back through them (makeAbsolute).
    QStringList recentFiles(const AliasTable& aliases, int count) const;
    void setRecentFiles(const QStringList& files, const AliasTable& aliases);

    /// The file the settings are kept in.
    QString fileName() const;

private:
    mutable std::mutex mutex_;
    std::unique_ptr<QSettings> settings_;
};
