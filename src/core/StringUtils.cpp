#include "core/StringUtils.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <locale.h>
#include <vector>
#include <wctype.h>

std::string vStringPrintf(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n <= 0) {
        return {};
    }
    std::string out(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(out.data(), out.size(), format, args);
    out.resize(static_cast<std::size_t>(n));
    return out;
}

std::string stringPrintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string out = vStringPrintf(format, args);
    va_end(args);
    return out;
}

std::wstring vStringPrintf(const wchar_t* format, va_list args) {
    // vswprintf has no size query: grow until the text fits.
    std::vector<wchar_t> buffer(256);
    for (;;) {
        va_list copy;
        va_copy(copy, args);
        const int n = std::vswprintf(buffer.data(), buffer.size(), format, copy);
        va_end(copy);
        if (n >= 0 && static_cast<std::size_t>(n) < buffer.size()) {
            return std::wstring(buffer.data(), static_cast<std::size_t>(n));
        }
        if (buffer.size() > (1u << 24)) {
            return {};
        }
        buffer.resize(buffer.size() * 4);
    }
}

std::wstring stringPrintf(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring out = vStringPrintf(format, args);
    va_end(args);
    return out;
}

namespace {
constexpr wchar_t replacement = 0xFFFD;

void appendUtf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        c = replacement;
    }
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::wstring decodeUtf8(const unsigned char* s, std::size_t n) {
    std::wstring out;
    out.reserve(n);
    std::size_t i = 0;
    while (i < n) {
        const unsigned char b = s[i];
        if (b < 0x80) {
            out += static_cast<wchar_t>(b);
            ++i;
            continue;
        }
        int extra = 0;
        char32_t c = 0;
        char32_t min = 0;
        if ((b & 0xE0) == 0xC0) {
            extra = 1, c = b & 0x1F, min = 0x80;
        } else if ((b & 0xF0) == 0xE0) {
            extra = 2, c = b & 0x0F, min = 0x800;
        } else if ((b & 0xF8) == 0xF0) {
            extra = 3, c = b & 0x07, min = 0x10000;
        } else {
            out += replacement;
            ++i;
            continue;
        }
        bool good = true;
        std::size_t j = 1;
        for (; good && j <= static_cast<std::size_t>(extra); ++j) {
            if (i + j >= n || (s[i + j] & 0xC0) != 0x80) {
                good = false;
                break;
            }
            c = (c << 6) | (s[i + j] & 0x3F);
        }
        if (!good || c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
            out += replacement;
            i += (j > 1 ? j : 1);
            continue;
        }
        out += static_cast<wchar_t>(c);
        i += static_cast<std::size_t>(extra) + 1;
    }
    return out;
}
} // namespace

std::string utf8(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text) {
        appendUtf8(out, static_cast<char32_t>(c));
    }
    return out;
}

std::wstring utf8(const std::string& text) {
    return decodeUtf8(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

std::wstring getWCS(const char* text) {
    return text ? utf8(std::string(text)) : std::wstring();
}
std::wstring getWCS(const char* text, std::size_t length) {
    return text ? decodeUtf8(reinterpret_cast<const unsigned char*>(text), length) : std::wstring();
}
std::wstring getWCS(const std::string& text) {
    return utf8(text);
}
std::string getMBS(const wchar_t* text) {
    return text ? utf8(std::wstring(text)) : std::string();
}
std::string getMBS(const std::wstring& text) {
    return utf8(text);
}

std::wstring fromWindows1252(const char* text, std::size_t length) {
    // 0x80..0x9F differ from Latin-1; the five undefined codes map to themselves.
    static constexpr char16_t high[32] = {
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    std::wstring out;
    out.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned char b = static_cast<unsigned char>(text[i]);
        out += (b >= 0x80 && b < 0xA0) ? static_cast<wchar_t>(high[b - 0x80])
                                       : static_cast<wchar_t>(b);
    }
    return out;
}

namespace {
/// Case mapping must not depend on the process locale (which is "C" unless the program
/// sets one): names such as materials compare case-blind in every language.
locale_t unicodeLocale() {
    static const locale_t loc = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
    return loc;
}
wchar_t lowerChar(wchar_t c) {
    if (c < 0x80) {
        return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + 32) : c;
    }
    const locale_t loc = unicodeLocale();
    return static_cast<wchar_t>(loc ? towlower_l(static_cast<wint_t>(c), loc)
                                    : std::towlower(static_cast<wint_t>(c)));
}
wchar_t upperChar(wchar_t c) {
    if (c < 0x80) {
        return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c;
    }
    const locale_t loc = unicodeLocale();
    return static_cast<wchar_t>(loc ? towupper_l(static_cast<wint_t>(c), loc)
                                    : std::towupper(static_cast<wint_t>(c)));
}
} // namespace

std::wstring lowercase(const std::wstring& text) {
    std::wstring out(text);
    for (wchar_t& c : out) {
        c = lowerChar(c);
    }
    return out;
}

std::wstring uppercase(const std::wstring& text) {
    std::wstring out(text);
    for (wchar_t& c : out) {
        c = upperChar(c);
    }
    return out;
}

bool isUspace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r' || c == L'\v' || c == L'\f' ||
           c == 0xA0 || std::iswspace(static_cast<wint_t>(c));
}

bool isUprint(wchar_t c) {
    if (c < 0x20 || c == 0x7F || (c >= 0x80 && c < 0xA0)) {
        return false;
    }
    return c < 0x80 ? true : (std::iswprint(static_cast<wint_t>(c)) || c >= 0xA0);
}

std::wstring trimwhitespace(const std::wstring& text) {
    std::size_t b = 0;
    std::size_t e = text.size();
    while (b < e && isUspace(text[b])) {
        ++b;
    }
    while (e > b && isUspace(text[e - 1])) {
        --e;
    }
    return text.substr(b, e - b);
}

namespace {
/// The field as a trimmed string, or false if it holds a NUL.
bool fieldText(const wchar_t* text, int length, std::wstring& field) {
    if (!text || length < 0) {
        return false;
    }
    field.assign(text, static_cast<std::size_t>(length));
    if (field.find(L'\0') != std::wstring::npos) {
        return false;
    }
    field = trimwhitespace(field);
    return !field.empty();
}
} // namespace

bool isDouble(double* out, const wchar_t* text, int length) {
    std::wstring field;
    if (!fieldText(text, length, field)) {
        return false;
    }
    wchar_t* end = nullptr;
    errno = 0;
    const double v = std::wcstod(field.c_str(), &end);
    if (end != field.c_str() + field.size() || errno == ERANGE) {
        return false;
    }
    if (out) {
        *out = v;
    }
    return true;
}

bool isLong(long* out, const wchar_t* text, int length) {
    std::wstring field;
    if (!fieldText(text, length, field)) {
        return false;
    }
    wchar_t* end = nullptr;
    errno = 0;
    const long v = std::wcstol(field.c_str(), &end, 10);
    if (end != field.c_str() + field.size() || errno == ERANGE) {
        return false;
    }
    if (out) {
        *out = v;
    }
    return true;
}

int compareCaseBlind(const std::wstring& a, const std::wstring& b) {
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        const wchar_t x = lowerChar(a[i]);
        const wchar_t y = lowerChar(b[i]);
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

bool CaseBlindLess::operator()(const std::wstring& a, const std::wstring& b) const {
    return compareCaseBlind(a, b) < 0;
}
