#pragma once

#include "image/DocumentCommands.h"

#include <cstdint>

/// Messages of the raster document commands: the path, then the reason.
inline constexpr std::int32_t messageRasterFailed = 10703;
/// A picture that can't be made into a panorama: the path, then the reason (10705).
inline constexpr std::int32_t messagePanoramaFailed = 10704;
inline constexpr std::int32_t messageNotPanoramaShape = 10705;

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
/// The panorama kinds of new document (from a file or a raster: both read the picture at
/// the source path) make a cube panorama without depth, looking along the default camera's
/// axis. The picture is either six square faces side by side, in the cube image's own face
/// order (front, right, back, left, up, down), taken as they are; or a spherical
/// (equirectangular) panorama twice as wide as high, its centre straight ahead, resampled
/// bilinearly into faces of a quarter of its width. The pixels that neighbouring faces
/// share are then made equal. Any other shape is refused with -7 and message 10704.
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
    void newPanorama(Status& status, ZmapDocument& document, const NewImageParams& params);

    DocumentCommands& next_;
};
