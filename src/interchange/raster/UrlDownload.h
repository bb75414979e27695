#pragma once

#include "core/Status.h"
#include "core/TqlCriticalSection.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

/// One download of a URL into a file, by libcurl on a worker thread made for it. The
/// request record (URL, target, status, bytes received and expected, the stop flag) is
/// shared with the worker and guarded by the lock "RasterImport::readURL", which the worker
/// takes as "URLWorkerThreadProc".
///
/// The file is written under a temporary name beside the target and renamed when the whole
/// body has arrived; a failed or stopped download removes it, so nothing is left on disk.
class UrlDownload {
public:
    UrlDownload(std::wstring url, std::wstring target);
    ~UrlDownload();
    UrlDownload(const UrlDownload&) = delete;
    UrlDownload& operator=(const UrlDownload&) = delete;

    /// Starts the worker.
    void start();
    /// Asks the worker to stop; it ends the transfer at its next progress call.
    void stop() { stop_.store(true); }
    /// True once the worker has finished (then status() is final).
    bool finished() const { return finished_.load(); }
    /// Waits up to `milliseconds` for the worker to finish; true if it has.
    bool waitFor(int milliseconds);

    /// 0 done, -11 stopped, -23 any other failure (no connection, an HTTP error status, a
    /// file that can't be written); `error` says which.
    Status status();
    std::wstring error();
    void progress(std::uint64_t& received, std::uint64_t& total);

private:
    static int onProgress(void* self, long long total, long long received, long long, long long);
    void run();

    TqlCriticalSection csRequest_;
    std::wstring url_;
    std::wstring target_;
    Status status_ = status::ok;
    std::wstring error_;
    std::uint64_t received_ = 0;
    std::uint64_t total_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<bool> finished_{false};
    std::thread worker_;
};
