#include "styles/CSetBrush.h"

#include "core/StringUtils.h"
#include "styles/ApplicatorBuild.h"

namespace {

constexpr std::uint32_t brushTitle = 1100;
/// The most entries a list brush reads from a style.
constexpr int maxListEntries = 64;

std::wstring indexed(const wchar_t* key, int i) {
    return stringPrintf(L"%ls%d", key, i);
}

} // namespace

CSetBrush::CSetBrush() : CToolUI(true, 1, brushTitle, id, L"Brush") {}

TQL::Handle<BrushApplicator> CSetBrush::makeBrush(Status& status, std::wstring& message) const {
    return BrushApplicator::create(settings, status, message);
}

void CSetBrush::build() {
    buildIfCurrent(id, lastStatus_, lastMessage_, [this](Status& status, std::wstring& message) {
        return makeBrush(status, message);
    });
}

void CSetBrush::setDefaults() {
    settings = BrushSettings();
}

void CSetBrush::readStyle() {
    BrushSettings& s = settings;
    s.type = getInt(L"Type", s.type);
    s.modelSize = getDouble(L"ModelSize", s.modelSize);
    s.size = getInt(L"Size", s.size);
    s.sizeDocPercent = getDouble(L"SizeDocPercent", s.sizeDocPercent);
    // List entries: as many as the style has sizes for; a style without any leaves the list.
    std::vector<BrushListEntry> list;
    for (int i = 0; i < maxListEntries; ++i) {
        BrushListEntry entry = i < static_cast<int>(s.list.size()) ? s.list[i] : BrushListEntry();
        const int size = getInt(indexed(L"MultiSize", i), -1);
        const std::wstring file = getPath(indexed(L"MultiFilename", i), L"");
        if (size < 0 && file.empty()) {
            break;
        }
        if (size >= 0) {
            entry.size = size;
        }
        if (!file.empty()) {
            entry.filename = file;
        }
        entry.modelSize = getDouble(indexed(L"MultiModelSize", i), entry.modelSize);
        entry.angle = getInt(indexed(L"MultiAngle", i), entry.angle);
        entry.hookX = getDouble(indexed(L"MultiHookX", i), entry.hookX);
        entry.hookY = getDouble(indexed(L"MultiHookY", i), entry.hookY);
        entry.docPercent = getDouble(indexed(L"MultiDocPercent", i), entry.docPercent);
        list.push_back(entry);
    }
    if (!list.empty()) {
        s.list = std::move(list);
    }
    s.multiScale = getDouble(L"MultiScale", s.multiScale);
    s.hardness = getInt(L"Hardness", s.hardness);
    s.profileType = getInt(L"ProfileType", s.profileType);
    s.aspect = getInt(L"Aspect", s.aspect);
    s.ramp = getInt(L"Ramp", s.ramp);
    s.vertical = getBool(L"Vertical", s.vertical);
    s.rect2Way = getBool(L"Rect2Way", s.rect2Way);
    s.bristles = getInt(L"Bristles", s.bristles);
    s.bristlesPercent = getDouble(L"BristlesPercent", s.bristlesPercent);
    s.angle = getInt(L"Angle", s.angle);
    s.filename = getPath(L"Filename", s.filename);
    s.hookX = getDouble(L"HookX", s.hookX);
    s.hookY = getDouble(L"HookY", s.hookY);
    s.rasterAspect = getDouble(L"RasterAspect", s.rasterAspect);
    s.spaced = getBool(L"Spaced", s.spaced);
    s.spacing = getDouble(L"Spacing", s.spacing);
    s.continuous = getBool(L"Continuous", s.continuous);
    s.follows = getBool(L"Follows", s.follows);
    s.constraintType = getInt(L"ConstraintType", s.constraintType);
    s.worldConstraint = getBool(L"WorldConstraint", s.worldConstraint);
    s.constraintAxis = getVector(L"ConstraintAxis", s.constraintAxis);
    s.opacity = getInt(L"Opacity", s.opacity);
    s.shrink = getBool(L"Shrink", s.shrink);
    s.soften = getBool(L"Soften", s.soften);
    s.dynamics = getInt(L"UseDynamics", s.dynamics);
    s.spreadPercent = getInt(L"SpreadPercent", s.spreadPercent);
    s.twist = getInt(L"Twist", s.twist);
    s.colourSpread = getInt(L"ColourSpread", s.colourSpread);
    s.colourSpreadType = getInt(L"ColourSpreadType", s.colourSpreadType);
    s.sizeSpread = getInt(L"SizeSpread", s.sizeSpread);
    s.dynamicOpacity = getInt(L"DynamicOpacity", s.dynamicOpacity);
    s.fade = getInt(L"Fade", s.fade);
    s.fadeType = getInt(L"FadeType", s.fadeType);
}

void CSetBrush::writeStyle() {
    const BrushSettings& s = settings;
    setInt(L"Type", s.type);
    setDouble(L"ModelSize", s.modelSize);
    setInt(L"Size", s.size);
    setDouble(L"SizeDocPercent", s.sizeDocPercent);
    for (int i = 0; i < static_cast<int>(s.list.size()); ++i) {
        const BrushListEntry& entry = s.list[i];
        setPath(indexed(L"MultiFilename", i), entry.filename);
        setInt(indexed(L"MultiSize", i), entry.size);
        setDouble(indexed(L"MultiModelSize", i), entry.modelSize);
        setInt(indexed(L"MultiAngle", i), entry.angle);
        setDouble(indexed(L"MultiHookX", i), entry.hookX);
        setDouble(indexed(L"MultiHookY", i), entry.hookY);
        setDouble(indexed(L"MultiDocPercent", i), entry.docPercent);
    }
    setDouble(L"MultiScale", s.multiScale);
    setInt(L"Hardness", s.hardness);
    setInt(L"ProfileType", s.profileType);
    setInt(L"Aspect", s.aspect);
    setInt(L"Ramp", s.ramp);
    setBool(L"Vertical", s.vertical);
    setBool(L"Rect2Way", s.rect2Way);
    setInt(L"Bristles", s.bristles);
    setDouble(L"BristlesPercent", s.bristlesPercent);
    setInt(L"Angle", s.angle);
    setPath(L"Filename", s.filename);
    setDouble(L"HookX", s.hookX);
    setDouble(L"HookY", s.hookY);
    setDouble(L"RasterAspect", s.rasterAspect);
    setBool(L"Spaced", s.spaced);
    setDouble(L"Spacing", s.spacing);
    setBool(L"Continuous", s.continuous);
    setBool(L"Follows", s.follows);
    setInt(L"ConstraintType", s.constraintType);
    setBool(L"WorldConstraint", s.worldConstraint);
    setVector(L"ConstraintAxis", s.constraintAxis);
    setInt(L"Opacity", s.opacity);
    setBool(L"Shrink", s.shrink);
    setBool(L"Soften", s.soften);
    setInt(L"UseDynamics", s.dynamics);
    setInt(L"SpreadPercent", s.spreadPercent);
    setInt(L"Twist", s.twist);
    setInt(L"ColourSpread", s.colourSpread);
    setInt(L"ColourSpreadType", s.colourSpreadType);
    setInt(L"SizeSpread", s.sizeSpread);
    setInt(L"DynamicOpacity", s.dynamicOpacity);
    setInt(L"Fade", s.fade);
    setInt(L"FadeType", s.fadeType);
}
