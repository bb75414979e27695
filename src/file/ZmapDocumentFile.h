#pragma once

#include "core/Status.h"

#include <string>

class Reporter;
class ZmapDocument;

/// Settings (section "Settings") that fill an empty artist or copyright text of a
/// document when it is saved.
namespace zmapSaveSettings {
inline constexpr const wchar_t* artistKey = L"Artist";
inline constexpr const wchar_t* copyrightKey = L"Copyright";
} // namespace zmapSaveSettings

/// Reads the Zmap file at `path` into `document` and makes its missing channels
/// (allocateChannels); on success the document's path is `path` and its fromFile flag is
/// set. On failure the document is left as it was, and `failureText`, if given, receives
/// the text to show: the status text, with the place of the fault in a damaged file.
/// `progress` may be null.
void openZmapDocument(Status& status, ZmapDocument& document, const std::wstring& path,
                      Reporter* progress = nullptr, std::wstring* failureText = nullptr);

/// Saves `document` to `path` so that a failure never costs the file that was there:
///
/// 1. The extension must suit the document: -7 for an unknown one, -28 for a panorama as
///    .zmp, -27 for a flat image as .zmq, -26 for any other known extension.
/// 2. An empty artist or copyright is filled in from the settings above.
/// 3. An existing target is renamed to its name with the extension ".~zm" (an older file
///    of that name is deleted first): -15 if the target is read-only (no write permission
///    bit in its mode, whoever runs the program), -18 for a directory or a name without
///    extension, else the status of a failed rename (-6 by default).
/// 4. The document is written (QuorvaleZmapFile::write, flushed to the disk) with
///    `progress`, which may be null.
/// 5. On success the renamed file is deleted (-20, a warning, if that fails), the
///    compression of this save becomes the document's saved compression, and its readOnly
///    and fromFile flags are cleared. On failure the new file is deleted and the old one
///    renamed back to its own name.
///
/// Nothing throws out; an exception of the writer (memory, encoder overflow) is a failed
/// save like any other.
void saveZmapDocument(Status& status, ZmapDocument& document, const std::wstring& path,
                      Reporter* progress = nullptr);
