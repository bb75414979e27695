#include "file/ZmapLZWDecoder.h"

#include "file/ImageErrorReporter.h"
#include "file/LZWCodes.h"

#include "core/StringUtils.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {
using Entry = LZWDecodeState::Entry;

/// Early change, as TIFF encoders do it: the width grows when the next free code reaches
/// the last code of the width, one code before the classic LZW convention would.
inline bool widthFull(std::uint32_t freeCode, std::uint32_t bits) {
    return freeCode >= lzw::maxCodeOf(bits) && bits < lzw::maxBits;
}

/// Tops up the bit accumulator to at least 56 bits, or with all that is left of the
/// input. Whole bytes only, so a code never starts in a byte read twice; never reads at
/// or beyond `inEnd`.
inline void refill(const std::uint8_t*& in, const std::uint8_t* inEnd, std::uint64_t& acc,
                   std::uint32_t& accBits) {
    if (inEnd - in >= 8) {
        std::uint64_t word;
        std::memcpy(&word, in, 8);
        word = __builtin_bswap64(word);                // the stream is most significant bit first
        const std::uint32_t take = (63 - accBits) / 8; // 6 or 7 bytes, as accBits < 12
        acc = (acc << (take * 8)) | (word >> (64 - take * 8));
        accBits += take * 8;
        in += take;
        return;
    }
    while (accBits <= 56 && in != inEnd) {
        acc = (acc << 8) | *in++;
        accBits += 8;
    }
}

/// Copies a string that was written earlier in the output to `to`. Where the two
/// overlap (a string that repeats the one just written, the KwKwK case) the copy goes
/// byte by byte, reading its own new bytes. Short strings move as whole words when
/// `room` allows; bytes written past `length` are garbage that later strings overwrite.
inline void copyEarlier(std::uint8_t* to, const std::uint8_t* from, std::uint32_t length,
                        std::uint32_t room) {
    if (from + length > to) {
        for (std::uint32_t i = 0; i < length; ++i) {
            to[i] = from[i];
        }
    } else if (length <= 8 && room >= 8) {
        std::uint64_t word;
        std::memcpy(&word, from, 8);
        std::memcpy(to, &word, 8);
    } else if (length <= 16 && room >= 16) {
        std::uint64_t words[2];
        std::memcpy(words, from, 16);
        std::memcpy(to, words, 16);
    } else {
        std::memcpy(to, from, length);
    }
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

ZmapLZWDecoder::ZmapLZWDecoder() : ZmapDecoder(lzw::codecName) {}

std::unique_ptr<ZmapLZWDecoder> ZmapLZWDecoder::create(Status& status,
                                                       ImageErrorReporter& reporter) {
    std::unique_ptr<LZWDecodeState> state(new (std::nothrow) LZWDecodeState);
    if (!state) {
        status = lzw::noSpace(reporter, L"No space for LZW state block");
        return nullptr;
    }
    state->table_.reset(new (std::nothrow) Entry[lzw::tableSize]);
    if (!state->table_) {
        status = lzw::noSpace(reporter, L"No space for LZW code table");
        return nullptr;
    }
    Entry* table = state->table_.get();
    for (std::uint32_t code = 0; code < 256; ++code) {
        const auto byte = static_cast<std::uint8_t>(code);
        table[code] = Entry{0, byte, byte, 1, 0};
    }
    std::fill(table + 256, table + lzw::tableSize, Entry{0, 0, 0, 0, 0});
    status = status::ok;
    return state;
}

LZWDecodeState::~LZWDecodeState() = default;

bool LZWDecodeState::start(const std::uint8_t* data, std::uint32_t size) {
    data_ = data;
    in_ = data;
    inEnd_ = data + size;
    bitBuffer_ = 0;
    bitCount_ = 0;
    produced_ = 0;
    bits_ = lzw::minBits;
    freeCode_ = lzw::firstFreeCode;
    previous_ = lzw::noCode;
    previousAt_ = 0;
    pendingCode_ = 0;
    pendingDone_ = 0;
    failed_ = false;
    fault_ = Fault();
    // Entries from the first free code on need no clearing: decode() refuses any code above
    // the next free one, so an entry is always written before it is read.
    return true;
}

bool LZWDecodeState::fail(std::uint8_t* out, std::uint32_t count, std::uint64_t produced,
                          std::uint64_t inputOffset, std::wstring what) {
    if (!failed_) {
        fault_.produced = produced;
        fault_.inputOffset = inputOffset;
        fault_.what = std::move(what);
    }
    failed_ = true;
    if (count > 0) {
        std::memset(out, 0, count);
    }
    return false;
}

bool LZWDecodeState::decode(std::uint8_t* out, std::uint32_t count) {
    if (failed_ || in_ == nullptr) {
        return fail(out, count, produced_, 0, L"no block was started");
    }
    Entry* const table = table_.get();
    // Offsets in the block's output of out[0]; strings before it are out of reach.
    const std::uint64_t base = produced_;

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
    std::uint64_t acc = bitBuffer_;
    std::uint32_t accBits = bitCount_;
    std::uint32_t bits = bits_;
    std::uint32_t freeCode = freeCode_;
    std::uint32_t previous = previous_;
    std::uint64_t previousAt = previousAt_;
    // Where the code just read starts in the compressed data, for the fault record.
    const auto codeOffset = [&] { return (std::uint64_t(in - data_) * 8 - accBits - bits) / 8; };

    while (pos < count) {
        if (accBits < bits) {
            refill(in, inEnd, acc, accBits);
            if (accBits < bits) {
                break; // the data ended
            }
        }
        accBits -= bits;
        const auto code = static_cast<std::uint32_t>(acc >> accBits) & lzw::maxCodeOf(bits);
        if (code == lzw::clearCode || code == lzw::endCode) [[unlikely]] {
            if (code == lzw::endCode) {
                break;
            }
            bits = lzw::minBits;
            freeCode = lzw::firstFreeCode;
            previous = lzw::noCode;
            continue;
        }
        if (previous == lzw::noCode) [[unlikely]] {
            // The first code of a table is a byte of its own and defines nothing.
            if (code >= 256) {
                return fail(
                    out, count, base + pos, codeOffset(),
                    stringPrintf(L"code %u where a clear code must be followed by a byte", code));
            }
            previousAt = base + pos;
            out[pos++] = static_cast<std::uint8_t>(code);
            previous = code;
            continue;
        }
        if (code > freeCode || freeCode >= lzw::tableSize) [[unlikely]] {
            return fail(out, count, base + pos, codeOffset(),
                        freeCode >= lzw::tableSize
                            ? std::wstring(L"the code table overflows without a clear code")
                            : stringPrintf(L"code %u is not defined yet", code));
        }
        // The new entry is previous's string plus the first byte of this code's string;
        // when the code is the one being defined (the KwKwK case), that byte is
        // previous's own first byte. In the output it starts where previous's string
        // did, since this code's string follows that.
        Entry& added = table[freeCode];
        const Entry& prior = table[previous];
        added.next = static_cast<std::uint16_t>(previous);
        added.first = prior.first;
        added.length = prior.length + 1;
        added.value = code < freeCode ? table[code].first : prior.first;
        added.at = previousAt;
        if (widthFull(++freeCode, bits)) {
            ++bits;
        }
        previous = code;
        previousAt = base + pos;
        if (code < 256) {
            out[pos++] = static_cast<std::uint8_t>(code);
            continue;
        }
        const Entry& string = table[code];
        const std::uint32_t length = string.length;
        const std::uint32_t room = count - pos;
        if (length <= room) {
            if (string.at >= base) {
                copyEarlier(out + pos, out + (string.at - base), length, room);
            } else {
                copyString(table, code, 0, length, out + pos);
            }
            pos += length;
        } else {
            copyString(table, code, 0, room, out + pos);
            pos = count;
            pendingCode_ = code;
            pendingDone_ = room;
        }
    }
    if (pos < count) {
        // The data ended first, or its end code came too soon.
        return fail(out, count, base + pos, std::uint64_t(in - data_) - accBits / 8,
                    L"the data ends too soon");
    }

    produced_ = base + count;
    in_ = in;
    bitBuffer_ = acc;
    bitCount_ = accBits;
    bits_ = bits;
    freeCode_ = freeCode;
    previous_ = previous;
    previousAt_ = previousAt;
    return true;
}
