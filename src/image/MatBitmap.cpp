#include "image/MatBitmap.h"

#include "image/ZmapDocument.h"

#include <cstring>

MatBitmap::MatBitmap(const ZmapDocument& document) : MatBitmap(&document, document.geometry()) {}

MatBitmap::MatBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::material16) {}

void MatBitmap::overlay(const TQL::Handle<MatBitmap>& other) {
    if (!other) {
        return;
    }
    copyFrom(*other, false);
    overlaid_ = other;
}

std::int64_t MatBitmap::memoryUsed() const {
    // The overlay handle.
    return TileBitmap::memoryUsed() + 4;
}

const std::uint8_t* MatBitmap::displayRgb(std::int32_t x, std::int32_t y, std::int32_t w,
                                          std::int32_t h, TileHandle& hold) const {
    return displayRgbComposite(x, y, w, h, hold, false);
}

const std::uint8_t* MatBitmap::displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                                   std::int32_t h, TileHandle& hold,
                                                   bool composite) const {
    const ZmapDocument* doc = document();
    const MatBitmap* cutout =
        doc && composite && doc->cutoutMat.get() != this ? doc->cutoutMat.get() : nullptr;
    const TileRectReader overlay(cutout, x, y);
    // Ids above 255 need a look-up in the table: remember the last one.
    std::uint32_t lastId = 0x10000;
    ColourPOD lastColour{};
    return convertRect(
        x, y, w, h, hold,
        [&](const std::uint8_t* in, std::uint8_t* out, std::int32_t k, std::int32_t count) {
            const std::uint8_t* over = overlay.row(k);
            for (std::int32_t i = 0; i < count; ++i) {
                std::uint16_t id = 0;
                if (over) {
                    std::memcpy(&id, over + i * 2, 2);
                }
                if (id == 0 && in) {
                    std::memcpy(&id, in + i * 2, 2);
                }
                if (id != lastId) {
                    lastId = id;
                    lastColour = doc ? doc->materialColour(id) : ColourPOD{};
                }
                std::memcpy(out + i * 3, &lastColour, 3);
            }
        });
}
