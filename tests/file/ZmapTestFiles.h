#pragma once

// Helpers of the Zmap file tests: documents made through the engine, whole-channel
// comparison, file bytes, and a builder of hand-made TIFF files in either byte order that
// shares no code with the program's writer.

#include "image/ZmapDocument.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zmap_test {

using Bytes = std::vector<std::uint8_t>;

/// A document made through the engine: colour a gradient with noise, depth and material
/// of a scene of planes (a floor, a wall and a box) rendered through a perspective camera
/// looking over the floor, or through a cube camera for a panorama (6 * height wide, faces
/// stitched), four named materials, the six texts and a cut-out block. Originals share
/// every tile with the main channels.
std::unique_ptr<test::TestDocument> makeSceneDocument(std::int32_t width, std::int32_t height,
                                                      bool panorama = false);

/// The pixels of a channel, row after row; empty for a null channel.
Bytes channelPixels(const TileBitmap* bitmap);

/// Every pixel, camera record, material, text and setting that a file carries is equal.
void expectSameDocument(const ZmapDocument& expected, const ZmapDocument& actual);

Bytes readBytes(const std::string& path);
void writeBytes(const std::string& path, const Bytes& bytes);

/// Reads a file into a fresh document and makes its missing channels; the status is
/// `status`.
std::unique_ptr<test::TestDocument> readDocument(const std::string& path, Status& status);
/// The same from bytes in memory.
std::unique_ptr<test::TestDocument> readDocument(const Bytes& bytes, Status& status);

/// Builds a TIFF file by hand, in either byte order. Data blocks come first, directories
/// after them, chained in the order they were made.
class TiffBuilder {
public:
    struct Entry {
        std::uint16_t tag;
        std::uint16_t type;
        std::uint32_t count;
        Bytes field; ///< the four bytes of the value field, in file order
    };
    using Ifd = std::vector<Entry>;

    explicit TiffBuilder(bool bigEndian);

    bool bigEndian() const { return big_; }
    // Values in the file's byte order.
    void put16(Bytes& out, std::uint16_t v) const;
    void put32(Bytes& out, std::uint32_t v) const;
    void putDouble(Bytes& out, double v) const;

    /// Appends a block of data (at an even offset) and returns its offset.
    std::uint32_t data(const Bytes& bytes);
    /// The offset that the next block of data will get.
    std::uint32_t nextData() const;

    /// Entries: a SHORT or LONG in the value field; values elsewhere by offset; an array of
    /// LONGs (in the field for one); a text with its NUL (in the field when 4 bytes or less).
    Entry shortValue(std::uint16_t tag, std::uint16_t v) const;
    Entry longValue(std::uint16_t tag, std::uint32_t v) const;
    Entry atOffset(std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                   std::uint32_t offset) const;
    Entry longs(std::uint16_t tag, const std::vector<std::uint32_t>& values);
    Entry text(std::uint16_t tag, const std::string& bytes);

    void add(Ifd ifd) { ifds_.push_back(std::move(ifd)); }
    /// The file: header, data, directories.
    Bytes build() const;

private:
    bool big_;
    Bytes data_;
    std::vector<Ifd> ifds_;
};

/// A channel section of a hand-made file: pixels in the file's layout (rows of `width`
/// pixels of `bytesPerPixel` bytes, multi-byte values already in file order), cut into
/// tiles or strips and stored raw or LZW-compressed with horizontal differencing.
struct HandSection {
    std::int32_t kind = 0; ///< -1 for a thumbnail (no section header, flag 1)
    std::uint16_t version = 1;
    std::uint16_t revision = 0;
    Bytes privateData;
    /// Makes the private data instead, just before the section header is added (which
    /// then lands at file.nextData()); it may add data of its own first.
    std::function<Bytes(TiffBuilder& file)> makePrivateData;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    Bytes pixels;
    std::uint32_t bytesPerPixel = 3;
    std::vector<std::uint16_t> bits{8, 8, 8};
    int photometric = 2; ///< -1 for none
    std::uint32_t samples = 3;
    /// Tiles of tileWidth x tileLength, or strips of rowsPerStrip rows when tileWidth is 0.
    std::uint32_t tileWidth = 0;
    std::uint32_t tileLength = 0;
    std::uint32_t rowsPerStrip = 0;
    std::uint16_t compression = 1;
    /// Sample size for differencing before LZW (1 byte or 4 bytes); 0 for no predictor.
    std::uint32_t predictSampleBytes = 0;
    /// Tiles to leave out as shared with the main channel: written with tag 34954.
    std::vector<bool> sharedTiles;
    /// Applied to each stored block (after compression), to damage or pad it.
    std::function<void(Bytes&)> alterBlock;
    /// With a thumbnail (kind -1): the old SubfileType value to write instead of flag 1.
    std::uint16_t subfileType = 0;
    /// Entries put before the section's own (so they win where a tag is read once) and
    /// after them (so they win where a later value replaces an earlier one).
    std::vector<TiffBuilder::Entry> extra;
    std::vector<TiffBuilder::Entry> late;
};

/// Adds the section's header and data, then its directory, to `file`.
void addSection(TiffBuilder& file, const HandSection& section);

/// Private data of a flat depth section (kind 1) in `file`'s byte order: projection,
/// view code, eye, three axes, shear, window, near, far, scale, unit.
Bytes cameraRecord(const TiffBuilder& file, const ViewParams& view);

} // namespace zmap_test
