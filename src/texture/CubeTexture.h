#pragma once

#include "core/Status.h"
#include "texture/CubeMipMap.h"
#include "texture/Texture.h"

#include <string>

class Reporter;

namespace tex {

/// A cube image as a solid texture sampled by direction: the point (x, y, z) is taken as
/// a direction from the centre and reaches the face of its dominant axis. The footprint is
/// in the units of the point: it is turned into texels by the point's distance.
class CubeTexture : public Texture3d, public ExportTexture {
public:
    CubeTexture(const TQL::Handle<CubeMipMap>& map, float worldSize);

    /// Reads a cube strip picture (six square faces side by side) into a texture. 0 on
    /// success; otherwise `texture` is null and `error` says that it could not be loaded.
    [[nodiscard]] static Status load(const std::wstring& path, Reporter* progress,
                                     TQL::Handle<CubeTexture>& texture, std::wstring& error);

    void sample(std::uint8_t* rgb, float* alpha, const float* x, const float* y, const float* z,
                const float* footprint, int count) const override;
    unsigned flags() const override;

    const CubeMipMap& map() const { return *map_; }

    // ExportTexture: the strip of faces.
    std::int32_t width() const override { return map_->level(0).width; }
    std::int32_t height() const override { return map_->level(0).height; }
    float worldWidth() const override { return worldSize_ * 6; }
    float worldHeight() const override { return worldSize_; }
    const std::uint8_t* rgbPixels() const override { return map_->level(0).rgb; }
    const float* alphaPixels() const override { return map_->level(0).alpha; }
    unsigned flagsForExport() const override { return flags() | 5u; }

private:
    TQL::Handle<CubeMipMap> map_;
    float worldSize_;
};

/// CubeTexture::load as a Texture3d, without progress; false with `error` set on failure.
bool loadCubeTextureFile(const std::wstring& path, TQL::Handle<Texture3d>& texture,
                         std::wstring& error);

} // namespace tex
