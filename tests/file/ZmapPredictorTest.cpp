#include "file/ZmapPredictor.h"

#include "CodecTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace codec_test;

namespace {

Bytes wordsLittleEndian(std::initializer_list<std::uint32_t> words) {
    Bytes out;
    for (std::uint32_t w : words) {
        for (int i = 0; i < 4; ++i) {
            out.push_back(static_cast<std::uint8_t>(w >> (8 * i)));
        }
    }
    return out;
}

Bytes wordsBigEndian(std::initializer_list<std::uint32_t> words) {
    Bytes out;
    for (std::uint32_t w : words) {
        for (int i = 3; i >= 0; --i) {
            out.push_back(static_cast<std::uint8_t>(w >> (8 * i)));
        }
    }
    return out;
}

/// Pixels in a buffer aligned for 32-bit samples.
struct Pixels {
    explicit Pixels(const Bytes& bytes) : words((bytes.size() + 3) / 4), size(bytes.size()) {
        std::memcpy(words.data(), bytes.data(), bytes.size());
    }
    void* data() { return words.data(); }
    Bytes bytes() const {
        const auto* p = reinterpret_cast<const std::uint8_t*>(words.data());
        return Bytes(p, p + size);
    }
    std::vector<std::uint32_t> words;
    std::size_t size;
};

struct Case {
    const char* name;
    FilePixelType type;
    bool swapped;
    std::uint32_t width, rows;
    Bytes raw;
    Bytes predicted; // worked out by hand
};

std::vector<Case> handCases() {
    return {
        // Colour: each of the three samples from its own neighbour, bytes wrap around.
        {"rgb24",
         FilePixelType::rgb24,
         false,
         3,
         1,
         {10, 20, 30, 15, 25, 35, 5, 5, 5},
         {10, 20, 30, 5, 5, 5, 246, 236, 226}},
        {"bgr24 swapped is the same",
         FilePixelType::bgr24,
         true,
         3,
         1,
         {10, 20, 30, 15, 25, 35, 5, 5, 5},
         {10, 20, 30, 5, 5, 5, 246, 236, 226}},
        // Rows are independent: the second row starts again from its own first pixel.
        {"grey8 two rows",
         FilePixelType::grey8,
         false,
         4,
         2,
         {1, 3, 6, 10, 200, 100, 0, 255},
         {1, 2, 3, 4, 200, 156, 156, 255}},
        {"depth32", FilePixelType::depth32, false, 3, 1, wordsLittleEndian({1, 0, 0xFFFFFFFF}),
         wordsLittleEndian({1, 0xFFFFFFFF, 0xFFFFFFFF})},
        // Big-endian words 0x000000FF, 0x00000100, 0x00010000: differences 0x01, 0xFF00,
        // stored big-endian again. A plain byte-wise or little-endian subtraction of the
        // same bytes would give other answers (0x0100 - 0x00FF carries across bytes).
        {"depth32 swapped", FilePixelType::depth32, true, 3, 1,
         wordsBigEndian({0x000000FF, 0x00000100, 0x00010000}),
         wordsBigEndian({0x000000FF, 0x00000001, 0x0000FF00})},
        // 16-bit material ids are never predicted.
        {"index16 untouched", FilePixelType::index16, false, 2, 1, {1, 0, 9, 0}, {1, 0, 9, 0}},
        {"index8 untouched", FilePixelType::index8, false, 3, 1, {7, 9, 4}, {7, 9, 4}},
    };
}

TEST(ZmapPredictor, EncodesAndDecodesHandComputedRows) {
    for (const Case& c : handCases()) {
        SCOPED_TRACE(c.name);
        const auto predictor = makePredictor(c.type, c.swapped);
        Pixels pixels(c.raw);
        predictor->encodeRows(pixels.data(), c.width, c.rows);
        EXPECT_EQ(pixels.bytes(), c.predicted);
        predictor->decodeRows(pixels.data(), c.width, c.rows);
        EXPECT_EQ(pixels.bytes(), c.raw);
    }
}

TEST(ZmapPredictor, WidthOneChangesNothing) {
    const Bytes raw = noiseBytes(4 * 3 * 17, 21);
    for (auto type : {FilePixelType::rgb24, FilePixelType::bgr24, FilePixelType::grey8,
                      FilePixelType::depth32}) {
        for (bool swapped : {false, true}) {
            const auto predictor = makePredictor(type, swapped);
            const std::uint32_t rows = static_cast<std::uint32_t>(raw.size()) * 8 /
                                       static_cast<std::uint32_t>(bitsPerPixel(type));
            Pixels pixels(raw);
            predictor->encodeRows(pixels.data(), 1, rows);
            EXPECT_EQ(pixels.bytes(), raw);
            predictor->decodeRows(pixels.data(), 1, rows);
            EXPECT_EQ(pixels.bytes(), raw);
        }
    }
}

TEST(ZmapPredictor, RoundTripsEveryElementType) {
    struct Shape {
        std::uint32_t width, rows;
    };
    for (auto type : {FilePixelType::rgb24, FilePixelType::grey8, FilePixelType::depth32}) {
        for (bool swapped : {false, true}) {
            for (Shape s : {Shape{64, 64}, Shape{7, 3}, Shape{256, 2}}) {
                SCOPED_TRACE(testing::Message()
                             << static_cast<int>(type) << " swapped " << swapped << " " << s.width);
                const auto predictor = makePredictor(type, swapped);
                const Bytes raw = noiseBytes(std::size_t{s.width} * s.rows *
                                                 static_cast<std::size_t>(bitsPerPixel(type)) / 8,
                                             s.width + s.rows);
                Pixels pixels(raw);
                predictor->encodeRows(pixels.data(), s.width, s.rows);
                EXPECT_NE(pixels.bytes(), raw);
                predictor->decodeRows(pixels.data(), s.width, s.rows);
                EXPECT_EQ(pixels.bytes(), raw);
            }
        }
    }
}

TEST(ZmapPredictor, SwappedWordsMatchTheByteSwappedPlainResult) {
    // Predicting big-endian words must equal: swap to native, predict, swap back.
    const std::uint32_t width = 33, rows = 5;
    Noise noise(99);
    std::vector<std::uint32_t> native(width * rows);
    for (auto& w : native) {
        w = noise.next() >> (noise.next() % 32); // all magnitudes, so carries cross bytes
    }
    std::vector<std::uint32_t> swapped(native.size());
    for (std::size_t i = 0; i < native.size(); ++i) {
        swapped[i] = __builtin_bswap32(native[i]);
    }
    makePredictor(FilePixelType::depth32, false)->encodeRows(native.data(), width, rows);
    makePredictor(FilePixelType::depth32, true)->encodeRows(swapped.data(), width, rows);
    for (std::size_t i = 0; i < native.size(); ++i) {
        ASSERT_EQ(__builtin_bswap32(swapped[i]), native[i]) << "word " << i;
    }
}

} // namespace
