// The import object: choosing a reader, path aliases, messages.
#include "PictureFiles.h"

#include "core/Settings.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/ZmapDocumentFile.h"
#include "image/DocumentCommands.h"
#include "interchange/raster/RasterImport.h"
#include "support/TempDir.h"

#include <filesystem>
#include <gtest/gtest.h>

using pictures::Rgba;

namespace {

std::wstring wide(const std::string& s) {
    return utf8(s);
}

void expectColour(const Raster& r, const Rgba& p) {
    ASSERT_EQ(r.width, p.width);
    ASSERT_EQ(r.height, p.height);
    for (std::int32_t y = 0; y < p.height; ++y) {
        for (std::int32_t x = 0; x < p.width; ++x) {
            const std::uint8_t* q = p.at(x, y);
            const std::uint8_t* got = r.row(y) + x * 3;
            ASSERT_EQ(got[0], q[2]);
            ASSERT_EQ(got[1], q[1]);
            ASSERT_EQ(got[2], q[0]);
        }
    }
}

TEST(RasterImport, PicksTheReaderByExtensionWithoutCase) {
    test::TempDir dir;
    const Rgba p = pictures::pattern(9, 6, false);
    pictures::writeFile(dir.file("a.BMP"), pictures::bmp24(p));
    pictures::writeFile(dir.file("b.Png"), pictures::writePng(p, {}));
    pictures::writeFile(dir.file("c.tiff"), pictures::writeTiff(p, {}));
    for (const char* name : {"a.BMP", "b.Png", "c.tiff"}) {
        SCOPED_TRACE(name);
        RasterImport import;
        ASSERT_EQ(import.read(wide(dir.file(name))), status::ok);
        ASSERT_TRUE(import.raster());
        expectColour(*import.raster(), p);
    }
    // A PNG under a BMP name goes to the BMP reader, which says it isn't one.
    pictures::writeFile(dir.file("wrong.bmp"), pictures::writePng(p, {}));
    RasterImport import;
    EXPECT_EQ(import.read(wide(dir.file("wrong.bmp"))), status::unsupportedVersion);
    EXPECT_FALSE(import.raster());
    EXPECT_NE(import.errorText().find(L"wrong.bmp"), std::wstring::npos);
}

TEST(RasterImport, ReadsTheColourOfAZmapDocument) {
    test::TempDir dir;
    DummyZmapDocument document;
    NewImageParams params;
    params.width = 70; // more than one tile across
    params.height = 5;
    params.background = ColourPOD{10, 20, 30};
    Status s = status::ok;
    makePlainImage(s, document, params);
    ASSERT_EQ(s, status::ok);
    TileHandle hold;
    *document.rgbWrite(66, 4, hold) = ColourPOD{1, 2, 3};
    hold.reset();
    saveZmapDocument(s, document, wide(dir.file("doc.zmp")));
    ASSERT_EQ(s, status::ok);

    RasterImport import;
    ASSERT_EQ(import.read(wide(dir.file("doc.zmp"))), status::ok);
    const Raster& r = *import.raster();
    ASSERT_EQ(r.width, 70);
    EXPECT_EQ(r.row(0)[0], 10);
    EXPECT_EQ(r.row(0)[2], 30);
    EXPECT_EQ(r.row(4)[66 * 3], 1);
    EXPECT_EQ(r.row(4)[66 * 3 + 2], 3);
}

TEST(RasterImport, UnsupportedAndMissingFilesSayWhichFile) {
    test::TempDir dir;
    struct Case {
        const char* name;
        Status expect;
    };
    for (const Case c : {Case{"scan.pict", status::unsupportedCompression},
                         Case{"scan.pct", status::unsupportedCompression},
                         Case{"scan.pic", status::unsupportedCompression},
                         Case{"clip.mov", status::unsupportedCompression},
                         Case{"tree.rpc", status::unsupportedCompression},
                         Case{"house.dxf", status::unsupportedCompression},
                         Case{"notes.txt", status::unsupportedCompression},
                         Case{"absent.png", rasterStatus::couldNotOpen},
                         Case{"absent.zmp", rasterStatus::couldNotOpen}}) {
        SCOPED_TRACE(c.name);
        if (c.expect != rasterStatus::couldNotOpen) {
            pictures::writeFile(dir.file(c.name), pictures::Bytes(64, 1));
        }
        RasterImport import;
        EXPECT_EQ(import.read(wide(dir.file(c.name))), c.expect);
        EXPECT_FALSE(import.raster());
        EXPECT_NE(import.errorText().find(wide(c.name)), std::wstring::npos);
    }
    std::filesystem::create_directory(dir.file("folder.png"));
    RasterImport import;
    EXPECT_EQ(import.read(wide(dir.file("folder.png"))), rasterStatus::couldNotOpen);
}

TEST(RasterImport, PathAliasesNameFolders) {
    MemorySettingsStore store;
    TQL::setSettingsStore(&store);
    test::TempDir dir;
    store.write(L"Shared/PathAliases", L"Pictures", wide(dir.path()));
    const Rgba p = pictures::pattern(4, 4, false);
    pictures::writeFile(dir.file("tree.tga"), [&] {
        pictures::Bytes b(18, 0);
        b[2] = 2, b[12] = 4, b[14] = 4, b[16] = 24, b[17] = 0x20;
        for (std::int32_t y = 0; y < 4; ++y) {
            for (std::int32_t x = 0; x < 4; ++x) {
                b.insert(b.end(), {p.at(x, y)[2], p.at(x, y)[1], p.at(x, y)[0]});
            }
        }
        return b;
    }());
    EXPECT_EQ(RasterImport::resolveAlias(L"<Pictures>/tree.tga"), wide(dir.file("tree.tga")));
    EXPECT_EQ(RasterImport::resolveAlias(L"<Pictures>tree.tga"), wide(dir.file("tree.tga")));
    EXPECT_EQ(RasterImport::resolveAlias(L"<Unknown>/tree.tga"), L"<Unknown>/tree.tga");
    // "<" without ">" is a plain path.
    EXPECT_EQ(RasterImport::resolveAlias(L"<Pictures/tree.tga"), L"<Pictures/tree.tga");
    RasterImport import;
    ASSERT_EQ(import.read(L"<Pictures>/tree.tga"), status::ok);
    expectColour(*import.raster(), p);
    EXPECT_EQ(import.fileName(), wide(dir.file("tree.tga")));

    // A file whose name really begins with "<" reads as it is.
    pictures::writeFile(dir.file("<odd.bmp"), pictures::bmp24(p));
    EXPECT_EQ(import.read(wide(dir.file("<odd.bmp"))), status::ok);
    TQL::setSettingsStore(nullptr);
}

} // namespace
