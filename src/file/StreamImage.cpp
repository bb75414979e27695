#include "file/StreamImage.h"

#include "core/StringUtils.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Bytes buffered for reading ahead and for writing.
constexpr std::size_t bufferCapacity = 256 * 1024;

template <class T> T byteSwap(T value) {
    std::uint8_t bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    std::reverse(bytes, bytes + sizeof(T));
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

template <class T> T toLittleEndian(T value) {
    if constexpr (std::endian::native == std::endian::big) {
        return byteSwap(value);
    }
    return value;
}

/// Opens `path` with `flags`; a directory is refused with EISDIR.
int openFile(const std::wstring& path, int flags, Status& result) {
    const std::string name = utf8(path);
    // Without waiting: a named pipe or device of that name is refused below, not waited on.
    const int fd = ::open(name.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0) {
        result = status::fromErrno(errno, (flags & O_ACCMODE) == O_RDONLY ? status::readFailed
                                                                          : status::writeFailed);
        return -1;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        const int error = S_ISDIR(info.st_mode) ? EISDIR : errno;
        ::close(fd);
        result = status::fromErrno(error, status::readFailed);
        return -1;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    result = status::ok;
    return fd;
}

} // namespace

StreamImage::StreamImage() = default;

StreamImage::~StreamImage() {
    close();
}

void StreamImage::fail(Status failure) {
    if (status_ == status::ok) {
        status_ = failure;
    }
}

Status StreamImage::openRead(const std::wstring& path) {
    if (isOpen()) {
        return status::alreadyOpen;
    }
    Status result = status::ok;
    fd_ = openFile(path, O_RDONLY, result);
    if (fd_ < 0) {
        return result;
    }
    struct stat info {};
    ::fstat(fd_, &info);
    size_ = static_cast<std::uint64_t>(info.st_size);
    begin(Mode::read);
    return status::ok;
}

void StreamImage::begin(Mode mode) {
    if (mode != Mode::memory) {
        buffer_ = std::make_unique<std::uint8_t[]>(bufferCapacity);
    }
    bufferStart_ = 0;
    bufferUsed_ = 0;
    position_ = 0;
    end_ = 0;
    status_ = status::ok;
    mode_ = mode;
}

Status StreamImage::openWrite(const std::wstring& path) {
    if (isOpen()) {
        return status::alreadyOpen;
    }
    Status result = status::ok;
    fd_ = openFile(path, O_RDWR | O_CREAT | O_TRUNC, result);
    if (fd_ < 0) {
        return result;
    }
    begin(Mode::write);
    return status::ok;
}

Status StreamImage::openMemory(const std::uint8_t* data, std::size_t size) {
    if (isOpen()) {
        return status::alreadyOpen;
    }
    memory_ = data;
    size_ = size;
    begin(Mode::memory);
    return status::ok;
}

Status StreamImage::close() {
    if (!isOpen()) {
        return status_;
    }
    if (mode_ == Mode::write) {
        flushWrites();
    }
    if (fd_ >= 0 && ::close(fd_) != 0) {
        fail(mode_ == Mode::write ? status::fromErrno(errno, status::writeFailed)
                                  : status::closeFailed);
    }
    fd_ = -1;
    memory_ = nullptr;
    buffer_.reset();
    bufferUsed_ = 0;
    mode_ = Mode::closed;
    return status_;
}

std::uint64_t StreamImage::size() const {
    return mode_ == Mode::write ? end_ : size_;
}

bool StreamImage::seek(std::uint64_t position) {
    if (mode_ == Mode::write) {
        if (!flushWrites()) {
            return false;
        }
        position_ = position;
        return true;
    }
    if (position > size_) {
        fail(status::damaged);
        return false;
    }
    position_ = position;
    return true;
}

// Reading.

const std::uint8_t* StreamImage::fileRead(std::uint64_t offset, std::uint8_t* out,
                                          std::size_t count) {
    const auto preadAll = [this](std::uint64_t at, std::uint8_t* to, std::size_t n) {
        std::size_t done = 0;
        while (done < n) {
            const ssize_t got = ::pread(fd_, to + done, n - done, static_cast<off_t>(at + done));
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                fail(got < 0 ? status::fromErrno(errno, status::readFailed) : status::damaged);
                return std::size_t{0};
            }
            done += static_cast<std::size_t>(got);
        }
        return done;
    };
    if (offset >= bufferStart_ && offset + count <= bufferStart_ + bufferUsed_) {
        return buffer_.get() + (offset - bufferStart_);
    }
    if (count >= bufferCapacity / 2) {
        return preadAll(offset, out, count) == count ? out : nullptr;
    }
    const std::size_t window =
        static_cast<std::size_t>(std::min<std::uint64_t>(bufferCapacity, size_ - offset));
    bufferStart_ = offset;
    bufferUsed_ = preadAll(offset, buffer_.get(), window);
    if (bufferUsed_ != window) {
        bufferUsed_ = 0;
        return nullptr;
    }
    return buffer_.get();
}

bool StreamImage::readAt(std::uint64_t offset, std::uint8_t* out, std::size_t count,
                         const std::uint8_t** view) {
    const bool inside = !failed() && (mode_ == Mode::read || mode_ == Mode::memory) &&
                        offset <= size_ && count <= size_ - offset;
    const std::uint8_t* data = nullptr;
    if (inside && count > 0) {
        data = mode_ == Mode::memory ? memory_ + offset : fileRead(offset, out, count);
    }
    if (view) {
        *view = data ? data : out;
    } else if (data && data != out) {
        std::memcpy(out, data, count);
    }
    if (inside && (count == 0 || data)) {
        return true;
    }
    fail(status::damaged);
    if (count > 0) {
        std::memset(out, 0, count);
    }
    return false;
}

Status StreamImage::readShared(std::uint64_t offset, std::uint8_t* out, std::size_t count,
                               const std::uint8_t** view) const {
    *view = out;
    if ((mode_ != Mode::read && mode_ != Mode::memory) || offset > size_ ||
        count > size_ - offset) {
        return status::damaged;
    }
    if (mode_ == Mode::memory) {
        *view = memory_ + offset;
        return status::ok;
    }
    for (std::size_t done = 0; done < count;) {
        const ssize_t got =
            ::pread(fd_, out + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return got < 0 ? status::fromErrno(errno, status::readFailed) : status::damaged;
        }
        done += static_cast<std::size_t>(got);
    }
    return status::ok;
}

bool StreamImage::readBytes(void* out, std::size_t count) {
    const bool ok = readAt(position_, static_cast<std::uint8_t*>(out), count);
    if (ok) {
        position_ += count;
    }
    return ok;
}

template <class T> T StreamImage::readValue() {
    T value{};
    readBytes(&value, sizeof(T));
    return swapped_ ? byteSwap(value) : value;
}

std::uint8_t StreamImage::read8() {
    return readValue<std::uint8_t>();
}
std::uint16_t StreamImage::read16() {
    return readValue<std::uint16_t>();
}
std::uint32_t StreamImage::read32() {
    return readValue<std::uint32_t>();
}
double StreamImage::readDouble() {
    return readValue<double>();
}

Point<3> StreamImage::readPoint() {
    const double x = readDouble();
    const double y = readDouble();
    const double z = readDouble();
    return Point<3>(x, y, z);
}

Vector<3> StreamImage::readVector() {
    const double x = readDouble();
    const double y = readDouble();
    const double z = readDouble();
    return Vector<3>(x, y, z);
}

std::string StreamImage::readString() {
    std::string text;
    for (;;) {
        const std::uint8_t c = read8();
        if (failed() || c == 0) {
            return failed() ? std::string() : text;
        }
        text += static_cast<char>(c);
    }
}

// Writing.

bool StreamImage::writeAt(std::uint64_t offset, const std::uint8_t* data, std::size_t count) {
    for (std::size_t done = 0; done < count && !failed();) {
        const ssize_t put =
            ::pwrite(fd_, data + done, count - done, static_cast<off_t>(offset + done));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            fail(status::fromErrno(put < 0 ? errno : ENOSPC, status::writeFailed));
            break;
        }
        done += static_cast<std::size_t>(put);
    }
    return !failed();
}

bool StreamImage::flushWrites() {
    writeAt(bufferStart_, buffer_.get(), bufferUsed_);
    bufferUsed_ = 0;
    bufferStart_ = position_;
    return !failed();
}

void StreamImage::writeBytes(const void* data, std::size_t count) {
    if (mode_ != Mode::write) {
        fail(status::writeFailed);
        return;
    }
    if (failed()) {
        return;
    }
    if (bufferUsed_ > 0 && bufferStart_ + bufferUsed_ != position_) {
        flushWrites();
    }
    if (bufferUsed_ == 0) {
        bufferStart_ = position_;
    }
    if (bufferUsed_ + count > bufferCapacity) {
        flushWrites();
        bufferStart_ = position_;
    }
    if (count >= bufferCapacity) {
        if (!writeAt(position_, static_cast<const std::uint8_t*>(data), count)) {
            return;
        }
        bufferStart_ = position_ + count;
    } else {
        std::memcpy(buffer_.get() + bufferUsed_, data, count);
        bufferUsed_ += count;
    }
    position_ += count;
    end_ = std::max(end_, position_);
}

void StreamImage::write16(std::uint16_t value) {
    value = toLittleEndian(value);
    writeBytes(&value, sizeof value);
}

void StreamImage::write32(std::uint32_t value) {
    value = toLittleEndian(value);
    writeBytes(&value, sizeof value);
}

void StreamImage::writeDouble(double value) {
    value = toLittleEndian(value);
    writeBytes(&value, sizeof value);
}

void StreamImage::writePoint(const Point<3>& p) {
    writeDouble(p.x());
    writeDouble(p.y());
    writeDouble(p.z());
}

void StreamImage::writeVector(const Vector<3>& v) {
    writeDouble(v.x());
    writeDouble(v.y());
    writeDouble(v.z());
}

void StreamImage::padToEven() {
    if (position_ & 1) {
        write8(0);
    }
}

void StreamImage::writeString(const std::string& text) {
    writeBytes(text.data(), text.size());
    write8(0);
}

std::uint32_t StreamImage::writeTagString(const std::string& text) {
    writeString(text);
    std::uint32_t written = static_cast<std::uint32_t>(text.size()) + 1;
    for (; written < 5; ++written) {
        write8(0);
    }
    return written;
}

bool StreamImage::truncate() {
    if (mode_ != Mode::write || !flushWrites()) {
        return false;
    }
    if (::ftruncate(fd_, static_cast<off_t>(position_)) != 0) {
        fail(status::fromErrno(errno, status::writeFailed));
        return false;
    }
    end_ = position_;
    return true;
}

bool StreamImage::sync() {
    if (mode_ != Mode::write || !flushWrites()) {
        return false;
    }
    if (::fsync(fd_) != 0) {
        fail(status::fromErrno(errno, status::writeFailed));
        return false;
    }
    return true;
}
