#pragma once

#include "core/Status.h"
#include "core/TqlError.h"

#include <string>

class Reporter;
class ZmapDocument;

namespace TQL {

/// A failure of a file operation as an exception: the path, the status and its text.
class FileStatusError : public TqlError {
public:
    FileStatusError(Status status, const std::wstring& path);
    /// With `text` in place of the status text, for a failure that says more.
    FileStatusError(Status status, const std::wstring& path, const std::wstring& text);
    Status status() const { return status_; }

private:
    Status status_;
};

/// Raised by readers of Zmap data that can't go on; status() says why, and the message
/// also where a damaged file is damaged.
class BadFile : public FileStatusError {
public:
    using FileStatusError::FileStatusError;
};

/// A one-pass Zmap file for tools that make a document and write it out (or read one in)
/// with exceptions in place of status codes: the plain file operations of
/// QuorvaleZmapFile, without the safe-save steps.
class ZmapFile {
public:
    /// Raised when writing fails; status() says why, and the file may be partly written.
    class Error : public FileStatusError {
    public:
        using FileStatusError::FileStatusError;
    };

    explicit ZmapFile(std::wstring path) : path_(std::move(path)) {}

    const std::wstring& path() const { return path_; }
    /// Writes the whole document in one pass. Throws Error.
    void write(const ZmapDocument& document, Reporter* progress = nullptr) const;
    /// Reads the file into `document` and makes its missing channels. Throws BadFile.
    void read(ZmapDocument& document, Reporter* progress = nullptr) const;

private:
    std::wstring path_;
};

} // namespace TQL
