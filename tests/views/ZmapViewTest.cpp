#include "views/ZmapView.h"

#include "image/DocumentViews.h"
#include "image/ZmapDocument.h"
#include "views/ViewTestScene.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;

/// A window that records what the view posts; it can hold the drawing thread at its first
/// post, as a slow screen can't, to let a cancel arrive in the middle of a walk.
class RecordingWindow : public ViewWindow {
public:
    void postInvalidate(const IExtent<2>& storeRect) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            posts_.push_back(storeRect);
        }
        if (holdAtPost.load() > 0 && holdAtPost.fetch_sub(1) == 1) {
            held.store(true);
            while (!release.load()) {
                std::this_thread::sleep_for(1ms);
            }
        }
    }
    void invalidateWindow() override { ++windowInvalidations; }
    void scrollSizesChanged() override { ++scrollChanges; }

    std::vector<IExtent<2>> posts() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return posts_;
    }
    void clearPosts() {
        std::lock_guard<std::mutex> lock(mutex_);
        posts_.clear();
    }

    /// Hold the drawing thread at this post from now (1 for the next); 0 for never.
    std::atomic<int> holdAtPost{0};
    std::atomic<bool> held{false};
    std::atomic<bool> release{false};
    int windowInvalidations = 0;
    int scrollChanges = 0;

private:
    mutable std::mutex mutex_;
    std::vector<IExtent<2>> posts_;
};

class PatientFinish : public DrawThread::FinishWaiter {
public:
    bool poll() const override { return true; }
};

/// Lets the held drawing thread go once the cancel has asked the view to stop.
class ReleasingWaiter : public DrawThread::PollingWaiter {
public:
    explicit ReleasingWaiter(RecordingWindow& window) : window_(window) {}
    void poll() const override {
        window_.release.store(true);
        std::this_thread::sleep_for(1ms);
    }

private:
    RecordingWindow& window_;
};

/// Keeps the drawing thread busy until told to finish.
class BlockingTask : public DrawTask {
public:
    void drawCancel() override { go.store(true); }
    bool drawPerform() override {
        running.store(true);
        while (!go.load()) {
            std::this_thread::sleep_for(1ms);
        }
        return true;
    }
    DrawWindow drawWindow() const override { return this; }
    std::atomic<bool> go{false};
    std::atomic<bool> running{false};
};

class ZmapViewTest : public testing::Test {
protected:
    void SetUp() override {
        doc = test::makeViewScene(300, 200);
        view = std::make_unique<ZmapView>(*doc, thread, window);
    }
    void TearDown() override { view.reset(); }

    void waitForDrawing() { ASSERT_TRUE(thread.finish(PatientFinish())); }

    /// The store equals displayPixel of the pixel each store pixel shows, over `store`.
    void expectStoreShowsDisplayPixels(const IExtent<2>& store) {
        const ViewMapping m = view->mapping();
        ZmapView::StoreAccess access(*view, L"ZmapViewTest");
        ASSERT_NE(access.store(), nullptr);
        ASSERT_EQ(access.store()->width(), m.zoomedSize().x);
        ASSERT_EQ(access.store()->height(), m.zoomedSize().y);
        for (std::int32_t v = store.lo().y; v <= store.hi().y; ++v) {
            for (std::int32_t u = store.lo().x; u <= store.hi().x; ++u) {
                ASSERT_EQ(
                    access.store()->pixel(0, u, v),
                    displayPixel(*doc, m.storeToImage(u), m.storeToImage(v), view->shownChannel()))
                    << "store " << u << "," << v;
            }
        }
    }
    std::int64_t storeMismatches() {
        const ViewMapping m = view->mapping();
        ZmapView::StoreAccess access(*view, L"ZmapViewTest");
        std::int64_t n = 0;
        for (std::int32_t v = 0; v < m.zoomedSize().y; ++v) {
            for (std::int32_t u = 0; u < m.zoomedSize().x; ++u) {
                n += access.store()->pixel(0, u, v) !=
                     displayPixel(*doc, m.storeToImage(u), m.storeToImage(v), view->shownChannel());
            }
        }
        return n;
    }

    DrawThread thread;
    RecordingWindow window;
    std::unique_ptr<test::TestDocument> doc;
    std::unique_ptr<ZmapView> view;
};

TEST_F(ZmapViewTest, TheStoreAtOneToOneAndOneToFourEqualsDisplayPixel) {
    view->OnInitialUpdate(400, 300, false);
    waitForDrawing();
    expectStoreShowsDisplayPixels(IExtent<2>(0, 0, 299, 199));
    EXPECT_EQ(view->updateExtent(), IExtent<2>());

    window.windowInvalidations = 0;
    view->setZoom(1, 4);
    EXPECT_EQ(window.windowInvalidations, 1);
    waitForDrawing();
    expectStoreShowsDisplayPixels(IExtent<2>(0, 0, 74, 49));

    view->setShownChannel(channelMat);
    waitForDrawing();
    expectStoreShowsDisplayPixels(IExtent<2>(0, 0, 74, 49));
}

// A painted pixel reaches the store through the update extent, at 1:1 and zoomed in, and the
// window is told about the store pixels that show it and no others.
TEST_F(ZmapViewTest, AChangedPixelReachesTheStoreAndTheWindow) {
    for (const std::int32_t zoom : {1, 3}) {
        SCOPED_TRACE(zoom);
        view->OnInitialUpdate(400, 300, false);
        view->setZoom(zoom, 1);
        waitForDrawing();
        window.clearPosts();
        TileHandle hold;
        *doc->rgbWrite(150, 100, hold) = ColourPOD{1, 2, 250};
        hold.reset();
        view->invalidateImage(IExtent<2>(150, 100, 150, 100));
        waitForDrawing();
        expectStoreShowsDisplayPixels(IExtent<2>(150 * zoom - 2, 100 * zoom - 2,
                                                 150 * zoom + zoom + 1, 100 * zoom + zoom + 1));
        const auto posts = window.posts();
        ASSERT_EQ(posts.size(), 1u);
        EXPECT_LE(IExtent<2>(150 * zoom, 100 * zoom, 150 * zoom + zoom - 1, 100 * zoom + zoom - 1),
                  posts[0]);
    }
}

TEST_F(ZmapViewTest, QueueRedrawTwiceBeforeTheThreadRunsDrawsOnce) {
    view->OnInitialUpdate(400, 300, false);
    waitForDrawing();
    window.clearPosts();

    BlockingTask blocker;
    thread.insert(blocker);
    while (!blocker.running.load()) {
        std::this_thread::sleep_for(1ms);
    }
    view->addToUpdateExtent(IExtent<2>(10, 10, 20, 20)); // inside one tile
    view->QueueRedraw();
    view->addToUpdateExtent(IExtent<2>(30, 30, 40, 40));
    view->QueueRedraw();
    EXPECT_TRUE(view->redrawQueued());
    blocker.go.store(true);
    waitForDrawing();
    const auto posts = window.posts();
    ASSERT_EQ(posts.size(), 1u) << "one walk of one tile";
    EXPECT_EQ(posts[0], IExtent<2>(10, 10, 40, 40));
    EXPECT_FALSE(view->redrawQueued());

    // ClearQueuedRedraw forgets a queued redraw before the thread runs it.
    blocker.go.store(false);
    blocker.running.store(false);
    thread.insert(blocker);
    while (!blocker.running.load()) {
        std::this_thread::sleep_for(1ms);
    }
    window.clearPosts();
    view->invalidateImage(IExtent<2>(0, 0, 5, 5));
    view->ClearQueuedRedraw();
    blocker.go.store(true);
    waitForDrawing();
    EXPECT_TRUE(window.posts().empty());
    EXPECT_EQ(view->updateExtent(), IExtent<2>(0, 0, 5, 5)) << "the pixels still wait";
}

/// The zoom, and the post at which the walk is held.
class ZmapViewCancel : public ZmapViewTest,
                       public testing::WithParamInterface<std::pair<int, int>> {};

// A cancel in the middle of a walk stops it; what wasn't drawn stays in the update extent
// and is drawn when the view is handed to the thread again.
TEST_P(ZmapViewCancel, ACancelDuringAWalkKeepsTheRestForLater) {
    view->OnInitialUpdate(400, 300, false);
    view->setZoom(GetParam().first, 1);
    waitForDrawing();
    // Change every pixel, then redraw everything, holding the thread at its first post.
    TileHandle hold;
    for (std::int32_t y = 0; y < 200; ++y) {
        for (std::int32_t x = 0; x < 300; ++x) {
            *doc->rgbWrite(x, y, hold) =
                ColourPOD{static_cast<std::uint8_t>(x), 7, static_cast<std::uint8_t>(y)};
        }
    }
    hold.reset();
    window.release.store(false);
    window.holdAtPost.store(GetParam().second);
    view->invalidateImage(IExtent<2>());
    while (!window.held.load()) {
        std::this_thread::sleep_for(1ms);
    }
    view->cancelDrawing(ReleasingWaiter(window));
    EXPECT_FALSE(thread.busy());

    const IExtent<2> rest = view->updateExtent();
    EXPECT_FALSE(rest.degenerate());
    EXPECT_GT(rest.lo().y, 0) << "the rows drawn before the cancel are not kept";
    EXPECT_EQ(rest.hi(), IPoint<2>(299, 199));
    EXPECT_GT(storeMismatches(), 0) << "part of the image is not drawn yet";

    EXPECT_TRUE(view->IdleRedraw());
    waitForDrawing();
    EXPECT_EQ(storeMismatches(), 0);
    EXPECT_EQ(view->updateExtent(), IExtent<2>());
    EXPECT_FALSE(view->IdleRedraw()) << "nothing left to draw";
}

// At 1:1 the sixth tile is in the second row of tiles; at 2:1 the third band of rows.
INSTANTIATE_TEST_SUITE_P(Zooms, ZmapViewCancel,
                         testing::Values(std::make_pair(1, 6), std::make_pair(2, 3)));

TEST_F(ZmapViewTest, AChannelChangeRedrawsOnlyIfItConcernsTheShownChannel) {
    view->OnInitialUpdate(400, 300, false);
    waitForDrawing();
    window.clearPosts();
    view->channelsChanged(channelMat); // colour shown: a material change doesn't show
    EXPECT_FALSE(view->redrawQueued());
    view->channelsChanged(channelThumbnail | channelMat);
    waitForDrawing();
    EXPECT_TRUE(window.posts().empty());

    view->channelsChanged(channelThumbnail); // the thumbnail alone counts as everything
    waitForDrawing();
    EXPECT_FALSE(window.posts().empty());

    window.clearPosts();
    view->setShownChannel(channelMat);
    waitForDrawing();
    window.clearPosts();
    view->channelsChanged(channelMat, IExtent<2>(5, 5, 6, 6));
    waitForDrawing();
    EXPECT_EQ(window.posts().size(), 1u);

    // The masks by shown channel: depth shown ignores colour; material shown follows depth.
    EXPECT_FALSE(ZmapView::reactsTo(channelZ, channelRgb));
    EXPECT_TRUE(ZmapView::reactsTo(channelMat, channelZ));
    EXPECT_TRUE(ZmapView::reactsTo(channelOriginalRgb, channelCutoutMat));
    EXPECT_TRUE(ZmapView::reactsTo(channelZ, 0));
}

// A document that changes size between the hints is drawn at its new size; between them
// the view draws nothing and keeps no store.
TEST_F(ZmapViewTest, StructuralChangesCancelThenRedrawAtTheNewSize) {
    view->OnInitialUpdate(400, 300, false);
    waitForDrawing();
    view->OnUpdate(viewHintAboutToChange);
    EXPECT_FALSE(view->redrawing());
    {
        ZmapView::StoreAccess access(*view, L"ZmapViewTest");
        EXPECT_EQ(access.store(), nullptr);
    }
    view->channelsChanged(0);
    EXPECT_FALSE(view->redrawQueued());

    Status status = -1;
    doc->crop(status, IExtent<2>(10, 20, 129, 99));
    ASSERT_EQ(status, status::ok);
    view->OnUpdate(viewHintChanged);
    waitForDrawing();
    EXPECT_EQ(view->mapping().zoomedSize(), IVector<2>(120, 80));
    EXPECT_EQ(view->mapping().margin(), IVector<2>(140, 110));
    expectStoreShowsDisplayPixels(IExtent<2>(0, 0, 119, 79));
}

TEST_F(ZmapViewTest, ColourMatchingRedrawsThroughTheTransform) {
    view->OnInitialUpdate(400, 300, false);
    waitForDrawing();
    const auto transform = test::makeDisplayTransform();
    ASSERT_TRUE(transform);
    view->setColourTransform(transform);
    waitForDrawing();
    ZmapView::StoreAccess access(*view, L"ZmapViewTest");
    ASSERT_NE(access.store(), nullptr);
    for (std::int32_t y = 0; y < 200; y += 7) {
        for (std::int32_t x = 0; x < 300; x += 5) {
            const ColourPOD shown = displayPixel(*doc, x, y, channelRgb);
            ColourPOD matched;
            transform->apply(&shown, &matched, 1);
            ASSERT_EQ(access.store()->pixel(0, x, y), matched) << x << "," << y;
        }
    }
}

// Painting while the thread draws, with zoom changes in between: ThreadSanitizer watches
// the locks; at the end the store shows the document.
TEST_F(ZmapViewTest, PaintingZoomingAndDrawingAtOnceEndsInAnExactStore) {
    view->OnInitialUpdate(400, 300, false);
    TileHandle hold;
    for (int i = 0; i < 400; ++i) {
        const std::int32_t x = (i * 37) % 300;
        const std::int32_t y = (i * 53) % 200;
        *doc->rgbWrite(x, y, hold) = ColourPOD{static_cast<std::uint8_t>(i), 0, 0};
        hold.reset();
        view->invalidateImage(IExtent<2>(x, y, x, y));
        if (i % 100 == 50) {
            view->setZoom(1 + i % 3, 2);
        }
        if (i % 50 == 0) {
            ZmapView::StoreAccess access(*view, L"ZmapViewTest::paint");
            if (access.store()) {
                (void)access.store()->pixel(0, 0, 0);
            }
        }
    }
    waitForDrawing();
    EXPECT_EQ(storeMismatches(), 0);
}

} // namespace
