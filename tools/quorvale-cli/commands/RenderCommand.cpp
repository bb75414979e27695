// quorvale-cli render MODEL.dxf OUT.zmp [options]: reads a DXF drawing, renders it into a
// new document through the new-document command (its model kind) and saves the document
// safely; --png and its kin write pictures of the channels as well.

#include "ChannelPng.h"
#include "CliSupport.h"
#include "Command.h"
#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/ZmapDocumentCommands.h"
#include "interchange/ModelImage.h"

#include <cstdio>
#include <new>
#include <optional>

namespace {

const char* const name = "render";

/// Prints failures of the commands; a progress text starts a new progress line.
class RenderMessages : public CommandMessages, public Reporter {
public:
    void message(std::int32_t, const std::wstring& text) override { texts.push_back(text); }
    void progressText(std::int32_t id, const std::wstring&) override {
        line_.reset();
        if (id == messageModelRendering) {
            line_.emplace("rendering");
        }
    }
    bool report(unsigned total, unsigned done, double fraction) override {
        if (!line_) {
            line_.emplace("reading");
        }
        line_->update(total ? (done + fraction) / total : 0);
        return cli::interrupted();
    }
    void done() {
        if (line_) {
            line_->done();
        }
        line_.reset();
    }

    std::vector<std::wstring> texts;

private:
    std::optional<cli::ProgressLine> line_;
};

bool parsePoint(const std::optional<std::string>& text, Point<3>& p) {
    std::vector<double> v;
    if (!text || !cli::parseNumbers(*text, 3, v)) {
        return false;
    }
    p = Point<3>(v[0], v[1], v[2]);
    return true;
}

/// Fills `params` from the options; on a usage error returns its message.
std::optional<std::string> readOptions(const cli::Arguments& a, NewImageParams& params) {
    ModelImageSettings& m = params.model;
    if (const auto view = a.value("view")) {
        if (*view == "perspective") {
            m.view = ModelImageSettings::View::perspective;
        } else if (*view == "parallel") {
            m.view = ModelImageSettings::View::parallel;
        } else if (*view == "cubic") {
            m.view = ModelImageSettings::View::cubic;
        } else {
            return "--view must be perspective, parallel or cubic: " + *view;
        }
    }
    const bool cubic = m.view == ModelImageSettings::View::cubic;
    std::int64_t width = cubic ? 3072 : 1600;
    std::int64_t height = cubic ? 512 : 900;
    if (const auto size = a.value("size")) {
        if (!cli::parseSize(*size, width, height) || width < 2 || height < 2 || width > 65535 ||
            height > 65535) {
            return "--size must be WIDTHxHEIGHT, each from 2 to 65535: " + *size;
        }
        if (cubic && width != 6 * height) {
            return "a cubic view is six square faces: its width must be six times its height: " +
                   *size;
        }
    }
    params.width = static_cast<std::int32_t>(width);
    params.height = static_cast<std::int32_t>(height);

    const bool placed = a.has("eye") || a.has("target") || a.has("fov");
    if (placed && a.has("fit")) {
        return "--fit can't be given with --eye, --target or --fov";
    }
    m.fit = !placed;
    if (placed) {
        if (!parsePoint(a.value("eye"), m.eye) || !parsePoint(a.value("target"), m.target)) {
            return "--eye and --target must both be given as X,Y,Z";
        }
        if (m.eye == m.target) {
            return "--eye and --target must differ";
        }
        if (const auto fov = a.value("fov")) {
            std::vector<double> v;
            if (!cli::parseNumbers(*fov, 1, v) || !(v[0] > 0 && v[0] < 180)) {
                return "--fov must be degrees between 0 and 180: " + *fov;
            }
            m.fieldOfView = v[0];
        }
    }
    if (const auto sun = a.value("sun")) {
        std::vector<double> v;
        if (!cli::parseNumbers(*sun, 2, v) || !(v[1] >= -90 && v[1] <= 90)) {
            return "--sun must be AZIMUTH,ELEVATION in degrees, the elevation from -90 to 90: " +
                   *sun;
        }
        m.sunAzimuth = v[0];
        m.sunElevation = v[1];
    }
    m.shadows = !a.has("no-shadows");
    m.flat = a.has("flat");
    if (const auto section = a.value("section")) {
        std::vector<double> v;
        if (!cli::parseNumbers(*section, 6, v)) {
            return "--section must be six fractions x0,y0,z0,x1,y1,z1: " + *section;
        }
        std::copy(v.begin(), v.end(), m.section.begin());
    }
    if (const auto text = a.value("background")) {
        std::vector<long> rgb;
        if (!cli::parseIntegers(*text, 3, rgb) ||
            std::any_of(rgb.begin(), rgb.end(), [](long c) { return c < 0 || c > 255; })) {
            return "--background must be R,G,B from 0 to 255: " + *text;
        }
        params.background = {static_cast<std::uint8_t>(rgb[2]), static_cast<std::uint8_t>(rgb[1]),
                             static_cast<std::uint8_t>(rgb[0])};
    } else {
        params.background = modelSky;
    }
    return std::nullopt;
}

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args,
                     {"size", "view", "eye", "target", "fov", "sun", "section", "background", "png",
                      "depth-png", "material-png"},
                     {"fit", "no-shadows", "flat"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 2) {
        return cli::usageError(name, "expected a model file and an output file");
    }
    const std::string& model = a.positional()[0];
    const std::string& out = a.positional()[1];
    NewImageParams params;
    params.kind = NewImageKind::model;
    params.sourcePath = getWCS(model);
    if (const auto error = readOptions(a, params)) {
        return cli::usageError(name, *error);
    }
    try {
        DummyZmapDocument doc;
        ModelDocumentCommands commands(ZmapDocumentCommands::instance());
        RenderMessages messages;
        doc.editor.setCommands(&commands);
        doc.editor.setMessages(&messages);
        doc.editor.setProgress(&messages);
        Status s = status::ok;
        doc.editor.execute(s, commandNew, params);
        messages.done();
        if (s == status::ok) {
            doc.editor.execute(s, commandSaveAs, FileArgument{getWCS(out)});
        }
        if (s != status::ok && s != status::warning) {
            if (!messages.texts.empty()) {
                return cli::failed(name, utf8(messages.texts.back()));
            }
            return cli::operationFailed(name, s == status::stopped ? model : out, s);
        }
        const std::pair<const char*, std::uint32_t> pictures[] = {
            {"png", channelRgb}, {"depth-png", channelZ}, {"material-png", channelMat}};
        for (const auto& picture : pictures) {
            const std::uint32_t channel = picture.second;
            if (const auto path = a.value(picture.first)) {
                s = cli::writeAtomically(*path, [&](const std::string& temporary) {
                    return cli::writeChannelPng(doc, channel, temporary);
                });
                if (s != status::ok) {
                    return cli::operationFailed(name, *path, s);
                }
            }
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, model, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{
    "render", "render a DXF model into a new document",
    "quorvale-cli render MODEL.dxf OUT.zmp [options]\n"
    "  --size WxH              image size in pixels (default 1600x900; cubic 3072x512,\n"
    "                          six square faces side by side)\n"
    "  --view perspective|parallel|cubic  the kind of view (default perspective); a cubic\n"
    "                          view is a panorama, saved as .zmq\n"
    "  --fit                   fit the camera to the model (the default): a three-quarter\n"
    "                          view at eye height, from above for parallel, from the middle\n"
    "                          for cubic\n"
    "  --eye X,Y,Z --target X,Y,Z [--fov DEG]  place the camera instead (model units;\n"
    "                          field of view across the width, default 60)\n"
    "  --sun AZIMUTH,ELEVATION the sun's compass bearing and height in degrees\n"
    "                          (default 235,35)\n"
    "  --no-shadows            the sun casts no shadows\n"
    "  --section x0,y0,z0,x1,y1,z1  keep only this box, as fractions of the model's bounds\n"
    "  --flat                  shade every face flat\n"
    "  --background R,G,B      colour where there is no model (default 232,238,245)\n"
    "  --png OUT.png           also write the colour as PNG\n"
    "  --depth-png OUT.png     also write the depth display as PNG\n"
    "  --material-png OUT.png  also write the material display as PNG",
    run};
const cli::CommandRegistration registration(command);

} // namespace
