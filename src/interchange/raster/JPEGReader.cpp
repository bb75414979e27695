#include "interchange/raster/JPEGReader.h"

#include "core/StringUtils.h"
#include "interchange/raster/ByteReader.h"
#include "interchange/raster/Raster.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <jerror.h>
#include <jpeglib.h>
#include <new>
#include <vector>

namespace {

constexpr int exifMarker = JPEG_APP0 + 1;

struct JpegError {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    std::wstring* error;
};

void onError(j_common_ptr info) {
    auto* e = reinterpret_cast<JpegError*>(info->err);
    char text[JMSG_LENGTH_MAX];
    (*info->err->format_message)(info, text);
    if (e->error->empty()) {
        *e->error = getWCS(text);
    }
    std::longjmp(e->jump, 1);
}

/// Warnings are let pass, except the one for data that ends early: libjpeg would fill the
/// rest with grey, and a cut file is damaged.
void onMessage(j_common_ptr info, int level) {
    if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) {
        auto* e = reinterpret_cast<JpegError*>(info->err);
        *e->error = L"The JPEG data is cut short";
        std::longjmp(e->jump, 1);
    }
}

/// Everything the decoder touches lives here, outside the frames that longjmp leaves.
struct JpegContext {
    Raster* raster = nullptr;
    std::wstring* error = nullptr;
    std::vector<std::uint8_t> scratch;
    int orientation = 1;
    Status status = status::damaged;
};

/// Rotates or mirrors `r` by an EXIF orientation (2 to 8).
void orient(Raster& r, int orientation) {
    const bool swap = orientation >= 5;
    const std::int32_t w = r.width;
    const std::int32_t h = r.height;
    const std::int32_t ow = swap ? h : w;
    const std::int32_t oh = swap ? w : h;
    std::vector<std::uint8_t> out(r.colour.size());
    for (std::int32_t y = 0; y < h; ++y) {
        const std::uint8_t* in = r.row(y);
        for (std::int32_t x = 0; x < w; ++x, in += 3) {
            std::int32_t tx = x;
            std::int32_t ty = y;
            switch (orientation) {
            case 2:
                tx = w - 1 - x;
                break;
            case 3:
                tx = w - 1 - x;
                ty = h - 1 - y;
                break;
            case 4:
                ty = h - 1 - y;
                break;
            case 5:
                tx = y;
                ty = x;
                break;
            case 6:
                tx = h - 1 - y;
                ty = x;
                break;
            case 7:
                tx = h - 1 - y;
                ty = w - 1 - x;
                break;
            case 8:
                tx = y;
                ty = w - 1 - x;
                break;
            default:
                break;
            }
            std::memcpy(out.data() + (std::size_t(ty) * ow + tx) * 3, in, 3);
        }
    }
    r.colour.swap(out);
    r.width = ow;
    r.height = oh;
}

// Kept out of line so that no object of it shares the frame of setjmp.
[[gnu::noinline]] void decode(JpegContext& c, jpeg_decompress_struct& info) {
    jpeg_save_markers(&info, exifMarker, 0xFFFF);
    jpeg_read_header(&info, TRUE);
    for (jpeg_saved_marker_ptr m = info.marker_list; m; m = m->next) {
        if (m->marker == exifMarker) {
            c.orientation = exifOrientation(m->data, m->data_length);
        }
    }
    const bool cmyk = info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK;
    const bool grey = info.jpeg_color_space == JCS_GRAYSCALE;
    if (info.jpeg_color_space == JCS_UNKNOWN) {
        *c.error = L"The JPEG colour space is not supported";
        c.status = status::unsupportedCompression;
        return;
    }
    c.status = checkRasterSize(info.image_width, info.image_height, false, *c.error);
    if (c.status != status::ok) {
        return;
    }
    info.out_color_space = cmyk ? JCS_CMYK : grey ? JCS_GRAYSCALE : JCS_EXT_BGR;
    jpeg_start_decompress(&info);
    c.status = c.raster->allocate(info.output_width, info.output_height, false, *c.error);
    if (c.status != status::ok) {
        jpeg_abort_decompress(&info);
        return;
    }
    c.status = status::damaged;
    Raster& r = *c.raster;
    const std::uint32_t w = info.output_width;
    if (cmyk || grey) {
        c.scratch.resize(std::size_t(w) * info.output_components);
    }
    // Adobe writes CMYK inverted; its APP14 marker tells us so.
    const bool inverted = info.saw_Adobe_marker;
    while (info.output_scanline < info.output_height) {
        const auto y = static_cast<std::int32_t>(info.output_scanline);
        std::uint8_t* out = r.row(y);
        JSAMPROW row = (cmyk || grey) ? c.scratch.data() : out;
        jpeg_read_scanlines(&info, &row, 1);
        if (grey) {
            for (std::uint32_t x = 0; x < w; ++x, out += 3) {
                out[0] = out[1] = out[2] = c.scratch[x];
            }
        } else if (cmyk) {
            const std::uint8_t* in = c.scratch.data();
            for (std::uint32_t x = 0; x < w; ++x, in += 4, out += 3) {
                const std::uint32_t k = inverted ? in[3] : 255u - in[3];
                for (int i = 0; i < 3; ++i) {
                    const std::uint32_t ink = inverted ? in[2 - i] : 255u - in[2 - i];
                    out[i] = std::uint8_t((ink * k + 127) / 255);
                }
            }
        }
    }
    jpeg_finish_decompress(&info);
    c.status = status::ok;
}

/// The one frame that libjpeg's errors return to; nothing here has a destructor.
bool decodeGuarded(JpegContext& c, jpeg_decompress_struct& info, JpegError& jerr,
                   const std::uint8_t* data, std::size_t size) {
    if (setjmp(jerr.jump) != 0) {
        return false;
    }
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, data, static_cast<unsigned long>(size));
    decode(c, info);
    return true;
}

} // namespace

int exifOrientation(const std::uint8_t* data, std::size_t size) {
    // "Exif\0\0", then a TIFF header and its first directory.
    if (size < 14 || std::memcmp(data, "Exif\0\0", 6) != 0) {
        return 1;
    }
    const std::uint8_t* t = data + 6;
    const std::size_t n = size - 6;
    const bool little = t[0] == 'I' && t[1] == 'I';
    if (!little && !(t[0] == 'M' && t[1] == 'M')) {
        return 1;
    }
    auto u16 = [&](std::size_t at) { return little ? bytes::le16(t + at) : bytes::be16(t + at); };
    auto u32 = [&](std::size_t at) { return little ? bytes::le32(t + at) : bytes::be32(t + at); };
    const std::size_t dir = u32(4);
    if (dir > n || n - dir < 2) {
        return 1;
    }
    const std::size_t count = u16(dir);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t entry = dir + 2 + i * 12;
        if (entry + 12 > n) {
            return 1;
        }
        if (u16(entry) == 0x0112) { // Orientation, a SHORT
            const int v = u16(entry + 8);
            return v >= 1 && v <= 8 ? v : 1;
        }
    }
    return 1;
}

Status JPEGReader::read(const std::uint8_t* data, std::size_t size, Raster& raster,
                        std::wstring& error) {
    raster.clear();
    error.clear();
    if (size < 3 || data[0] != 0xFF || data[1] != 0xD8 || data[2] != 0xFF) {
        error = L"Not a JPEG file: the start marker is missing";
        return status::unsupportedVersion;
    }
    JpegContext c;
    c.raster = &raster;
    c.error = &error;
    jpeg_decompress_struct info;
    std::memset(&info, 0, sizeof info);
    JpegError jerr;
    jerr.error = &error;
    info.err = jpeg_std_error(&jerr.manager);
    jerr.manager.error_exit = onError;
    jerr.manager.emit_message = onMessage;
    try {
        if (!decodeGuarded(c, info, jerr, data, size)) {
            c.status = status::damaged;
        }
    } catch (const std::bad_alloc&) {
        error = L"Not enough memory for the picture";
        c.status = status::outOfMemory;
    }
    jpeg_destroy_decompress(&info);
    if (c.status == status::ok && c.orientation != 1) {
        try {
            orient(raster, c.orientation);
        } catch (const std::bad_alloc&) {
            error = L"Not enough memory for the picture";
            c.status = status::outOfMemory;
        }
    }
    if (c.status != status::ok) {
        raster.clear();
    }
    return c.status;
}
