// Pictures out of a cube panorama: six faces and the equirectangular picture.
#include "PictureFiles.h"

#include "core/StringUtils.h"
#include "file/ZmapDocumentCommands.h"
#include "image/TileRowWriter.h"
#include "interchange/raster/PanoramaExport.h"
#include "interchange/raster/RasterDocumentCommands.h"
#include "support/PngFile.h"
#include "support/TempDir.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

Status newPanorama(test::TestDocument& doc, const std::string& path) {
    static RasterDocumentCommands commands(ZmapDocumentCommands::instance());
    doc.editor.setCommands(&commands);
    NewImageParams params;
    params.kind = NewImageKind::panoramaFromRaster;
    params.sourcePath = utf8(path);
    Status s = status::ok;
    doc.editor.execute(s, commandNew, params);
    return s;
}

/// Red, green, blue of the six flat faces.
constexpr std::uint8_t faceColours[6][3] = {{200, 30, 30},  {30, 200, 30},  {30, 30, 200},
                                            {200, 200, 30}, {30, 200, 200}, {200, 30, 200}};

std::unique_ptr<test::TestDocument> flatFacedCube(std::int32_t n) {
    auto doc = test::makeTestDocument(6 * n, n);
    ViewParams v;
    v.viewCode = ViewParams::cubicCode;
    doc->setViewParams(v);
    std::vector<std::uint8_t> row(std::size_t(6 * n) * 3);
    for (std::int32_t x = 0; x < 6 * n; ++x) {
        const auto* c = faceColours[x / n];
        row[std::size_t(x) * 3] = c[2];
        row[std::size_t(x) * 3 + 1] = c[1];
        row[std::size_t(x) * 3 + 2] = c[0];
    }
    TileRowWriter writer(*doc->rgb);
    for (std::int32_t y = 0; y < n; ++y) {
        writer.writeRow(0, y, row.data(), 6 * n);
    }
    return doc;
}

TEST(PanoramaExport, EquirectangularPutsEachFaceWhereItsDirectionSays) {
    test::TempDir dir;
    const auto doc = flatFacedCube(32);
    std::wstring error;
    ASSERT_EQ(
        PanoramaExport::exportEquirectangular(*doc, utf8(dir.file("sphere.png")), 96, {}, error),
        status::ok)
        << utf8(error);
    test::PngImage png;
    std::string readError;
    ASSERT_TRUE(test::readPng(dir.file("sphere.png"), png, readError)) << readError;
    ASSERT_EQ(png.width, 96u);
    ASSERT_EQ(png.height, 48u);
    // Longitude runs across from behind (left edge) through ahead (centre) to behind;
    // latitude from straight up (top row) to straight down.
    const struct {
        std::uint32_t x, y;
        int face;
    } probes[] = {{48, 24, 0}, {72, 24, 1}, {1, 24, 2},  {94, 24, 2}, {24, 24, 3},
                  {40, 0, 4},  {10, 1, 4},  {60, 47, 5}, {85, 46, 5}};
    for (const auto& p : probes) {
        const std::uint8_t* c = png.at(p.x, p.y);
        EXPECT_EQ(c[0], faceColours[p.face][0]) << p.x << "," << p.y;
        EXPECT_EQ(c[1], faceColours[p.face][1]) << p.x << "," << p.y;
        EXPECT_EQ(c[2], faceColours[p.face][2]) << p.x << "," << p.y;
    }

    // The picture is a spherical panorama the import takes back: each face's centre comes
    // back in its colour.
    test::TestDocument back;
    ASSERT_EQ(newPanorama(back, dir.file("sphere.png")), status::ok);
    const std::int32_t n = back.height();
    for (int f = 0; f < 6; ++f) {
        const ColourPOD c = back.rgbAt(f * n + n / 2, n / 2);
        EXPECT_EQ(c, (ColourPOD{faceColours[f][2], faceColours[f][1], faceColours[f][0]}))
            << "face " << f;
    }
}

TEST(PanoramaExport, SixFacesRoundTripThroughTheImportOfAStrip) {
    test::TempDir dir;
    const std::int32_t n = 20;
    pictures::writeFile(dir.file("strip.png"),
                        pictures::writePng(pictures::pattern(6 * n, n, false), {}));
    test::TestDocument original;
    ASSERT_EQ(newPanorama(original, dir.file("strip.png")), status::ok);

    std::wstring error;
    ASSERT_EQ(PanoramaExport::exportFaces(original, utf8(dir.file("cube.png")), {}, error),
              status::ok)
        << utf8(error);
    const auto paths = PanoramaExport::facePaths(utf8(dir.file("cube.png")));
    EXPECT_EQ(utf8(paths[0]), dir.file("cube-front.png"));
    EXPECT_EQ(utf8(paths[5]), dir.file("cube-down.png"));

    // The six pictures side by side again make the same panorama.
    pictures::Rgba strip;
    strip.width = 6 * n;
    strip.height = n;
    strip.pixels.assign(std::size_t(6 * n) * n * 4, 255);
    for (int f = 0; f < 6; ++f) {
        test::PngImage face;
        std::string readError;
        ASSERT_TRUE(test::readPng(utf8(paths[std::size_t(f)]), face, readError)) << readError;
        ASSERT_EQ(face.width, std::uint32_t(n));
        ASSERT_EQ(face.height, std::uint32_t(n));
        for (std::int32_t y = 0; y < n; ++y) {
            for (std::int32_t x = 0; x < n; ++x) {
                std::copy_n(face.at(x, y), 3, strip.at(f * n + x, y));
            }
        }
    }
    pictures::writeFile(dir.file("again.png"), pictures::writePng(strip, {}));
    test::TestDocument again;
    ASSERT_EQ(newPanorama(again, dir.file("again.png")), status::ok);
    ASSERT_EQ(again.width(), original.width());
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            ASSERT_EQ(again.rgbAt(x, y), original.rgbAt(x, y)) << x << "," << y;
        }
    }
}

TEST(PanoramaExport, AFlatImageIsRefusedAsNotAFullCube) {
    test::TempDir dir;
    const auto flat = test::makeTestDocument(120, 20); // six squares, but no cube camera
    std::wstring error;
    EXPECT_EQ(PanoramaExport::exportFaces(*flat, utf8(dir.file("f.png")), {}, error),
              status::noConversion);
    EXPECT_EQ(error, L"Not a full cube image");
    error.clear();
    EXPECT_EQ(PanoramaExport::exportEquirectangular(*flat, utf8(dir.file("e.png")), 0, {}, error),
              status::noConversion);
    EXPECT_EQ(error, L"Not a full cube image");
    EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::path(dir.file(""))));
}

} // namespace
