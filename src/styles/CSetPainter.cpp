#include "styles/CSetPainter.h"

#include "core/StringUtils.h"
#include "styles/ApplicatorBuild.h"

#include <cstdlib>

namespace {

constexpr std::uint32_t painterTitle = 1101;
/// The most size entries read from a style.
constexpr int maxEntries = 64;

std::wstring indexed(const wchar_t* key, int i) {
    return stringPrintf(L"%ls%d", key, i);
}

} // namespace

CSetPainter::CSetPainter()
    : CToolUI(true, 1, painterTitle, id, L"Painter"),
      seed(static_cast<std::uint32_t>(std::rand())) {}

TQL::Handle<Painter> CSetPainter::makePainter(Status& status, std::wstring& message) const {
    return Painter::create(settings, seed, status, message);
}

void CSetPainter::build() {
    buildIfCurrent(id, lastStatus_, lastMessage_, [this](Status& status, std::wstring& message) {
        return makePainter(status, message);
    });
}

void CSetPainter::setDefaults() {
    settings = PainterSettings();
}

void CSetPainter::readStyle() {
    PainterSettings& s = settings;
    s.start = getInt(L"Start", s.start);
    s.end = getInt(L"End", s.end);
    s.length = getInt(L"Length", s.length);
    s.lengthDocPercent = getDouble(L"LengthDocPercent", s.lengthDocPercent);
    s.angle = getInt(L"Angle", s.angle);
    s.twist = getInt(L"Twist", s.twist);
    s.wobble = getInt(L"Wobble", s.wobble);
    s.depthScale = getDouble(L"DepthScale", s.depthScale);
    s.softness = getInt(L"Softness", s.softness);
    s.relative = getBool(L"Relative", s.relative);
    s.type = getInt(L"Type", s.type);
    s.reference = getVector(L"Reference", s.reference);
    s.reset = getBool(L"Reset", s.reset);
    s.strict = getBool(L"Strict", s.strict);
    s.delay = getBool(L"Delay", s.delay);
    s.skew = getInt(L"Skew", s.skew);
    s.shape = getInt(L"Shape", s.shape);
    s.cellSize = getInt(L"CellSize", s.cellSize);
    s.cellSizeY = getInt(L"CellSizeY", s.cellSizeY);
    s.splatRandom = getBool(L"SplatRandom", s.splatRandom);
    s.splatter = getInt(L"Splatter", s.splatter);
    s.depthSort = getBool(L"DepthSort", s.depthSort);
    s.hook = getInt(L"Hook", s.hook);
    s.dynamics = getInt(L"UseDynamics", s.dynamics);
    s.colourSpread = getInt(L"ColourSpread", s.colourSpread);
    s.colourSpreadType = getInt(L"ColourSpreadType", s.colourSpreadType);
    s.dynamicOpacity = getInt(L"DynamicOpacity", s.dynamicOpacity);
    s.fade = getInt(L"Fade", s.fade);
    s.fadeType = getInt(L"FadeType", s.fadeType);
    s.opacity = getInt(L"Opacity", s.opacity);
    // Size entries: as many as the style has sizes for; a style without any leaves them.
    std::vector<PainterSizeEntry> list;
    for (int i = 0; i < maxEntries; ++i) {
        PainterSizeEntry entry =
            i < static_cast<int>(s.list.size()) ? s.list[i] : PainterSizeEntry();
        const int size = getInt(indexed(L"MultiSize", i), -1);
        if (size < 0) {
            break;
        }
        entry.size = size;
        entry.angle = getInt(indexed(L"MultiAngle", i), entry.angle);
        entry.hookX = getDouble(indexed(L"MultiHookX", i), entry.hookX);
        entry.hookY = getDouble(indexed(L"MultiHookY", i), entry.hookY);
        entry.docPercent = getDouble(indexed(L"MultiDocPercent", i), entry.docPercent);
        entry.docRasterAspect =
            getDouble(indexed(L"MultiDocRasterAspect", i), entry.docRasterAspect);
        list.push_back(entry);
    }
    if (!list.empty()) {
        s.list = std::move(list);
    }
    s.multiScale = getDouble(L"MultiScale", s.multiScale);
    s.spreadPercent = getInt(L"SpreadPercent", s.spreadPercent);
    s.spread = getInt(L"Spread", s.spread);
    s.filename = getPath(L"Filename", s.filename);
}

void CSetPainter::writeStyle() {
    const PainterSettings& s = settings;
    setInt(L"Start", s.start);
    setInt(L"End", s.end);
    setInt(L"Length", s.length);
    setDouble(L"LengthDocPercent", s.lengthDocPercent);
    setInt(L"Angle", s.angle);
    setInt(L"Twist", s.twist);
    setInt(L"Wobble", s.wobble);
    setDouble(L"DepthScale", s.depthScale);
    setInt(L"Softness", s.softness);
    setBool(L"Relative", s.relative);
    setInt(L"Type", s.type);
    setVector(L"Reference", s.reference);
    setBool(L"Reset", s.reset);
    setBool(L"Strict", s.strict);
    setBool(L"Delay", s.delay);
    setInt(L"Skew", s.skew);
    setInt(L"Shape", s.shape);
    setInt(L"CellSize", s.cellSize);
    setInt(L"CellSizeY", s.cellSizeY);
    setBool(L"SplatRandom", s.splatRandom);
    setInt(L"Splatter", s.splatter);
    setBool(L"DepthSort", s.depthSort);
    setInt(L"Hook", s.hook);
    setInt(L"UseDynamics", s.dynamics);
    setInt(L"ColourSpread", s.colourSpread);
    setInt(L"ColourSpreadType", s.colourSpreadType);
    setInt(L"DynamicOpacity", s.dynamicOpacity);
    setInt(L"Fade", s.fade);
    setInt(L"FadeType", s.fadeType);
    setInt(L"Opacity", s.opacity);
    for (int i = 0; i < static_cast<int>(s.list.size()); ++i) {
        const PainterSizeEntry& entry = s.list[i];
        setInt(indexed(L"MultiSize", i), entry.size);
        setInt(indexed(L"MultiAngle", i), entry.angle);
        setDouble(indexed(L"MultiHookX", i), entry.hookX);
        setDouble(indexed(L"MultiHookY", i), entry.hookY);
        setDouble(indexed(L"MultiDocPercent", i), entry.docPercent);
        setDouble(indexed(L"MultiDocRasterAspect", i), entry.docRasterAspect);
    }
    setDouble(L"MultiScale", s.multiScale);
    setInt(L"SpreadPercent", s.spreadPercent);
    setInt(L"Spread", s.spread);
    setPath(L"Filename", s.filename);
}
