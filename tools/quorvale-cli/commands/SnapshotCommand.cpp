// quorvale-cli snapshot FILE OUT.png [--channel N]: what the document draws for one of
// its channels (the display conversion of depth and material), as a PNG file.

#include "ChannelPng.h"
#include "CliSupport.h"
#include "Command.h"
#include "ZmapCli.h"
#include "file/DummyZmapDocument.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace {

const char* const name = "snapshot";

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"channel"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 2) {
        return cli::usageError(name, "expected a Zmap file and a PNG file");
    }
    std::uint32_t channel = channelRgb;
    if (const auto text = a.value("channel")) {
        std::vector<long> value;
        const long ids[] = {channelRgb,         channelZ,         channelMat,
                            channelOriginalRgb, channelOriginalZ, channelOriginalMat};
        if (!cli::parseIntegers(*text, 1, value) ||
            std::find(std::begin(ids), std::end(ids), value[0]) == std::end(ids)) {
            return cli::usageError(name, "channel must be 1, 2, 4, 8, 16 or 32: " + *text);
        }
        channel = static_cast<std::uint32_t>(value[0]);
    }
    const std::string& in = a.positional()[0];
    const std::string& out = a.positional()[1];
    try {
        DummyZmapDocument doc;
        if (!cli::openForCommand(name, in, doc, true)) {
            return cli::exitFailed;
        }
        const Status status = cli::writeAtomically(out, [&](const std::string& temporary) {
            return cli::writeChannelPng(doc, channel, temporary);
        });
        if (status != status::ok) {
            return cli::operationFailed(name, out, status);
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, in, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{
    "snapshot", "draw one channel of a Zmap file to a PNG file",
    "quorvale-cli snapshot FILE OUT.png [--channel N]\n"
    "  FILE         a Zmap file (.zmp, .zmq)\n"
    "  --channel N  1 colour (default), 2 depth, 4 material, 8, 16, 32 their originals;\n"
    "               depth and material are drawn as the display shows them",
    run};
const cli::CommandRegistration registration(command);

} // namespace
