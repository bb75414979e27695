#include "file/ZmapWriter.h"
#include "file/ScratchBuffer.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "file/ImageErrorReporter.h"
#include "file/StreamImage.h"
#include "file/TileWorkers.h"
#include "file/ZmapCodec.h"
#include "file/ZmapPredictor.h"
#include "file/ZmapSection.h"
#include "image/ZmapDocument.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace {

/// Bytes of a thumbnail strip, about.
constexpr std::uint32_t thumbnailStripBytes = 8192;
/// Largest side of the thumbnail, in pixels, about.
constexpr double thumbnailSide = 100.0;
/// The smallest length of a cut-out block in the file.
constexpr std::size_t minBlockLength = 5;

/// One directory entry: for a value that fits, the value itself (a SHORT in the low half).
struct Entry {
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    std::uint32_t value;
};

/// A channel to write and how it goes into the file.
struct Channel {
    const TileBitmap* bitmap = nullptr;
    /// For original depth and material: the main channel, whose shared tiles are left out.
    const TileBitmap* main = nullptr;
    std::uint32_t kind = 0;
    std::uint16_t revision = 0;
    FilePixelType fileType = FilePixelType::none;
    bool predict = false;
    bool colour = false; ///< photometric 2 and three samples of 8 bits
};

/// The thumbnail: the colour of one image pixel for each of its pixels, picked while the
/// colour tiles are written.
struct Thumbnail {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::vector<std::int32_t> sourceX; ///< the image column of each thumbnail column
    std::vector<std::int32_t> sourceY;
    std::vector<std::uint8_t> rgb; ///< red, green, blue

    /// Scale s is the larger of w / 100 and h / 100, at least 1, where w is the width of a
    /// panorama's first face; the thumbnail is w / s by h / s, rounded.
    Thumbnail(std::int32_t imageWidth, std::int32_t imageHeight) {
        const double s = std::max({imageWidth / thumbnailSide, imageHeight / thumbnailSide, 1.0});
        width = std::max(1, static_cast<std::int32_t>(std::floor(imageWidth / s + 0.5)));
        height = std::max(1, static_cast<std::int32_t>(std::floor(imageHeight / s + 0.5)));
        for (std::int32_t x = 0; x < width; ++x) {
            sourceX.push_back(std::min(imageWidth - 1, static_cast<std::int32_t>(x * s)));
        }
        for (std::int32_t y = 0; y < height; ++y) {
            sourceY.push_back(std::min(imageHeight - 1, static_cast<std::int32_t>(y * s)));
        }
        rgb.assign(static_cast<std::size_t>(width) * height * 3, 0);
    }

    /// Takes the pixels that fall in the rectangle (x, y, w, h) of composed colour, rows
    /// `stride` bytes apart (null: black).
    void sample(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                const std::uint8_t* pixels, std::int32_t stride) {
        const auto xs = std::lower_bound(sourceX.begin(), sourceX.end(), x);
        const auto xe = std::lower_bound(sourceX.begin(), sourceX.end(), x + w);
        const auto ys = std::lower_bound(sourceY.begin(), sourceY.end(), y);
        const auto ye = std::lower_bound(sourceY.begin(), sourceY.end(), y + h);
        for (auto ty = ys; ty != ye; ++ty) {
            for (auto tx = xs; tx != xe; ++tx) {
                std::uint8_t* out = &rgb[(static_cast<std::size_t>(ty - sourceY.begin()) * width +
                                          static_cast<std::size_t>(tx - sourceX.begin())) *
                                         3];
                if (pixels) {
                    const std::uint8_t* in = pixels +
                                             static_cast<std::ptrdiff_t>(*ty - y) * stride +
                                             static_cast<std::ptrdiff_t>(*tx - x) * 3;
                    out[0] = in[2];
                    out[1] = in[1];
                    out[2] = in[0];
                }
            }
        }
    }

    /// True when some thumbnail pixel comes from the rectangle.
    bool needs(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h) const {
        return std::lower_bound(sourceX.begin(), sourceX.end(), x) !=
                   std::lower_bound(sourceX.begin(), sourceX.end(), x + w) &&
               std::lower_bound(sourceY.begin(), sourceY.end(), y) !=
                   std::lower_bound(sourceY.begin(), sourceY.end(), y + h);
    }
};

/// A tile made ready for the file by a worker, waiting for the calling thread to write it.
struct CodedTile {
    Status status = status::ok;
    bool shared = false; ///< left out: the main channel's tile
    const std::uint8_t* data = nullptr;
    std::uint32_t size = 0;
    ScratchBuffer bytes; ///< where `data` lies
    /// Reports of the conversion on a worker, passed on by the calling thread.
    RecordingErrorReporter errors;
};

class Writer {
public:
    Writer(StreamImage& stream, const ZmapFileOptions& options, const ZmapDocument& document)
        : s_(stream), options_(options), errors_(*options.errors), doc_(document),
          g_(document.geometry()), workers_(options.threads), tiles_(workers_.threads()),
          coded_(workers_.window()) {}

    Status write();

private:
    Status writeSection(const Channel& channel);
    Status writeTiles(const Channel& channel, std::vector<std::uint32_t>& offsets,
                      std::vector<std::uint32_t>& counts);
    /// The work on tile `index` on any thread: convert, predict and compress it into
    /// `result`.
    void codeTile(const Channel& channel, std::int32_t index, unsigned thread, CodedTile& result);
    /// Converts tile `index` of `bitmap` into `out`: a whole file tile, zero-padded.
    Status buildTile(const Channel& channel, std::int32_t index, std::uint8_t* out,
                     ImageErrorReporter& errors);
    /// Takes the thumbnail's pixels from the composed colour of tile `index`.
    void sampleThumbnail(std::int32_t index);
    void writePrivateData(const Channel& channel);
    void writeColourData();
    void writeCamera(std::uint32_t kind);
    void writeMaterials();
    Status writeThumbnailSection();
    /// An entry for an array of LONGs: the value itself for one, else written here.
    Entry arrayEntry(std::uint16_t tag, const std::vector<std::uint32_t>& values);
    /// Writes the directory, links it from the previous one and leaves the position at the
    /// end of the file.
    Status finishDirectory(std::vector<Entry>& entries);
    bool reportProgress(double fraction);
    bool addDone(const Channel& channel);

    StreamImage& s_;
    const ZmapFileOptions& options_;
    ImageErrorReporter& errors_;
    const ZmapDocument& doc_;
    const TileGeometry& g_;
    std::int32_t compression_ = zmapCompression::lzw;
    std::unique_ptr<Thumbnail> thumbnail_;
    TileWorkers workers_;
    /// One encoder and one tile buffer per thread; the encoders are kept for the whole
    /// file, so their tables and buffers are made once.
    std::vector<std::unique_ptr<ZmapEncoder>> encoders_;
    std::vector<ScratchBuffer> tiles_;
    /// The predictor of the section being written; stateless, shared by the threads.
    const ZmapPredictor* predictor_ = nullptr;
    /// Per slot of the workers.
    std::vector<CodedTile> coded_;
    /// Where the link to the next directory (or the header's first link) lies.
    std::uint64_t linkAt_ = 4;
    std::uint64_t bytesTotal_ = 0;
    std::uint64_t bytesDone_ = 0;
};

/// True when some tile of `a` is not the same tile as in `b`.
bool differs(const TileBitmap& a, const TileBitmap& b) {
    for (std::int32_t i = 0; i < a.geometry().tileCount(); ++i) {
        if (!a.sharesTile(i, b)) {
            return true;
        }
    }
    return false;
}

std::uint64_t rawBytes(const TileGeometry& g, FilePixelType type) {
    return std::uint64_t(g.tileCount()) * std::uint64_t(g.tileWidth) * g.tileHeight *
           std::uint64_t(bitsPerPixel(type) / 8);
}

Status Writer::write() {
    if (!doc_.rgb || !doc_.z || g_.empty()) {
        return status::noImage;
    }
    std::vector<Channel> channels;
    channels.push_back(
        {doc_.rgb.get(), nullptr, zmapKind::colour, 3, FilePixelType::rgb24, true, true});
    // A cube view code is written as a panorama record, which goes with six square faces
    // side by side: an image of another shape under that code could not be read back.
    const bool panorama = doc_.viewParams().viewCode == ViewParams::cubicCode;
    if (panorama && std::int64_t{g_.width} != 6 * std::int64_t{g_.height}) {
        return status::noConversion;
    }
    const std::uint32_t depthKind = panorama ? zmapKind::panoramaDepth : zmapKind::depth;
    channels.push_back({doc_.z.get(), nullptr, depthKind, 0, FilePixelType::depth32, true, false});
    if (doc_.mat) {
        channels.push_back(
            {doc_.mat.get(), nullptr, zmapKind::material, 3, FilePixelType::index16, false, false});
    }
    if (doc_.originalRgb && differs(*doc_.originalRgb, *doc_.rgb)) {
        channels.push_back({doc_.originalRgb.get(), nullptr, zmapKind::originalColour, 0,
                            FilePixelType::rgb24, true, true});
    }
    if (doc_.originalZ && differs(*doc_.originalZ, *doc_.z)) {
        channels.push_back({doc_.originalZ.get(), doc_.z.get(), zmapKind::originalDepth, 0,
                            FilePixelType::depth32, true, false});
    }
    if (doc_.originalMat && doc_.mat && differs(*doc_.originalMat, *doc_.mat)) {
        channels.push_back({doc_.originalMat.get(), doc_.mat.get(), zmapKind::originalMaterial, 0,
                            FilePixelType::index16, false, false});
    }
    for (const Channel& c : channels) {
        bytesTotal_ += rawBytes(g_, c.fileType);
    }
    if (!reportProgress(0)) {
        return status::stopped;
    }

    compression_ =
        doc_.compression == zmapCompression::lzw ? zmapCompression::lzw : zmapCompression::none;
    if (compression_ == zmapCompression::lzw) {
        for (unsigned t = 0; t < workers_.threads(); ++t) {
            Status s = status::ok;
            encoders_.push_back(makeZmapEncoder(s, compression_, errors_));
            if (!encoders_.back()) {
                return s;
            }
        }
    }
    thumbnail_ = std::make_unique<Thumbnail>(panorama ? g_.width / 6 : g_.width, g_.height);

    s_.writeBytes("II", 2);
    s_.write16(42);
    s_.write32(0); // the link to the first directory, set when it is written
    for (std::size_t i = 0; i < channels.size(); ++i) {
        Status s = writeSection(channels[i]);
        if (s == status::ok && i == 0) {
            s = writeThumbnailSection();
        }
        if (s != status::ok) {
            return s;
        }
    }
    if (!s_.truncate()) {
        return s_.status();
    }
    reportProgress(1);
    return s_.status();
}

bool Writer::reportProgress(double fraction) {
    return !options_.progress || !options_.progress->report(1, 0, fraction);
}

bool Writer::addDone(const Channel& channel) {
    bytesDone_ += rawBytes(g_, channel.fileType);
    return reportProgress(double(bytesDone_) / double(bytesTotal_));
}

Status Writer::buildTile(const Channel& channel, std::int32_t index, std::uint8_t* out,
                         ImageErrorReporter& errors) {
    const TileBitmap& bitmap = *channel.bitmap;
    const FilePixelType storeType = filePixelTypeOfStore(static_cast<int>(bitmap.format()));
    const std::size_t fileBytes = static_cast<std::size_t>(bitsPerPixel(channel.fileType) / 8);
    const std::size_t rowBytes = static_cast<std::size_t>(g_.tileWidth) * fileBytes;
    const std::int32_t column = index % g_.tilesAcross;
    const std::int32_t row = index / g_.tilesAcross;
    const std::int32_t w = g_.columnWidth(column);
    const std::int32_t h = g_.rowHeight(row);
    const std::int32_t stride = g_.rowStride(column, bitmap.bytesPerPixel());
    TileHandle hold;
    const std::uint8_t* pixels = bitmap.tileForRead(index, hold);
    if (w < g_.tileWidth || h < g_.tileHeight) {
        std::memset(out, 0, rowBytes * static_cast<std::size_t>(g_.tileHeight));
    }
    for (std::int32_t y = 0; y < h; ++y) {
        std::uint8_t* to = out + static_cast<std::size_t>(y) * rowBytes;
        Status s = status::ok;
        if (pixels) {
            s = convertPixels(to, channel.fileType, pixels + static_cast<std::size_t>(y) * stride,
                              storeType, static_cast<std::size_t>(w), false, errors);
        } else {
            // An empty tile holds the bitmap's empty value throughout.
            for (std::int32_t x = 0; x < w && s == status::ok; ++x) {
                s = convertPixels(to + static_cast<std::size_t>(x) * fileBytes, channel.fileType,
                                  bitmap.emptyValue(), storeType, 1, false, errors);
            }
        }
        if (s != status::ok) {
            return status::noImage;
        }
    }
    return status::ok;
}

void Writer::codeTile(const Channel& channel, std::int32_t index, unsigned thread,
                      CodedTile& result) {
    result.status = status::ok;
    result.shared = false;
    result.errors.clear();
    if (channel.main && channel.bitmap->sharesTile(index, *channel.main)) {
        result.shared = true; // shared with the main channel: offset 0, count 0
        return;
    }
    const std::size_t fileBytes = static_cast<std::size_t>(bitsPerPixel(channel.fileType) / 8);
    const auto rawSize =
        static_cast<std::uint32_t>(std::size_t(g_.tileWidth) * g_.tileHeight * fileBytes);
    if (compression_ != zmapCompression::lzw) {
        std::uint8_t* tile = result.bytes.get(rawSize);
        result.status = buildTile(channel, index, tile, result.errors);
        result.data = tile;
        result.size = rawSize;
        return;
    }
    std::uint8_t* tile = tiles_[thread].get(rawSize);
    result.status = buildTile(channel, index, tile, result.errors);
    if (result.status != status::ok) {
        return;
    }
    if (channel.predict) {
        predictor_->encodeRows(tile, static_cast<std::uint32_t>(g_.tileWidth),
                               static_cast<std::uint32_t>(g_.tileHeight));
    }
    ZmapEncoder& encoder = *encoders_[thread];
    encoder.start(rawSize);
    encoder.encode(tile, rawSize);
    encoder.finish();
    result.size = encoder.encodedSize();
    std::uint8_t* out = result.bytes.get(result.size);
    std::memcpy(out, encoder.encodedData(), result.size);
    result.data = out;
}

void Writer::sampleThumbnail(std::int32_t index) {
    const IExtent<2> r = g_.tileExtent(index);
    const auto w = static_cast<std::int32_t>(r.width());
    const auto h = static_cast<std::int32_t>(r.height());
    if (thumbnail_->needs(r.lo().x, r.lo().y, w, h)) {
        TileHandle hold;
        const std::uint8_t* composed =
            doc_.rgb->displayRgbComposite(r.lo().x, r.lo().y, w, h, hold, true);
        thumbnail_->sample(r.lo().x, r.lo().y, w, h, composed, doc_.rgb->displayStride(r.lo().x));
    }
}

Status Writer::writeTiles(const Channel& channel, std::vector<std::uint32_t>& offsets,
                          std::vector<std::uint32_t>& counts) {
    const std::unique_ptr<ZmapPredictor> predictor = makePredictor(channel.fileType, false);
    predictor_ = predictor.get();
    const bool withThumbnail = channel.kind == zmapKind::colour;
    offsets.assign(static_cast<std::size_t>(g_.tileCount()), 0);
    counts.assign(static_cast<std::size_t>(g_.tileCount()), 0);
    Status result = status::ok;
    // Tiles are coded on the workers and written here in order, so the file is the same
    // for any number of threads.
    workers_.run(
        static_cast<std::size_t>(g_.tileCount()),
        [&](std::size_t index, std::size_t slot, unsigned thread) {
            codeTile(channel, static_cast<std::int32_t>(index), thread, coded_[slot]);
        },
        [&](std::size_t index, std::size_t slot) {
            CodedTile& tile = coded_[slot];
            if (tile.errors.count() > 0) {
                errors_.report(tile.errors.lastModule(), tile.errors.lastText());
            }
            if (tile.status != status::ok) {
                result = tile.status;
                return false;
            }
            if (tile.shared) {
                return true;
            }
            if (withThumbnail) {
                sampleThumbnail(static_cast<std::int32_t>(index));
            }
            if (s_.tell() + tile.size > std::numeric_limits<std::uint32_t>::max()) {
                result = status::writeFailed; // beyond the 32-bit offsets of the format
                return false;
            }
            offsets[index] = static_cast<std::uint32_t>(s_.tell());
            counts[index] = tile.size;
            s_.writeBytes(tile.data, tile.size);
            if (s_.failed()) {
                result = s_.status();
                return false;
            }
            return true;
        });
    predictor_ = nullptr;
    return result;
}

Entry Writer::arrayEntry(std::uint16_t tag, const std::vector<std::uint32_t>& values) {
    const auto count = static_cast<std::uint32_t>(values.size());
    if (count == 1) {
        return {tag, tiffType::longType, 1, values[0]};
    }
    s_.padToEven();
    const auto at = static_cast<std::uint32_t>(s_.tell());
    for (const std::uint32_t v : values) {
        s_.write32(v);
    }
    return {tag, tiffType::longType, count, at};
}

void Writer::writeColourData() {
    s_.write32(static_cast<std::uint32_t>(compression_));
    const std::vector<std::uint8_t>& block = doc_.cutoutBlock;
    if (block.empty()) {
        s_.write16(0);
        s_.write16(0);
        return;
    }
    const std::size_t length = std::max(block.size(), minBlockLength);
    s_.write16(1);
    s_.write16(doc_.cutoutBlockItems);
    s_.write32(static_cast<std::uint32_t>(s_.tell() + 8 + length)); // the end of the block
    s_.write32(static_cast<std::uint32_t>(length));
    s_.writeBytes(block.data(), block.size());
    for (std::size_t i = block.size(); i < length; ++i) {
        s_.write8(0);
    }
}

void Writer::writeCamera(std::uint32_t kind) {
    const ViewParams& v = doc_.viewParams();
    s_.write32(v.projection);
    s_.write32(v.viewCode);
    s_.writePoint(v.eye);
    if (kind == zmapKind::panoramaDepth) {
        s_.writeVector(v.yAxis);
        s_.writeVector(v.zAxis);
        s_.writePoint(v.target);
        s_.writeDouble(v.angle);
    } else {
        s_.writeVector(v.xAxis);
        s_.writeVector(v.yAxis);
        s_.writeVector(v.zAxis);
        s_.writeVector(v.shear);
        s_.writePoint(v.windowLo);
        s_.writePoint(v.windowHi);
    }
    s_.writeDouble(v.nearDepth);
    s_.writeDouble(v.farDepth);
    s_.writeDouble(v.modelScale);
    s_.write32(static_cast<std::uint32_t>(v.unitCode));
}

void Writer::writeMaterials() {
    struct Node {
        MaterialId id;
        const MaterialRecord* record;
        std::string name, library, style;
    };
    std::vector<Node> nodes;
    for (const auto& [id, record] : doc_.materials()) {
        if (!record.deleted) {
            nodes.push_back({id, &record, utf8(record.name), utf8(record.hotLink.library),
                             utf8(record.hotLink.style)});
        }
    }
    s_.write32(static_cast<std::uint32_t>(nodes.size()));
    // Nodes follow the two words, one after the other.
    std::uint64_t at = s_.tell() + 4;
    s_.write32(nodes.empty() ? 0 : static_cast<std::uint32_t>(at));
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const Node& n = nodes[i];
        at += 4 + 2 + 3 + n.name.size() + n.library.size() + n.style.size() + 3 + 1;
        s_.write32(i + 1 < nodes.size() ? static_cast<std::uint32_t>(at) : 0);
        s_.write16(n.id);
        s_.write8(n.record->colour.r);
        s_.write8(n.record->colour.g);
        s_.write8(n.record->colour.b);
        s_.writeString(n.name);
        s_.writeString(n.library);
        s_.writeString(n.style);
        s_.write8(n.record->hotLink.flag);
    }
}

void Writer::writePrivateData(const Channel& channel) {
    s_.write32(channel.kind);
    s_.write16(1); // version
    s_.write16(channel.revision);
    switch (channel.kind) {
    case zmapKind::colour:
        writeColourData();
        break;
    case zmapKind::depth:
    case zmapKind::panoramaDepth:
        writeCamera(channel.kind);
        break;
    case zmapKind::material:
        writeMaterials();
        break;
    default:
        break; // the originals have none
    }
}

Status Writer::finishDirectory(std::vector<Entry>& entries) {
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
    s_.padToEven();
    const std::uint64_t at = s_.tell();
    if (at > std::numeric_limits<std::uint32_t>::max() - 6 - 12 * entries.size()) {
        return status::writeFailed;
    }
    s_.write16(static_cast<std::uint16_t>(entries.size()));
    for (const Entry& e : entries) {
        s_.write16(e.tag);
        s_.write16(e.type);
        s_.write32(e.count);
        s_.write32(e.value);
    }
    const std::uint64_t nextLink = s_.tell();
    s_.write32(0);
    const std::uint64_t end = s_.tell();
    s_.seek(linkAt_);
    s_.write32(static_cast<std::uint32_t>(at));
    s_.seek(end);
    linkAt_ = nextLink;
    return s_.status();
}

Status Writer::writeSection(const Channel& channel) {
    std::vector<std::uint32_t> offsets;
    std::vector<std::uint32_t> counts;
    Status s = writeTiles(channel, offsets, counts);
    if (s != status::ok) {
        return s;
    }
    const auto width = static_cast<std::uint32_t>(g_.width);
    const auto height = static_cast<std::uint32_t>(g_.height);
    std::vector<Entry> entries = {
        {zmapTag::imageWidth, tiffType::longType, 1, width},
        {zmapTag::imageLength, tiffType::longType, 1, height},
        {zmapTag::compression, tiffType::shortType, 1, static_cast<std::uint32_t>(compression_)},
        {zmapTag::samplesPerPixel, tiffType::shortType, 1, channel.colour ? 3u : 1u},
        {zmapTag::tileWidth, tiffType::longType, 1, static_cast<std::uint32_t>(g_.tileWidth)},
        {zmapTag::tileLength, tiffType::longType, 1, static_cast<std::uint32_t>(g_.tileHeight)},
    };
    if (channel.colour) {
        entries.push_back({zmapTag::photometric, tiffType::shortType, 1, 2});
    }
    if (channel.predict && compression_ == zmapCompression::lzw) {
        entries.push_back({zmapTag::predictor, tiffType::shortType, 1, 2});
    }
    entries.push_back(
        arrayEntry(channel.main ? zmapTag::differenceOffsets : zmapTag::tileOffsets, offsets));
    entries.push_back(arrayEntry(zmapTag::tileByteCounts, counts));

    s_.padToEven();
    entries.push_back(
        {zmapTag::section, tiffType::longType, 1, static_cast<std::uint32_t>(s_.tell())});
    writePrivateData(channel);

    // Values that don't fit in a directory entry.
    s_.padToEven();
    if (channel.colour) {
        entries.push_back({zmapTag::bitsPerSample, tiffType::shortType, 3,
                           static_cast<std::uint32_t>(s_.tell())});
        s_.write16(8);
        s_.write16(8);
        s_.write16(8);
    } else {
        entries.push_back({zmapTag::bitsPerSample, tiffType::shortType, 1,
                           static_cast<std::uint32_t>(bitsPerPixel(channel.fileType))});
    }
    if (channel.kind == zmapKind::colour) {
        // Pixels per centimetre, as round(pixels per metre) / 100, when both are nonzero.
        const auto perMetre = [](float r) {
            return r >= 0.5f ? static_cast<std::uint32_t>(std::min<double>(
                                   std::lround(r), std::numeric_limits<std::uint32_t>::max()))
                             : 0u;
        };
        const std::pair<std::uint16_t, std::uint32_t> resolutions[] = {
            {zmapTag::xResolution, perMetre(doc_.xResolution)},
            {zmapTag::yResolution, perMetre(doc_.yResolution)}};
        if (resolutions[0].second != 0 && resolutions[1].second != 0) {
            for (const auto& [tag, r] : resolutions) {
                entries.push_back(
                    {tag, tiffType::rational, 1, static_cast<std::uint32_t>(s_.tell())});
                s_.write32(r);
                s_.write32(100);
            }
            entries.push_back({zmapTag::resolutionUnit, tiffType::shortType, 1, 3});
        }
        const std::wstring* texts[] = {&doc_.description, &doc_.software,     &doc_.dateTime,
                                       &doc_.artist,      &doc_.hostComputer, &doc_.copyright};
        for (std::size_t i = 0; i < zmapTextTags.size(); ++i) {
            if (!texts[i]->empty()) {
                const auto at = static_cast<std::uint32_t>(s_.tell());
                const std::uint32_t count = s_.writeTagString(utf8(*texts[i]));
                entries.push_back({zmapTextTags[i], tiffType::ascii, count, at});
                s_.padToEven();
            }
        }
    }
    s = finishDirectory(entries);
    if (s == status::ok && !addDone(channel)) {
        s = status::stopped;
    }
    return s;
}

Status Writer::writeThumbnailSection() {
    const Thumbnail& t = *thumbnail_;
    const auto rowBytes = static_cast<std::uint32_t>(t.width) * 3;
    const std::uint32_t rowsPerStrip = (rowBytes + thumbnailStripBytes - 1) / rowBytes;
    std::vector<std::uint32_t> offsets;
    std::vector<std::uint32_t> counts;
    for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(t.height); y += rowsPerStrip) {
        const std::uint32_t rows = std::min(rowsPerStrip, static_cast<std::uint32_t>(t.height) - y);
        offsets.push_back(static_cast<std::uint32_t>(s_.tell()));
        counts.push_back(rows * rowBytes);
        s_.writeBytes(&t.rgb[std::size_t{y} * rowBytes], std::size_t{rows} * rowBytes);
    }
    std::vector<Entry> entries = {
        {zmapTag::newSubfileType, tiffType::longType, 1, 1},
        {zmapTag::imageWidth, tiffType::longType, 1, static_cast<std::uint32_t>(t.width)},
        {zmapTag::imageLength, tiffType::longType, 1, static_cast<std::uint32_t>(t.height)},
        {zmapTag::compression, tiffType::shortType, 1, zmapCompression::none},
        {zmapTag::photometric, tiffType::shortType, 1, 2},
        {zmapTag::samplesPerPixel, tiffType::shortType, 1, 3},
        {zmapTag::rowsPerStrip, tiffType::longType, 1, rowsPerStrip},
    };
    entries.push_back(arrayEntry(zmapTag::stripOffsets, offsets));
    entries.push_back(arrayEntry(zmapTag::stripByteCounts, counts));
    s_.padToEven();
    entries.push_back(
        {zmapTag::bitsPerSample, tiffType::shortType, 3, static_cast<std::uint32_t>(s_.tell())});
    s_.write16(8);
    s_.write16(8);
    s_.write16(8);
    return finishDirectory(entries);
}

} // namespace

Status writeZmapStream(StreamImage& stream, const ZmapFileOptions& options,
                       const ZmapDocument& document) {
    Writer writer(stream, options, document);
    return writer.write();
}
