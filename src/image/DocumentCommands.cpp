#include "image/DocumentCommands.h"

#include "image/TileRowWriter.h"

#include <new>

namespace {

/// Bit 0 changes the document, bit 1 counts as saved, bit 2 keeps the changed-since-open
/// byte: commands the undo store can take back.
constexpr std::uint32_t flagTable[commandCount] = {
    0, // nothing
    0, // new
    0, // open
    commandCountsAsSaved,
    commandCountsAsSaved, // save as
    commandCountsAsSaved, // revert
    commandChangesDocument,
    commandChangesDocument | commandKeepsChangedSinceOpen, // paste image
    0,                                                     // import into a channel
    commandChangesDocument | commandKeepsChangedSinceOpen, // undo
    commandChangesDocument | commandKeepsChangedSinceOpen, // redo
    commandChangesDocument | commandKeepsChangedSinceOpen, // repeat
    commandChangesDocument,                                // crop
    commandChangesDocument,                                // material set
    commandChangesDocument | commandKeepsChangedSinceOpen, // flatten
    commandChangesDocument | commandKeepsChangedSinceOpen, // auto levels
};

} // namespace

std::uint32_t commandFlags(std::int32_t command) {
    return command >= 0 && command < commandCount ? flagTable[command] : 0;
}

std::wstring commandText(std::int32_t id, const std::vector<std::wstring>& arguments) {
    const std::wstring format = TQL::loadString(id);
    std::wstring text;
    if (format.empty()) {
        for (const std::wstring& argument : arguments) {
            text += (text.empty() ? L"" : L": ") + argument;
        }
        return text;
    }
    std::size_t next = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == L'%' && format.compare(i, 3, L"%ls") == 0) {
            if (next < arguments.size()) {
                text += arguments[next++];
            }
            i += 2;
        } else if (format[i] == L'%' && i + 1 < format.size() && format[i + 1] == L'%') {
            text += L'%';
            ++i;
        } else {
            text += format[i];
        }
    }
    return text;
}

void makePlainImage(Status& status, ZmapDocument& document, const NewImageParams& params) {
    document.clearDocument();
    if (params.width <= 0 || params.height <= 0) {
        status = status::noConversion;
        return;
    }
    if ((status = document.setSize(params.width, params.height)) != status::ok) {
        return;
    }
    try {
        document.rgb = TQL::makeHandle<RgbBitmap>(document);
        if (!(params.background == ColourPOD{})) {
            const std::vector<ColourPOD> row(static_cast<std::size_t>(params.width),
                                             params.background);
            TileRowWriter writer(*document.rgb);
            for (std::int32_t y = 0; y < params.height; ++y) {
                writer.writeRow(0, y, reinterpret_cast<const std::uint8_t*>(row.data()),
                                params.width);
            }
        }
    } catch (const std::bad_alloc&) {
        document.clearDocument();
        status = status::outOfMemory;
        return;
    }
    // The default camera, its window widened or narrowed to square pixels.
    ViewParams view;
    const double across = std::max(params.width - 1, 1);
    const double down = std::max(params.height - 1, 1);
    view.windowLo = Point<3>(-1, down / across, 1);
    view.windowHi = Point<3>(1, -down / across, 1);
    document.setViewParams(view);
    document.description = params.description;
    document.xResolution = params.xResolution;
    document.yResolution = params.yResolution;
    if ((status = document.allocateChannels()) != status::ok) {
        document.clearDocument();
    }
}
