#pragma once

#include "core/Status.h"
#include "texture/MipMap.h"
#include "texture/Texture.h"

#include <string>

class RasterImport;
class Reporter;

namespace tex {

/// Reads a texture's picture through RasterImport into `import`. On failure `error` is
/// `cannotLoad` (the sentence saying which texture could not be loaded), a colon and the
/// reader's reason, and the status is not 0.
[[nodiscard]] Status readTexturePicture(const std::wstring& path, const std::wstring& cannotLoad,
                                        TQL::Handle<RasterImport>& import, std::wstring& error);

/// A picture as a texture: a MipMap sampled in the picture's pixels, optionally flipped,
/// tiled or reflected. Reflection (a map of twice the size holding the picture and its
/// mirror images) is built the first time it is switched on, since it costs four times the
/// memory.
class RasterTexture : public Texture2d, public ExportTexture {
public:
    /// `map` is the picture as given; `worldWidth` and `worldHeight` its size in the world.
    RasterTexture(const TQL::Handle<MipMap>& map, float worldWidth, float worldHeight);

    /// Reads a picture (any file RasterImport reads) into a texture. 0 on success; on
    /// failure `texture` is null and `error` says that the texture could not be loaded, and
    /// why (-10 when memory ran out while the pyramid was built, -11 when stopped).
    [[nodiscard]] static Status load(const std::wstring& path, bool tiled, Reporter* progress,
                                     TQL::Handle<RasterTexture>& texture, std::wstring& error);

    void sample(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                const float* footprint, int count) const override;
    unsigned flags() const override;
    void mirror(float u, float v, std::uint8_t (&rgb)[3]) const override;

    /// Switches the reflected form on or off; the mirrored map is built on first need.
    void setReflected(bool on);
    bool reflected() const { return mirrorOn_; }
    /// The size sampled: twice the picture's when reflected.
    std::int32_t pixelWidth() const { return current_->width; }
    std::int32_t pixelHeight() const { return current_->height; }
    void setWrap(bool x, bool y);

    bool flipU = false;
    bool flipV = false;
    bool clampEdge = false;

    const MipMap& currentMap() const { return *current_; }

    // ExportTexture.
    std::int32_t width() const override { return plain_->width; }
    std::int32_t height() const override { return plain_->height; }
    float worldWidth() const override { return worldWidth_; }
    float worldHeight() const override { return worldHeight_; }
    const std::uint8_t* rgbPixels() const override { return plain_->exactLevel(0).rgb; }
    const float* alphaPixels() const override { return plain_->exactLevel(0).alpha; }
    unsigned flagsForExport() const override { return flags() | 5u; }

private:
    float worldWidth_;
    float worldHeight_;
    TQL::Handle<MipMap> plain_;
    TQL::Handle<MipMap> mirrored_;
    TQL::Handle<MipMap> current_;
    bool mirrorOn_ = false;
    bool varyingAlpha_ = false;
};

} // namespace tex
