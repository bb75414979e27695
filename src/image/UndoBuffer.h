#pragma once

#include "core/Handle.h"
#include "core/Status.h"
#include "image/MaterialRecord.h"
#include "image/UndoBitmap.h"

#include <cstdint>
#include <optional>
#include <vector>

class ZmapDocument;

/// A set of floating cut-outs that an undo level records: those that were selected, or
/// those that existed. Items are held by handle, so a level keeps a deleted cut-out alive
/// for its undo, and are compared by identity. The document has no floating cut-outs yet,
/// so every set the store makes is empty until they record themselves.
class CCutoutSet : public TQL::Handlable {
public:
    using Item = TQL::Handle<TQL::Handlable>;

    const std::vector<Item>& items() const { return items_; }
    bool empty() const { return items_.empty(); }
    bool contains(const TQL::Handlable* item) const;
    /// Adds an item once; a null item is ignored.
    void insert(const Item& item);
    /// Removes an item; false if it wasn't there.
    bool erase(const TQL::Handlable* item);

private:
    std::vector<Item> items_;
};

/// One change of the material table made by an action: the record of `id` before and
/// after it, or nothing where the material did not exist (or was deleted). Undo applies
/// `before`, redo `after`. Only name, second name, colour, hot link and the implicit flag
/// count: the users of a record belong to whoever uses it.
struct MaterialChange {
    MaterialId id = 0;
    std::optional<MaterialRecord> before;
    std::optional<MaterialRecord> after;
};

/// Multi-level undo and redo of a document. A level is the document's state after an
/// action: snapshots of its colour, material, depth, overlay and wet channels that share
/// tiles with the live channels, the material changes the action made, the floating cut-out
/// sets and a description (a string id). Taking a level copies handles, not pixels: the
/// store grows only by the tiles that later actions write.
///
/// Levels are numbered from 0; the current level is the state the document is in. Level 0
/// is the state the store was made with. An action writes to the live channels (so the
/// current level still holds the image from before it: undoRgbAt and friends read it) and
/// ends with pushLevel. Undo makes the live channels share the level below's tiles, redo the
/// level above's. The store holds a memory budget, not a number of levels: after a push it
/// drops the oldest levels while it is over budget, keeping at least three.
///
/// The saved state is told by absolute level numbers (levels dropped from the bottom count
/// on), so it stays recognisable across trimming; a redo branch that held it, once dropped,
/// makes it unreachable until the next save.
///
/// Interface thread only; the drawing thread must be stopped before an undo or redo.
class UndoBuffer : public TQL::Handlable {
public:
    /// The store of `document` with the budget of the setting UndoBufferKB (KB, default
    /// 65536), read once. It has no level until the first pushLevel.
    static TQL::Handle<UndoBuffer> create(ZmapDocument& document);
    /// The same with a budget in bytes.
    static TQL::Handle<UndoBuffer> create(ZmapDocument& document, std::int64_t limitBytes);

    // Virtual operations, in slot order.

    ~UndoBuffer() override = default;

    /// Snapshots of the level below the current one (level 0 when the current one is 0);
    /// null in an empty store. The wet snapshot is null where the document had no wet layer.
    virtual TQL::Handle<UndoBitmap> previousRgb() const = 0;
    virtual TQL::Handle<UndoBitmap> previousMat() const = 0;
    virtual TQL::Handle<UndoBitmap> previousZ() const = 0;
    virtual TQL::Handle<UndoBitmap> previousWet() const = 0;
    /// Snapshots of the current level: the image before the action in progress.
    virtual TQL::Handle<UndoBitmap> currentRgb() const = 0;
    virtual TQL::Handle<UndoBitmap> currentMat() const = 0;
    virtual TQL::Handle<UndoBitmap> currentZ() const = 0;
    virtual TQL::Handle<UndoBitmap> currentWet() const = 0;

    /// Closes an action: drops the levels above the current one, appends the document's
    /// present state as the new current level with `description` (a string id, 0 for none),
    /// then trims to the budget and tells the views. -13 if the document lacks its colour,
    /// depth or material channel; -10 out of memory, and then the store keeps its levels.
    virtual void pushLevel(Status& status, std::int32_t description) = 0;
    /// Takes the document back to the level below: its channels share that level's tiles and
    /// the material changes of the current level are undone. Nothing to undo is a silent 0.
    /// -13 if the document's channels no longer fit the level (another size).
    virtual void undo(Status& status) = 0;
    /// Takes the document to the level above, in the same manner.
    virtual void redo(Status& status) = 0;
    virtual bool canUndo() const = 0;
    virtual bool canRedo() const = 0;
    /// Levels above the current one.
    virtual std::int32_t redoCount() const = 0;
    /// Bytes the store keeps: the snapshots' structures, and one full tile for every tile
    /// that a level holds and the level above it doesn't (each kept tile counts once, at the
    /// last level that holds it; the newest level's tiles are the image's).
    virtual std::int64_t memoryInUse() const = 0;
    /// True when the current level is the one last marked saved.
    virtual bool atSavedState() const = 0;
    /// Marks the current level as the saved state.
    virtual void markSaved() = 0;
    /// Removes a floating cut-out from the cut-out sets of every level.
    virtual void forgetCutout(const TQL::Handlable* item) = 0;

    // Level bookkeeping.

    /// Records the floating cut-out sets after the action in progress, which changed them:
    /// the next level pushed keeps them and is marked as changing the cut-outs.
    virtual void setCutoutState(const TQL::Handle<CCutoutSet>& selected,
                                const TQL::Handle<CCutoutSet>& existing) = 0;
    /// The cut-out sets of the current level (never null in a store with levels).
    virtual TQL::Handle<CCutoutSet> selectedCutouts() const = 0;
    virtual TQL::Handle<CCutoutSet> existingCutouts() const = 0;
    /// The material changes of the action that led to the current level.
    virtual const std::vector<MaterialChange>& materialChanges() const = 0;
    /// The description of the action undo would take back (the current level's), 0 if none.
    virtual std::int32_t undoDescription() const = 0;
    /// The description of the action redo would make again, 0 if none.
    virtual std::int32_t redoDescription() const = 0;

    /// Drops every level and pushes the document's present state as the only one, with
    /// `description`; the saved state can't be reached again until the next save. For the
    /// commands no level can undo: committing the originals, cropping. -13 and -10 as
    /// pushLevel, and then the store keeps its levels.
    virtual void restart(Status& status, std::int32_t description) = 0;

protected:
    UndoBuffer() = default;
};
