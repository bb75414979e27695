#include "interchange/dxf/DXFReader.h"

#include "core/StringUtils.h"

#include "DxfBuilder.h"
#include "GatheredModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace {

struct Loaded {
    Status status = status::ok;
    std::wstring error;
    TQL::Handle<test::GatheredModel> model = TQL::makeHandle<test::GatheredModel>();
    DXFReadInfo info;
};

Loaded load(const std::string& bytes, const DXFReadOptions& options = {}) {
    Loaded l;
    const auto data = bytesOf(bytes);
    l.status = readDXF(data, L"t.dxf", *l.model, l.error, options, &l.info);
    return l;
}

/// Every point of every mesh, rounded to 1e-9 so that sets compare.
std::set<std::array<double, 3>> pointsOf(const test::GatheredModel& model) {
    std::set<std::array<double, 3>> out;
    for (const auto& mesh : model.meshes()) {
        for (const auto& p : mesh.points) {
            out.insert({std::round(p[0] * 1e9) / 1e9, std::round(p[1] * 1e9) / 1e9,
                        std::round(p[2] * 1e9) / 1e9});
        }
    }
    return out;
}

std::vector<std::wstring> materialNames(const test::GatheredModel& model) {
    std::vector<std::wstring> names;
    for (const auto* m : model.materialsInOrder()) {
        names.push_back(m->name.value());
    }
    return names;
}

/// The wrapper of the ENTITIES section around some entities.
DxfBuilder entities(const DxfBuilder& body) {
    DxfBuilder b;
    b.section("ENTITIES").append(body).endsec().eof();
    return b;
}

/// A drawing with one of everything that makes faces.
DxfBuilder everything() {
    DxfBuilder b;
    b.section("HEADER").text(9, "$ACADVER").text(1, "AC1015").text(9, "$INSUNITS").int16(70, 4);
    b.endsec();
    b.section("TABLES").text(0, "TABLE").text(2, "LAYER").int16(70, 2);
    b.text(0, "LAYER").text(2, "Walls").int16(70, 0).int16(62, 1);
    b.text(0, "LAYER").text(2, "Floor").int16(70, 0).int16(62, 3);
    b.text(0, "ENDTAB").endsec();
    b.section("BLOCKS")
        .text(0, "BLOCK")
        .text(8, "0")
        .text(2, "Seat")
        .int16(70, 0)
        .point(10, 0, 0, 0);
    b.text(0, "SOLID").text(8, "0").point(10, 0, 0, 0).point(11, 0.5, 0, 0).point(12, 0, 0.5, 0);
    b.point(13, 0.5, 0.5, 0).real(39, 0.45);
    b.text(0, "ENDBLK").text(8, "0").endsec();
    b.section("ENTITIES");
    b.face3d("Floor", {{0, 0, 0}, {4, 0, 0}, {4, 3, 0}, {0, 3, 0}});
    b.text(0, "INSERT").text(8, "Floor").text(2, "Seat").point(10, 1, 1, 0).real(50, 30);
    b.text(0, "LWPOLYLINE").text(8, "Walls").int32(90, 3).int16(70, 1).real(39, 2.5);
    b.real(10, 0).real(20, 0).real(42, 0.5).real(10, 4).real(20, 0).real(10, 4).real(20, 3);
    b.text(0, "CIRCLE").text(8, "Walls").point(10, 2, 2, 0).real(40, 0.2).real(39, 2.5);
    b.text(0, "POLYLINE").text(8, "Walls").int16(66, 1).point(10, 0, 0, 0).int16(70, 64);
    b.int16(71, 4).int16(72, 2);
    for (const auto& p :
         std::vector<std::vector<double>>{{0, 0, 3}, {1, 0, 3}, {1, 1, 3}, {0, 1, 4}}) {
        b.vertex("Walls", p[0], p[1], p[2], 192);
    }
    b.faceRecord("Walls", {1, 2, 3}).faceRecord("Walls", {1, -3, 4});
    b.text(0, "SEQEND").text(8, "Walls");
    b.endsec().eof();
    return b;
}

void expectSameModel(const test::GatheredModel& a, const test::GatheredModel& b) {
    EXPECT_EQ(materialNames(a), materialNames(b));
    ASSERT_EQ(a.meshes().size(), b.meshes().size());
    for (std::size_t m = 0; m < a.meshes().size(); ++m) {
        const auto& x = a.meshes()[m];
        const auto& y = b.meshes()[m];
        EXPECT_EQ(x.material->name, y.material->name);
        EXPECT_EQ(x.layer, y.layer);
        ASSERT_EQ(x.points.size(), y.points.size());
        for (std::size_t i = 0; i < x.points.size(); ++i) {
            EXPECT_EQ(x.points[i], y.points[i]);
        }
        ASSERT_EQ(x.vertices.size(), y.vertices.size());
        for (std::size_t i = 0; i < x.vertices.size(); ++i) {
            EXPECT_EQ(x.vertices[i].point, y.vertices[i].point);
            EXPECT_EQ(x.vertices[i].normal, y.vertices[i].normal);
        }
        ASSERT_EQ(x.triangles.size(), y.triangles.size());
        for (std::size_t i = 0; i < x.triangles.size(); ++i) {
            EXPECT_EQ(x.triangles[i].vertex, y.triangles[i].vertex);
        }
    }
}

TEST(DXFReader, TextAndBinaryFormsGiveTheSameModel) {
    const DxfBuilder drawing = everything();
    const Loaded text = load(drawing.ascii());
    ASSERT_EQ(text.status, status::ok) << utf8(text.error);
    EXPECT_GT(text.model->triangleCount(), 0u);
    EXPECT_EQ(text.info.metresPerUnit, 0.001);
    EXPECT_EQ(text.model->metresPerUnit(), 0.001);
    for (const std::string& other :
         {drawing.ascii(true), drawing.binary(false), drawing.binary(true)}) {
        const Loaded l = load(other);
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        expectSameModel(*text.model, *l.model);
    }
}

TEST(DXFReader, UnknownEntitiesAndSectionsArePassedOver) {
    DxfBuilder b;
    b.section("THUMBNAILIMAGE").int32(90, 3).text(310, "0A0B0C").endsec();
    b.section("ENTITIES");
    b.text(0, "WIDGET").text(8, "L").point(10, 1, 2, 3).text(1, "not ours");
    b.text(0, "ARC").text(8, "L").point(10, 0, 0, 0).real(40, 1).real(50, 0).real(51, 90);
    b.face3d("L", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    b.text(0, "TEXT").text(8, "L").text(1, "label");
    b.endsec().eof();
    const Loaded l = load(b.ascii());
    ASSERT_EQ(l.status, status::ok) << utf8(l.error);
    EXPECT_EQ(l.model->triangleCount(), 1u);
    EXPECT_EQ(l.info.skipped, 3u);
    EXPECT_EQ(l.info.entities, 1u);
}

TEST(DXFReader, EntitiesWithoutAreaMakeNoFaces) {
    DxfBuilder b;
    b.text(0, "LINE").text(8, "L").point(10, 0, 0, 0).point(11, 5, 0, 0);
    b.text(0, "3DLINE").text(8, "L").point(10, 0, 0, 0).point(11, 5, 5, 0);
    b.text(0, "CIRCLE").text(8, "L").point(10, 0, 0, 0).real(40, 2);
    b.text(0, "ELLIPSE").text(8, "L").point(10, 0, 0, 0).point(11, 2, 0, 0).real(40, 0.5);
    b.text(0, "LWPOLYLINE").text(8, "L").int32(90, 3).int16(70, 1);
    b.real(10, 0).real(20, 0).real(10, 1).real(20, 0).real(10, 1).real(20, 1);
    b.text(0, "VIEWPORT").text(8, "L").point(10, 5, 5, 0).real(40, 10).real(41, 8);
    b.point(16, 1, 1, 1).point(17, 2, 3, 4).real(42, 35);
    // A face drawn on the sheet, not in the model.
    b.face3d("L", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}).int16(67, 1);
    const Loaded l = load(entities(b).ascii());
    ASSERT_EQ(l.status, status::ok) << utf8(l.error);
    EXPECT_EQ(l.model->triangleCount(), 0u);
    EXPECT_TRUE(l.model->materialsInOrder().empty());
    ASSERT_EQ(l.info.viewports.size(), 1u);
    EXPECT_EQ(l.info.viewports[0].viewTarget, Point<3>(2, 3, 4));
    EXPECT_EQ(l.info.viewports[0].lensLength, 35);
}

/// A drawing that fails, the text of its error, and how it is built.
struct ErrorCase {
    const char* name;
    std::string data;
    std::wstring expected;
    Status status = status::damaged;
};

std::vector<ErrorCase> errorCases() {
    std::vector<ErrorCase> cases;
    cases.push_back({"code that is not a number", "  0\nSECTION\nxx\nENTITIES\n",
                     L"Error reading group-code at line 3 in t.dxf"});
    cases.push_back({"code without a datatype", "  0\nSECTION\n  2\nENTITIES\n5000\nx\n",
                     L"Illegal datatype code 5000 at line 5 in t.dxf"});
    cases.push_back({"file ends after a code", "  0\nSECTION\n  2",
                     L"Error reading group-value at line 4 in t.dxf"});
    cases.push_back({"group outside a section", " 10\n1.0\n", L"Bad DXF group at line 1 in t.dxf"});
    cases.push_back({"section without a name", "0\nSECTION\n8\nX\n",
                     L"Bad DXF group: item <section name> needed at line 3 in t.dxf"});
    {
        DxfBuilder b;
        b.section("ENTITIES").face3d("L", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
        const std::string text = b.ascii();
        const long lines = std::count(text.begin(), text.end(), '\n');
        cases.push_back(
            {"section not ended", text,
             stringPrintf(L"Bad DXF group: item <ENDSEC> needed at line %ld in t.dxf", lines)});
    }
    {
        DxfBuilder b;
        b.section("ENTITIES").text(0, "3DFACE").text(8, "L");
        const long line = b.nextLine() + 1;
        b.text(10, "1.2.3").real(20, 0).real(30, 0);
        cases.push_back(
            {"bad double", b.endsec().eof().ascii(),
             stringPrintf(L"Error reading double item value at line %ld in t.dxf", line)});
    }
    {
        DxfBuilder b;
        b.section("ENTITIES").text(0, "LWPOLYLINE").text(8, "L");
        const long line = b.nextLine() + 1;
        b.text(70, "abc").endsec().eof();
        cases.push_back(
            {"bad integer", b.ascii(),
             stringPrintf(L"Error reading integer item value at line %ld in t.dxf", line)});
    }
    {
        DxfBuilder b;
        b.section("ENTITIES");
        const long line = b.nextLine();
        b.text(85, "x").endsec().eof();
        cases.push_back(
            {"binary code without a datatype", b.binary(),
             stringPrintf(L"Unexpected datatype from item-code, at line %ld in t.dxf", line)});
    }
    {
        DxfBuilder b;
        b.section("ENTITIES").text(0, "3DFACE");
        const long line = b.nextLine() + 1;
        b.real(10, 1.0);
        std::string data = b.binary();
        data.resize(data.size() - 3);
        cases.push_back({"binary value cut short", data,
                         stringPrintf(L"Error reading group-value at line %ld in t.dxf", line)});
    }
    {
        std::string data = DxfBuilder().section("ENTITIES").binary();
        data.push_back(static_cast<char>(255));
        data.push_back(1);
        cases.push_back(
            {"binary escape cut short", data, L"Error reading group-code at line 5 in t.dxf"});
    }
    {
        DxfBuilder b;
        b.section("ENTITIES").polyline("L", 16, 2, 2);
        for (int i = 0; i < 3; ++i) {
            b.vertex("L", i, i * i, 0, 64);
        }
        const long line = b.nextLine();
        b.text(0, "SEQEND").endsec().eof();
        cases.push_back(
            {"polygon mesh short of a vertex", b.ascii(),
             stringPrintf(L"PolygonMesh ends with wrong number of vertices at line %ld in t.dxf",
                          line)});
    }
    {
        DxfBuilder b;
        b.section("ENTITIES").polyline("L", 64, 3, 2);
        for (int i = 0; i < 3; ++i) {
            b.vertex("L", i, i * i, 0, 192);
        }
        b.faceRecord("L", {1, 2, 3});
        const long line = b.nextLine();
        b.faceRecord("L", {1, -2, 5});
        b.text(0, "SEQEND").endsec().eof();
        cases.push_back(
            {"polyface index out of range", b.ascii(),
             stringPrintf(
                 L"PolyfaceMesh index 2 vertex[5] outside range (0..3) at line %ld in t.dxf",
                 line)});
    }
    {
        DxfBuilder b;
        b.section("ENTITIES").text(0, "POLYLINE").text(8, "L").int16(70, 8);
        b.text(0, "VERTEX").text(8, "L").point(10, 0, 0, 0).int16(70, 32);
        const long line = b.nextLine();
        b.face3d("L", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}).endsec().eof();
        cases.push_back(
            {"polyline without its end", b.ascii(),
             stringPrintf(L"Bad DXF group: item <SEQEND> needed at line %ld in t.dxf", line)});
    }
    {
        DxfBuilder b;
        b.section("BLOCKS").text(0, "BLOCK").text(2, "Loop").point(10, 0, 0, 0);
        b.face3d("L", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
        const long line = b.nextLine();
        b.text(0, "INSERT").text(8, "L").text(2, "loop").point(10, 1, 0, 0);
        b.text(0, "ENDBLK").endsec();
        b.section("ENTITIES").text(0, "INSERT").text(8, "L").text(2, "Loop").point(10, 0, 0, 0);
        b.endsec().eof();
        cases.push_back({"block inserting itself", b.ascii(),
                         stringPrintf(L"Block <loop> inserts itself at line %ld in t.dxf", line)});
    }
    {
        DxfBuilder b;
        b.section("BLOCKS");
        long line = 0;
        for (int i = 0; i < 20; ++i) {
            b.text(0, "BLOCK").text(2, "B" + std::to_string(i)).point(10, 0, 0, 0);
            if (i == 15) { // the insert of the seventeenth block down
                line = b.nextLine();
            }
            if (i < 19) {
                b.text(0, "INSERT")
                    .text(8, "L")
                    .text(2, "B" + std::to_string(i + 1))
                    .point(10, 1, 0, 0);
            } else {
                b.face3d("L", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
            }
            b.text(0, "ENDBLK");
        }
        b.endsec()
            .section("ENTITIES")
            .text(0, "INSERT")
            .text(8, "L")
            .text(2, "B0")
            .point(10, 0, 0, 0);
        b.endsec().eof();
        cases.push_back(
            {"blocks nested too deep", b.ascii(),
             stringPrintf(L"Blocks are nested more than 16 deep at line %ld in t.dxf", line)});
    }
    return cases;
}

TEST(DXFReader, DamagedDrawingsNameTheErrorTheFileAndTheLine) {
    for (const ErrorCase& c : errorCases()) {
        SCOPED_TRACE(c.name);
        const Loaded l = load(c.data);
        EXPECT_EQ(l.status, c.status);
        EXPECT_EQ(l.error, c.expected);
    }
}

TEST(DXFReader, ArraysThatMultiplyBeyondTheLimitAreRefused) {
    DxfBuilder b;
    b.section("BLOCKS").text(0, "BLOCK").text(2, "Tile").point(10, 0, 0, 0);
    b.face3d("L", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}).text(0, "ENDBLK").endsec();
    b.section("ENTITIES");
    const long line = b.nextLine();
    b.text(0, "INSERT").text(8, "L").text(2, "Tile").point(10, 0, 0, 0);
    b.int16(70, 30000).int16(71, 30000).real(44, 1).real(45, 1).endsec().eof();
    DXFReadOptions options;
    options.maxFaces = 1000;
    const Loaded l = load(b.ascii(), options);
    EXPECT_EQ(l.status, status::damaged);
    EXPECT_EQ(l.error,
              stringPrintf(L"The drawing makes more than 1000 faces at line %ld in t.dxf", line));
}

TEST(DXFReader, AbandonedReadingStops) {
    struct Quit : Reporter {
        bool report(unsigned, unsigned, double) override { return true; }
    };
    DxfBuilder body;
    for (int i = 0; i < 600; ++i) {
        body.face3d("L", {{0, 0, double(i)}, {1, 0, double(i)}, {0, 1, double(i)}});
    }
    const auto quit = TQL::makeHandle<Quit>();
    DXFReadOptions options;
    options.progress = quit.get();
    const Loaded l = load(entities(body).ascii(), options);
    EXPECT_EQ(l.status, status::stopped);
    EXPECT_EQ(l.error, L"Operation abandoned");
}

/// A block "T" with one triangle, base point (1, 0, 0): its corners less the base are
/// (0, 0, 0), (1, 0, 0) and (0, 1, 0).
DxfBuilder triangleBlock() {
    DxfBuilder b;
    b.text(0, "BLOCK").text(8, "0").text(2, "T").point(10, 1, 0, 0);
    b.face3d("0", {{1, 0, 0}, {2, 0, 0}, {1, 1, 0}});
    b.text(0, "ENDBLK");
    return b;
}

TEST(DXFReader, InsertsPlaceBlocksWhereHandComputationSays) {
    struct Case {
        const char* name;
        DxfBuilder inserts;
        std::set<std::array<double, 3>> expected;
    };
    std::vector<Case> cases;
    {
        // Scale (2, 3, 1), then 90 degrees: (x, y) -> (-y, x), then to (10, 20, 5).
        DxfBuilder i;
        i.text(0, "INSERT").text(8, "L").text(2, "T").point(10, 10, 20, 5);
        i.real(41, 2).real(42, 3).real(43, 1).real(50, 90);
        cases.push_back({"scaled and turned", i, {{10, 20, 5}, {10, 22, 5}, {7, 20, 5}}});
    }
    {
        // N holds T at the origin; N goes in scaled by 2 and turned half round at (100, 0, 0).
        DxfBuilder i;
        i.text(0, "INSERT")
            .text(8, "L")
            .text(2, "N")
            .point(10, 100, 0, 0)
            .real(41, 2)
            .real(42, 2)
            .real(50, 180);
        cases.push_back({"nested", i, {{100, 0, 0}, {98, 0, 0}, {100, -2, 0}}});
    }
    {
        // Three columns 10 apart and two rows 5 apart.
        DxfBuilder i;
        i.text(0, "INSERT").text(8, "L").text(2, "T").point(10, 0, 0, 0);
        i.int16(70, 3).int16(71, 2).real(44, 10).real(45, 5);
        std::set<std::array<double, 3>> e;
        for (double x : {0.0, 10.0, 20.0}) {
            for (double y : {0.0, 5.0}) {
                e.insert({x, y, 0});
                e.insert({x + 1, y, 0});
                e.insert({x, y + 1, 0});
            }
        }
        cases.push_back({"array", i, e});
    }
    {
        // The array turns with the insert: the second column is 10 along the turned x.
        DxfBuilder i;
        i.text(0, "INSERT").text(8, "L").text(2, "T").point(10, 0, 0, 0).real(50, 90);
        i.int16(70, 2).real(44, 10);
        cases.push_back({"turned array",
                         i,
                         {{0, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, 10, 0}, {0, 11, 0}, {-1, 10, 0}}});
    }
    {
        // Extrusion (0, 0, -1): object x is world -x and object z is world -z.
        DxfBuilder i;
        i.text(0, "INSERT").text(8, "L").text(2, "T").point(10, 3, 4, 5).point(210, 0, 0, -1);
        cases.push_back({"upside down", i, {{-3, 4, -5}, {-4, 4, -5}, {-3, 5, -5}}});
    }
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        DxfBuilder b;
        b.section("BLOCKS").append(triangleBlock());
        b.text(0, "BLOCK").text(2, "N").point(10, 0, 0, 0);
        b.text(0, "INSERT").text(8, "0").text(2, "T").point(10, 0, 0, 0).text(0, "ENDBLK");
        b.endsec().section("ENTITIES").append(c.inserts).endsec().eof();
        const Loaded l = load(b.ascii());
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        EXPECT_EQ(pointsOf(*l.model), c.expected);
        // The entity on layer "0" took the layer of the insert.
        ASSERT_FALSE(l.model->meshes().empty());
        EXPECT_EQ(l.model->meshes().front().layer.value(), L"L");
    }
}

TEST(DXFReader, ExtrusionDirectionsPlaceObjectCoordinates) {
    {
        // Normal +x: the arbitrary axes are x = Wz x N = (0, 1, 0), y = N x x = (0, 0, 1),
        // so the object centre (2, 3, 4) is world (4, 2, 3) and the cylinder runs along x.
        DxfBuilder b;
        b.text(0, "CIRCLE")
            .text(8, "L")
            .point(10, 2, 3, 4)
            .real(40, 1)
            .real(39, 5)
            .point(210, 1, 0, 0);
        const Loaded l = load(entities(b).ascii());
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        const Extent<3> box = l.model->bounds();
        EXPECT_NEAR(box.lo()[0], 4, 1e-12);
        EXPECT_NEAR(box.hi()[0], 9, 1e-12);
        EXPECT_NEAR(box.lo()[1], 1, 1e-12);
        EXPECT_NEAR(box.hi()[1], 3, 1e-12);
        EXPECT_NEAR(box.lo()[2], 2, 1e-12);
        EXPECT_NEAR(box.hi()[2], 4, 1e-12);
        for (const auto& p : pointsOf(*l.model)) {
            EXPECT_NEAR(std::hypot(p[1] - 2, p[2] - 3), 1, 1e-9);
        }
        // 48 walls and two ends of 48 corners: 96 + 2 * 46 triangles.
        EXPECT_EQ(l.model->triangleCount(), 96u + 92u);
    }
    {
        // Normal -z: object (x, y, z) is world (-x, y, -z). A 2 by 1 outline at elevation 3
        // with thickness 2 becomes walls from z = -3 down to z = -5.
        DxfBuilder b;
        b.text(0, "LWPOLYLINE").text(8, "L").int32(90, 4).int16(70, 1).real(38, 3).real(39, 2);
        b.real(10, 0).real(20, 0).real(10, 2).real(20, 0).real(10, 2).real(20, 1).real(10, 0).real(
            20, 1);
        b.point(210, 0, 0, -1);
        const Loaded l = load(entities(b).ascii());
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        EXPECT_EQ(l.model->bounds(), Extent<3>({-2, 0, -5}, {0, 1, -3}));
        EXPECT_EQ(l.model->triangleCount(), 8u); // four walls, no ends
    }
    {
        // Bulge 1 twice: a full circle of radius 1 about (1, 0), each half in 24 pieces.
        DxfBuilder b;
        b.text(0, "LWPOLYLINE").text(8, "L").int32(90, 2).int16(70, 1).real(39, 1);
        b.real(10, 0).real(20, 0).real(42, 1).real(10, 2).real(20, 0).real(42, 1);
        const Loaded l = load(entities(b).ascii());
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        EXPECT_EQ(l.model->triangleCount(), 2u * 48);
        for (const auto& p : pointsOf(*l.model)) {
            EXPECT_NEAR(std::hypot(p[0] - 1, p[1]), 1, 1e-9);
        }
        const Extent<3> box = l.model->bounds();
        EXPECT_NEAR(box.lo()[1], -1, 1e-12); // the first half turns anticlockwise, below
        EXPECT_NEAR(box.hi()[1], 1, 1e-12);
    }
}

TEST(DXFReader, MeshesGiveTheirFaceAndVertexCounts) {
    struct Case {
        const char* name;
        int flags, m, n;
        std::size_t triangles, points;
    };
    // A 2 by 4 mesh round a unit square: rows at z = 0 and z = 1.
    for (const Case& c : {Case{"open", 16, 2, 4, 6, 8}, Case{"closed in N", 16 | 32, 2, 4, 8, 8}}) {
        SCOPED_TRACE(c.name);
        DxfBuilder b;
        b.polyline("L", c.flags, c.m, c.n);
        const double square[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
        for (int i = 0; i < c.m; ++i) {
            for (const auto& xy : square) {
                b.vertex("L", xy[0], xy[1], i, 64);
            }
        }
        b.text(0, "SEQEND");
        const Loaded l = load(entities(b).ascii());
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        EXPECT_EQ(l.model->triangleCount(), c.triangles);
        EXPECT_EQ(pointsOf(*l.model).size(), c.points);
    }
    {
        // A square pyramid: a quad base (one edge invisible) and two of its sides.
        DxfBuilder b;
        b.polyline("L", 64, 5, 3);
        for (const auto& p : std::vector<std::vector<double>>{
                 {0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1}}) {
            b.vertex("L", p[0], p[1], p[2], 192);
        }
        b.faceRecord("L", {1, 4, 3, -2})
            .faceRecord("L", {1, 2, 5, 0})
            .faceRecord("L", {2, 3, 5, 0});
        b.text(0, "SEQEND");
        const Loaded l = load(entities(b).ascii());
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        EXPECT_EQ(l.model->triangleCount(), 2u + 1u + 1u);
        EXPECT_EQ(pointsOf(*l.model).size(), 5u);
    }
}

TEST(DXFReader, LayersBecomeMaterialsUnlessRenamed) {
    DxfBuilder b;
    b.section("TABLES").text(0, "TABLE").text(2, "LAYER");
    b.text(0, "LAYER").text(5, "10").text(2, "Walls").int16(70, 0).int16(62, 3);
    b.text(0, "LAYER").text(5, "11").text(2, "Glass").int16(70, 0).int16(62, 5);
    b.text(1001, "ACAD").text(1000, "AVE_MATERIAL").text(1000, "Frosted glass");
    b.text(0, "LAYER").text(5, "2A").text(2, "Roof").int16(70, 0).int16(62, 1);
    b.text(0, "LAYER").text(5, "12").text(2, "Frozen").int16(70, 1).int16(62, 1);
    b.text(0, "LAYER").text(5, "13").text(2, "Off").int16(70, 0).int16(62, -2);
    b.text(0, "ENDTAB").endsec();
    b.section("BLOCKS").text(0, "BLOCK").text(2, "Door").point(10, 0, 0, 0);
    b.face3d("0", {{5, 0, 0}, {6, 0, 0}, {5, 1, 0}}).text(0, "ENDBLK").endsec();
    b.section("ENTITIES");
    const std::vector<std::vector<double>> tri = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    b.face3d("walls", tri); // layer names ignore case
    b.face3d("Glass", tri);
    b.face3d("Roof", tri);
    b.face3d("Frozen", tri);
    b.face3d("Off", tri);
    b.face3d("Undeclared", tri);
    b.face3d("Walls", {{0, 0, 1}, {1, 0, 1}, {0, 1, 1}}).text(1001, "ACAD");
    b.text(1000, "AVE_FINISH").text(1000, "Brick red");
    b.text(0, "INSERT").text(8, "Walls").text(2, "Door").point(10, 0, 0, 0);
    b.endsec();
    b.section("OBJECTS")
        .text(0, "AVE_MATERIAL")
        .text(5, "99")
        .text(330, "2a")
        .text(1, "Clay tiles");
    b.endsec().eof();
    const Loaded l = load(b.ascii());
    ASSERT_EQ(l.status, status::ok) << utf8(l.error);
    EXPECT_EQ(materialNames(*l.model),
              (std::vector<std::wstring>{L"Walls", L"Brick red", L"Frosted glass", L"Clay tiles",
                                         L"Undeclared"}));
    EXPECT_EQ(l.info.layers,
              (std::vector<std::wstring>{L"Walls", L"Glass", L"Roof", L"Frozen", L"Off"}));
    std::size_t wallTriangles = 0;
    for (const auto& mesh : l.model->meshes()) {
        EXPECT_NE(mesh.layer.value(), L"Frozen");
        EXPECT_NE(mesh.layer.value(), L"Off");
        if (mesh.material->name.value() == L"Walls") {
            wallTriangles += mesh.triangles.size();
        }
    }
    EXPECT_EQ(wallTriangles, 2u); // its own face and the door's, drawn on layer "0"
    const auto* walls = l.model->findMaterial(Quark::create(L"Walls"));
    ASSERT_NE(walls, nullptr);
    EXPECT_EQ(walls->attributes.at(L"colour"), L"3");
    EXPECT_EQ(l.model->findMaterial(Quark::create(L"Clay tiles"))->attributes.at(L"source"),
              L"material object");
}

TEST(DXFReader, ThickAndWideOutlinesBecomeSolids) {
    struct Case {
        const char* name;
        DxfBuilder entity;
        std::size_t triangles;
        Extent<3> bounds;
    };
    std::vector<Case> cases;
    {
        DxfBuilder e;
        e.text(0, "LINE").text(8, "L").point(10, 0, 0, 0).point(11, 3, 0, 0).real(39, 2);
        cases.push_back({"line with thickness: one wall", e, 2, Extent<3>({0, 0, 0}, {3, 0, 2})});
    }
    {
        // SOLID corners go 1, 2, 4, 3 round the outline: a 2 by 1 slab 0.5 high.
        DxfBuilder e;
        e.text(0, "SOLID").text(8, "L").point(10, 0, 0, 1).point(11, 2, 0, 1).point(12, 0, 1, 1);
        e.point(13, 2, 1, 1).real(39, 0.5);
        cases.push_back({"solid with thickness: a box", e, 12, Extent<3>({0, 0, 1}, {2, 1, 1.5})});
    }
    {
        DxfBuilder e;
        e.text(0, "TRACE").text(8, "L").point(10, 0, 0, 0).point(11, 2, 0, 0).point(12, 0, 1, 0);
        e.point(13, 2, 1, 0);
        cases.push_back({"flat trace: one quad", e, 2, Extent<3>({0, 0, 0}, {2, 1, 0})});
    }
    {
        // Constant width 0.2 along a 4 long segment: a band from y = -0.1 to 0.1.
        DxfBuilder e;
        e.text(0, "LWPOLYLINE").text(8, "L").int32(90, 2).int16(70, 0).real(43, 0.2);
        e.real(10, 0).real(20, 0).real(10, 4).real(20, 0);
        cases.push_back({"wide polyline: a band", e, 2, Extent<3>({0, -0.1, 0}, {4, 0.1, 0})});
    }
    {
        DxfBuilder e;
        e.text(0, "POLYLINE").text(8, "L").int16(70, 0).real(40, 0.2).real(41, 0.2).real(39, 1);
        e.point(10, 0, 0, 2);
        e.text(0, "VERTEX").text(8, "L").point(10, 0, 0, 0);
        e.text(0, "VERTEX").text(8, "L").point(10, 0, 4, 0);
        e.text(0, "SEQEND");
        cases.push_back(
            {"wide thick 2D polyline: a slab", e, 12, Extent<3>({-0.1, 0, 2}, {0.1, 4, 3})});
    }
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Loaded l = load(entities(c.entity).ascii());
        ASSERT_EQ(l.status, status::ok) << utf8(l.error);
        EXPECT_EQ(l.model->triangleCount(), c.triangles);
        const Extent<3> box = l.model->bounds();
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(box.lo()[k], c.bounds.lo()[k], 1e-12);
            EXPECT_NEAR(box.hi()[k], c.bounds.hi()[k], 1e-12);
        }
    }
}

TEST(DXFReader, MissingFileGivesItsStatus) {
    auto model = TQL::makeHandle<test::GatheredModel>();
    std::wstring error;
    const Status s = readDXF(L"/nonexistent/none.dxf", *model, error);
    EXPECT_EQ(s, status::notFound);
    EXPECT_NE(error.find(L"none.dxf"), std::wstring::npos);
}

} // namespace

namespace {

TEST(DXFReader, SampleHouseLoadsWithItsLayersAndSize) {
    auto model = TQL::makeHandle<test::GatheredModel>();
    std::wstring error;
    DXFReadInfo info;
    const Status s = readDXF(getWCS(QUORVALE_SAMPLES "/house.dxf"), *model, error, {}, &info);
    ASSERT_EQ(s, status::ok) << utf8(error);
    const std::vector<std::wstring> layers = {L"Ground",   L"Floor", L"Walls",   L"Glazing",
                                              L"Doors",    L"Roof",  L"Terrace", L"Furniture",
                                              L"Planters", L"Plants"};
    EXPECT_EQ(info.layers, layers);
    std::set<std::wstring> expected(layers.begin(), layers.end());
    expected.erase(L"Roof");
    expected.insert(L"Roof tiles"); // named by the layer's extended data
    const auto names = materialNames(*model);
    EXPECT_EQ(std::set<std::wstring>(names.begin(), names.end()), expected);
    EXPECT_EQ(model->metresPerUnit(), 1.0);
    // The ground spans the site; the ridge is the highest point.
    EXPECT_EQ(model->bounds(), Extent<3>({-3, -6, 0}, {13, 10, 4.6}));
    EXPECT_GT(model->triangleCount(), 1000u);
    EXPECT_EQ(info.skipped, 0u);
}

} // namespace

namespace {

TEST(DXFReader, HostileDrawingsAreRefusedOrReadWithinBounds) {
    // Drawings kept from robustness work: each gives its error, or reads what it can.
    struct Case {
        const char* file;
        std::wstring error; // empty: reads without error
        std::size_t triangles;
    };
    const Case cases[] = {
        {"binary-cut-in-escape.dxf", L"Error reading group-code at line 9", 0},
        {"binary-unended-text.dxf", L"Error reading group-value at line 8", 0},
        {"block-ring.dxf", L"Block <A> inserts itself at line 43", 0},
        {"huge-mesh-counts.dxf", L"PolygonMesh ends with wrong number of vertices at line 15", 0},
        {"polyface-extreme-index.dxf",
         L"PolyfaceMesh index 1 vertex[9223372036854775808] outside range (0..1) at line 23", 0},
        // Everything overflows to infinity and is left out.
        {"overflowing-numbers.dxf", L"", 0},
        // A zero extrusion counts as +z: a triangular prism; the two-point loop is nothing.
        {"zero-extrusion.dxf", L"", 8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        auto model = TQL::makeHandle<test::GatheredModel>();
        std::wstring error;
        const std::string path = std::string(QUORVALE_INTERCHANGE_FIXTURES "/") + c.file;
        const Status s = readDXF(getWCS(path), *model, error);
        if (c.error.empty()) {
            EXPECT_EQ(s, status::ok) << utf8(error);
        } else {
            EXPECT_EQ(s, status::damaged);
            EXPECT_EQ(error, c.error + L" in " + getWCS(c.file));
        }
        EXPECT_EQ(model->triangleCount(), c.triangles);
        if (model->triangleCount() > 0) {
            EXPECT_TRUE(model->bounds().lo().isFinite() && model->bounds().hi().isFinite());
        }
    }
}

} // namespace
