#include "views/ViewMapping.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

namespace {

ViewMapping mappingOf(std::int32_t n, std::int32_t d, std::int32_t imageW, std::int32_t imageH,
                      std::int32_t windowW, std::int32_t windowH) {
    ViewMapping m;
    m.setImageSize(imageW, imageH);
    m.setWindowSize(windowW, windowH);
    m.setZoom(n, d);
    return m;
}

TEST(ViewMapping, ZoomIsAReducedFractionAndStepsWalkTheTable) {
    ViewMapping m;
    m.setZoom(4, 8);
    EXPECT_EQ(m.zoomNumerator(), 1);
    EXPECT_EQ(m.zoomDenominator(), 2);
    m.setZoom(1, 1);
    ASSERT_TRUE(m.zoomIn());
    EXPECT_EQ(m.zoomNumerator(), 3);
    EXPECT_EQ(m.zoomDenominator(), 2);
    ASSERT_TRUE(m.zoomOut());
    ASSERT_TRUE(m.zoomOut());
    EXPECT_EQ(m.zoomNumerator(), 2);
    EXPECT_EQ(m.zoomDenominator(), 3);
    m.setZoom(1, 16);
    EXPECT_FALSE(m.zoomOut());
    m.setZoom(5, 1); // between steps: the next step up is 6:1
    ASSERT_TRUE(m.zoomIn());
    EXPECT_EQ(m.zoomNumerator(), 6);
    m.setZoom(0, -3); // nonsense becomes 1:1
    EXPECT_TRUE(m.unscaled());
}

// Every store pixel's image pixel lies under its centre, and the inverse ranges agree with
// it exactly, at every zoom step and at a zoom that is no step.
TEST(ViewMapping, StoreAndImageMapExactlyBothWaysAtEveryZoom) {
    std::vector<std::array<std::int32_t, 2>> zooms;
    for (const auto& s : ViewMapping::steps) {
        zooms.push_back({s[0], s[1]});
    }
    zooms.push_back({7, 5});
    zooms.push_back({5, 7});
    for (const auto& [n, d] : zooms) {
        SCOPED_TRACE(testing::Message() << n << ":" << d);
        const ViewMapping m = mappingOf(n, d, 37, 23, 500, 400);
        for (std::int32_t u = -40; u < 700; ++u) {
            // The plain formula, in long double: floor((u + 0.5) * d / n).
            const auto expected =
                static_cast<std::int32_t>(std::floor((u + 0.5L) * d / static_cast<long double>(n)));
            ASSERT_EQ(m.storeToImage(u), expected) << "u " << u;
        }
        for (std::int32_t x = -5; x < 45; ++x) {
            const std::int32_t first = m.firstStoreOf(x);
            const std::int32_t last = m.lastStoreOf(x);
            for (std::int32_t u = first; u <= last; ++u) {
                ASSERT_EQ(m.storeToImage(u), x);
            }
            EXPECT_LT(m.storeToImage(first - 1), x);
            EXPECT_GT(m.storeToImage(last + 1), x);
            if (n >= d) {
                EXPECT_LE(first, last) << "magnified: every image pixel is shown";
            }
        }
        // The store holds the image: its last pixel is inside, the next one beyond.
        const IVector<2> z = m.zoomedSize();
        EXPECT_LE(m.storeToImage(z.x - 1), 36);
        EXPECT_GE(m.storeToImage(z.x), 37);
        EXPECT_LE(m.storeToImage(z.y - 1), 22);
    }
}

TEST(ViewMapping, ExtentsOfChangedPixelsCoverEveryStorePixelShowingThem) {
    const ViewMapping m = mappingOf(2, 3, 300, 200, 100, 100);
    const IExtent<2> changed(17, 40, 90, 41);
    const IExtent<2> store = m.storeExtentOf(changed);
    const IVector<2> z = m.zoomedSize();
    for (std::int32_t v = 0; v < z.y; ++v) {
        for (std::int32_t u = 0; u < z.x; ++u) {
            const IPoint<2> p(m.storeToImage(u), m.storeToImage(v));
            const bool shows = p.x >= 17 && p.x <= 90 && p.y >= 40 && p.y <= 41;
            const bool inExtent =
                u >= store.lo().x && u <= store.hi().x && v >= store.lo().y && v <= store.hi().y;
            ASSERT_EQ(shows, inExtent) << u << "," << v;
        }
    }
    EXPECT_EQ(m.imageExtentOf(store) <= changed, true);
}

TEST(ViewMapping, AnImageSmallerThanTheWindowIsCentredAndMapsExactly) {
    ViewMapping m = mappingOf(1, 1, 100, 50, 301, 200);
    EXPECT_EQ(m.margin(), IVector<2>(100, 75));
    EXPECT_EQ(m.viewToImage({100, 75}), IPoint<2>(0, 0));
    EXPECT_EQ(m.viewToImage({99, 74}), IPoint<2>(-1, -1));
    EXPECT_EQ(m.viewToImage({199, 124}), IPoint<2>(99, 49));
    EXPECT_EQ(m.imageToView({99, 49}), IExtent<2>(199, 124, 199, 124));

    m.setZoom(2, 1); // 200 x 100 in 301 x 200
    EXPECT_EQ(m.margin(), IVector<2>(50, 50));
    for (std::int32_t x = 0; x < 100; ++x) {
        const IExtent<2> shown = m.imageToView({x, x / 2});
        ASSERT_EQ(shown, IExtent<2>(50 + 2 * x, 50 + 2 * (x / 2), 51 + 2 * x, 51 + 2 * (x / 2)));
        for (std::int32_t v = shown.lo().x; v <= shown.hi().x; ++v) {
            ASSERT_EQ(m.viewToImage({v, shown.lo().y}), IPoint<2>(x, x / 2));
        }
    }
    // A store rectangle goes to the window through the margin and back.
    const IExtent<2> store(3, 4, 10, 12);
    EXPECT_EQ(m.viewToStore(m.storeToView(store)), store);
    EXPECT_EQ(m.storeToView(store).lo(), IPoint<2>(53, 54));
}

TEST(ViewMapping, ScrollIsClampedAndMovesTheMappingOnly) {
    ViewMapping m = mappingOf(1, 1, 1000, 1000, 300, 200);
    m.setScroll(900, -5);
    EXPECT_EQ(m.scroll(), IPoint<2>(700, 0));
    EXPECT_EQ(m.margin(), IVector<2>(0, 0));
    EXPECT_EQ(m.viewToImage({0, 10}), IPoint<2>(700, 10));
    m.setZoom(1, 4); // 250 wide: fits, so the scroll goes back to 0 and a margin appears
    EXPECT_EQ(m.scroll(), IPoint<2>(0, 0));
    EXPECT_EQ(m.margin(), IVector<2>(25, 0));
}

TEST(ViewMapping, FitChoosesTheLargestStepThatShowsTheWholeImage) {
    ViewMapping m = mappingOf(1, 1, 8192, 8192, 1000, 800);
    m.fitWindow();
    EXPECT_EQ(m.zoomNumerator(), 1);
    EXPECT_EQ(m.zoomDenominator(), 12);
    EXPECT_LE(m.zoomedSize().y, 800);
    m = mappingOf(1, 1, 40, 30, 1000, 800);
    m.fitWindow();
    EXPECT_EQ(m.zoomNumerator(), 16);
    m = mappingOf(1, 1, 1 << 20, 100, 300, 300); // too wide for any step: the smallest
    m.fitWindow();
    EXPECT_EQ(m.zoomDenominator(), 16);
}

} // namespace
