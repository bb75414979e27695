// quorvale-cli import [--panorama] IN OUT: makes a new document from a picture file (BMP,
// TGA, TIFF, JPEG, PNG, or the colour of another Zmap file): its size and pixels, no depth;
// or, with --panorama, a cube panorama (.zmq) from six faces side by side or a spherical
// picture.

#include "CliSupport.h"
#include "Command.h"
#include "ZmapCli.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/ZmapDocumentCommands.h"
#include "file/ZmapDocumentFile.h"
#include "interchange/raster/RasterDocumentCommands.h"

#include <cstdio>
#include <new>

namespace {

const char* const name = "import";

/// Prints the commands' messages (the reader's reason) to stderr.
class PrintedMessages : public CommandMessages {
public:
    void message(std::int32_t, const std::wstring& text) override {
        std::fprintf(stderr, "quorvale-cli %s: %s\n", name, utf8(text).c_str());
        told = true;
    }
    void progressText(std::int32_t, const std::wstring&) override {}
    bool told = false;
};

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {}, {"panorama"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 2) {
        return cli::usageError(name, "expected a picture file and an output document");
    }
    const std::string& in = a.positional()[0];
    const std::string& out = a.positional()[1];
    try {
        DummyZmapDocument doc;
        RasterDocumentCommands commands(ZmapDocumentCommands::instance());
        PrintedMessages messages;
        doc.editor.setCommands(&commands);
        doc.editor.setMessages(&messages);
        NewImageParams params;
        params.kind = a.has("panorama") ? NewImageKind::panoramaFromFile : NewImageKind::fromRaster;
        params.sourcePath = utf8(in);
        Status status = status::ok;
        doc.editor.execute(status, commandNew, params);
        if (status != status::ok) {
            return messages.told ? cli::exitFailed : cli::operationFailed(name, in, status);
        }
        cli::FileProgress progress("writing");
        saveZmapDocument(status, doc, utf8(out), &progress);
        progress.report(1, 1, 0);
        if (status != status::ok && status != status::warning) {
            return cli::operationFailed(name, out, status);
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, in, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{
    "import", "make a new document from a picture file",
    "quorvale-cli import [--panorama] IN OUT\n"
    "  IN          a picture: .bmp .dib .tga .tif .tiff .jpg .jpe .jpeg .png (or .zmp/.zmq\n"
    "              colour)\n"
    "  OUT         the new Quorvale document (.zmp); it has the picture's size and no depth\n"
    "  --panorama  make a cube panorama (OUT.zmq) instead: IN is six square faces side by\n"
    "              side (ahead, right, behind, left, up, down) or a spherical panorama twice\n"
    "              as wide as high",
    run};
const cli::CommandRegistration registration(command);

} // namespace
