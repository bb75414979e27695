// Documents made through the engine, written and read back: every channel, the camera
// record, materials and texts come back equal, and a second write gives the same bytes.

#include "ZmapTestFiles.h"

#include "core/StringUtils.h"
#include "file/QuorvaleZmapFile.h"
#include "file/ZmapFile.h"
#include "image/TileRowWriter.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using namespace zmap_test;

namespace {

Status writeDocument(const ZmapDocument& doc, const std::string& path) {
    QuorvaleZmapFile file;
    Status status = -1;
    file.write(status, doc, utf8(path));
    return status;
}

struct RoundTrip {
    const char* name;
    std::int32_t width;
    std::int32_t height;
    bool panorama;
    std::int32_t compression;
};

const RoundTrip roundTrips[] = {
    {"partial tiles, LZW", 300, 200, false, 5},
    {"partial tiles, raw", 300, 200, false, 1},
    {"one pixel", 1, 1, false, 5},
    {"one tile", 64, 40, false, 5},
    {"two tile sizes", 2100, 70, false, 5},
    {"panorama", 0, 24, true, 5},
};

TEST(ZmapRoundTrip, WriteThenReadGivesTheSameDocumentAndTheSameBytesAgain) {
    test::TempDir dir;
    for (const RoundTrip& c : roundTrips) {
        SCOPED_TRACE(c.name);
        auto doc = makeSceneDocument(c.width, c.height, c.panorama);
        doc->compression = c.compression;
        const std::string first = dir.file("first.zmp");
        ASSERT_EQ(writeDocument(*doc, first), status::ok);

        Status status = -1;
        auto back = readDocument(first, status);
        ASSERT_EQ(status, status::ok);
        expectSameDocument(*doc, *back);
        EXPECT_EQ(back->savedCompression, c.compression);

        const std::string second = dir.file("second.zmp");
        ASSERT_EQ(writeDocument(*back, second), status::ok);
        EXPECT_TRUE(readBytes(first) == readBytes(second));
    }
}

TEST(ZmapRoundTrip, OnlyOriginalTilesThatDifferAreStoredAndTheRestShared) {
    test::TempDir dir;
    auto doc = makeSceneDocument(300, 200);
    // Paint into one tile of each main channel: the originals keep the old tiles there.
    TileHandle hold;
    *doc->rgbWrite(10, 10, hold) = ColourPOD{1, 2, 3};
    *doc->zWrite(250, 150, hold) = 12345;
    *doc->matWrite(100, 190, hold) = 4;
    ASSERT_EQ(writeDocument(*doc, dir.file("a.zmp")), status::ok);

    Status status = -1;
    auto back = readDocument(dir.file("a.zmp"), status);
    ASSERT_EQ(status, status::ok);
    expectSameDocument(*doc, *back);
    const TileGeometry& g = back->geometry();
    const std::int32_t changed[] = {g.tileIndex(10, 10), g.tileIndex(250, 150),
                                    g.tileIndex(100, 190)};
    for (std::int32_t i = 0; i < g.tileCount(); ++i) {
        // Original colour is stored whole, so its tiles are the file's own.
        EXPECT_FALSE(back->originalRgb->sharesTile(i, *back->rgb));
        EXPECT_EQ(back->originalZ->sharesTile(i, *back->z), i != changed[1]) << i;
        EXPECT_EQ(back->originalMat->sharesTile(i, *back->mat), i != changed[2]) << i;
    }
    EXPECT_NE(back->originalRgbAt(10, 10), back->rgbAt(10, 10));
}

TEST(ZmapRoundTrip, DocumentWithoutMaterialsOrTextsStaysWithout) {
    test::TempDir dir;
    auto doc = test::makeTestDocument(70, 50);
    doc->xResolution = 0; // no resolution is written: the reader's default comes back
    ASSERT_EQ(writeDocument(*doc, dir.file("plain.zmp")), status::ok);
    Status status = -1;
    auto back = readDocument(dir.file("plain.zmp"), status);
    ASSERT_EQ(status, status::ok);
    EXPECT_TRUE(back->materials().empty());
    EXPECT_TRUE(back->description.empty() && back->artist.empty() && back->copyright.empty());
    EXPECT_TRUE(back->cutoutBlock.empty());
    EXPECT_FLOAT_EQ(back->xResolution, 3779.5276f);
    EXPECT_EQ(back->zAt(3, 3), ZBitmap::noDepth);
}

TEST(ZmapRoundTrip, ShortCutOutBlockIsPaddedToFiveBytes) {
    test::TempDir dir;
    auto doc = test::makeTestDocument(8, 8);
    doc->cutoutBlock = {'a', 'b'};
    doc->cutoutBlockItems = 2;
    ASSERT_EQ(writeDocument(*doc, dir.file("b.zmp")), status::ok);
    Status status = -1;
    auto back = readDocument(dir.file("b.zmp"), status);
    ASSERT_EQ(status, status::ok);
    EXPECT_EQ(back->cutoutBlock, (Bytes{'a', 'b', 0, 0, 0}));
    EXPECT_EQ(back->cutoutBlockItems, 2);
}

TEST(ZmapRoundTrip, OneShotFileThrowsWithTheStatus) {
    test::TempDir dir;
    auto doc = makeSceneDocument(40, 30);
    const TQL::ZmapFile good(utf8(dir.file("one.zmp")));
    good.write(*doc);
    test::TestDocument back;
    good.read(back);
    expectSameDocument(*doc, back);

    const TQL::ZmapFile nowhere(utf8(dir.file("missing/one.zmp")));
    try {
        nowhere.write(*doc);
        FAIL() << "a write into a missing directory must throw";
    } catch (const TQL::ZmapFile::Error& e) {
        EXPECT_EQ(e.status(), status::notFound);
    }
    writeBytes(dir.file("bad.zmp"), Bytes{'I', 'I', 42, 0, 0, 0, 0, 0});
    try {
        TQL::ZmapFile(utf8(dir.file("bad.zmp"))).read(back);
        FAIL() << "a file without directories must throw";
    } catch (const TQL::BadFile& e) {
        EXPECT_EQ(e.status(), status::damaged);
    }
}

} // namespace

namespace {

TEST(ZmapRoundTrip, InputsFoundByFuzzingReadAndSettleAfterOneWrite) {
    // Each once broke the reader or a round trip; a first write settles what the reader
    // fills in by default, and from then on writing and reading change nothing.
    test::TempDir dir;
    for (const char* name : {"tiny-resolution.zmp", "empty-cutout-block.zmp"}) {
        SCOPED_TRACE(name);
        Status status = -1;
        auto doc = readDocument(std::string(ZMAP_FIXTURES "/") + name, status);
        ASSERT_EQ(status, status::ok);
        ASSERT_EQ(writeDocument(*doc, dir.file("1.zmp")), status::ok);
        auto second = readDocument(dir.file("1.zmp"), status);
        ASSERT_EQ(status, status::ok);
        ASSERT_EQ(writeDocument(*second, dir.file("2.zmp")), status::ok);
        auto third = readDocument(dir.file("2.zmp"), status);
        ASSERT_EQ(status, status::ok);
        ASSERT_EQ(writeDocument(*third, dir.file("3.zmp")), status::ok);
        EXPECT_TRUE(readBytes(dir.file("2.zmp")) == readBytes(dir.file("3.zmp")));
    }
}

} // namespace
