#include "interchange/raster/Raster.h"

#include "core/StringUtils.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <unistd.h>

namespace {
std::atomic<std::uint64_t> chosenMaxBytes{0};
} // namespace

void setMaxRasterBytes(std::uint64_t bytes) {
    chosenMaxBytes.store(bytes);
}

std::uint64_t maxRasterBytes() {
    if (const std::uint64_t chosen = chosenMaxBytes.load(); chosen != 0) {
        return chosen;
    }
    constexpr std::uint64_t ceiling = std::uint64_t(1) << 32;
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) {
        return ceiling;
    }
    return std::min(ceiling, std::uint64_t(pages) * std::uint64_t(pageSize));
}

Status checkRasterSize(std::int64_t width, std::int64_t height, bool withAlpha,
                       std::wstring& error) {
    if (width <= 0 || height <= 0) {
        error = stringPrintf(L"The picture's size %lld x %lld is not valid",
                             static_cast<long long>(width), static_cast<long long>(height));
        return status::damaged;
    }
    // Sides are at most 2^31, so the product fits comfortably in 64 bits.
    const std::uint64_t bytes = std::uint64_t(width) * std::uint64_t(height) * (withAlpha ? 4 : 3);
    if (width > 0x7FFFFFFF || height > 0x7FFFFFFF || bytes > maxRasterBytes()) {
        error = stringPrintf(L"The picture is %lld x %lld pixels: larger than a document can "
                             L"hold (%llu MB at most)",
                             static_cast<long long>(width), static_cast<long long>(height),
                             static_cast<unsigned long long>(maxRasterBytes() >> 20));
        return status::unsupportedCompression;
    }
    return status::ok;
}

Status Raster::allocate(std::int64_t w, std::int64_t h, bool withAlpha, std::wstring& error) {
    clear();
    if (const Status s = checkRasterSize(w, h, withAlpha, error); s != status::ok) {
        return s;
    }
    try {
        colour.assign(std::size_t(w) * std::size_t(h) * 3, 0);
        if (withAlpha) {
            alpha.assign(std::size_t(w) * std::size_t(h), 0);
        }
    } catch (const std::bad_alloc&) {
        clear();
        error = L"Not enough memory for the picture";
        return status::outOfMemory;
    }
    width = static_cast<std::int32_t>(w);
    height = static_cast<std::int32_t>(h);
    return status::ok;
}

void Raster::clear() {
    std::vector<std::uint8_t>().swap(colour);
    std::vector<std::uint8_t>().swap(alpha);
    width = height = 0;
}
