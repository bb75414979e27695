#include "file/ZmapReader.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "file/ImageErrorReporter.h"
#include "file/StreamImage.h"
#include "file/ZmapCodec.h"
#include "file/ZmapPredictor.h"
#include "file/ZmapSection.h"
#include "image/ChannelTable.h"
#include "image/TileRowWriter.h"
#include "image/ZmapDocument.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

namespace {

/// Most sections a reader looks at.
constexpr std::size_t maxSections = 8;
/// Pixels per metre when a file gives no usable resolution (96 per inch).
constexpr float defaultResolution = 3779.5276f;
/// Bytes of the smallest node of a material table: next offset, id, colour, empty name.
constexpr std::uint64_t minMaterialNode = 10;

struct MaterialEntry {
    MaterialId id = 0;
    std::wstring name;
    ColourPOD colour;
    MatHotLink hotLink;
};

/// Everything read from the file, held apart from the document until the read succeeds.
struct FileContent {
    /// The channels read, in the order of ChannelTable::all(); null where not read.
    std::vector<TQL::Handle<TileBitmap>> channels =
        std::vector<TQL::Handle<TileBitmap>>(ChannelTable::all().size());
    /// The channel of a ChannelId, null if not read.
    TileBitmap* channel(std::uint32_t id) const {
        const ChannelInfo* c = ChannelTable::find(id);
        return c ? channels[ChannelTable::indexOf(*c)].get() : nullptr;
    }
    ViewParams view;
    std::array<std::wstring, 6> texts;
    std::vector<MaterialEntry> materials;
    float xResolution = defaultResolution;
    float yResolution = defaultResolution;
    std::int32_t compression = 5;
    std::vector<std::uint8_t> cutoutBlock;
    std::uint16_t cutoutBlockItems = 0;
};

/// Aligned scratch memory, grown on demand and kept from block to block.
class Scratch {
public:
    std::uint8_t* get(std::size_t bytes) {
        if (bytes > capacity_) {
            words_ = std::make_unique<std::uint64_t[]>((bytes + 7) / 8);
            capacity_ = (bytes + 7) / 8 * 8;
        }
        return reinterpret_cast<std::uint8_t*>(words_.get());
    }

private:
    std::unique_ptr<std::uint64_t[]> words_;
    std::size_t capacity_ = 0;
};

class Reader {
public:
    Reader(StreamImage& stream, const ZmapFileOptions& options)
        : s_(stream), options_(options), errors_(*options.errors) {}

    Status read(ZmapDocument& document);

private:
    Status readHeaderAndSections();
    Status planGeometry();
    Status readSection(const ZmapSection& section, ZmapDocument& document);
    Status readColourData(const ZmapSection& section);
    Status readCamera(const ZmapSection& section);
    Status readMaterials(const ZmapSection& section);
    void takeTexts(const ZmapSection& section);
    void takeResolution(const ZmapSection& section);
    /// Decodes the section's strips or tiles into `bitmap`.
    Status readPixels(const ZmapSection& section, TileBitmap& bitmap);
    /// Fills the blocks that a difference section shares with the main channel, where
    /// they don't make up whole tiles of the document.
    void fillSharedBlocks();
    /// Decodes the block of `count` bytes at `offset` into `out`, `rawSize` bytes: LZW
    /// with a decoder, else the bytes themselves.
    bool decodeBlock(ZmapDecoder* decoder, std::uint64_t offset, std::uint64_t count,
                     std::uint8_t* out, std::uint64_t rawSize);
    void commit(ZmapDocument& document);
    bool reportProgress();
    /// Where pixel (x, y) of the file goes in the document: with stacked faces, row y of
    /// the file is row y % n of face y / n, whose columns start at (y / n) * n.
    std::pair<std::int32_t, std::int32_t> place(std::int32_t x, std::int32_t y) const {
        return stacked_ ? std::pair(x + (y / faceSize_) * faceSize_, y % faceSize_)
                        : std::pair(x, y);
    }

    StreamImage& s_;
    const ZmapFileOptions& options_;
    ImageErrorReporter& errors_;
    std::vector<ZmapSection> sections_;
    FileContent content_;

    // The image as the file stores it, and as the document holds it.
    std::uint32_t fileWidth_ = 0;
    std::uint32_t fileHeight_ = 0;
    /// A panorama whose six faces the file stores one below the other, each faceSize_
    /// rows; the document lays them side by side.
    bool stacked_ = false;
    std::int32_t faceSize_ = 0;
    TileGeometry geometry_;

    /// A block of the file left out of a difference section, in file pixels.
    struct SharedBlock {
        TileBitmap* bitmap;
        std::uint32_t channel;
        std::int32_t x, y, width, height;
    };
    std::vector<SharedBlock> sharedBlocks_;

    std::uint64_t bytesTotal_ = 0;
    std::uint64_t bytesDone_ = 0;
    Scratch compressed_;
    Scratch raw_;
};

Status Reader::read(ZmapDocument& document) {
    Status s = readHeaderAndSections();
    if (s == status::ok) {
        s = planGeometry();
    }
    std::uint32_t done = 0;
    for (const ZmapSection& section : sections_) {
        if (s != status::ok) {
            break;
        }
        if (section.channel == channelThumbnail) {
            continue; // not a document channel
        }
        if (done & section.channel) {
            return status::damaged;
        }
        done |= section.channel;
        s = readSection(section, document);
        if (s == status::ok && !reportProgress()) {
            s = status::stopped;
        }
    }
    if (s != status::ok) {
        return s;
    }
    // Tiles an original section left out are those it shares with the main channel.
    for (const std::uint32_t id : {channelOriginalZ, channelOriginalMat}) {
        TileBitmap* original = content_.channel(id);
        const TileBitmap* main = content_.channel(ChannelTable::find(id)->copyOf);
        if (original && main) {
            original->copyFrom(*main, false);
        }
    }
    fillSharedBlocks();
    commit(document);
    return status::ok;
}

Status Reader::readHeaderAndSections() {
    if (s_.size() == 0) {
        return status::damaged;
    }
    std::uint8_t order[2] = {};
    s_.readBytes(order, 2);
    if (order[0] == 'I' && order[1] == 'I') {
        s_.setSwapped(std::endian::native != std::endian::little);
    } else if (order[0] == 'M' && order[1] == 'M') {
        s_.setSwapped(std::endian::native != std::endian::big);
    } else {
        return status::damaged;
    }
    if (s_.read16() != 42) {
        return status::damaged;
    }
    std::uint32_t offset = s_.read32();
    if (s_.failed()) {
        return status::damaged;
    }
    std::uint32_t mask = 0;
    while (offset != 0 && sections_.size() < maxSections) {
        ZmapSection section;
        std::uint32_t next = 0;
        Status s = readZmapSection(s_, offset, section, next);
        if (s == status::ok) {
            s = checkZmapSection(section);
        }
        if (s != status::ok) {
            return s;
        }
        mask |= section.channel;
        sections_.push_back(std::move(section));
        offset = next;
    }
    if ((mask & (channelRgb | channelZ)) != (channelRgb | channelZ)) {
        return status::damaged;
    }
    return status::ok;
}

Status Reader::planGeometry() {
    const ZmapSection* depth = nullptr;
    for (const ZmapSection& section : sections_) {
        if (section.channel == channelThumbnail) {
            continue;
        }
        if (fileWidth_ == 0) {
            fileWidth_ = section.width;
            fileHeight_ = section.height;
        } else if (section.width != fileWidth_ || section.height != fileHeight_) {
            return status::damaged;
        }
        if (section.channel == channelZ && !depth) {
            depth = &section;
        }
        bytesTotal_ += std::uint64_t{section.width} * section.height *
                       static_cast<std::uint64_t>(bitsPerPixel(section.pixelType) / 8);
    }
    std::uint64_t width = fileWidth_;
    std::uint64_t height = fileHeight_;
    if (depth && depth->kind == zmapKind::panoramaDepth) {
        if (width * 6 == height) {
            stacked_ = true;
            std::swap(width, height);
        } else if (height * 6 != width) {
            return status::damaged;
        }
        faceSize_ = static_cast<std::int32_t>(height);
    }
    constexpr std::uint64_t maxSide = std::numeric_limits<std::int32_t>::max();
    if (width > maxSide || height > maxSide || width * height > options_.maxPixels) {
        return status::outOfMemory;
    }
    try {
        geometry_ = TileGeometry::compute(static_cast<std::int32_t>(width),
                                          static_cast<std::int32_t>(height));
    } catch (const std::length_error&) {
        return status::outOfMemory;
    }
    return status::ok;
}

bool Reader::reportProgress() {
    if (!options_.progress) {
        return true;
    }
    const double fraction = bytesTotal_ ? double(bytesDone_) / double(bytesTotal_) : 1.0;
    return !options_.progress->report(1, 0, std::min(fraction, 1.0));
}

void Reader::takeTexts(const ZmapSection& section) {
    const bool colour = section.channel == channelRgb;
    const bool unicode = colour && section.version == 1 && section.revision >= 3;
    for (std::size_t i = 0; i < section.texts.size(); ++i) {
        if (!section.texts[i] || !(colour || content_.texts[i].empty())) {
            continue;
        }
        content_.texts[i] = unicode ? utf8(*section.texts[i]) : fromWindows1252(*section.texts[i]);
    }
}

void Reader::takeResolution(const ZmapSection& section) {
    const Rational& x = section.xResolution;
    const Rational& y = section.yResolution;
    const bool usable = x.numerator && x.denominator && y.numerator && y.denominator;
    content_.xResolution = content_.yResolution = defaultResolution;
    if (usable && section.resolutionUnit == 2) { // per inch
        content_.xResolution = static_cast<float>(double(x.numerator) / x.denominator / 0.0254);
        content_.yResolution = static_cast<float>(double(y.numerator) / y.denominator / 0.0254);
    } else if (usable && section.resolutionUnit == 3) { // per centimetre
        content_.xResolution = static_cast<float>(double(x.numerator) * 100 / x.denominator);
        content_.yResolution = static_cast<float>(double(y.numerator) * 100 / y.denominator);
    }
}

Status Reader::readColourData(const ZmapSection& section) {
    content_.compression = zmapCompression::lzw;
    if (section.revision < 1) {
        return status::ok;
    }
    if (!s_.seek(section.privateDataOffset())) {
        return status::damaged;
    }
    const std::uint32_t wanted = s_.read32();
    content_.compression =
        (wanted == zmapCompression::none || wanted == zmapCompression::lzw) ? wanted : 0;
    if (section.revision >= 2) {
        const std::uint16_t type = s_.read16();
        const std::uint16_t items = s_.read16();
        if (type != 0) {
            const std::uint32_t end = s_.read32();
            const std::uint32_t length = s_.read32();
            if (s_.failed()) {
                return status::damaged;
            }
            if (type == 1) {
                if (length > s_.size() - s_.tell()) {
                    return status::damaged;
                }
                content_.cutoutBlock.resize(length);
                s_.readBytes(content_.cutoutBlock.data(), length);
                content_.cutoutBlockItems = items;
            }
            s_.seek(end);
        }
    }
    return s_.failed() ? status::damaged : status::ok;
}

Status Reader::readCamera(const ZmapSection& section) {
    if (!s_.seek(section.privateDataOffset())) {
        return status::damaged;
    }
    ViewParams& v = content_.view;
    v.projection = s_.read32();
    v.viewCode = s_.read32();
    v.eye = s_.readPoint();
    if (section.kind == zmapKind::panoramaDepth) {
        v.yAxis = s_.readVector();
        v.zAxis = s_.readVector();
        v.target = s_.readPoint();
        v.angle = s_.readDouble();
        v.xAxis = cross(v.zAxis, v.yAxis);
        v.shear = Vector<3>(0, 0, 1);
        v.windowLo = Point<3>(-1, 1, 1);
        v.windowHi = Point<3>(1, -1, 1);
    } else {
        v.xAxis = s_.readVector();
        v.yAxis = s_.readVector();
        v.zAxis = s_.readVector();
        v.shear = s_.readVector();
        v.windowLo = s_.readPoint();
        v.windowHi = s_.readPoint();
        v.target = v.eye;
        v.angle = 0;
    }
    v.nearDepth = s_.readDouble();
    v.farDepth = s_.readDouble();
    v.modelScale = s_.readDouble();
    v.unitCode = static_cast<std::int32_t>(s_.read32());
    if (s_.failed() || v.projection > 1) {
        return status::damaged;
    }
    return status::ok;
}

Status Reader::readMaterials(const ZmapSection& section) {
    if (!s_.seek(section.privateDataOffset())) {
        return status::damaged;
    }
    const auto count = static_cast<std::int32_t>(s_.read32());
    auto offset = static_cast<std::int32_t>(s_.read32());
    if (s_.failed()) {
        return status::damaged;
    }
    // A file can't hold more nodes than fit in it; a longer chain goes round in a circle.
    std::uint64_t remaining = count <= 0 ? 0 : std::uint64_t(count);
    remaining = std::min(remaining, s_.size() / minMaterialNode);
    const auto decode = [&](const std::string& bytes) {
        return section.revision > 0 ? utf8(bytes) : fromWindows1252(bytes);
    };
    for (; remaining > 0 && offset > 0; --remaining) {
        if (!s_.seek(static_cast<std::uint32_t>(offset))) {
            return status::damaged;
        }
        MaterialEntry m;
        offset = static_cast<std::int32_t>(s_.read32());
        m.id = s_.read16();
        m.colour.r = s_.read8();
        m.colour.g = s_.read8();
        m.colour.b = s_.read8();
        m.name = decode(s_.readString());
        if (section.revision >= 2) {
            m.hotLink.library = decode(s_.readString());
            m.hotLink.style = decode(s_.readString());
        }
        if (section.revision >= 3) {
            m.hotLink.flag = s_.read8();
        }
        if (s_.failed()) {
            return status::damaged;
        }
        if (m.id != 0) {
            content_.materials.push_back(std::move(m));
        }
    }
    return status::ok;
}

Status Reader::readSection(const ZmapSection& section, ZmapDocument& document) {
    takeTexts(section);
    Status s = status::ok;
    const ChannelInfo* channel = ChannelTable::find(section.channel);
    if (!channel || !channel->saved) {
        return status::damaged;
    }
    switch (section.channel) {
    case channelRgb:
        takeResolution(section);
        s = readColourData(section);
        break;
    case channelZ:
        s = readCamera(section);
        break;
    case channelMat:
        s = readMaterials(section);
        break;
    default:
        break;
    }
    TQL::Handle<TileBitmap>& bitmap = content_.channels[ChannelTable::indexOf(*channel)];
    bitmap = ChannelTable::make(*channel, &document, geometry_);
    if (s == status::ok) {
        s = readPixels(section, *bitmap);
    }
    if (s == status::ok && section.kind == zmapKind::panoramaDepth) {
        bitmap->stitchFaces(faceSize_);
    }
    return s;
}

Status Reader::readPixels(const ZmapSection& section, TileBitmap& bitmap) {
    const FilePixelType storeType = filePixelTypeOfStore(static_cast<int>(bitmap.format()));
    const FilePixelType fileType = section.pixelType;
    const std::size_t fileBytes = static_cast<std::size_t>(bitsPerPixel(fileType) / 8);
    const bool lzw = section.compression == zmapCompression::lzw;
    Status s = status::ok;
    std::unique_ptr<ZmapDecoder> decoder;
    if (lzw) {
        decoder = makeZmapDecoder(s, zmapCompression::lzw, errors_);
        if (!decoder) {
            return s;
        }
    }
    const bool predict = lzw && section.predictor == 2u;
    const std::unique_ptr<ZmapPredictor> predictor = makePredictor(fileType, s_.swapped());

    const std::vector<std::uint32_t>& offsets = section.offsets();
    const std::vector<std::uint32_t>& counts = section.byteCounts();
    const bool tiled = section.tiled();
    const std::uint64_t blockWidth = tiled ? *section.tileWidth : section.width;
    const std::uint64_t blockRows =
        tiled ? *section.tileLength
              : std::min<std::uint64_t>(*section.rowsPerStrip, section.height);
    if (blockWidth * blockRows > options_.maxPixels ||
        blockWidth * blockRows * fileBytes > std::numeric_limits<std::int32_t>::max()) {
        return status::outOfMemory;
    }
    const std::uint64_t across = tiled ? (section.width + blockWidth - 1) / blockWidth : 1;
    const std::uint64_t fileSize = s_.size();
    TileRowWriter writer(bitmap);
    // Tiles of the document's own grid whose bytes are the store's (depth and material
    // ids in the machine's order) are decoded straight into the document's tiles.
    const bool direct = tiled && !stacked_ && blockWidth == std::uint64_t(geometry_.tileWidth) &&
                        blockRows == std::uint64_t(geometry_.tileHeight) && fileType == storeType &&
                        !s_.swapped();

    for (std::size_t i = 0; i < offsets.size(); ++i) {
        const std::uint64_t x0 = tiled ? (i % across) * blockWidth : 0;
        const std::uint64_t y0 = (tiled ? i / across : i) * blockRows;
        const std::uint64_t w = std::min<std::uint64_t>(blockWidth, section.width - x0);
        const std::uint64_t h = std::min<std::uint64_t>(blockRows, section.height - y0);
        if (offsets[i] == 0) {
            // A tile shared with the main channel: only 34954 allows it.
            sharedBlocks_.push_back({&bitmap, section.channel, static_cast<std::int32_t>(x0),
                                     static_cast<std::int32_t>(y0), static_cast<std::int32_t>(w),
                                     static_cast<std::int32_t>(h)});
            continue;
        }
        // A strip holds only its own rows; a tile is always whole.
        const std::uint64_t rows = tiled ? blockRows : h;
        const std::uint64_t rawSize = blockWidth * rows * fileBytes;
        const std::uint64_t count = counts[i];
        if (count >= fileSize || offsets[i] > fileSize - count) {
            return status::damaged;
        }
        if (lzw ? count > 2 * rawSize : (tiled ? count < rawSize : count != rawSize)) {
            return status::damaged;
        }
        const auto column = static_cast<std::int32_t>(i % across);
        if (direct &&
            geometry_.rowStride(column, bitmap.bytesPerPixel()) ==
                geometry_.tileWidth * bitmap.bytesPerPixel() &&
            h == blockRows) {
            TileHandle hold;
            std::uint8_t* tile = bitmap.tileForWrite(static_cast<std::int32_t>(i), hold);
            if (!tile || !decodeBlock(decoder.get(), offsets[i], count, tile, rawSize)) {
                return status::damaged;
            }
            if (predict) {
                predictor->decodeRows(tile, static_cast<std::uint32_t>(blockWidth),
                                      static_cast<std::uint32_t>(rows));
            }
            bytesDone_ += w * h * fileBytes;
            continue;
        }
        const std::uint8_t* raw = nullptr;
        if (lzw) {
            std::uint8_t* out = raw_.get(rawSize);
            if (!decodeBlock(decoder.get(), offsets[i], count, out, rawSize)) {
                return status::damaged;
            }
            if (predict) {
                predictor->decodeRows(out, static_cast<std::uint32_t>(blockWidth),
                                      static_cast<std::uint32_t>(rows));
            }
            raw = out;
        } else if (!s_.readAt(offsets[i], compressed_.get(rawSize), rawSize, &raw)) {
            return status::damaged;
        }
        for (std::uint64_t r = 0; r < h; ++r) {
            const std::uint8_t* from = raw + r * blockWidth * fileBytes;
            auto [x, y] = place(static_cast<std::int32_t>(x0), static_cast<std::int32_t>(y0 + r));
            for (std::uint64_t left = w; left > 0;) {
                std::int32_t run = 0;
                std::uint8_t* to = writer.run(x, y, run);
                run = static_cast<std::int32_t>(std::min<std::uint64_t>(left, std::uint64_t(run)));
                if (!to || run <= 0) {
                    return status::damaged;
                }
                s = convertPixels(to, storeType, from, fileType, static_cast<std::size_t>(run),
                                  s_.swapped(), errors_);
                if (s != status::ok) {
                    return s;
                }
                from += static_cast<std::size_t>(run) * fileBytes;
                x += run;
                left -= static_cast<std::uint64_t>(run);
            }
        }
        bytesDone_ += w * h * fileBytes;
    }
    return status::ok;
}

bool Reader::decodeBlock(ZmapDecoder* decoder, std::uint64_t offset, std::uint64_t count,
                         std::uint8_t* out, std::uint64_t rawSize) {
    if (!decoder) {
        return s_.readAt(offset, out, rawSize);
    }
    const std::uint8_t* data = nullptr;
    if (!s_.readAt(offset, compressed_.get(count), count, &data)) {
        return false;
    }
    decoder->start(data, static_cast<std::uint32_t>(count));
    return decoder->decode(out, static_cast<std::uint32_t>(rawSize));
}

void Reader::fillSharedBlocks() {
    for (const SharedBlock& b : sharedBlocks_) {
        const TileBitmap* main = content_.channel(ChannelTable::find(b.channel)->copyOf);
        if (!main) {
            continue;
        }
        const auto bytes = static_cast<std::size_t>(b.bitmap->bytesPerPixel());
        TileRowWriter writer(*b.bitmap);
        for (std::int32_t r = 0; r < b.height; ++r) {
            auto [x, y] = place(b.x, b.y + r);
            for (std::int32_t left = b.width; left > 0;) {
                const std::int32_t tileEnd =
                    std::min(geometry_.width, ((x >> geometry_.xShift) + 1) << geometry_.xShift);
                const std::int32_t n = std::min(left, tileEnd - x);
                // A tile that copyFrom shared whole needs nothing.
                if (!b.bitmap->sharesTile(geometry_.tileIndex(x, y), *main)) {
                    TileHandle hold;
                    const std::uint8_t* from = nullptr;
                    const bool empty = main->runForRead(x, y, hold, &from) == 0;
                    std::int32_t run = 0;
                    std::uint8_t* to = writer.run(x, y, run);
                    for (std::int32_t i = 0; i < n; ++i) {
                        std::memcpy(to + static_cast<std::size_t>(i) * bytes,
                                    empty ? main->emptyValue()
                                          : from + static_cast<std::size_t>(i) * bytes,
                                    bytes);
                    }
                }
                x += n;
                left -= n;
            }
        }
    }
}

void Reader::commit(ZmapDocument& document) {
    const std::wstring path = document.pathName;
    document.clearDocument();
    document.pathName = path;
    // The size was checked against the same limits when the geometry was made.
    (void)document.setSize(geometry_.width, geometry_.height);
    for (const ChannelInfo& c : ChannelTable::all()) {
        if (c.saved) {
            c.set(document, content_.channels[ChannelTable::indexOf(c)]);
        }
    }
    document.setViewParams(content_.view);
    document.description = content_.texts[0];
    document.software = content_.texts[1];
    document.dateTime = content_.texts[2];
    document.artist = content_.texts[3];
    document.hostComputer = content_.texts[4];
    document.copyright = content_.texts[5];
    for (const MaterialEntry& m : content_.materials) {
        document.setMaterial(m.id, m.name, m.colour, false);
        document.setHotLink(m.id, m.hotLink);
    }
    document.makeMaterialNamesUnique();
    document.xResolution = content_.xResolution;
    document.yResolution = content_.yResolution;
    document.savedCompression = content_.compression;
    document.compression = content_.compression;
    document.cutoutBlock = std::move(content_.cutoutBlock);
    document.cutoutBlockItems = content_.cutoutBlockItems;
}

} // namespace

Status readZmapStream(StreamImage& stream, const ZmapFileOptions& options, ZmapDocument& document) {
    try {
        Reader reader(stream, options);
        return reader.read(document);
    } catch (const std::bad_alloc&) {
        return status::outOfMemory;
    } catch (const Reporter::Abandoned&) {
        return status::stopped;
    } catch (const TQL::TqlError&) {
        return status::damaged;
    }
}
