#pragma once

#include <cstdarg>
#include <string>

// Text helpers. Narrow text in the running program is UTF-8; wide text is wchar_t
// (32-bit here). Legacy 8-bit texts read from old files are Windows-1252.

std::string stringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string vStringPrintf(const char* format, va_list args);
std::wstring stringPrintf(const wchar_t* format, ...);
std::wstring vStringPrintf(const wchar_t* format, va_list args);

/// Narrow (UTF-8) to wide. Invalid bytes become U+FFFD.
std::wstring getWCS(const char* text);
std::wstring getWCS(const char* text, std::size_t length);
std::wstring getWCS(const std::string& text);
/// Wide to narrow (UTF-8).
std::string getMBS(const wchar_t* text);
std::string getMBS(const std::wstring& text);

/// UTF-8 encoding of a wide string, and decoding of UTF-8 to wide.
std::string utf8(const std::wstring& text);
std::wstring utf8(const std::string& text);
/// Decodes legacy Windows-1252 bytes (texts of older files).
std::wstring fromWindows1252(const char* text, std::size_t length);
inline std::wstring fromWindows1252(const std::string& text) {
    return fromWindows1252(text.data(), text.size());
}

std::wstring lowercase(const std::wstring& text);
std::wstring uppercase(const std::wstring& text);
/// Removes white space at both ends.
std::wstring trimwhitespace(const std::wstring& text);
bool isUspace(wchar_t c);
bool isUprint(wchar_t c);

/// Parses the whole field of `length` characters as a number, allowing white space
/// around it; false if anything else is there (and `out` is left alone).
bool isDouble(double* out, const wchar_t* text, int length);
bool isLong(long* out, const wchar_t* text, int length);

/// Orders wide strings without regard to case.
struct CaseBlindLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const;
};
/// Compares without regard to case: <0, 0, >0.
int compareCaseBlind(const std::wstring& a, const std::wstring& b);

/// Matches [first, last) against the pattern [pfirst, plast): '*' matches any run of
/// characters, '?' any one. Case-sensitive; lower both sides first for a case-blind test.
template <class It, class PIt> bool cmpwild(It first, It last, PIt pfirst, PIt plast) {
    It star_s = last;
    PIt star_p = plast;
    bool haveStar = false;
    while (first != last) {
        if (pfirst != plast && *pfirst == '*') {
            haveStar = true;
            star_p = ++pfirst;
            star_s = first;
        } else if (pfirst != plast && (*pfirst == '?' || *pfirst == *first)) {
            ++pfirst;
            ++first;
        } else if (haveStar) {
            pfirst = star_p;
            first = ++star_s;
        } else {
            return false;
        }
    }
    while (pfirst != plast && *pfirst == '*') {
        ++pfirst;
    }
    return pfirst == plast;
}
inline bool cmpwild(const std::wstring& text, const std::wstring& pattern) {
    return cmpwild(text.begin(), text.end(), pattern.begin(), pattern.end());
}
