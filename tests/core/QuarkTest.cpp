#include "core/Quark.h"

#include <gtest/gtest.h>

#include <map>
#include <thread>
#include <vector>

namespace {

TEST(Quark, EqualTextIsTheSameQuark) {
    const Quark a = Quark::create(L"Brick wall");
    const Quark b = Quark::create(std::wstring(L"Brick ") + L"wall");
    EXPECT_EQ(a, b);
    EXPECT_EQ(a.identity(), b.identity());
    EXPECT_EQ(a.value(), L"Brick wall");
    EXPECT_NE(a, Quark::create(L"brick wall")) << "interning is case-sensitive";
    EXPECT_TRUE(nullQuark.isNull());
    EXPECT_EQ(Quark::create(L""), nullQuark);
    EXPECT_EQ(nullQuark.value(), L"");
}

TEST(Quark, SameQuarkFromManyThreads) {
    constexpr int threads = 8;
    std::vector<std::vector<Quark>> seen(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([t, &seen] {
            for (int i = 0; i < 500; ++i) {
                seen[t].push_back(Quark::create(L"material " + std::to_wstring((i * 7 + t) % 500)));
            }
        });
    }
    for (auto& t : pool) {
        t.join();
    }
    std::map<std::wstring, const void*> identity;
    for (const auto& list : seen) {
        for (const Quark& q : list) {
            auto [it, fresh] = identity.emplace(q.value(), q.identity());
            EXPECT_EQ(it->second, q.identity())
                << "two Quarks for " << std::string(q.value().begin(), q.value().end());
        }
    }
    EXPECT_EQ(identity.size(), 500u);
}

TEST(Quark, UsableAsMapKey) {
    std::map<Quark, int, QuarkLess> m;
    m[Quark::create(L"a")] = 1;
    m[Quark::create(L"b")] = 2;
    m[Quark::create(L"a")] += 10;
    EXPECT_EQ(m.size(), 2u);
    EXPECT_EQ(m[Quark::create(L"a")], 11);
}

} // namespace
