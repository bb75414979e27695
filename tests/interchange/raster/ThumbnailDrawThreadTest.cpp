// Thumbnails read on the drawing thread and painted on the interface thread.
#include "PictureFiles.h"

#include "core/DrawThread.h"
#include "core/StringUtils.h"
#include "interchange/raster/RasterImport.h"
#include "support/TempDir.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

using pictures::Rgba;

namespace {

std::wstring wide(const std::string& s) {
    return utf8(s);
}

/// Records what the preview window was told.
class RecordingThumbView : public ThumbView {
public:
    void setPreviewSize(std::int32_t w, std::int32_t h) override { width = w, height = h; }
    void drawThumb(const std::uint8_t* bgr, std::int32_t w, std::int32_t h,
                   std::size_t stride) override {
        thumbWidth = w, thumbHeight = h;
        first.assign(bgr, bgr + 3);
        last.assign(bgr + (h - 1) * stride + (w - 1) * 3, bgr + (h - 1) * stride + w * 3);
    }
    std::int32_t width = 0, height = 0, thumbWidth = 0, thumbHeight = 0;
    std::vector<std::uint8_t> first, last;
};

class PatientFinish : public DrawThread::FinishWaiter {
public:
    bool poll() const override { return true; }
};

/// A 300 x 150 picture of one colour (blue 50, green 100, red 200).
std::string plainPicture(const test::TempDir& dir, const std::string& name) {
    Rgba p = pictures::pattern(300, 150, false);
    for (std::size_t i = 0; i < p.pixels.size(); i += 4) {
        p.pixels[i] = 200, p.pixels[i + 1] = 100, p.pixels[i + 2] = 50;
    }
    pictures::writeFile(dir.file(name), pictures::writePng(p, {}));
    return dir.file(name);
}

TEST(ThumbnailDrawThread, JobOnTheDrawingThreadSetsTheThumbnail) {
    test::TempDir dir;
    const std::string file = plainPicture(dir, "big.png");
    auto import = TQL::makeHandle<RasterImport>();
    EXPECT_FALSE(import->haveThumb());
    DrawThread thread;
    int window = 0;
    ThumbnailDrawThread job(import, wide(file), &window, 100);
    thread.insert(job);
    ASSERT_TRUE(thread.finish(PatientFinish()));
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.result(), status::ok);
    ASSERT_TRUE(import->haveThumb());
    RecordingThumbView view;
    ASSERT_TRUE(import->paintThumb(view));
    EXPECT_EQ(view.thumbWidth, 100);
    EXPECT_EQ(view.thumbHeight, 50);
    EXPECT_EQ(view.width, 300); // the picture's size: thumbnail size times its scale
    EXPECT_EQ(view.height, 150);
    EXPECT_EQ(view.first, (std::vector<std::uint8_t>{50, 100, 200}));
    EXPECT_EQ(view.last, (std::vector<std::uint8_t>{50, 100, 200}));
    import->clearThumb();
    EXPECT_FALSE(import->haveThumb());
    EXPECT_FALSE(import->paintThumb(view));
}

TEST(ThumbnailDrawThread, CancelledJobLeavesNoThumbnail) {
    test::TempDir dir;
    pictures::writeFile(dir.file("a.bmp"), pictures::bmp24(pictures::pattern(8, 8, false)));
    auto import = TQL::makeHandle<RasterImport>();
    ThumbnailDrawThread job(import, wide(dir.file("a.bmp")), nullptr);
    job.drawCancel();
    EXPECT_TRUE(job.drawPerform());
    EXPECT_FALSE(import->haveThumb());

    // Cancelled through the drawing thread while queued or running: once cancel returns the
    // job no longer runs, and a job that did not finish left no thumbnail.
    DrawThread thread;
    int window = 0;
    const std::string big = plainPicture(dir, "big.png");
    ThumbnailDrawThread queued(import, wide(big), &window, 64);
    thread.insert(queued);
    struct NoPoll : DrawThread::PollingWaiter {
        void poll() const override {}
    };
    thread.cancel(&window, NoPoll());
    const bool doneAtCancel = queued.done();
    const bool thumbAtCancel = import->haveThumb();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(queued.done(), doneAtCancel);
    EXPECT_EQ(import->haveThumb(), thumbAtCancel);
    if (!doneAtCancel) {
        EXPECT_FALSE(thumbAtCancel);
    }
    ASSERT_TRUE(thread.finish(PatientFinish()));
}

// The interface thread paints, asks and clears while the drawing thread stores thumbnails of
// two pictures of different sizes: every painted thumbnail comes with its own scale, never
// another's, and nothing is read while it is written.
TEST(ThumbnailDrawThread, PaintingWhileJobsStoreThumbnails) {
    test::TempDir dir;
    const std::string wideFile = plainPicture(dir, "wide.png");
    Rgba tall = pictures::pattern(90, 270, false);
    pictures::writeFile(dir.file("tall.png"), pictures::writePng(tall, {}));
    auto import = TQL::makeHandle<RasterImport>();
    DrawThread thread;
    constexpr int jobs = 24;
    std::vector<int> windows(jobs);
    std::vector<std::unique_ptr<ThumbnailDrawThread>> queued;
    for (int i = 0; i < jobs; ++i) {
        queued.push_back(std::make_unique<ThumbnailDrawThread>(
            import, wide(i % 2 ? dir.file("tall.png") : wideFile), &windows[std::size_t(i)], 60));
        thread.insert(*queued.back());
    }
    int painted = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (thread.busy() && std::chrono::steady_clock::now() < until) {
        RecordingThumbView view;
        if (import->paintThumb(view)) {
            ++painted;
            const bool wideOne = view.thumbWidth == 60 && view.thumbHeight == 30 &&
                                 view.width == 300 && view.height == 150;
            const bool tallOne = view.thumbWidth == 20 && view.thumbHeight == 60 &&
                                 view.width == 90 && view.height == 270;
            ASSERT_TRUE(wideOne || tallOne) << view.thumbWidth << "x" << view.thumbHeight
                                            << " shown at " << view.width << "x" << view.height;
        }
        if (import->haveThumb() && painted % 3 == 0) {
            import->clearThumb();
        }
    }
    ASSERT_TRUE(thread.finish(PatientFinish()));
    for (const auto& job : queued) {
        EXPECT_TRUE(job->done());
        EXPECT_EQ(job->result(), status::ok);
    }
}

} // namespace
