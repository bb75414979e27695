#include "interchange/polygon/Clump.h"
#include "interchange/polygon/PointIndex.h"
#include "interchange/polygon/PolygonTriangulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

namespace {

using Ring = std::vector<Point<2>>;

/// Shoelace area of a simple ring (absolute).
double shoelace(const Ring& r) {
    double s = 0;
    for (std::size_t i = 0, j = r.size() - 1; i < r.size(); j = i++) {
        s += r[j][0] * r[i][1] - r[i][0] * r[j][1];
    }
    return std::fabs(s) / 2;
}

double triangleArea(const Point<2>& a, const Point<2>& b, const Point<2>& c) {
    return ((b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0])) / 2;
}

struct Triangulated {
    std::vector<Point<2>> coords;
    std::vector<PolygonTriangulator::Triangle> triangles;
    double area = 0;
    bool allPositive = true;
};

/// Triangulates an outer ring with holes given by coordinates.
Triangulated triangulate(const Ring& outer, const std::vector<Ring>& holes = {}) {
    Triangulated t;
    std::vector<std::uint32_t> outerIds;
    for (const auto& p : outer) {
        outerIds.push_back(static_cast<std::uint32_t>(t.coords.size()));
        t.coords.push_back(p);
    }
    std::vector<std::vector<std::uint32_t>> holeIds;
    for (const auto& h : holes) {
        auto& ids = holeIds.emplace_back();
        for (const auto& p : h) {
            ids.push_back(static_cast<std::uint32_t>(t.coords.size()));
            t.coords.push_back(p);
        }
    }
    const PolygonTriangulator tri(t.coords);
    const auto ring = tri.joinHoles(outerIds, holeIds);
    tri.triangulate(ring, t.triangles);
    for (const auto& tr : t.triangles) {
        const double a = triangleArea(t.coords[tr[0]], t.coords[tr[1]], t.coords[tr[2]]);
        t.area += a;
        t.allPositive = t.allPositive && a > 0;
    }
    return t;
}

Ring square(double x0, double y0, double size) {
    return {{x0, y0}, {x0 + size, y0}, {x0 + size, y0 + size}, {x0, y0 + size}};
}

Ring reversed(Ring r) {
    std::reverse(r.begin(), r.end());
    return r;
}

TEST(PolygonTriangulator, SquareWithSquareHoleCoversOnlyTheRing) {
    const Triangulated t = triangulate(square(0, 0, 10), {square(3, 3, 4)});
    EXPECT_NEAR(t.area, 100.0 - 16.0, 1e-9);
    EXPECT_TRUE(t.allPositive);
    // A ring of 8 corners and one hole has 8 + 2 * 1 - 2 = 8 triangles.
    EXPECT_EQ(t.triangles.size(), 8u);
    for (const auto& tr : t.triangles) {
        const Point<2> c((t.coords[tr[0]][0] + t.coords[tr[1]][0] + t.coords[tr[2]][0]) / 3,
                         (t.coords[tr[0]][1] + t.coords[tr[1]][1] + t.coords[tr[2]][1]) / 3);
        EXPECT_FALSE(c[0] > 3 && c[0] < 7 && c[1] > 3 && c[1] < 7)
            << "triangle inside the hole at " << c[0] << "," << c[1];
    }
}

TEST(PolygonTriangulator, AreaMatchesShoelaceForAwkwardRings) {
    struct Case {
        const char* name;
        Ring outer;
        std::vector<Ring> holes;
        double area;              // by hand
        std::size_t maxTriangles; // corners + 2 * holes - 2; fewer where corners fall in line
    };
    const std::vector<Case> cases = {
        {"clockwise square", reversed(square(0, 0, 2)), {}, 4, 2},
        {"L shape", {{0, 0}, {4, 0}, {4, 1}, {1, 1}, {1, 3}, {0, 3}}, {}, 4 + 2, 4},
        {"collinear points on every side",
         {{0, 0}, {1, 0}, {2, 0}, {2, 1}, {2, 2}, {1, 2}, {0, 2}, {0, 1}},
         {},
         4,
         2},
        {"repeated points", {{0, 0}, {0, 0}, {3, 0}, {3, 0}, {3, 3}, {0, 3}}, {}, 9, 2},
        {"spike going out and back", {{0, 0}, {2, 0}, {2, 2}, {2, 4}, {2, 2}, {0, 2}}, {}, 4, 2},
        {"all on one line", {{0, 0}, {1, 1}, {2, 2}, {3, 3}}, {}, 0, 0},
        {"two holes side by side",
         square(0, 0, 10),
         {square(1, 1, 3), reversed(square(6, 6, 2))},
         100 - 9 - 4,
         14},
        {"hole given anticlockwise", square(0, 0, 4), {square(1, 1, 2)}, 12, 8},
        {"hole lying outside is ignored", square(0, 0, 4), {square(10, 10, 1)}, 16, 2},
        {"comb",
         {{0, 0},
          {5, 0},
          {5, 3},
          {4, 3},
          {4, 1},
          {3, 1},
          {3, 3},
          {2, 3},
          {2, 1},
          {1, 1},
          {1, 3},
          {0, 3}},
         {},
         5 + 3 * 2,
         10},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Triangulated t = triangulate(c.outer, c.holes);
        EXPECT_NEAR(t.area, c.area, 1e-9);
        EXPECT_TRUE(t.allPositive);
        EXPECT_LE(t.triangles.size(), c.maxTriangles);
    }
}

TEST(PolygonTriangulator, StarPolygonAreaMatchesShoelace) {
    for (int points : {5, 7, 12, 40}) {
        Ring star;
        for (int i = 0; i < 2 * points; ++i) {
            const double a = std::numbers::pi * i / points;
            const double r = i % 2 ? 1.0 : 3.0 + 0.5 * std::sin(3.0 * i);
            star.push_back({r * std::cos(a), r * std::sin(a)});
        }
        const Triangulated t = triangulate(star);
        EXPECT_NEAR(t.area, shoelace(star), 1e-9) << points;
        EXPECT_EQ(t.triangles.size(), star.size() - 2) << points;
        EXPECT_TRUE(t.allPositive);
    }
}

/// A unit cube of six quads wound anticlockwise seen from outside.
void addCube(Clump& clump, double size, std::uint32_t smoothing) {
    auto p = [&](int x, int y, int z) { return clump.addPoint({x * size, y * size, z * size}); };
    const std::vector<std::vector<Clump::Index>> faces = {
        {p(0, 0, 0), p(0, 1, 0), p(1, 1, 0), p(1, 0, 0)}, // bottom, facing -z
        {p(0, 0, 1), p(1, 0, 1), p(1, 1, 1), p(0, 1, 1)}, // top
        {p(0, 0, 0), p(1, 0, 0), p(1, 0, 1), p(0, 0, 1)}, // front, -y
        {p(0, 1, 0), p(0, 1, 1), p(1, 1, 1), p(1, 1, 0)}, // back
        {p(0, 0, 0), p(0, 0, 1), p(0, 1, 1), p(0, 1, 0)}, // left, -x
        {p(1, 0, 0), p(1, 1, 0), p(1, 1, 1), p(1, 0, 1)}, // right
    };
    for (const auto& f : faces) {
        clump.addFace(f, Quark(), smoothing);
    }
}

TEST(Clump, CubeEdgesPairAndAreSharpBeyondTheSmoothingAngle) {
    Clump clump;
    addCube(clump, 1, 1);
    ASSERT_EQ(clump.pointCount(), 8u);
    auto regions = clump.chooseRegions(false, Quark::create(L"m"));
    ASSERT_EQ(regions.size(), 1u);
    for (Clump::Index e = 0; e < clump.edgeCount(); ++e) {
        EXPECT_TRUE(clump.isPaired(e));
    }
    EXPECT_TRUE(clump.hasSmoothEdges(regions[0]));
    clump.breakSharpEdges(regions[0], Angle::degrees(89));
    EXPECT_FALSE(clump.hasSmoothEdges(regions[0]));
    const auto normals = clump.cornerNormals(regions[0]);
    for (Clump::Index f = 0; f < clump.faceCount(); ++f) {
        const auto [first, end] = clump.faceEdges(f);
        for (Clump::Index e = first; e < end; ++e) {
            EXPECT_EQ(normals[e], clump.surfaceNormal(f));
        }
    }
}

TEST(Clump, CubeSmoothedAtAWideAngleAveragesThreeFaces) {
    Clump clump;
    addCube(clump, 1, 1);
    auto regions = clump.chooseRegions(false, Quark());
    clump.breakSharpEdges(regions[0], Angle::degrees(91));
    const auto normals = clump.cornerNormals(regions[0]);
    const double k = 1 / std::sqrt(3.0);
    for (Clump::Index e = 0; e < clump.edgeCount(); ++e) {
        // Each corner normal points away from the centre along the diagonal.
        const Point<3>& p = clump.coord(clump.edge(e).point);
        const Vector<3> expected((p[0] - 0.5) * 2 * k, (p[1] - 0.5) * 2 * k, (p[2] - 0.5) * 2 * k);
        EXPECT_NEAR((normals[e] - expected).length(), 0, 1e-12);
    }
}

TEST(Clump, RegionsGroupFacesByEqualSmoothingAndMaterial) {
    Clump clump;
    const Quark brick = Quark::create(L"brick"), glass = Quark::create(L"glass");
    const Point<3> tri[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    clump.addFace(tri, brick, 1);
    clump.addFace(tri, glass, 1);
    clump.addFace(tri, brick, 2);
    clump.addFace(tri, brick, 1);
    clump.addFace(tri, Quark(), 1);
    const auto regions = clump.chooseRegions(false, Quark::create(L"layer"));
    ASSERT_EQ(regions.size(), 4u);
    std::map<std::pair<std::wstring, std::uint32_t>, std::size_t> sizes;
    for (const auto& r : regions) {
        sizes[{r.material.value(), r.smoothing}] = r.faces.size();
    }
    const std::map<std::pair<std::wstring, std::uint32_t>, std::size_t> expected = {
        {{L"brick", 1}, 2}, {{L"glass", 1}, 1}, {{L"brick", 2}, 1}, {{L"layer", 1}, 1}};
    EXPECT_EQ(sizes, expected);

    const auto flat = clump.chooseRegions(true, glass);
    ASSERT_EQ(flat.size(), 1u);
    EXPECT_EQ(flat[0].faces.size(), 5u);
    EXPECT_EQ(flat[0].material, glass);
    EXPECT_FALSE(clump.hasSmoothEdges(flat[0]));
}

TEST(Clump, RemoveHolesLeavesOneLoopAndTheSameArea) {
    Clump clump;
    std::vector<Clump::Index> outer, hole;
    for (const auto& p : square(0, 0, 10)) {
        outer.push_back(clump.addPoint({p[0], 0, p[1]})); // a wall in the x-z plane
    }
    for (const auto& p : square(2, 2, 3)) {
        hole.push_back(clump.addPoint({p[0], 0, p[1]}));
    }
    const std::vector<std::vector<Clump::Index>> holes = {hole};
    clump.addFace(outer, Quark(), 0, holes);
    ASSERT_TRUE(clump.hasHoles());
    clump.removeHoles();
    EXPECT_FALSE(clump.hasHoles());
    EXPECT_EQ(clump.face(0).loopCount, 1u);
    const auto regions = clump.chooseRegions(true, Quark());
    double area = 0;
    for (const auto& t : clump.triangulate(regions[0])) {
        const Point<3>& a = clump.coord(clump.edge(t.corner[0]).point);
        const Point<3>& b = clump.coord(clump.edge(t.corner[1]).point);
        const Point<3>& c = clump.coord(clump.edge(t.corner[2]).point);
        const Vector<3> n = cross(b - a, c - a);
        // Counter-clockwise about the face's normal.
        EXPECT_GT(dot(n, clump.surfaceNormal(0)), 0);
        area += n.length() / 2;
    }
    EXPECT_NEAR(area, 100 - 9, 1e-9);
}

TEST(Clump, PointsWithinToleranceAreShared) {
    struct Case {
        double tolerance;
        double offset;
        std::size_t points;
    };
    for (const Case& c :
         {Case{0.001, 0.0005, 4}, Case{0.001, 0.002, 6}, Case{0, 0, 4}, Case{0, 1e-12, 6}}) {
        Clump clump(c.tolerance);
        const Point<3> a[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
        const Point<3> b[] = {{1 + c.offset, 0, 0}, {1, 1, 0}, {0, 1 + c.offset, 0}};
        clump.addFace(a, Quark(), 0);
        clump.addFace(b, Quark(), 0);
        EXPECT_EQ(clump.pointCount(), c.points) << c.tolerance << " " << c.offset;
    }
}

TEST(Clump, DegenerateLoopsAreDropped) {
    Clump clump;
    const Clump::Index a = clump.addPoint({0, 0, 0}), b = clump.addPoint({1, 0, 0});
    const std::vector<Clump::Index> twoPoints = {a, b, b, a};
    EXPECT_EQ(clump.addFace(twoPoints, Quark(), 0), Clump::none);
    const Clump::Index c = clump.addPoint({2, 0, 0});
    const std::vector<Clump::Index> line = {a, b, c};
    const Clump::Index f = clump.addFace(line, Quark(), 0);
    ASSERT_NE(f, Clump::none);
    EXPECT_EQ(clump.surfaceNormal(f), Vector<3>());
    const auto regions = clump.chooseRegions(true, Quark());
    EXPECT_TRUE(clump.triangulate(regions[0]).empty());
}

} // namespace

namespace {

TEST(PointIndex, MergesExactlyThePointsWithinToleranceOfAStoredOne) {
    // Points crowded into a small box, many of them near cell borders, checked one by one
    // against a search of every stored point.
    for (double tolerance : {0.01, 0.25, 0.0}) {
        PointIndex index(tolerance);
        std::uint32_t state = 12345;
        auto next = [&] {
            state = state * 69069 + 1;
            return state / 4294967295.0;
        };
        for (int i = 0; i < 3000; ++i) {
            // Every third point repeats an earlier one, nudged by less than the tolerance.
            Point<3> p(next() * 0.5, next() * 0.5, next() * 0.5);
            if (i % 3 == 2 && index.size() > 0) {
                const Point<3>& q = index.points()[static_cast<std::size_t>(next() * index.size())];
                p = Point<3>(q[0] + tolerance * 0.5, q[1] - tolerance * 0.3, q[2]);
            }
            const std::size_t before = index.size();
            const std::uint32_t got = index.insert(p);
            bool anyNear = false;
            for (std::size_t k = 0; k < before; ++k) {
                anyNear = anyNear || distance(index.points()[k], p) <= tolerance;
            }
            if (got == before) {
                EXPECT_FALSE(anyNear) << "point " << i << " stored again though one is near";
            } else {
                ASSERT_LT(got, before);
                EXPECT_LE(distance(index.points()[got], p), tolerance) << "point " << i;
            }
        }
    }
}

} // namespace
