#include "interchange/dxf/DXFStream.h"
#include "interchange/model/ExportError.h"

#include "DxfBuilder.h"

#include <gtest/gtest.h>

namespace {

std::span<const unsigned char> span(const std::string& s) {
    return {reinterpret_cast<const unsigned char*>(s.data()), s.size()};
}

/// All groups of a stream as (code, text or number) pairs.
struct Read {
    int code;
    std::string text;
    double number;
    long line;
};
std::vector<Read> readAll(DXFStream& s) {
    std::vector<Read> out;
    DXFItem item;
    while (s.read(item)) {
        const bool numeric = item.datatype != DXFDatatype::Text;
        out.push_back(
            {item.code, std::string(item.trimmed()), numeric ? item.asDouble() : 0, item.line});
    }
    return out;
}

TEST(DXFDatatype, CodeRangesFollowThePublishedTable) {
    using T = DXFDatatype;
    const std::pair<int, T> cases[] = {
        {0, T::Text},     {9, T::Text},     {10, T::Double},   {39, T::Double},   {59, T::Double},
        {60, T::Int16},   {79, T::Int16},   {80, T::None},     {89, T::None},     {90, T::Int32},
        {99, T::Int32},   {100, T::Text},   {102, T::Text},    {105, T::Text},    {106, T::None},
        {110, T::Double}, {149, T::Double}, {150, T::None},    {160, T::Int},     {170, T::Int16},
        {180, T::None},   {210, T::Double}, {239, T::Double},  {240, T::None},    {270, T::Int16},
        {289, T::Int16},  {290, T::Int},    {300, T::Text},    {310, T::Text},    {330, T::Text},
        {369, T::Text},   {370, T::Int16},  {390, T::Text},    {400, T::Int16},   {410, T::Text},
        {420, T::Int32},  {430, T::Text},   {440, T::Int32},   {459, T::Int32},   {460, T::Double},
        {470, T::Text},   {481, T::Text},   {482, T::None},    {998, T::None},    {999, T::Text},
        {1000, T::Text},  {1009, T::Text},  {1010, T::Double}, {1059, T::Double}, {1060, T::Int16},
        {1070, T::Int16}, {1071, T::Int32}, {1072, T::None},   {-1, T::None},     {32767, T::None},
    };
    for (const auto& [code, type] : cases) {
        EXPECT_EQ(dxfDatatype(code), type) << code;
    }
}

TEST(DXFBinaryStream, CodeByte255TakesTheNextTwoBytesAsTheCode) {
    std::string data(DXFBinaryStream::sentinel);
    data += std::string("\0SECTION\0", 9);
    data += std::string("\xFF\xE8\x03hello\0", 9);          // 1000, "hello"
    data += std::string("\xFF\x2F\x04\x01\x02\x03\x04", 7); // 1071, 0x04030201
    data += std::string("\x46\xFE\xFF", 3);                 // 70, -2
    data += std::string("\xFF\x22\x01\x01", 4);             // 290, a one-byte flag
    DXFBinaryStream s(span(data), L"b.dxf");
    EXPECT_FALSE(s.twoByteCodes());
    const auto groups = readAll(s);
    ASSERT_EQ(groups.size(), 5u);
    EXPECT_EQ(groups[0].text, "SECTION");
    EXPECT_EQ(groups[1].code, 1000);
    EXPECT_EQ(groups[1].text, "hello");
    EXPECT_EQ(groups[2].code, 1071);
    EXPECT_EQ(groups[2].number, 0x04030201);
    EXPECT_EQ(groups[3].code, 70);
    EXPECT_EQ(groups[3].number, -2);
    EXPECT_EQ(groups[4].code, 290);
    EXPECT_EQ(groups[4].number, 1);
    // Lines are those the text form would give: 2k + 1 for the k-th group.
    EXPECT_EQ(groups[3].line, 7);
}

TEST(DXFBinaryStream, TwoByteCodesAreFoundFromTheFirstGroup) {
    DxfBuilder b;
    b.section("ENTITIES").real(10, 1.5).int16(70, 300).text(1000, "x").endsec().eof();
    for (bool wide : {false, true}) {
        const std::string data = b.binary(wide);
        DXFBinaryStream s(span(data), L"b.dxf");
        EXPECT_EQ(s.twoByteCodes(), wide);
        const auto groups = readAll(s);
        ASSERT_EQ(groups.size(), 7u);
        EXPECT_EQ(groups[2].number, 1.5);
        EXPECT_EQ(groups[3].number, 300);
        EXPECT_EQ(groups[4].code, 1000);
        EXPECT_EQ(groups[6].text, "EOF");
    }
}

TEST(DXFAsciiStream, ReadsPaddedCodesAndBothLineEnds) {
    const std::string data =
        "\xEF\xBB\xBF  0\r\nSECTION\r\n  2\nENTITIES  \n 10\n  -2.5e3\n999\ncomment\n";
    DXFAsciiStream s(span(data), L"a.dxf");
    const auto groups = readAll(s);
    ASSERT_EQ(groups.size(), 4u);
    EXPECT_EQ(groups[0].code, 0);
    EXPECT_EQ(groups[0].text, "SECTION");
    EXPECT_EQ(groups[1].text, "ENTITIES");
    EXPECT_EQ(groups[2].number, -2500);
    EXPECT_EQ(groups[2].line, 5);
    EXPECT_EQ(groups[3].code, 999);
}

TEST(DXFAsciiStream, NumbersAreParsedOnFirstUseAndFailWithTheirLine) {
    const std::string data = "10\n1.5x\n70\n 12 \n70\n1.5\n 1\ntext\n";
    DXFAsciiStream s(span(data), L"a.dxf");
    DXFItem a, b, c, d;
    ASSERT_TRUE(s.read(a) && s.read(b) && s.read(c) && s.read(d));
    EXPECT_EQ(b.asInt(), 12);
    EXPECT_EQ(b.describe(), L"Group @3: 70 12");
    auto message = [](const DXFItem& item, bool asInt) {
        try {
            asInt ? item.asInt() : item.asDouble();
        } catch (const ExportError& e) {
            return std::wstring(e.wWhat());
        }
        return std::wstring(L"no error");
    };
    EXPECT_EQ(message(a, false), L"Error reading double item value at line 2 in a.dxf");
    EXPECT_EQ(message(c, true), L"Error reading integer item value at line 6 in a.dxf");
    EXPECT_EQ(message(d, false), L"Bad DXF group: item <Double> needed at line 7 in a.dxf");
}

TEST(DXFStream, UnreadGivesTheSameGroupAgain) {
    const std::string data = "0\nLINE\n8\nWalls\n";
    DXFAsciiStream s(span(data), L"a.dxf");
    DXFItem item;
    ASSERT_TRUE(s.read(item));
    s.unread(item);
    DXFItem again;
    ASSERT_TRUE(s.readCode(again));
    s.skipValue(again); // the value came back with the group: nothing more is read
    EXPECT_EQ(again.trimmed(), "LINE");
    ASSERT_TRUE(s.read(item));
    EXPECT_EQ(item.code, 8);
    EXPECT_EQ(item.trimmed(), "Walls");
    EXPECT_FALSE(s.read(item));
}

} // namespace
