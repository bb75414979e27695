#include "app/AliasTable.h"

namespace {

std::wstring withoutTrailingSlash(std::wstring dir) {
    while (dir.size() > 1 && dir.back() == L'/') {
        dir.pop_back();
    }
    return dir;
}

/// True if `path` is `dir` or lies under it.
bool contains(const std::wstring& dir, const std::wstring& path) {
    if (path.compare(0, dir.size(), dir) != 0) {
        return false;
    }
    return path.size() == dir.size() || dir == L"/" || path[dir.size()] == L'/';
}

} // namespace

bool AliasTable::set(const std::wstring& name, const std::wstring& directory) {
    if (name.empty() || name.find_first_of(L"()/") != std::wstring::npos || directory.empty() ||
        directory[0] != L'/') {
        return false;
    }
    aliases_[name] = withoutTrailingSlash(directory);
    return true;
}

bool AliasTable::remove(const std::wstring& name) {
    return aliases_.erase(name) > 0;
}

std::wstring AliasTable::makeRelative(const std::wstring& path) const {
    const std::pair<const std::wstring, std::wstring>* best = nullptr;
    for (const auto& alias : aliases_) {
        if (contains(alias.second, path) && (!best || alias.second.size() > best->second.size())) {
            best = &alias;
        }
    }
    if (!best) {
        return path;
    }
    std::wstring rest = path.substr(best->second.size());
    if (best->second == L"/" && !rest.empty()) {
        rest.insert(rest.begin(), L'/');
    }
    return L"$(" + best->first + L")" + rest;
}

std::wstring AliasTable::makeAbsolute(const std::wstring& path) const {
    if (isAbsolute(path)) {
        return path;
    }
    const std::size_t close = path.find(L')');
    if (close == std::wstring::npos) {
        return path;
    }
    const auto it = aliases_.find(path.substr(2, close - 2));
    if (it == aliases_.end()) {
        return path;
    }
    std::wstring rest = path.substr(close + 1);
    if (it->second == L"/" && !rest.empty() && rest[0] == L'/') {
        rest.erase(0, 1);
    }
    return it->second + rest;
}

bool AliasTable::isAbsolute(const std::wstring& path) {
    return path.compare(0, 2, L"$(") != 0;
}
