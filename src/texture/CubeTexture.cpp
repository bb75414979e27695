#include "texture/CubeTexture.h"

#include "core/Reporter.h"
#include "interchange/raster/RasterImport.h"
#include "texture/RasterTexture.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace tex {

CubeTexture::CubeTexture(const TQL::Handle<CubeMipMap>& map, float worldSize)
    : map_(map), worldSize_(worldSize) {}

Status CubeTexture::load(const std::wstring& path, Reporter* progress,
                         TQL::Handle<CubeTexture>& texture, std::wstring& error) {
    texture = nullptr;
    const std::wstring prefix = L"The cube texture \"" + path + L"\" could not be loaded";
    try {
        TQL::Handle<RasterImport> import;
        if (const Status s = readTexturePicture(path, prefix, import, error); s != status::ok) {
            return s;
        }
        const ::Raster& picture = *import->raster();
        if (picture.width != 6 * picture.height) {
            error = prefix + L": it is not six square faces side by side";
            return status::damaged;
        }
        std::vector<float> alpha;
        if (picture.hasAlpha()) {
            alpha.resize(picture.alpha.size());
            for (std::size_t i = 0; i < alpha.size(); ++i) {
                alpha[i] = picture.alpha[i] / 255.0f;
            }
        }
        auto map = TQL::makeHandle<CubeMipMap>(picture.height, picture.colour.data(),
                                               alpha.empty() ? nullptr : alpha.data(), progress);
        texture = TQL::makeHandle<CubeTexture>(map, static_cast<float>(picture.height));
        return status::ok;
    } catch (const std::bad_alloc&) {
        error = prefix + L": there is not enough memory";
        return status::outOfMemory;
    } catch (const Reporter::Abandoned&) {
        error = prefix + L": stopped";
        return status::stopped;
    }
}

void CubeTexture::sample(std::uint8_t* rgb, float* alpha, const float* x, const float* y,
                         const float* z, const float* footprint, int count) const {
    // The footprint is an angle: its size over the distance, in texels at the face centre.
    constexpr int run = 256;
    float texels[run];
    const float perRadian = static_cast<float>(map_->faceSize() - 1) / 2.0f;
    for (int at = 0; at < count; at += run) {
        const int n = std::min(run, count - at);
        for (int i = 0; i < n; ++i) {
            const int k = at + i;
            const float d = std::sqrt(x[k] * x[k] + y[k] * y[k] + z[k] * z[k]);
            texels[i] = d > 0 ? footprint[k] / d * perRadian : 0.0f;
        }
        map_->sample(rgb ? rgb + at * 3 : nullptr, alpha ? alpha + at : nullptr, x + at, y + at,
                     z + at, texels, n);
    }
}

unsigned CubeTexture::flags() const {
    return (map_->hasColour() ? textureHasColour : 0u) |
           (map_->hasAlpha() ? textureHasAlpha | textureVaryingAlpha : 0u);
}

bool loadCubeTextureFile(const std::wstring& path, TQL::Handle<Texture3d>& texture,
                         std::wstring& error) {
    TQL::Handle<CubeTexture> cube;
    if (CubeTexture::load(path, nullptr, cube, error) != status::ok) {
        return false;
    }
    texture = cube;
    return true;
}

} // namespace tex
