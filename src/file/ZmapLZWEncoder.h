#pragma once

#include "core/Status.h"
#include "file/ZmapCodec.h"

#include <cstdint>
#include <memory>

/// The TIFF LZW encoder (compression 5). Its output is plain TIFF LZW that any TIFF
/// reader decodes.
class ZmapLZWEncoder : public ZmapEncoder {
public:
    /// The working encoder. Null with status -10 when memory ran out, after a report of
    /// "No space for LZW state block" or "No space for LZW hash table" to `reporter`.
    static std::unique_ptr<ZmapLZWEncoder> create(Status& status, ImageErrorReporter& reporter);

protected:
    ZmapLZWEncoder();
};

/// The encoder's working state. Its tables and output buffer are allocated once and kept
/// for every block it encodes, so encoding a block allocates nothing unless the block is
/// larger than any before it.
///
/// encode() and finish() raise TQL::TqlError "can't flush overflowing Tif data to Zmap
/// file" when the output outgrows its buffer of rawSize * 1.5 + 256 bytes, which happens
/// only when more bytes are encoded than start() was told.
class LZWEncodeState final : public ZmapLZWEncoder {
public:
    ~LZWEncodeState() override;

    bool start(std::uint32_t rawSize) override;
    bool encode(const std::uint8_t* data, std::uint32_t size) override;
    bool finish() override;
    std::uint32_t encodedSize() const override { return static_cast<std::uint32_t>(out_); }
    const std::uint8_t* encodedData() const override { return buffer_.get(); }

    /// One slot of the open-addressed table from (previous code, next byte) to a code.
    struct HashEntry {
        std::int32_t key; ///< (byte << 12) + previous code, -1 when the slot is free
        std::uint16_t code;
    };
    static constexpr int hashSize = 9001; ///< a prime a little over twice the 4096 codes

private:
    friend class ZmapLZWEncoder;
    LZWEncodeState() = default;

    void clearHash();
    [[noreturn]] static void overflow();

    std::unique_ptr<HashEntry[]> hash_;
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::size_t capacity_ = 0;
    std::size_t limit_ = 0; ///< writing a code is refused once out_ has passed this
    std::size_t out_ = 0;   ///< bytes written to buffer_

    // The code state of the running block.
    std::uint32_t bits_ = 0;
    std::uint32_t maxCode_ = 0;
    std::uint32_t freeCode_ = 0;
    std::uint32_t previous_ = 0;
    // The ratio watch: input bytes and output bits since the last reset.
    std::uint64_t checkPoint_ = 0;
    std::uint64_t inCount_ = 0;
    std::uint64_t outCount_ = 0;
    std::int64_t ratio_ = 0;
    // Bits not yet written, right-aligned in the accumulator.
    std::uint32_t bitBuffer_ = 0;
    std::uint32_t bitCount_ = 0;
};
