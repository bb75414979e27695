#include "interchange/raster/RasterDocumentCommands.h"

#include "image/TileRowWriter.h"
#include "image/UndoBuffer.h"
#include "image/ZmapDocument.h"
#include "interchange/raster/RasterImport.h"

#include "core/StringUtils.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
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

/// Text 10705 if the language file has it with two "%d" and nothing else to format, else
/// the English text.
std::wstring shapeFormat() {
    std::wstring format = TQL::loadString(messageNotPanoramaShape);
    std::size_t numbers = 0;
    std::size_t conversions = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == L'%') {
            ++conversions;
            numbers += i + 1 < format.size() && format[i + 1] == L'd';
            ++i;
        }
    }
    if (numbers != 2 || conversions != 2) {
        format = L"a picture of %d x %d pixels is neither six square faces side by side nor a "
                 L"spherical panorama twice as wide as high";
    }
    return format;
}

/// Bilinear sample of a spherical panorama in the direction (x right, y up, z ahead) of the
/// view, into `out` (blue, green, red). Longitude wraps around; latitude clamps at the poles.
void sampleSpherical(const Raster& r, const Vector<3>& d, std::uint8_t* out) {
    const double longitude = std::atan2(d.x(), d.z());
    const double latitude = std::atan2(d.y(), std::hypot(d.x(), d.z()));
    const double u = (longitude / (2 * M_PI) + 0.5) * r.width - 0.5;
    const double v =
        std::clamp((0.5 - latitude / M_PI) * r.height - 0.5, 0.0, double(r.height - 1));
    const double u0 = std::floor(u);
    const double v0 = std::floor(v);
    const double fu = u - u0;
    const double fv = v - v0;
    const auto column = [&](double c) {
        const auto i = static_cast<std::int64_t>(c) % r.width;
        return static_cast<std::int32_t>(i < 0 ? i + r.width : i);
    };
    const std::int32_t x0 = column(u0);
    const std::int32_t x1 = column(u0 + 1);
    const auto y0 = static_cast<std::int32_t>(v0);
    const std::int32_t y1 = std::min(y0 + 1, r.height - 1);
    const std::uint8_t* a = r.row(y0);
    const std::uint8_t* b = r.row(y1);
    for (int c = 0; c < 3; ++c) {
        const double top = a[x0 * 3 + c] * (1 - fu) + a[x1 * 3 + c] * fu;
        const double bottom = b[x0 * 3 + c] * (1 - fu) + b[x1 * 3 + c] * fu;
        out[c] = static_cast<std::uint8_t>(std::lround(top * (1 - fv) + bottom * fv));
    }
}

} // namespace

void RasterDocumentCommands::newPanorama(Status& status, ZmapDocument& document,
                                         const NewImageParams& params) {
    const TQL::Handle<Raster> picture = readPicture(status, document, params.sourcePath);
    if (!picture) {
        document.clearDocument();
        return;
    }
    const Raster& r = *picture;
    const bool strip = r.height >= 2 && std::int64_t(r.width) == 6 * std::int64_t(r.height);
    const bool spherical = r.height >= 4 && r.width == 2 * r.height;
    if (!strip && !spherical) {
        document.clearDocument();
        status = status::unsupportedVersion;
        const std::wstring reason =
            stringPrintf(shapeFormat().c_str(), int(r.width), int(r.height));
        document.editor.tell(messagePanoramaFailed,
                             commandText(messagePanoramaFailed, {params.sourcePath, reason}));
        return;
    }
    const std::int32_t face = strip ? r.height : r.width / 4;
    NewImageParams plain = params;
    plain.kind = NewImageKind::plain;
    plain.width = 6 * face;
    plain.height = face;
    if (plain.description.empty()) {
        plain.description = r.title;
    }
    makePlainImage(status, document, plain);
    if (status != status::ok) {
        return;
    }
    ViewParams cube;
    cube.viewCode = ViewParams::cubicCode;
    document.setViewParams(cube);
    try {
        std::vector<std::uint8_t> row(std::size_t(plain.width) * 3);
        TileRowWriter writer(*document.rgb);
        const ViewProj& camera = *document.viewProj();
        for (std::int32_t y = 0; y < face; ++y) {
            if (strip) {
                composedRow(r, y, params.background, row.data());
            } else {
                for (std::int32_t x = 0; x < plain.width; ++x) {
                    sampleSpherical(r, camera.pixelDirection(x, y), &row[std::size_t(x) * 3]);
                }
            }
            writer.writeRow(0, y, row.data(), plain.width);
        }
    } catch (const std::bad_alloc&) {
        document.clearDocument();
        status = status::outOfMemory;
        return;
    }
    document.stitchFaces();
    document.artist = r.author;
    document.commitOriginals();
}

void RasterDocumentCommands::newImage(Status& status, ZmapDocument& document,
                                      const NewImageParams& params) {
    if (params.kind == NewImageKind::panoramaFromFile ||
        params.kind == NewImageKind::panoramaFromRaster) {
        newPanorama(status, document, params);
        return;
    }
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
