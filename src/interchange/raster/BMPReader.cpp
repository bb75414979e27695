#include "interchange/raster/BMPReader.h"

#include "core/StringUtils.h"
#include "interchange/raster/ByteReader.h"
#include "interchange/raster/Raster.h"

#include <array>
#include <bit>
#include <vector>

namespace {

constexpr std::size_t fileHeaderBytes = 14;
constexpr std::uint32_t coreHeaderBytes = 12;

enum Compression : std::uint32_t {
    compressionNone = 0,
    compressionRle8 = 1,
    compressionRle4 = 2,
    compressionBitFields = 3,
    compressionAlphaBitFields = 6,
};

/// One colour component held under a bit mask, scaled to 8 bits.
struct MaskChannel {
    std::uint32_t mask = 0;
    std::int32_t shift = 0;
    std::uint32_t max = 0; ///< the largest value under the mask, 0 for no mask

    explicit MaskChannel(std::uint32_t m = 0) : mask(m) {
        if (m != 0) {
            shift = std::countr_zero(m);
            max = m >> shift;
        }
    }
    std::uint8_t operator()(std::uint32_t pixel) const {
        if (max == 0) {
            return 0;
        }
        const std::uint32_t v = (pixel & mask) >> shift;
        return std::uint8_t((std::uint64_t(v) * 255 + max / 2) / max);
    }
};

struct Header {
    std::int64_t width = 0;
    std::int64_t height = 0; ///< negative for rows top-down
    std::uint32_t headerSize = 0;
    std::uint32_t bits = 0;
    std::uint32_t compression = compressionNone;
    std::uint32_t coloursUsed = 0;
    std::uint32_t masks[4] = {0, 0, 0, 0}; ///< red, green, blue, alpha
    std::size_t paletteOffset = 0;
    std::size_t paletteEntryBytes = 4;
    std::uint32_t pixelOffset = 0;
};

Status fail(std::wstring& error, Status s, const wchar_t* text) {
    error = text;
    return s;
}

/// Reads the headers and masks; checks what can be checked before the pixels.
Status readHeader(const std::uint8_t* data, std::size_t size, Header& h, std::wstring& error) {
    if (size < fileHeaderBytes + 4 || data[0] != 'B' || data[1] != 'M') {
        return fail(error, status::unsupportedVersion, L"Not a BMP file: the header is missing");
    }
    h.pixelOffset = bytes::le32(data + 10);
    const std::uint8_t* info = data + fileHeaderBytes;
    h.headerSize = bytes::le32(info);
    const bool core = h.headerSize == coreHeaderBytes;
    if (!core && h.headerSize != 40 && h.headerSize != 52 && h.headerSize != 56 &&
        h.headerSize != 108 && h.headerSize != 124) {
        error = stringPrintf(L"BMP info header of %u bytes is not supported", h.headerSize);
        return status::unsupportedCompression;
    }
    if (size < fileHeaderBytes + h.headerSize) {
        return fail(error, status::unsupportedVersion, L"The BMP info header is cut short");
    }
    if (core) {
        h.width = bytes::le16(info + 4);
        h.height = bytes::le16(info + 6);
        h.bits = bytes::le16(info + 10);
        h.paletteEntryBytes = 3;
    } else {
        h.width = static_cast<std::int32_t>(bytes::le32(info + 4));
        h.height = static_cast<std::int32_t>(bytes::le32(info + 8));
        h.bits = bytes::le16(info + 14);
        h.compression = bytes::le32(info + 16);
        h.coloursUsed = bytes::le32(info + 32);
    }
    h.paletteOffset = fileHeaderBytes + h.headerSize;

    switch (h.bits) {
    case 1:
    case 4:
    case 8:
    case 16:
    case 24:
    case 32:
        break;
    default:
        error = stringPrintf(L"BMP pixels of %u bits are not supported", h.bits);
        return status::unsupportedCompression;
    }
    const bool fields =
        h.compression == compressionBitFields || h.compression == compressionAlphaBitFields;
    const bool compressionFits = h.compression == compressionNone ||
                                 (h.compression == compressionRle8 && h.bits == 8) ||
                                 (h.compression == compressionRle4 && h.bits == 4) ||
                                 (fields && (h.bits == 16 || h.bits == 32));
    if (!compressionFits) {
        error = stringPrintf(L"BMP compression %u with %u bits a pixel is not supported",
                             h.compression, h.bits);
        return status::unsupportedCompression;
    }
    if (fields) {
        // A 40-byte header is followed by the masks; later headers hold them.
        const std::size_t count = h.compression == compressionAlphaBitFields ? 4 : 3;
        std::size_t at = fileHeaderBytes + 40;
        if (h.headerSize == 40) {
            h.paletteOffset += 4 * count;
        } else {
            const std::size_t inHeader = h.headerSize >= 56 ? 4 : 3;
            if (inHeader < count) {
                h.paletteOffset += 4 * (count - inHeader);
            }
        }
        if (size < at + 4 * count) {
            return fail(error, status::damaged, L"The BMP bit-field masks are cut short");
        }
        for (std::size_t i = 0; i < count; ++i, at += 4) {
            h.masks[i] = bytes::le32(data + at);
        }
        if (h.headerSize >= 56) {
            h.masks[3] = bytes::le32(data + fileHeaderBytes + 52);
        }
    } else if (h.bits == 16) {
        h.masks[0] = 0x7C00; // 5-5-5
        h.masks[1] = 0x03E0;
        h.masks[2] = 0x001F;
    } else if (h.bits == 32) {
        h.masks[0] = 0x00FF0000;
        h.masks[1] = 0x0000FF00;
        h.masks[2] = 0x000000FF;
    }
    if (h.width <= 0 || h.height == 0) {
        return fail(error, status::damaged, L"The BMP picture has no pixels");
    }
    if (h.height < 0 && (h.compression == compressionRle4 || h.compression == compressionRle8)) {
        return fail(error, status::damaged, L"A run-length coded BMP can't run top-down");
    }
    if (h.pixelOffset < h.paletteOffset || h.pixelOffset >= size) {
        return fail(error, status::damaged, L"The BMP pixel data lies outside the file");
    }
    return status::ok;
}

/// The palette as blue, green, red; entries the file doesn't hold are black.
Status readPalette(const std::uint8_t* data, std::size_t size, const Header& h,
                   std::array<std::uint8_t, 256 * 3>& palette, std::wstring& error) {
    palette.fill(0);
    const std::uint32_t full = 1u << h.bits;
    std::uint32_t count = h.coloursUsed == 0 ? full : h.coloursUsed;
    if (count > full) {
        count = full;
    }
    // The palette never reaches into the pixels.
    const std::size_t room = (h.pixelOffset - h.paletteOffset) / h.paletteEntryBytes;
    if (count > room) {
        count = static_cast<std::uint32_t>(room);
    }
    if (h.paletteOffset + std::size_t(count) * h.paletteEntryBytes > size) {
        return fail(error, status::damaged, L"The BMP palette is cut short");
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint8_t* e = data + h.paletteOffset + i * h.paletteEntryBytes;
        palette[i * 3] = e[0];
        palette[i * 3 + 1] = e[1];
        palette[i * 3 + 2] = e[2];
    }
    return status::ok;
}

/// Decodes RLE8 or RLE4 data into one palette index a pixel, rows bottom-up.
Status decodeRle(const std::uint8_t* p, const std::uint8_t* end, const Header& h,
                 std::vector<std::uint8_t>& indices, std::wstring& error) {
    const std::int64_t w = h.width;
    const std::int64_t rows = h.height;
    const bool four = h.compression == compressionRle4;
    std::int64_t x = 0;
    std::int64_t y = 0;
    auto put = [&](std::uint8_t index) {
        if (x < w && y < rows) {
            indices[std::size_t(y * w + x)] = index;
        }
        ++x;
    };
    while (y < rows) {
        if (end - p < 2) {
            return fail(error, status::damaged, L"The BMP run-length data is cut short");
        }
        const std::uint8_t count = p[0];
        const std::uint8_t value = p[1];
        p += 2;
        if (count > 0) {
            for (std::uint32_t i = 0; i < count; ++i) {
                put(four ? ((i & 1) ? (value & 0x0F) : (value >> 4)) : value);
            }
            continue;
        }
        switch (value) {
        case 0: // end of row
            x = 0;
            ++y;
            break;
        case 1: // end of picture
            return status::ok;
        case 2: // move right and up
            if (end - p < 2) {
                return fail(error, status::damaged, L"The BMP run-length data is cut short");
            }
            x += p[0];
            y += p[1];
            p += 2;
            break;
        default: { // `value` indices as they are, padded to a 16-bit boundary
            const std::size_t dataBytes = four ? (value + 1u) / 2 : value;
            const std::size_t padded = (dataBytes + 1) & ~std::size_t(1);
            if (std::size_t(end - p) < dataBytes) {
                return fail(error, status::damaged, L"The BMP run-length data is cut short");
            }
            for (std::uint32_t i = 0; i < value; ++i) {
                put(four ? ((i & 1) ? (p[i / 2] & 0x0F) : (p[i / 2] >> 4)) : p[i]);
            }
            p += std::min(padded, std::size_t(end - p));
            break;
        }
        }
    }
    return status::ok;
}

} // namespace

Status BMPReader::read(const std::uint8_t* data, std::size_t size, Raster& raster,
                       std::wstring& error) {
    raster.clear();
    Header h;
    if (const Status s = readHeader(data, size, h, error); s != status::ok) {
        return s;
    }
    const bool topDown = h.height < 0;
    const std::int64_t rows = topDown ? -h.height : h.height;
    h.height = rows;
    const bool withAlpha = h.masks[3] != 0;
    std::array<std::uint8_t, 256 * 3> palette{};
    if (h.bits <= 8) {
        if (const Status s = readPalette(data, size, h, palette, error); s != status::ok) {
            return s;
        }
    }
    const std::uint64_t stride = ((std::uint64_t(h.width) * h.bits + 31) / 32) * 4;
    const std::uint64_t lastRowBytes = (std::uint64_t(h.width) * h.bits + 7) / 8;
    const bool rle = h.compression == compressionRle4 || h.compression == compressionRle8;
    if (!rle) {
        // Checked before the pixel memory is taken, so a short file costs nothing.
        const std::uint64_t need = h.pixelOffset + stride * std::uint64_t(rows - 1) + lastRowBytes;
        if (stride * std::uint64_t(rows) / std::uint64_t(rows) != stride || need > size) {
            if (const Status s = checkRasterSize(h.width, rows, withAlpha, error);
                s != status::ok) {
                return s;
            }
            return fail(error, status::damaged, L"The BMP pixel data is cut short");
        }
    }
    if (const Status s = raster.allocate(h.width, rows, withAlpha, error); s != status::ok) {
        return s;
    }
    raster.alphaIsCoverage = withAlpha;
    const std::int32_t w = raster.width;
    auto outRow = [&](std::int64_t fileRow) {
        return static_cast<std::int32_t>(topDown ? fileRow : rows - 1 - fileRow);
    };

    if (rle) {
        std::vector<std::uint8_t> indices;
        try {
            indices.assign(std::size_t(w) * std::size_t(rows), 0);
        } catch (const std::bad_alloc&) {
            raster.clear();
            error = L"Not enough memory for the picture";
            return status::outOfMemory;
        }
        if (const Status s = decodeRle(data + h.pixelOffset, data + size, h, indices, error);
            s != status::ok) {
            raster.clear();
            return s;
        }
        for (std::int64_t r = 0; r < rows; ++r) {
            const std::uint8_t* in = indices.data() + std::size_t(r) * w;
            std::uint8_t* out = raster.row(outRow(r));
            for (std::int32_t x = 0; x < w; ++x, out += 3) {
                const std::uint8_t* c = palette.data() + in[x] * 3;
                out[0] = c[0];
                out[1] = c[1];
                out[2] = c[2];
            }
        }
        return status::ok;
    }

    const MaskChannel red(h.masks[0]);
    const MaskChannel green(h.masks[1]);
    const MaskChannel blue(h.masks[2]);
    const MaskChannel alpha(h.masks[3]);
    // A row of bit-field pixels through the masks; `value(x)` reads pixel x of the row.
    std::uint8_t* out = nullptr;
    std::uint8_t* outAlpha = nullptr;
    const auto unpackMasked = [&](std::int32_t width, auto value) {
        for (std::int32_t x = 0; x < width; ++x, out += 3) {
            const std::uint32_t v = value(x);
            out[0] = blue(v);
            out[1] = green(v);
            out[2] = red(v);
            if (outAlpha) {
                outAlpha[x] = alpha(v);
            }
        }
    };
    const bool plain32 = h.bits == 32 && h.masks[0] == 0x00FF0000 && h.masks[1] == 0x0000FF00 &&
                         h.masks[2] == 0x000000FF;
    for (std::int64_t r = 0; r < rows; ++r) {
        const std::uint8_t* in = data + h.pixelOffset + std::size_t(r) * stride;
        const std::int32_t y = outRow(r);
        out = raster.row(y);
        outAlpha = withAlpha ? raster.alphaRow(y) : nullptr;
        switch (h.bits) {
        case 1:
        case 4:
        case 8: {
            const std::uint32_t perByte = 8 / h.bits;
            const std::uint32_t valueMask = (1u << h.bits) - 1;
            for (std::int32_t x = 0; x < w; ++x, out += 3) {
                const std::uint32_t shift = (perByte - 1 - x % perByte) * h.bits;
                const std::uint32_t index = (in[x / perByte] >> shift) & valueMask;
                const std::uint8_t* c = palette.data() + index * 3;
                out[0] = c[0];
                out[1] = c[1];
                out[2] = c[2];
            }
            break;
        }
        case 16:
            unpackMasked(w, [in](std::int32_t x) { return bytes::le16(in + 2 * x); });
            break;
        case 24:
            std::copy(in, in + std::size_t(w) * 3, out);
            break;
        case 32:
            if (plain32) {
                for (std::int32_t x = 0; x < w; ++x, out += 3, in += 4) {
                    out[0] = in[0];
                    out[1] = in[1];
                    out[2] = in[2];
                    if (outAlpha) {
                        outAlpha[x] = alpha(bytes::le32(in));
                    }
                }
                break;
            }
            unpackMasked(w, [in](std::int32_t x) { return bytes::le32(in + 4 * x); });
            break;
        default:
            break;
        }
    }
    return status::ok;
}
