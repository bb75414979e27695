#pragma once

#include "core/Handle.h"
#include "core/Point.h"
#include "pipeline/PipelineTool.h"
#include "styles/CToolUI.h"

#include <string>

class StyleStorage;
namespace tex {
class RasterTexture;
class Texture3d;
} // namespace tex

/// Every setting of the texture page, each with its style key (section "Texture").
struct TextureSettings {
    /// "Type": what the texture is.
    enum Type : int {
        none = 0,   ///< no texture: no stage
        raster = 1, ///< a picture ("Filename"), laid by "Mode"
        cube = 2,   ///< a cube picture ("CubeFilename") seen from the eye
        noise = 3,  ///< solid noise in the scene
    };
    /// "Mode" (a name in a style): how a picture is laid. The numbers are those of a style.
    enum Mode : int {
        twoD = 0,          ///< "TwoD": flat on the image
        stretchedTwoD = 1, ///< "StretchedTwoD": flat, stretched over the whole image
        tangent = 2,       ///< "Tangent": on the surface under each click
        front = 3,         ///< "Front": on a plane facing the view
        wrapped = 4,       ///< "Wrapped": on each clicked surface, folded on from the last
        autowrapped = 5,   ///< "Autowrapped": as wrapped
        autoplane = 6,     ///< "Autoplane": on the clicked surface's plane, also off it
    };

    int type = none;       ///< "Type"
    std::wstring filename; ///< "Filename" (path)
    int mode = tangent;    ///< "Mode"
    /// "Size": the real size of the picture's measured side: millimetres on surfaces,
    /// image pixels in the flat modes.
    double size = 1000.0;
    int measure = 0;        ///< "Measure": the side "Size" gives, 0 width, 1 height
    double scale = 1.0;     ///< "Scale": a factor on the size (and noise scale)
    double hScale = 1.0;    ///< "HScale": a factor across
    double vScale = 1.0;    ///< "VScale": a factor down
    bool linkScales = true; ///< "LinkScales": "VScale" follows "HScale"
    int angle = 0;          ///< "Angle": a turn of the picture, degrees
    /// "HookX", "HookY": the point of the picture, as fractions of its width and height,
    /// that lies at the click; with "HookFloat" the picture is placed from each stroke's
    /// start, otherwise from the image's corner (flat) or the first click (surfaces).
    double hookX = 0.0;
    double hookY = 0.0;
    bool hookFloat = false;      ///< "HookFloat"
    bool repeatX = true;         ///< "RepeatX": the picture repeats across
    bool repeatY = true;         ///< "RepeatY": the picture repeats down
    bool tiled = true;           ///< "Tiled": the picture's pyramid wraps at its edges
    bool reflectX = false;       ///< "ReflectX": repeated with its mirror images
    bool reflectY = false;       ///< "ReflectY": the same (either switches it on)
    bool threshold = false;      ///< "Threshold": coverage cut by brightness
    bool threshCurrent = false;  ///< "ThreshCurrent": the image's brightness, not the texture's
    double dark = 0.25;          ///< "Dark": brightness at which coverage is 0
    double light = 0.75;         ///< "Light": brightness at which coverage is full
    double thresholdSoft = 0.0;  ///< "ThresholdSoft": the width of a step when Dark = Light
    std::wstring cubeFilename;   ///< "CubeFilename" (path)
    int cubeAngle = 0;           ///< "CubeAngle": a turn of the cube about "CubeAxis", degrees
    Vector<3> cubeAxis{0, 0, 1}; ///< "CubeAxis"
    double captureDist = 0.0;    ///< "CaptureDist": kept for the page; no effect on painting
    double captureNoise = 0.0;   ///< "CaptureNoise": kept for the page; no effect on painting
    double bias = 0.5;           ///< "Bias": noise bias, 0.5 neutral
    double complexity = 1.0;     ///< "Complexity": noise fractality
    bool invert = false;         ///< "Invert": noise inverted
    double frequency = 1.0;      ///< "Frequency": bands of plane noise per world unit
    double amplitude = 1.0;      ///< "Amplitude": the distortion of plane noise
    /// "Plane": for plane noise the bands' normal as "x/y/z" (empty: simple noise).
    std::wstring plane;
    bool symmetric = false; ///< "Symmetric": plane noise bands symmetric

    bool operator==(const TextureSettings&) const = default;
};

/// The style name of a mode number ("TwoD" for 0 ...), and back (-1 for an unknown name).
const wchar_t* textureModeName(int mode);
int textureModeFromName(const std::wstring& name);

/// The texture tool (tool 2015, section "Texture"). `build` installs the texture stage of
/// `settings` in the texture slot of the tool selection when the toolbox's `textureOn` is
/// set and the type is not none, and clears the slot otherwise. A texture that is not
/// loaded leaves the stage out and says so: the slot is cleared and lastError() says which
/// texture could not be loaded and why; painting then goes on with plain colour.
class CSetTexture : public CToolUI {
public:
    static constexpr std::uint16_t id = 2015;

    CSetTexture();
    ~CSetTexture() override;

    TextureSettings settings;

    /// The stage of the settings (the toolbox's texture opacity applied), or null: for the
    /// type none with no error, else with lastError() set.
    TQL::Handle<TextureTool> makeTexture() const;
    const std::wstring& lastError() const { return lastError_; }

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;
    bool hasThumbnail() const override { return true; }

private:
    mutable std::wstring lastError_;
    // The picture last loaded, kept while its name and tiling stay.
    mutable std::wstring loadedName_;
    mutable bool loadedTiled_ = false;
    mutable TQL::Handle<tex::RasterTexture> loaded_;
    mutable std::wstring loadedCubeName_;
    mutable TQL::Handle<tex::Texture3d> loadedCube_;
};

/// The texture stage that a style's "Texture" keys make (over the factory settings), or
/// null when the style has none or it can't be made, with `error` (may be null) saying why.
/// For paint scripts and styles.
TQL::Handle<TextureTool> makeTextureFromStyle(StyleStorage& style, std::wstring* error = nullptr);
