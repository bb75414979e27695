// The raster kind of new document and the import of a picture into a channel.
#include "PictureFiles.h"

#include "core/StringUtils.h"
#include "file/ZmapDocumentCommands.h"
#include "image/UndoBuffer.h"
#include "interchange/raster/RasterDocumentCommands.h"
#include "interchange/raster/RasterImport.h"
#include "support/TempDir.h"
#include "support/TestDocument.h"
#include "views/cameras/FaceSize.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

namespace {

class RecordingMessages : public CommandMessages {
public:
    void message(std::int32_t id, const std::wstring& text) override {
        messages.emplace_back(id, text);
    }
    void progressText(std::int32_t, const std::wstring&) override {}
    std::vector<std::pair<std::int32_t, std::wstring>> messages;
};

/// Makes a new panorama document from the picture, returning the status.
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

TEST(RasterDocumentCommands, PanoramaFromSixFacesKeepsThemAndStitchesTheSeams) {
    test::TempDir dir;
    const std::int32_t n = 24;
    pictures::Rgba strip = pictures::pattern(6 * n, n, false);
    pictures::writeFile(dir.file("strip.png"), pictures::writePng(strip, {}));
    test::TestDocument doc;
    ASSERT_EQ(newPanorama(doc, dir.file("strip.png")), status::ok);
    ASSERT_EQ(doc.width(), 6 * n);
    ASSERT_EQ(doc.height(), n);
    EXPECT_EQ(doc.viewParams().viewCode, ViewParams::cubicCode);
    ASSERT_TRUE(doc.viewProj());
    const FaceSize faces = doc.viewProj()->faceSize();
    ASSERT_EQ(faces.size(), n);
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            EXPECT_EQ(doc.zAt(x, y), 0xFFFFFFFFu);
            IPoint<2> copies[3];
            const int count = faces.copies(x, y, copies);
            for (int i = 1; i < count; ++i) {
                EXPECT_EQ(doc.rgbAt(copies[i].x, copies[i].y), doc.rgbAt(x, y))
                    << "the copies of a seam pixel differ at " << x << ", " << y;
            }
            if (count == 1) {
                const std::uint8_t* q = strip.at(x, y);
                EXPECT_EQ(doc.rgbAt(x, y), (ColourPOD{q[2], q[1], q[0]})) << x << ", " << y;
            }
        }
    }
}

TEST(RasterDocumentCommands, SphericalPanoramaIsResampledIntoTheFacesByDirection) {
    // Longitude bands of 90 degrees centred on ahead, right, behind and left, and caps
    // above and below 67.5 degrees of latitude: each face's centre must land in its own.
    const std::int32_t w = 256;
    const std::int32_t h = 128;
    const std::uint8_t colours[6][3] = {{200, 0, 0},   {0, 200, 0},   {0, 0, 200},
                                        {200, 200, 0}, {0, 200, 200}, {200, 0, 200}};
    pictures::Rgba sphere;
    sphere.width = w;
    sphere.height = h;
    sphere.pixels.assign(std::size_t(w) * h * 4, 255);
    for (std::int32_t y = 0; y < h; ++y) {
        for (std::int32_t x = 0; x < w; ++x) {
            const double longitude = (x + 0.5) / w * 360 - 180;
            const double latitude = 90 - (y + 0.5) / h * 180;
            int band = latitude > 67.5 ? 4 : latitude < -67.5 ? 5 : -1;
            if (band < 0) {
                band = int(std::floor((longitude + 45) / 90 + 4)) % 4; // 0 ahead, 1 right...
            }
            std::copy(colours[band], colours[band] + 3, sphere.at(x, y));
        }
    }
    test::TempDir dir;
    pictures::writeFile(dir.file("sphere.png"), pictures::writePng(sphere, {}));
    test::TestDocument doc;
    ASSERT_EQ(newPanorama(doc, dir.file("sphere.png")), status::ok);
    const std::int32_t n = w / 4;
    ASSERT_EQ(doc.width(), 6 * n);
    ASSERT_EQ(doc.height(), n);
    // Faces 0 to 3 look ahead, right, behind and left; 4 up, 5 down.
    for (int face = 0; face < 6; ++face) {
        const ColourPOD c = doc.rgbAt(face * n + n / 2, n / 2);
        EXPECT_EQ(c, (ColourPOD{colours[face][2], colours[face][1], colours[face][0]}))
            << "face " << face;
    }
}

TEST(RasterDocumentCommands, PictureOfAnotherShapeIsNoPanorama) {
    test::TempDir dir;
    pictures::writeFile(dir.file("square.png"),
                        pictures::writePng(pictures::pattern(40, 40, false), {}));
    test::TestDocument doc;
    RecordingMessages messages;
    doc.editor.setMessages(&messages);
    EXPECT_EQ(newPanorama(doc, dir.file("square.png")), status::unsupportedVersion);
    EXPECT_FALSE(doc.rgb);
    ASSERT_EQ(messages.messages.size(), 1u);
    EXPECT_EQ(messages.messages[0].first, messagePanoramaFailed);
    EXPECT_NE(messages.messages[0].second.find(L"square.png"), std::wstring::npos);
    EXPECT_NE(messages.messages[0].second.find(L"40 x 40"), std::wstring::npos);
}

TEST(RasterDocumentCommands, NewDocumentFromAPictureLaysAlphaOverTheBackground) {
    test::TempDir dir;
    pictures::PngOptions o;
    o.colourType = 6; // RGBA
    const pictures::Rgba p = pictures::pattern(90, 70, true);
    pictures::writeFile(dir.file("p.png"), pictures::writePng(p, o));
    test::TestDocument doc;
    RasterDocumentCommands commands(ZmapDocumentCommands::instance());
    doc.editor.setCommands(&commands);
    NewImageParams params;
    params.kind = NewImageKind::fromRaster;
    params.sourcePath = utf8(dir.file("p.png"));
    params.background = ColourPOD{0, 0, 255};
    Status s = status::ok;
    doc.editor.execute(s, commandNew, params);
    ASSERT_EQ(s, status::ok);
    ASSERT_EQ(doc.width(), 90);
    ASSERT_EQ(doc.height(), 70);
    for (std::int32_t y = 0; y < 70; y += 7) {
        for (std::int32_t x = 0; x < 90; x += 3) {
            const std::uint8_t* q = p.at(x, y);
            const ColourPOD c = doc.rgbAt(x, y);
            EXPECT_EQ(c.r, (q[0] * q[3] + 255 * (255 - q[3]) + 127) / 255);
            EXPECT_EQ(c.b, (q[2] * q[3] + 127) / 255);
            EXPECT_EQ(doc.zAt(x, y), 0xFFFFFFFFu);
            EXPECT_EQ(doc.originalRgbAt(x, y), c);
        }
    }
    params.sourcePath = utf8(dir.file("absent.png"));
    doc.editor.execute(s, commandNew, params);
    EXPECT_EQ(s, rasterStatus::couldNotOpen);
    EXPECT_FALSE(doc.rgb) << "a failed new leaves the document empty";
}

TEST(RasterDocumentCommands, ImportIntoChannelsIsCentredAndUndoable) {
    test::TempDir dir;
    pictures::Rgba p = pictures::pattern(4, 2, false);
    pictures::writeFile(dir.file("p.bmp"), pictures::bmp24(p));
    auto doc = test::makeTestDocument(10, 6);
    RasterDocumentCommands commands(ZmapDocumentCommands::instance());
    doc->editor.setCommands(&commands);
    Status s = status::ok;
    doc->editor.execute(s, commandImportChannel,
                        ChannelImportArgument{utf8(dir.file("p.bmp")), channelRgb});
    ASSERT_EQ(s, status::ok);
    EXPECT_TRUE(doc->changedFlag);
    // Centred: (10 - 4) / 2 = 3 across, (6 - 2) / 2 = 2 down.
    EXPECT_EQ(doc->rgbAt(3, 2).r, p.at(0, 0)[0]);
    EXPECT_EQ(doc->rgbAt(6, 3).g, p.at(3, 1)[1]);
    EXPECT_EQ(doc->rgbAt(2, 2), ColourPOD{});
    doc->editor.execute(s, commandImportChannel,
                        ChannelImportArgument{utf8(dir.file("p.bmp")), channelZ});
    ASSERT_EQ(s, status::ok);
    const std::uint8_t* q = p.at(1, 1);
    const std::uint32_t grey = (q[0] + q[1] + q[2] + 1) / 3;
    EXPECT_EQ(doc->zAt(4, 3), grey * 0x01010101u);
    doc->editor.execute(s, commandUndo, {});
    ASSERT_EQ(s, status::ok);
    EXPECT_EQ(doc->zAt(4, 3), 0xFFFFFFFFu);
    EXPECT_EQ(doc->rgbAt(3, 2).r, p.at(0, 0)[0]) << "only the last import is undone";
    doc->editor.execute(s, commandImportChannel,
                        ChannelImportArgument{utf8(dir.file("p.bmp")), channelThumbnail});
    EXPECT_EQ(s, status::noConversion);
}

} // namespace
