#pragma once

#include "core/Handle.h"
#include "pipeline/PipelineTool.h"
#include "styles/CToolUI.h"

#include <functional>
#include <string>

class StyleStorage;
namespace tex {
class RasterTexture;
class Texture3d;
} // namespace tex

/// Every setting of the grain page.
struct GrainSettings {
    enum Type : int {
        noise = 0,  ///< procedural noise on the image
        raster = 1, ///< a picture ("Filename"), laid on the image
        rgb = 2,    ///< the image's own brightness
        solid = 3,  ///< a solid texture in the scene: a cube image ("CubeFilename"), or noise
        style = 4,  ///< the grain of a stored style ("Library", "Category")
    };
    int type = noise;
    /// Noise: the size of its cells in pixels (or world units for solid noise); raster:
    /// image pixels per picture pixel.
    double scale = 8.0;
    double fractality = 1.0;
    /// 0.5 leaves the grain's values as they are; lower darkens, higher lightens.
    double bias = 0.5;
    bool invert = false;
    /// Raster: rotation in degrees.
    int angle = 0;
    /// Raster: the image point the picture is laid from, or the stroke's start with
    /// `hookFloat`.
    double hookX = 0;
    double hookY = 0;
    bool hookFloat = false;
    std::wstring filename;
    std::wstring cubeFilename;
    /// Raster: 0 the picture repeated as it is, 1 repeated with its mirror images.
    int mode = 0;
    bool repeatX = true;
    bool repeatY = true;
    /// RGB: read the original image rather than the image before the stroke.
    bool restore = false;
    std::wstring library;
    std::wstring category;

    bool operator==(const GrainSettings&) const = default;
};

/// The grain tool (tool 2018, section "Grain"). `build` installs the grain of `settings` in
/// the grain slot of the tool selection when the toolbox's `grainOn` is set, and clears the
/// slot otherwise (and when the grain can't be made: lastError() says why, for instance a
/// picture that could not be loaded; the painting then goes on without grain).
///
/// Keys: "Type", "Scale", "Fractality", "Bias", "Invert", "Angle", "HookX", "HookY",
/// "HookFloat", "Filename", "CubeFilename", "Mode", "RepeatX", "RepeatY", "Restore",
/// "Library", "Category".
class CSetGrain : public CToolUI {
public:
    static constexpr std::uint16_t id = 2018;

    CSetGrain();
    ~CSetGrain() override;

    GrainSettings settings;

    /// The grain of the settings, or null with lastError() set.
    TQL::Handle<GrainTool> makeGrain() const;
    const std::wstring& lastError() const { return lastError_; }

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;
    bool hasThumbnail() const override { return true; }

    /// How a "style" grain finds its style: the storage of the named library and category,
    /// or null. Without a lookup such a grain cannot be made.
    using StyleLookup =
        std::function<StyleStorage*(const std::wstring& library, const std::wstring& category)>;
    static void setStyleLookup(StyleLookup lookup);

private:
    TQL::Handle<GrainTool> makeGrain(int depth) const;

    mutable std::wstring lastError_;
    // The picture last loaded, kept while its name stays.
    mutable std::wstring loadedName_;
    mutable TQL::Handle<tex::RasterTexture> loaded_;
    mutable std::wstring loadedCubeName_;
    mutable TQL::Handle<tex::Texture3d> loadedCube_;
};

/// The grain that a style's "Grain" keys make (over the factory settings), or null when it
/// can't be made, with `error` (may be null) saying why. For paint scripts and styles.
TQL::Handle<GrainTool> makeGrainFromStyle(StyleStorage& style, std::wstring* error = nullptr);
