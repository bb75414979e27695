#include "core/Handle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using TQL::Handle;
using TQL::HandleBase;

/// Counts its destructions into a shared counter.
class Counted : public TQL::Handlable {
public:
    explicit Counted(std::atomic<int>& destroyed) : destroyed_(destroyed) {}
    int value = 0;

protected:
    ~Counted() override { destroyed_.fetch_add(1); }

private:
    std::atomic<int>& destroyed_;
};

class Derived : public Counted {
public:
    using Counted::Counted;
};

TEST(Handle, NullIsHarmless) {
    HandleBase::ref(nullptr);
    HandleBase::deref(nullptr);
    EXPECT_EQ(HandleBase::refC(nullptr), 0u);
    Handle<Counted> h;
    EXPECT_TRUE(h.isNull());
    EXPECT_EQ(h.refC(), 0u);
}

TEST(Handle, WrappingTakesOneReferenceAndLastReleaseDestroys) {
    std::atomic<int> destroyed{0};
    auto* raw = new Counted(destroyed);
    EXPECT_EQ(HandleBase::refC(raw), 0u) << "a fresh object has count 0";
    {
        Handle<Counted> a(raw);
        EXPECT_EQ(a.refC(), 1u);
        Handle<Counted> b = a;
        EXPECT_EQ(a.refC(), 2u);
        Handle<Counted> c = std::move(b);
        EXPECT_TRUE(b.isNull());
        EXPECT_EQ(a.refC(), 2u);
        c.reset();
        EXPECT_EQ(a.refC(), 1u);
        EXPECT_EQ(destroyed.load(), 0);
    }
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(Handle, ResetToTheSameObjectKeepsItAlive) {
    std::atomic<int> destroyed{0};
    Handle<Counted> a(new Counted(destroyed));
    a.reset(a.get());
    EXPECT_EQ(destroyed.load(), 0);
    EXPECT_EQ(a.refC(), 1u);
    Handle<Counted>& alias = a;
    a = alias; // self-assignment through another name
    EXPECT_EQ(destroyed.load(), 0);
    EXPECT_EQ(a.refC(), 1u);
}

TEST(Handle, ConvertsToBaseAndCastsBack) {
    std::atomic<int> destroyed{0};
    Handle<Derived> d(new Derived(destroyed));
    Handle<Counted> base = d;
    EXPECT_EQ(d.refC(), 2u);
    Handle<Derived> back = TQL::handleCast<Derived>(base);
    EXPECT_EQ(back.get(), d.get());
    Handle<Counted> plain(new Counted(destroyed));
    EXPECT_TRUE(TQL::handleCast<Derived>(plain).isNull());
}

TEST(Handle, EightThreadsCopyingAndDroppingDestroyExactlyOnce) {
    std::atomic<int> destroyed{0};
    Handle<Counted> shared(new Counted(destroyed));
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            while (!go.load()) {
            }
            for (int i = 0; i < 20000; ++i) {
                Handle<Counted> copy = shared;
                Handle<Counted> another(copy);
                copy.reset();
                another = Handle<Counted>();
            }
        });
    }
    go.store(true);
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(shared.refC(), 1u);
    EXPECT_EQ(destroyed.load(), 0);
    shared.reset();
    EXPECT_EQ(destroyed.load(), 1);
}

} // namespace
