// Independent checks of the codec against libtiff: tiles we compress are read by libtiff
// as LZW with horizontal prediction, and tiles libtiff compresses are read by us.

#include "file/ZmapLZWDecoder.h"
#include "file/ZmapLZWEncoder.h"
#include "file/ZmapPredictor.h"

#include "CodecTestSupport.h"

#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

using namespace codec_test;

namespace {

struct Layout {
    const char* name;
    FilePixelType type;
    std::uint16_t samples;
    std::uint16_t bitsPerSample;
    std::uint16_t photometric;
    std::uint32_t tileSize;
    /// smooth: shading with a little noise, or a slanted plane for depth. noise: long
    /// 12-bit stretches and table resets. mixed: flat rows, then a few levels at random,
    /// so that the compression ratio falls and the encoder empties its table early.
    enum Content { smooth, noise, mixed } content;
};

const Layout layouts[] = {
    {"rgb 64", FilePixelType::rgb24, 3, 8, PHOTOMETRIC_RGB, 64, Layout::smooth},
    {"rgb 256", FilePixelType::rgb24, 3, 8, PHOTOMETRIC_RGB, 256, Layout::smooth},
    {"rgb 128 noise", FilePixelType::rgb24, 3, 8, PHOTOMETRIC_RGB, 128, Layout::noise},
    {"grey 128", FilePixelType::grey8, 1, 8, PHOTOMETRIC_MINISBLACK, 128, Layout::smooth},
    {"grey 64 noise", FilePixelType::grey8, 1, 8, PHOTOMETRIC_MINISBLACK, 64, Layout::noise},
    {"grey 256 mixed", FilePixelType::grey8, 1, 8, PHOTOMETRIC_MINISBLACK, 256, Layout::mixed},
    {"depth 128", FilePixelType::depth32, 1, 32, PHOTOMETRIC_MINISBLACK, 128, Layout::smooth},
    {"depth 256 noise", FilePixelType::depth32, 1, 32, PHOTOMETRIC_MINISBLACK, 256, Layout::noise},
};

constexpr std::uint32_t tilesAcross = 2;

std::size_t tileBytes(const Layout& l) {
    return std::size_t{l.tileSize} * l.tileSize * l.samples * l.bitsPerSample / 8;
}

/// Image content of one tile: smooth shading with a little noise (or pure noise), and
/// for depth a plane seen at a slant.
Bytes tileContent(const Layout& l, std::uint32_t tile) {
    if (l.content == Layout::noise) {
        return noiseBytes(tileBytes(l), 1000 + tile);
    }
    if (l.content == Layout::mixed) {
        Bytes out = noiseBytes(tileBytes(l), 2000 + tile);
        const std::size_t flat = tileBytes(l) / 6;
        for (std::size_t i = 0; i < out.size(); ++i) {
            out[i] = i < flat ? 0 : static_cast<std::uint8_t>(out[i] & 3);
        }
        return out;
    }
    Noise noise(tile + 1);
    Bytes out(tileBytes(l));
    const std::uint32_t n = l.tileSize;
    for (std::uint32_t y = 0; y < n; ++y) {
        for (std::uint32_t x = 0; x < n; ++x) {
            const std::size_t pixel = std::size_t{y} * n + x;
            if (l.bitsPerSample == 32) {
                const auto depth =
                    static_cast<std::uint32_t>(4e9 / (1.0 + 0.01 * (x + tile * n) + 0.02 * y));
                std::memcpy(&out[pixel * 4], &depth, 4);
                continue;
            }
            for (std::uint32_t s = 0; s < l.samples; ++s) {
                const double shade = 60 + 0.4 * x + 0.3 * y + 40 * s + 20 * std::sin(0.05 * x);
                out[pixel * l.samples + s] =
                    static_cast<std::uint8_t>(static_cast<int>(shade) + (noise.next() % 5));
            }
        }
    }
    return out;
}

class ZmapTiffInterop : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quorvale-file-tests-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    std::string path(const char* name) const { return (dir_ / name).string(); }

    static TIFF* create(const std::string& path, const Layout& l) {
        TIFF* tif = TIFFOpen(path.c_str(), "w");
        if (tif == nullptr) {
            return nullptr;
        }
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, l.tileSize * tilesAcross);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, l.tileSize);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, l.bitsPerSample);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, l.samples);
        TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, l.photometric);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, l.tileSize);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, l.tileSize);
        return tif;
    }

    std::filesystem::path dir_;
};

/// Pixels copied into a buffer aligned for 32-bit samples.
std::vector<std::uint32_t> aligned(const Bytes& bytes) {
    std::vector<std::uint32_t> words((bytes.size() + 3) / 4);
    std::memcpy(words.data(), bytes.data(), bytes.size());
    return words;
}

TEST_F(ZmapTiffInterop, LibtiffReadsOurTiles) {
    auto encoder = newEncoder();
    for (const Layout& l : layouts) {
        SCOPED_TRACE(l.name);
        const std::string file = path("ours.tif");
        TIFF* out = create(file, l);
        ASSERT_NE(out, nullptr);
        const auto predictor = makePredictor(l.type, false);
        for (std::uint32_t t = 0; t < tilesAcross; ++t) {
            auto pixels = aligned(tileContent(l, t));
            predictor->encodeRows(pixels.data(), l.tileSize, l.tileSize);
            const auto* p = reinterpret_cast<const std::uint8_t*>(pixels.data());
            const Bytes encoded = encodeBlock(*encoder, Bytes(p, p + tileBytes(l)));
            ASSERT_EQ(TIFFWriteRawTile(out, t, const_cast<std::uint8_t*>(encoded.data()),
                                       static_cast<tmsize_t>(encoded.size())),
                      static_cast<tmsize_t>(encoded.size()));
        }
        TIFFClose(out);

        TIFF* in = TIFFOpen(file.c_str(), "r");
        ASSERT_NE(in, nullptr);
        for (std::uint32_t t = 0; t < tilesAcross; ++t) {
            Bytes decoded(tileBytes(l));
            EXPECT_EQ(
                TIFFReadEncodedTile(in, t, decoded.data(), static_cast<tmsize_t>(decoded.size())),
                static_cast<tmsize_t>(decoded.size()));
            EXPECT_EQ(decoded, tileContent(l, t)) << "tile " << t;
        }
        TIFFClose(in);
    }
}

/// The compressed tiles of a file that libtiff wrote, as they lie in the file.
std::vector<Bytes> libtiffTiles(const std::string& file, const Layout& l) {
    std::vector<Bytes> tiles;
    TIFF* in = TIFFOpen(file.c_str(), "r");
    EXPECT_NE(in, nullptr);
    if (in == nullptr) {
        return tiles;
    }
    std::uint64_t* byteCounts = nullptr;
    EXPECT_EQ(TIFFGetField(in, TIFFTAG_TILEBYTECOUNTS, &byteCounts), 1);
    for (std::uint32_t t = 0; byteCounts && t < tilesAcross; ++t) {
        Bytes compressed(static_cast<std::size_t>(byteCounts[t]));
        const auto size = static_cast<tmsize_t>(compressed.size());
        EXPECT_EQ(TIFFReadRawTile(in, t, compressed.data(), size), size);
        tiles.push_back(std::move(compressed));
    }
    TIFFClose(in);
    return tiles;
}

TEST_F(ZmapTiffInterop, WeReadLibtiffTilesAndEncodeThemAlike) {
    auto decoder = newDecoder();
    auto encoder = newEncoder();
    for (const Layout& l : layouts) {
        SCOPED_TRACE(l.name);
        const std::string file = path("libtiff.tif");
        TIFF* out = create(file, l);
        ASSERT_NE(out, nullptr);
        for (std::uint32_t t = 0; t < tilesAcross; ++t) {
            Bytes pixels = tileContent(l, t); // libtiff may difference this copy in place
            ASSERT_EQ(
                TIFFWriteEncodedTile(out, t, pixels.data(), static_cast<tmsize_t>(pixels.size())),
                static_cast<tmsize_t>(pixels.size()));
        }
        TIFFClose(out);

        const std::vector<Bytes> tiles = libtiffTiles(file, l);
        ASSERT_EQ(tiles.size(), tilesAcross);
        const auto predictor = makePredictor(l.type, false);
        for (std::uint32_t t = 0; t < tilesAcross; ++t) {
            SCOPED_TRACE(t);
            const Bytes& theirs = tiles[t];
            bool ok = false;
            auto pixels = aligned(decodeBlock(*decoder, theirs, tileBytes(l), ok));
            EXPECT_TRUE(ok);
            predictor->decodeRows(pixels.data(), l.tileSize, l.tileSize);
            const auto* p = reinterpret_cast<const std::uint8_t*>(pixels.data());
            EXPECT_EQ(Bytes(p, p + tileBytes(l)), tileContent(l, t));

            // Same hashing, same table resets: the streams agree code for code. Only the
            // end code may differ, which libtiff widens by a bit when the last code fills
            // the width in use.
            predictor->encodeRows(pixels.data(), l.tileSize, l.tileSize);
            const Bytes ours = encodeBlock(*encoder, Bytes(p, p + tileBytes(l)));
            ASSERT_GT(ours.size(), 4u);
            ASSERT_LE(std::max(ours.size(), theirs.size()) - std::min(ours.size(), theirs.size()),
                      1u);
            const std::size_t common = ours.size() - 4;
            EXPECT_TRUE(std::equal(ours.begin(), ours.begin() + common, theirs.begin()));
        }
    }
}

} // namespace
