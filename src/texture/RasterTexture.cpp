#include "texture/RasterTexture.h"

#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "interchange/raster/RasterImport.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace {
/// Points handed to the map at once when coordinates are flipped.
constexpr int maxRun = 256;
} // namespace

namespace tex {

RasterTexture::RasterTexture(const TQL::Handle<MipMap>& map, float worldWidth, float worldHeight)
    : worldWidth_(worldWidth), worldHeight_(worldHeight), plain_(map), current_(map) {
    if (map->hasAlpha) {
        const Raster& image = map->exactLevel(0);
        const std::size_t n = static_cast<std::size_t>(image.width) * image.height;
        for (std::size_t i = 1; i < n && !varyingAlpha_; ++i) {
            varyingAlpha_ = image.alpha[i] != image.alpha[0];
        }
    }
}

Status readTexturePicture(const std::wstring& path, const std::wstring& cannotLoad,
                          TQL::Handle<RasterImport>& import, std::wstring& error) {
    import = TQL::makeHandle<RasterImport>();
    const Status s = import->read(path);
    if (s != status::ok || !import->raster()) {
        error = cannotLoad + L": " + import->errorText();
        return s != status::ok ? s : status::damaged;
    }
    return status::ok;
}

Status RasterTexture::load(const std::wstring& path, bool tiled, Reporter* progress,
                           TQL::Handle<RasterTexture>& texture, std::wstring& error) {
    texture = nullptr;
    const std::wstring prefix = L"The texture \"" + path + L"\" could not be loaded";
    try {
        TQL::Handle<RasterImport> import;
        if (const Status s = readTexturePicture(path, prefix, import, error); s != status::ok) {
            return s;
        }
        const ::Raster& picture = *import->raster();
        std::vector<float> alpha;
        if (picture.hasAlpha()) {
            alpha.resize(picture.alpha.size());
            for (std::size_t i = 0; i < alpha.size(); ++i) {
                alpha[i] = picture.alpha[i] / 255.0f;
            }
        }
        auto map = TQL::makeHandle<MipMap>(picture.width, picture.height, picture.colour.data(),
                                           alpha.empty() ? nullptr : alpha.data(), tiled, progress);
        texture = TQL::makeHandle<RasterTexture>(map, static_cast<float>(picture.width),
                                                 static_cast<float>(picture.height));
        return status::ok;
    } catch (const std::bad_alloc&) {
        error = prefix + L": there is not enough memory";
        return status::outOfMemory;
    } catch (const Reporter::Abandoned&) {
        error = prefix + L": stopped";
        return status::stopped;
    }
}

void RasterTexture::sample(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                           const float* footprint, int count) const {
    if (!flipU && !flipV) {
        current_->sample(rgb, alpha, u, v, footprint, count, clampEdge);
        return;
    }
    float fu[maxRun];
    float fv[maxRun];
    for (int at = 0; at < count; at += maxRun) {
        const int n = std::min(maxRun, count - at);
        const float w = static_cast<float>(pixelWidth());
        const float h = static_cast<float>(pixelHeight());
        for (int i = 0; i < n; ++i) {
            fu[i] = flipU ? w - u[at + i] : u[at + i];
            fv[i] = flipV ? h - v[at + i] : v[at + i];
        }
        current_->sample(rgb ? rgb + at * 3 : nullptr, alpha ? alpha + at : nullptr, fu, fv,
                         footprint + at, n, clampEdge);
    }
}

unsigned RasterTexture::flags() const {
    unsigned f = 0;
    if (plain_->hasColour) {
        f |= textureHasColour;
    }
    if (plain_->hasAlpha) {
        f |= textureHasAlpha;
        if (varyingAlpha_) {
            f |= textureVaryingAlpha;
        }
    }
    return f;
}

void RasterTexture::mirror(float u, float v, std::uint8_t (&rgb)[3]) const {
    const Raster& level = current_->exactLevel(0);
    if (flipU) {
        u = static_cast<float>(pixelWidth()) - u;
    }
    if (flipV) {
        v = static_cast<float>(pixelHeight()) - v;
    }
    auto wrap = [](float c, std::int32_t size) {
        std::int64_t i = static_cast<std::int64_t>(std::floor(c)) % size;
        return static_cast<std::int32_t>(i < 0 ? i + size : i);
    };
    const std::int32_t x = wrap(u, level.width);
    const std::int32_t y = wrap(v, level.height);
    if (!level.rgb) {
        rgb[0] = rgb[1] = rgb[2] = 0;
        return;
    }
    const std::uint8_t* p = level.rgb + (static_cast<std::size_t>(y) * level.width + x) * 3;
    rgb[0] = p[0];
    rgb[1] = p[1];
    rgb[2] = p[2];
}

void RasterTexture::setReflected(bool on) {
    if (on == mirrorOn_) {
        return;
    }
    mirrorOn_ = on;
    if (!on) {
        plain_->wrapX = current_->wrapX;
        plain_->wrapY = current_->wrapY;
        current_ = plain_;
        return;
    }
    if (!mirrored_) {
        const Raster& image = plain_->exactLevel(0);
        const std::int32_t w = image.width;
        const std::int32_t h = image.height;
        std::vector<std::uint8_t> rgb(image.rgb ? static_cast<std::size_t>(w) * h * 12 : 0);
        std::vector<float> alpha(plain_->hasAlpha ? static_cast<std::size_t>(w) * h * 4 : 0);
        for (std::int32_t y = 0; y < h; ++y) {
            for (std::int32_t x = 0; x < w; ++x) {
                const std::size_t from = static_cast<std::size_t>(y) * w + x;
                const std::int32_t xs[2] = {x, 2 * w - x - 1};
                const std::int32_t ys[2] = {y, 2 * h - y - 1};
                for (std::int32_t ty : ys) {
                    for (std::int32_t tx : xs) {
                        const std::size_t to = static_cast<std::size_t>(ty) * 2 * w + tx;
                        if (!rgb.empty()) {
                            std::copy_n(image.rgb + from * 3, 3, rgb.data() + to * 3);
                        }
                        if (!alpha.empty()) {
                            alpha[to] = image.alpha[from];
                        }
                    }
                }
            }
        }
        mirrored_ = TQL::makeHandle<MipMap>(2 * w, 2 * h, rgb.empty() ? nullptr : rgb.data(),
                                            alpha.empty() ? nullptr : alpha.data(), plain_->tiled);
    }
    mirrored_->wrapX = current_->wrapX;
    mirrored_->wrapY = current_->wrapY;
    current_ = mirrored_;
}

void RasterTexture::setWrap(bool x, bool y) {
    current_->wrapX = x;
    current_->wrapY = y;
}

} // namespace tex
