// Flattening of ZmapDocument: the overlay layer merged into the image as it is shown.

#include "image/ZmapDocument.h"

#include <cstring>
#include <new>

namespace {

bool tileHolds(const TileBitmap* bitmap, std::int32_t index) {
    TileHandle hold;
    return bitmap && bitmap->tileForRead(index, hold) != nullptr;
}

/// Writes `map(v)` to `target` wherever tile `index` of `overlay` holds a value v other
/// than 0; the target tile is made private only if there is one.
template <class T, class Map>
void mergeOverlay(const TileBitmap* overlay, TileBitmap& target, std::int32_t index, Map map) {
    TileHandle hold;
    const std::uint8_t* source = overlay ? overlay->tileForRead(index, hold) : nullptr;
    if (!source) {
        return;
    }
    const IExtent<2> extent = target.geometry().tileExtent(index);
    TileHandle writeHold;
    std::uint8_t* out = nullptr;
    for (std::int32_t r = 0; r < extent.height(); ++r) {
        const auto* row = reinterpret_cast<const T*>(source + std::size_t(r) * hold->stride());
        for (std::int32_t i = 0; i < extent.width(); ++i) {
            if (row[i] == 0) {
                continue;
            }
            if (!out) {
                out = target.tileForWrite(index, writeHold);
            }
            reinterpret_cast<T*>(out + std::size_t(r) * writeHold->stride())[i] = map(row[i]);
        }
    }
}

} // namespace

void ZmapDocument::flattenOverlay(Status& result) {
    if (!rgb || !z || !mat) {
        result = status::noImage;
        return;
    }
    try {
        for (std::int32_t index = 0; index < geometry_.tileCount(); ++index) {
            if (tileHolds(cutoutAlpha.get(), index) || tileHolds(shadowAlpha.get(), index)) {
                // The colour as the display composes it, copied back into the tile.
                const IExtent<2> e = geometry_.tileExtent(index);
                const auto w = static_cast<std::int32_t>(e.width());
                const auto h = static_cast<std::int32_t>(e.height());
                TileHandle composedHold;
                const std::uint8_t* composed =
                    rgb->displayRgbComposite(e.lo().x, e.lo().y, w, h, composedHold, true);
                const std::int32_t stride = rgb->displayStride(e.lo().x);
                TileHandle writeHold;
                std::uint8_t* out = rgb->tileForWrite(index, writeHold);
                for (std::int32_t r = 0; r < h; ++r) {
                    std::memcpy(out + std::size_t(r) * writeHold->stride(),
                                composed + std::size_t(r) * stride, std::size_t(w) * 3);
                }
            }
            mergeOverlay<std::uint32_t>(cutoutZ.get(), *z, index,
                                        [](std::uint32_t v) { return v - 1; });
            mergeOverlay<MaterialId>(cutoutMat.get(), *mat, index, [](MaterialId v) { return v; });
        }
    } catch (const std::bad_alloc&) {
        result = status::outOfMemory;
        return;
    }
    for (const std::uint32_t id : {channelCutoutRgb, channelCutoutZ, channelCutoutMat,
                                   channelCutoutAlpha, channelShadowAlpha}) {
        if (const TQL::Handle<TileBitmap> overlay = channel(id)) {
            overlay->clearAll();
        }
    }
    result = status::ok;
}
