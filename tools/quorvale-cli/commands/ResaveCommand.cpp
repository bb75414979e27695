// quorvale-cli resave IN OUT [--compression 1|5]: reads a Zmap file and saves it again,
// safely (a failure leaves whatever was at OUT), with the compression asked for or its own.

#include "CliSupport.h"
#include "Command.h"
#include "ZmapCli.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/ZmapDocumentFile.h"

#include <cstdio>
#include <new>

namespace {

const char* const name = "resave";

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"compression"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 2) {
        return cli::usageError(name, "expected an input and an output file");
    }
    std::int32_t compression = 0;
    if (const auto text = a.value("compression")) {
        if (*text != "1" && *text != "5") {
            return cli::usageError(name, "compression must be 1 (none) or 5 (LZW): " + *text);
        }
        compression = *text == "1" ? 1 : 5;
    }
    const std::string& in = a.positional()[0];
    const std::string& out = a.positional()[1];
    try {
        DummyZmapDocument doc;
        if (!cli::openForCommand(name, in, doc, true)) {
            return cli::exitFailed;
        }
        if (compression != 0) {
            doc.compression = compression;
        }
        cli::FileProgress progress("writing");
        Status status = status::ok;
        saveZmapDocument(status, doc, utf8(out), &progress);
        progress.report(1, 1, 0);
        if (status == status::warning) {
            std::fprintf(stderr, "quorvale-cli %s: warning: %s: %s\n", name, out.c_str(),
                         utf8(statusText(status)).c_str());
        } else if (status != status::ok) {
            return cli::operationFailed(name, out, status);
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, in, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{
    "resave", "read a Zmap file and save it again",
    "quorvale-cli resave IN OUT [--compression 1|5]\n"
    "  IN, OUT            Zmap files (.zmp for a flat image, .zmq for a panorama)\n"
    "  --compression 1|5  none or LZW (default: what IN asks for)",
    run};
const cli::CommandRegistration registration(command);

} // namespace
