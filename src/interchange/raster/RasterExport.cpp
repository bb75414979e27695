#include "interchange/raster/RasterExport.h"

#include "core/FilePath.h"
#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "image/ZmapDocument.h"

#include <algorithm>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void put16le(std::uint8_t* p, std::uint32_t v) {
    p[0] = std::uint8_t(v), p[1] = std::uint8_t(v >> 8);
}
void put32le(std::uint8_t* p, std::uint32_t v) {
    put16le(p, v & 0xFFFF);
    put16le(p + 2, v >> 16);
}

} // namespace

TQL::Handle<RasterExport> RasterExport::create(const std::wstring& path) {
    std::wstring name;
    std::wstring extension;
    getDirectory(path, name, extension);
    extension = lowercase(extension);
    if (extension == L".bmp" || extension == L".dib") {
        return TQL::makeHandle<RasterExportBMP>(path);
    }
    if (extension == L".tga") {
        return TQL::makeHandle<RasterExportTGA>(path);
    }
    if (extension == L".jpg" || extension == L".jpe" || extension == L".jpeg") {
        return TQL::makeHandle<RasterExportJPEG>(path);
    }
    if (extension == L".png") {
        return TQL::makeHandle<RasterExportPNG>(path);
    }
    if (extension == L".tif" || extension == L".tiff") {
        return TQL::makeHandle<RasterExportTIF>(path);
    }
    if (extension == L".psd") {
        return TQL::makeHandle<RasterExportPSD>(path);
    }
    return nullptr;
}

RasterExport::~RasterExport() = default;

RasterExport::Rows::Rows(const TileBitmap& rgb, const IExtent<2>& extent)
    : rgb_(rgb), left_(extent.lo().x), top_(extent.lo().y),
      width_(static_cast<std::int32_t>(extent.width())),
      height_(static_cast<std::int32_t>(extent.height())) {}

const std::uint8_t* RasterExport::Rows::row(std::int32_t y) {
    const TileGeometry& g = rgb_.geometry();
    const std::int32_t imageY = top_ + y;
    if (bandTop_ < 0 || imageY < bandTop_ || imageY >= bandTop_ + bandRows_) {
        // Fill the band: the rows of the tile row that holds imageY, within the extent.
        const std::int32_t tileTop = imageY & ~g.yMask;
        bandTop_ = std::max(tileTop, top_);
        bandRows_ = std::min(tileTop + g.tileHeight, top_ + height_) - bandTop_;
        band_.resize(std::size_t(width_) * 3 * bandRows_);
        for (std::int32_t x = left_; x < left_ + width_;) {
            const std::int32_t tileEnd = std::min((x | g.xMask) + 1, left_ + width_);
            TileHandle hold;
            std::int32_t index = -1;
            const std::uint8_t* first = rgb_.pixelForRead(x, bandTop_, hold, &index);
            const std::size_t bytes = std::size_t(tileEnd - x) * 3;
            for (std::int32_t r = 0; r < bandRows_; ++r) {
                std::uint8_t* out =
                    band_.data() + std::size_t(r) * width_ * 3 + std::size_t(x - left_) * 3;
                if (first) {
                    const std::int32_t stride = g.rowStride(x >> g.xShift, 3);
                    std::memcpy(out, first + std::size_t(r) * stride, bytes);
                } else {
                    std::memset(out, 0, bytes); // an empty colour tile is black
                }
            }
            x = tileEnd;
        }
    }
    return band_.data() + std::size_t(imageY - bandTop_) * width_ * 3;
}

bool RasterExport::put(std::FILE* file, const void* data, std::size_t size) {
    if (size != 0 && std::fwrite(data, 1, size, file) != size) {
        lastError_ = status::writeFailed;
        errorText_ = L"The file could not be written completely (is the disk full?)";
        return false;
    }
    return true;
}

bool RasterExport::reportRow(const ExportOptions& options, std::int32_t y, std::int32_t height) {
    if ((y & 63) != 0) {
        return false;
    }
    const bool stop = (options.progress && options.progress->report(1, 0, double(y) / height)) ||
                      TQL::stopRequested();
    if (stop) {
        lastError_ = status::stopped;
        errorText_ = L"The export was stopped";
    }
    return stop;
}

Status RasterExport::write(const ZmapDocument& image, const IExtent<2>& extent, double resolutionX,
                           double resolutionY, const ExportOptions& options) {
    if (stage_ != 1) {
        return lastError_;
    }
    stage_ = 2;
    if (!image.rgb) {
        errorText_ = L"The document has no image";
        return lastError_ = status::noImage;
    }
    const IExtent<2> area = extent & image.geometry().bounds();
    if (area.degenerate()) {
        errorText_ = L"There is nothing to export";
        return lastError_ = status::noConversion;
    }
    // The temporary file lies beside the target, so the rename stays on one file system.
    std::wstring name;
    const std::wstring folder = getDirectory(path_, name);
    std::string temp = utf8(joinDirectory(folder.empty() ? L"." : folder, L"." + name)) + ".XXXXXX";
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) {
        errorText_ = L"The file can't be made in its folder";
        return lastError_ = status::badName;
    }
    std::FILE* file = nullptr;
    if (usesStream()) {
        file = ::fdopen(fd, "wb");
        static thread_local std::vector<char> buffer(1 << 20);
        std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    } else {
        ::close(fd);
    }
    Rows rows(*image.rgb, area);
    lastError_ = status::ok;
    Status s;
    try {
        s = writeFile(file, temp, rows, resolutionX, resolutionY, options);
    } catch (const std::bad_alloc&) {
        errorText_ = L"Not enough memory";
        s = status::outOfMemory;
    }
    if (file && std::fclose(file) != 0 && s == status::ok) {
        s = status::writeFailed;
        errorText_ = L"The file could not be written completely (is the disk full?)";
    }
    if (s == status::ok && std::rename(temp.c_str(), utf8(path_).c_str()) != 0) {
        s = status::fromErrno(errno, status::writeFailed);
        errorText_ = L"The file can't be put in place";
    }
    if (s != status::ok) {
        ::unlink(temp.c_str());
    } else {
        // mkstemp made the file private; give it the usual permissions.
        const mode_t mask = ::umask(0);
        ::umask(mask);
        ::chmod(utf8(path_).c_str(), 0666 & ~mask);
    }
    return lastError_ = s;
}

Status RasterExportBMP::writeFile(std::FILE* file, const std::string&, Rows& rows,
                                  double resolutionX, double resolutionY,
                                  const ExportOptions& options) {
    const std::uint32_t w = std::uint32_t(rows.width());
    const std::uint32_t h = std::uint32_t(rows.height());
    const std::uint32_t stride = (3 * w + 3) & ~3u; // rows padded to 4 bytes
    const std::uint64_t dataBytes = std::uint64_t(stride) * h;
    if (dataBytes + 54 > 0xFFFFFFFFu) {
        errorText_ = L"The image is too large for a BMP file";
        return status::noConversion;
    }
    std::uint8_t header[54] = {'B', 'M'};
    put32le(header + 2, std::uint32_t(54 + dataBytes));
    put32le(header + 10, 54);
    put32le(header + 14, 40);
    put32le(header + 18, w);
    put32le(header + 22, h); // positive: rows bottom-up
    put16le(header + 26, 1);
    put16le(header + 28, 24);
    put32le(header + 34, std::uint32_t(dataBytes));
    put32le(header + 38, std::uint32_t(resolutionX + 0.5));
    put32le(header + 42, std::uint32_t(resolutionY + 0.5));
    if (!put(file, header, sizeof header)) {
        return lastError_;
    }
    const std::uint8_t padding[3] = {0, 0, 0};
    for (std::uint32_t i = 0; i < h; ++i) {
        if (reportRow(options, std::int32_t(i), std::int32_t(h))) {
            return lastError_;
        }
        if (!put(file, rows.row(std::int32_t(h - 1 - i)), std::size_t(w) * 3) ||
            !put(file, padding, stride - 3 * w)) {
            return lastError_;
        }
    }
    return status::ok;
}

Status RasterExportTGA::writeFile(std::FILE* file, const std::string&, Rows& rows, double, double,
                                  const ExportOptions& options) {
    const std::int32_t w = rows.width();
    const std::int32_t h = rows.height();
    if (w > 0xFFFF || h > 0xFFFF) {
        errorText_ = L"A TGA file holds at most 65535 pixels a side";
        return status::noConversion;
    }
    // No image id, no colour map, type 2, 24 bits, descriptor 0: rows bottom to top.
    std::uint8_t header[18] = {0, 0, 2};
    put16le(header + 12, std::uint32_t(w));
    put16le(header + 14, std::uint32_t(h));
    header[16] = 24;
    if (!put(file, header, sizeof header)) {
        return lastError_;
    }
    for (std::int32_t i = 0; i < h; ++i) {
        if (reportRow(options, i, h) || !put(file, rows.row(h - 1 - i), std::size_t(w) * 3)) {
            return lastError_;
        }
    }
    return status::ok;
}
