// quorvale-cli panorama IN.zmq OUT (--faces | --equirectangular [--width W]): writes a cube
// panorama as six face pictures or as one equirectangular picture.

#include "CliSupport.h"
#include "Command.h"
#include "PictureOptions.h"
#include "ZmapCli.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "interchange/raster/PanoramaExport.h"

#include <new>

namespace {

const char* const name = "panorama";

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"width", "quality"}, {"faces", "equirectangular"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 2) {
        return cli::usageError(name, "expected a panorama document and an output picture");
    }
    const bool faces = a.has("faces");
    if (faces == a.has("equirectangular")) {
        return cli::usageError(name, "give one of --faces and --equirectangular");
    }
    const std::string& in = a.positional()[0];
    const std::string& out = a.positional()[1];
    long width = 0;
    if (const auto text = a.value("width")) {
        std::vector<long> w;
        if (faces || !cli::parseIntegers(*text, 1, w) || w[0] < 2 || w[0] > 65536) {
            return cli::usageError(name, "--width is 2 to 65536, with --equirectangular: " + *text);
        }
        width = w[0];
    }
    ExportOptions options;
    if (const auto usage = cli::readPictureOptions(name, a, out, options)) {
        return *usage;
    }
    try {
        DummyZmapDocument doc;
        if (!cli::openForCommand(name, in, doc, true)) {
            return cli::exitFailed;
        }
        cli::takeDocumentTexts(doc, options);
        cli::FileProgress progress("exporting");
        options.progress = &progress;
        std::wstring error;
        const Status s = faces ? PanoramaExport::exportFaces(doc, utf8(out), options, error)
                               : PanoramaExport::exportEquirectangular(
                                     doc, utf8(out), std::int32_t(width), options, error);
        progress.report(1, 1, 0);
        if (s != status::ok) {
            return cli::failed(name, in + ": " + utf8(error));
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, in, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{
    "panorama", "write a cube panorama as six face pictures or one equirectangular picture",
    "quorvale-cli panorama IN.zmq OUT (--faces | --equirectangular [--width W]) [--quality Q]\n"
    "  OUT                .png .jpg .tif .bmp .tga or .psd, by its extension\n"
    "  --faces            six pictures, OUT's name with -front -right -back -left -up -down\n"
    "  --equirectangular  one picture W by W/2 (default W: four face widths), longitude\n"
    "                     across (the front in the middle), latitude down, bilinear\n"
    "  --quality Q        JPEG quality, 0 to 100 (default 90)",
    run};
const cli::CommandRegistration registration(command);

} // namespace
