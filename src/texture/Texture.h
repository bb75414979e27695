#pragma once

#include "core/Handle.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tex {

/// Bits of a texture's flags.
enum TextureFlag : unsigned {
    textureHasColour = 1,    ///< the texture has colour
    textureVaryingAlpha = 2, ///< its alpha varies from pixel to pixel
    textureHasAlpha = 4,     ///< it has an alpha at all
};

/// Anything sampled by a point in space (solid textures, cube images by direction). Arrays
/// of `count` points: one virtual call a run of pixels. Colour is three bytes a point in
/// ColourPOD order.
class Texture3d : public TQL::Handlable {
public:
    virtual void sample(std::uint8_t* rgb, float* alpha, const float* x, const float* y,
                        const float* z, const float* footprint, int count) const = 0;
    virtual unsigned flags() const = 0;
};

/// A raster sampled in two dimensions, (u, v) in its pixels.
class Texture2d : public TQL::Handlable {
public:
    virtual void sample(std::uint8_t* rgb, float* alpha, const float* u, const float* v,
                        const float* footprint, int count) const = 0;
    virtual unsigned flags() const = 0;
    /// The colour at a point with no filtering (three bytes, ColourPOD order).
    virtual void mirror(float u, float v, std::uint8_t (&rgb)[3]) const = 0;
};

/// How a texture is handed to an exporter: its pixels and its size in the world.
class ExportTexture {
public:
    virtual ~ExportTexture() = default;
    virtual std::int32_t width() const = 0;
    virtual std::int32_t height() const = 0;
    virtual float worldWidth() const = 0;
    virtual float worldHeight() const = 0;
    /// width x height pixels of three bytes (ColourPOD order), null without colour.
    virtual const std::uint8_t* rgbPixels() const = 0;
    /// width x height floats, null without alpha.
    virtual const float* alphaPixels() const = 0;
    /// The texture's flags with the colour and alpha bits set (flags() OR 5).
    virtual unsigned flagsForExport() const = 0;
};

/// The reference a model carries to a texture it doesn't own: a name, and the texture
/// itself read on demand. Each model reader has its own kind.
class TextureReference : public TQL::Handlable {
public:
    virtual std::wstring name() const = 0;
    /// The file or resource name the texture comes from.
    virtual std::wstring sourceName() const = 0;
    /// The texture, read on the first call; null if it cannot be read (errorText says why).
    virtual TQL::Handle<Texture2d> texture() = 0;
    virtual std::wstring errorText() const = 0;
};

/// A small image in memory, for previews and style pictures.
class Thumb : public TQL::Handlable {
public:
    virtual std::int32_t thumbWidth() const = 0;
    virtual std::int32_t thumbHeight() const = 0;
};

/// A thumb of elements E: std::uint16_t holds 5-5-5 RGB (red in the low bits),
/// std::uint8_t grey levels.
template <class E> class VectorThumb : public Thumb {
public:
    VectorThumb(std::int32_t w, std::int32_t h)
        : pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h)), width(w), height(h) {}
    std::int32_t thumbWidth() const override { return width; }
    std::int32_t thumbHeight() const override { return height; }
    E& at(std::int32_t x, std::int32_t y) {
        return pixels[static_cast<std::size_t>(y) * width + x];
    }

    std::vector<E> pixels;
    std::int32_t width;
    std::int32_t height;
};

/// 5-5-5 RGB, red in the low bits, from bytes.
inline std::uint16_t pack555(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    return static_cast<std::uint16_t>((r >> 3) | ((g >> 3) << 5) | ((b >> 3) << 10));
}

} // namespace tex
