#include "app/QtSettingsStore.h"

#include "app/AliasTable.h"
#include "app/QtText.h"

namespace {
const QString recentSection = QStringLiteral("Recent File List");

QString joinKey(const std::wstring& section, const std::wstring& key) {
    return toQString(section) + QLatin1Char('/') + toQString(key);
}
} // namespace

QtSettingsStore::QtSettingsStore(const QString& organisation, const QString& application)
    : settings_(std::make_unique<QSettings>(organisation, application)) {}

std::optional<std::wstring> QtSettingsStore::read(const std::wstring& section,
                                                  const std::wstring& key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const QVariant v = settings_->value(joinKey(section, key));
    if (!v.isValid()) {
        return std::nullopt;
    }
    // A value QSettings took for a list (it had commas and no quotes) comes back whole.
    if (v.typeId() == QMetaType::QStringList) {
        return toWString(v.toStringList().join(QLatin1Char(',')));
    }
    return toWString(v.toString());
}

void QtSettingsStore::write(const std::wstring& section, const std::wstring& key,
                            const std::wstring& value) {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_->setValue(joinKey(section, key), toQString(value));
    settings_->sync();
}

void QtSettingsStore::remove(const std::wstring& section, const std::wstring& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_->remove(joinKey(section, key));
    settings_->sync();
}

QStringList QtSettingsStore::keys(const QString& section) const {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_->beginGroup(section);
    const QStringList list = settings_->childKeys();
    settings_->endGroup();
    return list;
}

bool QtSettingsStore::upgradeFrom(const QString& previous) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!settings_->allKeys().isEmpty()) {
        return false;
    }
    QSettings old(settings_->organizationName(), previous);
    const QStringList keys = old.allKeys();
    for (const QString& key : keys) {
        settings_->setValue(key, old.value(key));
    }
    settings_->sync();
    return !keys.isEmpty();
}

void QtSettingsStore::loadAliases(AliasTable& table) const {
    table = AliasTable();
    const QString section = toQString(AliasTable::section);
    for (const QString& name : keys(section)) {
        if (const auto dir = read(AliasTable::section, toWString(name))) {
            table.set(toWString(name), *dir);
        }
    }
}

void QtSettingsStore::saveAliases(const AliasTable& table) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        settings_->remove(toQString(AliasTable::section));
    }
    for (const auto& alias : table.aliases()) {
        write(AliasTable::section, alias.first, alias.second);
    }
}

QStringList QtSettingsStore::recentFiles(const AliasTable& aliases, int count) const {
    QStringList files;
    for (int i = 1; i <= count; ++i) {
        const auto stored = read(toWString(recentSection), L"File" + std::to_wstring(i));
        if (stored && !stored->empty()) {
            files << toQString(aliases.makeAbsolute(*stored));
        }
    }
    return files;
}

void QtSettingsStore::setRecentFiles(const QStringList& files, const AliasTable& aliases) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        settings_->remove(recentSection);
    }
    for (int i = 0; i < files.size(); ++i) {
        write(toWString(recentSection), L"File" + std::to_wstring(i + 1),
              aliases.makeRelative(toWString(files[i])));
    }
}

QString QtSettingsStore::fileName() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return settings_->fileName();
}
