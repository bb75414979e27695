// Pictures named by URL, served by a tiny HTTP server on 127.0.0.1 inside the test.
#include "PictureFiles.h"

#include "core/StringUtils.h"
#include "interchange/raster/RasterImport.h"
#include "support/TempDir.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

/// Serves one body to every GET, in pieces with a pause between them (so a download
/// takes a while and can be stopped).
class TinyServer {
public:
    TinyServer(pictures::Bytes body, int pauseMs) : body_(std::move(body)), pauseMs_(pauseMs) {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t length = sizeof address;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        ::listen(listener_, 4);
        thread_ = std::thread([this] { serve(); });
    }
    ~TinyServer() {
        stop_ = true;
        ::shutdown(listener_, SHUT_RDWR);
        ::close(listener_);
        thread_.join();
    }
    std::string url(const std::string& name) const {
        return "http://127.0.0.1:" + std::to_string(port_) + "/pictures/" + name;
    }

private:
    void serve() {
        while (!stop_) {
            const int client = ::accept(listener_, nullptr, nullptr);
            if (client < 0) {
                return;
            }
            char request[2048];
            (void)::recv(client, request, sizeof request, 0);
            const std::string head =
                "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body_.size()) +
                "\r\nConnection: close\r\n\r\n";
            bool ok = ::send(client, head.data(), head.size(), MSG_NOSIGNAL) > 0;
            for (std::size_t at = 0; ok && at < body_.size() && !stop_; at += 4096) {
                const std::size_t n = std::min<std::size_t>(4096, body_.size() - at);
                ok = ::send(client, body_.data() + at, n, MSG_NOSIGNAL) > 0;
                std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs_));
            }
            ::close(client);
        }
    }

    pictures::Bytes body_;
    int pauseMs_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

class RecordingProgress : public DownloadProgress {
public:
    explicit RecordingProgress(std::uint64_t stopAfter) : stopAfter_(stopAfter) {}
    void statusText(const std::wstring& text) override { status = text; }
    bool progress(std::uint64_t received, std::uint64_t total, const std::wstring&) override {
        ++calls;
        lastReceived = received;
        lastTotal = total;
        return received >= stopAfter_;
    }
    void pump() override { ++pumps; }
    std::wstring status;
    int calls = 0;
    int pumps = 0;
    std::uint64_t lastReceived = 0;
    std::uint64_t lastTotal = 0;

private:
    std::uint64_t stopAfter_;
};

TEST(UrlImport, DownloadsWithProgressAndReadsThePicture) {
    test::TempDir cache;
    ::setenv("XDG_CACHE_HOME", cache.path().c_str(), 1);
    const pictures::Rgba p = pictures::pattern(120, 90, false);
    TinyServer server(pictures::bmp24(p), 5);
    RecordingProgress progress(~std::uint64_t(0));
    RasterImport import;
    ASSERT_EQ(import.read(utf8(server.url("tree.bmp?size=big")), &progress), status::ok)
        << utf8(import.errorText());
    ASSERT_TRUE(import.raster());
    EXPECT_EQ(import.raster()->width, 120);
    EXPECT_EQ(import.raster()->row(89)[0], p.at(0, 89)[2]);
    EXPECT_NE(progress.status.find(utf8(server.url("tree.bmp"))), std::wstring::npos);
    EXPECT_GT(progress.calls, 0);
    EXPECT_GT(progress.pumps, 0);
    EXPECT_EQ(progress.lastTotal, pictures::bmp24(p).size());
    EXPECT_EQ(import.fileName(), RasterImport::downloadFolder() + L"/tree.bmp");
    ::unsetenv("XDG_CACHE_HOME");
}

TEST(UrlImport, StoppedDownloadGivesCancelledAndNoFile) {
    test::TempDir cache;
    ::setenv("XDG_CACHE_HOME", cache.path().c_str(), 1);
    TinyServer server(pictures::bmp24(pictures::pattern(300, 300, false)), 20);
    RecordingProgress progress(8192);
    RasterImport import;
    EXPECT_EQ(import.read(utf8(server.url("slow.bmp")), &progress), status::stopped);
    EXPECT_FALSE(import.raster());
    EXPECT_EQ(import.urlStatus(), status::stopped);
    const std::filesystem::path folder(utf8(RasterImport::downloadFolder()));
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << "no file, not even a partial one";

    // Nobody listens on a closed port: -23.
    EXPECT_EQ(import.read(utf8("http://127.0.0.1:1/x.bmp")), -23);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    ::unsetenv("XDG_CACHE_HOME");
}

} // namespace
