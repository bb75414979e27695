#include "file/ZmapLZWDecoder.h"

#include "file/ImageErrorReporter.h"
#include "file/LZWCodes.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {
const wchar_t* const lzwName = L"LZW";

using Entry = LZWDecodeState::Entry;

/// Early change, as TIFF encoders do it: the width grows when the next free code reaches
/// the last code of the width less one, a code before the classic LZW convention.
constexpr std::uint32_t widenPoint(std::uint32_t bits) {
    return lzw::maxCodeOf(bits) - 1;
}

/// Takes the next code of `bits` bits from the input, most significant bit first. False,
/// with nothing taken that a later call could miss, if fewer bits than that remain.
inline bool nextCode(const std::uint8_t*& in, const std::uint8_t* inEnd, std::uint32_t& acc,
                     std::uint32_t& accBits, std::uint32_t bits, std::uint32_t mask,
                     std::uint32_t& code) {
    while (accBits < bits) {
        if (in == inEnd) {
            return false;
        }
        acc = (acc << 8) | *in++;
        accBits += 8;
    }
    accBits -= bits;
    code = (acc >> accBits) & mask;
    return true;
}

/// Writes bytes [from, from + n) of the string of `code` to `out`, n > 0. Strings are
/// chains from their last byte back to their first, so the walk starts at the end.
inline void copyString(const Entry* table, std::uint32_t code, std::uint32_t from, std::uint32_t n,
                       std::uint8_t* out) {
    const Entry* e = &table[code];
    for (std::uint32_t skip = e->length - (from + n); skip > 0; --skip) {
        e = &table[e->next];
    }
    std::uint8_t* p = out + n;
    do {
        *--p = e->value;
        e = &table[e->next];
    } while (p != out);
}
} // namespace

ZmapLZWDecoder::ZmapLZWDecoder() : ZmapDecoder(lzwName) {}

std::unique_ptr<ZmapLZWDecoder> ZmapLZWDecoder::create(Status& status,
                                                       ImageErrorReporter& reporter) {
    std::unique_ptr<LZWDecodeState> state(new (std::nothrow) LZWDecodeState);
    if (!state) {
        reporter.report(lzwName, L"No space for LZW state block");
        status = status::outOfMemory;
        return nullptr;
    }
    state->table_.reset(new (std::nothrow) Entry[lzw::tableSize]);
    if (!state->table_) {
        reporter.report(state->name(), L"No space for LZW code table");
        status = status::outOfMemory;
        return nullptr;
    }
    Entry* table = state->table_.get();
    for (std::uint32_t code = 0; code < 256; ++code) {
        const auto byte = static_cast<std::uint8_t>(code);
        table[code] = Entry{0, byte, byte, 1};
    }
    std::fill(table + 256, table + lzw::tableSize, Entry{0, 0, 0, 0});
    status = status::ok;
    return state;
}

LZWDecodeState::~LZWDecodeState() = default;

bool LZWDecodeState::start(const std::uint8_t* data, std::uint32_t size) {
    in_ = data;
    inEnd_ = data + size;
    bitBuffer_ = 0;
    bitCount_ = 0;
    bits_ = lzw::minBits;
    mask_ = lzw::maxCodeOf(lzw::minBits);
    widenAt_ = widenPoint(lzw::minBits);
    freeCode_ = lzw::firstFreeCode;
    previous_ = lzw::noCode;
    pendingCode_ = 0;
    pendingDone_ = 0;
    failed_ = false;
    std::fill(table_.get() + lzw::firstFreeCode, table_.get() + lzw::tableSize, Entry{0, 0, 0, 0});
    return true;
}

bool LZWDecodeState::fail(std::uint8_t* out, std::uint32_t count) {
    failed_ = true;
    if (count > 0) {
        std::memset(out, 0, count);
    }
    return false;
}

bool LZWDecodeState::decode(std::uint8_t* out, std::uint32_t count) {
    if (failed_ || in_ == nullptr) {
        return fail(out, count);
    }
    const Entry* const table = table_.get();
    std::uint32_t pos = 0;
    if (pendingDone_ != 0) {
        // Finish the string that the last request cut short.
        const std::uint32_t length = table[pendingCode_].length;
        const std::uint32_t n = std::min(length - pendingDone_, count);
        if (n > 0) {
            copyString(table, pendingCode_, pendingDone_, n, out);
        }
        pos = n;
        pendingDone_ = pendingDone_ + n == length ? 0 : pendingDone_ + n;
    }

    const std::uint8_t* in = in_;
    const std::uint8_t* const inEnd = inEnd_;
    std::uint32_t acc = bitBuffer_;
    std::uint32_t accBits = bitCount_;
    std::uint32_t bits = bits_;
    std::uint32_t mask = mask_;
    std::uint32_t widenAt = widenAt_;
    std::uint32_t freeCode = freeCode_;
    std::uint32_t previous = previous_;
    Entry* const entries = table_.get();

    while (pos < count) {
        std::uint32_t code = 0;
        if (!nextCode(in, inEnd, acc, accBits, bits, mask, code) || code == lzw::endCode) {
            break;
        }
        if (code == lzw::clearCode) {
            bits = lzw::minBits;
            mask = lzw::maxCodeOf(bits);
            widenAt = widenPoint(bits);
            freeCode = lzw::firstFreeCode;
            previous = lzw::noCode;
            do {
                if (!nextCode(in, inEnd, acc, accBits, bits, mask, code)) {
                    return fail(out, count);
                }
            } while (code == lzw::clearCode);
            if (code == lzw::endCode) {
                break;
            }
        }
        if (previous == lzw::noCode) {
            // The first code of a table is a byte of its own and defines nothing.
            if (code >= 256) {
                return fail(out, count);
            }
            out[pos++] = static_cast<std::uint8_t>(code);
            previous = code;
            continue;
        }
        if (code > freeCode || freeCode >= lzw::tableSize) {
            return fail(out, count); // a code not yet defined, or a table that overflows
        }
        // The new entry is previous's string plus the first byte of this code's string;
        // when the code is the one being defined (the KwKwK case), that byte is
        // previous's own first byte.
        Entry& added = entries[freeCode];
        const Entry& prior = entries[previous];
        added.next = static_cast<std::uint16_t>(previous);
        added.first = prior.first;
        added.length = prior.length + 1;
        added.value = code < freeCode ? entries[code].first : prior.first;
        if (++freeCode > widenAt && bits < lzw::maxBits) {
            ++bits;
            mask = lzw::maxCodeOf(bits);
            widenAt = widenPoint(bits);
        }
        previous = code;
        if (code < 256) {
            out[pos++] = static_cast<std::uint8_t>(code);
            continue;
        }
        const std::uint32_t length = entries[code].length;
        const std::uint32_t room = count - pos;
        if (length <= room) {
            copyString(table, code, 0, length, out + pos);
            pos += length;
        } else {
            copyString(table, code, 0, room, out + pos);
            pos = count;
            pendingCode_ = code;
            pendingDone_ = room;
        }
    }
    if (pos < count) {
        return fail(out, count); // the data ended first
    }

    in_ = in;
    bitBuffer_ = acc;
    bitCount_ = accBits;
    bits_ = bits;
    mask_ = mask;
    widenAt_ = widenAt;
    freeCode_ = freeCode;
    previous_ = previous;
    return true;
}
