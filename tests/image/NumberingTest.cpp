// Numbers that outlive a build: status codes and their texts (language files are made
// against them), channel bits (written into files and settings) and command numbers with
// their flags (recorded actions refer to them). Each table is written out in full so that
// renumbering a constant, or a language file that drifts, shows here.

#include "core/LanguageTable.h"
#include "core/Status.h"
#include "image/DocumentCommands.h"
#include "image/ZmapDocument.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>

namespace {

struct StatusRow {
    Status constant;
    std::int32_t number;
    const wchar_t* text;
};

struct ChannelRow {
    ChannelId constant;
    std::uint32_t bit;
};

struct CommandRow {
    DocumentCommand constant;
    std::int32_t number;
    std::uint32_t flags;
};

TEST(Numbering, StatusesChannelsAndCommandsKeepTheirNumbers) {
    const StatusRow statuses[] = {
        {status::ok, 0, L"Success"},
        {status::damaged, -2, L"The file is damaged or not of the expected format"},
        {status::closeFailed, -3, L"The file could not be closed"},
        {status::alreadyOpen, -4, L"The file is already open"},
        {status::readFailed, -5, L"Reading the file failed"},
        {status::writeFailed, -6, L"Writing the file failed"},
        {status::unsupportedVersion, -7,
         L"This version of the file is not supported, or its type is unknown"},
        {status::unsupportedCompression, -8, L"The compression scheme is not supported"},
        {status::outOfMemory, -10, L"Out of memory"},
        {status::stopped, -11, L"Stopped by the user"},
        {status::noConversion, -12,
         L"The pixels cannot be converted, or there is nothing to work on"},
        {status::noImage, -13, L"The document has no image, or a required object is missing"},
        {status::diskFull, -14, L"The disk is full"},
        {status::readOnly, -15, L"The target is write-protected or read-only"},
        {status::accessDenied, -16, L"Access denied"},
        {status::exists, -17, L"The file exists already"},
        {status::badName, -18, L"The name is not valid for a file"},
        {status::sharingViolation, -19, L"The file is in use by another program"},
        {status::warning, -20, L"Done, with a warning"},
        {status::unknownCommand, -21, L"Unknown document command"},
        {status::notFound, -24, L"File or path not found"},
        {status::cancelled, -25, L"Drawing was cancelled"},
        {status::wrongExtension, -26,
         L"The extension is not that of a Quorvale document (.zmp or .zmq)"},
        {status::notPanoramaExtension, -27, L"Only a panorama can be saved as .zmq"},
        {status::panoramaAsFlat, -28, L"A panorama must be saved as .zmq"},
    };
    const ChannelRow channels[] = {
        {channelRgb, 1},
        {channelZ, 2},
        {channelMat, 4},
        {channelOriginalRgb, 8},
        {channelOriginalZ, 16},
        {channelOriginalMat, 32},
        {channelThumbnail, 64},
        {channelCutoutRgb, 128},
        {channelCutoutZ, 256},
        {channelCutoutMat, 512},
        {channelCutoutAlpha, 1024},
        {channelShadowAlpha, 2048},
        {channelFloatingRgb, 4096},
        {channelFloatingZ, 8192},
        {channelFloatingMat, 16384},
        {channelFloatingAlpha, 32768},
        {channelFloatingShadow, 65536},
    };
    // Flags: 1 changes the document, 2 counts as saved, 4 leaves the changed-since-open
    // byte alone.
    const CommandRow commands[] = {
        {commandNothing, 0, 0},     {commandNew, 1, 0},          {commandOpen, 2, 0},
        {commandSave, 3, 2},        {commandSaveAs, 4, 2},       {commandRevert, 5, 2},
        {commandCommit, 6, 1},      {commandPasteImage, 7, 5},   {commandImportChannel, 8, 0},
        {commandUndo, 9, 5},        {commandRedo, 10, 5},        {commandRepeat, 11, 5},
        {commandCrop, 12, 1},       {commandMaterialSet, 13, 1}, {commandFlatten, 14, 5},
        {commandAutoLevels, 15, 5},
    };

    LanguageTable language;
    ASSERT_EQ(language.load(LanguageTable::findDefault(L"/nonexistent/bin/quorvale")), status::ok);
    TQL::setStringTable(&language);
    for (const StatusRow& row : statuses) {
        SCOPED_TRACE(row.number);
        EXPECT_EQ(row.constant, row.number);
        EXPECT_EQ(statusText(row.constant), row.text);
    }
    // Every code of the table's range has a text of its own, the unnamed ones too; codes
    // outside it are formatted with their number.
    for (Status s = 0; s >= -29; --s) {
        EXPECT_EQ(statusText(s).find(L"<<"), std::wstring::npos) << s;
        EXPECT_NE(statusText(s), statusText(-30)) << s;
    }
    EXPECT_EQ(statusText(-30), L"Error -30");
    EXPECT_EQ(statusText(1), L"Error 1");
    TQL::setStringTable(nullptr);

    std::uint32_t allBits = 0;
    for (const ChannelRow& row : channels) {
        SCOPED_TRACE(row.bit);
        EXPECT_EQ(static_cast<std::uint32_t>(row.constant), row.bit);
        allBits |= row.bit;
    }
    EXPECT_EQ(allBits, 0x1FFFFu) << "seventeen channels, one bit each";

    std::set<std::int32_t> numbers;
    for (const CommandRow& row : commands) {
        SCOPED_TRACE(row.number);
        EXPECT_EQ(static_cast<std::int32_t>(row.constant), row.number);
        EXPECT_EQ(commandFlags(row.constant), row.flags);
        numbers.insert(row.number);
    }
    EXPECT_EQ(numbers.size(), static_cast<std::size_t>(commandCount));
}

} // namespace
