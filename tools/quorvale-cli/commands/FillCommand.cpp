// quorvale-cli fill IN OUT: paints the fill tool into a document, from a pixel or over the
// whole image, with the locks and fog of the tool pages.

#include "CliSupport.h"
#include "Command.h"
#include "DocumentEdit.h"
#include "ZmapCli.h"

#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "pipeline/Blender.h"
#include "pipeline/ToolSelection.h"
#include "styles/CSetFill.h"
#include "styles/CSetFog.h"
#include "styles/CSetGrain.h"
#include "styles/CSetMatte.h"
#include "styles/CSetTexture.h"
#include "styles/FillTool.h"
#include "styles/Toolbox.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

namespace {

const char* const name = "fill";

const char* const blendNames[] = {
    "normal",      "multiply",    "tint",      "screen",     "dissolve",   "lighten",
    "darken",      "difference",  "exclusion", "hard-light", "overlay",    "colour-dodge",
    "colour-burn", "vivid-light", "hue",       "luminosity", "saturation", "colour"};

const char* const fogNames[] = {"depth",          "view-distance", "axis-distance",
                                "point-distance", "elevation",     "linear-2d",
                                "radial-2d",      "line-2d",       "line-3d"};

/// Index of `text` in `names`, or its number; -1 if neither.
int lookup(const std::string& text, const char* const* names, int count) {
    for (int i = 0; i < count; ++i) {
        if (text == names[i]) {
            return i;
        }
    }
    std::vector<long> n;
    if (cli::parseIntegers(text, 1, n) && n[0] >= 0 && n[0] < count) {
        return static_cast<int>(n[0]);
    }
    return -1;
}

bool colourOption(const cli::Arguments& a, const char* option, std::uint8_t out[3],
                  std::string& error) {
    const auto text = a.value(option);
    if (!text) {
        return true;
    }
    std::vector<long> c;
    if (!cli::parseIntegers(*text, 3, c) ||
        std::any_of(c.begin(), c.end(), [](long v) { return v < 0 || v > 255; })) {
        error = std::string("--") + option + " takes R,G,B from 0 to 255";
        return false;
    }
    for (int i = 0; i < 3; ++i) {
        out[i] = static_cast<std::uint8_t>(c[i]);
    }
    return true;
}

bool numbers(const cli::Arguments& a, const char* option, std::size_t count,
             std::vector<double>& out, std::string& error) {
    const auto text = a.value(option);
    if (!text) {
        return true;
    }
    if (!cli::parseNumbers(*text, count, out)) {
        error = std::string("--") + option + " takes " + std::to_string(count) + " number" +
                (count > 1 ? "s separated by commas" : "");
        return false;
    }
    return true;
}

/// Reads the options into the tools and the toolbox state; false with `error` set.
bool readOptions(const cli::Arguments& a, CSetFill& fill, CSetMatte& matte, CSetFog& fog,
                 ToolboxState& state, std::string& error) {
    if (!colourOption(a, "colour", state.colour, error)) {
        return false;
    }
    std::vector<double> v;
    if (!numbers(a, "opacity", 1, v, error)) {
        return false;
    }
    if (!v.empty()) {
        if (v[0] < 1 || v[0] > 100) {
            error = "--opacity takes a percentage from 1 to 100";
            return false;
        }
        state.blendOpacity = static_cast<std::int32_t>(v[0] + 0.5);
    }
    if (const auto mode = a.value("mode")) {
        const int m = lookup(*mode, blendNames, static_cast<int>(std::size(blendNames)));
        if (m < 0) {
            error = "unknown blend mode '" + *mode + "' (normal, multiply, screen, ...)";
            return false;
        }
        state.blendMode = static_cast<std::uint32_t>(m);
    }

    // Locks.
    MatteSettings& s = matte.settings;
    if (const auto locks = a.value("lock")) {
        std::size_t from = 0;
        while (from <= locks->size()) {
            const std::size_t comma = locks->find(',', from);
            const std::string lock =
                locks->substr(from, comma == std::string::npos ? comma : comma - from);
            if (lock == "material") {
                state.lockMask |= Matte::lockMaterialBit;
            } else if (lock == "plane") {
                state.lockMask |= Matte::lockPlaneBit;
            } else if (lock == "angle") {
                state.lockMask |= Matte::lockAngleBit;
            } else if (lock == "colour" || lock == "color") {
                state.lockMask |= Matte::lockColourBit;
            } else {
                error = "unknown lock '" + lock + "' (material, plane, angle, colour)";
                return false;
            }
            if (comma == std::string::npos) {
                break;
            }
            from = comma + 1;
        }
    }
    s.invert = a.has("invert");
    s.useOriginal = a.has("original");
    if (const auto list = a.value("materials")) {
        s.materialListMode = true;
        s.materialNames = CSetMatte::splitNames(getWCS(*list));
        s.includeBackground = a.has("include-background");
        state.lockMask |= Matte::lockMaterialBit;
    }
    if (!numbers(a, "plane-tolerance", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        s.planeTolerancePercent = std::max(0.0, v[0]);
    }
    if (!numbers(a, "angle", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        s.angleDegrees = std::clamp(v[0], 0.0, 90.0);
    }
    if (!numbers(a, "colour-tolerance", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        s.colourTolerance = static_cast<int>(std::clamp(v[0], 0.0, 255.0));
    }
    if (const auto channels = a.value("channels")) {
        s.channelOn[0] = channels->find('r') != std::string::npos;
        s.channelOn[1] = channels->find('g') != std::string::npos;
        s.channelOn[2] = channels->find('b') != std::string::npos;
    }
    if (!numbers(a, "hls", 3, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        // Hue degrees, lightness and saturation percent; a negative value leaves one out.
        s.colourMode = 1;
        s.hueOn = v[0] >= 0;
        s.lightnessOn = v[1] >= 0;
        s.saturationOn = v[2] >= 0;
        s.hueToleranceDegrees = std::max(0.0, v[0]);
        s.lightnessTolerancePercent = std::max(0.0, v[1]);
        s.saturationTolerancePercent = std::max(0.0, v[2]);
    }

    // Fog.
    FogSettings& f = fog.settings;
    if (const auto type = a.value("fog")) {
        const int t = lookup(*type, fogNames, static_cast<int>(std::size(fogNames)));
        if (t < 0) {
            error =
                "unknown fog type '" + *type + "' (depth, view-distance, ... line-3d, or 0 to 8)";
            return false;
        }
        f.type = static_cast<std::uint32_t>(t);
        state.fogOn = true;
    }
    std::uint8_t fogColour[3] = {f.colour.r, f.colour.g, f.colour.b};
    if (!colourOption(a, "fog-colour", fogColour, error)) {
        return false;
    }
    f.colour = ColourPOD{fogColour[2], fogColour[1], fogColour[0]};
    f.transparent = a.has("fog-transparent");
    f.inverted = a.has("fog-dense");
    f.clampDepth = a.has("fog-clamp");
    f.infiniteLine = a.has("fog-infinite");
    if (!numbers(a, "fog-amount", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        f.amount = static_cast<float>(std::clamp(v[0], 0.0, 1.0));
    }
    if (!numbers(a, "fog-range", 2, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        // NONE,FULL: where visibility is none and where it is full, in the type's measure.
        if (f.type == 3 || f.type == 8) {
            f.nonePoint = static_cast<float>(v[0]);
            f.fullPoint = static_cast<float>(v[1]);
        } else if (f.type == 4) {
            f.noneElevation = static_cast<float>(v[0]);
            f.fullElevation = static_cast<float>(v[1]);
        } else {
            f.none = static_cast<float>(v[0]);
            f.full = static_cast<float>(v[1]);
        }
    }
    if (!numbers(a, "fog-axis", 3, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        f.axis = f.elevationAxis = Vector<3>(v[0], v[1], v[2]);
    }
    if (!numbers(a, "fog-centre", 3, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        f.centre = Point<3>(v[0], v[1], v[2]);
        f.fixedCentre = true;
    } else if (f.type == 3) {
        f.fixedCentre = false; // from the seed pixel
    }
    if (!numbers(a, "fog-centre-2d", 2, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        f.centre2D = {static_cast<std::int32_t>(v[0]), static_cast<std::int32_t>(v[1])};
    }
    if (!numbers(a, "fog-range-2d", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        f.range2D = static_cast<std::int32_t>(v[0]);
    }
    if (const auto line = a.value("fog-line")) {
        std::vector<double> p;
        if (f.type == 8 && cli::parseNumbers(*line, 6, p)) {
            f.lineStart = Point<3>(p[0], p[1], p[2]);
            f.lineEnd = Point<3>(p[3], p[4], p[5]);
        } else if ((f.type == 5 || f.type == 7) && cli::parseNumbers(*line, 4, p)) {
            const IPoint<2> s0{static_cast<std::int32_t>(p[0]), static_cast<std::int32_t>(p[1])};
            const IPoint<2> s1{static_cast<std::int32_t>(p[2]), static_cast<std::int32_t>(p[3])};
            if (f.type == 5) {
                f.none2D = s0;
                f.full2D = s1;
            } else {
                f.lineStart2D = s0;
                f.lineEnd2D = s1;
            }
        } else {
            error = "--fog-line takes X0,Y0,X1,Y1 (linear-2d, line-2d) or six numbers (line-3d)";
            return false;
        }
    }
    fill.flood = !a.has("whole");
    return true;
}

/// "--grain raster FILE" names its picture after the type: that word becomes the value of
/// "--grain-file" so the options keep one value each.
std::vector<std::string> joinGrainFile(const std::vector<std::string>& args) {
    std::vector<std::string> out;
    for (std::size_t i = 0; i < args.size(); ++i) {
        out.push_back(args[i]);
        if (args[i] == "--grain" && i + 2 < args.size() && args[i + 1] == "raster" &&
            args[i + 2].rfind("--", 0) != 0) {
            out.push_back(args[i + 1]);
            out.push_back("--grain-file");
            out.push_back(args[i + 2]);
            i += 2;
        }
    }
    return out;
}

/// Reads the grain options into `grain`; false with `error` set. `on` tells whether any
/// grain was asked for.
bool readGrainOptions(const cli::Arguments& a, CSetGrain& grain, bool& on, std::string& error) {
    GrainSettings& g = grain.settings;
    on = false;
    if (const auto type = a.value("grain")) {
        static const char* const types[] = {"noise", "raster", "rgb", "solid"};
        const int t = lookup(*type, types, 4);
        if (t < 0) {
            error = "unknown grain '" + *type + "' (noise, raster FILE, rgb, solid)";
            return false;
        }
        g.type = t;
        on = true;
    } else {
        for (const char* option :
             {"grain-scale", "grain-fractality", "grain-bias", "grain-file", "grain-angle"}) {
            if (a.has(option)) {
                error = std::string("--") + option + " needs --grain";
                return false;
            }
        }
        return true;
    }
    if (const auto file = a.value("grain-file")) {
        g.filename = getWCS(*file);
    }
    if (g.type == GrainSettings::raster && g.filename.empty()) {
        error = "--grain raster takes the picture's file name: --grain raster FILE";
        return false;
    }
    std::vector<double> v;
    if (!numbers(a, "grain-scale", 1, v, error)) {
        return false;
    }
    if (!v.empty()) {
        if (!(v[0] > 0)) {
            error = "--grain-scale takes a size above 0";
            return false;
        }
        g.scale = v[0];
    }
    if (!numbers(a, "grain-fractality", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        g.fractality = std::max(0.0, v[0]);
    }
    if (!numbers(a, "grain-bias", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        if (v[0] < 0 || v[0] > 1) {
            error = "--grain-bias takes a value from 0 to 1";
            return false;
        }
        g.bias = v[0];
    }
    if (!numbers(a, "grain-angle", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        g.angle = static_cast<int>(std::lround(v[0]));
    }
    g.invert = a.has("grain-invert");
    g.restore = a.has("grain-original");
    return true;
}

/// Reads the texture options into `texture`; false with `error` set. `on` tells whether a
/// texture was asked for.
bool readTextureOptions(const cli::Arguments& a, CSetTexture& texture, bool& on,
                        std::string& error) {
    TextureSettings& t = texture.settings;
    const auto file = a.value("texture");
    on = file.has_value();
    if (!on) {
        for (const char* option :
             {"texture-mode", "texture-size", "texture-measure", "texture-angle", "texture-hook",
              "texture-opacity", "texture-threshold"}) {
            if (a.value(option)) {
                error = std::string("--") + option + " needs --texture";
                return false;
            }
        }
        return true;
    }
    t.type = TextureSettings::raster;
    t.filename = getWCS(*file);
    if (const auto mode = a.value("texture-mode")) {
        static const char* const modes[] = {"twod",    "stretched-twod", "tangent",  "front",
                                            "wrapped", "autowrapped",    "autoplane"};
        t.mode = lookup(*mode, modes, 7);
        if (t.mode < 0) {
            error = "unknown texture mode '" + *mode +
                    "' (twod, stretched-twod, tangent, front, wrapped, autowrapped, autoplane)";
            return false;
        }
    }
    std::vector<double> v;
    if (!numbers(a, "texture-size", 1, v, error)) {
        return false;
    }
    if (!v.empty()) {
        if (!(v[0] > 0)) {
            error = "--texture-size takes a size above 0";
            return false;
        }
        t.size = v[0];
    }
    if (const auto measure = a.value("texture-measure")) {
        static const char* const sides[] = {"width", "height"};
        t.measure = lookup(*measure, sides, 2);
        if (t.measure < 0) {
            error = "--texture-measure takes width or height";
            return false;
        }
    }
    if (!numbers(a, "texture-angle", 1, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        t.angle = static_cast<int>(std::lround(v[0]));
    }
    if (!numbers(a, "texture-hook", 2, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        t.hookX = v[0];
        t.hookY = v[1];
    }
    if (!numbers(a, "texture-threshold", 2, v = {}, error)) {
        return false;
    }
    if (!v.empty()) {
        if (v[0] < 0 || v[0] > 1 || v[1] < 0 || v[1] > 1) {
            error = "--texture-threshold takes DARK,LIGHT from 0 to 1";
            return false;
        }
        t.threshold = true;
        t.dark = v[0];
        t.light = v[1];
    }
    t.threshCurrent = a.has("texture-threshold-image");
    t.reflectX = t.reflectY = a.has("texture-reflect");
    return true;
}

int run(const std::vector<std::string>& rawArgs) {
    const std::vector<std::string> args = joinGrainFile(rawArgs);
    cli::Arguments a(args,
                     {"at",
                      "colour",
                      "opacity",
                      "mode",
                      "lock",
                      "materials",
                      "plane-tolerance",
                      "angle",
                      "colour-tolerance",
                      "channels",
                      "hls",
                      "fog",
                      "fog-colour",
                      "fog-amount",
                      "fog-range",
                      "fog-axis",
                      "fog-centre",
                      "fog-centre-2d",
                      "fog-range-2d",
                      "fog-line",
                      "grain",
                      "grain-file",
                      "grain-scale",
                      "grain-fractality",
                      "grain-bias",
                      "grain-angle",
                      "texture",
                      "texture-mode",
                      "texture-size",
                      "texture-measure",
                      "texture-angle",
                      "texture-hook",
                      "texture-opacity",
                      "texture-threshold"},
                     {"whole", "invert", "original", "include-background", "fog-transparent",
                      "fog-dense", "fog-clamp", "fog-infinite", "grain-invert", "grain-original",
                      "texture-threshold-image", "texture-reflect"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    std::string in, out, error;
    if (!cli::inAndOut(a.positional(), in, out, error)) {
        return cli::usageError(name, error);
    }
    std::vector<long> at;
    const auto seed = a.value("at");
    if (seed.has_value() == a.has("whole")) {
        return cli::usageError(name, "give either --at X,Y or --whole");
    }
    if (seed && !cli::parseIntegers(*seed, 2, at)) {
        return cli::usageError(name, "--at takes X,Y");
    }
    CSetFill fill;
    CSetMatte matte;
    CSetFog fog;
    ToolboxState state;
    state.currentApplicatorId = CSetFill::id;
    if (!readOptions(a, fill, matte, fog, state, error)) {
        return cli::usageError(name, error);
    }
    CSetGrain grainTool;
    bool grainOn = false;
    if (!readGrainOptions(a, grainTool, grainOn, error)) {
        return cli::usageError(name, error);
    }
    TQL::Handle<GrainTool> grain;
    if (grainOn) {
        grain = grainTool.makeGrain();
        if (!grain) {
            return cli::failed(name, utf8(grainTool.lastError()));
        }
    }
    CSetTexture textureTool;
    bool textureOn = false;
    if (!readTextureOptions(a, textureTool, textureOn, error)) {
        return cli::usageError(name, error);
    }
    std::vector<double> opacity;
    if (!numbers(a, "texture-opacity", 1, opacity, error)) {
        return cli::usageError(name, error);
    }
    TQL::Handle<TextureTool> texture;
    if (textureOn) {
        // The texture opacity is the toolbox's, as on the texture page.
        Toolbox& toolbox = Toolbox::instance();
        const std::int32_t saved = toolbox.state.textureOpacity;
        toolbox.state.textureOpacity =
            opacity.empty() ? 100 : std::clamp(static_cast<int>(std::lround(opacity[0])), 1, 100);
        texture = textureTool.makeTexture();
        toolbox.state.textureOpacity = saved;
        if (!texture) {
            return cli::failed(name, utf8(textureTool.lastError()));
        }
    }
    try {
        DummyZmapDocument doc;
        cli::LastMessage messages;
        Status s = status::ok;
        if (int code = cli::openForStrokes(name, in, doc, messages)) {
            return code;
        }
        const std::int32_t x = seed ? static_cast<std::int32_t>(at[0]) : 0;
        const std::int32_t y = seed ? static_cast<std::int32_t>(at[1]) : 0;
        if (seed && (x < 0 || y < 0 || x >= doc.width() || y >= doc.height())) {
            return cli::usageError(name, "--at " + *seed + " lies outside the " +
                                             std::to_string(doc.width()) + "x" +
                                             std::to_string(doc.height()) + " image");
        }
        {
            cli::FileProgress filling("filling");
            doc.editor.setProgress(&filling);
            ToolSelection::instance().grain = grain;
            ToolSelection::instance().texture = texture;
            s = runFill(doc, x, y, nullptr, fill, matte, fog, state);
            doc.editor.setProgress(nullptr);
        }
        ToolSelection::instance().reset();
        // A failed or stopped run is not saved: the output file is left as it was.
        if (int code = cli::saveAfterStrokes(name, in, out, doc, s, messages)) {
            return code;
        }
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, in, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{
    "fill", "fill a document from a pixel or over the whole image, with locks and fog",
    "quorvale-cli fill IN OUT (--at X,Y | --whole) [options]\n"
    "  IN, OUT             Quorvale documents (.zmp or .zmq); OUT may be IN\n"
    "  --at X,Y            flood from this pixel through the pixels that pass the locks\n"
    "                      (without a lock the whole image is filled)\n"
    "  --whole             fill the whole image; locks still decide which pixels take paint\n"
    "  --colour R,G,B      paint colour (default 0,0,0)\n"
    "  --opacity P         1 to 100 (default 100)\n"
    "  --mode NAME         blend mode: normal, multiply, tint, screen, dissolve, lighten,\n"
    "                      darken, difference, exclusion, hard-light, overlay, colour-dodge,\n"
    "                      colour-burn, vivid-light, hue, luminosity, saturation, colour\n"
    "Locks:\n"
    "  --lock L[,L...]     material, plane, angle, colour: keep to what is under the seed\n"
    "  --materials A|B     material lock with this list of names instead\n"
    "  --include-background  the list takes pixels without depth too\n"
    "  --plane-tolerance P percent of a pixel's width at the far depth (default 5)\n"
    "  --angle DEG         surface angle allowed by the angle lock (default 10)\n"
    "  --colour-tolerance N  channel range around the seed's colour (default 16)\n"
    "  --channels rgb      channels that take part (default rgb)\n"
    "  --hls H,L,S         compare hue (degrees), lightness and saturation (percent)\n"
    "                      instead; a negative value leaves that part out\n"
    "  --invert            every lock answers the opposite\n"
    "  --original          test the original channels instead of the present image\n"
    "Fog:\n"
    "  --fog TYPE          depth, view-distance, axis-distance, point-distance, elevation,\n"
    "                      linear-2d, radial-2d, line-2d, line-3d (or 0 to 8)\n"
    "  --fog-range NONE,FULL  where visibility is none and where full, in model units (or\n"
    "                      degrees of elevation)\n"
    "  --fog-colour R,G,B  (default 220,220,220)   --fog-amount A  0 to 1\n"
    "  --fog-transparent   fade the paint instead of pulling it to the fog colour\n"
    "  --fog-axis X,Y,Z    --fog-centre X,Y,Z (point-distance; default: the seed's point)\n"
    "  --fog-centre-2d X,Y --fog-range-2d N    --fog-line X0,Y0,X1,Y1 | six numbers\n"
    "  --fog-dense         inverted point forms   --fog-clamp   --fog-infinite\n"
    "Grain (breaks up the paint; it only ever takes coverage away):\n"
    "  --grain noise       procedural paper grain   --grain rgb   the image's brightness\n"
    "  --grain raster FILE a picture's grey         --grain solid  noise in the scene\n"
    "  --grain-scale S     noise cell size in pixels, or image pixels per picture pixel\n"
    "                      (default 8)\n"
    "  --grain-fractality F  how fast finer detail fades (default 1; 0 keeps all of it)\n"
    "  --grain-bias B      0 to 1; 0.5 keeps the grain as it is, lower thins the paint\n"
    "  --grain-angle DEG   rotates a picture   --grain-invert   --grain-original (rgb:\n"
    "                      read the original image)\n"
    "Texture (the paint takes a picture's colour, laid on the surfaces in perspective):\n"
    "  --texture FILE      the picture (any raster Quorvale reads)\n"
    "  --texture-mode M    tangent (default: on the surface at the seed), front (facing\n"
    "                      the view), wrapped, autowrapped, autoplane (the seed's plane,\n"
    "                      also off it), twod, stretched-twod (flat on the image)\n"
    "  --texture-size MM   real size of the picture's measured side in millimetres (flat\n"
    "                      modes: image pixels; default 1000)\n"
    "  --texture-measure width|height  the side --texture-size gives (default width)\n"
    "  --texture-angle DEG turns the picture   --texture-hook U,V  the picture's point\n"
    "                      (fractions of it) that lies at the seed (default 0,0)\n"
    "  --texture-opacity P 1 to 100   --texture-reflect  repeat with mirror images\n"
    "  --texture-threshold DARK,LIGHT  coverage from the texture's brightness, 0 to 1\n"
    "                      (equal values: a hard step)   --texture-threshold-image  the\n"
    "                      image's brightness instead\n"
    "  With --whole the surface of the textured modes is the one at pixel 0,0.\n"
    "Ctrl+C stops the fill; nothing is written then.",
    run};
const cli::CommandRegistration registration(command);

} // namespace
