#include "views/ScaledDrawable.h"

#include "image/TileBitmap.h"
#include "image/ZmapDocument.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace {

/// The pixel index of a mapped coordinate; INT32_MIN (outside any image) when it isn't a
/// number or is out of range, as near a perspective's horizon.
std::int32_t toPixel(double q) {
    const double f = std::floor(q);
    return f >= -2147483647.0 && f <= 2147483647.0 ? static_cast<std::int32_t>(f) : INT32_MIN;
}

bool composedChannel(std::uint32_t id) {
    return id == channelRgb || id == channelZ || id == channelMat;
}

/// Display colour of one row of one tile at a time, for the tile columns of one image row:
/// a magnified view reads the same image row for several target rows, so segments stay
/// until the image row changes.
class DisplayRowCache {
public:
    DisplayRowCache(const TileBitmap& bitmap, bool composite)
        : bitmap_(bitmap), geometry_(bitmap.geometry()), composite_(composite),
          segments_(static_cast<std::size_t>(geometry_.tilesAcross)) {}

    /// Pointer to the three display bytes of image pixel (x, y), which lies in the image.
    const std::uint8_t* pixel(std::int32_t x, std::int32_t y) {
        if (y != row_) {
            for (Segment& s : segments_) {
                s.valid = false;
                s.hold.reset();
            }
            row_ = y;
        }
        const std::int32_t column = x >> geometry_.xShift;
        Segment& s = segments_[static_cast<std::size_t>(column)];
        if (!s.valid) {
            const std::int32_t x0 = column << geometry_.xShift;
            s.pixels = bitmap_.displayRgbComposite(x0, y, geometry_.columnWidth(column), 1, s.hold,
                                                   composite_);
            s.valid = true;
        }
        if (!s.pixels) {
            return blank_;
        }
        return s.pixels + static_cast<std::size_t>(x & geometry_.xMask) * 3;
    }

private:
    struct Segment {
        TileHandle hold;
        const std::uint8_t* pixels = nullptr;
        bool valid = false;
    };

    const TileBitmap& bitmap_;
    const TileGeometry& geometry_;
    bool composite_;
    std::vector<Segment> segments_;
    std::int32_t row_ = -1;
    const std::uint8_t blank_[3] = {0, 0, 0};
};

} // namespace

PixelMapping PixelMapping::zoom(std::int32_t numerator, std::int32_t denominator) {
    PixelMapping m;
    const double n = numerator;
    const double d = denominator;
    // ((u + 0.5) d, (v + 0.5) d, n): exact in doubles for any pixel position and zoom.
    m.a[0] = d;
    m.a[1] = 0;
    m.a[2] = 0;
    m.b[0] = 0;
    m.b[1] = d;
    m.b[2] = 0;
    m.c[0] = d / 2;
    m.c[1] = d / 2;
    m.c[2] = n;
    return m;
}

IPoint<2> PixelMapping::map(std::int32_t u, std::int32_t v) const {
    const double s0 = a[0] * u + b[0] * v + c[0];
    const double s1 = a[1] * u + b[1] * v + c[1];
    const double s2 = a[2] * u + b[2] * v + c[2];
    return {toPixel(s0 / s2), toPixel(s1 / s2)};
}

ColourPOD displayPixel(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                       std::uint32_t channelId) {
    const TQL::Handle<TileBitmap> bitmap = document.channel(channelId);
    ColourPOD colour{};
    if (!bitmap || !bitmap->geometry().contains(x, y)) {
        return colour;
    }
    TileHandle hold;
    const std::uint8_t* p =
        bitmap->displayRgbComposite(x, y, 1, 1, hold, composedChannel(channelId));
    if (p) {
        std::memcpy(&colour, p, 3);
    }
    return colour;
}

void drawScaled(Status& status, const ZmapDocument& document, ScaledDrawable& target,
                std::uint32_t channelId, const PixelMapping& mapping,
                const IExtent<2>& targetExtent, const std::atomic<bool>* abort,
                std::int32_t* rowsDone) {
    if (rowsDone) {
        *rowsDone = 0;
    }
    const TQL::Handle<TileBitmap> bitmap = document.channel(channelId);
    if (!bitmap) {
        status = status::noImage;
        return;
    }
    status = status::ok;
    if (targetExtent.degenerate()) {
        return;
    }
    const TileGeometry& g = bitmap->geometry();
    DisplayRowCache cache(*bitmap, composedChannel(channelId));
    const std::int32_t u0 = targetExtent.lo().x;
    const auto width = static_cast<std::int32_t>(targetExtent.width());
    std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 3);

    for (std::int32_t v = targetExtent.lo().y; v <= targetExtent.hi().y; ++v) {
        if (abort && abort->load(std::memory_order_relaxed)) {
            status = status::cancelled;
            return;
        }
        // Running sums along the row.
        double s0 = mapping.a[0] * u0 + mapping.b[0] * v + mapping.c[0];
        double s1 = mapping.a[1] * u0 + mapping.b[1] * v + mapping.c[1];
        double s2 = mapping.a[2] * u0 + mapping.b[2] * v + mapping.c[2];
        std::int32_t lastX = INT32_MIN;
        std::int32_t lastY = INT32_MIN;
        std::uint8_t last[3] = {0, 0, 0};
        // Pixels from runStart on are of one kind, inside or outside, and not yet sent.
        std::int32_t runStart = 0;
        bool runInside = true;
        const auto flush = [&](std::int32_t end) {
            if (end > runStart) {
                if (runInside) {
                    target.ScaledRow(u0 + runStart, v, end - runStart,
                                     row.data() + static_cast<std::size_t>(runStart) * 3);
                } else {
                    target.ScaledOutside(u0 + runStart, v, end - runStart);
                }
            }
            runStart = end;
        };
        for (std::int32_t i = 0; i < width; ++i) {
            const std::int32_t x = toPixel(s0 / s2);
            const std::int32_t y = toPixel(s1 / s2);
            s0 += mapping.a[0];
            s1 += mapping.a[1];
            s2 += mapping.a[2];
            const bool inside = g.contains(x, y);
            if (inside != runInside) {
                flush(i);
                runInside = inside;
            }
            if (!inside) {
                continue;
            }
            if (x != lastX || y != lastY) {
                std::memcpy(last, cache.pixel(x, y), 3);
                lastX = x;
                lastY = y;
            }
            std::memcpy(row.data() + static_cast<std::size_t>(i) * 3, last, 3);
        }
        flush(width);
        if (rowsDone) {
            *rowsDone = v - targetExtent.lo().y + 1;
        }
    }
}
