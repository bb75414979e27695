#pragma once

#include "image/DocumentCommands.h"

#include <cstdint>

/// Messages of the raster document commands: the path, then the reason.
inline constexpr std::int32_t messageRasterFailed = 10703;

/// The document commands with rasters: the raster kind of new document (a picture's size
/// and pixels, its alpha laid over the background colour, no depth anywhere) and the import
/// of a picture into one channel (command 8). Every other command goes to the commands it
/// wraps.
///
/// Import into a channel reads the picture and writes it centred (clipped) into the
/// document: the colour channels (1, 8) take its colour; the depth channels (2, 16) and
/// the material channels (4, 32) take its grey level (the mean of blue, green and red),
/// depth as grey * 0x01010101 (white is no depth), material as the grey value. The change
/// is one undo level and marks the document changed. -12 for another channel.
///
/// A picture that can't be read reports message 10703 with the path and the reason and
/// gives the reader's status.
class RasterDocumentCommands : public DocumentCommands {
public:
    explicit RasterDocumentCommands(DocumentCommands& next) : next_(next) {}

    void newImage(Status& status, ZmapDocument& document, const NewImageParams& params) override;
    void open(Status& status, ZmapDocument& document, const std::wstring& path) override {
        next_.open(status, document, path);
    }
    void save(Status& status, ZmapDocument& document) override { next_.save(status, document); }
    void saveAs(Status& status, ZmapDocument& document, const std::wstring& path) override {
        next_.saveAs(status, document, path);
    }
    void revert(Status& status, ZmapDocument& document) override { next_.revert(status, document); }
    void importChannel(Status& status, ZmapDocument& document,
                       const ChannelImportArgument& argument) override;

private:
    DocumentCommands& next_;
};
