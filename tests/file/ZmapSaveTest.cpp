// Safe saving: a save that fails at any point leaves the previous file under its own name,
// and the checks before a save refuse what must not be written.

#include "ZmapTestFiles.h"

#include "core/Reporter.h"
#include "core/Settings.h"
#include "core/StringUtils.h"
#include "file/FileType.h"
#include "file/ZmapDocumentFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <new>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace zmap_test;

namespace {

/// Calls `action` on the n-th report (counting from 1); its result says whether to stop.
class ReportAt : public Reporter {
public:
    ReportAt(int n, std::function<bool()> action) : n_(n), action_(std::move(action)) {}
    ~ReportAt() override = default;
    bool report(unsigned, unsigned, double) override { return ++calls_ == n_ && action_(); }

private:
    int n_;
    int calls_ = 0;
    std::function<bool()> action_;
};

/// Writes beyond `bytes` fail with EFBIG while it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limit = old_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &old_); }

private:
    rlimit old_{};
};

Status save(ZmapDocument& doc, const std::string& path, Reporter* progress = nullptr) {
    Status status = -1;
    saveZmapDocument(status, doc, utf8(path), progress);
    return status;
}

TEST(ZmapSave, FailurePartWayLeavesThePreviousFileUnderItsOwnName) {
    struct Case {
        const char* name;
        std::function<bool()> onReport; ///< at the third report
        bool limitFileSize;
        Status expected;
    };
    const Case cases[] = {
        {"stopped at the third section", [] { return true; }, false, status::stopped},
        {"memory runs out", []() -> bool { throw std::bad_alloc(); }, false, status::outOfMemory},
        {"the encoder gives up",
         []() -> bool { throw TQL::TqlError(L"can't flush overflowing Tif data to Zmap file"); },
         false, status::writeFailed},
        {"the disk refuses to grow the file", [] { return false; }, true, status::writeFailed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::TempDir dir;
        const std::string path = dir.file("scene.zmp");
        auto old = makeSceneDocument(40, 30);
        ASSERT_EQ(save(*old, path), status::ok);
        const Bytes before = readBytes(path);

        auto doc = makeSceneDocument(300, 200);
        ReportAt reporter(3, c.onReport);
        Status status = -1;
        if (c.limitFileSize) {
            const FileSizeLimit limit(before.size() + 4096);
            status = save(*doc, path, &reporter);
        } else {
            status = save(*doc, path, &reporter);
        }
        EXPECT_EQ(status, c.expected);
        EXPECT_TRUE(readBytes(path) == before);
        EXPECT_EQ(dir.entries(), std::vector<std::string>{"scene.zmp"});
    }
}

TEST(ZmapSave, SuccessReplacesTheFileFillsTextsAndDropsTheRenamedOne) {
    MemorySettingsStore settings;
    settings.write(L"Settings", zmapSaveSettings::artistKey, L"Set Artist");
    settings.write(L"Settings", zmapSaveSettings::copyrightKey, L"Set Copyright");
    TQL::setSettingsStore(&settings);
    test::TempDir dir;
    const std::string path = dir.file("scene.zmp");
    auto old = makeSceneDocument(40, 30);
    ASSERT_EQ(save(*old, path), status::ok);

    auto doc = makeSceneDocument(120, 90);
    doc->artist.clear(); // filled from the settings
    doc->compression = 1;
    doc->savedCompression = 5;
    doc->readOnly = doc->fromFile = 1;
    const Status status = save(*doc, path);
    TQL::setSettingsStore(nullptr);
    ASSERT_EQ(status, status::ok);
    EXPECT_EQ(doc->artist, L"Set Artist");
    EXPECT_EQ(doc->copyright, L"\u00a9 2024 Test"); // kept: it wasn't empty
    EXPECT_EQ(doc->savedCompression, 1);
    EXPECT_EQ(doc->readOnly, 0);
    EXPECT_EQ(doc->fromFile, 0);
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"scene.zmp"});
    Status read = -1;
    auto back = readDocument(path, read);
    ASSERT_EQ(read, status::ok);
    expectSameDocument(*doc, *back);
}

TEST(ZmapSave, RefusedTargetsAreLeftAlone) {
    enum Target { none, oldFile, readOnlyFile, directory };
    struct Case {
        const char* name;
        const char* file;
        bool panorama;
        Target target;
        Status expected;
    };
    const Case cases[] = {
        {"flat image as .zmq", "scene.zmq", false, oldFile, status::notPanoramaExtension},
        {"panorama as .zmp", "scene.zmp", true, oldFile, status::panoramaAsFlat},
        {"another known type", "scene.png", false, oldFile, status::wrongExtension},
        {"unknown extension", "scene.xyz", false, oldFile, status::unsupportedVersion},
        {"no extension", "scene", false, none, status::unsupportedVersion},
        // The check is on the mode bits, like a read-only attribute, so it holds even for
        // root, whom chmod doesn't stop from writing.
        {"read-only target", "scene.zmp", false, readOnlyFile, status::readOnly},
        {"directory of that name", "scene.zmp", false, directory, status::badName},
        {"panorama as .zmq", "scene.zmq", true, oldFile, status::ok},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::TempDir dir;
        const std::string path = dir.file(c.file);
        const Bytes before = {'o', 'l', 'd'};
        if (c.target == directory) {
            std::filesystem::create_directory(path);
        } else if (c.target != none) {
            writeBytes(path, before);
        }
        if (c.target == readOnlyFile) {
            ::chmod(path.c_str(), 0444);
        }
        auto doc = makeSceneDocument(12, 8, c.panorama);
        EXPECT_EQ(save(*doc, path), c.expected);
        if (c.expected != status::ok && c.target != directory && c.target != none) {
            EXPECT_TRUE(readBytes(path) == before);
        }
        EXPECT_EQ(dir.entries().size(), c.target == none ? 0u : 1u);
    }
    // A cube view code always means a panorama record, which needs six square faces side
    // by side: any other shape is refused rather than written into a file that can't be
    // opened again.
    test::TempDir dir;
    const std::string path = dir.file("odd.zmq");
    writeBytes(path, {'o', 'l', 'd'});
    auto doc = makeSceneDocument(12, 8, false);
    ViewParams view = doc->viewParams();
    view.viewCode = ViewParams::cubicCode;
    doc->setViewParams(view);
    EXPECT_EQ(save(*doc, path), status::noConversion);
    EXPECT_TRUE(readBytes(path) == (Bytes{'o', 'l', 'd'}));
    EXPECT_EQ(dir.entries().size(), 1u);
}

TEST(ZmapSave, FileTypeByExtension) {
    const std::pair<const wchar_t*, int> cases[] = {
        {L"a.bmp", 1},  {L"a.DIB", 1},  {L"a.tif", 2},  {L"a.Tiff", 2},    {L"a.jpg", 3},
        {L"a.jpe", 3},  {L"a.jpeg", 3}, {L"a.tga", 4},  {L"a.pct", 5},     {L"a.pic", 5},
        {L"a.pict", 5}, {L"a.zmp", 6},  {L"a.png", 7},  {L"a.rpc", 8},     {L"/x.y/a.ZMQ", 9},
        {L"a.mov", 10}, {L"a.3ds", 11}, {L"a.dxf", 12}, {L"a.man", 13},    {L"a.thf", 14},
        {L"a.skp", 15}, {L"a.~zm", 0},  {L"a", 0},      {L"a.zmp.bak", 0}, {L"x.zmp/a", 0},
        {L".zmp", 0},   {L"a.", 0},     {L"a.zmpx", 0},
    };
    for (const auto& [path, type] : cases) {
        EXPECT_EQ(fileType(path), type) << utf8(path);
    }
}

} // namespace
