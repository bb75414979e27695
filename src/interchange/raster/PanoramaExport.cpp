#include "interchange/raster/PanoramaExport.h"

#include "core/Reporter.h"
#include "file/DummyZmapDocument.h"
#include "image/DocumentCommands.h"
#include "image/TileRowWriter.h"
#include "image/ZmapDocument.h"
#include "views/CubicDrawable.h"
#include "views/FaceDrawable.h"
#include "views/cameras/ViewParams.h"

#include <cmath>
#include <functional>
#include <new>
#include <numbers>
#include <vector>

namespace {

/// Takes pictures out of a cube: a face as it lies, or the sphere by direction.
class CubicExtractor : public TQL::Handlable {
public:
    Status read(const ZmapDocument& document) {
        Status s = status::ok;
        CubeStrip::read(s, document, channelRgb, strip_);
        return s;
    }
    const CubeStrip& strip() const { return strip_; }

    /// Row y of an equirectangular picture of width w (height w / 2).
    void equirectangularRow(std::int32_t w, std::int32_t y, std::uint8_t* out) const {
        const std::int32_t h = w / 2;
        const double lat = std::numbers::pi * (0.5 - (y + 0.5) / h);
        const double cl = std::cos(lat), sl = std::sin(lat);
        for (std::int32_t x = 0; x < w; ++x) {
            const double lon = 2 * std::numbers::pi * ((x + 0.5) / w - 0.5);
            const ColourPOD c =
                strip_.sampleDirection(Vector<3>(cl * std::sin(lon), sl, cl * std::cos(lon)));
            out[0] = c.b, out[1] = c.g, out[2] = c.r;
            out += 3;
        }
    }

private:
    CubeStrip strip_;
};

/// Writes a picture of w x h pixels whose rows come from `row`, through the exporter of
/// `path`'s type.
Status writePicture(const ZmapDocument& source, const std::wstring& path, std::int32_t w,
                    std::int32_t h, const std::function<void(std::int32_t, std::uint8_t*)>& row,
                    const ExportOptions& options, std::wstring& error) {
    const TQL::Handle<RasterExport> exporter = RasterExport::create(path);
    if (!exporter) {
        error = L"No picture type for " + path;
        return status::unsupportedCompression;
    }
    DummyZmapDocument picture;
    NewImageParams params;
    params.width = w;
    params.height = h;
    params.background = {0, 0, 0};
    params.xResolution = static_cast<float>(source.xResolution);
    params.yResolution = static_cast<float>(source.yResolution);
    Status s = status::ok;
    makePlainImage(s, picture, params);
    if (s != status::ok) {
        error = L"Not enough memory for a picture of this size";
        return s;
    }
    try {
        std::vector<std::uint8_t> buffer(std::size_t(w) * 3);
        TileRowWriter writer(*picture.rgb);
        for (std::int32_t y = 0; y < h; ++y) {
            row(y, buffer.data());
            writer.writeRow(0, y, buffer.data(), w);
        }
    } catch (const std::bad_alloc&) {
        error = L"Not enough memory for a picture of this size";
        return status::outOfMemory;
    }
    s = exporter->write(picture, picture.geometry().bounds(), source.xResolution,
                        source.yResolution, options);
    if (s != status::ok) {
        error = exporter->errorText().empty() ? L"The picture could not be written: " + path
                                              : exporter->errorText();
    }
    return s;
}

} // namespace

const std::wstring& PanoramaExport::notFullCubeText() {
    static const std::wstring text = L"Not a full cube image";
    return text;
}

bool PanoramaExport::isFullCube(const ZmapDocument& document) {
    return document.viewParams().viewCode == ViewParams::cubicCode && document.height() >= 2 &&
           std::int64_t(document.width()) == 6 * std::int64_t(document.height()) && document.rgb;
}

std::array<std::wstring, 6> PanoramaExport::facePaths(const std::wstring& path) {
    static const wchar_t* const names[6] = {L"-front", L"-right", L"-back",
                                            L"-left",  L"-up",    L"-down"};
    const std::size_t slash = path.find_last_of(L"/\\");
    std::size_t dot = path.rfind(L'.');
    if (dot == std::wstring::npos || (slash != std::wstring::npos && dot < slash)) {
        dot = path.size();
    }
    std::array<std::wstring, 6> out;
    for (int f = 0; f < 6; ++f) {
        out[std::size_t(f)] = path.substr(0, dot) + names[f] + path.substr(dot);
    }
    return out;
}

Status PanoramaExport::exportFaces(const ZmapDocument& document, const std::wstring& path,
                                   const ExportOptions& options, std::wstring& error) {
    if (!isFullCube(document)) {
        error = notFullCubeText();
        return status::noConversion;
    }
    CubicExtractor cube;
    if (const Status s = cube.read(document); s != status::ok) {
        error = L"The cube could not be read";
        return s;
    }
    const auto paths = facePaths(path);
    const std::int32_t n = cube.strip().faceSize();
    for (int f = 0; f < 6; ++f) {
        const FaceDrawable face(cube.strip(), f);
        const Status s = writePicture(
            document, paths[std::size_t(f)], n, n,
            [&](std::int32_t y, std::uint8_t* out) { face.drawRow(y, out); }, options, error);
        if (s != status::ok) {
            return s;
        }
    }
    return status::ok;
}

Status PanoramaExport::exportEquirectangular(const ZmapDocument& document, const std::wstring& path,
                                             std::int32_t width, const ExportOptions& options,
                                             std::wstring& error) {
    if (!isFullCube(document)) {
        error = notFullCubeText();
        return status::noConversion;
    }
    if (width == 0) {
        width = 4 * document.height();
    }
    width &= ~1;
    if (width < 2) {
        error = L"The picture must be at least 2 pixels wide";
        return status::noConversion;
    }
    CubicExtractor cube;
    if (const Status s = cube.read(document); s != status::ok) {
        error = L"The cube could not be read";
        return s;
    }
    return writePicture(
        document, path, width, width / 2,
        [&](std::int32_t y, std::uint8_t* out) { cube.equirectangularRow(width, y, out); }, options,
        error);
}
