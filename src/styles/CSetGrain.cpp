#include "styles/CSetGrain.h"

#include "pipeline/ToolSelection.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"
#include "texture/CubeTexture.h"
#include "texture/Grain.h"
#include "texture/NoiseTexture3d.h"
#include "texture/RasterTexture.h"

#include <algorithm>

namespace {

constexpr std::uint32_t grainTitle = 2018;

CSetGrain::StyleLookup& styleLookup() {
    static CSetGrain::StyleLookup lookup;
    return lookup;
}

} // namespace

CSetGrain::CSetGrain() : CToolUI(true, 6, grainTitle, id, L"Grain") {}

CSetGrain::~CSetGrain() = default;

void CSetGrain::setStyleLookup(StyleLookup lookup) {
    styleLookup() = std::move(lookup);
}

TQL::Handle<GrainTool> CSetGrain::makeGrain() const {
    return makeGrain(0);
}

TQL::Handle<GrainTool> CSetGrain::makeGrain(int depth) const {
    lastError_.clear();
    const GrainSettings& s = settings;
    const double bias = std::clamp(s.bias, 0.0, 1.0);
    const double scale = s.scale > 0 ? s.scale : 1.0;
    switch (s.type) {
    case GrainSettings::noise:
        return TQL::makeHandle<tex::NoiseGrain>(
            TQL::makeHandle<tex::SimpleNoise>(s.fractality, scale, bias, s.invert));
    case GrainSettings::raster: {
        if (s.filename.empty()) {
            lastError_ = L"The grain has no picture";
            return nullptr;
        }
        if (!loaded_ || loadedName_ != s.filename) {
            loaded_ = nullptr;
            TQL::Handle<tex::RasterTexture> texture;
            if (tex::RasterTexture::load(s.filename, true, nullptr, texture, lastError_) !=
                status::ok) {
                return nullptr;
            }
            loaded_ = texture;
            loadedName_ = s.filename;
        }
        loaded_->setReflected(s.mode == 1);
        loaded_->setWrap(s.repeatX, s.repeatY);
        tex::RasterGrainPlacement placement;
        placement.scaleX = placement.scaleY = scale;
        placement.angleDegrees = s.angle;
        placement.hook = Point<2>(s.hookX, s.hookY);
        placement.hookFloats = s.hookFloat;
        return TQL::makeHandle<tex::RasterGrain>(loaded_, placement, bias, s.invert);
    }
    case GrainSettings::rgb:
        return TQL::makeHandle<tex::RgbGrain>(s.restore, bias, s.invert);
    case GrainSettings::solid: {
        TQL::Handle<tex::Texture3d> texture;
        if (!s.cubeFilename.empty()) {
            if (!loadedCube_ || loadedCubeName_ != s.cubeFilename) {
                loadedCube_ = nullptr;
                if (!tex::loadCubeTextureFile(s.cubeFilename, loadedCube_, lastError_)) {
                    return nullptr;
                }
                loadedCubeName_ = s.cubeFilename;
            }
            texture = loadedCube_;
        } else {
            texture = TQL::makeHandle<tex::NoiseTexture3d>(
                TQL::makeHandle<tex::SimpleNoise>(s.fractality, scale, 0.5, false), true, false);
        }
        return TQL::makeHandle<tex::CubeGrain>(texture, bias, s.invert);
    }
    case GrainSettings::style: {
        StyleStorage* storage =
            styleLookup() && depth == 0 ? styleLookup()(s.library, s.category) : nullptr;
        if (!storage) {
            lastError_ =
                L"The grain style \"" + s.library + L" : " + s.category + L"\" was not found";
            return nullptr;
        }
        CSetGrain inner;
        {
            const Attach attach(*storage);
            inner.readStyle();
        }
        auto grain = inner.makeGrain(depth + 1);
        if (!grain) {
            lastError_ = inner.lastError();
            return nullptr;
        }
        return TQL::makeHandle<tex::StyleGrain>(s.library, s.category, grain);
    }
    default:
        lastError_ = L"Unknown grain type " + std::to_wstring(s.type);
        return nullptr;
    }
}

void CSetGrain::build() {
    ToolSelection::instance().grain =
        Toolbox::instance().state.grainOn ? makeGrain() : TQL::Handle<GrainTool>();
}

void CSetGrain::setDefaults() {
    settings = GrainSettings();
}

void CSetGrain::readStyle() {
    GrainSettings& s = settings;
    s.type = std::clamp(getInt(L"Type", s.type), 0, 4);
    s.scale = std::max(getDouble(L"Scale", s.scale), 1e-3);
    s.fractality = std::max(getDouble(L"Fractality", s.fractality), 0.0);
    s.bias = std::clamp(getDouble(L"Bias", s.bias), 0.0, 1.0);
    s.invert = getBool(L"Invert", s.invert);
    s.angle = getInt(L"Angle", s.angle);
    s.hookX = getDouble(L"HookX", s.hookX);
    s.hookY = getDouble(L"HookY", s.hookY);
    s.hookFloat = getBool(L"HookFloat", s.hookFloat);
    s.filename = getPath(L"Filename", s.filename);
    s.cubeFilename = getPath(L"CubeFilename", s.cubeFilename);
    s.mode = std::clamp(getInt(L"Mode", s.mode), 0, 1);
    s.repeatX = getBool(L"RepeatX", s.repeatX);
    s.repeatY = getBool(L"RepeatY", s.repeatY);
    s.restore = getBool(L"Restore", s.restore);
    s.library = getString(L"Library", s.library);
    s.category = getString(L"Category", s.category);
}

void CSetGrain::writeStyle() {
    const GrainSettings& s = settings;
    setInt(L"Type", s.type);
    setDouble(L"Scale", s.scale);
    setDouble(L"Fractality", s.fractality);
    setDouble(L"Bias", s.bias);
    setBool(L"Invert", s.invert);
    setInt(L"Angle", s.angle);
    setDouble(L"HookX", s.hookX);
    setDouble(L"HookY", s.hookY);
    setBool(L"HookFloat", s.hookFloat);
    setPath(L"Filename", s.filename);
    setPath(L"CubeFilename", s.cubeFilename);
    setInt(L"Mode", s.mode);
    setBool(L"RepeatX", s.repeatX);
    setBool(L"RepeatY", s.repeatY);
    setBool(L"Restore", s.restore);
    setString(L"Library", s.library);
    setString(L"Category", s.category);
}

TQL::Handle<GrainTool> makeGrainFromStyle(StyleStorage& style, std::wstring* error) {
    CSetGrain tool;
    {
        const CToolStyle::Attach attach(style);
        tool.readStyle();
    }
    auto grain = tool.makeGrain();
    if (!grain && error) {
        *error = tool.lastError();
    }
    return grain;
}
