// quorvale-cli export IN.zmp OUT [--quality Q] [--layers]: writes a document's colour as a
// plain picture file, chosen by OUT's extension.

#include "CliSupport.h"
#include "Command.h"
#include "PictureOptions.h"
#include "ZmapCli.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "interchange/raster/RasterExport.h"

#include <cstdio>
#include <new>

namespace {

const char* const name = "export";

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"quality"}, {"layers"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 2) {
        return cli::usageError(name, "expected a document and an output picture");
    }
    const std::string& in = a.positional()[0];
    const std::string& out = a.positional()[1];
    ExportOptions options;
    if (const auto usage = cli::readPictureOptions(name, a, out, options)) {
        return *usage;
    }
    auto exporter = RasterExport::create(utf8(out));
    try {
        DummyZmapDocument doc;
        if (!cli::openForCommand(name, in, doc, true)) {
            return cli::exitFailed;
        }
        cli::takeDocumentTexts(doc, options);
        if (a.has("layers")) {
            // The document itself is the one layer under its composite; floating cut-outs
            // join it as layers once they are read from documents.
            PsdLayer background;
            background.name = L"Background";
            background.bounds = doc.geometry().bounds();
            background.id = 1;
            auto picture = TQL::makeHandle<Raster>();
            std::wstring error;
            if (picture->allocate(doc.width(), doc.height(), false, error) != status::ok) {
                return cli::failed(name, utf8(error));
            }
            for (std::int32_t y = 0; y < doc.height(); ++y) {
                for (std::int32_t x = 0; x < doc.width(); ++x) {
                    const ColourPOD c = doc.rgbAt(x, y);
                    std::uint8_t* p = picture->row(y) + std::size_t(x) * 3;
                    p[0] = c.b, p[1] = c.g, p[2] = c.r;
                }
            }
            background.picture = picture;
            options.layers.push_back(background);
        }
        cli::FileProgress progress("exporting");
        options.progress = &progress;
        const Status status = exporter->write(doc, doc.geometry().bounds(), doc.xResolution,
                                              doc.yResolution, options);
        progress.report(1, 1, 0);
        if (status != status::ok) {
            if (!exporter->errorText().empty()) {
                return cli::failed(name, out + ": " + utf8(exporter->errorText()));
            }
            return cli::operationFailed(name, out, status);
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, in, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{"export", "write a document's image as a picture file",
                           "quorvale-cli export IN.zmp OUT [--quality Q] [--layers]\n"
                           "  OUT          .png .jpg .tif .bmp .tga or .psd, by its extension\n"
                           "  --quality Q  JPEG quality, 0 to 100 (default 90)\n"
                           "  --layers     PSD: the image also as a layer (\"Background\")",
                           run};
const cli::CommandRegistration registration(command);

} // namespace
