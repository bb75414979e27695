// The raster kind of new document and the import of a picture into a channel.
#include "PictureFiles.h"

#include "core/StringUtils.h"
#include "file/ZmapDocumentCommands.h"
#include "image/UndoBuffer.h"
#include "interchange/raster/RasterDocumentCommands.h"
#include "interchange/raster/RasterImport.h"
#include "support/TempDir.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

namespace {

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
