#include "styles/CSetTexture.h"

#include "pipeline/ToolSelection.h"
#include "styles/StyleStorage.h"
#include "styles/Toolbox.h"
#include "texture/AlphaNoiseTexture.h"
#include "texture/CubeTexture.h"
#include "texture/NoiseTexture3d.h"
#include "texture/RasterTexture.h"
#include "texture/TextureTool2d.h"
#include "texture/TextureTool3d.h"
#include "texture/TextureToolCube.h"
#include "texture/TextureToolPlane.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace {

constexpr std::uint32_t textureTitle = 2015;

constexpr std::array<const wchar_t*, 7> modeNames = {
    L"TwoD", L"StretchedTwoD", L"Tangent", L"Front", L"Wrapped", L"Autowrapped", L"Autoplane"};

/// The surface tool's mode of a style's mode number.
int planeModeOf(int mode) {
    switch (mode) {
    case TextureSettings::front:
        return tex::PlanePlacing::front;
    case TextureSettings::wrapped:
        return tex::PlanePlacing::wrapped;
    case TextureSettings::autowrapped:
        return tex::PlanePlacing::autowrapped;
    case TextureSettings::autoplane:
        return tex::PlanePlacing::autoplane;
    default:
        return tex::PlanePlacing::tangent;
    }
}

/// What the tools take from a texture by default: its colour if it has colour, its alpha
/// if it has any.
int outputFlags(unsigned textureFlags) {
    int flags = 0;
    if (textureFlags & tex::textureHasColour) {
        flags |= tex::textureColour;
    }
    if (textureFlags & (tex::textureVaryingAlpha | tex::textureHasAlpha)) {
        flags |= tex::textureAlpha;
    }
    return flags != 0 ? flags : tex::textureAlphaFromBrightness;
}

} // namespace

const wchar_t* textureModeName(int mode) {
    return mode >= 0 && mode < static_cast<int>(modeNames.size()) ? modeNames[mode] : modeNames[2];
}

int textureModeFromName(const std::wstring& name) {
    for (std::size_t i = 0; i < modeNames.size(); ++i) {
        if (name == modeNames[i]) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

CSetTexture::CSetTexture() : CToolUI(true, 5, textureTitle, id, L"Texture") {}

CSetTexture::~CSetTexture() = default;

TQL::Handle<TextureTool> CSetTexture::makeTexture() const {
    lastError_.clear();
    const TextureSettings& s = settings;
    tex::TextureOutput output;
    output.threshold = s.threshold;
    output.thresholdCurrent = s.threshCurrent;
    output.thresholdDark = std::clamp(s.dark, 0.0, 1.0);
    output.thresholdLight = std::clamp(s.light, 0.0, 1.0);
    output.thresholdSoft = std::clamp(s.thresholdSoft, 0.0, 1.0);
    output.opacity = std::clamp(Toolbox::instance().state.textureOpacity, 1, 100) / 100.0;
    switch (s.type) {
    case TextureSettings::none:
        return nullptr;
    case TextureSettings::raster: {
        if (s.filename.empty()) {
            lastError_ = L"The texture has no picture";
            return nullptr;
        }
        if (!loaded_ || loadedName_ != s.filename || loadedTiled_ != s.tiled) {
            loaded_ = nullptr;
            TQL::Handle<tex::RasterTexture> texture;
            if (tex::RasterTexture::load(s.filename, s.tiled, nullptr, texture, lastError_) !=
                status::ok) {
                return nullptr;
            }
            loaded_ = texture;
            loadedName_ = s.filename;
            loadedTiled_ = s.tiled;
        }
        tex::RasterTexture& texture = *loaded_;
        texture.setReflected(s.reflectX || s.reflectY);
        texture.setWrap(s.repeatX, s.repeatY);
        output.flags = outputFlags(texture.flags());
        const double width = texture.pixelWidth();
        const double height = texture.pixelHeight();
        const double measured = s.measure == 1 ? height : width;
        const double size = s.size > 0 ? s.size : measured;
        const double hScale = s.hScale > 0 ? s.hScale : 1.0;
        const double vScale = s.linkScales ? hScale : (s.vScale > 0 ? s.vScale : 1.0);
        const Point<2> hook(s.hookX * width, s.hookY * height);
        if (s.mode == TextureSettings::twoD || s.mode == TextureSettings::stretchedTwoD) {
            texture.clampEdge = true;
            tex::Placing2d placing;
            placing.scaleX = size / measured * hScale;
            placing.scaleY = size / measured * vScale;
            placing.angleDegrees = s.angle;
            placing.offset = hook;
            placing.hookFloats = s.hookFloat;
            placing.stretched = s.mode == TextureSettings::stretchedTwoD;
            return TQL::makeHandle<tex::TextureTool2d>(loaded_, placing, output);
        }
        texture.clampEdge = false;
        const double scale = s.scale > 0 ? s.scale : 1.0;
        tex::PlanePlacing placing;
        placing.planeMode = planeModeOf(s.mode);
        placing.pixelWidth = size / measured * scale * hScale;
        placing.pixelHeight = size / measured * scale * vScale;
        placing.angleDegrees = s.angle;
        placing.hook = hook;
        return TQL::makeHandle<tex::TextureToolPlane>(loaded_, placing, output);
    }
    case TextureSettings::cube: {
        if (s.cubeFilename.empty()) {
            lastError_ = L"The texture has no cube picture";
            return nullptr;
        }
        if (!loadedCube_ || loadedCubeName_ != s.cubeFilename) {
            loadedCube_ = nullptr;
            if (!tex::loadCubeTextureFile(s.cubeFilename, loadedCube_, lastError_)) {
                return nullptr;
            }
            loadedCubeName_ = s.cubeFilename;
        }
        output.flags = outputFlags(loadedCube_->flags());
        return TQL::makeHandle<tex::TextureToolCube>(loadedCube_, s.cubeAxis, s.cubeAngle, output);
    }
    case TextureSettings::noise: {
        TQL::Handle<tex::AlphaNoiseTexture> noise;
        float normal[3] = {0, 0, 1};
        const std::string plane(s.plane.begin(), s.plane.end());
        if (!plane.empty() && plane != "0" &&
            std::sscanf(plane.c_str(), "%f/%f/%f", &normal[0], &normal[1], &normal[2]) == 3) {
            noise = TQL::makeHandle<tex::PlaneNoise>(s.complexity, s.amplitude, s.bias, s.frequency,
                                                     normal, 0.0f, s.symmetric, s.invert);
        } else {
            noise = TQL::makeHandle<tex::SimpleNoise>(s.complexity, 1.0, s.bias, s.invert);
        }
        output.flags = tex::textureColour;
        const double scale = s.scale > 0 ? s.scale : 1.0;
        return TQL::makeHandle<tex::TextureTool3d>(
            TQL::makeHandle<tex::NoiseTexture3d>(noise, false, true), s.size * scale, output);
    }
    default:
        lastError_ = L"Unknown texture type " + std::to_wstring(s.type);
        return nullptr;
    }
}

void CSetTexture::build() {
    TQL::Handle<TextureTool> tool;
    if (Toolbox::instance().state.textureOn) {
        tool = makeTexture();
        if (auto* plane = dynamic_cast<tex::TextureToolPlane*>(tool.get())) {
            plane->setCurrent(true);
        }
    } else {
        lastError_.clear();
    }
    ToolSelection::instance().texture = tool;
}

void CSetTexture::setDefaults() {
    settings = TextureSettings();
}

void CSetTexture::readStyle() {
    TextureSettings& s = settings;
    s.type = std::clamp(getInt(L"Type", s.type), 0, 3);
    s.threshold = getBool(L"Threshold", s.threshold);
    s.threshCurrent = getBool(L"ThreshCurrent", s.threshCurrent);
    s.dark = std::clamp(getDouble(L"Dark", s.dark), 0.0, 1.0);
    s.light = std::clamp(getDouble(L"Light", s.light), 0.0, 1.0);
    s.thresholdSoft = std::clamp(getDouble(L"ThresholdSoft", s.thresholdSoft), 0.0, 1.0);
    const int mode = textureModeFromName(getString(L"Mode", textureModeName(s.mode)));
    if (mode >= 0) {
        s.mode = mode;
    }
    s.angle = getInt(L"Angle", s.angle);
    s.repeatX = getBool(L"RepeatX", s.repeatX);
    s.repeatY = getBool(L"RepeatY", s.repeatY);
    s.hookX = getDouble(L"HookX", s.hookX);
    s.hookY = getDouble(L"HookY", s.hookY);
    s.measure = std::clamp(getInt(L"Measure", s.measure), 0, 1);
    s.size = std::max(getDouble(L"Size", s.size), 1e-6);
    s.filename = getPath(L"Filename", s.filename);
    s.reflectX = getBool(L"ReflectX", s.reflectX);
    s.reflectY = getBool(L"ReflectY", s.reflectY);
    s.tiled = getBool(L"Tiled", s.tiled);
    s.hookFloat = getBool(L"HookFloat", s.hookFloat);
    s.scale = std::max(getDouble(L"Scale", s.scale), 1e-6);
    s.hScale = std::max(getDouble(L"HScale", s.hScale), 1e-6);
    s.vScale = std::max(getDouble(L"VScale", s.vScale), 1e-6);
    s.linkScales = getBool(L"LinkScales", s.linkScales);
    s.cubeFilename = getPath(L"CubeFilename", s.cubeFilename);
    s.cubeAngle = getInt(L"CubeAngle", s.cubeAngle);
    s.cubeAxis = getVector(L"CubeAxis", s.cubeAxis);
    s.captureDist = getDouble(L"CaptureDist", s.captureDist);
    s.captureNoise = getDouble(L"CaptureNoise", s.captureNoise);
    s.bias = std::clamp(getDouble(L"Bias", s.bias), 0.0, 1.0);
    s.complexity = std::max(getDouble(L"Complexity", s.complexity), 0.0);
    s.invert = getBool(L"Invert", s.invert);
    s.frequency = getDouble(L"Frequency", s.frequency);
    s.amplitude = getDouble(L"Amplitude", s.amplitude);
    s.plane = getString(L"Plane", s.plane);
    s.symmetric = getBool(L"Symmetric", s.symmetric);
}

void CSetTexture::writeStyle() {
    const TextureSettings& s = settings;
    setInt(L"Type", s.type);
    setBool(L"Threshold", s.threshold);
    setBool(L"ThreshCurrent", s.threshCurrent);
    setDouble(L"Dark", s.dark);
    setDouble(L"Light", s.light);
    setDouble(L"ThresholdSoft", s.thresholdSoft);
    setString(L"Mode", textureModeName(s.mode));
    setInt(L"Angle", s.angle);
    setBool(L"RepeatX", s.repeatX);
    setBool(L"RepeatY", s.repeatY);
    setDouble(L"HookX", s.hookX);
    setDouble(L"HookY", s.hookY);
    setInt(L"Measure", s.measure);
    setDouble(L"Size", s.size);
    setPath(L"Filename", s.filename);
    setBool(L"ReflectX", s.reflectX);
    setBool(L"ReflectY", s.reflectY);
    setBool(L"Tiled", s.tiled);
    setBool(L"HookFloat", s.hookFloat);
    setDouble(L"Scale", s.scale);
    setDouble(L"HScale", s.hScale);
    setDouble(L"VScale", s.vScale);
    setBool(L"LinkScales", s.linkScales);
    setPath(L"CubeFilename", s.cubeFilename);
    setInt(L"CubeAngle", s.cubeAngle);
    setVector(L"CubeAxis", s.cubeAxis);
    setDouble(L"CaptureDist", s.captureDist);
    setDouble(L"CaptureNoise", s.captureNoise);
    setDouble(L"Bias", s.bias);
    setDouble(L"Complexity", s.complexity);
    setBool(L"Invert", s.invert);
    setDouble(L"Frequency", s.frequency);
    setDouble(L"Amplitude", s.amplitude);
    setString(L"Plane", s.plane);
    setBool(L"Symmetric", s.symmetric);
}

TQL::Handle<TextureTool> makeTextureFromStyle(StyleStorage& style, std::wstring* error) {
    CSetTexture tool;
    {
        const CToolStyle::Attach attach(style);
        tool.readStyle();
    }
    auto texture = tool.makeTexture();
    if (!texture && error) {
        *error = tool.lastError();
    }
    return texture;
}
