#pragma once

#include "core/Status.h"
#include "file/ZmapCodec.h"

#include <cstdint>
#include <memory>

/// The TIFF LZW decoder (compression 5).
class ZmapLZWDecoder : public ZmapDecoder {
public:
    /// The working decoder. Null with status -10 when memory ran out, after a report of
    /// "No space for LZW state block" or "No space for LZW code table" to `reporter`.
    static std::unique_ptr<ZmapLZWDecoder> create(Status& status, ImageErrorReporter& reporter);

protected:
    ZmapLZWDecoder();
};

/// The decoder's working state. Its code table is built once and reused for every block.
/// The decoder is strict: a code that is not yet defined, a table that overflows or data
/// that ends too soon fail the block; it never reads outside the block it was given.
/// A request that ends inside a code's string keeps the rest for the next request.
class LZWDecodeState final : public ZmapLZWDecoder {
public:
    ~LZWDecodeState() override;

    bool start(const std::uint8_t* data, std::uint32_t size) override;
    bool decode(std::uint8_t* out, std::uint32_t count) override;

    /// One code: its string is `value` preceded by the string of `next`. The string
    /// also lies, whole, in the block's output at offset `at`; while that part of the
    /// output is in the running request's buffer it is copied from there.
    struct Entry {
        std::uint16_t next;   ///< code of the string without its last byte
        std::uint8_t value;   ///< last byte of the string
        std::uint8_t first;   ///< first byte of the string
        std::uint32_t length; ///< bytes in the string; 0 for a code not in the table
        std::uint64_t at;     ///< offset of the string in the block's output
    };

private:
    friend class ZmapLZWDecoder;
    LZWDecodeState() = default;

    /// Fails the block: the whole request is zeroed, and the fault recorded with the
    /// output and input positions it happened at.
    bool fail(std::uint8_t* out, std::uint32_t count, std::uint64_t produced,
              std::uint64_t inputOffset, std::wstring what);

    std::unique_ptr<Entry[]> table_;

    const std::uint8_t* data_ = nullptr; ///< the block's first compressed byte
    const std::uint8_t* in_ = nullptr;
    const std::uint8_t* inEnd_ = nullptr;
    std::uint64_t bitBuffer_ = 0; ///< bits read but not used, right-aligned
    std::uint32_t bitCount_ = 0;

    std::uint64_t produced_ = 0; ///< bytes of the block written by earlier requests

    std::uint32_t bits_ = 0;
    std::uint32_t freeCode_ = 0;
    std::uint32_t previous_ = 0;
    std::uint64_t previousAt_ = 0; ///< where the string of previous_ starts in the output

    std::uint32_t pendingCode_ = 0; ///< string cut short by the end of the last request
    std::uint32_t pendingDone_ = 0; ///< its bytes already written; 0 when none is pending
    bool failed_ = false;
};
