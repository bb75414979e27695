#pragma once

#include "core/Status.h"
#include "interchange/raster/RasterExport.h"

#include <array>
#include <cstdint>
#include <string>

class ZmapDocument;

/// Pictures out of a cube panorama: its six faces as six files, or the whole sphere as
/// one equirectangular picture (twice as wide as high, longitude across, latitude down,
/// each pixel the bilinear sample of the cube along its direction). The picture type comes
/// from the path's extension as for any export, and every file is written through a
/// temporary file, so a failure never leaves a half-written picture.
///
/// A document that is not a full cube (six square faces with a cube camera) is refused
/// with -12 and the text "Not a full cube image".
class PanoramaExport {
public:
    /// The refusal's text.
    static const std::wstring& notFullCubeText();
    /// Whether `document` holds a whole cube panorama.
    static bool isFullCube(const ZmapDocument& document);

    /// The face files for `path`: its name with "-front", "-right", "-back", "-left", "-up"
    /// and "-down" before the extension (faces 0 to 5).
    static std::array<std::wstring, 6> facePaths(const std::wstring& path);

    /// Writes the six faces, each n by n pixels, to facePaths(path). On failure `error`
    /// says why (and no face written before is removed: each is a whole picture).
    [[nodiscard]] static Status exportFaces(const ZmapDocument& document, const std::wstring& path,
                                            const ExportOptions& options, std::wstring& error);
    /// Writes the equirectangular picture, `width` by width / 2 pixels (0: four face
    /// widths); the centre looks along face 0, the left and right edges along face 2.
    [[nodiscard]] static Status exportEquirectangular(const ZmapDocument& document,
                                                      const std::wstring& path, std::int32_t width,
                                                      const ExportOptions& options,
                                                      std::wstring& error);
};
