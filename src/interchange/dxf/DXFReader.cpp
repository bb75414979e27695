#include "interchange/dxf/DXFReader.h"

#include "core/FilePath.h"
#include "core/MappedFile.h"
#include "core/StringUtils.h"
#include "interchange/dxf/DXFEntity.h"
#include "interchange/dxf/DXFPolyline.h"
#include "interchange/dxf/DXFPrimitive.h"
#include "interchange/model/ExportError.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <numbers>
#include <string>
#include <unordered_map>

namespace {

/// Names of layers and blocks compare without regard to case, as the drawing format has
/// it; keys are the upper-cased raw bytes.
std::string nameKey(std::string_view raw) {
    std::string key(raw);
    for (char& c : key) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return key;
}

bool validUtf8(std::string_view s) {
    std::size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        const std::size_t n = c < 0x80         ? 1
                              : (c >> 5) == 6  ? 2
                              : (c >> 4) == 14 ? 3
                              : (c >> 3) == 30 ? 4
                                               : 0;
        if (n == 0 || i + n > s.size()) {
            return false;
        }
        for (std::size_t k = 1; k < n; ++k) {
            if ((static_cast<unsigned char>(s[i + k]) >> 6) != 2) {
                return false;
            }
        }
        i += n;
    }
    return true;
}

int hexValue(wchar_t c) {
    return c >= L'0' && c <= L'9'   ? c - L'0'
           : c >= L'A' && c <= L'F' ? c - L'A' + 10
           : c >= L'a' && c <= L'f' ? c - L'a' + 10
                                    : -1;
}

/// Replaces the drawing format's escapes "\U+XXXX" by the characters they name.
std::wstring unescapeUnicode(const std::wstring& s) {
    std::wstring out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == L'\\' && i + 6 < s.size() && (s[i + 1] == L'U' || s[i + 1] == L'u') &&
            s[i + 2] == L'+') {
            int v = 0;
            bool ok = true;
            for (int k = 0; k < 4 && ok; ++k) {
                const int h = hexValue(s[i + 3 + k]);
                ok = h >= 0;
                v = v * 16 + h;
            }
            if (ok) {
                out.push_back(static_cast<wchar_t>(v));
                i += 6;
                continue;
            }
        }
        out.push_back(s[i]);
    }
    return out;
}

/// The placement of a block's copy: its transform, the layer its entities on layer "0"
/// take, and how deep in blocks it is.
struct Placement {
    AffineTransform<3> toWorld;
    std::string_view layer; ///< empty at the top
    int depth = 0;
};

/// What an INSERT says.
struct InsertData {
    std::string key;  ///< the block's name, upper-cased
    std::string name; ///< as the insert writes it
    Point<3> at;
    Vector<3> scale{1, 1, 1};
    double rotation = 0; ///< degrees
    long columns = 1, rows = 1;
    double columnSpacing = 0, rowSpacing = 0;
    Vector<3> extrusion{0, 0, 1};
};

/// Sends faces into the clump of one layer.
class ClumpSink : public DXFFaceSink {
public:
    Clump* clump = nullptr;
    Quark matstyle;
    std::size_t faces = 0;

    void face(std::span<const Point<3>> loop, std::uint32_t smoothing) override {
        for (const Point<3>& p : loop) {
            if (!p.isFinite()) {
                return;
            }
        }
        ids_.resize(loop.size());
        clump->addPoints(loop, ids_);
        if (clump->addFace(ids_, matstyle, smoothing) != Clump::none) {
            ++faces;
        }
    }

    /// Each vertex is looked up once, not once per face that uses it.
    void mesh(std::span<const Point<3>> vertices, const DXFFaceList& list,
              std::uint32_t smoothing) override {
        finite_.clear();
        for (const Point<3>& p : vertices) {
            if (p.isFinite()) {
                finite_.push_back(p);
            }
        }
        ids_.resize(finite_.size());
        clump->addPoints(finite_, ids_);
        vertexIds_.clear();
        std::size_t next = 0;
        for (const Point<3>& p : vertices) {
            vertexIds_.push_back(p.isFinite() ? ids_[next++] : Clump::none);
        }
        for (std::size_t f = 0; f < list.size(); ++f) {
            ids_.clear();
            for (std::uint32_t v : list[f]) {
                ids_.push_back(vertexIds_[v]);
            }
            if (std::find(ids_.begin(), ids_.end(), Clump::none) == ids_.end() &&
                clump->addFace(ids_, matstyle, smoothing) != Clump::none) {
                ++faces;
            }
        }
    }

private:
    std::vector<Clump::Index> ids_;
    std::vector<Clump::Index> vertexIds_;
    std::vector<Point<3>> finite_;
};

std::vector<Point<3>> faceCorners(const DXFEntity& e);

class Reader {
public:
    Reader(DXFStream& stream, SmoothModel& model, const DXFReadOptions& options, DXFReadInfo& info)
        : s_(stream), model_(model), options_(options), info_(info) {}

    void run();

private:
    struct Layer {
        Quark name;
        Quark material; ///< from the layer's extended data; null if none
        long colour = 7;
        bool hidden = false;
    };
    struct BlockItem {
        std::unique_ptr<DXFPrimitive> primitive; ///< or, when null, an insert
        InsertData insert;
        std::string layer;
        Quark matstyle;
        long line = 0;
    };
    struct Block {
        Point<3> base;
        std::vector<BlockItem> items;
        bool expanding = false;
        int hasGeometry = -1; ///< -1 unknown, 0 no, 1 yes
    };
    struct LayerClump {
        Quark layer;
        std::string key; ///< the layer's name as written, upper-cased
        std::unique_ptr<Clump> clump;
    };
    struct MaterialObject {
        Quark name;
        std::string ownerHandle;
        std::string layer;
    };

    // Sections
    void header();
    void tables();
    void blocks();
    void entities();
    void objects();
    /// Records an AVE_MATERIAL or AVE_FINISH: its name and what it is attached to.
    void materialObject(const DXFEntity& e);
    void skipSection();
    /// Reads the next entity's 0 group into `head`; throws when the section ends early.
    void nextHead(DXFItem& head);
    /// Calls `take` with the 0 group of each entity up to the section's ENDSEC; the rest
    /// of an entity that `take` does not read (it returns false) is passed over.
    template <class Take> void eachEntity(Take take);

    /// Handles one entity of the ENTITIES section or of a block. Returns false for a
    /// kind that is passed over (its groups are then skipped).
    bool entity(const DXFItem& head, Block* block);
    std::unique_ptr<DXFPrimitive> primitiveOf(const DXFEntity& e, std::string_view name);
    InsertData insertOf(const DXFEntity& e) const;
    void viewport(const DXFEntity& e);

    void place(const DXFPrimitive& primitive, std::string_view layer, Quark matstyle,
               const Placement& where, long line);
    void insert(const InsertData& data, std::string_view layer, const Placement& where, long line);
    bool hasGeometry(Block& block);
    void spend(std::size_t work, long line);
    void progress();

    Quark decode(std::string_view raw);
    Quark entityMaterial(const DXFGroup& g);
    const Layer* layer(std::string_view raw);
    void finish();

    DXFStream& s_;
    SmoothModel& model_;
    const DXFReadOptions& options_;
    DXFReadInfo& info_;
    bool utf8_ = false;
    std::unordered_map<std::string, Quark> quarks_;
    std::unordered_map<std::string, Layer> layers_;
    std::unordered_map<std::string, std::string> layerByHandle_;
    std::unordered_map<std::string, Block> blocks_;
    std::vector<MaterialObject> materialObjects_;
    std::vector<LayerClump> clumps_;
    std::unordered_map<const void*, std::size_t> clumpOfLayer_;
    ClumpSink sink_;
    struct {
        std::string raw;
        bool valid = false;
        bool hidden = false;
        Clump* clump = nullptr;
    } lastLayer_;
    std::size_t work_ = 0;
    std::size_t sinceReport_ = 0;
    DXFEntity entity_;
};

const std::string_view aveNames[] = {"AVE_MATERIAL", "AVE_FINISH"};

bool isMaterialObject(std::string_view name) {
    return name == aveNames[0] || name == aveNames[1];
}

Quark Reader::decode(std::string_view raw) {
    auto it = quarks_.find(std::string(raw));
    if (it != quarks_.end()) {
        return it->second;
    }
    std::wstring text =
        utf8_ || validUtf8(raw) ? utf8(std::string(raw)) : fromWindows1252(raw.data(), raw.size());
    if (text.find(L"\\U+") != std::wstring::npos || text.find(L"\\u+") != std::wstring::npos) {
        text = unescapeUnicode(text);
    }
    const Quark q = Quark::create(text);
    quarks_.emplace(std::string(raw), q);
    return q;
}

/// A material named in "ACAD" extended data: the text after "AVE_MATERIAL" or
/// "AVE_FINISH".
Quark Reader::entityMaterial(const DXFGroup& g) {
    if (g.items().size() == g.ownItems().size()) {
        return Quark();
    }
    const auto texts = g.xdataTexts("ACAD");
    for (std::size_t i = 0; i + 1 < texts.size(); ++i) {
        const std::string key = nameKey(texts[i]);
        if (isMaterialObject(key) && !texts[i + 1].empty()) {
            return decode(texts[i + 1]);
        }
    }
    return Quark();
}

const Reader::Layer* Reader::layer(std::string_view raw) {
    const auto it = layers_.find(nameKey(raw));
    return it == layers_.end() ? nullptr : &it->second;
}

void Reader::progress() {
    if (options_.progress && ++sinceReport_ >= 256) {
        sinceReport_ = 0;
        const double fraction =
            s_.size() ? static_cast<double>(s_.position()) / static_cast<double>(s_.size()) : 1;
        if (options_.progress->report(1, 0, fraction)) {
            throw ExportError::abandoned();
        }
    }
}

void Reader::spend(std::size_t work, long line) {
    work_ += work;
    if (work_ > options_.maxFaces) {
        s_.fail(stringPrintf(L"The drawing makes more than %zu faces", options_.maxFaces), line);
    }
}

void Reader::nextHead(DXFItem& head) {
    do {
        if (!s_.read(head)) {
            s_.fail(L"Bad DXF group: item <ENDSEC> needed", s_.line());
        }
    } while (head.code == 999);
    if (head.code != 0) {
        s_.fail(L"Bad DXF group", head.line);
    }
}

template <class Take> void Reader::eachEntity(Take take) {
    DXFItem head;
    for (;;) {
        nextHead(head);
        if (head.is("ENDSEC")) {
            return;
        }
        if (!take(head)) {
            DXFEntity::skipRest(s_);
        }
    }
}

void Reader::run() {
    DXFItem item;
    while (s_.read(item)) {
        if (item.code == 999) {
            continue;
        }
        if (item.code != 0) {
            s_.fail(L"Bad DXF group", item.line);
        }
        if (item.is("EOF")) {
            break;
        }
        if (!item.is("SECTION")) {
            s_.fail(L"Bad DXF group", item.line);
        }
        DXFItem name;
        if (!s_.read(name) || name.code != 2) {
            s_.fail(L"Bad DXF group: item <section name> needed", item.line + 2);
        }
        const std::string_view section = name.trimmed();
        if (section == "HEADER") {
            header();
        } else if (section == "TABLES") {
            tables();
        } else if (section == "BLOCKS") {
            blocks();
        } else if (section == "ENTITIES") {
            entities();
        } else if (section == "OBJECTS") {
            objects();
        } else {
            skipSection();
        }
    }
    finish();
}

void Reader::skipSection() {
    // Sections of other kinds need not be made of entities (a thumbnail is bare groups).
    DXFItem item;
    for (;;) {
        if (!s_.readCode(item)) {
            s_.fail(L"Bad DXF group: item <ENDSEC> needed", s_.line());
        }
        if (item.code != 0) {
            s_.skipValue(item);
            continue;
        }
        s_.readValue(item);
        if (item.is("ENDSEC")) {
            return;
        }
    }
}

void Reader::header() {
    DXFItem item;
    std::string variable;
    for (;;) {
        if (!s_.read(item)) {
            s_.fail(L"Bad DXF group: item <ENDSEC> needed", s_.line());
        }
        if (item.code == 0) {
            if (!item.is("ENDSEC")) {
                s_.fail(L"Bad DXF group: item <ENDSEC> needed", item.line);
            }
            return;
        }
        if (item.code == 9) {
            variable = item.trimmed();
        } else if (variable == "$INSUNITS" && item.code == 70) {
            const long units = item.asInt();
            info_.insUnits = units >= 0 && units <= 100 ? static_cast<int>(units) : 0;
            info_.metresPerUnit = dxfUnitMetres(info_.insUnits);
        } else if (variable == "$ACADVER" && item.code == 1) {
            // From AC1021 on, texts are UTF-8; before, the drawing's code page.
            utf8_ = item.trimmed() >= std::string_view("AC1021");
        }
    }
}

void Reader::tables() {
    eachEntity([&](const DXFItem& head) {
        if (!head.is("LAYER")) {
            return false;
        }
        entity_.readRest(head, s_);
        const std::string_view raw = entity_.getText(2);
        if (raw.empty()) {
            s_.fail(L"Bad DXF group: item <layer name> needed", head.line);
        }
        Layer l;
        l.name = decode(raw);
        l.colour = entity_.getInt(62, 7);
        l.hidden = l.colour < 0 || (entity_.getInt(70, 0) & 1);
        l.material = entityMaterial(entity_);
        const std::string key = nameKey(raw);
        if (layers_.emplace(key, l).second) {
            info_.layers.push_back(l.name.value());
        }
        const std::string_view handle = entity_.getText(5);
        if (!handle.empty()) {
            layerByHandle_[nameKey(handle)] = key;
        }
        return true;
    });
}

void Reader::blocks() {
    eachEntity([&](const DXFItem& start) {
        // Entities outside a block definition belong nowhere.
        if (!start.is("BLOCK")) {
            return false;
        }
        entity_.readRest(start, s_);
        std::string_view name = entity_.getText(2);
        if (name.empty()) {
            name = entity_.getText(3);
        }
        if (name.empty()) {
            s_.fail(L"Bad DXF group: item <block name> needed", start.line);
        }
        Block block;
        block.base = entity_.getPoint(10);
        const std::string key = nameKey(name);
        DXFItem head;
        for (;;) {
            nextHead(head);
            if (head.is("ENDBLK")) {
                DXFEntity::skipRest(s_);
                break;
            }
            if (head.is("BLOCK") || head.is("ENDSEC")) {
                s_.fail(L"Bad DXF group: item <ENDBLK> needed", head.line);
            }
            if (!entity(head, &block)) {
                DXFEntity::skipRest(s_);
            }
        }
        blocks_[key] = std::move(block);
        return true;
    });
}

void Reader::entities() {
    eachEntity([&](const DXFItem& head) { return entity(head, nullptr); });
}

void Reader::objects() {
    eachEntity([&](const DXFItem& head) {
        if (!isMaterialObject(head.trimmed())) {
            return false;
        }
        entity_.readRest(head, s_);
        materialObject(entity_);
        return true;
    });
}

void Reader::materialObject(const DXFEntity& e) {
    std::string_view name = e.getText(1);
    if (name.empty()) {
        name = e.getText(2);
    }
    if (name.empty()) {
        name = e.getText(3);
    }
    if (!name.empty()) {
        materialObjects_.push_back(
            {decode(name), nameKey(e.getText(330)), std::string(e.getText(8))});
    }
}

bool Reader::entity(const DXFItem& head, Block* block) {
    progress();
    const std::string_view name = head.trimmed();
    static constexpr std::string_view known[] = {"3DFACE", "CIRCLE", "ELLIPSE",    "INSERT",
                                                 "LINE",   "3DLINE", "LWPOLYLINE", "POLYLINE",
                                                 "SOLID",  "TRACE",  "VIEWPORT"};
    bool isKnown = false;
    for (std::string_view k : known) {
        isKnown = isKnown || k == name;
    }
    if (!isKnown && !isMaterialObject(name)) {
        ++info_.skipped;
        return false;
    }
    entity_.readRest(head, s_);
    if (isMaterialObject(name)) {
        // An old drawing may keep its material records among the entities.
        materialObject(entity_);
        return true;
    }
    if (name == "VIEWPORT") {
        ++info_.entities;
        viewport(entity_);
        return true;
    }
    // Paper space (group 67 set) holds the sheet's title block and notes, not the model.
    if (entity_.getInt(67, 0) == 1) {
        ++info_.skipped;
        return true;
    }
    ++info_.entities;
    const std::string_view layerRaw = entity_.layer();
    const Quark matstyle = entityMaterial(entity_);
    if (name == "INSERT") {
        InsertData data = insertOf(entity_);
        if (block) {
            block->items.push_back(
                {nullptr, std::move(data), std::string(layerRaw), matstyle, head.line});
        } else {
            insert(data, layerRaw, Placement{}, head.line);
        }
        return true;
    }
    if (!block && name == "3DFACE") {
        // The commonest entity of large drawings, placed without keeping it.
        const DXFPolygon face(faceCorners(entity_), Vector<3>(0, 0, 1), 0, false);
        place(face, layerRaw, matstyle, Placement{}, head.line);
        return true;
    }
    // A POLYLINE's vertices are read into an entity of their own: entity_ stays the
    // POLYLINE, and its layer and material stand.
    std::unique_ptr<DXFPrimitive> primitive =
        name == "POLYLINE" ? DXFPolylineGeometry::read(entity_, s_)->primitive()
                           : primitiveOf(entity_, name);
    if (!primitive || primitive->faceCount() == 0) {
        ++info_.lines; // a curve or an outline: no area to draw
        return true;
    }
    if (block) {
        block->items.push_back(
            {std::move(primitive), {}, std::string(layerRaw), matstyle, head.line});
    } else {
        place(*primitive, layerRaw, matstyle, Placement{}, head.line);
    }
    return true;
}

std::unique_ptr<DXFPrimitive> Reader::primitiveOf(const DXFEntity& e, std::string_view name) {
    const Vector<3> extrusion = e.extrusion();
    const double thickness = e.thickness();
    if (name == "3DFACE") {
        return std::make_unique<DXFPolygon>(faceCorners(e), Vector<3>(0, 0, 1), 0, false);
    }
    if (name == "SOLID" || name == "TRACE") {
        // The corners go 1, 2, 4, 3 round the outline; a missing fourth is the third.
        const Point<3> p1 = e.getPoint(10), p2 = e.getPoint(11), p3 = e.getPoint(12);
        const Point<3> p4 = e.getPoint(13, p3);
        std::vector<Point<3>> pts = {p1, p2};
        if (!(p4 == p3)) {
            pts.push_back(p4);
        }
        pts.push_back(p3);
        // The outline lies at the elevation of the first corner.
        for (Point<3>& p : pts) {
            p[2] = p1[2];
        }
        return std::make_unique<DXFPolygon>(std::move(pts), extrusion, thickness, true);
    }
    if (name == "CIRCLE") {
        const Point<3> c = e.getPoint(10);
        const double r = e.getDouble(40, 0);
        if (!(r > 0) || !std::isfinite(r)) {
            return nullptr;
        }
        constexpr int steps = 48;
        std::vector<Point<3>> pts;
        for (int i = 0; i < steps; ++i) {
            const double a = 2 * std::numbers::pi * i / steps;
            pts.push_back({c[0] + r * std::cos(a), c[1] + r * std::sin(a), c[2]});
        }
        if (thickness == 0) {
            return nullptr; // a circle is a curve: nothing to see in depth
        }
        return std::make_unique<DXFPolygon>(std::move(pts), extrusion, thickness, true);
    }
    if (name == "LINE" || name == "3DLINE") {
        if (thickness == 0) {
            return nullptr;
        }
        std::vector<DXFLine::Vertex> path = {{e.getPoint(10)}, {e.getPoint(11)}};
        return std::make_unique<DXFLine>(std::move(path), false, extrusion, thickness, false);
    }
    if (name == "LWPOLYLINE") {
        return DXFPolyline2D::fromLightweight(e)->primitive();
    }
    // ELLIPSE: a curve without thickness; it has no area and makes no face.
    return nullptr;
}

/// The corners of a 3DFACE: three, or four when the fourth differs from the third.
std::vector<Point<3>> faceCorners(const DXFEntity& e) {
    std::vector<Point<3>> pts = {e.getPoint(10), e.getPoint(11), e.getPoint(12)};
    const Point<3> fourth = e.getPoint(13, pts[2]);
    if (!(fourth == pts[2])) {
        pts.push_back(fourth);
    }
    return pts;
}

InsertData Reader::insertOf(const DXFEntity& e) const {
    InsertData d;
    d.name = e.getText(2);
    d.key = nameKey(d.name);
    if (d.key.empty()) {
        s_.fail(L"Bad DXF group: item <block name> needed", e.line());
    }
    d.at = e.getPoint(10);
    d.scale = Vector<3>(e.getDouble(41, 1), e.getDouble(42, 1), e.getDouble(43, 1));
    d.rotation = e.getDouble(50, 0);
    d.columns = std::max(1L, e.getInt(70, 1));
    d.rows = std::max(1L, e.getInt(71, 1));
    d.columnSpacing = e.getDouble(44, 0);
    d.rowSpacing = e.getDouble(45, 0);
    d.extrusion = e.extrusion();
    return d;
}

void Reader::viewport(const DXFEntity& e) {
    DXFViewport v;
    v.centre = e.getPoint(10);
    v.width = e.getDouble(40, 0);
    v.height = e.getDouble(41, 0);
    v.viewTarget = e.getPoint(17);
    v.viewDirection = Vector<3>(e.getDouble(16, 0), e.getDouble(26, 0), e.getDouble(36, 1));
    v.lensLength = e.getDouble(42, 50);
    v.viewHeight = e.getDouble(45, 0);
    v.twist = e.getDouble(51, 0);
    info_.viewports.push_back(v);
}

void Reader::place(const DXFPrimitive& primitive, std::string_view layerRaw, Quark matstyle,
                   const Placement& where, long line) {
    // Entities of a block drawn on layer "0" take the layer of the insert.
    const std::string_view effective =
        !where.layer.empty() && (layerRaw == "0") ? where.layer : layerRaw;
    // Runs of entities on one layer are the rule: the last layer's lookup is kept.
    if (!lastLayer_.valid || effective != lastLayer_.raw) {
        const Layer* l = layer(effective);
        lastLayer_.raw.assign(effective);
        lastLayer_.hidden = l && l->hidden;
        lastLayer_.valid = true;
        if (!lastLayer_.hidden) {
            const Quark name = l ? l->name : decode(effective);
            auto [it, made] = clumpOfLayer_.try_emplace(name.identity(), clumps_.size());
            if (made) {
                clumps_.push_back(
                    {name, nameKey(effective), std::make_unique<Clump>(options_.tolerance)});
            }
            lastLayer_.clump = clumps_[it->second].clump.get();
        }
    }
    if (lastLayer_.hidden) {
        return;
    }
    spend(primitive.faceCount(), line);
    sink_.clump = lastLayer_.clump;
    sink_.matstyle = matstyle;
    primitive.emit(where.toWorld, sink_);
}

bool Reader::hasGeometry(Block& block) {
    if (block.hasGeometry < 0) {
        block.hasGeometry = 0; // also stops a block that inserts itself
        for (const BlockItem& item : block.items) {
            if (item.primitive) {
                block.hasGeometry = 1;
                break;
            }
            const auto it = blocks_.find(item.insert.key);
            if (it != blocks_.end() && hasGeometry(it->second)) {
                block.hasGeometry = 1;
                break;
            }
        }
    }
    return block.hasGeometry == 1;
}

void Reader::insert(const InsertData& d, std::string_view layerRaw, const Placement& where,
                    long line) {
    const auto it = blocks_.find(d.key);
    if (it == blocks_.end()) {
        return; // a block the drawing does not define: nothing to place
    }
    Block& block = it->second;
    if (block.expanding) {
        s_.fail(stringPrintf(L"Block <%ls> inserts itself", decode(d.name).value().c_str()), line);
    }
    if (where.depth >= options_.maxInsertDepth) {
        s_.fail(stringPrintf(L"Blocks are nested more than %d deep", options_.maxInsertDepth),
                line);
    }
    if (!hasGeometry(block)) {
        return;
    }
    const std::string_view effective =
        !where.layer.empty() && layerRaw == "0" ? where.layer : layerRaw;
    // Block coordinates go: less the base point, scaled, rotated about z, moved to the
    // array cell and the insertion point, all in the insert's object coordinates.
    const Angle rotation = Angle::degrees(d.rotation);
    const double c = rotation.cos(), s = rotation.sin();
    const Vector<3> rows[3] = {{d.scale[0] * c, d.scale[0] * s, 0},
                               {-d.scale[1] * s, d.scale[1] * c, 0},
                               {0, 0, d.scale[2]}};
    const Matrix<3> linear = Matrix<3>::rows(rows);
    const AffineTransform<3> ocs = objectToWorld(d.extrusion);
    const Vector<3> base = -Vector<3>(toVector(block.base), linear);
    block.expanding = true;
    for (long row = 0; row < d.rows; ++row) {
        for (long col = 0; col < d.columns; ++col) {
            spend(1, line);
            progress();
            const Vector<3> cell(col * d.columnSpacing * c - row * d.rowSpacing * s,
                                 col * d.columnSpacing * s + row * d.rowSpacing * c, 0);
            const AffineTransform<3> local(linear, base + cell + toVector(d.at));
            Placement inner{local.followedBy(ocs).followedBy(where.toWorld), effective,
                            where.depth + 1};
            for (const BlockItem& item : block.items) {
                if (item.primitive) {
                    place(*item.primitive, item.layer, item.matstyle, inner, item.line);
                } else {
                    insert(item.insert, item.layer, inner, item.line);
                }
            }
        }
    }
    block.expanding = false;
}

void Reader::finish() {
    // Layer materials named by material objects, attached through the layer record's
    // handle (objects section) or the object's own layer.
    std::unordered_map<std::string, Quark> attached;
    for (const MaterialObject& m : materialObjects_) {
        const auto byHandle = layerByHandle_.find(m.ownerHandle);
        const std::string key =
            byHandle != layerByHandle_.end() ? byHandle->second : nameKey(m.layer);
        if (!key.empty()) {
            attached[key] = m.name;
        }
    }
    for (LayerClump& lc : clumps_) {
        Quark material = lc.layer;
        std::wstring source = L"layer";
        long colour = 7;
        const auto l = layers_.find(lc.key);
        if (l != layers_.end()) {
            colour = l->second.colour;
            if (!l->second.material.isNull()) {
                material = l->second.material;
                source = L"extended data";
            }
        }
        if (source == L"layer") {
            const auto a = attached.find(lc.key);
            if (a != attached.end()) {
                material = a->second;
                source = L"material object";
            }
        }
        if (lc.clump->empty()) {
            continue;
        }
        info_.faces += lc.clump->faceCount();
        model_.addClump(*lc.clump, false, material, options_.smoothAngle, lc.layer);
        model_.setMaterialAttribute(material, L"colour", std::to_wstring(std::labs(colour)));
        model_.setMaterialAttribute(material, L"source", source);
        lc.clump.reset();
    }
    if (info_.metresPerUnit > 0) {
        model_.setMetresPerUnit(info_.metresPerUnit);
    }
}

} // namespace

double dxfUnitMetres(int insUnits) {
    static constexpr double metres[] = {0,
                                        0.0254,
                                        0.3048,
                                        1609.344,
                                        0.001,
                                        0.01,
                                        1,
                                        1000,
                                        2.54e-8,
                                        2.54e-5,
                                        0.9144,
                                        1e-10,
                                        1e-9,
                                        1e-6,
                                        0.1,
                                        10,
                                        100,
                                        1e9,
                                        1.495978707e11,
                                        9.4607304725808e15,
                                        3.0856775814913673e16};
    return insUnits >= 0 && insUnits < static_cast<int>(std::size(metres)) ? metres[insUnits] : 0;
}

Status readDXF(std::span<const unsigned char> data, const std::wstring& fileName,
               SmoothModel& model, std::wstring& errorText, const DXFReadOptions& options,
               DXFReadInfo* info) {
    DXFReadInfo scratch;
    DXFReadInfo& out = info ? *info : scratch;
    out = DXFReadInfo();
    errorText.clear();
    Status result = status::ok;
    try {
        const std::unique_ptr<DXFStream> stream = makeDXFStream(data, fileName);
        Reader(*stream, model, options, out).run();
    } catch (const ExportError& e) {
        errorText = e.wWhat();
        result = e.reason() == L"Operation abandoned" ? status::stopped : status::damaged;
    } catch (const std::bad_alloc&) {
        errorText = stringPrintf(L"Out of memory reading %ls", fileName.c_str());
        result = status::outOfMemory;
    } catch (const TQL::TqlError& e) {
        errorText = e.wWhat();
        result = status::damaged;
    } catch (const std::exception& e) {
        errorText =
            stringPrintf(L"%ls in %ls", utf8(std::string(e.what())).c_str(), fileName.c_str());
        result = status::damaged;
    }
    try {
        model.finish();
    } catch (const std::exception&) {
        result = result == status::ok ? status::outOfMemory : result;
    }
    return result;
}

Status readDXF(const std::wstring& path, SmoothModel& model, std::wstring& errorText,
               const DXFReadOptions& options, DXFReadInfo* info) {
    TQL::MappedFile file;
    const Status opened = file.open(path);
    if (opened != status::ok) {
        errorText = stringPrintf(L"%ls in %ls", statusText(opened).c_str(), path.c_str());
        return opened;
    }
    std::wstring name;
    getDirectory(path, name);
    return readDXF(std::span<const unsigned char>(file.data(), file.size()), name, model, errorText,
                   options, info);
}
