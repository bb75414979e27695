#pragma once

#include "file/ZmapPixels.h"

#include <cstdint>
#include <memory>

/// Horizontal differencing (TIFF predictor 2), run on a whole tile or strip before it is
/// compressed and after it is decompressed. The pixels are `rows` packed rows of `width`
/// pixels. Arithmetic wraps around in the element type. This base class is the "no
/// prediction" case and leaves the pixels alone.
class ZmapPredictor {
public:
    virtual ~ZmapPredictor();
    /// Replaces every sample but those of a row's first pixel by its difference from the
    /// same sample of the pixel before it.
    virtual void encodeRows(void* pixels, std::uint32_t width, std::uint32_t rows) const;
    /// Undoes encodeRows(): a running sum along each row.
    virtual void decodeRows(void* pixels, std::uint32_t width, std::uint32_t rows) const;
};

/// The predictor for pixels of `Samples` samples of type `Element` in the machine's byte
/// order. `pixels` must be aligned for `Element`.
template <class Element, int Samples> class ZmapPredictorT : public ZmapPredictor {
public:
    void encodeRows(void* pixels, std::uint32_t width, std::uint32_t rows) const override;
    void decodeRows(void* pixels, std::uint32_t width, std::uint32_t rows) const override;
};

/// The predictor for samples stored in the other byte order: each operand is swapped
/// into the machine's order, the arithmetic done, and the result swapped back. For byte
/// samples it is the same as ZmapPredictorT.
template <class Element, int Samples> class ZmapPredictorSwapT : public ZmapPredictor {
public:
    void encodeRows(void* pixels, std::uint32_t width, std::uint32_t rows) const override;
    void decodeRows(void* pixels, std::uint32_t width, std::uint32_t rows) const override;
};

extern template class ZmapPredictorT<unsigned char, 3>;
extern template class ZmapPredictorT<unsigned char, 1>;
extern template class ZmapPredictorT<unsigned int, 1>;
extern template class ZmapPredictorSwapT<unsigned char, 3>;
extern template class ZmapPredictorSwapT<unsigned char, 1>;
extern template class ZmapPredictorSwapT<unsigned int, 1>;

/// The predictor of a section of `type`, whose samples are in the other byte order when
/// `swapped`: colour (rgb24, bgr24) by bytes of three, grey8 by single bytes, depth32 by
/// 32-bit values. Every other type, 16-bit material ids among them, is never predicted
/// and gets the base class.
std::unique_ptr<ZmapPredictor> makePredictor(FilePixelType type, bool swapped);
