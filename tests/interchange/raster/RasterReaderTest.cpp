// Known-answer tests of the picture readers, on files the tests write themselves.
#include "PictureFiles.h"
#include "core/StringUtils.h"

#include "interchange/raster/BMPReader.h"
#include "interchange/raster/JPEGReader.h"
#include "interchange/raster/PNGReader.h"
#include "interchange/raster/Raster.h"
#include "interchange/raster/TGAReader.h"
#include "interchange/raster/TIFFReader.h"

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>
#include <zlib.h>

using pictures::Bytes;
using pictures::Rgba;

namespace {

using ReadFn = Status (*)(const std::uint8_t*, std::size_t, Raster&, std::wstring&);

Status readWith(ReadFn fn, const Bytes& file, Raster& raster) {
    std::wstring error;
    const Status s = fn(file.data(), file.size(), raster, error);
    if (s != status::ok) {
        EXPECT_FALSE(error.empty()) << "a failure says why";
    }
    return s;
}

/// Expects the raster to hold the picture's colour (and alpha if `alpha`) within `tolerance`.
void expectPixels(const Raster& r, const Rgba& p, bool alpha, int tolerance = 0) {
    ASSERT_EQ(r.width, p.width);
    ASSERT_EQ(r.height, p.height);
    ASSERT_EQ(r.hasAlpha(), alpha);
    int worst = 0;
    std::int32_t wx = 0;
    std::int32_t wy = 0;
    for (std::int32_t y = 0; y < p.height; ++y) {
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* want = p.at(x, y);
            const std::uint8_t* got = r.row(y) + x * 3;
            // The raster holds blue, green, red.
            for (int c = 0; c < 3; ++c) {
                const int d = std::abs(int(got[2 - c]) - int(want[c]));
                if (d > worst) {
                    worst = d, wx = x, wy = y;
                }
            }
            if (alpha) {
                const int d = std::abs(int(r.alphaRow(y)[x]) - int(want[3]));
                if (d > worst) {
                    worst = d, wx = x, wy = y;
                }
            }
        }
    }
    EXPECT_LE(worst, tolerance) << "worst pixel at " << wx << "," << wy;
}

// ---- BMP, written byte by byte --------------------------------------------------------

struct BmpSpec {
    std::uint32_t headerSize = 40;
    std::uint16_t bits = 24;
    std::uint32_t compression = 0;
    bool topDown = false;
    std::vector<std::uint32_t> masks;  ///< after a 40-byte header, or inside a bigger one
    std::vector<std::uint8_t> palette; ///< blue, green, red, 0 an entry (3 bytes for core)
    Bytes pixelData;                   ///< as the file holds it
    std::int32_t width = 0;
    std::int32_t height = 0;
};

Bytes makeBmp(const BmpSpec& s) {
    Bytes b(14 + s.headerSize, 0);
    auto put16 = [&](std::size_t at, std::uint32_t v) {
        b[at] = std::uint8_t(v), b[at + 1] = std::uint8_t(v >> 8);
    };
    auto put32 = [&](std::size_t at, std::uint32_t v) {
        put16(at, v & 0xFFFF), put16(at + 2, v >> 16);
    };
    b[0] = 'B', b[1] = 'M';
    put32(14, s.headerSize);
    if (s.headerSize == 12) {
        put16(18, std::uint32_t(s.width));
        put16(20, std::uint32_t(s.height));
        put16(22, 1);
        put16(24, s.bits);
    } else {
        put32(18, std::uint32_t(s.width));
        put32(22, std::uint32_t(s.topDown ? -s.height : s.height));
        put16(26, 1);
        put16(28, s.bits);
        put32(30, s.compression);
        put32(46, std::uint32_t(s.palette.size() / 4));
        if (s.headerSize > 40) {
            for (std::size_t i = 0; i < s.masks.size(); ++i) {
                put32(54 + 4 * i, s.masks[i]);
            }
        }
    }
    if (s.headerSize == 40) {
        for (std::uint32_t m : s.masks) {
            b.insert(b.end(), {std::uint8_t(m), std::uint8_t(m >> 8), std::uint8_t(m >> 16),
                               std::uint8_t(m >> 24)});
        }
    }
    b.insert(b.end(), s.palette.begin(), s.palette.end());
    put32(10, std::uint32_t(b.size()));
    b.insert(b.end(), s.pixelData.begin(), s.pixelData.end());
    put32(2, std::uint32_t(b.size()));
    return b;
}

/// Packs rows of values into BMP rows of `bits` bits, padded to 4 bytes, in file order.
Bytes packRows(const std::vector<std::vector<std::uint32_t>>& rows, int bits, bool topDown) {
    Bytes out;
    const std::size_t stride = ((rows[0].size() * bits + 31) / 32) * 4;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto& row = rows[topDown ? i : rows.size() - 1 - i];
        Bytes packed(stride, 0);
        for (std::size_t x = 0; x < row.size(); ++x) {
            if (bits < 8) {
                const std::size_t perByte = 8 / bits;
                packed[x / perByte] |= std::uint8_t(row[x] << ((perByte - 1 - x % perByte) * bits));
            } else {
                for (int k = 0; k < bits / 8; ++k) {
                    packed[x * (bits / 8) + k] = std::uint8_t(row[x] >> (8 * k));
                }
            }
        }
        out.insert(out.end(), packed.begin(), packed.end());
    }
    return out;
}

/// A palette of `n` entries: entry i is blue i*3, green 255-i, red i*5.
std::vector<std::uint8_t> bmpPalette(int n, int entryBytes = 4) {
    std::vector<std::uint8_t> p;
    for (int i = 0; i < n; ++i) {
        p.push_back(std::uint8_t(i * 3));
        p.push_back(std::uint8_t(255 - i));
        p.push_back(std::uint8_t(i * 5));
        if (entryBytes == 4) {
            p.push_back(0);
        }
    }
    return p;
}

void expectPaletteIndices(const Raster& r, const std::vector<std::vector<std::uint32_t>>& rows) {
    ASSERT_EQ(r.height, std::int32_t(rows.size()));
    ASSERT_EQ(r.width, std::int32_t(rows[0].size()));
    for (std::int32_t y = 0; y < r.height; ++y) {
        for (std::int32_t x = 0; x < r.width; ++x) {
            const std::uint32_t i = rows[y][x];
            const std::uint8_t* got = r.row(y) + x * 3;
            ASSERT_EQ(got[0], std::uint8_t(i * 3)) << x << "," << y;
            ASSERT_EQ(got[1], std::uint8_t(255 - i)) << x << "," << y;
            ASSERT_EQ(got[2], std::uint8_t(i * 5)) << x << "," << y;
        }
    }
}

std::vector<std::vector<std::uint32_t>> indexRows(int w, int h, int levels) {
    std::vector<std::vector<std::uint32_t>> rows(h, std::vector<std::uint32_t>(w));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            rows[y][x] = std::uint32_t((x * 3 + y * 5) % levels);
        }
    }
    return rows;
}

TEST(BMPReader, PaletteDepthsReadThroughThePaletteWithOddWidths) {
    for (int bits : {1, 4, 8}) {
        for (bool topDown : {false, true}) {
            SCOPED_TRACE(testing::Message() << bits << " bits, top-down " << topDown);
            const auto rows = indexRows(13, 5, 1 << bits);
            BmpSpec s;
            s.bits = std::uint16_t(bits);
            s.width = 13, s.height = 5, s.topDown = topDown;
            s.palette = bmpPalette(1 << bits);
            s.pixelData = packRows(rows, bits, topDown);
            Raster r;
            ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
            EXPECT_FALSE(r.hasAlpha());
            expectPaletteIndices(r, rows);
        }
    }
}

TEST(BMPReader, CoreHeaderHasThreeBytePaletteEntries) {
    const auto rows = indexRows(7, 3, 16);
    BmpSpec s;
    s.headerSize = 12;
    s.bits = 4;
    s.width = 7, s.height = 3;
    s.palette = bmpPalette(16, 3);
    s.pixelData = packRows(rows, 4, false);
    Raster r;
    ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
    expectPaletteIndices(r, rows);
}

TEST(BMPReader, TwentyFourBitRowsArePaddedAndBottomUp) {
    const Rgba p = pictures::pattern(5, 4, false); // 15 bytes a row, padded to 16
    Raster r;
    ASSERT_EQ(readWith(BMPReader::read, pictures::bmp24(p), r), status::ok);
    expectPixels(r, p, false);
}

TEST(BMPReader, SixteenBitsDefaultToFiveFiveFiveAndFollowMasks) {
    // Pixel values chosen so each field is at its top, bottom or middle.
    std::vector<std::vector<std::uint32_t>> rows = {{0x7FFF, 0x0000, 0x7C00},
                                                    {0x03E0, 0x001F, 0x4210}};
    BmpSpec s;
    s.bits = 16;
    s.width = 3, s.height = 2;
    s.pixelData = packRows(rows, 16, false);
    Raster r;
    ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
    const std::uint8_t expect555[6][3] = {{255, 255, 255}, {0, 0, 0},   {0, 0, 255},
                                          {0, 255, 0},     {255, 0, 0}, {132, 132, 132}};
    for (int i = 0; i < 6; ++i) {
        const std::uint8_t* got = r.row(i / 3) + (i % 3) * 3;
        EXPECT_EQ(got[0], expect555[i][0]) << i;
        EXPECT_EQ(got[1], expect555[i][1]) << i;
        EXPECT_EQ(got[2], expect555[i][2]) << i;
    }
    // 5-6-5 by bit fields: green has six bits.
    rows = {{0xF800, 0x07E0, 0x0020}};
    s.compression = 3;
    s.masks = {0xF800, 0x07E0, 0x001F};
    s.height = 1;
    s.pixelData = packRows(rows, 16, false);
    ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
    EXPECT_EQ(r.row(0)[2], 255);
    EXPECT_EQ(r.row(0)[4], 255);
    EXPECT_EQ(r.row(0)[7], 4); // 1 of 63, scaled to 255 and rounded
}

TEST(BMPReader, ThirtyTwoBitsWithAlphaMaskInV4AndV5Headers) {
    const Rgba p = pictures::pattern(6, 3, true);
    for (std::uint32_t header : {108u, 124u, 56u}) {
        SCOPED_TRACE(header);
        std::vector<std::vector<std::uint32_t>> rows(3, std::vector<std::uint32_t>(6));
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 6; ++x) {
                const std::uint8_t* q = p.at(x, y);
                // Red in the low byte: masks other than the usual order.
                rows[y][x] = q[0] | (q[1] << 8) | (q[2] << 16) | (std::uint32_t(q[3]) << 24);
            }
        }
        BmpSpec s;
        s.headerSize = header;
        s.bits = 32;
        s.compression = 3;
        s.masks = {0x000000FF, 0x0000FF00, 0x00FF0000, 0xFF000000};
        s.width = 6, s.height = 3, s.topDown = true;
        s.pixelData = packRows(rows, 32, true);
        Raster r;
        ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
        expectPixels(r, p, true);
    }
}

TEST(BMPReader, PlainThirtyTwoBitsHasNoAlpha) {
    const Rgba p = pictures::pattern(4, 2, false);
    std::vector<std::vector<std::uint32_t>> rows(2, std::vector<std::uint32_t>(4));
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 4; ++x) {
            const std::uint8_t* q = p.at(x, y);
            rows[y][x] = q[2] | (q[1] << 8) | (q[0] << 16) | 0x12000000u;
        }
    }
    BmpSpec s;
    s.bits = 32;
    s.width = 4, s.height = 2;
    s.pixelData = packRows(rows, 32, false);
    Raster r;
    ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
    expectPixels(r, p, false);
}

TEST(BMPReader, RunLengthCodedEightAndFourBits) {
    // RLE8, 6 x 3, bottom row first: a run, absolute indices, a delta, end of picture.
    BmpSpec s;
    s.bits = 8;
    s.compression = 1;
    s.width = 6, s.height = 3;
    s.palette = bmpPalette(16);
    s.pixelData = {4, 7, 0, 3, 1, 2, 3, 0, // row 2 (bottom): 7 7 7 7 1 2 (padded absolute)
                   0, 0,                   // end of row... wraps to the next
                   0, 2, 2, 1,             // move right 2 and up 1: to x 2 of the top row
                   2, 9, 0, 1};            // 9 9, then end of picture
    // The bottom row got 7 7 7 7 then "1 2 3": 3 indices clipped to the width at 6.
    std::vector<std::vector<std::uint32_t>> expect = {
        {0, 0, 9, 9, 0, 0}, {0, 0, 0, 0, 0, 0}, {7, 7, 7, 7, 1, 2}};
    Raster r;
    ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
    expectPaletteIndices(r, expect);

    // RLE4: a run alternates its two nibbles; absolute nibbles padded to 16 bits.
    s.bits = 4;
    s.compression = 2;
    s.width = 5, s.height = 2;
    s.pixelData = {5, 0x12, 0, 0, 0, 5, 0x34, 0x56, 0x70, 0, 0, 1};
    expect = {{3, 4, 5, 6, 7}, {1, 2, 1, 2, 1}};
    ASSERT_EQ(readWith(BMPReader::read, makeBmp(s), r), status::ok);
    expectPaletteIndices(r, expect);
}

TEST(BMPReader, BadFilesGiveTheirCodes) {
    Raster r;
    const Bytes good = pictures::bmp24(pictures::pattern(7, 5, false));
    EXPECT_EQ(readWith(BMPReader::read, Bytes(good.begin(), good.begin() + 10), r),
              status::unsupportedVersion);
    Bytes notBmp = good;
    notBmp[0] = 'X';
    EXPECT_EQ(readWith(BMPReader::read, notBmp, r), status::unsupportedVersion);
    Bytes depth = good;
    depth[28] = 2; // two bits a pixel
    EXPECT_EQ(readWith(BMPReader::read, depth, r), status::unsupportedCompression);
    Bytes header = good;
    header[14] = 44; // no such header size
    EXPECT_EQ(readWith(BMPReader::read, header, r), status::unsupportedCompression);
    Bytes offset = good;
    offset[13] = 0x40; // pixels far beyond the end
    EXPECT_EQ(readWith(BMPReader::read, offset, r), status::damaged);
    Bytes huge = good;
    huge[21] = 0x7F; // 2 billion pixels wide: refused by size, not by the short data
    EXPECT_EQ(readWith(BMPReader::read, huge, r), status::unsupportedCompression);
    EXPECT_EQ(r.width, 0);
    EXPECT_TRUE(r.colour.empty());
}

// ---- TGA, written byte by byte ---------------------------------------------------------

struct TgaSpec {
    std::uint8_t type = 2;
    std::uint8_t depth = 32;
    std::uint8_t descriptor = 8 | 0x20;
    std::uint8_t idLength = 0;
    std::uint8_t mapType = 0;
    std::uint16_t mapLength = 0;
    std::uint8_t mapBits = 0;
    Bytes map;
    Bytes pixels;
    std::int32_t width = 0;
    std::int32_t height = 0;
    int attributesType = -1; ///< with a footer and extension area when 0 or more
};

Bytes makeTga(const TgaSpec& s) {
    Bytes b(18, 0);
    b[0] = s.idLength;
    b[1] = s.mapType;
    b[2] = s.type;
    b[5] = std::uint8_t(s.mapLength), b[6] = std::uint8_t(s.mapLength >> 8);
    b[7] = s.mapBits;
    b[12] = std::uint8_t(s.width), b[13] = std::uint8_t(s.width >> 8);
    b[14] = std::uint8_t(s.height), b[15] = std::uint8_t(s.height >> 8);
    b[16] = s.depth;
    b[17] = s.descriptor;
    b.insert(b.end(), s.idLength, 'i');
    b.insert(b.end(), s.map.begin(), s.map.end());
    b.insert(b.end(), s.pixels.begin(), s.pixels.end());
    if (s.attributesType >= 0) {
        const std::uint32_t extension = std::uint32_t(b.size());
        Bytes area(495, 0);
        area[0] = 0xEF, area[1] = 0x01; // its size, 495
        area[494] = std::uint8_t(s.attributesType);
        b.insert(b.end(), area.begin(), area.end());
        const char sig[] = "TRUEVISION-XFILE.";
        b.insert(b.end(),
                 {std::uint8_t(extension), std::uint8_t(extension >> 8),
                  std::uint8_t(extension >> 16), std::uint8_t(extension >> 24), 0, 0, 0, 0});
        b.insert(b.end(), sig, sig + 18);
    }
    return b;
}

/// The picture's pixels as 32-bit TGA rows (blue, green, red, alpha), top row first.
Bytes tgaPixels32(const Rgba& p, bool topFirst = true) {
    Bytes out;
    for (std::int32_t i = 0; i < p.height; ++i) {
        const std::int32_t y = topFirst ? i : p.height - 1 - i;
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* q = p.at(x, y);
            out.insert(out.end(), {q[2], q[1], q[0], q[3]});
        }
    }
    return out;
}

TEST(TGAReader, AlphaFollowsTheAttributesType) {
    const Rgba p = pictures::pattern(5, 3, true);
    TgaSpec s;
    s.width = 5, s.height = 3;
    s.pixels = tgaPixels32(p);
    Raster r;

    // No footer: the alpha stays, unmarked.
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    expectPixels(r, p, true);
    EXPECT_FALSE(r.alphaIsCoverage);

    s.attributesType = 3;
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    expectPixels(r, p, true);
    EXPECT_TRUE(r.alphaIsCoverage);

    s.attributesType = 4; // pre-multiplied: kept, unmarked
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    EXPECT_TRUE(r.hasAlpha());
    EXPECT_FALSE(r.alphaIsCoverage);

    s.attributesType = 2; // "ignore the alpha"
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    EXPECT_FALSE(r.hasAlpha());
    expectPixels(r, pictures::pattern(5, 3, false), false);

    s.attributesType = -1;
    s.descriptor = 0x20; // 32 bits, but the descriptor gives no alpha bits
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    EXPECT_FALSE(r.hasAlpha());
}

TEST(TGAReader, RowOrderAndImageIdAndSkippedColourMap) {
    const Rgba p = pictures::pattern(4, 3, false);
    TgaSpec s;
    s.depth = 24;
    s.descriptor = 0; // bottom row first
    s.width = 4, s.height = 3;
    s.idLength = 5;
    s.mapType = 1; // a colour map that a true-colour picture skips
    s.mapLength = 3;
    s.mapBits = 24;
    s.map = Bytes(9, 0xAA);
    for (std::int32_t i = 0; i < 3; ++i) {
        for (std::int32_t x = 0; x < 4; ++x) {
            const std::uint8_t* q = p.at(x, 2 - i);
            s.pixels.insert(s.pixels.end(), {q[2], q[1], q[0]});
        }
    }
    Raster r;
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    expectPixels(r, p, false);
}

TEST(TGAReader, RunLengthPacketsCrossRows) {
    TgaSpec s;
    s.type = 10;
    s.depth = 24;
    s.descriptor = 0x20;
    s.width = 3, s.height = 2;
    // A run of 4 blue pixels (crossing into row 2), then 2 raw pixels.
    s.pixels = {0x83, 255, 0, 0, 0x01, 0, 255, 0, 0, 0, 255};
    Raster r;
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    const std::uint8_t expect[6][3] = {{255, 0, 0}, {255, 0, 0}, {255, 0, 0},
                                       {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
    for (int i = 0; i < 6; ++i) {
        const std::uint8_t* got = r.row(i / 3) + (i % 3) * 3;
        EXPECT_EQ(std::vector<int>(got, got + 3), std::vector<int>(expect[i], expect[i] + 3)) << i;
    }
}

TEST(TGAReader, SixteenBitAndColourMappedPictures) {
    TgaSpec s;
    s.depth = 16;
    s.descriptor = 0x20;
    s.width = 3, s.height = 1;
    s.pixels = {0x1F, 0x00, 0xE0, 0x03, 0x00, 0x7C}; // blue, green, red at 5-5-5
    Raster r;
    ASSERT_EQ(readWith(TGAReader::read, makeTga(s), r), status::ok);
    EXPECT_EQ(std::vector<int>(r.row(0), r.row(0) + 9),
              (std::vector<int>{255, 0, 0, 0, 255, 0, 0, 0, 255}));

    for (std::uint8_t type : {std::uint8_t(1), std::uint8_t(9)}) {
        TgaSpec m;
        m.type = type;
        m.depth = 8;
        m.descriptor = 0x20;
        m.mapType = 1;
        m.mapLength = 3;
        m.mapBits = 24;
        m.map = {10, 20, 30, 40, 50, 60, 70, 80, 90};
        m.width = 4, m.height = 1;
        m.pixels = type == 1 ? Bytes{2, 0, 1, 1} : Bytes{0x00, 2, 0x00, 0, 0x81, 1};
        ASSERT_EQ(readWith(TGAReader::read, makeTga(m), r), status::ok);
        EXPECT_EQ(std::vector<int>(r.row(0), r.row(0) + 12),
                  (std::vector<int>{70, 80, 90, 10, 20, 30, 40, 50, 60, 40, 50, 60}))
            << int(type);
    }
}

TEST(TGAReader, BadFilesGiveTheirCodes) {
    Raster r;
    EXPECT_EQ(readWith(TGAReader::read, Bytes(17, 0), r), status::unsupportedVersion);
    TgaSpec s;
    s.width = 2, s.height = 2;
    s.type = 3; // grey
    s.depth = 8;
    EXPECT_EQ(readWith(TGAReader::read, makeTga(s), r), status::unsupportedCompression);
    s.type = 2;
    s.depth = 8;
    EXPECT_EQ(readWith(TGAReader::read, makeTga(s), r), status::unsupportedCompression);
    s.depth = 24;
    s.pixels = Bytes(11, 0); // one byte short
    EXPECT_EQ(readWith(TGAReader::read, makeTga(s), r), status::damaged);
    s.type = 10;
    s.pixels = {0x83, 1, 2}; // a run whose pixel is cut
    EXPECT_EQ(readWith(TGAReader::read, makeTga(s), r), status::damaged);
}

// ---- PNG through libpng ----------------------------------------------------------------

/// A picture whose values fit a PNG of `bits` bits: levels of that depth, scaled to 8 bits.
Rgba pngPicture(int colourType, int bits, std::int32_t w, std::int32_t h) {
    Rgba p = pictures::pattern(w, h, colourType & PNG_COLOR_MASK_ALPHA);
    if (bits < 8) {
        for (std::size_t i = 0; i < p.pixels.size(); ++i) {
            if (i % 4 != 3) {
                p.pixels[i] = std::uint8_t(p.pixels[i] % (1 << bits));
            }
        }
    }
    return p;
}

/// What the reader should give for `p` written with `o`: red, green, blue, alpha.
Rgba pngExpected(const Rgba& p, const pictures::PngOptions& o) {
    Rgba e = p;
    for (std::int32_t y = 0; y < p.height; ++y) {
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* q = p.at(x, y);
            std::uint8_t* out = e.at(x, y);
            if (o.colourType == PNG_COLOR_TYPE_PALETTE) {
                const int i = q[0];
                out[0] = std::uint8_t(i), out[1] = std::uint8_t(255 - i),
                out[2] = std::uint8_t(i * 2);
                out[3] = o.transparentColour ? std::uint8_t(i * 3) : 255;
                continue;
            }
            const bool grey = (o.colourType & PNG_COLOR_MASK_COLOR) == 0;
            std::uint8_t v[3] = {q[0], grey ? q[0] : q[1], grey ? q[0] : q[2]};
            if (o.bitDepth < 8) {
                for (auto& c : v) {
                    c = std::uint8_t(c * 255 / ((1 << o.bitDepth) - 1));
                }
            }
            out[0] = v[0], out[1] = v[1], out[2] = v[2];
            if (o.transparentColour) {
                const std::uint8_t* key = p.at(0, 0);
                const bool match =
                    grey ? q[0] == key[0] : q[0] == key[0] && q[1] == key[1] && q[2] == key[2];
                out[3] = match ? 0 : 255;
            }
        }
    }
    return e;
}

TEST(PNGReader, EveryColourTypeAndDepth) {
    struct Case {
        int type;
        std::vector<int> depths;
    };
    const Case cases[] = {{PNG_COLOR_TYPE_GRAY, {1, 2, 4, 8, 16}},
                          {PNG_COLOR_TYPE_RGB, {8, 16}},
                          {PNG_COLOR_TYPE_PALETTE, {1, 2, 4, 8}},
                          {PNG_COLOR_TYPE_GRAY_ALPHA, {8, 16}},
                          {PNG_COLOR_TYPE_RGB_ALPHA, {8, 16}}};
    for (const Case& c : cases) {
        for (int depth : c.depths) {
            for (bool interlaced : {false, true}) {
                for (bool trns : {false, true}) {
                    if (trns && (c.type & PNG_COLOR_MASK_ALPHA)) {
                        continue;
                    }
                    SCOPED_TRACE(testing::Message()
                                 << "type " << c.type << " depth " << depth << " interlaced "
                                 << interlaced << " tRNS " << trns);
                    pictures::PngOptions o;
                    o.colourType = c.type, o.bitDepth = depth, o.interlaced = interlaced;
                    o.transparentColour = trns;
                    const Rgba p = pngPicture(c.type, depth, 11, 9);
                    Raster r;
                    ASSERT_EQ(readWith(PNGReader::read, pictures::writePng(p, o), r), status::ok);
                    const bool alpha = trns || (c.type & PNG_COLOR_MASK_ALPHA);
                    expectPixels(r, pngExpected(p, o), alpha);
                    EXPECT_EQ(r.alphaIsCoverage, alpha);
                }
            }
        }
    }
}

TEST(PNGReader, KeepsTitleAndAuthor) {
    pictures::PngOptions o;
    o.title = "Terrace at dusk";
    o.author = "J. M\xc3\xbcller";
    Raster r;
    ASSERT_EQ(readWith(PNGReader::read, pictures::writePng(pictures::pattern(3, 3, false), o), r),
              status::ok);
    EXPECT_EQ(r.title, L"Terrace at dusk");
    EXPECT_EQ(r.author, L"J. M\u00fcller");
}

/// A PNG that is only a signature and a header declaring width x height.
Bytes pngHeaderOnly(std::uint32_t w, std::uint32_t h) {
    Bytes b = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    const std::uint8_t ihdr[13] = {std::uint8_t(w >> 24),
                                   std::uint8_t(w >> 16),
                                   std::uint8_t(w >> 8),
                                   std::uint8_t(w),
                                   std::uint8_t(h >> 24),
                                   std::uint8_t(h >> 16),
                                   std::uint8_t(h >> 8),
                                   std::uint8_t(h),
                                   8,
                                   2,
                                   0,
                                   0,
                                   0};
    b.insert(b.end(), ihdr, ihdr + 13);
    const std::uint32_t crc = std::uint32_t(crc32(crc32(0, nullptr, 0), b.data() + 12, 17));
    b.insert(b.end(), {std::uint8_t(crc >> 24), std::uint8_t(crc >> 16), std::uint8_t(crc >> 8),
                       std::uint8_t(crc)});
    return b;
}

TEST(PNGReader, HugeDeclaredSizeIsRefusedBeforeAnyPixelMemory) {
    const auto start = std::chrono::steady_clock::now();
    Raster r;
    std::wstring error;
    const Bytes file = pngHeaderOnly(46340, 46340);
    EXPECT_EQ(PNGReader::read(file.data(), file.size(), r, error), status::unsupportedCompression);
    EXPECT_NE(error.find(L"46340 x 46340"), std::wstring::npos)
        << std::string(error.begin(), error.end());
    EXPECT_TRUE(r.colour.empty());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// ---- JPEG through libjpeg ----------------------------------------------------------------

TEST(JPEGReader, BaselineProgressiveGreyAndCmyk) {
    const Rgba p = pictures::gradient(37, 21);
    struct Case {
        int components;
        bool progressive;
    };
    for (const Case c :
         {Case{3, false}, Case{3, true}, Case{1, false}, Case{1, true}, Case{4, false}}) {
        SCOPED_TRACE(testing::Message()
                     << c.components << " components, progressive " << c.progressive);
        pictures::JpegOptions o;
        o.components = c.components, o.progressive = c.progressive;
        Raster r;
        ASSERT_EQ(readWith(JPEGReader::read, pictures::writeJpeg(p, o), r), status::ok);
        Rgba want = p;
        if (c.components == 1) {
            for (std::size_t i = 0; i < want.pixels.size(); i += 4) {
                want.pixels[i + 1] = want.pixels[i + 2] = want.pixels[i];
            }
        }
        expectPixels(r, want, false, 6);
    }
}

TEST(JPEGReader, ExifOrientationIsApplied) {
    // A picture with one bright corner: top-left.
    Rgba p = pictures::gradient(32, 16);
    for (std::size_t i = 0; i < p.pixels.size(); i += 4) {
        p.pixels[i] = p.pixels[i + 1] = p.pixels[i + 2] = 0;
    }
    for (std::int32_t y = 0; y < 8; ++y) {
        for (std::int32_t x = 0; x < 8; ++x) {
            std::uint8_t* q = p.at(x, y);
            q[0] = q[1] = q[2] = 255;
        }
    }
    // Where the bright corner ends up (x, y of the corner's quadrant) and the final size.
    struct Case {
        int orientation;
        bool right;
        bool bottom;
        bool swapped;
    };
    for (const Case c :
         {Case{1, false, false, false}, Case{2, true, false, false}, Case{3, true, true, false},
          Case{4, false, true, false}, Case{5, false, false, true}, Case{6, true, false, true},
          Case{7, true, true, true}, Case{8, false, true, true}}) {
        SCOPED_TRACE(c.orientation);
        pictures::JpegOptions o;
        o.orientation = c.orientation;
        Raster r;
        ASSERT_EQ(readWith(JPEGReader::read, pictures::writeJpeg(p, o), r), status::ok);
        EXPECT_EQ(r.width, c.swapped ? 16 : 32);
        EXPECT_EQ(r.height, c.swapped ? 32 : 16);
        const std::int32_t x = c.right ? r.width - 3 : 2;
        const std::int32_t y = c.bottom ? r.height - 3 : 2;
        EXPECT_GT(r.row(y)[x * 3], 200);
        const std::int32_t ox = c.right ? 2 : r.width - 3;
        const std::int32_t oy = c.bottom ? 2 : r.height - 3;
        EXPECT_LT(r.row(oy)[ox * 3], 50);
    }
}

TEST(JPEGReader, HugeDeclaredSizeIsRefusedQuickly) {
    // A real header from libjpeg with the frame's size patched to 46340 x 46340.
    Bytes file = pictures::writeJpeg(pictures::gradient(16, 16), {});
    bool patched = false;
    for (std::size_t i = 2; i + 9 < file.size(); ++i) {
        if (file[i] == 0xFF && file[i + 1] == 0xC0) {
            file[i + 5] = 46340 >> 8, file[i + 6] = 46340 & 0xFF;
            file[i + 7] = 46340 >> 8, file[i + 8] = 46340 & 0xFF;
            patched = true;
            break;
        }
    }
    ASSERT_TRUE(patched);
    const auto start = std::chrono::steady_clock::now();
    Raster r;
    std::wstring error;
    EXPECT_EQ(JPEGReader::read(file.data(), file.size(), r, error), status::unsupportedCompression);
    EXPECT_NE(error.find(L"larger than a document can hold"), std::wstring::npos);
    EXPECT_TRUE(r.colour.empty());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// ---- TIFF through libtiff ---------------------------------------------------------------

TEST(TIFFReader, StripsTilesPlanesDepthsAndAlpha) {
    const Rgba p = pictures::pattern(21, 19, true);
    for (int bits : {8, 16}) {
        for (bool planar : {false, true}) {
            for (bool tiled : {false, true}) {
                for (int alpha : {0, 1, 2}) { // none, unassociated, associated
                    SCOPED_TRACE(testing::Message() << bits << " bits, planar " << planar
                                                    << ", tiled " << tiled << ", alpha " << alpha);
                    pictures::TiffOptions o;
                    o.bits = bits, o.planar = planar, o.tiled = tiled;
                    o.alpha = alpha != 0, o.associated = alpha == 2;
                    o.compression = COMPRESSION_LZW;
                    Raster r;
                    ASSERT_EQ(readWith(TIFFReader::read, pictures::writeTiff(p, o), r), status::ok);
                    if (alpha == 0) {
                        expectPixels(r, pictures::pattern(21, 19, false), false);
                    } else {
                        // Dividing pre-multiplied colour back loses what small alphas hid.
                        ASSERT_TRUE(r.hasAlpha());
                        for (std::int32_t y = 0; y < 19; ++y) {
                            for (std::int32_t x = 0; x < 21; ++x) {
                                const std::uint8_t* q = p.at(x, y);
                                ASSERT_EQ(r.alphaRow(y)[x], q[3]);
                                const int tolerance =
                                    alpha == 2 ? 255 / std::max(1, int(q[3])) + 1 : 0;
                                for (int c = 0; c < 3; ++c) {
                                    if (q[3] > 0) {
                                        ASSERT_NEAR(r.row(y)[x * 3 + 2 - c], q[c], tolerance);
                                    }
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}

TEST(TIFFReader, StripBuffersAreBoundedBeforeTheyAreTaken) {
    // Found by fuzzing: a small picture whose strips declare far more samples than it shows.
    // Its read buffers alone would have taken gigabytes.
    static const std::uint8_t file[] = {
        0x49, 0x49, 0x2a, 0x00, 0x04, 0x01, 0x00, 0x00, 0x80, 0x32, 0x03, 0xc5, 0xa0, 0x04, 0x16,
        0x0d, 0x07, 0x84, 0x42, 0x60, 0xc3, 0x87, 0x12, 0x9a, 0x15, 0x0f, 0x88, 0x44, 0x62, 0x51,
        0x38, 0xa4, 0x56, 0x2d, 0x17, 0x8c, 0x46, 0x62, 0x70, 0x28, 0x24, 0x6a, 0x25, 0x0f, 0x0c,
        0x87, 0x47, 0xa4, 0x52, 0x39, 0x64, 0x00, 0x00, 0x00, 0x0f, 0x00, 0x00, 0x01, 0x04, 0x00,
        0x01, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00, 0x00, 0x00, 0x45, 0x01,
        0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0xd6, 0x00, 0x00, 0x00, 0x89, 0x88, 0x04, 0x00, 0x01,
        0x00, 0x00, 0x00, 0xde, 0x00, 0x00, 0x00, 0x82, 0x02, 0x00, 0x00, 0xc8, 0x1e, 0x5a, 0xc8,
        0x1e, 0x5a, 0xc8, 0x1e, 0x5e, 0xc8, 0x1e, 0x5a, 0xc8, 0x1e, 0x5a, 0xc8, 0x1e, 0x5a, 0xc8,
        0x1e, 0x5a, 0xc8, 0x1e, 0x5a, 0xc8, 0x1e, 0x5a, 0xc8, 0x1e, 0x5a, 0xc8, 0x00, 0x00, 0x00,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0, 0x3f,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0, 0xbf, 0xfb, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0,
        0x3f, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0, 0x3f, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        0xf0, 0x3f, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0, 0xbf, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x00, 0xf0, 0x3f, 0x9a, 0x99, 0x99, 0x99, 0x99, 0x99, 0xb9, 0x3f, 0x00, 0x00, 0x00, 0x00,
        0x00, 0x40, 0x8f, 0x40, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0, 0x3f, 0x04, 0x00, 0x00,
        0x00, 0x0b, 0x00, 0x00, 0x01, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00,
        0x01, 0x01, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x02, 0x01, 0x03,
        0x00, 0x01, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00, 0x03, 0x01, 0x03, 0x00, 0x01, 0x00,
        0x00, 0x47, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x15,
        0x01, 0x03, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x3d, 0x01, 0x03, 0x00,
        0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x42, 0x01, 0x04, 0x00, 0x01, 0x00, 0x00,
        0x00, 0x40, 0x00, 0x00, 0x00, 0x43, 0x01, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x40, 0x00,
        0x00, 0x00, 0x44, 0x01, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x45,
        0x01, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0xee, 0x00, 0x00, 0x00, 0x89, 0x88, 0x04, 0x00,
        0x01, 0x00, 0x00, 0x00, 0xee, 0x03, 0x00, 0x00, 0xf0, 0x05, 0x00, 0x00, 0x80, 0x00, 0x20,
        0x50, 0x35, 0x24, 0x16, 0x0d, 0x07, 0x84, 0x42, 0x61, 0x50, 0xb8, 0x64, 0x36, 0x1d, 0x0f,
        0x88, 0x44, 0x62, 0x51, 0x38, 0xa4, 0x56, 0x2d, 0x17, 0x8c, 0x46, 0x63, 0x51, 0xb8, 0xe4,
        0x76, 0x3d, 0x1f, 0x90, 0x48, 0x64, 0x52, 0x39, 0x24, 0x96, 0x4d, 0x27, 0x94, 0x4a, 0x65,
        0x52, 0xb9, 0x64, 0xb6, 0x5d, 0x2f, 0x98, 0x4c, 0x66, 0x53, 0x39, 0xa4, 0xd6, 0x6d, 0x37,
        0x9c, 0x4e, 0x67, 0x53, 0xb9, 0xe4, 0xf6, 0x7d, 0x3f, 0xa0, 0x50, 0x68, 0x54, 0x3a, 0x25,
        0x16, 0x8d, 0x47, 0xa4, 0x52, 0x69, 0x54, 0xba, 0x65, 0x36, 0x9d, 0x4f, 0xa8, 0x54, 0x6a,
        0x55, 0x3a, 0xa5, 0x56, 0xad, 0x57, 0xac, 0x56, 0x6b, 0x55, 0xba, 0xe5, 0x76, 0xbd, 0x5f,
        0xb0, 0x58, 0x6c, 0x56, 0x3b, 0x25, 0x96, 0xcd, 0x67, 0xb4, 0x5a, 0x6d, 0x56, 0xbb, 0x65,
        0xb6, 0xdd, 0x6f, 0xb8, 0x5c, 0x6e, 0x57, 0x3b, 0xa5, 0xd6, 0xed, 0x77, 0xbc, 0x5e, 0x6f,
        0x57, 0xbb, 0xe5, 0xf6, 0xfd, 0x7f, 0xa0, 0x40, 0x40, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01,
        0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0a, 0x00, 0x00, 0x01,
        0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00, 0x01, 0x01, 0x04, 0x00, 0x01,
        0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x02, 0x01, 0x03, 0x00, 0x01, 0x00, 0x00, 0x00,
        0x10, 0x00, 0x00, 0x00, 0xfd, 0xfe, 0xfc, 0xff, 0xf4, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00,
        0x00, 0x15, 0x01, 0x03, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x42, 0x01,
        0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x40, 0x00, 0x00, 0x00, 0x43, 0x01, 0x04, 0x00, 0x01,
        0x00, 0x00, 0x00, 0x40, 0x00, 0xcc, 0x00, 0x44, 0x01, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00,
        0x4c, 0x05, 0x00, 0x00, 0x45, 0x01, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x93, 0x00, 0x00,
        0x00, 0x89, 0x88, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0xe0, 0x05, 0x00, 0x00, 0x00, 0x00,
        0x00, 0x00,
    };
    setMaxRasterBytes(std::uint64_t(64) << 20);
    Raster r;
    std::wstring error;
    const Status s = TIFFReader::read(file, sizeof file, r, error);
    setMaxRasterBytes(0);
    EXPECT_EQ(s, status::unsupportedCompression);
    EXPECT_NE(error.find(L"strips or tiles"), std::wstring::npos) << utf8(error);
    EXPECT_TRUE(r.colour.empty());
}

TEST(TIFFReader, GreyFirstPageOnlyAndOtherKindsThroughRgba) {
    const Rgba p = pictures::pattern(9, 7, false);
    Rgba grey = p;
    for (std::size_t i = 0; i < grey.pixels.size(); i += 4) {
        grey.pixels[i + 1] = grey.pixels[i + 2] = grey.pixels[i];
    }
    pictures::TiffOptions o;
    o.grey = true;
    o.secondPage = true;
    Raster r;
    ASSERT_EQ(readWith(TIFFReader::read, pictures::writeTiff(p, o), r), status::ok);
    expectPixels(r, grey, false);

    // JPEG-compressed colour: libtiff's RGBA reader.
    o = {};
    o.compression = COMPRESSION_JPEG;
    const Rgba g = pictures::gradient(24, 16);
    ASSERT_EQ(readWith(TIFFReader::read, pictures::writeTiff(g, o), r), status::ok);
    expectPixels(r, g, false, 10); // chroma is subsampled
}

// ---- Every reader: cut and damaged files ----------------------------------------------------

struct Sample {
    const char* name;
    ReadFn read;
    Bytes file;
};

std::vector<Sample> samples() {
    const Rgba p = pictures::pattern(23, 17, true);
    TgaSpec tga;
    tga.width = 23, tga.height = 17;
    tga.pixels = tgaPixels32(p);
    TgaSpec tgaRle = tga;
    tgaRle.type = 10;
    tgaRle.pixels.clear();
    for (std::size_t i = 0; i < tga.pixels.size(); i += 4) {
        tgaRle.pixels.push_back(0);
        tgaRle.pixels.insert(tgaRle.pixels.end(), tga.pixels.begin() + i,
                             tga.pixels.begin() + i + 4);
    }
    pictures::PngOptions interlaced;
    interlaced.colourType = PNG_COLOR_TYPE_RGB_ALPHA;
    interlaced.interlaced = true;
    pictures::JpegOptions progressive;
    progressive.progressive = true;
    pictures::TiffOptions tiled;
    tiled.tiled = true;
    tiled.alpha = true;
    tiled.compression = COMPRESSION_ADOBE_DEFLATE;
    return {{"bmp", BMPReader::read, pictures::bmp24(p)},
            {"tga", TGAReader::read, makeTga(tga)},
            {"tga-rle", TGAReader::read, makeTga(tgaRle)},
            {"png", PNGReader::read, pictures::writePng(p, {})},
            {"png-interlaced", PNGReader::read, pictures::writePng(p, interlaced)},
            {"jpeg", JPEGReader::read, pictures::writeJpeg(p, {})},
            {"jpeg-progressive", JPEGReader::read, pictures::writeJpeg(p, progressive)},
            {"tiff", TIFFReader::read, pictures::writeTiff(p, {})},
            {"tiff-tiled", TIFFReader::read, pictures::writeTiff(p, tiled)}};
}

TEST(RasterReaders, CutFilesGiveDamagedOrUnreadable) {
    for (const Sample& s : samples()) {
        SCOPED_TRACE(s.name);
        for (std::size_t keep :
             {std::size_t(0), std::size_t(1), std::size_t(7), std::size_t(17), s.file.size() / 4,
              s.file.size() / 2, s.file.size() * 9 / 10, s.file.size() - 30}) {
            SCOPED_TRACE(keep);
            Raster r;
            std::wstring error;
            const Bytes cut(s.file.begin(), s.file.begin() + std::min(keep, s.file.size()));
            const Status st = s.read(cut.data(), cut.size(), r, error);
            EXPECT_TRUE(st == status::damaged || st == status::unsupportedVersion) << st;
            EXPECT_TRUE(r.colour.empty());
        }
    }
}

TEST(RasterReaders, DamagedBytesNeverCrashAndGiveATableCode) {
    std::uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 69069 + 1; };
    for (const Sample& s : samples()) {
        SCOPED_TRACE(s.name);
        for (int trial = 0; trial < 60; ++trial) {
            Bytes damaged = s.file;
            for (int k = 0; k < 1 + trial % 8; ++k) {
                damaged[next() % damaged.size()] = std::uint8_t(next() >> 24);
            }
            Raster r;
            std::wstring error;
            const Status st = s.read(damaged.data(), damaged.size(), r, error);
            EXPECT_TRUE(st == status::ok || st == status::damaged ||
                        st == status::unsupportedVersion || st == status::unsupportedCompression)
                << st;
            if (st == status::ok) {
                EXPECT_EQ(r.colour.size(), std::size_t(r.width) * r.height * 3);
            } else {
                EXPECT_FALSE(error.empty());
            }
        }
    }
}

} // namespace
