#include "file/ZmapDocumentFile.h"

#include "core/FilePath.h"
#include "core/Settings.h"
#include "core/StringUtils.h"
#include "file/FileType.h"
#include "file/QuorvaleZmapFile.h"
#include "image/ZmapDocument.h"

#include <cerrno>
#include <cstdio>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// The status of `path`'s extension for `document`; 0 if it suits.
Status checkExtension(const ZmapDocument& document, const std::wstring& path) {
    const int type = fileType(path);
    const bool panorama = document.viewParams().viewCode == ViewParams::cubicCode;
    if (type == fileTypeUnknown) {
        return status::unsupportedVersion;
    }
    if (type == fileTypeZmp && panorama) {
        return status::panoramaAsFlat;
    }
    if (type == fileTypeZmq && !panorama) {
        return status::notPanoramaExtension;
    }
    if (type != fileTypeZmp && type != fileTypeZmq) {
        return status::wrongExtension;
    }
    return status::ok;
}

void fillTextsFromSettings(ZmapDocument& document) {
    static StringSetting artist(zmapSaveSettings::artistKey, L"");
    static StringSetting copyright(zmapSaveSettings::copyrightKey, L"");
    // Read anew each time: the user may have changed them since the last save.
    artist.invalidate();
    copyright.invalidate();
    if (document.artist.empty()) {
        document.artist = artist.value();
    }
    if (document.copyright.empty()) {
        document.copyright = copyright.value();
    }
}

/// Moves an existing target out of the way: `backup` receives its new name, empty when
/// there was no target.
Status moveAside(const std::string& target, std::string& backup) {
    backup.clear();
    struct stat info {};
    if (::stat(target.c_str(), &info) != 0) {
        return errno == ENOENT ? status::ok : status::fromErrno(errno, status::writeFailed);
    }
    if (S_ISDIR(info.st_mode)) {
        return status::badName;
    }
    if ((info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) {
        return status::readOnly;
    }
    std::wstring name;
    std::wstring extension;
    const std::wstring directory = getDirectory(utf8(target), name, extension);
    if (extension.empty()) {
        return status::badName;
    }
    const std::string aside = utf8(joinDirectory(directory, name + L".~zm"));
    ::unlink(aside.c_str());
    if (std::rename(target.c_str(), aside.c_str()) != 0) {
        return status::fromErrno(errno, status::writeFailed);
    }
    backup = aside;
    return status::ok;
}

} // namespace

void openZmapDocument(Status& status, ZmapDocument& document, const std::wstring& path,
                      Reporter* progress, std::wstring* failureText) {
    QuorvaleZmapFile file;
    file.setProgress(progress);
    file.read(status, path, document);
    if (status != status::ok) {
        if (failureText) {
            *failureText = file.failureText(status);
        }
        return;
    }
    status = document.allocateChannels();
    if (status != status::ok && failureText) {
        *failureText = statusText(status);
    }
    if (status == status::ok) {
        document.pathName = path;
        document.fromFile = 1;
    }
}

void saveZmapDocument(Status& status, ZmapDocument& document, const std::wstring& path,
                      Reporter* progress) {
    status = checkExtension(document, path);
    if (status != status::ok) {
        return;
    }
    const std::string target = utf8(path);
    std::string backup;
    bool writing = false;
    try {
        fillTextsFromSettings(document);
        status = moveAside(target, backup);
        if (status != status::ok) {
            return; // nothing changed on the disk
        }
        writing = true;
        QuorvaleZmapFile file;
        file.setProgress(progress);
        file.setSyncOnWrite(true);
        file.write(status, document, path);
    } catch (...) {
        // The writer reports its own failures; this is the last guard for anything else.
        status = status::outOfMemory;
    }
    if (!writing) {
        return;
    }
    if (status == status::ok) {
        if (!backup.empty() && ::unlink(backup.c_str()) != 0) {
            status = status::warning;
        }
        document.savedCompression = document.compression;
        document.readOnly = 0;
        document.fromFile = 0;
        return;
    }
    ::unlink(target.c_str());
    if (!backup.empty()) {
        std::rename(backup.c_str(), target.c_str());
    }
}
