#include "DxfBuilder.h"
#include "RenderTestSupport.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "interchange/ModelImage.h"
#include "interchange/dxf/DXFReader.h"
#include "support/SyntheticScene.h"
#include "support/TempDir.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>

namespace {

/// The floor and box of test::floorAndBox as flat pieces: the floor material 1, the box 2.
test::SyntheticScene floorAndBoxScene() {
    test::SyntheticScene scene;
    scene.add(Plane(Vector<3>(0, 0, 1), Point<3>::m_origin), 1, Extent<3>({-5, -5, 0}, {5, 5, 0}));
    scene.addBox(Extent<3>({-1, -1, 0}, {1, 1, 2}), 2);
    return scene;
}

struct ViewCase {
    const char* name;
    ModelImageSettings::View view;
    std::int32_t width, height;
    Point<3> eye, target;
};

const ViewCase viewCases[] = {
    {"perspective", ModelImageSettings::View::perspective, 64, 48, {4, -6, 3.5}, {0, 0, 0.8}},
    {"parallel", ModelImageSettings::View::parallel, 64, 48, {4, -6, 3.5}, {0, 0, 0.8}},
    {"cubic", ModelImageSettings::View::cubic, 6 * 32, 32, {2.5, -3, 1}, {2.5, 0, 1}},
};

NewImageParams paramsOf(const ViewCase& c) {
    NewImageParams p;
    p.kind = NewImageKind::model;
    p.width = c.width;
    p.height = c.height;
    p.background = {10, 20, 30};
    p.model.view = c.view;
    p.model.fit = false;
    p.model.eye = c.eye;
    p.model.target = c.target;
    p.model.fieldOfView = 70;
    return p;
}

/// The model made into a document; a failure is reported and gives null.
std::unique_ptr<test::TestDocument> imageOf(const SmoothModelImp& model,
                                            const NewImageParams& params) {
    auto doc = std::make_unique<test::TestDocument>();
    Status s = status::ok;
    std::wstring error;
    makeModelImage(s, *doc, model, params, nullptr, error);
    EXPECT_EQ(s, status::ok) << utf8(error);
    return s == status::ok ? std::move(doc) : nullptr;
}

TEST(ModelImage, DepthCodesAndMaterialsAgreeWithTheDocumentsView) {
    const auto model = test::floorAndBox();
    const test::SyntheticScene scene = floorAndBoxScene();
    for (const ViewCase& c : viewCases) {
        SCOPED_TRACE(c.name);
        const auto image = imageOf(*model, paramsOf(c));
        ASSERT_TRUE(image);
        const test::TestDocument& doc = *image;
        EXPECT_EQ(doc.materialName(1), L"Floor");
        EXPECT_EQ(doc.materialName(2), L"Box");
        const ViewProj& view = *doc.viewProj();

        // What each pixel sees, traced through the document's own view.
        const std::int32_t w = doc.width(), h = doc.height();
        std::vector<int> piece(static_cast<std::size_t>(w) * h);
        std::vector<double> code(piece.size());
        for (std::int32_t y = 0; y < h; ++y) {
            for (std::int32_t x = 0; x < w; ++x) {
                const std::size_t i = static_cast<std::size_t>(y) * w + x;
                piece[i] = scene.trace(view, x, y, code[i]);
            }
        }
        // Away from the outlines, the rendering must agree to one depth code.
        int checked = 0;
        for (std::int32_t y = 1; y + 1 < h; ++y) {
            for (std::int32_t x = 1; x + 1 < w; ++x) {
                const std::size_t i = static_cast<std::size_t>(y) * w + x;
                bool interior = true;
                for (int dy = -1; dy <= 1; ++dy) {
                    for (int dx = -1; dx <= 1; ++dx) {
                        interior = interior && piece[i + dy * w + dx] == piece[i];
                    }
                }
                if (!interior) {
                    continue;
                }
                ++checked;
                const int p = piece[i];
                if (p < 0) {
                    EXPECT_EQ(doc.zAt(x, y), ZBitmap::noDepth) << x << "," << y;
                    EXPECT_EQ(doc.matAt(x, y), 0) << x << "," << y;
                    EXPECT_EQ(doc.rgbAt(x, y), (ColourPOD{10, 20, 30}));
                    continue;
                }
                EXPECT_EQ(doc.matAt(x, y), scene.pieces()[p].material) << x << "," << y;
                EXPECT_NEAR(double(doc.zAt(x, y)), code[i], 1.0) << x << "," << y;
            }
        }
        EXPECT_GT(checked, w * h / 2);
    }
}

TEST(ModelImage, PlaneAtRecoversTheModelsPlanes) {
    const auto model = test::floorAndBox();
    const test::SyntheticScene scene = floorAndBoxScene();
    for (const ViewCase& c : viewCases) {
        SCOPED_TRACE(c.name);
        const auto image = imageOf(*model, paramsOf(c));
        ASSERT_TRUE(image);
        const test::TestDocument& doc = *image;
        const ViewProj& view = *doc.viewProj();
        // At every pixel well inside a piece's image, the plane fitted there is the piece's.
        std::vector<int> tested(scene.pieces().size(), 0);
        for (std::int32_t y = 2; y + 2 < doc.height(); ++y) {
            for (std::int32_t x = 2; x + 2 < doc.width(); ++x) {
                double code = 0;
                const int p = scene.trace(view, x, y, code);
                bool interior = p >= 0;
                for (int d = -2; d <= 2 && interior; ++d) {
                    double other = 0;
                    interior = scene.trace(view, x + d, y, other) == p &&
                               scene.trace(view, x, y + d, other) == p;
                }
                if (!interior) {
                    continue;
                }
                ++tested[p];
                const Plane& truth = scene.pieces()[p].plane;
                const Plane fitted = doc.planeAt(x, y);
                EXPECT_GT(std::fabs(dot(fitted.normal(), truth.normal())), 0.9999) << x << "," << y;
                EXPECT_LT(std::fabs(truth.distanceTo(doc.worldAt(x, y))), 1e-5) << x << "," << y;
            }
        }
        // The floor, and some faces of the box (pieces -x, +x, -y, +y, -z, +z after it).
        EXPECT_GT(tested[0], 20);
        EXPECT_GT(std::count_if(tested.begin() + 1, tested.end(), [](int n) { return n > 0; }), 1)
            << tested[1] << " " << tested[2] << " " << tested[3] << " " << tested[4] << " "
            << tested[6];
    }
}

TEST(ModelImage, AFittedViewHoldsTheWholeModelAndLooksDownOnIt) {
    const auto model = test::floorAndBox();
    for (const ViewCase& c : viewCases) {
        SCOPED_TRACE(c.name);
        ModelImageSettings settings;
        settings.view = c.view;
        const ViewParams params = modelViewParams(*model, settings, c.width, c.height);
        const ViewProj view(params, c.width, c.height);
        if (c.view == ModelImageSettings::View::cubic) {
            EXPECT_DOUBLE_EQ(params.eye.z(), 1.6); // metres above the lowest point
        } else {
            // From above: the view runs downwards, between 12 and 45 degrees.
            const Vector<3> z = params.zAxis.unit();
            const double down = -std::asin(z.z()) * 180 / 3.14159265358979323846;
            EXPECT_GE(down, 12 - 1e-9);
            EXPECT_LE(down, 45 + 1e-9);
        }
        // Every point of the model, on a pixel of the image, at a depth the codes hold; and
        // the model fills the frame across or down, less the margin.
        double lox = INFINITY, hix = -INFINITY, loy = INFINITY, hiy = -INFINITY;
        for (const SmoothModelImp::Mesh& mesh : model->meshes()) {
            for (const Point<3>& point : mesh.points) {
                const Point<3> p = view.pixelFromWorld(point);
                EXPECT_GE(p.x(), 0);
                EXPECT_LE(p.x(), c.width - 1);
                EXPECT_GE(p.y(), 0);
                EXPECT_LE(p.y(), c.height - 1);
                EXPECT_GE(p.z(), 0);
                EXPECT_LE(p.z(), 4294967294.0);
                lox = std::min(lox, p.x());
                hix = std::max(hix, p.x());
                loy = std::min(loy, p.y());
                hiy = std::max(hiy, p.y());
            }
        }
        if (c.view != ModelImageSettings::View::cubic) {
            EXPECT_TRUE(hix - lox > 0.85 * (c.width - 1) || hiy - loy > 0.85 * (c.height - 1));
        }
    }
    // The steepest view is for a flat model, a lower one for a tall model.
    auto flat = TQL::makeHandle<SmoothModelImp>();
    flat->addPolygon(Quark::create(L"F"),
                     std::vector<Point<3>>{{0, 0, 0}, {50, 0, 0}, {50, 50, 0}, {0, 50, 0}});
    flat->finish();
    auto tall = TQL::makeHandle<SmoothModelImp>();
    tall->addPolygon(Quark::create(L"T"),
                     std::vector<Point<3>>{{0, 0, 0}, {5, 0, 0}, {5, 0, 100}, {0, 0, 100}});
    tall->finish();
    const ViewParams flatView = modelViewParams(*flat, ModelImageSettings(), 40, 30);
    const ViewParams tallView = modelViewParams(*tall, ModelImageSettings(), 40, 30);
    EXPECT_NEAR(flatView.zAxis.unit().z(), -std::sin(45 * 3.14159265358979323846 / 180), 1e-9);
    EXPECT_GT(tallView.zAxis.unit().z(), -std::sin(20 * 3.14159265358979323846 / 180));
    // A panorama of a model in millimetres stands its eye at 1600 units.
    ModelImageSettings cubic;
    cubic.view = ModelImageSettings::View::cubic;
    flat->setMetresPerUnit(0.001);
    EXPECT_DOUBLE_EQ(modelViewParams(*flat, cubic, 6 * 20, 20).eye.z(), 1600);
}

class Abandon : public Reporter {
public:
    bool report(unsigned, unsigned, double) override { return true; }
};

TEST(ModelImage, FailuresLeaveTheDocumentEmpty) {
    const auto model = test::floorAndBox();
    const auto empty = TQL::makeHandle<SmoothModelImp>();
    NewImageParams cube = paramsOf(viewCases[2]);
    cube.width = 100;
    std::vector<std::array<Point<2>, 3>> many;
    auto big = TQL::makeHandle<SmoothModelImp>();
    for (int i = 0; i < 100; ++i) {
        big->addPolygon(
            Quark::create(L"F"),
            std::vector<Point<3>>{{0, 0, i * 0.01}, {1, 0, i * 0.01}, {1, 1, i * 0.01}});
    }
    big->finish();
    Abandon abandon;
    struct Case {
        const char* name;
        const SmoothModelImp* model;
        NewImageParams params;
        Reporter* progress;
        Status status;
    };
    const Case cases[] = {
        {"panorama not six faces wide", model.get(), cube, nullptr, status::noConversion},
        {"nothing to draw", empty.get(), paramsOf(viewCases[0]), nullptr, status::noConversion},
        {"stopped", big.get(), paramsOf(viewCases[0]), &abandon, status::stopped},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto doc = test::makeTestDocument(8, 8);
        Status s = status::ok;
        std::wstring error;
        makeModelImage(s, *doc, *c.model, c.params, c.progress, error);
        EXPECT_EQ(s, c.status);
        EXPECT_FALSE(error.empty());
        EXPECT_TRUE(doc->rgb.isNull());
        EXPECT_TRUE(doc->materials().empty());
    }
}

/// A floor face and a box as a polyface mesh on two layers, with a layer table.
DxfBuilder floorAndBoxDrawing() {
    DxfBuilder b;
    b.section("TABLES").text(0, "TABLE").text(2, "LAYER");
    for (const auto& [layer, colour] : {std::pair<const char*, int>{"Ground", 83}, {"Box", 12}}) {
        b.text(0, "LAYER").text(2, layer).int16(70, 0).int16(62, colour);
    }
    b.text(0, "ENDTAB").endsec();
    b.section("ENTITIES");
    b.face3d("Ground", {{-5, -5, 0}, {5, -5, 0}, {5, 5, 0}, {-5, 5, 0}});
    b.polyline("Box", 64, 8, 6);
    for (int i = 0; i < 8; ++i) {
        b.vertex("Box", i & 1 ? 1 : -1, i & 2 ? 1 : -1, i & 4 ? 2 : 0, 192);
    }
    const std::vector<std::vector<int>> faces = {{1, 3, 4, 2}, {5, 6, 8, 7}, {1, 2, 6, 5},
                                                 {3, 7, 8, 4}, {1, 5, 7, 3}, {2, 4, 8, 6}};
    for (const auto& f : faces) {
        b.faceRecord("Box", f);
    }
    b.text(0, "SEQEND").text(8, "Box");
    b.endsec().eof();
    return b;
}

TEST(ModelImage, TextAndBinaryDrawingsMakeTheSameImage) {
    const DxfBuilder drawing = floorAndBoxDrawing();
    std::vector<std::unique_ptr<test::TestDocument>> docs;
    for (const std::string& data : {drawing.ascii(), drawing.binary(false), drawing.binary(true)}) {
        auto model = TQL::makeHandle<SmoothModelImp>();
        std::wstring error;
        ASSERT_EQ(readDXF(bytesOf(data), L"box.dxf", *model, error), status::ok) << utf8(error);
        NewImageParams params = paramsOf(viewCases[0]);
        params.model.fit = true;
        auto doc = imageOf(*model, params);
        ASSERT_TRUE(doc);
        docs.push_back(std::move(doc));
    }
    const test::TestDocument& text = *docs[0];
    EXPECT_EQ(text.materialName(1), L"Ground");
    EXPECT_EQ(text.materialName(2), L"Box");
    EXPECT_EQ(text.materialColour(2), (ColourPOD{0, 0, 165}));
    int drawn = 0;
    for (std::size_t k = 1; k < docs.size(); ++k) {
        const test::TestDocument& other = *docs[k];
        EXPECT_EQ(other.viewParams(), text.viewParams());
        for (std::int32_t y = 0; y < text.height(); ++y) {
            for (std::int32_t x = 0; x < text.width(); ++x) {
                ASSERT_EQ(other.zAt(x, y), text.zAt(x, y)) << k << ": " << x << "," << y;
                ASSERT_EQ(other.matAt(x, y), text.matAt(x, y));
                ASSERT_EQ(other.rgbAt(x, y), text.rgbAt(x, y));
                drawn += text.zAt(x, y) != ZBitmap::noDepth;
            }
        }
    }
    EXPECT_GT(drawn, 100);
}

/// Keeps what the commands say.
class Messages : public CommandMessages {
public:
    void message(std::int32_t id, const std::wstring& text) override { said.push_back({id, text}); }
    void progressText(std::int32_t, const std::wstring&) override {}
    std::vector<std::pair<std::int32_t, std::wstring>> said;
};

/// The commands a file library would give: here, only a plain new image.
class PlainCommands : public DocumentCommands {
public:
    void newImage(Status& status, ZmapDocument& document, const NewImageParams& params) override {
        makePlainImage(status, document, params);
    }
    void open(Status& status, ZmapDocument&, const std::wstring&) override { status = -7; }
    void save(Status& status, ZmapDocument&) override { status = -7; }
    void saveAs(Status& status, ZmapDocument&, const std::wstring&) override { status = -7; }
    void revert(Status& status, ZmapDocument&) override { status = -7; }
    void importChannel(Status& status, ZmapDocument&, const ChannelImportArgument&) override {
        status = -7;
    }
};

TEST(ModelImage, TheNewCommandReadsAndRendersADrawing) {
    test::TempDir dir;
    const std::string text = floorAndBoxDrawing().ascii();
    const std::string good = dir.file("box.dxf");
    const std::string cut = dir.file("cut.dxf");
    std::ofstream(good) << text;
    std::ofstream(cut) << text.substr(0, text.size() / 2);

    PlainCommands files;
    ModelDocumentCommands commands(files);
    Messages messages;
    test::TestDocument doc;
    doc.editor.setCommands(&commands);
    doc.editor.setMessages(&messages);

    NewImageParams params = paramsOf(viewCases[0]);
    params.sourcePath = getWCS(good);
    Status s = status::ok;
    doc.editor.execute(s, commandNew, params);
    ASSERT_EQ(s, status::ok);
    EXPECT_EQ(doc.width(), 64);
    EXPECT_EQ(doc.materialName(2), L"Box");
    EXPECT_TRUE(messages.said.empty());

    // A drawing cut short: the reader's text, with its line, in message 10700.
    params.sourcePath = getWCS(cut);
    doc.editor.execute(s, commandNew, params);
    EXPECT_EQ(s, status::damaged);
    ASSERT_EQ(messages.said.size(), 1u);
    EXPECT_EQ(messages.said[0].first, messageModelFailed);
    EXPECT_NE(messages.said[0].second.find(L"at line"), std::wstring::npos)
        << utf8(messages.said[0].second);
    EXPECT_NE(messages.said[0].second.find(L"cut.dxf"), std::wstring::npos);
    EXPECT_TRUE(doc.rgb.isNull());

    // Other kinds go to the wrapped commands.
    params.kind = NewImageKind::plain;
    doc.editor.execute(s, commandNew, params);
    EXPECT_EQ(s, status::ok);
    EXPECT_TRUE(doc.materials().empty());
}

} // namespace
