#pragma once

#include "core/DrawThread.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "core/TqlCriticalSection.h"
#include "interchange/raster/Raster.h"

#include <atomic>
#include <cstdint>
#include <string>

/// Result codes of raster import beyond the shared status codes.
namespace rasterStatus {
inline constexpr Status couldNotOpen = -23; ///< the file or address could not be opened
} // namespace rasterStatus

/// Numbered texts of raster import.
inline constexpr std::int32_t textDownloading = 10138; ///< "Downloading %ls": the URL
inline constexpr std::int32_t labelDownload = 10140;   ///< the progress bar's label

/// What a download shows while it runs, and how the user stops it. Called on the thread
/// that called readURL.
class DownloadProgress {
public:
    virtual ~DownloadProgress() = default;
    /// The status line: text 10138 with the URL.
    virtual void statusText(const std::wstring& text) = 0;
    /// Bytes received of `total` (0 while unknown), under the label 10140. Returns true to
    /// stop the download.
    virtual bool progress(std::uint64_t received, std::uint64_t total,
                          const std::wstring& label) = 0;
    /// Lets the caller handle what must not wait (the interface's events), about every
    /// 50 ms while the transfer runs.
    virtual void pump() {}
};

/// Where a thumbnail is painted: the preview window of the open dialog.
class ThumbView {
public:
    virtual ~ThumbView() = default;
    /// The preview takes this size in pixels.
    virtual void setPreviewSize(std::int32_t width, std::int32_t height) = 0;
    /// `height` rows of `width` pixels (blue, green, red), `stride` bytes apart.
    virtual void drawThumb(const std::uint8_t* bgr, std::int32_t width, std::int32_t height,
                           std::size_t stride) = 0;
};

/// Reads a picture, from a file or a URL, into a Raster; keeps a thumbnail of it for a
/// preview, which a background job (ThumbnailDrawThread) may write at any time.
///
/// The reader is chosen by the extension, lower-cased: .bmp and .dib, .tga (ours), .tif
/// and .tiff (libtiff), .jpg, .jpe and .jpeg (libjpeg), .png (libpng), .zmp and .zmq (the
/// Zmap reader, colour only). PICT, QuickTime movies and RPC objects (.pct, .pic, .pict,
/// .mov, .rpc) are not supported on this platform; models (.3ds, .dxf, .man, .thf, .skp)
/// are no pictures.
///
/// Results: 0 good; -7 unreadable header; -8 a format that is not supported, or a picture
/// larger than a document can hold; -2 bad data; -23 could not open; -11 cancelled; -10
/// out of memory. After a failure there is no raster and errorText() names the file and
/// says what went wrong.
class RasterImport : public TQL::Handlable {
public:
    RasterImport() : csThumb_(L"RasterImport::SetDib") {}

    /// Reads `path`: a file, "<name>rest" with the name looked up in the path aliases
    /// (settings section "Shared/PathAliases"), or a URL (with "://"), which is downloaded
    /// first (readURL, with `progress`, which may be null) and then read as a file.
    [[nodiscard]] Status read(const std::wstring& path, DownloadProgress* progress = nullptr);
    /// Downloads `url` on a worker thread into the download folder and puts the file's path
    /// in `outPath`; meanwhile shows text 10138 and the progress through `progress` (may be
    /// null) and stops when it or the process's stop request says so. True on success; on
    /// failure nothing is left on disk and urlStatus() is -11 (stopped) or -23 (failed).
    bool readURL(const std::wstring& url, std::wstring& outPath, DownloadProgress* progress);

    /// The raster read, null before a successful read.
    const TQL::Handle<Raster>& raster() const { return raster_; }
    const std::wstring& fileName() const { return fileName_; }
    const std::wstring& errorText() const { return errorText_; }
    Status urlStatus() const { return urlStatus_; }

    /// Replaces the path by its alias: "<name>rest" becomes the alias's folder followed by
    /// rest, when the name is known. Anything else comes back as it is.
    static std::wstring resolveAlias(const std::wstring& path);
    /// The folder downloads go to ($XDG_CACHE_HOME/quorvale/downloads, or under ~/.cache).
    static std::wstring downloadFolder();

    // The thumbnail. Any thread.

    /// Stores a thumbnail and the scale it was made at (picture size / thumbnail size).
    void setDib(const TQL::Handle<Raster>& thumb, double scale);
    /// Sets the view to the picture's size over the scale, plus 0.5, cut to an integer, and
    /// draws the thumbnail. False without a thumbnail.
    bool paintThumb(ThumbView& view);
    bool haveThumb();
    void clearThumb();

private:
    std::wstring fileName_;
    std::wstring errorText_;
    TQL::Handle<Raster> raster_;
    Status urlStatus_ = status::ok;

    TqlCriticalSection csThumb_;
    TQL::Handle<Raster> thumb_;
    double thumbScale_ = 1.0;
};

/// Reads a picture held in memory with the reader of the file type `type` (fileType's
/// numbers: 1 BMP, 2 TIFF, 3 JPEG, 4 TGA, 7 PNG). -8 for any other type.
[[nodiscard]] Status readRasterMemory(int type, const std::uint8_t* data, std::size_t size,
                                      Raster& raster, std::wstring& error);

/// A box-filtered copy of `source` whose longer side is at most `maxSide` pixels (the
/// picture itself, shared, when it is that small already); `scale` is set to the source's
/// size over the copy's.
TQL::Handle<Raster> makeThumbnail(const TQL::Handle<Raster>& source, std::int32_t maxSide,
                                  double& scale);

/// One queued job of reading a preview: reads the file on the drawing thread and hands a
/// thumbnail to the RasterImport (setDib). A cancelled job leaves no thumbnail.
class ThumbnailDrawThread : public DrawTask {
public:
    ThumbnailDrawThread(const TQL::Handle<RasterImport>& import, std::wstring path,
                        DrawWindow window, std::int32_t maxSide = 256)
        : import_(import), path_(std::move(path)), window_(window), maxSide_(maxSide) {}

    void drawCancel() override { cancelled_.store(true); }
    bool drawPerform() override;
    DrawWindow drawWindow() const override { return window_; }

    /// The result of the read, once the job has run.
    Status result() const { return result_.load(); }
    bool done() const { return done_.load(); }

private:
    TQL::Handle<RasterImport> import_;
    std::wstring path_;
    DrawWindow window_;
    std::int32_t maxSide_;
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> done_{false};
    std::atomic<Status> result_{status::ok};
};
