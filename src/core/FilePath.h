#pragma once

#include <cstdio>
#include <string>

// Path helpers on wide strings. Paths use '/', and are compared exactly: two names
// that differ only in case are two files.

namespace TQL {
/// fopen for a wide path.
std::FILE* fileOpen(const std::wstring& path, const char* mode);
} // namespace TQL

/// The directory part of `path`, without a trailing '/' (but "/" for the root), or ""
/// when the path has no directory.
std::wstring getDirectory(const std::wstring& path);
/// As above, and `name` receives the last component with its extension.
std::wstring getDirectory(const std::wstring& path, std::wstring& name);
/// As above, with `name` the last component without extension and `extension` its
/// extension including the dot ("" if none). A leading dot does not start an extension.
std::wstring getDirectory(const std::wstring& path, std::wstring& name, std::wstring& extension);

/// Joins a directory and a name with one '/'. An empty directory gives the name.
std::wstring joinDirectory(const std::wstring& directory, const std::wstring& name);

/// The absolute, normalised form: relative paths are taken from the working directory,
/// "." and ".." components and doubled separators are resolved lexically.
std::wstring absoluteFilename(const std::wstring& path);
/// The path with symbolic links resolved where it exists; otherwise absoluteFilename.
std::wstring getLongFilename(const std::wstring& path);
/// A shortened form for display of at most `maxCharacters`, keeping the file name and
/// as much of the start as fits, with "..." in the middle.
std::wstring abbreviateFilename(const std::wstring& path, int maxCharacters);
/// Whether `text` may be appended as one name to an absolute path: not empty, not "."
/// or "..", no '/', no NUL and no control characters.
bool okToAddToAbsolutePath(const std::wstring& text);
/// Resolves `relative` against the directory `base`; an absolute `relative` stands.
std::wstring build_abs_path(const std::wstring& base, const std::wstring& relative);
/// Index of the path's extension in a list such as ".bmp/.dib/.tif": entries are
/// separated by '/', compared without case, counted from 1; 0 when none matches.
int analyzeFileType(const std::wstring& path, const std::wstring& extensionList);
