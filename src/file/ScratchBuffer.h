#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

/// Scratch memory aligned for 64-bit words, grown on demand and kept from one block or
/// tile to the next, so a codec loop allocates only when a larger block arrives.
class ScratchBuffer {
public:
    /// At least `bytes` bytes; the contents are not kept when it grows.
    std::uint8_t* get(std::size_t bytes) {
        if (bytes > capacity_) {
            words_ = std::make_unique<std::uint64_t[]>((bytes + 7) / 8);
            capacity_ = (bytes + 7) / 8 * 8;
        }
        return reinterpret_cast<std::uint8_t*>(words_.get());
    }

private:
    std::unique_ptr<std::uint64_t[]> words_;
    std::size_t capacity_ = 0;
};
