#include "interchange/dxf/DXFStream.h"

#include "core/StringUtils.h"
#include "interchange/model/ExportError.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && isSpace(s.front())) {
        s.remove_prefix(1);
    }
    while (!s.empty() && isSpace(s.back())) {
        s.remove_suffix(1);
    }
    return s;
}

/// The text of a number: white space trimmed and a leading '+' dropped (from_chars
/// takes only '-').
std::string_view numberText(std::string_view s) {
    s = trim(s);
    if (!s.empty() && s.front() == '+') {
        s.remove_prefix(1);
    }
    return s;
}

/// Parses the whole of `s` (after trimming) as a base-10 integer.
bool parseLong(std::string_view s, long& out) {
    s = numberText(s);
    const auto r = std::from_chars(s.data(), s.data() + s.size(), out, 10);
    return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size();
}

/// Parses the whole of `s` (after trimming) as a finite decimal number.
bool parseDouble(std::string_view s, double& out) {
    s = numberText(s);
    double v = 0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v, std::chars_format::general);
    if (s.empty() || r.ec != std::errc() || r.ptr != s.data() + s.size() || !std::isfinite(v)) {
        return false;
    }
    out = v;
    return true;
}

/// A group code: digits with spaces before them (a '-' or '+' sign is allowed). The line
/// has no white space at its end. Codes are short, so this beats the general parse.
bool parseCode(std::string_view s, long& out) {
    std::size_t i = 0;
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) {
        ++i;
    }
    bool negative = false;
    if (i < s.size() && (s[i] == '-' || s[i] == '+')) {
        negative = s[i] == '-';
        ++i;
    }
    if (i == s.size() || s.size() - i > 9) {
        return parseLong(s, out); // long or empty: the general parse decides
    }
    long v = 0;
    for (; i < s.size(); ++i) {
        const unsigned d = static_cast<unsigned char>(s[i]) - '0';
        if (d > 9) {
            return false;
        }
        v = v * 10 + static_cast<long>(d);
    }
    out = negative ? -v : v;
    return true;
}

bool isIntegerType(DXFDatatype t) {
    return t == DXFDatatype::Int16 || t == DXFDatatype::Int32 || t == DXFDatatype::Int;
}

/// Binary chunks are written as a length byte and raw bytes in the binary form.
bool isBinaryChunk(int code) {
    return (code >= 310 && code <= 319) || code == 1004;
}

std::uint64_t readLittleEndian(const unsigned char* p, std::size_t n) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < n; ++i) {
        v |= std::uint64_t(p[i]) << (8 * i);
    }
    return v;
}

} // namespace

namespace {

/// The datatype of each code from 0 to the last one that has one, from the value types of
/// the published group code ranges.
struct DatatypeTable {
    static constexpr int size = 1072;
    DXFDatatype type[size];
    constexpr DatatypeTable() : type{} {
        using T = DXFDatatype;
        struct Range {
            int first, last;
            T type;
        };
        constexpr Range ranges[] = {
            {0, 9, T::Text},        {10, 59, T::Double},    {60, 79, T::Int16},
            {90, 99, T::Int32},     {100, 102, T::Text},    {105, 105, T::Text},
            {110, 149, T::Double},  {160, 169, T::Int},     {170, 179, T::Int16},
            {210, 239, T::Double},  {270, 289, T::Int16},   {290, 299, T::Int},
            {300, 369, T::Text},    {370, 389, T::Int16},   {390, 399, T::Text},
            {400, 409, T::Int16},   {410, 419, T::Text},    {420, 429, T::Int32},
            {430, 439, T::Text},    {440, 459, T::Int32},   {460, 469, T::Double},
            {470, 481, T::Text},    {999, 1009, T::Text},   {1010, 1059, T::Double},
            {1060, 1070, T::Int16}, {1071, 1071, T::Int32},
        };
        for (const Range& r : ranges) {
            for (int c = r.first; c <= r.last; ++c) {
                type[c] = r.type;
            }
        }
    }
};
constexpr DatatypeTable datatypes;

} // namespace

DXFDatatype dxfDatatype(int code) {
    return code >= 0 && code < DatatypeTable::size ? datatypes.type[code] : DXFDatatype::None;
}

const wchar_t* dxfDatatypeName(DXFDatatype type) {
    switch (type) {
    case DXFDatatype::None:
        return L"None";
    case DXFDatatype::Int16:
        return L"Int16";
    case DXFDatatype::Int32:
        return L"Int32";
    case DXFDatatype::Int:
        return L"Int";
    case DXFDatatype::Double:
        return L"Double";
    case DXFDatatype::Text:
        return L"Text";
    }
    return L"None";
}

double DXFItem::asDouble() const {
    if (parsed_) {
        return number_;
    }
    if (datatype == DXFDatatype::Double) {
        if (!parseDouble(text, number_)) {
            source->fail(L"Error reading double item value", line + 1);
        }
    } else if (isIntegerType(datatype)) {
        long v = 0;
        if (!parseLong(text, v)) {
            source->fail(L"Error reading integer item value", line + 1);
        }
        number_ = static_cast<double>(v);
    } else {
        source->fail(L"Bad DXF group: item <Double> needed", line);
    }
    parsed_ = true;
    return number_;
}

long DXFItem::asInt() const {
    if (!parsed_ && isIntegerType(datatype)) {
        long v = 0;
        if (!parseLong(text, v)) {
            source->fail(L"Error reading integer item value", line + 1);
        }
        number_ = static_cast<double>(v);
        parsed_ = true;
        return v;
    }
    if (!parsed_ && datatype != DXFDatatype::Double) {
        source->fail(L"Bad DXF group: item <Int> needed", line);
    }
    const double d = asDouble();
    constexpr double lo = static_cast<double>(std::numeric_limits<long>::min());
    constexpr double hi = static_cast<double>(std::numeric_limits<long>::max());
    return d <= lo   ? std::numeric_limits<long>::min()
           : d >= hi ? std::numeric_limits<long>::max()
                     : static_cast<long>(d);
}

std::string_view DXFItem::trimmed() const {
    return trim(text);
}

std::wstring DXFItem::describe() const {
    std::wstring value;
    if (datatype == DXFDatatype::Text || !parsed_) {
        value = getWCS(std::string(trimmed()));
    } else {
        value = stringPrintf(L"%.17g", number_);
    }
    return stringPrintf(L"Group @%ld: %d %ls", line, static_cast<int>(code), value.c_str());
}

bool DXFStream::readCode(DXFItem& item) {
    if (hasPending_) {
        item = pending_;
        hasPending_ = false;
        pendingValueRead_ = true;
        return true;
    }
    pendingValueRead_ = false;
    item.source = this;
    item.clearNumber();
    item.text = {};
    return nextCode(item);
}

void DXFStream::readValue(DXFItem& item) {
    if (pendingValueRead_) {
        pendingValueRead_ = false;
        return;
    }
    nextValue(item);
}

void DXFStream::skipValue(const DXFItem& item) {
    if (pendingValueRead_) {
        pendingValueRead_ = false;
        return;
    }
    passValue(item);
}

bool DXFStream::read(DXFItem& item) {
    if (!readCode(item)) {
        return false;
    }
    readValue(item);
    return true;
}

void DXFStream::unread(const DXFItem& item) {
    pending_ = item;
    hasPending_ = true;
}

void DXFStream::fail(const std::wstring& message, long line) const {
    throw ExportError(message, line, fileName_);
}

DXFAsciiStream::DXFAsciiStream(std::span<const unsigned char> data, std::wstring fileName)
    : DXFStream(std::move(fileName)),
      data_(reinterpret_cast<const char*>(data.data()), data.size()) {
    // A UTF-8 byte order mark is not part of the first line.
    if (data_.starts_with("\xEF\xBB\xBF")) {
        pos_ = 3;
    }
}

bool DXFAsciiStream::nextLine(std::string_view& line) {
    if (pos_ >= data_.size()) {
        return false;
    }
    const char* start = data_.data() + pos_;
    const std::size_t left = data_.size() - pos_;
    const void* nl = std::memchr(start, '\n', left);
    const std::size_t len = nl ? static_cast<const char*>(nl) - start : left;
    pos_ += nl ? len + 1 : len;
    ++line_;
    line = std::string_view(start, len);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) {
        line.remove_suffix(1);
    }
    return true;
}

bool DXFAsciiStream::nextCode(DXFItem& item) {
    std::string_view codeLine;
    if (!nextLine(codeLine)) {
        return false;
    }
    item.line = line_;
    long code = 0;
    if (!parseCode(codeLine, code)) {
        fail(L"Error reading group-code", line_);
    }
    item.datatype =
        code < 0 || code > 32767 ? DXFDatatype::None : dxfDatatype(static_cast<int>(code));
    if (item.datatype == DXFDatatype::None) {
        fail(stringPrintf(L"Illegal datatype code %ld", code), line_);
    }
    item.code = static_cast<std::int16_t>(code);
    return true;
}

void DXFAsciiStream::nextValue(DXFItem& item) {
    if (!nextLine(item.text)) {
        fail(L"Error reading group-value", line_ + 1);
    }
}

void DXFAsciiStream::passValue(const DXFItem&) {
    std::string_view ignored;
    if (!nextLine(ignored)) {
        fail(L"Error reading group-value", line_ + 1);
    }
}

DXFBinaryStream::DXFBinaryStream(std::span<const unsigned char> data, std::wstring fileName)
    : DXFBinaryStream(data, std::move(fileName),
                      data.size() >= sentinel.size() + 2 && data[sentinel.size()] == 0 &&
                          data[sentinel.size() + 1] == 0) {}

DXFBinaryStream::DXFBinaryStream(std::span<const unsigned char> data, std::wstring fileName,
                                 bool twoByteCodes)
    : DXFStream(std::move(fileName)), data_(data), pos_(std::min(data.size(), sentinel.size())),
      twoByteCodes_(twoByteCodes) {}

bool DXFBinaryStream::nextCode(DXFItem& item) {
    if (pos_ >= data_.size()) {
        return false;
    }
    item.line = 2 * groups_ + 1;
    ++groups_;
    const std::size_t left = data_.size() - pos_;
    int code;
    if (twoByteCodes_) {
        if (left < 2) {
            fail(L"Error reading group-code", item.line);
        }
        code = static_cast<std::int16_t>(readLittleEndian(&data_[pos_], 2));
        pos_ += 2;
    } else if (data_[pos_] == 255) {
        if (left < 3) {
            fail(L"Error reading group-code", item.line);
        }
        code = static_cast<std::int16_t>(readLittleEndian(&data_[pos_ + 1], 2));
        pos_ += 3;
    } else {
        code = data_[pos_];
        pos_ += 1;
    }
    item.datatype = dxfDatatype(code);
    if (item.datatype == DXFDatatype::None) {
        throw ExportError(
            stringPrintf(L"Unexpected datatype from item-code, at line %ld", item.line),
            fileName());
    }
    item.code = static_cast<std::int16_t>(code);
    return true;
}

std::size_t DXFBinaryStream::valueSize(const DXFItem& item) const {
    switch (item.datatype) {
    case DXFDatatype::Int16:
        return 2;
    case DXFDatatype::Int32:
        return 4;
    case DXFDatatype::Int:
        return item.code >= 290 && item.code <= 299 ? 1 : 8;
    case DXFDatatype::Double:
        return 8;
    case DXFDatatype::Text:
    case DXFDatatype::None:
        return 0;
    }
    return 0;
}

void DXFBinaryStream::nextValue(DXFItem& item) {
    const std::size_t left = data_.size() - pos_;
    const unsigned char* p = data_.data() + pos_;
    if (item.datatype == DXFDatatype::Text) {
        if (isBinaryChunk(item.code)) {
            if (left < 1 || left - 1 < p[0]) {
                fail(L"Error reading group-value", item.line + 1);
            }
            item.text = std::string_view(reinterpret_cast<const char*>(p + 1), p[0]);
            pos_ += 1 + p[0];
            return;
        }
        const void* end = std::memchr(p, 0, left);
        if (!end) {
            fail(L"Error reading group-value", item.line + 1);
        }
        const std::size_t len = static_cast<const unsigned char*>(end) - p;
        item.text = std::string_view(reinterpret_cast<const char*>(p), len);
        pos_ += len + 1;
        return;
    }
    const std::size_t n = valueSize(item);
    if (left < n) {
        fail(L"Error reading group-value", item.line + 1);
    }
    const std::uint64_t raw = readLittleEndian(p, n);
    pos_ += n;
    switch (item.datatype) {
    case DXFDatatype::Int16:
        item.setNumber(static_cast<std::int16_t>(raw));
        break;
    case DXFDatatype::Int32:
        item.setNumber(static_cast<std::int32_t>(raw));
        break;
    case DXFDatatype::Int:
        item.setNumber(n == 1 ? static_cast<double>(raw)
                              : static_cast<double>(static_cast<std::int64_t>(raw)));
        break;
    case DXFDatatype::Double: {
        double d;
        std::memcpy(&d, &raw, sizeof d);
        if (!std::isfinite(d)) {
            fail(L"Error reading double item value", item.line + 1);
        }
        item.setNumber(d);
        break;
    }
    case DXFDatatype::Text:
    case DXFDatatype::None:
        break;
    }
}

void DXFBinaryStream::passValue(const DXFItem& item) {
    DXFItem scratch = item;
    nextValue(scratch);
}

bool isBinaryDXF(std::span<const unsigned char> data) {
    return data.size() >= DXFBinaryStream::sentinel.size() &&
           std::memcmp(data.data(), DXFBinaryStream::sentinel.data(),
                       DXFBinaryStream::sentinel.size()) == 0;
}

std::unique_ptr<DXFStream> makeDXFStream(std::span<const unsigned char> data,
                                         const std::wstring& fileName) {
    if (isBinaryDXF(data)) {
        return std::make_unique<DXFBinaryStream>(data, fileName);
    }
    return std::make_unique<DXFAsciiStream>(data, fileName);
}
