// quorvale-cli info FILE [--json]: what a Zmap file holds: size, view and camera record,
// channels, materials, texts, compression and resolution.

#include "CliSupport.h"
#include "Command.h"
#include "ZmapCli.h"
#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "views/cameras/ViewProj.h"

#include <cctype>
#include <cstdio>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

const char* const name = "info";

const char* viewName(std::uint32_t viewCode) {
    switch (ViewProj::viewTypeOf(viewCode)) {
    case ViewProj::perspectiveView:
        return "perspective";
    case ViewProj::parallelView:
        return "parallel";
    case ViewProj::cubicView:
        return "panorama";
    case ViewProj::unknownView:
        return "unknown";
    }
    return "unknown";
}

const char* unitName(std::int32_t code) {
    static const char* const names[] = {"micrometre", "millimetre", "centimetre", "metre",
                                        "kilometre",  "thou",       "inch",       "foot"};
    return code >= 1 && code <= 8 ? names[code - 1] : "millimetre";
}

/// A label as a JSON key: "view code" becomes "viewCode", "read-only" "readOnly".
std::string jsonKey(const std::string& label) {
    std::string out;
    bool upper = false;
    for (const char c : label) {
        if (c == ' ' || c == '-') {
            upper = true;
        } else {
            out += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
            upper = false;
        }
    }
    return out;
}

/// A JSON string literal of UTF-8 text.
std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            out += stringPrintf("\\u%04x", u);
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string triple(double x, double y, double z, bool json) {
    return json ? stringPrintf("[%.17g, %.17g, %.17g]", x, y, z)
                : stringPrintf("%g %g %g", x, y, z);
}
std::string triple(const Point<3>& p, bool json) {
    return triple(p.x(), p.y(), p.z(), json);
}
std::string triple(const Vector<3>& v, bool json) {
    return triple(v.x(), v.y(), v.z(), json);
}

/// The fields of the report, in order, each a name and a value already formatted for the
/// output (JSON or text).
struct Report {
    bool json;
    std::vector<std::pair<std::string, std::string>> fields;

    void add(const std::string& key, const std::string& value) { fields.emplace_back(key, value); }
    std::string text(const std::wstring& value) const {
        return json ? quoted(utf8(value)) : utf8(value);
    }
    std::string text(const std::string& value) const { return json ? quoted(value) : value; }

    void print() const {
        if (json) {
            std::printf("{\n");
            for (std::size_t i = 0; i < fields.size(); ++i) {
                std::printf("  %s: %s%s\n", quoted(jsonKey(fields[i].first)).c_str(),
                            fields[i].second.c_str(), i + 1 < fields.size() ? "," : "");
            }
            std::printf("}\n");
        } else {
            for (const auto& [key, value] : fields) {
                std::printf("%s: %s\n", key.c_str(), value.c_str());
            }
        }
    }
};

std::string channelList(const ZmapDocument& doc, bool json) {
    const std::pair<bool, const char*> channels[] = {{bool(doc.rgb), "colour"},
                                                     {bool(doc.z), "depth"},
                                                     {bool(doc.mat), "material"},
                                                     {bool(doc.originalRgb), "original colour"},
                                                     {bool(doc.originalZ), "original depth"},
                                                     {bool(doc.originalMat), "original material"}};
    std::string out;
    for (const auto& [present, label] : channels) {
        if (present) {
            out += out.empty() ? "" : ", ";
            out += json ? quoted(label) : label;
        }
    }
    return json ? "[" + out + "]" : out;
}

std::string materialList(const ZmapDocument& doc, bool json) {
    std::string out;
    for (const auto& [id, m] : doc.materials()) {
        const std::string colour =
            stringPrintf("#%02X%02X%02X", m.colour.r, m.colour.g, m.colour.b);
        if (json) {
            out += out.empty() ? "\n    " : ",\n    ";
            out += stringPrintf("{\"id\": %u, \"name\": %s, \"colour\": %s", unsigned(id),
                                quoted(utf8(m.name)).c_str(), quoted(colour).c_str());
            if (!m.hotLink.empty()) {
                out += stringPrintf(
                    ", \"link\": [%s, %s, %u]", quoted(utf8(m.hotLink.library)).c_str(),
                    quoted(utf8(m.hotLink.style)).c_str(), unsigned(m.hotLink.flag));
            }
            out += "}";
        } else {
            out += stringPrintf("\n  %u \"%s\" %s", unsigned(id), utf8(m.name).c_str(),
                                colour.c_str());
            if (!m.hotLink.empty()) {
                out += stringPrintf(" (link: %s / %s, flag %u)", utf8(m.hotLink.library).c_str(),
                                    utf8(m.hotLink.style).c_str(), unsigned(m.hotLink.flag));
            }
        }
    }
    if (json) {
        return out.empty() ? "[]" : "[" + out + "\n  ]";
    }
    return std::to_string(doc.materials().size()) + out;
}

void describe(const ZmapDocument& doc, const std::string& path, bool json) {
    Report r{json, {}};
    const ViewParams& v = doc.viewParams();
    const auto number = [&](double d) {
        return json ? stringPrintf("%.17g", d) : stringPrintf("%g", d);
    };
    r.add("file", r.text(path));
    r.add("width", std::to_string(doc.width()));
    r.add("height", std::to_string(doc.height()));
    r.add("view", r.text(viewName(v.viewCode)));
    r.add("view code", std::to_string(v.viewCode));
    r.add("projection", std::to_string(v.projection));
    r.add("eye", triple(v.eye, json));
    r.add("x axis", triple(v.xAxis, json));
    r.add("y axis", triple(v.yAxis, json));
    r.add("z axis", triple(v.zAxis, json));
    r.add("shear", triple(v.shear, json));
    r.add("window low", triple(v.windowLo, json));
    r.add("window high", triple(v.windowHi, json));
    r.add("near depth", number(v.nearDepth));
    r.add("far depth", number(v.farDepth));
    r.add("model scale", number(v.modelScale));
    r.add("unit", r.text(stringPrintf("%s (%d)", unitName(v.unitCode), v.unitCode)));
    if (v.viewCode == ViewParams::cubicCode) {
        r.add("target", triple(v.target, json));
        r.add("angle", number(v.angle));
    }
    r.add("channels", channelList(doc, json));
    r.add("materials", materialList(doc, json));
    const std::pair<const char*, const std::wstring*> texts[] = {
        {"description", &doc.description},
        {"software", &doc.software},
        {"date", &doc.dateTime},
        {"artist", &doc.artist},
        {"host computer", &doc.hostComputer},
        {"copyright", &doc.copyright}};
    for (const auto& [label, value] : texts) {
        r.add(label, r.text(*value));
    }
    r.add("compression", doc.savedCompression == 5   ? r.text("LZW (5)")
                         : doc.savedCompression == 1 ? r.text("none (1)")
                                                     : r.text("unknown (0)"));
    r.add("pixels per metre",
          json ? stringPrintf("[%.9g, %.9g]", doc.xResolution, doc.yResolution)
               : stringPrintf("%.9g x %.9g (%.1f x %.1f per inch)", doc.xResolution,
                              doc.yResolution, doc.xResolution * 0.0254, doc.yResolution * 0.0254));
    r.add("read-only", json ? (doc.readOnly ? "true" : "false") : (doc.readOnly ? "yes" : "no"));
    r.print();
}

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {}, {"json"});
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (a.positional().size() != 1) {
        return cli::usageError(name, "expected one Zmap file");
    }
    const std::string& path = a.positional()[0];
    try {
        DummyZmapDocument doc;
        if (!cli::openForCommand(name, path, doc, false)) {
            return cli::exitFailed;
        }
        describe(doc, path, a.has("json"));
    } catch (const std::bad_alloc&) {
        return cli::operationFailed(name, path, status::outOfMemory);
    }
    return cli::exitOk;
}

const cli::Command command{"info", "describe what a Zmap file holds",
                           "quorvale-cli info FILE [--json]\n"
                           "  FILE    a Zmap file (.zmp, .zmq)\n"
                           "  --json  print the description as a JSON object",
                           run};
const cli::CommandRegistration registration(command);

} // namespace
