#include "interchange/raster/PNGReader.h"

#include "core/StringUtils.h"
#include "interchange/raster/ByteReader.h"
#include "interchange/raster/Raster.h"

#include <csetjmp>
#include <cstring>
#include <new>
#include <png.h>
#include <vector>

namespace {

/// Everything the decoder touches lives here, outside the frames that longjmp leaves.
struct PngContext {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    std::size_t at = 0;
    Raster* raster = nullptr;
    std::wstring* error = nullptr;
    std::vector<std::uint8_t> scratch;
    std::vector<png_bytep> rows;
    Status status = status::damaged;
    std::jmp_buf jump;
};

void readData(png_structp png, png_bytep out, png_size_t length) {
    auto* c = static_cast<PngContext*>(png_get_io_ptr(png));
    if (c->size - c->at < length) {
        png_error(png, "The PNG data is cut short");
    }
    std::memcpy(out, c->data + c->at, length);
    c->at += length;
}

void onError(png_structp png, png_const_charp message) {
    auto* c = static_cast<PngContext*>(png_get_error_ptr(png));
    if (c->error->empty()) {
        *c->error = getWCS(message);
    }
    std::longjmp(c->jump, 1);
}

void onWarning(png_structp, png_const_charp) {}

std::wstring textOf(const png_text& t) {
    return utf8(std::string(t.text, t.text_length));
}

/// Decodes into c.raster; longjmps out on a libpng error. Holds no object with a destructor.
// Kept out of line so that no object of it shares the frame of setjmp.
[[gnu::noinline]] void decode(PngContext& c, png_structp png, png_infop info) {
    png_set_read_fn(png, &c, readData);
    png_read_info(png, info);
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    int depth = 0;
    int colourType = 0;
    int interlace = 0;
    png_get_IHDR(png, info, &width, &height, &depth, &colourType, &interlace, nullptr, nullptr);

    const bool alpha =
        (colourType & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    c.status = checkRasterSize(width, height, alpha, *c.error);
    if (c.status != status::ok) {
        return;
    }
    png_set_expand(png);
    png_set_scale_16(png);
    if ((colourType & PNG_COLOR_MASK_COLOR) == 0) {
        png_set_gray_to_rgb(png);
    }
    png_set_bgr(png);
    const int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);

    c.status = c.raster->allocate(width, height, alpha, *c.error);
    if (c.status != status::ok) {
        return;
    }
    c.raster->alphaIsCoverage = alpha;
    Raster& r = *c.raster;
    c.status = status::damaged;
    if (!alpha) {
        // Straight into the raster's rows.
        c.rows.resize(height);
        for (png_uint_32 y = 0; y < height; ++y) {
            c.rows[y] = r.row(static_cast<std::int32_t>(y));
        }
        png_read_image(png, c.rows.data());
    } else {
        // Blue, green, red, alpha rows split into colour and alpha: a row at a time, or the
        // whole picture when the file is interlaced.
        const std::size_t rowBytes = std::size_t(width) * 4;
        const png_uint_32 held = passes > 1 ? height : 1;
        c.scratch.resize(rowBytes * held);
        auto split = [&r, width](const std::uint8_t* in, std::int32_t y) {
            std::uint8_t* out = r.row(y);
            std::uint8_t* a = r.alphaRow(y);
            for (png_uint_32 x = 0; x < width; ++x, in += 4, out += 3) {
                out[0] = in[0];
                out[1] = in[1];
                out[2] = in[2];
                a[x] = in[3];
            }
        };
        if (passes > 1) {
            c.rows.resize(height);
            for (png_uint_32 y = 0; y < height; ++y) {
                c.rows[y] = c.scratch.data() + rowBytes * y;
            }
            png_read_image(png, c.rows.data());
            for (png_uint_32 y = 0; y < height; ++y) {
                split(c.rows[y], static_cast<std::int32_t>(y));
            }
        } else {
            for (png_uint_32 y = 0; y < height; ++y) {
                png_read_row(png, c.scratch.data(), nullptr);
                split(c.scratch.data(), static_cast<std::int32_t>(y));
            }
        }
    }
    png_read_end(png, info);
    png_textp texts = nullptr;
    int count = 0;
    png_get_text(png, info, &texts, &count);
    for (int i = 0; i < count; ++i) {
        if (std::strcmp(texts[i].key, "Title") == 0) {
            r.title = textOf(texts[i]);
        } else if (std::strcmp(texts[i].key, "Author") == 0) {
            r.author = textOf(texts[i]);
        }
    }
    c.status = status::ok;
}

/// The one frame that libpng's errors return to; nothing here has a destructor.
bool decodeGuarded(PngContext& c, png_structp png, png_infop info) {
    if (setjmp(c.jump) != 0) {
        return false;
    }
    decode(c, png, info);
    return true;
}

} // namespace

Status PNGReader::read(const std::uint8_t* data, std::size_t size, Raster& raster,
                       std::wstring& error) {
    raster.clear();
    error.clear();
    if (size < 8 || png_sig_cmp(data, 0, 8) != 0) {
        error = L"Not a PNG file: the signature is missing";
        return status::unsupportedVersion;
    }
    // The size is checked from the header chunk itself, before libpng reads on.
    if (size >= 24 && std::memcmp(data + 12, "IHDR", 4) == 0) {
        const std::uint32_t w = bytes::be32(data + 16);
        const std::uint32_t h = bytes::be32(data + 20);
        if (const Status s = checkRasterSize(w, h, false, error);
            s == status::unsupportedCompression) {
            return s;
        }
        error.clear();
    }
    PngContext c;
    c.data = data;
    c.size = size;
    c.raster = &raster;
    c.error = &error;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &c, onError, onWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        error = L"Not enough memory to read the PNG file";
        return status::outOfMemory;
    }
    try {
        if (!decodeGuarded(c, png, info)) {
            c.status = status::damaged;
        }
    } catch (const std::bad_alloc&) {
        error = L"Not enough memory for the picture";
        c.status = status::outOfMemory;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    if (c.status != status::ok) {
        raster.clear();
    }
    return c.status;
}
