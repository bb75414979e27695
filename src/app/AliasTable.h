#pragma once

#include <map>
#include <string>

/// Named directories, so that stored paths survive a move of the user's folders: a path
/// under an alias's directory is stored as "$(Name)/rest" and read back through the
/// directory the alias has now. Kept in the settings under "Shared/PathAliases", one key
/// an alias with its directory as the value. Names are compared exactly.
class AliasTable {
public:
    /// Adds or replaces an alias. False (and nothing changes) for a name that is empty or
    /// holds '(', ')' or '/', or a directory that isn't absolute.
    bool set(const std::wstring& name, const std::wstring& directory);
    bool remove(const std::wstring& name);
    const std::map<std::wstring, std::wstring>& aliases() const { return aliases_; }

    /// `path` with the longest alias directory that contains it replaced by "$(Name)";
    /// unchanged if no alias contains it.
    std::wstring makeRelative(const std::wstring& path) const;
    /// A stored path made usable: "$(Name)/rest" becomes the alias's directory with the
    /// rest; anything else, or an alias that is no longer known, is returned as it is.
    std::wstring makeAbsolute(const std::wstring& path) const;
    /// True if `path` needs no alias to be used: it doesn't begin with "$(".
    static bool isAbsolute(const std::wstring& path);

    /// The settings section of the table.
    static constexpr const wchar_t* section = L"Shared/PathAliases";

private:
    std::map<std::wstring, std::wstring> aliases_;
};
