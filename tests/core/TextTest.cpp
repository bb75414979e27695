#include "core/FilePath.h"
#include "core/StringUtils.h"

#include <gtest/gtest.h>

#include <climits>
#include <unistd.h>

namespace {

TEST(Text, WildcardMatching) {
    struct Case {
        const wchar_t* text;
        const wchar_t* pattern;
        bool match;
    } cases[] = {
        {L"Wall", L"Wall", true},
        {L"Wall", L"wall", false},
        {L"Wall 12", L"Wall*", true},
        {L"Wall", L"Wall*", true},
        {L"Wall", L"*", true},
        {L"", L"*", true},
        {L"", L"", true},
        {L"", L"?", false},
        {L"abc", L"a?c", true},
        {L"ac", L"a?c", false},
        {L"aXbXc", L"a*b*c", true},
        {L"aXbX", L"a*b*c", false},
        {L"mississippi", L"*sip*", true},
        {L"mississippi", L"m*iss*ppi", true},
        {L"mississippi", L"m*x*", false},
        {L"a*b", L"a*b", true},
        {L"Floor tiles", L"**tiles", true},
        {L"abcabd", L"*abd", true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(cmpwild(std::wstring(c.text), std::wstring(c.pattern)), c.match)
            << getMBS(c.text) << " ~ " << getMBS(c.pattern);
    }
    // Case-blind use lowers both sides first.
    EXPECT_TRUE(cmpwild(lowercase(L"Brick WALL"), lowercase(L"brick*")));
}

TEST(Text, Utf8RoundTripsAndRepairsBadBytes) {
    const std::wstring text = L"Caf\u00e9 \u20ac \U0001F3E0 \u00fc";
    EXPECT_EQ(utf8(utf8(text)), text);
    EXPECT_EQ(utf8(std::wstring(L"\u20ac")), "\xE2\x82\xAC");
    EXPECT_EQ(getWCS("plain"), L"plain");
    EXPECT_EQ(getMBS(L"plain"), "plain");
    // Truncated sequence, stray continuation, overlong form, surrogate: each gives U+FFFD.
    EXPECT_EQ(utf8(std::string("a\xE2\x82")), L"a\uFFFD");
    EXPECT_EQ(utf8(std::string("\x80z")), L"\uFFFDz");
    EXPECT_EQ(utf8(std::string("\xC0\xAF")), L"\uFFFD");
    EXPECT_EQ(utf8(std::string("\xED\xA0\x80")), L"\uFFFD");
    EXPECT_EQ(getWCS("abc\xFF", 3), L"abc") << "the length limits the read";
}

TEST(Text, Windows1252Decoding) {
    const char legacy[] = "\x80 \x9c \xe9 A";
    EXPECT_EQ(fromWindows1252(legacy, sizeof legacy - 1), L"\u20ac \u0153 \u00e9 A");
}

TEST(Text, CaseAndWhitespace) {
    EXPECT_EQ(lowercase(L"Brick WALL \u00c9"), L"brick wall \u00e9");
    EXPECT_EQ(uppercase(L"glass"), L"GLASS");
    EXPECT_EQ(trimwhitespace(L" \t Wall 1 \r\n"), L"Wall 1");
    EXPECT_EQ(trimwhitespace(L"   "), L"");
    EXPECT_TRUE(isUspace(L'\t'));
    EXPECT_FALSE(isUspace(L'x'));
    EXPECT_TRUE(isUprint(L'x'));
    EXPECT_TRUE(isUprint(L'\u00e9'));
    EXPECT_FALSE(isUprint(L'\n'));
    CaseBlindLess less;
    EXPECT_FALSE(less(L"wall", L"WALL"));
    EXPECT_FALSE(less(L"WALL", L"wall"));
    EXPECT_TRUE(less(L"Roof", L"wall"));
    EXPECT_EQ(compareCaseBlind(L"Wall", L"wall 1"), -1);
}

TEST(Text, NumberFields) {
    double d = 0;
    long l = 0;
    EXPECT_TRUE(isDouble(&d, L" 3.25 ", 6));
    EXPECT_DOUBLE_EQ(d, 3.25);
    EXPECT_TRUE(isDouble(&d, L"-1e3", 4));
    EXPECT_DOUBLE_EQ(d, -1000);
    EXPECT_FALSE(isDouble(&d, L"3.25x", 5));
    EXPECT_FALSE(isDouble(&d, L"", 0));
    EXPECT_FALSE(isDouble(&d, L"  ", 2));
    EXPECT_TRUE(isDouble(&d, L"12abc", 2)) << "only the field's length is parsed";
    EXPECT_DOUBLE_EQ(d, 12);
    EXPECT_TRUE(isLong(&l, L"-42", 3));
    EXPECT_EQ(l, -42);
    EXPECT_FALSE(isLong(&l, L"4.2", 3));
    EXPECT_FALSE(isLong(&l, L"99999999999999999999999", 23));
    EXPECT_EQ(l, -42) << "a failed parse leaves the output alone";
}

TEST(Text, PrintfForms) {
    EXPECT_EQ(stringPrintf("%s-%03d", "tile", 7), "tile-007");
    EXPECT_EQ(stringPrintf(L"%ls %d", L"Wall", 2), L"Wall 2");
    const std::wstring big(5000, L'x');
    EXPECT_EQ(stringPrintf(L"[%ls]", big.c_str()).size(), 5002u) << "grows past its first buffer";
}

TEST(FilePath, SplittingAndJoining) {
    std::wstring name, ext;
    EXPECT_EQ(getDirectory(L"/home/a/scene.v2.zmp", name, ext), L"/home/a");
    EXPECT_EQ(name, L"scene.v2");
    EXPECT_EQ(ext, L".zmp");
    EXPECT_EQ(getDirectory(L"scene", name, ext), L"");
    EXPECT_EQ(name, L"scene");
    EXPECT_EQ(ext, L"");
    EXPECT_EQ(getDirectory(L"/.hidden", name, ext), L"/");
    EXPECT_EQ(name, L".hidden") << "a leading dot does not start an extension";
    EXPECT_EQ(ext, L"");
    EXPECT_EQ(getDirectory(L"dir/", name), L"dir");
    EXPECT_EQ(name, L"");
    EXPECT_EQ(joinDirectory(L"/a/", L"b"), L"/a/b");
    EXPECT_EQ(joinDirectory(L"/a", L"b"), L"/a/b");
    EXPECT_EQ(joinDirectory(L"", L"b"), L"b");
}

TEST(FilePath, AbsoluteForms) {
    EXPECT_EQ(absoluteFilename(L"/a/./b//c/../d"), L"/a/b/d");
    EXPECT_EQ(absoluteFilename(L"/../.."), L"/");
    char cwd[PATH_MAX];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_EQ(absoluteFilename(L"x/y"), absoluteFilename(utf8(std::string(cwd)) + L"/x/y"));
    EXPECT_EQ(build_abs_path(L"/base/dir", L"../f.zmp"), L"/base/f.zmp");
    EXPECT_EQ(build_abs_path(L"/base/dir", L"/abs/f.zmp"), L"/abs/f.zmp");
    EXPECT_EQ(getLongFilename(L"/nonexistent/q/../r"), L"/nonexistent/r");
}

TEST(FilePath, AbbreviationKeepsTheName) {
    const std::wstring p = L"/home/designer/projects/villa/scenes/terrace-evening.zmp";
    const std::wstring a = abbreviateFilename(p, 40);
    EXPECT_LE(a.size(), 40u);
    EXPECT_NE(a.find(L"terrace-evening.zmp"), std::wstring::npos);
    EXPECT_NE(a.find(L"..."), std::wstring::npos);
    EXPECT_EQ(abbreviateFilename(L"/short.zmp", 40), L"/short.zmp");
    EXPECT_LE(abbreviateFilename(p, 10).size(), 10u);
    EXPECT_EQ(abbreviateFilename(p, 0), L"");
}

TEST(FilePath, NamesAndTypes) {
    EXPECT_TRUE(okToAddToAbsolutePath(L"scene 1.zmp"));
    for (const wchar_t* bad : {L"", L".", L"..", L"a/b", L"tab\there"}) {
        EXPECT_FALSE(okToAddToAbsolutePath(bad)) << getMBS(bad);
    }
    const std::wstring list = L".bmp/.dib/.tif/.tiff/.zmp";
    EXPECT_EQ(analyzeFileType(L"/x/a.TIFF", list), 4) << "extensions compare without case";
    EXPECT_EQ(analyzeFileType(L"a.zmp", list), 5);
    EXPECT_EQ(analyzeFileType(L"a.png", list), 0);
    EXPECT_EQ(analyzeFileType(L"zmp", list), 0);
}

TEST(FilePath, FileOpenTakesWidePaths) {
    const std::wstring path = L"/tmp/quorvale-core-test-\u00e9.txt";
    std::FILE* f = TQL::fileOpen(path, "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("x", f);
    std::fclose(f);
    f = TQL::fileOpen(path, "rb");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(std::fgetc(f), 'x');
    std::fclose(f);
    std::remove(utf8(path).c_str());
}

} // namespace
