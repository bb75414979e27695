// Helpers of the commands that read and write Zmap files.

#include "ZmapCli.h"

#include "core/StringUtils.h"
#include "file/QuorvaleZmapFile.h"
#include "file/ZmapDocumentFile.h"
#include "image/ZmapDocument.h"

namespace cli {

bool FileProgress::report(unsigned total, unsigned done, double fraction) {
    line_.update(total ? (done + fraction) / total : 1.0);
    return interrupted();
}

bool openForCommand(const char* command, const std::string& path, ZmapDocument& document,
                    bool allocate) {
    FileProgress progress("reading");
    Status status = status::ok;
    std::wstring text;
    if (allocate) {
        openZmapDocument(status, document, utf8(path), &progress, &text);
    } else {
        QuorvaleZmapFile file;
        file.setProgress(&progress);
        file.read(status, utf8(path), document);
        text = file.failureText(status);
    }
    progress.report(1, 1, 0);
    if (status != status::ok) {
        // The text names the place of the fault in a damaged file.
        failed(command, path + ": " + utf8(text));
        return false;
    }
    return true;
}

} // namespace cli
