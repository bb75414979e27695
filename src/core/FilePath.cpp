#include "core/FilePath.h"

#include "core/StringUtils.h"

#include <climits>
#include <cstdlib>
#include <unistd.h>
#include <vector>

namespace TQL {
std::FILE* fileOpen(const std::wstring& path, const char* mode) {
    return std::fopen(utf8(path).c_str(), mode);
}
} // namespace TQL

std::wstring getDirectory(const std::wstring& path) {
    const std::size_t slash = path.find_last_of(L'/');
    if (slash == std::wstring::npos) {
        return {};
    }
    if (slash == 0) {
        return L"/";
    }
    return path.substr(0, slash);
}

std::wstring getDirectory(const std::wstring& path, std::wstring& name) {
    const std::size_t slash = path.find_last_of(L'/');
    name = slash == std::wstring::npos ? path : path.substr(slash + 1);
    return getDirectory(path);
}

std::wstring getDirectory(const std::wstring& path, std::wstring& name, std::wstring& extension) {
    std::wstring full;
    std::wstring dir = getDirectory(path, full);
    const std::size_t dot = full.find_last_of(L'.');
    if (dot == std::wstring::npos || dot == 0) {
        name = full;
        extension.clear();
    } else {
        name = full.substr(0, dot);
        extension = full.substr(dot);
    }
    return dir;
}

std::wstring joinDirectory(const std::wstring& directory, const std::wstring& name) {
    if (directory.empty()) {
        return name;
    }
    if (directory.back() == L'/') {
        return directory + name;
    }
    return directory + L'/' + name;
}

namespace {
std::wstring normalise(const std::wstring& absolute) {
    std::vector<std::wstring> parts;
    std::size_t i = 0;
    while (i <= absolute.size()) {
        std::size_t j = absolute.find(L'/', i);
        if (j == std::wstring::npos) {
            j = absolute.size();
        }
        std::wstring part = absolute.substr(i, j - i);
        if (part == L"..") {
            if (!parts.empty()) {
                parts.pop_back();
            }
        } else if (!part.empty() && part != L".") {
            parts.push_back(std::move(part));
        }
        i = j + 1;
    }
    std::wstring out;
    for (const auto& p : parts) {
        out += L'/';
        out += p;
    }
    return out.empty() ? L"/" : out;
}

std::wstring currentDirectory() {
    std::vector<char> buffer(PATH_MAX);
    if (!::getcwd(buffer.data(), buffer.size())) {
        return L"/";
    }
    return utf8(std::string(buffer.data()));
}
} // namespace

std::wstring absoluteFilename(const std::wstring& path) {
    if (path.empty()) {
        return normalise(currentDirectory());
    }
    if (path.front() == L'/') {
        return normalise(path);
    }
    return normalise(currentDirectory() + L'/' + path);
}

std::wstring getLongFilename(const std::wstring& path) {
    const std::wstring absolute = absoluteFilename(path);
    char resolved[PATH_MAX];
    if (::realpath(utf8(absolute).c_str(), resolved)) {
        return utf8(std::string(resolved));
    }
    return absolute;
}

std::wstring abbreviateFilename(const std::wstring& path, int maxCharacters) {
    if (maxCharacters <= 0) {
        return {};
    }
    const std::size_t limit = static_cast<std::size_t>(maxCharacters);
    if (path.size() <= limit) {
        return path;
    }
    std::wstring name;
    getDirectory(path, name);
    const std::wstring dots = L"...";
    if (name.size() + dots.size() + 1 >= limit) {
        // Even the name does not fit: keep its end.
        if (limit <= dots.size()) {
            return name.substr(name.size() - std::min(name.size(), limit));
        }
        return dots + name.substr(name.size() - (limit - dots.size()));
    }
    const std::size_t head = limit - name.size() - dots.size() - 1;
    return path.substr(0, head) + dots + L'/' + name;
}

bool okToAddToAbsolutePath(const std::wstring& text) {
    if (text.empty() || text == L"." || text == L"..") {
        return false;
    }
    for (wchar_t c : text) {
        if (c == L'/' || c == L'\0' || c < 0x20 || c == 0x7F) {
            return false;
        }
    }
    return true;
}

std::wstring build_abs_path(const std::wstring& base, const std::wstring& relative) {
    if (!relative.empty() && relative.front() == L'/') {
        return normalise(relative);
    }
    return absoluteFilename(joinDirectory(base.empty() ? currentDirectory() : base, relative));
}

int analyzeFileType(const std::wstring& path, const std::wstring& extensionList) {
    std::wstring name;
    std::wstring extension;
    getDirectory(path, name, extension);
    if (extension.empty()) {
        return 0;
    }
    int index = 1;
    std::size_t i = 0;
    while (i <= extensionList.size()) {
        std::size_t j = extensionList.find(L'/', i);
        if (j == std::wstring::npos) {
            j = extensionList.size();
        }
        if (compareCaseBlind(extensionList.substr(i, j - i), extension) == 0) {
            return index;
        }
        ++index;
        i = j + 1;
    }
    return 0;
}
