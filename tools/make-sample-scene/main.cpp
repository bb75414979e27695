// make-sample-scene: writes the sample drawing data/samples/house.dxf, a small house in
// metres: floor slab, walls with a door and windows, a gable roof, a terrace with a
// railing and planters, and furniture placed from blocks. It uses 3DFACEs, polyface and
// polygon meshes, thick and wide polylines, circles with thickness, and inserts (turned,
// scaled, arrayed and nested), so that it exercises the DXF reader.
//
//   make-sample-scene OUTPUT        writes the drawing
//   make-sample-scene --check FILE  exits 1 unless FILE holds what would be written

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using P3 = std::array<double, 3>;

/// Writes groups of the text form: a code line and a value line each.
class Writer {
public:
    void text(int code, const std::string& value) { out_ << code << '\n' << value << '\n'; }
    void integer(int code, long value) { out_ << code << '\n' << value << '\n'; }
    void real(int code, double value) {
        char buffer[40];
        std::snprintf(buffer, sizeof buffer, "%.6f", std::fabs(value) < 5e-7 ? 0.0 : value);
        out_ << code << '\n' << buffer << '\n';
    }
    void point(int code, const P3& p) {
        real(code, p[0]);
        real(code + 10, p[1]);
        real(code + 20, p[2]);
    }
    void entity(const char* name, const std::string& layer) {
        text(0, name);
        text(8, layer);
    }
    std::string str() const { return out_.str(); }

private:
    std::ostringstream out_;
};

struct Layer {
    const char* name;
    int colour;
    const char* material; // named in the layer's extended data, or null
};

// Colour numbers of the drawing's 256-colour index: soft tones that read as grass, render,
// glass, wood and tiles.
const Layer layers[] = {
    {"Ground", 83, nullptr},   {"Floor", 33, nullptr},     {"Walls", 254, nullptr},
    {"Glazing", 151, nullptr}, {"Doors", 32, nullptr},     {"Roof", 23, "Roof tiles"},
    {"Terrace", 43, nullptr},  {"Furniture", 34, nullptr}, {"Planters", 8, nullptr},
    {"Plants", 96, nullptr},
};

// Plan: the house is 10 m along x and 7 m along y, walls 0.2 m thick standing on a slab
// whose top is at 0.2 m; the walls are 2.8 m high. The terrace lies to the south (y < 0).
constexpr double slabTop = 0.2;
constexpr double wallTop = 3.0;
constexpr double wall = 0.2;
constexpr double doorHead = slabTop + 2.1;
constexpr double sill = slabTop + 0.9;
constexpr double windowHead = slabTop + 2.1;

void face(Writer& w, const std::string& layer, const std::vector<P3>& corners) {
    w.entity("3DFACE", layer);
    for (std::size_t i = 0; i < 4; ++i) {
        w.point(10 + static_cast<int>(i), corners[std::min(i, corners.size() - 1)]);
    }
}

/// A box as a polyface mesh: 8 vertices, 6 quads wound outward.
void box(Writer& w, const std::string& layer, const P3& lo, const P3& hi) {
    w.entity("POLYLINE", layer);
    w.integer(66, 1);
    w.point(10, {0, 0, 0});
    w.integer(70, 64);
    w.integer(71, 8);
    w.integer(72, 6);
    for (int i = 0; i < 8; ++i) {
        w.entity("VERTEX", layer);
        w.point(10, {i & 1 ? hi[0] : lo[0], i & 2 ? hi[1] : lo[1], i & 4 ? hi[2] : lo[2]});
        w.integer(70, 192);
    }
    // Vertices numbered from 1: bit 0 of (n - 1) is x, bit 1 y, bit 2 z.
    const int faces[6][4] = {{1, 3, 4, 2}, {5, 6, 8, 7}, {1, 2, 6, 5},
                             {3, 7, 8, 4}, {1, 5, 7, 3}, {2, 4, 8, 6}};
    for (const auto& f : faces) {
        w.entity("VERTEX", layer);
        w.point(10, {0, 0, 0});
        w.integer(70, 128);
        for (int k = 0; k < 4; ++k) {
            w.integer(71 + k, f[k]);
        }
    }
    w.entity("SEQEND", layer);
}

/// A straight wall piece along a line in plan, as a wide polyline with a thickness: a
/// slab `wall` wide from height z0 to z1.
void wallPiece(Writer& w, double x0, double y0, double x1, double y1, double z0, double z1) {
    w.entity("LWPOLYLINE", "Walls");
    w.integer(90, 2);
    w.integer(70, 0);
    w.real(43, wall);
    w.real(38, z0);
    w.real(39, z1 - z0);
    w.real(10, x0);
    w.real(20, y0);
    w.real(10, x1);
    w.real(20, y1);
}

struct Opening {
    double from, to; // along the wall, metres from its start
    double bottom, top;
};

/// A wall from a to b (axis-parallel) with openings: full-height pieces between them,
/// and pieces under and over each opening.
void wallWithOpenings(Writer& w, const P3& a, const P3& b, const std::vector<Opening>& openings) {
    const double length = std::hypot(b[0] - a[0], b[1] - a[1]);
    auto at = [&](double s) {
        return P3{a[0] + (b[0] - a[0]) * s / length, a[1] + (b[1] - a[1]) * s / length, 0};
    };
    double s = 0;
    for (const Opening& o : openings) {
        const P3 p = at(s), q = at(o.from), r = at(o.to);
        wallPiece(w, p[0], p[1], q[0], q[1], slabTop, wallTop);
        if (o.bottom > slabTop) {
            wallPiece(w, q[0], q[1], r[0], r[1], slabTop, o.bottom);
        }
        wallPiece(w, q[0], q[1], r[0], r[1], o.top, wallTop);
        s = o.to;
    }
    const P3 p = at(s);
    wallPiece(w, p[0], p[1], b[0], b[1], slabTop, wallTop);
}

/// A pane of glass in a window opening of a wall from a to b.
void pane(Writer& w, const P3& a, const P3& b, const Opening& o) {
    const double length = std::hypot(b[0] - a[0], b[1] - a[1]);
    auto at = [&](double s, double z) {
        return P3{a[0] + (b[0] - a[0]) * s / length, a[1] + (b[1] - a[1]) * s / length, z};
    };
    face(w, "Glazing",
         {at(o.from, o.bottom), at(o.to, o.bottom), at(o.to, o.top), at(o.from, o.top)});
}

void header(Writer& w) {
    w.text(0, "SECTION");
    w.text(2, "HEADER");
    w.text(9, "$ACADVER");
    w.text(1, "AC1015");
    w.text(9, "$INSUNITS");
    w.integer(70, 6);
    w.text(9, "$EXTMIN");
    w.point(10, {-3, -6, 0});
    w.text(9, "$EXTMAX");
    w.point(10, {13, 10, 4.6});
    w.text(0, "ENDSEC");
}

void tables(Writer& w) {
    w.text(0, "SECTION");
    w.text(2, "TABLES");
    w.text(0, "TABLE");
    w.text(2, "LAYER");
    w.integer(70, static_cast<long>(std::size(layers)));
    int handle = 0x20;
    for (const Layer& l : layers) {
        w.text(0, "LAYER");
        char h[16];
        std::snprintf(h, sizeof h, "%X", handle++);
        w.text(5, h);
        w.text(2, l.name);
        w.integer(70, 0);
        w.integer(62, l.colour);
        w.text(6, "CONTINUOUS");
        if (l.material) {
            w.text(1001, "ACAD");
            w.text(1000, "AVE_MATERIAL");
            w.text(1000, l.material);
        }
    }
    w.text(0, "ENDTAB");
    w.text(0, "ENDSEC");
}

void beginBlock(Writer& w, const char* name, const P3& base) {
    w.entity("BLOCK", "0");
    w.text(2, name);
    w.integer(70, 0);
    w.point(10, base);
    w.text(3, name);
}

void endBlock(Writer& w) {
    w.entity("ENDBLK", "0");
}

/// A leg: a circle with a thickness (a closed cylinder).
void leg(Writer& w, double x, double y, double radius, double height) {
    w.entity("CIRCLE", "0");
    w.point(10, {x, y, 0});
    w.real(40, radius);
    w.real(39, height);
}

/// A rectangle slab as a SOLID with a thickness (corners go 1, 2, 4, 3).
void slab(Writer& w, const std::string& layer, double x0, double y0, double x1, double y1, double z,
          double thickness) {
    w.entity("SOLID", layer);
    w.point(10, {x0, y0, z});
    w.point(11, {x1, y0, z});
    w.point(12, {x0, y1, z});
    w.point(13, {x1, y1, z});
    w.real(39, thickness);
}

void blocks(Writer& w) {
    w.text(0, "SECTION");
    w.text(2, "BLOCKS");

    // A chair 0.45 by 0.45, seat at 0.45, its back on the +y side; base point at the
    // middle of the front edge.
    beginBlock(w, "CHAIR", {0.225, 0, 0});
    for (const auto& xy : std::vector<std::array<double, 2>>{
             {0.03, 0.03}, {0.42, 0.03}, {0.03, 0.42}, {0.42, 0.42}}) {
        leg(w, xy[0], xy[1], 0.02, 0.43);
    }
    slab(w, "0", 0, 0, 0.45, 0.45, 0.43, 0.04);
    box(w, "0", {0, 0.41, 0.47}, {0.45, 0.45, 0.9});
    endBlock(w);

    // A table 1.6 by 0.9, 0.75 high, base point at its centre.
    beginBlock(w, "TABLE", {0.8, 0.45, 0});
    for (const auto& xy : std::vector<std::array<double, 2>>{
             {0.08, 0.08}, {1.52, 0.08}, {0.08, 0.82}, {1.52, 0.82}}) {
        leg(w, xy[0], xy[1], 0.035, 0.72);
    }
    slab(w, "0", 0, 0, 1.6, 0.9, 0.72, 0.03);
    endBlock(w);

    // A dining set: the table with three chairs a side, in arrays, turned to face it.
    beginBlock(w, "DINING", {0, 0, 0});
    w.entity("INSERT", "0");
    w.text(2, "TABLE");
    w.point(10, {0, 0, 0});
    w.entity("INSERT", "0"); // south side, facing north: back towards -y
    w.text(2, "CHAIR");
    w.point(10, {-0.5, -0.55, 0});
    w.real(50, 180);
    w.integer(70, 2);
    w.real(44, -1.0);        // columns run along the turned x, which points to -x
    w.entity("INSERT", "0"); // north side
    w.text(2, "CHAIR");
    w.point(10, {-0.5, 0.55, 0});
    w.integer(70, 2);
    w.real(44, 1.0);
    endBlock(w);

    // A sofa 2.0 by 0.9 from 3DFACE boxes: seat, back and two arms.
    beginBlock(w, "SOFA", {0, 0, 0});
    auto faces = [&](const P3& lo, const P3& hi) {
        const P3 c[8] = {{lo[0], lo[1], lo[2]}, {hi[0], lo[1], lo[2]}, {lo[0], hi[1], lo[2]},
                         {hi[0], hi[1], lo[2]}, {lo[0], lo[1], hi[2]}, {hi[0], lo[1], hi[2]},
                         {lo[0], hi[1], hi[2]}, {hi[0], hi[1], hi[2]}};
        const int q[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                             {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
        for (const auto& f : q) {
            face(w, "0", {c[f[0]], c[f[1]], c[f[2]], c[f[3]]});
        }
    };
    faces({0.15, 0, 0.1}, {1.85, 0.7, 0.42});
    faces({0, 0.7, 0.1}, {2.0, 0.9, 0.85});
    faces({0, 0, 0.1}, {0.15, 0.7, 0.6});
    faces({1.85, 0, 0.1}, {2.0, 0.7, 0.6});
    endBlock(w);

    // A door leaf 0.9 by 2.1 and 0.04 thick, hinged at its base point, on the Doors layer.
    beginBlock(w, "DOOR", {0, 0, 0});
    box(w, "Doors", {0, 0, 0}, {0.9, 0.04, 2.1});
    endBlock(w);

    // A railing post: a round bar 0.06 across and 0.8 high.
    beginBlock(w, "POST", {0, 0, 0});
    w.entity("CIRCLE", "Terrace");
    w.point(10, {0, 0, 0});
    w.real(40, 0.03);
    w.real(39, 0.8);
    endBlock(w);

    // A planter: a pot (a closed cylinder) and a shrub, a polygon mesh closed round its
    // axis, tapering to a point.
    beginBlock(w, "PLANTER", {0, 0, 0});
    w.entity("CIRCLE", "Planters");
    w.point(10, {0, 0, 0});
    w.real(40, 0.3);
    w.real(39, 0.6);
    w.entity("POLYLINE", "Plants");
    w.integer(66, 1);
    w.point(10, {0, 0, 0});
    w.integer(70, 16 | 32);
    const int around = 8;
    const double rings[3][2] = {{0.25, 0.6}, {0.35, 1.0}, {0.02, 1.6}};
    w.integer(71, 3);
    w.integer(72, around);
    for (const auto& ring : rings) {
        for (int k = 0; k < around; ++k) {
            const double a = 2 * 3.14159265358979323846 * k / around;
            w.entity("VERTEX", "Plants");
            w.point(10, {ring[0] * std::cos(a), ring[0] * std::sin(a), ring[1]});
            w.integer(70, 64);
        }
    }
    w.entity("SEQEND", "Plants");
    endBlock(w);

    w.text(0, "ENDSEC");
}

void entities(Writer& w) {
    w.text(0, "SECTION");
    w.text(2, "ENTITIES");

    // The ground around the house, and the floor slab.
    face(w, "Ground", {{-3, -6, 0}, {13, -6, 0}, {13, 10, 0}, {-3, 10, 0}});
    box(w, "Floor", {0, 0, 0}, {10, 7, slabTop});

    // Walls along the centre lines of the outline, with the openings. The south and
    // north walls run the full length so that the corners are filled.
    const P3 sw{0, 0.1, 0}, se{10, 0.1, 0}, ne{10, 6.9, 0}, nw{0, 6.9, 0};
    const P3 es{9.9, 0.2, 0}, en{9.9, 6.8, 0}, wn{0.1, 6.8, 0}, ws{0.1, 0.2, 0};
    const Opening door{1.0, 1.9, slabTop, doorHead};
    const Opening south1{3.0, 4.6, sill, windowHead}, south2{6.0, 8.6, slabTop + 0.1, windowHead};
    const Opening east{2.4, 4.4, sill, windowHead};
    const Opening north1{2.0, 3.2, sill, windowHead}, north2{6.6, 7.8, sill, windowHead};
    wallWithOpenings(w, sw, se, {door, south1, south2});
    wallWithOpenings(w, es, en, {east});
    wallWithOpenings(w, ne, nw, {north1, north2});
    wallWithOpenings(w, wn, ws, {});
    for (const Opening& o : {south1, south2}) {
        pane(w, sw, se, o);
    }
    pane(w, es, en, east);
    for (const Opening& o : {north1, north2}) {
        pane(w, ne, nw, o);
    }
    // The front door, standing a quarter open into the house.
    w.entity("INSERT", "Doors");
    w.text(2, "DOOR");
    w.point(10, {1.0, 0.2, slabTop});
    w.real(50, 60);

    // A gable roof as a polyface mesh: two slopes and two gable ends, ridge along x.
    w.entity("POLYLINE", "Roof");
    w.integer(66, 1);
    w.point(10, {0, 0, 0});
    w.integer(70, 64);
    w.integer(71, 6);
    w.integer(72, 4);
    const P3 roof[6] = {{-0.4, -0.4, wallTop}, {10.4, -0.4, wallTop}, {10.4, 7.4, wallTop},
                        {-0.4, 7.4, wallTop},  {-0.4, 3.5, 4.6},      {10.4, 3.5, 4.6}};
    for (const P3& p : roof) {
        w.entity("VERTEX", "Roof");
        w.point(10, p);
        w.integer(70, 192);
    }
    const int roofFaces[4][4] = {{1, 2, 6, 5}, {3, 4, 5, 6}, {4, 1, 5, 0}, {2, 3, 6, 0}};
    for (const auto& f : roofFaces) {
        w.entity("VERTEX", "Roof");
        w.point(10, {0, 0, 0});
        w.integer(70, 128);
        for (int k = 0; k < 4; ++k) {
            if (f[k]) {
                w.integer(71 + k, f[k]);
            }
        }
    }
    w.entity("SEQEND", "Roof");

    // The terrace: a deck of boards as a polygon mesh 0.15 above the ground, and an open
    // railing on three sides: a top rail (a wide polyline with a thickness) on posts
    // placed by arrays of inserts, so that the furniture behind it stays in view.
    w.entity("POLYLINE", "Terrace");
    w.integer(66, 1);
    w.point(10, {0, 0, 0});
    w.integer(70, 16);
    const int rows = 5, cols = 4;
    w.integer(71, rows);
    w.integer(72, cols);
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) {
            w.entity("VERTEX", "Terrace");
            w.point(10, {10.0 * i / (rows - 1), -3.5 + 3.5 * j / (cols - 1), 0.15});
            w.integer(70, 64);
        }
    }
    w.entity("SEQEND", "Terrace");
    w.entity("LWPOLYLINE", "Terrace");
    w.integer(90, 4);
    w.integer(70, 0);
    w.real(43, 0.06);
    w.real(38, 0.95);
    w.real(39, 0.05);
    for (const auto& xy :
         std::vector<std::array<double, 2>>{{0, -0.2}, {0, -3.5}, {10, -3.5}, {10, -0.2}}) {
        w.real(10, xy[0]);
        w.real(20, xy[1]);
    }

    const struct {
        P3 at;
        int columns, rows;
        double spacing;
    } posts[] = {
        {{0, -3.5, 0.15}, 9, 1, 1.25}, // south side, x = 0 to 10
        {{0, -2.4, 0.15}, 1, 3, 1.1},  // west side, y = -2.4 to -0.2
        {{10, -2.4, 0.15}, 1, 3, 1.1}, // east side
    };
    for (const auto& p : posts) {
        w.entity("INSERT", "Terrace");
        w.text(2, "POST");
        w.point(10, p.at);
        w.integer(70, p.columns);
        w.integer(71, p.rows);
        w.real(44, p.spacing);
        w.real(45, p.spacing);
    }

    // Furniture: the dining set inside, a sofa turned against the west wall, and a
    // table with two chairs on the terrace, scaled down a little.
    w.entity("INSERT", "Furniture");
    w.text(2, "DINING");
    w.point(10, {6.5, 4.8, slabTop});
    w.entity("INSERT", "Furniture");
    w.text(2, "SOFA");
    w.point(10, {0.3, 5.2, slabTop});
    w.real(50, -90);
    w.entity("INSERT", "Furniture");
    w.text(2, "TABLE");
    w.point(10, {4.5, -1.8, 0.15});
    w.real(41, 0.6);
    w.real(42, 0.9);
    w.entity("INSERT", "Furniture");
    w.text(2, "CHAIR");
    w.point(10, {4.5, -2.6, 0.15});
    w.entity("INSERT", "Furniture");
    w.text(2, "CHAIR");
    w.point(10, {4.5, -1.0, 0.15});
    w.real(50, 180);

    // Planters along the terrace's edge: one insert, an array of four.
    w.entity("INSERT", "Planters");
    w.text(2, "PLANTER");
    w.point(10, {1.2, -3.0, 0.15});
    w.integer(70, 4);
    w.real(44, 2.5);

    w.text(0, "ENDSEC");
}

std::string drawing() {
    Writer w;
    w.text(999, "Quorvale sample scene: a small house, in metres");
    header(w);
    tables(w);
    blocks(w);
    entities(w);
    w.text(0, "EOF");
    return w.str();
}

} // namespace

int main(int argc, char** argv) {
    const std::string text = drawing();
    if (argc == 3 && std::string(argv[1]) == "--check") {
        std::ifstream in(argv[2], std::ios::binary);
        std::stringstream have;
        have << in.rdbuf();
        if (have.str() != text) {
            std::cerr << argv[2] << " is not what make-sample-scene writes; run it again\n";
            return 1;
        }
        return 0;
    }
    if (argc != 2) {
        std::cerr << "usage: make-sample-scene OUTPUT | --check FILE\n";
        return 2;
    }
    std::ofstream out(argv[1], std::ios::binary);
    out << text;
    return out.good() ? 0 : 1;
}
