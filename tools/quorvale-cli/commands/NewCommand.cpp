// quorvale-cli new --size WxH [--background R,G,B] [--png OUT.png] [OUT.zmp]: makes a
// document, paints its background pixel by pixel through the colour channel, and saves it as
// a Zmap file, or writes what the document draws for its colour channel to a PNG file, or
// both.

#include "ChannelPng.h"
#include "CliSupport.h"
#include "Command.h"
#include "ZmapCli.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/ZmapDocumentFile.h"
#include "image/TileRowWriter.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <optional>
#include <unistd.h>
#include <vector>

namespace {

const char* const name = "new";

/// True if a colour channel of width x height pixels fits in the machine's memory.
bool colourFits(std::int64_t width, std::int64_t height) {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) {
        return true;
    }
    const std::uint64_t memory =
        static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
    return static_cast<std::uint64_t>(width) <= memory / 3 / static_cast<std::uint64_t>(height);
}

/// Writes every pixel of rgb, row run by row run.
Status paintBackground(ZmapDocument& doc, ColourPOD background) {
    TileRowWriter writer(*doc.rgb);
    cli::ProgressLine progress("painting");
    for (std::int32_t y = 0; y < doc.height(); ++y) {
        if (cli::interrupted()) {
            return status::stopped;
        }
        for (std::int32_t x = 0; x < doc.width();) {
            std::int32_t count = 0;
            auto* pixel = reinterpret_cast<ColourPOD*>(writer.run(x, y, count));
            for (std::int32_t i = 0; i < count; ++i) {
                pixel[i] = background;
            }
            x += count;
        }
        progress.update(double(y + 1) / doc.height());
    }
    return status::ok;
}

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"size", "background", "png"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() > 1) {
        return cli::usageError(name, "unexpected argument '" + a.positional()[1] + "'");
    }
    const auto sizeText = a.value("size");
    const auto pngPath = a.value("png");
    const std::optional<std::string> zmapPath =
        a.positional().empty() ? std::nullopt : std::optional(a.positional()[0]);
    if (!sizeText || (!pngPath && !zmapPath)) {
        return cli::usageError(name,
                               "--size and an output (OUT.zmp or --png OUT.png) are required");
    }
    std::int64_t width = 0;
    std::int64_t height = 0;
    if (!cli::parseSize(*sizeText, width, height)) {
        return cli::usageError(name, "size must be WIDTHxHEIGHT: " + *sizeText);
    }
    if (width <= 0 || height <= 0 || width > INT32_MAX || height > INT32_MAX) {
        return cli::usageError(name, "width and height must be from 1 to 2147483647: " + *sizeText);
    }
    ColourPOD background{255, 255, 255};
    if (const auto text = a.value("background")) {
        std::vector<long> rgb;
        if (!cli::parseIntegers(*text, 3, rgb) ||
            std::any_of(rgb.begin(), rgb.end(), [](long v) { return v < 0 || v > 255; })) {
            return cli::usageError(name, "background must be R,G,B from 0 to 255: " + *text);
        }
        background = {static_cast<std::uint8_t>(rgb[2]), static_cast<std::uint8_t>(rgb[1]),
                      static_cast<std::uint8_t>(rgb[0])};
    }
    const std::string what = "a " + *sizeText + " image";
    if (!colourFits(width, height)) {
        return cli::operationFailed(name, what, status::outOfMemory);
    }
    try {
        DummyZmapDocument doc;
        Status s = doc.setSize(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height));
        if (s == status::ok) {
            doc.rgb = TQL::makeHandle<RgbBitmap>(doc);
            s = doc.allocateChannels();
        }
        if (s == status::ok) {
            s = paintBackground(doc, background);
        }
        if (s != status::ok) {
            return cli::operationFailed(name, what, s);
        }
        doc.commitOriginals(); // the image as made
        if (zmapPath) {
            cli::FileProgress progress("writing");
            saveZmapDocument(s, doc, utf8(*zmapPath), &progress);
            progress.report(1, 1, 0);
            if (s != status::ok && s != status::warning) {
                return cli::operationFailed(name, *zmapPath, s);
            }
        }
        if (pngPath) {
            s = cli::writeAtomically(*pngPath, [&](const std::string& temporary) {
                return cli::writeChannelPng(doc, channelRgb, temporary);
            });
            if (s != status::ok) {
                return cli::operationFailed(name, *pngPath, s);
            }
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, what, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{
    "new", "make an image of one colour and save it as a Zmap file or PNG",
    "quorvale-cli new --size WxH [--background R,G,B] [--png OUT.png] [OUT.zmp]\n"
    "  --size WxH          the image size in pixels\n"
    "  --background R,G,B  its colour, 0 to 255 each (default 255,255,255)\n"
    "  --png OUT.png       the image as a PNG file\n"
    "  OUT.zmp             the document as a Zmap file (at least one of the two)",
    run};
const cli::CommandRegistration registration(command);

} // namespace
