#include "views/ScaledDrawable.h"

#include "image/ZmapDocument.h"
#include "views/ViewMapping.h"
#include "views/ViewTestScene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <vector>

namespace {

constexpr ColourPOD unset{1, 2, 3};

/// Records what a scaled walk sends, pixel by pixel, and how outside runs came.
class RecordingTarget : public ScaledDrawable {
public:
    RecordingTarget(const IExtent<2>& extent)
        : extent_(extent),
          pixels_(static_cast<std::size_t>(extent.width() * extent.height()), unset),
          outside_(pixels_.size(), false) {}

    void ScaledRow(std::int32_t x, std::int32_t y, std::int32_t count,
                   const std::uint8_t* rgb) override {
        for (std::int32_t i = 0; i < count; ++i) {
            std::memcpy(&at(x + i, y), rgb + i * 3, 3);
        }
    }
    void ScaledOutside(std::int32_t x, std::int32_t y, std::int32_t count) override {
        ++outsideCalls[y];
        for (std::int32_t i = 0; i < count; ++i) {
            outside_[index(x + i, y)] = true;
        }
    }
    ColourPOD& at(std::int32_t x, std::int32_t y) { return pixels_[index(x, y)]; }
    bool outside(std::int32_t x, std::int32_t y) const { return outside_[index(x, y)]; }

    std::map<std::int32_t, int> outsideCalls;

private:
    std::size_t index(std::int32_t x, std::int32_t y) const {
        EXPECT_TRUE(x >= extent_.lo().x && x <= extent_.hi().x && y >= extent_.lo().y &&
                    y <= extent_.hi().y)
            << x << "," << y;
        return static_cast<std::size_t>((y - extent_.lo().y) * extent_.width() +
                                        (x - extent_.lo().x));
    }
    IExtent<2> extent_;
    std::vector<ColourPOD> pixels_;
    std::vector<bool> outside_;
};

class ScaledDraw : public testing::Test {
protected:
    void SetUp() override { doc = test::makeViewScene(300, 200); }

    /// Walks `extent` through `mapping` and checks every pixel against displayPixel of the
    /// pixel it maps to, or against the outside runs.
    void expectWalkMatchesDisplayPixel(std::uint32_t channel, const PixelMapping& mapping,
                                       const IExtent<2>& extent) {
        RecordingTarget target(extent);
        Status status = -1;
        std::int32_t rows = 0;
        drawScaled(status, *doc, target, channel, mapping, extent, nullptr, &rows);
        ASSERT_EQ(status, status::ok);
        EXPECT_EQ(rows, extent.height());
        for (std::int32_t v = extent.lo().y; v <= extent.hi().y; ++v) {
            // The plain reference: the same running sums, a lookup for every pixel.
            const std::int32_t u0 = extent.lo().x;
            double s[3];
            for (int i = 0; i < 3; ++i) {
                s[i] = mapping.a[i] * u0 + mapping.b[i] * v + mapping.c[i];
            }
            for (std::int32_t u = u0; u <= extent.hi().x; ++u) {
                const IPoint<2> p(static_cast<std::int32_t>(std::floor(s[0] / s[2])),
                                  static_cast<std::int32_t>(std::floor(s[1] / s[2])));
                for (int i = 0; i < 3; ++i) {
                    s[i] += mapping.a[i];
                }
                if (doc->geometry().contains(p.x, p.y)) {
                    ASSERT_FALSE(target.outside(u, v));
                    ASSERT_EQ(target.at(u, v), displayPixel(*doc, p.x, p.y, channel))
                        << "channel " << channel << " at " << u << "," << v;
                } else {
                    ASSERT_TRUE(target.outside(u, v)) << u << "," << v;
                }
            }
        }
    }

    std::unique_ptr<test::TestDocument> doc;
};

// The plain per-pixel display equals what the 1:1 tile walk draws, for every kind of channel,
// composed or not.
TEST_F(ScaledDraw, DisplayPixelEqualsTheTileWalk) {
    for (const std::uint32_t channel : {channelRgb, channelZ, channelMat, channelOriginalRgb,
                                        channelOriginalZ, channelOriginalMat, channelCutoutAlpha}) {
        test::ImageTarget walk(300, 200);
        Status status = -1;
        doc->draw(status, walk, channel, doc->geometry().bounds(), doc->geometry().bounds(),
                  nullptr);
        ASSERT_EQ(status, status::ok);
        for (std::int32_t y = 0; y < 200; ++y) {
            for (std::int32_t x = 0; x < 300; ++x) {
                ASSERT_EQ(displayPixel(*doc, x, y, channel), walk.at(x, y))
                    << "channel " << channel << " at " << x << "," << y;
            }
        }
    }
    EXPECT_EQ(displayPixel(*doc, -1, 0, channelRgb), ColourPOD{});
    EXPECT_EQ(displayPixel(*doc, 0, 0, channelThumbnail), ColourPOD{});
}

TEST_F(ScaledDraw, ZoomedWalksEqualDisplayPixelInEveryChannel) {
    const std::int32_t zooms[][2] = {{1, 4}, {1, 3}, {2, 3}, {3, 2}, {4, 1}, {7, 5}};
    for (const auto& z : zooms) {
        ViewMapping m;
        m.setImageSize(300, 200);
        m.setZoom(z[0], z[1]);
        const IVector<2> size = m.zoomedSize();
        // A part that crosses tile borders, reaching beyond the image on the right and below.
        const IExtent<2> extent(size.x / 5, size.y / 3, size.x + 4, size.y + 2);
        for (const std::uint32_t channel : {channelRgb, channelZ, channelMat}) {
            SCOPED_TRACE(testing::Message() << z[0] << ":" << z[1] << " channel " << channel);
            expectWalkMatchesDisplayPixel(channel, PixelMapping::zoom(z[0], z[1]), extent);
        }
        // The zoom mapping of the walk is the view's, pixel for pixel.
        const PixelMapping pm = PixelMapping::zoom(z[0], z[1]);
        for (std::int32_t u = 0; u < size.x + 3; ++u) {
            ASSERT_EQ(pm.map(u, u).x, m.storeToImage(u));
        }
    }
}

// The running sums also serve a perspective: rows whose pixels leave the image on both sides
// send each outside run in one call.
TEST_F(ScaledDraw, PerspectiveMappingWithOutsideRunsAtBothEnds) {
    PixelMapping m;
    m.a[0] = 1.3;
    m.b[0] = 0.2;
    m.c[0] = -60.5;
    m.a[1] = 0.05;
    m.b[1] = 0.9;
    m.c[1] = -10;
    m.a[2] = 0.0004;
    m.b[2] = 0.001;
    m.c[2] = 0.8;
    const IExtent<2> extent(0, 0, 319, 239);
    expectWalkMatchesDisplayPixel(channelRgb, m, extent);
    RecordingTarget target(extent);
    Status status = -1;
    drawScaled(status, *doc, target, channelRgb, m, extent, nullptr);
    EXPECT_EQ(target.outsideCalls[100], 2) << "one run before the image and one after";
}

TEST_F(ScaledDraw, AbortAndMissingChannelsEndTheWalk) {
    RecordingTarget target(IExtent<2>(0, 0, 9, 9));
    std::atomic<bool> abort{true};
    Status status = 0;
    std::int32_t rows = -1;
    drawScaled(status, *doc, target, channelRgb, PixelMapping::zoom(1, 2), IExtent<2>(0, 0, 9, 9),
               &abort, &rows);
    EXPECT_EQ(status, status::cancelled);
    EXPECT_EQ(rows, 0);
    EXPECT_EQ(target.at(0, 0), unset);
    drawScaled(status, *doc, target, 64, PixelMapping::zoom(1, 2), IExtent<2>(0, 0, 9, 9), nullptr);
    EXPECT_EQ(status, status::noImage);
}

} // namespace
