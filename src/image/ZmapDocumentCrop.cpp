// Cropping of ZmapDocument: every channel rebuilt at the new size, and the view record's
// image window moved with the kept pixels.

#include "image/ZmapDocument.h"

#include "image/ChannelTable.h"
#include "image/TileRowWriter.h"

#include <algorithm>
#include <new>
#include <vector>

namespace {

/// Copies the pixels of `source` inside `keep` to `target`, which has keep's size, run by
/// run of source tiles. With `sameAs` null the target is empty and the source's empty
/// tiles are left out. With `sameAs`, the target already shares the tiles of the cropped
/// `sameAs`; runs from source tiles that `sameAs` shares are right already and are left
/// out, and every other run is written, empty ones as the empty value.
void copyCropped(const TileBitmap& source, TileBitmap& target, const IExtent<2>& keep,
                 const TileBitmap* sameAs) {
    const TileGeometry& g = source.geometry();
    TileRowWriter writer(target);
    for (std::int32_t y = keep.lo().y; y <= keep.hi().y; ++y) {
        for (std::int32_t x = keep.lo().x; x <= keep.hi().x;) {
            const std::int32_t n = std::min((x | g.xMask) + 1, keep.hi().x + 1) - x;
            const std::int32_t tx = x - keep.lo().x;
            const std::int32_t ty = y - keep.lo().y;
            if (!sameAs || !source.sharesTile(g.tileIndex(x, y), *sameAs)) {
                TileHandle hold;
                const std::uint8_t* run = nullptr;
                source.runForRead(x, y, hold, &run); // an empty tile reads its empty value
                if (sameAs || !hold->empty()) {
                    writer.writeRow(tx, ty, run, n);
                }
            }
            x += n;
        }
    }
}

/// Pixel steps between the first and last pixel of a row or column of n pixels, as the
/// view conversion counts them.
double spanOf(std::int32_t n) {
    return std::max(n - 1, 1);
}

/// The view record of the image cropped to `keep` from a width x height image: the window
/// corners become those of the kept corner pixels. Perspective windows are homogeneous
/// (x/z, y/z); parallel ones are measured after the shear, (x - z sx, y - z sy). Each
/// corner keeps its own z.
ViewParams croppedView(const ViewParams& view, std::int32_t width, std::int32_t height,
                       const IExtent<2>& keep) {
    ViewParams out = view;
    const Point<3>& lo = view.windowLo;
    const Point<3>& hi = view.windowHi;
    double sx = 0;
    double sy = 0;
    if (ViewProj::viewTypeOf(view.viewCode) == ViewProj::parallelView) {
        sx = view.shear.x() / view.shear.z();
        sy = view.shear.y() / view.shear.z();
    } else if (ViewProj::viewTypeOf(view.viewCode) != ViewProj::perspectiveView) {
        return out;
    }
    const bool perspective = ViewProj::viewTypeOf(view.viewCode) == ViewProj::perspectiveView;
    // Window coordinates of a corner, and back.
    auto u = [&](const Point<3>& p) { return perspective ? p.x() / p.z() : p.x() - p.z() * sx; };
    auto v = [&](const Point<3>& p) { return perspective ? p.y() / p.z() : p.y() - p.z() * sy; };
    auto corner = [&](double a, double b, double z) {
        return perspective ? Point<3>(a * z, b * z, z) : Point<3>(a + z * sx, b + z * sy, z);
    };
    const double dx = (u(hi) - u(lo)) / spanOf(width);
    const double dy = (v(hi) - v(lo)) / spanOf(height);
    out.windowLo = corner(u(lo) + keep.lo().x * dx, v(lo) + keep.lo().y * dy, lo.z());
    out.windowHi = corner(u(lo) + keep.hi().x * dx, v(lo) + keep.hi().y * dy, hi.z());
    return out;
}

} // namespace

void ZmapDocument::crop(Status& result, const IExtent<2>& requested) {
    if (!rgb || !z || !mat) {
        result = status::noImage;
        return;
    }
    const IExtent<2> keep = requested & geometry_.bounds();
    if (keep.degenerate() || ViewProj::viewTypeOf(viewParams_.viewCode) == ViewProj::cubicView) {
        result = status::noConversion;
        return;
    }
    // Every channel anew at the new size, in table order, so that a main channel is made
    // before the original that shares its tiles. The editor's work bitmaps are remade.
    const std::span<const ChannelInfo> channels = ChannelTable::all();
    std::vector<TQL::Handle<TileBitmap>> made(channels.size());
    TileGeometry g;
    try {
        g = TileGeometry::compute(static_cast<std::int32_t>(keep.width()),
                                  static_cast<std::int32_t>(keep.height()));
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const ChannelInfo& c = channels[i];
            const TQL::Handle<TileBitmap> source = c.get(*this);
            if (c.work || !source) {
                continue;
            }
            made[i] = ChannelTable::make(c, this, g, source.get());
            const ChannelInfo* main = c.copyOf ? ChannelTable::find(c.copyOf) : nullptr;
            const TQL::Handle<TileBitmap> newMain =
                main ? made[ChannelTable::indexOf(*main)] : nullptr;
            if (newMain) {
                // Share the cropped main channel where the old original shared the old one.
                made[i]->copyFrom(*newMain, true);
                copyCropped(*source, *made[i], keep, channel(c.copyOf).get());
            } else {
                copyCropped(*source, *made[i], keep, nullptr);
            }
        }
    } catch (const std::bad_alloc&) {
        result = status::outOfMemory;
        return;
    }
    const ViewParams view = croppedView(viewParams_, width(), height(), keep);

    // From here on nothing fails but the work bitmaps, which are scratch.
    const TQL::Handle<UndoBuffer> undo = editor.undoBuffer;
    releaseChannels();
    geometry_ = g;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        channels[i].set(*this, made[i]);
    }
    editor.undoBuffer = undo;
    setViewParams(view);
    result = makeMissingChannels();
    for (const ChannelInfo& c : channels) {
        const TQL::Handle<TileBitmap> bitmap = c.get(*this);
        if (bitmap && c.saved) {
            bitmap->clearChanged();
        }
    }
}
