#include "file/ZmapSection.h"

#include "file/StreamImage.h"
#include "image/ZmapDocument.h"

#include <algorithm>
#include <cmath>

namespace {

/// Bytes of one value of a field type; 0 for a type this reader doesn't know.
std::uint64_t typeSize(std::uint16_t type) {
    switch (type) {
    case 1: // BYTE
    case 2: // ASCII
    case 6: // SBYTE
    case 7: // UNDEFINED
        return 1;
    case 3: // SHORT
    case 8: // SSHORT
        return 2;
    case 4:  // LONG
    case 9:  // SLONG
    case 11: // FLOAT
    case 13: // IFD
        return 4;
    case 5:  // RATIONAL
    case 10: // SRATIONAL
    case 12: // DOUBLE
        return 8;
    default:
        return 0;
    }
}

/// One directory entry; `field` is the position of its four-byte value field.
struct Entry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    std::uint64_t field = 0;
};

class SectionParser {
public:
    SectionParser(StreamImage& stream, ZmapSection& section) : s_(stream), section_(section) {}

    Status entry(const Entry& e);

private:
    /// Seeks to the entry's values, read as `elementSize` bytes each: in the value field
    /// when they fit in its four bytes, else at the offset it holds. False unless they all
    /// lie inside the file.
    bool seekValues(const Entry& e, std::uint64_t elementSize) {
        const std::uint64_t size = elementSize * e.count;
        std::uint64_t at = e.field;
        if (size > 4) {
            if (!s_.seek(e.field)) {
                return false;
            }
            at = s_.read32();
        }
        return elementSize != 0 && !s_.failed() && at <= s_.size() && size <= s_.size() - at &&
               s_.seek(at);
    }
    /// The first value of a SHORT or LONG (or, with `rational`, RATIONAL) field.
    bool single(const Entry& e, std::uint32_t& out, bool rational = false);
    /// A SHORT (16-bit) or other (32-bit) array.
    Status array(const Entry& e, std::optional<std::vector<std::uint32_t>>& out);
    Status text(const Entry& e, std::optional<std::string>& out);
    Status rationalValue(const Entry& e, Rational& out);

    StreamImage& s_;
    ZmapSection& section_;
};

bool SectionParser::single(const Entry& e, std::uint32_t& out, bool rational) {
    if (e.count == 0 || !seekValues(e, typeSize(e.type))) {
        return false;
    }
    switch (e.type) {
    case tiffType::shortType:
        out = s_.read16();
        return !s_.failed();
    case tiffType::longType:
        out = s_.read32();
        return !s_.failed();
    case tiffType::rational:
        if (rational) {
            const std::uint32_t n = s_.read32();
            const std::uint32_t d = s_.read32();
            out = d == 0 ? 0 : n / d;
            return !s_.failed();
        }
        return false;
    default:
        return false;
    }
}

Status SectionParser::array(const Entry& e, std::optional<std::vector<std::uint32_t>>& out) {
    if (out) {
        return status::ok; // read once: a repeated tag is ignored
    }
    const bool shortValues = e.type == tiffType::shortType;
    if (!seekValues(e, shortValues ? 2 : 4)) {
        return status::damaged;
    }
    std::vector<std::uint32_t> values(e.count);
    for (std::uint32_t& v : values) {
        v = shortValues ? s_.read16() : s_.read32();
    }
    if (s_.failed()) {
        return status::damaged;
    }
    out = std::move(values);
    return status::ok;
}

Status SectionParser::text(const Entry& e, std::optional<std::string>& out) {
    if (!seekValues(e, 1)) {
        return status::damaged;
    }
    std::string bytes(e.count, '\0');
    if (!s_.readBytes(bytes.data(), bytes.size())) {
        return status::damaged;
    }
    bytes.resize(std::min(bytes.size(), bytes.find('\0')));
    out = std::move(bytes);
    return status::ok;
}

Status SectionParser::rationalValue(const Entry& e, Rational& out) {
    if (e.type != tiffType::rational || e.count == 0 || !seekValues(e, 8)) {
        return status::damaged;
    }
    out.numerator = s_.read32();
    out.denominator = s_.read32();
    return s_.failed() ? status::damaged : status::ok;
}

Status SectionParser::entry(const Entry& e) {
    ZmapSection& z = section_;
    std::uint32_t value = 0;
    const auto needSingle = [&](std::uint32_t& field, bool rational = false) {
        if (!single(e, value, rational)) {
            return status::damaged;
        }
        field = value;
        return status::ok;
    };
    const auto needOptional = [&](std::optional<std::uint32_t>& field) {
        if (!single(e, value)) {
            return status::damaged;
        }
        field = value;
        return status::ok;
    };
    switch (e.tag) {
    case zmapTag::newSubfileType:
        return needSingle(z.flags);
    case zmapTag::subfileType: {
        // The old form: 1 a full image, 2 a reduced one, 3 a page of several.
        if (e.count != 1 || e.type != tiffType::shortType || z.flags != 0 || !single(e, value) ||
            value < 1 || value > 3) {
            return status::damaged;
        }
        z.flags = value == 2 ? 1 : value == 3 ? 2 : 0;
        return status::ok;
    }
    case zmapTag::imageWidth:
        return needSingle(z.width, true);
    case zmapTag::imageLength:
        return needSingle(z.height, true);
    case zmapTag::bitsPerSample: {
        if (e.type != tiffType::shortType || e.count == 0 || e.count > z.bits.size() ||
            !seekValues(e, 2)) {
            return status::damaged;
        }
        z.bitsCount = e.count;
        for (std::uint32_t i = 0; i < e.count; ++i) {
            z.bits[i] = s_.read16();
        }
        return s_.failed() ? status::damaged : status::ok;
    }
    case zmapTag::compression:
        return needSingle(z.compression);
    case zmapTag::photometric:
        return needOptional(z.photometric);
    case zmapTag::orientation:
        return needSingle(z.orientation);
    case zmapTag::samplesPerPixel:
        return needSingle(z.samples);
    case zmapTag::rowsPerStrip:
        return needOptional(z.rowsPerStrip);
    case zmapTag::planarConfiguration:
        return needSingle(z.planar);
    case zmapTag::resolutionUnit:
        return needSingle(z.resolutionUnit);
    case zmapTag::predictor:
        return needOptional(z.predictor);
    case zmapTag::tileWidth:
        return needOptional(z.tileWidth);
    case zmapTag::tileLength:
        return needOptional(z.tileLength);
    case zmapTag::sampleFormat:
        return needSingle(z.sampleFormat);
    case zmapTag::minSampleValue:
    case zmapTag::maxSampleValue:
        return single(e, value) ? status::ok : status::damaged;
    case zmapTag::xResolution:
        return rationalValue(e, z.xResolution);
    case zmapTag::yResolution:
        return rationalValue(e, z.yResolution);
    case zmapTag::stripOffsets:
        return array(e, z.stripOffsets);
    case zmapTag::stripByteCounts:
        return array(e, z.stripByteCounts);
    case zmapTag::tileOffsets:
        return array(e, z.tileOffsets);
    case zmapTag::tileByteCounts:
        return array(e, z.tileByteCounts);
    case zmapTag::differenceOffsets:
        return array(e, z.differenceOffsets);
    case zmapTag::extraSamples: {
        std::optional<std::vector<std::uint32_t>> extra;
        const Status s = array(e, extra);
        if (extra) {
            z.extraSamples = std::move(*extra);
        }
        return s;
    }
    case zmapTag::colorMap: {
        if (e.type != tiffType::shortType || e.count == 0 || z.colorMap || !seekValues(e, 2)) {
            return status::damaged;
        }
        std::vector<std::uint16_t> map(e.count);
        for (std::uint16_t& v : map) {
            v = s_.read16();
        }
        z.colorMap = std::move(map);
        return s_.failed() ? status::damaged : status::ok;
    }
    case zmapTag::section:
        if (e.type != tiffType::longType || e.count != 1 || !single(e, value) || value == 0) {
            return status::damaged;
        }
        z.headerOffset = value;
        return status::ok;
    default:
        for (std::size_t i = 0; i < zmapTextTags.size(); ++i) {
            if (e.tag == zmapTextTags[i]) {
                return text(e, z.texts[i]);
            }
        }
        return status::ok; // a tag this reader has no use for
    }
}

/// The channel of a section kind; 0 for a kind outside the table.
std::uint32_t channelOfKind(std::uint32_t kind) {
    switch (kind) {
    case zmapKind::colour:
        return channelRgb;
    case zmapKind::depth:
    case zmapKind::panoramaDepth:
        return channelZ;
    case zmapKind::material:
        return channelMat;
    case zmapKind::originalColour:
        return channelOriginalRgb;
    case zmapKind::originalDepth:
        return channelOriginalZ;
    case zmapKind::originalMaterial:
        return channelOriginalMat;
    default:
        return 0;
    }
}

/// True when every value is nonzero.
bool noZeros(const std::vector<std::uint32_t>& values) {
    return std::find(values.begin(), values.end(), 0u) == values.end();
}

} // namespace

const std::vector<std::uint32_t>& ZmapSection::offsets() const {
    static const std::vector<std::uint32_t> none;
    if (tiled()) {
        return tileOffsets ? *tileOffsets : differenceOffsets ? *differenceOffsets : none;
    }
    return stripOffsets ? *stripOffsets : none;
}

const std::vector<std::uint32_t>& ZmapSection::byteCounts() const {
    static const std::vector<std::uint32_t> none;
    const auto& counts = tiled() ? tileByteCounts : stripByteCounts;
    return counts ? *counts : none;
}

Status readZmapSection(StreamImage& stream, std::uint32_t offset, ZmapSection& section,
                       std::uint32_t& next) {
    section = ZmapSection();
    section.ifdOffset = offset;
    if (offset < 8 || !stream.seek(offset)) {
        return status::damaged;
    }
    const std::uint16_t entries = stream.read16();
    const std::uint64_t end = std::uint64_t{offset} + 2 + std::uint64_t{entries} * 12 + 4;
    if (stream.failed() || entries == 0 || end > stream.size()) {
        return status::damaged;
    }
    SectionParser parser(stream, section);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint64_t at = std::uint64_t{offset} + 2 + std::uint64_t{i} * 12;
        if (!stream.seek(at)) {
            return status::damaged;
        }
        Entry e;
        e.tag = stream.read16();
        e.type = stream.read16();
        e.count = stream.read32();
        e.field = at + 8;
        if (stream.failed()) {
            return status::damaged;
        }
        const Status s = parser.entry(e);
        if (s != status::ok) {
            return s;
        }
    }
    if (!stream.seek(end - 4)) {
        return status::damaged;
    }
    next = stream.read32();

    if (!section.headerOffset) {
        // Only the thumbnail, a reduced image, comes without a section header.
        if ((section.flags & 1) == 0) {
            return status::damaged;
        }
        section.channel = channelThumbnail;
        return stream.failed() ? status::damaged : status::ok;
    }
    if (!stream.seek(*section.headerOffset)) {
        return status::damaged;
    }
    section.kind = stream.read32();
    section.version = stream.read16();
    section.revision = stream.read16();
    if (stream.failed()) {
        return status::damaged;
    }
    section.channel = channelOfKind(section.kind);
    if (section.channel == 0) {
        return status::damaged;
    }
    if (section.version != 1) {
        return status::unsupportedVersion;
    }
    return status::ok;
}

Status checkZmapSection(ZmapSection& section) {
    ZmapSection& z = section;
    if (z.width == 0 || z.height == 0) {
        return status::damaged;
    }
    if (z.tiled()) {
        if (!z.tileLength || !z.tileByteCounts || *z.tileWidth == 0 || *z.tileLength == 0 ||
            (z.tileOffsets.has_value() == z.differenceOffsets.has_value())) {
            return status::damaged;
        }
        const std::uint64_t across = (std::uint64_t{z.width} + *z.tileWidth - 1) / *z.tileWidth;
        const std::uint64_t down = (std::uint64_t{z.height} + *z.tileLength - 1) / *z.tileLength;
        if (z.offsets().size() != across * down || z.tileByteCounts->size() != across * down) {
            return status::damaged;
        }
        if (z.tileOffsets && (!noZeros(*z.tileOffsets) || !noZeros(*z.tileByteCounts))) {
            return status::damaged;
        }
    } else {
        if (!z.rowsPerStrip || !z.stripOffsets || !z.stripByteCounts || *z.rowsPerStrip == 0) {
            return status::damaged;
        }
        const double strips = std::ceil(double(z.height) / double(*z.rowsPerStrip));
        if (double(z.stripOffsets->size()) != strips ||
            double(z.stripByteCounts->size()) != strips || !noZeros(*z.stripOffsets) ||
            !noZeros(*z.stripByteCounts)) {
            return status::damaged;
        }
    }
    if ((z.compression != 1 && z.compression != 5) || (z.predictor && z.compression != 5)) {
        return status::damaged;
    }
    // Samples of separate planes can't be placed into pixels.
    if (z.planar != 1 && z.samples > 1) {
        return status::damaged;
    }
    const auto oneValue = [&](std::uint16_t bits) { return z.bitsCount == 1 && z.bits[0] == bits; };
    z.pixelType = FilePixelType::none;
    switch (z.channel) {
    case channelRgb:
    case channelOriginalRgb:
    case channelThumbnail:
        if (z.photometric == 2u && z.samples == 3 && z.bitsCount == 3 && z.bits[0] == 8 &&
            z.bits[1] == 8 && z.bits[2] == 8) {
            z.pixelType = FilePixelType::rgb24;
        } else if ((z.photometric == 0u || z.photometric == 1u) && z.samples == 1 && oneValue(8)) {
            z.pixelType = FilePixelType::grey8;
        }
        break;
    case channelZ:
    case channelOriginalZ:
        if (oneValue(32) && z.sampleFormat == 1 && z.samples == 1) {
            z.pixelType = FilePixelType::depth32;
        }
        break;
    case channelMat:
    case channelOriginalMat:
        if (z.samples == 1 && (oneValue(8) || oneValue(16))) {
            z.pixelType = oneValue(8) ? FilePixelType::index8 : FilePixelType::index16;
        }
        break;
    default:
        break;
    }
    return z.pixelType == FilePixelType::none ? status::damaged : status::ok;
}
