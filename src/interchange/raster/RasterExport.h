#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "interchange/raster/Raster.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

class Reporter;
class TileBitmap;
class ZmapDocument;

/// Numbered text of the progress display of an export: "Exporting %ls".
inline constexpr std::int32_t textExporting = 10168;

/// One layer of a PSD file: a picture with its place in the document, or the top or the end
/// of a group. The exporter is given them as a list from the top layer down, as a layers
/// panel shows them; a group's top comes before its members and its end after them.
struct PsdLayer {
    enum class Kind { pixels, groupTop, groupEnd };
    Kind kind = Kind::pixels;
    std::wstring name;
    /// Where the picture lies in the document (inclusive corners); its size must be the
    /// picture's. Unused for group records.
    IExtent<2> bounds;
    /// Colour and alpha (no alpha: opaque).
    TQL::Handle<Raster> picture;
    std::uint8_t opacity = 255;
    bool visible = true;
    bool open = true; ///< a group's top: shown open (folder type 1) or closed (2)
    std::int32_t id = 0;
};

/// What an export is told besides the image.
struct ExportOptions {
    /// JPEG: quality 0 to 100 (the dialog's slider times 10); sampling code 2 (4:2:0),
    /// 3 (4:2:2) or 1 (4:4:4); and the three check boxes: progressive, optimised Huffman
    /// tables, the accurate (slow) DCT.
    int quality = 90;
    int sampling = 2;
    bool progressive = false;
    bool optimiseCoding = false;
    bool accurateDct = true;
    /// PNG texts ("Title", "Author", "Copyright"), written when not empty.
    std::wstring title;
    std::wstring author;
    std::wstring copyright;
    /// PSD: write the sRGB profile among the image resources.
    bool colourManaged = false;
    /// PSD: rows compressed with PackBits (else raw).
    bool packBits = true;
    /// PSD: the layers, top first; empty for a flat file.
    std::vector<PsdLayer> layers;
    /// Progress (text 10168); asking to stop gives -11. May be null.
    Reporter* progress = nullptr;
};

/// The writers of plain raster files: one object per file, made for its type (create), then
/// fed the document's colour channel in one call of write.
///
/// Every writer writes into a temporary file beside the target and renames it onto the
/// target only when the file is complete: a failed or stopped export never replaces or
/// half-writes the user's file, and leaves no temporary file behind. Rows are assembled
/// from the tiles one row of tiles at a time; the image is never copied whole.
///
/// Errors: -6 a short write (the disk is full), -2 a library's failure (errorText() has its
/// message), -11 stopped, -12 an empty extent, -13 no colour channel, -18 a target that
/// can't be written, -8 a file type without a writer.
class RasterExport : public TQL::Handlable {
public:
    /// The exporter for `path`'s type (.bmp, .dib, .tga, .jpg, .jpe, .jpeg, .png, .tif,
    /// .tiff, .psd), or null.
    static TQL::Handle<RasterExport> create(const std::wstring& path);

    explicit RasterExport(std::wstring path) : path_(std::move(path)) {}
    ~RasterExport() override;

    /// Writes the pixels of `extent` (inclusive, clipped to the image) of `image`'s colour,
    /// at `resolutionX` by `resolutionY` pixels per metre. The first call does the work; a
    /// second returns at once with the first's status.
    [[nodiscard]] Status write(const ZmapDocument& image, const IExtent<2>& extent,
                               double resolutionX, double resolutionY,
                               const ExportOptions& options);
    /// Ends the export; returns the last error.
    Status finish() { return lastError_; }

    /// 1 ready, 2 written.
    int stage() const { return stage_; }
    Status lastError() const { return lastError_; }
    const std::wstring& errorText() const { return errorText_; }
    const std::wstring& path() const { return path_; }

protected:
    /// The rows of an extent of a colour channel, assembled from its tiles one row of tiles
    /// at a time: three bytes a pixel, blue, green, red.
    class Rows {
    public:
        Rows(const TileBitmap& rgb, const IExtent<2>& extent);
        /// Row `y` (0 = the extent's top); valid until a row of another row of tiles is
        /// asked for.
        const std::uint8_t* row(std::int32_t y);
        std::int32_t width() const { return width_; }
        std::int32_t height() const { return height_; }

    private:
        const TileBitmap& rgb_;
        std::int32_t left_, top_, width_, height_;
        std::int32_t bandTop_ = -1; ///< image row of the band's first row
        std::int32_t bandRows_ = 0;
        std::vector<std::uint8_t> band_;
    };

    /// Writes the file's content to `file` (the temporary file, opened for writing).
    virtual Status writeFile(std::FILE* file, const std::string& filePath, Rows& rows,
                             double resolutionX, double resolutionY,
                             const ExportOptions& options) = 0;
    /// Whether writeFile uses `file` (false: it opens `filePath` itself, as libtiff does).
    virtual bool usesStream() const { return true; }

    /// Writes bytes; false (and lastError -6) when they don't all go.
    bool put(std::FILE* file, const void* data, std::size_t size);

public:
    /// Tells the progress of row `y` of `height`; true when the user asked to stop.
    bool reportRow(const ExportOptions& options, std::int32_t y, std::int32_t height);

protected:
    Status lastError_ = status::ok;
    std::wstring errorText_;

private:
    std::wstring path_;
    int stage_ = 1;
};

class RasterExportBMP : public RasterExport {
public:
    using RasterExport::RasterExport;

protected:
    Status writeFile(std::FILE*, const std::string&, Rows&, double, double,
                     const ExportOptions&) override;
};

class RasterExportTGA : public RasterExport {
public:
    using RasterExport::RasterExport;

protected:
    Status writeFile(std::FILE*, const std::string&, Rows&, double, double,
                     const ExportOptions&) override;
};

class RasterExportPNG : public RasterExport {
public:
    using RasterExport::RasterExport;
    struct Job;
    static void body(Job& job);

protected:
    Status writeFile(std::FILE*, const std::string&, Rows&, double, double,
                     const ExportOptions&) override;
};

class RasterExportJPEG : public RasterExport {
public:
    using RasterExport::RasterExport;
    struct Job;
    static void body(Job& job);

protected:
    Status writeFile(std::FILE*, const std::string&, Rows&, double, double,
                     const ExportOptions&) override;
};

class RasterExportTIF : public RasterExport {
public:
    using RasterExport::RasterExport;

protected:
    Status writeFile(std::FILE*, const std::string&, Rows&, double, double,
                     const ExportOptions&) override;
    bool usesStream() const override { return false; }
};

/// PSD, written here: header, resolution (and sRGB profile) resources, the layer and mask
/// section (empty, of length 0, without layers), the composite in planes.
class RasterExportPSD : public RasterExport {
public:
    using RasterExport::RasterExport;

protected:
    Status writeFile(std::FILE*, const std::string&, Rows&, double, double,
                     const ExportOptions&) override;
};

/// PackBits: appends the coded form of `count` bytes to `out`.
void packBits(const std::uint8_t* data, std::size_t count, std::vector<std::uint8_t>& out);
