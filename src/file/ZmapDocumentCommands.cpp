#include "file/ZmapDocumentCommands.h"

#include "core/Settings.h"
#include "core/StringUtils.h"
#include "file/FileType.h"
#include "file/ZmapDocumentFile.h"
#include "image/ChannelTable.h"
#include "image/ZmapDocument.h"

#include <array>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace {

// Numbered messages of the file commands.
constexpr std::int32_t messageOpenWarning = 10072;
constexpr std::int32_t progressReading = 10074;
constexpr std::int32_t progressRead = 10076;
constexpr std::int32_t messageSaveFailed = 10077;
constexpr std::int32_t messageSaveWarning = 10078;
constexpr std::int32_t messageNotADocument = 10080;
constexpr std::int32_t messageUnknownType = 10081;
/// The text of status s is string statusTextId - s.
constexpr std::int32_t statusTextId = 11100;

const wchar_t* const productName = L"Quorvale";

/// Everything of a document that reading a file replaces, held so that a failed revert can
/// put it back.
class HeldDocument {
public:
    explicit HeldDocument(const ZmapDocument& d)
        : width_(d.width()), height_(d.height()), undoBuffer_(d.editor.undoBuffer),
          changedSinceOpen_(d.editor.changedSinceOpen()), pathName_(d.pathName),
          readOnly_(d.readOnly),
          fromFile_(d.fromFile), texts_{d.description, d.artist,       d.copyright,
                                        d.software,    d.hostComputer, d.dateTime},
          savedCompression_(d.savedCompression), compression_(d.compression),
          cutoutBlock_(d.cutoutBlock), cutoutBlockItems_(d.cutoutBlockItems),
          materials_(d.materials()), xResolution_(d.xResolution), yResolution_(d.yResolution),
          view_(d.viewParams()) {
        for (const ChannelInfo& c : ChannelTable::all()) {
            channels_.push_back(c.get(d));
        }
    }

    void restore(ZmapDocument& d) const {
        d.clearDocument();
        (void)d.setSize(width_, height_); // the size the held channels were made for
        for (std::size_t i = 0; i < channels_.size(); ++i) {
            ChannelTable::all()[i].set(d, channels_[i]);
        }
        d.editor.undoBuffer = undoBuffer_;
        d.editor.setChangedSinceOpen(changedSinceOpen_);
        d.pathName = pathName_;
        d.readOnly = readOnly_;
        d.fromFile = fromFile_;
        d.description = texts_[0];
        d.artist = texts_[1];
        d.copyright = texts_[2];
        d.software = texts_[3];
        d.hostComputer = texts_[4];
        d.dateTime = texts_[5];
        d.savedCompression = savedCompression_;
        d.compression = compression_;
        d.cutoutBlock = cutoutBlock_;
        d.cutoutBlockItems = cutoutBlockItems_;
        for (const auto& [id, record] : materials_) {
            d.restoreMaterial(id, &record);
            d.changeMaterialUsers(id, record.users);
            if (record.deleted) {
                d.deleteMaterial(id);
            }
        }
        d.xResolution = xResolution_;
        d.yResolution = yResolution_;
        d.setViewParams(view_);
    }

private:
    std::int32_t width_;
    std::int32_t height_;
    /// The channels in the order of ChannelTable::all().
    std::vector<TQL::Handle<TileBitmap>> channels_;
    TQL::Handle<UndoBuffer> undoBuffer_;
    bool changedSinceOpen_;
    std::wstring pathName_;
    std::uint8_t readOnly_;
    std::uint8_t fromFile_;
    std::array<std::wstring, 6> texts_;
    std::int32_t savedCompression_;
    std::int32_t compression_;
    std::vector<std::uint8_t> cutoutBlock_;
    std::uint16_t cutoutBlockItems_;
    std::map<MaterialId, MaterialRecord> materials_;
    float xResolution_;
    float yResolution_;
    ViewParams view_;
};

/// Saves to `path` and tells the user how it went; -20 counts as success.
void saveTo(Status& status, ZmapDocument& document, const std::wstring& path) {
    fillTexts(document);
    saveZmapDocument(status, document, path, document.editor.progress());
    if (status == status::warning) {
        document.editor.tell(messageSaveWarning, commandText(messageSaveWarning, {path}));
    } else if (status != status::ok) {
        document.editor.tell(messageSaveFailed,
                             commandText(messageSaveFailed, {path, statusText(status)}));
    }
}

} // namespace

ZmapDocumentCommands& ZmapDocumentCommands::instance() {
    static ZmapDocumentCommands commands;
    return commands;
}

void ZmapDocumentCommands::newImage(Status& status, ZmapDocument& document,
                                    const NewImageParams& params) {
    switch (params.kind) {
    case NewImageKind::plain:
        makePlainImage(status, document, params);
        return;
    case NewImageKind::fromRaster:
    case NewImageKind::panoramaFromFile:
    case NewImageKind::panoramaFromRaster:
    case NewImageKind::model:
        // These need raster import or the model renderer.
        status = status::unsupportedVersion;
        return;
    }
    status = status::unsupportedVersion;
}

void ZmapDocumentCommands::open(Status& status, ZmapDocument& document, const std::wstring& path) {
    const int type = fileType(path);
    if (type == fileTypeUnknown) {
        document.editor.tell(messageUnknownType, commandText(messageUnknownType, {path}));
        status = status::unsupportedVersion;
        return;
    }
    if (type != fileTypeZmp && type != fileTypeZmq) {
        // Raster files come in through raster import, not as documents.
        document.editor.tell(messageNotADocument, commandText(messageNotADocument, {path}));
        status = status::wrongExtension;
        return;
    }
    document.editor.tellProgress(progressReading, commandText(progressReading, {path}));
    std::wstring failure;
    openZmapDocument(status, document, path, document.editor.progress(), &failure);
    if (status == status::ok || status == status::warning) {
        document.editor.tellProgress(progressRead, commandText(progressRead, {path}));
    }
    if (status == status::warning) {
        document.editor.tell(messageOpenWarning, commandText(messageOpenWarning, {path}));
    } else if (status != status::ok) {
        // Numbered as the status text it shows, which for a damaged file names the place.
        document.editor.tell(statusTextId - status, path + L": " + failure);
    }
}

void ZmapDocumentCommands::save(Status& status, ZmapDocument& document) {
    if (document.pathName.empty()) {
        status = status::badName;
        return;
    }
    saveTo(status, document, document.pathName);
}

void ZmapDocumentCommands::saveAs(Status& status, ZmapDocument& document,
                                  const std::wstring& path) {
    saveTo(status, document, path);
    if (status == status::ok || status == status::warning) {
        document.pathName = path;
    }
}

void ZmapDocumentCommands::revert(Status& status, ZmapDocument& document) {
    if (document.pathName.empty()) {
        status = status::badName;
        return;
    }
    const HeldDocument held(document);
    const std::wstring path = document.pathName;
    std::wstring failure;
    openZmapDocument(status, document, path, document.editor.progress(), &failure);
    if (status != status::ok) {
        held.restore(document);
        document.editor.tell(statusTextId - status, path + L": " + failure);
    }
}

void ZmapDocumentCommands::importChannel(Status& status, ZmapDocument&,
                                         const ChannelImportArgument&) {
    status = status::unsupportedVersion; // needs raster import
}

void fillTexts(ZmapDocument& document) {
    document.software = std::wstring(productName) + L" " + getWCS(QUORVALE_VERSION_TEXT);

    static StringSetting hostSetting(L"HostComputer", L"");
    hostSetting.invalidate(); // the user may have changed it since the last save
    std::wstring host = hostSetting.value();
    if (host.empty()) {
        char name[256] = {};
        if (::gethostname(name, sizeof name - 1) == 0) {
            host = getWCS(name);
        }
    }
    document.hostComputer = host;

    // SOURCE_DATE_EPOCH (seconds, UTC) stands in for the clock, so that the same work
    // saved twice gives the same bytes (reproducible runs of the command-line tool).
    std::time_t now = std::time(nullptr);
    std::tm local{};
    char text[32] = {};
    bool fixed = false;
    if (const char* epoch = std::getenv("SOURCE_DATE_EPOCH")) {
        char* end = nullptr;
        const long long seconds = std::strtoll(epoch, &end, 10);
        if (end != epoch && *end == 0 && seconds >= 0) {
            now = static_cast<std::time_t>(seconds);
            fixed = true;
        }
    }
    if ((fixed ? gmtime_r(&now, &local) : localtime_r(&now, &local)) &&
        std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &local)) {
        document.dateTime = getWCS(text);
    }
}
