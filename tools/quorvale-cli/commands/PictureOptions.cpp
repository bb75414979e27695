#include "PictureOptions.h"

#include "core/StringUtils.h"
#include "image/ZmapDocument.h"

#include <vector>

namespace cli {

std::optional<int> readPictureOptions(const char* command, const Arguments& arguments,
                                      const std::string& out, ExportOptions& options) {
    if (const auto text = arguments.value("quality")) {
        std::vector<long> q;
        if (!parseIntegers(*text, 1, q) || q[0] < 0 || q[0] > 100) {
            return usageError(command, "quality must be 0 to 100: " + *text);
        }
        options.quality = int(q[0]);
    }
    if (!RasterExport::create(utf8(out))) {
        return usageError(command,
                          "unknown picture type (use .png .jpg .tif .bmp .tga .psd): " + out);
    }
    return std::nullopt;
}

void takeDocumentTexts(const ZmapDocument& document, ExportOptions& options) {
    options.title = document.description;
    options.author = document.artist;
    options.copyright = document.copyright;
}

} // namespace cli
