#include "file/ZmapPredictor.h"

#include <cassert>
#include <cstddef>

namespace {
inline unsigned char byteSwap(unsigned char v) {
    return v;
}
inline unsigned int byteSwap(unsigned int v) {
    static_assert(sizeof(unsigned int) == 4);
    return __builtin_bswap32(v);
}

template <class Element> Element* elements(void* pixels) {
    assert(reinterpret_cast<std::uintptr_t>(pixels) % alignof(Element) == 0 &&
           "predictor pixels must be aligned for their element type");
    return static_cast<Element*>(pixels);
}

/// Plain element arithmetic, or arithmetic through a byte swap of both operands and the
/// result, for samples in the other byte order.
template <class Element, bool Swap> struct Arithmetic {
    static Element difference(Element a, Element b) {
        if constexpr (Swap) {
            return byteSwap(static_cast<Element>(byteSwap(a) - byteSwap(b)));
        } else {
            return static_cast<Element>(a - b);
        }
    }
    static Element sum(Element a, Element b) {
        if constexpr (Swap) {
            return byteSwap(static_cast<Element>(byteSwap(a) + byteSwap(b)));
        } else {
            return static_cast<Element>(a + b);
        }
    }
};

template <class Element, int Samples, bool Swap>
void encode(void* pixels, std::uint32_t width, std::uint32_t rows) {
    using A = Arithmetic<Element, Swap>;
    const std::size_t rowSamples = std::size_t{width} * Samples;
    Element* row = elements<Element>(pixels);
    for (std::uint32_t y = 0; y < rows; ++y, row += rowSamples) {
        // Backwards, so every difference is taken from a sample not yet changed.
        for (std::size_t i = rowSamples; i-- > Samples;) {
            row[i] = A::difference(row[i], row[i - Samples]);
        }
    }
}

template <class Element, int Samples, bool Swap>
void decode(void* pixels, std::uint32_t width, std::uint32_t rows) {
    using A = Arithmetic<Element, Swap>;
    const std::size_t rowSamples = std::size_t{width} * Samples;
    Element* row = elements<Element>(pixels);
    for (std::uint32_t y = 0; y < rows; ++y, row += rowSamples) {
        if (rowSamples < Samples) {
            continue;
        }
        // The running sums are kept in registers: reading each back from the row just
        // written would wait on the store every few bytes.
        static_assert(Samples == 1 || Samples == 3);
        if constexpr (Samples == 3) {
            Element r = row[0], g = row[1], b = row[2];
            for (std::size_t i = 3; i < rowSamples; i += 3) {
                r = A::sum(row[i], r);
                g = A::sum(row[i + 1], g);
                b = A::sum(row[i + 2], b);
                row[i] = r;
                row[i + 1] = g;
                row[i + 2] = b;
            }
        } else {
            Element v = row[0];
            for (std::size_t i = 1; i < rowSamples; ++i) {
                v = A::sum(row[i], v);
                row[i] = v;
            }
        }
    }
}
} // namespace

ZmapPredictor::~ZmapPredictor() = default;

void ZmapPredictor::encodeRows(void*, std::uint32_t, std::uint32_t) const {}

void ZmapPredictor::decodeRows(void*, std::uint32_t, std::uint32_t) const {}

template <class Element, int Samples>
void ZmapPredictorT<Element, Samples>::encodeRows(void* pixels, std::uint32_t width,
                                                  std::uint32_t rows) const {
    encode<Element, Samples, false>(pixels, width, rows);
}

template <class Element, int Samples>
void ZmapPredictorT<Element, Samples>::decodeRows(void* pixels, std::uint32_t width,
                                                  std::uint32_t rows) const {
    decode<Element, Samples, false>(pixels, width, rows);
}

template <class Element, int Samples>
void ZmapPredictorSwapT<Element, Samples>::encodeRows(void* pixels, std::uint32_t width,
                                                      std::uint32_t rows) const {
    encode<Element, Samples, true>(pixels, width, rows);
}

template <class Element, int Samples>
void ZmapPredictorSwapT<Element, Samples>::decodeRows(void* pixels, std::uint32_t width,
                                                      std::uint32_t rows) const {
    decode<Element, Samples, true>(pixels, width, rows);
}

template class ZmapPredictorT<unsigned char, 3>;
template class ZmapPredictorT<unsigned char, 1>;
template class ZmapPredictorT<unsigned int, 1>;
template class ZmapPredictorSwapT<unsigned char, 3>;
template class ZmapPredictorSwapT<unsigned char, 1>;
template class ZmapPredictorSwapT<unsigned int, 1>;

namespace {
template <class Element, int Samples> std::unique_ptr<ZmapPredictor> predictorOf(bool swapped) {
    if (swapped) {
        return std::make_unique<ZmapPredictorSwapT<Element, Samples>>();
    }
    return std::make_unique<ZmapPredictorT<Element, Samples>>();
}
} // namespace

std::unique_ptr<ZmapPredictor> makePredictor(FilePixelType type, bool swapped) {
    switch (type) {
    case FilePixelType::rgb24:
    case FilePixelType::bgr24:
        return predictorOf<unsigned char, 3>(swapped);
    case FilePixelType::grey8:
        return predictorOf<unsigned char, 1>(swapped);
    case FilePixelType::depth32:
        return predictorOf<unsigned int, 1>(swapped);
    case FilePixelType::none:
    case FilePixelType::index8:
    case FilePixelType::index16:
    case FilePixelType::alpha32:
        break;
    }
    return std::make_unique<ZmapPredictor>();
}
