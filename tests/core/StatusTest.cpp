#include "core/Status.h"
#include "core/LanguageTable.h"
#include "core/MappedFile.h"
#include "core/Settings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

namespace {

/// Installs a string table for the life of a test.
class ScopedTable {
public:
    explicit ScopedTable(const StringTable* t) { TQL::setStringTable(t); }
    ~ScopedTable() { TQL::setStringTable(nullptr); }
};

TEST(Status, TextWithoutALanguageTable) {
    EXPECT_EQ(statusText(-2), L"<<Error -2>>");
    EXPECT_EQ(statusText(-1234), L"<<Error -1234>>");
}

TEST(Status, TextComesFromTheNumberedStrings) {
    LanguageTable table;
    ASSERT_EQ(table.parse("version\tResources Version 3.0.0\n"
                          "# comment\n"
                          "11100\tFine\n"
                          "11102\tDamaged file\n"
                          "11129\tLast one\n"
                          "11130\tProblem %d\\n(code)\n"),
              status::ok);
    ScopedTable scope(&table);
    EXPECT_EQ(table.version(), L"Resources Version 3.0.0");
    EXPECT_EQ(statusText(0), L"Fine");
    EXPECT_EQ(statusText(-2), L"Damaged file");
    EXPECT_EQ(statusText(-29), L"Last one");
    EXPECT_EQ(statusText(-30), L"Problem -30\n(code)") << "outside 0..-29 the format is used";
    EXPECT_EQ(statusText(7), L"Problem 7\n(code)");
    EXPECT_EQ(statusText(-5), L"<<Error -5>>")
        << "a missing text of the table's range doesn't borrow the general format";
}

TEST(Status, AFormatWithOtherConversionsIsNotUsed) {
    LanguageTable table;
    ASSERT_EQ(table.parse("11130\tBad %s here\n"), status::ok);
    ScopedTable scope(&table);
    EXPECT_EQ(statusText(-40), L"<<Error -40>>");
}

TEST(LanguageTable, RejectsMalformedFilesAndFindsItsOwn) {
    LanguageTable table;
    EXPECT_EQ(table.parse("11100 no tab here\n"), status::damaged);
    EXPECT_EQ(table.parse("abc\ttext\n"), status::damaged);
    EXPECT_EQ(table.load(L"/nonexistent/quores.txt"), status::notFound);
    const std::wstring shipped = LanguageTable::findDefault(L"/nonexistent/bin/quorvale");
    ASSERT_FALSE(shipped.empty()) << "the source tree's language file is found";
    ASSERT_EQ(table.load(shipped), status::ok);
    EXPECT_EQ(table.version(), L"Resources Version 3.0.0");
    std::wstring text;
    EXPECT_TRUE(table.lookup(11102, text));
    EXPECT_TRUE(table.lookup(10999, text)) << "the warning of a stroke out of memory";
    EXPECT_FALSE(text.empty());
}

TEST(Status, ErrnoMapping) {
    EXPECT_EQ(status::fromErrno(ENOENT, status::readFailed), status::notFound);
    EXPECT_EQ(status::fromErrno(EACCES, status::readFailed), status::accessDenied);
    EXPECT_EQ(status::fromErrno(EROFS, status::writeFailed), status::readOnly);
    EXPECT_EQ(status::fromErrno(ENOSPC, status::writeFailed), status::diskFull);
    EXPECT_EQ(status::fromErrno(EIO, status::writeFailed), status::writeFailed);
}

TEST(Settings, ReadLazilyWriteOnlyChanges) {
    /// Counts writes that reach the store.
    class CountingStore : public MemorySettingsStore {
    public:
        void write(const std::wstring& s, const std::wstring& k, const std::wstring& v) override {
            ++writes;
            MemorySettingsStore::write(s, k, v);
        }
        int writes = 0;
    } store;
    TQL::setSettingsStore(&store);

    IntSetting size(L"TestSize", 512);
    EXPECT_FALSE(size.read()) << "never stored: the default is in force";
    EXPECT_EQ(size.value(), 512);
    EXPECT_EQ(size.state(), IntSetting::defaultInForce);

    store.MemorySettingsStore::write(L"Settings", L"TestSize", L"128");
    EXPECT_EQ(size.value(), 512) << "the first read is cached";
    size.invalidate();
    EXPECT_TRUE(size.read());
    EXPECT_EQ(size.value(), 128);

    size.write(128);
    EXPECT_EQ(store.writes, 0) << "an unchanged known value is not written";
    size.write(64);
    EXPECT_EQ(store.writes, 1);
    EXPECT_EQ(*store.read(L"Settings", L"TestSize"), L"64");

    DoubleSetting magnify(L"TestMagnify", 1.0);
    magnify.write(0.1);
    EXPECT_EQ(*store.read(L"Settings", L"TestMagnify"), L"0.1000000000000000");
    magnify.invalidate();
    EXPECT_DOUBLE_EQ(magnify.value(), 0.1);

    store.MemorySettingsStore::write(L"Settings", L"TestBroken", L"12abc");
    IntSetting broken(L"TestBroken", 7);
    EXPECT_FALSE(broken.read()) << "an unreadable value counts as not stored";
    EXPECT_EQ(broken.value(), 7);

    TQL::setSettingsStore(nullptr);
}

TEST(MappedFile, MapsWholeFilesAndReportsMissingOnes) {
    const char* path = "/tmp/quorvale-mapped-test.bin";
    std::FILE* f = std::fopen(path, "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("depth image", f);
    std::fclose(f);
    TQL::MappedFile m;
    ASSERT_EQ(m.open(L"/tmp/quorvale-mapped-test.bin"), status::ok);
    ASSERT_EQ(m.size(), 11u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(m.data()), m.size()), "depth image");
    TQL::MappedFile moved(std::move(m));
    EXPECT_FALSE(m.isOpen());
    EXPECT_TRUE(moved.isOpen());
    std::remove(path);
    EXPECT_EQ(m.open(L"/nonexistent/file"), status::notFound);
    EXPECT_EQ(m.open(L"/tmp"), status::badName);
}

} // namespace
