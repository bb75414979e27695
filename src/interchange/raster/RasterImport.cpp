#include "interchange/raster/RasterImport.h"

#include "core/FilePath.h"
#include "core/MappedFile.h"
#include "core/Reporter.h"
#include "core/Settings.h"
#include "core/StringUtils.h"
#include "file/FileType.h"
#include "interchange/raster/BMPReader.h"
#include "interchange/raster/JPEGReader.h"
#include "interchange/raster/PNGReader.h"
#include "interchange/raster/TGAReader.h"
#include "interchange/raster/TIFFReader.h"
#include "interchange/raster/UrlDownload.h"
#include "interchange/raster/ZmapRasterReader.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <sys/stat.h>

namespace {

const wchar_t* const aliasSection = L"Shared/PathAliases";

/// The last path segment of a URL without its query, made safe as a file name.
std::wstring downloadName(const std::wstring& url) {
    std::wstring path = url.substr(url.find(L"://") + 3);
    path = path.substr(0, path.find_first_of(L"?#"));
    const std::size_t slash = path.find_last_of(L'/');
    std::wstring name = slash == std::wstring::npos ? std::wstring() : path.substr(slash + 1);
    for (wchar_t& c : name) {
        if (c == L'\\' || c == L':' || c < 32) {
            c = L'_';
        }
    }
    if (name.empty() || name == L"." || name == L"..") {
        name = L"download";
    }
    return name;
}

bool makeFolders(const std::string& path) {
    for (std::size_t at = 1; at <= path.size(); ++at) {
        if (at == path.size() || path[at] == '/') {
            const std::string part = path.substr(0, at);
            if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

Status readRasterMemory(int type, const std::uint8_t* data, std::size_t size, Raster& raster,
                        std::wstring& error) {
    try {
        switch (type) {
        case fileTypeBmp:
            return BMPReader::read(data, size, raster, error);
        case fileTypeTga:
            return TGAReader::read(data, size, raster, error);
        case fileTypeTiff:
            return TIFFReader::read(data, size, raster, error);
        case fileTypeJpeg:
            return JPEGReader::read(data, size, raster, error);
        case fileTypePng:
            return PNGReader::read(data, size, raster, error);
        default:
            break;
        }
    } catch (const std::bad_alloc&) {
        raster.clear();
        error = L"Not enough memory for the picture";
        return status::outOfMemory;
    }
    error = L"This type of file is not a picture that can be read";
    return status::unsupportedCompression;
}

std::wstring RasterImport::resolveAlias(const std::wstring& path) {
    if (path.empty() || path[0] != L'<') {
        return path;
    }
    const std::size_t close = path.find(L'>');
    if (close == std::wstring::npos) {
        return path; // "<" without ">" is a plain path
    }
    const std::wstring name = path.substr(1, close - 1);
    const auto folder = TQL::settingsStore().read(aliasSection, name);
    if (!folder) {
        return path;
    }
    std::wstring rest = path.substr(close + 1);
    std::wstring base = *folder;
    if (!base.empty() && base.back() == L'/' && !rest.empty() && rest.front() == L'/') {
        rest.erase(0, 1);
    } else if (!base.empty() && base.back() != L'/' && !rest.empty() && rest.front() != L'/') {
        base += L'/';
    }
    return base + rest;
}

std::wstring RasterImport::downloadFolder() {
    std::string base;
    if (const char* cache = std::getenv("XDG_CACHE_HOME"); cache && *cache) {
        base = cache;
    } else if (const char* home = std::getenv("HOME"); home && *home) {
        base = std::string(home) + "/.cache";
    } else {
        base = "/tmp";
    }
    return utf8(base + "/quorvale/downloads");
}

bool RasterImport::readURL(const std::wstring& url, std::wstring& outPath,
                           DownloadProgress* progress) {
    outPath.clear();
    const std::wstring folder = downloadFolder();
    if (!makeFolders(utf8(folder))) {
        urlStatus_ = rasterStatus::couldNotOpen;
        errorText_ = L"The download folder " + folder + L" can't be made";
        return false;
    }
    const std::wstring target = folder + L"/" + downloadName(url);
    UrlDownload download(url, target);
    if (progress) {
        progress->statusText(stringPrintf(TQL::loadString(textDownloading).empty()
                                              ? L"Downloading %ls"
                                              : TQL::loadString(textDownloading).c_str(),
                                          url.c_str()));
    }
    std::wstring label = TQL::loadString(labelDownload);
    if (label.empty()) {
        label = L"Download";
    }
    download.start();
    // The calling thread stays responsive: it shows progress and lets its events through
    // until the worker is done, and shows the final count once more at the end.
    auto show = [&]() {
        bool stop = TQL::stopRequested();
        if (progress) {
            progress->pump();
            std::uint64_t received = 0;
            std::uint64_t total = 0;
            download.progress(received, total);
            stop = progress->progress(received, total, label) || stop;
        }
        return stop;
    };
    do {
        if (show()) {
            download.stop();
        }
    } while (!download.waitFor(50));
    show();
    urlStatus_ = download.status();
    if (urlStatus_ != status::ok) {
        errorText_ = url + L": " + download.error();
        return false;
    }
    outPath = target;
    return true;
}

Status RasterImport::read(const std::wstring& pathIn, DownloadProgress* progress) {
    raster_.reset();
    errorText_.clear();
    std::wstring path = resolveAlias(pathIn);
    if (path.find(L"://") != std::wstring::npos) {
        std::wstring local;
        if (!readURL(path, local, progress)) {
            return urlStatus_;
        }
        path = local;
    }
    fileName_ = path;
    std::wstring name;
    getDirectory(path, name);
    auto fail = [&](Status s, const std::wstring& why) {
        errorText_ = name + L": " + why;
        return s;
    };
    const int type = fileType(path);
    switch (type) {
    case fileTypePict:
    case fileTypeMov:
        return fail(status::unsupportedCompression,
                    L"PICT pictures and QuickTime movies are not supported");
    case fileTypeRpc:
        return fail(status::unsupportedCompression, L"RPC objects are not supported");
    case fileType3ds:
    case fileTypeDxf:
    case fileTypeMan:
    case fileTypeThf:
    case fileTypeSkp:
        return fail(status::unsupportedCompression,
                    L"this is a model, not a picture: make a new image from it instead");
    case fileTypeUnknown:
        return fail(status::unsupportedCompression, L"the type of this file is not known");
    default:
        break;
    }
    auto raster = TQL::makeHandle<Raster>();
    std::wstring why;
    Status s;
    if (type == fileTypeZmp || type == fileTypeZmq) {
        struct stat info;
        if (::stat(utf8(path).c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
            return fail(rasterStatus::couldNotOpen, L"the file can't be opened");
        }
        s = ZmapRasterReader::read(path, *raster, why);
    } else {
        TQL::MappedFile file;
        if (file.open(path) != status::ok) {
            return fail(rasterStatus::couldNotOpen, L"the file can't be opened");
        }
        s = readRasterMemory(type, file.data(), file.size(), *raster, why);
    }
    if (s != status::ok) {
        return fail(s, why.empty() ? statusText(s) : why);
    }
    raster_ = raster;
    return status::ok;
}

void RasterImport::setDib(const TQL::Handle<Raster>& thumb, double scale) {
    TqlSimpleLock lock(csThumb_, L"RasterImport::SetDib");
    thumb_ = thumb;
    thumbScale_ = scale;
}

bool RasterImport::paintThumb(ThumbView& view) {
    TQL::Handle<Raster> thumb;
    double scale;
    {
        TqlSimpleLock lock(csThumb_, L"RasterImport::PaintThumbImage");
        thumb = thumb_;
        scale = thumbScale_;
    }
    if (!thumb) {
        return false;
    }
    // The thumbnail is never written once stored: holding its handle is enough to draw it.
    view.setPreviewSize(static_cast<std::int32_t>(thumb->width * scale + 0.5),
                        static_cast<std::int32_t>(thumb->height * scale + 0.5));
    view.drawThumb(thumb->colour.data(), thumb->width, thumb->height, thumb->stride());
    return true;
}

bool RasterImport::haveThumb() {
    TqlSimpleLock lock(csThumb_, L"RasterImport::HaveThumbImage");
    return bool(thumb_);
}

void RasterImport::clearThumb() {
    TqlSimpleLock lock(csThumb_, L"RasterImport::ClearThumbImage");
    thumb_.reset();
    thumbScale_ = 1.0;
}

TQL::Handle<Raster> makeThumbnail(const TQL::Handle<Raster>& source, std::int32_t maxSide,
                                  double& scale) {
    const Raster& s = *source;
    const std::int32_t longer = std::max(s.width, s.height);
    if (longer <= maxSide) {
        scale = 1.0;
        return source;
    }
    scale = double(longer) / maxSide;
    const std::int32_t w = std::max(1, static_cast<std::int32_t>(s.width / scale));
    const std::int32_t h = std::max(1, static_cast<std::int32_t>(s.height / scale));
    auto thumb = TQL::makeHandle<Raster>();
    std::wstring error;
    if (thumb->allocate(w, h, false, error) != status::ok) {
        return nullptr;
    }
    // Each thumbnail pixel is the mean of the source pixels it covers.
    for (std::int32_t ty = 0; ty < h; ++ty) {
        const std::int32_t y0 = static_cast<std::int32_t>(std::int64_t(ty) * s.height / h);
        const std::int32_t y1 =
            std::max(y0 + 1, static_cast<std::int32_t>(std::int64_t(ty + 1) * s.height / h));
        std::uint8_t* out = thumb->row(ty);
        for (std::int32_t tx = 0; tx < w; ++tx, out += 3) {
            const std::int32_t x0 = static_cast<std::int32_t>(std::int64_t(tx) * s.width / w);
            const std::int32_t x1 =
                std::max(x0 + 1, static_cast<std::int32_t>(std::int64_t(tx + 1) * s.width / w));
            std::uint64_t sum[3] = {0, 0, 0};
            for (std::int32_t y = y0; y < y1; ++y) {
                const std::uint8_t* in = s.row(y) + std::size_t(x0) * 3;
                for (std::int32_t x = x0; x < x1; ++x, in += 3) {
                    sum[0] += in[0];
                    sum[1] += in[1];
                    sum[2] += in[2];
                }
            }
            const std::uint64_t n = std::uint64_t(y1 - y0) * std::uint64_t(x1 - x0);
            for (int c = 0; c < 3; ++c) {
                out[c] = std::uint8_t((sum[c] + n / 2) / n);
            }
        }
    }
    return thumb;
}

bool ThumbnailDrawThread::drawPerform() {
    if (!cancelled_.load()) {
        RasterImport reader;
        const Status s = reader.read(path_);
        result_.store(s);
        if (s == status::ok && !cancelled_.load()) {
            double scale = 1.0;
            TQL::Handle<Raster> thumb = makeThumbnail(reader.raster(), maxSide_, scale);
            if (thumb && !cancelled_.load()) {
                import_->setDib(thumb, scale);
            }
        }
    }
    done_.store(true);
    return true;
}
