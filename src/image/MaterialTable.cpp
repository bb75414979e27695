#include "image/MaterialTable.h"

#include "core/Status.h"
#include "core/StringUtils.h"

#include <algorithm>

namespace {

const std::wstring& noName() {
    static const std::wstring empty;
    return empty;
}

const MatHotLink& noHotLink() {
    static const MatHotLink empty;
    return empty;
}

/// The format of string 10131 must take a text and then a number, and nothing else.
bool isNameNumberFormat(const std::wstring& format) {
    const auto text = format.find(L"%ls");
    const auto number = format.find(L"%d");
    if (text == std::wstring::npos || number == std::wstring::npos || number < text) {
        return false;
    }
    std::size_t conversions = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == L'%') {
            if (i + 1 < format.size() && format[i + 1] == L'%') {
                ++i;
            } else {
                ++conversions;
            }
        }
    }
    return conversions == 2;
}

} // namespace

const MaterialRecord* MaterialTable::record(MaterialId id) const {
    const auto it = records_.find(id);
    return it == records_.end() ? nullptr : &it->second;
}

MaterialId MaterialTable::lastId() const {
    return records_.empty() ? 0 : records_.rbegin()->first;
}

bool MaterialTable::exists(MaterialId id) const {
    const MaterialRecord* entry = record(id);
    return entry && !entry->deleted;
}

bool MaterialTable::isDeleted(MaterialId id) const {
    const MaterialRecord* entry = record(id);
    return entry && entry->deleted;
}

ColourPOD MaterialTable::colour(MaterialId id) const {
    if (id < palette_.size()) {
        return palette_[id];
    }
    const MaterialRecord* entry = record(id);
    return entry ? entry->colour : ColourPOD{};
}

const std::wstring& MaterialTable::name(MaterialId id) const {
    const MaterialRecord* entry = record(id);
    return entry ? entry->name : noName();
}

const MatHotLink& MaterialTable::hotLink(MaterialId id) const {
    const MaterialRecord* entry = record(id);
    return entry ? entry->hotLink : noHotLink();
}

MaterialId MaterialTable::idOf(const std::wstring& name, MaterialId excludingId) const {
    for (const auto& [id, entry] : records_) {
        if (id != excludingId && !entry.deleted && compareCaseBlind(entry.name, name) == 0) {
            return id;
        }
    }
    return 0;
}

bool MaterialTable::match(std::vector<MaterialId>& ids, const std::wstring& pattern,
                          MaterialId excludingId) const {
    ids.clear();
    const std::wstring lowered = lowercase(pattern);
    for (const auto& [id, entry] : records_) {
        if (id != excludingId && !entry.deleted && cmpwild(lowercase(entry.name), lowered)) {
            ids.push_back(id);
        }
    }
    return !ids.empty();
}

bool MaterialTable::set(MaterialId id, const std::wstring& name, ColourPOD colour, bool implicit,
                        const std::wstring& secondName) {
    if (id == 0) {
        return false;
    }
    const MaterialRecord* existing = record(id);
    if (existing && !existing->deleted && !existing->implicit && implicit) {
        return false;
    }
    MaterialRecord& entry = records_[id];
    entry.name = name;
    entry.secondName = secondName;
    entry.colour = colour;
    entry.implicit = implicit ? 1 : 0;
    entry.deleted = 0;
    if (!implicit) {
        used_.insert(id);
    }
    paint(id, colour);
    changed();
    return true;
}

bool MaterialTable::rename(MaterialId id, const std::wstring& name, ColourPOD colour) {
    const auto it = records_.find(id);
    if (it == records_.end()) {
        return false;
    }
    it->second.name = name;
    it->second.colour = colour;
    paint(id, colour);
    changed();
    return true;
}

MaterialId MaterialTable::add(const std::wstring& name, ColourPOD colour, bool implicit,
                              const std::wstring& secondName) {
    // The lowest id that no record, live or deleted, holds.
    std::uint32_t id = 1;
    for (const auto& entry : records_) {
        if (entry.first != id) {
            break;
        }
        ++id;
    }
    if (id > 0xFFFF) {
        return 0;
    }
    std::wstring unique = name;
    if (!implicit) {
        for (int n = 1; idOf(unique) != 0; ++n) {
            unique = name + stringPrintf(L" %d", n);
        }
    }
    set(static_cast<MaterialId>(id), unique, colour, implicit, secondName);
    return static_cast<MaterialId>(id);
}

bool MaterialTable::remove(MaterialId id) {
    const auto it = records_.find(id);
    if (it == records_.end()) {
        return false;
    }
    if (it->second.users > 0) {
        it->second.deleted = 1;
    } else {
        records_.erase(it);
        paint(id, ColourPOD{});
    }
    used_.erase(id);
    changed();
    return true;
}

bool MaterialTable::changeUsers(MaterialId id, std::int32_t delta) {
    const auto it = records_.find(id);
    if (it == records_.end()) {
        return false;
    }
    it->second.users = std::max(0, it->second.users + delta);
    if (it->second.deleted && it->second.users == 0) {
        records_.erase(it);
        paint(id, ColourPOD{});
        changed();
    }
    return true;
}

bool MaterialTable::setHotLink(MaterialId id, const MatHotLink& link) {
    const auto it = records_.find(id);
    if (it == records_.end()) {
        return false;
    }
    it->second.hotLink = link;
    changed();
    return true;
}

void MaterialTable::restore(MaterialId id, const MaterialRecord* from) {
    if (!from) {
        remove(id);
        return;
    }
    if (id == 0) {
        return;
    }
    MaterialRecord& entry = records_[id];
    entry.name = from->name;
    entry.secondName = from->secondName;
    entry.hotLink = from->hotLink;
    entry.colour = from->colour;
    entry.implicit = from->implicit;
    entry.deleted = 0;
    if (entry.implicit) {
        used_.erase(id);
    } else {
        used_.insert(id);
    }
    paint(id, from->colour);
    changed();
}

void MaterialTable::makeNamesUnique() {
    std::wstring format = TQL::loadString(10131);
    if (!isNameNumberFormat(format)) {
        format = L"%ls %d";
    }
    // Groups of live materials by name without case, each in order of id.
    std::map<std::wstring, std::vector<MaterialId>> groups;
    for (const auto& [id, entry] : records_) {
        if (!entry.deleted) {
            groups[lowercase(entry.name)].push_back(id);
        }
    }
    bool renamed = false;
    for (const auto& [key, ids] : groups) {
        if (ids.size() < 2) {
            continue;
        }
        for (std::size_t i = 0; i < ids.size(); ++i) {
            MaterialRecord& entry = records_[ids[i]];
            if (i == 0 && !entry.hotLink.empty()) {
                continue;
            }
            const std::wstring base = entry.name;
            std::wstring candidate;
            for (int n = 1;; ++n) {
                candidate = stringPrintf(format.c_str(), base.c_str(), n);
                if (idOf(candidate) == 0) {
                    break;
                }
            }
            entry.name = candidate;
            renamed = true;
        }
    }
    if (renamed) {
        changed();
    }
}

void MaterialTable::clear() {
    records_.clear();
    used_.clear();
    palette_.fill(ColourPOD{});
    changed();
}
