#include "PictureFiles.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <jpeglib.h>
#include <png.h>
#include <stdexcept>
#include <tiffio.h>
#include <unistd.h>

namespace pictures {

Rgba pattern(std::int32_t width, std::int32_t height, bool withAlpha) {
    Rgba p{width, height, Bytes(std::size_t(width) * height * 4)};
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            std::uint8_t* q = p.at(x, y);
            q[0] = std::uint8_t(x * 37 + y);
            q[1] = std::uint8_t(y * 53 + 3 * x);
            q[2] = std::uint8_t(x * 11 + y * 7 + 100);
            q[3] = withAlpha ? std::uint8_t((x + 2 * y) * 29) : 255;
        }
    }
    return p;
}

Rgba gradient(std::int32_t width, std::int32_t height) {
    Rgba p{width, height, Bytes(std::size_t(width) * height * 4)};
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            std::uint8_t* q = p.at(x, y);
            q[0] = std::uint8_t(40 + 160 * x / std::max(1, width - 1));
            q[1] = std::uint8_t(200 - 150 * y / std::max(1, height - 1));
            q[2] = 120;
            q[3] = 255;
        }
    }
    return p;
}

void writeFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

namespace {

void pngWrite(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}
void pngFlush(png_structp) {}

/// A file in a temporary place for the libraries that want one.
struct ScratchFile {
    std::string path;
    ScratchFile() {
        char name[] = "/tmp/quorvale-picture-XXXXXX";
        const int fd = ::mkstemp(name);
        if (fd < 0) {
            throw std::runtime_error("mkstemp");
        }
        ::close(fd);
        path = name;
    }
    ~ScratchFile() { ::unlink(path.c_str()); }
};

} // namespace

Bytes writePng(const Rgba& p, const PngOptions& o) {
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw std::runtime_error("libpng failed");
    }
    png_set_write_fn(png, &out, pngWrite, pngFlush);
    png_set_IHDR(png, info, p.width, p.height, o.bitDepth, o.colourType,
                 o.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_color palette[256];
    png_byte paletteAlpha[256];
    if (o.colourType == PNG_COLOR_TYPE_PALETTE) {
        // Entry i is (i, 255 - i, i * 2), alpha i * 3.
        for (int i = 0; i < 256; ++i) {
            palette[i] = {png_byte(i), png_byte(255 - i), png_byte(i * 2)};
            paletteAlpha[i] = png_byte(i * 3);
        }
        png_set_PLTE(png, info, palette, 1 << o.bitDepth);
        if (o.transparentColour) {
            png_set_tRNS(png, info, paletteAlpha, 1 << o.bitDepth, nullptr);
        }
    } else if (o.transparentColour) {
        // The key is the top-left pixel's value.
        png_color_16 key{};
        const int scale = o.bitDepth == 16 ? 257 : 1;
        key.gray = png_uint_16(p.at(0, 0)[0] * scale);
        key.red = png_uint_16(p.at(0, 0)[0] * scale);
        key.green = png_uint_16(p.at(0, 0)[1] * scale);
        key.blue = png_uint_16(p.at(0, 0)[2] * scale);
        png_set_tRNS(png, info, nullptr, 0, &key);
    }
    std::vector<png_text> texts;
    if (!o.title.empty()) {
        texts.push_back({PNG_TEXT_COMPRESSION_NONE, const_cast<char*>("Title"),
                         const_cast<char*>(o.title.c_str()), o.title.size(), 0, nullptr, nullptr});
    }
    if (!o.author.empty()) {
        texts.push_back({PNG_TEXT_COMPRESSION_NONE, const_cast<char*>("Author"),
                         const_cast<char*>(o.author.c_str()), o.author.size(), 0, nullptr,
                         nullptr});
    }
    if (!texts.empty()) {
        png_set_text(png, info, texts.data(), int(texts.size()));
    }
    png_write_info(png, info);
    const int channels = o.colourType == PNG_COLOR_TYPE_RGB          ? 3
                         : o.colourType == PNG_COLOR_TYPE_RGB_ALPHA  ? 4
                         : o.colourType == PNG_COLOR_TYPE_GRAY_ALPHA ? 2
                                                                     : 1;
    const int bytesPerSample = o.bitDepth == 16 ? 2 : 1;
    std::vector<Bytes> rows(p.height);
    for (std::int32_t y = 0; y < p.height; ++y) {
        Bytes& row = rows[y];
        row.assign(std::size_t(p.width) * channels * bytesPerSample + 1, 0);
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* q = p.at(x, y);
            std::uint8_t samples[4];
            switch (o.colourType) {
            case PNG_COLOR_TYPE_RGB:
                samples[0] = q[0], samples[1] = q[1], samples[2] = q[2];
                break;
            case PNG_COLOR_TYPE_RGB_ALPHA:
                samples[0] = q[0], samples[1] = q[1], samples[2] = q[2], samples[3] = q[3];
                break;
            case PNG_COLOR_TYPE_GRAY_ALPHA:
                samples[0] = q[0], samples[1] = q[3];
                break;
            default:
                samples[0] = q[0];
                break;
            }
            if (o.bitDepth < 8) {
                // Packed from the high bits of the first byte.
                const int perByte = 8 / o.bitDepth;
                const int shift = (perByte - 1 - x % perByte) * o.bitDepth;
                row[x / perByte] |= std::uint8_t((samples[0] & ((1 << o.bitDepth) - 1)) << shift);
                continue;
            }
            for (int c = 0; c < channels; ++c) {
                if (bytesPerSample == 2) {
                    row[(x * channels + c) * 2] = samples[c];
                    row[(x * channels + c) * 2 + 1] = samples[c];
                } else {
                    row[x * channels + c] = samples[c];
                }
            }
        }
    }
    std::vector<png_bytep> pointers;
    for (Bytes& row : rows) {
        pointers.push_back(row.data());
    }
    png_write_image(png, pointers.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

Bytes writeJpeg(const Rgba& p, const JpegOptions& o) {
    jpeg_compress_struct info;
    jpeg_error_mgr err;
    info.err = jpeg_std_error(&err);
    jpeg_create_compress(&info);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &buffer, &size);
    info.image_width = p.width;
    info.image_height = p.height;
    info.input_components = o.components;
    info.in_color_space = o.components == 1   ? JCS_GRAYSCALE
                          : o.components == 4 ? JCS_CMYK
                                              : JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, o.quality, TRUE);
    if (o.progressive) {
        jpeg_simple_progression(&info);
    }
    if (o.components == 4) {
        info.write_Adobe_marker = TRUE;
    }
    jpeg_start_compress(&info, TRUE);
    if (o.orientation != 0) {
        // "Exif\0\0", a little-endian TIFF header, one directory with the orientation.
        const std::uint8_t exif[] = {'E', 'x',  'i',  'f', 0,
                                     0,   'I',  'I',  42,  0,
                                     8,   0,    0,    0,   1,
                                     0,   0x12, 0x01, 3,   0,
                                     1,   0,    0,    0,   std::uint8_t(o.orientation),
                                     0,   0,    0,    0,   0,
                                     0,   0};
        jpeg_write_marker(&info, JPEG_APP0 + 1, exif, sizeof exif);
    }
    Bytes row(std::size_t(p.width) * o.components);
    for (std::int32_t y = 0; y < p.height; ++y) {
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* q = p.at(x, y);
            if (o.components == 1) {
                row[x] = q[0];
            } else if (o.components == 3) {
                std::memcpy(&row[x * 3], q, 3);
            } else {
                // Inverted CMYK as Adobe writes it: ink = 255 - value; no black.
                row[x * 4] = q[0];
                row[x * 4 + 1] = q[1];
                row[x * 4 + 2] = q[2];
                row[x * 4 + 3] = 255;
            }
        }
        JSAMPROW r = row.data();
        jpeg_write_scanlines(&info, &r, 1);
    }
    jpeg_finish_compress(&info);
    Bytes out(buffer, buffer + size);
    jpeg_destroy_compress(&info);
    std::free(buffer);
    return out;
}

namespace {

void writeTiffPage(TIFF* tif, const Rgba& p, const TiffOptions& o) {
    const int colour = o.grey ? 1 : 3;
    const int samples = colour + (o.alpha ? 1 : 0);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, p.width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, p.height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, o.bits);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples);
    const bool jpeg = o.compression == COMPRESSION_JPEG;
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
                 o.grey ? PHOTOMETRIC_MINISBLACK
                 : jpeg ? PHOTOMETRIC_YCBCR
                        : PHOTOMETRIC_RGB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, o.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, o.compression);
    if (jpeg) {
        TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    }
    if (o.alpha) {
        std::uint16_t extra = o.associated ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    if (o.tiled) {
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, jpeg ? 16 : 3);
    }
    const int bytesPerSample = o.bits / 8;
    const int planes = o.planar ? samples : 1;
    const int perPixel = o.planar ? 1 : samples;
    // The whole picture sample by sample, plane by plane.
    std::vector<Bytes> planeData(
        planes, Bytes(std::size_t(p.width) * p.height * perPixel * bytesPerSample));
    for (std::int32_t y = 0; y < p.height; ++y) {
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* q = p.at(x, y);
            for (int s = 0; s < samples; ++s) {
                std::uint32_t v = s < colour ? q[s] : q[3];
                if (o.associated && s < colour) {
                    v = (v * q[3] + 127) / 255;
                }
                const int plane = o.planar ? s : 0;
                const std::size_t index =
                    (std::size_t(y) * p.width + x) * perPixel + (o.planar ? 0 : s);
                if (bytesPerSample == 2) {
                    const std::uint16_t v16 = std::uint16_t(v * 257);
                    std::memcpy(&planeData[plane][index * 2], &v16, 2);
                } else {
                    planeData[plane][index] = std::uint8_t(v);
                }
            }
        }
    }
    const std::size_t rowBytes = std::size_t(p.width) * perPixel * bytesPerSample;
    if (o.tiled) {
        Bytes tile(std::size_t(TIFFTileSize(tif)));
        for (int plane = 0; plane < planes; ++plane) {
            for (std::int32_t ty = 0; ty < p.height; ty += 16) {
                for (std::int32_t tx = 0; tx < p.width; tx += 16) {
                    std::fill(tile.begin(), tile.end(), 0);
                    const std::size_t tileRow = 16 * perPixel * bytesPerSample;
                    for (std::int32_t r = 0; r < 16 && ty + r < p.height; ++r) {
                        const std::int32_t across = std::min(16, p.width - tx);
                        std::memcpy(&tile[r * tileRow],
                                    &planeData[plane][(ty + r) * rowBytes +
                                                      std::size_t(tx) * perPixel * bytesPerSample],
                                    std::size_t(across) * perPixel * bytesPerSample);
                    }
                    TIFFWriteEncodedTile(tif, TIFFComputeTile(tif, tx, ty, 0, plane), tile.data(),
                                         tmsize_t(tile.size()));
                }
            }
        }
    } else {
        for (int plane = 0; plane < planes; ++plane) {
            for (std::int32_t y = 0; y < p.height; ++y) {
                TIFFWriteScanline(tif, &planeData[plane][y * rowBytes], y, plane);
            }
        }
    }
    TIFFWriteDirectory(tif);
}

} // namespace

Bytes writeTiff(const Rgba& p, const TiffOptions& o) {
    ScratchFile scratch;
    TIFF* tif = TIFFOpen(scratch.path.c_str(), "w");
    if (!tif) {
        throw std::runtime_error("TIFFOpen");
    }
    writeTiffPage(tif, p, o);
    if (o.secondPage) {
        writeTiffPage(tif, pattern(3, 2, false), TiffOptions{});
    }
    TIFFClose(tif);
    return readFile(scratch.path);
}

Bytes bmp24(const Rgba& p) {
    const std::uint32_t stride = (std::uint32_t(p.width) * 3 + 3) & ~3u;
    const std::uint32_t dataSize = stride * p.height;
    Bytes b(54 + dataSize, 0);
    auto put32 = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) {
            b[at + i] = std::uint8_t(v >> (8 * i));
        }
    };
    b[0] = 'B';
    b[1] = 'M';
    put32(2, std::uint32_t(b.size()));
    put32(10, 54);
    put32(14, 40);
    put32(18, std::uint32_t(p.width));
    put32(22, std::uint32_t(p.height));
    b[26] = 1;
    b[28] = 24;
    for (std::int32_t y = 0; y < p.height; ++y) {
        std::uint8_t* row = &b[54 + std::size_t(p.height - 1 - y) * stride];
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* q = p.at(x, y);
            row[x * 3] = q[2];
            row[x * 3 + 1] = q[1];
            row[x * 3 + 2] = q[0];
        }
    }
    return b;
}

} // namespace pictures
