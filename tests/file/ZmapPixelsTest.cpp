#include "file/ZmapPixels.h"

#include "CodecTestSupport.h"
#include "file/ImageErrorReporter.h"

#include <gtest/gtest.h>

using namespace codec_test;

namespace {

using T = FilePixelType;

struct Conversion {
    const char* name;
    T to, from;
    bool swapped;
    Bytes in;
    Bytes expected;
};

TEST(ConvertPixels, TableOfConversions) {
    const Conversion cases[] = {
        {"rgb copy", T::rgb24, T::rgb24, false, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}},
        {"rgb copy, swapped file: bytes have no order",
         T::rgb24,
         T::rgb24,
         true,
         {1, 2, 3},
         {1, 2, 3}},
        {"grey copy", T::grey8, T::grey8, true, {9, 8}, {9, 8}},
        {"16-bit copy", T::index16, T::index16, false, {1, 2, 3, 4}, {1, 2, 3, 4}},
        {"16-bit copy from a swapped file",
         T::index16,
         T::index16,
         true,
         {1, 2, 3, 4},
         {2, 1, 4, 3}},
        {"32-bit copy from a swapped file",
         T::depth32,
         T::depth32,
         true,
         {1, 2, 3, 4, 5, 6, 7, 8},
         {4, 3, 2, 1, 8, 7, 6, 5}},
        {"store colour to file",
         T::rgb24,
         T::bgr24,
         false,
         {0x10, 0x20, 0x30, 1, 2, 3},
         {0x30, 0x20, 0x10, 3, 2, 1}},
        {"file colour to store", T::bgr24, T::rgb24, false, {0x10, 0x20, 0x30}, {0x30, 0x20, 0x10}},
        {"grey file to store colour",
         T::bgr24,
         T::grey8,
         false,
         {7, 200},
         {7, 7, 7, 200, 200, 200}},
        // Little-endian 0x12345678 and 0xAB000001: top bytes 0x12 and 0xAB.
        {"depth to grey",
         T::grey8,
         T::depth32,
         false,
         {0x78, 0x56, 0x34, 0x12, 0x01, 0x00, 0x00, 0xAB},
         {0x12, 0xAB}},
        {"depth of a swapped file to grey",
         T::grey8,
         T::depth32,
         true,
         {0x12, 0x34, 0x56, 0x78},
         {0x12}},
        {"8-bit ids widened, unscaled", T::index16, T::index8, false, {5, 255}, {5, 0, 255, 0}},
        {"grey to depth repeats the byte",
         T::depth32,
         T::grey8,
         false,
         {0xA7, 0},
         {0xA7, 0xA7, 0xA7, 0xA7, 0, 0, 0, 0}},
        {"no pixels", T::rgb24, T::bgr24, false, {}, {}},
    };
    for (const Conversion& c : cases) {
        SCOPED_TRACE(c.name);
        const std::size_t count = c.in.size() * 8 / static_cast<std::size_t>(bitsPerPixel(c.from));
        Bytes out(c.expected.size() + 1, 0xEE); // one guard byte past the end
        RecordingErrorReporter reporter;
        EXPECT_EQ(convertPixels(out.data(), c.to, c.in.data(), c.from, count, c.swapped, reporter),
                  status::ok);
        EXPECT_EQ(Bytes(out.begin(), out.end() - 1), c.expected);
        EXPECT_EQ(out.back(), 0xEE);
        EXPECT_EQ(reporter.count(), 0);
    }
}

TEST(ConvertPixels, OtherPairsFailAndReport) {
    struct Pair {
        T to, from;
    };
    const Pair pairs[] = {
        {T::grey8, T::rgb24},     {T::rgb24, T::grey8},     {T::depth32, T::rgb24},
        {T::index8, T::index16},  {T::index16, T::grey8},   {T::grey8, T::index16},
        {T::depth32, T::index16}, {T::alpha32, T::depth32}, {T::depth32, T::alpha32},
        {T::none, T::none},       {T::rgb24, T::none},      {T::grey8, T::alpha32},
    };
    for (const Pair& p : pairs) {
        SCOPED_TRACE(testing::Message()
                     << static_cast<int>(p.to) << " <- " << static_cast<int>(p.from));
        Bytes in(16, 1);
        Bytes out(16, 0xEE);
        RecordingErrorReporter reporter;
        EXPECT_EQ(convertPixels(out.data(), p.to, in.data(), p.from, 4, false, reporter),
                  status::noConversion);
        EXPECT_EQ(out, Bytes(16, 0xEE)); // nothing written
        EXPECT_EQ(reporter.count(), 1);
        EXPECT_EQ(reporter.lastText(), statusText(status::noConversion));
    }
}

} // namespace
