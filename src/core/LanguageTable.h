#pragma once

#include "core/Status.h"

#include <map>
#include <string>

/// Numbered user-visible texts loaded from a language file: UTF-8, one entry a line as
/// `number<TAB>text`, with "\n", "\t" and "\\" escapes in the text; a line "version<TAB>..."
/// gives the file's version text; blank lines and lines starting with '#' are skipped.
class LanguageTable : public StringTable {
public:
    /// Reads a language file; -24 if it is missing, -2 if a line is malformed.
    [[nodiscard]] Status load(const std::wstring& path);
    /// Parses the contents of a language file.
    [[nodiscard]] Status parse(const std::string& text);

    bool lookup(int id, std::wstring& text) const override;
    const std::wstring& version() const { return version_; }
    std::size_t size() const { return strings_.size(); }

    /// Where the language file of the program is: beside the executable (data/lang or
    /// ../share/quorvale/lang) or in the source tree; empty if none exists.
    static std::wstring findDefault(const std::wstring& executablePath,
                                    const wchar_t* language = L"en");

private:
    std::map<int, std::wstring> strings_;
    std::wstring version_;
};
