#pragma once

#include "core/Status.h"

#include <cstdint>
#include <memory>
#include <string>

class ImageErrorReporter;

/// Compression codes of a Zmap section (the value of TIFF tag 259).
namespace zmapCompression {
inline constexpr int none = 1; ///< raw bytes: the file code copies them, there is no codec
inline constexpr int lzw = 5;
} // namespace zmapCompression

/// A compression codec of Zmap tiles and strips. The name ("LZW") prefixes its reports.
class ZmapCodec {
public:
    explicit ZmapCodec(std::wstring name);
    virtual ~ZmapCodec();
    ZmapCodec(const ZmapCodec&) = delete;
    ZmapCodec& operator=(const ZmapCodec&) = delete;

    const std::wstring& name() const { return name_; }

private:
    std::wstring name_;
};

/// Turns one compressed block (a tile or a strip) back into bytes, in as many pieces as
/// the caller likes. One decoder serves all the blocks of a section in turn.
class ZmapDecoder : public ZmapCodec {
public:
    using ZmapCodec::ZmapCodec;

    /// Begins a block of `size` compressed bytes at `data`. The bytes must stay valid
    /// until the block has been decoded; nothing beyond data[size - 1] is ever read.
    virtual bool start(const std::uint8_t* data, std::uint32_t size) = 0;
    /// Writes the next `count` bytes of the block to `out`. False if the data is damaged
    /// or ends before `count` bytes came out; `out[0, count)` is then all zero, and every
    /// later call fails too until the next start().
    virtual bool decode(std::uint8_t* out, std::uint32_t count) = 0;

    /// Where and why the last block that failed went wrong, for a message that names the
    /// place; cleared by start().
    struct Fault {
        /// Bytes of the block that came out before the fault.
        std::uint64_t produced = 0;
        /// Offset in the compressed data of the code at fault, or its size when the data
        /// ended too soon.
        std::uint64_t inputOffset = 0;
        /// What went wrong, in words; empty while nothing did.
        std::wstring what;
    };
    const Fault& fault() const { return fault_; }

protected:
    Fault fault_;
};

/// Compresses one block at a time into an output buffer of its own, which is kept (and
/// only grown) from block to block.
class ZmapEncoder : public ZmapCodec {
public:
    using ZmapCodec::ZmapCodec;

    /// Begins a block of `rawSize` bytes. False if the output buffer can't be had.
    virtual bool start(std::uint32_t rawSize) = 0;
    /// Adds `size` bytes of the block; may be called any number of times.
    virtual bool encode(const std::uint8_t* data, std::uint32_t size) = 0;
    /// Ends the block; afterwards encodedData() and encodedSize() give its bytes.
    virtual bool finish() = 0;
    /// Size in bytes of the block's output so far; complete after finish().
    virtual std::uint32_t encodedSize() const = 0;
    /// The block's output, valid until the next start() or the encoder's end.
    virtual const std::uint8_t* encodedData() const = 0;
};

/// The name of a compression code, for reports: "LZW", "PackBits", ...
std::wstring compressionName(int compression);

/// The decoder of `compression`. Null when there is none: status -8 after the report
/// "<name> compression support is not configured", or -10 when memory ran out (also
/// reported). Compression 1 has no codec; the caller copies those bytes itself.
std::unique_ptr<ZmapDecoder> makeZmapDecoder(Status& status, int compression,
                                             ImageErrorReporter& reporter);
/// The encoder of `compression`, with the same failures as makeZmapDecoder().
std::unique_ptr<ZmapEncoder> makeZmapEncoder(Status& status, int compression,
                                             ImageErrorReporter& reporter);
