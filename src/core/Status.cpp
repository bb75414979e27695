#include "core/Status.h"

#include "core/StringUtils.h"

#include <atomic>
#include <cerrno>

namespace status {
Status fromErrno(int error, Status fallback) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return notFound;
    case EACCES:
    case EPERM:
        return accessDenied;
    case EROFS:
        return readOnly;
    case ENOSPC:
    case EDQUOT:
        return diskFull;
    case EEXIST:
        return exists;
    case ENAMETOOLONG:
    case EISDIR:
        return badName;
    case ENOMEM:
        return outOfMemory;
    case ETXTBSY:
    case EBUSY:
        return sharingViolation;
    default:
        return fallback;
    }
}
} // namespace status

namespace {
std::atomic<const StringTable*> installedTable{nullptr};

/// A format from a language file is used only if its one conversion is "%d", so a
/// damaged file cannot make the formatter read arguments that are not there.
bool isSingleIntFormat(const std::wstring& format) {
    int conversions = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != L'%') {
            continue;
        }
        if (i + 1 < format.size() && format[i + 1] == L'%') {
            ++i;
            continue;
        }
        if (i + 1 >= format.size() || format[i + 1] != L'd') {
            return false;
        }
        ++conversions;
    }
    return conversions == 1;
}
} // namespace

namespace TQL {
void setStringTable(const StringTable* table) {
    installedTable.store(table);
}
const StringTable* stringTable() {
    return installedTable.load();
}
std::wstring loadString(int id) {
    std::wstring text;
    if (const StringTable* table = installedTable.load()) {
        if (!table->lookup(id, text)) {
            text.clear();
        }
    }
    return text;
}
} // namespace TQL

std::wstring statusText(Status s) {
    constexpr int firstStatusString = 11100;
    constexpr int otherStatusFormat = 11130;
    const StringTable* table = TQL::stringTable();
    std::wstring text;
    if (s <= 0 && s >= -29) {
        // The table's own range has a text each; the general format never stands in for
        // one that a language file lacks.
        if (table && table->lookup(firstStatusString - s, text)) {
            return text;
        }
    } else if (table && table->lookup(otherStatusFormat, text) && isSingleIntFormat(text)) {
        return stringPrintf(text.c_str(), static_cast<int>(s));
    }
    return stringPrintf(L"<<Error %d>>", static_cast<int>(s));
}
