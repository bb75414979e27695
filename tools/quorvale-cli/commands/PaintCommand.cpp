// quorvale-cli paint IN OUT --script STROKES.json: replays strokes of a painting tool, read
// from a script, through the document editor's stored-stroke entry point, and saves.

#include "CliSupport.h"
#include "Command.h"
#include "DocumentEdit.h"
#include "JsonReader.h"
#include "ZmapCli.h"

#include "core/FilePath.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "pipeline/ToolSelection.h"
#include "styles/CSetBrush.h"
#include "styles/CSetFog.h"
#include "styles/CSetGrain.h"
#include "styles/CSetMatte.h"
#include "styles/CSetPainter.h"
#include "styles/CSetPen.h"
#include "styles/CSetShape.h"
#include "styles/CSetTexture.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <new>
#include <sstream>

namespace {

const char* const name = "paint";

const char* const blendNames[] = {
    "normal",      "multiply",    "tint",      "screen",     "dissolve",   "lighten",
    "darken",      "difference",  "exclusion", "hard-light", "overlay",    "colour-dodge",
    "colour-burn", "vivid-light", "hue",       "luminosity", "saturation", "colour"};

/// The kind of value a checked style key takes.
enum class KeyKind { number, flag, triple, text, textureMode };

/// A style key that a script's settings are checked against.
struct KnownKey {
    const char* name;
    KeyKind kind;
};

/// The line tool's keys (the dragged figure shares them).
const KnownKey penKeys[] = {
    {"AntiAlias", KeyKind::flag},        {"Threed", KeyKind::flag},
    {"Thickness", KeyKind::number},      {"Width", KeyKind::number},
    {"Type", KeyKind::number},           {"Filled", KeyKind::flag},
    {"Angle", KeyKind::number},          {"ConstraintType", KeyKind::number},
    {"ConstraintAxis", KeyKind::triple},
};

/// The texture page's keys.
const KnownKey textureKeys[] = {
    {"Type", KeyKind::number},          {"Mode", KeyKind::textureMode},
    {"Filename", KeyKind::text},        {"Size", KeyKind::number},
    {"Measure", KeyKind::number},       {"Scale", KeyKind::number},
    {"HScale", KeyKind::number},        {"VScale", KeyKind::number},
    {"LinkScales", KeyKind::flag},      {"Angle", KeyKind::number},
    {"HookX", KeyKind::number},         {"HookY", KeyKind::number},
    {"HookFloat", KeyKind::flag},       {"RepeatX", KeyKind::flag},
    {"RepeatY", KeyKind::flag},         {"ReflectX", KeyKind::flag},
    {"ReflectY", KeyKind::flag},        {"Tiled", KeyKind::flag},
    {"Threshold", KeyKind::flag},       {"ThreshCurrent", KeyKind::flag},
    {"Dark", KeyKind::number},          {"Light", KeyKind::number},
    {"ThresholdSoft", KeyKind::number}, {"CubeFilename", KeyKind::text},
    {"CubeAngle", KeyKind::number},     {"CubeAxis", KeyKind::triple},
    {"CaptureDist", KeyKind::number},   {"CaptureNoise", KeyKind::number},
    {"Bias", KeyKind::number},          {"Complexity", KeyKind::number},
    {"Invert", KeyKind::flag},          {"Frequency", KeyKind::number},
    {"Amplitude", KeyKind::number},     {"Plane", KeyKind::text},
    {"Symmetric", KeyKind::flag},
};

/// A painting tool a script can name: the section its style keys live in, how an
/// applicator is made from those keys, and the keys it knows when a script's settings are
/// checked (none: any key is passed on as it is).
struct PaintTool {
    const char* name;
    const wchar_t* section;
    std::uint16_t toolId;
    TQL::Handle<Applicator> (*build)(StyleStorage& keys, Status& status, std::wstring& message);
    const KnownKey* keys = nullptr;
    std::size_t keyCount = 0;
};

TQL::Handle<Applicator> buildBrush(StyleStorage& keys, Status& status, std::wstring& message) {
    CSetBrush brush;
    {
        CToolStyle::Attach attach(keys);
        brush.readStyle();
    }
    return brush.makeBrush(status, message);
}

TQL::Handle<Applicator> buildPen(StyleStorage& keys, Status& status, std::wstring&) {
    CSetPen pen;
    {
        CToolStyle::Attach attach(keys);
        pen.readStyle();
    }
    // A line script draws lines whatever its "Type" says; "shape" draws the figure.
    if (pen.isShape()) {
        pen.type = CSetPen::pen;
    }
    status = status::ok;
    return pen.makeApplicator();
}

TQL::Handle<Applicator> buildShape(StyleStorage& keys, Status& status, std::wstring&) {
    CSetPen pen;
    {
        CToolStyle::Attach attach(keys);
        pen.readStyle();
    }
    if (!pen.isShape()) {
        pen.type = pen.filled ? CSetPen::shapeClosed : CSetPen::shapeOpen;
    }
    status = status::ok;
    return CSetShape::makeShape(pen);
}

TQL::Handle<Applicator> buildPainter(StyleStorage& keys, Status& status, std::wstring& message) {
    CSetPainter painter;
    {
        CToolStyle::Attach attach(keys);
        painter.readStyle();
    }
    // The same strokes on every replay.
    painter.seed = 1;
    return painter.makePainter(status, message);
}

const PaintTool paintTools[] = {
    {"brush", L"Brush", CSetBrush::id, buildBrush},
    {"pen", L"Pen", CSetPen::id, buildPen, penKeys, std::size(penKeys)},
    {"shape", L"Pen", CSetPen::id, buildShape, penKeys, std::size(penKeys)},
    {"painter", L"Painter", CSetPainter::id, buildPainter},
};

/// A script error at a value.
struct ScriptError {
    int line = 0;
    int column = 0;
    std::string message;
};

/// The script, read and checked before anything is painted.
struct PaintScript {
    const PaintTool* tool = nullptr;
    MemoryStyleStorage keys;
    ToolboxState state;
    std::vector<std::vector<StrokePoint>> strokes;
};

bool error(ScriptError& e, const cli::JsonValue& at, const std::string& message) {
    e = {at.line, at.column, message};
    return false;
}

/// A style value from a script value: numbers as written (whole numbers as integers),
/// true and false as 1 and 0, a list of three numbers as "x,y,z", strings as they are.
bool styleText(const cli::JsonValue& v, const std::string& key, std::wstring& out, ScriptError& e) {
    switch (v.kind) {
    case cli::JsonValue::number:
        if (v.numberValue == std::floor(v.numberValue) && std::fabs(v.numberValue) < 2e9) {
            out = std::to_wstring(static_cast<long long>(v.numberValue));
        } else {
            out = getWCS(v.text);
        }
        return true;
    case cli::JsonValue::boolean:
        out = v.flag ? L"1" : L"0";
        return true;
    case cli::JsonValue::string:
        out = getWCS(v.text);
        return true;
    case cli::JsonValue::array:
        if (v.items.size() == 3) {
            out.clear();
            for (std::size_t i = 0; i < 3; ++i) {
                if (v.items[i].kind != cli::JsonValue::number) {
                    return error(e, v.items[i], "\"" + key + "\" takes three numbers");
                }
                out += (i ? L"," : L"") + getWCS(v.items[i].text);
            }
            return true;
        }
        return error(
            e, v, "\"" + key + "\" takes a number, a string, true or false, or " + "three numbers");
    default:
        return error(
            e, v, "\"" + key + "\" takes a number, a string, true or false, or " + "three numbers");
    }
}

/// The members of `object` as style keys of `section`.
bool readKeys(const cli::JsonValue& object, const char* what, const std::wstring& section,
              MemoryStyleStorage& keys, ScriptError& e) {
    if (object.kind != cli::JsonValue::object) {
        return error(e, object, std::string("\"") + what + "\" takes an object of style keys");
    }
    for (const auto& [key, member] : object.members()) {
        const cli::JsonValue& value = *member;
        std::wstring text;
        if (!styleText(value, key, text, e)) {
            return false;
        }
        keys.write(section, getWCS(key), text);
    }
    return true;
}

/// Style keys checked against `keys` (count of them) of `owner` (the pen, the texture...):
/// each key one of them, with a value of its kind.
bool checkKeys(const cli::JsonValue& object, const KnownKey* keys, std::size_t count,
               const std::string& owner, ScriptError& e) {
    if (!keys || object.kind != cli::JsonValue::object) {
        return true;
    }
    for (const auto& [key, member] : object.members()) {
        const cli::JsonValue& value = *member;
        const KnownKey* known = nullptr;
        for (std::size_t i = 0; i < count; ++i) {
            if (key == keys[i].name) {
                known = &keys[i];
            }
        }
        if (!known) {
            std::string names;
            for (std::size_t i = 0; i < count; ++i) {
                names += (i ? ", " : "") + std::string(keys[i].name);
            }
            return error(e, value,
                         "\"" + key + "\" is not a setting of the " + owner + " (" + names + ")");
        }
        switch (known->kind) {
        case KeyKind::number:
            if (value.kind != cli::JsonValue::number) {
                return error(e, value, "\"" + key + "\" takes a number");
            }
            break;
        case KeyKind::flag:
            if (value.kind != cli::JsonValue::boolean &&
                !(value.kind == cli::JsonValue::number &&
                  (value.numberValue == 0 || value.numberValue == 1))) {
                return error(e, value, "\"" + key + "\" takes true or false");
            }
            break;
        case KeyKind::triple:
            if (value.kind != cli::JsonValue::array || value.items.size() != 3) {
                return error(e, value, "\"" + key + "\" takes three numbers");
            }
            break;
        case KeyKind::text:
            if (value.kind != cli::JsonValue::string && value.kind != cli::JsonValue::number) {
                return error(e, value, "\"" + key + "\" takes a text");
            }
            break;
        case KeyKind::textureMode:
            if (value.kind != cli::JsonValue::string ||
                textureModeFromName(getWCS(value.text)) < 0) {
                std::string names;
                for (int m = 0; m < 7; ++m) {
                    names += (m ? ", " : "") + utf8(textureModeName(m));
                }
                return error(e, value, "\"" + key + "\" is one of " + names);
            }
            break;
        }
    }
    return true;
}

bool checkKeys(const cli::JsonValue& object, const PaintTool& tool, ScriptError& e) {
    return checkKeys(object, tool.keys, tool.keyCount, tool.name, e);
}

bool wholeNumber(const cli::JsonValue& v, double low, double high, long& out) {
    if (v.kind != cli::JsonValue::number || v.numberValue != std::floor(v.numberValue) ||
        v.numberValue < low || v.numberValue > high) {
        return false;
    }
    out = static_cast<long>(v.numberValue);
    return true;
}

bool readStroke(const cli::JsonValue& v, std::vector<StrokePoint>& stroke, ScriptError& e) {
    const cli::JsonValue* points = &v;
    if (v.kind == cli::JsonValue::object) {
        for (const auto& [key, member] : v.members()) {
            const cli::JsonValue& value = *member;
            if (key != "points") {
                return error(e, value, "a stroke has only \"points\", not \"" + key + "\"");
            }
        }
        points = v.find("points");
        if (!points) {
            return error(e, v, "a stroke needs \"points\"");
        }
    }
    if (points->kind != cli::JsonValue::array || points->items.empty()) {
        return error(e, *points, "a stroke's points are a list of [X, Y] or [X, Y, PRESSURE]");
    }
    for (const cli::JsonValue& p : points->items) {
        long x = 0;
        long y = 0;
        if (p.kind != cli::JsonValue::array || p.items.size() < 2 || p.items.size() > 3 ||
            !wholeNumber(p.items[0], -1e9, 1e9, x) || !wholeNumber(p.items[1], -1e9, 1e9, y)) {
            return error(e, p, "a point is [X, Y] or [X, Y, PRESSURE] with whole pixels");
        }
        float pressure = 1.0f;
        if (p.items.size() == 3) {
            const cli::JsonValue& q = p.items[2];
            if (q.kind != cli::JsonValue::number || q.numberValue < 0 || q.numberValue > 1) {
                return error(e, q, "a pressure lies between 0 and 1");
            }
            pressure = static_cast<float>(q.numberValue);
        }
        stroke.push_back({static_cast<std::int32_t>(x), static_cast<std::int32_t>(y), pressure, 0});
    }
    stroke.back().flags |= strokeEnds;
    return true;
}

bool readScript(const cli::JsonValue& root, PaintScript& script, ScriptError& e) {
    if (root.kind != cli::JsonValue::object) {
        return error(e, root, "a paint script is an object with \"tool\" and \"strokes\"");
    }
    const cli::JsonValue* tool = root.find("tool");
    if (!tool || tool->kind != cli::JsonValue::string) {
        return error(e, tool ? *tool : root, "the script names its \"tool\", such as \"brush\"");
    }
    for (const PaintTool& t : paintTools) {
        if (tool->text == t.name) {
            script.tool = &t;
        }
    }
    if (!script.tool) {
        return error(e, *tool,
                     "unknown tool \"" + tool->text + "\"; use brush, pen, shape or painter");
    }
    script.state.currentApplicatorId = script.tool->toolId;
    for (const auto& [key, member] : root.members()) {
        const cli::JsonValue& value = *member;
        if (key == "tool") {
            continue;
        }
        if (key == "settings") {
            if (!checkKeys(value, *script.tool, e) ||
                !readKeys(value, "settings", script.tool->section, script.keys, e)) {
                return false;
            }
        } else if (key == "colour" || key == "color") {
            std::array<long, 3> c{};
            bool good = value.kind == cli::JsonValue::array && value.items.size() == 3;
            for (std::size_t i = 0; good && i < 3; ++i) {
                good = wholeNumber(value.items[i], 0, 255, c[i]);
            }
            if (!good) {
                return error(e, value, "\"colour\" is [R, G, B], each 0 to 255");
            }
            for (std::size_t i = 0; i < 3; ++i) {
                script.state.colour[i] = static_cast<std::uint8_t>(c[i]);
            }
        } else if (key == "opacity") {
            long o = 0;
            if (!wholeNumber(value, 1, 100, o)) {
                return error(e, value, "\"opacity\" is a whole percentage from 1 to 100");
            }
            script.state.blendOpacity = static_cast<std::int32_t>(o);
        } else if (key == "mode") {
            int mode = -1;
            for (int i = 0; i < static_cast<int>(std::size(blendNames)); ++i) {
                if (value.kind == cli::JsonValue::string && value.text == blendNames[i]) {
                    mode = i;
                }
            }
            if (mode < 0) {
                return error(e, value, "unknown blend \"mode\" (normal, multiply, screen, ...)");
            }
            script.state.blendMode = static_cast<std::uint32_t>(mode);
        } else if (key == "locks") {
            if (value.kind != cli::JsonValue::array) {
                return error(e, value, "\"locks\" is a list of material, plane, angle, colour");
            }
            for (const cli::JsonValue& lock : value.items) {
                const std::string l = lock.kind == cli::JsonValue::string ? lock.text : "";
                if (l == "material") {
                    script.state.lockMask |= Matte::lockMaterialBit;
                } else if (l == "plane") {
                    script.state.lockMask |= Matte::lockPlaneBit;
                } else if (l == "angle") {
                    script.state.lockMask |= Matte::lockAngleBit;
                } else if (l == "colour" || l == "color") {
                    script.state.lockMask |= Matte::lockColourBit;
                } else {
                    return error(e, lock, "unknown lock (material, plane, angle, colour)");
                }
            }
        } else if (key == "matte") {
            if (!readKeys(value, "matte", L"Matte", script.keys, e)) {
                return false;
            }
        } else if (key == "fog") {
            if (!readKeys(value, "fog", L"Fog", script.keys, e)) {
                return false;
            }
            script.state.fogOn = true;
        } else if (key == "grain") {
            if (!readKeys(value, "grain", L"Grain", script.keys, e)) {
                return false;
            }
            script.state.grainOn = true;
        } else if (key == "texture") {
            if (!checkKeys(value, textureKeys, std::size(textureKeys), "texture", e) ||
                !readKeys(value, "texture", L"Texture", script.keys, e)) {
                return false;
            }
            script.state.textureOn = true;
        } else if (key == "strokes") {
            if (value.kind != cli::JsonValue::array || value.items.empty()) {
                return error(e, value, "\"strokes\" is a list of strokes");
            }
            for (const cli::JsonValue& stroke : value.items) {
                script.strokes.emplace_back();
                if (!readStroke(stroke, script.strokes.back(), e)) {
                    return false;
                }
            }
        } else {
            return error(e, value,
                         "unknown key \"" + key +
                             "\" (tool, settings, colour, opacity, mode, locks, matte, fog, "
                             "grain, texture, strokes)");
        }
    }
    if (script.strokes.empty()) {
        return error(e, root, "the script has no \"strokes\"");
    }
    return true;
}

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"script"}, {});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 2) {
        return cli::usageError(name, "give IN and OUT");
    }
    const std::string in = a.positional()[0];
    const std::string out = a.positional()[1];
    const auto scriptPath = a.value("script");
    if (!scriptPath) {
        return cli::usageError(name, "give --script STROKES.json");
    }
    std::ifstream file(*scriptPath, std::ios::binary);
    if (!file) {
        return cli::failed(name, "cannot read the script " + *scriptPath);
    }
    std::stringstream text;
    text << file.rdbuf();

    // The whole script is read and checked before the document is opened: a bad script
    // writes nothing.
    cli::JsonValue root;
    std::string jsonError;
    if (!cli::readJson(text.str(), root, jsonError)) {
        return cli::failed(name, *scriptPath + ": " + jsonError);
    }
    PaintScript script;
    ScriptError e;
    if (!readScript(root, script, e)) {
        return cli::failed(name, *scriptPath + ": line " + std::to_string(e.line) + ", column " +
                                     std::to_string(e.column) + ": " + e.message);
    }
    // Picture files named in the settings are found beside the script.
    script.keys.setBaseDirectory(getDirectory(getWCS(*scriptPath)));
    Status s = status::ok;
    std::wstring message;
    TQL::Handle<Applicator> applicator = script.tool->build(script.keys, s, message);
    if (!applicator) {
        return cli::failed(name, *scriptPath + ": " + utf8(message));
    }
    CSetMatte matte;
    CSetFog fog;
    {
        CToolStyle::Attach attach(script.keys);
        matte.readStyle();
        fog.readStyle();
    }

    TQL::Handle<GrainTool> grain;
    if (script.state.grainOn) {
        std::wstring grainError;
        grain = makeGrainFromStyle(script.keys, &grainError);
        if (!grain) {
            return cli::failed(name, *scriptPath + ": " + utf8(grainError));
        }
    }

    TQL::Handle<TextureTool> texture;
    if (script.state.textureOn) {
        std::wstring textureError;
        texture = makeTextureFromStyle(script.keys, &textureError);
        if (!texture) {
            if (textureError.empty()) {
                textureError = L"the texture has no \"Type\" (1: a picture)";
            }
            return cli::failed(name, *scriptPath + ": " + utf8(textureError));
        }
    }

    try {
        DummyZmapDocument doc;
        cli::LastMessage messages;
        if (int code = cli::openForStrokes(name, in, doc, messages)) {
            return code;
        }
        Toolbox& toolbox = Toolbox::instance();
        const ToolboxState saved = toolbox.state;
        toolbox.state = script.state;
        toolbox.installColourAndBlend();
        toolbox.state = saved;
        ToolSelection& selection = ToolSelection::instance();
        selection.matting = matte.makeMatte(script.state.lockMask & 15u);
        selection.fog = script.state.fogOn ? fog.makeFog() : TQL::Handle<Fog>();
        selection.grain = grain;
        selection.texture = texture;
        {
            cli::ProgressLine progress("painting");
            for (std::size_t i = 0; i < script.strokes.size() && s == status::ok; ++i) {
                if (cli::interrupted()) {
                    break;
                }
                selection.selectApplicator(applicator);
                s = doc.editor.runStroke(script.strokes[i], nullptr);
                progress.update(double(i + 1) / script.strokes.size());
            }
            progress.done();
        }
        selection.reset();
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
    "paint", "replay the strokes of a paint script (brush, pen, shape, painter) into a document",
    "quorvale-cli paint IN OUT --script STROKES.json\n"
    "  IN, OUT             Quorvale documents (.zmp or .zmq); OUT may be IN\n"
    "  --script FILE       a JSON paint script:\n"
    "    \"tool\"      \"brush\", \"pen\" (a band through the points), \"shape\" (the\n"
    "                ellipse from the first point to the last) or \"painter\"\n"
    "    \"settings\"  the tool's style keys, e.g. {\"Size\": 12, \"Hardness\": 60,\n"
    "                \"Spacing\": 0.25, \"Type\": 5, \"ModelSize\": 0.3}; a pen's or shape's\n"
    "                {\"Width\": 8, \"AntiAlias\": true, \"Filled\": true}, \"Type\": 2 a\n"
    "                filled shape; a painter's {\"CellSize\": 12, \"Length\": 20}\n"
    "    \"colour\" [R, G, B]   \"opacity\" 1-100   \"mode\" \"normal\", \"multiply\", ...\n"
    "    \"locks\"     [\"material\", \"plane\", \"angle\", \"colour\"]\n"
    "    \"matte\", \"fog\"  style keys of the lock and fog pages (fog on when given)\n"
    "    \"grain\"     style keys of the grain page, e.g. {\"Type\": 0, \"Scale\": 8}\n"
    "                (grain on when given; a picture's \"Filename\" is found beside the\n"
    "                script)\n"
    "    \"texture\"   style keys of the texture page, e.g. {\"Type\": 1, \"Filename\":\n"
    "                \"bricks.png\", \"Mode\": \"Tangent\", \"Size\": 2000} (texture on\n"
    "                when given; \"Size\" in millimetres)\n"
    "    \"strokes\"   [{\"points\": [[X, Y], [X, Y, PRESSURE], ...]}, ...]\n"
    "  Picture files in the settings are found beside the script. A script with an\n"
    "  error is reported with its line and column, and nothing is written.",
    run};

const cli::CommandRegistration registration(command);

} // namespace
