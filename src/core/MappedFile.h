#pragma once

#include "core/Status.h"

#include <cstddef>
#include <string>

namespace TQL {

/// A file mapped read-only into memory for as long as the object lives.
class MappedFile {
public:
    MappedFile() = default;
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    MappedFile(MappedFile&& other) noexcept;
    MappedFile& operator=(MappedFile&& other) noexcept;

    /// Maps the whole file. An empty file maps to size 0 and a null pointer.
    [[nodiscard]] Status open(const std::wstring& path);
    void close();

    const unsigned char* data() const { return data_; }
    std::size_t size() const { return size_; }
    bool isOpen() const { return open_; }

private:
    const unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
    bool open_ = false;
};

} // namespace TQL
