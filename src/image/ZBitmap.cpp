#include "image/ZBitmap.h"

#include "image/ZmapDocument.h"

#include <cmath>
#include <cstring>

ZBitmap::ZBitmap(const ZmapDocument& document, std::uint32_t noDepthValue)
    : ZBitmap(&document, document.geometry(), noDepthValue) {}

ZBitmap::ZBitmap(const ZmapDocument* document, const TileGeometry& geometry,
                 std::uint32_t noDepthValue)
    : TileBitmap(document, geometry, PixelFormat::depth32), noDepthValue_(noDepthValue) {
    setEmptyValue(&noDepthValue_);
}

void ZBitmap::overlay(const TQL::Handle<ZBitmap>& other) {
    if (!other) {
        return;
    }
    copyFrom(*other, false);
    noDepthValue_ = other->noDepthValue_;
    setEmptyValue(&noDepthValue_);
    overlaid_ = other;
}

ColourPOD ZBitmap::displayColour(std::uint32_t z, std::uint32_t noDepthValue) {
    if (z == noDepthValue) {
        return noDepthColour;
    }
    const auto grey = static_cast<std::uint8_t>(std::floor(std::sqrt(z / 4294967295.0) * 255.0));
    return {grey, grey, grey};
}

std::int64_t ZBitmap::memoryUsed() const {
    // The no-depth value and the overlay handle.
    return TileBitmap::memoryUsed() + 8;
}

const std::uint8_t* ZBitmap::displayRgb(std::int32_t x, std::int32_t y, std::int32_t w,
                                        std::int32_t h, TileHandle& hold) const {
    return displayRgbComposite(x, y, w, h, hold, false);
}

const std::uint8_t* ZBitmap::displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                                 std::int32_t h, TileHandle& hold,
                                                 bool composite) const {
    const ZmapDocument* doc = document();
    const ZBitmap* cutout =
        doc && composite && doc->cutoutZ.get() != this ? doc->cutoutZ.get() : nullptr;
    const TileRectReader overlay(cutout, x, y);
    const std::uint32_t none = noDepthValue_;
    return convertRect(
        x, y, w, h, hold,
        [&](const std::uint8_t* in, std::uint8_t* out, std::int32_t k, std::int32_t count) {
            const std::uint8_t* over = overlay.row(k);
            for (std::int32_t i = 0; i < count; ++i) {
                std::uint32_t z = none;
                if (in) {
                    std::memcpy(&z, in + i * 4, 4);
                }
                if (over) {
                    std::uint32_t c;
                    std::memcpy(&c, over + i * 4, 4);
                    if (c != 0) {
                        z = c - 1;
                    }
                }
                const ColourPOD colour = displayColour(z, none);
                std::memcpy(out + i * 3, &colour, 3);
            }
        });
}
