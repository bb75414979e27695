#include "views/BackingStore.h"

#include "views/ViewTestScene.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

TEST(BackingStore, LevelsHalveWithPaddedRowsAndASpareRow) {
    const auto store = BackingStore::create(101, 37, {});
    ASSERT_TRUE(store);
    const std::int32_t expected[4][3] = {{101, 37, 304}, {51, 19, 156}, {26, 10, 80}, {13, 5, 40}};
    for (int k = 0; k < BackingStore::levelCount; ++k) {
        const BackingStore::Level& level = store->level(k);
        EXPECT_EQ(level.width, expected[k][0]);
        EXPECT_EQ(level.height, expected[k][1]);
        EXPECT_EQ(level.stride, expected[k][2]);
        // The spare row lies in the store's memory (AddressSanitizer would object otherwise).
        EXPECT_EQ(level.row(level.height)[level.stride - 1], 0);
    }
    EXPECT_FALSE(BackingStore::create(0, 5, {}));
}

// Upper levels kept up to date block by block must equal a plain reduction of the whole.
TEST(BackingStore, BlockCopiesKeepThePyramidEqualToAPlainReduction) {
    const auto store = BackingStore::create(77, 45, {});
    ASSERT_TRUE(store);
    std::mt19937 random(7);
    std::vector<std::uint8_t> block(40 * 4 * 30);
    for (int round = 0; round < 60; ++round) {
        for (auto& b : block) {
            b = static_cast<std::uint8_t>(random());
        }
        const auto x = static_cast<std::int32_t>(random() % 100) - 20;
        const auto y = static_cast<std::int32_t>(random() % 70) - 20;
        const auto w = static_cast<std::int32_t>(random() % 40) + 1;
        const auto h = static_cast<std::int32_t>(random() % 30) + 1;
        const IExtent<2> changed = store->copyIn(x, y, w, h, block.data(), 160);
        // What changed is the block clipped to the store, with the block's pixels.
        EXPECT_EQ(changed, IExtent<2>(x, y, x + w - 1, y + h - 1) & IExtent<2>(0, 0, 76, 44));
        if (!changed.degenerate()) {
            const IPoint<2> p = changed.hi();
            const std::uint8_t* source = block.data() + (p.y - y) * 160 + (p.x - x) * 3;
            EXPECT_EQ(store->pixel(0, p.x, p.y), (ColourPOD{source[0], source[1], source[2]}));
        }
    }
    for (int k = 1; k < BackingStore::levelCount; ++k) {
        const BackingStore::Level& below = store->level(k - 1);
        const BackingStore::Level& level = store->level(k);
        for (std::int32_t j = 0; j < level.height; ++j) {
            for (std::int32_t i = 0; i < level.width; ++i) {
                const std::int32_t x1 = std::min(2 * i + 1, below.width - 1);
                const std::int32_t y1 = std::min(2 * j + 1, below.height - 1);
                const ColourPOD a = store->pixel(k - 1, 2 * i, 2 * j);
                const ColourPOD b = store->pixel(k - 1, x1, 2 * j);
                const ColourPOD c = store->pixel(k - 1, 2 * i, y1);
                const ColourPOD d = store->pixel(k - 1, x1, y1);
                const ColourPOD mean{static_cast<std::uint8_t>((a.b + b.b + c.b + d.b + 2) / 4),
                                     static_cast<std::uint8_t>((a.g + b.g + c.g + d.g + 2) / 4),
                                     static_cast<std::uint8_t>((a.r + b.r + c.r + d.r + 2) / 4)};
                ASSERT_EQ(store->pixel(k, i, j), mean) << "level " << k << " " << i << "," << j;
            }
        }
    }
}

TEST(BackingStore, ColourMatchingCopiesThroughTheTransform) {
    const auto transform = test::makeDisplayTransform();
    ASSERT_TRUE(transform);
    const auto store = BackingStore::create(8, 8, transform);
    ASSERT_TRUE(store);
    const ColourPOD row[3] = {{255, 0, 0}, {0, 200, 30}, {9, 9, 9}};
    store->copyIn(2, 3, 3, 1, reinterpret_cast<const std::uint8_t*>(row), 12);
    ColourPOD expected[3];
    transform->apply(row, expected, 3);
    EXPECT_NE(expected[1], row[1]) << "a mid-tone must change";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(store->pixel(0, 2 + i, 3), expected[i]);
    }
}

} // namespace
