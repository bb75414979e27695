#pragma once

#include <cstdint>
#include <string>

/// Result of a file or document operation: 0 success, negative failure. Such
/// operations return it through a by-reference result and never throw.
using Status = std::int32_t;

namespace status {
inline constexpr Status ok = 0;
inline constexpr Status damaged = -2; ///< damaged, or not of the expected format
inline constexpr Status closeFailed = -3;
inline constexpr Status alreadyOpen = -4;
inline constexpr Status readFailed = -5;
inline constexpr Status writeFailed = -6;
inline constexpr Status unsupportedVersion = -7; ///< version or type unknown
inline constexpr Status unsupportedCompression = -8;
inline constexpr Status outOfMemory = -10;
inline constexpr Status stopped = -11;      ///< stopped by the user at a progress report
inline constexpr Status noConversion = -12; ///< no pixel conversion, or nothing to work on
inline constexpr Status noImage = -13;      ///< no image, or a required object is missing
inline constexpr Status diskFull = -14;
inline constexpr Status readOnly = -15;
inline constexpr Status accessDenied = -16;
inline constexpr Status exists = -17;
inline constexpr Status badName = -18;
inline constexpr Status sharingViolation = -19;
inline constexpr Status warning = -20; ///< done, with a warning to report
inline constexpr Status unknownCommand = -21;
inline constexpr Status notFound = -24;
inline constexpr Status cancelled = -25;            ///< drawing was cancelled
inline constexpr Status wrongExtension = -26;       ///< extension is not a document type
inline constexpr Status notPanoramaExtension = -27; ///< .zmq for a flat image
inline constexpr Status panoramaAsFlat = -28;       ///< .zmp for a panorama

/// Maps an errno value to a status, or to `fallback` when the table has no entry.
Status fromErrno(int error, Status fallback);
} // namespace status

/// Numbered user-visible texts. The application installs one loaded from its language
/// file; until then every lookup misses.
class StringTable {
public:
    virtual ~StringTable() = default;
    /// The text of string `id`, or false if there is none.
    virtual bool lookup(int id, std::wstring& text) const = 0;
};

namespace TQL {
/// Installs the process-wide string table (not owned); null removes it.
void setStringTable(const StringTable* table);
const StringTable* stringTable();
/// The text of numbered string `id`, or an empty string.
std::wstring loadString(int id);
} // namespace TQL

/// The text of a status: string 11100 - s for s in 0..-29; any other value is formatted
/// with string 11130. A missing string gives "<<Error %d>>" with the number.
std::wstring statusText(Status s);
