#include "interchange/raster/TGAReader.h"

#include "core/StringUtils.h"
#include "interchange/raster/ByteReader.h"
#include "interchange/raster/Raster.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t headerBytes = 18;
constexpr std::size_t footerBytes = 26;
constexpr std::size_t attributesTypeOffset = 494;
constexpr char signature[] = "TRUEVISION-XFILE";

enum ImageType : std::uint8_t {
    typeMapped = 1,
    typeTrueColour = 2,
    typeMappedRle = 9,
    typeTrueColourRle = 10,
};

enum Descriptor : std::uint8_t {
    alphaBitsMask = 0x0F,
    rightToLeft = 0x10,
    topFirst = 0x20,
};

/// Turns one stored pixel of `bytes` bytes (2, 3 or 4) into blue, green, red and alpha.
inline void decodePixel(const std::uint8_t* in, std::uint32_t bytesPerPixel, std::uint8_t* bgr,
                        std::uint8_t& alpha) {
    if (bytesPerPixel == 2) {
        const std::uint32_t v = bytes::le16(in);
        bgr[0] = bytes::expand5(v & 0x1F);
        bgr[1] = bytes::expand5((v >> 5) & 0x1F);
        bgr[2] = bytes::expand5((v >> 10) & 0x1F);
        alpha = 255;
        return;
    }
    bgr[0] = in[0];
    bgr[1] = in[1];
    bgr[2] = in[2];
    alpha = bytesPerPixel == 4 ? in[3] : 255;
}

} // namespace

Status TGAReader::read(const std::uint8_t* data, std::size_t size, Raster& raster,
                       std::wstring& error) {
    raster.clear();
    if (size < headerBytes) {
        error = L"The TGA header is cut short";
        return status::unsupportedVersion;
    }
    const std::uint32_t idLength = data[0];
    const std::uint32_t mapType = data[1];
    const std::uint8_t type = data[2];
    const std::uint32_t mapFirst = bytes::le16(data + 3);
    const std::uint32_t mapLength = bytes::le16(data + 5);
    const std::uint32_t mapBits = data[7];
    const std::int32_t width = bytes::le16(data + 12);
    const std::int32_t height = bytes::le16(data + 14);
    const std::uint32_t depth = data[16];
    const std::uint8_t descriptor = data[17];

    const bool mapped = type == typeMapped || type == typeMappedRle;
    const bool rle = type == typeTrueColourRle || type == typeMappedRle;
    if (type != typeTrueColour && type != typeTrueColourRle && !mapped) {
        error = stringPrintf(L"TGA image type %u is not supported", unsigned(type));
        return status::unsupportedCompression;
    }
    if (mapped ? (depth != 8 || mapType != 1 ||
                  (mapBits != 15 && mapBits != 16 && mapBits != 24 && mapBits != 32))
               : (depth != 16 && depth != 24 && depth != 32)) {
        error = stringPrintf(L"TGA pixels of %u bits (type %u) are not supported", depth,
                             unsigned(type));
        return status::unsupportedCompression;
    }

    bool withAlpha = !mapped && depth == 32 && (descriptor & alphaBitsMask) == 8;
    bool coverage = false;
    if (withAlpha && size >= footerBytes) {
        const std::uint8_t* footer = data + size - footerBytes;
        if (std::memcmp(footer + 8, signature, sizeof signature - 1) == 0) {
            const std::uint32_t extension = bytes::le32(footer);
            if (extension != 0 && std::size_t(extension) + attributesTypeOffset < size) {
                const std::uint8_t attributes = data[extension + attributesTypeOffset];
                if (attributes == 3) {
                    coverage = true;
                } else if (attributes != 4) {
                    withAlpha = false;
                }
            }
        }
    }

    // The image id, then the colour map, which a true-colour picture skips.
    std::size_t at = headerBytes + idLength;
    const std::size_t mapBytes = mapType == 1 ? (std::size_t(mapLength) * mapBits + 7) / 8 : 0;
    std::vector<std::uint8_t> map; // blue, green, red a table entry
    if (mapped) {
        if (at + mapBytes > size) {
            error = L"The TGA colour map is cut short";
            return status::damaged;
        }
        const std::uint32_t entryBytes = (mapBits + 7) / 8;
        map.assign(std::size_t(mapFirst + mapLength) * 3, 0);
        for (std::uint32_t i = 0; i < mapLength; ++i) {
            std::uint8_t ignored = 0;
            decodePixel(data + at + std::size_t(i) * entryBytes, entryBytes,
                        map.data() + std::size_t(mapFirst + i) * 3, ignored);
        }
    }
    at += mapBytes;
    if (at > size) {
        error = L"The TGA colour map is cut short";
        return status::damaged;
    }

    const std::uint32_t pixelBytes = (depth + 7) / 8;
    if (!rle && (size - at) / pixelBytes < std::uint64_t(width) * std::uint64_t(height)) {
        if (const Status s = checkRasterSize(width, height, withAlpha, error); s != status::ok) {
            return s;
        }
        error = L"The TGA pixel data is cut short";
        return status::damaged;
    }
    if (const Status s = raster.allocate(width, height, withAlpha, error); s != status::ok) {
        return s;
    }
    raster.alphaIsCoverage = coverage;

    const bool top = (descriptor & topFirst) != 0;
    const bool mirrored = (descriptor & rightToLeft) != 0;
    const std::uint8_t* p = data + at;
    const std::uint8_t* const end = data + size;
    std::uint32_t runLeft = 0; // pixels left in the present packet
    bool runRepeats = false;   // the packet repeats one pixel
    const std::uint8_t* runPixel = nullptr;
    for (std::int32_t r = 0; r < height; ++r) {
        const std::int32_t y = top ? r : height - 1 - r;
        std::uint8_t* out = raster.row(y);
        std::uint8_t* outAlpha = withAlpha ? raster.alphaRow(y) : nullptr;
        for (std::int32_t i = 0; i < width; ++i) {
            const std::uint8_t* in;
            if (rle) {
                // Packets may run on from one row into the next.
                if (runLeft == 0) {
                    if (p >= end) {
                        raster.clear();
                        error = L"The TGA run-length data is cut short";
                        return status::damaged;
                    }
                    runRepeats = (*p & 0x80) != 0;
                    runLeft = (*p & 0x7F) + 1u;
                    ++p;
                    runPixel = p;
                    if (std::size_t(end - p) < (runRepeats ? 1 : runLeft) * pixelBytes) {
                        raster.clear();
                        error = L"The TGA run-length data is cut short";
                        return status::damaged;
                    }
                    p += (runRepeats ? 1 : runLeft) * pixelBytes;
                }
                in = runPixel;
                if (!runRepeats) {
                    runPixel += pixelBytes;
                }
                --runLeft;
            } else {
                in = p;
                p += pixelBytes;
            }
            const std::int32_t x = mirrored ? width - 1 - i : i;
            std::uint8_t* bgr = out + std::size_t(x) * 3;
            if (mapped) {
                const std::size_t index = *in;
                if (index * 3 < map.size()) {
                    std::memcpy(bgr, map.data() + index * 3, 3);
                }
                continue;
            }
            std::uint8_t a;
            decodePixel(in, pixelBytes, bgr, a);
            if (outAlpha) {
                outAlpha[x] = a;
            }
        }
    }
    return status::ok;
}
