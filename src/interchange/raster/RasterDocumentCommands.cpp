#include "interchange/raster/RasterDocumentCommands.h"

#include "image/TileRowWriter.h"
#include "image/UndoBuffer.h"
#include "image/ZmapDocument.h"
#include "interchange/raster/RasterImport.h"

#include <cstring>
#include <new>
#include <vector>

namespace {

/// Reads the picture, or reports why not.
TQL::Handle<Raster> readPicture(Status& status, ZmapDocument& document, const std::wstring& path) {
    RasterImport import;
    status = import.read(path);
    if (status != status::ok) {
        document.editor.tell(messageRasterFailed,
                             commandText(messageRasterFailed, {path, import.errorText()}));
        return nullptr;
    }
    return import.raster();
}

/// Row y of the picture laid over `background` by its alpha.
void composedRow(const Raster& r, std::int32_t y, ColourPOD background, std::uint8_t* out) {
    const std::uint8_t* in = r.row(y);
    if (!r.hasAlpha()) {
        std::copy(in, in + r.stride(), out);
        return;
    }
    const std::uint8_t* a = r.alphaRow(y);
    const std::uint8_t under[3] = {background.b, background.g, background.r};
    for (std::int32_t x = 0; x < r.width; ++x, in += 3, out += 3) {
        for (int c = 0; c < 3; ++c) {
            out[c] = std::uint8_t((in[c] * a[x] + under[c] * (255 - a[x]) + 127) / 255);
        }
    }
}

} // namespace

void RasterDocumentCommands::newImage(Status& status, ZmapDocument& document,
                                      const NewImageParams& params) {
    if (params.kind != NewImageKind::fromRaster) {
        next_.newImage(status, document, params);
        return;
    }
    const TQL::Handle<Raster> picture = readPicture(status, document, params.sourcePath);
    if (!picture) {
        document.clearDocument();
        return;
    }
    NewImageParams plain = params;
    plain.kind = NewImageKind::plain;
    plain.width = picture->width;
    plain.height = picture->height;
    if (plain.description.empty()) {
        plain.description = picture->title;
    }
    makePlainImage(status, document, plain);
    if (status != status::ok) {
        return;
    }
    try {
        std::vector<std::uint8_t> row(picture->stride());
        TileRowWriter writer(*document.rgb);
        for (std::int32_t y = 0; y < picture->height; ++y) {
            composedRow(*picture, y, params.background, row.data());
            writer.writeRow(0, y, row.data(), picture->width);
        }
    } catch (const std::bad_alloc&) {
        document.clearDocument();
        status = status::outOfMemory;
        return;
    }
    document.artist = picture->author;
    // The pixels were written after allocateChannels: the originals and the undo store start
    // from the picture.
    document.commitOriginals();
}

void RasterDocumentCommands::importChannel(Status& status, ZmapDocument& document,
                                           const ChannelImportArgument& argument) {
    const std::uint32_t channel = argument.channel;
    const bool colour = channel == channelRgb || channel == channelOriginalRgb;
    const bool depth = channel == channelZ || channel == channelOriginalZ;
    const bool material = channel == channelMat || channel == channelOriginalMat;
    TQL::Handle<TileBitmap> target = document.channel(channel);
    if (!(colour || depth || material) || !target) {
        status = status::noConversion;
        return;
    }
    const TQL::Handle<Raster> picture = readPicture(status, document, argument.path);
    if (!picture) {
        return;
    }
    const Raster& r = *picture;
    const auto left = static_cast<std::int32_t>((std::int64_t(document.width()) - r.width) / 2);
    const auto top = static_cast<std::int32_t>((std::int64_t(document.height()) - r.height) / 2);
    try {
        std::vector<std::uint8_t> row(std::size_t(r.width) * 4);
        TileRowWriter writer(*target);
        for (std::int32_t y = 0; y < r.height; ++y) {
            const std::int32_t ty = top + y;
            if (ty < 0 || ty >= document.height()) {
                continue;
            }
            const std::uint8_t* in = r.row(y);
            if (colour) {
                writer.writeRow(left, ty, in, r.width);
                continue;
            }
            for (std::int32_t x = 0; x < r.width; ++x) {
                const std::uint32_t grey = (in[x * 3] + in[x * 3 + 1] + in[x * 3 + 2] + 1) / 3;
                if (depth) {
                    const std::uint32_t code = grey * 0x01010101u;
                    std::memcpy(&row[std::size_t(x) * 4], &code, 4);
                } else {
                    const MaterialId id = MaterialId(grey);
                    std::memcpy(&row[std::size_t(x) * 2], &id, 2);
                }
            }
            writer.writeRow(left, ty, row.data(), r.width);
        }
    } catch (const std::bad_alloc&) {
        status = status::outOfMemory;
        return;
    }
    if (document.editor.undoBuffer) {
        document.editor.undoBuffer->pushLevel(status, 0);
        if (status != status::ok) {
            return;
        }
    }
    document.setChanged(true);
    status = status::ok;
}
