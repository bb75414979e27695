// The exporters: round trips through our readers and the format libraries, the PSD layout,
// and safe writing.
#include "PictureFiles.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "image/TileRowWriter.h"
#include "interchange/raster/RasterExport.h"
#include "interchange/raster/RasterImport.h"
#include "support/PngFile.h"
#include "support/TempDir.h"
#include "support/TestDocument.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <memory>
#include <tiffio.h>

using pictures::Bytes;
using pictures::Rgba;

namespace {

std::wstring wide(const std::string& s) {
    return utf8(s);
}

/// A document whose colour is the picture (more than one tile each way when large).
std::unique_ptr<test::TestDocument> documentOf(const Rgba& p) {
    auto d = test::makeTestDocument(p.width, p.height);
    TileRowWriter writer(*d->rgb);
    std::vector<std::uint8_t> row(std::size_t(p.width) * 3);
    for (std::int32_t y = 0; y < p.height; ++y) {
        for (std::int32_t x = 0; x < p.width; ++x) {
            row[x * 3] = p.at(x, y)[2];
            row[x * 3 + 1] = p.at(x, y)[1];
            row[x * 3 + 2] = p.at(x, y)[0];
        }
        writer.writeRow(0, y, row.data(), p.width);
    }
    return d;
}

Status exportTo(const std::string& path, const ZmapDocument& d, const ExportOptions& options = {},
                std::wstring* errorText = nullptr) {
    auto exporter = RasterExport::create(wide(path));
    if (!exporter) {
        return status::unsupportedCompression;
    }
    const Status s = exporter->write(d, d.geometry().bounds(), 3779.5276, 3779.5276, options);
    if (errorText) {
        *errorText = exporter->errorText();
    }
    EXPECT_EQ(exporter->stage(), 2);
    EXPECT_EQ(exporter->write(d, d.geometry().bounds(), 1, 1, options), s) << "second write";
    return s;
}

int worstDifference(const Raster& r, const Rgba& p) {
    if (r.width != p.width || r.height != p.height) {
        return 1000;
    }
    int worst = 0;
    for (std::int32_t y = 0; y < p.height; ++y) {
        for (std::int32_t x = 0; x < p.width; ++x) {
            for (int c = 0; c < 3; ++c) {
                worst =
                    std::max(worst, std::abs(int(r.row(y)[x * 3 + 2 - c]) - int(p.at(x, y)[c])));
            }
        }
    }
    return worst;
}

TEST(RasterExport, EveryWriterReadsBackThroughOurReaders) {
    test::TempDir dir;
    // Odd sizes, more than one tile across and down.
    const Rgba p = pictures::pattern(131, 67, false);
    const Rgba smooth = pictures::gradient(131, 67);
    auto d = documentOf(p);
    auto ds = documentOf(smooth);
    for (const char* name : {"a.bmp", "a.tga", "a.png", "a.tif", "a.jpg"}) {
        SCOPED_TRACE(name);
        const bool lossy = std::string(name) == "a.jpg";
        ASSERT_EQ(exportTo(dir.file(name), lossy ? *ds : *d), status::ok);
        RasterImport import;
        ASSERT_EQ(import.read(wide(dir.file(name))), status::ok);
        EXPECT_LE(worstDifference(*import.raster(), lossy ? smooth : p), lossy ? 8 : 0);
    }
    EXPECT_FALSE(RasterExport::create(L"x.gif"));
}

TEST(RasterExport, BmpRowsArePaddedToFourBytes) {
    test::TempDir dir;
    auto d = documentOf(pictures::pattern(5, 3, false));
    ASSERT_EQ(exportTo(dir.file("odd.bmp"), *d), status::ok);
    const Bytes b = pictures::readFile(dir.file("odd.bmp"));
    EXPECT_EQ(b.size(), 54u + 16u * 3u); // 15 bytes a row, padded to 16
    EXPECT_EQ(b[28], 24);
}

TEST(RasterExport, TheFormatLibrariesReadOurFiles) {
    test::TempDir dir;
    const Rgba p = pictures::pattern(70, 33, false);
    const Rgba smooth = pictures::gradient(70, 33);
    auto d = documentOf(p);
    auto ds = documentOf(smooth);
    ExportOptions options;
    options.title = L"Terrace";
    options.author = L"Ann";
    options.copyright = L"(c) Ann";
    ASSERT_EQ(exportTo(dir.file("a.png"), *d, options), status::ok);
    test::PngImage png;
    std::string error;
    ASSERT_TRUE(test::readPng(dir.file("a.png"), png, error)) << error;
    ASSERT_EQ(png.width, 70u);
    EXPECT_EQ(std::vector<int>(png.at(69, 32), png.at(69, 32) + 3),
              std::vector<int>(p.at(69, 32), p.at(69, 32) + 3));
    RasterImport import;
    ASSERT_EQ(import.read(wide(dir.file("a.png"))), status::ok);
    EXPECT_EQ(import.raster()->title, L"Terrace");
    EXPECT_EQ(import.raster()->author, L"Ann");

    ASSERT_EQ(exportTo(dir.file("a.tif"), *d), status::ok);
    TIFF* tif = TIFFOpen(dir.file("a.tif").c_str(), "r");
    ASSERT_TRUE(tif);
    std::vector<std::uint32_t> rgba(70 * 33);
    ASSERT_TRUE(TIFFReadRGBAImageOriented(tif, 70, 33, rgba.data(), ORIENTATION_TOPLEFT, 0));
    TIFFClose(tif);
    for (std::int32_t i = 0; i < 70 * 33; ++i) {
        const std::uint8_t* q = p.at(i % 70, i / 70);
        ASSERT_EQ(TIFFGetR(rgba[i]), q[0]);
        ASSERT_EQ(TIFFGetB(rgba[i]), q[2]);
    }

    for (int sampling : {1, 2, 3}) {
        ExportOptions jpeg;
        jpeg.sampling = sampling;
        jpeg.progressive = sampling == 3;
        jpeg.optimiseCoding = true;
        ASSERT_EQ(exportTo(dir.file("a.jpg"), *ds, jpeg), status::ok);
        const Bytes file = pictures::readFile(dir.file("a.jpg"));
        jpeg_decompress_struct info;
        jpeg_error_mgr err;
        info.err = jpeg_std_error(&err);
        jpeg_create_decompress(&info);
        jpeg_mem_src(&info, file.data(), file.size());
        jpeg_read_header(&info, TRUE);
        EXPECT_EQ(info.comp_info[0].h_samp_factor, sampling == 1 ? 1 : 2);
        EXPECT_EQ(info.comp_info[0].v_samp_factor, sampling == 2 ? 2 : 1);
        EXPECT_EQ(bool(info.progressive_mode), sampling == 3);
        jpeg_start_decompress(&info);
        std::vector<std::uint8_t> row(70 * 3);
        int worst = 0;
        while (info.output_scanline < info.output_height) {
            const std::int32_t y = std::int32_t(info.output_scanline);
            JSAMPROW r = row.data();
            jpeg_read_scanlines(&info, &r, 1);
            for (int i = 0; i < 70 * 3; ++i) {
                worst = std::max(worst, std::abs(int(row[i]) - int(smooth.at(i / 3, y)[i % 3])));
            }
        }
        jpeg_finish_decompress(&info);
        jpeg_destroy_decompress(&info);
        EXPECT_LE(worst, 8);
    }
}

/// Reads the composite of a PSD file back: its size and its PackBits or raw planes.
bool readPsdComposite(const Bytes& b, Raster& r, std::size_t& layerSectionLength) {
    auto be16 = [&](std::size_t at) { return std::uint32_t(b[at] << 8 | b[at + 1]); };
    auto be32 = [&](std::size_t at) { return be16(at) << 16 | be16(at + 2); };
    if (b.size() < 34 || std::memcmp(b.data(), "8BPS", 4) != 0) {
        return false;
    }
    const std::uint32_t h = be32(14);
    const std::uint32_t w = be32(18);
    std::size_t at = 26;
    at += 4 + be32(at); // colour mode data
    at += 4 + be32(at); // resources
    layerSectionLength = be32(at);
    at += 4 + layerSectionLength;
    const std::uint32_t compression = be16(at);
    at += 2;
    std::wstring error;
    if (r.allocate(w, h, false, error) != status::ok) {
        return false;
    }
    std::size_t data = at + (compression == 1 ? std::size_t(h) * 3 * 2 : 0);
    for (int c = 0; c < 3; ++c) {
        for (std::uint32_t y = 0; y < h; ++y) {
            std::vector<std::uint8_t> row;
            if (compression == 1) {
                const std::size_t end = data + be16(at + (std::size_t(c) * h + y) * 2);
                while (data < end) {
                    const int n = static_cast<std::int8_t>(b[data++]);
                    if (n >= 0) {
                        row.insert(row.end(), b.begin() + data, b.begin() + data + n + 1);
                        data += n + 1;
                    } else {
                        row.insert(row.end(), std::size_t(1 - n), b[data++]);
                    }
                }
            } else {
                row.assign(b.begin() + data, b.begin() + data + w);
                data += w;
            }
            if (row.size() != w) {
                return false;
            }
            for (std::uint32_t x = 0; x < w; ++x) {
                r.row(std::int32_t(y))[x * 3 + 2 - c] = row[x];
            }
        }
    }
    return data == b.size();
}

TEST(RasterExport, PsdWithoutLayersHasAnEmptyLayerSectionAndTheComposite) {
    test::TempDir dir;
    const Rgba p = pictures::pattern(150, 70, false);
    auto d = documentOf(p);
    for (bool packBits : {true, false}) {
        ExportOptions options;
        options.packBits = packBits;
        options.colourManaged = true;
        ASSERT_EQ(exportTo(dir.file("flat.psd"), *d, options), status::ok);
        Raster r;
        std::size_t layerLength = 99;
        ASSERT_TRUE(readPsdComposite(pictures::readFile(dir.file("flat.psd")), r, layerLength));
        EXPECT_EQ(layerLength, 0u);
        EXPECT_EQ(worstDifference(r, p), 0);
    }
}

TEST(PackBits, RunsAndLiteralsDecodeToTheInput) {
    const std::vector<std::vector<std::uint8_t>> inputs = {{},
                                                           {7},
                                                           {1, 1},
                                                           {1, 2, 3},
                                                           std::vector<std::uint8_t>(300, 9),
                                                           {1, 2, 2, 3, 3, 3, 4, 4, 4, 4, 5}};
    for (const auto& in : inputs) {
        std::vector<std::uint8_t> coded;
        packBits(in.data(), in.size(), coded);
        std::vector<std::uint8_t> out;
        for (std::size_t i = 0; i < coded.size();) {
            const int n = static_cast<std::int8_t>(coded[i++]);
            if (n >= 0) {
                out.insert(out.end(), coded.begin() + i, coded.begin() + i + n + 1);
                i += n + 1;
            } else {
                out.insert(out.end(), std::size_t(1 - n), coded[i++]);
            }
        }
        EXPECT_EQ(out, in);
    }
    std::vector<std::uint8_t> coded;
    const std::vector<std::uint8_t> flat(300, 9);
    packBits(flat.data(), flat.size(), coded);
    EXPECT_EQ(coded.size(), 6u); // three runs of 128, 128 and 44
}

std::string run(const std::string& command) {
    std::string out;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[4096];
        while (std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) {
            out.append(buffer, n);
        }
        ::pclose(pipe);
    }
    return out;
}

struct PsdRecord {
    std::wstring name;                ///< from "luni"
    std::uint32_t section = 0;        ///< "lsct" type, 0 for none
    std::vector<std::int32_t> bounds; ///< top, left, bottom, right
    std::size_t pascalBytes = 0;
};

/// The layer records of a PSD file, in file order.
std::vector<PsdRecord> psdRecords(const Bytes& b) {
    auto be16 = [&](std::size_t at) { return std::uint32_t(b[at] << 8 | b[at + 1]); };
    auto be32 = [&](std::size_t at) { return be16(at) << 16 | be16(at + 2); };
    std::size_t at = 26;
    at += 4 + be32(at);
    at += 4 + be32(at);
    at += 8; // section length, layer info length
    const std::uint32_t count = be16(at);
    at += 2;
    std::vector<PsdRecord> records;
    for (std::uint32_t i = 0; i < count; ++i) {
        PsdRecord r;
        for (int k = 0; k < 4; ++k) {
            r.bounds.push_back(std::int32_t(be32(at + 4 * k)));
        }
        at += 16;
        const std::uint32_t channels = be16(at);
        at += 2 + channels * 6 + 12;
        const std::size_t extraEnd = at + 4 + be32(at);
        at += 4;
        at += 4 + be32(at); // mask
        at += 4 + be32(at); // blending ranges
        r.pascalBytes = (1 + b[at] + 3) & ~std::size_t(3);
        at += r.pascalBytes;
        while (at + 12 <= extraEnd) {
            const std::string key(b.begin() + at + 4, b.begin() + at + 8);
            const std::uint32_t length = be32(at + 8);
            const std::size_t data = at + 12;
            if (key == "luni") {
                for (std::uint32_t c = 0; c < be32(data); ++c) {
                    r.name += wchar_t(be16(data + 4 + 2 * c));
                }
            } else if (key == "lsct") {
                r.section = be32(data);
            }
            at = data + length;
        }
        at = extraEnd;
        records.push_back(r);
    }
    return records;
}

TEST(RasterExport, PsdLayersAndGroupsAsImageMagickSeesThem) {
    if (std::system("command -v identify >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "ImageMagick's identify is not installed";
    }
    test::TempDir dir;
    const Rgba p = pictures::pattern(64, 48, false);
    auto d = documentOf(p);
    auto picture = [](std::int32_t w, std::int32_t h, std::uint8_t red) {
        auto r = TQL::makeHandle<Raster>();
        std::wstring error;
        EXPECT_EQ(r->allocate(w, h, true, error), status::ok);
        for (std::size_t i = 0; i < r->colour.size(); i += 3) {
            r->colour[i + 2] = red;
        }
        std::fill(r->alpha.begin(), r->alpha.end(), 200);
        return r;
    };
    ExportOptions options;
    auto layer = [](PsdLayer::Kind kind, const std::wstring& name, IExtent<2> bounds,
                    TQL::Handle<Raster> pic, std::int32_t id) {
        PsdLayer l;
        l.kind = kind, l.name = name, l.bounds = bounds, l.picture = pic, l.id = id;
        return l;
    };
    using K = PsdLayer::Kind;
    // Top first: a tree in a group "Garden", an empty group, a chair, the background.
    options.layers = {
        layer(K::groupTop, L"Garden", {}, nullptr, 1),
        layer(K::pixels, L"Tree", IExtent<2>(10, 5, 29, 34), picture(20, 30, 50), 2),
        layer(K::groupEnd, L"", {}, nullptr, 3),
        layer(K::groupTop, L"", {}, nullptr, 4),
        layer(K::groupEnd, L"", {}, nullptr, 5),
        layer(K::pixels, L"Chair", IExtent<2>(40, 30, 49, 39), picture(10, 10, 90), 6),
        layer(K::pixels, L"Background", IExtent<2>(0, 0, 63, 47), picture(64, 48, 0), 7)};
    ASSERT_EQ(exportTo(dir.file("layers.psd"), *d, options), status::ok);

    const std::string listing =
        run("identify -format '%[label]|%w|%h|%X|%Y\\n' '" + dir.file("layers.psd") + "' 2>&1");
    // ImageMagick lists the pixel layers with their names and bounds (it leaves out group
    // records, which have no pixels).
    EXPECT_NE(listing.find("Background|64|48|+0|+0"), std::string::npos) << listing;
    EXPECT_NE(listing.find("Chair|10|10|+40|+30"), std::string::npos) << listing;
    EXPECT_NE(listing.find("Tree|20|30|+10|+5"), std::string::npos) << listing;

    // The records as the file holds them, bottom first: name, section type, bounds.
    const std::vector<PsdRecord> records = psdRecords(pictures::readFile(dir.file("layers.psd")));
    const std::vector<PsdRecord> expect = {
        {L"Background", 0, {0, 0, 48, 64}},   {L"Chair", 0, {30, 40, 40, 50}},
        {L"</Layer group>", 3, {0, 0, 0, 0}}, {L"", 1, {0, 0, 0, 0}},
        {L"</Layer group>", 3, {0, 0, 0, 0}}, {L"Tree", 0, {5, 10, 35, 30}},
        {L"Garden", 1, {0, 0, 0, 0}}};
    ASSERT_EQ(records.size(), expect.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].name, expect[i].name) << i;
        EXPECT_EQ(records[i].section, expect[i].section) << i;
        EXPECT_EQ(records[i].bounds, expect[i].bounds) << i;
    }
    EXPECT_EQ(records[3].pascalBytes, 4u) << "an empty name is a length byte padded to 4";

    // The composite ImageMagick draws is the document's colour.
    const std::string flat = dir.file("composite.png");
    run("convert '" + dir.file("layers.psd") + "[0]' '" + flat + "' 2>&1");
    test::PngImage png;
    std::string error;
    ASSERT_TRUE(test::readPng(flat, png, error)) << error;
    ASSERT_EQ(png.width, 64u);
    for (std::uint32_t y = 0; y < 48; ++y) {
        for (std::uint32_t x = 0; x < 64; ++x) {
            ASSERT_EQ(std::vector<int>(png.at(x, y), png.at(x, y) + 3),
                      std::vector<int>(p.at(x, y), p.at(x, y) + 3))
                << x << "," << y;
        }
    }
}

/// Asks to stop at the first report.
class StopAtOnce : public Reporter {
public:
    bool report(unsigned, unsigned, double) override { return true; }
};

TEST(RasterExport, FailedOrStoppedExportsLeaveTheOldFileAndNoOther) {
    test::TempDir dir;
    auto d = documentOf(pictures::pattern(40, 20, false));
    for (const char* name : {"x.bmp", "x.tga", "x.png", "x.jpg", "x.tif", "x.psd"}) {
        SCOPED_TRACE(name);
        pictures::writeFile(dir.file(name), Bytes{1, 2, 3});
        StopAtOnce stop;
        ExportOptions options;
        options.progress = &stop;
        EXPECT_EQ(exportTo(dir.file(name), *d, options), status::stopped);
        EXPECT_EQ(pictures::readFile(dir.file(name)), (Bytes{1, 2, 3}));
        std::filesystem::remove(dir.file(name));
    }
    EXPECT_TRUE(dir.entries().empty()) << "no temporary file is left";
    std::wstring error;
    EXPECT_NE(exportTo(dir.file("missing/x.png"), *d, {}, &error), status::ok);
    EXPECT_FALSE(error.empty());
}

} // namespace
