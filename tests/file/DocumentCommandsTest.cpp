#include "core/Settings.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/ZmapDocumentCommands.h"
#include "support/TempDir.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cwctype>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// A document that records its changed flag and has the file commands.
class FileDocument : public test::TestDocument {
public:
    FileDocument() { editor.setCommands(&ZmapDocumentCommands::instance()); }
};

class RecordingMessages : public CommandMessages {
public:
    void message(std::int32_t id, const std::wstring& text) override {
        messages.emplace_back(id, text);
    }
    void progressText(std::int32_t id, const std::wstring& text) override {
        progress.emplace_back(id, text);
    }
    std::vector<std::pair<std::int32_t, std::wstring>> messages;
    std::vector<std::pair<std::int32_t, std::wstring>> progress;
};

Status run(ZmapDocument& doc, std::int32_t command, const CommandArgument& argument = {}) {
    Status s = -99;
    doc.editor.execute(s, command, argument);
    return s;
}

NewImageParams plain(std::int32_t width, std::int32_t height, ColourPOD background) {
    NewImageParams params;
    params.width = width;
    params.height = height;
    params.background = background;
    return params;
}

/// Pastes one grey pixel into the middle of the image: at ((width - 1) / 2, (height - 1) / 2).
Status pasteDot(ZmapDocument& doc, std::uint8_t grey) {
    const std::uint8_t pixel[3] = {grey, grey, grey};
    return run(doc, commandPasteImage, RgbImage{1, 1, pixel, 3});
}

/// True for a text of the form "2024:06:11 09:30:00".
bool isDateTime(const std::wstring& text) {
    const std::wstring form = L"dddd:dd:dd dd:dd:dd";
    if (text.size() != form.size()) {
        return false;
    }
    for (std::size_t i = 0; i < form.size(); ++i) {
        if (form[i] == L'd' ? !std::iswdigit(text[i]) : text[i] != form[i]) {
            return false;
        }
    }
    return true;
}

bool exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

TEST(DocumentCommands, NewMakesPlainImagesOnly) {
    struct Case {
        const char* name;
        NewImageKind kind;
        std::int32_t width, height;
        Status status;
    };
    const Case cases[] = {
        {"plain", NewImageKind::plain, 300, 200, status::ok},
        {"no width", NewImageKind::plain, 0, 200, status::noConversion},
        {"beyond the tile limit", NewImageKind::plain, 1 << 30, 1 << 30, status::outOfMemory},
        {"from a raster", NewImageKind::fromRaster, 300, 200, status::unsupportedVersion},
        {"a model", NewImageKind::model, 300, 200, status::unsupportedVersion},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FileDocument doc;
        NewImageParams params = plain(c.width, c.height, {10, 20, 30});
        params.kind = c.kind;
        params.description = L"Courtyard";
        params.xResolution = 100;
        EXPECT_EQ(run(doc, commandNew, params), c.status);
        EXPECT_EQ(bool(doc.rgb), c.status == status::ok);
        EXPECT_EQ(doc.setChangedCalls, 0);
        if (c.status != status::ok) {
            continue;
        }
        EXPECT_EQ(doc.width(), 300);
        EXPECT_EQ(doc.rgbAt(0, 0), (ColourPOD{10, 20, 30}));
        EXPECT_EQ(doc.rgbAt(299, 199), (ColourPOD{10, 20, 30}));
        EXPECT_EQ(doc.zAt(150, 100), ZBitmap::noDepth);
        EXPECT_EQ(doc.description, L"Courtyard");
        EXPECT_EQ(doc.xResolution, 100);
        ASSERT_TRUE(doc.editor.undoBuffer);
        EXPECT_FALSE(doc.editor.undoBuffer->canUndo());
        // Square pixels: at one depth, a step right and a step down are equally long.
        ASSERT_TRUE(doc.viewProj());
        const ViewProj& view = *doc.viewProj();
        const Point<3> p = view.worldFromPixel(100, 50, 1u << 30);
        const double right = (view.worldFromPixel(101, 50, 1u << 30) - p).length();
        const double down = (view.worldFromPixel(100, 51, 1u << 30) - p).length();
        EXPECT_NEAR(right / down, 1.0, 1e-9);
    }
    // A black background is what empty colour tiles read: nothing is written.
    FileDocument black;
    ASSERT_EQ(run(black, commandNew, plain(300, 200, {})), status::ok);
    EXPECT_EQ(black.rgb->nonEmptyTiles(), 0);
}

TEST(DocumentCommands, OpenTakesOnlyDocumentFilesAndLeavesTheImageOnRefusal) {
    struct Case {
        const wchar_t* path;
        Status status;
        std::int32_t message; // 0 for none
    };
    const Case cases[] = {
        {L"/tmp/picture.tif", status::wrongExtension, 10080},
        {L"/tmp/scene.DXF", status::wrongExtension, 10080},
        {L"/tmp/notes.txt", status::unsupportedVersion, 10081},
        {L"/tmp/no extension", status::unsupportedVersion, 10081},
        // Any other failure says why in the status's text (string 11100 - status).
        {L"/nonexistent/directory/house.zmp", status::notFound, 11100 - status::notFound},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(getMBS(c.path));
        FileDocument doc;
        RecordingMessages messages;
        doc.editor.setMessages(&messages);
        ASSERT_EQ(run(doc, commandNew, plain(64, 64, {1, 2, 3})), status::ok);
        const TQL::Handle<RgbBitmap> image = doc.rgb;
        EXPECT_EQ(run(doc, commandOpen, FileArgument{c.path}), c.status);
        EXPECT_TRUE(doc.rgb == image);
        EXPECT_EQ(doc.rgbAt(5, 5), (ColourPOD{1, 2, 3}));
        if (c.message) {
            ASSERT_EQ(messages.messages.size(), 1u);
            EXPECT_EQ(messages.messages[0].first, c.message);
            if (c.message == 11100 - c.status) {
                // The status's own text, after the path it concerns.
                const std::wstring& text = messages.messages[0].second;
                EXPECT_EQ(text.find(c.path), 0u);
                EXPECT_NE(text.find(statusText(c.status)), std::wstring::npos);
            } else {
                EXPECT_NE(messages.messages[0].second.find(c.path), std::wstring::npos);
            }
        } else {
            EXPECT_TRUE(messages.messages.empty());
        }
    }
}

// One session: the changed flag and the path through new, paste, save as, undo and redo,
// and what the file holds when another document opens it.
TEST(DocumentCommands, SavingMarksTheSavedLevelAndMovesThePath) {
    test::TempDir dir;
    const std::wstring first = getWCS(dir.file("first.zmp"));
    const std::wstring second = getWCS(dir.file("First.zmp")); // another file here
    TQL::settingsStore().write(L"Settings", L"HostComputer", L"drafting-room");
    FileDocument doc;
    RecordingMessages messages;
    doc.editor.setMessages(&messages);
    ASSERT_EQ(run(doc, commandNew, plain(100, 80, {200, 200, 200})), status::ok);
    EXPECT_EQ(run(doc, commandSave), status::badName); // no path yet

    ASSERT_EQ(pasteDot(doc, 7), status::ok);
    EXPECT_TRUE(doc.changedFlag);
    ASSERT_EQ(run(doc, commandSaveAs, FileArgument{first}), status::ok);
    EXPECT_FALSE(doc.changedFlag);
    EXPECT_EQ(doc.pathName, first);
    EXPECT_EQ(doc.hostComputer, L"drafting-room");
    EXPECT_EQ(doc.software.rfind(L"Quorvale ", 0), 0u);
    EXPECT_TRUE(isDateTime(doc.dateTime)) << getMBS(doc.dateTime);

    ASSERT_EQ(pasteDot(doc, 8), status::ok);
    EXPECT_TRUE(doc.changedFlag);
    ASSERT_EQ(run(doc, commandUndo), status::ok); // back to the saved level
    EXPECT_FALSE(doc.changedFlag);
    ASSERT_EQ(run(doc, commandUndo), status::ok);
    EXPECT_TRUE(doc.changedFlag);
    ASSERT_EQ(run(doc, commandRedo), status::ok);
    EXPECT_FALSE(doc.changedFlag);

    ASSERT_EQ(run(doc, commandSaveAs, FileArgument{second}), status::ok);
    EXPECT_EQ(doc.pathName, second);
    EXPECT_TRUE(exists(dir.file("first.zmp")));
    EXPECT_TRUE(exists(dir.file("First.zmp")));
    EXPECT_TRUE(messages.messages.empty());

    DummyZmapDocument copy;
    ASSERT_EQ(run(copy, commandOpen, FileArgument{first}), status::ok);
    EXPECT_EQ(copy.rgbAt(49, 39), (ColourPOD{7, 7, 7}));
    EXPECT_EQ(copy.rgbAt(0, 0), (ColourPOD{200, 200, 200}));
    EXPECT_EQ(copy.hostComputer, L"drafting-room");
    EXPECT_EQ(copy.pathName, first);
    EXPECT_FALSE(copy.editor.undoBuffer->canUndo());
    TQL::settingsStore().remove(L"Settings", L"HostComputer");
}

TEST(DocumentCommands, AFailedSaveKeepsPathAndFlagAndSaysWhy) {
    test::TempDir dir;
    FileDocument doc;
    RecordingMessages messages;
    doc.editor.setMessages(&messages);
    ASSERT_EQ(run(doc, commandNew, plain(64, 64, {1, 1, 1})), status::ok);
    ASSERT_EQ(pasteDot(doc, 9), status::ok);
    const std::wstring raster = getWCS(dir.file("out.png"));
    EXPECT_EQ(run(doc, commandSaveAs, FileArgument{raster}), status::wrongExtension);
    EXPECT_TRUE(doc.changedFlag);
    EXPECT_TRUE(doc.pathName.empty());
    EXPECT_FALSE(exists(dir.file("out.png")));
    ASSERT_EQ(messages.messages.size(), 1u);
    EXPECT_EQ(messages.messages[0].first, 10077);
    EXPECT_NE(messages.messages[0].second.find(raster), std::wstring::npos);
}

TEST(DocumentCommands, RevertReadsTheFileAgainAndAFailedOneKeepsTheImage) {
    test::TempDir dir;
    const std::wstring path = getWCS(dir.file("revert.zmp"));
    FileDocument doc;
    ASSERT_EQ(run(doc, commandNew, plain(64, 64, {3, 3, 3})), status::ok);
    ASSERT_EQ(run(doc, commandSaveAs, FileArgument{path}), status::ok);

    ASSERT_EQ(pasteDot(doc, 90), status::ok);
    ASSERT_EQ(run(doc, commandRevert), status::ok);
    EXPECT_EQ(doc.rgbAt(31, 31), (ColourPOD{3, 3, 3}));
    EXPECT_FALSE(doc.changedFlag);
    EXPECT_FALSE(doc.editor.undoBuffer->canUndo());
    EXPECT_EQ(doc.pathName, path);

    // Without its file the revert fails, and the document is as it was.
    ASSERT_EQ(pasteDot(doc, 91), status::ok);
    doc.setMaterial(5, L"Glass", {5, 5, 5}, false);
    const TQL::Handle<RgbBitmap> image = doc.rgb;
    const TQL::Handle<UndoBuffer> undo = doc.editor.undoBuffer;
    ASSERT_EQ(::unlink(dir.file("revert.zmp").c_str()), 0);
    EXPECT_NE(run(doc, commandRevert), status::ok);
    EXPECT_TRUE(doc.rgb == image);
    EXPECT_TRUE(doc.editor.undoBuffer == undo);
    EXPECT_EQ(doc.rgbAt(31, 31), (ColourPOD{91, 91, 91}));
    EXPECT_EQ(doc.materialName(5), L"Glass");
    EXPECT_TRUE(doc.changedFlag);
    EXPECT_EQ(doc.pathName, path);
    ASSERT_EQ(run(doc, commandUndo), status::ok);
    EXPECT_EQ(doc.rgbAt(31, 31), (ColourPOD{3, 3, 3}));
}

} // namespace
