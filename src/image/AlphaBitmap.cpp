#include "image/AlphaBitmap.h"

#include "image/ZmapDocument.h"

#include <cmath>
#include <cstring>

AlphaBitmap::AlphaBitmap(const ZmapDocument& document)
    : AlphaBitmap(&document, document.geometry()) {}

AlphaBitmap::AlphaBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::alpha32) {}

std::uint8_t AlphaBitmap::displayGrey(Alpha a) {
    return static_cast<std::uint8_t>(~static_cast<std::uint32_t>(std::lrint(a * 255.0)));
}

const std::uint8_t* AlphaBitmap::displayRgb(std::int32_t x, std::int32_t y, std::int32_t w,
                                            std::int32_t h, TileHandle& hold) const {
    return displayRgbComposite(x, y, w, h, hold, false);
}

const std::uint8_t* AlphaBitmap::displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                                     std::int32_t h, TileHandle& hold, bool) const {
    return convertRect(
        x, y, w, h, hold,
        [](const std::uint8_t* in, std::uint8_t* out, std::int32_t, std::int32_t count) {
            if (!in) {
                std::memset(out, displayGrey(0), static_cast<std::size_t>(count) * 3);
                return;
            }
            for (std::int32_t i = 0; i < count; ++i) {
                Alpha a;
                std::memcpy(&a, in + i * 4, 4);
                const std::uint8_t grey = displayGrey(a);
                out[i * 3] = out[i * 3 + 1] = out[i * 3 + 2] = grey;
            }
        });
}
