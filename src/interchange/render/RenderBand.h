#pragma once

#include "effects/Light.h"
#include "image/MaterialRecord.h"
#include "interchange/render/ScreenVertex.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// What a triangle's pixels need, worked out once a triangle before it is filled.
struct TriangleShade {
    MaterialId material = 0;
    /// The triangle's number through the model's meshes: a surface doesn't shadow itself.
    std::uint32_t owner = 0;
    /// The material colour, red, green, blue, 0 to 1.
    double base[3] = {0, 0, 0};
    /// Normals vary over the triangle.
    bool smooth = false;
    /// Some pixel work: a smooth normal or a shadow test.
    bool perPixel = false;
    /// The face normal, turned towards the eye.
    Vector<3> normal;
    /// Flat triangles: the shadow bits known for the whole triangle (lights it faces away
    /// from), and each light's part of the illumination.
    std::uint32_t constantMask = 0;
    std::vector<LightColour> lightParts;
    /// The colour and flags of a pixel when nothing more is blocked.
    std::uint32_t colour = 0;
    std::uint32_t flags = 0;
};

/// What the pixels of one filled triangle (or piece of a clipped one) need when their
/// shading is done: the triangle's shade and the screen planes of its surface values.
struct ShadeWork {
    MaterialId material = 0;
    bool smooth = false;
    std::uint32_t owner = 0;
    std::uint32_t constantMask = 0;
    std::uint32_t colour = 0;
    /// Flat triangles: where the band's list of light parts starts.
    std::uint32_t lightPartsFirst = 0;
    double base[3] = {0, 0, 0};
    Vector<3> normal;
    /// Perspective-correct interpolation: each value times invW is linear, as is invW.
    ScreenLinear invW, point[3], normalTimesInvW[3];
};

/// The pixels of a band of rows while it is drawn: per pixel the nearest depth code so far
/// with its colour (blue, green, red, coverage in memory order), material, buffer flags,
/// and the shading work still to do there (an index into `works`, or noWork).
struct RenderBand {
    static constexpr std::uint32_t noWork = 0xFFFFFFFFu;
    /// The pixels each channel has past the last row's end: a row may be filled in groups
    /// of up to this many pixels, read and written back whole.
    static constexpr std::size_t groupRoom = 8;

    std::int32_t width = 0;
    std::int32_t top = 0;
    std::int32_t bottom = 0;
    /// The flags are kept only when some light casts shadows; otherwise a depth means a
    /// drawn pixel.
    bool keepFlags = false;
    std::vector<std::uint32_t> codes;
    std::vector<std::uint32_t> colours;
    std::vector<MaterialId> materials;
    std::vector<std::uint32_t> flags;
    std::vector<std::uint32_t> workOf;
    std::vector<ShadeWork> works;
    std::vector<LightColour> lightParts;

    /// Room for `rows` rows of `w` pixels.
    void allocate(std::int32_t w, std::int32_t rows, bool flagsKept);
    /// Starts the rows top to bottom - 1: nothing drawn, no work.
    void start(std::int32_t first, std::int32_t end);
    /// The index of the first pixel of image row y.
    std::size_t rowStart(std::int32_t y) const {
        return static_cast<std::size_t>(y - top) * static_cast<std::size_t>(width);
    }
};
