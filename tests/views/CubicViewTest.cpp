#include "views/CubicView.h"

#include "image/DocumentViews.h"
#include "image/TileRowWriter.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace {

class CountingWindow : public ViewWindow {
public:
    void postInvalidate(const IExtent<2>&) override { ++posts; }
    void invalidateWindow() override {}
    std::atomic<int> posts{0};
};

class PatientFinish : public DrawThread::FinishWaiter {
public:
    bool poll() const override { return true; }
};

/// A cube whose six faces are flat colours: face f is (f * 40, 255 - f * 40, 7).
std::unique_ptr<test::TestDocument> flatCube(std::int32_t n) {
    auto doc = test::makeTestDocument(6 * n, n);
    ViewParams v;
    v.viewCode = ViewParams::cubicCode;
    doc->setViewParams(v);
    std::vector<std::uint8_t> row(std::size_t(6 * n) * 3);
    for (std::int32_t x = 0; x < 6 * n; ++x) {
        const int f = x / n;
        row[std::size_t(x) * 3] = 7;
        row[std::size_t(x) * 3 + 1] = std::uint8_t(255 - f * 40);
        row[std::size_t(x) * 3 + 2] = std::uint8_t(f * 40);
    }
    TileRowWriter writer(*doc->rgb);
    for (std::int32_t y = 0; y < n; ++y) {
        writer.writeRow(0, y, row.data(), 6 * n);
    }
    return doc;
}

ColourPOD centreOf(const CubicView& view) {
    CubicView::StoreAccess access(view, L"test");
    const BackingStore3d* s = access.store();
    if (!s) {
        return {1, 2, 3};
    }
    const std::uint8_t* p = s->row(s->height() / 2) + std::size_t(s->width() / 2) * 3;
    return {p[0], p[1], p[2]};
}

TEST(CubicView, DrawsOnTheDrawingThreadAndFollowsTheCameraAndThePaint) {
    auto doc = flatCube(32);
    DrawThread thread;
    CountingWindow window;
    CubicView view(*doc, thread, window);
    view.OnInitialUpdate(41, 31);
    thread.finish(PatientFinish());
    EXPECT_GE(window.posts.load(), 1);
    EXPECT_EQ(centreOf(view), (ColourPOD{7, 255, 0}));

    view.setAngles({90, 0, 60});
    thread.finish(PatientFinish());
    EXPECT_EQ(centreOf(view), (ColourPOD{7, 215, 40}));
    view.turnBy(0, 90); // straight up
    thread.finish(PatientFinish());
    EXPECT_EQ(centreOf(view), (ColourPOD{7, 95, 160}));

    // Paint on face 4: the view shows it once told.
    std::vector<std::uint8_t> white(std::size_t(32) * 3, 255);
    TileRowWriter writer(*doc->rgb);
    for (std::int32_t y = 0; y < 32; ++y) {
        writer.writeRow(4 * 32, y, white.data(), 32);
    }
    view.invalidateImage(IExtent<2>(4 * 32, 0, 5 * 32 - 1, 31));
    thread.finish(PatientFinish());
    EXPECT_EQ(centreOf(view), (ColourPOD{255, 255, 255}));

    IPoint<2> pixel;
    ASSERT_TRUE(view.stripPixelAt(20, 15, pixel));
    EXPECT_EQ(pixel.x, 4 * 32 + 16);
    EXPECT_EQ(pixel.y, 16);
}

TEST(CubicView, AboutToChangeStopsDrawingUntilTheDocumentHasChanged) {
    auto doc = flatCube(16);
    DrawThread thread;
    CountingWindow window;
    CubicView view(*doc, thread, window);
    view.OnInitialUpdate(20, 20);
    thread.finish(PatientFinish());
    const int before = window.posts.load();
    view.OnUpdate(viewHintAboutToChange);
    view.setAngles({180, 0, 90});
    thread.finish(PatientFinish());
    EXPECT_EQ(window.posts.load(), before);
    view.OnUpdate(viewHintChanged);
    thread.finish(PatientFinish());
    EXPECT_GT(window.posts.load(), before);
    EXPECT_EQ(centreOf(view), (ColourPOD{7, 175, 80}));
}

} // namespace
