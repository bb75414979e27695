#include "file/ZmapLZWEncoder.h"

#include "core/TqlError.h"
#include "file/ImageErrorReporter.h"
#include "file/LZWCodes.h"

#include <algorithm>
#include <limits>
#include <new>

namespace {
/// Input bytes between two looks at the compression ratio.
constexpr std::uint64_t checkGap = 10000;
/// Room kept at the end of the output buffer: one code, a clear code and the last bits
/// of finish() fit into it after the limit test has passed.
constexpr std::size_t outputSlack = 5;
/// The hash of (previous, byte) is (byte << hashShift) ^ previous.
constexpr std::uint32_t hashShift = 5;
constexpr std::int32_t freeKey = -1;
/// Both operands of the hash are below 8192, so the hash is always inside the table and
/// never needs folding back into it.
static_assert(((255u << hashShift) | (lzw::tableSize - 1)) < LZWEncodeState::hashSize);

/// Appends `code`, `bits` wide, most significant bit first. At most 7 bits wait in `acc`
/// between calls, so one or two whole bytes leave with every code.
inline void putCode(std::uint8_t*& op, std::uint32_t& acc, std::uint32_t& accBits,
                    std::uint32_t code, std::uint32_t bits) {
    acc = (acc << bits) | code;
    accBits += bits;
    *op++ = static_cast<std::uint8_t>(acc >> (accBits - 8));
    accBits -= 8;
    if (accBits >= 8) {
        *op++ = static_cast<std::uint8_t>(acc >> (accBits - 8));
        accBits -= 8;
    }
}

/// Input bytes per output bit, times 256: the measure of how well the table works.
inline std::int64_t compressionRatio(std::uint64_t inCount, std::uint64_t outBits) {
    if (inCount < 0x800000) {
        return outBits == 0 ? 0x7FFFFFFF : static_cast<std::int64_t>((inCount << 8) / outBits);
    }
    const std::uint64_t divisor = outBits >> 8;
    return divisor == 0 ? 0x7FFFFFFF : static_cast<std::int64_t>(inCount / divisor);
}
} // namespace

ZmapLZWEncoder::ZmapLZWEncoder() : ZmapEncoder(lzw::codecName) {}

std::unique_ptr<ZmapLZWEncoder> ZmapLZWEncoder::create(Status& status,
                                                       ImageErrorReporter& reporter) {
    std::unique_ptr<LZWEncodeState> state(new (std::nothrow) LZWEncodeState);
    if (!state) {
        status = lzw::noSpace(reporter, L"No space for LZW state block");
        return nullptr;
    }
    state->hash_.reset(new (std::nothrow) LZWEncodeState::HashEntry[LZWEncodeState::hashSize]);
    if (!state->hash_) {
        status = lzw::noSpace(reporter, L"No space for LZW hash table");
        return nullptr;
    }
    status = status::ok;
    return state;
}

LZWEncodeState::~LZWEncodeState() = default;

void LZWEncodeState::clearHash() {
    std::fill_n(hash_.get(), hashSize, HashEntry{freeKey, 0});
}

void LZWEncodeState::overflow() {
    throw TQL::TqlError(L"can't flush overflowing Tif data to Zmap file");
}

bool LZWEncodeState::start(std::uint32_t rawSize) {
    const std::uint64_t wanted = std::uint64_t{rawSize} + rawSize / 2 + 256;
    if (wanted > std::numeric_limits<std::uint32_t>::max()) {
        return false;
    }
    if (wanted > capacity_) {
        buffer_.reset(new (std::nothrow) std::uint8_t[wanted]);
        capacity_ = buffer_ ? wanted : 0;
        if (!buffer_) {
            return false;
        }
    }
    limit_ = capacity_ - outputSlack;
    out_ = 0;
    bits_ = lzw::minBits;
    maxCode_ = lzw::maxCodeOf(lzw::minBits);
    freeCode_ = lzw::firstFreeCode;
    checkPoint_ = checkGap;
    ratio_ = 0;
    inCount_ = 0;
    outCount_ = 0;
    clearHash();
    previous_ = lzw::noCode;
    bitBuffer_ = 0;
    bitCount_ = 0;
    return true;
}

bool LZWEncodeState::encode(const std::uint8_t* data, std::uint32_t size) {
    if (!buffer_) {
        return false; // start() was never called, or failed
    }
    if (size == 0) {
        return true;
    }
    // The state lives in locals for the loop and goes back to the members at the end.
    const std::uint8_t* in = data;
    const std::uint8_t* const inEnd = data + size;
    std::uint8_t* op = buffer_.get() + out_;
    const std::uint8_t* const limit = buffer_.get() + limit_;
    HashEntry* const hash = hash_.get();
    std::uint32_t previous = previous_;
    std::uint32_t bits = bits_;
    std::uint32_t maxCode = maxCode_;
    std::uint32_t freeCode = freeCode_;
    std::uint64_t inCount = inCount_;
    std::uint64_t outCount = outCount_;
    std::uint64_t checkPoint = checkPoint_;
    std::int64_t ratio = ratio_;
    std::uint32_t acc = bitBuffer_;
    std::uint32_t accBits = bitCount_;

    // Empties the table and tells the decoder so with a clear code, still at the width
    // in use; both sides then start again from 9 bits.
    auto resetTable = [&] {
        clearHash();
        ratio = 0;
        inCount = 0;
        outCount = 0;
        freeCode = lzw::firstFreeCode;
        putCode(op, acc, accBits, lzw::clearCode, bits);
        bits = lzw::minBits;
        maxCode = lzw::maxCodeOf(lzw::minBits);
    };

    if (previous == lzw::noCode) {
        putCode(op, acc, accBits, lzw::clearCode, bits);
        previous = *in++;
        ++inCount;
    }
    while (in != inEnd) {
        const std::uint32_t c = *in++;
        ++inCount;
        const auto key = static_cast<std::int32_t>((c << lzw::maxBits) + previous);
        int h = static_cast<int>((c << hashShift) ^ previous);
        if (hash[h].key == key) {
            previous = hash[h].code;
            continue;
        }
        if (hash[h].key != freeKey) {
            // Secondary probe by a step that depends on the first slot.
            const int step = h == 0 ? 1 : hashSize - h;
            bool found = false;
            do {
                h -= step;
                if (h < 0) {
                    h += hashSize;
                }
                if (hash[h].key == key) {
                    found = true;
                    break;
                }
            } while (hash[h].key != freeKey);
            if (found) {
                previous = hash[h].code;
                continue;
            }
        }
        // (previous, c) is new: emit previous and give the pair the next free code.
        if (op > limit) {
            overflow();
        }
        putCode(op, acc, accBits, previous, bits);
        outCount += bits;
        previous = c;
        hash[h] = HashEntry{key, static_cast<std::uint16_t>(freeCode++)};
        if (freeCode == lzw::resetCode) {
            resetTable();
        } else if (freeCode > maxCode) {
            // Early change, as TIFF decoders expect: the width grows as soon as the next
            // free code no longer fits, one code before the classic LZW convention.
            ++bits;
            maxCode = lzw::maxCodeOf(bits);
        } else if (inCount >= checkPoint) {
            checkPoint = inCount + checkGap;
            const std::int64_t r = compressionRatio(inCount, outCount);
            if (r > ratio) {
                ratio = r;
            } else {
                resetTable(); // the table has stopped paying for itself
            }
        }
    }

    out_ = static_cast<std::size_t>(op - buffer_.get());
    previous_ = previous;
    bits_ = bits;
    maxCode_ = maxCode;
    freeCode_ = freeCode;
    inCount_ = inCount;
    outCount_ = outCount;
    checkPoint_ = checkPoint;
    ratio_ = ratio;
    bitBuffer_ = acc;
    bitCount_ = accBits;
    return true;
}

bool LZWEncodeState::finish() {
    if (!buffer_) {
        return false;
    }
    if (out_ > limit_) {
        overflow();
    }
    std::uint8_t* op = buffer_.get() + out_;
    if (previous_ != lzw::noCode) {
        putCode(op, bitBuffer_, bitCount_, previous_, bits_);
        outCount_ += bits_;
    }
    putCode(op, bitBuffer_, bitCount_, lzw::endCode, bits_);
    if (bitCount_ > 0) {
        *op++ = static_cast<std::uint8_t>(bitBuffer_ << (8 - bitCount_));
        bitCount_ = 0;
    }
    out_ = static_cast<std::size_t>(op - buffer_.get());
    previous_ = lzw::noCode;
    return true;
}
