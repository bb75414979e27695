#include "image/UndoBuffer.h"

#include "core/Settings.h"
#include "image/ChannelTable.h"
#include "image/DocumentViews.h"
#include "image/ZmapDocument.h"

#include <algorithm>
#include <map>
#include <new>

bool CCutoutSet::contains(const TQL::Handlable* item) const {
    return std::any_of(items_.begin(), items_.end(),
                       [item](const Item& i) { return i.get() == item; });
}

void CCutoutSet::insert(const Item& item) {
    if (item && !contains(item.get())) {
        items_.push_back(item);
    }
}

bool CCutoutSet::erase(const TQL::Handlable* item) {
    const auto it = std::find_if(items_.begin(), items_.end(),
                                 [item](const Item& i) { return i.get() == item; });
    if (it == items_.end()) {
        return false;
    }
    items_.erase(it);
    return true;
}

namespace {

/// The channels a level keeps (colour, depth, material and the wet layer), in the order
/// of the level's array.
const std::vector<const ChannelInfo*>& undoneChannels() {
    static const std::vector<const ChannelInfo*> channels = [] {
        std::vector<const ChannelInfo*> out;
        for (const ChannelInfo& c : ChannelTable::all()) {
            if (c.undone) {
                out.push_back(&c);
            }
        }
        return out;
    }();
    return channels;
}

/// The slot of the level's array that keeps channel `id`, or, for id 0, the channel of
/// that kind.
std::size_t slotOf(std::uint32_t id, BitmapKind kind = BitmapKind::rgb) {
    const std::vector<const ChannelInfo*>& channels = undoneChannels();
    for (std::size_t slot = 0; slot < channels.size(); ++slot) {
        if (id ? channels[slot]->id == id : channels[slot]->kind == kind) {
            return slot;
        }
    }
    return channels.size();
}

const std::size_t slotRgb = slotOf(channelRgb);
const std::size_t slotMat = slotOf(channelMat);
const std::size_t slotZ = slotOf(channelZ);
const std::size_t slotWet = slotOf(0, BitmapKind::wetLayer);

using MaterialTable = std::map<MaterialId, MaterialRecord>;

/// The live records of the document, as undo sees them.
MaterialTable liveMaterials(const ZmapDocument& document) {
    MaterialTable table;
    for (const auto& [id, record] : document.materials()) {
        if (!record.deleted) {
            table.emplace(id, record);
        }
    }
    return table;
}

/// Equal in what undo restores.
bool sameForUndo(const MaterialRecord& a, const MaterialRecord& b) {
    return a.name == b.name && a.secondName == b.secondName && a.colour == b.colour &&
           a.hotLink == b.hotLink && a.implicit == b.implicit;
}

/// The changes that lead from table `from` to table `to`, by increasing id.
std::vector<MaterialChange> materialDifferences(const MaterialTable& from,
                                                const MaterialTable& to) {
    std::vector<MaterialChange> changes;
    auto a = from.begin();
    auto b = to.begin();
    while (a != from.end() || b != to.end()) {
        if (b == to.end() || (a != from.end() && a->first < b->first)) {
            changes.push_back({a->first, a->second, std::nullopt});
            ++a;
        } else if (a == from.end() || b->first < a->first) {
            changes.push_back({b->first, std::nullopt, b->second});
            ++b;
        } else {
            if (!sameForUndo(a->second, b->second)) {
                changes.push_back({a->first, a->second, b->second});
            }
            ++a;
            ++b;
        }
    }
    return changes;
}

struct Level {
    /// Snapshots in the order of undoneChannels(); null where the channel was missing.
    std::vector<TQL::Handle<UndoBitmap>> bitmaps =
        std::vector<TQL::Handle<UndoBitmap>>(undoneChannels().size());
    TQL::Handle<CCutoutSet> selectedCutouts;
    TQL::Handle<CCutoutSet> existingCutouts;
    bool cutoutsChanged = false;
    std::vector<MaterialChange> materialChanges;
    std::int32_t description = 0;
    /// The snapshots' structures.
    std::int64_t structureBytes = 0;
    /// The tiles this level keeps beyond the level above it; 0 for the top level.
    std::int64_t keptBytes = 0;
};

class UndoBufferImp : public UndoBuffer {
public:
    UndoBufferImp(ZmapDocument& document, std::int64_t limitBytes)
        : document_(document), limit_(std::max<std::int64_t>(limitBytes, 0)) {}

    TQL::Handle<UndoBitmap> previousRgb() const override { return previous(slotRgb); }
    TQL::Handle<UndoBitmap> previousMat() const override { return previous(slotMat); }
    TQL::Handle<UndoBitmap> previousZ() const override { return previous(slotZ); }
    TQL::Handle<UndoBitmap> previousWet() const override { return previous(slotWet); }
    TQL::Handle<UndoBitmap> currentRgb() const override { return current(slotRgb); }
    TQL::Handle<UndoBitmap> currentMat() const override { return current(slotMat); }
    TQL::Handle<UndoBitmap> currentZ() const override { return current(slotZ); }
    TQL::Handle<UndoBitmap> currentWet() const override { return current(slotWet); }

    void pushLevel(Status& status, std::int32_t description) override;
    void undo(Status& status) override { step(status, -1); }
    void redo(Status& status) override { step(status, +1); }
    bool canUndo() const override { return current_ > 0; }
    bool canRedo() const override { return current_ + 1 < levelCount(); }
    std::int32_t redoCount() const override { return levelCount() - 1 - current_; }
    std::int64_t memoryInUse() const override { return total_; }
    bool atSavedState() const override { return savedMark_ == discarded_ + current_; }
    void markSaved() override { savedMark_ = discarded_ + current_; }
    void forgetCutout(const TQL::Handlable* item) override;

    void setCutoutState(const TQL::Handle<CCutoutSet>& selected,
                        const TQL::Handle<CCutoutSet>& existing) override {
        pendingSelected_ = selected;
        pendingExisting_ = existing;
        pendingCutouts_ = true;
    }
    TQL::Handle<CCutoutSet> selectedCutouts() const override {
        return levels_.empty() ? TQL::Handle<CCutoutSet>() : currentLevel().selectedCutouts;
    }
    TQL::Handle<CCutoutSet> existingCutouts() const override {
        return levels_.empty() ? TQL::Handle<CCutoutSet>() : currentLevel().existingCutouts;
    }
    const std::vector<MaterialChange>& materialChanges() const override {
        static const std::vector<MaterialChange> none;
        return levels_.empty() ? none : currentLevel().materialChanges;
    }
    std::int32_t undoDescription() const override {
        return canUndo() ? currentLevel().description : 0;
    }
    std::int32_t redoDescription() const override {
        return canRedo() ? levels_[static_cast<std::size_t>(current_ + 1)].description : 0;
    }

    void restart(Status& status, std::int32_t description) override;

private:
    std::int32_t levelCount() const { return static_cast<std::int32_t>(levels_.size()); }
    const Level& currentLevel() const { return levels_[static_cast<std::size_t>(current_)]; }
    TQL::Handle<UndoBitmap> current(std::size_t slot) const {
        return levels_.empty() ? TQL::Handle<UndoBitmap>() : currentLevel().bitmaps[slot];
    }
    TQL::Handle<UndoBitmap> previous(std::size_t slot) const {
        return levels_.empty()
                   ? TQL::Handle<UndoBitmap>()
                   : levels_[static_cast<std::size_t>(std::max(current_ - 1, 0))].bitmaps[slot];
    }

    /// A level of the document's present state; -13 without the main channels. Throws
    /// std::bad_alloc.
    Status makeLevel(Level& level, std::int32_t description);
    /// Sets the kept bytes of level i from the level above it.
    void account(std::size_t i);
    /// Drops the level at the bottom.
    void dropBottom();
    /// Drops the levels above the current one.
    void dropRedoLevels();
    /// Undo (direction -1) or redo (+1).
    void step(Status& status, std::int32_t direction);
    void notifyUndoState() const;
    /// The recorded cut-out sets went into a level.
    void forgetPendingCutouts() {
        pendingSelected_.reset();
        pendingExisting_.reset();
        pendingCutouts_ = false;
    }

    ZmapDocument& document_;
    std::vector<Level> levels_;
    std::int32_t current_ = -1;
    std::int64_t total_ = 0;
    std::int64_t limit_;
    /// Levels dropped from the bottom: level i is number discarded_ + i of the document.
    std::int32_t discarded_ = 0;
    /// The number of the saved level; -1 when no level holds the saved state any more.
    std::int32_t savedMark_ = 0;
    /// The material table as the current level has it.
    MaterialTable materials_;
    /// Cut-out sets recorded for the next level.
    TQL::Handle<CCutoutSet> pendingSelected_;
    TQL::Handle<CCutoutSet> pendingExisting_;
    bool pendingCutouts_ = false;
};

Status UndoBufferImp::makeLevel(Level& level, std::int32_t description) {
    if (!document_.rgb || !document_.z || !document_.mat) {
        return status::noImage;
    }
    for (std::size_t slot = 0; slot < level.bitmaps.size(); ++slot) {
        if (const TQL::Handle<TileBitmap> live = undoneChannels()[slot]->get(document_)) {
            level.bitmaps[slot] = TQL::makeHandle<UndoBitmap>(live);
            level.structureBytes += level.bitmaps[slot]->memoryUsed();
        }
    }
    if (pendingCutouts_) {
        level.selectedCutouts = pendingSelected_;
        level.existingCutouts = pendingExisting_;
        level.cutoutsChanged = true;
    }
    if (!level.selectedCutouts) {
        level.selectedCutouts = TQL::makeHandle<CCutoutSet>();
    }
    if (!level.existingCutouts) {
        level.existingCutouts = TQL::makeHandle<CCutoutSet>();
    }
    level.description = description;
    return status::ok;
}

void UndoBufferImp::account(std::size_t i) {
    Level& level = levels_[i];
    total_ -= level.keptBytes;
    level.keptBytes = 0;
    const Level* next = i + 1 < levels_.size() ? &levels_[i + 1] : nullptr;
    if (!next) {
        return;
    }
    for (std::size_t slot = 0; slot < level.bitmaps.size(); ++slot) {
        if (level.bitmaps[slot]) {
            level.keptBytes += level.bitmaps[slot]->deltaBytes(next->bitmaps[slot].get());
        }
    }
    total_ += level.keptBytes;
}

void UndoBufferImp::dropBottom() {
    total_ -= levels_.front().structureBytes + levels_.front().keptBytes;
    levels_.erase(levels_.begin());
    --current_;
    ++discarded_;
}

void UndoBufferImp::dropRedoLevels() {
    if (!canRedo()) {
        return;
    }
    // The saved state was one of the dropped levels: no state can equal it any more.
    if (discarded_ + current_ < savedMark_) {
        savedMark_ = -1;
    }
    while (canRedo()) {
        total_ -= levels_.back().structureBytes + levels_.back().keptBytes;
        levels_.pop_back();
    }
    account(static_cast<std::size_t>(current_));
}

void UndoBufferImp::pushLevel(Status& status, std::int32_t description) {
    try {
        // Everything that can fail comes before the store changes.
        Level level;
        if ((status = makeLevel(level, description)) != status::ok) {
            return;
        }
        MaterialTable live = liveMaterials(document_);
        if (!levels_.empty()) {
            level.materialChanges = materialDifferences(materials_, live);
        }
        levels_.reserve(levels_.size() + 1);

        dropRedoLevels();
        materials_.swap(live);
        levels_.push_back(std::move(level));
        current_ = levelCount() - 1;
        total_ += levels_.back().structureBytes;
        if (current_ > 0) {
            account(static_cast<std::size_t>(current_ - 1));
        }
        forgetPendingCutouts();
    } catch (const std::bad_alloc&) {
        status = status::outOfMemory;
        return;
    }
    // Over budget: drop the oldest levels until the total is at most 0.8 of the budget,
    // keeping at least three levels.
    if (total_ > limit_) {
        const double floor = 0.8 * static_cast<double>(limit_);
        while (levelCount() > 3 && current_ >= 1 && static_cast<double>(total_) > floor) {
            dropBottom();
        }
    }
    status = status::ok;
    notifyUndoState();
}

void UndoBufferImp::restart(Status& status, std::int32_t description) {
    try {
        Level level;
        if ((status = makeLevel(level, description)) != status::ok) {
            return;
        }
        MaterialTable live = liveMaterials(document_);
        discarded_ += levelCount();
        levels_.clear();
        levels_.push_back(std::move(level));
        current_ = 0;
        total_ = levels_.back().structureBytes;
        materials_.swap(live);
        forgetPendingCutouts();
    } catch (const std::bad_alloc&) {
        status = status::outOfMemory;
        return;
    }
    status = status::ok;
    notifyUndoState();
}

void UndoBufferImp::step(Status& status, std::int32_t direction) {
    status = status::ok;
    if (direction < 0 ? !canUndo() : !canRedo()) {
        return;
    }
    const Level& target = levels_[static_cast<std::size_t>(current_ + direction)];
    const TileGeometry& geometry = document_.geometry();
    for (const auto& snapshot : target.bitmaps) {
        if (snapshot && !(snapshot->geometry() == geometry)) {
            status = status::noImage;
            return;
        }
    }
    if (!document_.rgb || !document_.z || !document_.mat) {
        status = status::noImage;
        return;
    }
    // The area that changes: the tiles in which the live channels and the level differ.
    IExtent<2> changed;
    std::vector<std::int32_t> tiles;
    try {
        for (std::size_t slot = 0; slot < target.bitmaps.size(); ++slot) {
            const ChannelInfo& channel = *undoneChannels()[slot];
            const TQL::Handle<TileBitmap> live = channel.get(document_);
            const TQL::Handle<UndoBitmap>& snapshot = target.bitmaps[slot];
            if (live && snapshot) {
                tiles.clear();
                live->tiles().differences(snapshot->tiles(), tiles);
                for (const std::int32_t index : tiles) {
                    changed |= geometry.tileExtent(index);
                }
                live->copyFrom(*snapshot, true);
            } else if (snapshot) {
                // A channel made on demand (the wet layer) comes back...
                const TQL::Handle<TileBitmap> made =
                    ChannelTable::make(channel, &document_, geometry, snapshot.get());
                made->copyFrom(*snapshot, true);
                channel.set(document_, made);
                changed = geometry.bounds();
            } else if (live && !channel.always) {
                // ...or goes where the level had none.
                channel.set(document_, nullptr);
                changed = geometry.bounds();
            }
        }
        // The material changes of the action undone, backwards, or of the action redone.
        const std::vector<MaterialChange>& changes =
            direction < 0 ? currentLevel().materialChanges : target.materialChanges;
        if (direction < 0) {
            for (auto it = changes.rbegin(); it != changes.rend(); ++it) {
                document_.restoreMaterial(it->id, it->before ? &*it->before : nullptr);
            }
        } else {
            for (const MaterialChange& change : changes) {
                document_.restoreMaterial(change.id, change.after ? &*change.after : nullptr);
            }
        }
        materials_ = liveMaterials(document_);
    } catch (const std::bad_alloc&) {
        status = status::outOfMemory;
        return;
    }
    current_ += direction;
    if (DocumentViews* views = document_.views()) {
        // A step that changed no tile may still change the display (material colours).
        views->invalidate(changed);
        views->undoStateChanged();
    }
}

void UndoBufferImp::forgetCutout(const TQL::Handlable* item) {
    for (Level& level : levels_) {
        for (CCutoutSet* set : {level.selectedCutouts.get(), level.existingCutouts.get()}) {
            if (set) {
                set->erase(item);
            }
        }
    }
    for (CCutoutSet* set : {pendingSelected_.get(), pendingExisting_.get()}) {
        if (set) {
            set->erase(item);
        }
    }
}

void UndoBufferImp::notifyUndoState() const {
    if (DocumentViews* views = document_.views()) {
        views->undoStateChanged();
    }
}

/// The budget of the setting, read once for the process.
std::int64_t settingLimit() {
    static const std::int64_t limit = [] {
        IntSetting kilobytes(L"UndoBufferKB", 65536);
        return std::int64_t(kilobytes.value()) * 1024;
    }();
    return limit;
}

} // namespace

TQL::Handle<UndoBuffer> UndoBuffer::create(ZmapDocument& document) {
    return create(document, settingLimit());
}

TQL::Handle<UndoBuffer> UndoBuffer::create(ZmapDocument& document, std::int64_t limitBytes) {
    return TQL::makeHandle<UndoBufferImp>(document, limitBytes);
}
