#pragma once

#include "image/DocumentCommands.h"

class ZmapDocument;

/// The bodies of the document commands that need files: new, open, save, save as, revert
/// and import into a channel. One object serves every document of the process.
///
/// - new makes a plain image (makePlainImage); the raster, panorama and model kinds are
///   made by the commands that wrap these (raster import, the model renderer), and give -7
///   here.
/// - open takes only Zmap files (.zmp, .zmq): another known type reports message 10080
///   and gives -26, an unknown one message 10081 and -7. Progress texts 10074 and 10076
///   frame the reading; a warning (-20) reports 10072; any other failure reports the path
///   and the status text (numbered as that text, 11100 - status), which for a damaged
///   file goes on to say where the damage lies.
/// - save and save as fill in the program's texts (fillTexts) and save safely
///   (saveZmapDocument); save needs a path (-18 without). A warning reports 10078 and
///   counts as success; a failure reports 10077 with the path and the status text. Save as
///   takes the new path on success. Paths compare exactly: names that differ in case are
///   different files.
/// - revert reads the document's file anew; if that fails, the document gets back every
///   channel, its camera, materials, texts and undo store: a failed revert keeps the image,
///   and the failure is reported as for open.
/// - import into a channel needs raster import and gives -7 until it exists.
class ZmapDocumentCommands : public DocumentCommands {
public:
    static ZmapDocumentCommands& instance();

    void newImage(Status& status, ZmapDocument& document, const NewImageParams& params) override;
    void open(Status& status, ZmapDocument& document, const std::wstring& path) override;
    void save(Status& status, ZmapDocument& document) override;
    void saveAs(Status& status, ZmapDocument& document, const std::wstring& path) override;
    void revert(Status& status, ZmapDocument& document) override;
    void importChannel(Status& status, ZmapDocument& document,
                       const ChannelImportArgument& argument) override;
};

/// Sets the texts of a document that the program writes at each save: software (the
/// product's name and version), host computer (the setting HostComputer, or else the
/// system's host name) and the date and time now, local time, as "%Y:%m:%d %H:%M:%S".
/// Description, artist and copyright stay as the user set them.
void fillTexts(ZmapDocument& document);
