#include "image/ZmapDocument.h"

#include "core/StringUtils.h"
#include "image/ChannelTable.h"
#include "image/DrawTarget.h"
#include "image/TileRowWriter.h"

#include <algorithm>
#include <cassert>
#include <new>
#include <stdexcept>

namespace {

std::atomic<std::int32_t> documentsMade{0};

/// Bytes of a bitmap: its structure and its tiles, leaving out tiles shared with `main`.
std::int64_t bitmapBytes(const TileBitmap* bitmap, const TileBitmap* main) {
    if (!bitmap) {
        return 0;
    }
    return bitmap->memoryUsed() + bitmap->tiles().tileBytes(main ? &main->tiles() : nullptr);
}

/// Pixel (x, y) of one snapshot of the undo store's current level; zero without a store.
template <class T>
T levelValue(const TQL::Handle<UndoBuffer>& undo,
             TQL::Handle<UndoBitmap> (UndoBuffer::*snapshot)() const, std::int32_t x,
             std::int32_t y) {
    const TQL::Handle<UndoBitmap> level = undo ? ((*undo).*snapshot)() : nullptr;
    return level ? level->valueAt<T>(x, y) : T{};
}

} // namespace

ZmapDocument::ZmapDocument() : editor(this), serial_(++documentsMade) {
    materials_.setChangeCallback([this] { materialsChanged(); });
}

ZmapDocument::~ZmapDocument() = default;

Status ZmapDocument::setSize(std::int32_t width, std::int32_t height) {
    TileGeometry geometry;
    try {
        geometry = TileGeometry::compute(width, height);
    } catch (const std::length_error&) {
        return status::outOfMemory;
    }
    if (!(geometry == geometry_)) {
        releaseChannels();
        geometry_ = geometry;
        updateViewProj(); // the conversion depends on the image size
    }
    return status::ok;
}

void ZmapDocument::releaseChannels() {
    for (const ChannelInfo& c : ChannelTable::all()) {
        c.set(*this, nullptr);
    }
    editor.appliedExtents.clear();
    editor.undoBuffer.reset();
}

Status ZmapDocument::allocateChannels() {
    const Status made = makeMissingChannels();
    if (made != status::ok) {
        return made;
    }
    materials_.clearUsed();
    TQL::Handle<UndoBuffer> undo;
    try {
        undo = UndoBuffer::create(*this);
    } catch (const std::bad_alloc&) {
        return status::outOfMemory;
    }
    Status result = status::ok;
    undo->pushLevel(result, 0);
    if (result == status::ok) {
        editor.undoBuffer = undo;
    }
    return result;
}

Status ZmapDocument::makeMissingChannels() {
    if (!rgb) {
        return status::noImage;
    }
    assert(rgb->geometry() == geometry_ && "the colour channel must have the document's size");
    if (!(rgb->geometry() == geometry_)) {
        return status::noImage;
    }
    try {
        for (const ChannelInfo& c : ChannelTable::all()) {
            if (!c.always || c.get(*this)) {
                continue;
            }
            const TQL::Handle<TileBitmap> made = ChannelTable::make(c, this, geometry_);
            if (c.copyOf) {
                // A new original starts as the image: a shared copy of the main channel.
                made->copyFrom(*channel(c.copyOf), false);
            }
            c.set(*this, made);
        }
        // Original depth and material read their main channel where a file left a tile out.
        originalZ->overlay(z);
        originalMat->overlay(mat);
    } catch (const std::bad_alloc&) {
        return status::outOfMemory;
    }
    return status::ok;
}

void ZmapDocument::commitOriginals() {
    for (const ChannelInfo& c : ChannelTable::all()) {
        const TQL::Handle<TileBitmap> original = c.saved && c.copyOf ? c.get(*this) : nullptr;
        const TQL::Handle<TileBitmap> main = original ? channel(c.copyOf) : nullptr;
        if (main) {
            original->copyFrom(*main, true);
        }
    }
    if (editor.undoBuffer) {
        // A failed restart keeps the levels: they still describe the channels.
        Status ignored = status::ok;
        editor.undoBuffer->restart(ignored, 0);
    }
}

TQL::Handle<TileBitmap> ZmapDocument::channel(std::uint32_t id) const {
    // The thumbnail is no document channel; the floating cut-outs have none yet.
    const ChannelInfo* c = ChannelTable::find(id);
    return c ? c->get(*this) : TQL::Handle<TileBitmap>();
}

std::int64_t ZmapDocument::channelBytes(const ChannelInfo& c) const {
    const TQL::Handle<TileBitmap> bitmap = c.get(*this);
    const TQL::Handle<TileBitmap> main = c.copyOf ? channel(c.copyOf) : nullptr;
    return bitmapBytes(bitmap.get(), main.get());
}

std::int64_t ZmapDocument::channelMemory(std::int32_t kind) const {
    if (kind == memoryUndoRgb) {
        // The whole undo store is reported under the undo colour.
        return editor.undoBuffer ? editor.undoBuffer->memoryInUse() : 0;
    }
    for (const ChannelInfo& c : ChannelTable::all()) {
        if (c.memoryKind == kind) {
            return channelBytes(c);
        }
    }
    return 0;
}

std::int64_t ZmapDocument::memoryUsed() const {
    std::int64_t bytes = channelMemory(memoryUndoRgb);
    for (const ChannelInfo& c : ChannelTable::all()) {
        bytes += channelBytes(c);
    }
    return bytes;
}

void ZmapDocument::draw(Status& result, DrawTarget& target, std::uint32_t id,
                        const IExtent<2>& extent, const IExtent<2>& clip,
                        const std::atomic<bool>* abort) const {
    const TQL::Handle<TileBitmap> bitmap = channel(id);
    if (!bitmap) {
        result = status::noImage;
        return;
    }
    const bool composite = id == channelRgb || id == channelZ || id == channelMat;
    result = bitmap->drawArea(target, extent, clip, abort, composite);
}

ColourPOD ZmapDocument::undoRgbAt(std::int32_t x, std::int32_t y) const {
    return levelValue<ColourPOD>(editor.undoBuffer, &UndoBuffer::currentRgb, x, y);
}

std::uint32_t ZmapDocument::undoZAt(std::int32_t x, std::int32_t y) const {
    return levelValue<std::uint32_t>(editor.undoBuffer, &UndoBuffer::currentZ, x, y);
}

MaterialId ZmapDocument::undoMatAt(std::int32_t x, std::int32_t y) const {
    return levelValue<MaterialId>(editor.undoBuffer, &UndoBuffer::currentMat, x, y);
}

void ZmapDocument::pasteCentred(Status& result, const RgbImage& image) {
    if (!rgb) {
        result = status::noImage;
        return;
    }
    // Centre by halving the difference; a larger image is clipped on all sides.
    const auto left = static_cast<std::int32_t>((std::int64_t(width()) - image.width) / 2);
    const auto top = static_cast<std::int32_t>((std::int64_t(height()) - image.height) / 2);
    try {
        TileRowWriter writer(*rgb);
        for (std::int32_t row = 0; row < image.height; ++row) {
            const std::int64_t y = std::int64_t(top) + row;
            if (y < 0) {
                continue;
            }
            if (y >= height()) {
                break;
            }
            writer.writeRow(left, static_cast<std::int32_t>(y), image.pixels + row * image.stride,
                            image.width);
        }
    } catch (const std::bad_alloc&) {
        result = status::outOfMemory;
        return;
    }
    result = status::ok;
}

bool ZmapDocument::stitchFaces() {
    const std::int32_t n = height();
    if (ViewProj::viewTypeOf(viewParams_.viewCode) != ViewProj::cubicView ||
        std::int64_t{width()} != 6 * std::int64_t{n} || n < 2) {
        return false;
    }
    for (const ChannelInfo& c : ChannelTable::all()) {
        const TQL::Handle<TileBitmap> bitmap = c.get(*this);
        if (bitmap && !c.work) {
            bitmap->stitchFaces(n);
        }
    }
    return true;
}

void ZmapDocument::clearDocument() {
    releaseChannels();
    pathName.clear();
    readOnly = 0;
    fromFile = 0;
    description.clear();
    artist.clear();
    copyright.clear();
    software.clear();
    hostComputer.clear();
    dateTime.clear();
    cutoutBlock.clear();
    cutoutBlockItems = 0;
    editor.setChangedSinceOpen(false);
    viewProj_.reset();
    materials_.clear();
}

// The material table.

void ZmapDocument::materialsChanged() {
    if (materialListener_) {
        materialListener_->materialsChanged(*this);
    }
}
