#include "interchange/raster/RasterExport.h"

#include "core/StringUtils.h"

#include <cstdarg>
#include <tiffio.h>
#include <vector>

namespace {

int onError(TIFF*, void* user, const char*, const char* format, va_list args) {
    auto* text = static_cast<std::wstring*>(user);
    if (text->empty()) {
        char message[512];
        std::vsnprintf(message, sizeof message, format, args);
        *text = getWCS(message);
    }
    return 1;
}

} // namespace

Status RasterExportTIF::writeFile(std::FILE*, const std::string& filePath, Rows& rows,
                                  double resolutionX, double resolutionY,
                                  const ExportOptions& options) {
    std::wstring message;
    TIFFOpenOptions* openOptions = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(openOptions, onError, &message);
    TIFF* tif = TIFFOpenExt(
        filePath.c_str(),
        rows.width() * std::int64_t(rows.height()) * 3 > (std::int64_t(1) << 31) ? "w8" : "w",
        openOptions);
    TIFFOpenOptionsFree(openOptions);
    if (!tif) {
        errorText_ = message;
        return status::writeFailed;
    }
    const auto w = std::uint32_t(rows.width());
    const auto h = std::uint32_t(rows.height());
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, float(resolutionX / 100));
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, float(resolutionY / 100));
    TIFFSetField(tif, TIFFTAG_SOFTWARE, "Quorvale");
    const std::string title = utf8(options.title);
    const std::string author = utf8(options.author);
    const std::string copyright = utf8(options.copyright);
    if (!title.empty()) {
        TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, title.c_str());
    }
    if (!author.empty()) {
        TIFFSetField(tif, TIFFTAG_ARTIST, author.c_str());
    }
    if (!copyright.empty()) {
        TIFFSetField(tif, TIFFTAG_COPYRIGHT, copyright.c_str());
    }
    std::vector<std::uint8_t> rgb(std::size_t(w) * 3);
    Status result = status::ok;
    for (std::uint32_t y = 0; y < h; ++y) {
        if (reportRow(options, std::int32_t(y), std::int32_t(h))) {
            result = status::stopped;
            break;
        }
        // Blue, green, red to the file's red, green, blue.
        const std::uint8_t* in = rows.row(std::int32_t(y));
        for (std::size_t i = 0; i < std::size_t(w) * 3; i += 3) {
            rgb[i] = in[i + 2];
            rgb[i + 1] = in[i + 1];
            rgb[i + 2] = in[i];
        }
        if (TIFFWriteScanline(tif, rgb.data(), y, 0) < 0) {
            result = status::writeFailed;
            break;
        }
    }
    if (result == status::ok && !TIFFWriteDirectory(tif)) {
        result = status::writeFailed;
    }
    TIFFClose(tif);
    if (result == status::writeFailed) {
        errorText_ = message.empty() ? L"The TIFF file could not be written" : message;
    }
    return result;
}
