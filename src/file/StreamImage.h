#pragma once

#include "core/Point.h"
#include "core/Status.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

/// The byte stream under an image file reader or writer: a file opened for reading or
/// writing, or a byte buffer read in memory. Positions are byte offsets from the start.
///
/// Reads interpret multi-byte values in the stream's byte order: when swapped() the
/// bytes are reversed into the machine's order. Writes always produce little-endian
/// values. Reads and writes are buffered; a seek flushes what was written.
///
/// Failures are sticky: the first one is kept in status() and every later read returns
/// zeros, so a parser may read a whole record and look at status() once. A read past the
/// end of the data, or a seek beyond it while reading, is status -2 (damaged); system
/// errors are the errno's status, -5 reading and -6 writing by default.
class StreamImage {
public:
    StreamImage();
    virtual ~StreamImage();
    StreamImage(const StreamImage&) = delete;
    StreamImage& operator=(const StreamImage&) = delete;

    /// Opens `path` for reading. -4 if already open; otherwise the errno's status of the
    /// failed open (-16 access denied, -24 not found...), -18 for a directory.
    [[nodiscard]] Status openRead(const std::wstring& path);
    /// Creates `path` for writing, replacing any file of that name. Status as openRead.
    [[nodiscard]] Status openWrite(const std::wstring& path);
    /// Reads `size` bytes at `data`, which must stay valid until close(). -4 if already
    /// open.
    [[nodiscard]] Status openMemory(const std::uint8_t* data, std::size_t size);
    /// Flushes and closes. Returns status() as it then stands (a failed flush or close
    /// included); the stream is ready for another open. Nothing happens when not open.
    Status close();
    bool isOpen() const { return mode_ != Mode::closed; }
    bool writing() const { return mode_ == Mode::write; }

    /// The first failure since the open, 0 if none.
    Status status() const { return status_; }
    /// Records `failure` unless a failure is already recorded.
    void fail(Status failure);
    bool failed() const { return status_ != status::ok; }

    /// Bytes in the stream: the file's size when reading, the end of what was written
    /// when writing.
    std::uint64_t size() const;
    std::uint64_t tell() const { return position_; }
    /// Moves to `position`. Reading, a position beyond the end fails with -2.
    bool seek(std::uint64_t position);

    /// Multi-byte values of the stream are in the other byte order.
    bool swapped() const { return swapped_; }
    void setSwapped(bool swapped) { swapped_ = swapped; }

    // Reads at the current position, which moves past what was read.

    /// Reads `count` bytes; false (and zeros) if they are not all there.
    bool readBytes(void* out, std::size_t count);
    /// Reads `count` bytes at `offset`, leaving the position alone. With `view`, `*view`
    /// is set to the bytes, which may lie in place (in a memory stream or the read-ahead
    /// buffer, valid until the next read) instead of in `out`; pass null to always copy.
    bool readAt(std::uint64_t offset, std::uint8_t* out, std::size_t count,
                const std::uint8_t** view = nullptr);
    /// Reads `count` bytes at `offset` for one of several threads at once: the position,
    /// the read-ahead buffer and the recorded failure are left alone. `*view` is set to the
    /// bytes: in place in a memory stream, else read into `out`. Returns 0; -2 when the
    /// bytes lie beyond the end or the file ends first; the errno's status (-5 by default)
    /// when the system read fails.
    [[nodiscard]] Status readShared(std::uint64_t offset, std::uint8_t* out, std::size_t count,
                                    const std::uint8_t** view) const;
    std::uint8_t read8();
    std::uint16_t read16();
    std::uint32_t read32();
    double readDouble();
    Point<3> readPoint();
    Vector<3> readVector();
    /// Bytes up to a NUL (which is consumed but not returned). Reaching the end of the
    /// data first is -2.
    std::string readString();

    // Writes at the current position, little-endian.

    void writeBytes(const void* data, std::size_t count);
    void write8(std::uint8_t value) { writeBytes(&value, 1); }
    void write16(std::uint16_t value);
    void write32(std::uint32_t value);
    void writeDouble(double value);
    void writePoint(const Point<3>& p);
    void writeVector(const Vector<3>& v);
    /// Writes zeros until the position is even.
    void padToEven();
    /// The bytes of `text` and a NUL.
    void writeString(const std::string& text);
    /// The bytes of `text`, a NUL and zeros up to 5 bytes in all, so that the text is
    /// always too long for the value field of a directory entry. Returns the bytes
    /// written.
    std::uint32_t writeTagString(const std::string& text);
    /// Ends the file at the current position.
    bool truncate();
    /// Writes what is buffered and has the system put the file on the disk.
    bool sync();

private:
    enum class Mode { closed, read, memory, write };

    /// Starts a stream in `mode` at position 0 with no failure.
    void begin(Mode mode);
    bool flushWrites();
    /// Writes `count` bytes at `offset` of the file, past the buffer.
    bool writeAt(std::uint64_t offset, const std::uint8_t* data, std::size_t count);
    /// The bytes at `offset` of the file: in the read-ahead buffer for small reads, else
    /// read into `out`. Null on failure.
    const std::uint8_t* fileRead(std::uint64_t offset, std::uint8_t* out, std::size_t count);
    template <class T> T readValue();

    Mode mode_ = Mode::closed;
    int fd_ = -1;
    const std::uint8_t* memory_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint64_t position_ = 0;
    Status status_ = status::ok;
    bool swapped_ = false;

    /// Reading: a window of the file; writing: bytes not yet written, which belong at
    /// bufferStart_.
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::uint64_t bufferStart_ = 0;
    std::size_t bufferUsed_ = 0;
    /// Writing: the end of the data, pending bytes included.
    std::uint64_t end_ = 0;
};
