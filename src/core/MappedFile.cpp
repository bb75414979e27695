#include "core/MappedFile.h"

#include "core/StringUtils.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace TQL {

MappedFile::~MappedFile() {
    close();
}

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)),
      open_(std::exchange(other.open_, false)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
    if (this != &other) {
        close();
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        open_ = std::exchange(other.open_, false);
    }
    return *this;
}

Status MappedFile::open(const std::wstring& path) {
    close();
    const int fd = ::open(utf8(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return status::fromErrno(errno, status::readFailed);
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        const int e = errno;
        ::close(fd);
        return status::fromErrno(e, status::readFailed);
    }
    if (S_ISDIR(st.st_mode)) {
        ::close(fd);
        return status::badName;
    }
    if (st.st_size > 0) {
        void* p =
            ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (p == MAP_FAILED) {
            const int e = errno;
            ::close(fd);
            return status::fromErrno(e, status::readFailed);
        }
        data_ = static_cast<const unsigned char*>(p);
        size_ = static_cast<std::size_t>(st.st_size);
    }
    ::close(fd);
    open_ = true;
    return status::ok;
}

void MappedFile::close() {
    if (data_) {
        ::munmap(const_cast<unsigned char*>(data_), size_);
    }
    data_ = nullptr;
    size_ = 0;
    open_ = false;
}

} // namespace TQL
