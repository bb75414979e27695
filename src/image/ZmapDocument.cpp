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

const std::wstring& noName() {
    static const std::wstring empty;
    return empty;
}

const MatHotLink& noHotLink() {
    static const MatHotLink empty;
    return empty;
}

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

/// The format of string 10131 must take a text and then a number, and nothing else.
bool isNameNumberFormat(const std::wstring& format) {
    const auto text = format.find(L"%ls");
    const auto number = format.find(L"%d");
    if (text == std::wstring::npos || number == std::wstring::npos || number < text) {
        return false;
    }
    std::size_t conversions = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == L'%') {
            if (i + 1 < format.size() && format[i + 1] == L'%') {
                ++i;
            } else {
                ++conversions;
            }
        }
    }
    return conversions == 2;
}

} // namespace

ZmapDocument::ZmapDocument() : editor(this), serial_(++documentsMade) {}

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
    usedMaterials_.clear();
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
    usedMaterials_.clear();
    materials_.clear();
    palette_.fill(ColourPOD{});
    viewProj_.reset();
    materialsChanged();
}

// The material table.

void ZmapDocument::materialsChanged() {
    if (materialListener_) {
        materialListener_->materialsChanged(*this);
    }
}

const MaterialRecord* ZmapDocument::material(MaterialId id) const {
    const auto it = materials_.find(id);
    return it == materials_.end() ? nullptr : &it->second;
}

MaterialId ZmapDocument::lastMaterialId() const {
    return materials_.empty() ? 0 : materials_.rbegin()->first;
}

bool ZmapDocument::materialExists(MaterialId id) const {
    const MaterialRecord* record = material(id);
    return record && !record->deleted;
}

bool ZmapDocument::materialDeleted(MaterialId id) const {
    const MaterialRecord* record = material(id);
    return record && record->deleted;
}

ColourPOD ZmapDocument::materialColour(MaterialId id) const {
    if (id < palette_.size()) {
        return palette_[id];
    }
    const MaterialRecord* record = material(id);
    return record ? record->colour : ColourPOD{};
}

const std::wstring& ZmapDocument::materialName(MaterialId id) const {
    const MaterialRecord* record = material(id);
    return record ? record->name : noName();
}

const MatHotLink& ZmapDocument::materialHotLink(MaterialId id) const {
    const MaterialRecord* record = material(id);
    return record ? record->hotLink : noHotLink();
}

MaterialId ZmapDocument::materialIdOf(const std::wstring& name, MaterialId excludingId) const {
    for (const auto& [id, record] : materials_) {
        if (id != excludingId && !record.deleted && compareCaseBlind(record.name, name) == 0) {
            return id;
        }
    }
    return 0;
}

bool ZmapDocument::matchMaterials(std::vector<MaterialId>& ids, const std::wstring& pattern,
                                  MaterialId excludingId) const {
    ids.clear();
    const std::wstring lowered = lowercase(pattern);
    for (const auto& [id, record] : materials_) {
        if (id != excludingId && !record.deleted && cmpwild(lowercase(record.name), lowered)) {
            ids.push_back(id);
        }
    }
    return !ids.empty();
}

bool ZmapDocument::setMaterial(MaterialId id, const std::wstring& name, ColourPOD colour,
                               bool implicit, const std::wstring& secondName) {
    if (id == 0) {
        return false;
    }
    const MaterialRecord* existing = material(id);
    if (existing && !existing->deleted && !existing->implicit && implicit) {
        return false;
    }
    MaterialRecord& record = materials_[id];
    record.name = name;
    record.secondName = secondName;
    record.colour = colour;
    record.implicit = implicit ? 1 : 0;
    record.deleted = 0;
    if (!implicit) {
        usedMaterials_.insert(id);
    }
    if (id < palette_.size()) {
        palette_[id] = colour;
    }
    materialsChanged();
    return true;
}

bool ZmapDocument::renameMaterial(MaterialId id, const std::wstring& name, ColourPOD colour) {
    const auto it = materials_.find(id);
    if (it == materials_.end()) {
        return false;
    }
    it->second.name = name;
    it->second.colour = colour;
    if (id < palette_.size()) {
        palette_[id] = colour;
    }
    materialsChanged();
    return true;
}

MaterialId ZmapDocument::addMaterial(const std::wstring& name, ColourPOD colour, bool implicit,
                                     const std::wstring& secondName) {
    // The lowest id that no record, live or deleted, holds.
    std::uint32_t id = 1;
    for (const auto& entry : materials_) {
        if (entry.first != id) {
            break;
        }
        ++id;
    }
    if (id > 0xFFFF) {
        return 0;
    }
    std::wstring unique = name;
    if (!implicit) {
        for (int n = 1; materialIdOf(unique) != 0; ++n) {
            unique = name + stringPrintf(L" %d", n);
        }
    }
    setMaterial(static_cast<MaterialId>(id), unique, colour, implicit, secondName);
    return static_cast<MaterialId>(id);
}

bool ZmapDocument::deleteMaterial(MaterialId id) {
    const auto it = materials_.find(id);
    if (it == materials_.end()) {
        return false;
    }
    if (it->second.users > 0) {
        it->second.deleted = 1;
    } else {
        materials_.erase(it);
        if (id < palette_.size()) {
            palette_[id] = ColourPOD{};
        }
    }
    usedMaterials_.erase(id);
    materialsChanged();
    return true;
}

bool ZmapDocument::changeMaterialUsers(MaterialId id, std::int32_t delta) {
    const auto it = materials_.find(id);
    if (it == materials_.end()) {
        return false;
    }
    it->second.users = std::max(0, it->second.users + delta);
    if (it->second.deleted && it->second.users == 0) {
        materials_.erase(it);
        if (id < palette_.size()) {
            palette_[id] = ColourPOD{};
        }
        materialsChanged();
    }
    return true;
}

void ZmapDocument::restoreMaterial(MaterialId id, const MaterialRecord* record) {
    if (!record) {
        deleteMaterial(id);
        return;
    }
    if (id == 0) {
        return;
    }
    MaterialRecord& entry = materials_[id];
    entry.name = record->name;
    entry.secondName = record->secondName;
    entry.hotLink = record->hotLink;
    entry.colour = record->colour;
    entry.implicit = record->implicit;
    entry.deleted = 0;
    if (entry.implicit) {
        usedMaterials_.erase(id);
    } else {
        usedMaterials_.insert(id);
    }
    if (id < palette_.size()) {
        palette_[id] = record->colour;
    }
    materialsChanged();
}

bool ZmapDocument::setHotLink(MaterialId id, const MatHotLink& link) {
    const auto it = materials_.find(id);
    if (it == materials_.end()) {
        return false;
    }
    it->second.hotLink = link;
    materialsChanged();
    return true;
}

void ZmapDocument::makeMaterialNamesUnique() {
    std::wstring format = TQL::loadString(10131);
    if (!isNameNumberFormat(format)) {
        format = L"%ls %d";
    }
    // Groups of live materials by name without case, each in order of id.
    std::map<std::wstring, std::vector<MaterialId>> groups;
    for (const auto& [id, record] : materials_) {
        if (!record.deleted) {
            groups[lowercase(record.name)].push_back(id);
        }
    }
    bool renamed = false;
    for (const auto& [key, ids] : groups) {
        if (ids.size() < 2) {
            continue;
        }
        for (std::size_t i = 0; i < ids.size(); ++i) {
            MaterialRecord& record = materials_[ids[i]];
            if (i == 0 && !record.hotLink.empty()) {
                continue;
            }
            const std::wstring base = record.name;
            std::wstring candidate;
            for (int n = 1;; ++n) {
                candidate = stringPrintf(format.c_str(), base.c_str(), n);
                if (materialIdOf(candidate) == 0) {
                    break;
                }
            }
            record.name = candidate;
            renamed = true;
        }
    }
    if (renamed) {
        materialsChanged();
    }
}
