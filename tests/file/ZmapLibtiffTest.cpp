// Independent checks of written files with libtiff: every file opens as a TIFF whose
// first directory is our colour image, libtiff decodes every tile we compressed to our
// pixels, and the thumbnail, texts and resolution are what the format says.

#include "ZmapTestFiles.h"

#include "core/StringUtils.h"
#include "file/QuorvaleZmapFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace zmap_test;

namespace {

class LibtiffQuiet {
public:
    LibtiffQuiet()
        : warning_(TIFFSetWarningHandler(nullptr)), error_(TIFFSetErrorHandler(nullptr)) {}
    ~LibtiffQuiet() {
        TIFFSetWarningHandler(warning_);
        TIFFSetErrorHandler(error_);
    }

private:
    TIFFErrorHandler warning_;
    TIFFErrorHandler error_;
};

std::string writeFile(const ZmapDocument& doc, const test::TempDir& dir, const char* name) {
    const std::string path = dir.file(name);
    QuorvaleZmapFile file;
    Status status = -1;
    file.write(status, doc, utf8(path));
    EXPECT_EQ(status, status::ok);
    return path;
}

/// The expected bytes of pixel (x, y) of a channel as libtiff gives them: red first for
/// colour, native 32-bit depth, native 16-bit material.
void expectedPixel(const TileBitmap& channel, std::int32_t x, std::int32_t y, std::uint8_t* out) {
    switch (channel.bytesPerPixel()) {
    case 3: {
        const auto c = channel.valueAt<ColourPOD>(x, y);
        out[0] = c.r;
        out[1] = c.g;
        out[2] = c.b;
        break;
    }
    case 4: {
        const auto v = channel.valueAt<std::uint32_t>(x, y);
        std::memcpy(out, &v, 4);
        break;
    }
    default: {
        const auto v = channel.valueAt<std::uint16_t>(x, y);
        std::memcpy(out, &v, 2);
        break;
    }
    }
}

/// libtiff decodes every tile of the current directory to the channel's pixels.
void expectTilesDecodeTo(TIFF* tif, const TileBitmap& channel) {
    std::uint32_t width = 0, length = 0, tileWidth = 0, tileLength = 0;
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width));
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length));
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tileWidth));
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_TILELENGTH, &tileLength));
    ASSERT_EQ(static_cast<std::int32_t>(width), channel.geometry().width);
    const auto bytes = static_cast<std::size_t>(channel.bytesPerPixel());
    std::vector<std::uint8_t> tile(static_cast<std::size_t>(TIFFTileSize(tif)));
    std::uint8_t expected[4];
    std::size_t mismatches = 0;
    for (std::uint32_t ty = 0; ty < length; ty += tileLength) {
        for (std::uint32_t tx = 0; tx < width; tx += tileWidth) {
            const ttile_t index = TIFFComputeTile(tif, tx, ty, 0, 0);
            ASSERT_EQ(
                TIFFReadEncodedTile(tif, index, tile.data(), static_cast<tmsize_t>(tile.size())),
                static_cast<tmsize_t>(tile.size()));
            for (std::uint32_t y = ty; y < std::min(length, ty + tileLength); ++y) {
                for (std::uint32_t x = tx; x < std::min(width, tx + tileWidth); ++x) {
                    expectedPixel(channel, static_cast<std::int32_t>(x),
                                  static_cast<std::int32_t>(y), expected);
                    const std::size_t at = ((y - ty) * std::size_t{tileWidth} + (x - tx)) * bytes;
                    mismatches += std::memcmp(&tile[at], expected, bytes) != 0;
                }
            }
        }
    }
    EXPECT_EQ(mismatches, 0u);
}

struct Written {
    const char* name;
    std::int32_t width;
    std::int32_t height;
    bool panorama;
    std::int32_t compression;
    bool paintOriginals;
};

TEST(ZmapLibtiff, EveryWrittenFileOpensAndItsTilesDecodeToOurPixels) {
    const Written cases[] = {
        {"flat, LZW", 300, 200, false, 5, false},
        {"flat, raw", 150, 70, false, 1, false},
        {"panorama", 0, 40, true, 5, false},
        {"with originals", 200, 130, false, 5, true},
    };
    test::TempDir dir;
    const LibtiffQuiet quiet;
    for (const Written& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = makeSceneDocument(c.width, c.height, c.panorama);
        doc->compression = c.compression;
        if (c.paintOriginals) {
            TileHandle hold;
            *doc->rgbWrite(5, 5, hold) = ColourPOD{9, 9, 9};
            *doc->zWrite(150, 100, hold) = 77;
            *doc->matWrite(5, 120, hold) = 2;
        }
        const std::string path = writeFile(*doc, dir, "file.zmp");
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        ASSERT_NE(tif, nullptr);
        // colour, thumbnail, depth, material, and with painting the three originals.
        EXPECT_EQ(TIFFNumberOfDirectories(tif), c.paintOriginals ? 7 : 4);

        // The first directory is an RGB image equal to our colour channel.
        const auto w = static_cast<std::uint32_t>(doc->width());
        const auto h = static_cast<std::uint32_t>(doc->height());
        std::vector<std::uint32_t> rgba(std::size_t{w} * h);
        ASSERT_TRUE(TIFFReadRGBAImageOriented(tif, w, h, rgba.data(), ORIENTATION_TOPLEFT, 0));
        std::size_t mismatches = 0;
        for (std::uint32_t y = 0; y < h; ++y) {
            for (std::uint32_t x = 0; x < w; ++x) {
                const std::uint32_t p = rgba[std::size_t{y} * w + x];
                const ColourPOD c =
                    doc->rgbAt(static_cast<std::int32_t>(x), static_cast<std::int32_t>(y));
                mismatches += TIFFGetR(p) != c.r || TIFFGetG(p) != c.g || TIFFGetB(p) != c.b;
            }
        }
        EXPECT_EQ(mismatches, 0u);

        // Each directory in turn, walked by libtiff; the original depth and material store
        // only their differing tiles (tag 34954 in place of TileOffsets), which libtiff
        // refuses, so the walk ends there.
        const TileBitmap* channels[] = {doc->rgb.get(), nullptr, doc->z.get(), doc->mat.get(),
                                        doc->originalRgb.get()};
        for (tdir_t d = 0; d < (c.paintOriginals ? 5 : 4); ++d) {
            SCOPED_TRACE(d);
            ASSERT_TRUE(TIFFSetDirectory(tif, d));
            if (channels[d]) {
                expectTilesDecodeTo(tif, *channels[d]);
            }
        }
        if (c.paintOriginals) {
            EXPECT_FALSE(TIFFSetDirectory(tif, 5));
        }
        TIFFClose(tif);
    }
}

TEST(ZmapLibtiff, ThumbnailIsTheComposedImageScaledToAHundredPixels) {
    struct Case {
        std::int32_t width, height;
        bool panorama;
        std::uint32_t thumbWidth, thumbHeight;
        double scale;
    };
    const Case cases[] = {
        {300, 200, false, 100, 67, 3.0},                                // 200 / 3 = 66.7
        {50, 40, false, 50, 40, 1.0},                                   // never enlarged
        {1000, 10, false, 100, 1, 10.0}, {0, 150, true, 100, 100, 1.5}, // the first face, 150 x 150
        {0, 50, true, 50, 50, 1.0},
    };
    test::TempDir dir;
    const LibtiffQuiet quiet;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.width << "x" << c.height << " panorama " << c.panorama);
        auto doc = makeSceneDocument(c.width, c.height, c.panorama);
        // An overlay over the top-left pixels and a shadow over the next ones: the thumbnail
        // shows them as the display does, the colour channel doesn't hold them.
        TileHandle hold;
        for (std::int32_t y = 0; y < 6; ++y) {
            for (std::int32_t x = 0; x < 6; ++x) {
                *doc->cutoutAlphaWrite(x, y, hold) = 1.0f;
                *doc->cutoutRgbWrite(x, y, hold) = ColourPOD{0, 0, 255};
                *doc->shadowAlphaWrite(x + 6, y, hold) = 1.0f;
            }
        }
        const std::string path = writeFile(*doc, dir, "thumb.zmp");
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        ASSERT_NE(tif, nullptr);
        ASSERT_TRUE(TIFFSetDirectory(tif, 1));
        std::uint32_t w = 0, h = 0, subfile = 0;
        TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
        TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
        TIFFGetField(tif, TIFFTAG_SUBFILETYPE, &subfile);
        EXPECT_EQ(subfile, 1u);
        ASSERT_EQ(w, c.thumbWidth);
        ASSERT_EQ(h, c.thumbHeight);
        EXPECT_FALSE(TIFFIsTiled(tif));
        std::vector<std::uint32_t> rgba(std::size_t{w} * h);
        ASSERT_TRUE(TIFFReadRGBAImageOriented(tif, w, h, rgba.data(), ORIENTATION_TOPLEFT, 0));
        std::size_t mismatches = 0;
        for (std::uint32_t ty = 0; ty < h; ++ty) {
            for (std::uint32_t tx = 0; tx < w; ++tx) {
                const auto x = static_cast<std::int32_t>(tx * c.scale);
                const auto y = static_cast<std::int32_t>(ty * c.scale);
                ColourPOD e = doc->rgbAt(x, y);
                if (x < 6 && y < 6) {
                    e = ColourPOD{0, 0, 255};
                } else if (x < 12 && y < 6) {
                    // A black shadow of opacity 0.4 keeps 0.6 of each component.
                    e = ColourPOD{static_cast<std::uint8_t>(std::lrint(e.b * 0.6)),
                                  static_cast<std::uint8_t>(std::lrint(e.g * 0.6)),
                                  static_cast<std::uint8_t>(std::lrint(e.r * 0.6))};
                }
                const std::uint32_t p = rgba[std::size_t{ty} * w + tx];
                mismatches += TIFFGetR(p) != e.r || TIFFGetG(p) != e.g || TIFFGetB(p) != e.b;
            }
        }
        EXPECT_EQ(mismatches, 0u);
        TIFFClose(tif);
        EXPECT_EQ(doc->rgbAt(0, 0), doc->originalRgbAt(0, 0)); // the overlay isn't saved
    }
}

/// The type and count of `tag` in the first directory of a little-endian file.
bool findEntry(const Bytes& file, std::uint16_t tag, std::uint16_t& type, std::uint32_t& count,
               std::uint32_t& value) {
    const auto u16 = [&](std::size_t at) { return std::uint16_t(file[at] | file[at + 1] << 8); };
    const auto u32 = [&](std::size_t at) { return std::uint32_t(u16(at) | u16(at + 2) << 16); };
    const std::uint32_t ifd = u32(4);
    for (std::uint32_t i = 0; i < u16(ifd); ++i) {
        const std::size_t at = ifd + 2 + 12 * std::size_t{i};
        if (u16(at) == tag) {
            type = u16(at + 2);
            count = u32(at + 4);
            value = u32(at + 8);
            return true;
        }
    }
    return false;
}

TEST(ZmapLibtiff, TextsAndResolutionOfTheColourDirectory) {
    test::TempDir dir;
    const LibtiffQuiet quiet;
    auto doc = makeSceneDocument(40, 30);
    doc->artist = L"A";             // one byte: still not in the value field
    doc->copyright = L"\u00a9 Ann"; // UTF-8
    doc->hostComputer.clear();      // absent
    const std::string path = writeFile(*doc, dir, "texts.zmp");

    const Bytes file = readBytes(path);
    std::uint16_t type = 0;
    std::uint32_t count = 0, value = 0;
    ASSERT_TRUE(findEntry(file, 315, type, count, value));
    EXPECT_EQ(type, 2);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&file[value])), "A");
    EXPECT_FALSE(findEntry(file, 316, type, count, value));

    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    char* text = nullptr;
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_COPYRIGHT, &text));
    EXPECT_STREQ(text, "\xc2\xa9 Ann");
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_IMAGEDESCRIPTION, &text));
    EXPECT_EQ(utf8(std::string(text)), doc->description);
    float x = 0, y = 0;
    std::uint16_t unit = 0;
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_XRESOLUTION, &x));
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_YRESOLUTION, &y));
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_RESOLUTIONUNIT, &unit));
    EXPECT_FLOAT_EQ(x, 37.8f); // 3780 pixels a metre, per centimetre
    EXPECT_FLOAT_EQ(y, 20.0f);
    EXPECT_EQ(unit, RESUNIT_CENTIMETER);
    std::uint16_t predictor = 0;
    ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_PREDICTOR, &predictor));
    EXPECT_EQ(predictor, PREDICTOR_HORIZONTAL);
    TIFFClose(tif);
}

} // namespace
