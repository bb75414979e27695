#pragma once

#include "core/Point.h"
#include "interchange/dxf/DXFStream.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

/// The groups of one entity (or table record, or object), in the order read: the first
/// is its 0 group with the entity's name.
class DXFGroup {
public:
    void clear();
    void add(const DXFItem& item);
    bool empty() const { return items_.empty(); }
    const std::vector<DXFItem>& items() const { return items_; }
    /// The groups before the extended data (which start at the first 1001 group).
    std::span<const DXFItem> ownItems() const {
        return std::span<const DXFItem>(items_).first(xdataStart_);
    }

    /// The first of the own groups with `code`, or null.
    const DXFItem* find(int code) const;
    double getDouble(int code, double fallback = 0) const;
    long getInt(int code, long fallback = 0) const;
    /// The trimmed text of the first group with `code`; empty if there is none.
    std::string_view getText(int code) const;
    /// The point whose x has group `code`, y `code + 10` and z `code + 20` (each
    /// defaults to the fallback's).
    Point<3> getPoint(int code, const Point<3>& fallback = Point<3>()) const;
    /// The extrusion direction (groups 210, 220, 230), unit length; +z when missing or
    /// zero.
    Vector<3> extrusion() const;
    /// The texts (1000 groups) of the extended data of application `app`.
    std::vector<std::string_view> xdataTexts(std::string_view app) const;

    /// The line of the first group.
    long line() const { return items_.empty() ? 0 : items_.front().line; }

protected:
    std::vector<DXFItem> items_;
    std::size_t xdataStart_ = 0; ///< the own groups are items_[0, xdataStart_)
    bool inXdata_ = false;
    /// For the small codes that geometry uses, where the first own group of each code is
    /// (its index + 1, 0 for none), so that find() does not search.
    static constexpr int indexedCodes = 128;
    std::array<std::uint16_t, indexedCodes> firstOf_{};
};

/// An entity: its name and groups. Reading stops before the next 0 group; comments
/// (999 groups) are left out.
class DXFEntity : public DXFGroup {
public:
    /// Reads the next entity: a 0 group and the groups up to the next 0 group, which is
    /// put back. Returns false at the end of the data. Throws "Bad DXF group" if the
    /// next group is not a 0 group.
    bool read(DXFStream& stream);
    /// Starts the entity with its 0 group `head` and reads the groups up to the next 0
    /// group, which is put back.
    void readRest(const DXFItem& head, DXFStream& stream);
    /// Passes over the groups up to the next 0 group, without keeping them.
    static void skipRest(DXFStream& stream);

    /// The entity's name (the text of its 0 group), trimmed.
    std::string_view name() const {
        return items_.empty() ? std::string_view() : items_.front().trimmed();
    }
    bool is(std::string_view n) const { return name() == n; }
    /// The layer (group 8); "0" when missing.
    std::string_view layer() const;
    /// Thickness (group 39).
    double thickness() const { return getDouble(39, 0); }
};

/// A VERTEX of a POLYLINE.
class DXFVertexEntity : public DXFEntity {
public:
    enum Flags : long {
        extraFromFit = 1,
        tangent = 2,
        splineVertex = 8,
        splineFrame = 16,
        polyline3D = 32,
        meshVertex = 64,
        polyfaceVertex = 128,
    };
    DXFVertexEntity() = default;
    explicit DXFVertexEntity(const DXFEntity& e) : DXFEntity(e) {}

    Point<3> location() const { return getPoint(10); }
    long flags() const { return getInt(70, 0); }
    double bulge() const { return getDouble(42, 0); }
    /// Start and end width of the segment that starts here; negative when not given.
    double startWidth() const { return getDouble(40, -1); }
    double endWidth() const { return getDouble(41, -1); }
    /// The polyface vertex number of corner k (0 to 3), from groups 71 to 74: 1-based,
    /// negative for an invisible edge, 0 for none.
    long faceIndex(int k) const { return getInt(71 + k, 0); }
    /// A polyface face record: flag 128 without 64.
    bool isFaceRecord() const {
        const long f = flags();
        return (f & polyfaceVertex) && !(f & meshVertex);
    }
};
