#include "app/AliasTable.h"

#include <gtest/gtest.h>

namespace {

AliasTable sampleTable() {
    AliasTable t;
    EXPECT_TRUE(t.set(L"Textures", L"/srv/textures/"));
    EXPECT_TRUE(t.set(L"Jobs", L"/home/ann/jobs"));
    EXPECT_TRUE(t.set(L"Current", L"/home/ann/jobs/2024"));
    return t;
}

TEST(AliasTable, StoredPathsUseTheLongestContainingAlias) {
    const AliasTable t = sampleTable();
    const struct {
        const wchar_t* path;
        const wchar_t* stored;
    } cases[] = {
        {L"/srv/textures/brick.png", L"$(Textures)/brick.png"},
        {L"/home/ann/jobs/old/a.zmp", L"$(Jobs)/old/a.zmp"},
        {L"/home/ann/jobs/2024/b.zmp", L"$(Current)/b.zmp"},
        {L"/home/ann/jobs", L"$(Jobs)"},
        // A name that only begins like an alias's folder is not inside it.
        {L"/home/ann/jobsite/c.zmp", L"/home/ann/jobsite/c.zmp"},
        {L"/tmp/d.zmp", L"/tmp/d.zmp"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(t.makeRelative(c.path), c.stored) << c.path;
        EXPECT_EQ(t.makeAbsolute(t.makeRelative(c.path)), c.path) << c.path;
    }
}

TEST(AliasTable, ReadingFollowsTheAliasToItsNewFolder) {
    AliasTable t = sampleTable();
    const std::wstring stored = t.makeRelative(L"/srv/textures/stone/granite.png");
    ASSERT_TRUE(t.set(L"Textures", L"/mnt/share/textures"));
    EXPECT_EQ(t.makeAbsolute(stored), L"/mnt/share/textures/stone/granite.png");
    // An alias that is gone leaves the stored text as it is.
    ASSERT_TRUE(t.remove(L"Textures"));
    EXPECT_EQ(t.makeAbsolute(stored), stored);
}

TEST(AliasTable, OnlyAliasedPathsNeedTheTable) {
    EXPECT_TRUE(AliasTable::isAbsolute(L"/home/ann/a.zmp"));
    EXPECT_TRUE(AliasTable::isAbsolute(L"relative/a.zmp"));
    EXPECT_FALSE(AliasTable::isAbsolute(L"$(Jobs)/a.zmp"));
}

TEST(AliasTable, RejectsNamesAndFoldersThatCannotRoundTrip) {
    AliasTable t;
    EXPECT_FALSE(t.set(L"", L"/a"));
    EXPECT_FALSE(t.set(L"A(1)", L"/a"));
    EXPECT_FALSE(t.set(L"a/b", L"/a"));
    EXPECT_FALSE(t.set(L"Rel", L"relative/dir"));
    EXPECT_TRUE(t.aliases().empty());
    ASSERT_TRUE(t.set(L"Root", L"/"));
    EXPECT_EQ(t.makeRelative(L"/etc/x"), L"$(Root)/etc/x");
    EXPECT_EQ(t.makeAbsolute(L"$(Root)/etc/x"), L"/etc/x");
}

} // namespace
