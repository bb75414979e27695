// Cropping of ZmapDocument: every channel rebuilt at the new size, and the view record's
// image window moved with the kept pixels.

#include "image/ZmapDocument.h"

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
    const std::int32_t bytes = source.bytesPerPixel();
    std::vector<std::uint8_t> empty;
    if (sameAs) {
        empty.resize(static_cast<std::size_t>(g.tileWidth) * bytes);
        for (std::size_t i = 0; i < empty.size(); i += static_cast<std::size_t>(bytes)) {
            std::copy_n(source.emptyValue(), bytes, &empty[i]);
        }
    }
    TileRowWriter writer(target);
    for (std::int32_t y = keep.lo().y; y <= keep.hi().y; ++y) {
        for (std::int32_t x = keep.lo().x; x <= keep.hi().x;) {
            const std::int32_t n = std::min((x | g.xMask) + 1, keep.hi().x + 1) - x;
            const std::int32_t tx = x - keep.lo().x;
            const std::int32_t ty = y - keep.lo().y;
            if (!sameAs || !source.sharesTile(g.tileIndex(x, y), *sameAs)) {
                TileHandle hold;
                const std::uint8_t* run = nullptr;
                if (source.runForRead(x, y, hold, &run) > 0) {
                    writer.writeRow(tx, ty, run, n);
                } else if (sameAs) {
                    writer.writeRow(tx, ty, empty.data(), n);
                }
            }
            x += n;
        }
    }
}

/// The cropped copy of a channel; null for a null channel.
template <class B, class... Extra>
TQL::Handle<B> cropped(const TQL::Handle<B>& source, const ZmapDocument* document,
                       const TileGeometry& geometry, const IExtent<2>& keep, Extra... extra) {
    if (!source) {
        return TQL::Handle<B>();
    }
    auto target = TQL::makeHandle<B>(document, geometry, extra...);
    copyCropped(*source, *target, keep, nullptr);
    return target;
}

/// The cropped copy of an original channel, sharing `main` (already cropped) wherever the
/// old original shared the old main channel.
template <class B, class... Extra>
TQL::Handle<B> croppedOriginal(const TQL::Handle<B>& source, const TileBitmap& oldMain,
                               const TQL::Handle<B>& main, const ZmapDocument* document,
                               const TileGeometry& geometry, const IExtent<2>& keep,
                               Extra... extra) {
    if (!source) {
        return TQL::Handle<B>();
    }
    auto target = TQL::makeHandle<B>(document, geometry, extra...);
    target->copyFrom(*main, true);
    copyCropped(*source, *target, keep, &oldMain);
    return target;
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
    TileGeometry g;
    TQL::Handle<RgbBitmap> newRgb, newOriginalRgb, newCutoutRgb, newWetColour;
    TQL::Handle<ZBitmap> newZ, newOriginalZ, newCutoutZ;
    TQL::Handle<MatBitmap> newMat, newOriginalMat, newCutoutMat;
    TQL::Handle<AlphaBitmap> newCutoutAlpha, newShadowAlpha;
    TQL::Handle<WetLayerBitmap> newWetLayer;
    try {
        g = TileGeometry::compute(static_cast<std::int32_t>(keep.width()),
                                  static_cast<std::int32_t>(keep.height()));
        newRgb = cropped(rgb, this, g, keep);
        newZ = cropped(z, this, g, keep, z->noDepthValue());
        newMat = cropped(mat, this, g, keep);
        newOriginalRgb = croppedOriginal(originalRgb, *rgb, newRgb, this, g, keep);
        newOriginalZ = croppedOriginal(originalZ, *z, newZ, this, g, keep,
                                       originalZ ? originalZ->noDepthValue() : 0u);
        newOriginalMat = croppedOriginal(originalMat, *mat, newMat, this, g, keep);
        newCutoutRgb = cropped(cutoutRgb, this, g, keep);
        newCutoutZ = cropped(cutoutZ, this, g, keep, cutoutZ ? cutoutZ->noDepthValue() : 0u);
        newCutoutMat = cropped(cutoutMat, this, g, keep);
        newCutoutAlpha = cropped(cutoutAlpha, this, g, keep);
        newShadowAlpha = cropped(shadowAlpha, this, g, keep);
        newWetLayer = cropped(wetLayer, this, g, keep);
        newWetColour = cropped(wetColour, this, g, keep);
    } catch (const std::bad_alloc&) {
        result = status::outOfMemory;
        return;
    }
    const ViewParams view = croppedView(viewParams_, width(), height(), keep);

    // From here on nothing fails but the work bitmaps, which are scratch.
    const TQL::Handle<UndoBuffer> undo = editor.undoBuffer;
    releaseChannels();
    geometry_ = g;
    rgb = newRgb;
    z = newZ;
    mat = newMat;
    if (newOriginalZ) {
        newOriginalZ->overlay(z);
    }
    if (newOriginalMat) {
        newOriginalMat->overlay(mat);
    }
    originalRgb = newOriginalRgb;
    originalZ = newOriginalZ;
    originalMat = newOriginalMat;
    cutoutRgb = newCutoutRgb;
    cutoutZ = newCutoutZ;
    cutoutMat = newCutoutMat;
    cutoutAlpha = newCutoutAlpha;
    shadowAlpha = newShadowAlpha;
    wetLayer = newWetLayer;
    wetColour = newWetColour;
    editor.undoBuffer = undo;
    setViewParams(view);
    result = makeMissingChannels();
    for (const std::uint32_t id : {channelRgb, channelZ, channelMat, channelOriginalRgb,
                                   channelOriginalZ, channelOriginalMat}) {
        if (const TQL::Handle<TileBitmap> main = channel(id)) {
            main->clearChanged();
        }
    }
}
