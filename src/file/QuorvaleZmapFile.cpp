#include "file/QuorvaleZmapFile.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "core/TqlError.h"
#include "file/ZmapReader.h"
#include "file/ZmapWriter.h"
#include "image/ZmapDocument.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <system_error>
#include <unistd.h>

QuorvaleZmapFile::QuorvaleZmapFile() = default;

QuorvaleZmapFile::~QuorvaleZmapFile() = default;

void QuorvaleZmapFile::read(Status& status, const std::wstring& path, ZmapDocument& document) {
    fault_.clear();
    if (isOpen()) {
        status = status::alreadyOpen;
        return;
    }
    // A read-write open tells whether the file may be written; the file is then read
    // through a read-only open.
    const int probe = ::open(utf8(path).c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    const int error = errno;
    if (probe >= 0) {
        ::close(probe);
    }
    const Status denied = probe < 0 ? status::fromErrno(error, status::ok) : status::ok;
    readOnly_ = denied == status::accessDenied || denied == status::readOnly;
    status = openRead(path);
    if (status != status::ok) {
        return;
    }
    readOpenStream(status, document);
}

void QuorvaleZmapFile::readMemory(Status& status, const std::uint8_t* data, std::size_t size,
                                  ZmapDocument& document) {
    if (isOpen()) {
        status = status::alreadyOpen;
        return;
    }
    readOnly_ = false;
    fault_.clear();
    status = openMemory(data, size);
    if (status == status::ok) {
        readOpenStream(status, document);
    }
}

void QuorvaleZmapFile::readOpenStream(Status& status, ZmapDocument& document) {
    const ZmapFileOptions options{progress_, errors_, maxPixels_, threads_, &fault_};
    status = readZmapStream(*this, options, document);
    close();
    if (status == status::ok) {
        document.readOnly = readOnly_ ? 1 : 0;
    }
}

void QuorvaleZmapFile::write(Status& status, const ZmapDocument& document,
                             const std::wstring& path) {
    if (readOnly_) {
        status = status::readOnly;
        return;
    }
    if (isOpen()) {
        status = status::alreadyOpen;
        return;
    }
    status = openWrite(path);
    if (status != status::ok) {
        return;
    }
    const ZmapFileOptions options{progress_, errors_, maxPixels_, threads_, nullptr};
    try {
        status = writeZmapStream(*this, options, document);
    } catch (const std::bad_alloc&) {
        status = status::outOfMemory;
    } catch (const Reporter::Abandoned&) {
        status = status::stopped;
    } catch (const TQL::TqlError&) {
        status = status::writeFailed; // the encoder's output overflowed
    } catch (const std::system_error&) {
        status = status::outOfMemory; // no thread could be started
    }
    if (status == status::ok && syncOnWrite_ && !sync()) {
        status = StreamImage::status();
    }
    const Status closed = close();
    if (status == status::ok) {
        status = closed;
    }
}

std::wstring QuorvaleZmapFile::failureText(Status status) const {
    return zmapFailureText(status, fault_);
}
