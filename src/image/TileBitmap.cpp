#include "image/TileBitmap.h"

#include "image/AlphaBitmap.h"
#include "image/DrawTarget.h"
#include "image/RgbBitmap.h"
#include "image/ZmapDocument.h"
#include "views/cameras/FaceSize.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstring>

TqlCriticalSection TileBitmap::rgbCS(L"TileBitmap::rgbCS");

namespace {

/// Shown for an empty colour tile: black, enough for the largest tile at any stride.
const std::uint8_t blankRows[256 * 3 * 256] = {};

/// A row of the widest tile (256 pixels) of the largest pixel (8 bytes), all zero: the
/// empty row of every bitmap whose empty value is zero. Never freed.
std::shared_ptr<const std::uint8_t[]> zeroRow() {
    static const std::shared_ptr<const std::uint8_t[]> row(new std::uint8_t[256 * 8]());
    return row;
}

} // namespace

std::int32_t bytesPerPixel(PixelFormat format) {
    switch (format) {
    case PixelFormat::flag8:
        return 1;
    case PixelFormat::material16:
        return 2;
    case PixelFormat::rgb24:
        return 3;
    case PixelFormat::depth32:
    case PixelFormat::alpha32:
    case PixelFormat::variance32:
        return 4;
    case PixelFormat::wet64:
        return 8;
    case PixelFormat::pointer:
        return static_cast<std::int32_t>(sizeof(void*));
    }
    return 0;
}

TileRectReader::TileRectReader(const TileBitmap* bitmap, std::int32_t x, std::int32_t y) {
    if (bitmap && (first_ = bitmap->pixelForRead(x, y, hold_, nullptr)) != nullptr) {
        stride_ = hold_->stride();
    }
}

TileBitmap::TileBitmap(const ZmapDocument* document, const TileGeometry& geometry,
                       PixelFormat format)
    : document_(document), tiles_(geometry.tileCount()), format_(format),
      bitsPerPixel_(::bytesPerPixel(format) * 8), geometry_(geometry), emptyRow_(zeroRow()) {}

TileBitmap::TileBitmap(const TileBitmap& other)
    : TQL::Handlable(), document_(other.document_), changed_(other.changed()), tiles_(other.tiles_),
      format_(other.format_), bitsPerPixel_(other.bitsPerPixel_), geometry_(other.geometry_),
      emptyValueIsZero_(other.emptyValueIsZero_), emptyRow_(other.emptyRow_) {
    std::memcpy(emptyValue_, other.emptyValue_, sizeof emptyValue_);
}

TileBitmap::~TileBitmap() = default;

void TileBitmap::setEmptyValue(const void* value) {
    const std::int32_t bytes = bytesPerPixel();
    std::memset(emptyValue_, 0, sizeof emptyValue_);
    std::memcpy(emptyValue_, value, static_cast<std::size_t>(bytes));
    emptyValueIsZero_ =
        std::all_of(emptyValue_, emptyValue_ + bytes, [](std::uint8_t b) { return b == 0; });
    if (emptyValueIsZero_) {
        emptyRow_ = zeroRow();
        return;
    }
    const auto rowBytes = static_cast<std::size_t>(geometry_.tileWidth) * bytes;
    std::shared_ptr<std::uint8_t[]> row(new std::uint8_t[rowBytes]);
    for (std::size_t i = 0; i < rowBytes; i += static_cast<std::size_t>(bytes)) {
        std::memcpy(&row[i], emptyValue_, static_cast<std::size_t>(bytes));
    }
    emptyRow_ = std::move(row);
}

TileHandle TileBitmap::makeTile(std::int32_t index) const {
    const IExtent<2> extent = geometry_.tileExtent(index);
    const auto width = static_cast<std::int32_t>(extent.width());
    const auto height = static_cast<std::int32_t>(extent.height());
    const std::int32_t bytes = bytesPerPixel();
    TileHandle tile = TQL::makeHandle<TileBitmapTile>(width, height, bytes);
    assert(tile->stride() == geometry_.rowStride(index % geometry_.tilesAcross, bytes));
    if (!emptyValueIsZero_) {
        for (std::int32_t y = 0; y < height; ++y) {
            std::uint8_t* row = tile->pixel(0, y);
            for (std::int32_t x = 0; x < width; ++x) {
                std::memcpy(row + static_cast<std::size_t>(x) * bytes, emptyValue_,
                            static_cast<std::size_t>(bytes));
            }
        }
    }
    return tile;
}

void TileBitmap::clearTile(std::int32_t index) {
    if (index < 0 || index >= tiles_.size() || tiles_.get(index)->empty()) {
        return;
    }
    tiles_.null(index);
    setChanged();
    bumpGeneration();
}

void TileBitmap::clearAll() {
    tiles_.clear(0, tiles_.size());
    setChanged();
    bumpGeneration();
}

void TileBitmap::copyFrom(const TileBitmap& other, bool overwrite) {
    assert(other.geometry_.tilesAcross == geometry_.tilesAcross &&
           other.geometry_.tilesDown == geometry_.tilesDown && other.format_ == format_ &&
           "copyFrom needs bitmaps of one geometry and format");
    if (&other == this || other.geometry_.tileCount() != geometry_.tileCount() ||
        other.bitsPerPixel_ != bitsPerPixel_) {
        return;
    }
    tiles_.copy(0, tiles_.size(), other.tiles_, overwrite, *this);
}

void TileBitmap::copyTilesFrom(const TileBitmap& other, std::int32_t first, std::int32_t last,
                               bool overwrite) {
    assert(other.geometry_.tileCount() == geometry_.tileCount() && other.format_ == format_ &&
           "copyTilesFrom needs bitmaps of one geometry and format");
    if (&other == this || other.geometry_.tileCount() != geometry_.tileCount() ||
        other.bitsPerPixel_ != bitsPerPixel_) {
        return;
    }
    tiles_.copy(first, last, other.tiles_, overwrite, *this);
}

void TileBitmap::swapTiles(TileBitmap& other) {
    assert(other.geometry_ == geometry_ && other.format_ == format_ &&
           "swapTiles needs bitmaps of one geometry and format");
    if (&other == this || other.geometry_.tileCount() != geometry_.tileCount() ||
        other.bitsPerPixel_ != bitsPerPixel_) {
        return;
    }
    if (tiles_.swap(0, tiles_.size(), other.tiles_, *this)) {
        other.setChanged();
        other.bumpGeneration();
    }
}

std::int32_t TileBitmap::locate(std::int32_t x, std::int32_t y, TileHandle& hold,
                                std::int32_t* tileIndex) const {
    const std::int32_t index = geometry_.contains(x, y) ? geometry_.tileIndex(x, y) : -1;
    if (tileIndex) {
        *tileIndex = index;
    }
    if (index < 0) {
        hold.reset();
    }
    return index;
}

const TileHandle& TileBitmap::writableTile(std::int32_t index, TileHandle& hold) {
    // The caller's handle may pin this very tile (a reused hold): let go of it first, or the
    // tile looks shared and is copied again on every write.
    hold.reset();
    hold = tiles_.getSinglyReferenced(index, *this);
    setChanged();
    return hold;
}

std::uint8_t* TileBitmap::pixelForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                                        std::int32_t* tileIndex) {
    const std::int32_t index = locate(x, y, hold, tileIndex);
    if (index < 0) {
        return nullptr;
    }
    return writableTile(index, hold)->pixel(x & geometry_.xMask, y & geometry_.yMask);
}

const std::uint8_t* TileBitmap::pixelForRead(std::int32_t x, std::int32_t y, TileHandle& hold,
                                             std::int32_t* tileIndex) const {
    const std::int32_t index = locate(x, y, hold, tileIndex);
    if (index < 0) {
        return nullptr;
    }
    hold = tiles_.get(index);
    if (hold->empty()) {
        return nullptr;
    }
    return hold->pixel(x & geometry_.xMask, y & geometry_.yMask);
}

std::uint8_t* TileBitmap::tileForWrite(std::int32_t index, TileHandle& hold) {
    if (index < 0 || index >= tiles_.size()) {
        hold.reset();
        return nullptr;
    }
    return writableTile(index, hold)->pixels();
}

const std::uint8_t* TileBitmap::tileForRead(std::int32_t index, TileHandle& hold) const {
    if (index < 0 || index >= tiles_.size()) {
        hold.reset();
        return nullptr;
    }
    hold = tiles_.get(index);
    return hold->pixels();
}

std::int32_t TileBitmap::runForRead(std::int32_t x, std::int32_t y, TileHandle& hold,
                                    const std::uint8_t** pixel) const {
    *pixel = pixelForRead(x, y, hold, nullptr);
    if (!*pixel) {
        if (!hold) {
            return 0; // outside the image
        }
        *pixel = emptyRow_.get(); // never written: the empty value, as a pixel read gives
    }
    return std::min(geometry_.width, (x | geometry_.xMask) + 1) - x;
}

std::int32_t TileBitmap::runForWrite(std::int32_t x, std::int32_t y, TileHandle& hold,
                                     std::uint8_t** pixel) {
    *pixel = pixelForWrite(x, y, hold, nullptr);
    if (!*pixel) {
        return 0;
    }
    return std::min(geometry_.width, (x | geometry_.xMask) + 1) - x;
}

std::int64_t TileBitmap::memoryUsed() const {
    std::int64_t bytes = std::int64_t(geometry_.tileCount()) * 24 + 40;
    TqlSimpleLock lock(rgbCS, L"TileBitmap::memoryUsed");
    if (scratch_) {
        const std::int32_t width =
            geometry_.tilesAcross > 1 ? geometry_.tileWidth : geometry_.lastColumnWidth;
        const std::int32_t height =
            geometry_.tilesDown > 1 ? geometry_.tileHeight : geometry_.lastRowHeight;
        bytes += std::int64_t(3) * width * height;
    }
    return bytes;
}

std::int32_t TileBitmap::displayStride(std::int32_t x) const {
    return (geometry_.columnWidth(x >> geometry_.xShift) * 3 + 3) & ~3;
}

std::uint8_t* TileBitmap::rgbPtr(TileHandle& hold) const {
    TqlSimpleLock lock(rgbCS, L"TileBitmap::rgbPtr");
    if (!scratch_ || scratch_.refC() != 1) {
        const std::int32_t width =
            geometry_.tilesAcross > 1 ? geometry_.tileWidth : geometry_.lastColumnWidth;
        const std::int32_t height =
            geometry_.tilesDown > 1 ? geometry_.tileHeight : geometry_.lastRowHeight;
        scratch_ = TQL::makeHandle<TileBitmapTile>(width, height, 3);
    }
    hold = scratch_;
    return hold->pixels();
}

const std::uint8_t* TileBitmap::displayRgb(std::int32_t x, std::int32_t y, std::int32_t w,
                                           std::int32_t h, TileHandle& hold) const {
    if (format_ != PixelFormat::rgb24) {
        hold.reset();
        return nullptr;
    }
    return pixelForRead(x, y, hold, nullptr);
}

const std::uint8_t* TileBitmap::displayRgbComposite(std::int32_t x, std::int32_t y, std::int32_t w,
                                                    std::int32_t h, TileHandle& hold,
                                                    bool composite) const {
    const ZmapDocument* doc = document_;
    if (!composite || !doc || format_ != PixelFormat::rgb24 || !geometry_.contains(x, y)) {
        return displayRgb(x, y, w, h, hold);
    }
    const TileRectReader overlay(doc->cutoutAlpha.get(), x, y);
    const TileRectReader shadow(doc->shadowAlpha.get(), x, y);
    if (overlay.empty() && shadow.empty()) {
        return displayRgb(x, y, w, h, hold);
    }
    const TileRectReader overlayColour(doc->cutoutRgb.get(), x, y);
    const ShadowDisplay shade = doc->shadowDisplay();
    const ColourPOD shadowColour = shade.colour;
    const double k0 = shade.opacity * shade.strength;
    // Per channel: the shadow multiplies by ((c / 255 - 1) * k + 1), c the shadow colour.
    const double towardB = shadowColour.b / 255.0 - 1.0;
    const double towardG = shadowColour.g / 255.0 - 1.0;
    const double towardR = shadowColour.r / 255.0 - 1.0;

    return convertRect(
        x, y, w, h, hold,
        [&](const std::uint8_t* in, std::uint8_t* out, std::int32_t k, std::int32_t count) {
            if (in) {
                std::memcpy(out, in, static_cast<std::size_t>(count) * 3);
            } else {
                std::memset(out, 0, static_cast<std::size_t>(count) * 3);
            }
            const auto* a = reinterpret_cast<const float*>(overlay.row(k));
            const std::uint8_t* c = overlayColour.row(k);
            if (a) {
                for (std::int32_t i = 0; i < count; ++i) {
                    const double alpha = a[i];
                    if (alpha > 0) {
                        for (std::int32_t j = 0; j < 3; ++j) {
                            const double base = out[i * 3 + j];
                            const double over = c ? c[i * 3 + j] : 0.0;
                            out[i * 3 + j] = static_cast<std::uint8_t>(
                                std::clamp(std::lrint(base + (over - base) * alpha), 0L, 255L));
                        }
                    }
                }
            }
            const auto* s = reinterpret_cast<const float*>(shadow.row(k));
            if (s) {
                for (std::int32_t i = 0; i < count; ++i) {
                    if (s[i] != 0) {
                        const double kk = s[i] * k0;
                        const double factor[3] = {towardB * kk + 1, towardG * kk + 1,
                                                  towardR * kk + 1};
                        for (std::int32_t j = 0; j < 3; ++j) {
                            out[i * 3 + j] = static_cast<std::uint8_t>(
                                std::clamp(std::lrint(out[i * 3 + j] * factor[j]), 0L, 255L));
                        }
                    }
                }
            }
        });
}

Status TileBitmap::drawArea(DrawTarget& target, const IExtent<2>& channelExtent,
                            const IExtent<2>& clipExtent, const std::atomic<bool>* abort,
                            bool composite) const {
    const IExtent<2> area = channelExtent & clipExtent & geometry_.bounds();
    if (area.degenerate()) {
        return status::ok;
    }
    const TileGeometry& g = geometry_;
    for (std::int32_t row = area.lo().y >> g.yShift; row <= area.hi().y >> g.yShift; ++row) {
        for (std::int32_t column = area.lo().x >> g.xShift; column <= area.hi().x >> g.xShift;
             ++column) {
            if (abort && abort->load(std::memory_order_relaxed)) {
                return status::cancelled;
            }
            const IExtent<2> rect = g.tileExtent(row * g.tilesAcross + column) & area;
            const std::int32_t x = rect.lo().x;
            const std::int32_t y = rect.lo().y;
            const auto w = static_cast<std::int32_t>(rect.width());
            const auto h = static_cast<std::int32_t>(rect.height());
            TileHandle hold;
            const std::uint8_t* rgb = displayRgbComposite(x, y, w, h, hold, composite);
            target.DrawBits(x, y, w, h, rgb ? rgb : blankRows, displayStride(x));
        }
    }
    return status::ok;
}

bool TileBitmap::stitchFaces(std::int32_t n) {
    const TileGeometry& g = geometry_;
    const bool across = n >= 2 && g.width == 6 * n && g.height == n;
    const bool stacked = n >= 2 && g.width == n && g.height == 6 * n;
    if (!across && !stacked) {
        return false;
    }
    // Strip coordinates to image coordinates: stacked faces lie one below the other.
    const auto toImage = [&](IPoint<2> p) {
        return stacked ? IPoint<2>(p.x % n, (p.x / n) * n + p.y) : p;
    };
    const std::int32_t bytes = bytesPerPixel();
    const FaceSize faces(n);
    // One handle serves every read and write, so at most one tile is pinned at a time.
    TileHandle hold;
    const auto copyIfDifferent = [&](IPoint<2> from, IPoint<2> to) {
        const IPoint<2> a = toImage(from);
        const IPoint<2> b = toImage(to);
        std::uint8_t value[8];
        const std::uint8_t* source = pixelForRead(a.x, a.y, hold, nullptr);
        std::memcpy(value, source ? source : emptyValue_, static_cast<std::size_t>(bytes));
        const std::uint8_t* target = pixelForRead(b.x, b.y, hold, nullptr);
        if (std::memcmp(value, target ? target : emptyValue_, static_cast<std::size_t>(bytes)) !=
            0) {
            std::memcpy(pixelForWrite(b.x, b.y, hold, nullptr), value,
                        static_cast<std::size_t>(bytes));
        }
    };
    // Every edge pixel of every face takes the value of its canonical copy.
    for (std::int32_t face = 0; face < 6; ++face) {
        const std::int32_t x0 = face * n;
        for (std::int32_t v = 0; v < n; ++v) {
            const bool edgeRow = v == 0 || v == n - 1;
            for (std::int32_t u = 0; u < n; u += edgeRow ? 1 : n - 1) {
                const IPoint<2> here(x0 + u, v);
                const IPoint<2> canonical = faces.canonicalPixel(here.x, here.y);
                if (!(canonical == here)) {
                    copyIfDifferent(canonical, here);
                }
            }
        }
    }
    return true;
}
