#include "file/ZmapReader.h"
#include "file/ScratchBuffer.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "file/ImageErrorReporter.h"
#include "file/StreamImage.h"
#include "file/TileWorkers.h"
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
#include <system_error>
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

class Reader {
public:
    Reader(StreamImage& stream, const ZmapFileOptions& options)
        : s_(stream), options_(options), errors_(*options.errors), workers_(options.threads),
          compressed_(workers_.threads()), raw_(workers_.threads()), results_(workers_.window()) {}

    Status read(ZmapDocument& document);
    /// Where the file was found damaged; empty if it wasn't.
    const std::wstring& fault() const { return fault_; }

private:
    /// One strip or tile of a section, in file pixels.
    struct Block {
        std::size_t index = 0;
        std::uint64_t x0 = 0, y0 = 0; ///< its first pixel
        std::uint64_t w = 0, h = 0;   ///< its pixels inside the image
        std::uint64_t rows = 0;       ///< rows stored: all of a tile's, a strip's own
        std::uint64_t rawSize = 0;    ///< bytes it decodes to
        std::uint64_t offset = 0;
        std::uint64_t count = 0; ///< bytes stored
    };
    /// What became of a block, for the calling thread.
    struct BlockResult {
        Status status = status::ok;
        std::wstring fault;
        bool shared = false; ///< left out of a difference section
        /// Decoded rows for the calling thread to place; null when the block is stored.
        const std::uint8_t* raw = nullptr;
        ScratchBuffer rows; ///< where `raw` lies unless in place in memory
        /// Reports of the conversion on a worker, passed on by the calling thread.
        RecordingErrorReporter errors;
    };
    /// The pixel layout of the section being read, shared by the threads.
    struct PixelJob {
        const ZmapSection* section = nullptr;
        TileBitmap* bitmap = nullptr;
        FilePixelType storeType = FilePixelType::none;
        FilePixelType fileType = FilePixelType::none;
        std::size_t fileBytes = 0;
        bool lzw = false;
        bool predict = false;
        const ZmapPredictor* predictor = nullptr;
        const std::vector<std::uint32_t>* offsets = nullptr;
        const std::vector<std::uint32_t>* counts = nullptr;
        bool tiled = false;
        std::uint64_t blockWidth = 0;
        std::uint64_t blockRows = 0;
        std::uint64_t across = 1;
        /// Each block is exactly one tile of the document, with the same index, and no
        /// other block writes there: it can be stored by the thread that decodes it.
        bool exclusive = false;
        std::wstring where; ///< the section, for messages

        Block block(std::size_t i) const {
            Block b;
            b.index = i;
            b.x0 = tiled ? (i % across) * blockWidth : 0;
            b.y0 = (tiled ? i / across : i) * blockRows;
            b.w = std::min<std::uint64_t>(blockWidth, section->width - b.x0);
            b.h = std::min<std::uint64_t>(blockRows, section->height - b.y0);
            b.rows = tiled ? blockRows : b.h;
            b.rawSize = blockWidth * b.rows * fileBytes;
            b.offset = (*offsets)[i];
            b.count = (*counts)[i];
            return b;
        }
        /// "colour section (directory 1 at byte 1234), tile 5 (x 640, y 0) at byte 8000".
        std::wstring blockPlace(const Block& b) const {
            return where +
                   (tiled ? stringPrintf(L", tile %zu (x %llu, y %llu)", b.index,
                                         static_cast<unsigned long long>(b.x0),
                                         static_cast<unsigned long long>(b.y0))
                          : stringPrintf(L", strip %zu (rows %llu to %llu)", b.index,
                                         static_cast<unsigned long long>(b.y0),
                                         static_cast<unsigned long long>(b.y0 + b.h - 1))) +
                   stringPrintf(L" at byte %llu", static_cast<unsigned long long>(b.offset));
        }
    };

    Status readHeaderAndSections();
    Status planGeometry();
    Status readSection(const ZmapSection& section, ZmapDocument& document);
    Status readColourData(const ZmapSection& section);
    Status readCamera(const ZmapSection& section);
    Status readMaterials(const ZmapSection& section);
    void takeTexts(const ZmapSection& section);
    void takeResolution(const ZmapSection& section);
    /// Decodes the section's strips or tiles into `bitmap`, on the worker threads.
    Status readPixels(const ZmapSection& section, TileBitmap& bitmap);
    /// The work on block `index` on any thread: read, decode, undo the prediction, and
    /// store into the block's own tile, or into `result` for the calling thread to place.
    void decodeBlock(const PixelJob& job, std::size_t index, unsigned thread, BlockResult& result);
    /// Reads the block's bytes and decodes them into `out` (rawSize bytes); the result
    /// lies at `*data`, which is `out` unless raw bytes lie in place in memory.
    Status readBlock(const PixelJob& job, const Block& block, unsigned thread, std::uint8_t* out,
                     const std::uint8_t** data, std::wstring& fault);
    /// Places the decoded rows of a block into the bitmap; calling thread only.
    Status placeBlock(const PixelJob& job, const Block& block, const std::uint8_t* raw,
                      TileRowWriter& writer);
    /// Fills the blocks that a difference section shares with the main channel, where
    /// they don't make up whole tiles of the document.
    void fillSharedBlocks();
    void commit(ZmapDocument& document);
    /// Records the first fault and returns `s`.
    Status fail(Status s, std::wstring fault) {
        if (fault_.empty()) {
            fault_ = std::move(fault);
        }
        return s;
    }
    /// "colour section (directory 1 at byte 1234)".
    std::wstring where(const ZmapSection& section) const;
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
    std::wstring fault_;

    TileWorkers workers_;
    /// One decoder and scratch of each kind per thread; decoders made at the first LZW
    /// section.
    std::vector<std::unique_ptr<ZmapDecoder>> decoders_;
    std::vector<ScratchBuffer> compressed_;
    std::vector<ScratchBuffer> raw_;
    /// Per slot of the workers: the outcome of a block, taken by the calling thread.
    std::vector<BlockResult> results_;
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
            return fail(status::damaged, where(section) + L": a second section of its channel");
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
        return fail(status::damaged, L"the file is empty");
    }
    std::uint8_t order[2] = {};
    s_.readBytes(order, 2);
    if (order[0] == 'I' && order[1] == 'I') {
        s_.setSwapped(std::endian::native != std::endian::little);
    } else if (order[0] == 'M' && order[1] == 'M') {
        s_.setSwapped(std::endian::native != std::endian::big);
    } else {
        return fail(status::damaged, L"at byte 0: the file starts with neither II nor MM");
    }
    const std::uint16_t version = s_.read16();
    if (!s_.failed() && version != 42) {
        return fail(status::damaged,
                    stringPrintf(L"at byte 2: %u where a TIFF file has 42", unsigned{version}));
    }
    std::uint32_t offset = s_.read32();
    if (s_.failed()) {
        return fail(status::damaged, L"the file ends inside its header");
    }
    std::uint32_t mask = 0;
    while (offset != 0 && sections_.size() < maxSections) {
        ZmapSection section;
        std::uint32_t next = 0;
        Status s = readZmapSection(s_, offset, section, next);
        if (s != status::ok) {
            return fail(s,
                        stringPrintf(L"directory %zu at byte %u: ", sections_.size() + 1, offset) +
                            section.fault);
        }
        s = checkZmapSection(section);
        sections_.push_back(std::move(section));
        if (s != status::ok) {
            return fail(s, where(sections_.back()) + L": " + sections_.back().fault);
        }
        mask |= sections_.back().channel;
        offset = next;
    }
    if ((mask & (channelRgb | channelZ)) != (channelRgb | channelZ)) {
        return fail(status::damaged, (mask & channelRgb) ? L"the file has no depth section"
                                                         : L"the file has no colour section");
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
            return fail(status::damaged,
                        where(section) + stringPrintf(L": %u x %u pixels where the first "
                                                      L"section has %u x %u",
                                                      section.width, section.height, fileWidth_,
                                                      fileHeight_));
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
            return fail(status::damaged,
                        where(*depth) + stringPrintf(L": %llu x %llu pixels are not six square "
                                                     L"faces",
                                                     static_cast<unsigned long long>(width),
                                                     static_cast<unsigned long long>(height)));
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
    const auto damaged = [&](const wchar_t* why) {
        return fail(status::damaged,
                    where(section) +
                        stringPrintf(L", private data at byte %llu: %ls",
                                     static_cast<unsigned long long>(section.privateDataOffset()),
                                     why));
    };
    if (!s_.seek(section.privateDataOffset())) {
        return damaged(L"it lies beyond the end of the file");
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
                return damaged(L"the embedded block's header runs past the end of the file");
            }
            if (type == 1) {
                if (length > s_.size() - s_.tell()) {
                    return damaged(L"the cut-out block runs past the end of the file");
                }
                content_.cutoutBlock.resize(length);
                s_.readBytes(content_.cutoutBlock.data(), length);
                content_.cutoutBlockItems = items;
            }
            if (!s_.seek(end)) {
                return damaged(L"the embedded block ends beyond the end of the file");
            }
        }
    }
    return s_.failed() ? damaged(L"it runs past the end of the file") : status::ok;
}

Status Reader::readCamera(const ZmapSection& section) {
    const auto damaged = [&](std::wstring why) {
        return fail(status::damaged,
                    where(section) +
                        stringPrintf(L", camera record at byte %llu: ",
                                     static_cast<unsigned long long>(section.privateDataOffset())) +
                        why);
    };
    if (!s_.seek(section.privateDataOffset())) {
        return damaged(L"it lies beyond the end of the file");
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
    if (s_.failed()) {
        return damaged(L"it runs past the end of the file");
    }
    if (v.projection > 1) {
        return damaged(stringPrintf(L"projection %u is neither 0 nor 1", v.projection));
    }
    return status::ok;
}

Status Reader::readMaterials(const ZmapSection& section) {
    const auto damaged = [&](std::uint64_t at, const wchar_t* why) {
        return fail(status::damaged,
                    where(section) + stringPrintf(L", material table at byte %llu: %ls",
                                                  static_cast<unsigned long long>(at), why));
    };
    if (!s_.seek(section.privateDataOffset())) {
        return damaged(section.privateDataOffset(), L"it lies beyond the end of the file");
    }
    const auto count = static_cast<std::int32_t>(s_.read32());
    auto offset = static_cast<std::int32_t>(s_.read32());
    if (s_.failed()) {
        return damaged(section.privateDataOffset(), L"it runs past the end of the file");
    }
    // A file can't hold more nodes than fit in it; a longer chain goes round in a circle.
    std::uint64_t remaining = count <= 0 ? 0 : std::uint64_t(count);
    remaining = std::min(remaining, s_.size() / minMaterialNode);
    const auto decode = [&](const std::string& bytes) {
        return section.revision > 0 ? utf8(bytes) : fromWindows1252(bytes);
    };
    for (; remaining > 0 && offset > 0; --remaining) {
        const auto at = static_cast<std::uint32_t>(offset);
        if (!s_.seek(at)) {
            return damaged(at, L"a node lies beyond the end of the file");
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
            return damaged(at, L"a node runs past the end of the file");
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
        return fail(status::damaged, where(section) + L": not a channel of a document");
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
    PixelJob job;
    job.section = &section;
    job.bitmap = &bitmap;
    job.where = where(section);
    job.storeType = filePixelTypeOfStore(static_cast<int>(bitmap.format()));
    job.fileType = section.pixelType;
    job.fileBytes = static_cast<std::size_t>(bitsPerPixel(job.fileType) / 8);
    job.lzw = section.compression == zmapCompression::lzw;
    if (job.lzw && decoders_.empty()) {
        // Made here, on the calling thread, which is where failures are reported.
        for (unsigned t = 0; t < workers_.threads(); ++t) {
            Status s = status::ok;
            decoders_.push_back(makeZmapDecoder(s, zmapCompression::lzw, errors_));
            if (!decoders_.back()) {
                decoders_.clear();
                return s;
            }
        }
    }
    job.predict = job.lzw && section.predictor == 2u;
    const std::unique_ptr<ZmapPredictor> predictor = makePredictor(job.fileType, s_.swapped());
    job.predictor = predictor.get();
    job.offsets = &section.offsets();
    job.counts = &section.byteCounts();
    job.tiled = section.tiled();
    job.blockWidth = job.tiled ? *section.tileWidth : section.width;
    job.blockRows = job.tiled ? *section.tileLength
                              : std::min<std::uint64_t>(*section.rowsPerStrip, section.height);
    if (job.blockWidth * job.blockRows > options_.maxPixels ||
        job.blockWidth * job.blockRows * job.fileBytes > std::numeric_limits<std::int32_t>::max()) {
        return fail(status::outOfMemory,
                    job.where + stringPrintf(L": blocks of %llu x %llu pixels are too large",
                                             static_cast<unsigned long long>(job.blockWidth),
                                             static_cast<unsigned long long>(job.blockRows)));
    }
    job.across = job.tiled ? (section.width + job.blockWidth - 1) / job.blockWidth : 1;
    job.exclusive = job.tiled && !stacked_ &&
                    job.blockWidth == std::uint64_t(geometry_.tileWidth) &&
                    job.blockRows == std::uint64_t(geometry_.tileHeight);

    TileRowWriter writer(bitmap);
    Status result = status::ok;
    workers_.run(
        job.offsets->size(),
        [&](std::size_t index, std::size_t slot, unsigned thread) {
            decodeBlock(job, index, thread, results_[slot]);
        },
        [&](std::size_t index, std::size_t slot) {
            BlockResult& r = results_[slot];
            if (r.errors.count() > 0) {
                errors_.report(r.errors.lastModule(), r.errors.lastText());
            }
            const Block b = job.block(index);
            if (r.status == status::ok && r.shared) {
                sharedBlocks_.push_back({&bitmap, section.channel, static_cast<std::int32_t>(b.x0),
                                         static_cast<std::int32_t>(b.y0),
                                         static_cast<std::int32_t>(b.w),
                                         static_cast<std::int32_t>(b.h)});
            } else if (r.status == status::ok && r.raw) {
                r.status = placeBlock(job, b, r.raw, writer);
                if (r.status != status::ok && r.fault.empty()) {
                    r.fault = job.blockPlace(b) + L": its pixels can't be converted";
                }
            }
            if (r.status != status::ok) {
                result = fail(r.status, std::move(r.fault));
                return false;
            }
            bytesDone_ += b.w * b.h * job.fileBytes;
            return true;
        });
    return result;
}

void Reader::decodeBlock(const PixelJob& job, std::size_t index, unsigned thread,
                         BlockResult& result) {
    result.status = status::ok;
    result.fault.clear();
    result.shared = false;
    result.raw = nullptr;
    result.errors.clear();
    const Block b = job.block(index);
    if (b.offset == 0) {
        // A tile shared with the main channel: only 34954 allows it.
        result.shared = true;
        return;
    }
    const std::uint8_t* data = nullptr;
    if (!job.exclusive) {
        result.status = readBlock(job, b, thread, result.rows.get(b.rawSize), &data, result.fault);
        result.raw = data;
        return;
    }
    TileBitmap& bitmap = *job.bitmap;
    const auto tileIndex = static_cast<std::int32_t>(index);
    const auto column = static_cast<std::int32_t>(index % job.across);
    const auto bytes = static_cast<std::size_t>(bitmap.bytesPerPixel());
    const auto stride =
        static_cast<std::size_t>(geometry_.rowStride(column, bitmap.bytesPerPixel()));
    const std::size_t fileRow = job.blockWidth * job.fileBytes;
    TileHandle hold;
    std::uint8_t* tile = bitmap.tileForWrite(tileIndex, hold);
    if (!tile) {
        result.status = status::damaged;
        result.fault = job.blockPlace(b) + L": no tile to store it in";
        return;
    }
    // Bytes that are the store's own, whole rows of a whole tile: decoded in place.
    const bool inPlace = job.fileType == job.storeType && !s_.swapped() && stride == fileRow &&
                         b.h == job.blockRows && bytes == job.fileBytes;
    std::uint8_t* out = inPlace ? tile : raw_[thread].get(b.rawSize);
    result.status = readBlock(job, b, thread, out, &data, result.fault);
    if (result.status != status::ok) {
        return;
    }
    if (inPlace) {
        if (data != tile) {
            std::memcpy(tile, data, b.rawSize); // raw bytes in place in memory
        }
        return;
    }
    for (std::uint64_t r = 0; r < b.h; ++r) {
        const Status s = convertPixels(tile + r * stride, job.storeType, data + r * fileRow,
                                       job.fileType, b.w, s_.swapped(), result.errors);
        if (s != status::ok) {
            result.status = s;
            result.fault = job.blockPlace(b) + L": its pixels can't be converted";
            return;
        }
    }
}

Status Reader::readBlock(const PixelJob& job, const Block& b, unsigned thread, std::uint8_t* out,
                         const std::uint8_t** data, std::wstring& fault) {
    *data = out;
    const std::uint64_t fileSize = s_.size();
    const auto damaged = [&](std::wstring why) {
        fault = job.blockPlace(b) + L": " + why;
        return status::damaged;
    };
    if (b.count >= fileSize || b.offset > fileSize - b.count) {
        return damaged(stringPrintf(L"its %llu bytes run past the end of the file of %llu bytes",
                                    static_cast<unsigned long long>(b.count),
                                    static_cast<unsigned long long>(fileSize)));
    }
    if (job.lzw && b.count > 2 * b.rawSize) {
        return damaged(stringPrintf(L"%llu bytes of LZW data for %llu bytes of pixels",
                                    static_cast<unsigned long long>(b.count),
                                    static_cast<unsigned long long>(b.rawSize)));
    }
    if (!job.lzw && (job.tiled ? b.count < b.rawSize : b.count != b.rawSize)) {
        return damaged(stringPrintf(L"%llu bytes stored for %llu bytes of uncompressed pixels",
                                    static_cast<unsigned long long>(b.count),
                                    static_cast<unsigned long long>(b.rawSize)));
    }
    if (!job.lzw) {
        const Status s = s_.readShared(b.offset, out, b.rawSize, data);
        return s == status::damaged ? damaged(L"the file ends first") : s;
    }
    const std::uint8_t* compressed = nullptr;
    Status s = s_.readShared(b.offset, compressed_[thread].get(b.count), b.count, &compressed);
    if (s != status::ok) {
        return s == status::damaged ? damaged(L"the file ends first") : s;
    }
    ZmapDecoder& decoder = *decoders_[thread];
    decoder.start(compressed, static_cast<std::uint32_t>(b.count));
    if (!decoder.decode(out, static_cast<std::uint32_t>(b.rawSize))) {
        // Name the row, as the place in the image where the pixels stop.
        const ZmapDecoder::Fault& f = decoder.fault();
        const std::uint64_t row = b.y0 + f.produced / (job.blockWidth * job.fileBytes);
        return damaged(stringPrintf(L"LZW data at byte %llu, image row %llu: %ls",
                                    static_cast<unsigned long long>(b.offset + f.inputOffset),
                                    static_cast<unsigned long long>(row), f.what.c_str()));
    }
    if (job.predict) {
        job.predictor->decodeRows(out, static_cast<std::uint32_t>(job.blockWidth),
                                  static_cast<std::uint32_t>(b.rows));
    }
    return status::ok;
}

Status Reader::placeBlock(const PixelJob& job, const Block& b, const std::uint8_t* raw,
                          TileRowWriter& writer) {
    for (std::uint64_t r = 0; r < b.h; ++r) {
        const std::uint8_t* from = raw + r * job.blockWidth * job.fileBytes;
        auto [x, y] = place(static_cast<std::int32_t>(b.x0), static_cast<std::int32_t>(b.y0 + r));
        for (std::uint64_t left = b.w; left > 0;) {
            std::int32_t run = 0;
            std::uint8_t* to = writer.run(x, y, run);
            run = static_cast<std::int32_t>(std::min<std::uint64_t>(left, std::uint64_t(run)));
            if (!to || run <= 0) {
                return status::damaged;
            }
            const Status s = convertPixels(to, job.storeType, from, job.fileType,
                                           static_cast<std::size_t>(run), s_.swapped(), errors_);
            if (s != status::ok) {
                return s;
            }
            from += static_cast<std::size_t>(run) * job.fileBytes;
            x += run;
            left -= static_cast<std::uint64_t>(run);
        }
    }
    return status::ok;
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

std::wstring Reader::where(const ZmapSection& section) const {
    std::size_t directory = 1;
    while (directory <= sections_.size() && &sections_[directory - 1] != &section) {
        ++directory;
    }
    return zmapSectionName(section) +
           stringPrintf(L" section (directory %zu at byte %u)", directory, section.ifdOffset);
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
    std::unique_ptr<Reader> reader;
    Status s = status::ok;
    try {
        reader = std::make_unique<Reader>(stream, options);
        s = reader->read(document);
    } catch (const std::bad_alloc&) {
        s = status::outOfMemory;
    } catch (const Reporter::Abandoned&) {
        s = status::stopped;
    } catch (const TQL::TqlError& e) {
        s = status::damaged;
        if (options.fault) {
            *options.fault = e.wWhat();
        }
        return s;
    } catch (const std::system_error&) {
        s = status::outOfMemory; // no thread could be started
    }
    if (options.fault && reader && !reader->fault().empty() &&
        (s == status::damaged || s == status::unsupportedVersion)) {
        *options.fault = reader->fault();
    }
    return s;
}

std::wstring zmapFailureText(Status status, const std::wstring& fault) {
    return fault.empty() ? statusText(status) : statusText(status) + L" (" + fault + L")";
}
