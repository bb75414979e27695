// Drawings as other CAD programs write them, rendered with the default settings, must come
// out readable: the model over a good part of the frame and clearly apart from the sky.

#include "DxfBuilder.h"

#include "core/StringUtils.h"
#include "interchange/ModelImage.h"
#include "interchange/dxf/DXFReader.h"
#include "interchange/render/SmoothModelImp.h"
#include "support/TempDir.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <functional>

namespace {

using Corner = std::array<double, 3>;

/// A drawing as a CAD program writes it: a header with the version and units, a layer
/// table (every layer colour 7, white on screen), and entities with their handles and
/// subclass markers, which the reader passes over.
class CadDrawing {
public:
    CadDrawing() {
        header_.section("HEADER")
            .text(9, "$ACADVER")
            .text(1, "AC1015")
            .text(9, "$INSUNITS")
            .int16(70, 6)
            .text(9, "$EXTMIN")
            .point(10, 0, 0, 0)
            .endsec();
    }

    CadDrawing& layer(const std::string& name, int colour = 7) {
        layers_.text(0, "LAYER")
            .text(5, handle())
            .text(100, "AcDbSymbolTableRecord")
            .text(100, "AcDbLayerTableRecord")
            .text(2, name)
            .int16(70, 0)
            .int16(62, colour)
            .text(6, "Continuous");
        ++layerCount_;
        return *this;
    }

    /// A 3DFACE; a triangle repeats its third corner as the fourth.
    CadDrawing& face(const std::string& layer, Corner a, Corner b, Corner c, Corner d) {
        entities_.text(0, "3DFACE")
            .text(5, handle())
            .text(330, "1F")
            .text(100, "AcDbEntity")
            .text(8, layer)
            .text(100, "AcDbFace")
            .point(10, a[0], a[1], a[2])
            .point(11, b[0], b[1], b[2])
            .point(12, c[0], c[1], c[2])
            .point(13, d[0], d[1], d[2]);
        return *this;
    }

    /// A box's walls and roof as 3DFACEs, as a modeller exports a solid.
    CadDrawing& box(const std::string& layer, Corner lo, Corner hi) {
        const double x0 = lo[0], y0 = lo[1], z0 = lo[2], x1 = hi[0], y1 = hi[1], z1 = hi[2];
        face(layer, {x0, y0, z0}, {x1, y0, z0}, {x1, y0, z1}, {x0, y0, z1});
        face(layer, {x1, y0, z0}, {x1, y1, z0}, {x1, y1, z1}, {x1, y0, z1});
        face(layer, {x1, y1, z0}, {x0, y1, z0}, {x0, y1, z1}, {x1, y1, z1});
        face(layer, {x0, y1, z0}, {x0, y0, z0}, {x0, y0, z1}, {x0, y1, z1});
        return face(layer, {x0, y0, z1}, {x1, y0, z1}, {x1, y1, z1}, {x0, y1, z1});
    }

    /// A polyface mesh of a grid of n x n points given by `at`, as terrain modellers write
    /// it.
    CadDrawing& terrain(const std::string& layer, int n,
                        const std::function<Corner(int, int)>& at) {
        entities_.text(0, "POLYLINE")
            .text(5, handle())
            .text(100, "AcDbEntity")
            .text(8, layer)
            .text(100, "AcDbPolyFaceMesh")
            .int16(66, 1)
            .point(10, 0, 0, 0)
            .int16(70, 64)
            .int16(71, n * n)
            .int16(72, (n - 1) * (n - 1));
        for (int j = 0; j < n; ++j) {
            for (int i = 0; i < n; ++i) {
                const Corner p = at(i, j);
                entities_.vertex(layer, p[0], p[1], p[2], 192);
            }
        }
        for (int j = 0; j + 1 < n; ++j) {
            for (int i = 0; i + 1 < n; ++i) {
                const int a = j * n + i + 1;
                entities_.faceRecord(layer, {a, a + 1, a + n + 1, a + n});
            }
        }
        entities_.text(0, "SEQEND").text(8, layer);
        return *this;
    }

    CadDrawing& line(const std::string& layer, Corner a, Corner b) {
        entities_.text(0, "LINE")
            .text(5, handle())
            .text(100, "AcDbEntity")
            .text(8, layer)
            .text(100, "AcDbLine")
            .point(10, a[0], a[1], a[2])
            .point(11, b[0], b[1], b[2]);
        return *this;
    }

    std::string text() const {
        DxfBuilder d;
        d.append(header_)
            .section("TABLES")
            .text(0, "TABLE")
            .text(2, "LAYER")
            .int16(70, layerCount_)
            .append(layers_)
            .text(0, "ENDTAB")
            .endsec()
            .section("ENTITIES")
            .append(entities_)
            .endsec()
            .eof();
        return d.ascii(true);
    }

private:
    std::string handle() {
        char text[16];
        std::snprintf(text, sizeof text, "%X", 0x20 + next_++);
        return text;
    }

    DxfBuilder header_, layers_, entities_;
    int layerCount_ = 0;
    int next_ = 0;
};

/// A site plan: a flat grid of paving slabs, all at one level.
std::string sitePlan() {
    CadDrawing d;
    d.layer("0").layer("PAVING");
    for (int j = 0; j < 8; ++j) {
        for (int i = 0; i < 12; ++i) {
            const double x = i * 6.0, y = j * 6.0;
            d.face("PAVING", {x, y, 0}, {x + 5.8, y, 0}, {x + 5.8, y + 5.8, 0}, {x, y + 5.8, 0});
        }
    }
    return d.text();
}

/// A long low building: 240 m by 14 m, 9 m high, in bays.
std::string longBuilding() {
    CadDrawing d;
    d.layer("0").layer("A-WALL");
    for (int bay = 0; bay < 12; ++bay) {
        d.box("A-WALL", {bay * 20.0, 0, 0}, {bay * 20.0 + 20, 14, 9});
    }
    return d.text();
}

/// A tower 9 m square and 150 m high, in storeys.
std::string tower() {
    CadDrawing d;
    d.layer("0").layer("TOWER");
    for (int storey = 0; storey < 30; ++storey) {
        d.box("TOWER", {0, 0, storey * 5.0}, {9, 9, storey * 5.0 + 5});
    }
    return d.text();
}

/// A terrain mesh in map coordinates, half a million metres from the origin.
std::string farTerrain() {
    CadDrawing d;
    d.layer("0").layer("C-TOPO");
    d.terrain("C-TOPO", 16, [](int i, int j) {
        return Corner{512300.0 + i * 10, 4190500.0 + j * 10,
                      310 + 6 * std::sin(i * 0.4) * std::cos(j * 0.3)};
    });
    return d.text();
}

/// A plan of lines only, as a draughtsman's floor plan.
std::string linesOnly() {
    CadDrawing d;
    d.layer("0").layer("A-WALL");
    d.line("A-WALL", {0, 0, 0}, {10, 0, 0})
        .line("A-WALL", {10, 0, 0}, {10, 8, 0})
        .line("A-WALL", {10, 8, 0}, {0, 8, 0})
        .line("A-WALL", {0, 8, 0}, {0, 0, 0});
    return d.text();
}

class Messages : public CommandMessages {
public:
    void message(std::int32_t id, const std::wstring& text) override { said.push_back({id, text}); }
    void progressText(std::int32_t, const std::wstring&) override {}
    std::vector<std::pair<std::int32_t, std::wstring>> said;
};

class NoFiles : public DocumentCommands {
public:
    void newImage(Status& status, ZmapDocument&, const NewImageParams&) override { status = -7; }
    void open(Status& status, ZmapDocument&, const std::wstring&) override { status = -7; }
    void save(Status& status, ZmapDocument&) override { status = -7; }
    void saveAs(Status& status, ZmapDocument&, const std::wstring&) override { status = -7; }
    void revert(Status& status, ZmapDocument&) override { status = -7; }
    void importChannel(Status& status, ZmapDocument&, const ChannelImportArgument&) override {
        status = -7;
    }
};

/// The drawing made into a document by the new command with default settings.
struct Rendered {
    Status status = status::ok;
    std::vector<std::pair<std::int32_t, std::wstring>> messages;
    std::unique_ptr<test::TestDocument> doc;
};

Rendered render(const std::string& drawing, std::int32_t w, std::int32_t h) {
    test::TempDir dir;
    const std::string path = dir.file("drawing.dxf");
    std::ofstream(path, std::ios::binary) << drawing;
    NoFiles files;
    ModelDocumentCommands commands(files);
    Messages messages;
    Rendered r;
    r.doc = std::make_unique<test::TestDocument>();
    r.doc->editor.setCommands(&commands);
    r.doc->editor.setMessages(&messages);
    NewImageParams params;
    params.kind = NewImageKind::model;
    params.width = w;
    params.height = h;
    params.background = modelSky;
    params.sourcePath = getWCS(path);
    r.doc->editor.execute(r.status, commandNew, params);
    r.messages = messages.said;
    return r;
}

double brightness(ColourPOD c) {
    return (c.r + c.g + c.b) / 3.0;
}

TEST(ReadableDrawing, DrawingsOfOtherProgramsFillTheFrameApartFromTheSky) {
    struct Case {
        const char* name;
        std::string drawing;
    };
    const Case cases[] = {{"flat site plan", sitePlan()},
                          {"long building", longBuilding()},
                          {"tall tower", tower()},
                          {"terrain far from the origin", farTerrain()}};
    const std::int32_t w = 160, h = 120;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Rendered r = render(c.drawing, w, h);
        ASSERT_EQ(r.status, status::ok) << (r.messages.empty() ? "" : utf8(r.messages[0].second));
        double model = 0, sky = 0;
        std::int64_t modelPixels = 0, skyPixels = 0;
        for (std::int32_t y = 0; y < h; ++y) {
            for (std::int32_t x = 0; x < w; ++x) {
                const double b = brightness(r.doc->rgbAt(x, y));
                if (r.doc->zAt(x, y) != depth::noDepth) {
                    model += b;
                    ++modelPixels;
                } else {
                    sky += b;
                    ++skyPixels;
                }
            }
        }
        // The model covers at least a twentieth of the frame, and is not all of it.
        EXPECT_GE(modelPixels * 20, std::int64_t(w) * h);
        ASSERT_GT(skyPixels, 0);
        EXPECT_GE(std::fabs(model / modelPixels - sky / skyPixels), 25)
            << "model " << model / modelPixels << ", sky " << sky / skyPixels;
    }
}

TEST(ReadableDrawing, ADrawingOfLinesOnlyIsRefusedWithItsReason) {
    const Rendered r = render(linesOnly(), 64, 48);
    EXPECT_EQ(r.status, status::noConversion);
    ASSERT_EQ(r.messages.size(), 1u);
    EXPECT_EQ(r.messages[0].first, messageModelFailed);
    EXPECT_NE(r.messages[0].second.find(L"lines but no faces"), std::wstring::npos)
        << utf8(r.messages[0].second);
    EXPECT_TRUE(r.doc->rgb.isNull());
}

TEST(ReadableDrawing, ColourSevenIsDrawnDarkAsOnPaper) {
    // White on screen, black on paper: its faces are dark against the pale sky.
    CadDrawing d;
    d.layer("0").layer("SLAB");
    d.face("SLAB", {0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0});
    const Rendered r = render(d.text(), 64, 48);
    ASSERT_EQ(r.status, status::ok);
    ASSERT_NE(r.doc->zAt(32, 24), depth::noDepth);
    EXPECT_LT(brightness(r.doc->rgbAt(32, 24)), 100);
    EXPECT_GT(brightness(r.doc->rgbAt(32, 24)), 20); // still shaded, not black
}

} // namespace
