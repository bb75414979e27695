#include "file/ZmapSection.h"

#include "core/StringUtils.h"
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
    /// Why the last entry failed.
    const std::wstring& why() const { return why_; }

private:
    Status bad(std::wstring why) {
        why_ = std::move(why);
        return status::damaged;
    }
    /// The failure of seekValues(): an unknown type or values outside the file.
    Status badValues(const Entry& e) {
        return bad(typeSize(e.type) == 0
                       ? stringPrintf(L"field type %u is not known", unsigned{e.type})
                       : stringPrintf(L"its %u values lie beyond the end of the file", e.count));
    }
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
    std::wstring why_;
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
        return bad(stringPrintf(L"its %u values lie beyond the end of the file", e.count));
    }
    std::vector<std::uint32_t> values(e.count);
    for (std::uint32_t& v : values) {
        v = shortValues ? s_.read16() : s_.read32();
    }
    if (s_.failed()) {
        return bad(L"its values can't be read");
    }
    out = std::move(values);
    return status::ok;
}

Status SectionParser::text(const Entry& e, std::optional<std::string>& out) {
    if (!seekValues(e, 1)) {
        return bad(stringPrintf(L"its text of %u bytes lies beyond the end of the file", e.count));
    }
    std::string bytes(e.count, '\0');
    if (!s_.readBytes(bytes.data(), bytes.size())) {
        return bad(L"its text can't be read");
    }
    bytes.resize(std::min(bytes.size(), bytes.find('\0')));
    out = std::move(bytes);
    return status::ok;
}

Status SectionParser::rationalValue(const Entry& e, Rational& out) {
    if (e.type != tiffType::rational || e.count == 0) {
        return bad(L"it must be a RATIONAL value");
    }
    if (!seekValues(e, 8)) {
        return badValues(e);
    }
    out.numerator = s_.read32();
    out.denominator = s_.read32();
    return s_.failed() ? bad(L"its value can't be read") : status::ok;
}

Status SectionParser::entry(const Entry& e) {
    ZmapSection& z = section_;
    std::uint32_t value = 0;
    // A single value that can't be read: the wrong type, no value, or outside the file.
    const auto badSingle = [&] {
        if (e.count != 0 && typeSize(e.type) != 0 && !seekValues(e, typeSize(e.type))) {
            return badValues(e);
        }
        return bad(stringPrintf(L"it must be one SHORT or LONG value, not %u of type %u", e.count,
                                unsigned{e.type}));
    };
    const auto needSingle = [&](std::uint32_t& field, bool rational = false) {
        if (!single(e, value, rational)) {
            return badSingle();
        }
        field = value;
        return status::ok;
    };
    const auto needOptional = [&](std::optional<std::uint32_t>& field) {
        if (!single(e, value)) {
            return badSingle();
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
            return bad(L"it must be one SHORT of 1 to 3, and only without NewSubfileType flags");
        }
        z.flags = value == 2 ? 1 : value == 3 ? 2 : 0;
        return status::ok;
    }
    case zmapTag::imageWidth:
        return needSingle(z.width, true);
    case zmapTag::imageLength:
        return needSingle(z.height, true);
    case zmapTag::bitsPerSample: {
        if (e.type != tiffType::shortType || e.count == 0 || e.count > z.bits.size()) {
            return bad(stringPrintf(L"it must be 1 to 4 SHORT values, not %u of type %u", e.count,
                                    unsigned{e.type}));
        }
        if (!seekValues(e, 2)) {
            return badValues(e);
        }
        z.bitsCount = e.count;
        for (std::uint32_t i = 0; i < e.count; ++i) {
            z.bits[i] = s_.read16();
        }
        return s_.failed() ? bad(L"its values can't be read") : status::ok;
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
        return single(e, value) ? status::ok : badSingle();
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
        if (e.type != tiffType::shortType || e.count == 0 || z.colorMap) {
            return bad(L"it must be SHORT values, given once");
        }
        if (!seekValues(e, 2)) {
            return badValues(e);
        }
        std::vector<std::uint16_t> map(e.count);
        for (std::uint16_t& v : map) {
            v = s_.read16();
        }
        z.colorMap = std::move(map);
        return s_.failed() ? bad(L"its values can't be read") : status::ok;
    }
    case zmapTag::section:
        if (e.type != tiffType::longType || e.count != 1 || !single(e, value) || value == 0) {
            return bad(L"it must be one LONG offset other than 0");
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

std::wstring zmapTagName(std::uint16_t tag) {
    struct Named {
        std::uint16_t tag;
        const wchar_t* name;
    };
    static constexpr Named names[] = {
        {zmapTag::newSubfileType, L"NewSubfileType"},
        {zmapTag::subfileType, L"SubfileType"},
        {zmapTag::imageWidth, L"ImageWidth"},
        {zmapTag::imageLength, L"ImageLength"},
        {zmapTag::bitsPerSample, L"BitsPerSample"},
        {zmapTag::compression, L"Compression"},
        {zmapTag::photometric, L"PhotometricInterpretation"},
        {zmapTag::imageDescription, L"ImageDescription"},
        {zmapTag::stripOffsets, L"StripOffsets"},
        {zmapTag::orientation, L"Orientation"},
        {zmapTag::samplesPerPixel, L"SamplesPerPixel"},
        {zmapTag::rowsPerStrip, L"RowsPerStrip"},
        {zmapTag::stripByteCounts, L"StripByteCounts"},
        {zmapTag::xResolution, L"XResolution"},
        {zmapTag::yResolution, L"YResolution"},
        {zmapTag::planarConfiguration, L"PlanarConfiguration"},
        {zmapTag::resolutionUnit, L"ResolutionUnit"},
        {zmapTag::software, L"Software"},
        {zmapTag::dateTime, L"DateTime"},
        {zmapTag::artist, L"Artist"},
        {zmapTag::hostComputer, L"HostComputer"},
        {zmapTag::predictor, L"Predictor"},
        {zmapTag::colorMap, L"ColorMap"},
        {zmapTag::tileWidth, L"TileWidth"},
        {zmapTag::tileLength, L"TileLength"},
        {zmapTag::tileOffsets, L"TileOffsets"},
        {zmapTag::tileByteCounts, L"TileByteCounts"},
        {zmapTag::extraSamples, L"ExtraSamples"},
        {zmapTag::sampleFormat, L"SampleFormat"},
        {zmapTag::minSampleValue, L"SMinSampleValue"},
        {zmapTag::maxSampleValue, L"SMaxSampleValue"},
        {zmapTag::copyright, L"Copyright"},
        {zmapTag::section, L"section header"},
        {zmapTag::differenceOffsets, L"difference tile offsets"},
    };
    for (const Named& n : names) {
        if (n.tag == tag) {
            return stringPrintf(L"%u (%ls)", unsigned{tag}, n.name);
        }
    }
    return stringPrintf(L"%u", unsigned{tag});
}

std::wstring zmapSectionName(const ZmapSection& section) {
    switch (section.channel) {
    case channelRgb:
        return L"colour";
    case channelZ:
        return section.kind == zmapKind::panoramaDepth ? L"panorama depth" : L"depth";
    case channelMat:
        return L"material";
    case channelOriginalRgb:
        return L"original colour";
    case channelOriginalZ:
        return L"original depth";
    case channelOriginalMat:
        return L"original material";
    case channelThumbnail:
        return L"thumbnail";
    default:
        return stringPrintf(L"kind %u", section.kind);
    }
}

Status readZmapSection(StreamImage& stream, std::uint32_t offset, ZmapSection& section,
                       std::uint32_t& next) {
    section = ZmapSection();
    section.ifdOffset = offset;
    const auto bad = [&](Status s, std::wstring why) {
        section.fault = std::move(why);
        return s;
    };
    if (offset < 8 || offset > stream.size()) {
        return bad(status::damaged,
                   stringPrintf(L"the directory offset lies outside the file of %llu bytes",
                                static_cast<unsigned long long>(stream.size())));
    }
    stream.seek(offset);
    const std::uint16_t entries = stream.read16();
    const std::uint64_t end = std::uint64_t{offset} + 2 + std::uint64_t{entries} * 12 + 4;
    if (stream.failed()) {
        return bad(status::damaged, L"its entry count can't be read");
    }
    if (entries == 0) {
        return bad(status::damaged, L"it has no entries");
    }
    if (end > stream.size()) {
        return bad(status::damaged,
                   stringPrintf(L"its %u entries run past the end of the file", unsigned{entries}));
    }
    SectionParser parser(stream, section);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint64_t at = std::uint64_t{offset} + 2 + std::uint64_t{i} * 12;
        Entry e;
        if (stream.seek(at)) {
            e.tag = stream.read16();
            e.type = stream.read16();
            e.count = stream.read32();
            e.field = at + 8;
        }
        if (stream.failed()) {
            return bad(status::damaged, stringPrintf(L"entry %u at byte %llu can't be read", i,
                                                     static_cast<unsigned long long>(at)));
        }
        const Status s = parser.entry(e);
        if (s != status::ok) {
            return bad(s, stringPrintf(L"tag %ls (entry at byte %llu): %ls",
                                       zmapTagName(e.tag).c_str(),
                                       static_cast<unsigned long long>(at), parser.why().c_str()));
        }
    }
    if (!stream.seek(end - 4)) {
        return bad(status::damaged, L"the link to the next directory can't be read");
    }
    next = stream.read32();

    if (!section.headerOffset) {
        // Only the thumbnail, a reduced image, comes without a section header.
        if ((section.flags & 1) == 0) {
            return bad(status::damaged, L"it has no section header (tag 34953) and is not "
                                        L"marked as a reduced image");
        }
        section.channel = channelThumbnail;
        return stream.failed() ? bad(status::damaged, L"it can't be read") : status::ok;
    }
    if (stream.seek(*section.headerOffset)) {
        section.kind = stream.read32();
        section.version = stream.read16();
        section.revision = stream.read16();
    }
    if (stream.failed()) {
        return bad(status::damaged,
                   stringPrintf(L"its section header at byte %u lies beyond the end of the file",
                                *section.headerOffset));
    }
    section.channel = channelOfKind(section.kind);
    if (section.channel == 0) {
        return bad(status::damaged, stringPrintf(L"section kind %u is not known", section.kind));
    }
    if (section.version != 1) {
        return bad(status::unsupportedVersion,
                   stringPrintf(L"section version %u is not supported", unsigned{section.version}));
    }
    return status::ok;
}

namespace {

/// The place of the first zero among `values`, or -1.
std::ptrdiff_t firstZero(const std::vector<std::uint32_t>& values) {
    const auto it = std::find(values.begin(), values.end(), 0u);
    return it == values.end() ? -1 : it - values.begin();
}

} // namespace

Status checkZmapSection(ZmapSection& section) {
    ZmapSection& z = section;
    const auto bad = [&](std::wstring why) {
        z.fault = std::move(why);
        return status::damaged;
    };
    if (z.width == 0 || z.height == 0) {
        return bad(stringPrintf(L"the image is %u x %u pixels", z.width, z.height));
    }
    if (z.tiled()) {
        if (!z.tileLength) {
            return bad(L"TileWidth is given without TileLength");
        }
        if (!z.tileByteCounts) {
            return bad(L"the tiles have no byte counts (tag 325)");
        }
        if (*z.tileWidth == 0 || *z.tileLength == 0) {
            return bad(stringPrintf(L"the tiles are %u x %u pixels", *z.tileWidth, *z.tileLength));
        }
        if (z.tileOffsets.has_value() == z.differenceOffsets.has_value()) {
            return bad(z.tileOffsets ? L"the tile offsets are given twice (tags 324 and 34954)"
                                     : L"the tiles have no offsets (tag 324)");
        }
        const std::uint64_t across = (std::uint64_t{z.width} + *z.tileWidth - 1) / *z.tileWidth;
        const std::uint64_t down = (std::uint64_t{z.height} + *z.tileLength - 1) / *z.tileLength;
        if (z.offsets().size() != across * down || z.tileByteCounts->size() != across * down) {
            return bad(stringPrintf(L"%zu tile offsets and %zu byte counts where %llu x %llu "
                                    L"tiles need %llu",
                                    z.offsets().size(), z.tileByteCounts->size(),
                                    static_cast<unsigned long long>(across),
                                    static_cast<unsigned long long>(down),
                                    static_cast<unsigned long long>(across * down)));
        }
        if (z.tileOffsets) {
            if (const std::ptrdiff_t i = firstZero(*z.tileOffsets); i >= 0) {
                return bad(stringPrintf(L"tile %td has offset 0", i));
            }
            if (const std::ptrdiff_t i = firstZero(*z.tileByteCounts); i >= 0) {
                return bad(stringPrintf(L"tile %td has byte count 0", i));
            }
        }
    } else {
        if (!z.rowsPerStrip || !z.stripOffsets || !z.stripByteCounts) {
            return bad(!z.stripOffsets      ? L"the image has neither tile nor strip offsets"
                       : !z.stripByteCounts ? L"the strips have no byte counts (tag 279)"
                                            : L"the strips have no RowsPerStrip (tag 278)");
        }
        if (*z.rowsPerStrip == 0) {
            return bad(L"RowsPerStrip is 0");
        }
        const double strips = std::ceil(double(z.height) / double(*z.rowsPerStrip));
        if (double(z.stripOffsets->size()) != strips ||
            double(z.stripByteCounts->size()) != strips) {
            return bad(stringPrintf(L"%zu strip offsets and %zu byte counts where %u rows in "
                                    L"strips of %u need %.0f",
                                    z.stripOffsets->size(), z.stripByteCounts->size(), z.height,
                                    *z.rowsPerStrip, strips));
        }
        if (const std::ptrdiff_t i = firstZero(*z.stripOffsets); i >= 0) {
            return bad(stringPrintf(L"strip %td has offset 0", i));
        }
        if (const std::ptrdiff_t i = firstZero(*z.stripByteCounts); i >= 0) {
            return bad(stringPrintf(L"strip %td has byte count 0", i));
        }
    }
    if (z.compression != 1 && z.compression != 5) {
        return bad(stringPrintf(L"compression %u is neither 1 nor 5", z.compression));
    }
    if (z.predictor && z.compression != 5) {
        return bad(L"a predictor is given without LZW compression");
    }
    // Samples of separate planes can't be placed into pixels.
    if (z.planar != 1 && z.samples > 1) {
        return bad(stringPrintf(L"samples in separate planes (PlanarConfiguration %u)", z.planar));
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
    if (z.pixelType == FilePixelType::none) {
        std::wstring bits;
        for (std::uint32_t i = 0; i < z.bitsCount; ++i) {
            bits += stringPrintf(i == 0 ? L"%u" : L", %u", unsigned{z.bits[i]});
        }
        return bad(stringPrintf(L"pixels of %u samples of %ls bits (photometric %d, sample "
                                L"format %u) don't suit the channel",
                                z.samples, bits.empty() ? L"no" : bits.c_str(),
                                z.photometric ? int(*z.photometric) : -1, z.sampleFormat));
    }
    return status::ok;
}
