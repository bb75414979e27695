// The large arrays of a rendering: mapped blocks kept for the next request of their size,
// given back when asked, and working as a vector's storage.

#include "interchange/render/HugePageAllocator.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

constexpr std::size_t megabyte = std::size_t(1) << 20;

TEST(HugePageAllocator, ReleasedLargeBlocksAreKeptForTheSameSize) {
    hugePages::releaseKept();
    void* a = hugePages::allocate(5 * megabyte);
    static_cast<char*>(a)[5 * megabyte - 1] = 1; // the whole block is usable
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a) % alignof(std::max_align_t), 0u);
    hugePages::release(a, 5 * megabyte);
    EXPECT_GE(hugePages::keptBytes(), 5 * megabyte);

    // Another size maps a block of its own; the same size gets the kept one back.
    void* b = hugePages::allocate(9 * megabyte);
    EXPECT_NE(b, a);
    void* c = hugePages::allocate(5 * megabyte - 100);
    EXPECT_EQ(c, a);
    EXPECT_EQ(hugePages::keptBytes(), 0u);
    hugePages::release(b, 9 * megabyte);
    hugePages::release(c, 5 * megabyte - 100);
    EXPECT_GE(hugePages::keptBytes(), 14 * megabyte);

    hugePages::releaseKept();
    EXPECT_EQ(hugePages::keptBytes(), 0u);
}

TEST(HugePageAllocator, SmallBlocksAreNotKept) {
    hugePages::releaseKept();
    void* a = hugePages::allocate(1000);
    hugePages::release(a, 1000);
    EXPECT_EQ(hugePages::keptBytes(), 0u);
}

TEST(HugePageAllocator, VectorsKeepTheirContentsThroughGrowthAndReuse) {
    hugePages::releaseKept();
    for (int round = 0; round < 2; ++round) {
        // The second round gets the first's blocks again, with old contents in them.
        HugePageVector<std::uint32_t> v;
        for (std::uint32_t i = 0; i < 3'000'000; ++i) {
            v.push_back(i * 3 + static_cast<std::uint32_t>(round));
        }
        HugePageVector<std::uint32_t> w(v.size(), 7);
        std::uint64_t wrong = 0;
        for (std::uint32_t i = 0; i < v.size(); ++i) {
            wrong += v[i] != i * 3 + static_cast<std::uint32_t>(round) || w[i] != 7;
        }
        EXPECT_EQ(wrong, 0u) << round;
    }
    EXPECT_GT(hugePages::keptBytes(), 0u);
    hugePages::releaseKept();
}

TEST(HugePageAllocator, UninitialisedVectorsStillKeepWhatIsGivenAndBuildClasses) {
    // Plain elements made without a value are left as they are; given values and
    // elements of class type are made as any vector makes them.
    UninitialisedHugePageVector<std::uint32_t> plain(2'000'000);
    for (std::uint32_t i = 0; i < plain.size(); ++i) {
        plain[i] = i ^ 0x5A5A5A5Au;
    }
    plain.resize(plain.size() + 1000, 9);
    std::uint64_t wrong = 0;
    for (std::uint32_t i = 0; i < plain.size(); ++i) {
        wrong += plain[i] != (i < 2'000'000 ? i ^ 0x5A5A5A5Au : 9u);
    }
    EXPECT_EQ(wrong, 0u);
    UninitialisedHugePageVector<std::string> names(3);
    names.emplace_back(4, 'x');
    EXPECT_EQ(names, (UninitialisedHugePageVector<std::string>{"", "", "", "xxxx"}));
}

} // namespace
