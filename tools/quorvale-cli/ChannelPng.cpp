// PNG pictures of a document's channels, for the commands that write them.

#include "ChannelPng.h"

#include "CliSupport.h"
#include "image/DrawTarget.h"
#include "image/ZmapDocument.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

namespace cli {

namespace {

/// Collects one band of rows of the drawn image.
class BandTarget : public DrawTarget {
public:
    BandTarget(std::int32_t width, std::int32_t rows)
        : rowBytes(static_cast<std::size_t>(width) * 3),
          pixels(rowBytes * static_cast<std::size_t>(rows)) {}

    void DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                  const std::uint8_t* rgb, std::int32_t stride) override {
        for (std::int32_t r = 0; r < h; ++r) {
            std::memcpy(&pixels[static_cast<std::size_t>(y - top + r) * rowBytes +
                                static_cast<std::size_t>(x) * 3],
                        rgb + static_cast<std::size_t>(r) * stride,
                        static_cast<std::size_t>(w) * 3);
        }
    }

    std::size_t rowBytes;
    std::vector<std::uint8_t> pixels;
    std::int32_t top = 0;
};

/// A band of tile rows at a time. Objects that need destruction are made before setjmp: libpng
/// reports errors by longjmp.
Status writePng(const ZmapDocument& doc, std::uint32_t channel, const std::string& path) {
    const TileGeometry& g = doc.geometry();
    BandTarget band(g.width, g.tileHeight);
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        return status::fromErrno(errno, status::writeFailed);
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        std::fclose(file);
        return status::outOfMemory;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(file);
        return status::writeFailed;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(g.width), static_cast<png_uint_32>(g.height),
                 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png); // the store's pixels are blue, green, red
    Status result = status::ok;
    for (std::int32_t top = 0; top < g.height && result == status::ok; top += g.tileHeight) {
        const std::int32_t bottom = std::min(g.height, top + g.tileHeight) - 1;
        band.top = top;
        const IExtent<2> rows(0, top, g.width - 1, bottom);
        doc.draw(result, band, channel, rows, rows, nullptr);
        for (std::int32_t y = top; y <= bottom && result == status::ok; ++y) {
            png_write_row(png, &band.pixels[static_cast<std::size_t>(y - top) * band.rowBytes]);
        }
        if (cli::interrupted()) {
            result = status::stopped;
        }
    }
    if (result == status::ok) {
        png_write_end(png, nullptr);
    }
    png_destroy_write_struct(&png, &info);
    if (std::fclose(file) != 0 && result == status::ok) {
        result = status::fromErrno(errno, status::writeFailed);
    }
    return result;
}

} // namespace

Status writeChannelPng(const ZmapDocument& document, std::uint32_t channel,
                       const std::string& path) {
    try {
        return writePng(document, channel, path);
    } catch (const std::bad_alloc&) {
        return status::outOfMemory;
    }
}

} // namespace cli
