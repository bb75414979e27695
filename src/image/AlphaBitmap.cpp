#include "image/AlphaBitmap.h"

#include "image/ZmapDocument.h"

#include <algorithm>
#include <cmath>
#include <cstring>

AlphaBitmap::AlphaBitmap(const ZmapDocument& document)
    : AlphaBitmap(&document, document.geometry()) {}

AlphaBitmap::AlphaBitmap(const ZmapDocument* document, const TileGeometry& geometry)
    : TileBitmap(document, geometry, PixelFormat::alpha32) {}

void AlphaBitmap::clearKeepingTiles() {
    const std::int32_t count = geometry().tileCount();
    if (!kept_) {
        kept_ = TQL::makeHandle<AlphaBitmap>(document(), geometry());
        keptAt_.assign(static_cast<std::size_t>(count), 0);
    }
    written_.resize(static_cast<std::size_t>(count), 0);
    // The tiles written since the last clear replace those kept before and not taken back.
    kept_->clearAll();
    keptCount_ = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        auto& written = written_[static_cast<std::size_t>(i)];
        auto& kept = keptAt_[static_cast<std::size_t>(i)];
        kept = written && !tiles().get(i)->empty() ? 1 : 0;
        written = 0;
        if (kept) {
            kept_->copyTilesFrom(*this, i, i + 1, true);
            ++keptCount_;
        }
    }
    clearAll();
}

void AlphaBitmap::noteWrite(std::int32_t index) {
    if (index < 0 || index >= geometry().tileCount()) {
        return;
    }
    if (written_.empty()) {
        written_.assign(static_cast<std::size_t>(geometry().tileCount()), 0);
    }
    written_[static_cast<std::size_t>(index)] = 1;
    if (keptCount_ == 0) {
        return;
    }
    const std::int32_t across = geometry().tilesAcross;
    const std::int32_t first = index - index % across;
    const std::int32_t last = first + across;
    if (std::find(keptAt_.begin() + first, keptAt_.begin() + last, 1) == keptAt_.begin() + last) {
        return;
    }
    for (std::int32_t i = first; i < last; ++i) {
        if (!keptAt_[static_cast<std::size_t>(i)]) {
            continue;
        }
        // Zeroed while only the kept table holds it: a tile someone else still holds is
        // copied by the write call, not changed under them.
        TileHandle tile;
        if (std::uint8_t* pixels = kept_->TileBitmap::tileForWrite(i, tile)) {
            std::memset(pixels, 0, tile->size());
        }
    }
    // Fills only the entries that are still empty; a tile written since the clear without
    // taking its kept one stays.
    copyTilesFrom(*kept_, first, last, false);
    for (std::int32_t i = first; i < last; ++i) {
        if (keptAt_[static_cast<std::size_t>(i)]) {
            keptAt_[static_cast<std::size_t>(i)] = 0;
            --keptCount_;
            kept_->clearTile(i);
        }
    }
}

std::uint8_t* AlphaBitmap::pixelForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                                         std::int32_t* tileIndex) {
    if (geometry().contains(x, y)) {
        noteWrite(geometry().tileIndex(x, y));
    }
    return TileBitmap::pixelForWrite(x, y, hold, tileIndex);
}

std::uint8_t* AlphaBitmap::tileForWrite(std::int32_t index, TileHandle& hold) {
    noteWrite(index);
    return TileBitmap::tileForWrite(index, hold);
}

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
