#include "file/ZmapFile.h"

#include "file/QuorvaleZmapFile.h"
#include "file/ZmapDocumentFile.h"

namespace TQL {

FileStatusError::FileStatusError(Status status, const std::wstring& path)
    : TqlError(path + L": " + statusText(status)), status_(status) {}

FileStatusError::FileStatusError(Status status, const std::wstring& path, const std::wstring& text)
    : TqlError(path + L": " + text), status_(status) {}

void ZmapFile::write(const ZmapDocument& document, Reporter* progress) const {
    QuorvaleZmapFile file;
    file.setProgress(progress);
    Status status = status::ok;
    file.write(status, document, path_);
    if (status != status::ok) {
        throw Error(status, path_);
    }
}

void ZmapFile::read(ZmapDocument& document, Reporter* progress) const {
    Status status = status::ok;
    std::wstring text;
    openZmapDocument(status, document, path_, progress, &text);
    if (status != status::ok) {
        throw BadFile(status, path_, text);
    }
}

} // namespace TQL
