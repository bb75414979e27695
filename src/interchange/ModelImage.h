#pragma once

#include "core/Colour.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "effects/LightSet.h"
#include "image/DocumentCommands.h"
#include "image/ModelImageSettings.h"
#include "views/cameras/ViewParams.h"

#include <cstdint>
#include <string>

class Model;
class Reporter;
class SmoothModelImp;
class ZmapDocument;

/// Messages of the model kind of new document.
inline constexpr std::int32_t messageModelFailed = 10700;    ///< path, the reason
inline constexpr std::int32_t messageModelRendering = 10701; ///< path
inline constexpr std::int32_t messageModelRendered = 10702;  ///< path

/// The background of a model image unless another is asked for: a pale sky, lighter than
/// any shaded surface but white ones, so that the model stands apart from it.
inline constexpr ColourPOD modelSky{245, 238, 232};

/// The length of a model unit in metres: the model's own, or, when it doesn't say, a guess
/// from its size (millimetres for a model over 2000 units across, else metres).
double modelMetresPerUnit(const Model& model);

/// The camera record of a model image of width x height pixels (a cube image is six square
/// faces, width = 6 height), fitted to the model or placed as the settings say; its depths
/// span the model (see ModelImageSettings::fit). A fitted perspective or parallel view
/// looks from the south-south-east, down on the model at 45 degrees when it is flat and
/// less as it grows taller than wide (towards 12 degrees for a tower), with the window
/// narrowed to what is drawn, so that the model fills the frame. Units: unit code 4
/// (metres) with the model's metres per unit as the scale.
ViewParams modelViewParams(const Model& model, const ModelImageSettings& settings,
                           std::int32_t width, std::int32_t height);

/// The lights of a model image: light from the sky (a cool light from above, a dim warm
/// one from the ground) and the sun of the settings, casting shadows if asked.
TQL::Handle<LightSet> modelLights(const ModelImageSettings& settings);

/// Makes `document` the image of `model`: the parameters' size (a cube image must be six
/// times as wide as high: else -12), a camera record from modelViewParams, one material a
/// model material in their order (named after them, coloured as drawn), every pixel's
/// colour, depth code and material id as rendered, and the background colour where
/// nothing was drawn; then every channel made (allocateChannels). The document is cleared
/// first. Status -12 for a bad size or a model without geometry, -11 when stopped through
/// `progress` or a stop request, -10 out of memory; on failure `errorText` says why and
/// the document is left empty.
void makeModelImage(Status& status, ZmapDocument& document, const SmoothModelImp& model,
                    const NewImageParams& params, Reporter* progress, std::wstring& errorText);

/// The document commands with the model kind of new document: a DXF drawing named by the
/// parameters' source path is read and made into an image (makeModelImage); every other
/// command goes to the commands it wraps. A drawing that can't be read, or a rendering that
/// fails, reports message 10700 with the path and the reason (the reader's text names the
/// file and line) and gives the reader's or the renderer's status.
class ModelDocumentCommands : public DocumentCommands {
public:
    explicit ModelDocumentCommands(DocumentCommands& files) : files_(files) {}

    void newImage(Status& status, ZmapDocument& document, const NewImageParams& params) override;
    void open(Status& status, ZmapDocument& document, const std::wstring& path) override {
        files_.open(status, document, path);
    }
    void save(Status& status, ZmapDocument& document) override { files_.save(status, document); }
    void saveAs(Status& status, ZmapDocument& document, const std::wstring& path) override {
        files_.saveAs(status, document, path);
    }
    void revert(Status& status, ZmapDocument& document) override {
        files_.revert(status, document);
    }
    void importChannel(Status& status, ZmapDocument& document,
                       const ChannelImportArgument& argument) override {
        files_.importChannel(status, document, argument);
    }

private:
    DocumentCommands& files_;
};
