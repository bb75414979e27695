#include "core/LanguageTable.h"

#include "core/FilePath.h"
#include "core/StringUtils.h"

#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace {
std::wstring unescape(const std::wstring& s) {
    std::wstring out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == L'\\' && i + 1 < s.size()) {
            const wchar_t c = s[++i];
            out += c == L'n' ? L'\n' : c == L't' ? L'\t' : c;
        } else {
            out += s[i];
        }
    }
    return out;
}

bool isFile(const std::wstring& path) {
    struct stat st {};
    return ::stat(utf8(path).c_str(), &st) == 0 && S_ISREG(st.st_mode);
}
} // namespace

Status LanguageTable::parse(const std::string& text) {
    std::map<int, std::wstring> strings;
    std::wstring version;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const std::size_t tab = line.find('\t');
        if (tab == std::string::npos) {
            return status::damaged;
        }
        const std::wstring key = utf8(line.substr(0, tab));
        const std::wstring value = unescape(utf8(line.substr(tab + 1)));
        if (key == L"version") {
            version = value;
            continue;
        }
        long id = 0;
        if (!isLong(&id, key.c_str(), static_cast<int>(key.size()))) {
            return status::damaged;
        }
        strings[static_cast<int>(id)] = value;
    }
    strings_ = std::move(strings);
    version_ = std::move(version);
    return status::ok;
}

Status LanguageTable::load(const std::wstring& path) {
    std::ifstream file(utf8(path), std::ios::binary);
    if (!file) {
        return status::notFound;
    }
    std::ostringstream content;
    content << file.rdbuf();
    return parse(content.str());
}

bool LanguageTable::lookup(int id, std::wstring& text) const {
    auto it = strings_.find(id);
    if (it == strings_.end()) {
        return false;
    }
    text = it->second;
    return true;
}

std::wstring LanguageTable::findDefault(const std::wstring& executablePath,
                                        const wchar_t* language) {
    const std::wstring file = std::wstring(L"quores-") + language + L".txt";
    const std::wstring dir = getDirectory(getLongFilename(executablePath));
    const std::wstring candidates[] = {
        joinDirectory(joinDirectory(dir, L"data/lang"), file),
        joinDirectory(joinDirectory(dir, L"../share/quorvale/lang"), file),
        joinDirectory(utf8(std::string(QUORVALE_SOURCE_DATA_DIR "/lang")), file),
    };
    for (const auto& c : candidates) {
        if (isFile(c)) {
            return absoluteFilename(c);
        }
    }
    return {};
}
