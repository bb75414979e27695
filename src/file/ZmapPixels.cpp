#include "file/ZmapPixels.h"

#include "file/ImageErrorReporter.h"

#include <cstdint>
#include <cstring>

namespace {
template <class T> T load(const std::uint8_t* p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

template <class T> void store(std::uint8_t* p, T value) {
    std::memcpy(p, &value, sizeof value);
}

inline std::uint16_t byteSwap(std::uint16_t v) {
    return __builtin_bswap16(v);
}
inline std::uint32_t byteSwap(std::uint32_t v) {
    return __builtin_bswap32(v);
}

/// Copies elements of type T, swapping their bytes.
template <class T> void copySwapped(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        store<T>(to + i * sizeof(T), byteSwap(load<T>(from + i * sizeof(T))));
    }
}

void exchangeRedBlue(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i, to += 3, from += 3) {
        to[0] = from[2];
        to[1] = from[1];
        to[2] = from[0];
    }
}

void greyToColour(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i, to += 3) {
        to[0] = to[1] = to[2] = from[i];
    }
}

void depthToGrey(std::uint8_t* to, const std::uint8_t* from, std::size_t count, bool swapped) {
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t value = load<std::uint32_t>(from + 4 * i);
        if (swapped) {
            value = byteSwap(value);
        }
        to[i] = static_cast<std::uint8_t>(value >> 24);
    }
}

void widenIndex(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        store<std::uint16_t>(to + 2 * i, from[i]);
    }
}

void greyToDepth(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        store<std::uint32_t>(to + 4 * i, from[i] * 0x01010101u);
    }
}

bool sameType(std::uint8_t* to, const std::uint8_t* from, FilePixelType type, std::size_t count,
              bool swapped) {
    const int bits = bitsPerPixel(type);
    if (bits == 0) {
        return false;
    }
    if (swapped && type == FilePixelType::index16) {
        copySwapped<std::uint16_t>(to, from, count);
    } else if (swapped && type == FilePixelType::depth32) {
        copySwapped<std::uint32_t>(to, from, count);
    } else if (count > 0) {
        std::memcpy(to, from, count * static_cast<std::size_t>(bits / 8));
    }
    return true;
}
} // namespace

FilePixelType filePixelTypeOfStore(int storeFormat) {
    switch (storeFormat) {
    case 0:
        return FilePixelType::grey8;
    case 1:
        return FilePixelType::index16;
    case 2:
        return FilePixelType::bgr24;
    case 3:
        return FilePixelType::depth32;
    case 4:
        return FilePixelType::alpha32;
    default:
        return FilePixelType::none;
    }
}

int bitsPerPixel(FilePixelType type) {
    switch (type) {
    case FilePixelType::none:
        return 0;
    case FilePixelType::rgb24:
    case FilePixelType::bgr24:
        return 24;
    case FilePixelType::grey8:
    case FilePixelType::index8:
        return 8;
    case FilePixelType::index16:
        return 16;
    case FilePixelType::depth32:
    case FilePixelType::alpha32:
        return 32;
    }
    return 0; // a value outside the enumeration
}

Status convertPixels(void* to, FilePixelType toType, const void* from, FilePixelType fromType,
                     std::size_t count, bool swapped, ImageErrorReporter& reporter) {
    auto* out = static_cast<std::uint8_t*>(to);
    const auto* in = static_cast<const std::uint8_t*>(from);
    using T = FilePixelType;
    bool done = true;
    if (toType == fromType) {
        done = sameType(out, in, toType, count, swapped);
    } else if ((toType == T::rgb24 && fromType == T::bgr24) ||
               (toType == T::bgr24 && fromType == T::rgb24)) {
        exchangeRedBlue(out, in, count);
    } else if (toType == T::bgr24 && fromType == T::grey8) {
        greyToColour(out, in, count);
    } else if (toType == T::grey8 && fromType == T::depth32) {
        depthToGrey(out, in, count, swapped);
    } else if (toType == T::index16 && fromType == T::index8) {
        widenIndex(out, in, count);
    } else if (toType == T::depth32 && fromType == T::grey8) {
        greyToDepth(out, in, count);
    } else {
        done = false;
    }
    if (!done) {
        reporter.report(L"convertPixels", statusText(status::noConversion));
        return status::noConversion;
    }
    return status::ok;
}
