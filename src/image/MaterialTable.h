#pragma once

#include "core/Colour.h"
#include "image/MaterialRecord.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// A document's material table: records by id, the false-colour palette of the ids below 256,
/// and the ids the user can see. Ids run from 1; the lowest free one is taken. Names are unique
/// among live materials without regard to case. The palette always equals the records.
///
/// Every change of the table is reported through the change callback, once per operation, so
/// that its owner can tell its listeners.
class MaterialTable {
public:
    MaterialTable() = default;
    MaterialTable(const MaterialTable&) = delete;
    MaterialTable& operator=(const MaterialTable&) = delete;

    /// Called after each operation that changed the table.
    void setChangeCallback(std::function<void()> callback) { changed_ = std::move(callback); }

    const std::map<MaterialId, MaterialRecord>& records() const { return records_; }
    const std::array<ColourPOD, 256>& palette() const { return palette_; }
    /// Ids of the materials the user can see.
    const std::set<MaterialId>& used() const { return used_; }
    /// Forgets which materials the user can see; the records stay. Not reported as a change.
    void clearUsed() { used_.clear(); }

    /// The record of `id`, deleted or not; null if there is none.
    const MaterialRecord* record(MaterialId id) const;
    /// The highest id in the table, 0 if empty.
    MaterialId lastId() const;
    /// A live (not deleted) record exists.
    bool exists(MaterialId id) const;
    bool isDeleted(MaterialId id) const;
    /// False colour: from the palette below 256, else from the record; black for no such id.
    ColourPOD colour(MaterialId id) const;
    /// Empty for no such id.
    const std::wstring& name(MaterialId id) const;
    /// An empty link for no such id.
    const MatHotLink& hotLink(MaterialId id) const;
    /// The live material of that name (case-blind), other than `excludingId`; 0 if none.
    MaterialId idOf(const std::wstring& name, MaterialId excludingId = 0) const;
    /// Puts in `ids` the live materials whose names match the wild-card `pattern` ('*', '?',
    /// case-blind), other than `excludingId`. True if any.
    bool match(std::vector<MaterialId>& ids, const std::wstring& pattern,
               MaterialId excludingId = 0) const;

    /// Creates or overwrites record `id` (1 and up). An explicit record is not overwritten by
    /// an implicit one: then false. If not implicit, the id joins the used ids.
    bool set(MaterialId id, const std::wstring& name, ColourPOD colour, bool implicit,
             const std::wstring& secondName = std::wstring());
    /// Renames and recolours `id`; false if there is no such id.
    bool rename(MaterialId id, const std::wstring& name, ColourPOD colour);
    /// Adds a material at the lowest free id and returns it (0 if the table is full). An
    /// explicit material whose name is taken is numbered: "Wall" becomes "Wall 1", "Wall 2"...
    MaterialId add(const std::wstring& name, ColourPOD colour, bool implicit,
                   const std::wstring& secondName = std::wstring());
    /// Erases `id`, or, if it has users, marks it deleted and keeps the id. False if none.
    bool remove(MaterialId id);
    /// Adds `delta` to the users of `id`; a deleted record left without users is erased.
    /// False if there is no such id.
    bool changeUsers(MaterialId id, std::int32_t delta);
    bool setHotLink(MaterialId id, const MatHotLink& link);
    /// For undo: gives record `id` the name, second name, colour, hot link and implicit flag
    /// of `record`, live, creating it if need be (a record's users stay as they are); or,
    /// with a null `record`, deletes it as remove does. Keeps the palette and the used ids.
    void restore(MaterialId id, const MaterialRecord* record);
    /// Live materials of equal names (case-blind) are renamed with string 10131 ("%ls %d":
    /// the name and a number), taking the first free name. The first of a group keeps its
    /// name if it has a hot link.
    void makeNamesUnique();
    /// Empties the records, the palette and the used ids.
    void clear();

private:
    void changed() const {
        if (changed_) {
            changed_();
        }
    }
    /// Sets the palette entry of `id`, if it has one.
    void paint(MaterialId id, ColourPOD colour) {
        if (id < palette_.size()) {
            palette_[id] = colour;
        }
    }

    std::map<MaterialId, MaterialRecord> records_;
    std::array<ColourPOD, 256> palette_{};
    std::set<MaterialId> used_;
    std::function<void()> changed_;
};
