#pragma once

#include "core/Status.h"
#include "file/ZmapPixels.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class StreamImage;

/// TIFF tags of a Zmap file.
namespace zmapTag {
inline constexpr std::uint16_t newSubfileType = 254;
inline constexpr std::uint16_t subfileType = 255;
inline constexpr std::uint16_t imageWidth = 256;
inline constexpr std::uint16_t imageLength = 257;
inline constexpr std::uint16_t bitsPerSample = 258;
inline constexpr std::uint16_t compression = 259;
inline constexpr std::uint16_t photometric = 262;
inline constexpr std::uint16_t imageDescription = 270;
inline constexpr std::uint16_t stripOffsets = 273;
inline constexpr std::uint16_t orientation = 274;
inline constexpr std::uint16_t samplesPerPixel = 277;
inline constexpr std::uint16_t rowsPerStrip = 278;
inline constexpr std::uint16_t stripByteCounts = 279;
inline constexpr std::uint16_t xResolution = 282;
inline constexpr std::uint16_t yResolution = 283;
inline constexpr std::uint16_t planarConfiguration = 284;
inline constexpr std::uint16_t resolutionUnit = 296;
inline constexpr std::uint16_t software = 305;
inline constexpr std::uint16_t dateTime = 306;
inline constexpr std::uint16_t artist = 315;
inline constexpr std::uint16_t hostComputer = 316;
inline constexpr std::uint16_t predictor = 317;
inline constexpr std::uint16_t colorMap = 320;
inline constexpr std::uint16_t tileWidth = 322;
inline constexpr std::uint16_t tileLength = 323;
inline constexpr std::uint16_t tileOffsets = 324;
inline constexpr std::uint16_t tileByteCounts = 325;
inline constexpr std::uint16_t extraSamples = 338;
inline constexpr std::uint16_t sampleFormat = 339;
inline constexpr std::uint16_t minSampleValue = 340;
inline constexpr std::uint16_t maxSampleValue = 341;
inline constexpr std::uint16_t copyright = 33432;
/// The section header of a Zmap channel: LONG, the offset of kind, version, revision and
/// the kind's private data.
inline constexpr std::uint16_t section = 34953;
/// Tile offsets of a section that stores only the tiles differing from its main channel;
/// an offset of 0 is a tile shared with the main channel.
inline constexpr std::uint16_t differenceOffsets = 34954;
} // namespace zmapTag

/// Field types of directory entries.
namespace tiffType {
inline constexpr std::uint16_t ascii = 2;
inline constexpr std::uint16_t shortType = 3;
inline constexpr std::uint16_t longType = 4;
inline constexpr std::uint16_t rational = 5;
} // namespace tiffType

/// Section kinds of the section header.
namespace zmapKind {
inline constexpr std::uint32_t colour = 0;
inline constexpr std::uint32_t depth = 1;
inline constexpr std::uint32_t material = 2;
inline constexpr std::uint32_t originalColour = 4;
inline constexpr std::uint32_t originalDepth = 5;
inline constexpr std::uint32_t originalMaterial = 6;
inline constexpr std::uint32_t panoramaDepth = 8;
} // namespace zmapKind

/// The six texts of a file, in the order of ZmapSection::texts.
inline constexpr std::array<std::uint16_t, 6> zmapTextTags = {
    zmapTag::imageDescription, zmapTag::software,     zmapTag::dateTime,
    zmapTag::artist,           zmapTag::hostComputer, zmapTag::copyright};

/// A numerator and denominator of a RATIONAL field.
struct Rational {
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 0;
};

/// One directory of a Zmap file with its section header: the fields the reader takes in.
/// Absent fields are empty optionals.
struct ZmapSection {
    std::uint32_t ifdOffset = 0;

    std::uint32_t flags = 0; ///< NewSubfileType: bit 0 a reduced image
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::array<std::uint16_t, 4> bits{};
    std::uint32_t bitsCount = 0;
    std::uint32_t compression = 1;
    std::optional<std::uint32_t> photometric;
    std::uint32_t orientation = 1;
    std::uint32_t samples = 1;
    std::uint32_t planar = 1;
    std::uint32_t resolutionUnit = 2;
    std::uint32_t sampleFormat = 1;
    std::optional<std::uint32_t> rowsPerStrip;
    std::optional<std::uint32_t> predictor;
    std::optional<std::uint32_t> tileWidth;
    std::optional<std::uint32_t> tileLength;
    Rational xResolution;
    Rational yResolution;
    std::optional<std::vector<std::uint32_t>> stripOffsets;
    std::optional<std::vector<std::uint32_t>> stripByteCounts;
    std::optional<std::vector<std::uint32_t>> tileOffsets;
    std::optional<std::vector<std::uint32_t>> tileByteCounts;
    std::optional<std::vector<std::uint32_t>> differenceOffsets;
    std::optional<std::vector<std::uint16_t>> colorMap;
    std::vector<std::uint32_t> extraSamples;
    /// The texts as their bytes, up to the first NUL, in the order of zmapTextTags.
    std::array<std::optional<std::string>, 6> texts;

    // The section header.
    std::optional<std::uint32_t> headerOffset;
    std::uint32_t kind = 0;
    std::uint16_t version = 0;
    std::uint16_t revision = 0;

    // Derived by the validity test.
    std::uint32_t channel = 0; ///< ChannelId; 64 for the thumbnail
    FilePixelType pixelType = FilePixelType::none;

    /// Why the directory could not be read or failed the validity test, in words that
    /// name the tag or value at fault; empty while nothing failed.
    std::wstring fault;

    bool tiled() const { return tileWidth.has_value(); }
    /// The offsets of the blocks: tiles (324 or 34954) or strips.
    const std::vector<std::uint32_t>& offsets() const;
    const std::vector<std::uint32_t>& byteCounts() const;
    /// Where the kind's private data starts.
    std::uint64_t privateDataOffset() const { return std::uint64_t{*headerOffset} + 8; }
};

/// The name of a tag for messages: "StripOffsets", or the number for a private one.
std::wstring zmapTagName(std::uint16_t tag);
/// What a section holds, for messages: "colour", "depth", "panorama depth", "material",
/// "original colour", "original depth", "original material" or "thumbnail".
std::wstring zmapSectionName(const ZmapSection& section);

/// Reads the directory at `offset` and its section header into `section`, and the offset
/// of the next directory into `next`. Value fields follow the stream's byte order; tags the
/// reader doesn't use are skipped. -2 for a directory or field that can't be read or
/// breaks a rule of its tag, -7 for a section version other than 1; either way
/// `section.fault` says what failed.
[[nodiscard]] Status readZmapSection(StreamImage& stream, std::uint32_t offset,
                                     ZmapSection& section, std::uint32_t& next);

/// The validity test: nonzero size, complete strips or tiles whose counts match the size,
/// compression 1 or 5 (a predictor only with 5), and a pixel layout that the channel can
/// hold, which sets `section.pixelType`. -2 when any of it fails, and `section.fault` says
/// which.
[[nodiscard]] Status checkZmapSection(ZmapSection& section);
