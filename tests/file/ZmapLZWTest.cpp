#include "file/ZmapLZWDecoder.h"
#include "file/ZmapLZWEncoder.h"

#include "CodecTestSupport.h"
#include "core/TqlError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

using namespace codec_test;

namespace {

constexpr std::uint32_t clearCode = 256;
constexpr std::uint32_t endCode = 257;

Bytes text(const char* s) {
    return Bytes(s, s + std::strlen(s));
}

/// "ABABABA" encoded, packed by hand from its codes (below).
const Bytes ababEncoded{0x80, 0x10, 0x48, 0x50, 0x28, 0x24, 0x04};

/// A stream of `count` literal codes after a clear code, each wide as a TIFF decoder
/// expects it. Every code but the first defines a table entry, so the decoder's next
/// free code after the k-th literal is 257 + k; the width grows when that reaches 511,
/// 1023 and 2047, which makes literals 1-254 nine bits wide, 255-766 ten, 767-1790
/// eleven and the rest twelve. `values` gives the bytes.
std::vector<Code> literalStream(const Bytes& values, bool withEnd) {
    auto widthOf = [](std::size_t k) -> std::uint32_t {
        return k <= 254 ? 9 : k <= 766 ? 10 : k <= 1790 ? 11 : 12;
    };
    std::vector<Code> codes{{clearCode, 9}};
    for (std::size_t k = 1; k <= values.size(); ++k) {
        codes.push_back({values[k - 1], widthOf(k)});
    }
    if (withEnd) {
        codes.push_back({endCode, widthOf(values.size() + 1)});
    }
    return codes;
}

/// Bytes in which no two neighbours repeat a pair seen before: 0, 1, ..., 255, then the
/// even bytes 0, 2, ..., and so on by larger steps. LZW finds nothing to share in them.
Bytes pairFree(std::size_t size) {
    Bytes out;
    for (int step = 1; out.size() < size; ++step) {
        for (int b = 0; b < 256 && out.size() < size; b += step) {
            out.push_back(static_cast<std::uint8_t>(b));
        }
    }
    return out;
}

// --- Known answers, computed by hand ------------------------------------------------

struct KnownAnswer {
    const char* name;
    Bytes raw;
    std::vector<Code> codes;
};

std::vector<KnownAnswer> knownAnswers() {
    // "ABABABA": A, B, AB (258), ABA (260); the codes 258 = AB, 259 = BA, 260 = ABA are
    // defined on the way. "AAAAAAA": A, AA (258), AAA (259), A; each string code is
    // used by the decoder the moment it is defined (the KwKwK case).
    return {
        {"empty", {}, {{endCode, 9}}},
        {"one byte", text("A"), {{clearCode, 9}, {65, 9}, {endCode, 9}}},
        {"ABABABA",
         text("ABABABA"),
         {{clearCode, 9}, {65, 9}, {66, 9}, {258, 9}, {260, 9}, {endCode, 9}}},
        {"AAAAAAA",
         text("AAAAAAA"),
         {{clearCode, 9}, {65, 9}, {258, 9}, {259, 9}, {65, 9}, {endCode, 9}}},
        {"width grows to 10 bits", pairFree(384), literalStream(pairFree(384), true)},
    };
}

TEST(ZmapLZW, EncoderMatchesHandComputedStreams) {
    auto encoder = newEncoder();
    for (const KnownAnswer& k : knownAnswers()) {
        SCOPED_TRACE(k.name);
        EXPECT_EQ(encodeBlock(*encoder, k.raw), packCodes(k.codes));
    }
}

TEST(ZmapLZW, EncoderWritesHandPackedBytes) {
    // The same streams packed by hand, which also checks the test's own packer.
    struct Case {
        Bytes raw;
        Bytes encoded;
    };
    const Case cases[] = {
        // 257 in 9 bits, padded: 10000000 1|0000000. No clear code before it.
        {{}, {0x80, 0x80}},
        // 100000000 001000001 001000010 100000010 100000100 100000001 00
        {text("ABABABA"), ababEncoded},
    };
    auto encoder = newEncoder();
    for (const Case& c : cases) {
        EXPECT_EQ(encodeBlock(*encoder, c.raw), c.encoded);
    }
}

TEST(ZmapLZW, DecoderReadsHandComputedStreams) {
    auto decoder = newDecoder();
    for (const KnownAnswer& k : knownAnswers()) {
        SCOPED_TRACE(k.name);
        bool ok = false;
        const Bytes out = decodeBlock(*decoder, packCodes(k.codes), k.raw.size(), ok);
        EXPECT_TRUE(ok);
        EXPECT_EQ(out, k.raw);
    }
}

TEST(ZmapLZW, DecoderFollowsEveryWidthUpToTwelveBits) {
    // 3839 literals fill the table exactly to code 4095; one more has nowhere to go.
    auto decoder = newDecoder();
    const Bytes values = noiseBytes(3839, 7);
    bool ok = false;
    const Bytes out =
        decodeBlock(*decoder, packCodes(literalStream(values, true)), values.size(), ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(out, values);
}

// --- Edge cases --------------------------------------------------------------------

TEST(ZmapLZW, LongRunCrossesTheTableResetRepeatedly) {
    // About 7.4 million equal bytes fill the table once, so 16 million reset it twice.
    constexpr std::size_t size = 16u << 20;
    const Bytes run(size, 0x5A);
    auto encoder = newEncoder();
    Bytes encoded;
    ASSERT_NO_THROW(encoded = encodeBlock(*encoder, run, 1u << 20));
    EXPECT_LT(encoded.size(), size / 1000);

    auto decoder = newDecoder();
    bool ok = false;
    const Bytes out = decodeBlock(*decoder, encoded, size, ok);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](std::uint8_t b) { return b == 0x5A; }));
}

TEST(ZmapLZW, RandomInputStaysWithinTheOutputBound) {
    auto encoder = newEncoder();
    auto decoder = newDecoder();
    for (std::size_t size : {1u, 2u, 100u, 4093u, 10000u, 65536u, 196608u, 400000u}) {
        SCOPED_TRACE(size);
        const Bytes raw = noiseBytes(size, static_cast<std::uint32_t>(size));
        Bytes encoded;
        ASSERT_NO_THROW(encoded = encodeBlock(*encoder, raw));
        EXPECT_GT(encoded.size(), size); // noise doesn't compress
        EXPECT_LE(encoded.size(), size + size / 2 + 256);
        bool ok = false;
        EXPECT_EQ(decodeBlock(*decoder, encoded, size, ok), raw);
        EXPECT_TRUE(ok);
    }
}

TEST(ZmapLZW, EncodingMoreThanAnnouncedRaisesTheOverflowError) {
    auto encoder = newEncoder();
    const Bytes raw = noiseBytes(4096, 3);
    ASSERT_TRUE(encoder->start(16)); // room for 16 * 1.5 + 256 bytes
    try {
        encoder->encode(raw.data(), static_cast<std::uint32_t>(raw.size()));
        encoder->finish();
        FAIL() << "no error raised";
    } catch (const TQL::TqlError& e) {
        EXPECT_STREQ(e.what(), "can't flush overflowing Tif data to Zmap file");
    }
    // The encoder stays usable for the next block.
    EXPECT_EQ(encodeBlock(*encoder, text("ABABABA")), ababEncoded);
}

TEST(ZmapLZW, DecodeRequestsThatEndInsideAStringResume) {
    // Long runs make long strings, so most request sizes cut through one.
    Bytes raw;
    for (int i = 0; i < 40; ++i) {
        raw.insert(raw.end(), static_cast<std::size_t>(i * 37 % 300), static_cast<std::uint8_t>(i));
    }
    const Bytes abab = text("ABABABA");
    auto encoder = newEncoder();
    auto decoder = newDecoder();
    for (const Bytes* data : {&abab, static_cast<const Bytes*>(&raw)}) {
        const Bytes encoded = encodeBlock(*encoder, *data);
        const auto block = exactCopy(encoded);
        for (std::size_t piece : {1u, 2u, 3u, 5u, 64u, 1000u}) {
            SCOPED_TRACE(piece);
            ASSERT_TRUE(decoder->start(block.get(), static_cast<std::uint32_t>(encoded.size())));
            Bytes out;
            for (std::size_t at = 0; at < data->size(); at += piece) {
                Bytes part(std::min(piece, data->size() - at));
                ASSERT_TRUE(decoder->decode(part.data(), static_cast<std::uint32_t>(part.size())));
                out.insert(out.end(), part.begin(), part.end());
            }
            EXPECT_EQ(out, *data);
        }
    }
}

// --- Round trips over many shapes ----------------------------------------------------

struct Shape {
    const char* name;
    Bytes raw;
};

std::vector<Shape> shapes() {
    std::vector<Shape> out;
    Bytes ramp(70000);
    for (std::size_t i = 0; i < ramp.size(); ++i) {
        ramp[i] = static_cast<std::uint8_t>(i / 97);
    }
    out.push_back({"gradient", ramp});
    out.push_back({"noise", noiseBytes(70000, 11)});
    out.push_back({"constant", Bytes(70000, 0)});
    out.push_back({"two bytes", Bytes{1, 2}});
    out.push_back({"short text", text("to be or not to be, that is the question")});
    Bytes lowNoise = noiseBytes(120000, 5);
    for (auto& b : lowNoise) {
        b &= 3; // few symbols: the table fills fast and is reset many times
    }
    out.push_back({"four symbols", lowNoise});
    Bytes blocks(90000);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        blocks[i] = static_cast<std::uint8_t>((i / 1000) * 41);
    }
    out.push_back({"blocks", blocks});
    return out;
}

TEST(ZmapLZW, RoundTripsManyShapesWholeAndInPieces) {
    auto encoder = newEncoder();
    auto decoder = newDecoder();
    for (const Shape& s : shapes()) {
        SCOPED_TRACE(s.name);
        const Bytes whole = encodeBlock(*encoder, s.raw);
        // Feeding the encoder row by row changes nothing in its output.
        EXPECT_EQ(encodeBlock(*encoder, s.raw, 771), whole);
        bool ok = false;
        EXPECT_EQ(decodeBlock(*decoder, whole, s.raw.size(), ok), s.raw);
        EXPECT_TRUE(ok);
    }
}

TEST(ZmapLZW, BlocksOfOneCodecAreIndependent) {
    // A codec kept across the tiles of a section gives what fresh ones give.
    auto encoder = newEncoder();
    auto decoder = newDecoder();
    for (const Shape& s : shapes()) {
        SCOPED_TRACE(s.name);
        auto freshEncoder = newEncoder();
        const Bytes encoded = encodeBlock(*encoder, s.raw);
        EXPECT_EQ(encodeBlock(*freshEncoder, s.raw), encoded);
        auto freshDecoder = newDecoder();
        bool ok = false, freshOk = false;
        EXPECT_EQ(decodeBlock(*decoder, encoded, s.raw.size(), ok),
                  decodeBlock(*freshDecoder, encoded, s.raw.size(), freshOk));
        EXPECT_TRUE(ok && freshOk);
    }
}

// --- Damaged input -------------------------------------------------------------------

bool allZero(const Bytes& b) {
    return std::all_of(b.begin(), b.end(), [](std::uint8_t v) { return v == 0; });
}

TEST(ZmapLZW, TruncatedBlocksFailWithZeroedOutput) {
    const Bytes raw = shapes()[0].raw; // the gradient
    auto encoder = newEncoder();
    const Bytes encoded = encodeBlock(*encoder, raw);
    auto decoder = newDecoder();
    // Every cut short of the last two bytes (which hold only the end code) loses data.
    for (std::size_t cut = 0; cut + 2 < encoded.size(); cut += 1 + cut / 8) {
        SCOPED_TRACE(cut);
        bool ok = true;
        const Bytes out =
            decodeBlock(*decoder, Bytes(encoded.begin(), encoded.begin() + cut), raw.size(), ok);
        EXPECT_FALSE(ok);
        EXPECT_TRUE(allZero(out));
    }
}

TEST(ZmapLZW, CorruptStreamsFail) {
    struct Case {
        const char* name;
        std::vector<Code> codes;
        std::size_t rawSize;
    };
    Bytes overfull = noiseBytes(3840, 7);
    const Case cases[] = {
        {"code beyond the next free one", {{clearCode, 9}, {65, 9}, {300, 9}}, 3},
        {"string code right after a clear", {{clearCode, 9}, {258, 9}, {endCode, 9}}, 2},
        {"string code with no table yet", {{259, 9}, {endCode, 9}}, 2},
        {"clear code at the very end", {{clearCode, 9}, {65, 9}, {clearCode, 9}}, 2},
        {"end before the wanted bytes", {{clearCode, 9}, {65, 9}, {endCode, 9}}, 2},
        {"table overflows without a clear", literalStream(overfull, true), overfull.size()},
    };
    auto decoder = newDecoder();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        bool ok = true;
        const Bytes out = decodeBlock(*decoder, packCodes(c.codes), c.rawSize, ok);
        EXPECT_FALSE(ok);
        EXPECT_TRUE(allZero(out));
        // A failed block keeps failing until the next start.
        Bytes more(4, 0xEE);
        EXPECT_FALSE(decoder->decode(more.data(), 4));
        EXPECT_TRUE(allZero(more));
    }
}

TEST(ZmapLZW, GarbageNeverReadsOutsideItsBlock) {
    // Random bytes mostly fail; whatever happens, AddressSanitizer watches the reads and
    // a failure leaves zeros.
    auto decoder = newDecoder();
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        Bytes garbage = noiseBytes(1 + seed % 97, seed);
        garbage[0] = 0x80; // mostly start with a clear code, to get further in
        if (seed % 3 == 0) {
            garbage[0] = static_cast<std::uint8_t>(seed);
        }
        bool ok = false;
        const Bytes out = decodeBlock(*decoder, garbage, 500, ok);
        if (!ok) {
            EXPECT_TRUE(allZero(out)) << "seed " << seed;
        }
    }
}

TEST(ZmapLZW, DataAfterTheEndCodeIsNotUsed) {
    Bytes stream = packCodes({{clearCode, 9}, {65, 9}, {endCode, 9}, {66, 9}});
    auto decoder = newDecoder();
    bool ok = false;
    EXPECT_EQ(decodeBlock(*decoder, stream, 1, ok), text("A"));
    EXPECT_TRUE(ok);
    decodeBlock(*decoder, stream, 2, ok);
    EXPECT_FALSE(ok);
}

// --- Making codecs ---------------------------------------------------------------------

TEST(ZmapCodecFactory, LZWIsConfiguredAndOthersAreNot) {
    RecordingErrorReporter reporter;
    Status status = -1;
    auto encoder = makeZmapEncoder(status, zmapCompression::lzw, reporter);
    ASSERT_NE(encoder, nullptr);
    EXPECT_EQ(status, status::ok);
    EXPECT_EQ(encoder->name(), L"LZW");
    auto decoder = makeZmapDecoder(status, zmapCompression::lzw, reporter);
    ASSERT_NE(decoder, nullptr);
    EXPECT_EQ(reporter.count(), 0);

    struct Case {
        int compression;
        const wchar_t* text;
    };
    const Case cases[] = {
        {7, L"JPEG compression support is not configured"},
        {32773, L"PackBits compression support is not configured"},
        {99, L"Compression scheme 99 compression support is not configured"},
    };
    for (const Case& c : cases) {
        reporter.clear();
        EXPECT_EQ(makeZmapDecoder(status, c.compression, reporter), nullptr);
        EXPECT_EQ(status, status::unsupportedCompression);
        EXPECT_EQ(reporter.lastText(), c.text);
        EXPECT_EQ(makeZmapEncoder(status, c.compression, reporter), nullptr);
        EXPECT_EQ(status, status::unsupportedCompression);
        EXPECT_EQ(reporter.count(), 2);
    }
}

} // namespace
