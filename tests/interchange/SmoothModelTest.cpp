#include "interchange/model/SmoothModel.h"

#include "GatheredModel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <set>

namespace {

const Quark noQuark;

/// A closed box as six quads, anticlockwise seen from outside.
void addBox(Clump& clump, const Point<3>& lo, const Point<3>& hi, Quark matstyle = Quark()) {
    auto p = [&](int x, int y, int z) {
        return clump.addPoint({x ? hi[0] : lo[0], y ? hi[1] : lo[1], z ? hi[2] : lo[2]});
    };
    const std::vector<std::vector<Clump::Index>> faces = {
        {p(0, 0, 0), p(0, 1, 0), p(1, 1, 0), p(1, 0, 0)},
        {p(0, 0, 1), p(1, 0, 1), p(1, 1, 1), p(0, 1, 1)},
        {p(0, 0, 0), p(1, 0, 0), p(1, 0, 1), p(0, 0, 1)},
        {p(0, 1, 0), p(0, 1, 1), p(1, 1, 1), p(1, 1, 0)},
        {p(0, 0, 0), p(0, 0, 1), p(0, 1, 1), p(0, 1, 0)},
        {p(1, 0, 0), p(1, 1, 0), p(1, 1, 1), p(1, 0, 1)},
    };
    for (const auto& f : faces) {
        clump.addFace(f, matstyle, 1);
    }
}

/// The side wall of a cylinder about the z axis: n quads, no caps.
void addCylinderWall(Clump& clump, int n, double r, double h) {
    std::vector<Clump::Index> bottom, top;
    for (int i = 0; i < n; ++i) {
        const double a = 2 * std::numbers::pi * i / n;
        bottom.push_back(clump.addPoint({r * std::cos(a), r * std::sin(a), 0}));
        top.push_back(clump.addPoint({r * std::cos(a), r * std::sin(a), h}));
    }
    for (int i = 0; i < n; ++i) {
        const int j = (i + 1) % n;
        const std::vector<Clump::Index> quad = {bottom[i], bottom[j], top[j], top[i]};
        clump.addFace(quad, Quark(), 1);
    }
}

TEST(SmoothModel, CubeWithSharpEdgesGetsOneVertexPerPointAndFace) {
    test::GatheredModel model;
    Clump clump;
    addBox(clump, {0, 0, 0}, {2, 2, 2});
    model.addClump(clump, false, Quark::create(L"box"), Angle::degrees(45), noQuark);
    ASSERT_EQ(model.meshes().size(), 1u);
    const auto& mesh = model.meshes().front();
    EXPECT_EQ(mesh.points.size(), 8u);
    EXPECT_EQ(mesh.vertices.size(), 24u);
    EXPECT_EQ(mesh.triangles.size(), 12u);
    for (const auto& t : mesh.triangles) {
        for (std::uint32_t v : t.vertex) {
            EXPECT_EQ(mesh.vertices[v].normal, t.plane.normal());
        }
        // Outward: the plane's normal points away from the box centre (1, 1, 1).
        EXPECT_LT(t.plane.distanceTo({1, 1, 1}), 0);
    }
    EXPECT_EQ(model.bounds(), Extent<3>({0, 0, 0}, {2, 2, 2}));
}

TEST(SmoothModel, CylinderWallSharesOneRadialNormalPerPoint) {
    test::GatheredModel model;
    Clump clump;
    const int n = 16;
    addCylinderWall(clump, n, 1.5, 3);
    model.addClump(clump, false, noQuark, Angle::degrees(30), noQuark);
    ASSERT_EQ(model.meshes().size(), 1u);
    const auto& mesh = model.meshes().front();
    EXPECT_EQ(mesh.points.size(), 2u * n);
    EXPECT_EQ(mesh.vertices.size(), 2u * n);
    EXPECT_EQ(mesh.triangles.size(), 2u * n);
    for (const auto& v : mesh.vertices) {
        const Point<3>& p = mesh.points[v.point];
        const Vector<3> radial = Vector<3>(p[0], p[1], 0).unit();
        EXPECT_NEAR((v.normal - radial).length(), 0, 1e-12);
    }
    // The same wall with a smoothing angle below the 22.5 degrees between faces is faceted.
    test::GatheredModel faceted;
    Clump again;
    addCylinderWall(again, n, 1.5, 3);
    faceted.addClump(again, false, noQuark, Angle::degrees(20), noQuark);
    EXPECT_EQ(faceted.meshes().front().vertices.size(), 4u * n);
}

TEST(SmoothModel, FlatClumpIsOneMeshWithoutSmoothing) {
    test::GatheredModel model;
    Clump clump;
    addCylinderWall(clump, 8, 1, 1);
    model.addClump(clump, true, Quark::create(L"steel"), Angle::degrees(90), noQuark);
    ASSERT_EQ(model.meshes().size(), 1u);
    EXPECT_EQ(model.meshes().front().vertices.size(), 4u * 8);
    EXPECT_EQ(model.meshes().front().material->name.value(), L"steel");
}

TEST(SmoothModel, ToleranceOnlyEverGoesDown) {
    test::GatheredModel model;
    EXPECT_EQ(model.tolerance(), 0.001);
    struct Step {
        double clumpTolerance;
        double expected;
    };
    for (const Step& s :
         {Step{0.01, 0.001}, Step{1e-5, 1e-5}, Step{1e-4, 1e-5}, Step{0, 1e-5}, Step{1e-7, 1e-7}}) {
        Clump clump(s.clumpTolerance);
        addBox(clump, {0, 0, 0}, {1, 1, 1});
        model.addClump(clump, false, noQuark, Angle::degrees(30), noQuark);
        EXPECT_EQ(model.tolerance(), s.expected) << s.clumpTolerance;
    }
}

TEST(SmoothModel, MaterialsAreMadeOnFirstUseInOrder) {
    test::GatheredModel model;
    const Point<3> tri[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    model.addPolygon(Quark::create(L"zinc"), tri);
    model.addPolygon(Quark(), tri);
    model.addPolygon(Quark::create(L"brick"), tri);
    model.addPolygon(Quark::create(L"zinc"), tri);
    Clump clump;
    addBox(clump, {0, 0, 0}, {1, 1, 1}, Quark::create(L"oak"));
    model.addClump(clump, false, Quark::create(L"unused"), Angle::degrees(30),
                   Quark::create(L"layer"));
    std::vector<std::wstring> names;
    for (const auto* m : model.materialsInOrder()) {
        names.push_back(m->name.value());
        EXPECT_EQ(m->order, names.size() - 1);
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L"zinc", DEFAULT_MSTYLE_NAME, L"brick", L"oak"}));
    EXPECT_EQ(model.findMaterial(Quark::create(L"unused")), nullptr);
    // Two polygons of zinc went into one mesh, sharing nothing but the material.
    model.finish();
    std::size_t zincTriangles = 0;
    for (const auto& mesh : model.meshes()) {
        if (mesh.material->name.value() == L"zinc") {
            zincTriangles += mesh.triangles.size();
            EXPECT_EQ(mesh.points.size(), 3u); // the same three points, stored once
        }
    }
    EXPECT_EQ(zincTriangles, 2u);
}

TEST(SmoothModel, PolygonWithHoleAndBadTrianglesAreHandled) {
    test::GatheredModel model;
    const Quark m = Quark::create(L"floor");
    const std::vector<Point<3>> outer = {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}};
    const std::vector<std::vector<Point<3>>> holes = {{{1, 1, 0}, {3, 1, 0}, {3, 3, 0}, {1, 3, 0}}};
    model.addPolygon(m, outer, holes);
    const std::vector<Point<3>> pts = {{0, 0, 5}, {1, 0, 5}, {2, 0, 5}, {0, 1, 5}};
    const std::vector<std::array<std::uint32_t, 3>> tris = {
        {0, 1, 2}, {0, 1, 7}, {0, 1, 3}, {1, 1, 3}};
    model.addTriangles(m, pts, tris);
    model.finish();
    double area = 0;
    for (const auto& mesh : model.meshes()) {
        for (const auto& t : mesh.triangles) {
            const Point<3>& a = mesh.points[mesh.vertices[t.vertex[0]].point];
            const Point<3>& b = mesh.points[mesh.vertices[t.vertex[1]].point];
            const Point<3>& c = mesh.points[mesh.vertices[t.vertex[2]].point];
            area += cross(b - a, c - a).length() / 2;
        }
    }
    EXPECT_NEAR(area, 16 - 4 + 0.5, 1e-12); // ring, plus the one good triangle
    EXPECT_EQ(model.triangleCount(), 8u + 1u);
    EXPECT_EQ(model.bounds(), Extent<3>({0, 0, 0}, {4, 4, 5}));
}

TEST(SmoothModel, EmptyModelHasEmptyBounds) {
    test::GatheredModel model;
    Clump clump;
    model.addClump(clump, false, noQuark, Angle::degrees(30), noQuark);
    model.finish();
    EXPECT_TRUE(model.bounds().degenerate());
    EXPECT_EQ(model.triangleCount(), 0u);
    EXPECT_TRUE(model.meshes().empty());
}

} // namespace
