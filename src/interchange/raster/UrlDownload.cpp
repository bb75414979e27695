#include "interchange/raster/UrlDownload.h"

#include "core/FilePath.h"
#include "core/StringUtils.h"
#include "core/ThreadName.h"

#include <chrono>
#include <cstdio>
#include <curl/curl.h>
#include <unistd.h>

namespace {

struct CurlGlobal {
    CurlGlobal() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~CurlGlobal() { curl_global_cleanup(); }
};

std::size_t writeBody(char* data, std::size_t size, std::size_t count, void* file) {
    return std::fwrite(data, size, count, static_cast<std::FILE*>(file)) * size;
}

} // namespace

UrlDownload::UrlDownload(std::wstring url, std::wstring target)
    : csRequest_(L"RasterImport::readURL"), url_(std::move(url)), target_(std::move(target)) {
    static CurlGlobal global; // before any worker runs: curl_global_init isn't thread-safe
}

UrlDownload::~UrlDownload() {
    if (worker_.joinable()) {
        stop();
        worker_.join();
    }
}

void UrlDownload::start() {
    worker_ = std::thread([this] { run(); });
}

bool UrlDownload::waitFor(int milliseconds) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!finished_.load()) {
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (worker_.joinable()) {
        worker_.join();
    }
    return true;
}

Status UrlDownload::status() {
    TqlSimpleLock lock(csRequest_, L"RasterImport::readURL");
    return status_;
}

std::wstring UrlDownload::error() {
    TqlSimpleLock lock(csRequest_, L"RasterImport::readURL");
    return error_;
}

void UrlDownload::progress(std::uint64_t& received, std::uint64_t& total) {
    TqlSimpleLock lock(csRequest_, L"RasterImport::readURL");
    received = received_;
    total = total_;
}

int UrlDownload::onProgress(void* self, long long total, long long received, long long, long long) {
    auto* d = static_cast<UrlDownload*>(self);
    {
        TqlSimpleLock lock(d->csRequest_, L"URLWorkerThreadProc");
        d->received_ = received > 0 ? std::uint64_t(received) : 0;
        d->total_ = total > 0 ? std::uint64_t(total) : 0;
    }
    return d->stop_.load() ? 1 : 0; // non-zero aborts the transfer
}

void UrlDownload::run() {
    TQL::setThreadName("url download");
    std::string url;
    std::wstring target;
    {
        TqlSimpleLock lock(csRequest_, L"URLWorkerThreadProc");
        url = utf8(url_);
        target = target_;
    }
    const std::wstring partial = target + L".part";
    Status result = status::ok;
    std::wstring error;
    std::FILE* file = TQL::fileOpen(partial, "wb");
    if (!file) {
        result = -23;
        error = L"The download can't be written to " + partial;
    } else {
        CURL* curl = curl_easy_init();
        char message[CURL_ERROR_SIZE] = "";
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, file);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, onProgress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
        curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, message);
        curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https,ftp,ftps,file");
        const CURLcode code = curl_easy_perform(curl);
        curl_easy_cleanup(curl);
        const bool closed = std::fclose(file) == 0;
        if (code == CURLE_ABORTED_BY_CALLBACK) {
            result = status::stopped;
            error = L"The download was stopped";
        } else if (code != CURLE_OK || !closed) {
            result = -23;
            error = getWCS(message[0] ? message : curl_easy_strerror(code));
        } else if (std::rename(utf8(partial).c_str(), utf8(target).c_str()) != 0) {
            result = -23;
            error = L"The download can't be moved to " + target;
        }
        if (result != status::ok) {
            ::unlink(utf8(partial).c_str());
        }
    }
    {
        TqlSimpleLock lock(csRequest_, L"URLWorkerThreadProc");
        status_ = result;
        error_ = error;
    }
    finished_.store(true);
}
