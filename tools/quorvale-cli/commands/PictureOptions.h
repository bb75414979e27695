#pragma once

#include "CliSupport.h"
#include "interchange/raster/RasterExport.h"

#include <optional>
#include <string>

class ZmapDocument;

namespace cli {

/// What the picture-writing commands share: "--quality" checked (0 to 100) into `options`,
/// and OUT's extension checked against the picture types. Returns the exit code of a usage
/// error, or nothing when the options are good.
std::optional<int> readPictureOptions(const char* command, const Arguments& arguments,
                                      const std::string& out, ExportOptions& options);

/// The document's title, author and copyright, written into the picture's text fields.
void takeDocumentTexts(const ZmapDocument& document, ExportOptions& options);

} // namespace cli
