#include "ZmapTestFiles.h"

#include "core/StringUtils.h"
#include "file/QuorvaleZmapFile.h"
#include "file/ZmapLZWEncoder.h"
#include "image/TileRowWriter.h"
#include "support/SyntheticScene.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zmap_test {

namespace {

/// Deterministic noise (xorshift32).
std::uint32_t nextNoise(std::uint32_t& state) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
}

void paintColour(ZmapDocument& doc) {
    TileRowWriter writer(*doc.rgb);
    std::uint32_t noise = 12345;
    std::vector<ColourPOD> row(static_cast<std::size_t>(doc.width()));
    for (std::int32_t y = 0; y < doc.height(); ++y) {
        for (std::int32_t x = 0; x < doc.width(); ++x) {
            const auto n = static_cast<std::uint8_t>(nextNoise(noise) >> 29);
            row[static_cast<std::size_t>(x)] = {
                static_cast<std::uint8_t>(40 + n),
                static_cast<std::uint8_t>(y * 255 / std::max(1, doc.height() - 1)),
                static_cast<std::uint8_t>(x * 255 / std::max(1, doc.width() - 1))};
        }
        writer.writeRow(0, y, reinterpret_cast<const std::uint8_t*>(row.data()), doc.width());
    }
}

/// Reads pixel (x, y) of a channel as its bytes.
void pixelBytes(const TileBitmap& b, std::int32_t x, std::int32_t y, std::uint8_t* out) {
    switch (b.bytesPerPixel()) {
    case 2: {
        const auto v = b.valueAt<std::uint16_t>(x, y);
        std::memcpy(out, &v, 2);
        break;
    }
    case 3: {
        const auto v = b.valueAt<ColourPOD>(x, y);
        std::memcpy(out, &v, 3);
        break;
    }
    case 4: {
        const auto v = b.valueAt<std::uint32_t>(x, y);
        std::memcpy(out, &v, 4);
        break;
    }
    default:
        throw std::logic_error("unexpected pixel size");
    }
}

/// Horizontal differencing of one block of rows, samples of `sampleBytes` in file order.
void predict(Bytes& block, std::uint32_t width, std::uint32_t bytesPerPixel,
             std::uint32_t sampleBytes, bool big) {
    const std::uint32_t samples = width * bytesPerPixel / sampleBytes;
    const std::uint32_t perPixel = bytesPerPixel / sampleBytes;
    const auto get = [&](std::size_t at) {
        std::uint32_t v = 0;
        for (std::uint32_t k = 0; k < sampleBytes; ++k) {
            const std::uint32_t byte = block[at + (big ? k : sampleBytes - 1 - k)];
            v = (v << 8) | byte;
        }
        return v;
    };
    const auto set = [&](std::size_t at, std::uint32_t v) {
        for (std::uint32_t k = 0; k < sampleBytes; ++k) {
            block[at + (big ? sampleBytes - 1 - k : k)] = static_cast<std::uint8_t>(v >> (8 * k));
        }
    };
    const std::size_t rowBytes = std::size_t{width} * bytesPerPixel;
    for (std::size_t row = 0; row < block.size() / rowBytes; ++row) {
        for (std::uint32_t i = samples - 1; i >= perPixel; --i) {
            const std::size_t at = row * rowBytes + std::size_t{i} * sampleBytes;
            set(at, get(at) - get(at - std::size_t{perPixel} * sampleBytes));
        }
    }
}

Bytes lzw(const Bytes& raw) {
    RecordingErrorReporter reporter;
    Status s = status::ok;
    const auto encoder = ZmapLZWEncoder::create(s, reporter);
    encoder->start(static_cast<std::uint32_t>(raw.size()));
    encoder->encode(raw.data(), static_cast<std::uint32_t>(raw.size()));
    encoder->finish();
    return Bytes(encoder->encodedData(), encoder->encodedData() + encoder->encodedSize());
}

} // namespace

std::unique_ptr<test::TestDocument> makeSceneDocument(std::int32_t width, std::int32_t height,
                                                      bool panorama) {
    auto doc = test::makeTestDocument(panorama ? 6 * height : width, height);
    ViewParams view;
    if (panorama) {
        view.viewCode = ViewParams::cubicCode;
        view.target = Point<3>(1, 2, 1.6);
        view.angle = 30;
    } else {
        view.target = view.eye; // a flat view keeps neither target nor angle
        view.angle = 0;
    }
    view.modelScale = 2.5;
    view.unitCode = 3;
    doc->setViewParams(view);
    doc->addMaterial(L"Floor", ColourPOD{10, 200, 30}, false);
    doc->addMaterial(L"Wall", ColourPOD{90, 90, 220}, false);
    doc->addMaterial(L"B\u00f6x", ColourPOD{1, 2, 3}, false);
    doc->addMaterial(L"Sky", ColourPOD{250, 250, 250}, false);
    doc->setHotLink(2, MatHotLink{L"Brick library", L"Red brick \u00e9", 1});

    test::SyntheticScene scene;
    scene.add(Plane(Vector<3>(0, 0, 1), Point<3>(0, 0, 0)), 1);
    scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 8, 0)), 2);
    scene.addBox(Extent<3>(Point<3>(-1, 3, 0), Point<3>(0.5, 4.5, 1)), 3);
    if (doc->viewProj()) { // none below 2 x 2 pixels
        scene.render(*doc);
    }
    if (panorama) {
        doc->z->stitchFaces(height);
    }
    paintColour(*doc);
    doc->commitOriginals();

    doc->description = L"A test scene \u2014 with a dash";
    doc->software = L"quorvale tests";
    doc->dateTime = L"2024:05:01 12:00:00";
    doc->artist = L"Ann";
    doc->hostComputer = L"host";
    doc->copyright = L"\u00a9 2024 Test";
    doc->xResolution = 3780;
    doc->yResolution = 2000;
    const std::string block = "cut-out text block";
    doc->cutoutBlock.assign(block.begin(), block.end());
    doc->cutoutBlockItems = 1;
    return doc;
}

Bytes channelPixels(const TileBitmap* bitmap) {
    Bytes out;
    if (!bitmap) {
        return out;
    }
    const TileGeometry& g = bitmap->geometry();
    const auto n = static_cast<std::size_t>(bitmap->bytesPerPixel());
    out.resize(static_cast<std::size_t>(g.width) * static_cast<std::size_t>(g.height) * n);
    for (std::int32_t y = 0; y < g.height; ++y) {
        for (std::int32_t x = 0; x < g.width; ++x) {
            pixelBytes(*bitmap, x, y,
                       &out[(static_cast<std::size_t>(y) * static_cast<std::size_t>(g.width) +
                             static_cast<std::size_t>(x)) *
                            n]);
        }
    }
    return out;
}

void expectSameDocument(const ZmapDocument& expected, const ZmapDocument& actual) {
    ASSERT_EQ(expected.geometry(), actual.geometry());
    EXPECT_TRUE(channelPixels(expected.rgb.get()) == channelPixels(actual.rgb.get()));
    EXPECT_TRUE(channelPixels(expected.z.get()) == channelPixels(actual.z.get()));
    EXPECT_TRUE(channelPixels(expected.mat.get()) == channelPixels(actual.mat.get()));
    EXPECT_TRUE(channelPixels(expected.originalRgb.get()) ==
                channelPixels(actual.originalRgb.get()));
    EXPECT_TRUE(channelPixels(expected.originalZ.get()) == channelPixels(actual.originalZ.get()));
    EXPECT_TRUE(channelPixels(expected.originalMat.get()) ==
                channelPixels(actual.originalMat.get()));
    EXPECT_EQ(expected.viewParams(), actual.viewParams());
    EXPECT_EQ(expected.description, actual.description);
    EXPECT_EQ(expected.software, actual.software);
    EXPECT_EQ(expected.dateTime, actual.dateTime);
    EXPECT_EQ(expected.artist, actual.artist);
    EXPECT_EQ(expected.hostComputer, actual.hostComputer);
    EXPECT_EQ(expected.copyright, actual.copyright);
    ASSERT_EQ(expected.materials().size(), actual.materials().size());
    for (const auto& [id, record] : expected.materials()) {
        const MaterialRecord* other = actual.material(id);
        ASSERT_NE(other, nullptr) << "material " << id;
        EXPECT_EQ(record.name, other->name);
        EXPECT_EQ(record.colour, other->colour);
        EXPECT_EQ(record.hotLink, other->hotLink);
    }
    EXPECT_EQ(expected.xResolution, actual.xResolution);
    EXPECT_EQ(expected.yResolution, actual.yResolution);
    EXPECT_EQ(expected.compression, actual.compression);
    EXPECT_EQ(expected.cutoutBlock, actual.cutoutBlock);
    EXPECT_EQ(expected.cutoutBlockItems, actual.cutoutBlockItems);
}

Bytes readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

std::unique_ptr<test::TestDocument> readDocument(const std::string& path, Status& status) {
    auto doc = std::make_unique<test::TestDocument>();
    QuorvaleZmapFile file;
    file.read(status, utf8(path), *doc);
    if (status == status::ok) {
        status = doc->allocateChannels();
    }
    return doc;
}

std::unique_ptr<test::TestDocument> readDocument(const Bytes& bytes, Status& status) {
    auto doc = std::make_unique<test::TestDocument>();
    QuorvaleZmapFile file;
    file.readMemory(status, bytes.data(), bytes.size(), *doc);
    if (status == status::ok) {
        status = doc->allocateChannels();
    }
    return doc;
}

// The hand-made files.

TiffBuilder::TiffBuilder(bool bigEndian) : big_(bigEndian) {}

void TiffBuilder::put16(Bytes& out, std::uint16_t v) const {
    const std::uint8_t b[2] = {static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v >> 8)};
    out.push_back(big_ ? b[1] : b[0]);
    out.push_back(big_ ? b[0] : b[1]);
}

void TiffBuilder::put32(Bytes& out, std::uint32_t v) const {
    for (int k = 0; k < 4; ++k) {
        out.push_back(static_cast<std::uint8_t>(v >> (big_ ? 24 - 8 * k : 8 * k)));
    }
}

void TiffBuilder::putDouble(Bytes& out, double v) const {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &v, 8);
    for (int k = 0; k < 8; ++k) {
        out.push_back(static_cast<std::uint8_t>(bits >> (big_ ? 56 - 8 * k : 8 * k)));
    }
}

std::uint32_t TiffBuilder::data(const Bytes& bytes) {
    if (data_.size() & 1) {
        data_.push_back(0);
    }
    const auto at = static_cast<std::uint32_t>(8 + data_.size());
    data_.insert(data_.end(), bytes.begin(), bytes.end());
    return at;
}

std::uint32_t TiffBuilder::nextData() const {
    return static_cast<std::uint32_t>(8 + data_.size() + (data_.size() & 1));
}

TiffBuilder::Entry TiffBuilder::shortValue(std::uint16_t tag, std::uint16_t v) const {
    Entry e{tag, 3, 1, {}};
    put16(e.field, v);
    put16(e.field, 0);
    return e;
}

TiffBuilder::Entry TiffBuilder::longValue(std::uint16_t tag, std::uint32_t v) const {
    Entry e{tag, 4, 1, {}};
    put32(e.field, v);
    return e;
}

TiffBuilder::Entry TiffBuilder::atOffset(std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                                         std::uint32_t offset) const {
    Entry e{tag, type, count, {}};
    put32(e.field, offset);
    return e;
}

TiffBuilder::Entry TiffBuilder::longs(std::uint16_t tag, const std::vector<std::uint32_t>& values) {
    if (values.size() == 1) {
        return longValue(tag, values[0]);
    }
    Bytes bytes;
    for (const std::uint32_t v : values) {
        put32(bytes, v);
    }
    return atOffset(tag, 4, static_cast<std::uint32_t>(values.size()), data(bytes));
}

TiffBuilder::Entry TiffBuilder::text(std::uint16_t tag, const std::string& bytes) {
    Bytes withNul(bytes.begin(), bytes.end());
    withNul.push_back(0);
    const auto count = static_cast<std::uint32_t>(withNul.size());
    if (count <= 4) {
        withNul.resize(4, 0);
        return Entry{tag, 2, count, withNul};
    }
    return atOffset(tag, 2, count, data(withNul));
}

Bytes TiffBuilder::build() const {
    Bytes out;
    if (big_) {
        out = {'M', 'M'};
    } else {
        out = {'I', 'I'};
    }
    put16(out, 42);
    std::size_t at = 8 + data_.size() + (data_.size() & 1);
    put32(out, static_cast<std::uint32_t>(ifds_.empty() ? 0 : at));
    out.insert(out.end(), data_.begin(), data_.end());
    out.resize(at, 0);
    for (std::size_t i = 0; i < ifds_.size(); ++i) {
        const Ifd& ifd = ifds_[i];
        put16(out, static_cast<std::uint16_t>(ifd.size()));
        for (const Entry& e : ifd) {
            put16(out, e.tag);
            put16(out, e.type);
            put32(out, e.count);
            out.insert(out.end(), e.field.begin(), e.field.end());
        }
        at += 2 + 12 * ifd.size() + 4;
        put32(out, static_cast<std::uint32_t>(i + 1 < ifds_.size() ? at : 0));
    }
    return out;
}

void addSection(TiffBuilder& file, const HandSection& s) {
    const bool tiled = s.tileWidth != 0;
    const std::uint32_t blockWidth = tiled ? s.tileWidth : s.width;
    const std::uint32_t blockRows = tiled ? s.tileLength : s.rowsPerStrip;
    const std::uint32_t across = tiled ? (s.width + blockWidth - 1) / blockWidth : 1;
    const std::uint32_t down = (s.height + blockRows - 1) / blockRows;
    TiffBuilder::Ifd ifd = s.extra;
    if (s.kind >= 0) {
        const Bytes privateData = s.makePrivateData ? s.makePrivateData(file) : s.privateData;
        Bytes header;
        file.put32(header, static_cast<std::uint32_t>(s.kind));
        file.put16(header, s.version);
        file.put16(header, s.revision);
        header.insert(header.end(), privateData.begin(), privateData.end());
        ifd.push_back(file.atOffset(34953, 4, 1, file.data(header)));
    } else if (s.subfileType) {
        ifd.push_back(file.shortValue(255, s.subfileType));
    } else {
        ifd.push_back(file.longValue(254, 1));
    }
    std::vector<std::uint32_t> offsets;
    std::vector<std::uint32_t> counts;
    for (std::uint32_t i = 0; i < across * down; ++i) {
        const std::uint32_t x0 = (i % across) * blockWidth;
        const std::uint32_t y0 = (i / across) * blockRows;
        const std::uint32_t rows = tiled ? blockRows : std::min(blockRows, s.height - y0);
        Bytes block(std::size_t{blockWidth} * rows * s.bytesPerPixel, 0);
        for (std::uint32_t r = 0; r < rows && y0 + r < s.height; ++r) {
            const std::uint32_t w = std::min(blockWidth, s.width - x0);
            std::memcpy(&block[std::size_t{r} * blockWidth * s.bytesPerPixel],
                        &s.pixels[(std::size_t{y0 + r} * s.width + x0) * s.bytesPerPixel],
                        std::size_t{w} * s.bytesPerPixel);
        }
        if (i < s.sharedTiles.size() && s.sharedTiles[i]) {
            offsets.push_back(0);
            counts.push_back(0);
            continue;
        }
        if (s.compression == 5) {
            if (s.predictSampleBytes) {
                predict(block, blockWidth, s.bytesPerPixel, s.predictSampleBytes, file.bigEndian());
            }
            block = lzw(block);
        }
        if (s.alterBlock) {
            s.alterBlock(block);
        }
        offsets.push_back(file.data(block));
        counts.push_back(static_cast<std::uint32_t>(block.size()));
    }
    ifd.push_back(file.longValue(256, s.width));
    ifd.push_back(file.longValue(257, s.height));
    Bytes bits;
    for (const std::uint16_t b : s.bits) {
        file.put16(bits, b);
    }
    if (bits.size() <= 4) {
        bits.resize(4, 0);
        ifd.push_back({258, 3, static_cast<std::uint32_t>(s.bits.size()), bits});
    } else {
        ifd.push_back(
            file.atOffset(258, 3, static_cast<std::uint32_t>(s.bits.size()), file.data(bits)));
    }
    ifd.push_back(file.shortValue(259, s.compression));
    if (s.photometric >= 0) {
        ifd.push_back(file.shortValue(262, static_cast<std::uint16_t>(s.photometric)));
    }
    ifd.push_back(file.shortValue(277, static_cast<std::uint16_t>(s.samples)));
    if (s.predictSampleBytes) {
        ifd.push_back(file.shortValue(317, 2));
    }
    if (tiled) {
        ifd.push_back(file.longValue(322, s.tileWidth));
        ifd.push_back(file.longValue(323, s.tileLength));
        ifd.push_back(file.longs(s.sharedTiles.empty() ? 324 : 34954, offsets));
        ifd.push_back(file.longs(325, counts));
    } else {
        ifd.push_back(file.longs(273, offsets));
        ifd.push_back(file.longValue(278, s.rowsPerStrip));
        ifd.push_back(file.longs(279, counts));
    }
    ifd.insert(ifd.end(), s.late.begin(), s.late.end());
    std::stable_sort(ifd.begin(), ifd.end(),
                     [](const auto& a, const auto& b) { return a.tag < b.tag; });
    file.add(std::move(ifd));
}

Bytes cameraRecord(const TiffBuilder& file, const ViewParams& v) {
    Bytes out;
    file.put32(out, v.projection);
    file.put32(out, v.viewCode);
    for (const Point<3>& p : {v.eye, toPoint(v.xAxis), toPoint(v.yAxis), toPoint(v.zAxis),
                              toPoint(v.shear), v.windowLo, v.windowHi}) {
        file.putDouble(out, p.x());
        file.putDouble(out, p.y());
        file.putDouble(out, p.z());
    }
    file.putDouble(out, v.nearDepth);
    file.putDouble(out, v.farDepth);
    file.putDouble(out, v.modelScale);
    file.put32(out, static_cast<std::uint32_t>(v.unitCode));
    return out;
}

} // namespace zmap_test
