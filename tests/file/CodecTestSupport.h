#pragma once

// Helpers shared by the codec tests: deterministic pixel content, whole-block encode and
// decode, and a packer for hand-written LZW code streams.

#include "file/ImageErrorReporter.h"
#include "file/ZmapLZWDecoder.h"
#include "file/ZmapLZWEncoder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace codec_test {

using Bytes = std::vector<std::uint8_t>;

/// Deterministic pseudo-random numbers (xorshift32), the same on every run.
class Noise {
public:
    explicit Noise(std::uint32_t seed) : state_(seed ? seed : 1) {}
    std::uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    std::uint8_t byte() { return static_cast<std::uint8_t>(next() >> 24); }

private:
    std::uint32_t state_;
};

inline Bytes noiseBytes(std::size_t size, std::uint32_t seed) {
    Noise noise(seed);
    Bytes bytes(size);
    for (auto& b : bytes) {
        b = noise.byte();
    }
    return bytes;
}

/// A working LZW encoder or decoder.
template <class Codec> std::unique_ptr<Codec> newCodec() {
    RecordingErrorReporter reporter;
    Status status = -1;
    auto codec = Codec::create(status, reporter);
    EXPECT_EQ(status, status::ok);
    return codec;
}
inline std::unique_ptr<ZmapLZWEncoder> newEncoder() {
    return newCodec<ZmapLZWEncoder>();
}
inline std::unique_ptr<ZmapLZWDecoder> newDecoder() {
    return newCodec<ZmapLZWDecoder>();
}

/// Encodes `raw` as one block, fed in pieces of `piece` bytes (all at once for 0).
inline Bytes encodeBlock(ZmapEncoder& encoder, const Bytes& raw, std::size_t piece = 0) {
    EXPECT_TRUE(encoder.start(static_cast<std::uint32_t>(raw.size())));
    const std::size_t step = piece == 0 ? raw.size() : piece;
    for (std::size_t at = 0; at < raw.size(); at += step) {
        const std::size_t n = std::min(step, raw.size() - at);
        EXPECT_TRUE(encoder.encode(raw.data() + at, static_cast<std::uint32_t>(n)));
    }
    EXPECT_TRUE(encoder.finish());
    return Bytes(encoder.encodedData(), encoder.encodedData() + encoder.encodedSize());
}

/// A heap copy of exactly `data.size()` bytes, so that AddressSanitizer reports any read
/// past the end of the block.
inline std::unique_ptr<std::uint8_t[]> exactCopy(const Bytes& data) {
    std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[data.size()]);
    if (!data.empty()) {
        std::memcpy(copy.get(), data.data(), data.size());
    }
    return copy;
}

/// Decodes a whole block of `rawSize` bytes in one request; `ok` tells the result.
inline Bytes decodeBlock(ZmapDecoder& decoder, const Bytes& encoded, std::size_t rawSize,
                         bool& ok) {
    const auto block = exactCopy(encoded);
    Bytes out(rawSize, 0xCD);
    EXPECT_TRUE(decoder.start(block.get(), static_cast<std::uint32_t>(encoded.size())));
    ok = decoder.decode(out.data(), static_cast<std::uint32_t>(rawSize));
    return out;
}

/// One code of a hand-written stream and its width in bits.
struct Code {
    std::uint32_t value;
    std::uint32_t bits;
};

/// Packs codes most significant bit first, the last byte padded with zero bits.
inline Bytes packCodes(const std::vector<Code>& codes) {
    Bytes out;
    std::uint64_t acc = 0;
    int count = 0;
    for (const Code& c : codes) {
        acc = (acc << c.bits) | c.value;
        count += static_cast<int>(c.bits);
        while (count >= 8) {
            out.push_back(static_cast<std::uint8_t>(acc >> (count - 8)));
            count -= 8;
        }
    }
    if (count > 0) {
        out.push_back(static_cast<std::uint8_t>(acc << (8 - count)));
    }
    return out;
}

} // namespace codec_test
