#include "interchange/raster/TIFFReader.h"

#include "core/StringUtils.h"
#include "interchange/raster/Raster.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <tiffio.h>
#include <vector>

namespace {

/// A TIFF file held in memory, as libtiff's client procedures see it.
struct MemoryFile {
    const std::uint8_t* data;
    std::size_t size;
    toff_t at = 0;
    std::wstring* error;
};

tmsize_t readProc(thandle_t h, void* out, tmsize_t n) {
    auto* f = static_cast<MemoryFile*>(h);
    if (n < 0 || f->at >= f->size) {
        return 0;
    }
    const std::size_t count = std::min<std::size_t>(std::size_t(n), f->size - f->at);
    std::memcpy(out, f->data + f->at, count);
    f->at += count;
    return static_cast<tmsize_t>(count);
}
tmsize_t writeProc(thandle_t, void*, tmsize_t) {
    return 0;
}
toff_t seekProc(thandle_t h, toff_t offset, int whence) {
    auto* f = static_cast<MemoryFile*>(h);
    switch (whence) {
    case SEEK_SET:
        f->at = offset;
        break;
    case SEEK_CUR:
        f->at += offset;
        break;
    case SEEK_END:
        f->at = f->size + offset;
        break;
    default:
        break;
    }
    return f->at;
}
int closeProc(thandle_t) {
    return 0;
}
toff_t sizeProc(thandle_t h) {
    return static_cast<MemoryFile*>(h)->size;
}
int mapProc(thandle_t h, void** base, toff_t* size) {
    auto* f = static_cast<MemoryFile*>(h);
    *base = const_cast<std::uint8_t*>(f->data);
    *size = f->size;
    return 1;
}
void unmapProc(thandle_t, void*, toff_t) {}

int onError(TIFF*, void* user, const char* module, const char* format, va_list args) {
    auto* error = static_cast<std::wstring*>(user);
    if (error->empty()) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, args);
        *error = getWCS(text);
    }
    return 1;
}
int onWarning(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

/// The layout of the picture as the direct path reads it.
struct Layout {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t bits = 8;
    std::uint16_t samples = 1;
    std::uint16_t photometric = PHOTOMETRIC_RGB;
    bool planar = false;
    std::int32_t alphaSample = -1; ///< the sample that holds alpha, or -1
    bool associated = false;
    std::uint16_t* map[3] = {nullptr, nullptr, nullptr}; ///< a palette's red, green, blue
};

inline std::uint8_t to8(std::uint8_t v) {
    return v;
}
inline std::uint8_t to8(std::uint16_t v) {
    return std::uint8_t((std::uint32_t(v) * 255 + 32767) / 65535);
}

/// Converts one row; `planes[s]` points at sample s of the first pixel, `step` samples
/// apart from one pixel to the next.
template <class T>
void convertRow(const Layout& l, const T* const* planes, std::size_t step, std::uint8_t* out,
                std::uint8_t* alpha) {
    const std::uint32_t w = l.width;
    const T* a = l.alphaSample >= 0 ? planes[l.alphaSample] : nullptr;
    switch (l.photometric) {
    case PHOTOMETRIC_RGB: {
        const T* r = planes[0];
        const T* g = planes[1];
        const T* b = planes[2];
        for (std::uint32_t x = 0; x < w; ++x, out += 3) {
            const std::size_t i = x * step;
            out[0] = to8(b[i]);
            out[1] = to8(g[i]);
            out[2] = to8(r[i]);
        }
        break;
    }
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE: {
        const T* v = planes[0];
        const std::uint8_t flip = l.photometric == PHOTOMETRIC_MINISWHITE ? 255 : 0;
        for (std::uint32_t x = 0; x < w; ++x, out += 3) {
            out[0] = out[1] = out[2] = std::uint8_t(to8(v[x * step]) ^ flip);
        }
        break;
    }
    case PHOTOMETRIC_PALETTE: {
        const T* v = planes[0];
        for (std::uint32_t x = 0; x < w; ++x, out += 3) {
            const std::size_t i = v[x * step];
            out[0] = std::uint8_t(l.map[2][i] >> 8);
            out[1] = std::uint8_t(l.map[1][i] >> 8);
            out[2] = std::uint8_t(l.map[0][i] >> 8);
        }
        break;
    }
    default:
        break;
    }
    if (!a) {
        return;
    }
    out -= std::size_t(w) * 3;
    for (std::uint32_t x = 0; x < w; ++x, out += 3) {
        const std::uint8_t av = to8(a[x * step]);
        alpha[x] = av;
        if (l.associated) {
            for (int c = 0; c < 3; ++c) {
                out[c] = av == 0 ? 0 : std::uint8_t(std::min(255, (out[c] * 255 + av / 2) / av));
            }
        }
    }
}

/// Reads the picture band by band (a strip, or a row of tiles) and converts its rows.
Status readDirect(TIFF* tif, const Layout& l, Raster& raster, std::wstring& error) {
    const std::size_t bytesPerSample = l.bits / 8;
    const std::uint16_t planeCount = l.planar ? l.samples : 1;
    const std::size_t pixelSamples = l.planar ? 1 : l.samples;
    const std::size_t rowBytes = std::size_t(l.width) * pixelSamples * bytesPerSample;
    const bool tiled = TIFFIsTiled(tif) != 0;
    std::uint32_t bandRows = 0;
    std::uint32_t tileWidth = 0;
    if (tiled) {
        TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tileWidth);
        TIFFGetField(tif, TIFFTAG_TILELENGTH, &bandRows);
        if (tileWidth == 0 || bandRows == 0) {
            error = L"The TIFF tile size is not valid";
            return status::damaged;
        }
    } else {
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &bandRows);
    }
    bandRows = std::clamp<std::uint32_t>(bandRows, 1, l.height);
    // The band buffers hold every sample of a strip or row of tiles: a file may declare
    // many samples, deep ones or huge strips on a picture that itself fits, so they are
    // bounded as the picture is, before they are taken.
    const std::uint64_t tileBytes =
        tiled ? static_cast<std::uint64_t>(std::max<tmsize_t>(TIFFTileSize(tif), 0)) : 0;
    const std::uint64_t workBytes = std::uint64_t(planeCount) * rowBytes * bandRows + tileBytes;
    if (workBytes > maxRasterBytes()) {
        error = stringPrintf(L"The TIFF's strips or tiles would need %llu MB to read (%llu MB "
                             L"at most)",
                             static_cast<unsigned long long>(workBytes >> 20),
                             static_cast<unsigned long long>(maxRasterBytes() >> 20));
        return status::unsupportedCompression;
    }
    std::vector<std::vector<std::uint8_t>> bands(planeCount);
    std::vector<std::uint8_t> tile;
    for (auto& band : bands) {
        band.resize(rowBytes * bandRows);
    }
    if (tiled) {
        tile.resize(static_cast<std::size_t>(TIFFTileSize(tif)));
    }
    const std::size_t tileRowBytes = std::size_t(tileWidth) * pixelSamples * bytesPerSample;
    for (std::uint32_t top = 0; top < l.height; top += bandRows) {
        const std::uint32_t rows = std::min(bandRows, l.height - top);
        for (std::uint16_t plane = 0; plane < planeCount; ++plane) {
            std::uint8_t* band = bands[plane].data();
            if (!tiled) {
                const tstrip_t strip = TIFFComputeStrip(tif, top, plane);
                if (TIFFReadEncodedStrip(tif, strip, band, tmsize_t(rowBytes * rows)) < 0) {
                    return status::damaged;
                }
                continue;
            }
            for (std::uint32_t left = 0; left < l.width; left += tileWidth) {
                const ttile_t index = TIFFComputeTile(tif, left, top, 0, plane);
                if (TIFFReadEncodedTile(tif, index, tile.data(), tmsize_t(tile.size())) < 0) {
                    return status::damaged;
                }
                const std::size_t across = std::min(tileWidth, l.width - left);
                const std::size_t copyBytes = across * pixelSamples * bytesPerSample;
                const std::size_t offset = std::size_t(left) * pixelSamples * bytesPerSample;
                for (std::uint32_t r = 0; r < rows; ++r) {
                    std::memcpy(band + r * rowBytes + offset, tile.data() + r * tileRowBytes,
                                copyBytes);
                }
            }
        }
        for (std::uint32_t r = 0; r < rows; ++r) {
            const auto y = static_cast<std::int32_t>(top + r);
            std::uint8_t* alpha = raster.hasAlpha() ? raster.alphaRow(y) : nullptr;
            if (l.bits == 8) {
                const std::uint8_t* planes[8];
                for (std::uint16_t s = 0; s < l.samples && s < 8; ++s) {
                    planes[s] = l.planar ? bands[s].data() + r * rowBytes
                                         : bands[0].data() + r * rowBytes + s;
                }
                convertRow(l, planes, pixelSamples, raster.row(y), alpha);
            } else {
                const std::uint16_t* planes[8];
                for (std::uint16_t s = 0; s < l.samples && s < 8; ++s) {
                    planes[s] = reinterpret_cast<const std::uint16_t*>(
                                    (l.planar ? bands[s].data() : bands[0].data()) + r * rowBytes) +
                                (l.planar ? 0 : s);
                }
                convertRow(l, planes, pixelSamples, raster.row(y), alpha);
            }
        }
    }
    return status::ok;
}

/// Everything else libtiff can draw: its RGBA reader, the picture upright, then the
/// pre-multiplied colour divided back by the alpha.
Status readThroughRgba(TIFF* tif, const Layout& l, Raster& raster, std::wstring& error) {
    char message[1024] = "";
    if (!TIFFRGBAImageOK(tif, message)) {
        error = L"This kind of TIFF picture is not supported: " + getWCS(message);
        return status::unsupportedCompression;
    }
    std::vector<std::uint32_t> pixels(std::size_t(l.width) * l.height);
    if (!TIFFReadRGBAImageOriented(tif, l.width, l.height, pixels.data(), ORIENTATION_TOPLEFT, 0)) {
        return status::damaged;
    }
    const std::uint32_t* in = pixels.data();
    for (std::uint32_t y = 0; y < l.height; ++y) {
        std::uint8_t* out = raster.row(static_cast<std::int32_t>(y));
        std::uint8_t* alpha = raster.hasAlpha() ? raster.alphaRow(std::int32_t(y)) : nullptr;
        for (std::uint32_t x = 0; x < l.width; ++x, ++in, out += 3) {
            const std::uint32_t p = *in;
            std::uint32_t c[3] = {TIFFGetB(p), TIFFGetG(p), TIFFGetR(p)};
            if (alpha) {
                const std::uint32_t a = TIFFGetA(p);
                alpha[x] = std::uint8_t(a);
                for (auto& v : c) {
                    v = a == 0 ? 0 : std::min<std::uint32_t>(255, (v * 255 + a / 2) / a);
                }
            }
            out[0] = std::uint8_t(c[0]);
            out[1] = std::uint8_t(c[1]);
            out[2] = std::uint8_t(c[2]);
        }
    }
    return status::ok;
}

Status readOpen(TIFF* tif, Raster& raster, std::wstring& error) {
    Layout l;
    std::uint16_t planarConfig = PLANARCONFIG_CONTIG;
    std::uint16_t sampleFormat = SAMPLEFORMAT_UINT;
    std::uint16_t orientation = ORIENTATION_TOPLEFT;
    std::uint16_t extraCount = 0;
    std::uint16_t* extra = nullptr;
    if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &l.width) ||
        !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &l.height)) {
        error = L"The TIFF file gives no picture size";
        return status::damaged;
    }
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &l.bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &l.samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planarConfig);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &orientation);
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &l.photometric)) {
        l.photometric = l.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    }
    l.planar = planarConfig == PLANARCONFIG_SEPARATE && l.samples > 1;
    const std::uint16_t colourSamples = l.photometric == PHOTOMETRIC_RGB ? 3 : 1;
    if (extraCount > 0 && extra && l.samples > colourSamples &&
        (extra[0] == EXTRASAMPLE_ASSOCALPHA || extra[0] == EXTRASAMPLE_UNASSALPHA)) {
        l.alphaSample = colourSamples;
        l.associated = extra[0] == EXTRASAMPLE_ASSOCALPHA;
    }
    if (const Status s = raster.allocate(l.width, l.height, l.alphaSample >= 0, error);
        s != status::ok) {
        return s;
    }
    raster.alphaIsCoverage = l.alphaSample >= 0;

    bool direct = (l.bits == 8 || l.bits == 16) && sampleFormat == SAMPLEFORMAT_UINT &&
                  orientation == ORIENTATION_TOPLEFT && l.samples <= 8 &&
                  l.samples >= colourSamples;
    switch (l.photometric) {
    case PHOTOMETRIC_RGB:
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
        break;
    case PHOTOMETRIC_PALETTE:
        direct = direct && l.bits == 8 &&
                 TIFFGetField(tif, TIFFTAG_COLORMAP, &l.map[0], &l.map[1], &l.map[2]);
        break;
    default:
        direct = false;
        break;
    }
    return direct ? readDirect(tif, l, raster, error) : readThroughRgba(tif, l, raster, error);
}

} // namespace

Status TIFFReader::read(const std::uint8_t* data, std::size_t size, Raster& raster,
                        std::wstring& error) {
    raster.clear();
    error.clear();
    if (size < 8 || !((data[0] == 'I' && data[1] == 'I') || (data[0] == 'M' && data[1] == 'M'))) {
        error = L"Not a TIFF file: the byte order mark is missing";
        return status::unsupportedVersion;
    }
    MemoryFile file{data, size, 0, &error};
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, onError, &error);
    TIFFOpenOptionsSetWarningHandlerExtR(options, onWarning, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(
        options, tmsize_t(std::min<std::uint64_t>(maxRasterBytes(), std::uint64_t(1) << 40)));
    TIFF* tif = TIFFClientOpenExt("memory", "r", &file, readProc, writeProc, seekProc, closeProc,
                                  sizeProc, mapProc, unmapProc, options);
    TIFFOpenOptionsFree(options);
    if (!tif) {
        if (error.empty()) {
            error = L"The TIFF file can't be opened";
        }
        return status::unsupportedVersion;
    }
    Status s;
    try {
        s = readOpen(tif, raster, error);
    } catch (const std::bad_alloc&) {
        error = L"Not enough memory for the picture";
        s = status::outOfMemory;
    }
    TIFFClose(tif);
    if (s != status::ok) {
        if (error.empty()) {
            error = L"The TIFF data is damaged";
        }
        raster.clear();
    }
    return s;
}
