// Hand-made files, built byte by byte in either byte order, against the reader's rules:
// what it takes in, how it places pixels, and what it refuses.

#include "ZmapTestFiles.h"

#include "core/StringUtils.h"
#include "file/QuorvaleZmapFile.h"
#include "file/ZmapDocumentFile.h"
#include "file/ZmapFile.h"
#include "support/TempDir.h"
#include "views/cameras/FaceSize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <optional>

using namespace zmap_test;

namespace {

// The image of the hand-made files: 5 x 3 pixels, every value distinct in each byte.
constexpr std::uint32_t W = 5;
constexpr std::uint32_t H = 3;

ColourPOD colourAt(std::uint32_t x, std::uint32_t y) {
    return ColourPOD{static_cast<std::uint8_t>(7 + x + y), static_cast<std::uint8_t>(20 * y + 2),
                     static_cast<std::uint8_t>(10 * x + 1)};
}
std::uint32_t depthAt(std::uint32_t x, std::uint32_t y) {
    // Steps along a row carry from byte to byte, which shows a predictor of the wrong order.
    return 0x10000000u + 0x01000000u * y + 0x00FF80FFu * x;
}
std::uint16_t materialAt(std::uint32_t x, std::uint32_t y) {
    return static_cast<std::uint16_t>((x + 1) * 256 + y);
}

/// How the blocks of the hand-made sections are laid out.
struct Layout {
    bool big = false;
    bool strips = false;           ///< strips of 2 rows, else tiles of 4 x 4
    std::uint16_t compression = 1; ///< 5: LZW, with differencing for colour and depth
};

void layBlocks(HandSection& s, const Layout& l, std::uint32_t predictBytes) {
    if (l.strips) {
        s.rowsPerStrip = 2;
    } else {
        s.tileWidth = s.tileLength = 4;
    }
    s.compression = l.compression;
    s.predictSampleBytes = l.compression == 5 ? predictBytes : 0;
}

HandSection colourSection(const Layout& l, std::uint32_t w = W, std::uint32_t h = H) {
    HandSection s;
    s.kind = 0;
    s.width = w;
    s.height = h;
    for (std::uint32_t y = 0; y < h; ++y) {
        for (std::uint32_t x = 0; x < w; ++x) {
            const ColourPOD c = colourAt(x, y);
            s.pixels.insert(s.pixels.end(), {c.r, c.g, c.b});
        }
    }
    layBlocks(s, l, 1);
    return s;
}

/// The camera record of the flat files: a parallel view with every field distinct.
ViewParams fileView() {
    ViewParams v;
    v.projection = 1;
    v.viewCode = ViewParams::parallelCode;
    v.eye = Point<3>(1, 2, 3);
    v.shear = Vector<3>(0.1, 0.2, 1);
    v.windowLo = Point<3>(-2, 1.5, 1);
    v.windowHi = Point<3>(2, -1.5, 1);
    v.nearDepth = 0.5;
    v.farDepth = 500;
    v.modelScale = 2;
    v.unitCode = 7;
    v.target = v.eye; // what the reader makes of a flat record
    v.angle = 0;
    return v;
}

HandSection depthSection(const TiffBuilder& f, const Layout& l, std::uint32_t w = W,
                         std::uint32_t h = H) {
    HandSection s;
    s.kind = 1;
    s.privateData = cameraRecord(f, fileView());
    s.width = w;
    s.height = h;
    s.bytesPerPixel = 4;
    s.bits = {32};
    s.photometric = -1;
    s.samples = 1;
    for (std::uint32_t y = 0; y < h; ++y) {
        for (std::uint32_t x = 0; x < w; ++x) {
            f.put32(s.pixels, depthAt(x, y));
        }
    }
    layBlocks(s, l, 4);
    return s;
}

HandSection materialSection(const TiffBuilder& f, const Layout& l, bool eightBit = false) {
    HandSection s;
    s.kind = 2;
    s.privateData = Bytes(8, 0); // no materials
    s.width = W;
    s.height = H;
    s.bytesPerPixel = eightBit ? 1 : 2;
    s.bits = {static_cast<std::uint16_t>(eightBit ? 8 : 16)};
    s.photometric = -1;
    s.samples = 1;
    for (std::uint32_t y = 0; y < H; ++y) {
        for (std::uint32_t x = 0; x < W; ++x) {
            if (eightBit) {
                s.pixels.push_back(static_cast<std::uint8_t>(materialAt(x, y)));
            } else {
                f.put16(s.pixels, materialAt(x, y));
            }
        }
    }
    layBlocks(s, l, 0);
    return s;
}

using Adjust = std::function<void(TiffBuilder&, std::vector<HandSection>&)>;

/// A file of colour and depth, changed by `adjust` before it is built.
Bytes makeFile(const Layout& l, const Adjust& adjust = {}) {
    TiffBuilder f(l.big);
    std::vector<HandSection> sections = {colourSection(l), depthSection(f, l)};
    if (adjust) {
        adjust(f, sections);
    }
    for (const HandSection& s : sections) {
        addSection(f, s);
    }
    return f.build();
}

void expectFilePixels(const ZmapDocument& doc, bool material) {
    ASSERT_EQ(doc.width(), static_cast<std::int32_t>(W));
    ASSERT_EQ(doc.height(), static_cast<std::int32_t>(H));
    for (std::uint32_t y = 0; y < H; ++y) {
        for (std::uint32_t x = 0; x < W; ++x) {
            const auto ix = static_cast<std::int32_t>(x);
            const auto iy = static_cast<std::int32_t>(y);
            EXPECT_EQ(doc.rgbAt(ix, iy), colourAt(x, y)) << x << "," << y;
            EXPECT_EQ(doc.zAt(ix, iy), depthAt(x, y)) << x << "," << y;
            if (material) {
                EXPECT_EQ(doc.matAt(ix, iy), materialAt(x, y)) << x << "," << y;
            }
        }
    }
}

/// Private data of a material table of `revision`, its nodes stored last to first.
struct Node {
    std::uint16_t id;
    std::string name;
    std::string library;
    std::string style;
    std::uint8_t flag;
};
std::function<Bytes(TiffBuilder&)> materialTable(std::uint16_t revision, std::vector<Node> nodes,
                                                 std::optional<std::int32_t> count = {},
                                                 bool loop = false) {
    return [=](TiffBuilder& f) {
        std::uint32_t next = 0;
        for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) {
            Bytes node;
            f.put32(node, loop ? f.nextData() : next);
            f.put16(node, it->id);
            node.insert(node.end(), {static_cast<std::uint8_t>(it->id), 20, 30});
            for (const std::string* text : {&it->name, &it->library, &it->style}) {
                if (text == &it->name || revision >= 2) {
                    node.insert(node.end(), text->begin(), text->end());
                    node.push_back(0);
                }
            }
            if (revision >= 3) {
                node.push_back(it->flag);
            }
            next = f.data(node);
        }
        Bytes table;
        f.put32(table, static_cast<std::uint32_t>(count.value_or(std::int32_t(nodes.size()))));
        f.put32(table, next);
        return table;
    };
}

/// Colour private data of revision 2 or more: compression, then a block of `type`.
std::function<Bytes(TiffBuilder&)> colourData(std::uint32_t compression, std::uint16_t type,
                                              const std::string& block,
                                              std::uint32_t endShift = 0) {
    return [=](TiffBuilder& f) {
        Bytes out;
        f.put32(out, compression);
        f.put16(out, type);
        f.put16(out, 3);
        if (type != 0) {
            // The header (8 bytes) and these 12 come before the block.
            f.put32(out,
                    f.nextData() + 8 + 12 + static_cast<std::uint32_t>(block.size()) + endShift);
            f.put32(out, static_cast<std::uint32_t>(block.size()));
            out.insert(out.end(), block.begin(), block.end());
        }
        return out;
    };
}

TEST(ZmapReader, FileOfColourAndDepthAloneOpensWithDefaults) {
    Status status = -1;
    auto doc = readDocument(makeFile(Layout{}), status);
    ASSERT_EQ(status, status::ok);
    expectFilePixels(*doc, false);
    EXPECT_EQ(doc->viewParams(), fileView());
    EXPECT_TRUE(doc->materials().empty());
    EXPECT_EQ(doc->matAt(1, 1), 0);
    for (std::int32_t i = 0; i < doc->geometry().tileCount(); ++i) {
        EXPECT_TRUE(doc->originalRgb->sharesTile(i, *doc->rgb));
        EXPECT_TRUE(doc->originalZ->sharesTile(i, *doc->z));
    }
    EXPECT_FLOAT_EQ(doc->xResolution, 3779.5276f);
    EXPECT_EQ(doc->compression, 5); // revision 0 of the colour section
    EXPECT_EQ(doc->readOnly, 0);
}

TEST(ZmapReader, BigEndianFilesReadLikeTheirLittleEndianTwins) {
    const Layout layouts[] = {
        {false, false, 1}, {false, true, 1}, {false, false, 5}, {false, true, 5}};
    for (Layout l : layouts) {
        SCOPED_TRACE(testing::Message()
                     << "strips " << l.strips << ", compression " << l.compression);
        const Adjust everything = [&](TiffBuilder& f, std::vector<HandSection>& s) {
            s[0].revision = 3;
            s[0].makePrivateData = colourData(1, 1, "block of cut-outs");
            s[0].extra = {f.text(270, "described"), f.text(315, "Al")};
            s.push_back(materialSection(f, l));
            s.back().revision = 3;
            s.back().makePrivateData = materialTable(
                3, {{4, "Floor", "lib", "style", 1}, {9, "Wall \xc3\xa9", "", "", 0}});
        };
        Status status = -1;
        auto little = readDocument(makeFile(l, everything), status);
        ASSERT_EQ(status, status::ok);
        l.big = true;
        auto big = readDocument(makeFile(l, everything), status);
        ASSERT_EQ(status, status::ok);
        expectFilePixels(*big, true);
        expectSameDocument(*little, *big);
        EXPECT_EQ(big->description, L"described");
        EXPECT_EQ(big->artist, L"Al");
        EXPECT_EQ(big->materialName(9), L"Wall \u00e9");
        EXPECT_EQ(big->materialHotLink(4), (MatHotLink{L"lib", L"style", 1}));
        EXPECT_EQ(big->materialColour(9), (ColourPOD{30, 20, 9}));
        EXPECT_EQ(big->compression, 1);
        EXPECT_EQ(std::string(big->cutoutBlock.begin(), big->cutoutBlock.end()),
                  "block of cut-outs");
        EXPECT_EQ(big->cutoutBlockItems, 3);
    }
}

TEST(ZmapReader, OtherPixelLayoutsAreConverted) {
    // Grey colour becomes three equal bytes; 8-bit material ids are widened.
    Status status = -1;
    auto doc = readDocument(makeFile(Layout{false, true, 5},
                                     [](TiffBuilder& f, std::vector<HandSection>& s) {
                                         HandSection& c = s[0];
                                         c.bits = {8};
                                         c.samples = 1;
                                         c.photometric = 1;
                                         c.bytesPerPixel = 1;
                                         c.pixels.clear();
                                         for (std::uint32_t i = 0; i < W * H; ++i) {
                                             c.pixels.push_back(static_cast<std::uint8_t>(i * 9));
                                         }
                                         c.predictSampleBytes = 1;
                                         s.push_back(materialSection(f, Layout{}, true));
                                     }),
                            status);
    ASSERT_EQ(status, status::ok);
    const auto g = static_cast<std::uint8_t>((2 * W + 3) * 9);
    EXPECT_EQ(doc->rgbAt(3, 2), (ColourPOD{g, g, g}));
    EXPECT_EQ(doc->matAt(4, 2), static_cast<std::uint16_t>(materialAt(4, 2) & 0xFF));
}

TEST(ZmapReader, TextsFollowTheirLengthSectionAndRevision) {
    struct Case {
        const char* name;
        std::uint16_t colourRevision;
        std::string colourText; ///< none when empty
        std::string depthText;
        bool depthFirst;
        std::wstring expected;
    };
    const Case cases[] = {
        {"three bytes in the value field", 3, "abc", "", false, L"abc"},
        {"four bytes at an offset", 3, "abcd", "", false, L"abcd"},
        {"UTF-8 from revision 3", 3, "caf\xc3\xa9", "", false, L"caf\u00e9"},
        {"code page before revision 3", 2, "caf\xe9 \x80", "", false, L"caf\u00e9 \u20ac"},
        {"depth section's text when colour has none", 3, "", "d\xe9pth", false, L"d\u00e9pth"},
        {"colour's text is kept over a later one", 3, "colour", "depth", false, L"colour"},
        {"colour's text replaces an earlier one", 3, "colour", "depth", true, L"colour"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Status status = -1;
        auto doc = readDocument(makeFile(Layout{},
                                         [&](TiffBuilder& f, std::vector<HandSection>& s) {
                                             s[0].revision = c.colourRevision;
                                             s[0].makePrivateData = colourData(5, 0, "");
                                             if (!c.colourText.empty()) {
                                                 s[0].extra.push_back(f.text(305, c.colourText));
                                             }
                                             if (!c.depthText.empty()) {
                                                 s[1].extra.push_back(f.text(305, c.depthText));
                                             }
                                             if (c.depthFirst) {
                                                 std::swap(s[0], s[1]);
                                             }
                                         }),
                                status);
        ASSERT_EQ(status, status::ok);
        EXPECT_EQ(doc->software, c.expected);
    }
}

TEST(ZmapReader, ColourPrivateDataByRevision) {
    struct Case {
        const char* name;
        std::uint16_t revision;
        std::function<Bytes(TiffBuilder&)> data;
        Status expected;
        std::int32_t compression;
        std::string block;
    };
    const auto raw = [](std::uint32_t compression) {
        return [=](TiffBuilder& f) {
            Bytes out;
            f.put32(out, compression);
            return out;
        };
    };
    const Case cases[] = {
        {"revision 0 means LZW", 0, {}, status::ok, 5, ""},
        {"revision 1 stored", 1, raw(1), status::ok, 1, ""},
        {"unknown compression", 1, raw(7), status::ok, 0, ""},
        {"cut-out block kept", 2, colourData(5, 1, "cut-outs"), status::ok, 5, "cut-outs"},
        {"other block skipped", 2, colourData(5, 2, "other"), status::ok, 5, ""},
        {"block end beyond the file", 2, colourData(5, 1, "cut", 100000), status::damaged, 0, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Status status = -1;
        auto doc = readDocument(makeFile(Layout{},
                                         [&](TiffBuilder&, std::vector<HandSection>& s) {
                                             s[0].revision = c.revision;
                                             s[0].makePrivateData = c.data;
                                         }),
                                status);
        ASSERT_EQ(status, c.expected);
        if (status == status::ok) {
            EXPECT_EQ(doc->compression, c.compression);
            EXPECT_EQ(doc->savedCompression, c.compression);
            EXPECT_EQ(std::string(doc->cutoutBlock.begin(), doc->cutoutBlock.end()), c.block);
        }
    }
}

TEST(ZmapReader, MaterialTablesOfEachRevision) {
    struct Case {
        const char* name;
        std::uint16_t revision;
        std::function<Bytes(TiffBuilder&)> table;
        std::vector<std::pair<std::uint16_t, std::wstring>> names;
        MatHotLink link; ///< of the first
    };
    // Revision 0 texts are in the code page, later ones in UTF-8.
    const std::vector<Node> two = {{3, "M\xc3\xa9tal", "L", "S", 1}, {5, "Wood", "", "", 0}};
    const std::vector<Node> twoOld = {{3, "M\xe9tal", "L", "S", 1}, {5, "Wood", "", "", 0}};
    const Case cases[] = {
        {"revision 0 in the code page",
         0,
         materialTable(0, twoOld),
         {{3, L"M\u00e9tal"}, {5, L"Wood"}},
         {}},
        {"revision 1 in UTF-8",
         1,
         materialTable(1, {{3, "M\xc3\xa9tal", "", "", 0}}),
         {{3, L"M\u00e9tal"}},
         {}},
        {"revision 2 with link texts",
         2,
         materialTable(2, two),
         {{3, L"M\u00e9tal"}, {5, L"Wood"}},
         {L"L", L"S", 0}},
        {"revision 3 with link flag",
         3,
         materialTable(3, two),
         {{3, L"M\u00e9tal"}, {5, L"Wood"}},
         {L"L", L"S", 1}},
        {"count 0 with a node", 3, materialTable(3, two, 0), {}, {}},
        {"negative count", 3, materialTable(3, two, -4), {}, {}},
        {"count beyond the chain",
         3,
         materialTable(3, two, 9),
         {{3, L"M\u00e9tal"}, {5, L"Wood"}},
         {L"L", L"S", 1}},
        {"chain in a circle",
         3,
         materialTable(3, {{6, "Loop", "", "", 0}}, 1000000, true),
         {{6, L"Loop"}},
         {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Status status = -1;
        auto doc = readDocument(makeFile(Layout{},
                                         [&](TiffBuilder& f, std::vector<HandSection>& s) {
                                             s.push_back(materialSection(f, Layout{}));
                                             s.back().revision = c.revision;
                                             s.back().makePrivateData = c.table;
                                         }),
                                status);
        ASSERT_EQ(status, status::ok);
        EXPECT_EQ(doc->materials().size(), c.names.size());
        for (const auto& [id, name] : c.names) {
            EXPECT_EQ(doc->materialName(id), name);
        }
        if (!c.names.empty()) {
            EXPECT_EQ(doc->materialHotLink(c.names[0].first), c.link);
        }
    }
}

TEST(ZmapReader, ResolutionByUnit) {
    struct Case {
        std::uint16_t unit;
        std::uint32_t xn, xd, yn, yd;
        float x, y;
    };
    const float d = 3779.5276f;
    const Case cases[] = {
        {2, 300, 1, 150, 2, 300 / 0.0254f, 75 / 0.0254f}, // per inch
        {3, 40, 1, 3779, 100, 4000, 3779},                // per centimetre
        {1, 40, 1, 40, 1, d, d},                          // no absolute unit
        {3, 0, 1, 20, 1, d, d},                           // a zero
        {2, 72, 0, 72, 1, d, d},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "unit " << c.unit << " x " << c.xn << "/" << c.xd);
        Status status = -1;
        auto doc = readDocument(makeFile(Layout{},
                                         [&](TiffBuilder& f, std::vector<HandSection>& s) {
                                             Bytes x, y;
                                             f.put32(x, c.xn);
                                             f.put32(x, c.xd);
                                             f.put32(y, c.yn);
                                             f.put32(y, c.yd);
                                             s[0].extra = {f.atOffset(282, 5, 1, f.data(x)),
                                                           f.atOffset(283, 5, 1, f.data(y)),
                                                           f.shortValue(296, c.unit)};
                                         }),
                                status);
        ASSERT_EQ(status, status::ok);
        EXPECT_NEAR(doc->xResolution, c.x, 0.01);
        EXPECT_NEAR(doc->yResolution, c.y, 0.01);
    }
}

TEST(ZmapReader, OriginalDepthTileWithOffsetZeroIsTheMainTile) {
    // 80 x 8 pixels: two file tiles of 64 x 64, which are also the document's tiles, and
    // a tiling of 16 x 8 that cuts the document's tiles.
    for (const std::uint32_t tileWidth : {64u, 16u}) {
        SCOPED_TRACE(tileWidth);
        TiffBuilder f(false);
        Layout l;
        HandSection colour = colourSection(l, 80, 8);
        HandSection depth = depthSection(f, l, 80, 8);
        HandSection original = depth;
        original.kind = 5;
        original.privateData.clear();
        for (std::size_t i = 0; i < original.pixels.size(); i += 4) {
            original.pixels[i] ^= 0x5A; // other values everywhere
        }
        for (HandSection* s : {&colour, &depth, &original}) {
            s->tileWidth = tileWidth;
            s->tileLength = tileWidth == 64 ? 64 : 8;
        }
        const std::uint32_t tiles = (80 + tileWidth - 1) / tileWidth;
        original.sharedTiles.assign(tiles, false);
        original.sharedTiles[0] = true; // the first tile is the main channel's
        for (const HandSection* s : {&colour, &depth, &original}) {
            addSection(f, *s);
        }
        Status status = -1;
        auto doc = readDocument(f.build(), status);
        ASSERT_EQ(status, status::ok);
        for (std::int32_t x : {0, 10, 15, 16, 63, 64, 79}) {
            const bool shared = x < static_cast<std::int32_t>(tileWidth);
            const std::uint32_t main = depthAt(static_cast<std::uint32_t>(x), 3);
            EXPECT_EQ(doc->zAt(x, 3), main);
            EXPECT_EQ(doc->originalZAt(x, 3), shared ? main : main ^ 0x5A) << x;
        }
        if (tileWidth == 64) {
            EXPECT_TRUE(doc->originalZ->sharesTile(0, *doc->z));
            EXPECT_FALSE(doc->originalZ->sharesTile(1, *doc->z));
        }
    }
}

TEST(ZmapReader, StackedPanoramaIsLaidSideBySideAndStitched) {
    constexpr std::uint32_t n = 4;
    // Pixel (x, y) of a side-by-side strip of six faces.
    const auto value = [](std::uint32_t x, std::uint32_t y) { return 1000u * x + y + 1; };
    ViewParams view;
    view.viewCode = ViewParams::cubicCode;
    view.eye = Point<3>(1, 2, 3);
    view.yAxis = Vector<3>(0, 1, 0);
    view.zAxis = Vector<3>(1, 0, 0);
    view.target = Point<3>(4, 5, 6);
    view.angle = 33;
    view.nearDepth = 0.25;
    std::unique_ptr<test::TestDocument> docs[2];
    for (const bool stacked : {true, false}) {
        TiffBuilder f(stacked);
        const std::uint32_t w = stacked ? n : 6 * n;
        const std::uint32_t h = stacked ? 6 * n : n;
        HandSection colour = colourSection(Layout{}, w, h);
        HandSection depth = depthSection(f, Layout{}, w, h);
        // Stacked face y / n holds the strip's columns (y / n) * n on.
        const auto stripX = [&](std::uint32_t x, std::uint32_t y) {
            return stacked ? x + (y / n) * n : x;
        };
        const auto stripY = [&](std::uint32_t y) { return stacked ? y % n : y; };
        colour.pixels.clear();
        for (std::uint32_t y = 0; y < h; ++y) {
            for (std::uint32_t x = 0; x < w; ++x) {
                const ColourPOD c = colourAt(stripX(x, y), stripY(y));
                colour.pixels.insert(colour.pixels.end(), {c.r, c.g, c.b});
            }
        }
        depth.kind = 8;
        depth.privateData.clear();
        f.put32(depth.privateData, 0);
        f.put32(depth.privateData, 3);
        for (const Point<3>& p :
             {view.eye, toPoint(view.yAxis), toPoint(view.zAxis), view.target}) {
            for (int k = 0; k < 3; ++k) {
                f.putDouble(depth.privateData, p[k]);
            }
        }
        for (const double d : {view.angle, view.nearDepth, view.farDepth, view.modelScale}) {
            f.putDouble(depth.privateData, d);
        }
        f.put32(depth.privateData, static_cast<std::uint32_t>(view.unitCode));
        depth.pixels.clear();
        for (std::uint32_t y = 0; y < h; ++y) {
            for (std::uint32_t x = 0; x < w; ++x) {
                f.put32(depth.pixels, value(stripX(x, y), stripY(y)));
            }
        }
        for (HandSection* s : {&colour, &depth}) {
            s->tileWidth = 4;
            s->tileLength = 8; // a tile spans two stacked faces
        }
        addSection(f, colour);
        addSection(f, depth);
        Status status = -1;
        docs[stacked] = readDocument(f.build(), status);
        ASSERT_EQ(status, status::ok);
    }
    const ZmapDocument& doc = *docs[1];
    ASSERT_EQ(doc.width(), static_cast<std::int32_t>(6 * n));
    ASSERT_EQ(doc.height(), static_cast<std::int32_t>(n));
    expectSameDocument(*docs[0], doc);
    // Inside faces the values are the file's; on seams every copy holds the same value.
    const FaceSize seams(n);
    for (std::int32_t y = 0; y < static_cast<std::int32_t>(n); ++y) {
        for (std::int32_t x = 0; x < static_cast<std::int32_t>(6 * n); ++x) {
            IPoint<2> copies[3];
            const std::int32_t count = seams.copies(x, y, copies);
            const IPoint<2> first = seams.canonicalPixel(x, y);
            if (count == 1) {
                EXPECT_EQ(doc.zAt(x, y),
                          value(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)));
            }
            EXPECT_EQ(doc.zAt(x, y), doc.zAt(first.x, first.y)) << x << "," << y;
        }
    }
    ViewParams expected = view;
    expected.xAxis = cross(view.zAxis, view.yAxis);
    EXPECT_EQ(doc.viewParams(), expected);
}

TEST(ZmapReader, RejectsDamagedFilesAndLeavesTheDocumentAlone) {
    struct Case {
        const char* name;
        Layout layout;
        Adjust adjust;
        std::function<void(Bytes&)> patch;
        Status expected;
    };
    using Sections = std::vector<HandSection>;
    const Case cases[] = {
        {"colour alone", {}, [](TiffBuilder&, Sections& s) { s.pop_back(); }, {}, status::damaged},
        {"kind 3", {}, [](TiffBuilder&, Sections& s) { s[1].kind = 3; }, {}, status::damaged},
        {"kind 9", {}, [](TiffBuilder&, Sections& s) { s[1].kind = 9; }, {}, status::damaged},
        {"section version 2",
         {},
         [](TiffBuilder&, Sections& s) { s[1].version = 2; },
         {},
         status::unsupportedVersion},
        {"no section header, not reduced",
         {},
         [](TiffBuilder&, Sections& s) {
             s.push_back(colourSection(Layout{}));
             s.back().kind = -1;
             s.back().subfileType = 1;
         },
         {},
         status::damaged},
        {"old and new subfile type",
         {},
         [](TiffBuilder& f, Sections& s) {
             s.push_back(colourSection(Layout{}));
             s.back().kind = -1;
             s.back().extra = {f.shortValue(255, 2)};
         },
         {},
         status::damaged},
        {"byte order mark", {}, {}, [](Bytes& b) { b[1] = 'M'; }, status::damaged},
        {"not 42", {}, {}, [](Bytes& b) { b[2] = 43; }, status::damaged},
        {"empty file", {}, {}, [](Bytes& b) { b.clear(); }, status::damaged},
        {"next directory beyond the end",
         {},
         {},
         [](Bytes& b) { b[b.size() - 2] = 0x7F; },
         status::damaged},
        {"too few tile counts",
         {},
         [](TiffBuilder& f, Sections& s) { s[1].extra = {f.longs(325, {64})}; },
         {},
         status::damaged},
        {"strip count of zero",
         {false, true, 1},
         [](TiffBuilder& f, Sections& s) {
             s[0].extra = {f.longs(279, {0, 0})};
         },
         {},
         status::damaged},
        {"compression 7",
         {},
         [](TiffBuilder& f, Sections& s) { s[0].late = {f.shortValue(259, 7)}; },
         {},
         status::damaged},
        {"predictor without LZW",
         {},
         [](TiffBuilder& f, Sections& s) { s[0].late = {f.shortValue(317, 2)}; },
         {},
         status::damaged},
        {"width 0",
         {},
         [](TiffBuilder& f, Sections& s) { s[0].late = {f.longValue(256, 0)}; },
         {},
         status::damaged},
        {"tile offsets twice over",
         {},
         [](TiffBuilder& f, Sections& s) {
             s[1].extra = {f.longs(34954, {8, 8})};
         },
         {},
         status::damaged},
        {"16-bit colour",
         {},
         [](TiffBuilder&, Sections& s) {
             s[0].bits = {16, 16, 16};
         },
         {},
         status::damaged},
        {"bits as LONG",
         {},
         [](TiffBuilder& f, Sections& s) { s[1].extra = {f.longValue(258, 32)}; },
         {},
         status::damaged},
        {"signed depth",
         {},
         [](TiffBuilder& f, Sections& s) { s[1].late = {f.shortValue(339, 2)}; },
         {},
         status::damaged},
        {"sections of two sizes",
         {},
         [](TiffBuilder&, Sections& s) { s[0] = colourSection(Layout{}, W, H + 1); },
         {},
         status::damaged},
        {"colour twice",
         {},
         [](TiffBuilder&, Sections& s) { s.push_back(s[0]); },
         {},
         status::damaged},
        {"LZW data beyond twice the raw size",
         {false, false, 5},
         [](TiffBuilder&, Sections& s) { s[1].alterBlock = [](Bytes& b) { b.resize(200, 0); }; },
         {},
         status::damaged},
        {"raw strip of the wrong size",
         {false, true, 1},
         [](TiffBuilder&, Sections& s) { s[0].alterBlock = [](Bytes& b) { b.push_back(0); }; },
         {},
         status::damaged},
        {"damaged LZW data",
         {false, false, 5},
         [](TiffBuilder&, Sections& s) {
             s[1].alterBlock = [](Bytes& b) { b.resize(b.size() / 2); };
         },
         {},
         status::damaged},
        {"tile beyond the end",
         {},
         [](TiffBuilder& f, Sections& s) {
             s[0].extra = {f.longs(324, {8, 0x7FFFFF})};
         },
         {},
         status::damaged},
        {"parallel record of projection 2",
         {},
         [](TiffBuilder& f, Sections& s) {
             ViewParams v = fileView();
             v.projection = 2;
             s[1].privateData = cameraRecord(f, v);
         },
         {},
         status::damaged},
        {"panorama of the wrong shape",
         {},
         [](TiffBuilder&, Sections& s) { s[1].kind = 8; },
         {},
         status::damaged},
        {"material node beyond the end",
         {},
         [](TiffBuilder& f, Sections& s) {
             s.push_back(materialSection(f, Layout{}));
             Bytes table;
             f.put32(table, 1);
             f.put32(table, 0x7FFFFFF0);
             s.back().privateData = table;
         },
         {},
         status::damaged},
        {"image beyond the size limit",
         {false, true, 1},
         [](TiffBuilder& f, Sections& s) {
             for (HandSection& section : s) {
                 section.rowsPerStrip = 1000000;
                 section.late = {f.longValue(256, 1000000), f.longValue(257, 1000000),
                                 f.longValue(278, 1000000)};
             }
         },
         {},
         status::outOfMemory},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes bytes = makeFile(c.layout, c.adjust);
        if (c.patch) {
            c.patch(bytes);
        }
        test::TestDocument doc;
        doc.description = L"untouched";
        QuorvaleZmapFile file;
        Status status = 0;
        file.readMemory(status, bytes.data(), bytes.size(), doc);
        EXPECT_EQ(status, c.expected);
        EXPECT_EQ(doc.description, L"untouched");
        EXPECT_FALSE(doc.rgb);
        // Every refusal of a damaged file says where the damage is.
        EXPECT_EQ(file.fault().empty(), c.expected == status::outOfMemory) << getMBS(file.fault());
    }
}

} // namespace

// Where a damaged file is damaged: the reader's text names the section and its directory,
// the tile or strip, the byte offset and, inside compressed data, the image row.

namespace {

/// The offsets of the directories of a file, read from its links.
std::vector<std::uint32_t> directoryOffsets(const Bytes& file) {
    const bool big = file[0] == 'M';
    const auto get = [&](std::size_t at, int bytes) {
        std::uint32_t v = 0;
        for (int k = 0; k < bytes; ++k) {
            const std::uint32_t byte = file[at + static_cast<std::size_t>(big ? k : bytes - 1 - k)];
            v = (v << 8) | byte;
        }
        return v;
    };
    std::vector<std::uint32_t> offsets;
    for (std::uint32_t at = get(4, 4); at != 0 && at + 2 <= file.size();) {
        offsets.push_back(at);
        at = get(at + 2 + 12 * std::size_t{get(at, 2)}, 4);
    }
    return offsets;
}

/// 9-bit LZW codes, most significant bit first, padded to whole bytes.
Bytes lzwCodes(std::initializer_list<std::uint32_t> codes) {
    Bytes out;
    std::uint32_t acc = 0;
    int bits = 0;
    for (const std::uint32_t code : codes) {
        acc = (acc << 9) | code;
        for (bits += 9; bits >= 8; bits -= 8) {
            out.push_back(static_cast<std::uint8_t>(acc >> (bits - 8)));
        }
    }
    if (bits > 0) {
        out.push_back(static_cast<std::uint8_t>(acc << (8 - bits)));
    }
    return out;
}

/// Replaces block `which` of a section with `bytes` (all of them when empty: halved), and
/// records the offset it is stored at.
std::function<void(Bytes&)> damageBlock(TiffBuilder& f, std::size_t which, Bytes bytes,
                                        std::uint32_t& offset) {
    auto index = std::make_shared<std::size_t>(0);
    return [&f, which, bytes, &offset, index](Bytes& block) {
        if ((*index)++ == which) {
            offset = f.nextData();
            block = bytes.empty() ? Bytes(block.begin(), block.begin() + block.size() / 2) : bytes;
        }
    };
}

struct Refusal {
    Status status = status::ok;
    std::wstring fault;
    std::vector<std::uint32_t> directories;
};

Refusal refuse(const Bytes& bytes, unsigned threads = 0) {
    test::TestDocument doc;
    QuorvaleZmapFile file;
    file.setThreads(threads);
    Refusal r;
    file.readMemory(r.status, bytes.data(), bytes.size(), doc);
    r.fault = file.fault();
    r.directories = directoryOffsets(bytes);
    return r;
}

std::wstring num(std::uint64_t v) {
    return std::to_wstring(v);
}

#define EXPECT_HAS(text, part) EXPECT_NE((text).find(part), std::wstring::npos) << getMBS(text)

TEST(ZmapReaderFaults, DamagedBlocksAreNamedBySectionBlockByteAndRow) {
    {
        SCOPED_TRACE("a strip whose LZW data ends early");
        TiffBuilder f(false);
        std::uint32_t at = 0;
        HandSection colour = colourSection(Layout{false, true, 5});
        // Clear, one byte, end: a strip of 15 bytes ends after one.
        colour.alterBlock = damageBlock(f, 1, lzwCodes({256, 65, 257}), at);
        addSection(f, colour);
        addSection(f, depthSection(f, Layout{false, true, 5}));
        const Refusal r = refuse(f.build());
        EXPECT_EQ(r.status, status::damaged);
        EXPECT_HAS(r.fault, L"colour section (directory 1 at byte " + num(r.directories[0]) +
                                L"), strip 1 (rows 2 to 2) at byte " + num(at) +
                                L": LZW data at byte ");
        EXPECT_HAS(r.fault, L"image row 2: the data ends too soon");
    }
    {
        SCOPED_TRACE("a tile of LZW data with a code not yet defined");
        TiffBuilder f(false);
        std::uint32_t at = 0;
        HandSection depth = depthSection(f, Layout{false, false, 5});
        // The third code starts at bit 18, in byte 2; the table's next code is 258.
        depth.alterBlock = damageBlock(f, 1, lzwCodes({256, 65, 400}), at);
        addSection(f, colourSection(Layout{false, false, 5}));
        addSection(f, depth);
        const Refusal r = refuse(f.build());
        EXPECT_EQ(r.status, status::damaged);
        EXPECT_HAS(r.fault, L"depth section (directory 2 at byte " + num(r.directories[1]) +
                                L"), tile 1 (x 4, y 0) at byte " + num(at) +
                                L": LZW data at byte " + num(at + 2) +
                                L", image row 0: code 400 is not defined yet");
    }
    {
        SCOPED_TRACE("a truncated tile");
        TiffBuilder f(false);
        std::uint32_t at = 0;
        HandSection depth = depthSection(f, Layout{false, false, 5});
        depth.alterBlock = damageBlock(f, 0, {}, at);
        addSection(f, colourSection(Layout{false, false, 5}));
        addSection(f, depth);
        const Refusal r = refuse(f.build());
        EXPECT_EQ(r.status, status::damaged);
        EXPECT_HAS(r.fault, L"tile 0 (x 0, y 0) at byte " + num(at) + L": LZW data at byte ");
        EXPECT_HAS(r.fault, L"the data ends too soon");
    }
    {
        SCOPED_TRACE("a raw strip of the wrong size");
        TiffBuilder f(false);
        std::uint32_t at = 0;
        HandSection colour = colourSection(Layout{false, true, 1});
        colour.alterBlock = damageBlock(f, 0, Bytes(31, 0), at);
        addSection(f, colour);
        addSection(f, depthSection(f, Layout{false, true, 1}));
        const Refusal r = refuse(f.build());
        EXPECT_HAS(r.fault, L"strip 0 (rows 0 to 1) at byte " + num(at) +
                                L": 31 bytes stored for 30 bytes of uncompressed pixels");
    }
    {
        SCOPED_TRACE("LZW data beyond twice the raw size");
        TiffBuilder f(false);
        std::uint32_t at = 0;
        HandSection depth = depthSection(f, Layout{false, false, 5});
        depth.alterBlock = damageBlock(f, 1, Bytes(200, 0), at);
        addSection(f, colourSection(Layout{false, false, 5}));
        addSection(f, depth);
        const Refusal r = refuse(f.build());
        EXPECT_HAS(r.fault, L"tile 1 (x 4, y 0) at byte " + num(at) +
                                L": 200 bytes of LZW data for 64 bytes of pixels");
    }
    {
        SCOPED_TRACE("a tile offset beyond the end");
        const Bytes bytes = makeFile(Layout{}, [](TiffBuilder& f, std::vector<HandSection>& s) {
            s[0].extra = {f.longs(324, {8, 0x7FFFFF})};
        });
        const Refusal r = refuse(bytes);
        EXPECT_HAS(r.fault, L"colour section (directory 1 at byte " + num(r.directories[0]) +
                                L"), tile 1 (x 4, y 0) at byte 8388607: its 48 bytes run past "
                                L"the end of the file of " +
                                num(bytes.size()) + L" bytes");
    }
}

TEST(ZmapReaderFaults, DamagedHeadersDirectoriesAndPrivateDataAreNamed) {
    using Sections = std::vector<HandSection>;
    struct Case {
        const char* name;
        Adjust adjust;
        std::function<void(Bytes&)> patch;
        Status status;
        /// The text expected, given the directory offsets and the file.
        std::function<std::wstring(const std::vector<std::uint32_t>&, const Bytes&)> text;
    };
    const Case cases[] = {
        {"byte order mark",
         {},
         [](Bytes& b) { b[1] = 'M'; },
         status::damaged,
         [](auto&, auto&) {
             return std::wstring(L"at byte 0: the file starts with neither II nor MM");
         }},
        {"not 42",
         {},
         [](Bytes& b) { b[2] = 43; },
         status::damaged,
         [](auto&, auto&) { return std::wstring(L"at byte 2: 43 where a TIFF file has 42"); }},
        {"empty file",
         {},
         [](Bytes& b) { b.clear(); },
         status::damaged,
         [](auto&, auto&) { return std::wstring(L"the file is empty"); }},
        {"colour alone",
         [](TiffBuilder&, Sections& s) { s.pop_back(); },
         {},
         status::damaged,
         [](auto&, auto&) { return std::wstring(L"the file has no depth section"); }},
        {"next directory beyond the end",
         {},
         [](Bytes& b) { b[b.size() - 2] = 0x7F; },
         status::damaged,
         [](auto&, const Bytes& b) {
             return L"directory 3 at byte " + num(0x7F0000) +
                    L": the directory offset lies outside the file of " + num(b.size()) + L" bytes";
         }},
        {"bits as LONG",
         [](TiffBuilder& f, Sections& s) { s[1].extra = {f.longValue(258, 32)}; },
         {},
         status::damaged,
         [](const std::vector<std::uint32_t>& d, auto&) {
             // The third entry: entries are in tag order, after ImageWidth and ImageLength.
             return L"directory 2 at byte " + num(d[1]) +
                    L": tag 258 (BitsPerSample) (entry at "
                    L"byte " +
                    num(d[1] + 2 + 2 * 12) + L"): it must be 1 to 4 SHORT values, not 1 of type 4";
         }},
        {"too few tile counts",
         [](TiffBuilder& f, Sections& s) { s[1].extra = {f.longs(325, {64})}; },
         {},
         status::damaged,
         [](const std::vector<std::uint32_t>& d, auto&) {
             return L"depth section (directory 2 at byte " + num(d[1]) +
                    L"): 2 tile offsets and 1 byte counts where 2 x 1 tiles need 2";
         }},
        {"section version 2",
         [](TiffBuilder&, Sections& s) { s[1].version = 2; },
         {},
         status::unsupportedVersion,
         [](const std::vector<std::uint32_t>& d, auto&) {
             return L"directory 2 at byte " + num(d[1]) + L": section version 2 is not supported";
         }},
        {"unknown kind",
         [](TiffBuilder&, Sections& s) { s[1].kind = 9; },
         {},
         status::damaged,
         [](const std::vector<std::uint32_t>& d, auto&) {
             return L"directory 2 at byte " + num(d[1]) + L": section kind 9 is not known";
         }},
        {"camera record of projection 2",
         [](TiffBuilder& f, Sections& s) {
             ViewParams v = fileView();
             v.projection = 2;
             s[1].privateData = cameraRecord(f, v);
         },
         {},
         status::damaged,
         [](const std::vector<std::uint32_t>& d, auto&) {
             return L"depth section (directory 2 at byte " + num(d[1]) +
                    L"), camera record at byte ";
         }},
        {"material node beyond the end",
         [](TiffBuilder& f, Sections& s) {
             s.push_back(materialSection(f, Layout{}));
             Bytes table;
             f.put32(table, 1);
             f.put32(table, 0x7FFFFFF0);
             s.back().privateData = table;
         },
         {},
         status::damaged,
         [](const std::vector<std::uint32_t>& d, auto&) {
             return L"material section (directory 3 at byte " + num(d[2]) +
                    L"), material table at byte " + num(0x7FFFFFF0) +
                    L": a node lies beyond the end of the file";
         }},
        {"sections of two sizes",
         [](TiffBuilder& f, Sections& s) { s[1] = depthSection(f, Layout{}, W, H + 1); },
         {},
         status::damaged,
         [](const std::vector<std::uint32_t>& d, auto&) {
             return L"depth section (directory 2 at byte " + num(d[1]) +
                    L"): 5 x 4 pixels where the first section has 5 x 3";
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes bytes = makeFile(Layout{}, c.adjust);
        if (c.patch) {
            c.patch(bytes);
        }
        const Refusal r = refuse(bytes);
        EXPECT_EQ(r.status, c.status);
        EXPECT_HAS(r.fault, c.text(directoryOffsets(bytes), bytes));
    }
}

TEST(ZmapReaderFaults, TheFirstDamagedTileIsNamedWhateverTheThreads) {
    // 80 x 8 pixels in 40 tiles of 4 x 4, two of them damaged: the one named is the first
    // in the file's order, however the threads share the work.
    std::uint32_t first = 0;
    std::uint32_t later = 0;
    TiffBuilder f(false);
    HandSection colour = colourSection(Layout{false, false, 5}, 80, 8);
    const auto damageFirst = damageBlock(f, 7, lzwCodes({256, 65, 257}), first);
    const auto damageLater = damageBlock(f, 30, lzwCodes({256, 65, 257}), later);
    colour.alterBlock = [&](Bytes& b) {
        damageFirst(b);
        damageLater(b);
    };
    addSection(f, colour);
    addSection(f, depthSection(f, Layout{false, false, 5}, 80, 8));
    const Bytes bytes = f.build();
    for (const unsigned threads : {1u, 2u, 3u, 4u}) {
        for (int round = 0; round < 5; ++round) {
            const Refusal r = refuse(bytes, threads);
            EXPECT_HAS(r.fault, L"tile 7 (x 28, y 0) at byte " + num(first));
        }
    }
}

TEST(ZmapReaderFaults, TheTextShownToTheUserCarriesThePlace) {
    test::TempDir dir;
    const std::string path = dir.file("damaged.zmp");
    const Bytes bytes = makeFile(Layout{}, [](TiffBuilder& f, std::vector<HandSection>& s) {
        s[1].extra = {f.longs(325, {64})};
    });
    writeBytes(path, bytes);
    const std::wstring place =
        L"depth section (directory 2 at byte " + num(directoryOffsets(bytes)[1]) + L")";

    test::TestDocument doc;
    Status status = status::ok;
    std::wstring text;
    openZmapDocument(status, doc, utf8(path), nullptr, &text);
    EXPECT_EQ(status, status::damaged);
    EXPECT_EQ(text.find(statusText(status::damaged)), 0u);
    EXPECT_HAS(text, place);
    EXPECT_FALSE(doc.rgb);

    try {
        TQL::ZmapFile(utf8(path)).read(doc);
        ADD_FAILURE() << "a damaged file was read";
    } catch (const TQL::BadFile& e) {
        EXPECT_EQ(e.status(), status::damaged);
        EXPECT_HAS(e.wWhat(), utf8(path) + L": " + statusText(status::damaged));
        EXPECT_HAS(e.wWhat(), place);
    }

    // A good read clears the fault of the last one; other failures have none.
    QuorvaleZmapFile file;
    file.readMemory(status, bytes.data(), bytes.size(), doc);
    EXPECT_FALSE(file.fault().empty());
    const Bytes good = makeFile(Layout{});
    file.readMemory(status, good.data(), good.size(), doc);
    EXPECT_EQ(status, status::ok);
    EXPECT_TRUE(file.fault().empty());
    file.read(status, utf8(dir.file("missing.zmp")), doc);
    EXPECT_EQ(status, status::notFound);
    EXPECT_TRUE(file.fault().empty());
    EXPECT_EQ(file.failureText(status), statusText(status::notFound));
}

} // namespace
